#include "res/resources.h"

QString KorvelSkinPath(int bitmap) {
  return QStringLiteral(":/skins/%1.png").arg(bitmap);
}

QString KorvelVersion() {
  return QStringLiteral(KORVEL_VERSION);
}

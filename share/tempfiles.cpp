// Numbers start at a value that changes from call to call and count on from
// there, so that names made in quick succession do not keep colliding with one
// another; each try creates the file exclusively, which settles races with
// other programs using the same folder.
#include "share/tempfiles.h"

#include <QDateTime>
#include <QFile>

QString MakeTempFileName(const QString &folder, const QString &prefix) {
  QString base = folder;
  if (!base.endsWith('/')) base += '/';
  const unsigned start = static_cast<unsigned>(QDateTime::currentMSecsSinceEpoch());
  for (unsigned step = 0; step < 0x10000; ++step) {
    const unsigned number = (start + step) & 0xFFFF;
    if (number == 0) continue;  // zero is not a name the scheme hands out
    const QString path =
        base + prefix + QString("%1").arg(number, 4, 16, QChar('0')).toUpper() + ".tmp";
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) return path;
    if (!QFile::exists(path)) return QString();  // the folder itself refuses us
  }
  return QString();
}

// korvelapp: the photo application.
#include <QApplication>

#include "app/korvelapp.h"

int main(int argc, char **argv) {
  QApplication qt(argc, argv);
  QApplication::setApplicationName("KorvelApp");
  QApplication::setDesktopFileName("korvelapp");
  CKorvelApp app;
  if (!app.InitInstance(QApplication::arguments())) return 1;
  return QApplication::exec();
}

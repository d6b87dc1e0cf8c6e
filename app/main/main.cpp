// korvelapp: the photo application.
#include <QApplication>

#include "app/korvelapp.h"
#include "app/outputcommands.h"
#include "share/sharecommands.h"

int main(int argc, char **argv) {
  QApplication qt(argc, argv);
  QApplication::setApplicationName("KorvelApp");
  QApplication::setDesktopFileName("korvelapp");
  // Printing, e-mail, the outside editor and the online service sit above
  // the application, which reaches them through the form's output commands.
  CShareCommands output;
  COutputCommands::Install(&output);
  CKorvelApp app;
  if (!app.InitInstance(QApplication::arguments())) return 1;
  const int result = QApplication::exec();
  COutputCommands::Install(nullptr);
  return result;
}

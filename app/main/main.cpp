// korvelapp: the photo application.
#include <QApplication>
#include <QFileInfo>
#include <cstdio>

#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/openphotos.h"
#include "app/qtprompt.h"
#include "app/singleinstance.h"
#include "res/resources.h"
#include "share/outputcommands.h"
#include "share/sharecommands.h"

namespace {

QStringList RawArguments(int argc, char **argv) {
  QStringList arguments;
  for (int i = 0; i < argc; ++i)
    arguments << QString::fromLocal8Bit(argv[i]);
  return arguments;
}

// The later launch's folder means nothing to the instance it hands over to.
QStringList AbsolutePaths(const QStringList &paths) {
  QStringList absolute;
  for (const QString &path : paths)
    absolute << QFileInfo(path).absoluteFilePath();
  return absolute;
}

// A wrong command line: what is wrong, where to look, and the usual exit code.
int UsageError(const QString &problem) {
  std::fprintf(stderr, "korvelapp: %s\nTry 'korvelapp --help' for more information.\n",
               qPrintable(problem));
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  // Help and version come before Qt starts, so they work without a display.
  const CKorvelApp::CommandLine early = CKorvelApp::ParseCommandLine(RawArguments(argc, argv));
  if (early.action == CKorvelApp::CommandLine::kHelp) {
    std::fputs(qPrintable(CKorvelApp::Usage()), stdout);
    return 0;
  }
  if (early.action == CKorvelApp::CommandLine::kVersion) {
    std::printf("%s\n", qPrintable(CKorvelApp::VersionLine()));
    return 0;
  }
  if (early.action == CKorvelApp::CommandLine::kUsageError && early.longOption)
    return UsageError(early.problem);

  // Qt takes its own options (-platform, -style, ...) out of the arguments.
  QApplication qt(argc, argv);
  QApplication::setApplicationName("KorvelApp");
  QApplication::setApplicationVersion(KorvelVersion());
  QApplication::setDesktopFileName("korvelapp");
  const CKorvelApp::CommandLine line = CKorvelApp::ParseCommandLine(QApplication::arguments());
  if (line.action == CKorvelApp::CommandLine::kUsageError) return UsageError(line.problem);
  // A window already open on this display takes the photos and comes to the
  // front; this launch then has nothing more to do.
  // Photos handed over while the window is still being made wait for it.
  CPhotoInbox inbox;
  CSingleInstance instance(CSingleInstance::DefaultServerName());
  if (instance.Start(AbsolutePaths(line.paths)) == CSingleInstance::kHandedOver) return 0;
  QObject::connect(&instance, &CSingleInstance::pathsReceived,
                   [&inbox](const QStringList &paths) { inbox.Receive(paths); });
  // Printing, e-mail, the outside editor and the online service sit above
  // the application, which reaches them through the form's output commands.
  QtPrompt dialogs;
  KorvelPrompt::SetRealDialogs(&dialogs);
  CShareCommands output;
  COutputCommands::Install(&output);
  CKorvelApp app;
  if (!app.InitInstance(QApplication::arguments())) return 1;
  inbox.SetTarget(app.Document(), app.MainFrame());
  const int result = QApplication::exec();
  COutputCommands::Install(nullptr);
  return result;
}

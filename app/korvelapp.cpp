// Start-up.
#include "app/korvelapp.h"

#include <QCoreApplication>

#include <QGuiApplication>
#include <QSessionManager>

#include "app/formview.h"
#include "app/mainframe.h"
#include "app/shortcuts.h"
#include "photo/document.h"
#include "photo/settings.h"
#include "res/resources.h"

CKorvelApp::CKorvelApp() = default;
CKorvelApp::~CKorvelApp() = default;

void CKorvelApp::LoadStdProfileSettings(int count) {
  const auto settings = KorvelSettings();
  settings->beginGroup("Recent File List");
  for (int i = 1; i <= count; ++i) {
    const QString file = settings->value(QString("File%1").arg(i)).toString();
    if (!file.isEmpty()) recent_.append(file);
  }
  settings->endGroup();
}

CKorvelApp::CommandLine CKorvelApp::ParseCommandLine(const QStringList &arguments) {
  CommandLine line;
  QStringList words;
  bool options = true;
  for (const QString &argument : arguments.mid(1)) {
    if (options && argument == QLatin1String("--")) {
      options = false;
    } else if (options &&
               (argument == QLatin1String("--help") || argument == QLatin1String("-h"))) {
      line.action = CommandLine::kHelp;
      return line;
    } else if (options && argument == QLatin1String("--version")) {
      line.action = CommandLine::kVersion;
    } else if (options && argument.size() > 1 && argument.startsWith('-')) {
      if (line.action == CommandLine::kRun) {
        line.action = CommandLine::kUsageError;
        line.problem = QStringLiteral("unknown option '%1'").arg(argument);
        line.longOption = argument.startsWith(QLatin1String("--"));
      }
    } else {
      words.append(argument);
    }
  }
  if (line.action == CommandLine::kRun) line.path = words.join(' ');
  return line;
}

QString CKorvelApp::Usage() {
  return QStringLiteral(
      "Usage: korvelapp [OPTION]... [PHOTO]\n"
      "Open PHOTO (a JPEG, BMP, TIFF or other photo file) in KorvelApp's work area.\n"
      "\n"
      "  -h, --help     show this help and exit\n"
      "      --version  show the version and exit\n"
      "  --             end of options: what follows is the photo's name\n"
      "\n"
      "The words after the options make one path, joined by single spaces.\n"
      "Qt's own options, such as -platform NAME or -style NAME, work as well.\n"
      "See korvelapp(1) for the keyboard and the files the program uses.\n");
}

QString CKorvelApp::VersionLine() {
  return QStringLiteral("KorvelApp %1").arg(KorvelVersion());
}

bool CKorvelApp::InitInstance(const QStringList &arguments) {
  const CommandLine line = ParseCommandLine(arguments);
  if (line.action != CommandLine::kRun) return false;
  LoadStdProfileSettings(kRecentFiles);
  doc_ = std::make_unique<CKorvelAppDoc>();
  frame_ = std::make_unique<CMainFrame>(doc_.get());
  view_ = new CKorvelAppView(doc_.get(), frame_.get());
  frame_->SetView(view_);
  view_->OnInitialUpdate();
  new CKeyboard(frame_.get(), view_);
  DescribeFormButtons(view_);
  OrderFormTabs(view_);

  if (!line.path.isEmpty()) view_->OpenPhoto(line.path);

  // The session ending goes through the same question as closing the window.
  if (auto *gui = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
    QObject::connect(gui, &QGuiApplication::commitDataRequest, frame_.get(),
                     [this](QSessionManager &manager) {
                       if (manager.allowsInteraction() && !frame_->QueryClose()) manager.cancel();
                       manager.release();
                     });
  }
  frame_->show();
  return true;
}

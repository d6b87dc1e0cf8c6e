// Start-up.
#include "app/korvelapp.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <QGuiApplication>
#include <QSessionManager>

#include "app/formview.h"
#include "app/mainframe.h"
#include "app/openphotos.h"
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

namespace {

// The photos the words name. A file manager that passes one name without
// quoting it splits it at its spaces: when the joined words name a file and
// none of the words does on its own, they are that one name.
QStringList PathsOf(const QStringList &words) {
  if (words.size() < 2) return words;
  const QString joined = words.join(' ');
  if (!QFileInfo::exists(joined)) return words;
  for (const QString &word : words)
    if (QFileInfo::exists(word)) return words;
  return {joined};
}

}  // namespace

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
  if (line.action == CommandLine::kRun) line.paths = PathsOf(words);
  return line;
}

QString CKorvelApp::Usage() {
  return QStringLiteral(
      "Usage: korvelapp [OPTION]... [PHOTO]...\n"
      "Open each PHOTO (a JPEG, BMP, TIFF or other photo file, or a folder of them)\n"
      "in KorvelApp's work area, in the order given.\n"
      "\n"
      "  -h, --help     show this help and exit\n"
      "      --version  show the version and exit\n"
      "  --             end of options: what follows are photos' names\n"
      "\n"
      "A folder opens the photos in it, sorted by name. When KorvelApp is already\n"
      "running, the photos open in its window instead of a new one.\n"
      "Words that name no file, but name one joined by single spaces, are that one path.\n"
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

  // The session ending goes through the same question as closing the window.
  if (auto *gui = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
    QObject::connect(gui, &QGuiApplication::commitDataRequest, frame_.get(),
                     [this](QSessionManager &manager) {
                       if (manager.allowsInteraction() && !frame_->QueryClose()) manager.cancel();
                       manager.release();
                     });
  }
  frame_->show();
  // After the window shows, so that a long list opens under the eyes of its
  // progress; a photo that does not open is passed over in silence, as at
  // any start.
  OpenPhotos(doc_.get(), line.paths, frame_.get(), OpenReport::kSilent);
  return true;
}

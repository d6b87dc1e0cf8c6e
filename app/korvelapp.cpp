// Start-up.
#include "app/korvelapp.h"

#include <QGuiApplication>
#include <QSessionManager>

#include "app/document.h"
#include "app/formview.h"
#include "app/mainframe.h"

CKorvelApp::CKorvelApp() = default;
CKorvelApp::~CKorvelApp() = default;

std::unique_ptr<QSettings> CKorvelApp::Settings() {
  return std::make_unique<QSettings>("Local AppWizard-Generated Applications", "KorvelApp");
}

void CKorvelApp::LoadStdProfileSettings(int count) {
  const auto settings = Settings();
  settings->beginGroup("Recent File List");
  for (int i = 1; i <= count; ++i) {
    const QString file = settings->value(QString("File%1").arg(i)).toString();
    if (!file.isEmpty()) recent_.append(file);
  }
  settings->endGroup();
}

bool CKorvelApp::InitInstance(const QStringList &arguments) {
  LoadStdProfileSettings(kRecentFiles);
  doc_ = std::make_unique<CKorvelAppDoc>();
  frame_ = std::make_unique<CMainFrame>(doc_.get());
  view_ = new CKorvelAppView(doc_.get(), frame_.get());
  frame_->SetView(view_);
  view_->OnInitialUpdate();

  // Whatever follows the program's name is one path, spaces and all, as a
  // file manager passes a single file.
  const QString path = arguments.mid(1).join(' ');
  if (!path.isEmpty()) view_->OpenPhoto(path);

  // The session ending goes through the same question as closing the window.
  if (auto *gui = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
    QObject::connect(gui, &QGuiApplication::commitDataRequest, frame_.get(),
                     [this](QSessionManager &manager) {
                       if (manager.allowsInteraction() && !frame_->QueryClose())
                         manager.cancel();
                       manager.release();
                     });
  }
  frame_->show();
  return true;
}

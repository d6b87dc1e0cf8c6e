// The main window's own handlers.
#include "app/mainframe.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QSettings>
#include <QShortcut>
#include <cstring>

#include "app/cameradialog.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "photo/dibraster.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/prompt.h"
#include "photo/settings.h"
#include "photo/waitcursor.h"
#include "raster/ras.h"
#include "res/resources.h"
#include "views/imageview.h"

// The session as the frame uses it: pictures go to the work area, and every
// failure the frame sees becomes one message.
class CMainFrame::CFrameTwain : public CTwainSession {
 public:
  explicit CFrameTwain(CMainFrame *frame) : frame_(frame) {}

  void PictureReceived(HGLOBAL dib) override { frame_->OnPictureReceived(dib); }
  void Error(int) override { AfxMessageBox(QString::fromLatin1(kTwainError)); }

 private:
  CMainFrame *frame_;
};

namespace {

void BringFrameToTop(TW_HANDLE window) {
  auto *frame = static_cast<CMainFrame *>(window);
  frame->raise();
  frame->activateWindow();
}

}  // namespace

CMainFrame::CMainFrame(CKorvelAppDoc *doc)
    : doc_(doc), twain_(std::make_unique<CFrameTwain>(this)) {
  setWindowTitle("Korvel");
  setWindowIcon(QIcon(kKorvelIcon));
  // A caption with system menu and minimise box, no sizing and no maximise.
  setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                 Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                 Qt::WindowCloseButtonHint | Qt::MSWindowsFixedSizeDialogHint);
  setFixedSize(CKorvelAppView::kFormWidth, CKorvelAppView::kFormHeight);
  // The standard About command, wherever the focus is.
  auto *about = new QShortcut(QKeySequence(Qt::Key_F1), this);
  about->setContext(Qt::ApplicationShortcut);
  connect(about, &QShortcut::activated, this, [] { KorvelPrompt::Current().ShowAbout(); });
  // The source's dialogs belong to the main window.
  CTwainSession::SetMainWindow(this, &BringFrameToTop);
  if (QCoreApplication *app = QCoreApplication::instance()) app->installEventFilter(this);
}

CMainFrame::~CMainFrame() {
  // Closes whatever is open, then unloads the manager, with the frame's own
  // notifications still in place.
  twain_->DropToState(1);
  CTwainSession::SetMainWindow(nullptr, nullptr);
}

CTwainSession &CMainFrame::Twain() {
  return *twain_;
}

bool CMainFrame::eventFilter(QObject *watched, QEvent *event) {
  if (twain_ && twain_->ProcessEvent(event)) return true;
  return QMainWindow::eventFilter(watched, event);
}

void CMainFrame::SetView(CKorvelAppView *view) {
  view_ = view;
  setCentralWidget(view);
  KorvelPrompt::SetParentWindow(this);
}

void CMainFrame::OnPictureReceived(HGLOBAL picture) {
  const QString folder = CKorvelAppDoc::FolderOf(CKorvelAppDoc::DefaultPhotoFolder());
  const float resolution = DibResolution(static_cast<BITMAPINFOHEADER *>(GlobalLock(picture)));
  GlobalUnlock(picture);
  doc_->AddImage(picture, 1, CKorvelAppDoc::UniquePhotoName(folder), resolution);
  const int last = doc_->Count() - 1;
  // The download never goes through a file or link already at its name: when
  // another program takes the name first, the next free one is used.
  const QString saved = SaveNewPicture(
      RasFormatJpeg, [&folder] { return CKorvelAppDoc::UniquePhotoName(folder); },
      doc_->ImageAt(last), resolution);
  if (!saved.isEmpty()) doc_->ReplaceImage(last, doc_->ImageAt(last), 1, saved);
}

QStringList CMainFrame::ListSources() {
  // Asking the manager and looking along the USB buses takes a moment.
  CWaitCursor wait;
  QStringList names;
  // Without a manager there are simply no TWAIN sources to offer; the
  // failure is reported when such a source is used.
  twain_->ListSources(&sources_);
  for (const TW_IDENTITY &source : sources_)
    names << QString::fromLatin1(source.ProductName,
                                 qsizetype(strnlen(source.ProductName, sizeof source.ProductName)));
  const QStringList extra = KorvelSettings()->value(QStringLiteral("cameras/extra")).toStringList();
  cameras_ = GpFindCameras(extra);
  for (const GpCameraId &camera : cameras_)
    names << QStringLiteral("%1 (%2)").arg(camera.model, camera.port);
  camera_ = -1;
  return names;
}

int CMainFrame::PreferredSource() const {
  if (sources_.empty() && cameras_.empty()) return -1;
  const TW_IDENTITY &current = CTwainSession::SourceIdentity();
  int inUse = -1;
  for (size_t i = 0; i < sources_.size(); ++i) {
    if (std::strncmp(sources_[i].ProductName, kOwnSource, sizeof sources_[i].ProductName) == 0)
      return int(i);
    if (inUse < 0 && current.ProductName[0] &&
        std::strncmp(sources_[i].ProductName, current.ProductName, sizeof current.ProductName) == 0)
      inUse = int(i);
  }
  return inUse >= 0 ? inUse : 0;
}

void CMainFrame::ChooseSource(int index) {
  camera_ = -1;
  if (index < 0) return;
  const size_t at = size_t(index);
  if (at < sources_.size())
    CTwainSession::SetSourceIdentity(sources_[at]);
  else if (at - sources_.size() < cameras_.size())
    camera_ = int(at - sources_.size());
}

void CMainFrame::Acquire() {
  if (camera_ >= 0 && size_t(camera_) < cameras_.size()) {
    AcquireFromCamera(
        cameras_[size_t(camera_)], [this](HGLOBAL dib) { OnPictureReceived(dib); }, this);
    return;
  }
  // The session's acquire takes the manager as open; a failure to open it
  // shows up there as a source that cannot be enabled.
  if (twain_->State() < 3) twain_->OpenManager();
  twain_->Acquire();
}

void CMainFrame::SelectSource() {
  twain_->SelectSource();
}

bool CMainFrame::QueryClose() {
  // Without a view there is nobody to ask, and the request is ignored.
  if (!view_) return false;
  // An edit still open is kept or dropped first, the way leaving the editor
  // asks, so that a kept edit is then asked about like every unsaved photo.
  CImageView *editor = view_->GetImageView();
  if (doc_->EditMode() && editor && !editor->QueryKeepChanges()) return false;
  return view_->QuerySaveBeforeClose();
}

void CMainFrame::closeEvent(QCloseEvent *event) {
  if (QueryClose())
    event->accept();
  else
    event->ignore();
}

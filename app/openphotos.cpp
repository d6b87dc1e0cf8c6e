// Batches of photos with a progress dialog, and the inbox for photos handed
// over by later launches.
#include "app/openphotos.h"

#include <QApplication>
#include <QCoreApplication>
#include <QProgressDialog>
#include <utility>

#include "photo/document.h"

namespace {

int gBatches = 0;  // batches running, counting one opened from another's events

constexpr int kInboxRetryMs = 250;

}  // namespace

COpenProgress::COpenProgress(QWidget *parent) : parent_(parent) {}
COpenProgress::~COpenProgress() = default;

bool COpenProgress::Step(int done, int total) {
  // A single photo cannot be stopped halfway: no dialog for it.
  if (total < 2) return true;
  if (!dialog_) {
    dialog_ =
        std::make_unique<QProgressDialog>(QString(), QStringLiteral("Cancel"), 0, total, parent_);
    dialog_->setWindowTitle(QStringLiteral("KorvelApp"));
    dialog_->setWindowModality(Qt::WindowModal);
    dialog_->setMinimumDuration(kShowAfterMs);
    dialog_->setValue(0);  // starts the dialog's clock
  }
  dialog_->setLabelText(QStringLiteral("Opening photos: %1 of %2").arg(done).arg(total));
  dialog_->setValue(done);
  // Until the dialog is up nothing guards the window under it, so clicks and
  // keys wait; once it shows, being modal, it takes them itself.
  QCoreApplication::processEvents(dialog_->isVisible() ? QEventLoop::AllEvents
                                                       : QEventLoop::ExcludeUserInputEvents);
  return !dialog_->wasCanceled();
}

OpenProgress COpenProgress::Callback() {
  return [this](int done, int total) { return Step(done, total); };
}

int OpenPhotos(CKorvelAppDoc *doc, const QStringList &paths, QWidget *window, OpenReport report) {
  if (!doc || paths.isEmpty()) return 0;
  ++gBatches;
  OpenBatch batch;
  {
    COpenProgress progress(window);
    batch = OpenPhotoFiles(doc, ExpandPhotoFolders(paths), progress.Callback());
  }
  --gBatches;
  // After the progress has gone, so that no message waits under it.
  if (report == OpenReport::kShow) ReportUnopened(batch.failed);
  return batch.opened;
}

bool OpeningPhotos() {
  return gBatches > 0;
}

CPhotoInbox::CPhotoInbox() {
  retry_.setSingleShot(true);
  retry_.setInterval(kInboxRetryMs);
  QObject::connect(&retry_, &QTimer::timeout, &retry_, [this] { Deliver(); });
}

void CPhotoInbox::SetTarget(CKorvelAppDoc *doc, QWidget *window) {
  doc_ = doc;
  window_ = window;
  if (!waiting_.isEmpty()) Deliver();
}

void CPhotoInbox::Receive(const QStringList &paths) {
  waiting_ += paths;
  // Even a launch with nothing to open asks for the window.
  if (window_ && paths.isEmpty()) RaiseWindow(window_);
  if (!waiting_.isEmpty()) Deliver();
}

void CPhotoInbox::Deliver() {
  if (!doc_ || !window_ || OpeningPhotos() || QApplication::activeModalWidget()) {
    retry_.start();
    return;
  }
  const QStringList paths = std::exchange(waiting_, {});
  RaiseWindow(window_);
  OpenPhotos(doc_, paths, window_, OpenReport::kSilent);
}

void RaiseWindow(QWidget *window) {
  if (window->isMinimized()) window->showNormal();
  window->raise();
  window->activateWindow();
}

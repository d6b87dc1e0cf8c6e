// The camera download dialog and the errand around it. The camera is claimed
// twice, briefly: once to list the pictures and fetch their previews, once
// to fetch the chosen pictures, the second time on the download's worker
// thread while the dialog keeps answering. In between, and after, it is free
// for the desktop and other programs.
#include "app/cameradialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "photo/dib.h"
#include "photo/dibpreview.h"
#include "photo/photometa.h"
#include "photo/prompt.h"
#include "photo/waitcursor.h"

namespace {

// Whole pictures fetched for previews, at most: enough for a card of a few
// dozen photos without previews of their own, so that the dialog still comes
// up in a few seconds when the card holds hundreds.
constexpr qint64 kWholePictureBudget = 128 << 20;

// The picture a file's bytes hold, averaged down to about twice the icon's
// size on the way (a whole camera picture is hundreds of times larger); null
// when the bytes are no picture the raster library reads.
QImage SmallImage(QByteArray bytes) {
  HGLOBAL block = DibFromFileBytes(std::move(bytes));
  if (!block) return {};
  const CDib dib(block);
  const QSize icon = CCameraDialog::kIconSize;
  const int factor = std::clamp(
      std::min(int(dib.Width()) / (2 * icon.width()), int(dib.Height()) / (2 * icon.height())), 1,
      kDibMaxReduction);
  return DibReduce(dib, factor);
}

// The camera's preview of each picture. A picture it keeps none of (or one
// the raster library cannot read) is shown by the picture itself, made small,
// within the budget; past it the plain placeholder shows.
std::vector<QImage> MakePreviews(CGpCamera *device, const std::vector<GpPicture> &pictures) {
  std::vector<QImage> previews;
  qint64 budget = kWholePictureBudget;
  for (const GpPicture &picture : pictures) {
    QImage image = SmallImage(picture.preview);
    QByteArray whole;
    if (image.isNull() && budget > 0 && device->Download(picture, &whole) >= 0) {
      budget -= whole.size();
      image = SmallImage(std::move(whole));
    }
    previews.push_back(std::move(image));
  }
  return previews;
}

QIcon PreviewIcon(const QImage &image) {
  QPixmap pixmap(CCameraDialog::kIconSize);
  pixmap.fill(Qt::lightGray);
  if (!image.isNull()) {
    const QImage scaled =
        image.scaled(CCameraDialog::kIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QPainter painter(&pixmap);
    painter.drawImage((pixmap.width() - scaled.width()) / 2,
                      (pixmap.height() - scaled.height()) / 2, scaled);
  }
  return QIcon(pixmap);
}

}  // namespace

int OpenCamera(CGpCamera *camera) {
  int result = OpenWhenFree(camera);
  if (CGpCamera::IsBusy(result)) {
    if (AfxMessageBox(BusyQuestion(camera->Id()), KorvelPrompt::MB_YESNO) != KorvelPrompt::IDYES)
      return result;
    QString mount;
    result = ReleaseDesktopAndOpen(camera, &mount);
    if (CGpCamera::IsBusy(result)) {
      AfxMessageBox(StillBusyText(camera->Id(), mount));
      return result;
    }
  }
  if (result < 0) AfxMessageBox(OpenFailureText(camera->Id(), result));
  return result;
}

int AcquireFromCamera(const GpCameraId &camera, const PictureSink &sink, QWidget *parent) {
  std::vector<GpPicture> pictures;
  std::vector<QImage> previews;
  {
    CWaitCursor wait;
    CGpCamera device(camera);
    int result = OpenCamera(&device);
    if (result < 0) return -1;
    result = device.List(&pictures, true);
    if (result >= 0) previews = MakePreviews(&device, pictures);
    device.Close();
    wait.Restore();
    if (result < 0) {
      AfxMessageBox(QStringLiteral("The pictures on the camera %1 could not be listed: %2.")
                        .arg(CameraName(camera), CGpCamera::ResultText(result)));
      return -1;
    }
  }
  if (pictures.empty()) {
    AfxMessageBox(
        QStringLiteral("There are no pictures on the camera %1.").arg(CameraName(camera)));
    return 0;
  }
  CCameraDialog dialog(camera, std::move(pictures), std::move(previews), sink, parent);
  dialog.exec();
  return dialog.Received();
}

CCameraDialog::CCameraDialog(GpCameraId camera, std::vector<GpPicture> pictures,
                             std::vector<QImage> previews, PictureSink sink, QWidget *parent)
    : QDialog(parent),
      camera_(std::move(camera)),
      pictures_(std::move(pictures)),
      sink_(std::move(sink)) {
  setWindowTitle(QStringLiteral("Get Photos from %1").arg(camera_.model));
  setModal(true);

  list_ = new QListWidget(this);
  list_->setObjectName(QStringLiteral("pictures"));
  list_->setViewMode(QListView::IconMode);
  list_->setIconSize(kIconSize);
  list_->setResizeMode(QListView::Adjust);
  list_->setMovement(QListView::Static);
  list_->setSpacing(6);
  list_->setMinimumSize(560, 320);
  {
    CWaitCursor wait;
    for (size_t i = 0; i < pictures_.size(); ++i) {
      const GpPicture &picture = pictures_[i];
      const QImage preview = i < previews.size() ? previews[i] : QImage();
      auto *item = new QListWidgetItem(PreviewIcon(preview), picture.name, list_);
      item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
      item->setCheckState(Qt::Checked);
      item->setToolTip(picture.folder + QLatin1Char('/') + picture.name);
    }
  }
  if (!pictures_.empty()) list_->setCurrentRow(0);

  progress_ = new QProgressBar(this);
  progress_->setObjectName(QStringLiteral("progress"));
  progress_->setVisible(false);
  stop_ = new QPushButton(QStringLiteral("Cancel"), this);
  stop_->setObjectName(QStringLiteral("stop"));
  stop_->setVisible(false);
  download_ = new QPushButton(QStringLiteral("Get Photo"), this);
  download_->setObjectName(QStringLiteral("download"));
  download_->setDefault(true);
  cancel_ = new QPushButton(QStringLiteral("Cancel"), this);
  cancel_->setObjectName(QStringLiteral("cancel"));

  connect(download_, &QPushButton::clicked, this, &CCameraDialog::OnDownload);
  connect(cancel_, &QPushButton::clicked, this, &CCameraDialog::reject);
  connect(stop_, &QPushButton::clicked, this, &CCameraDialog::StopDownload);

  auto *progressRow = new QHBoxLayout;
  progressRow->addWidget(progress_, 1);
  progressRow->addWidget(stop_);
  auto *buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(download_);
  buttons->addWidget(cancel_);
  auto *layout = new QVBoxLayout(this);
  layout->addWidget(list_, 1);
  layout->addLayout(progressRow);
  layout->addLayout(buttons);
}

CCameraDialog::~CCameraDialog() {
  // Only when the dialog goes while a download runs (the application
  // quitting): the worker never waits on this thread except for Taken,
  // which Stop stands in for, so the wait ends.
  if (worker_) {
    worker_->Stop();
    EndWorker();
  }
}

void CCameraDialog::reject() {
  // During a download, closing the dialog stops it like the Cancel beside
  // the progress bar; what has arrived stays, and the dialog closes once the
  // worker says it is over.
  if (downloading_) {
    StopDownload();
    return;
  }
  QDialog::reject();
}

void CCameraDialog::StopDownload() {
  stopAsked_ = true;
  if (worker_) worker_->Stop();
}

void CCameraDialog::OnDownload() {
  chosen_.clear();
  for (int row = 0; row < list_->count(); ++row)
    if (list_->item(row)->checkState() == Qt::Checked) chosen_.push_back(pictures_[size_t(row)]);
  if (chosen_.empty()) {
    KorvelPrompt::Current().Beep();
    return;
  }
  downloading_ = true;
  stopAsked_ = false;
  list_->setEnabled(false);
  download_->setEnabled(false);
  cancel_->setEnabled(false);
  progress_->setRange(0, int(chosen_.size()));
  progress_->setValue(0);
  progress_->setVisible(true);
  stop_->setVisible(true);
  StartWorker(false);
}

void CCameraDialog::StartWorker(bool releaseDesktop) {
  worker_ = std::make_unique<CCameraDownload>(camera_, chosen_, releaseDesktop);
  CCameraDownload *worker = worker_.get();
  worker->moveToThread(&thread_);
  connect(&thread_, &QThread::started, worker, &CCameraDownload::Run);
  connect(worker, &CCameraDownload::PictureReady, this, &CCameraDialog::OnPictureReady,
          Qt::QueuedConnection);
  connect(worker, &CCameraDownload::Progress, progress_, &QProgressBar::setValue,
          Qt::QueuedConnection);
  connect(worker, &CCameraDownload::Busy, this, &CCameraDialog::OnBusy, Qt::QueuedConnection);
  connect(worker, &CCameraDownload::Finished, this, &CCameraDialog::OnFinished,
          Qt::QueuedConnection);
  thread_.start();
}

void CCameraDialog::EndWorker() {
  // The worker's last act is its Busy or Finished, so the thread ends at once.
  thread_.quit();
  thread_.wait();
  worker_.reset();
}

void CCameraDialog::OnPictureReady(HGLOBAL dib, const QByteArray &bytes) {
  // The photo's metadata is kept here: the work area's records belong to
  // this thread.
  sink_(KeepReceivedMeta(dib, bytes));
  ++received_;
  emit PictureDone(received_);
  // A receiver that ran an event loop of its own may have seen the download
  // end already, after a Stop.
  if (worker_) worker_->Taken();
}

void CCameraDialog::OnBusy() {
  EndWorker();
  if (!stopAsked_ &&
      AfxMessageBox(BusyQuestion(camera_), KorvelPrompt::MB_YESNO) == KorvelPrompt::IDYES) {
    StartWorker(true);
    return;
  }
  OnFinished(QString(), 0);
}

void CCameraDialog::OnFinished(const QString &failure, int undecodable) {
  if (worker_) EndWorker();
  downloading_ = false;
  if (undecodable)
    AfxMessageBox(
        QStringLiteral("%1 of the pictures could not be read and were left on the camera.")
            .arg(undecodable));
  if (!failure.isEmpty()) AfxMessageBox(failure);
  accept();
}

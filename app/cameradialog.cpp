// The camera download dialog and the errand around it. The camera is claimed
// twice, briefly: once to list the pictures and fetch their previews, once
// to fetch the chosen pictures. In between, and after, it is free for the
// desktop and other programs.
#include "app/cameradialog.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>

#include "photo/dib.h"
#include "photo/dibpreview.h"
#include "photo/dibraster.h"
#include "photo/photometa.h"
#include "photo/prompt.h"
#include "photo/waitcursor.h"
#include "raster/core/rasfile.h"
#include "raster/ras.h"

namespace {

// "Could not claim the USB device" usually passes within a second, when the
// desktop's volume monitor has only just looked at a newly plugged camera.
constexpr int kBusyRetries = 4;
constexpr int kBusyPauseMs = 400;

QString CameraName(const GpCameraId &camera) {
  return QStringLiteral("%1 (%2)").arg(camera.model, camera.port);
}

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

// What the user is told when another program keeps the camera.
QString StillBusyText(const GpCameraId &camera, const QString &mount) {
  if (!mount.isEmpty())
    return QStringLiteral(
               "The camera %1 is still in use by another program. Close that program, or eject "
               "the camera in the file manager (or run \"gio mount -u %2\"), then try again.")
        .arg(CameraName(camera), mount);
  return QStringLiteral(
             "The camera %1 is in use by another program. Close that program, or eject the "
             "camera in the file manager (\"gio mount -l\" lists its gphoto2:// or mtp:// mount, "
             "\"gio mount -u\" followed by that address releases it), then try again.")
      .arg(CameraName(camera));
}

}  // namespace

HGLOBAL DibFromFileBytes(QByteArray bytes) {
  if (bytes.isEmpty()) return nullptr;
  // The library reads the bytes where they are, named as a memory block.
  RasMemName name;
  RasMakeMemName(&name, bytes.data(), uint64_t(bytes.size()));
  RasDesc desc{};
  if (RasGetInfo(RasMemNameOf(name), &desc) != RasOk) return nullptr;
  if (RasOpen(RasMemNameOf(name), 'r', &desc) != RasOk) return nullptr;
  HGLOBAL dib = nullptr;
  RasSl sl{};
  if (RasMakeSl(&sl, &desc) == RasOk) {
    int code = RasOk;
    dib = DibFromScanlines(&desc, &sl, &code);
    RasFreeSl(&sl);
  }
  RasClose(&desc);
  return UprightReceivedPhoto(dib, bytes);
}

int OpenCamera(CGpCamera *camera) {
  int result = camera->Open();
  for (int i = 0; CGpCamera::IsBusy(result) && i < kBusyRetries; ++i) {
    QThread::msleep(kBusyPauseMs);
    result = camera->Open();
  }
  if (CGpCamera::IsBusy(result)) {
    const QString question =
        QStringLiteral(
            "The camera %1 is in use by another program, usually the desktop's file manager. "
            "Release it from the desktop and go on?")
            .arg(CameraName(camera->Id()));
    if (AfxMessageBox(question, KorvelPrompt::MB_YESNO) != KorvelPrompt::IDYES) return result;
    QString mount;
    if (GpReleaseDesktopMount(camera->Id().port, &mount)) {
      result = camera->Open();
      for (int i = 0; CGpCamera::IsBusy(result) && i < kBusyRetries; ++i) {
        QThread::msleep(kBusyPauseMs);
        result = camera->Open();
      }
    }
    if (CGpCamera::IsBusy(result)) {
      AfxMessageBox(StillBusyText(camera->Id(), mount));
      return result;
    }
  }
  if (result < 0)
    AfxMessageBox(QStringLiteral("The camera %1 could not be opened: %2.")
                      .arg(CameraName(camera->Id()), CGpCamera::ResultText(result)));
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
  connect(stop_, &QPushButton::clicked, this, [this] { stopAsked_ = true; });

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

void CCameraDialog::reject() {
  // During a download, closing the dialog stops it like the Cancel beside
  // the progress bar; what has arrived stays.
  if (downloading_) {
    stopAsked_ = true;
    return;
  }
  QDialog::reject();
}

void CCameraDialog::OnDownload() {
  std::vector<size_t> chosen;
  for (int row = 0; row < list_->count(); ++row)
    if (list_->item(row)->checkState() == Qt::Checked) chosen.push_back(size_t(row));
  if (chosen.empty()) {
    KorvelPrompt::Current().Beep();
    return;
  }
  downloading_ = true;
  stopAsked_ = false;
  list_->setEnabled(false);
  download_->setEnabled(false);
  cancel_->setEnabled(false);
  progress_->setRange(0, int(chosen.size()));
  progress_->setValue(0);
  progress_->setVisible(true);
  stop_->setVisible(true);
  QCoreApplication::processEvents();

  CGpCamera device(camera_);
  QString failure;
  int undecodable = 0;
  if (OpenCamera(&device) >= 0) {
    int done = 0;
    for (const size_t index : chosen) {
      // The Cancel button is looked at between pictures.
      QCoreApplication::processEvents();
      if (stopAsked_) break;
      QByteArray bytes;
      const int result = device.Download(pictures_[index], &bytes);
      if (result < 0) {
        // Typically the camera was unplugged or switched off: what arrived
        // before stays in the work area.
        failure = QStringLiteral(
                      "The camera %1 stopped answering (%2). The photos received before were "
                      "kept.")
                      .arg(CameraName(camera_), CGpCamera::ResultText(result));
        break;
      }
      if (HGLOBAL dib = KeepReceivedMeta(DibFromFileBytes(bytes), bytes)) {
        sink_(dib);
        ++received_;
        emit PictureDone(received_);
      } else {
        ++undecodable;
      }
      progress_->setValue(++done);
    }
  }
  device.Close();
  downloading_ = false;
  if (undecodable)
    AfxMessageBox(
        QStringLiteral("%1 of the pictures could not be read and were left on the camera.")
            .arg(undecodable));
  if (!failure.isEmpty()) AfxMessageBox(failure);
  accept();
}

// The camera download's worker and the claiming of a camera. Nothing here
// asks the user anything: the worker reports, and the window asks and tells.
#include "app/cameradownload.h"

#include <QCoreApplication>
#include <QThread>

#include "photo/dibraster.h"
#include "photo/photometa.h"
#include "raster/core/rasfile.h"
#include "raster/ras.h"

namespace {

// "Could not claim the USB device" usually passes within a second, when the
// desktop's volume monitor has only just looked at a newly plugged camera.
constexpr int kBusyRetries = 4;
constexpr int kBusyPauseMs = 400;

}  // namespace

QString CameraName(const GpCameraId &camera) {
  return QStringLiteral("%1 (%2)").arg(camera.model, camera.port);
}

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

int OpenWhenFree(CGpCamera *camera) {
  int result = camera->Open();
  for (int i = 0; CGpCamera::IsBusy(result) && i < kBusyRetries; ++i) {
    QThread::msleep(kBusyPauseMs);
    result = camera->Open();
  }
  return result;
}

int ReleaseDesktopAndOpen(CGpCamera *camera, QString *mount) {
  if (!GpReleaseDesktopMount(camera->Id().port, mount)) return camera->Open();
  return OpenWhenFree(camera);
}

QString BusyQuestion(const GpCameraId &camera) {
  return QStringLiteral(
             "The camera %1 is in use by another program, usually the desktop's file manager. "
             "Release it from the desktop and go on?")
      .arg(CameraName(camera));
}

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

QString OpenFailureText(const GpCameraId &camera, int result) {
  return QStringLiteral("The camera %1 could not be opened: %2.")
      .arg(CameraName(camera), CGpCamera::ResultText(result));
}

CCameraDownload::CCameraDownload(GpCameraId camera, std::vector<GpPicture> pictures,
                                 bool releaseDesktop)
    : camera_(std::move(camera)), pictures_(std::move(pictures)), releaseDesktop_(releaseDesktop) {
  // The signal names the block by its typedef, which queued delivery looks up
  // by name.
  qRegisterMetaType<HGLOBAL>("HGLOBAL");
}

void CCameraDownload::Stop() {
  stop_ = true;
  // Wakes the worker should it be waiting for a picture to be taken; a
  // permit left over only lets it see the flag sooner.
  taken_.release();
}

void CCameraDownload::Taken() {
  taken_.release();
}

void CCameraDownload::Run() {
  QString failure;
  int undecodable = 0;
  bool busy = false;
  {
    CGpCamera device(camera_);
    const int claimed = Claim(&device, &failure);
    busy = CGpCamera::IsBusy(claimed) && !releaseDesktop_;
    if (claimed >= 0) failure = FetchAll(&device, &undecodable);
  }  // the camera is let go before anyone hears the download is over
  moveToThread(QCoreApplication::instance()->thread());
  if (busy)
    emit Busy();
  else
    emit Finished(failure, undecodable);
}

int CCameraDownload::Claim(CGpCamera *device, QString *failure) {
  QString mount;
  const int result = releaseDesktop_ ? ReleaseDesktopAndOpen(device, &mount) : OpenWhenFree(device);
  // Still busy the first time round: the window asks before the desktop's
  // mount is touched.
  if (CGpCamera::IsBusy(result) && !releaseDesktop_) return result;
  if (CGpCamera::IsBusy(result))
    *failure = StillBusyText(camera_, mount);
  else if (result < 0)
    *failure = OpenFailureText(camera_, result);
  return result;
}

QString CCameraDownload::FetchAll(CGpCamera *device, int *undecodable) {
  int done = 0;
  for (const GpPicture &picture : pictures_) {
    if (stop_) break;
    QByteArray bytes;
    const int result = device->Download(picture, &bytes);
    if (result < 0) {
      // Typically the camera was unplugged or switched off: what arrived
      // before stays in the work area.
      return QStringLiteral(
                 "The camera %1 stopped answering (%2). The photos received before were kept.")
          .arg(CameraName(camera_), CGpCamera::ResultText(result));
    }
    if (HGLOBAL dib = DibFromFileBytes(bytes)) {
      emit PictureReady(dib, bytes);
      taken_.acquire();
    } else {
      ++*undecodable;
    }
    emit Progress(++done);
  }
  return QString();
}

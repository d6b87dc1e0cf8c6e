// Pictures from a camera reached through libgphoto2: the download dialog that
// shows the camera's pictures by their previews, each with a check box, and
// fetches the checked ones with a progress bar and a way to stop; and the
// whole errand around it, from claiming the camera to letting it go.
#pragma once

#include <QByteArray>
#include <QDialog>
#include <QImage>
#include <QThread>
#include <functional>
#include <memory>
#include <vector>

#include "acquire/gpcamera.h"
#include "app/cameradownload.h"
#include "platform/movable.h"

class QListWidget;
class QProgressBar;
class QPushButton;

// Where each fetched picture goes: the same place a TWAIN transfer's does.
using PictureSink = std::function<void(HGLOBAL dib)>;

class CCameraDialog : public QDialog {
  Q_OBJECT

 public:
  // `previews` are the pictures' small images in the same order; a missing
  // or null one shows a plain placeholder.
  CCameraDialog(GpCameraId camera, std::vector<GpPicture> pictures, std::vector<QImage> previews,
                PictureSink sink, QWidget *parent = nullptr);
  // A download still running is stopped and waited for.
  ~CCameraDialog() override;

  // Pictures handed on so far.
  int Received() const { return received_; }

  QListWidget *Pictures() const { return list_; }
  QPushButton *DownloadButton() const { return download_; }
  QPushButton *CancelButton() const { return cancel_; }
  QPushButton *StopButton() const { return stop_; }
  QProgressBar *Progress() const { return progress_; }

  static constexpr QSize kIconSize{96, 72};

 signals:
  // After each picture handed on, with the count so far. The download goes
  // on to the next picture once every receiver has returned.
  void PictureDone(int received);

 public slots:
  void reject() override;

 private:
  void OnDownload();
  void StartWorker(bool releaseDesktop);
  void EndWorker();
  void StopDownload();
  void OnPictureReady(HGLOBAL dib, const QByteArray &bytes);
  void OnBusy();
  void OnFinished(const QString &failure, int undecodable);

  GpCameraId camera_;
  std::vector<GpPicture> pictures_;
  std::vector<GpPicture> chosen_;
  PictureSink sink_;
  // The download runs on `thread_`; `worker_` lives from the click on "Get
  // Photo" until the worker has said it is over.
  QThread thread_;
  std::unique_ptr<CCameraDownload> worker_;
  QListWidget *list_;
  QPushButton *download_;
  QPushButton *cancel_;
  QPushButton *stop_;
  QProgressBar *progress_;
  bool downloading_ = false;
  bool stopAsked_ = false;
  int received_ = 0;
};

// Claims the camera, waiting a moment while another program holds it and
// then offering to release the desktop's mount of it. libgphoto2's result;
// every failure has been told to the user. For the listing, on the calling
// thread; the download's worker claims the camera itself.
int OpenCamera(CGpCamera *camera);

// Lists the camera's pictures with their previews (the pictures themselves,
// made small, where the camera keeps none), lets the camera go, and shows the
// download dialog. Returns the number of pictures handed to
// `sink`, or -1 when the camera could not be read (the user was told).
int AcquireFromCamera(const GpCameraId &camera, const PictureSink &sink, QWidget *parent);

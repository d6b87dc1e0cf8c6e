// Pictures from a camera reached through libgphoto2: the download dialog that
// shows the camera's pictures by their previews, each with a check box, and
// fetches the checked ones with a progress bar and a way to stop; and the
// whole errand around it, from claiming the camera to letting it go.
#pragma once

#include <QByteArray>
#include <QDialog>
#include <QImage>
#include <functional>
#include <vector>

#include "acquire/gpcamera.h"
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

  // Pictures handed on so far.
  int Received() const { return received_; }

  QListWidget *Pictures() const { return list_; }
  QPushButton *DownloadButton() const { return download_; }
  QPushButton *CancelButton() const { return cancel_; }
  QPushButton *StopButton() const { return stop_; }
  QProgressBar *Progress() const { return progress_; }

  static constexpr QSize kIconSize{96, 72};

 signals:
  // After each picture handed on, with the count so far.
  void PictureDone(int received);

 public slots:
  void reject() override;

 private:
  void OnDownload();

  GpCameraId camera_;
  std::vector<GpPicture> pictures_;
  PictureSink sink_;
  QListWidget *list_;
  QPushButton *download_;
  QPushButton *cancel_;
  QPushButton *stop_;
  QProgressBar *progress_;
  bool downloading_ = false;
  bool stopAsked_ = false;
  int received_ = 0;
};

// A picture file's bytes decoded by the raster library straight from memory
// into a new 24-bit packed DIB; null when they are no picture it reads.
HGLOBAL DibFromFileBytes(QByteArray bytes);

// Claims the camera, waiting a moment while another program holds it and
// then offering to release the desktop's mount of it. libgphoto2's result;
// every failure has been told to the user.
int OpenCamera(CGpCamera *camera);

// Lists the camera's pictures with their previews (the pictures themselves,
// made small, where the camera keeps none), lets the camera go, and shows the
// download dialog. Returns the number of pictures handed to
// `sink`, or -1 when the camera could not be read (the user was told).
int AcquireFromCamera(const GpCameraId &camera, const PictureSink &sink, QWidget *parent);

// Cameras reached through libgphoto2: finding them, listing their pictures
// with the previews they keep, and fetching the pictures themselves. A camera
// is claimed only between Open and Close, so that it is free for the desktop
// and other programs the rest of the time.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

struct GpCameraId {
  QString model;  // libgphoto2's model name, e.g. "Directory Browse"
  QString port;   // e.g. "usb:001,005" or "disk:/media/card"
};

// The cameras libgphoto2 detects, then those named in `extra` as
// "MODEL|PORT" entries (ones already detected, and malformed ones, skipped).
std::vector<GpCameraId> GpFindCameras(const QStringList &extra);

struct GpPicture {
  QString folder;      // on the camera, e.g. "/store_00010001/DCIM/100CANON"
  QString name;        // e.g. "IMG_0001.JPG"
  QByteArray preview;  // the camera's preview image file; empty when it has none
};

class CGpCamera {
 public:
  explicit CGpCamera(GpCameraId id);
  ~CGpCamera();
  CGpCamera(const CGpCamera &) = delete;
  CGpCamera &operator=(const CGpCamera &) = delete;

  // Claims the camera; libgphoto2's result code (GP_OK is 0).
  int Open();
  // Every picture in every folder, depth first, with previews when asked.
  int List(std::vector<GpPicture> *pictures, bool previews);
  // The picture's file as the camera stores it.
  int Download(const GpPicture &picture, QByteArray *bytes);
  // Lets the camera go (gp_camera_exit); safe to call more than once.
  void Close();
  bool IsOpen() const { return open_; }

  const GpCameraId &Id() const { return id_; }
  // libgphoto2's text for a result code.
  static QString ResultText(int code);
  // True for "Could not claim the USB device": another program holds it.
  static bool IsBusy(int code);

 private:
  struct Handles;
  int ListFolder(const QString &folder, std::vector<GpPicture> *pictures, bool previews, int depth);

  GpCameraId id_;
  std::unique_ptr<Handles> handles_;
  bool open_ = false;
};

// The desktop's gphoto2 or mtp mount of the camera on `port`, as
// `gio mount -li` lists it in `listing`; empty when none belongs to it.
QString GpDesktopMountFor(const QString &listing, const QString &port);
// The command that releases such a mount.
QStringList GpUnmountCommand(const QString &mount);
// Finds and unmounts the desktop's mount of the camera on `port`. Returns
// true when a mount was found and released; `mount` receives the one found.
bool GpReleaseDesktopMount(const QString &port, QString *mount);

// Fetching the chosen pictures of a camera on a thread of its own, so that the
// window keeps answering while a card of large photos comes over USB; and the
// pieces of claiming a camera that need no one to answer a question.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSemaphore>
#include <QString>
#include <atomic>
#include <vector>

#include "acquire/gpcamera.h"
#include "platform/movable.h"

// The blocks travel between threads as plain handles.
Q_DECLARE_OPAQUE_POINTER(HGLOBAL)

// "Directory Browse (disk:/media/card)": how the user is shown a camera.
QString CameraName(const GpCameraId &camera);

// A picture file's bytes decoded by the raster library straight from memory
// into a new 24-bit packed DIB, turned upright; null when they are no
// picture it reads.
HGLOBAL DibFromFileBytes(QByteArray bytes);

// Claims the camera, trying again for a moment while another program holds
// it. libgphoto2's result. Sleeps between tries: not for the UI thread of a
// window that must keep answering.
int OpenWhenFree(CGpCamera *camera);
// Releases the desktop's mount of the camera, then claims it as OpenWhenFree
// does; when no mount could be released, it tries once more only. `mount`
// receives the mount found.
int ReleaseDesktopAndOpen(CGpCamera *camera, QString *mount);
// What the user is asked, or told, when another program keeps the camera.
QString BusyQuestion(const GpCameraId &camera);
QString StillBusyText(const GpCameraId &camera, const QString &mount);
// What the user is told when the camera cannot be claimed for another reason.
QString OpenFailureText(const GpCameraId &camera, int result);

// The download of `pictures` from `camera`, run on a worker thread: it claims
// the camera, fetches and decodes one picture at a time and reports by
// signals, which reach the window's thread queued. The camera's libgphoto2
// objects are made, used and freed on the worker alone.
//
// Only one decoded picture is ever on its way: after PictureReady the worker
// waits until Taken says the picture was handed on before it fetches the
// next, so that a card of hundreds of photos is never all held in memory, and
// a Stop asked while a picture is handed on is seen before the next is fetched.
class CCameraDownload : public QObject {
  Q_OBJECT

 public:
  // `releaseDesktop`: the desktop's mount of the camera is let go first (the
  // user agreed to it after a Busy).
  CCameraDownload(GpCameraId camera, std::vector<GpPicture> pictures, bool releaseDesktop);

  // From any thread: no picture is fetched after the current one.
  void Stop();
  // From any thread: the last picture ready was handed on.
  void Taken();

 public slots:
  // On the worker thread. Ends by Busy or Finished, having moved this object
  // back to the application's thread so that it may be deleted there once
  // the worker thread has ended.
  void Run();

 signals:
  // A decoded picture, now the receiver's, with the file's bytes its
  // metadata comes from.
  void PictureReady(HGLOBAL dib, const QByteArray &bytes);
  // Pictures done so far, handed on or not.
  void Progress(int done);
  // Another program still holds the camera after waiting a moment; nothing
  // was fetched.
  void Busy();
  // The download is over: `failure` is what the user is to be told (empty
  // when nothing went wrong), `undecodable` the pictures that were no
  // picture the raster library reads.
  void Finished(const QString &failure, int undecodable);

 private:
  int Claim(CGpCamera *device, QString *failure);
  QString FetchAll(CGpCamera *device, int *undecodable);

  const GpCameraId camera_;
  const std::vector<GpPicture> pictures_;
  const bool releaseDesktop_;
  // The one piece of state both threads write, with the semaphore that wakes
  // the worker when the window has taken a picture or asked it to stop.
  std::atomic<bool> stop_{false};
  QSemaphore taken_;
};

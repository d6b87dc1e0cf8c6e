// The main window: a fixed 800x585 frame without menu, sizing border or
// maximise box, holding the main form. It owns the camera's TWAIN session,
// offers it every event first, receives camera pictures (from TWAIN and from
// cameras reached through libgphoto2) and asks the save-before-close question
// however the window is closed.
#pragma once

#include <QMainWindow>
#include <QStringList>
#include <memory>
#include <vector>

#include "acquire/gpcamera.h"
#include "acquire/twainsession.h"
#include "platform/movable.h"

class CKorvelAppDoc;
class CKorvelAppView;

class CMainFrame : public QMainWindow {
  Q_OBJECT

 public:
  explicit CMainFrame(CKorvelAppDoc *doc);
  // Shuts the TWAIN session down and unloads the source manager.
  ~CMainFrame() override;

  void SetView(CKorvelAppView *view);
  CKorvelAppView *ActiveView() const { return view_; }

  // A picture transferred from the camera: saved at once as JPEG under the
  // next free photo name in the photo folder and added to the work area as
  // unsaved.
  void OnPictureReceived(HGLOBAL picture);
  // The sources the Get Photo dialog offers, by name: the TWAIN sources the
  // manager lists (the manager stays open for them), then the cameras
  // libgphoto2 detects and those the setting "cameras/extra" names as
  // "MODEL|PORT" entries.
  QStringList ListSources();
  // The entry of the last list to offer first: the program's own TWAIN
  // source when it is listed, else the TWAIN source in use, else the first;
  // -1 for an empty list.
  int PreferredSource() const;
  // Makes entry `index` of the last list the source Acquire uses; an index
  // outside the list keeps the TWAIN source in use.
  void ChooseSource(int index);
  // Starts a camera transfer from the chosen source: the TWAIN session, or
  // the download dialog of a libgphoto2 camera.
  void Acquire();
  // The TWAIN session's own source choice.
  void SelectSource();

  CTwainSession &Twain();
  // Whether the program may end (the close button, Alt+F4, Quit, the
  // session ending): an open, changed edit is asked about first (keep, drop
  // or cancel), then every unsaved photo. False when the user cancels.
  bool QueryClose();

  static constexpr char kOwnSource[] = "Korvel Twain Source 3.0";
  static constexpr char kTwainError[] = "A TWAIN error occurred.";

 protected:
  void closeEvent(QCloseEvent *event) override;
  // Every event of the application is first offered to the TWAIN session; a
  // source event it consumes goes no further.
  bool eventFilter(QObject *watched, QEvent *event) override;

 private:
  class CFrameTwain;

  CKorvelAppDoc *doc_;
  CKorvelAppView *view_ = nullptr;
  std::unique_ptr<CFrameTwain> twain_;
  // The array and the string beside the session: the TWAIN sources of the
  // last listing, and the chosen libgphoto2 camera (none while a TWAIN
  // source is chosen), with the cameras it was chosen from.
  std::vector<TW_IDENTITY> sources_;
  std::vector<GpCameraId> cameras_;
  int camera_ = -1;
};

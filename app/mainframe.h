// The main window: a fixed 800x585 frame without menu, sizing border or
// maximise box, holding the main form. It also receives camera pictures and
// asks the save-before-close question however the window is closed.
#pragma once

#include <QMainWindow>

#include "platform/movable.h"

class CKorvelAppDoc;
class CKorvelAppView;

class CMainFrame : public QMainWindow {
  Q_OBJECT

 public:
  explicit CMainFrame(CKorvelAppDoc *doc);

  void SetView(CKorvelAppView *view);
  CKorvelAppView *ActiveView() const { return view_; }

  // A picture transferred from the camera: saved at once as JPEG under the
  // next free photo name in the photo folder and added to the work area as
  // unsaved.
  void OnPictureReceived(HGLOBAL picture);
  // Starts a camera transfer, and lets the user choose the camera source.
  void Acquire();
  void SelectSource();

 protected:
  void closeEvent(QCloseEvent *event) override;

 private:
  CKorvelAppDoc *doc_;
  CKorvelAppView *view_ = nullptr;
};

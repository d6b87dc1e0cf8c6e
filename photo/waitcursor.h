// The wait cursor for a long operation: shown while the object lives and taken
// down on every way out of the operation, early returns included.
#pragma once

#include <QCursor>
#include <QGuiApplication>

class CWaitCursor {
 public:
  CWaitCursor() {
    // Without a GUI application there is no cursor to change (a command-line
    // caller of the save routines, for one).
    if (qGuiApp) {
      QGuiApplication::setOverrideCursor(Qt::WaitCursor);
      shown_ = true;
    }
  }
  ~CWaitCursor() { Restore(); }
  CWaitCursor(const CWaitCursor &) = delete;
  CWaitCursor &operator=(const CWaitCursor &) = delete;

  // Ends the wait cursor before the object goes, e.g. before a message box
  // that waits for the user.
  void Restore() {
    if (shown_) QGuiApplication::restoreOverrideCursor();
    shown_ = false;
  }

 private:
  bool shown_ = false;
};

// The main window for keyboard and screen-reader users: the usual shortcuts, the
// arrow keys over the thumbnails, a name and a description on every button of the
// form, and a tab order that follows the form's layout.
#pragma once

#include <QObject>

class CMainFrame;
class CKorvelAppView;
class QKeyEvent;

class CKeyboard : public QObject {
  Q_OBJECT

 public:
  // Ctrl+O open (in the thumbnails), Ctrl+S save, Ctrl+Z undo, Ctrl+P print,
  // Ctrl+Q and Ctrl+W close the window (through its save question), + and - zoom,
  // Escape back to the thumbnails, and in the thumbnails the arrow keys move the
  // selection and Enter opens it for editing. A key whose button is not showing does
  // nothing, so the keyboard never reaches a command the mouse could not. The
  // keyboard belongs to the frame, which must hold the form.
  CKeyboard(CMainFrame *frame, CKorvelAppView *form);

 protected:
  bool eventFilter(QObject *watched, QEvent *event) override;

 private:
  bool HandleKey(const QKeyEvent &key);
  // Runs a button's command when the button is there to press.
  bool Press(int id);
  bool InThumbnails() const;
  // Moves the current thumbnail by `step` places (a row is five), keeping it in view.
  bool MoveSelection(int step);
  void ScrollIntoView(int index);

  CMainFrame *frame_;
  CKorvelAppView *form_;
};

// Gives each of the form's buttons the name a screen reader announces (its caption,
// or what its picture shows) and a description: the help line's text for it.
void DescribeFormButtons(CKorvelAppView *form);

// Tab goes along the top bar, into the work area, down the tools on its right, then
// along the bottom row, left to right and top to bottom within each.
void OrderFormTabs(CKorvelAppView *form);

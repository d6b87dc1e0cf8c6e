// Every question and message the program puts to the user goes through one
// seam. The program installs the implementation that shows real dialogs;
// tests install one that records each text and returns queued answers.
#pragma once

#include <QString>
#include <QStringList>

class QWidget;

class KorvelPrompt {
 public:
  // Dialog results, as the message boxes and dialogs report them.
  enum Result { IDOK = 1, IDCANCEL = 2, IDYES = 6, IDNO = 7 };
  // Button sets of a message box.
  enum Buttons { MB_OK = 0, MB_OKCANCEL = 1, MB_YESNOCANCEL = 3, MB_YESNO = 4 };

  // The answers of the "Save Photo" question (dialog 341).
  struct SavePhotoAnswer {
    int result = IDCANCEL;       // IDOK when a button ended it
    QString choice = "NOTOALL";  // "YES", "NO" or "NOTOALL"
  };
  // The answer of a file dialog.
  struct FileAnswer {
    bool ok = false;
    QString path;
    int filterIndex = 1;  // 1-based, as the filter string lists them
  };
  // The answer of an open dialog that takes several files.
  struct FilesAnswer {
    bool ok = false;
    QStringList paths;  // in the order the dialog gives them
    int filterIndex = 1;
  };
  // The answer of the "Get Photo" dialog (dialog 194).
  struct GetPhotoAnswer {
    int result = IDCANCEL;
    bool camera = false;  // "Get Photo" rather than "Get Photo File"
    int source = -1;      // the entry of the source list chosen in combo 1026
  };

  // The answer of a message box with a check box.
  struct CheckAnswer {
    int result = IDCANCEL;
    bool checked = false;  // the box's state when the message closed
  };

  virtual ~KorvelPrompt() = default;

  // A modal message box with a fixed sentence; returns the button pressed.
  virtual int MessageBox(const QString &text, int buttons = MB_OK) = 0;
  // The same with a check box labelled `check` under the text, ticked at
  // first when `checked`.
  virtual CheckAnswer MessageBoxWithCheck(const QString &text, const QString &check, bool checked,
                                          int buttons) = 0;
  virtual SavePhotoAnswer AskSavePhoto(const QString &fileName) = 0;
  // `filter` is in the "Name (*.x)|*.x|...||" form; `initial` the name shown.
  virtual FileAnswer AskOpenFile(const QString &filter, const QString &initial) = 0;
  // The same dialog letting the user choose several existing files at once.
  virtual FilesAnswer AskOpenFiles(const QString &filter, const QString &initial) = 0;
  // The save dialog also rewrites the name's extension when another type is
  // chosen (DFileDialog).
  virtual FileAnswer AskSaveFile(const QString &filter, const QString &initial) = 0;
  // `sources` fills the source combo box (1026), `selected` is the entry
  // shown first.
  virtual GetPhotoAnswer AskGetPhoto(const QStringList &sources, int selected) = 0;
  virtual void ShowAbout() = 0;
  // MessageBeep.
  virtual void Beep() = 0;

  // The implementation in use; the real dialogs unless one was installed.
  // Before the application has named its real dialogs, messages go to the
  // standard error stream and every question is answered as if cancelled, so
  // a program without a window never waits on a dialog nobody sees.
  static KorvelPrompt &Current();
  // Installs `prompt` (not owned) and returns the one it replaces; null
  // restores the real dialogs.
  static KorvelPrompt *Install(KorvelPrompt *prompt);
  // Names the real dialogs (not owned); the application does this at start.
  static void SetRealDialogs(KorvelPrompt *real);
  // The window dialogs are shown over.
  static void SetParentWindow(QWidget *parent);
  static QWidget *ParentWindow();
};

// Shorthand for KorvelPrompt::Current().MessageBox.
int AfxMessageBox(const QString &text, int buttons = KorvelPrompt::MB_OK);

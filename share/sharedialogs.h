// The dialogs of the output commands go through one seam, as every other
// question the program asks does: the program shows the real dialogs (the
// print chooser, the projects chooser, the share dialog and the printer
// dialog); tests install answers of their own.
#pragma once

#include <QString>

class QPrinter;

class CShareDialogs {
 public:
  // How a dialog ended, as the program's dialogs report it.
  enum Result { IDOK = 1, IDCANCEL = 2 };
  // The buttons of the "Print Dialog" chooser.
  enum PrintChoice { kOrderPhotosOnline = 1038, kPrintPhoto = 1039 };

  struct PrintAnswer {
    int result = IDCANCEL;
    int choice = 0;  // kOrderPhotosOnline or kPrintPhoto once a button ended it
  };
  // The "Projects" chooser records its choice as a word: "PrintHouse" or
  // "Online".
  struct ProjectsAnswer {
    int result = IDCANCEL;
    QString choice;
  };
  // The "Share" dialog: OK shares the photos online; its e-mail button ends
  // it with OK as well and the word "EMAIL" instead of "SHARE".
  struct ShareAnswer {
    int result = IDCANCEL;
    QString choice = "SHARE";
  };

  virtual ~CShareDialogs() = default;

  virtual PrintAnswer AskPrintChoice() = 0;
  virtual ProjectsAnswer AskProjects() = 0;
  virtual ShareAnswer AskShare() = 0;
  // The printer dialog without selection, page numbers or printing to a file;
  // copies and collation are left to the printer. True when the user chose
  // to print; `printer` then carries the choices.
  virtual bool AskPrinter(QPrinter *printer) = 0;

  // The implementation in use; the real dialogs unless one was installed.
  static CShareDialogs &Current();
  // Installs `dialogs` (not owned) and returns the one it replaces; null
  // restores the real dialogs.
  static CShareDialogs *Install(CShareDialogs *dialogs);
};

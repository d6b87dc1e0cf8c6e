// Programs known to the desktop by their desktop entries (the .desktop files
// under the XDG data folders' applications/): finding an entry by its id and
// reading the command its Exec key starts.
#pragma once

#include <QString>
#include <QStringList>

// The command of an entry's Exec key with its field codes (%f, %U, %i ...)
// taken out.
struct CDesktopCommand {
  QString program;
  QStringList arguments;
  // Where the entry wanted its file (the first %f, %F, %u or %U), as an index
  // into `arguments`; -1 when it named no place.
  int fileArgument = -1;

  bool IsEmpty() const { return program.isEmpty(); }
  // The arguments with `file` put where the entry wanted it, else last.
  QStringList ArgumentsWith(const QString &file) const;
  // The whole command as one line, arguments with blanks or quotes quoted.
  QString ToString() const;
};

// The full path of desktop entry `id` ("org.example.Editor.desktop"), looked
// up in $XDG_DATA_HOME/applications, then in each folder of $XDG_DATA_DIRS
// in turn; empty when none has it. The first folder holding the id wins, so
// an entry the user hid (Hidden=true) in their own folder hides the id.
QString FindDesktopEntry(const QString &id);

// The command of the entry at `path`: an application entry that is not
// hidden and whose TryExec program, when it names one, exists. False
// otherwise.
bool ReadDesktopCommand(const QString &path, CDesktopCommand *command);

// The Exec value split into words by the desktop entry rules (quoting and
// escapes), field codes dropped and %% made %.
CDesktopCommand ParseExecLine(const QString &exec);

// Opening a page in the user's browser and starting another program go
// through one seam, so that tests can see what would have been opened or
// started without a browser or an editor appearing.
#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

class CShellLauncher {
 public:
  virtual ~CShellLauncher() = default;

  // Opens `url` with the program the desktop has for it.
  virtual bool OpenUrl(const QUrl &url) = 0;
  // Starts `program` with `arguments` in `folder` and does not wait for it.
  virtual bool StartProgram(const QString &program, const QStringList &arguments,
                            const QString &folder) = 0;

  // The implementation in use; the desktop's unless one was installed.
  static CShellLauncher &Current();
  // Installs `launcher` (not owned) and returns the one it replaces; null
  // restores the desktop's.
  static CShellLauncher *Install(CShellLauncher *launcher);
};

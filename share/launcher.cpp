// The seam's switchboard and the desktop's implementation.
#include "share/launcher.h"

#include <QDesktopServices>
#include <QProcess>

#include "share/seam.h"

namespace {

class DesktopLauncher : public CShellLauncher {
 public:
  bool OpenUrl(const QUrl &url) override { return QDesktopServices::openUrl(url); }
  bool StartProgram(const QString &program, const QStringList &arguments,
                    const QString &folder) override {
    return QProcess::startDetached(program, arguments, folder);
  }
};

}  // namespace

CShellLauncher &CShellLauncher::Current() {
  if (CShellLauncher *installed = CSeamSlot<CShellLauncher>::Installed()) return *installed;
  static DesktopLauncher desktop;
  return desktop;
}

CShellLauncher *CShellLauncher::Install(CShellLauncher *launcher) {
  return CSeamSlot<CShellLauncher>::Swap(launcher);
}

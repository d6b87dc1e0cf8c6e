// The seam's switchboard. The real dialogs live with the application, above
// this layer, and are named here when it starts.
#include "photo/prompt.h"

#include <QPointer>
#include <QWidget>
#include <cstdio>

namespace {

KorvelPrompt *gInstalled = nullptr;
KorvelPrompt *gReal = nullptr;
QPointer<QWidget> gParent;

// Until the application names its dialogs: every message is written out and
// every question cancelled, the answer that changes nothing.
class CStderrPrompt : public KorvelPrompt {
 public:
  int MessageBox(const QString &text, int buttons) override {
    std::fprintf(stderr, "korvel: %s\n", qPrintable(text));
    if (buttons == MB_OK) return IDOK;
    return buttons == MB_YESNO ? IDNO : IDCANCEL;
  }
  CheckAnswer MessageBoxWithCheck(const QString &text, const QString &, bool checked,
                                  int buttons) override {
    return {MessageBox(text, buttons), checked};
  }
  SavePhotoAnswer AskSavePhoto(const QString &) override { return {}; }
  FileAnswer AskOpenFile(const QString &, const QString &) override { return {}; }
  FilesAnswer AskOpenFiles(const QString &, const QString &) override { return {}; }
  FileAnswer AskSaveFile(const QString &, const QString &) override { return {}; }
  GetPhotoAnswer AskGetPhoto(const QStringList &, int) override { return {}; }
  void ShowAbout() override {}
  void Beep() override {}
};

}  // namespace

KorvelPrompt &KorvelPrompt::Current() {
  if (gInstalled) return *gInstalled;
  if (gReal) return *gReal;
  static CStderrPrompt quiet;
  return quiet;
}

void KorvelPrompt::SetRealDialogs(KorvelPrompt *real) {
  gReal = real;
}

KorvelPrompt *KorvelPrompt::Install(KorvelPrompt *prompt) {
  KorvelPrompt *old = gInstalled;
  gInstalled = prompt;
  return old;
}

void KorvelPrompt::SetParentWindow(QWidget *parent) {
  gParent = parent;
}
QWidget *KorvelPrompt::ParentWindow() {
  return gParent;
}

int AfxMessageBox(const QString &text, int buttons) {
  return KorvelPrompt::Current().MessageBox(text, buttons);
}

// The seam's switchboard and the real message box.
#include "app/prompt.h"

#include <QPointer>
#include <QWidget>

#include "app/qtprompt.h"

namespace {

KorvelPrompt *gInstalled = nullptr;
QPointer<QWidget> gParent;

}  // namespace

KorvelPrompt &KorvelPrompt::Current() {
  if (gInstalled) return *gInstalled;
  static QtPrompt real;
  return real;
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

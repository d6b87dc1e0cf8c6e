// The flows behind the output buttons.
#include "share/sharecommands.h"

#include <QPrinter>

#include "photo/dib.h"
#include "photo/document.h"
#include "photo/prompt.h"
#include "share/editor.h"
#include "share/email.h"
#include "share/online.h"
#include "share/printing.h"
#include "share/sharedialogs.h"

namespace {

// The list is written only for a page that will be opened, so that a refused
// address leaves the last list as it was.
void ShareListAndOpen(const CKorvelAppDoc *doc, const QUrl &page) {
  if (CheckPage(page) && WriteShareList(doc)) OpenPage(page);
}

}  // namespace

void CShareCommands::OnPrint(const COutputContext &context) {
  const CShareDialogs::PrintAnswer answer = CShareDialogs::Current().AskPrintChoice();
  if (answer.result != CShareDialogs::IDOK) return;
  CKorvelAppDoc *doc = context.doc;
  if (answer.choice == CShareDialogs::kOrderPhotosOnline) {
    ShareListAndOpen(doc, PhotoSitePage("/print"));
    return;
  }
  if (answer.choice != CShareDialogs::kPrintPhoto) return;

  context.ShowHelp(1004);
  if (doc->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to print");
    return;
  }
  const CDib photo = doc->ImageAt(doc->CurrentIndex());
  if (!photo.Header() || photo.Width() == 0 || photo.Height() == 0) {
    AfxMessageBox("Unable to print the image");
    return;
  }
  QPrinter printer(QPrinter::HighResolution);
  if (!CShareDialogs::Current().AskPrinter(&printer)) return;
  PrintPhotos(doc, &printer);
}

void CShareCommands::OnEmail(const COutputContext &context) {
  SendPhotoByEmail(context.doc);
}

void CShareCommands::OnSendToPhotoDeluxe(const COutputContext &context) {
  SendToPhotoDeluxe(context.doc);
}

void CShareCommands::OnProjects(const COutputContext &context) {
  context.ShowHelp(1003);
  const CShareDialogs::ProjectsAnswer answer = CShareDialogs::Current().AskProjects();
  if (answer.result != CShareDialogs::IDOK) return;
  if (answer.choice == "PrintHouse")
    OnSendToPhotoDeluxe(context);
  else if (answer.choice == "Online")
    OpenPage(PhotoSiteRoot());
}

void CShareCommands::OnSharePhotos(const COutputContext &context) {
  context.ShowHelp(1018);
  const CShareDialogs::ShareAnswer answer = CShareDialogs::Current().AskShare();
  if (answer.result != CShareDialogs::IDOK) return;
  // The share dialog is also where the e-mail command lives, the form's own
  // e-mail button being hidden.
  if (answer.choice == "EMAIL") return OnEmail(context);
  ShareListAndOpen(context.doc, PhotoSitePage("/share"));
}

void CShareCommands::OnVisitOnline(const COutputContext &context) {
  context.ShowHelp(1017);
  OpenPage(OnlineHomePage());
}

// The flows behind the output buttons.
#include "share/sharecommands.h"

#include <QPrinter>

#include "app/dib.h"
#include "app/document.h"
#include "app/formview.h"
#include "app/prompt.h"
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

void CShareCommands::OnPrint(CKorvelAppView *view) {
  const CShareDialogs::PrintAnswer answer = CShareDialogs::Current().AskPrintChoice();
  if (answer.result != CShareDialogs::IDOK) return;
  CKorvelAppDoc *doc = view->GetDocument();
  if (answer.choice == CShareDialogs::kOrderPhotosOnline) {
    ShareListAndOpen(doc, PhotoSitePage("/print"));
    return;
  }
  if (answer.choice != CShareDialogs::kPrintPhoto) return;

  view->SetHelpText(1004);
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

void CShareCommands::OnEmail(CKorvelAppView *view) {
  SendPhotoByEmail(view->GetDocument());
}

void CShareCommands::OnSendToPhotoDeluxe(CKorvelAppView *view) {
  SendToPhotoDeluxe(view->GetDocument());
}

void CShareCommands::OnProjects(CKorvelAppView *view) {
  view->SetHelpText(1003);
  const CShareDialogs::ProjectsAnswer answer = CShareDialogs::Current().AskProjects();
  if (answer.result != CShareDialogs::IDOK) return;
  if (answer.choice == "PrintHouse")
    OnSendToPhotoDeluxe(view);
  else if (answer.choice == "Online")
    OpenPage(PhotoSiteRoot());
}

void CShareCommands::OnSharePhotos(CKorvelAppView *view) {
  view->SetHelpText(1018);
  const CShareDialogs::ShareAnswer answer = CShareDialogs::Current().AskShare();
  if (answer.result != CShareDialogs::IDOK) return;
  // The share dialog is also where the e-mail command lives, the form's own
  // e-mail button being hidden.
  if (answer.choice == "EMAIL") return OnEmail(view);
  ShareListAndOpen(view->GetDocument(), PhotoSitePage("/share"));
}

void CShareCommands::OnVisitOnline(CKorvelAppView *view) {
  view->SetHelpText(1017);
  OpenPage(OnlineHomePage());
}

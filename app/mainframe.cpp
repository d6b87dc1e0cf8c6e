// The main window's own handlers.
#include "app/mainframe.h"

#include <QCloseEvent>
#include <QShortcut>

#include "app/document.h"
#include "app/formview.h"
#include "app/photofiles.h"
#include "app/prompt.h"
#include "app/thumbview.h"
#include "raster/ras.h"
#include "res/resources.h"

CMainFrame::CMainFrame(CKorvelAppDoc *doc) : doc_(doc) {
  setWindowTitle("Korvel");
  setWindowIcon(QIcon(kKorvelIcon));
  // A caption with system menu and minimise box, no sizing and no maximise.
  setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                 Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                 Qt::WindowCloseButtonHint | Qt::MSWindowsFixedSizeDialogHint);
  setFixedSize(CKorvelAppView::kFormWidth, CKorvelAppView::kFormHeight);
  // The standard About command, wherever the focus is.
  auto *about = new QShortcut(QKeySequence(Qt::Key_F1), this);
  about->setContext(Qt::ApplicationShortcut);
  connect(about, &QShortcut::activated, this, [] { KorvelPrompt::Current().ShowAbout(); });
}

void CMainFrame::SetView(CKorvelAppView *view) {
  view_ = view;
  setCentralWidget(view);
  KorvelPrompt::SetParentWindow(this);
}

void CMainFrame::OnPictureReceived(HGLOBAL picture) {
  const QString folder = CKorvelAppDoc::FolderOf(CKorvelAppDoc::DefaultPhotoFolder());
  const QString path = CKorvelAppDoc::UniquePhotoName(folder);
  doc_->AddImage(picture, 1, path);
  SavePicture(RasFormatJpeg, path, doc_->ImageAt(doc_->Count() - 1));
  if (view_) view_->update();
  if (view_ && view_->GetThumbView()) view_->GetThumbView()->viewport()->update();
}

// The camera session is not part of this build yet: nothing to start.
void CMainFrame::Acquire() {}
void CMainFrame::SelectSource() {}

void CMainFrame::closeEvent(QCloseEvent *event) {
  // Without a view there is nobody to ask, and the request is ignored.
  if (view_ && view_->QuerySaveBeforeClose())
    event->accept();
  else
    event->ignore();
}

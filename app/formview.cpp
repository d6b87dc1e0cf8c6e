// The main form: its controls, the two modes and the command map.
#include "app/formview.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QPainter>

#include "app/mainframe.h"
#include "app/openphotos.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/prompt.h"
#include "res/formcontrols.h"
#include "res/resources.h"
#include "share/outputcommands.h"
#include "views/buttontextview.h"
#include "views/imageview.h"
#include "views/skinbutton.h"
#include "views/thumbview.h"

namespace {

// The work area and the help pane below it, in pixels.
constexpr int kViewWidth = 645;
constexpr int kViewHeight = 453;
constexpr int kHelpWidth = kViewWidth - 100;
constexpr int kHelpHeight = 10;

// Zoom steps, percent, as the combo's item data; after them "Fit", whose
// scale depends on the photo (item data 0).
constexpr int kZoomSteps[] = {25, 50, 75, 100, 200, 400, 800};
constexpr int kZoomStart = 3;
constexpr int kZoomFit = int(std::size(kZoomSteps));

}  // namespace

CKorvelAppView::CKorvelAppView(CKorvelAppDoc *doc, CMainFrame *frame, QWidget *parent)
    : QWidget(parent), doc_(doc), frame_(frame) {
  setFixedSize(kFormWidth, kFormHeight);
  setAcceptDrops(true);
  background_.Load(kKorvelFormBackground);
}

CKorvelAppView::~CKorvelAppView() = default;

void CKorvelAppView::CreateControls() {
  for (int i = 0; i < kFormControlCount; ++i) {
    const FormControl &c = kFormControls[i];
    const QRect place(DluToPixelsX(c.x), DluToPixelsY(c.y), DluToPixelsX(c.width),
                      DluToPixelsY(c.height));
    QWidget *control = nullptr;
    switch (c.kind) {
      case FormKind::Group:
        control = new QWidget(this);
        break;
      case FormKind::Combo: {
        zoom_ = new QComboBox(this);
        control = zoom_;
        connect(zoom_, &QComboBox::activated, this, &CKorvelAppView::OnZoomSelChange);
        break;
      }
      default: {
        auto *button = new CSkinButton(this);
        button->setText(c.caption);
        button->setFocusPolicy(Qt::TabFocus);
        connect(button, &QAbstractButton::clicked, this, [this, id = c.id] { OnCommand(id); });
        control = button;
        break;
      }
    }
    control->setObjectName(QString::number(c.id));
    control->setGeometry(place);
    if (c.hiddenAtStart) control->hide();
    controls_.insert(c.id, control);
  }
}

void CKorvelAppView::OnInitialUpdate() {
  if (initialised_) return;
  initialised_ = true;
  CreateControls();
  if (QWidget *top = window(); top != this) top->adjustSize();
  QWidget *corner = Control(1021);
  workArea_ = corner->geometry();
  corner->hide();
  for (int i = 0; i < kFormControlCount; ++i) {
    const FormControl &c = kFormControls[i];
    if (c.kind != FormKind::Skinned) continue;
    auto *button = static_cast<CSkinButton *>(Control(c.id));
    button->LoadBitmaps(c.skins[0], c.skins[1], c.skins[2], c.skins[3]);
    button->SizeToContent();
  }
  HideGroups();
  for (int percent : kZoomSteps)
    zoom_->addItem(QString("%1%").arg(percent), percent);
  zoom_->addItem("Fit", 0);
  zoom_->setCurrentIndex(kZoomStart);

  const QPoint at = workArea_.topLeft();
  thumbView_ = new CThumbView(doc_, this);
  thumbView_->setGeometry(QRect(at, QSize(kViewWidth, kViewHeight)));
  thumbView_->OnInitialUpdate();
  thumbView_->show();
  connect(thumbView_, &CThumbView::editPhotoRequested, this, &CKorvelAppView::OnEditPhoto);
  connect(thumbView_, &CThumbView::removePhotoRequested, this, &CKorvelAppView::OnRemovePhoto);
  connect(thumbView_, &CThumbView::commandRequested, this, &CKorvelAppView::OnCommand);
  ShowControls({1004}, false);
  ShowControls({1017});
  ShowControls({1019, 1022}, false);

  imageView_ = new CImageView(doc_, this);
  imageView_->setGeometry(QRect(at, QSize(kViewWidth, kViewHeight)));
  imageView_->OnInitialUpdate();
  connect(imageView_, &CImageView::colorClick, this,
          [this](QPoint photo) { imageView_->ColorCorrectAt(photo, ChosenColorTool()); });
  imageView_->hide();

  helpPane_ = new CButtonTextView(this);
  helpPane_->setGeometry(QRect(at + QPoint(0, kViewHeight + 1), QSize(kHelpWidth, kHelpHeight)));
  helpPane_->show();
  helpPane_->SetText(1000);
}

void CKorvelAppView::paintEvent(QPaintEvent *) {
  QPainter painter(this);
  if (background_.IsNull())
    painter.fillRect(rect(), QColor(0x2e, 0x2a, 0x33));
  else
    background_.Draw(painter, QPoint(0, 0));
}

CThumbView *CKorvelAppView::GetThumbView() const {
  return thumbView_;
}
CImageView *CKorvelAppView::GetImageView() const {
  return imageView_;
}
CButtonTextView *CKorvelAppView::GetButtonTextView() const {
  return helpPane_;
}

void CKorvelAppView::SetHelpText(int id) {
  if (CButtonTextView *pane = GetButtonTextView()) pane->SetText(id);
}

void CKorvelAppView::ShowControls(std::initializer_list<int> ids, bool show) {
  for (int id : ids)
    if (QWidget *w = Control(id)) w->setVisible(show);
}

void CKorvelAppView::ShowGroup(const int *ids, int count, bool show) {
  for (int i = 0; i < count; ++i)
    if (QWidget *w = Control(ids[i])) w->setVisible(show);
}

void CKorvelAppView::HideGroups() {
  ShowGroup(kGroupA, std::size(kGroupA), false);
  ShowGroup(kGroupB, std::size(kGroupB), false);
}

void CKorvelAppView::SwitchToThumbnailMode() {
  GetThumbView()->show();
  doc_->SetEditMode(0);
  GetImageView()->hide();
  HideGroups();
  ShowControls({1004}, false);
  ShowControls({1017});
  ShowControls({1019}, false);
  Control(1014)->setEnabled(true);
}

void CKorvelAppView::SwitchToEditMode() {
  GetThumbView()->hide();
  CImageView *view = GetImageView();
  view->LoadCurrentPhoto();
  doc_->SetEditMode(1);
  view->show();
  HideGroups();
  ShowControls({1007, 1008, 1033});
  Control(1014)->setEnabled(false);
  zoom_->setCurrentIndex(kZoomStart);
  const int index = doc_->CurrentIndex();
  if (index != -1) {
    const CDib &photo = doc_->ImageAt(index);
    // A photo as large as the work area or larger starts where it is seen whole.
    if (photo.Width() >= 645 || photo.Height() >= 453) {
      zoom_->setCurrentIndex(kZoomFit);
      view->ZoomToFit();
      SetHelpText(1021);
    }
  }
}

bool CKorvelAppView::PrepareEdit() {
  if (doc_->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to edit");
    return false;
  }
  if (doc_->Selection().size() > 1) {
    AfxMessageBox("Please select only one image that you would like to edit");
    return false;
  }
  if (!doc_->EditMode()) SwitchToEditMode();
  ShowGroup(kGroupB, std::size(kGroupB), false);
  return true;
}

void CKorvelAppView::OnCommand(int id) {
  switch (id) {
    case 1005:
      return OnRotateLeft();
    case 1006:
      return OnRotateRight();
    case 1008:
      return OnZoomOut();
    case 1007:
      return OnZoomIn();
    case 1010:
      return OnCropNow();
    case 1002:
      return OnKeepEdit();
    case 1003:
    case 1033:
      return OnCloseEditor();
    case 1011:
    case 32774:
      return OnStartCrop();
    case 1012:
    case 32773:
      return OnStartRotate();
    case 1014:
      return OnGetPhotos();
    case 1004:
      return OnSelectSource();
    case 1015:
    case 32776:
      return OnSavePhoto();
    case 1016:
      return OnQuit();
    case 32772:
    case 1017:
      return OnRemovePhoto();
    case 32778:
    case 1022:
      return OnEditPhoto();
    case 1018:
      return OnUndo();
    case 1019:
      return OnOpenPhoto();
    case 1020:
      return OnGoOnline();
    case 1024:
    case 32779:
      return OnStartColorCorrection();
    case 1013:
    case 32775:
      return OnStartRedEye();
    case 1023:
      return OnProjects();
    case 1037:
      return OnShare();
    case 1032:
      return OnPrint();
    case 1025:
      return OnFoliage();
    case 1029:
      return OnSkin();
    case 1030:
      return OnSky();
    case 1026:
      return OnNeutrals();
    case 1049:
      return OnEmail();
    case 1031:
      return OnRedEyeTool();
    default:
      return;
  }
}

void CKorvelAppView::OnRotateLeft() {
  SetHelpText(1015);
  GetImageView()->Rotate(0);
}

void CKorvelAppView::OnRotateRight() {
  SetHelpText(1016);
  GetImageView()->Rotate(1);
}

// The steps go on from the scale shown, whichever entry gave it: from Fit,
// out is the next step below its scale and in the next step above.
void CKorvelAppView::ZoomStep(int direction) {
  const double scale = GetImageView()->Scale();
  int next = -1;
  for (int i = 0; i < kZoomFit; ++i) {
    const double step = kZoomSteps[i] * 0.01;
    if (direction > 0 ? step > scale + 1e-6 : step < scale - 1e-6) {
      next = i;
      if (direction > 0) break;
    }
  }
  if (next < 0) return;
  zoom_->setCurrentIndex(next);
  OnZoomSelChange();
}

void CKorvelAppView::OnZoomOut() {
  SetHelpText(1020);
  ZoomStep(-1);
}

void CKorvelAppView::OnZoomIn() {
  SetHelpText(1019);
  ZoomStep(1);
}

void CKorvelAppView::OnZoomSelChange() {
  if (zoom_->currentIndex() < 0) return;
  if (const int percent = zoom_->currentData().toInt())
    GetImageView()->Zoom(percent * 0.01);
  else
    GetImageView()->ZoomToFit();
}

void CKorvelAppView::OnCropNow() {
  SetHelpText(1007);
  GetImageView()->Crop();
}

void CKorvelAppView::OnKeepEdit() {
  GetImageView()->KeepChanges();
  ShowGroup(kGroupB, std::size(kGroupB), false);
}

void CKorvelAppView::OnCloseEditor() {
  SetHelpText(1005);
  if (doc_->EditMode() == 0) SwitchToEditMode();
  if (GetImageView()->QueryKeepChanges()) {
    SetHelpText(1000);
    SwitchToThumbnailMode();
  }
}

void CKorvelAppView::OnStartCrop() {
  if (PrepareEdit()) {
    GetImageView()->ClearMode();
    GetImageView()->SetCropMode();
    ShowControls({1010, 1018, 1003, 1002});
  }
  SetHelpText(1007);
}

void CKorvelAppView::OnStartRotate() {
  if (PrepareEdit()) {
    GetImageView()->ClearSelection();
    GetImageView()->ClearMode();
    ShowControls({1005, 1006, 1018, 1003, 1002});
  }
  SetHelpText(1009);
}

void CKorvelAppView::OnStartColorCorrection() {
  const int index = doc_->CurrentIndex();
  if (index != -1) {
    const CDib &photo = doc_->ImageAt(index);
    if (photo.Height() > 480 || photo.Width() > 640) {
      AfxMessageBox("Color correction is not supported for images larger than 640x480");
      return;
    }
  }
  if (PrepareEdit()) {
    GetImageView()->ClearSelection();
    GetImageView()->StartColorCorrection();
    // No tool is chosen yet: every tool button can be pressed.
    for (int id : {1030, 1029, 1026, 1025})
      Control(id)->setEnabled(true);
    ShowControls({1030, 1029, 1026, 1025, 1018, 1003, 1002});
  }
  SetHelpText(1008);
}

void CKorvelAppView::OnStartRedEye() {
  if (PrepareEdit()) {
    GetImageView()->ClearMode();
    GetImageView()->ClearSelection();
    GetImageView()->SetRedEyeMode();
    ShowControls({1031, 1018, 1003, 1002});
    Control(1031)->setEnabled(false);
  }
  SetHelpText(1010);
}

void CKorvelAppView::OnRedEyeTool() {
  SetHelpText(1010);
  GetImageView()->SetRedEyeMode();
}

// The chosen tool's button is disabled (its skin shows it selected); the
// editing view reads the choice back from the buttons when the photo is
// clicked.
void CKorvelAppView::ChooseColorTool(int button, int help) {
  SetHelpText(help);
  for (int id : {1030, 1029, 1026, 1025})
    Control(id)->setEnabled(id != button);
}

COutputContext CKorvelAppView::OutputContext() {
  return {doc_, [this](int id) { SetHelpText(id); }, window()};
}

int CKorvelAppView::ChosenColorTool() const {
  // The chosen tool's button is the one disabled.
  static const struct { int button, tool; } kTools[] = {{1030, 2}, {1029, 1}, {1026, 3}, {1025, 0}};
  for (const auto &t : kTools) {
    if (const QWidget *button = Control(t.button); button && !button->isEnabled()) return t.tool;
  }
  return -1;
}

void CKorvelAppView::OnFoliage() {
  ChooseColorTool(1025, 1012);
}
void CKorvelAppView::OnSkin() {
  ChooseColorTool(1029, 1013);
}
void CKorvelAppView::OnSky() {
  ChooseColorTool(1030, 1011);
}
void CKorvelAppView::OnNeutrals() {
  ChooseColorTool(1026, 1014);
}

void CKorvelAppView::OnGetPhotos() {
  SetHelpText(1001);
  const QStringList sources = frame_->ListSources();
  const KorvelPrompt::GetPhotoAnswer answer =
      KorvelPrompt::Current().AskGetPhoto(sources, frame_->PreferredSource());
  if (answer.result != KorvelPrompt::IDOK) return;
  if (answer.camera) {
    frame_->ChooseSource(answer.source);
    frame_->Acquire();
  } else {
    OnOpenPhoto();
  }
}

void CKorvelAppView::OnSelectSource() {
  frame_->SelectSource();
}

void CKorvelAppView::OnSavePhoto() {
  SetHelpText(1002);
  SavePhotoCommand(doc_);
}

void CKorvelAppView::OnQuit() {
  window()->close();
}

void CKorvelAppView::OnRemovePhoto() {
  SetHelpText(1006);
  if (doc_->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to remove from your work area");
    return;
  }
  if (doc_->Selection().size() > 1) {
    AfxMessageBox("Please select only one image that you would like to remove from your work area");
    return;
  }
  if (AfxMessageBox("Are you sure you want to remove this image from your work area?",
                    KorvelPrompt::MB_YESNOCANCEL) != KorvelPrompt::IDYES)
    return;
  doc_->Remove(doc_->CurrentIndex());
}

void CKorvelAppView::OnEditPhoto() {
  if (doc_->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to edit");
    return;
  }
  if (doc_->Selection().size() > 1) {
    AfxMessageBox("Please select only one image that you would like to edit");
    return;
  }
  SetHelpText(1021);
  SwitchToEditMode();
  GetImageView()->ClearSelection();
  GetImageView()->ClearMode();
}

void CKorvelAppView::OnUndo() {
  GetImageView()->Undo();
}

void CKorvelAppView::OnOpenPhoto() {
  COpenProgress progress(window());
  OpenPhotoCommand(doc_, progress.Callback());
}

bool CKorvelAppView::OpenPhoto(const QString &path) {
  return OpenPhotoFile(doc_, path);
}

bool CKorvelAppView::QuerySaveBeforeClose() {
  return SaveBeforeClose(doc_);
}

// The output commands show their own help at the moment their flow calls
// for it; without them installed the buttons only explain themselves.
void CKorvelAppView::OnGoOnline() {
  if (COutputCommands *output = COutputCommands::Current())
    return output->OnVisitOnline(OutputContext());
  SetHelpText(1017);
}
void CKorvelAppView::OnShare() {
  if (COutputCommands *output = COutputCommands::Current())
    return output->OnSharePhotos(OutputContext());
  SetHelpText(1018);
}
void CKorvelAppView::OnProjects() {
  if (COutputCommands *output = COutputCommands::Current())
    return output->OnProjects(OutputContext());
  SetHelpText(1003);
}
void CKorvelAppView::OnPrint() {
  if (COutputCommands *output = COutputCommands::Current()) return output->OnPrint(OutputContext());
  SetHelpText(1004);
}
void CKorvelAppView::OnEmail() {
  if (COutputCommands *output = COutputCommands::Current()) output->OnEmail(OutputContext());
}

// Files and folders dropped on the thumbnails open in the order dropped, a
// folder as the photos in it, as the open command would open them.
void CKorvelAppView::dragEnterEvent(QDragEnterEvent *event) {
  if (doc_->EditMode() == 0 && event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void CKorvelAppView::dropEvent(QDropEvent *event) {
  if (doc_->EditMode() != 0) return;
  QStringList paths;
  for (const QUrl &url : event->mimeData()->urls())
    if (url.isLocalFile()) paths.append(url.toLocalFile());
  // Taken before the batch, whose progress lets events through: the source
  // of the drag is not kept waiting for a long folder.
  event->acceptProposedAction();
  OpenPhotos(doc_, paths, window(), OpenReport::kShow);
}

// The main form: its controls, its screens and the command table.
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

using Screen = CKorvelAppView::Screen;

// The screens a control shows on, as a set of bits.
constexpr unsigned On(Screen screen) {
  return 1u << static_cast<unsigned>(screen);
}
constexpr unsigned kNowhere = 0;
constexpr unsigned kEditing = On(Screen::kEditor) | On(Screen::kCrop) | On(Screen::kRotate) |
                              On(Screen::kColor) | On(Screen::kRedEye);
constexpr unsigned kWithTools = kEditing & ~On(Screen::kEditor);
constexpr unsigned kEverywhere = kEditing | On(Screen::kThumbnails);

struct Placement {
  int id;
  unsigned shownOn;
};
// Quit, Open Image, Select Source, Edit Photo, Email and the zoom list stay
// commands the keys and the menu reach, but the skin has no place for them.
constexpr Placement kPlacements[] = {
    {kIdGetPhotos, kEverywhere},
    {kIdSavePhoto, kEverywhere},
    {kIdShare, kEverywhere},
    {kIdProjects, kEverywhere},
    {kIdPrint, kEverywhere},
    {kIdRemovePhoto, On(Screen::kThumbnails)},
    {kIdThumbnails, kEditing},
    {kIdQuit, kNowhere},
    {kIdOpenPhoto, kNowhere},
    {kIdSelectSource, kNowhere},
    {kIdWorkArea, kNowhere},
    {kIdZoomIn, kEditing},
    {kIdZoomOut, kEditing},
    {kIdZoomCombo, kNowhere},
    {kIdCrop, kEverywhere},
    {kIdColorCorrection, kEverywhere},
    {kIdRotate, kEverywhere},
    {kIdRedEye, kEverywhere},
    {kIdEditPhoto, kNowhere},
    {kIdGoOnline, kEverywhere},
    {kIdEmail, kNowhere},
    {kIdSky, On(Screen::kColor)},
    {kIdFoliage, On(Screen::kColor)},
    {kIdRotateRight, On(Screen::kRotate)},
    {kIdRedEyeTool, On(Screen::kRedEye)},
    {kIdCropNow, On(Screen::kCrop)},
    {kIdSkin, On(Screen::kColor)},
    {kIdRotateLeft, On(Screen::kRotate)},
    {kIdNeutrals, On(Screen::kColor)},
    {kIdUndo, kWithTools},
    {kIdKeepEdit, kWithTools},
    {kIdCloseEditor, kWithTools},
};

// The colour tools as the correction engine numbers them, and their buttons.
constexpr int kToolFoliage = 0, kToolSkin = 1, kToolSky = 2, kToolNeutrals = 3;
struct ColorToolButton {
  int id, tool;
};
constexpr ColorToolButton kColorTools[] = {{kIdSky, kToolSky},
                                           {kIdSkin, kToolSkin},
                                           {kIdNeutrals, kToolNeutrals},
                                           {kIdFoliage, kToolFoliage}};

// What each button and context-menu item runs.
struct Command {
  int id;
  void (CKorvelAppView::*run)();
};
constexpr Command kCommands[] = {
    {kIdRotateLeft, &CKorvelAppView::OnRotateLeft},
    {kIdRotateRight, &CKorvelAppView::OnRotateRight},
    {kIdZoomOut, &CKorvelAppView::OnZoomOut},
    {kIdZoomIn, &CKorvelAppView::OnZoomIn},
    {kIdCropNow, &CKorvelAppView::OnCropNow},
    {kIdKeepEdit, &CKorvelAppView::OnKeepEdit},
    {kIdCloseEditor, &CKorvelAppView::OnCloseEditor},
    {kIdThumbnails, &CKorvelAppView::OnCloseEditor},
    {kIdCrop, &CKorvelAppView::OnStartCrop},
    {kIdMenuCrop, &CKorvelAppView::OnStartCrop},
    {kIdRotate, &CKorvelAppView::OnStartRotate},
    {kIdMenuRotate, &CKorvelAppView::OnStartRotate},
    {kIdGetPhotos, &CKorvelAppView::OnGetPhotos},
    {kIdSelectSource, &CKorvelAppView::OnSelectSource},
    {kIdSavePhoto, &CKorvelAppView::OnSavePhoto},
    {kIdMenuSave, &CKorvelAppView::OnSavePhoto},
    {kIdQuit, &CKorvelAppView::OnQuit},
    {kIdRemovePhoto, &CKorvelAppView::OnRemovePhoto},
    {kIdMenuRemove, &CKorvelAppView::OnRemovePhoto},
    {kIdEditPhoto, &CKorvelAppView::OnEditPhoto},
    {kIdMenuEdit, &CKorvelAppView::OnEditPhoto},
    {kIdUndo, &CKorvelAppView::OnUndo},
    {kIdOpenPhoto, &CKorvelAppView::OnOpenPhoto},
    {kIdGoOnline, &CKorvelAppView::OnGoOnline},
    {kIdColorCorrection, &CKorvelAppView::OnStartColorCorrection},
    {kIdMenuColor, &CKorvelAppView::OnStartColorCorrection},
    {kIdRedEye, &CKorvelAppView::OnStartRedEye},
    {kIdMenuRedEye, &CKorvelAppView::OnStartRedEye},
    {kIdProjects, &CKorvelAppView::OnProjects},
    {kIdShare, &CKorvelAppView::OnShare},
    {kIdPrint, &CKorvelAppView::OnPrint},
    {kIdFoliage, &CKorvelAppView::OnFoliage},
    {kIdSkin, &CKorvelAppView::OnSkin},
    {kIdSky, &CKorvelAppView::OnSky},
    {kIdNeutrals, &CKorvelAppView::OnNeutrals},
    {kIdEmail, &CKorvelAppView::OnEmail},
    {kIdRedEyeTool, &CKorvelAppView::OnRedEyeTool},
};

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
    controls_.insert(c.id, control);
  }
}

void CKorvelAppView::OnInitialUpdate() {
  if (initialised_) return;
  initialised_ = true;
  CreateControls();
  if (QWidget *top = window(); top != this) top->adjustSize();
  workArea_ = Control(kIdWorkArea)->geometry();
  for (int i = 0; i < kFormControlCount; ++i) {
    const FormControl &c = kFormControls[i];
    if (c.kind != FormKind::Skinned) continue;
    auto *button = static_cast<CSkinButton *>(Control(c.id));
    button->LoadBitmaps(c.skins[0], c.skins[1], c.skins[2], c.skins[3]);
    button->SizeToContent();
  }
  for (int percent : kZoomSteps)
    zoom_->addItem(QString("%1%").arg(percent), percent);
  zoom_->addItem("Fit", 0);
  zoom_->setCurrentIndex(kZoomStart);
  CreateViews();
  UpdateControls();
  helpPane_->SetText(kHelpWelcome);
}

void CKorvelAppView::CreateViews() {
  const QPoint at = workArea_.topLeft();
  thumbView_ = new CThumbView(doc_, this);
  thumbView_->setGeometry(QRect(at, QSize(kViewWidth, kViewHeight)));
  thumbView_->OnInitialUpdate();
  connect(thumbView_, &CThumbView::editPhotoRequested, this, &CKorvelAppView::OnEditPhoto);
  connect(thumbView_, &CThumbView::removePhotoRequested, this, &CKorvelAppView::OnRemovePhoto);
  connect(thumbView_, &CThumbView::commandRequested, this, &CKorvelAppView::OnCommand);

  imageView_ = new CImageView(doc_, this);
  imageView_->setGeometry(QRect(at, QSize(kViewWidth, kViewHeight)));
  imageView_->OnInitialUpdate();
  connect(imageView_, &CImageView::colorClick, this,
          [this](QPoint photo) { imageView_->ColorCorrectAt(photo, colorTool_); });

  helpPane_ = new CButtonTextView(this);
  helpPane_->setGeometry(QRect(at + QPoint(0, kViewHeight + 1), QSize(kHelpWidth, kHelpHeight)));
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
  if (helpPane_) helpPane_->SetText(id);
}

void CKorvelAppView::UpdateControls() {
  const unsigned now = On(screen_);
  for (const Placement &p : kPlacements)
    if (QWidget *control = Control(p.id)) control->setVisible(p.shownOn & now);
  Control(kIdGetPhotos)->setEnabled(screen_ == Screen::kThumbnails);
  // The chosen tool's button is disabled: its skin then shows it selected.
  for (const ColorToolButton &t : kColorTools)
    Control(t.id)->setEnabled(t.tool != colorTool_);
  // Red eye has a single tool, chosen whenever its set shows; the click on
  // the photo does the work.
  Control(kIdRedEyeTool)->setEnabled(screen_ != Screen::kRedEye);
  if (!thumbView_) return;
  thumbView_->setVisible(screen_ == Screen::kThumbnails);
  imageView_->setVisible(screen_ != Screen::kThumbnails);
  helpPane_->setVisible(true);
}

void CKorvelAppView::ShowScreen(Screen screen) {
  screen_ = screen;
  colorTool_ = -1;
  UpdateControls();
}

void CKorvelAppView::SwitchToThumbnailMode() {
  doc_->SetEditMode(0);
  ShowScreen(Screen::kThumbnails);
}

// A photo that opened but can no longer be read (its file changed or went,
// or memory ran out since) is refused with the message opening gives, rather
// than shown as an empty editor with nothing to say why.
bool CKorvelAppView::SwitchToEditMode() {
  const int current = doc_->CurrentIndex();
  if (current != -1 && !doc_->ImageAt(current).Header()) {
    AfxMessageBox(QStringLiteral("Cannot open file ") + doc_->PathAt(current));
    return false;
  }
  imageView_->LoadCurrentPhoto();
  doc_->SetEditMode(1);
  ShowScreen(Screen::kEditor);
  zoom_->setCurrentIndex(kZoomStart);
  const int index = doc_->CurrentIndex();
  if (index != -1) {
    const CDib &photo = doc_->ImageAt(index);
    // A photo as large as the work area or larger starts where it is seen whole.
    if (photo.Width() >= kViewWidth || photo.Height() >= kViewHeight) {
      zoom_->setCurrentIndex(kZoomFit);
      imageView_->ZoomToFit();
      SetHelpText(kHelpEditPhoto);
    }
  }
  return true;
}

// The refusals every command on one photo makes: none picked, or several.
bool CKorvelAppView::OnePhotoPicked(const QString &action) {
  if (doc_->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to " + action);
    return false;
  }
  if (doc_->Selection().size() > 1) {
    AfxMessageBox("Please select only one image that you would like to " + action);
    return false;
  }
  return true;
}

bool CKorvelAppView::PrepareEdit() {
  if (!OnePhotoPicked("edit")) return false;
  return doc_->EditMode() || SwitchToEditMode();
}

void CKorvelAppView::OnCommand(int id) {
  for (const Command &command : kCommands)
    if (command.id == id) return (this->*command.run)();
}

void CKorvelAppView::OnRotateLeft() {
  SetHelpText(kHelpRotateLeft);
  imageView_->Rotate(0);
}

void CKorvelAppView::OnRotateRight() {
  SetHelpText(kHelpRotateRight);
  imageView_->Rotate(1);
}

// The steps go on from the scale shown, whichever entry gave it: from Fit,
// out is the next step below its scale and in the next step above.
void CKorvelAppView::ZoomStep(int direction) {
  const double scale = imageView_->Scale();
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
  SetHelpText(kHelpZoomOut);
  ZoomStep(-1);
}

void CKorvelAppView::OnZoomIn() {
  SetHelpText(kHelpZoomIn);
  ZoomStep(1);
}

void CKorvelAppView::OnZoomSelChange() {
  if (zoom_->currentIndex() < 0) return;
  if (const int percent = zoom_->currentData().toInt())
    imageView_->Zoom(percent * 0.01);
  else
    imageView_->ZoomToFit();
}

void CKorvelAppView::OnCropNow() {
  SetHelpText(kHelpCrop);
  imageView_->Crop();
}

// The edit goes back to the work area and the tools go; the editor stays.
void CKorvelAppView::OnKeepEdit() {
  imageView_->KeepChanges();
  if (screen_ != Screen::kThumbnails) ShowScreen(Screen::kEditor);
}

void CKorvelAppView::OnCloseEditor() {
  SetHelpText(kHelpThumbnails);
  if (doc_->EditMode() == 0 && !SwitchToEditMode()) return;
  if (imageView_->QueryKeepChanges()) {
    SetHelpText(kHelpWelcome);
    SwitchToThumbnailMode();
  }
}

void CKorvelAppView::OnStartCrop() {
  if (PrepareEdit()) {
    imageView_->ClearMode();
    imageView_->SetCropMode();
    ShowScreen(Screen::kCrop);
  }
  SetHelpText(kHelpCrop);
}

void CKorvelAppView::OnStartRotate() {
  if (PrepareEdit()) {
    imageView_->ClearSelection();
    imageView_->ClearMode();
    ShowScreen(Screen::kRotate);
  }
  SetHelpText(kHelpRotate);
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
    imageView_->ClearSelection();
    imageView_->StartColorCorrection();
    ShowScreen(Screen::kColor);  // no tool chosen yet
  }
  SetHelpText(kHelpColorCorrection);
}

void CKorvelAppView::OnStartRedEye() {
  if (PrepareEdit()) {
    imageView_->ClearMode();
    imageView_->ClearSelection();
    imageView_->SetRedEyeMode();
    ShowScreen(Screen::kRedEye);
  }
  SetHelpText(kHelpRedEye);
}

void CKorvelAppView::OnRedEyeTool() {
  SetHelpText(kHelpRedEye);
  imageView_->SetRedEyeMode();
}

// The editing view is told the tool with each click on the photo.
void CKorvelAppView::ChooseColorTool(int tool, int help) {
  SetHelpText(help);
  colorTool_ = tool;
  UpdateControls();
}

COutputContext CKorvelAppView::OutputContext() {
  return {doc_, [this](int id) { SetHelpText(id); }, window()};
}

void CKorvelAppView::OnFoliage() {
  ChooseColorTool(kToolFoliage, kHelpFoliage);
}
void CKorvelAppView::OnSkin() {
  ChooseColorTool(kToolSkin, kHelpSkin);
}
void CKorvelAppView::OnSky() {
  ChooseColorTool(kToolSky, kHelpSky);
}
void CKorvelAppView::OnNeutrals() {
  ChooseColorTool(kToolNeutrals, kHelpNeutrals);
}

void CKorvelAppView::OnGetPhotos() {
  SetHelpText(kHelpGetPhotos);
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
  SetHelpText(kHelpSavePhoto);
  SavePhotoCommand(doc_);
}

void CKorvelAppView::OnQuit() {
  window()->close();
}

void CKorvelAppView::OnRemovePhoto() {
  SetHelpText(kHelpRemovePhoto);
  if (!OnePhotoPicked("remove from your work area")) return;
  if (AfxMessageBox("Are you sure you want to remove this image from your work area?",
                    KorvelPrompt::MB_YESNOCANCEL) != KorvelPrompt::IDYES)
    return;
  doc_->Remove(doc_->CurrentIndex());
}

void CKorvelAppView::OnEditPhoto() {
  if (!OnePhotoPicked("edit")) return;
  SetHelpText(kHelpEditPhoto);
  if (!SwitchToEditMode()) return;
  imageView_->ClearSelection();
  imageView_->ClearMode();
}

void CKorvelAppView::OnUndo() {
  imageView_->Undo();
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
  SetHelpText(kHelpGoOnline);
}
void CKorvelAppView::OnShare() {
  if (COutputCommands *output = COutputCommands::Current())
    return output->OnSharePhotos(OutputContext());
  SetHelpText(kHelpShare);
}
void CKorvelAppView::OnProjects() {
  if (COutputCommands *output = COutputCommands::Current())
    return output->OnProjects(OutputContext());
  SetHelpText(kHelpProjects);
}
void CKorvelAppView::OnPrint() {
  if (COutputCommands *output = COutputCommands::Current()) return output->OnPrint(OutputContext());
  SetHelpText(kHelpPrint);
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

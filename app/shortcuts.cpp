#include "app/shortcuts.h"

#include <QApplication>
#include <QKeyEvent>
#include <QScrollBar>
#include <algorithm>
#include <tuple>
#include <vector>

#include "app/formview.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "photo/strings.h"
#include "res/formcontrols.h"
#include "views/thumbview.h"

namespace {

// What a screen reader says for each button: its name, and either the help line it
// shows (a string id) or, for buttons that show none, a sentence of the same kind.
struct ButtonWords {
  int id;
  const char *name;  // null: the caption
  int help;
  const char *description;
};
constexpr ButtonWords kButtonWords[] = {
    {kIdGetPhotos, nullptr, kHelpGetPhotos, nullptr},
    {kIdSavePhoto, nullptr, kHelpSavePhoto, nullptr},
    {kIdShare, nullptr, kHelpShare, nullptr},
    {kIdProjects, "Projects", kHelpProjects, nullptr},
    {kIdPrint, nullptr, kHelpPrint, nullptr},
    {kIdRemovePhoto, nullptr, kHelpRemovePhoto, nullptr},
    {kIdThumbnails, nullptr, kHelpThumbnails, nullptr},
    {kIdZoomIn, "Zoom In", kHelpZoomIn, nullptr},
    {kIdZoomOut, "Zoom Out", kHelpZoomOut, nullptr},
    {kIdCrop, nullptr, kHelpCrop, nullptr},
    {kIdColorCorrection, "Color Correction", kHelpColorCorrection, nullptr},
    {kIdRotate, nullptr, kHelpRotate, nullptr},
    {kIdRedEye, nullptr, kHelpRedEye, nullptr},
    {kIdEditPhoto, nullptr, kHelpEditPhoto, nullptr},
    {kIdGoOnline, nullptr, kHelpGoOnline, nullptr},
    {kIdEmail, nullptr, 0, "Send your photo by e-mail."},
    {kIdSky, nullptr, kHelpSky, nullptr},
    {kIdFoliage, nullptr, kHelpFoliage, nullptr},
    {kIdRotateRight, nullptr, kHelpRotateRight, nullptr},
    {kIdRedEyeTool, nullptr, kHelpRedEye, nullptr},
    {kIdCropNow, nullptr, kHelpCrop, nullptr},
    {kIdSkin, nullptr, kHelpSkin, nullptr},
    {kIdRotateLeft, nullptr, kHelpRotateLeft, nullptr},
    {kIdNeutrals, nullptr, kHelpNeutrals, nullptr},
    {kIdUndo, nullptr, 0, "Undo the last change to your photo."},
    {kIdKeepEdit, nullptr, 0, "Keep the changes you've made to your photo."},
    {kIdCloseEditor, nullptr, kHelpThumbnails, nullptr},
};

bool Showing(const QWidget *control) {
  return control && control->isVisibleTo(control->window()) && control->isEnabled();
}

}  // namespace

CKeyboard::CKeyboard(CMainFrame *frame, CKorvelAppView *form)
    : QObject(frame), frame_(frame), form_(form) {
  // Keys reach the focused control first, and the buttons would take the arrows to
  // move the focus; the application's filter sees them before any control does.
  qApp->installEventFilter(this);
}

bool CKeyboard::eventFilter(QObject *watched, QEvent *event) {
  if (event->type() != QEvent::KeyPress) return false;
  const auto *widget = qobject_cast<QWidget *>(watched);
  // Dialogs over the window keep their own keys.
  if (!widget || widget->window() != frame_) return false;
  return HandleKey(*static_cast<QKeyEvent *>(event));
}

bool CKeyboard::HandleKey(const QKeyEvent &key) {
  const Qt::KeyboardModifiers modifiers = key.modifiers() & ~Qt::KeypadModifier;
  switch (key.key()) {
    // "+" is a shifted key on many layouts, and Ctrl with + or - is the usual zoom.
    case Qt::Key_Plus:
    case Qt::Key_Equal:
      return !(modifiers & ~(Qt::ShiftModifier | Qt::ControlModifier)) && Press(kIdZoomIn);
    case Qt::Key_Minus:
      return !(modifiers & ~(Qt::ShiftModifier | Qt::ControlModifier)) && Press(kIdZoomOut);
    default:
      break;
  }
  if (modifiers == Qt::ControlModifier) {
    switch (key.key()) {
      case Qt::Key_O:
        return Showing(form_->Control(kIdGetPhotos)) && InThumbnails() && Press(kIdOpenPhoto);
      case Qt::Key_S:
        return Press(kIdSavePhoto);
      case Qt::Key_Z:
        return Press(kIdUndo);
      case Qt::Key_P:
        return Press(kIdPrint);
      case Qt::Key_Q:
      case Qt::Key_W:
        frame_->close();
        return true;
      default:
        return false;
    }
  }
  if (modifiers != Qt::NoModifier) return false;
  switch (key.key()) {
    case Qt::Key_Escape:
      return Press(kIdThumbnails);
    case Qt::Key_Return:
    case Qt::Key_Enter:
      return InThumbnails() && Press(kIdMenuEdit);
    case Qt::Key_Left:
      return MoveSelection(-1);
    case Qt::Key_Right:
      return MoveSelection(1);
    case Qt::Key_Up:
      return MoveSelection(-CThumbView::kColumns);
    case Qt::Key_Down:
      return MoveSelection(CThumbView::kColumns);
    default:
      return false;
  }
}

bool CKeyboard::Press(int id) {
  // The open and edit commands have no button showing: their keys check the mode.
  if (id != kIdOpenPhoto && id != kIdMenuEdit && !Showing(form_->Control(id))) return false;
  form_->OnCommand(id);
  return true;
}

bool CKeyboard::InThumbnails() const {
  return form_->GetDocument()->EditMode() == 0;
}

bool CKeyboard::MoveSelection(int step) {
  if (!InThumbnails()) return false;
  CKorvelAppDoc *doc = form_->GetDocument();
  const int count = doc->Count();
  if (count == 0) return true;
  const int current = doc->CurrentIndex();
  int next = current < 0 ? 0 : current + step;
  // Down from a row above a short last row lands on the last photo; at any other edge
  // the selection stays where it is.
  if (next >= count && current / CThumbView::kColumns < (count - 1) / CThumbView::kColumns)
    next = count - 1;
  if (next < 0 || next >= count) return true;
  doc->SetCurrentIndex(next);
  doc->SetSelection({});
  ScrollIntoView(next);
  return true;
}

void CKeyboard::ScrollIntoView(int index) {
  CThumbView *thumbs = form_->GetThumbView();
  if (!thumbs) return;
  const int top = (index / CThumbView::kColumns) * CThumbView::kPitch;
  const int bottom = top + CThumbView::kMargin + CThumbView::kCellSize + CThumbView::kCaptionBottom;
  QScrollBar *bar = thumbs->verticalScrollBar();
  const int height = thumbs->viewport()->height();
  if (top < bar->value())
    bar->setValue(top);
  else if (bottom > bar->value() + height)
    bar->setValue(bottom - height);
}

void DescribeFormButtons(CKorvelAppView *form) {
  for (const ButtonWords &words : kButtonWords) {
    QWidget *button = form->Control(words.id);
    if (!button) continue;
    const auto *control = std::find_if(kFormControls, kFormControls + kFormControlCount,
                                       [&](const FormControl &c) { return c.id == words.id; });
    button->setAccessibleName(QString::fromUtf8(words.name ? words.name : control->caption));
    button->setAccessibleDescription(words.help ? LoadKorvelString(words.help)
                                                : QString::fromUtf8(words.description));
  }
}

void OrderFormTabs(CKorvelAppView *form) {
  const QRect work(form->WorkAreaOrigin(),
                   QSize(CThumbView::kScrollWidth, CThumbView::kMinScrollHeight));
  // Band 0 the top bar, 1 the work area, 2 the column right of it, 3 the bottom row;
  // rows run left to right and the column top to bottom.
  const auto place = [&work](const QWidget *w) {
    const QRect at = w->geometry();
    if (at.top() < work.top()) return std::tuple(0, at.left(), at.top());
    if (at.top() >= work.top() + work.height()) return std::tuple(3, at.left(), at.top());
    if (at.left() >= work.left() + work.width()) return std::tuple(2, at.top(), at.left());
    return std::tuple(1, at.top(), at.left());
  };
  std::vector<QWidget *> chain;
  for (QWidget *child : form->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
    if (child->focusPolicy() & Qt::TabFocus) chain.push_back(child);
  std::stable_sort(chain.begin(), chain.end(),
                   [&](const QWidget *a, const QWidget *b) { return place(a) < place(b); });
  for (size_t i = 1; i < chain.size(); ++i)
    QWidget::setTabOrder(chain[i - 1], chain[i]);
}

// The thumbnail view: painting the grid, and turning clicks into the work
// area's current index and selection.
#include "views/thumbview.h"

#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "photo/document.h"
#include "res/formcontrols.h"

namespace {

// A Ctrl-click is one whose key flags are exactly MK_LBUTTON | MK_CONTROL
// (9): the left button alone, Ctrl down and Shift up. Alt and the other
// modifiers are not among a click's key flags, so they do not spoil it.
bool IsCtrlClick(const QMouseEvent *event) {
  return event->buttons() == Qt::LeftButton &&
         (event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier)) == Qt::ControlModifier;
}

// Menu 132, in order; id 0 is the separator.
struct MenuItem {
  const char *text;
  int id;
};
constexpr MenuItem kMenu132[] = {
    {"&Edit Image", kIdMenuEdit},        {"&Delete Image", kIdMenuRemove},
    {"&Save Image", kIdMenuSave},        {nullptr, 0},
    {"&Rotate Image", kIdMenuRotate},    {"&Crop Image", kIdMenuCrop},
    {"Co&lor Correction", kIdMenuColor}, {"Re&move Red Eye", kIdMenuRedEye},
};

// The picture's size inside its 100 x 100 cell. A picture larger than the
// cell either way is scaled to 100 along its longer side, keeping its
// proportions; a smaller one is stretched over the whole cell on purpose, so
// that every thumbnail fills its cell. The shorter side is the one
// multiplied, which keeps the product inside 32 bits for any picture that
// fits in memory.
QSize FittedSize(uint32_t w, uint32_t h) {
  constexpr uint32_t cell = CThumbView::kCellSize;
  uint32_t fw = cell, fh = cell;
  if (w > cell || h > cell) {
    if (w < h)
      fw = w * cell / h;
    else
      fh = h * cell / w;
  }
  return QSize(static_cast<int>(fw), static_cast<int>(fh));
}

// A 1-pixel frame on the cell's outermost pixels.
void FrameCell(QPainter &painter, const QRect &cell, const QColor &color) {
  painter.fillRect(cell.left(), cell.top(), cell.width(), 1, color);
  painter.fillRect(cell.left(), cell.bottom(), cell.width(), 1, color);
  painter.fillRect(cell.left(), cell.top(), 1, cell.height(), color);
  painter.fillRect(cell.right(), cell.top(), 1, cell.height(), color);
}

}  // namespace

CThumbView::CThumbView(CKorvelAppDoc *doc, QWidget *parent)
    : QAbstractScrollArea(parent),
      doc_(doc),
      menuRunner_([](QMenu *menu, const QPoint &at) { return menu->exec(at); }) {
  // The view fills exactly the rectangle the form gives it and never scrolls
  // sideways: five columns end at 600 pixels, inside even a narrowed view.
  setFrameShape(QFrame::NoFrame);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  setFocusPolicy(Qt::ClickFocus);
  // The right button shows menu 132 itself; no second menu from the form.
  setContextMenuPolicy(Qt::PreventContextMenu);
  // Every change to the work area shows in the grid, whoever makes it.
  QWidget *surface = viewport();
  const auto repaint = [surface] { surface->update(); };
  connect(doc, &CKorvelAppDoc::photoAdded, surface, repaint);
  connect(doc, &CKorvelAppDoc::photoReplaced, surface, repaint);
  connect(doc, &CKorvelAppDoc::photoRemoved, surface, repaint);
  connect(doc, &CKorvelAppDoc::selectionChanged, surface, repaint);
  connect(doc, &CKorvelAppDoc::currentChanged, surface, repaint);
}

CThumbView::~CThumbView() = default;

void CThumbView::OnInitialUpdate() {
  SetScrollHeight(kMinScrollHeight);
  // Taken from the widget's size rather than the viewport's, which is laid
  // out only once the view is first shown.
  client_ = QRect(QPoint(0, 0), maximumViewportSize());
}

// A page is what the view shows, so that the bar's thumb is as long, against
// its groove, as the shown part against the whole grid. A line is a third of
// a thumbnail row: a wheel notch moves the platform's wheel step in lines
// (QApplication::wheelScrollLines, usually three), so by default one notch
// moves exactly one row and the rows stay where the eye left them, while a
// user who set more or fewer lines a notch still gets that many.
void CThumbView::SetScrollHeight(int height) {
  QScrollBar *bar = verticalScrollBar();
  const int shown = maximumViewportSize().height();
  const int range = std::max(0, height - shown);
  if (bar->maximum() != range) bar->setRange(0, range);
  bar->setPageStep(std::max(1, shown));
  bar->setSingleStep(kWheelLine);
}

// Which cells get the red frame is settled once, not per entry: the current
// entry while nothing is selected, otherwise every selected one.
std::vector<bool> CThumbView::FramedEntries(int count) const {
  const std::vector<uint32_t> &selection = std::as_const(*doc_).Selection();
  std::vector<bool> framed(static_cast<size_t>(count), false);
  if (selection.empty()) {
    const int current = doc_->CurrentIndex();
    if (current >= 0 && current < count) framed[static_cast<size_t>(current)] = true;
  } else {
    for (uint32_t index : selection)
      if (index < static_cast<uint32_t>(count)) framed[index] = true;
  }
  return framed;
}

void CThumbView::paintEvent(QPaintEvent *event) {
  QPainter painter(viewport());
  const int scrolled = verticalScrollBar()->value();
  painter.translate(0, -scrolled);
  const QColor background = QColor::fromRgb(kBackground);

  cells_.clear();
  const int count = doc_->Count();
  const int rows = (count + kColumns - 1) / kColumns;
  int height = rows * kPitch + kMargin;
  // A work area that fits fills only the client rectangle of the initial
  // update; what lies outside it keeps the erased background.
  if (height <= kMinScrollHeight) {
    painter.fillRect(client_, background);
    height = kMinScrollHeight;
  } else {
    painter.fillRect(0, 0, kScrollWidth, height, background);
  }
  SetScrollHeight(height);

  const std::vector<bool> framed = FramedEntries(count);

  QFont font(QStringLiteral("Arial"));
  font.setPointSize(kCaptionPoints);
  painter.setFont(font);
  painter.setPen(Qt::black);
  const QRect exposed = event->rect().translated(0, scrolled);
  constexpr int half = kCellSize / 2;
  for (int i = 0; i < count; ++i) {
    const QRect cell(kMargin + kPitch * (i % kColumns), kMargin + kPitch * (i / kColumns),
                     kCellSize, kCellSize);
    cells_.append(cell);
    const QRect caption(cell.left(), cell.top() + kCellSize + kCaptionTop, kCellSize,
                        kCaptionBottom - kCaptionTop);
    if (!exposed.intersects(cell.united(caption))) continue;

    FrameCell(painter, cell, Qt::black);
    // Centred and cut at the strip's ends when the name is wider than it.
    painter.drawText(caption, Qt::AlignHCenter | Qt::AlignTop, doc_->FileNameAt(i));
    // Halves are truncated, so an odd fitted size loses one pixel; the picture
    // goes over the black frame where it fills the cell.
    const CDib &image = doc_->ImageAt(i);
    const QSize fitted = FittedSize(image.Width(), image.Height());
    image.Draw(&painter, cell.left() + half - fitted.width() / 2,
               cell.top() + half - fitted.height() / 2, cell.left() + half + fitted.width() / 2,
               cell.top() + half + fitted.height() / 2);
    if (framed[static_cast<size_t>(i)]) FrameCell(painter, cell, QColor::fromRgb(kSelectedFrame));
  }
}

int CThumbView::HitTest(const QPoint &point) const {
  for (int i = 0; i < cells_.size(); ++i)
    if (cells_[i].contains(point)) return i;
  return -1;
}

void CThumbView::mousePressEvent(QMouseEvent *event) {
  if (event->button() == Qt::LeftButton)
    OnLButtonDown(event);
  else if (event->button() == Qt::RightButton)
    OnRButtonDown(event);
  else
    QAbstractScrollArea::mousePressEvent(event);
}

void CThumbView::OnLButtonDown(QMouseEvent *event) {
  const QPoint point = event->position().toPoint() + QPoint(0, verticalScrollBar()->value());
  const int hit = HitTest(point);
  if (hit < 0) {
    QAbstractScrollArea::mousePressEvent(event);
    return;
  }
  const int old = doc_->CurrentIndex();
  doc_->SetCurrentIndex(hit);
  std::vector<uint32_t> selection;
  if (IsCtrlClick(event)) {
    // The photo that was current joins the selection it starts. Duplicates
    // are harmless: the selection is only asked whether it holds more than
    // one index and whether it holds a given one.
    selection = doc_->Selection();
    if (selection.empty() && old != -1) selection.push_back(static_cast<uint32_t>(old));
    selection.push_back(static_cast<uint32_t>(hit));
  }
  doc_->SetSelection(std::move(selection));
}

void CThumbView::mouseDoubleClickEvent(QMouseEvent *event) {
  // The second press of a double-click arrives only here, as the system
  // reports it: it is not a second selecting click.
  if (event->button() != Qt::LeftButton) {
    event->ignore();
    return;
  }
  const int hit = HitTest(event->position().toPoint() + QPoint(0, verticalScrollBar()->value()));
  if (hit < 0) {
    event->ignore();
    return;
  }
  doc_->SetCurrentIndex(hit);
  doc_->SetEditMode(1);
  emit editPhotoRequested();
}

void CThumbView::OnRButtonDown(QMouseEvent *event) {
  // The point is tested as it comes, without the scroll offset the left
  // button adds, so after scrolling the right button picks the cell that would
  // lie under the pointer unscrolled. This is kept deliberately.
  const QPoint point = event->position().toPoint();
  const int hit = HitTest(point);
  if (hit < 0) {
    QAbstractScrollArea::mousePressEvent(event);
    return;
  }
  doc_->SetCurrentIndex(hit);

  const std::unique_ptr<QMenu> menu(CreateContextMenu());
  const QPointer<CThumbView> alive(this);
  QAction *chosen = menuRunner_(menu.get(), viewport()->mapToGlobal(point));
  if (!alive || !chosen) return;
  if (const int id = chosen->data().toInt(); id != 0) emit commandRequested(id);
}

QMenu *CThumbView::CreateContextMenu() const {
  // No parent: the menu must not die with the view while its loop runs.
  auto *menu = new QMenu;
  for (const MenuItem &item : kMenu132) {
    if (!item.text) {
      menu->addSeparator();
      continue;
    }
    menu->addAction(QString::fromLatin1(item.text))->setData(item.id);
  }
  return menu;
}

void CThumbView::keyPressEvent(QKeyEvent *event) {
  if (event->key() == Qt::Key_Delete) {
    emit removePhotoRequested();
    return;
  }
  QAbstractScrollArea::keyPressEvent(event);
}

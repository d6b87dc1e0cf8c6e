// The thumbnail view: painting the grid, asking for the thumbnails of the
// photos that equal their files, and turning clicks into the work area's
// current index and selection.
#include "views/thumbview.h"

#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "photo/cellpicture.h"
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

// A 1-pixel frame on the cell's outermost pixels.
void FrameCell(QPainter &painter, const QRect &cell, const QColor &color) {
  painter.fillRect(cell.left(), cell.top(), cell.width(), 1, color);
  painter.fillRect(cell.left(), cell.bottom(), cell.width(), 1, color);
  painter.fillRect(cell.left(), cell.top(), 1, cell.height(), color);
  painter.fillRect(cell.right(), cell.top(), 1, cell.height(), color);
}

// Thumbnails are made at the screen's pixels for a cell, so that they stay
// sharp on a high-density screen (and come from the large cache there), and
// one pixel more: a thumbnail is never enlarged, so one no longer than the
// cell is the photo at its own size, which the grid stretches over the cell
// as it does every small photo, while a larger photo's reaches past the cell
// and is fitted into it. A box of exactly the cell could not tell a photo of
// 100 x 50 from one of 200 x 100.
int ThumbnailBox(const QWidget *widget) {
  return static_cast<int>(std::lround(CThumbView::kCellSize * widget->devicePixelRatioF())) + 1;
}

}  // namespace

CThumbView::CThumbView(CKorvelAppDoc *doc, QWidget *parent)
    : QAbstractScrollArea(parent),
      doc_(doc),
      menuRunner_([](QMenu *menu, const QPoint &at) { return menu->exec(at); }),
      thumbnailer_(ThumbnailBox(this)) {
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
  connect(doc, &CKorvelAppDoc::photoAdded, this, &CThumbView::OnPhotoAdded);
  connect(doc, &CKorvelAppDoc::photoReplaced, this, &CThumbView::OnPhotoReplaced);
  connect(doc, &CKorvelAppDoc::photoRemoved, this, &CThumbView::OnPhotoRemoved);
  connect(doc, &CKorvelAppDoc::selectionChanged, surface, repaint);
  connect(doc, &CKorvelAppDoc::currentChanged, surface, repaint);
  // The editor, not the grid, is on screen while editing: it gets the cores.
  connect(doc, &CKorvelAppDoc::editModeChanged, this, [this](int mode) { SetEditing(mode != 0); });
  connect(&thumbnailer_, &Thumbnailer::thumbnailReady, this, &CThumbView::OnThumbnailReady);
  connect(&thumbnailer_, &Thumbnailer::thumbnailFailed, this, &CThumbView::OnThumbnailFailed);
  connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &CThumbView::Rerank);
  if (doc->EditMode() != 0) SetEditing(true);
  for (int i = 0; i < doc->Count(); ++i)
    Ask(i);
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
  for (int i = 0; i < count; ++i) {
    const QRect cell = CellOf(i);
    cells_.append(cell);
    const QRect caption(cell.left(), cell.top() + kCellSize + kCaptionTop, kCellSize,
                        kCaptionBottom - kCaptionTop);
    if (!exposed.intersects(cell.united(caption))) continue;

    FrameCell(painter, cell, Qt::black);
    // Centred and cut at the strip's ends when the name is wider than it.
    painter.drawText(caption, Qt::AlignHCenter | Qt::AlignTop, doc_->FileNameAt(i));
    // The picture goes over the black frame where it fills the cell.
    DrawPicture(painter, i, cell);
    if (framed[static_cast<size_t>(i)]) FrameCell(painter, cell, QColor::fromRgb(kSelectedFrame));
  }
}

QRect CThumbView::CellOf(int index) {
  return QRect(kMargin + kPitch * (index % kColumns), kMargin + kPitch * (index / kColumns),
               kCellSize, kCellSize);
}

// No photo is read or decoded here for the grid. One that equals its file
// shows its thumbnail once made, a placeholder until then; only when no
// thumbnail could be made and its pixels happen to be in memory anyway are
// those drawn. Any other entry shows its pixels while they are in memory and
// the picture the work area kept of them once they went to a spill file.
void CThumbView::DrawPicture(QPainter &painter, int index, const QRect &cell) {
  painter.save();
  painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
  const QString path = doc_->PathAt(index);
  const bool fromFile = FromFile(index);
  const PhotoStore &store = doc_->Pixels();
  const CellPicture *kept = store.Resident(index) ? nullptr : store.KeptPicture(index);
  if (const auto thumb = thumbs_.constFind(path); fromFile && thumb != thumbs_.cend()) {
    // Its size in device pixels stands for the photo's (see ThumbnailBox).
    const QSize size = thumb->size();
    painter.drawPixmap(CellPictureRect(cell, size.width(), size.height()), *thumb);
  } else if (!fromFile && kept) {
    DrawCellPicture(painter, *kept, cell);
  } else if (!fromFile || (failed_.contains(path) && store.Resident(index))) {
    // Only a photo too small to be worth a kept picture, or one whose spill
    // failed and so stayed in memory, comes here without its pixels at hand.
    const CDib image = doc_->ImageAt(index);
    const QRect target = CellPictureRect(cell, image.Width(), image.Height());
    image.Draw(&painter, target.left(), target.top(), target.right() + 1, target.bottom() + 1);
  } else {
    FrameCell(
        painter,
        cell.adjusted(kPlaceholderInset, kPlaceholderInset, -kPlaceholderInset, -kPlaceholderInset),
        QColor::fromRgb(kPlaceholder));
  }
  painter.restore();
}

bool CThumbView::FromFile(int index) const {
  return doc_->Pixels().FileBacked(index);
}

bool CThumbView::Wanted(int index) const {
  const int top = verticalScrollBar()->value();
  const int bottom = top + viewport()->height();
  const int row = index / kColumns;
  const int rowTop = kMargin + kPitch * row;
  // Rows reach from their cell's top to the next row's; one more row below
  // is wanted so that a scroll of one row finds it ready.
  return rowTop + kPitch > top && rowTop - kPitch < bottom;
}

void CThumbView::Ask(int index) {
  if (!FromFile(index)) return;
  const QString path = doc_->PathAt(index);
  if (thumbs_.contains(path) || failed_.contains(path)) return;
  const int rank = Wanted(index) ? 1 : 0;
  // Asked already for another entry of the same file: only ever raised.
  if (asked_.contains(path)) {
    if (rank > 0) (void)thumbnailer_.SetPriority(path, rank);
    return;
  }
  asked_.insert(path);
  thumbnailer_.Request(path, rank);
}

void CThumbView::OnPhotoAdded(int index) {
  Ask(index);
  viewport()->update();
}

// A photo now equal to a file was saved there just now, so what was shown for
// that file is out of date; an edited photo shows its pixels, and whatever its
// old file had asked for may no longer be needed.
void CThumbView::OnPhotoReplaced(int index) {
  if (FromFile(index)) {
    const QString path = doc_->PathAt(index);
    thumbs_.remove(path);
    failed_.remove(path);
    thumbnailer_.Cancel(path);
    asked_.remove(path);
    Ask(index);
  }
  Prune();
  viewport()->update();
}

void CThumbView::OnPhotoRemoved() {
  if (doc_->Count() == 0) {
    thumbnailer_.CancelAll();
    thumbs_.clear();
    asked_.clear();
    failed_.clear();
  } else {
    Prune();
    // The entries after the removed one moved up a cell: the rows shown now
    // hold others.
    Rerank();
  }
  viewport()->update();
}

void CThumbView::Prune() {
  QSet<QString> needed;
  for (int i = 0; i < doc_->Count(); ++i)
    if (FromFile(i)) needed.insert(doc_->PathAt(i));
  for (auto it = asked_.begin(); it != asked_.end();) {
    if (needed.contains(*it)) {
      ++it;
      continue;
    }
    thumbnailer_.Cancel(*it);
    it = asked_.erase(it);
  }
  thumbs_.removeIf([&](const auto &entry) { return !needed.contains(entry.key()); });
  failed_.removeIf([&](const QString &path) { return !needed.contains(path); });
}

// Paused while the ranks change, so that no worker picks a request between
// two of them by a half-changed order.
// A file shown by several entries ranks by the highest of them.
void CThumbView::Rerank() {
  if (asked_.isEmpty()) return;
  QHash<QString, int> ranks;
  for (int i = 0; i < doc_->Count(); ++i) {
    const QString path = doc_->PathAt(i);
    if (!FromFile(i) || !asked_.contains(path)) continue;
    int &rank = ranks[path];
    rank = std::max(rank, Wanted(i) ? 1 : 0);
  }
  thumbnailer_.Pause();
  for (auto it = ranks.cbegin(); it != ranks.cend(); ++it)
    (void)thumbnailer_.SetPriority(it.key(), it.value());
  if (!editing_) thumbnailer_.Resume();
}

void CThumbView::SetEditing(bool editing) {
  editing_ = editing;
  if (editing)
    thumbnailer_.Pause();
  else
    thumbnailer_.Resume();
}

void CThumbView::OnThumbnailReady(const QString &path, const QImage &thumb) {
  asked_.remove(path);
  QPixmap shown = QPixmap::fromImage(thumb);
  shown.setDevicePixelRatio(devicePixelRatioF());
  thumbs_.insert(path, shown);
  RepaintEntriesOf(path);
}

void CThumbView::OnThumbnailFailed(const QString &path) {
  asked_.remove(path);
  failed_.insert(path);
  RepaintEntriesOf(path);
}

void CThumbView::RepaintEntriesOf(const QString &path) {
  const int scrolled = verticalScrollBar()->value();
  for (int i = 0; i < doc_->Count(); ++i)
    if (doc_->PathAt(i) == path) viewport()->update(CellOf(i).translated(0, -scrolled));
}

void CThumbView::resizeEvent(QResizeEvent *event) {
  QAbstractScrollArea::resizeEvent(event);
  Rerank();
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

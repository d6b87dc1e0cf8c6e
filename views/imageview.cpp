// The editing view's display, its mouse, and its edits. Every edit works on
// the current picture's planes and commits new planes as a new picture, so a
// copy kept elsewhere (the previous image, the work area's photo) never
// changes under it.
#include "views/imageview.h"

#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cmath>

#include "colorengine/apply.h"
#include "colorengine/cc.h"
#include "photo/dibplanar.h"
#include "photo/document.h"
#include "photo/prompt.h"
#include "photo/waitcursor.h"
#include "views/quarterturn.h"
#include "views/scrollsizes.h"

namespace {

constexpr QRgb kBackground = qRgb(0xdc, 0xdc, 0xdc);

constexpr const char *kNoRoomToKeep =
    "There is not enough memory to keep the changes. Close other programs or photos and try "
    "again.";

}  // namespace

CImageView::CImageView(CKorvelAppDoc *doc, QWidget *parent)
    : QAbstractScrollArea(parent), doc_(doc) {
  setFrameShape(QFrame::NoFrame);
  // Whatever the paint leaves uncovered (the strip a scroll bar had taken when
  // the client rectangle was captured) shows the same light grey.
  QPalette grey = palette();
  grey.setColor(QPalette::Window, QColor(kBackground));
  grey.setColor(QPalette::Base, QColor(kBackground));  // what a viewport fills with
  setPalette(grey);
  setAutoFillBackground(true);
  viewport()->setAutoFillBackground(true);
  // A rubber band released outside the photo keeps following the pointer.
  viewport()->setMouseTracking(true);
}

CImageView::~CImageView() = default;

void CImageView::OnInitialUpdate() {
  SetScrollSizes(this, QSize(453, 645));
}

void CImageView::LoadCurrentPhoto() {
  current_.reset();
  previous_.reset();
  const int index = doc_->CurrentIndex();
  if (index != -1) {
    const CDib photo = doc_->ImageAt(index);
    current_ = std::make_shared<EditorPicture>(photo);
    previous_ = std::make_shared<EditorPicture>(photo);
  }
  changed_ = false;
  dragging_ = false;
  mode_.clear();
  fit_ = false;
  scale_ = 1.0f;
  Rezoom();
}

QRect CImageView::ComputeImageRect() const {
  const int w = zoomed_.Size().width(), h = zoomed_.Size().height();
  const int cw = clientRect_.width(), ch = clientRect_.height();
  // Half the client less half the picture; an odd side leaves its spare
  // pixel on the right. The picture is drawn whole, pixel for pixel.
  return QRect(cw > w ? cw / 2 - w / 2 : 0, ch > h ? ch / 2 - h / 2 : 0, w, h);
}

QPoint CImageView::ToPhoto(QPoint p) const {
  return zoomed_.ToPhoto(p - ComputeImageRect().topLeft());
}

CRectTracker::Rect CImageView::SelectionInPhoto() const {
  const CRectTracker::Rect r = tracker_.GetTrueRect();
  const QPoint origin = ComputeImageRect().topLeft();
  const QPoint a = zoomed_.EdgeToPhoto(QPoint(r.left, r.top) - origin);
  const QPoint b = zoomed_.EdgeToPhoto(QPoint(r.right, r.bottom) - origin);
  return {a.x(), a.y(), b.x(), b.y()};
}

void CImageView::Rezoom() {
  // Only a reduction reads the whole picture; enlargements convert the
  // visible part alone.
  zoomed_.Set(current_, Scale());
  // The client rectangle is the view less the scroll bars this picture
  // needs: one that fits is centred in the whole view, not beside a bar an
  // earlier, larger picture needed.
  SetScrollSizes(this, zoomed_.Size());
  clientRect_ = ::ClientRect(this);
  imageRect_ = ComputeImageRect();
  viewport()->update();
}

float CImageView::FitScale() const {
  if (!current_ || current_->Width() == 0 || current_->Height() == 0) return 1.0f;
  // The whole view: a picture that fits it needs no scroll bars.
  const QSize view = contentsRect().size();
  const float w = float(current_->Width()), h = float(current_->Height());
  const auto sides = [&](float scale) { return QSize(int(w * scale), int(h * scale)); };
  const auto fits = [&](float scale) {
    return sides(scale).width() <= view.width() && sides(scale).height() <= view.height();
  };
  // The routines size their result as trunc(side * scale) in float, and the
  // quotient may fall an ulp short of the side it was taken from (480 x
  // 453/480 making 452): a few ulps up find the size it meant.
  float scale = std::min({1.0f, float(view.width()) / w, float(view.height()) / h});
  float up = scale;
  for (int i = 0; i < 4 && up < 1.0f; ++i) {
    up = std::nextafter(up, 2.0f);
    if (!fits(up)) break;
    if (sides(up) != sides(scale)) {
      scale = up;
      break;
    }
  }
  while (scale > 0.0f && !fits(scale))
    scale = std::nextafter(scale, 0.0f);
  return scale;
}

void CImageView::ZoomKeepingSelection(bool fit, float scale) {
  const CRectTracker::Rect band = tracker_.rect_;
  const QPoint from = ComputeImageRect().topLeft();
  const QPoint a = zoomed_.EdgeToPhoto(QPoint(band.left, band.top) - from);
  const QPoint b = zoomed_.EdgeToPhoto(QPoint(band.right, band.bottom) - from);
  fit_ = fit;
  scale_ = scale;
  Rezoom();
  if (band == CRectTracker::Rect{}) return;
  const QPoint to = imageRect_.topLeft();
  const QPoint c = zoomed_.EdgeToDrawn(a) + to, d = zoomed_.EdgeToDrawn(b) + to;
  tracker_.rect_ = {c.x(), c.y(), d.x(), d.y()};
}

QPoint CImageView::ViewPoint(const QMouseEvent *event) const {
  return event->position().toPoint() +
         QPoint(horizontalScrollBar()->value(), verticalScrollBar()->value());
}

CRectTracker::Rect CImageView::NormalizedRect(QPoint a, QPoint b) {
  const int x1 = a.x(), y1 = a.y(), x2 = b.x(), y2 = b.y();
  if (x1 < x2 && y1 < y2) return {x1, y1, x2, y2};
  if (x1 < x2 && y2 < y1) return {x1, y2, x2, y1};
  if (x1 > x2 && y1 < y2) return {x2, y1, x1, y2};
  return {x2, y2, x1, y1};
}

void CImageView::paintEvent(QPaintEvent *) {
  imageRect_ = ComputeImageRect();
  const int w = zoomed_.Size().width(), h = zoomed_.Size().height();
  SetScrollSizes(this, zoomed_.Size());
  QPainter painter(viewport());
  const QPoint scroll(horizontalScrollBar()->value(), verticalScrollBar()->value());
  painter.translate(-scroll);
  painter.fillRect(QRect(0, 0, std::max(w, clientRect_.width()), std::max(h, clientRect_.height())),
                   QColor(kBackground));
  const QRect visible(scroll - imageRect_.topLeft(), viewport()->size());
  zoomed_.Draw(&painter, imageRect_.topLeft(), visible);
  tracker_.Draw(&painter);
  if (dragging_ && !lastDrag_.IsEmpty()) {
    // The band inverts what is under it, so it shows on any picture.
    const CRectTracker::Rect &d = lastDrag_;
    painter.setCompositionMode(QPainter::CompositionMode_Difference);
    const QRect band(d.left, d.top, d.right - d.left, d.bottom - d.top);
    for (const QRect &edge : {QRect(band.left(), band.top(), band.width(), 3),
                              QRect(band.left(), band.bottom() - 2, band.width(), 3),
                              QRect(band.left(), band.top() + 3, 3, band.height() - 6),
                              QRect(band.right() - 2, band.top() + 3, 3, band.height() - 6)})
      painter.fillRect(edge, Qt::white);
  }
}

void CImageView::mousePressEvent(QMouseEvent *event) {
  if (event->button() != Qt::LeftButton) return QAbstractScrollArea::mousePressEvent(event);
  const QPoint p = ViewPoint(event);
  if (mode_ == "CROP") {
    // Only hits above 0: a press on the top-left handle, like one outside,
    // starts a new band.
    if (tracker_.HitTest(p) > 0) {
      tracker_.Track(viewport(), p, false);
      viewport()->update();
    } else if (imageRect_.contains(p)) {
      dragStart_ = p;
      lastDrag_ = {};
      dragging_ = true;
    }
  } else if (mode_ == "COLORCORRECTION") {
    emit colorClick(ToPhoto(p));
  } else if (mode_ == "REDEYE") {
    RemoveRedEyeAt(ToPhoto(p));
  }
}

void CImageView::mouseMoveEvent(QMouseEvent *event) {
  const QPoint p = ViewPoint(event);
  if (tracker_.Tracking()) {
    tracker_.TrackTo(p);
    viewport()->update();
    return;
  }
  if (mode_ == "CROP" && !tracker_.SetCursor(viewport(), p)) viewport()->unsetCursor();
  if (mode_ != "CROP" || !dragging_) return;
  // Outside the photo the band stays where it was.
  if (imageRect_.contains(p)) {
    lastDrag_ = NormalizedRect(dragStart_, p);
    viewport()->update();
  }
}

void CImageView::mouseReleaseEvent(QMouseEvent *event) {
  const QPoint p = ViewPoint(event);
  if (tracker_.Tracking()) {
    tracker_.EndTrack();
    viewport()->update();
    return;
  }
  if (mode_ != "CROP" || !imageRect_.contains(p)) return;
  dragging_ = false;
  tracker_.rect_ = NormalizedRect(dragStart_, p);
  tracker_.sizeMin_ = QSize(8, 8);
  tracker_.style_ = CRectTracker::solidLine | CRectTracker::resizeInside;
  changed_ = true;
  viewport()->update();
}

const PlanarImage *CImageView::CurrentPlanes() {
  return current_ ? current_->Planes() : nullptr;
}

void CImageView::Commit(Planar result) {
  previous_ = std::move(current_);
  current_ = std::make_shared<EditorPicture>(std::move(result));
  Rezoom();
}

void CImageView::Rotate(int direction) {
  if ((direction != 0 && direction != 1) || !current_) return;
  changed_ = true;
  const PlanarImage *source = CurrentPlanes();
  if (!source) return;
  // The picture the turn drops lends its storage to the turned one, unless
  // something else (the colour tool's source) still reads it.
  Planar none;
  Planar &spare = previous_.use_count() == 1 ? previous_->StorageToReuse() : none;
  Planar turned = TurnQuarter(*source, direction == 1, spare);
  if (!turned) return;  // the user keeps the picture they had
  Commit(std::move(turned));
}

void CImageView::Zoom(double factor) {
  CWaitCursor wait;
  ZoomKeepingSelection(false, float(factor));
  if (factor >= 1.0) {
    horizontalScrollBar()->setValue(0);
    verticalScrollBar()->setValue(0);
  }
}

void CImageView::ZoomToFit() {
  CWaitCursor wait;
  ZoomKeepingSelection(true, scale_);
}

void CImageView::ClearSelection() {
  tracker_.rect_ = {};
  mode_.clear();
  viewport()->update();
}

int CImageView::Crop() {
  if (!current_) return -1;
  changed_ = true;
  const PlanarImage *source = CurrentPlanes();
  if (!source) return -1;
  const CRectTracker::Rect r = SelectionInPhoto();
  Planar result(PlanarCreateRect(source, r.left, r.top, r.right, r.bottom));
  if (!result) return -1;
  if (const int code = CropImage(source, r.left, r.top, result.get(), nullptr)) return code;
  Commit(std::move(result));
  tracker_.rect_ = {};
  viewport()->update();
  return 0;
}

void CImageView::RemoveRedEyeAt(QPoint photo) {
  if (!current_) return;
  changed_ = true;
  Planar copy(current_->CopyArea(QRect(0, 0, int(current_->Width()), int(current_->Height()))));
  // The routine refuses points outside the photo; nothing changes then.
  if (!copy || RemoveRedEye(copy.get(), photo.x(), photo.y(), 2, 0) != 0) return;
  Commit(std::move(copy));
  tracker_.rect_ = {};
}

void CImageView::StartColorCorrection() {
  mode_ = "COLORCORRECTION";
  ResetColorState();
  colorSource_ = current_;
}

void CImageView::ResetColorState() {
  colorTool_ = -1;
  colorParams_ = std::make_unique<CcParams>();
  CcInitParams(colorParams_.get());
}

void CImageView::ColorCorrectAt(QPoint photo, int tool) {
  if (!colorParams_) return;
  if (tool == -1) {
    AfxMessageBox("Please Select a Color Correction tool and then click on the image");
    return;
  }
  colorTool_ = tool;
  // The parameters hold 50 clicks; one more is turned away rather than
  // written past the list.
  if (colorParams_->pointCount >= CcMaxPoints) {
    KorvelPrompt::Current().Beep();
    return;
  }
  colorParams_->points[colorParams_->pointCount++] = CcPoint{tool, photo.x(), photo.y()};
  ApplyColorCorrection();
}

int CImageView::ApplyColorCorrection() {
  const PlanarImage *source = colorSource_ ? colorSource_->Planes() : nullptr;
  if (!source || !colorParams_) return -1;
  CcTransform transform{};
  if (const int code = CcBuildTransform(colorParams_.get(), source, &transform)) return code;
  const PlanarImage &src = *source;
  // The result has the source's size: every click starts again from it.
  Planar result(PlanarCreate(src.width, src.height, 3));
  int code = result ? 0 : -1;
  if (code == 0) {
    CcPixelRow from{}, to{};
    for (int c = 0; c < 3; ++c) {
      from.channel[c] = src.planes[c];
      to.channel[c] = result->planes[c];
    }
    // Every row fails alike or none does, so the rows may run on every core.
    code = CcApplyRows(&transform, uint32_t(src.width), uint32_t(src.height), &from,
                       uint32_t(src.pixelStep), src.rowStride, &to, uint32_t(result->pixelStep),
                       result->rowStride);
  }
  if (code == 0) Commit(std::move(result));
  (void)CcFreeTransform(&transform);
  if (code != 0) return code;
  changed_ = true;
  viewport()->update();
  return 0;
}

bool CImageView::KeepChanges() {
  if (doc_->CurrentIndex() != -1 && current_) {
    // The edit's block is made only now; without the memory for it the
    // edit stays in the editor rather than being lost.
    const CDib *picture = current_->Picture();
    if (!picture) {
      AfxMessageBox(kNoRoomToKeep);
      return false;
    }
    doc_->ReplaceImage(doc_->CurrentIndex(), *picture, 1, QString());
  }
  changed_ = false;
  mode_.clear();
  return true;
}

bool CImageView::QueryKeepChanges() {
  if (!changed_) return true;
  switch (AfxMessageBox("The image has changed. Do you want to keep these changes?",
                        KorvelPrompt::MB_YESNOCANCEL)) {
    case KorvelPrompt::IDYES:
      return KeepChanges();
    case KorvelPrompt::IDNO:
      return true;
    default:
      return false;
  }
}

void CImageView::Undo() {
  if (mode_ == "COLORCORRECTION" && colorParams_ && colorParams_->pointCount > 0)
    --colorParams_->pointCount;
  std::swap(current_, previous_);
  Rezoom();
}

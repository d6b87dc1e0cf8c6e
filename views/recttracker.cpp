// The selection rectangle's geometry, hit-testing, tracking and drawing.
#include "views/recttracker.h"

#include <QPainter>
#include <QWidget>
#include <algorithm>

CRectTracker::Rect CRectTracker::Rect::Normalized() const {
  return Rect{std::min(left, right), std::min(top, bottom), std::max(left, right),
              std::max(top, bottom)};
}

CRectTracker::Rect CRectTracker::GetTrueRect() const {
  Rect r = rect_.Normalized();
  int grow = 0;
  if (style_ & (resizeOutside | hatchedBorder)) grow += handleSize_ - 1;
  if (style_ & (solidLine | dottedLine)) ++grow;
  return Rect{r.left - grow, r.top - grow, r.right + grow, r.bottom + grow};
}

// Handles sit on the corners and edge middles, inside the rectangle for
// resizeInside and outside it for resizeOutside.
CRectTracker::Rect CRectTracker::HandleRect(int handle) const {
  const Rect r = rect_.Normalized();
  const int size = handleSize_;
  const bool outside = style_ & resizeOutside;
  const int xs[3] = {outside ? r.left - size : r.left, (r.left + r.right - size) / 2,
                     outside ? r.right : r.right - size};
  const int ys[3] = {outside ? r.top - size : r.top, (r.top + r.bottom - size) / 2,
                     outside ? r.bottom : r.bottom - size};
  static const int kAt[8][2] = {{0, 0}, {2, 0}, {2, 2}, {0, 2}, {1, 0}, {2, 1}, {1, 2}, {0, 1}};
  const int x = xs[kAt[handle][0]], y = ys[kAt[handle][1]];
  return Rect{x, y, x + size, y + size};
}

int CRectTracker::HitTest(QPoint point) const {
  const Rect whole = GetTrueRect();
  if (!whole.Contains(point)) return hitNothing;
  if (style_ & (resizeInside | resizeOutside)) {
    const Rect r = rect_.Normalized();
    // Handles of a rectangle too small to tell them apart are not offered.
    if (r.right - r.left >= 2 * handleSize_ && r.bottom - r.top >= 2 * handleSize_)
      for (int handle = 0; handle < 8; ++handle)
        if (HandleRect(handle).Contains(point)) return handle;
  }
  return hitMiddle;
}

bool CRectTracker::Track(QWidget *, QPoint point, bool allowInvert) {
  hit_ = HitTest(point);
  if (hit_ == hitNothing) return false;
  rect_ = rect_.Normalized();
  tracking_ = true;
  allowInvert_ = allowInvert;
  start_ = point;
  startRect_ = rect_;
  return true;
}

void CRectTracker::TrackTo(QPoint point) {
  if (!tracking_) return;
  const int dx = point.x() - start_.x(), dy = point.y() - start_.y();
  Rect r = startRect_;
  const bool left = hit_ == hitTopLeft || hit_ == hitBottomLeft || hit_ == hitLeft;
  const bool right = hit_ == hitTopRight || hit_ == hitBottomRight || hit_ == hitRight;
  const bool top = hit_ == hitTopLeft || hit_ == hitTopRight || hit_ == hitTop;
  const bool bottom = hit_ == hitBottomLeft || hit_ == hitBottomRight || hit_ == hitBottom;
  if (hit_ == hitMiddle) {
    r = Rect{r.left + dx, r.top + dy, r.right + dx, r.bottom + dy};
  } else {
    if (left) r.left += dx;
    if (right) r.right += dx;
    if (top) r.top += dy;
    if (bottom) r.bottom += dy;
  }
  rect_ = r;
  if (hit_ != hitMiddle) AdjustToMinimum(!left, !top);
}

// The edge being dragged stops where the rectangle would become smaller than
// the minimum size; unless inverting is allowed, also where it would turn
// inside out.
void CRectTracker::AdjustToMinimum(bool growRight, bool growDown) {
  const auto adjust = [this](int &low, int &high, int minimum, bool growHigh) {
    const int size = high - low;
    if (allowInvert_ && size < 0 && -size >= minimum) return;
    if (allowInvert_ && size < 0)
      (growHigh ? high : low) = growHigh ? low - minimum : high + minimum;
    else if (size < minimum)
      (growHigh ? high : low) = growHigh ? low + minimum : high - minimum;
  };
  adjust(rect_.left, rect_.right, sizeMin_.width(), growRight);
  adjust(rect_.top, rect_.bottom, sizeMin_.height(), growDown);
}

bool CRectTracker::EndTrack() {
  if (!tracking_) return false;
  tracking_ = false;
  return !(rect_ == startRect_);
}

void CRectTracker::Draw(QPainter *painter) const {
  const Rect r = rect_.Normalized();
  if (r.IsEmpty()) return;
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing, false);
  if (style_ & (solidLine | dottedLine)) {
    QPen pen(Qt::black, 1, (style_ & dottedLine) ? Qt::DotLine : Qt::SolidLine);
    painter->setPen(pen);
    painter->setBrush(Qt::NoBrush);
    // The border runs just outside the rectangle, as GetTrueRect counts it.
    painter->drawRect(QRect(QPoint(r.left - 1, r.top - 1), QPoint(r.right, r.bottom)));
  }
  if (style_ & (resizeInside | resizeOutside)) {
    for (int handle = 0; handle < 8; ++handle) {
      const Rect h = HandleRect(handle);
      painter->fillRect(QRect(h.left, h.top, h.right - h.left, h.bottom - h.top), Qt::black);
    }
  }
  painter->restore();
}

bool CRectTracker::SetCursor(QWidget *owner, QPoint point) const {
  static const Qt::CursorShape kShapes[9] = {
      Qt::SizeFDiagCursor, Qt::SizeBDiagCursor, Qt::SizeFDiagCursor,
      Qt::SizeBDiagCursor, Qt::SizeVerCursor,   Qt::SizeHorCursor,
      Qt::SizeVerCursor,   Qt::SizeHorCursor,   Qt::SizeAllCursor};
  const int hit = HitTest(point);
  if (hit == hitNothing) return false;
  owner->setCursor(kShapes[hit]);
  return true;
}

// A selection rectangle the user can move and resize with the mouse, drawn
// with a border and eight handles. Hit codes: -1 nothing, 0-7 the handles
// (top-left, top-right, bottom-right, bottom-left, top, right, bottom, left),
// 8 inside. Tracking follows the mouse between a press and its release: the
// owner passes its mouse moves and the release on while Tracking() holds.
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

class QPainter;
class QWidget;

class CRectTracker {
 public:
  enum StyleFlags {
    solidLine = 1,
    dottedLine = 2,
    hatchedBorder = 4,
    resizeInside = 8,
    resizeOutside = 16,
    hatchInside = 32,
  };
  enum TrackerHit {
    hitNothing = -1,
    hitTopLeft = 0,
    hitTopRight = 1,
    hitBottomRight = 2,
    hitBottomLeft = 3,
    hitTop = 4,
    hitRight = 5,
    hitBottom = 6,
    hitLeft = 7,
    hitMiddle = 8,
  };

  // Rectangles keep both corners as given, as (left, top, right, bottom);
  // right and bottom are exclusive, and an "inverted" rectangle is allowed.
  struct Rect {
    int left = 0, top = 0, right = 0, bottom = 0;
    bool operator==(const Rect &) const = default;
    Rect Normalized() const;
    bool IsEmpty() const { return right <= left || bottom <= top; }
    bool Contains(QPoint p) const {
      return p.x() >= left && p.x() < right && p.y() >= top && p.y() < bottom;
    }
  };

  Rect rect_;
  int style_ = 0;
  QSize sizeMin_{8, 8};
  int handleSize_ = 4;

  // The rectangle with what its style draws outside it (the border).
  Rect GetTrueRect() const;
  int HitTest(QPoint point) const;
  // Starts following the mouse from `point` for a press on hit `hit` > -1.
  // `allowInvert` false keeps the rectangle from turning inside out.
  bool Track(QWidget *owner, QPoint point, bool allowInvert);
  bool Tracking() const { return tracking_; }
  // The pointer moved to `point` (owner coordinates) while tracking.
  void TrackTo(QPoint point);
  // The button went up: tracking ends; true when the rectangle changed.
  bool EndTrack();
  void Draw(QPainter *painter) const;
  // The cursor shape for the hit under `point`; false when over nothing.
  bool SetCursor(QWidget *owner, QPoint point) const;

 private:
  Rect HandleRect(int handle) const;
  void AdjustToMinimum(bool growRight, bool growDown);

  bool tracking_ = false;
  bool allowInvert_ = false;
  int hit_ = hitNothing;
  QPoint start_;
  Rect startRect_;
};

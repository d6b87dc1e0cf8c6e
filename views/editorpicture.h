// One picture the editing view holds: the one being edited or the one undo
// brings back. Its planes are what every tool and the display read; its
// packed block is what the work area keeps. Each form is made from the other
// only when first wanted, so an edit of a 24-Mpixel photo writes its 72 MB
// of planes and nothing more until the user keeps it, and a photo taken up
// from the work area is converted to planes only when a tool or a reduced
// display reads it. The pixels never change once made; copies share them.
#pragma once

#include <QRect>
#include <cstdint>
#include <memory>

#include "photo/dib.h"
#include "photo/dibplanar.h"

class EditorPicture {
 public:
  // The work area's photo (its block shared, not copied).
  explicit EditorPicture(const CDib &picture);
  // A routine's result, which becomes the picture's planes.
  explicit EditorPicture(Planar planes);
  EditorPicture(const EditorPicture &) = delete;
  EditorPicture &operator=(const EditorPicture &) = delete;

  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  // Distinguishes this picture's pixels from those of every other picture
  // made in this process, for copies drawn from it.
  uint64_t Serial() const { return serial_; }

  // The three planes (R, G, B, top row first), converted from the block when
  // first asked for; null for an empty picture or when memory runs out.
  const PlanarImage *Planes() const;
  // The packed block, made from the planes when first asked for; null when
  // memory runs out (the planes are kept, so nothing is lost).
  const CDib *Picture() const;
  // The pixels inside `area` (which must lie inside the picture) as planes
  // of their own; null when memory runs out.
  PlanarImage *CopyArea(const QRect &area) const;

  // The planes' storage for a picture about to be dropped, which a result of
  // the same number of samples may be written into and take. Only the
  // holder of the last reference may use it.
  Planar &StorageToReuse() { return planes_; }

 private:
  mutable CDib picture_;
  mutable Planar planes_;
  uint32_t width_ = 0, height_ = 0;
  uint64_t serial_;
};

// What the editing view draws for a zoom step: the working picture resampled
// by the zoom routines, reduced by filtered resampling below 1 and enlarged by
// pixel replication in whole steps from 1 up. The working picture itself
// keeps its size, so edits and what is kept are always at full resolution;
// only this drawn copy follows the zoom, and clicks on it are mapped back.
//
// A reduction is made once for the whole picture and kept while the
// picture's block and the scale stay the same, so a repaint of a large photo
// costs only the copy to the screen. An enlargement of a large photo would
// not fit in memory (a 24-Mpixel photo at 800% is 1.5 Gpixels), so only the
// visible part is enlarged, pixel for pixel what the whole would show there.
#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <cstdint>
#include <memory>

#include "pixels/pixels.h"
#include "views/editorpicture.h"

class QPainter;

class CZoomedPicture {
 public:
  // Takes up `picture` (null for none) at `scale`; the resampling runs only
  // when the picture or the scale changed. A scale the routines cannot make
  // (a reduction below 2 x 2 pixels, memory running out) shows the picture
  // at its own size.
  void Set(std::shared_ptr<const EditorPicture> picture, float scale);
  // The drawn picture's size, and the enlargement factor (0 while reduced).
  QSize Size() const { return size_; }
  int Factor() const { return factor_; }
  // The part `visible` (drawn coordinates) drawn with the picture's top-left
  // corner at `origin`.
  void Draw(QPainter *painter, QPoint origin, const QRect &visible);

  // A drawn pixel to the photo pixel under its centre; points off the
  // picture map to photo points off the photo.
  QPoint ToPhoto(QPoint drawn) const;
  // Edges between pixels, rounded to the nearest edge on the other side.
  QPoint EdgeToPhoto(QPoint drawn) const;
  QPoint EdgeToDrawn(QPoint photo) const;

 private:
  void Reduce(float scale);
  // The enlarged window covering `visible`, made when the last one does not.
  void EnsureWindow(const QRect &visible);

  std::shared_ptr<const EditorPicture> picture_;
  uint64_t serial_ = 0;
  float scale_ = 1.0f;
  QSize photo_, size_;
  int factor_ = 1;
  QImage image_;  // the whole reduction, or the enlarged window
  QRect window_;  // where the enlarged window lies, drawn coordinates
};

// A picture of the program's artwork at one and at two device pixels to each logical
// pixel, so that a screen scaled by two shows it as sharp as an unscaled one.
#pragma once

#include <QPixmap>
#include <QString>

class QPainter;

class CScaledPixmap {
 public:
  // Loads `path` and the "@2x" picture beside it ("198.png" and "198@2x.png"); false
  // when `path` itself cannot be loaded, which leaves the picture empty. A double-size
  // picture of the wrong size is left out rather than shown out of place.
  bool Load(const QString &path);
  void Clear();

  bool IsNull() const { return one_.isNull(); }
  bool HasDoubleSize() const { return !two_.isNull(); }
  // In logical pixels.
  QSize Size() const { return one_.size(); }

  // The picture for painting through `painter`: the double-size one as soon as a
  // logical pixel covers more than one device pixel, so that fractional scales are
  // reduced from it rather than enlarged from the small one.
  const QPixmap &For(const QPainter &painter) const;
  // Draws the picture with its top-left corner at `at` (logical pixels).
  void Draw(QPainter &painter, QPoint at) const;

 private:
  QPixmap one_;
  QPixmap two_;
};

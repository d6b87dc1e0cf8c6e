// Photos for the application's tests: flat-coloured 24-bit pictures made the
// way the editing view makes its results.
#pragma once

#include <QColor>
#include <cstring>

#include "photo/dibplanar.h"

inline HGLOBAL MakePhoto(int width, int height, QRgb colour = qRgb(200, 120, 40)) {
  PlanarImage *p = PlanarCreate(width, height, 3);
  const size_t plane = size_t(width) * size_t(height);
  std::memset(p->planes[0], qRed(colour), plane);
  std::memset(p->planes[1], qGreen(colour), plane);
  std::memset(p->planes[2], qBlue(colour), plane);
  HGLOBAL block = DibFromPlanar(p);
  PlanarFree(p);
  return block;
}

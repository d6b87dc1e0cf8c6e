// Photos for the application's tests: flat-coloured 24-bit pictures made the
// way the editing view makes its results.
#pragma once

#include <QColor>
#include <cstdint>
#include <cstring>
#include <vector>

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

// Every byte of a picture's block: header, rows, padding and what follows;
// none for an empty picture.
inline std::vector<uint8_t> BlockBytes(const CDib &dib) {
  const auto *at = static_cast<const uint8_t *>(GlobalLock(dib.Handle()));
  std::vector<uint8_t> bytes;
  if (at) bytes.assign(at, at + GlobalSize(dib.Handle()));
  GlobalUnlock(dib.Handle());
  return bytes;
}

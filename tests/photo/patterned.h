// A test picture whose every pixel differs from its neighbours, so that a
// shift, another reduction or other smoothing shows in what is drawn.
#pragma once

#include <cstddef>
#include <cstdint>

#include "photo/dib.h"
#include "photo/dibplanar.h"

inline CDib Patterned(int width, int height) {
  PlanarImage *p = PlanarCreate(width, height, 3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const size_t i = size_t(y) * size_t(width) + size_t(x);
      p->planes[0][i] = uint8_t(x * 7 + y * 3);
      p->planes[1][i] = uint8_t(x * y + 11);
      p->planes[2][i] = uint8_t((x ^ y) * 5);
    }
  CDib dib(DibFromPlanar(p));
  PlanarFree(p);
  return dib;
}

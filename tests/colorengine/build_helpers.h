// What the builder's tests share: owned planar photos, a built transform that
// frees itself, a parameter record with clicks, and row-by-row application.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>

#include "colorengine/cc.h"
#include "pixels/pixels.h"

namespace cctest {

struct PlanarDeleter {
  void operator()(PlanarImage *p) const { PlanarFree(p); }
};
using Planar = std::unique_ptr<PlanarImage, PlanarDeleter>;

// As the editing view applies a transform: row by row into a fresh image.
inline Planar Apply(const CcTransform &t, const PlanarImage &src) {
  Planar dst(PlanarCreate(src.width, src.height, 3));
  for (int y = 0; y < src.height; ++y) {
    const int at = y * src.rowStride, out = y * dst->rowStride;
    CcPixelRow from{{src.planes[0] + at, src.planes[1] + at, src.planes[2] + at}},
        to{{dst->planes[0] + out, dst->planes[1] + out, dst->planes[2] + out}};
    EXPECT_EQ(CcApplySl(&t, uint32_t(src.width), &from, uint32_t(src.pixelStep), &to,
                        uint32_t(dst->pixelStep)),
              0);
  }
  return dst;
}

struct Built {
  CcTransform t{};
  int32_t code;
  Built(CcParams *params, const PlanarImage *image) : code(CcBuildTransform(params, image, &t)) {}
  ~Built() { (void)CcFreeTransform(&t); }
};

inline CcParams Params(std::initializer_list<CcPoint> points) {
  CcParams p;
  EXPECT_EQ(CcInitParams(&p), 0);
  for (const CcPoint &point : points)
    p.points[p.pointCount++] = point;
  return p;
}

}  // namespace cctest

#include "views/quarterturn.h"

namespace {

bool Usable(const PlanarImage &p) {
  if (p.sampleType != 1 || p.channels < 3 || p.width < 1 || p.height < 1) return false;
  if (p.pixelStep == 0 || p.rowStride == 0) return false;
  return p.planes[0] && p.planes[1] && p.planes[2];
}

// Three planes laid out as PlanarCreate lays them: one block, one after another.
bool Compact(const PlanarImage &p) {
  const size_t plane = size_t(p.width) * size_t(p.height);
  return p.channels == 3 && p.pixelStep == 1 && p.rowStride == p.width &&
         p.planes[1] == p.planes[0] + plane && p.planes[2] == p.planes[1] + plane;
}

// Planes of width x height: `spare` made over when it holds exactly their
// bytes, else new ones.
Planar PlanesFor(int32_t width, int32_t height, Planar &spare) {
  const size_t plane = size_t(width) * size_t(height);
  if (spare && Compact(*spare) && size_t(spare->width) * size_t(spare->height) == plane) {
    Planar planes = std::move(spare);
    planes->width = width;
    planes->height = height;
    planes->rowStride = width;
    for (int c = 1; c < 3; ++c)
      planes->planes[c] = planes->planes[0] + plane * size_t(c);
    return planes;
  }
  return Planar(PlanarCreate(width, height, 3));
}

}  // namespace

Planar TurnQuarter(const PlanarImage &source, bool right, Planar &spare) {
  if (!Usable(source)) return nullptr;
  const PlanarImage *before = spare.get();
  const PlanarImage shape = before ? *before : PlanarImage{};
  Planar planes = PlanesFor(source.height, source.width, spare);
  if (!planes) return nullptr;
  PlanarImage picture = source;
  picture.channels = 3;
  // The routine refuses only before it writes, which a source the checks
  // above let through never makes it do; the spare goes back untouched then.
  if (RotateImage(&picture, right ? 0 : 2, planes.get(), nullptr) != 0) {
    if (planes.get() == before) {
      *planes = shape;
      spare = std::move(planes);
    }
    return nullptr;
  }
  return planes;
}

// The quarter turn, band of destination rows by band: the rotation routine
// turns the band's source columns into the band's planes, which are then
// packed into the block's rows while they are still cached.
#include "views/quarterturn.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "photo/dibraster.h"
#include "platform/workers.h"

namespace {

// The rotation's own group of rows, so that every band but the last goes
// through its cache-blocked path; three planes of such a band of a large
// photo still fit the cache when they are packed.
constexpr int32_t kBandRows = 64;

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
// bytes, else new ones (the spare freed first).
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
  spare.reset();
  return Planar(PlanarCreate(width, height, 3));
}

// A block of `bytes` for the packed picture: the spare's when it has that
// size and nobody else holds it (so no copy of a picture changes under its
// holder), else a new one; null when memory runs out.
HGLOBAL BlockFor(size_t bytes, const std::unique_ptr<CDib> &spare, bool *reused) {
  HGLOBAL handle = spare ? spare->Handle() : nullptr;
  *reused = handle && DibRefCount(handle) == 1 && GlobalSize(handle) == bytes;
  return *reused ? handle : GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
}

// Destination rows [r0, r1): they come from a band of source columns, the
// leftmost for a right turn and the rightmost for a left one, which the
// routine turns as a picture of their own.
int TurnBand(const PlanarImage &src, bool right, const PlanarImage &dst, int32_t r0, int32_t r1) {
  PlanarImage from = src, to = dst;
  from.channels = to.channels = 3;
  from.width = to.height = r1 - r0;
  const ptrdiff_t column = right ? r0 : src.width - r1;
  for (int c = 0; c < 3; ++c) {
    from.planes[c] = src.planes[c] + column * src.pixelStep;
    to.planes[c] = dst.planes[c] + ptrdiff_t{r0} * dst.rowStride;
  }
  return RotateImage(&from, right ? 0 : 2, &to, nullptr);
}

}  // namespace

bool TurnQuarter(const PlanarImage &source, bool right, std::unique_ptr<CDib> &sparePicture,
                 Planar &sparePlanes, TurnedPicture *out) {
  if (!out || !Usable(source)) return false;
  const int32_t width = source.height, height = source.width;  // the turned sides
  Planar planes = PlanesFor(width, height, sparePlanes);
  if (!planes) return false;
  const size_t bytes = DibPlanarBlockBytes(uint32_t(width), uint32_t(height));
  bool reused = false;
  HGLOBAL handle = BlockFor(bytes, sparePicture, &reused);
  if (!handle) return false;
  auto *block = static_cast<uint8_t *>(GlobalLock(handle));
  const BITMAPINFOHEADER header = DibHeader24(uint32_t(width), uint32_t(height));
  std::memcpy(block, &header, sizeof header);
  const size_t rowSize = DibRowBytes24(uint32_t(width));
  uint8_t *const bottom = block + sizeof header + rowSize * size_t(height - 1);
  // Each band is written from the source alone, so the bands may go to any
  // thread; the routine's own split runs inside on the thread that has it.
  std::atomic<bool> failed{false};
  SplitWork(height, kBandRows, [&](int64_t first, int64_t last) {
    for (int64_t r0 = first; r0 < last; r0 += kBandRows) {
      const auto r1 = int32_t(std::min<int64_t>(r0 + kBandRows, last));
      if (TurnBand(source, right, *planes, int32_t(r0), r1) != 0) failed = true;
      DibPackPlanarRows(*planes, uint32_t(r0), uint32_t(r1), bottom, rowSize);
    }
  });
  // What follows the rows is zero in a new block; a reused one may hold a
  // picture of other sides there.
  const size_t end = sizeof header + rowSize * size_t(height);
  std::memset(block + end, 0, bytes - end);
  GlobalUnlock(handle);
  if (failed) {
    // Cannot happen with a source the checks above let through; the block is
    // not a picture then, whoever held it.
    sparePicture.reset();
    if (!reused) GlobalFree(handle);
    return false;
  }
  out->picture.Attach(handle);
  out->planes = std::move(planes);
  if (reused) {
    GlobalTouch(handle);  // pictures made from its old bytes are stale now
    sparePicture.reset();
  }
  return true;
}

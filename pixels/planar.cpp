// The PlanarImage record's empty results and the library's readiness check.
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

#include "pixels/pixels.h"

namespace {

// A photo's planes are tens of megabytes that every routine sweeps once. In
// 4 KiB pages the first touch of each costs a fault (about half the time of a
// quarter turn of a 24-Mpixel photo); large blocks are therefore aligned to
// and advised for the kernel's 2 MiB pages.
constexpr size_t kHugePage = size_t{2} << 20;

uint8_t *AllocPlanes(size_t bytes) {
  if (bytes < kHugePage) return static_cast<uint8_t *>(std::malloc(bytes));
  const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  void *block = std::aligned_alloc(kHugePage, rounded);
#ifdef MADV_HUGEPAGE
  if (block) (void)madvise(block, rounded, MADV_HUGEPAGE);
#endif
  return static_cast<uint8_t *>(block);
}

}  // namespace

PlanarImage *PlanarCreate(int32_t width, int32_t height, int32_t channels) {
  if (width < 1 || height < 1 || channels < 1 || channels > 4) return nullptr;
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto *image = static_cast<PlanarImage *>(std::calloc(1, sizeof(PlanarImage)));
  uint8_t *block = AllocPlanes(plane * static_cast<size_t>(channels));
  if (!image || !block) {
    std::free(image);
    std::free(block);
    return nullptr;
  }
  *image = PlanarImage{1, channels, width, height, 0, 1, width, {}};
  for (int32_t c = 0; c < channels; ++c)
    image->planes[c] = block + plane * c;
  return image;
}

PlanarImage *PlanarCreateExchanged(const PlanarImage *src) {
  return src ? PlanarCreate(src->height, src->width, src->channels) : nullptr;
}

PlanarImage *PlanarCreateScaled(const PlanarImage *src, float factor) {
  if (!src) return nullptr;
  return PlanarCreate(static_cast<int32_t>(static_cast<float>(src->width) * factor),
                      static_cast<int32_t>(static_cast<float>(src->height) * factor),
                      src->channels);
}

PlanarImage *PlanarCreateRect(const PlanarImage *src, int32_t left, int32_t top, int32_t right,
                              int32_t bottom) {
  return src ? PlanarCreate(right - left, bottom - top, src->channels) : nullptr;
}

// The planes share one block that starts at plane 0.
void PlanarFree(PlanarImage *image) {
  if (!image) return;
  std::free(image->planes[0]);
  std::free(image);
}

int PixReady() {
  return 0;
}

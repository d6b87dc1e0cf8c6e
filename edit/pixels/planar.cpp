// The PlanarImage record's empty results and the library's readiness check.
#include <cstdlib>
#include <cstring>

#include "edit/pixels/pixels.h"

PlanarImage *PlanarCreate(int32_t width, int32_t height, int32_t channels) {
  if (width < 1 || height < 1 || channels < 1 || channels > 4) return nullptr;
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto *image = static_cast<PlanarImage *>(std::calloc(1, sizeof(PlanarImage)));
  auto *block = static_cast<uint8_t *>(std::malloc(plane * static_cast<size_t>(channels)));
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

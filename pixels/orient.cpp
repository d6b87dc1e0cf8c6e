#include "pixels/orient.h"

#include <algorithm>
#include <cstddef>

namespace {

// RotateImage's modes: 0 a quarter clockwise, 1 half round, 2 a quarter
// counter-clockwise; -1 a plain copy.
struct Steps {
  int rotation;
  bool flip;  // then mirrored top-bottom
};

// Each orientation as a rotation the pixel library already does fast,
// followed by swapping rows, which is cheap: mirroring left-right is half a
// turn and a top-bottom mirror, transposing a quarter counter-clockwise and a
// top-bottom mirror, transversing a quarter clockwise and a top-bottom mirror.
constexpr Steps kSteps[9] = {{-1, false}, {-1, false}, {1, true}, {1, false}, {-1, true},
                             {2, true},   {0, false},  {0, true}, {2, false}};

void FlipRows(PlanarImage *image) {
  const ptrdiff_t step = image->pixelStep;
  for (int32_t c = 0; c < image->channels; ++c) {
    for (int32_t top = 0, bottom = image->height - 1; top < bottom; ++top, --bottom) {
      uint8_t *a = image->planes[c] + static_cast<ptrdiff_t>(top) * image->rowStride;
      uint8_t *b = image->planes[c] + static_cast<ptrdiff_t>(bottom) * image->rowStride;
      if (step == 1) {
        std::swap_ranges(a, a + image->width, b);
      } else {
        for (int32_t x = 0; x < image->width; ++x)
          std::swap(a[x * step], b[x * step]);
      }
    }
  }
}

}  // namespace

PlanarImage *PlanarCreateOriented(const PlanarImage *src, int orientation) {
  if (!src) return nullptr;
  return OrientationExchanges(orientation) ? PlanarCreateExchanged(src)
                                           : PlanarCreate(src->width, src->height, src->channels);
}

int OrientImage(const PlanarImage *src, int orientation, PlanarImage *dst) {
  if (!src || !dst || orientation < 1 || orientation > 8) return -1;
  const Steps steps = kSteps[orientation];
  const int code = steps.rotation < 0 ? CropImage(src, 0, 0, dst, nullptr)
                                      : RotateImage(src, steps.rotation, dst, nullptr);
  if (code == 0 && steps.flip) FlipRows(dst);
  return code;
}

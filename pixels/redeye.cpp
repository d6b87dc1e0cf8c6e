// Red-eye removal: a small patch of red around the clicked pixel, found along
// the click's row and column only, is repainted as a grey disc of the same
// brightness. Works in place on a three-plane 8-bit image.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "pixels/pixels.h"

namespace {

// Byte offset of pixel (x, y) inside each plane. Done in ptrdiff_t so that
// large photos and negative strides (bottom-up layouts) address correctly.
ptrdiff_t PixelOffset(const PlanarImage &image, int64_t x, int64_t y) {
  return static_cast<ptrdiff_t>(y) * image.rowStride + static_cast<ptrdiff_t>(x) * image.pixelStep;
}

bool IsRedEyeAt(const PlanarImage &image, int64_t x, int64_t y) {
  const ptrdiff_t at = PixelOffset(image, x, y);
  return IsRedEyePixel(image.planes[0][at], image.planes[1][at], image.planes[2][at]);
}

bool IsValidRedEyeImage(const PlanarImage *image) {
  return image && image->channels == 3 && image->sampleType == 1 && image->width > 0 &&
         image->height > 0 && image->pixelStep != 0 && image->rowStride != 0 && image->planes[0] &&
         image->planes[1] && image->planes[2];
}

}  // namespace

// Kept in float throughout, including the single reciprocal of d: pixels that
// sit exactly on a classification threshold fall on the side these float
// roundings put them, and double arithmetic would move some of them.
int RgbToHsl(const float rgb[3], float hsl[3]) {
  const float r = rgb[0];
  const float g = rgb[1];
  const float b = rgb[2];
  const float max = std::max({r, g, b});
  const float min = std::min({r, g, b});
  const float l = (max + min) * 0.5f;
  const float d = max - min;
  float h = 0.0f;
  float s = 0.0f;
  if (d >= 0.000001) {
    s = l >= 0.5f ? d / (2.0f - max - min) : d / (max + min);
    const float inv = 1.0f / d;
    const float rc = (max - r) * inv;
    const float gc = (max - g) * inv;
    const float bc = (max - b) * inv;
    if (r == max)
      h = bc - gc;
    else if (g == max)
      h = 2.0f + rc - bc;
    else
      h = 4.0f + gc - rc;
    h /= 6.0f;
    if (h < 0.0f) h += 1.0f;
  }
  hsl[0] = h;
  hsl[1] = s;
  hsl[2] = l;
  return 0;
}

// The thresholds are doubles while the HSL values are floats, so a byte triple
// that lies exactly on a threshold in exact arithmetic can fall on either side
// of it, depending on how its float values rounded.
bool IsRedEyePixel(uint8_t r, uint8_t g, uint8_t b) {
  const float rgb[3] = {static_cast<float>(r / 255.0), static_cast<float>(g / 255.0),
                        static_cast<float>(b / 255.0)};
  float hsl[3];
  RgbToHsl(rgb, hsl);
  const double hue = hsl[0];
  const double saturation = hsl[1];
  const double lightness = hsl[2];
  // A glint in the pupil is nearly white; it belongs to the eye.
  if (lightness > 0.9) return true;
  if (lightness < 0.1) return false;
  if (saturation < 0.15) return false;
  return hue > 0.75 || hue < 0.15;
}

void GreyPixel(uint8_t *r, uint8_t *g, uint8_t *b) {
  const auto grey = static_cast<uint8_t>((*r + *g + *b + 1) / 3);
  *r = grey;
  *g = grey;
  *b = grey;
}

// The disc is centred on the patch, not on the click, and can reach past the
// photo's edges by up to its radius; those pixels are skipped, which is the
// same as clipping the square before the loop.
void GreyDisc(int32_t left, int32_t right, int32_t top, int32_t bottom, PlanarImage *image) {
  if (!IsValidRedEyeImage(image)) return;
  const int64_t m = std::max(int64_t{right} - left, int64_t{bottom} - top);
  const int64_t radius = (m + 1) / 2;
  const int64_t cx = (int64_t{left} + right + 1) / 2;
  const int64_t cy = (int64_t{top} + bottom + 1) / 2;
  // The + 1 rounds the disc out so that a radius of 1 covers the full 3 x 3
  // square and larger discs lose only their corners' stair steps.
  const int64_t limit = radius * radius + 1;
  const int64_t x0 = std::max<int64_t>(cx - radius, 0);
  const int64_t x1 = std::min<int64_t>(cx + radius, image->width - 1);
  const int64_t y0 = std::max<int64_t>(cy - radius, 0);
  const int64_t y1 = std::min<int64_t>(cy + radius, image->height - 1);
  for (int64_t py = y0; py <= y1; ++py) {
    for (int64_t px = x0; px <= x1; ++px) {
      if ((px - cx) * (px - cx) + (py - cy) * (py - cy) > limit) continue;
      const ptrdiff_t at = PixelOffset(*image, px, py);
      GreyPixel(image->planes[0] + at, image->planes[1] + at, image->planes[2] + at);
    }
  }
}

int RemoveRedEye(PlanarImage *image, int32_t x, int32_t y, int32_t reach, int32_t reserved) {
  (void)reserved;
  if (const int ready = PixReady(); ready != 0) return ready;
  if (!IsValidRedEyeImage(image) || reach < 0 || x < 0 || x >= image->width || y < 0 ||
      y >= image->height)
    return -1;
  if (!IsRedEyeAt(*image, x, y)) return 0;

  // Each scan tests the neighbour before checking the reach, so even a reach
  // of 0 extends the patch by one red pixel on each side. The bounds are in
  // 64 bits because x + reach may exceed 32 bits.
  const int64_t width = image->width;
  const int64_t height = image->height;
  int64_t xl = x;
  do {
    if (xl < 1 || !IsRedEyeAt(*image, xl - 1, y)) break;
    --xl;
  } while (xl > int64_t{x} - reach);
  int64_t xr = x;
  do {
    if (xr >= width - 1 || !IsRedEyeAt(*image, xr + 1, y)) break;
    ++xr;
  } while (xr < int64_t{x} + reach);
  int64_t yt = y;
  do {
    if (yt < 1 || !IsRedEyeAt(*image, x, yt - 1)) break;
    --yt;
  } while (yt > int64_t{y} - reach);
  int64_t yb = y;
  do {
    if (yb >= height - 1 || !IsRedEyeAt(*image, x, yb + 1)) break;
    ++yb;
  } while (yb < int64_t{y} + reach);

  GreyDisc(static_cast<int32_t>(xl), static_cast<int32_t>(xr), static_cast<int32_t>(yt),
           static_cast<int32_t>(yb), image);
  return 0;
}

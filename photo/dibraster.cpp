// Opening and saving move whole photos between files and CDib blocks. Rows
// are converted one at a time straight into (or out of) the block, so a photo
// is held once, not twice, while it loads.
#include "photo/dibraster.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "photo/dibpreview.h"
#include "raster/core/rowpack.h"
#include "raster/jpeg.h"
#include "raster/rasrgb.h"

size_t DibBlockBytes(uint32_t width, uint32_t height) {
  const uint32_t minus = (0u - width) & 3u;
  const size_t pad = minus ? 4 - minus : 0;
  return sizeof(BITMAPINFOHEADER) + size_t{width} * height * 3 + pad * std::max(width, height);
}

float DibResolution(const BITMAPINFOHEADER *header) {
  if (!header || header->biXPelsPerMeter <= 0) return kUnknownResolution;
  return static_cast<float>(header->biXPelsPerMeter * 0.0254);
}

namespace {

// Exchanges the first and third byte of every three, in place.
__attribute__((target("ssse3"))) void SwapRedBlueSsse3(uint8_t *row, uint32_t width) {
  // Five whole pixels of every 16 bytes; the sixteenth byte stays put.
  const __m128i order = _mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15);
  uint32_t x = 0;
  for (; x + 6 <= width; x += 5) {  // reads 16 bytes: one pixel beyond the five
    auto *at = reinterpret_cast<__m128i *>(row + size_t{x} * 3);
    _mm_storeu_si128(at, _mm_shuffle_epi8(_mm_loadu_si128(at), order));
  }
  for (; x < width; ++x)
    std::swap(row[size_t{x} * 3], row[size_t{x} * 3 + 2]);
}

void SwapRedBlue(uint8_t *row, uint32_t width) {
  static const bool ssse3 = __builtin_cpu_supports("ssse3");
  if (ssse3) {
    SwapRedBlueSsse3(row, width);
    return;
  }
  for (uint32_t x = 0; x < width; ++x)
    std::swap(row[size_t{x} * 3], row[size_t{x} * 3 + 2]);
}

}  // namespace

HGLOBAL DibFromScanlines(RasDesc *desc, RasSl *sl, int *code) {
  const uint32_t width = desc->width, height = desc->height;
  if (width == 0 || height == 0 || width > 0x7FFFFFFF / 3 || height > 0x7FFFFFFF) {
    *code = RasErrArg;
    return nullptr;
  }
  HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, DibBlockBytes(width, height));
  auto *block = static_cast<uint8_t *>(GlobalLock(handle));
  if (!block) {
    GlobalFree(handle);
    *code = RasErrMemory;
    return nullptr;
  }
  const BITMAPINFOHEADER header = DibHeader24(width, height);
  std::memcpy(block, &header, sizeof header);
  const size_t rowSize = DibRowBytes24(width);
  uint8_t *bottom = block + sizeof header + rowSize * (height - 1);
  // 8-bit RGB rows are interleaved straight from the scanline; every other
  // kind of row is first turned into RGB planes.
  const bool direct = desc->model == RasModelRgb && desc->maxval <= 255 && sl->channels == 3;
  std::vector<uint8_t> rgb(direct ? 0 : size_t{width} * 3);
  uint8_t *const converted[3] = {rgb.data(), rgb.data() + width, rgb.data() + 2 * size_t{width}};
  const RasJoinRowFn join = RasJoinRowFor(3, false);
  // A colour JPEG file's rows are decoded straight into the block, then
  // turned from red-first to blue-first where they lie.
  const bool jpeg = direct && desc->format == RasFormatJpeg;
  *code = RasOk;
  for (uint32_t y = 0; y < height && *code == RasOk; ++y) {
    if (jpeg) {
      uint8_t *row = bottom - rowSize * y;
      *code = JpegReadRow(desc, y, row);
      if (*code == RasOk) SwapRedBlue(row, width);
      continue;
    }
    *code = RasReadSl(desc, y, sl);
    uint8_t *const *planes = direct ? sl->plane8 : converted;
    if (*code == RasOk && !direct) *code = RasSlToRgb(sl, desc, planes[0], planes[1], planes[2]);
    const uint8_t *const bgr[3] = {planes[2], planes[1], planes[0]};
    if (*code == RasOk) join(bottom - rowSize * y, bgr, width);
  }
  GlobalUnlock(handle);
  if (*code != RasOk) {
    GlobalFree(handle);
    return nullptr;
  }
  return handle;
}

int DibToScanlines(const CDib &dib, RasDesc *desc, RasSl *sl) {
  const uint32_t width = dib.Width(), height = dib.Height();
  if (!dib.Header() || sl->channels < 3 || sl->width < width) return RasErrArg;
  const RasSplitRowFn split = RasSplitRowFor(3, false);
  uint8_t *const bgr[3] = {sl->plane8[2], sl->plane8[1], sl->plane8[0]};
  for (uint32_t y = 0; y < height; ++y) {
    if (dib.BitsPerPixel() == 24) {
      split(dib.RowPointer(static_cast<int32_t>(y)), bgr, width);
    } else {  // a camera driver's picture of another depth
      const QImage row = DibDecode(dib, QRect(0, static_cast<int>(y), static_cast<int>(width), 1));
      if (row.isNull()) return RasErrFormat;
      const auto *pixels = reinterpret_cast<const QRgb *>(row.constScanLine(0));
      for (uint32_t x = 0; x < width; ++x) {
        bgr[2][x] = static_cast<uint8_t>(qRed(pixels[x]));
        bgr[1][x] = static_cast<uint8_t>(qGreen(pixels[x]));
        bgr[0][x] = static_cast<uint8_t>(qBlue(pixels[x]));
      }
    }
    const int code = RasWriteSl(desc, y, sl);
    if (code != RasOk) return code;
  }
  return RasOk;
}

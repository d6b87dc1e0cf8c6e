// Conversions between the current picture and the planes the tools work on.
#include "edit/dibplanar.h"

#include <algorithm>
#include <cstring>

#include "app/dibpreview.h"
#include "app/dibraster.h"
#include "raster/rowpack.h"

PlanarImage *PlanarFromDib(const CDib &dib) {
  const uint32_t width = dib.Width(), height = dib.Height();
  if (!dib.Header() || width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF)
    return nullptr;
  PlanarImage *image = PlanarCreate(static_cast<int32_t>(width), static_cast<int32_t>(height), 3);
  if (!image) return nullptr;
  const RasSplitRowFn split = RasSplitRowFor(3, false);
  for (uint32_t y = 0; y < height; ++y) {
    const size_t at = size_t{y} * static_cast<size_t>(image->rowStride);
    uint8_t *const bgr[3] = {image->planes[2] + at, image->planes[1] + at, image->planes[0] + at};
    if (dib.BitsPerPixel() == 24) {
      split(dib.RowPointer(static_cast<int32_t>(y)), bgr, width);
      continue;
    }
    const QImage row = DibDecode(dib, QRect(0, static_cast<int>(y), static_cast<int>(width), 1));
    if (row.isNull()) {
      PlanarFree(image);
      return nullptr;
    }
    const auto *pixels = reinterpret_cast<const QRgb *>(row.constScanLine(0));
    for (uint32_t x = 0; x < width; ++x) {
      bgr[0][x] = static_cast<uint8_t>(qBlue(pixels[x]));
      bgr[1][x] = static_cast<uint8_t>(qGreen(pixels[x]));
      bgr[2][x] = static_cast<uint8_t>(qRed(pixels[x]));
    }
  }
  return image;
}

size_t DibPlanarBlockBytes(uint32_t width, uint32_t height) {
  const size_t pad = (4 - (size_t{width} * 3) % 4) % 4;
  const size_t extra = (width / 1024 + 1) * pad * 1024;
  return sizeof(BITMAPINFOHEADER) + size_t{width} * height * 3 + std::max(extra, pad * height);
}

HGLOBAL DibFromPlanar(const PlanarImage *image) {
  if (!image || image->width < 1 || image->height < 1 || image->channels < 3) return nullptr;
  const auto width = static_cast<uint32_t>(image->width);
  const auto height = static_cast<uint32_t>(image->height);
  HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(BITMAPINFOHEADER));
  if (!handle) return nullptr;
  if (!GlobalReAlloc(handle, DibPlanarBlockBytes(width, height), GMEM_MOVEABLE | GMEM_ZEROINIT)) {
    GlobalFree(handle);
    return nullptr;
  }
  auto *block = static_cast<uint8_t *>(GlobalLock(handle));
  const BITMAPINFOHEADER header = DibHeader24(width, height);
  std::memcpy(block, &header, sizeof header);
  const size_t rowSize = (size_t{width} * 3 + 3) & ~size_t{3};
  uint8_t *row = block + sizeof header + rowSize * (height - 1);
  const RasJoinRowFn join = RasJoinRowFor(3, false);
  const size_t step = static_cast<size_t>(image->pixelStep);
  for (uint32_t y = 0; y < height; ++y, row -= rowSize) {
    const size_t at = size_t{y} * static_cast<size_t>(image->rowStride);
    const uint8_t *const bgr[3] = {image->planes[2] + at, image->planes[1] + at,
                                   image->planes[0] + at};
    if (step == 1) {
      join(row, bgr, width);
      continue;
    }
    for (uint32_t x = 0; x < width; ++x)
      for (int k = 0; k < 3; ++k)
        row[3 * x + k] = bgr[k][x * step];
  }
  GlobalUnlock(handle);
  return handle;
}

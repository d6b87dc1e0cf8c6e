// Conversions between the current picture and the planes the tools work on.
#include "photo/dibplanar.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "photo/dibpreview.h"
#include "platform/workers.h"
#include "raster/core/rowpack.h"

namespace {

// Rows a thread takes at a time: a few hundred kilobytes of a large photo,
// and pictures of fewer rows than two of these stay on the calling thread.
constexpr int64_t kRowGrain = 8;

}  // namespace

PlanarImage *PlanarFromDib(const CDib &dib) {
  const uint32_t width = dib.Width(), height = dib.Height();
  if (width > 0x7FFFFFFF || height > 0x7FFFFFFF) return nullptr;
  return PlanarFromDib(dib, QRect(0, 0, static_cast<int>(width), static_cast<int>(height)));
}

PlanarImage *PlanarFromDib(const CDib &dib, const QRect &area) {
  const QRect whole(0, 0, static_cast<int>(std::min<uint32_t>(dib.Width(), 0x7FFFFFFF)),
                    static_cast<int>(std::min<uint32_t>(dib.Height(), 0x7FFFFFFF)));
  if (!dib.Header() || area.isEmpty() || !whole.contains(area)) return nullptr;
  const auto width = static_cast<uint32_t>(area.width());
  PlanarImage *image = PlanarCreate(area.width(), area.height(), 3);
  if (!image) return nullptr;
  const auto planeRow = [image](int y) {
    const size_t at = size_t(y) * static_cast<size_t>(image->rowStride);
    return std::array<uint8_t *, 3>{image->planes[2] + at, image->planes[1] + at,
                                    image->planes[0] + at};
  };
  if (dib.BitsPerPixel() == 24) {
    // Each row is converted from its own bytes alone, so the rows can be
    // shared out among the cores.
    const RasSplitRowFn split = RasSplitRowFor(3, false);
    SplitWork(area.height(), kRowGrain, [&](int64_t first, int64_t last) {
      for (auto y = static_cast<int>(first); y < last; ++y)
        split(dib.RowPointer(area.top() + y) + size_t(area.left()) * 3, planeRow(y).data(), width);
    });
    return image;
  }
  for (int y = 0; y < area.height(); ++y) {
    const std::array<uint8_t *, 3> bgr = planeRow(y);
    const QImage row = DibDecode(dib, QRect(area.left(), area.top() + y, area.width(), 1));
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

QImage ImageFromPlanar(const PlanarImage *image) {
  if (!image || image->channels < 3 || image->width < 1 || image->height < 1) return QImage();
  QImage out(image->width, image->height, QImage::Format_RGB32);
  if (out.isNull()) return out;
  const size_t step = static_cast<size_t>(image->pixelStep);
  uchar *const bits = out.bits();  // detached here, before the threads write
  const auto lineBytes = static_cast<size_t>(out.bytesPerLine());
  SplitWork(image->height, kRowGrain, [&](int64_t first, int64_t last) {
    for (int64_t y = first; y < last; ++y) {
      const size_t at = size_t(y) * static_cast<size_t>(image->rowStride);
      const uint8_t *r = image->planes[0] + at, *g = image->planes[1] + at,
                    *b = image->planes[2] + at;
      auto *row = reinterpret_cast<QRgb *>(bits + size_t(y) * lineBytes);
      for (int32_t x = 0; x < image->width; ++x)
        row[x] = qRgb(r[size_t(x) * step], g[size_t(x) * step], b[size_t(x) * step]);
    }
  });
  return out;
}

size_t DibPlanarBlockBytes(uint32_t width, uint32_t height) {
  const size_t pad = (4 - (size_t{width} * 3) % 4) % 4;
  const size_t extra = (width / 1024 + 1) * pad * 1024;
  return sizeof(BITMAPINFOHEADER) + size_t{width} * height * 3 + std::max(extra, pad * height);
}

// Planar row y becomes packed row height - 1 - y.

namespace {

// Planar rows [first, last) of `image` (its first three planes) packed into
// the bottom-up 24-bit rows whose last one, picture row 0, starts at
// `bottom`, `rowSize` bytes apart: B, G, R, then the padding zeroed. Rows are
// written from their own planes alone, so bands may go to several threads.
void DibPackPlanarRows(const PlanarImage &image, uint32_t first, uint32_t last, uint8_t *bottom,
                       size_t rowSize) {
  static const RasJoinRowFn join = RasJoinRowFor(3, false);
  const auto width = static_cast<uint32_t>(image.width);
  const size_t step = static_cast<size_t>(image.pixelStep);
  const size_t used = size_t{width} * 3;
  for (uint32_t y = first; y < last; ++y) {
    uint8_t *row = bottom - rowSize * y;
    const size_t at = size_t{y} * static_cast<size_t>(image.rowStride);
    const uint8_t *const bgr[3] = {image.planes[2] + at, image.planes[1] + at,
                                   image.planes[0] + at};
    if (step == 1) {
      join(row, bgr, width);
    } else {
      for (uint32_t x = 0; x < width; ++x)
        for (int k = 0; k < 3; ++k)
          row[3 * x + k] = bgr[k][x * step];
    }
    std::memset(row + used, 0, rowSize - used);
  }
}

}  // namespace

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
  const size_t rowSize = DibRowBytes24(width);
  uint8_t *const bottom = block + sizeof header + rowSize * (height - 1);
  SplitWork(height, kRowGrain, [&](int64_t first, int64_t last) {
    DibPackPlanarRows(*image, static_cast<uint32_t>(first), static_cast<uint32_t>(last), bottom,
                      rowSize);
  });
  GlobalUnlock(handle);
  return handle;
}

// Decoding a DIB's pixels for the screen. The application's own pictures are
// 24-bit, but a camera driver may hand over 1-, 4- or 8-bit pictures with a
// colour table, or 16- and 32-bit ones with or without channel masks; all of
// them are drawn. Compressed (run-length) pictures are not.
#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "photo/dibpreview.h"

namespace {

constexpr uint32_t kBiRgb = 0;
constexpr uint32_t kBiBitfields = 3;

// One channel of a masked 16- or 32-bit pixel, widened to 8 bits.
struct Mask {
  uint32_t mask = 0;
  int shift = 0;
  uint32_t top = 1;  // largest value of the field
  explicit Mask(uint32_t m = 0) : mask(m) {
    if (!m) return;
    shift = std::countr_zero(m);
    top = (m >> shift) == 0xFFFFFFFFu ? 0xFFFFFFFFu : (1u << std::popcount(m >> shift)) - 1;
  }
  uint32_t operator()(uint32_t v) const {
    if (!mask) return 0;
    return static_cast<uint32_t>((uint64_t{(v & mask) >> shift} * 255 + top / 2) / top);
  }
};

// Where a picture's rows are and how to read them.
struct Layout {
  const uint8_t *pixels = nullptr;
  const uint8_t *palette = nullptr;  // blue, green, red, unused per entry
  uint32_t paletteEntries = 0;
  int64_t rowSize = 0;
  bool topDown = false;
  uint32_t width = 0, height = 0, bpp = 0;
  Mask red, green, blue;

  const uint8_t *Row(uint32_t y) const { return pixels + rowSize * (topDown ? y : height - 1 - y); }
};

// The pixels start after the header, the three masks a 40-byte header is
// followed by in masked pictures, and the colour table. (CDib::Bits counts the
// table by its own rule, which is right for the pictures the program makes.)
bool Describe(const CDib &dib, Layout *out) {
  const BITMAPINFOHEADER *h = dib.Header();
  if (!h || dib.Width() == 0 || dib.Height() == 0) return false;
  const auto *base = reinterpret_cast<const uint8_t *>(h);
  const size_t size = GlobalSize(dib.Handle());
  Layout l;
  l.width = dib.Width();
  l.height = dib.Height();
  l.bpp = h->biBitCount;
  l.topDown = h->biHeight < 0;
  l.rowSize = dib.RowSize();
  size_t at = h->biSize;
  if (h->biSize < 40 || h->biWidth <= 0) return false;
  const bool masked = h->biCompression == kBiBitfields && (l.bpp == 16 || l.bpp == 32);
  if (h->biCompression != kBiRgb && !masked) return false;
  if (masked) {
    const size_t masksAt = 40;
    if (h->biSize == 40) at += 12;
    if (size < masksAt + 12) return false;
    uint32_t m[3];
    std::memcpy(m, base + masksAt, sizeof m);
    l.red = Mask(m[0]);
    l.green = Mask(m[1]);
    l.blue = Mask(m[2]);
  } else if (l.bpp == 16) {
    l.red = Mask(0x7C00);
    l.green = Mask(0x03E0);
    l.blue = Mask(0x001F);
  } else if (l.bpp == 32) {
    l.red = Mask(0xFF0000);
    l.green = Mask(0xFF00);
    l.blue = Mask(0xFF);
  }
  switch (l.bpp) {
    case 1:
    case 4:
    case 8:
      l.paletteEntries = h->biClrUsed ? h->biClrUsed : 1u << l.bpp;
      if (l.paletteEntries > 256) return false;
      l.palette = base + at;
      at += size_t{l.paletteEntries} * 4;
      break;
    case 16:
    case 24:
    case 32:
      at += size_t{h->biClrUsed} * 4;
      break;
    default:
      return false;
  }
  if (at > size || (size - at) / static_cast<size_t>(l.rowSize) < l.height) return false;
  l.pixels = base + at;
  *out = l;
  return true;
}

void DecodeRow(const Layout &l, uint32_t y, int x0, int x1, QRgb *out) {
  const uint8_t *row = l.Row(y);
  auto fromPalette = [&l](uint32_t index) {
    if (index >= l.paletteEntries) return qRgb(0, 0, 0);
    const uint8_t *q = l.palette + index * 4;
    return qRgb(q[2], q[1], q[0]);
  };
  switch (l.bpp) {
    case 1:
      for (int x = x0; x < x1; ++x)
        *out++ = fromPalette((row[x >> 3] >> (7 - (x & 7))) & 1);
      break;
    case 4:
      for (int x = x0; x < x1; ++x)
        *out++ = fromPalette((row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15);
      break;
    case 8:
      for (int x = x0; x < x1; ++x)
        *out++ = fromPalette(row[x]);
      break;
    case 16:
      for (int x = x0; x < x1; ++x) {
        const uint32_t v = row[2 * x] | uint32_t{row[2 * x + 1]} << 8;
        *out++ = qRgb(l.red(v), l.green(v), l.blue(v));
      }
      break;
    case 24:
      for (const uint8_t *p = row + 3 * x0, *end = row + 3 * x1; p < end; p += 3)
        *out++ = 0xFF000000u | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
      break;
    case 32:
      for (int x = x0; x < x1; ++x) {
        uint32_t v;
        std::memcpy(&v, row + 4 * x, 4);
        *out++ = qRgb(l.red(v), l.green(v), l.blue(v));
      }
      break;
  }
}

}  // namespace

QImage DibDecode(const CDib &dib, const QRect &area) {
  Layout l;
  if (!Describe(dib, &l)) return {};
  const QRect inside = area & QRect(0, 0, static_cast<int>(l.width), static_cast<int>(l.height));
  if (inside.isEmpty()) return {};
  QImage image(inside.size(), QImage::Format_RGB32);
  if (image.isNull()) return {};
  for (int y = 0; y < inside.height(); ++y)
    DecodeRow(l, static_cast<uint32_t>(inside.top() + y), inside.left(), inside.right() + 1,
              reinterpret_cast<QRgb *>(image.scanLine(y)));
  return image;
}

QImage DibReduce(const CDib &dib, int factor) {
  Layout l;
  if (factor < 1 || !Describe(dib, &l)) return {};
  const int w = static_cast<int>(l.width), h = static_cast<int>(l.height);
  const int ow = (w + factor - 1) / factor, oh = (h + factor - 1) / factor;
  QImage image(ow, oh, QImage::Format_RGB32);
  if (image.isNull()) return {};
  std::vector<QRgb> row(static_cast<size_t>(w));
  std::vector<uint32_t> sums(static_cast<size_t>(ow) * 3);
  for (int oy = 0; oy < oh; ++oy) {
    std::fill(sums.begin(), sums.end(), 0u);
    const int y0 = oy * factor, y1 = std::min(h, y0 + factor);
    for (int y = y0; y < y1; ++y) {
      DecodeRow(l, static_cast<uint32_t>(y), 0, w, row.data());
      uint32_t *s = sums.data();
      for (int x0 = 0; x0 < w; x0 += factor, s += 3) {
        for (int x = x0, x1 = std::min(w, x0 + factor); x < x1; ++x) {
          s[0] += qRed(row[x]);
          s[1] += qGreen(row[x]);
          s[2] += qBlue(row[x]);
        }
      }
    }
    auto *out = reinterpret_cast<QRgb *>(image.scanLine(oy));
    for (int ox = 0; ox < ow; ++ox) {
      const uint32_t n =
          static_cast<uint32_t>((std::min(w, (ox + 1) * factor) - ox * factor) * (y1 - y0));
      const uint32_t *s = &sums[static_cast<size_t>(ox) * 3];
      out[ox] = qRgb((s[0] + n / 2) / n, (s[1] + n / 2) / n, (s[2] + n / 2) / n);
    }
  }
  return image;
}

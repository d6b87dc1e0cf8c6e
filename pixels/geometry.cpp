// Quarter-turn rotation, crop and enlargement by pixel replication on planar
// images. Every routine checks all of its arguments before it writes a byte,
// so a refused call leaves the destination as it was.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "pixels/pixels.h"
#include "platform/workers.h"

namespace {

constexpr int kBadArguments = -1;

// The record holds four plane pointers; a larger channel count could only be
// honoured by reading past them, so it is refused with the other bad shapes.
constexpr int32_t kMaxChannels = 4;

bool ShapeOk(const PlanarImage &image) {
  return image.channels >= 1 && image.channels <= kMaxChannels && image.width >= 1 &&
         image.height >= 1 && image.pixelStep != 0 && image.rowStride != 0;
}

// Source and destination must both be usable and distinct plane by plane:
// nothing here works in place.
bool CommonArgumentsOk(const PlanarImage *src, const PlanarImage *dst) {
  if (!src || !dst || !ShapeOk(*src) || !ShapeOk(*dst)) return false;
  if (src->channels != dst->channels || src->sampleType != dst->sampleType) return false;
  for (int32_t c = 0; c < src->channels; ++c) {
    if (!src->planes[c] || !dst->planes[c] || src->planes[c] == dst->planes[c]) return false;
  }
  return true;
}

// Fraction done after destination row `row`, worked in double and handed over
// as float.
int Report(PixProgress progress, int32_t row, int32_t height) {
  if (!progress) return 0;
  return progress(static_cast<float>(static_cast<double>(row) / static_cast<double>(height)));
}

// Byte (j, r) of one plane seen through a mapping: at + j * along + r * across.
// Destinations use j as column and r as row; every rotation is then just a
// different origin and pair of signed steps on the source.
struct Walk {
  uint8_t *at;
  ptrdiff_t along;
  ptrdiff_t across;
  uint8_t *Point(int32_t j, int32_t r) const { return at + j * along + r * across; }
};

void CopyScalar(const Walk &s, const Walk &d, int32_t j0, int32_t j1, int32_t r0, int32_t r1) {
  for (int32_t r = r0; r < r1; ++r) {
    for (int32_t j = j0; j < j1; ++j)
      *d.Point(j, r) = *s.Point(j, r);
  }
}

// Sizes measured on a 6000 x 4000 photo; a band of 512 destination rows and
// chunks of 32 columns ran more than twice as fast as bands of 64 rows.
constexpr int32_t kTile = 16;        // the transpose kernel's square
constexpr int32_t kBand = 512;       // destination rows per band
constexpr int32_t kChunk = 32;       // destination columns per sweep of a band
constexpr int32_t kScalarTile = 64;  // square for steps the kernel cannot take

// d[t * dRow + u] = s[u * sRow + t] for t, u in [0, 16).
void Transpose16(const uint8_t *s, ptrdiff_t sRow, uint8_t *d, ptrdiff_t dRow) {
#if defined(__SSE2__)
  __m128i a[16], b[16];
  for (int i = 0; i < 16; ++i)
    a[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i * sRow));
  // Four rounds of interleaving, bytes then words, dwords and qwords; after
  // them row i holds column i.
  for (int i = 0; i < 8; ++i) {
    b[2 * i] = _mm_unpacklo_epi8(a[2 * i], a[2 * i + 1]);
    b[2 * i + 1] = _mm_unpackhi_epi8(a[2 * i], a[2 * i + 1]);
  }
  for (int i = 0; i < 4; ++i) {
    for (int h = 0; h < 2; ++h) {
      a[4 * i + h] = _mm_unpacklo_epi16(b[4 * i + h], b[4 * i + h + 2]);
      a[4 * i + h + 2] = _mm_unpackhi_epi16(b[4 * i + h], b[4 * i + h + 2]);
    }
  }
  for (int i = 0; i < 2; ++i) {
    for (int h = 0; h < 4; ++h) {
      b[8 * i + h] = _mm_unpacklo_epi32(a[8 * i + h], a[8 * i + h + 4]);
      b[8 * i + h + 4] = _mm_unpackhi_epi32(a[8 * i + h], a[8 * i + h + 4]);
    }
  }
  for (int h = 0; h < 8; ++h) {
    a[h] = _mm_unpacklo_epi64(b[h], b[h + 8]);
    a[h + 8] = _mm_unpackhi_epi64(b[h], b[h + 8]);
  }
  // The rounds leave column t in a[] at t with its four index bits reversed.
  static constexpr int kColumnAt[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
  for (int t = 0; t < 16; ++t)
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + t * dRow), a[kColumnAt[t]]);
#else
  for (int t = 0; t < 16; ++t) {
    for (int u = 0; u < 16; ++u)
      d[t * dRow + u] = s[u * sRow + t];
  }
#endif
}

// Quarter turns: the source walk steps one row per destination column, so a
// plain row-by-row copy reads one byte per source row and misses the cache on
// nearly every byte. The copy goes instead in bands of destination rows; each
// band is swept in chunks of destination columns (a few source rows), whose
// source bytes are read in increasing address order so that the hardware
// prefetcher can follow them, and whose destination lines are completed by the
// next chunk while they are still cached.
void QuarterTurnPlane(const Walk &s, const Walk &d, int32_t width, int32_t r0, int32_t r1) {
  // The kernel needs contiguous destination rows and a source that moves one
  // byte per destination row, up or down.
  if (d.along != 1 || (s.across != 1 && s.across != -1)) {
    for (int32_t j = 0; j < width; j += kScalarTile)
      CopyScalar(s, d, j, std::min(j + kScalarTile, width), r0, r1);
    return;
  }
  const int32_t fullR = r0 + (r1 - r0) / kTile * kTile;
  const int32_t fullJ = width / kTile * kTile;
  for (int32_t j0 = 0; j0 < fullJ; j0 += kChunk) {
    const int32_t j1 = std::min(j0 + kChunk, fullJ);
    if (s.across == 1) {
      for (int32_t r = r0; r < fullR; r += kTile) {
        for (int32_t j = j0; j < j1; j += kTile)
          Transpose16(s.Point(j, r), s.along, d.Point(j, r), d.across);
      }
    } else {
      // The source runs backwards along the destination row: start each
      // kernel at its tile's last row and go down, so reads still ascend.
      for (int32_t r = fullR - 1; r >= r0 + kTile - 1; r -= kTile) {
        for (int32_t j = j0; j < j1; j += kTile)
          Transpose16(s.Point(j, r), s.along, d.Point(j, r), -d.across);
      }
    }
  }
  CopyScalar(s, d, 0, fullJ, fullR, r1);
  CopyScalar(s, d, fullJ, width, r0, r1);
}

// Quarter turns of large pictures go through a small buffer per thread: a
// group of 32 destination rows and up to kBufferColumns columns is transposed
// into it while it stays in the core's own cache, then each of its rows is
// written out in long runs. Written straight to memory (streaming stores),
// those runs skip reading destination lines that are about to be overwritten
// whole, which saves a third of the memory traffic.
//
// The turn is bound by the latency of its strided source reads, so the sizes
// keep everything a sweep touches close: the buffer (34 KB) in the first-level
// cache, the source lines of a sweep (1024 lines, each shared by two groups)
// in the second, and the source rows within 6 MB. On a 6000 x 4000 photo
// this ran at 1.0-1.2x a memcpy of the same bytes, against 1.4-1.6x with
// groups of 64 rows and 2048 columns; groups of 128 or more took twice as long.
constexpr int32_t kGroup = 32;
constexpr int32_t kBufferColumns = 1024;
// The buffer's rows lie this far apart: a line more than the columns, so that
// the 16 rows one kernel writes do not all fall in the same few cache sets.
constexpr int32_t kBufferPitch = kBufferColumns + 64;
constexpr int32_t kPrefetchAhead = 8 * kTile;  // source rows
// Planes smaller than this are written through the cache: the next routine
// will likely read them again from there.
constexpr int64_t kStreamBytes = int64_t{4} << 20;

// Copies n bytes, those in whole aligned 16-byte blocks with stores that
// bypass the cache (made visible to other threads by the fence the caller
// issues at the end of its part).
void StreamOut(const uint8_t *from, uint8_t *to, int32_t n) {
  int32_t i = 0;
#if defined(__SSE2__)
  const int32_t head = std::min<int32_t>(
      n, static_cast<int32_t>((16 - (reinterpret_cast<uintptr_t>(to) & 15)) & 15));
  std::memcpy(to, from, static_cast<size_t>(head));
  for (i = head; i + 16 <= n; i += 16)
    _mm_stream_si128(reinterpret_cast<__m128i *>(to + i),
                     _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + i)));
#endif
  std::memcpy(to + i, from + i, static_cast<size_t>(n - i));
}

// Destination rows [g, g + kGroup) and columns [j0, j1) through the buffer.
void QuarterTurnGroup(const Walk &s, const Walk &d, int32_t g, int32_t j0, int32_t j1,
                      uint8_t *buffer, bool stream) {
  const int32_t fullJ = j0 + (j1 - j0) / kTile * kTile;
  for (int32_t j = j0; j < fullJ; j += kTile) {
    // Each source row gives at most one line to a group, too little for the
    // hardware to see a stream: ask for the lines a few kernels ahead.
    if (j + kPrefetchAhead < fullJ) {
      const int32_t row = s.across == 1 ? g : g + kGroup - 1;
      for (int32_t t = 0; t < kTile; ++t) {
        const uint8_t *line = s.Point(j + kPrefetchAhead + t, row);
        __builtin_prefetch(line);
        __builtin_prefetch(line + 63);
      }
    }
    for (int32_t k = 0; k < kGroup; k += kTile) {
      if (s.across == 1) {
        Transpose16(s.Point(j, g + k), s.along, buffer + k * kBufferPitch + (j - j0), kBufferPitch);
      } else {
        // Reads ascend from the tile's last row, as in QuarterTurnPlane.
        const int32_t last = k + kTile - 1;
        Transpose16(s.Point(j, g + last), s.along, buffer + last * kBufferPitch + (j - j0),
                    -kBufferPitch);
      }
    }
  }
  for (int32_t r = 0; r < kGroup; ++r) {
    uint8_t *row = buffer + r * kBufferPitch;
    for (int32_t j = fullJ; j < j1; ++j)
      row[j - j0] = *s.Point(j, g + r);
    if (stream)
      StreamOut(row, d.Point(j0, g + r), j1 - j0);
    else
      std::memcpy(d.Point(j0, g + r), row, static_cast<size_t>(j1 - j0));
  }
}

// Destination rows [r0, r1): whole groups through the buffer, chunk of
// columns by chunk, and the rows left over directly.
void QuarterTurnBuffered(const Walk &s, const Walk &d, int32_t width, int32_t height, int32_t r0,
                         int32_t r1, uint8_t *buffer) {
  const bool stream = int64_t{width} * height >= kStreamBytes;
  const int32_t fullG = r0 + (r1 - r0) / kGroup * kGroup;
  for (int32_t j0 = 0; j0 < width; j0 += kBufferColumns) {
    const int32_t j1 = std::min(j0 + kBufferColumns, width);
    for (int32_t g = r0; g < fullG; g += kGroup)
      QuarterTurnGroup(s, d, g, j0, j1, buffer, stream);
  }
#if defined(__SSE2__)
  if (stream) _mm_sfence();
#endif
  QuarterTurnPlane(s, d, width, fullG, r1);
}

#if defined(__SSE2__)
__m128i Reverse16(__m128i v) {
  v = _mm_shuffle_epi32(v, 0x1B);
  v = _mm_shufflelo_epi16(v, 0xB1);
  v = _mm_shufflehi_epi16(v, 0xB1);
  return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}
#endif

// One destination row of the half turn: the source row read backwards.
void HalfTurnRow(const Walk &s, const Walk &d, int32_t width, int32_t r) {
  int32_t j = 0;
  if (s.along == -1 && d.along == 1) {
    const uint8_t *from = s.Point(0, r);
    uint8_t *to = d.Point(0, r);
#if defined(__SSE2__)
    for (; j + 16 <= width; j += 16) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from - j - 15));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(to + j), Reverse16(v));
    }
#endif
    for (; j < width; ++j)
      to[j] = *(from - j);
    return;
  }
  CopyScalar(s, d, 0, width, r, r + 1);
}

// Enlargement's destination rows: each source pixel written k times along a
// row, each source row k times down the picture.
struct Replicate {
  const PlanarImage *src;
  PlanarImage *dst;
  int64_t k, oy, sx, phase;

  void Rows(int32_t j0, int32_t j1) const {
    const ptrdiff_t sStep = src->pixelStep;
    const ptrdiff_t dStep = dst->pixelStep;
    const int32_t sw = src->width, dw = dst->width;
    int64_t previousRow = -1;
    for (int32_t j = j0; j < j1; ++j) {
      const int64_t row = std::min<int64_t>((j + oy) / k, src->height - 1);
      for (int32_t c = 0; c < src->channels; ++c) {
        uint8_t *to = dst->planes[c] + static_cast<ptrdiff_t>(j) * dst->rowStride;
        if (row == previousRow) {
          // Same source row as the destination row above: repeat that row.
          const uint8_t *above = to - dst->rowStride;
          if (dStep == 1) {
            std::memmove(to, above, static_cast<size_t>(dw));
          } else {
            for (int32_t x = 0; x < dw; ++x)
              to[x * dStep] = above[x * dStep];
          }
          continue;
        }
        const uint8_t *from = src->planes[c] + static_cast<ptrdiff_t>(row) * src->rowStride;
        if (k == 1 && sStep == 1 && dStep == 1 && sx + dw <= sw) {
          std::memmove(to, from + sx, static_cast<size_t>(dw));  // 100 %: a plain copy
          continue;
        }
        int64_t column = sx;
        int64_t run = k - phase;
        for (int64_t x = 0; x < dw; column = std::min<int64_t>(column + 1, sw - 1), run = k) {
          const uint8_t value = from[column * sStep];
          const int64_t end = std::min<int64_t>(x + run, dw);
          for (; x < end; ++x)
            to[x * dStep] = value;
        }
      }
      previousRow = row;
    }
  }
};

}  // namespace

int RotateImage(const PlanarImage *src, int mode, PlanarImage *dst, PixProgress progress) {
  if (const int ready = PixReady(); ready != 0) return ready;
  if (!CommonArgumentsOk(src, dst) || mode < 0 || mode > 2) return kBadArguments;
  const int32_t w = src->width;
  const int32_t h = src->height;
  const bool turned = mode != 1;
  if (dst->width != (turned ? h : w) || dst->height != (turned ? w : h)) return kBadArguments;

  const ptrdiff_t step = src->pixelStep;
  const ptrdiff_t stride = src->rowStride;
  const ptrdiff_t lastRow = (h - 1) * stride;
  const ptrdiff_t lastColumn = (w - 1) * step;
  const int32_t dw = dst->width;
  const int32_t dh = dst->height;

  Walk s[kMaxChannels];
  Walk d[kMaxChannels];
  for (int32_t c = 0; c < src->channels; ++c) {
    uint8_t *plane = src->planes[c];
    switch (mode) {
      case 0:  // dst(j, r) = src(r, h - 1 - j)
        s[c] = Walk{plane + lastRow, -stride, step};
        break;
      case 1:  // dst(j, r) = src(w - 1 - j, h - 1 - r)
        s[c] = Walk{plane + lastRow + lastColumn, -step, -stride};
        break;
      default:  // dst(j, r) = src(w - 1 - r, j)
        s[c] = Walk{plane + lastColumn, stride, -step};
        break;
    }
    d[c] = Walk{dst->planes[c], dst->pixelStep, dst->rowStride};
  }

  const int32_t channels = src->channels;
  // Destination rows [r0, r1), band by band; every row is written from the
  // source alone, so bands may be shared out among threads in any way.
  const auto rows = [&](int64_t r0, int64_t r1) {
    // Without memory for the buffer the turn goes directly, just slower.
    const std::unique_ptr<uint8_t[]> buffer(
        turned ? new (std::nothrow) uint8_t[kGroup * kBufferPitch] : nullptr);
    for (int32_t b0 = static_cast<int32_t>(r0); b0 < r1; b0 += kBand) {
      const int32_t b1 = static_cast<int32_t>(std::min<int64_t>(b0 + kBand, r1));
      for (int32_t c = 0; c < channels; ++c) {
        if (buffer && d[c].along == 1 && (s[c].across == 1 || s[c].across == -1)) {
          QuarterTurnBuffered(s[c], d[c], dw, dh, b0, b1, buffer.get());
        } else if (turned) {
          QuarterTurnPlane(s[c], d[c], dw, b0, b1);
        } else {
          for (int32_t r = b0; r < b1; ++r)
            HalfTurnRow(s[c], d[c], dw, r);
        }
      }
    }
  };
  if (!progress) {
    SplitWork(dh, kGroup, rows);
    return 0;
  }
  // With a callback the rows are reported one by one and in order, each
  // after its band is finished, and a stop leaves later bands unwritten.
  for (int32_t r0 = 0; r0 < dh; r0 += turned ? kBand : 1) {
    const int32_t r1 = std::min(r0 + (turned ? kBand : 1), dh);
    rows(r0, r1);
    for (int32_t r = r0; r < r1; ++r) {
      if (const int code = Report(progress, r, dh); code != 0) return code;
    }
  }
  return 0;
}

int CropImage(const PlanarImage *src, int32_t left, int32_t top, PlanarImage *dst,
              PixProgress progress) {
  if (const int ready = PixReady(); ready != 0) return ready;
  if (!CommonArgumentsOk(src, dst) || left < 0 || top < 0) return kBadArguments;
  // Whole rectangle inside the source; no clipping.
  if (int64_t{left} + dst->width > src->width || int64_t{top} + dst->height > src->height)
    return kBadArguments;

  const ptrdiff_t sStep = src->pixelStep;
  const ptrdiff_t dStep = dst->pixelStep;
  const int32_t dw = dst->width;
  for (int32_t r = 0; r < dst->height; ++r) {
    for (int32_t c = 0; c < src->channels; ++c) {
      const uint8_t *from =
          src->planes[c] + static_cast<ptrdiff_t>(top + r) * src->rowStride + left * sStep;
      uint8_t *to = dst->planes[c] + static_cast<ptrdiff_t>(r) * dst->rowStride;
      if (sStep == 1 && dStep == 1) {
        std::memmove(to, from, static_cast<size_t>(dw));
      } else {
        for (int32_t x = 0; x < dw; ++x)
          to[x * dStep] = from[x * sStep];
      }
    }
    if (const int code = Report(progress, r, dst->height); code != 0) return code;
  }
  return 0;
}

int EnlargeImage(const PlanarImage *src, float fx, float fy, int32_t factor, PlanarImage *dst,
                 PixProgress progress) {
  if (const int ready = PixReady(); ready != 0) return ready;
  if (!CommonArgumentsOk(src, dst)) return kBadArguments;
  // Written so that a NaN fails too.
  if (!(fx >= 0.0f && fx <= 1.0f) || !(fy >= 0.0f && fy <= 1.0f) || factor < 1)
    return kBadArguments;

  const int64_t k = factor;
  const int32_t sw = src->width;
  const int32_t sh = src->height;
  const int32_t dw = dst->width;
  const int32_t dh = dst->height;
  const int64_t ex = std::max<int64_t>(k * sw - dw, 0);
  const int64_t ey = std::max<int64_t>(k * sh - dh, 0);
  // Product in float, rounding half in double. Above 2^24 the float product can
  // land past the excess; the clamp keeps the window on the picture.
  const int64_t ox = std::min(static_cast<int64_t>(static_cast<float>(ex) * fx + 0.5), ex);
  const int64_t oy = std::min(static_cast<int64_t>(static_cast<float>(ey) * fy + 0.5), ey);
  const int64_t sx = ox / k;
  const int64_t phase = ox % k;

  // A destination larger than the enlarged picture is accepted (its excess
  // counts as 0); the part beyond the picture repeats the last source column
  // and row, so no byte is left unwritten and nothing is read past the source.
  const Replicate replicate{src, dst, k, oy, sx, phase};
  if (!progress) {
    SplitWork(dh, 1, [&](int64_t j0, int64_t j1) {
      replicate.Rows(static_cast<int32_t>(j0), static_cast<int32_t>(j1));
    });
    return 0;
  }
  for (int32_t j = 0; j < dh; ++j) {
    replicate.Rows(j, j + 1);
    if (const int code = Report(progress, j, dh); code != 0) return code;
  }
  return 0;
}

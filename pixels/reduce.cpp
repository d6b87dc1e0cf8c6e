// Filtered reduction (zoom out) from an in-memory image or from a raster file
// open for reading. The filter is a tent as wide as the reduction ratio, so
// every source sample contributes; it is applied separably. Each destination
// row first blends the source rows under the tent (vertical pass over the
// whole source width, straight runs of bytes, sixteen at a time), then filters
// that one row horizontally. Blending first means the horizontal pass, which
// must fetch its samples column by column, runs once per destination row
// instead of once per source row. Sums are integer; each pass rounds to
// nearest and clamps to its range. Source indices are clamped at the edges
// (the edge sample repeats), so a flat picture stays exactly flat. The
// tables are made once by ReducePlan, which any caller can run over any range
// of destination rows; ReduceImage is that plan run over every row.
//
// Choices made here:
// - Modes 0 and 1 give the same result; both are accepted so that either
//   caller convention works. The rectangle and options must be present but
//   are not read (the view passes an empty rectangle and zeroed options).
// - dst's width and height are updated to the fitted size. The fitted size
//   never exceeds the size dst came with in either direction (no enlargement
//   can make it so through rounding), so planes allocated for the requested
//   size always hold the result at dst's own row stride and pixel step.
// - A file must have 8-bit samples and the same channel count as dst.
// - Progress is reported after destination row r as (r + 1) / height, so the
//   last report is 1.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "pixels/pixels.h"
#include "pixels/reduce_kernel.h"
#include "pixels/reduceplan.h"
#include "platform/workers.h"
#include "raster/ras.h"

namespace {

float Tent(float t) {
  return (t > -1.0f && t < 1.0f) ? 1.0f - (t < 0.0f ? -t : t) : 0.0f;
}

// The vertical pass keeps 6 fractional bits: 255 << 6 times the 16.16
// weights of the horizontal pass still fits a signed 32-bit sum with room for
// a negative middle weight, and the blended row fits 16-bit lanes.
constexpr int32_t kMidBits = 6;
constexpr int32_t kMidMax = 255 << kMidBits;

// Where a 16.16 position falls: the sample at or left of it and the nearest
// of the 16 phases. Rounding to the nearest phase (rather than truncating)
// keeps the picture from drifting up to a sixteenth of a pixel left and up.
struct Place {
  int64_t index;
  int32_t phase;
};

Place PlaceOf(int64_t position) {
  int64_t index = position >> 16;
  int32_t phase = static_cast<int32_t>(((position & 0xFFFF) + 0x800) >> 12);
  if (phase == kReducePhases) {
    ++index;
    phase = 0;
  }
  return {index, phase};
}

// Supplies source rows in increasing order (a file allows nothing else),
// each plane as contiguous bytes. An in-memory source with pixel step 1 is
// used where it lies; any other source is copied into a ring of `depth` rows
// per plane, enough for every row one destination row needs.
class SourceRows {
 public:
  SourceRows(RasDesc *file, const PlanarImage *src, int32_t width, int32_t channels)
      : file_(file), src_(src), width_(width), channels_(channels) {}
  ~SourceRows() {
    if (slMade_) (void)RasFreeSl(&sl_);
  }
  SourceRows(const SourceRows &) = delete;
  SourceRows &operator=(const SourceRows &) = delete;

  [[nodiscard]] int Open(int32_t depth) {
    if (file_) {
      const int code = RasMakeSl(&sl_, file_);
      if (code != 0) return code;
      slMade_ = true;
      for (int32_t c = 0; c < channels_; ++c)
        if (!sl_.plane8[c]) return -1;
    }
    direct_ = !file_ && src_->pixelStep == 1;
    depth_ = depth;
    if (!direct_) ring_.resize(static_cast<size_t>(channels_) * depth * width_);
    return 0;
  }

  // Makes every row up to `row` available.
  [[nodiscard]] int Through(int32_t row) {
    for (; next_ <= row; ++next_) {
      if (direct_) continue;
      if (file_) {
        const int code = RasReadSl(file_, static_cast<uint32_t>(next_), &sl_);
        if (code != 0) return code;
      }
      for (int32_t c = 0; c < channels_; ++c) {
        uint8_t *to = Slot(c, next_);
        if (file_) {
          std::memcpy(to, sl_.plane8[c], static_cast<size_t>(width_));
        } else {
          const uint8_t *from = src_->planes[c] + static_cast<int64_t>(next_) * src_->rowStride;
          for (int32_t x = 0; x < width_; ++x)
            to[x] = from[static_cast<int64_t>(x) * src_->pixelStep];
        }
      }
    }
    return 0;
  }

  // Every row of a direct source is there from the start.
  bool Direct() const { return direct_; }

  const uint8_t *Row(int32_t channel, int32_t row) const {
    if (direct_) return src_->planes[channel] + static_cast<int64_t>(row) * src_->rowStride;
    return ring_.data() + SlotAt(channel, row);
  }

 private:
  size_t SlotAt(int32_t channel, int32_t row) const {
    return (static_cast<size_t>(channel) * depth_ + row % depth_) * width_;
  }
  uint8_t *Slot(int32_t channel, int32_t row) { return ring_.data() + SlotAt(channel, row); }

  RasDesc *file_;
  const PlanarImage *src_;
  int32_t width_, channels_;
  int32_t depth_ = 0;
  int32_t next_ = 0;
  bool direct_ = false;
  RasSl sl_{};
  bool slMade_ = false;
  std::vector<uint8_t> ring_;
};

// The vertical pass multiplies bytes by weights of 14 bits (the kernel's
// 16.16 weights rounded, the sum fixed to exactly 1 << 14 on the middle tap
// as in the kernel) so that two rows go through one 16-bit multiply-add.
constexpr int32_t kVerticalBits = 14;

constexpr int32_t kBlendShift = kVerticalBits - kMidBits;
constexpr int32_t kBlendHalf = 1 << (kBlendShift - 1);

#if defined(__x86_64__)
// Both rows' 16-bit weights in every 32-bit lane, for the multiply-adds.
__attribute__((target("avx2"))) __m256i WeightPair(const int16_t *weights) {
  return _mm256_set1_epi32(
      static_cast<int32_t>(static_cast<uint16_t>(weights[0]) |
                           (static_cast<uint32_t>(static_cast<uint16_t>(weights[1])) << 16)));
}

// Two sums of eight lanes scaled back to 16 bits and clamped to 0..top.
__attribute__((target("avx2"))) __m256i Narrow(__m256i x, __m256i y, __m256i top) {
  const __m256i packed =
      _mm256_packs_epi32(_mm256_srai_epi32(x, kBlendShift), _mm256_srai_epi32(y, kBlendShift));
  return _mm256_min_epi16(_mm256_max_epi16(packed, _mm256_setzero_si256()), top);
}

// The vertical pass 32 samples at a time: each 128-bit half does what the
// 16-sample loop below does for its own samples, so the results are the
// same; the halves are put back in order when stored. Returns how many
// samples it did.
__attribute__((target("avx2"))) int32_t BlendRowsAvx2(const uint8_t *const *rows,
                                                      const int16_t *weights, int32_t pairs,
                                                      int32_t count, int16_t *out) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i half = _mm256_set1_epi32(kBlendHalf);
  const __m256i top = _mm256_set1_epi16(kMidMax);
  int32_t i = 0;
  for (; i + 32 <= count; i += 32) {
    __m256i s0 = half, s1 = half, s2 = half, s3 = half;
    for (int32_t k = 0; k < pairs; ++k) {
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows[2 * k] + i));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows[2 * k + 1] + i));
      const __m256i w = WeightPair(weights + 2 * k);
      const __m256i lo = _mm256_unpacklo_epi8(a, b);
      const __m256i hi = _mm256_unpackhi_epi8(a, b);
      s0 = _mm256_add_epi32(s0, _mm256_madd_epi16(_mm256_unpacklo_epi8(lo, zero), w));
      s1 = _mm256_add_epi32(s1, _mm256_madd_epi16(_mm256_unpackhi_epi8(lo, zero), w));
      s2 = _mm256_add_epi32(s2, _mm256_madd_epi16(_mm256_unpacklo_epi8(hi, zero), w));
      s3 = _mm256_add_epi32(s3, _mm256_madd_epi16(_mm256_unpackhi_epi8(hi, zero), w));
    }
    const __m256i first = Narrow(s0, s1, top), second = Narrow(s2, s3, top);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i),
                        _mm256_permute2x128_si256(first, second, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i + 16),
                        _mm256_permute2x128_si256(first, second, 0x31));
  }
  return i;
}

bool HasAvx2() {
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
}
#endif

std::atomic<bool> gAvx2Allowed{true};

// The vertical pass over a whole source row: `pairs` pairs of rows and their
// weights, kept with kMidBits fractional bits.
void BlendRows(const uint8_t *const *rows, const int16_t *weights, int32_t pairs, int32_t count,
               int16_t *out) {
  constexpr int32_t kShift = kBlendShift;
  constexpr int32_t kHalf = kBlendHalf;
  int32_t i = 0;
#if defined(__x86_64__)
  if (HasAvx2() && gAvx2Allowed.load(std::memory_order_relaxed))
    i = BlendRowsAvx2(rows, weights, pairs, count, out);
#endif
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  const __m128i half = _mm_set1_epi32(kHalf);
  const __m128i top = _mm_set1_epi16(kMidMax);
  for (; i + 16 <= count; i += 16) {
    __m128i s0 = half, s1 = half, s2 = half, s3 = half;
    for (int32_t k = 0; k < pairs; ++k) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows[2 * k] + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows[2 * k + 1] + i));
      const __m128i w = _mm_set1_epi32(static_cast<int32_t>(
          static_cast<uint16_t>(weights[2 * k]) |
          (static_cast<uint32_t>(static_cast<uint16_t>(weights[2 * k + 1])) << 16)));
      const __m128i lo = _mm_unpacklo_epi8(a, b);  // a0 b0 a1 b1 ...
      const __m128i hi = _mm_unpackhi_epi8(a, b);
      s0 = _mm_add_epi32(s0, _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), w));
      s1 = _mm_add_epi32(s1, _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), w));
      s2 = _mm_add_epi32(s2, _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), w));
      s3 = _mm_add_epi32(s3, _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), w));
    }
    const __m128i first = _mm_packs_epi32(_mm_srai_epi32(s0, kShift), _mm_srai_epi32(s1, kShift));
    const __m128i second = _mm_packs_epi32(_mm_srai_epi32(s2, kShift), _mm_srai_epi32(s3, kShift));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i),
                     _mm_min_epi16(_mm_max_epi16(first, zero), top));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i + 8),
                     _mm_min_epi16(_mm_max_epi16(second, zero), top));
  }
#endif
  for (; i < count; ++i) {
    int32_t sum = kHalf;
    for (int32_t t = 0; t < 2 * pairs; ++t)
      sum += weights[t] * rows[t][i];
    out[i] = static_cast<int16_t>(std::clamp(sum >> kShift, 0, kMidMax));
  }
}

// Kernels up to this many taps (reductions down to about 1:8) use 14-bit
// weights and multiply-adds in both passes; wider ones, where rounding the
// weights to 14 bits starts to matter, filter the blended row with the 16.16
// weights (their vertical pass keeps the 14-bit weights).
constexpr int32_t kShortTaps = 16;

// One weighted sum of the blended row with 16-bit weights, in the portable
// form; the vector forms below must give the same value.
uint8_t ShortSum(const int16_t *s, const int16_t *w, int32_t taps, int32_t shift) {
  int32_t sum = 1 << (shift - 1);
  for (int32_t t = 0; t < taps; ++t)
    sum += w[t] * s[t];
  return static_cast<uint8_t>(std::clamp(sum >> shift, 0, 255));
}

#if defined(__SSE2__)
// Four rounded sums scaled to bytes, stored at `out` with the pixel step.
void StoreFour(__m128i sum, int32_t shift, uint8_t *out, int32_t step) {
  sum =
      _mm_sra_epi32(_mm_add_epi32(sum, _mm_set1_epi32(1 << (shift - 1))), _mm_cvtsi32_si128(shift));
  const __m128i words = _mm_packs_epi32(sum, sum);
  const uint32_t bytes = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(words, words)));
  if (step == 1) {
    std::memcpy(out, &bytes, sizeof bytes);
  } else {
    for (int32_t k = 0; k < 4; ++k)
      out[static_cast<int64_t>(k) * step] = static_cast<uint8_t>(bytes >> (8 * k));
  }
}
#endif

#if defined(__x86_64__)
// Taps [t, t + 8) of two neighbouring columns, one in each 128-bit half.
__attribute__((target("avx2"))) __m256i TwoColumns(const int16_t *line, const int32_t *starts,
                                                   const int16_t *w, int32_t taps, int32_t t) {
  const auto load = [](const int16_t *at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
  };
  const __m256i samples = _mm256_inserti128_si256(
      _mm256_castsi128_si256(load(line + starts[0] + t)), load(line + starts[1] + t), 1);
  const __m256i weights =
      _mm256_inserti128_si256(_mm256_castsi128_si256(load(w + t)), load(w + taps + t), 1);
  return _mm256_madd_epi16(samples, weights);
}

// The horizontal pass for kernels of 4 taps (reductions to a half and
// more), eight columns at a time: each 128-bit half multiplies two columns'
// taps at once, as the 16-byte loop below does for four columns; the same
// integer sums, rounded and clamped as StoreFour does. Returns how many
// columns it did.
__attribute__((target("avx2"))) int32_t FilterFourAvx2(const int16_t *line, const int32_t *starts,
                                                       const int16_t *weights, int32_t count,
                                                       uint8_t *out, int32_t step) {
  constexpr int32_t kShift = kVerticalBits + kMidBits;  // four taps are a short kernel's
  const __m256i half = _mm256_set1_epi32(1 << (kShift - 1));
  const auto pair = [line, starts](int32_t k) {  // columns k and k + 1
    return _mm_unpacklo_epi64(
        _mm_loadl_epi64(reinterpret_cast<const __m128i *>(line + starts[k])),
        _mm_loadl_epi64(reinterpret_cast<const __m128i *>(line + starts[k + 1])));
  };
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m256i *w = reinterpret_cast<const __m256i *>(weights + static_cast<ptrdiff_t>(i) * 4);
    const __m256i low =
        _mm256_madd_epi16(_mm256_inserti128_si256(_mm256_castsi128_si256(pair(i)), pair(i + 2), 1),
                          _mm256_loadu_si256(w));
    const __m256i high = _mm256_madd_epi16(
        _mm256_inserti128_si256(_mm256_castsi128_si256(pair(i + 4)), pair(i + 6), 1),
        _mm256_loadu_si256(w + 1));
    // The adds leave columns 0 1 4 5 in the first half and 2 3 6 7 in the
    // second; the permutation puts them in order.
    __m256i sums = _mm256_permute4x64_epi64(_mm256_hadd_epi32(low, high), _MM_SHUFFLE(3, 1, 2, 0));
    sums = _mm256_srai_epi32(_mm256_add_epi32(sums, half), kShift);
    const __m128i words =
        _mm_packs_epi32(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    const uint64_t bytes = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(words, words)));
    uint8_t *at = out + static_cast<int64_t>(i) * step;
    if (step == 1) {
      std::memcpy(at, &bytes, sizeof bytes);
    } else {
      for (int32_t k = 0; k < 8; ++k)
        at[static_cast<int64_t>(k) * step] = static_cast<uint8_t>(bytes >> (8 * k));
    }
  }
  return i;
}

// The horizontal pass for kernels of a multiple of 8 padded taps, two
// columns per multiply-add; integer sums in another order, so the same
// values. Returns how many columns it did.
__attribute__((target("avx2"))) int32_t FilterShortAvx2(const int16_t *line, const int32_t *starts,
                                                        const int16_t *weights, int32_t taps,
                                                        int32_t shift, int32_t count, uint8_t *out,
                                                        int32_t step) {
  if (taps == 4) return FilterFourAvx2(line, starts, weights, count, out, step);
  if (taps % 8 != 0) return 0;
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const int16_t *w = weights + static_cast<ptrdiff_t>(i) * taps;
    __m256i low = TwoColumns(line, starts + i, w, taps, 0);
    __m256i high = TwoColumns(line, starts + i + 2, w + 2 * taps, taps, 0);
    for (int32_t t = 8; t < taps; t += 8) {
      low = _mm256_add_epi32(low, TwoColumns(line, starts + i, w, taps, t));
      high = _mm256_add_epi32(high, TwoColumns(line, starts + i + 2, w + 2 * taps, taps, t));
    }
    // Halves hold columns i, i + 1 (low) and i + 2, i + 3 (high); two
    // horizontal adds leave i, i + 2 in the first half and i + 1, i + 3 in
    // the second.
    const __m256i pairs = _mm256_hadd_epi32(low, high);
    const __m256i totals = _mm256_hadd_epi32(pairs, pairs);
    StoreFour(
        _mm_unpacklo_epi32(_mm256_castsi256_si128(totals), _mm256_extracti128_si256(totals, 1)),
        shift, out + static_cast<int64_t>(i) * step, step);
  }
  return i;
}
#endif

// The horizontal pass with 16-bit weights: `weights` holds `taps` weights
// per destination column (4, or a multiple of 8, padded with zeros), and
// each sum is rounded and shifted right by `shift`; four columns at a time.
void FilterShort(const int16_t *line, const int32_t *starts, const int16_t *weights, int32_t taps,
                 int32_t shift, int32_t count, uint8_t *out, int32_t step) {
  int32_t i = 0;
#if defined(__x86_64__)
  if (HasAvx2() && gAvx2Allowed.load(std::memory_order_relaxed))
    i = FilterShortAvx2(line, starts, weights, taps, shift, count, out, step);
#endif
#if defined(__SSE2__)
  const auto load = [](const int16_t *at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
  };
  const auto load4 = [](const int16_t *at) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(at));
  };
  for (; i + 4 <= count; i += 4) {
    const int16_t *w = weights + static_cast<ptrdiff_t>(i) * taps;
    __m128i sum;
    if (taps == 4) {
      // Two columns per register; each multiply-add leaves two partial sums
      // per column, which the shuffles pair up.
      const __m128i a = _mm_unpacklo_epi64(load4(line + starts[i]), load4(line + starts[i + 1]));
      const __m128i b =
          _mm_unpacklo_epi64(load4(line + starts[i + 2]), load4(line + starts[i + 3]));
      const __m128 ma = _mm_castsi128_ps(_mm_madd_epi16(a, load(w)));
      const __m128 mb = _mm_castsi128_ps(_mm_madd_epi16(b, load(w + 8)));
      sum = _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(ma, mb, _MM_SHUFFLE(2, 0, 2, 0))),
                          _mm_castps_si128(_mm_shuffle_ps(ma, mb, _MM_SHUFFLE(3, 1, 3, 1))));
    } else {
      __m128i m[4];
      for (int32_t k = 0; k < 4; ++k) {
        const int16_t *s = line + starts[i + k];
        const int16_t *wk = w + k * taps;
        m[k] = _mm_madd_epi16(load(s), load(wk));
        for (int32_t t = 8; t < taps; t += 8)
          m[k] = _mm_add_epi32(m[k], _mm_madd_epi16(load(s + t), load(wk + t)));
      }
      // Transpose and add: lane k ends up holding column i + k's total.
      const __m128i t01 =
          _mm_add_epi32(_mm_unpacklo_epi32(m[0], m[1]), _mm_unpackhi_epi32(m[0], m[1]));
      const __m128i t23 =
          _mm_add_epi32(_mm_unpacklo_epi32(m[2], m[3]), _mm_unpackhi_epi32(m[2], m[3]));
      sum = _mm_add_epi32(_mm_unpacklo_epi64(t01, t23), _mm_unpackhi_epi64(t01, t23));
    }
    StoreFour(sum, shift, out + static_cast<int64_t>(i) * step, step);
  }
#endif
  for (; i < count; ++i)
    out[static_cast<int64_t>(i) * step] =
        ShortSum(line + starts[i], weights + static_cast<ptrdiff_t>(i) * taps, taps, shift);
}

// Whether a wide kernel's 16.16 weights serve the 16-bit pass with the same
// sums: each fits a 16-bit lane (a tent wider than eight samples keeps every
// weight below an eighth), and no sum of the blended row's samples under
// them leaves 32 bits, rounding included.
bool FitsWords(const ReduceKernel &kernel) {
  constexpr int64_t kShift = 16 + kMidBits;
  for (int32_t p = 0; p < kReducePhases; ++p) {
    int64_t high = int64_t{1} << (kShift - 1), low = high;
    for (int32_t t = 0; t < kernel.taps; ++t) {
      const int32_t w = kernel.Row(p)[t];
      if (w < INT16_MIN || w > INT16_MAX) return false;
      (w > 0 ? high : low) += int64_t{w} * kMidMax;
    }
    if (high > INT32_MAX || low < INT32_MIN) return false;
  }
  return true;
}

// The horizontal pass for wide kernels, summed in 64 bits: the rounding
// excess can leave a sizeable negative middle weight there.
void FilterWide(const int16_t *line, const int32_t *starts, const int32_t *const *rows,
                int32_t taps, int32_t count, uint8_t *out, int32_t step) {
  constexpr int32_t kShift = 16 + kMidBits;
  for (int32_t i = 0; i < count; ++i) {
    const int16_t *s = line + starts[i];
    const int32_t *w = rows[i];
    int64_t sum = int64_t{1} << (kShift - 1);
    for (int32_t t = 0; t < taps; ++t)
      sum += static_cast<int64_t>(w[t]) * s[t];
    out[static_cast<int64_t>(i) * step] =
        static_cast<uint8_t>(std::clamp<int64_t>(sum >> kShift, 0, 255));
  }
}

// Fits a dw x dh destination to a sw x sh source's aspect ratio; never
// larger than either the source or the request. False when nothing of at
// least 2 x 2 is left to filter into.
bool FitReduction(int64_t sw, int64_t sh, int64_t *dw, int64_t *dh) {
  const int64_t askedW = *dw, askedH = *dh;
  if (askedW * sh > askedH * sw)
    *dw = (askedH * sw + sh / 2) / sh;
  else
    *dh = (askedW * sh + sw / 2) / sw;
  if (!(sw > *dw && sh > *dh)) {
    *dw = std::min(sw, askedW);
    *dh = std::min(sh, askedH);
  }
  return *dw >= 2 && *dh >= 2;
}

// Source rows of an in-memory picture with pixel step 1, where they lie.
const uint8_t *DirectRow(void *context, int32_t channel, int32_t y) {
  const auto *src = static_cast<const PlanarImage *>(context);
  return src->planes[channel] + static_cast<int64_t>(y) * src->rowStride;
}

const uint8_t *RingRow(void *context, int32_t channel, int32_t y) {
  return static_cast<const SourceRows *>(context)->Row(channel, y);
}

bool ImageUsable(const PlanarImage *image) {
  if (image->sampleType != 1 || image->channels < 1 || image->channels > 4) return false;
  if (image->width < 1 || image->height < 1) return false;
  if (image->pixelStep == 0 || image->rowStride == 0) return false;
  for (int32_t c = 0; c < image->channels; ++c)
    if (!image->planes[c]) return false;
  return true;
}

}  // namespace

bool SetReduceAvx2(bool allowed) {
  return gAvx2Allowed.exchange(allowed);
}

int BuildReduceKernel(int32_t n, int32_t m, ReduceKernel *kernel) {
  if (!kernel || m <= 1 || m > n) return -1;
  const float s = static_cast<float>(n - 1) / static_cast<float>(m - 1);
  int32_t low = -1;
  while (Tent(static_cast<float>(low) / s) != 0.0f)
    --low;
  int32_t high = 1;
  // Tap j is still reached by the last phase (15/16) when j - 15/16 lies
  // inside the tent.
  while (Tent((static_cast<float>(high) - 1.0f + 0.0625f) / s) != 0.0f)
    ++high;
  const int32_t first = low + 1;
  const int32_t taps = high - first;
  int32_t *weights = new (std::nothrow) int32_t[static_cast<size_t>(taps) * kReducePhases];
  if (!weights) return -3;
  kernel->weights.reset(weights);
  kernel->taps = taps;
  kernel->lead = -first;
  std::vector<float> raw(static_cast<size_t>(taps));
  for (int32_t p = 0; p < kReducePhases; ++p) {
    double sum = 0.0;
    for (int32_t t = 0; t < taps; ++t) {
      const float offset = static_cast<float>(first + t) - static_cast<float>(p) / 16.0f;
      raw[t] = Tent(offset / s);
      sum += raw[t];
    }
    int32_t *row = weights + p * taps;
    int64_t total = 0;
    for (int32_t t = 0; t < taps; ++t) {
      row[t] = static_cast<int32_t>(raw[t] * double{kReduceOne} / sum + 0.5);
      total += row[t];
    }
    row[taps / 2] -= static_cast<int32_t>(total - kReduceOne);
  }
  return 0;
}

// One thread's working rows: the blended line with its repeated edges and
// the source rows under the vertical kernel.
struct ReducePlan::Scratch {
  std::vector<int16_t> line;
  std::vector<const uint8_t *> rows;
  explicit Scratch(const ReducePlan &p)
      : line(static_cast<size_t>(p.padLeft_) + p.sw_ + p.hTaps_ + 2, 0),
        rows(static_cast<size_t>(p.vTaps_)) {}
};

int ReducePlan::Make(int32_t sw, int32_t sh, int32_t channels, int32_t dw, int32_t dh,
                     std::unique_ptr<ReducePlan> *plan) {
  if (!plan || sw < 1 || sh < 1 || channels < 1 || channels > 4 || dw < 2 || dh < 2) return -1;
  int64_t fw = dw, fh = dh;
  if (!FitReduction(sw, sh, &fw, &fh)) return -1;
  std::unique_ptr<ReducePlan> made(new (std::nothrow) ReducePlan);
  if (!made) return -3;
  const int64_t stepx = ((int64_t{sw} - 1) * 65536) / (fw - 1);
  const int64_t stepy = ((int64_t{sh} - 1) * 65536) / (fh - 1);
  const int built = stepx <= stepy
                        ? BuildReduceKernel(sw, static_cast<int32_t>(fw), &made->kernel_)
                        : BuildReduceKernel(sh, static_cast<int32_t>(fh), &made->kernel_);
  if (built != 0) return built;
  made->step_ = std::min(stepx, stepy);
  made->sw_ = sw;
  made->sh_ = sh;
  made->dw_ = static_cast<int32_t>(fw);
  made->dh_ = static_cast<int32_t>(fh);
  made->channels_ = channels;
  try {
    made->Prepare();
  } catch (const std::bad_alloc &) {
    return -3;
  }
  *plan = std::move(made);
  return 0;
}

int64_t ReducePlan::FirstUnclamped(int32_t r) const {
  return PlaceOf(static_cast<int64_t>(r) * step_).index - kernel_.lead;
}

int32_t ReducePlan::FirstRow(int32_t r) const {
  return static_cast<int32_t>(std::clamp<int64_t>(FirstUnclamped(r), 0, sh_ - 1));
}

int32_t ReducePlan::LastRow(int32_t r) const {
  return static_cast<int32_t>(
      std::clamp<int64_t>(FirstUnclamped(r) + kernel_.taps - 1, 0, sh_ - 1));
}

int ReducePlan::Rows(RowAt rowAt, void *context, PlanarImage *dst, int32_t r0, int32_t r1,
                     int32_t dstTop) const {
  if (r0 >= r1) return 0;
  try {
    Scratch scratch(*this);
    uint8_t *out[4] = {};
    for (int32_t r = r0; r < r1; ++r) {
      for (int32_t c = 0; c < channels_; ++c)
        out[c] = dst->planes[c] + static_cast<int64_t>(r - dstTop) * dst->rowStride;
      Row(rowAt, context, out, dst->pixelStep, r, scratch);
    }
  } catch (const std::bad_alloc &) {
    return -3;
  }
  return 0;
}

// Destination row r of every channel, once its source rows are available.
void ReducePlan::Row(RowAt rowAt, void *context, uint8_t *const *out, int32_t outStep, int32_t r,
                     Scratch &scratch) const {
  const int32_t taps = kernel_.taps;
  const int32_t phase = PlaceOf(static_cast<int64_t>(r) * step_).phase;
  const int64_t first = FirstUnclamped(r);
  int16_t *mid = scratch.line.data() + padLeft_;
  const size_t rightStart = static_cast<size_t>(padLeft_) + sw_;
  for (int32_t c = 0; c < channels_; ++c) {
    for (int32_t t = 0; t < taps; ++t)
      scratch.rows[t] =
          rowAt(context, c, static_cast<int32_t>(std::clamp<int64_t>(first + t, 0, sh_ - 1)));
    if (vTaps_ > taps) scratch.rows[taps] = scratch.rows[0];  // its weight is 0
    BlendRows(scratch.rows.data(), vertical_.data() + phase * vTaps_, vTaps_ / 2, sw_, mid);
    std::fill_n(scratch.line.data(), padLeft_, mid[0]);
    std::fill(scratch.line.begin() + static_cast<ptrdiff_t>(rightStart), scratch.line.end(),
              mid[sw_ - 1]);
    if (!columnWeights_.empty())
      FilterShort(scratch.line.data(), starts_.data(), columnWeights_.data(), hTaps_, hShift_, dw_,
                  out[c], outStep);
    else
      FilterWide(scratch.line.data(), starts_.data(), phaseRows_.data(), taps, dw_, out[c],
                 outStep);
  }
}

// Per destination column: where its taps start in the blended row and its
// weights. The blended row repeats the edge samples, so no loop clamps.
void ReducePlan::Prepare() {
  const int32_t taps = kernel_.taps;
  vTaps_ = taps + (taps & 1);
  vertical_.assign(kReducePhases * static_cast<size_t>(vTaps_), 0);
  for (int32_t p = 0; p < kReducePhases; ++p) {
    int16_t *row = vertical_.data() + p * vTaps_;
    int32_t total = 0;
    for (int32_t t = 0; t < taps; ++t) {
      row[t] = static_cast<int16_t>((kernel_.Row(p)[t] + 2) >> 2);
      total += row[t];
    }
    row[taps / 2] = static_cast<int16_t>(row[taps / 2] - (total - (1 << kVerticalBits)));
  }
  hTaps_ = taps <= 4 ? 4 : (taps + 7) / 8 * 8;
  padLeft_ = kernel_.lead;
  starts_.resize(static_cast<size_t>(dw_));
  const bool short16 = taps <= kShortTaps, wide16 = !short16 && FitsWords(kernel_);
  hShift_ = short16 ? kVerticalBits + kMidBits : 16 + kMidBits;
  if (short16 || wide16)
    columnWeights_.assign(static_cast<size_t>(dw_) * hTaps_, 0);
  else
    phaseRows_.resize(static_cast<size_t>(dw_));
  for (int32_t i = 0; i < dw_; ++i) {
    const Place place = PlaceOf(static_cast<int64_t>(i) * step_);
    starts_[i] = static_cast<int32_t>(place.index - kernel_.lead + padLeft_);
    int16_t *weights = columnWeights_.data() + static_cast<size_t>(i) * hTaps_;
    if (short16)
      std::copy_n(vertical_.data() + place.phase * vTaps_, taps, weights);
    else if (wide16)
      std::copy_n(kernel_.Row(place.phase), taps, weights);  // each fits, as checked
    else
      phaseRows_[i] = kernel_.Row(place.phase);
  }
}

namespace {

// Rows of a source in memory can be read by any thread in any order, so
// without a callback to report to in order the rows are shared out.
int ReduceShared(const ReducePlan &plan, const PlanarImage *src, PlanarImage *dst) {
  std::atomic<bool> failed{false};
  SplitWork(plan.Height(), 8, [&](int64_t r0, int64_t r1) {
    if (plan.Rows(DirectRow, const_cast<PlanarImage *>(src), dst, static_cast<int32_t>(r0),
                  static_cast<int32_t>(r1)) != 0)
      failed = true;
  });
  return failed ? -3 : 0;
}

// Row after row on the calling thread, reading the source as it goes.
int ReduceInOrder(const ReducePlan &plan, SourceRows &source, PlanarImage *dst,
                  PixProgress progress) {
  for (int32_t r = 0; r < plan.Height(); ++r) {
    int code = source.Through(plan.LastRow(r));
    if (code == 0) code = plan.Rows(RingRow, &source, dst, r, r + 1);
    if (code != 0) return code;
    if (progress) {
      const int stop = progress(static_cast<float>(r + 1) / static_cast<float>(plan.Height()));
      if (stop != 0) return stop;
    }
  }
  return 0;
}

}  // namespace

int ReduceImage(RasDesc *file, const PlanarImage *src, int mode, PlanarImage *dst,
                const PixRect *rect, const PixReduceOptions *options, PixProgress progress) {
  const int ready = PixReady();
  if (ready != 0) return ready;
  if (mode != 0 && mode != 1) return -1;
  if ((file == nullptr) == (src == nullptr)) return -1;
  if (!dst || !rect || !options) return -1;
  if (dst->width < 2 || dst->height < 2 || !ImageUsable(dst)) return -1;

  int64_t sw = 0, sh = 0;
  int32_t channels = 0;
  if (src) {
    if (!ImageUsable(src)) return -1;
    for (int32_t c = 0; c < src->channels; ++c)
      for (int32_t d = 0; d < dst->channels; ++d)
        if (src->planes[c] == dst->planes[d]) return -1;
    sw = src->width;
    sh = src->height;
    channels = src->channels;
  } else {
    if (!file->state || file->maxval > 255 || file->channels < 1 || file->channels > 4) return -1;
    if (file->width < 1 || file->height < 1 || file->width > INT32_MAX || file->height > INT32_MAX)
      return -1;
    sw = file->width;
    sh = file->height;
    channels = static_cast<int32_t>(file->channels);
  }
  if (channels != dst->channels) return -1;

  std::unique_ptr<ReducePlan> plan;
  const int made = ReducePlan::Make(static_cast<int32_t>(sw), static_cast<int32_t>(sh), channels,
                                    dst->width, dst->height, &plan);
  if (made != 0) return made;
  SourceRows source(file, src, static_cast<int32_t>(sw), channels);
  try {
    const int opened = source.Open(plan->Depth());
    if (opened != 0) return opened;
  } catch (const std::bad_alloc &) {
    return -3;
  }
  dst->width = plan->Width();
  dst->height = plan->Height();
  if (source.Direct() && !progress) return ReduceShared(*plan, src, dst);
  return ReduceInOrder(*plan, source, dst, progress);
}

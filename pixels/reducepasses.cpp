// The passes in their portable, SSE2 and AVX2 forms. Each vector form
// computes the portable form's integer sums in another order, so all of
// them give the same bytes; the tests compare them with AVX2 switched off.
#include "pixels/reducepasses.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "pixels/reduce_kernel.h"

namespace {

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

}  // namespace

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
namespace {

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

}  // namespace

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

bool SetReduceAvx2(bool allowed) {
  return gAvx2Allowed.exchange(allowed);
}

// Vector forms of the interpolator the editing view runs (three inputs,
// three outputs, bytes everywhere): eight pixels at a time with AVX2 gathers,
// or four with SSE4.1 and scalar look-ups. Each lane does exactly what the
// scalar loop in rows.h does for its pixel, in the same integer arithmetic,
// so every byte matches it; the scalar loop finishes whatever is left over.
// The instruction set is chosen once, from what the processor reports.
#include <immintrin.h>

#include <atomic>
#include <cstring>

#include "colorengine/rows.h"

namespace cc {

namespace {

// Node values are fetched four bytes at a time. The base corner and the two
// middle corners are never the grid's last node, so their fourth byte is
// still inside the grid; the far corner may be the last node, so it is read
// from one byte before (never the grid's first byte, as the far corner is at
// least one whole node away) and its channels sit one byte higher.
constexpr int kFarBias = 1;

// A fraction table holds 256 16-bit entries; four bytes read at entry x
// would pass its end for x = 255, so the upper half of the table is read
// from one entry earlier and shifted down.
constexpr uint32_t kFractionHalf = 128;

// Source samples of `lanes` pixels of one channel, and destination samples
// back, at any stride.
template <int Lanes>
void LoadLanes(const uint8_t *s, size_t from, uint32_t stride, uint32_t *out) {
  for (int l = 0; l < Lanes; ++l)
    out[l] = s[from + size_t(l) * stride];
}

template <int Lanes>
void StoreLanes(const Interp8x3 &r, int k, size_t to, const uint32_t *v) {
  uint8_t *d = r.dst[k] + to;
  if (r.identity) {
    for (int l = 0; l < Lanes; ++l)
      d[size_t(l) * r.dstStride] = static_cast<uint8_t>(v[l]);
  } else {
    for (int l = 0; l < Lanes; ++l)
      d[size_t(l) * r.dstStride] = r.curve[k][v[l]];
  }
}

__attribute__((target("avx2"))) __m256i Fractions8(const uint16_t *table, __m256i x) {
  const __m256i high = _mm256_cmpgt_epi32(x, _mm256_set1_epi32(kFractionHalf - 1));
  const __m256i at = _mm256_add_epi32(_mm256_add_epi32(x, x), _mm256_add_epi32(high, high));
  const __m256i pair = _mm256_i32gather_epi32(reinterpret_cast<const int *>(table), at, 1);
  const __m256i shift = _mm256_and_si256(high, _mm256_set1_epi32(16));
  return _mm256_and_si256(_mm256_srlv_epi32(pair, shift), _mm256_set1_epi32(0xFFFF));
}

__attribute__((target("avx2"))) __m256i Channel8(__m256i bytes, int k) {
  return _mm256_and_si256(_mm256_srli_epi32(bytes, 8 * k), _mm256_set1_epi32(0xFF));
}

__attribute__((target("avx2"))) __m256i Source8(const Interp8x3 &r, int a, size_t from) {
  if (r.srcStride == 1)
    return _mm256_cvtepu8_epi32(
        _mm_loadl_epi64(reinterpret_cast<const __m128i *>(r.src[a] + from)));
  alignas(32) uint32_t lanes[8];
  LoadLanes<8>(r.src[a], from, r.srcStride, lanes);
  return _mm256_load_si256(reinterpret_cast<const __m256i *>(lanes));
}

__attribute__((target("avx2"))) void Store8(const Interp8x3 &r, int k, size_t to, __m256i v) {
  if (r.identity && r.dstStride == 1) {
    // Byte 0 of every 32-bit lane, the two halves side by side.
    const __m256i bytes = _mm256_shuffle_epi8(
        v, _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 4, 8,
                            12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m128i both =
        _mm_unpacklo_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(r.dst[k] + to), both);
    return;
  }
  alignas(32) uint32_t lanes[8];
  _mm256_store_si256(reinterpret_cast<__m256i *>(lanes), v);
  StoreLanes<8>(r, k, to, lanes);
}

// Gathers are the costly part of the AVX2 loop. When every base node's offset
// fits 16 bits (grids of up to 28 nodes an axis at three bytes a node, as the
// base node is never an axis's last), one table per axis holds the offset in
// the low half of an entry and the fraction in the high half, so one gather
// per axis gives both.
constexpr uint32_t kOffsetLimit = 1u << 16;

__attribute__((target("avx2"))) bool PackAxes(const Interp8x3 &r, uint32_t packed[3][256]) {
  __m256i highest = _mm256_setzero_si256();
  for (int a = 0; a < 3; ++a)
    for (int x = 0; x < 256; x += 8) {
      const __m256i offsets =
          _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r.offsets[a] + x));
      const __m256i fractions = _mm256_cvtepu16_epi32(
          _mm_loadu_si128(reinterpret_cast<const __m128i *>(r.fractions[a] + x)));
      highest = _mm256_max_epu32(highest, offsets);
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(packed[a] + x),
                          _mm256_or_si256(offsets, _mm256_slli_epi32(fractions, 16)));
    }
  alignas(32) uint32_t lanes[8];
  _mm256_store_si256(reinterpret_cast<__m256i *>(lanes), highest);
  for (const uint32_t lane : lanes)
    if (lane >= kOffsetLimit) return false;
  return true;
}

// The grid offset of each pixel's base node and its three fractions.
template <bool Packed>
__attribute__((target("avx2"))) __m256i Locate8(const Interp8x3 &r, const uint32_t packed[3][256],
                                                size_t from, __m256i f[3]) {
  __m256i base = _mm256_setzero_si256();
  for (int a = 0; a < 3; ++a) {
    const __m256i x = Source8(r, a, from);
    if constexpr (Packed) {
      const __m256i both = _mm256_i32gather_epi32(reinterpret_cast<const int *>(packed[a]), x, 4);
      base = _mm256_add_epi32(base, _mm256_and_si256(both, _mm256_set1_epi32(0xFFFF)));
      f[a] = _mm256_srli_epi32(both, 16);
    } else {
      base = _mm256_add_epi32(
          base, _mm256_i32gather_epi32(reinterpret_cast<const int *>(r.offsets[a]), x, 4));
      f[a] = Fractions8(r.fractions[a], x);
    }
  }
  return base;
}

template <bool Packed>
__attribute__((target("avx2"))) uint32_t Interp8x3Avx2Loop(const Interp8x3 &r,
                                                           const uint32_t packed[3][256],
                                                           uint32_t count) {
  const __m256i corner1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r.corner1));
  const __m256i corner2 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r.corner2));
  const __m256i far = _mm256_set1_epi32(static_cast<int>(r.far) - kFarBias);
  const __m256i one = _mm256_set1_epi32(kWeightOne);
  const __m256i rounding = _mm256_set1_epi32(static_cast<int>(r.rounding));
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(r.shift));
  const int *grid = reinterpret_cast<const int *>(r.grid);
  const uint32_t whole = count / 8 * 8;
  size_t from = 0, to = 0;
  for (uint32_t i = 0; i < whole;
       i += 8, from += 8 * size_t{r.srcStride}, to += 8 * size_t{r.dstStride}) {
    __m256i f[3];
    const __m256i base = Locate8<Packed>(r, packed, from, f);
    // The row of the tetrahedron table, from A = f0 >= f1, B = f0 >= f2 and
    // C = f1 >= f2 (each comparison gives its negation as all ones).
    const __m256i row = _mm256_or_si256(
        _mm256_or_si256(_mm256_andnot_si256(_mm256_cmpgt_epi32(f[1], f[0]), _mm256_set1_epi32(4)),
                        _mm256_andnot_si256(_mm256_cmpgt_epi32(f[2], f[0]), _mm256_set1_epi32(2))),
        _mm256_andnot_si256(_mm256_cmpgt_epi32(f[2], f[1]), _mm256_set1_epi32(1)));
    const __m256i high = _mm256_max_epu32(f[0], f[1]), low = _mm256_min_epu32(f[0], f[1]);
    const __m256i top = _mm256_max_epu32(high, f[2]), bottom = _mm256_min_epu32(low, f[2]);
    const __m256i middle = _mm256_sub_epi32(_mm256_add_epi32(_mm256_add_epi32(f[0], f[1]), f[2]),
                                            _mm256_add_epi32(top, bottom));
    const __m256i weight[4] = {_mm256_sub_epi32(one, top), _mm256_sub_epi32(top, middle),
                               _mm256_sub_epi32(middle, bottom), bottom};
    const __m256i nodes[4] = {
        _mm256_i32gather_epi32(grid, base, 1),
        _mm256_i32gather_epi32(
            grid, _mm256_add_epi32(base, _mm256_permutevar8x32_epi32(corner1, row)), 1),
        _mm256_i32gather_epi32(
            grid, _mm256_add_epi32(base, _mm256_permutevar8x32_epi32(corner2, row)), 1),
        _mm256_i32gather_epi32(grid, _mm256_add_epi32(base, far), 1)};
    for (int k = 0; k < 3; ++k) {
      __m256i sum = rounding;
      for (int j = 0; j < 4; ++j)
        sum = _mm256_add_epi32(
            sum, _mm256_mullo_epi32(weight[j], Channel8(nodes[j], k + (j == 3 ? kFarBias : 0))));
      Store8(r, k, to, _mm256_srl_epi32(sum, shift));
    }
  }
  return whole;
}

__attribute__((target("avx2"))) uint32_t Interp8x3Avx2(const Interp8x3 &r, uint32_t count) {
  // Packing costs about as much as a hundred pixels; short rows skip it.
  constexpr uint32_t kPackFrom = 256;
  alignas(32) uint32_t packed[3][256];
  if (count >= kPackFrom && PackAxes(r, packed)) return Interp8x3Avx2Loop<true>(r, packed, count);
  return Interp8x3Avx2Loop<false>(r, packed, count);
}

__attribute__((target("sse4.1"))) __m128i Lanes4(const uint32_t *v) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(v));
}

// Without gathers the look-ups stay scalar; the choice of tetrahedron, the
// weights and the sums run four pixels wide.
__attribute__((target("sse4.1"))) uint32_t Interp8x3Sse41(const Interp8x3 &r, uint32_t count) {
  const __m128i one = _mm_set1_epi32(kWeightOne);
  const __m128i rounding = _mm_set1_epi32(static_cast<int>(r.rounding));
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(r.shift));
  const uint32_t whole = count / 4 * 4;
  size_t from = 0, to = 0;
  for (uint32_t i = 0; i < whole;
       i += 4, from += 4 * size_t{r.srcStride}, to += 4 * size_t{r.dstStride}) {
    uint32_t x[3][4], fr[3][4], base[4] = {0, 0, 0, 0};
    for (int a = 0; a < 3; ++a) {
      LoadLanes<4>(r.src[a], from, r.srcStride, x[a]);
      for (int l = 0; l < 4; ++l) {
        base[l] += r.offsets[a][x[a][l]];
        fr[a][l] = r.fractions[a][x[a][l]];
      }
    }
    const __m128i f0 = Lanes4(fr[0]), f1 = Lanes4(fr[1]), f2 = Lanes4(fr[2]);
    alignas(16) uint32_t row[4];
    _mm_store_si128(
        reinterpret_cast<__m128i *>(row),
        _mm_or_si128(_mm_or_si128(_mm_andnot_si128(_mm_cmpgt_epi32(f1, f0), _mm_set1_epi32(4)),
                                  _mm_andnot_si128(_mm_cmpgt_epi32(f2, f0), _mm_set1_epi32(2))),
                     _mm_andnot_si128(_mm_cmpgt_epi32(f2, f1), _mm_set1_epi32(1))));
    const __m128i high = _mm_max_epu32(f0, f1), low = _mm_min_epu32(f0, f1);
    const __m128i top = _mm_max_epu32(high, f2), bottom = _mm_min_epu32(low, f2);
    const __m128i middle =
        _mm_sub_epi32(_mm_add_epi32(_mm_add_epi32(f0, f1), f2), _mm_add_epi32(top, bottom));
    const __m128i weight[4] = {_mm_sub_epi32(one, top), _mm_sub_epi32(top, middle),
                               _mm_sub_epi32(middle, bottom), bottom};
    uint32_t node[4][3][4];
    for (int l = 0; l < 4; ++l) {
      const uint32_t corner[4] = {0, r.corner1[row[l]], r.corner2[row[l]], r.far};
      for (int j = 0; j < 4; ++j)
        for (int k = 0; k < 3; ++k)
          node[j][k][l] = r.grid[base[l] + corner[j] + uint32_t(k)];
    }
    for (int k = 0; k < 3; ++k) {
      __m128i sum = rounding;
      for (int j = 0; j < 4; ++j)
        sum = _mm_add_epi32(sum, _mm_mullo_epi32(weight[j], Lanes4(node[j][k])));
      alignas(16) uint32_t v[4];
      _mm_store_si128(reinterpret_cast<__m128i *>(v), _mm_srl_epi32(sum, shift));
      StoreLanes<4>(r, k, to, v);
    }
  }
  return whole;
}

uint32_t Interp8x3None(const Interp8x3 &, uint32_t) {
  return 0;
}

VectorLevel Best() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) return VectorLevel::kAvx2;
  if (__builtin_cpu_supports("sse4.1")) return VectorLevel::kSse41;
  return VectorLevel::kScalar;
}

std::atomic<VectorLevel> gLevel{Best()};

}  // namespace

VectorLevel BestVectorLevel() {
  static const VectorLevel best = Best();
  return best;
}

VectorLevel SetVectorLevel(VectorLevel level) {
  if (level > BestVectorLevel()) level = BestVectorLevel();
  return gLevel.exchange(level);
}

uint32_t Interp8x3Vector(const Interp8x3 &row, uint32_t count) {
  switch (gLevel.load(std::memory_order_relaxed)) {
    case VectorLevel::kAvx2:
      return Interp8x3Avx2(row, count);
    case VectorLevel::kSse41:
      return Interp8x3Sse41(row, count);
    default:
      return Interp8x3None(row, count);
  }
}

}  // namespace cc

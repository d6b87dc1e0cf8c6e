// Interleaved rows to planes and back. The portable loops handle pixels
// [from, width); on x86 the SSSE3 versions convert blocks of 16 pixels with
// byte shuffles (compilers do not vectorise these strided loops on their own)
// and leave the tail of the row to the portable loops.
#include "raster/core/rowpack.h"

#include <cstddef>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define RAS_ROWPACK_SSSE3 1
#endif

namespace {

// XOR with 0xFF is 255 - v for bytes, so one mask serves both kinds.
template <bool Complement>
constexpr uint8_t kMask = Complement ? 0xFF : 0x00;

template <uint32_t Channels, bool Complement>
void SplitFrom(const uint8_t *row, uint8_t *const *planes, uint32_t from, uint32_t width) {
  const uint8_t *__restrict src = row + size_t{Channels} * from;
  uint8_t *__restrict p[Channels];
  for (uint32_t k = 0; k < Channels; ++k)
    p[k] = planes[k];
  for (uint32_t x = from; x < width; ++x, src += Channels)
    for (uint32_t k = 0; k < Channels; ++k)
      p[k][x] = src[k] ^ kMask<Complement>;
}

template <uint32_t Channels, bool Complement>
void JoinFrom(uint8_t *row, const uint8_t *const *planes, uint32_t from, uint32_t width) {
  uint8_t *__restrict dst = row + size_t{Channels} * from;
  const uint8_t *__restrict p[Channels];
  for (uint32_t k = 0; k < Channels; ++k)
    p[k] = planes[k];
  for (uint32_t x = from; x < width; ++x, dst += Channels)
    for (uint32_t k = 0; k < Channels; ++k)
      dst[k] = p[k][x] ^ kMask<Complement>;
}

template <uint32_t Channels, bool Complement>
void Split(const uint8_t *row, uint8_t *const *planes, uint32_t width) {
  SplitFrom<Channels, Complement>(row, planes, 0, width);
}

template <uint32_t Channels, bool Complement>
void Join(uint8_t *row, const uint8_t *const *planes, uint32_t width) {
  JoinFrom<Channels, Complement>(row, planes, 0, width);
}

#ifdef RAS_ROWPACK_SSSE3

// Byte shuffles for 16 pixels of three channels held in three 16-byte
// vectors. A lane whose source is elsewhere is 0x80, which pshufb zeroes.
struct Shuffle3 {
  uint8_t split[3][3][16];  // [channel][source vector][lane]
  uint8_t join[3][3][16];   // [output vector][channel][lane]
};

constexpr Shuffle3 MakeShuffle3() {
  Shuffle3 masks{};
  for (int k = 0; k < 3; ++k) {
    for (int v = 0; v < 3; ++v) {
      for (int lane = 0; lane < 16; ++lane) {
        const int from = 3 * lane + k - 16 * v;  // pixel `lane`, channel k, in vector v
        masks.split[k][v][lane] = static_cast<uint8_t>(from >= 0 && from < 16 ? from : 0x80);
        const int at = 16 * v + lane;  // output byte: pixel at / 3, channel at % 3
        masks.join[v][k][lane] = static_cast<uint8_t>(at % 3 == k ? at / 3 : 0x80);
      }
    }
  }
  return masks;
}

constexpr Shuffle3 kShuffle3 = MakeShuffle3();

// Gathers bytes 0, 4, 8, 12, then 1, 5, 9, 13 ...: four pixels of four
// channels to four runs of one channel, and back (it is its own inverse).
alignas(16) constexpr uint8_t kShuffle4[16] = {0, 4, 8,  12, 1, 5, 9,  13,
                                               2, 6, 10, 14, 3, 7, 11, 15};

__attribute__((target("ssse3"))) inline __m128i Load(const uint8_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

__attribute__((target("ssse3"))) inline void Store(uint8_t *p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

// The OR of three shuffles picks each output lane from whichever input holds it.
__attribute__((target("ssse3"))) inline __m128i Pick3(__m128i a, __m128i b, __m128i c,
                                                      const uint8_t (&masks)[3][16]) {
  return _mm_or_si128(
      _mm_or_si128(_mm_shuffle_epi8(a, Load(masks[0])), _mm_shuffle_epi8(b, Load(masks[1]))),
      _mm_shuffle_epi8(c, Load(masks[2])));
}

template <bool Complement>
__attribute__((target("ssse3"))) void Split3Ssse3(const uint8_t *row, uint8_t *const *planes,
                                                  uint32_t width) {
  const __m128i mask = _mm_set1_epi8(static_cast<char>(kMask<Complement>));
  uint32_t x = 0;
  for (const uint8_t *src = row; x + 16 <= width; x += 16, src += 48) {
    const __m128i a = Load(src), b = Load(src + 16), c = Load(src + 32);
    for (int k = 0; k < 3; ++k)
      Store(planes[k] + x, _mm_xor_si128(Pick3(a, b, c, kShuffle3.split[k]), mask));
  }
  SplitFrom<3, Complement>(row, planes, x, width);
}

template <bool Complement>
__attribute__((target("ssse3"))) void Join3Ssse3(uint8_t *row, const uint8_t *const *planes,
                                                 uint32_t width) {
  const __m128i mask = _mm_set1_epi8(static_cast<char>(kMask<Complement>));
  uint32_t x = 0;
  for (uint8_t *dst = row; x + 16 <= width; x += 16, dst += 48) {
    const __m128i r = _mm_xor_si128(Load(planes[0] + x), mask);
    const __m128i g = _mm_xor_si128(Load(planes[1] + x), mask);
    const __m128i b = _mm_xor_si128(Load(planes[2] + x), mask);
    for (int v = 0; v < 3; ++v)
      Store(dst + 16 * v, Pick3(r, g, b, kShuffle3.join[v]));
  }
  JoinFrom<3, Complement>(row, planes, x, width);
}

template <bool Complement>
__attribute__((target("ssse3"))) void Split4Ssse3(const uint8_t *row, uint8_t *const *planes,
                                                  uint32_t width) {
  const __m128i gather = Load(kShuffle4);
  const __m128i mask = _mm_set1_epi8(static_cast<char>(kMask<Complement>));
  uint32_t x = 0;
  for (const uint8_t *src = row; x + 16 <= width; x += 16, src += 64) {
    // Each vector becomes four 32-bit runs of one channel for four pixels; a
    // 4 x 4 transpose of those runs gives one channel of 16 pixels a vector.
    const __m128i s0 = _mm_shuffle_epi8(Load(src), gather);
    const __m128i s1 = _mm_shuffle_epi8(Load(src + 16), gather);
    const __m128i s2 = _mm_shuffle_epi8(Load(src + 32), gather);
    const __m128i s3 = _mm_shuffle_epi8(Load(src + 48), gather);
    const __m128i t0 = _mm_unpacklo_epi32(s0, s1), t1 = _mm_unpacklo_epi32(s2, s3);
    const __m128i t2 = _mm_unpackhi_epi32(s0, s1), t3 = _mm_unpackhi_epi32(s2, s3);
    Store(planes[0] + x, _mm_xor_si128(_mm_unpacklo_epi64(t0, t1), mask));
    Store(planes[1] + x, _mm_xor_si128(_mm_unpackhi_epi64(t0, t1), mask));
    Store(planes[2] + x, _mm_xor_si128(_mm_unpacklo_epi64(t2, t3), mask));
    Store(planes[3] + x, _mm_xor_si128(_mm_unpackhi_epi64(t2, t3), mask));
  }
  SplitFrom<4, Complement>(row, planes, x, width);
}

template <bool Complement>
__attribute__((target("ssse3"))) void Join4Ssse3(uint8_t *row, const uint8_t *const *planes,
                                                 uint32_t width) {
  const __m128i gather = Load(kShuffle4);
  const __m128i mask = _mm_set1_epi8(static_cast<char>(kMask<Complement>));
  uint32_t x = 0;
  for (uint8_t *dst = row; x + 16 <= width; x += 16, dst += 64) {
    const __m128i c = _mm_xor_si128(Load(planes[0] + x), mask);
    const __m128i m = _mm_xor_si128(Load(planes[1] + x), mask);
    const __m128i y = _mm_xor_si128(Load(planes[2] + x), mask);
    const __m128i k = _mm_xor_si128(Load(planes[3] + x), mask);
    const __m128i t0 = _mm_unpacklo_epi32(c, m), t1 = _mm_unpacklo_epi32(y, k);
    const __m128i t2 = _mm_unpackhi_epi32(c, m), t3 = _mm_unpackhi_epi32(y, k);
    Store(dst, _mm_shuffle_epi8(_mm_unpacklo_epi64(t0, t1), gather));
    Store(dst + 16, _mm_shuffle_epi8(_mm_unpackhi_epi64(t0, t1), gather));
    Store(dst + 32, _mm_shuffle_epi8(_mm_unpacklo_epi64(t2, t3), gather));
    Store(dst + 48, _mm_shuffle_epi8(_mm_unpackhi_epi64(t2, t3), gather));
  }
  JoinFrom<4, Complement>(row, planes, x, width);
}

bool HasSsse3() {
  return __builtin_cpu_supports("ssse3") != 0;
}

#else

bool HasSsse3() {
  return false;
}
template <bool Complement>
constexpr RasSplitRowFn Split3Ssse3 = Split<3, Complement>;
template <bool Complement>
constexpr RasSplitRowFn Split4Ssse3 = Split<4, Complement>;
template <bool Complement>
constexpr RasJoinRowFn Join3Ssse3 = Join<3, Complement>;
template <bool Complement>
constexpr RasJoinRowFn Join4Ssse3 = Join<4, Complement>;

#endif

template <bool Complement>
RasSplitRowFn SplitFor(uint32_t channels) {
  const bool fast = HasSsse3();
  switch (channels) {
    case 1:
      return Split<1, Complement>;
    case 3:
      return fast ? Split3Ssse3<Complement> : Split<3, Complement>;
    case 4:
      return fast ? Split4Ssse3<Complement> : Split<4, Complement>;
    default:
      return nullptr;
  }
}

template <bool Complement>
RasJoinRowFn JoinFor(uint32_t channels) {
  const bool fast = HasSsse3();
  switch (channels) {
    case 1:
      return Join<1, Complement>;
    case 3:
      return fast ? Join3Ssse3<Complement> : Join<3, Complement>;
    case 4:
      return fast ? Join4Ssse3<Complement> : Join<4, Complement>;
    default:
      return nullptr;
  }
}

}  // namespace

RasSplitRowFn RasSplitRowFor(uint32_t channels, bool complement) {
  return complement ? SplitFor<true>(channels) : SplitFor<false>(channels);
}

RasJoinRowFn RasJoinRowFor(uint32_t channels, bool complement) {
  return complement ? JoinFor<true>(channels) : JoinFor<false>(channels);
}

void RasSplitRow16(const uint16_t *row, uint16_t *const *planes, uint32_t width,
                   uint32_t channels) {
  for (uint32_t x = 0; x < width; ++x, row += channels)
    for (uint32_t k = 0; k < channels; ++k)
      planes[k][x] = row[k];
}

void RasJoinRow16(uint16_t *row, const uint16_t *const *planes, uint32_t width, uint32_t channels) {
  for (uint32_t x = 0; x < width; ++x, row += channels)
    for (uint32_t k = 0; k < channels; ++k)
      row[k] = planes[k][x];
}

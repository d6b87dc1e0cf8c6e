// Filtered reduction: the kernel table, fitting, a floating-point referee,
// the raster-file path, argument refusals and progress.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <numeric>
#include <vector>

#include "pixels/pixels.h"
#include "pixels/reduce_kernel.h"
#include "raster/ras.h"

namespace {

// Planes kept in one vector, with a chosen pixel step, filled by value(c, x, y).
struct Owned {
  std::vector<uint8_t> bytes;
  PlanarImage image;
  Owned(int32_t w, int32_t h, int32_t channels, int32_t step = 1,
        const std::function<int(int32_t, int32_t, int32_t)> &value = nullptr)
      : bytes(size_t(w) * h * step * channels), image{1, channels, w, h, 0, step, w * step, {}} {
    for (int32_t c = 0; c < channels; ++c)
      image.planes[c] = bytes.data() + bytes.size() / channels * c;
    for (int32_t i = 0; value && i < w * h * channels; ++i)
      At(i / (w * h), i % w, i / w % h) = value(i / (w * h), i % w, i / w % h);
  }
  uint8_t &At(int32_t c, int32_t x, int32_t y) {  // indices clamped to the planes
    x = std::clamp(x, 0, image.width - 1), y = std::clamp(y, 0, image.height - 1);
    return image.planes[c][y * image.rowStride + x * image.pixelStep];
  }
};

int Noise(int32_t c, int32_t x, int32_t y) {
  return (static_cast<uint32_t>(c * 7919 + x * 104729 + y * 1299709) * 2654435761u >> 13) & 0xFF;
}

const PixRect kRect{0, 0, 0, 0};
const PixReduceOptions kOptions{};
int Reduce(const PlanarImage &src, PlanarImage *dst, PixProgress progress = nullptr) {
  return ReduceImage(nullptr, &src, 1, dst, &kRect, &kOptions, progress);
}

TEST(ReduceKernel, PhasesSumExactlyMirrorAndCoverTheTent) {
  const int32_t sizes[][2] = {{2, 2},       {3, 2}, {10, 5},     {100, 50}, {6000, 1500},
                              {4000, 3000}, {7, 3}, {1000, 999}, {13, 2},   {6000, 4500}};
  ReduceKernel k;
  for (const auto &[n, m] : sizes) {
    SCOPED_TRACE(testing::Message() << n << " to " << m);
    ASSERT_EQ(BuildReduceKernel(n, m, &k), 0);
    const float s = static_cast<float>(n - 1) / static_cast<float>(m - 1);
    // Taps cover every offset the tent reaches over the 16 phases, no more.
    EXPECT_EQ(-k.lead, static_cast<int32_t>(std::floor(-s)) + 1);
    EXPECT_EQ(k.taps - k.lead, static_cast<int32_t>(std::ceil(s + 0.9375f)));
    for (int32_t p = 0; p < kReducePhases; ++p) {
      EXPECT_EQ(std::accumulate(k.Row(p), k.Row(p) + k.taps, int64_t{0}), kReduceOne) << p;
      // Phase p at offset j mirrors phase 16 - p at offset 1 - j (phase 0 at
      // -j), up to the rounding excess of at most taps / 2 on the middle tap.
      for (int32_t t = 0; t < k.taps; ++t) {
        const int32_t u = (p == 0 ? 0 : 1) - (t - k.lead) + k.lead;
        const int32_t limit = (t == k.taps / 2 || u == k.taps / 2) ? k.taps / 2 : 0;
        if (u < 0 || u >= k.taps) continue;
        EXPECT_LE(std::abs(k.Row(p)[t] - k.Row((kReducePhases - p) % kReducePhases)[u]), limit)
            << p << " " << t;
      }
    }
  }
  ASSERT_EQ(BuildReduceKernel(3, 2, &k), 0);  // ratio 2: taps -1 .. 2
  ASSERT_EQ(std::pair(k.taps, k.lead), std::pair(4, 1));
  EXPECT_EQ(std::vector(k.Row(0), k.Row(0) + 4), (std::vector{16384, 32768, 16384, 0}));
  EXPECT_EQ(std::vector(k.Row(8), k.Row(8) + 4), (std::vector{8192, 24576, 24576, 8192}));
  EXPECT_EQ(std::pair(BuildReduceKernel(5, 1, &k), BuildReduceKernel(5, 6, &k)), std::pair(-1, -1));
}

// Each case is fitted keeping the aspect, never enlarged (-1: nothing left to
// filter into). Flat pictures then stay exactly flat; a ramp x + y stays a
// ramp within 1 where no edge is reached; ramp and noise agree within 1 with a
// floating-point tent (position rounded to a sixteenth, weights normalised,
// edge samples repeated). The cases reach the 4, 8, 16 and wide (> 16)
// horizontal kernels, strided sources and destinations, and equal sizes.
TEST(ReduceImage, FitsAndMatchesReferees) {
  // source, requested, fitted, source and destination pixel steps
  const int32_t cases[][8] = {
      {160, 96, 40, 24, 40, 24, 1, 1},    {160, 96, 80, 48, 80, 48, 2, 1},
      {160, 96, 120, 72, 120, 72, 1, 3},  {97, 61, 31, 19, 30, 19, 1, 1},
      {200, 20, 21, 21, 21, 2, 1, 1},     {45, 45, 44, 44, 44, 44, 3, 2},
      {230, 25, 110, 110, 110, 12, 1, 1}, {100, 50, 40, 40, 40, 20, 1, 1},
      {50, 100, 40, 40, 20, 40, 1, 1},    {64, 48, 16, 16, 16, 12, 1, 1},
      {33, 17, 10, 10, 10, 5, 1, 1},      {30, 20, 40, 40, 30, 20, 1, 1},
      {30, 20, 30, 20, 30, 20, 1, 1},     {101, 1000, 101, 999, 101, 999, 1, 1},
      {1000, 3, 500, 500, 500, 2, 1, 1},  {1, 100, 50, 50, -1, -1, 1, 1}};
  int rampChecked = 0;
  for (const auto &[sw, sh, dw, dh, fw, fh, srcStep, dstStep] : cases) {
    for (int kind : {0, 1, 128, 254, 255, -1, -2}) {  // flat levels, ramp, noise
      if (kind == -1 && sw + sh > 256) continue;
      SCOPED_TRACE(testing::Message() << sw << "x" << sh << " to " << dw << " kind " << kind);
      Owned src(sw, sh, 3, srcStep, [kind](int32_t c, int32_t x, int32_t y) {
        return kind >= 0 ? kind : kind == -1 ? x + y : Noise(c, x, y);
      });
      Owned dst(dw, dh, 3, dstStep);
      ASSERT_EQ(Reduce(src.image, &dst.image), fw < 0 ? -1 : 0);
      ASSERT_EQ(std::pair(dst.image.width, dst.image.height),
                fw < 0 ? std::pair(dw, dh) : std::pair(fw, fh));
      if (fw < 0) continue;
      const int64_t step = std::min((sw - 1) * 65536LL / (fw - 1), (sh - 1) * 65536LL / (fh - 1));
      const double s = step / 65536.0;
      const auto tent = [s](double d) { return std::max(0.0, 1 - std::fabs(d) / s); };
      for (int32_t i = 0; i < 3 * fw * fh; ++i) {
        const int32_t c = i / (fw * fh), x = i % fw, y = i / fw % fh, got = dst.At(c, x, y);
        const double cx = std::round(x * step / 4096.0) / 16,
                     cy = std::round(y * step / 4096.0) / 16;
        double ref = 0, total = 0;
        bool edge = false;
        for (double v = std::floor(cy - s); v <= cy + s; ++v)
          for (double u = std::floor(cx - s); u <= cx + s; ++u) {
            const double w = tent(u - cx) * tent(v - cy);
            edge |= w > 0 && (u < 0 || v < 0 || u >= sw || v >= sh);
            ref += w * src.At(c, static_cast<int32_t>(u), static_cast<int32_t>(v));
            total += w;
          }
        ASSERT_NEAR(got, ref / total, kind >= 0 ? 1e-6 : 1.0) << c << " " << x << "," << y;
        if (kind != -1 || edge) continue;
        ++rampChecked;
        ASSERT_NEAR(got, (x + y) * step / 65536.0, 1.0) << x << "," << y;
      }
    }
  }
  EXPECT_GT(rampChecked, 500);
}

// The vertical pass's AVX2 form gives the SSE2 and scalar bytes, on widths
// around its 32-sample step and on every reduction from 1:1.3 to 1:9.
TEST(ReduceImage, WideVectorPassGivesTheSameBytes) {
  for (const int32_t sw : {31, 32, 33, 95, 301}) {
    for (const int32_t dw : {sw * 3 / 4, sw / 2, sw / 4, sw / 9}) {
      if (dw < 2) continue;
      SCOPED_TRACE(testing::Message() << sw << " to " << dw);
      const Owned src(sw, 41, 3, 1, Noise);
      const auto run = [&](bool avx2) {
        Owned dst(dw, 41, 3);
        const bool old = SetReduceAvx2(avx2);
        EXPECT_EQ(Reduce(src.image, &dst.image), 0);
        SetReduceAvx2(old);
        return dst.bytes;
      };
      EXPECT_EQ(run(true), run(false));
    }
  }
}

// A phase's weights rounded to 14 bits, the middle one taking the excess
// (or, `asIs`, the 16.16 weights themselves).
std::vector<int64_t> Fourteen(const ReduceKernel &k, int32_t phase, bool asIs) {
  std::vector<int64_t> w(k.Row(phase), k.Row(phase) + k.taps);
  if (asIs) return w;
  for (int64_t &v : w)
    v = (v + 2) >> 2;
  w[k.taps / 2] -= std::accumulate(w.begin(), w.end(), 0LL) - (1 << 14);
  return w;
}

// The two passes of a reduction written out in plain 64-bit integers from
// the kernel table, every tap summed: the vertical pass with the 16.16
// weights rounded to 14 bits (the middle one taking the excess) into samples
// with 6 fractional bits, then the horizontal pass with those 14-bit weights
// for kernels up to 16 taps, and with the 16.16 weights themselves for wider
// ones, each rounded to nearest, edges repeated.
std::vector<uint8_t> IntegerModel(Owned &src, int32_t dw, int32_t dh) {
  const int32_t sw = src.image.width, sh = src.image.height;
  const int64_t stepx = (sw - 1) * 65536LL / (dw - 1), stepy = (sh - 1) * 65536LL / (dh - 1);
  ReduceKernel k;
  EXPECT_EQ(stepx <= stepy ? BuildReduceKernel(sw, dw, &k) : BuildReduceKernel(sh, dh, &k), 0);
  const bool wide = k.taps > 16;
  const int64_t step = std::min(stepx, stepy);
  const auto place = [](int64_t position) {
    int64_t index = position >> 16, phase = ((position & 0xFFFF) + 0x800) >> 12;
    if (phase == 16) ++index, phase = 0;
    return std::pair(index, phase);
  };
  std::vector<uint8_t> out;
  for (int32_t c = 0; c < 3; ++c)
    for (int32_t y = 0; y < dh; ++y) {
      const auto [row, vphase] = place(y * step);
      const std::vector<int64_t> vertical = Fourteen(k, int32_t(vphase), false);
      std::vector<int64_t> mid(static_cast<size_t>(sw), 0);
      for (int32_t x = 0; x < sw; ++x) {
        int64_t sum = 1 << 7;
        for (int32_t t = 0; t < k.taps; ++t)
          sum += vertical[t] * src.At(c, x, int32_t(row - k.lead + t));
        mid[x] = std::clamp<int64_t>(sum >> 8, 0, 255 << 6);
      }
      const int32_t shift = wide ? 22 : 20;
      for (int32_t x = 0; x < dw; ++x) {
        const auto [column, hphase] = place(x * step);
        const std::vector<int64_t> weights = Fourteen(k, int32_t(hphase), wide);
        int64_t sum = int64_t{1} << (shift - 1);
        for (int32_t t = 0; t < k.taps; ++t)
          sum += weights[t] * mid[std::clamp<int64_t>(column - k.lead + t, 0, sw - 1)];
        out.push_back(uint8_t(std::clamp<int64_t>(sum >> shift, 0, 255)));
      }
    }
  return out;
}

// Reduces a picture of `kind` (a flat level, -1 a ramp, -2 noise) with and
// without the AVX2 forms and compares every byte with the model's.
void ExpectModelsBytes(int32_t sw, int32_t sh, int32_t dw, int32_t dh, int kind) {
  SCOPED_TRACE(testing::Message() << sw << "x" << sh << " to " << dw << "x" << dh << " kind "
                                  << kind);
  Owned src(sw, sh, 3, 1, [kind](int32_t c, int32_t x, int32_t y) {
    return kind >= 0 ? kind : kind == -1 ? (x + 3 * y) & 0xFF : Noise(c, x, y);
  });
  for (const bool avx2 : {true, false}) {
    Owned dst(dw, dh, 3);
    const bool old = SetReduceAvx2(avx2);
    ASSERT_EQ(Reduce(src.image, &dst.image), 0);
    SetReduceAvx2(old);
    // The model starts from the fitted size the routine reports.
    const int32_t fw = dst.image.width, fh = dst.image.height;
    std::vector<uint8_t> got;
    for (int32_t c = 0; c < 3; ++c)
      for (int32_t y = 0; y < fh; ++y)
        for (int32_t x = 0; x < fw; ++x)
          got.push_back(dst.At(c, x, y));
    EXPECT_EQ(got, IntegerModel(src, fw, fh));
  }
}

// Wide kernels (the editor's fit of a large photo) give the model's bytes
// exactly, with and without the AVX2 forms, on flat, ramp and noise pictures.
TEST(ReduceImage, WideKernelsGiveTheExactIntegerSums) {
  const int32_t cases[][4] = {
      {301, 41, 33, 4}, {500, 333, 27, 18}, {97, 970, 9, 91}, {1000, 61, 50, 3}};
  for (const auto &[sw, sh, dw, dh] : cases)
    for (const int kind : {255, -1, -2})
      ExpectModelsBytes(sw, sh, dw, dh, kind);
}

// Short kernels too, where a tap at the tent's very edge has a weight at one
// phase and none at the others, and a column or row may skip it: the zoom's
// quarter, half and three quarters of sizes that leave the step just off a
// whole number (so that every phase occurs), near-whole ratios, and
// destinations two samples wide or high.
TEST(ReduceImage, ShortKernelsGiveTheExactIntegerSums) {
  const int32_t cases[][4] = {{601, 401, 150, 100}, {333, 127, 83, 31}, {599, 37, 299, 18},
                              {211, 97, 158, 72},   {97, 61, 48, 30},   {1000, 3, 500, 2},
                              {3, 700, 2, 466},     {160, 96, 40, 24},  {257, 255, 32, 31},
                              {100, 90, 33, 30},    {1001, 9, 200, 2},  {45, 45, 44, 44}};
  for (const auto &[sw, sh, dw, dh] : cases)
    for (const int kind : {0, 255, -1, -2})
      ExpectModelsBytes(sw, sh, dw, dh, kind);
}

TEST(ReduceImage, OpenRasterFileGivesTheInMemoryResultExactly) {
  const std::string path = testing::TempDir() + "reduce_source.bmp";
  Owned src(53, 37, 3, 1, Noise);
  RasDesc desc{};
  ASSERT_FALSE(RasSetDesc(&desc, RasFormatBmp, 53, 37, 3, RasModelRgb, -1.0f) ||
               RasOpen(path.c_str(), 'w', &desc));
  for (uint32_t y = 0; y < 37; ++y) {
    RasSl sl{53, 3, {&src.At(0, 0, y), &src.At(1, 0, y), &src.At(2, 0, y)}, {}};
    ASSERT_EQ(RasWriteSl(&desc, y, &sl), 0);
  }
  ASSERT_EQ(RasClose(&desc), 0);
  for (const auto &[w, h] : {std::pair{20, 14}, {40, 40}, {53, 37}}) {
    RasDesc file{};
    ASSERT_FALSE(RasGetInfo(path.c_str(), &file) || RasOpen(path.c_str(), 'r', &file));
    Owned fromFile(w, h, 3), fromMemory(w, h, 3);
    EXPECT_EQ(ReduceImage(&file, nullptr, 0, &fromFile.image, &kRect, &kOptions, nullptr), 0);
    EXPECT_EQ(RasClose(&file), 0);
    ASSERT_EQ(Reduce(src.image, &fromMemory.image), 0);
    EXPECT_EQ(fromFile.bytes, fromMemory.bytes) << w;
  }
  std::remove(path.c_str());
}

int calls = 0;
int StopAtThird(float fraction) {
  EXPECT_FLOAT_EQ(fraction, static_cast<float>(++calls) / 10.0f);
  return calls == 3 ? 9 : 0;
}
TEST(ReduceImage, RefusesBadArgumentsWritingNothingAndStopsOnProgressCode) {
  Owned src(40, 40, 3, 1, Noise);
  RasDesc closed{};
  // Cases: dst width 1, height 1, 2 channels, sample type 2, a plane shared
  // with src; file and src both given, neither; mode 2, -1; no dst, rect, options.
  for (int f = 0; f < 12; ++f) {
    SCOPED_TRACE(f);
    Owned dst(10, 10, 3, 1, [](int32_t, int32_t, int32_t) { return 0xAB; });
    int32_t *const field[] = {&dst.image.width, &dst.image.height, &dst.image.channels};
    if (f < 3) *field[f] = f == 2 ? 2 : 1;
    if (f == 3) dst.image.sampleType = 2;
    if (f == 4) dst.image.planes[1] = src.image.planes[2];
    EXPECT_EQ(-1, ReduceImage(f == 5 ? &closed : nullptr, f == 6 ? nullptr : &src.image,
                              f == 7 ? 2 : 1 - 2 * (f == 8), f == 9 ? nullptr : &dst.image,
                              f == 10 ? nullptr : &kRect, f == 11 ? nullptr : &kOptions, nullptr));
    EXPECT_EQ(dst.bytes, std::vector<uint8_t>(dst.bytes.size(), 0xAB));
    EXPECT_EQ(dst.image.width * dst.image.height, f < 2 ? 10 : 100);  // as asked
  }
  // The callback's code stops the reduction after the row it was told of.
  Owned dst(10, 10, 3);
  EXPECT_EQ(Reduce(src.image, &dst.image, StopAtThird), 9);
  EXPECT_EQ(calls, 3);
}

}  // namespace

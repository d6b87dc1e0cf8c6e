// Filtered reduction: the kernel table, fitting, known answers, a
// floating-point referee, the raster-file path and argument refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "edit/pixels/pixels.h"
#include "edit/pixels/reduce_kernel.h"
#include "raster/ras.h"

namespace {

// An image whose planes live in a vector, with a chosen pixel step, filled
// by value(channel, x, y).
struct Owned {
  std::vector<uint8_t> bytes;
  PlanarImage image{};
  template <typename F>
  Owned(int32_t w, int32_t h, int32_t channels, int32_t step, F value)
      : bytes(static_cast<size_t>(w) * h * step * channels) {
    image = PlanarImage{1, channels, w, h, 0, step, w * step, {}};
    for (int32_t c = 0; c < channels; ++c) {
      image.planes[c] = bytes.data() + static_cast<size_t>(w) * h * step * c;
      for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
          At(c, x, y) = static_cast<uint8_t>(value(c, x, y));
    }
  }
  Owned(int32_t w, int32_t h, int32_t channels, int32_t step = 1, int fill = 0)
      : Owned(w, h, channels, step, [fill](int32_t, int32_t, int32_t) { return fill; }) {}
  uint8_t &At(int32_t c, int32_t x, int32_t y) {
    return image.planes[c][y * image.rowStride + x * image.pixelStep];
  }
};

uint32_t Noise(int32_t c, int32_t x, int32_t y) {
  return (static_cast<uint32_t>(c * 7919 + x * 104729 + y * 1299709) * 2654435761u >> 13) & 0xFF;
}

const PixRect kRect{0, 0, 0, 0};
const PixReduceOptions kOptions{};

int Reduce(const PlanarImage &src, PlanarImage *dst) {
  return ReduceImage(nullptr, &src, 1, dst, &kRect, &kOptions, nullptr);
}

TEST(ReduceKernel, PhasesSumExactlyAndMirror) {
  const int32_t pairs[][2] = {{2, 2},       {3, 2}, {10, 5},     {100, 50}, {6000, 1500},
                              {4000, 3000}, {7, 3}, {1000, 999}, {13, 2},   {6000, 4500}};
  for (const auto &pair : pairs) {
    ReduceKernel k;
    ASSERT_EQ(BuildReduceKernel(pair[0], pair[1], &k), 0);
    const float s = static_cast<float>(pair[0] - 1) / static_cast<float>(pair[1] - 1);
    // Taps cover every offset the tent reaches over the 16 phases, no more.
    EXPECT_EQ(-k.lead, static_cast<int32_t>(std::floor(-s)) + 1) << pair[0];
    EXPECT_LT(static_cast<float>(-k.lead + k.taps - 1) - 0.9375f, s) << pair[0];
    EXPECT_GE(static_cast<float>(-k.lead + k.taps) - 0.9375f, s) << pair[0];
    for (int32_t p = 0; p < kReducePhases; ++p) {
      int64_t sum = 0;
      for (int32_t t = 0; t < k.taps; ++t) {
        sum += k.Row(p)[t];
        // Phase p at offset j mirrors phase 16 - p at offset 1 - j (phase 0
        // mirrors itself about offset 0), exactly unless one side is the
        // middle tap that took the rounding excess of at most taps / 2.
        const int32_t q = p == 0 ? 0 : kReducePhases - p;
        const int32_t u = (p == 0 ? 0 : 1) - (t - k.lead) + k.lead;
        if (u < 0 || u >= k.taps) continue;
        const int32_t limit = (t == k.taps / 2 || u == k.taps / 2) ? k.taps / 2 : 0;
        EXPECT_LE(std::abs(k.Row(p)[t] - k.Row(q)[u]), limit) << pair[0] << " " << p << " " << t;
      }
      EXPECT_EQ(sum, kReduceOne) << pair[0] << " phase " << p;
    }
  }
}

TEST(ReduceKernel, HalvingWorkedByHandAndRefusals) {
  ReduceKernel k;
  ASSERT_EQ(BuildReduceKernel(3, 2, &k), 0);  // ratio 2: taps -1 .. 2
  ASSERT_EQ(k.taps, 4);
  EXPECT_EQ(k.lead, 1);
  EXPECT_EQ(std::vector<int32_t>(k.Row(0), k.Row(0) + 4),
            (std::vector<int32_t>{16384, 32768, 16384, 0}));
  EXPECT_EQ(std::vector<int32_t>(k.Row(8), k.Row(8) + 4),
            (std::vector<int32_t>{8192, 24576, 24576, 8192}));
  ASSERT_EQ(BuildReduceKernel(5, 5, &k), 0);  // ratio 1: linear interpolation
  EXPECT_EQ(k.taps, 2);
  EXPECT_EQ(k.Row(4)[0], 49152);
  EXPECT_EQ(BuildReduceKernel(5, 1, &k), -1);
  EXPECT_EQ(BuildReduceKernel(5, 6, &k), -1);
}

TEST(ReduceImage, FittedSizeKeepsAspectAndNeverEnlarges) {
  const int32_t cases[][6] = {
      // source, requested, fitted (-1: nothing left to filter into)
      {100, 50, 40, 40, 40, 20},       {50, 100, 40, 40, 20, 40},   {64, 48, 16, 16, 16, 12},
      {33, 17, 10, 10, 10, 5},         {30, 20, 40, 40, 30, 20},    {30, 20, 30, 20, 30, 20},
      {101, 1000, 101, 999, 101, 999}, {1000, 3, 500, 500, 500, 2}, {1, 100, 50, 50, -1, -1},
  };
  for (const auto &c : cases) {
    const Owned src(c[0], c[1], 1, 1, Noise);
    Owned dst(c[2], c[3], 1);
    ASSERT_EQ(Reduce(src.image, &dst.image), c[4] < 0 ? -1 : 0) << c[0] << "x" << c[1];
    EXPECT_EQ(dst.image.width, c[4] < 0 ? c[2] : c[4]) << c[0] << "x" << c[1];
    EXPECT_EQ(dst.image.height, c[4] < 0 ? c[3] : c[5]) << c[0] << "x" << c[1];
  }
}

// Sizes and pixel steps that reach every path: 4, 8, 16 and wide (> 16)
// horizontal kernels, strided source and destination, equal sizes.
struct Shape {
  int32_t sw, sh, dw, dh, srcStep, dstStep;
};
const Shape kShapes[] = {
    {160, 96, 40, 24, 1, 1}, {160, 96, 80, 48, 2, 1},   {160, 96, 120, 72, 1, 3},
    {97, 61, 31, 19, 1, 1},  {200, 20, 21, 21, 1, 1},   {40, 30, 40, 30, 1, 1},
    {45, 45, 44, 44, 3, 2},  {230, 25, 110, 110, 1, 1},
};

// The reducer's step and tent half-width for a fitted size.
std::pair<int64_t, float> StepOf(const Shape &s, const PlanarImage &fitted) {
  const int64_t sx = (int64_t{s.sw - 1} * 65536) / (fitted.width - 1);
  const int64_t sy = (int64_t{s.sh - 1} * 65536) / (fitted.height - 1);
  return {std::min(sx, sy), sx <= sy ? static_cast<float>(s.sw - 1) / (fitted.width - 1)
                                     : static_cast<float>(s.sh - 1) / (fitted.height - 1)};
}

// The tent in floating point: position rounded to the nearest sixteenth,
// every source sample under the tent weighted and normalised, indices clamped.
double Reference(Owned &src, int32_t c, int64_t px, int64_t py, float s) {
  const auto weights = [s](int64_t pos, int32_t n) {
    const double centre = std::floor(static_cast<double>(pos) / 4096.0 + 0.5) / 16.0;
    std::vector<std::pair<int32_t, double>> out;
    double sum = 0;
    for (int64_t u = static_cast<int64_t>(centre - s) - 1; u <= centre + s + 1; ++u) {
      const double t = std::fabs((static_cast<double>(u) - centre) / s);
      if (t >= 1) continue;
      out.push_back({static_cast<int32_t>(std::clamp<int64_t>(u, 0, n - 1)), 1 - t});
      sum += 1 - t;
    }
    for (auto &w : out)
      w.second /= sum;
    return out;
  };
  double value = 0;
  for (const auto &[y, wy] : weights(py, src.image.height))
    for (const auto &[x, wx] : weights(px, src.image.width))
      value += wy * wx * src.At(c, x, y);
  return value;
}

TEST(ReduceImage, MatchesFloatingPointTentWithinOne) {
  for (const Shape &s : kShapes) {
    Owned src(s.sw, s.sh, 2, s.srcStep, Noise);
    Owned dst(s.dw, s.dh, 2, s.dstStep);
    ASSERT_EQ(Reduce(src.image, &dst.image), 0);
    const auto [step, ratio] = StepOf(s, dst.image);
    for (int32_t c = 0; c < 2; ++c)
      for (int32_t y = 0; y < dst.image.height; ++y)
        for (int32_t x = 0; x < dst.image.width; ++x)
          ASSERT_NEAR(dst.At(c, x, y), Reference(src, c, x * step, y * step, ratio), 1.0)
              << s.sw << "x" << s.sh << " c" << c << " (" << x << "," << y << ")";
  }
}

// A flat picture stays exactly flat; a ramp x + y stays a ramp within 1 where
// the tent does not reach past the edges.
TEST(ReduceImage, FlatStaysFlatAndRampStaysRamp) {
  int rampChecked = 0;
  for (const Shape &s : kShapes) {
    for (int flat : {0, 1, 128, 254, 255, -1}) {
      const auto value = [flat](int32_t, int32_t x, int32_t y) { return flat < 0 ? x + y : flat; };
      if (flat < 0 && s.sw + s.sh > 256) continue;
      const Owned src(s.sw, s.sh, 3, s.srcStep, value);
      Owned dst(s.dw, s.dh, 3, s.dstStep);
      ASSERT_EQ(Reduce(src.image, &dst.image), 0);
      const auto [step, ratio] = StepOf(s, dst.image);
      const auto inside = [ratio](int64_t pos, int32_t n) {
        return pos / 65536.0 - ratio - 1 >= 0 && pos / 65536.0 + ratio + 1 <= n - 1;
      };
      for (int32_t c = 0; c < 3; ++c)
        for (int32_t y = 0; y < dst.image.height; ++y)
          for (int32_t x = 0; x < dst.image.width; ++x) {
            if (flat >= 0) {
              ASSERT_EQ(dst.At(c, x, y), flat) << s.sw << " (" << x << "," << y << ")";
            } else if (inside(x * step, s.sw) && inside(y * step, s.sh)) {
              ++rampChecked;
              ASSERT_NEAR(dst.At(c, x, y), (x + y) * step / 65536.0, 1.0) << s.sw << " " << x;
            }
          }
    }
  }
  EXPECT_GT(rampChecked, 500);
}

TEST(ReduceImage, OpenRasterFileGivesTheInMemoryResult) {
  const std::string path = testing::TempDir() + "reduce_source.bmp";
  const Owned src(53, 37, 3, 1, Noise);
  RasDesc desc{};
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 53, 37, 3, RasModelRgb, -1.0f), 0);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc), 0);
  for (uint32_t y = 0; y < 37; ++y) {
    RasSl sl{53, 3, {}, {}};
    for (int32_t c = 0; c < 3; ++c)
      sl.plane8[c] = src.image.planes[c] + y * 53;
    ASSERT_EQ(RasWriteSl(&desc, y, &sl), 0);
  }
  ASSERT_EQ(RasClose(&desc), 0);
  for (const auto &size : {std::pair{20, 14}, std::pair{40, 40}, std::pair{53, 37}}) {
    RasDesc file{};
    ASSERT_EQ(RasGetInfo(path.c_str(), &file), 0);
    ASSERT_EQ(RasOpen(path.c_str(), 'r', &file), 0);
    Owned fromFile(size.first, size.second, 3), fromMemory(size.first, size.second, 3);
    EXPECT_EQ(ReduceImage(&file, nullptr, 0, &fromFile.image, &kRect, &kOptions, nullptr), 0);
    EXPECT_EQ(RasClose(&file), 0);
    ASSERT_EQ(Reduce(src.image, &fromMemory.image), 0);
    EXPECT_EQ(fromFile.image.width * 100 + fromFile.image.height,
              fromMemory.image.width * 100 + fromMemory.image.height);
    EXPECT_EQ(fromFile.bytes, fromMemory.bytes);
  }
  std::remove(path.c_str());
}

int calls = 0;
int StopAtThird(float fraction) {
  EXPECT_FLOAT_EQ(fraction, static_cast<float>(++calls) / 10.0f);
  return calls == 3 ? 9 : 0;
}

TEST(ReduceImage, RefusesBadArgumentsWritingNothing) {
  const Owned src(40, 40, 3, 1, Noise);
  RasDesc closed{};
  enum {
    kMode2,
    kModeNeg,
    kBoth,
    kNeither,
    kNoDst,
    kNoRect,
    kNoOpts,
    kW1,
    kH1,
    kShared,
    kCh,
    kType
  };
  for (int f = kMode2; f <= kType; ++f) {
    Owned dst(10, 10, f == kCh ? 2 : 3, 1, 0xAB);
    dst.image.width = f == kW1 ? 1 : 10;
    dst.image.height = f == kH1 ? 1 : 10;
    dst.image.sampleType = f == kType ? 2 : 1;
    if (f == kShared) dst.image.planes[1] = src.image.planes[2];
    EXPECT_EQ(ReduceImage(f == kBoth ? &closed : nullptr, f == kNeither ? nullptr : &src.image,
                          f == kMode2     ? 2
                          : f == kModeNeg ? -1
                                          : 1,
                          f == kNoDst ? nullptr : &dst.image, f == kNoRect ? nullptr : &kRect,
                          f == kNoOpts ? nullptr : &kOptions, nullptr),
              -1)
        << f;
    EXPECT_EQ(dst.bytes, std::vector<uint8_t>(dst.bytes.size(), 0xAB)) << f;
    EXPECT_EQ(dst.image.width * dst.image.height, f == kW1 || f == kH1 ? 10 : 100) << f;
  }
  // The callback's code stops the reduction after the row it was told of.
  Owned dst(10, 10, 3);
  EXPECT_EQ(ReduceImage(nullptr, &src.image, 1, &dst.image, &kRect, &kOptions, StopAtThird), 9);
  EXPECT_EQ(calls, 3);
}

}  // namespace

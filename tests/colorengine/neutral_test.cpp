// Neutral clicks against an independent model of a white-balance cast: an
// sRGB test card (a grey wedge and everyday colours) whose linear light is
// scaled per channel, as a wrong camera white balance does, then corrected by
// clicking greys on it. Colour is judged in CIE L*a*b* under D65, computed
// here from the sRGB definition and not through the engine's own arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "colorengine/cc.h"
#include "colorengine/whitebalance.h"
#include "colorengine/work.h"
#include "tests/colorengine/build_helpers.h"

namespace {

using cctest::Apply;
using cctest::Built;
using cctest::Params;
using cctest::Planar;
using Vec = std::array<double, 3>;

double Decode(double e) {
  return e <= 0.04045 ? e / 12.92 : std::pow((e + 0.055) / 1.055, 2.4);
}
double Encode(double v) {
  return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}
double F(double t) {
  return t > 216.0 / 24389.0 ? std::cbrt(t) : (24389.0 / 27.0 * t + 16.0) / 116.0;
}
double FInverse(double f) {
  return f * f * f > 216.0 / 24389.0 ? f * f * f : (116.0 * f - 16.0) * 27.0 / 24389.0;
}

constexpr double kToXyz[9] = {0.4124, 0.3576, 0.1805, 0.2126, 0.7152,
                              0.0722, 0.0193, 0.1192, 0.9505};
constexpr Vec kWhite = {0.95047, 1.0, 1.08883};

Vec LabOfLinear(const Vec &rgb) {
  Vec f;
  for (int i = 0; i < 3; ++i)
    f[i] = F((kToXyz[3 * i] * rgb[0] + kToXyz[3 * i + 1] * rgb[1] + kToXyz[3 * i + 2] * rgb[2]) /
             kWhite[i]);
  return {116.0 * f[1] - 16.0, 500.0 * (f[0] - f[1]), 200.0 * (f[1] - f[2])};
}

// The card: greys of L* 10, 20 .. 90, then everyday colours (skins, sky,
// leaves, brick, denim, an orange, a red, a yellow-green, a violet), each a
// flat 8 x 8 patch in one row. Below them a cube of colours at every 17th
// level, for the check that a photo with no cast is left alone.
constexpr int kGreys = 9, kPatches = 19, kSide = 8;
constexpr Vec kEveryday[kPatches - kGreys] = {
    {115, 82, 68}, {194, 150, 130}, {98, 122, 157}, {87, 108, 67},  {150, 80, 60},
    {60, 80, 120}, {214, 126, 44},  {193, 70, 80},  {157, 188, 64}, {94, 60, 108}};

Vec CardLinear(int patch) {
  if (patch < kGreys) {
    const double y = FInverse((10.0 * (patch + 1) + 16.0) / 116.0);
    return {y, y, y};
  }
  const Vec &rgb = kEveryday[patch - kGreys];
  return {Decode(rgb[0] / 255.0), Decode(rgb[1] / 255.0), Decode(rgb[2] / 255.0)};
}

// The card as photographed with per-channel gains in linear light.
Planar Card(const Vec &gain) {
  Planar photo(PlanarCreate(kPatches * kSide, kSide + 32, 3));
  auto put = [&](int x, int y, const Vec &linear) {
    for (int c = 0; c < 3; ++c)
      photo->planes[c][y * photo->rowStride + x] =
          uint8_t(std::lround(255.0 * Encode(std::clamp(linear[c] * gain[c], 0.0, 1.0))));
  };
  for (int patch = 0; patch < kPatches; ++patch) {
    const Vec linear = CardLinear(patch);
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x)
        put(patch * kSide + x, y, linear);
  }
  for (int i = 0; i < kPatches * kSide * 32; ++i)
    put(i % (kPatches * kSide), kSide + i / (kPatches * kSide),
        {Decode((i % 16) * 17 / 255.0), Decode((i / 16 % 16) * 17 / 255.0),
         Decode((i / 256 % 16) * 17 / 255.0)});
  return photo;
}

Vec PatchLab(const PlanarImage &p, int patch) {
  Vec rgb;
  for (int c = 0; c < 3; ++c)
    rgb[c] = Decode(p.planes[c][2 * p.rowStride + patch * kSide + 2] / 255.0);
  return LabOfLinear(rgb);
}

struct Figures {
  double worstGreyChroma, meanDeltaE;
};

Figures Measure(const PlanarImage &p, const PlanarImage &truth) {
  Figures f{0.0, 0.0};
  for (int patch = 0; patch < kPatches; ++patch) {
    const Vec lab = PatchLab(p, patch), want = PatchLab(truth, patch);
    if (patch < kGreys)
      f.worstGreyChroma = std::max(f.worstGreyChroma, std::hypot(lab[1], lab[2]));
    else
      f.meanDeltaE += std::sqrt(std::pow(lab[0] - want[0], 2) + std::pow(lab[1] - want[1], 2) +
                                std::pow(lab[2] - want[2], 2)) /
                      (kPatches - kGreys);
  }
  return f;
}

// The photo after neutral clicks on the greys of the given lightnesses.
Planar Balanced(const PlanarImage &photo, std::initializer_list<int> lightnesses) {
  CcParams params = Params({});
  for (const int l : lightnesses)
    params.points[params.pointCount++] = {CcKindNeutral, (l / 10 - 1) * kSide + 4, 4};
  Built built(&params, &photo);
  EXPECT_EQ(built.code, 0);
  return Apply(built.t, photo);
}

// Gains that keep a grey's luminance, so that a cast changes colour, not exposure.
Vec Cast(Vec gain) {
  const double y = 0.2126 * gain[0] + 0.7152 * gain[1] + 0.0722 * gain[2];
  return {gain[0] / y, gain[1] / y, gain[2] / y};
}

const struct {
  const char *name;
  Vec gain;
} kCasts[] = {{"warm", Cast({1.3, 1.0, 0.65})},
              {"shade", Cast({0.85, 1.0, 1.25})},
              {"fluorescent", Cast({0.85, 1.15, 0.85})}};

TEST(CcNeutral, OneClickOnAnyGreyBalancesTheWholeCard) {
  const Planar truth = Card({1, 1, 1});
  for (const auto &cast : kCasts) {
    const Planar photo = Card(cast.gain);
    const Figures before = Measure(*photo, *truth);
    ASSERT_GT(before.worstGreyChroma, 6.0) << cast.name;
    double worstSingle = 0.0, worstSingleDeltaE = 0.0;
    for (int l = 20; l <= 80; l += 10) {
      const Figures after = Measure(*Balanced(*photo, {l}), *truth);
      EXPECT_LE(after.worstGreyChroma, 3.0) << cast.name << " click on L* " << l;
      EXPECT_LE(after.meanDeltaE, 0.35 * before.meanDeltaE) << cast.name << " click on L* " << l;
      worstSingle = std::max(worstSingle, after.worstGreyChroma);
      worstSingleDeltaE = std::max(worstSingleDeltaE, after.meanDeltaE);
    }
    // Several clicks do as well as one; the slack is a stored level's
    // rounding in one patch (0.7 of chroma in a grey, 0.1 in the mean).
    for (const auto &clicks : {std::initializer_list<int>{20, 50, 80}, {30, 70}, {40, 60, 90}}) {
      const Figures after = Measure(*Balanced(*photo, clicks), *truth);
      EXPECT_LE(after.worstGreyChroma, std::min(3.0, worstSingle + 0.7)) << cast.name;
      EXPECT_LE(after.meanDeltaE, worstSingleDeltaE + 0.1) << cast.name;
    }
  }
}

TEST(CcNeutral, AClickOnAPhotoWithoutCastChangesNothing) {
  const Planar photo = Card({1, 1, 1});
  for (const auto &clicks : {std::initializer_list<int>{20}, {50}, {80}, {30, 60, 90}}) {
    const Planar out = Balanced(*photo, clicks);
    int worst = 0;
    for (int c = 0; c < 3; ++c)
      for (int i = 0; i < photo->rowStride * photo->height; ++i)
        worst = std::max(worst, std::abs(out->planes[c][i] - photo->planes[c][i]));
    EXPECT_LE(worst, 1) << *clicks.begin();
  }
}

cc::WorkRecord Curves(const std::vector<cc::NeutralSample> &samples, float gamma = 2.2f) {
  cc::WorkRecord work;
  cc::FillWorkRecord(Params({}), &work);
  work.gamma = gamma;
  cc::EstimateWhiteBalance(samples.data(), int(samples.size()), &work);
  return work;
}

// The tone path's table read as the engine reads it, between its 100 points.
double Lookup(const float *curve, double t) {
  const double at = t * (cc::kCurvePoints - 1);
  const int i = std::min(int(at), cc::kCurvePoints - 2);
  return curve[i] + (curve[i + 1] - curve[i]) * (at - i);
}

TEST(CcNeutral, CurvesPassThroughTheClicksAndKeepTheirGains) {
  EXPECT_FALSE(Curves({}).haveCurves);
  // Channel 0 lifted, 1 lowered, 2 left alone, under a plain 1.8 power: below
  // the roll-off each is a straight line through black in the stored values.
  cc::WorkRecord power = Curves({{{0.4, 0.5, 0.3}, {0.5, 0.4, 0.3}}}, 1.8f);
  ASSERT_TRUE(power.haveCurves);
  for (int i = 0; i < 60; ++i) {
    const double t = i / 99.0;
    EXPECT_NEAR(power.curves[0][i], 1.25 * t, 1e-5) << i;
    EXPECT_NEAR(power.curves[1][i], 0.8 * t, 1e-5) << i;
    EXPECT_NEAR(power.curves[2][i], t, 1e-5) << i;
  }
  // sRGB: the gain holds in linear light at every level below the roll-off,
  // which then flattens into full scale instead of clipping.
  cc::WorkRecord srgb = Curves({{{0.3, 0.3, 0.3}, {0.36, 0.3, 0.3}}});
  const double gain = Decode(0.36) / Decode(0.3);
  for (int i = 1; i < 99; ++i) {
    const double linear = Decode(i / 99.0), out = Decode(srgb.curves[0][i]);
    if (gain * linear < 0.8) {
      EXPECT_NEAR(out / linear, gain, 2e-4 * gain) << i;
    }
    EXPECT_LT(srgb.curves[0][i], srgb.curves[0][i + 1]) << i;
  }
  EXPECT_EQ(srgb.curves[0][99], 1.0f);
  // Several clicks whose gains differ: the curve goes through each of them.
  const std::vector<cc::NeutralSample> three = {{{0.2, 0.2, 0.2}, {0.26, 0.2, 0.2}},
                                                {{0.5, 0.5, 0.5}, {0.58, 0.5, 0.5}},
                                                {{0.7, 0.7, 0.7}, {0.76, 0.7, 0.7}}};
  cc::WorkRecord through = Curves(three);
  for (const cc::NeutralSample &s : three)
    EXPECT_NEAR(Lookup(through.curves[0], s.present[0]), s.wanted[0], 2e-3) << s.present[0];
}

TEST(CcNeutral, ContradictingClicksNeverBendACurveBack) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> value(0.02, 0.98);
  for (int trial = 0; trial < 300; ++trial) {
    std::vector<cc::NeutralSample> samples(1 + trial % 7);
    for (cc::NeutralSample &s : samples)
      for (int c = 0; c < 3; ++c)
        s.present[c] = value(rng), s.wanted[c] = value(rng);
    const cc::WorkRecord work = Curves(samples, trial % 2 ? 2.2f : 2.0f);
    for (int c = 0; c < 3; ++c) {
      ASSERT_EQ(work.curves[c][0], 0.0f) << trial;
      for (int i = 1; i < cc::kCurvePoints; ++i) {
        ASSERT_GE(work.curves[c][i], work.curves[c][i - 1]) << trial << " " << c << " " << i;
        ASSERT_LE(work.curves[c][i], 1.0f) << trial;
      }
    }
  }
}

}  // namespace

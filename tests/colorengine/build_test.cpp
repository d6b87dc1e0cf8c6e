// Building a correction from clicks: parameters, the two paths (curves or
// grid), classification, the matrix limit, and what a person would see.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "colorengine/cc.h"
#include "colorengine/work.h"
#include "pixels/pixels.h"
#include "tests/colorengine/build_helpers.h"

namespace {

using cctest::Apply;
using cctest::Built;
using cctest::Params;
using cctest::Planar;

void Fill(PlanarImage *p, int x0, int y0, int x1, int y1, std::array<int, 3> rgb, int noise = 0,
          uint32_t seed = 1) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> jitter(-noise, noise);
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x)
      for (int c = 0; c < 3; ++c)
        p->planes[c][y * p->rowStride + x] =
            uint8_t(std::clamp(rgb[c] + (noise ? jitter(rng) : 0), 0, 255));
}

// The engine's own judging model, to make patches of a chosen L*a*b*.
struct Judge {
  cc::ColourModel model;
  Judge() {
    cc::WorkRecord work;
    cc::FillWorkRecord(Params({}), &work);
    CcArray *to = cc::CreateRgbToXyz(work.primaries, work.white);
    CcArray *from = cc::CreateXyzToRgb(work.primaries, work.white);
    EXPECT_EQ(cc::MakeColourModel(work, to, from, &model), 0);
    CcArrayFree(to);
    CcArrayFree(from);
  }
  std::array<int, 3> Rgb(double l, double chroma, double hue) const {
    const double h = hue * M_PI / 180.0, lab[3] = {l, chroma * std::cos(h), chroma * std::sin(h)};
    double linear[3];
    cc::LabToLinear(model, lab, linear);
    std::array<int, 3> rgb;
    for (int c = 0; c < 3; ++c)
      rgb[c] = int(std::lround(255.0 * std::pow(std::fmax(0.0, linear[c]), 1.0 / 2.2)));
    return rgb;
  }
  void ToLab(const PlanarImage &p, int x0, int y0, int x1, int y1, double lab[3]) const {
    double linear[3] = {0, 0, 0};
    for (int c = 0; c < 3; ++c) {
      for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
          linear[c] += p.planes[c][y * p.rowStride + x];
      linear[c] = std::pow(linear[c] / (double(x1 - x0) * (y1 - y0)) / 255.0, 2.2);
    }
    cc::LinearToLab(model, linear, lab);
  }
};

TEST(CcBuild, WhitePointsAndTargets) {
  CcParams p = Params({});
  CcToolTarget target;  // any tool beyond the first three gets the neutral target
  ASSERT_EQ(CcGetToolTarget(9, &target), 0);
  EXPECT_EQ(std::memcmp(&target, &p.targets[3], sizeof target), 0);
  // Daylight at 6500 K has x near 0.3128; temperatures below 4000 K are clamped.
  EXPECT_NEAR(p.space.white[0] / (p.space.white[0] + 1.0 + p.space.white[2]), 0.3128, 0.0002);
  float low[3], clamped[3];
  ASSERT_EQ(CcWhiteFromTemperature(1000.0, low), 0);
  ASSERT_EQ(CcWhiteFromTemperature(4000.0, clamped), 0);
  EXPECT_EQ(std::memcmp(low, clamped, sizeof low), 0);
}

TEST(CcBuild, NoPointsGiveIdentityCurves) {
  Planar photo(PlanarCreate(8, 8, 3));
  CcParams p = Params({});
  Built built(&p, photo.get());
  ASSERT_EQ(built.code, 0);
  const CcTransformContext &c = *built.t.context;
  EXPECT_EQ(c.gridFlag, 0);
  EXPECT_EQ(built.t.inChannels, 3);
  EXPECT_EQ(built.t.outSpace, 1);
  for (int k = 0; k < 3; ++k) {
    const auto *curve = static_cast<const uint8_t *>(c.in[k].table);
    ASSERT_NE(curve, nullptr);
    for (int i = 0; i < 256; ++i)
      ASSERT_EQ(curve[i], i);
  }
  // More than the record's 50 points is refused before anything is read.
  p.pointCount = 51;
  CcTransform untouched{};
  EXPECT_EQ(CcBuildTransform(&p, photo.get(), &untouched), -1);
  EXPECT_EQ(untouched.context, nullptr);
}

TEST(CcBuild, ClicksUseTheGridAndMoveColoursTowardTheirTargets) {
  Judge judge;
  struct Case {
    int32_t kind;
    double lightness, chroma, hue;  // the patch as photographed
    double from, to;                // the patch's hue must end strictly between these
  };
  const Case cases[] = {
      {CcKindSky, 55, 35, 300, 254, 295},    // purple sky; target about 254 at L 55
      {CcKindSkin, 60, 30, 15, 20, 45},      // pink skin; target 45
      {CcKindFoliage, 64, 45, 95, 97, 113},  // yellowed grass; target 113 at L 64
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.kind);
    Planar photo(PlanarCreate(40, 30, 3));
    Fill(photo.get(), 0, 0, 40, 30, judge.Rgb(k.lightness, k.chroma, k.hue), 3);
    CcParams p = Params({{k.kind, 20, 15}});
    Built built(&p, photo.get());
    ASSERT_EQ(built.code, 0);
    const CcTransformContext &c = *built.t.context;
    ASSERT_EQ(c.gridFlag, 1);
    EXPECT_EQ(c.gridNodes, 19683u);
    static const int kNodes[27] = {0,   10,  20,  29,  39,  49,  59,  69,  78,
                                   88,  98,  108, 118, 128, 137, 147, 157, 167,
                                   177, 186, 196, 206, 216, 226, 235, 245, 255};
    for (int a = 0; a < 3; ++a) {
      ASSERT_EQ(c.in[a].nodeCount, 27);
      for (int n = 0; n < 27; ++n)
        EXPECT_EQ(c.in[a].nodes[n], kNodes[n]) << n;
    }
    Planar out = Apply(built.t, *photo);
    double lab[3];
    judge.ToLab(*out, 0, 0, 40, 30, lab);
    EXPECT_GT(cc::HueOf(lab), k.from);
    EXPECT_LT(cc::HueOf(lab), k.to);
  }
}

TEST(CcBuild, ClassificationAndItsRecord) {
  Judge judge;
  Planar photo(PlanarCreate(60, 20, 3));
  const std::array<int, 3> paleGrey = judge.Rgb(90, 10, 30), cool = judge.Rgb(46, 10, 210);
  Fill(photo.get(), 0, 0, 10, 20, paleGrey);
  Fill(photo.get(), 10, 0, 20, 20, judge.Rgb(50, 10, 30));
  // A chequer of lighter warm and darker cool pixels: the mean is a warmish
  // grey, but its lighter and darker halves disagree about the hue.
  Fill(photo.get(), 20, 0, 30, 20, judge.Rgb(54, 30, 30));
  for (int y = 0; y < 20; ++y)
    for (int x = 20 + y % 2; x < 30; x += 2)
      Fill(photo.get(), x, y, x + 1, y + 1, cool);
  Fill(photo.get(), 30, 0, 40, 20, judge.Rgb(45, 38, 125));
  CcParams p = Params({{-1, 5, 10},
                       {-1, 15, 10},
                       {-1, 25, 10},
                       {-1, 35, 10},
                       {-1, 60, 10},
                       {CcKindFoliage, 5, 10}});
  Built built(&p, photo.get());
  ASSERT_EQ(built.code, 0);
  EXPECT_EQ(p.points[0].kind, CcKindNeutral);  // L 90, C 10: light and nearly grey
  EXPECT_EQ(p.points[1].kind, CcKindSkin);     // L 50, C 10: nearest grey, but one hue
  EXPECT_EQ(p.points[2].kind, CcKindNeutral);  // nearest grey, hues all over
  EXPECT_EQ(p.points[3].kind, CcKindFoliage);
  EXPECT_EQ(p.points[4].kind, CcKindUnclassified);  // outside the photo, kept
  EXPECT_EQ(p.points[4].x, 60);
  EXPECT_EQ(p.points[5].kind, CcKindFoliage);  // given kinds are not judged again
  // A kind once found is kept when the photo under the point changes.
  Fill(photo.get(), 10, 0, 20, 20, paleGrey);
  Built again(&p, photo.get());
  EXPECT_EQ(p.points[1].kind, CcKindSkin);
  // A refused description leaves open points open and still builds.
  CcParams q = Params({{-1, 1, 1}});
  PlanarImage bad = *photo;
  bad.sampleType = 2;
  Built refused(&q, &bad);
  EXPECT_EQ(refused.code, 0);
  EXPECT_EQ(q.points[0].kind, -1);
}

TEST(CcBuild, LimitingBlendsTheWholeMatrixByOneShare) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> spread(-0.4, 0.4);
  for (int trial = 0; trial < 200; ++trial) {
    double m[9], limited[9];
    for (int i = 0; i < 9; ++i)
      m[i] = limited[i] = (i % 4 == 0 ? 1.0 : 0.0) + spread(rng);
    cc::LimitMatrix(limited);
    double share = -1.0, edge = 1.0;
    for (int i = 0; i < 9; ++i) {
      const double identity = i % 4 == 0 ? 1.0 : 0.0;
      EXPECT_LE(std::fabs(limited[i] - identity), 0.1 + 1e-12);
      edge = std::fmin(edge, 0.1 - std::fabs(limited[i] - identity));
      // Every element keeps the same fraction of its distance from the identity.
      if (std::fabs(m[i] - identity) > 1e-6) {
        const double kept = (limited[i] - identity) / (m[i] - identity);
        if (share < 0) share = kept;
        EXPECT_NEAR(kept, share, 1e-9);
      }
    }
    // A limited matrix has its worst element on the bound.
    EXPECT_TRUE(share >= 1.0 - 1e-9 || std::fabs(edge) < 1e-12) << share << " " << edge;
  }
}

// A photo with a warm cast over everything, a grey card among other colours.
Planar CastPhoto() {
  Planar photo(PlanarCreate(64, 48, 3));
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x)
      Fill(photo.get(), x, y, x + 1, y + 1, {40 + x * 3 + 25, 60 + y * 3 + 5, 200 - x * 2 - 25});
  Fill(photo.get(), 20, 16, 36, 32, {128 + 25, 128 + 5, 128 - 25}, 2);
  return photo;
}

TEST(CcBuild, ClicksAddedOneByOneEqualOneBuild) {
  Judge judge;
  Planar photo = CastPhoto();
  Fill(photo.get(), 0, 0, 12, 12, judge.Rgb(60, 30, 20), 3, 9);  // skin gone pink
  CcParams stepwise = Params({{CcKindSkin, 5, 5}});
  { Built first(&stepwise, photo.get()); }
  stepwise.points[stepwise.pointCount++] = {CcKindNeutral, 28, 24};
  stepwise.points[stepwise.pointCount++] = {-1, 30, 20};
  Built second(&stepwise, photo.get());
  CcParams once = Params({{CcKindSkin, 5, 5}, {CcKindNeutral, 28, 24}, {-1, 30, 20}});
  Built both(&once, photo.get());
  ASSERT_EQ(second.code, 0);
  ASSERT_EQ(both.code, 0);
  EXPECT_EQ(stepwise.points[2].kind, once.points[2].kind);
  Planar a = Apply(second.t, *photo), b = Apply(both.t, *photo);
  EXPECT_EQ(std::memcmp(a->planes[0], b->planes[0], 64 * 48 * 3), 0);
}

}  // namespace

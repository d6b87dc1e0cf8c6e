// The transform context: creation checks and their order, the fixed-point
// pairs, default output curves, the curve-only rows and the handle calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "colorengine/cc.h"

namespace {

struct Created {
  CcTransformContext *context = nullptr;
  int32_t code;
  Created(int32_t in, int32_t out, int32_t inSpace, int32_t outSpace, int32_t grid, int32_t mode,
          int32_t node)
      : code(CcCreateContext(&context, in, out, inSpace, outSpace, grid, mode, node)) {}
  ~Created() { CcFreeContext(context); }
};

TEST(CcContext, CreationChecksReturnTheFirstFailure) {
  struct Case {
    int32_t in, out, inSpace, outSpace, grid, mode, node, code;
  };
  const Case cases[] = {
      {3, 3, 1, 1, 2, 2, 1, -1},  // grid flag 2
      {3, 3, 1, 1, 1, 3, 1, -1},  // mode 3
      {3, 3, 1, 1, 0, 0, 1, -9},  // mode 0 needs a grid
      {3, 4, 1, 4, 0, 0, 1, -1},  // curve-only with different sides is checked first
      {3, 3, 1, 1, 1, 0, 2, -1},  // mode 0 takes 8-bit nodes only
      {3, 3, 7, 1, 1, 0, 2, -9},  // space 7 in mode 0, before the node size
      {3, 3, 7, 1, 1, 1, 1, 0},   // ... allowed in mode 1
      {1, 3, 5, 1, 1, 1, 1, -9},  // grey in mode 1
      {3, 3, 1, 1, 1, 2, 3, -1},  // mode 2 node size 3
      {3, 3, 4, 1, 1, 2, 1, -1},  // space 4 with three channels
      {3, 3, 2, 2, 0, 2, 1, -1},  // unlisted space
      {3, 3, 1, 9, 1, 2, 1, -1}, {4, 3, 4, 8, 1, 2, 2, 0}, {1, 1, 5, 5, 0, 2, 1, 0},
  };
  for (const Case &c : cases) {
    Created made(c.in, c.out, c.inSpace, c.outSpace, c.grid, c.mode, c.node);
    EXPECT_EQ(made.code, c.code) << c.in << " " << c.inSpace << " mode " << c.mode;
    EXPECT_EQ(made.context != nullptr, c.code == 0);
  }
  EXPECT_EQ(CcCreateContext(nullptr, 3, 3, 1, 1, 1, 2, 1), -1);
}

TEST(CcContext, FixedPointPairsFollowNodeAndOutputSize) {
  for (int32_t node = 1; node <= 2; ++node) {
    Created made(3, 3, 1, 1, 1, 2, node);
    ASSERT_EQ(made.code, 0);
    CcTransformContext &c = *made.context;
    // Creation sets the pair from the node size alone.
    EXPECT_EQ(c.shift, node == 1 ? 15u : 23u);
    EXPECT_EQ(c.rounding, node == 1 ? 16384u : 4194304u);
    const uint32_t expected[2][2][2] = {{{15, 16384}, {7, 127}}, {{23, 0}, {15, 16384}}};
    for (int32_t out = 1; out <= 2; ++out) {
      ASSERT_EQ(CcSetSampleSize(&c, 1, out), 0);
      EXPECT_EQ(c.shift, expected[node - 1][out - 1][0]);
      EXPECT_EQ(c.rounding, expected[node - 1][out - 1][1]);
      EXPECT_EQ(c.out[2].high, out == 1 ? 255 : 65535);
    }
    // Refusals change nothing.
    EXPECT_EQ(CcSetSampleSize(&c, 1, 3), -1);
    EXPECT_EQ(CcSetSampleSize(&c, 2, 1), -1);
    EXPECT_EQ(c.outSampleSize, 2);
    EXPECT_EQ(c.shift, node == 1 ? 7u : 15u);
  }
  EXPECT_EQ(CcSetSampleSize(nullptr, 0, 1), -1);
}

TEST(CcContext, DefaultOutputCurves) {
  Created made(3, 3, 1, 1, 1, 2, 1);
  ASSERT_EQ(made.code, 0);
  const auto *ramp = static_cast<const uint8_t *>(made.context->out[0].curve);
  ASSERT_NE(ramp, nullptr);
  for (int i = 0; i < 256; ++i)
    EXPECT_EQ(ramp[i], i);
  // A narrower 8-bit range: (i (high - low) + low 255 + 127) / 255.
  ASSERT_EQ(CcSetChannelRange(made.context, 1, 1, 16, 235), 0);
  const auto *narrow = static_cast<const uint8_t *>(made.context->out[1].curve);
  EXPECT_EQ(narrow[0], 16);
  EXPECT_EQ(narrow[255], 235);
  EXPECT_EQ(narrow[128], (128 * 219 + 16 * 255 + 127) / 255);
  // Full 16-bit range: no table at all; a narrower one gets a table.
  ASSERT_EQ(CcSetSampleSize(made.context, 1, 2), 0);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(made.context->out[k].curve, nullptr);
  ASSERT_EQ(CcSetChannelRange(made.context, 1, 0, 1000, 2000), 0);
  const auto *wide = static_cast<const uint16_t *>(made.context->out[0].curve);
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(wide[0], 1000);
  EXPECT_EQ(wide[65535], 2000);
  EXPECT_EQ(CcSetChannelRange(made.context, 1, 0, 10, 5), -1);
  // Curve-only transforms get no output curves.
  Created curves(3, 3, 1, 1, 0, 2, 1);
  EXPECT_EQ(curves.context->out[0].curve, nullptr);
}

// A curve-only transform whose curve k maps 8-bit code i to f(k, i) at 16-bit scale.
template <class Curve>
CcTransform Curves(int32_t channels, int32_t node, int32_t inSize, int32_t outSize, Curve f) {
  CcTransformContext *c = nullptr;
  const int32_t space = channels == 1 ? 5 : 1;
  EXPECT_EQ(CcCreateContext(&c, channels, channels, space, space, 0, 2, node), 0);
  EXPECT_EQ(CcSetSampleSize(c, 0, inSize), 0);
  EXPECT_EQ(CcSetSampleSize(c, 1, outSize), 0);
  for (int32_t k = 0; k < channels; ++k) {
    uint16_t points[256];
    for (int i = 0; i < 256; ++i)
      points[i] = f(k, i);
    EXPECT_EQ(CcSetCurve(c, k, points), 0);
  }
  CcTransform t{};
  CcFillTransform(&t, c);
  return t;
}

TEST(CcApply, CurveRowsOnInterleavedAndPlanarRows) {
  CcTransform t = Curves(3, 1, 1, 1, [](int k, int i) { return uint16_t((255 - i) * 257 >> k); });
  // Interleaved source (stride 3) into planar destination (stride 1).
  uint8_t src[6] = {0, 10, 20, 255, 128, 1}, r[2] = {}, g[2] = {}, b[2] = {};
  uint8_t untouched[3] = {7, 7, 7};
  CcPixelRow from{{src, src + 1, src + 2}}, to{{r, g, b}};
  CcPixelRow none{{untouched, untouched + 1, untouched + 2}};
  ASSERT_EQ(CcApplySl(&t, 2, &from, 3, &to, 1), 0);
  EXPECT_EQ(r[0], 255);
  EXPECT_EQ(g[0], 122);  // 245 * 257 >> 1 = 31482 = 122.498 x 257, rounded
  EXPECT_EQ(b[1], 63);   // 254 * 257 >> 2 = 16319 = 63.498 x 257
  EXPECT_EQ(r[1], 0);
  EXPECT_EQ(CcApplySl(&t, 0, &from, 3, &none, 1), 0);  // zero pixels: nothing written
  EXPECT_EQ(untouched[0], 7);
  // 16-bit output: the same curve at full precision.
  ASSERT_EQ(CcSetTransformSampleSize(&t, 1, 2), 0);
  EXPECT_EQ(t.outSampleSize, 2);
  uint16_t wide[3][2];
  CcPixelRow to16{{reinterpret_cast<uint8_t *>(wide[0]), reinterpret_cast<uint8_t *>(wide[1]),
                   reinterpret_cast<uint8_t *>(wide[2])}};
  ASSERT_EQ(CcApplySl(&t, 2, &from, 3, &to16, 2), 0);
  EXPECT_EQ(wide[0][0], 65535);
  EXPECT_EQ(wide[1][0], (245 * 257) >> 1);
  EXPECT_EQ(CcFreeTransform(&t), 0);
  EXPECT_NE(t.context, nullptr);  // freeing works on a copy of the pointer
}

TEST(CcApply, SixteenBitCurvesForBothNodeSizes) {
  // x -> 65535 - x: exact with the full table (node size 2) and, being a
  // straight line, exact to a code with the 257-point table (node size 1).
  for (int32_t node = 1; node <= 2; ++node) {
    CcTransform t = Curves(1, node, 2, 2, [](int, int i) { return uint16_t(65535 - i * 257); });
    std::vector<uint16_t> in(65536), out(65536);
    std::iota(in.begin(), in.end(), uint16_t(0));
    CcPixelRow from{{reinterpret_cast<uint8_t *>(in.data())}},
        to{{reinterpret_cast<uint8_t *>(out.data())}};
    ASSERT_EQ(CcApplySl(&t, 65536, &from, 2, &to, 2), 0);
    int worst = 0;
    for (int x = 0; x < 65536; ++x)
      worst = std::max(worst, std::abs(int(out[x]) - (65535 - x)));
    EXPECT_LE(worst, node == 2 ? 0 : 1) << "node size " << node;
    EXPECT_EQ(CcFreeTransform(&t), 0);
  }
}

TEST(CcApply, OneInputGridFeedsEveryOutputCurve) {
  // Grey in, RGB out: the input curve gives an index, each output channel
  // reads its own output curve there.
  CcTransformContext *c = nullptr;
  ASSERT_EQ(CcCreateContext(&c, 1, 3, 5, 1, 1, 2, 1), 0);
  const uint16_t nodes[2] = {0, 255};
  EXPECT_EQ(CcSetGridAxis(c, 0, 2, nodes), 0);  // no axis here: only the table size
  EXPECT_EQ(c->in[0].nodeCount, 256);
  EXPECT_EQ(c->in[0].table, nullptr);
  uint16_t points[256];
  for (int i = 0; i < 256; ++i)
    points[i] = uint16_t((255 - i) * 257);  // a negative
  ASSERT_EQ(CcSetCurve(c, 0, points), 0);
  EXPECT_EQ(CcSetCurve(c, 1, points), -1);  // one input, one curve
  ASSERT_EQ(CcSetChannelRange(c, 1, 2, 100, 200), 0);
  CcTransform t{};
  CcFillTransform(&t, c);
  uint8_t grey[3] = {0, 255, 51};
  std::array<uint8_t, 9> rgb{};
  CcPixelRow from{{grey}}, to{{&rgb[0], &rgb[1], &rgb[2]}};
  ASSERT_EQ(CcApplySl(&t, 3, &from, 1, &to, 3), 0);
  EXPECT_EQ(rgb, (std::array<uint8_t, 9>{255, 255, 200, 0, 0, 100, 204, 204,
                                         (204 * 100 + 100 * 255 + 127) / 255}));
  EXPECT_EQ(CcFreeTransform(&t), 0);
}

TEST(CcApply, NullsAndUndescribedTransforms) {
  CcTransform empty{};
  uint8_t px[3] = {};
  CcPixelRow row{{px, px + 1, px + 2, nullptr}};
  EXPECT_EQ(CcApplySl(nullptr, 1, &row, 1, &row, 1), -1);
  EXPECT_EQ(CcApplySl(&empty, 1, &row, 1, &row, 1), -1);
  EXPECT_EQ(CcFreeTransform(&empty), 0);
  EXPECT_EQ(CcFreeTransform(nullptr), -1);
  // A curve-only transform whose curves were never given, and a grid
  // transform without nodes, refuse rows instead of reading nothing.
  for (int32_t grid = 0; grid <= 1; ++grid) {
    CcTransformContext *c = nullptr;
    ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, grid, 2, 1), 0);
    CcTransform t{};
    CcFillTransform(&t, c);
    EXPECT_EQ(CcApplySl(&t, 1, &row, 1, &row, 1), -2);
    EXPECT_EQ(CcFreeTransform(&t), 0);
  }
}

}  // namespace

// Grid axes and the interpolators, checked against an independent
// floating-point model of simplex interpolation on random grids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "colorengine/apply.h"
#include "colorengine/cc.h"
#include "colorengine/rows.h"
#include "platform/workers.h"

namespace {

// Several worker threads even on a one-core machine, so that the split paths
// run; a KORVEL_THREADS given from outside is kept.
const bool kThreadsSet = setenv("KORVEL_THREADS", "4", 0) == 0;

// Simplex interpolation in real numbers: walk from the cell's base node along
// the axes in decreasing order of fraction (lower axis first on ties).
struct Reference {
  int inputs = 0;
  std::vector<std::vector<double>> positions;  // per axis, on the input's own scale
  std::vector<uint16_t> nodes;                 // three values per node, axis 0 fastest

  std::vector<double> At(const std::vector<double> &x) const {
    std::vector<int> cell(inputs), order(inputs);
    std::vector<double> f(inputs), out(3, 0.0);
    for (int a = 0; a < inputs; ++a) {
      const auto &p = positions[a];
      int k = 0;
      while (k + 2 < int(p.size()) && x[a] >= p[k + 1])
        ++k;
      cell[a] = k, order[a] = a;
      f[a] = (x[a] - p[k]) / (p[k + 1] - p[k]);
    }
    std::stable_sort(order.begin(), order.end(), [&](int i, int j) { return f[i] > f[j]; });
    double above = 1.0;
    for (int step = 0; step <= inputs; ++step) {
      const double w = step < inputs ? above - f[order[step]] : above;
      size_t index = 0, scale = 1;
      for (int a = 0; a < inputs; scale *= positions[a++].size())
        index += scale * size_t(cell[a]);
      for (int k = 0; k < 3; ++k)
        out[k] += w * nodes[index * 3 + k];
      if (step < inputs) above = f[order[step]], ++cell[order[step]];
    }
    return out;
  }
};

struct Member {
  int node, in, out;
};

// A random mode-2 grid for a member, and its reference. Node values are random
// for 8-bit output, smooth for 16-bit output: a 15-bit fraction is within
// 1/65536 of the true one, so each axis adds up to (neighbour step) / 65536
// codes of error, and only smooth grids can be held to one 16-bit code.
// `nodes` fixes the node count of every axis (0: 2 to 9, chosen at random).
CcTransformContext *RandomGrid(const Member &m, int inputs, std::mt19937 &rng, Reference *ref,
                               int nodes = 0) {
  CcTransformContext *c = nullptr;
  EXPECT_EQ(CcCreateContext(&c, inputs, 3, inputs == 3 ? 1 : 4, 1, 1, 2, m.node), 0);
  EXPECT_EQ(CcSetSampleSize(c, 0, m.in), 0);
  EXPECT_EQ(CcSetSampleSize(c, 1, m.out), 0);
  const int top = m.in == 1 ? 255 : 65535, nodeTop = m.node == 1 ? 255 : 65535;
  const int most = m.node == 1 ? 15 : 4000;  // 15 x 256 or 4000 output codes per step
  std::uniform_int_distribution<int> any(0, nodeTop), step(-most, most);
  ref->inputs = inputs;
  ref->positions.assign(inputs, {});
  std::vector<std::vector<int>> walk(inputs * 3);
  size_t count = 1;
  for (int a = 0; a < inputs; ++a) {
    const int n = nodes ? nodes : std::uniform_int_distribution<int>(2, inputs == 3 ? 9 : 5)(rng);
    std::vector<uint16_t> nodes = {0, uint16_t(top)};
    while (int(nodes.size()) < n) {
      const auto p = uint16_t(std::uniform_int_distribution<int>(1, top - 1)(rng));
      if (std::find(nodes.begin(), nodes.end(), p) == nodes.end()) nodes.push_back(p);
    }
    std::sort(nodes.begin(), nodes.end());
    EXPECT_EQ(CcSetGridAxis(c, a, n, nodes.data()), 0);
    ref->positions[a].assign(nodes.begin(), nodes.end());
    count *= size_t(n);
    for (int k = 0; k < 3; ++k)
      for (int j = 0, v = 0; j < n; ++j)
        walk[a * 3 + k].push_back(v += step(rng));
  }
  ref->nodes.resize(count * 3);
  for (size_t i = 0; i < count; ++i) {
    uint16_t *values = &ref->nodes[i * 3];
    for (int k = 0; k < 3; ++k) {
      int v = m.out == 2 ? nodeTop / 2 : any(rng);
      for (size_t a = 0, rest = i; m.out == 2 && a < size_t(inputs); rest /= walk[3 * a++].size())
        v += walk[a * 3 + k][rest % walk[3 * a].size()];
      values[k] = uint16_t(std::clamp(v, 0, nodeTop));
    }
    EXPECT_EQ(CcSetGridNode(c, uint32_t(i), values), 0);
  }
  return c;
}

void CheckMember(const Member &m, int inputs) {
  SCOPED_TRACE(testing::Message() << "member " << m.node << m.in << m.out << " inputs " << inputs);
  std::mt19937 rng(1234 + m.node * 100 + m.in * 10 + m.out + inputs * 1000);
  const int top = m.in == 1 ? 255 : 65535;
  // Output codes per node unit: 8-bit nodes into 16-bit output land at x 256,
  // 16-bit nodes into 8-bit output at / 256 (truncated).
  const double scale = m.node == m.out ? 1.0 : m.node == 1 ? 256.0 : 1.0 / 256.0;
  const size_t n = 3300, atNodes = 300;  // the first 300 inputs lie on node positions
  for (int trial = 0; trial < 4; ++trial) {
    Reference ref;
    CcTransformContext *c = RandomGrid(m, inputs, rng, &ref);
    CcTransform t{};
    CcFillTransform(&t, c);
    std::vector<std::vector<double>> points(n, std::vector<double>(inputs));
    std::vector<std::vector<uint8_t>> src(inputs, std::vector<uint8_t>(n * m.in));
    std::vector<std::vector<uint8_t>> dst(3, std::vector<uint8_t>(n * m.out));
    CcPixelRow from{}, to{};
    for (int a = 0; a < inputs; ++a) {
      const auto &p = ref.positions[a];
      std::uniform_int_distribution<size_t> pick(0, p.size() - 1);
      std::uniform_int_distribution<int> any(0, top);
      for (size_t i = 0; i < n; ++i) {
        const auto v = uint16_t(i < atNodes ? p[pick(rng)] : any(rng));
        points[i][a] = v;
        std::memcpy(&src[a][i * m.in], &v, size_t(m.in));  // little-endian samples
      }
      from.channel[a] = src[a].data();
    }
    for (int k = 0; k < 3; ++k)
      to.channel[k] = dst[k].data();
    ASSERT_EQ(CcApplySl(&t, uint32_t(n), &from, uint32_t(m.in), &to, uint32_t(m.out)), 0);
    double worst = 0;
    for (size_t i = 0; i < n; ++i) {
      const std::vector<double> want = ref.At(points[i]);
      for (int k = 0; k < 3; ++k) {
        uint16_t got = 0;
        std::memcpy(&got, &dst[k][i * m.out], size_t(m.out));
        const double real = want[k] * scale;
        if (i < atNodes)
          ASSERT_EQ(got, scale < 1.0 ? std::floor(real) : real) << "at a node";
        else
          worst = std::max(worst, std::fabs(got - real));
      }
    }
    // Rounding members: half a code; 8-bit nodes into 16-bit output add 127
    // of 128 and truncating members (16-bit nodes to 8-bit) lose up to one
    // code: one code. Plus the fractions' error per axis (largest neighbour
    // step / 65536: 256 codes for 8-bit output, 8000 for 16-bit).
    const double fractionError = inputs * (m.out == 2 ? 8000.0 : 256.0) / 65536;
    EXPECT_LT(worst, (scale == 1.0 ? 0.5 : 1.0) + fractionError);
    EXPECT_EQ(CcFreeTransform(&t), 0);
  }
}

TEST(CcInterp, EveryMemberMatchesTheReference) {
  for (int node = 1; node <= 2; ++node)
    for (int in = 1; in <= 2; ++in)
      for (int out = 1; out <= 2; ++out)
        for (int inputs = 3; inputs <= 4; ++inputs)
          CheckMember({node, in, out}, inputs);
}

TEST(CcGridAxis, TablesRefusalsAndEvenGrids) {
  CcTransformContext *c = nullptr;
  ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, 1, 2, 1), 0);
  const uint16_t nodes[4] = {0, 100, 200, 255}, two[2] = {0, 255};
  ASSERT_EQ(CcSetGridAxis(c, 0, 4, nodes), 0);
  const CcInputChannel &axis = c->in[0];
  EXPECT_EQ(axis.stride, 3);
  EXPECT_EQ(axis.offsets[99], 0u);
  EXPECT_EQ(axis.offsets[100], 3u);
  EXPECT_EQ(axis.fractions[100], 0);
  EXPECT_EQ(axis.fractions[150], 16384);  // half way between 100 and 200
  EXPECT_EQ(axis.fractions[201], 596);    // 32768 / 55 = 595.78, rounded
  EXPECT_EQ(axis.offsets[255], 6u);       // the top: last interval, full fraction
  EXPECT_EQ(axis.fractions[255], 32768);
  // Refusals keep the description.
  const uint16_t falling[3] = {0, 200, 100}, shortTop[3] = {0, 100, 254}, late[3] = {1, 100, 255};
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, falling), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, shortTop), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, late), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 1, nodes), -1);
  EXPECT_EQ(CcSetGridAxis(c, 3, 4, nodes), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 4, nullptr), -1);
  EXPECT_EQ(axis.nodeCount, 4);
  EXPECT_EQ(axis.nodes[1], 100);
  EXPECT_EQ(axis.fractions[150], 16384);
  // Nodes need every axis described first.
  const uint16_t values[3] = {1, 2, 3}, tooBig[3] = {256, 0, 0};
  EXPECT_EQ(CcSetGridNode(c, 0, values), -2);
  ASSERT_EQ(CcSetGridAxis(c, 1, 2, two), 0);
  ASSERT_EQ(CcSetGridAxis(c, 2, 2, two), 0);
  EXPECT_EQ(c->in[1].stride, 12);
  EXPECT_EQ(c->in[2].stride, 24);
  EXPECT_EQ(CcSetGridNode(c, 15, values), 0);
  EXPECT_EQ(CcSetGridNode(c, 16, values), -1);
  EXPECT_EQ(CcSetGridNode(c, 0, tooBig), -1);
  CcFreeContext(c);

  // Modes 0 and 1 overwrite positions with an even grid and demand equal counts.
  ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, 1, 0, 1), 0);
  uint16_t caller[5] = {0, 1, 2, 3, 255};
  EXPECT_EQ(CcSetGridAxis(c, 0, 4, caller), -9);
  ASSERT_EQ(CcSetGridAxis(c, 0, 5, caller), 0);
  EXPECT_EQ(caller[1], 1);  // the caller's array is left alone
  const uint16_t even[5] = {0, 64, 128, 192, 255};
  EXPECT_TRUE(std::equal(even, even + 5, c->in[0].nodes));
  EXPECT_EQ(CcSetGridAxis(c, 1, 3, caller), -9);
  EXPECT_EQ(CcSetGridAxis(c, 1, 5, nullptr), -1);
  CcFreeContext(c);
}

TEST(CcInterp, IdentityGridReturnsItsInput) {
  CcTransformContext *c = nullptr;
  ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, 1, 2, 1), 0);
  uint16_t nodes[27];
  for (int k = 0; k < 27; ++k)
    nodes[k] = uint16_t((k * 255 + 13) / 26);
  for (int a = 0; a < 3; ++a)
    ASSERT_EQ(CcSetGridAxis(c, a, 27, nodes), 0);
  for (uint32_t i = 0; i < 27 * 27 * 27; ++i) {
    const uint16_t v[3] = {nodes[i % 27], nodes[i / 27 % 27], nodes[i / 729]};
    ASSERT_EQ(CcSetGridNode(c, i, v), 0);
  }
  CcTransform t{};
  CcFillTransform(&t, c);
  std::vector<uint8_t> in(3 * 65536), out(in.size());
  for (size_t i = 0; i < 65536; ++i)
    in[3 * i] = uint8_t(i), in[3 * i + 1] = uint8_t(i >> 8), in[3 * i + 2] = uint8_t(i * 7 + 3);
  CcPixelRow from{{in.data(), in.data() + 1, in.data() + 2}},
      to{{out.data(), out.data() + 1, out.data() + 2}};
  ASSERT_EQ(CcApplySl(&t, 65536, &from, 3, &to, 3), 0);
  EXPECT_EQ(in, out);
  EXPECT_EQ(CcFreeTransform(&t), 0);
}

}  // namespace
// The vector forms and the rows shared among threads give the scalar loop's
// bytes, planar and interleaved, with identity and narrowed output curves, on
// shapes that leave every possible tail and split.
TEST(CcInterp, VectorFormsAndThreadsGiveTheScalarBytes) {
  ASSERT_TRUE(kThreadsSet);
  std::mt19937 rng(77);
  Reference ref;
  CcTransformContext *c = RandomGrid({1, 1, 1}, 3, rng, &ref);
  CcTransform t{};
  CcFillTransform(&t, c);
  const struct {
    uint32_t width, height;
  } kShapes[] = {{701, 203}, {1, 140000}, {70000, 1}, {17, 9000}, {1, 1}, {13, 3}, {31, 2}};
  using cc::VectorLevel;
  for (const bool narrowed : {false, true}) {
    for (int k = 0; k < 3 && narrowed; ++k)
      ASSERT_EQ(CcSetChannelRange(c, 1, k, 20 + k, 230), 0);
    for (const auto &shape : kShapes) {
      const size_t pixels = size_t(shape.width) * shape.height;
      std::vector<uint8_t> src(pixels * 3);
      for (uint8_t &b : src)
        b = uint8_t(rng());
      for (const bool planar : {true, false}) {
        SCOPED_TRACE(testing::Message() << shape.width << "x" << shape.height << " planar "
                                        << planar << " narrowed " << narrowed);
        const auto run = [&](VectorLevel level, int threads) {
          std::vector<uint8_t> dst(src.size());
          const size_t plane = planar ? pixels : 1;
          CcPixelRow from{}, to{};
          for (int k = 0; k < 3; ++k)
            from.channel[k] = src.data() + plane * k, to.channel[k] = dst.data() + plane * k;
          const uint32_t step = planar ? 1 : 3;
          const VectorLevel oldLevel = cc::SetVectorLevel(level);
          const int oldThreads = SetWorkerLimit(threads);
          EXPECT_EQ(CcApplyRows(&t, shape.width, shape.height, &from, step, step * shape.width, &to,
                                step, step * shape.width),
                    0);
          cc::SetVectorLevel(oldLevel);
          SetWorkerLimit(oldThreads);
          return dst;
        };
        const std::vector<uint8_t> want = run(VectorLevel::kScalar, 1);
        for (const VectorLevel level : {VectorLevel::kSse41, VectorLevel::kAvx2})
          for (const int threads : {1, 4})
            EXPECT_EQ(run(level, threads), want) << int(level) << " " << threads;
      }
    }
  }
  EXPECT_EQ(CcFreeTransform(&t), 0);
}

// The AVX2 loop reads each axis's offset and fraction with one look-up when
// the grid's offsets fit 16 bits (up to 28 nodes an axis); larger grids and
// short rows take the two-look-up form. Both sides of each limit give the
// scalar bytes, and the largest grid still agrees with the real-number model.
TEST(CcInterp, LargeGridsGiveTheScalarBytes) {
  if (cc::BestVectorLevel() != cc::VectorLevel::kAvx2) GTEST_SKIP() << "no AVX2 here";
  std::mt19937 rng(91);
  for (const int nodes : {28, 29, 33}) {
    Reference ref;
    CcTransformContext *c = RandomGrid({1, 1, 1}, 3, rng, &ref, nodes);
    CcTransform t{};
    CcFillTransform(&t, c);
    for (const uint32_t width : {255u, 256u, 1203u}) {
      SCOPED_TRACE(testing::Message() << nodes << " nodes, " << width << " pixels");
      std::vector<uint8_t> src(size_t(width) * 3);
      for (size_t i = 0; i < src.size(); ++i)  // every value on every axis, then random
        src[i] = uint8_t(i < 768 ? i % 256 : rng());
      const auto run = [&](cc::VectorLevel level) {
        std::vector<uint8_t> dst(src.size());
        const CcPixelRow from{{src.data(), src.data() + width, src.data() + 2 * width}};
        const CcPixelRow to{{dst.data(), dst.data() + width, dst.data() + 2 * width}};
        const cc::VectorLevel old = cc::SetVectorLevel(level);
        EXPECT_EQ(CcApplySl(&t, width, &from, 1, &to, 1), 0);
        cc::SetVectorLevel(old);
        return dst;
      };
      const std::vector<uint8_t> want = run(cc::VectorLevel::kScalar);
      EXPECT_EQ(run(cc::VectorLevel::kAvx2), want);
      for (uint32_t i = 0; nodes == 33 && i < width; ++i) {
        const std::vector<double> real =
            ref.At({double(src[i]), double(src[width + i]), double(src[2 * width + i])});
        for (int k = 0; k < 3; ++k)  // half a code plus three axes' fraction error
          ASSERT_NEAR(want[k * width + i], real[k], 0.5 + 3 * 256.0 / 65536) << i << " " << k;
      }
    }
    EXPECT_EQ(CcFreeTransform(&t), 0);
  }
}

// Grid axes and the interpolators, checked against an independent
// floating-point model of simplex interpolation on random grids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "colorengine/cc.h"
#include "colorengine/interp.h"

namespace {

// Simplex interpolation in real numbers: walk from the cell's base node along
// the axes in decreasing order of fraction (lower axis first on ties).
struct Reference {
  int inputs, outputs;
  std::vector<std::vector<double>> positions;  // per axis, on the input's own scale
  std::vector<uint16_t> nodes;                 // node values, axis 0 fastest

  std::vector<double> At(const std::vector<double> &x) const {
    std::vector<int> cell(inputs), order(inputs);
    std::vector<double> f(inputs);
    for (int a = 0; a < inputs; ++a) {
      const auto &p = positions[a];
      int k = 0;
      while (k + 2 < int(p.size()) && x[a] >= p[k + 1])
        ++k;
      cell[a] = k;
      f[a] = (x[a] - p[k]) / (p[k + 1] - p[k]);
      order[a] = a;
    }
    std::stable_sort(order.begin(), order.end(), [&](int i, int j) { return f[i] > f[j]; });
    std::vector<double> out(outputs, 0.0);
    double above = 1.0;
    for (int step = 0; step <= inputs; ++step) {
      const double w = step < inputs ? above - f[order[step]] : above;
      size_t index = 0, scale = 1;
      for (int a = 0; a < inputs; ++a) {
        index += scale * size_t(cell[a]);
        scale *= positions[a].size();
      }
      for (int k = 0; k < outputs; ++k)
        out[k] += w * nodes[index * outputs + k];
      if (step < inputs) {
        above = f[order[step]];
        ++cell[order[step]];
      }
    }
    return out;
  }
};

struct Member {
  int node, in, out;
};

// Builds a random mode-2 grid transform for a member, and its reference.
CcTransformContext *RandomGrid(const Member &m, int inputs, std::mt19937 &rng, Reference *ref) {
  CcTransformContext *c = nullptr;
  EXPECT_EQ(CcCreateContext(&c, inputs, 3, inputs == 3 ? 1 : 4, 1, 1, 2, m.node), 0);
  EXPECT_EQ(CcSetSampleSize(c, 0, m.in), 0);
  EXPECT_EQ(CcSetSampleSize(c, 1, m.out), 0);
  const int top = m.in == 1 ? 255 : 65535;
  ref->inputs = inputs;
  ref->outputs = 3;
  ref->positions.assign(inputs, {});
  size_t count = 1;
  for (int a = 0; a < inputs; ++a) {
    const int n = std::uniform_int_distribution<int>(2, inputs == 3 ? 9 : 5)(rng);
    std::vector<int> inner;
    while (int(inner.size()) < n - 2) {
      const int p = std::uniform_int_distribution<int>(1, top - 1)(rng);
      if (std::find(inner.begin(), inner.end(), p) == inner.end()) inner.push_back(p);
    }
    std::sort(inner.begin(), inner.end());
    std::vector<uint16_t> nodes = {0};
    for (int p : inner)
      nodes.push_back(uint16_t(p));
    nodes.push_back(uint16_t(top));
    EXPECT_EQ(CcSetGridAxis(c, a, n, nodes.data()), 0);
    for (uint16_t p : nodes)
      ref->positions[a].push_back(p);
    count *= size_t(n);
  }
  // Node values: random for 8-bit output; smooth for 16-bit output, where
  // neighbours differ by at most about 8000 output codes. A 15-bit fraction
  // is within 1/65536 of the true one, so each axis adds up to diff / 65536
  // codes of error: a grid with jumps across the whole range could not be
  // held to one code by any 15-bit interpolator, and colour grids are smooth.
  const int nodeTop = m.node == 1 ? 255 : 65535;
  const bool smooth = m.out == 2;
  const int most = m.node == 1 ? 15 : 4000;  // 15 x 256 or 4000 output codes per step
  std::uniform_int_distribution<int> any(0, nodeTop), step(-most, most);
  std::vector<std::vector<int>> walk(inputs * 3);
  for (int a = 0; a < inputs; ++a)
    for (int k = 0; k < 3; ++k) {
      int v = 0;
      for (size_t j = 0; j < ref->positions[a].size(); ++j)
        walk[a * 3 + k].push_back(v += step(rng));
    }
  ref->nodes.resize(count * 3);
  for (size_t i = 0; i < count; ++i) {
    uint16_t values[3];
    for (int k = 0; k < 3; ++k) {
      int v = smooth ? nodeTop / 2 : any(rng);
      for (size_t a = 0, rest = i; smooth && a < size_t(inputs); ++a) {
        v += walk[a * 3 + k][rest % ref->positions[a].size()];
        rest /= ref->positions[a].size();
      }
      values[k] = ref->nodes[i * 3 + k] = uint16_t(std::clamp(v, 0, nodeTop));
    }
    EXPECT_EQ(CcSetGridNode(c, uint32_t(i), values), 0);
  }
  return c;
}

// Output code per unit of node value: 8-bit nodes into 16-bit output land at
// node x 256 (shift 7), 16-bit nodes into 8-bit output at node / 256 (shift 23).
double OutputScale(const Member &m) {
  if (m.node == m.out) return 1.0;
  return m.node == 1 ? 256.0 : 1.0 / 256.0;
}

void CheckMember(const Member &m, int inputs) {
  std::mt19937 rng(1234 + m.node * 100 + m.in * 10 + m.out + inputs * 1000);
  for (int trial = 0; trial < 4; ++trial) {
    Reference ref;
    CcTransformContext *c = RandomGrid(m, inputs, rng, &ref);
    CcTransform t{};
    CcFillTransform(&t, c);
    // Inputs: every combination of node positions, then random values.
    std::vector<std::vector<double>> points;
    std::vector<bool> atNode;
    for (int i = 0; i < 300; ++i) {
      std::vector<double> x(inputs);
      for (int a = 0; a < inputs; ++a) {
        const auto &p = ref.positions[a];
        x[a] = p[std::uniform_int_distribution<size_t>(0, p.size() - 1)(rng)];
      }
      points.push_back(x);
      atNode.push_back(true);
    }
    const int top = m.in == 1 ? 255 : 65535;
    for (int i = 0; i < 3000; ++i) {
      std::vector<double> x(inputs);
      for (int a = 0; a < inputs; ++a)
        x[a] = std::uniform_int_distribution<int>(0, top)(rng);
      points.push_back(x);
      atNode.push_back(false);
    }
    const size_t n = points.size(), width = size_t(m.in), outWidth = size_t(m.out);
    std::vector<std::vector<uint8_t>> src(inputs, std::vector<uint8_t>(n * width));
    std::vector<std::vector<uint8_t>> dst(3, std::vector<uint8_t>(n * outWidth));
    for (size_t i = 0; i < n; ++i)
      for (int a = 0; a < inputs; ++a) {
        const uint16_t v = uint16_t(points[i][a]);
        if (width == 1)
          src[a][i] = uint8_t(v);
        else
          std::memcpy(&src[a][i * 2], &v, 2);
      }
    CcPixelRow from{}, to{};
    for (int a = 0; a < inputs; ++a)
      from.channel[a] = src[a].data();
    for (int k = 0; k < 3; ++k)
      to.channel[k] = dst[k].data();
    ASSERT_EQ(CcApplySl(&t, uint32_t(n), &from, uint32_t(width), &to, uint32_t(outWidth)), 0);
    const double scale = OutputScale(m);
    double worst = 0;
    for (size_t i = 0; i < n; ++i) {
      const std::vector<double> want = ref.At(points[i]);
      for (int k = 0; k < 3; ++k) {
        uint16_t got = dst[k][i * outWidth];
        if (outWidth == 2) std::memcpy(&got, &dst[k][i * 2], 2);
        const double real = want[k] * scale;
        if (atNode[i]) {
          // Exact: truncated when 16-bit nodes go to 8-bit output.
          const double exact = scale < 1.0 ? std::floor(real) : real;
          ASSERT_EQ(got, exact) << "member " << m.node << m.in << m.out << " at a node";
        } else {
          worst = std::max(worst, std::fabs(got - real));
        }
      }
    }
    // Members that round to nearest stay within half a code plus the
    // fractions' error (per axis the largest neighbour step / 65536: 256
    // codes for 8-bit output, 8000 for 16-bit); 8-bit nodes into
    // 16-bit output add 127 of 128, nearly rounding up, so within one code
    // plus that error; truncating ones (16-bit nodes to 8-bit output) within
    // one code.
    const double fractionError = inputs * (m.out == 2 ? 8000.0 : 256.0) / 65536;
    EXPECT_LT(worst, (scale == 1.0 ? 0.5 : 1.0) + fractionError)
        << "member " << m.node << m.in << m.out << " inputs " << inputs;
    EXPECT_EQ(CcFreeTransform(&t), 0);
  }
}

TEST(CcInterp, EveryMemberMatchesTheReference) {
  for (int node = 1; node <= 2; ++node)
    for (int in = 1; in <= 2; ++in)
      for (int out = 1; out <= 2; ++out) {
        CheckMember({node, in, out}, 3);
        CheckMember({node, in, out}, 4);
      }
}

TEST(CcInterp, SimplexChoiceFollowsTheOrderOfFractions) {
  // Corner offsets as the rule gives them: step along the largest fraction
  // first, the lower axis first on ties.
  const uint32_t stride[4] = {3, 30, 300, 3000};
  const uint32_t values[] = {0, 1, 5000, 16384, 32767, 32768};
  for (uint32_t f0 : values)
    for (uint32_t f1 : values)
      for (uint32_t f2 : values)
        for (uint32_t f3 : values) {
          const uint32_t f[4] = {f0, f1, f2, f3};
          int order[4] = {0, 1, 2, 3};
          std::stable_sort(order, order + 4, [&](int i, int j) { return f[i] > f[j]; });
          cc::Simplex<4> four;
          cc::PickSimplex4(f, stride, &four);
          uint32_t corner = 0, sum = 0;
          for (int i = 0; i < 4; ++i) {
            corner += stride[order[i]];
            ASSERT_EQ(four.corner[i + 1], corner);
            sum += four.weight[i];
          }
          ASSERT_EQ(sum + four.weight[4], 32768u);
          if (f3 != 0) continue;
          int order3[3] = {0, 1, 2};
          std::stable_sort(order3, order3 + 3, [&](int i, int j) { return f[i] > f[j]; });
          cc::Simplex<3> three;
          cc::Tetrahedra(3, 30, 300).Pick(f0, f1, f2, &three);
          ASSERT_EQ(three.corner[1], stride[order3[0]]);
          ASSERT_EQ(three.corner[2], stride[order3[0]] + stride[order3[1]]);
          ASSERT_EQ(three.corner[3], 333u);
          ASSERT_EQ(three.weight[0], 32768 - f[order3[0]]);
          ASSERT_EQ(three.weight[1], f[order3[0]] - f[order3[1]]);
          ASSERT_EQ(three.weight[2], f[order3[1]] - f[order3[2]]);
          ASSERT_EQ(three.weight[3], f[order3[2]]);
        }
}

TEST(CcGridAxis, TablesRefusalsAndEvenGrids) {
  CcTransformContext *c = nullptr;
  ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, 1, 2, 1), 0);
  const uint16_t nodes[4] = {0, 100, 200, 255};
  ASSERT_EQ(CcSetGridAxis(c, 0, 4, nodes), 0);
  EXPECT_EQ(c->in[0].stride, 3);
  EXPECT_EQ(c->in[0].offsets[99], 0u);
  EXPECT_EQ(c->in[0].offsets[100], 3u);
  EXPECT_EQ(c->in[0].fractions[100], 0);
  // 150 on the 16-bit scale lies half way between 100 and 200.
  EXPECT_EQ(c->in[0].fractions[150], 16384);
  // The top value lands in the last interval with a full fraction.
  EXPECT_EQ(c->in[0].offsets[255], 6u);
  EXPECT_EQ(c->in[0].fractions[255], 32768);
  // Refusals keep the description.
  const uint16_t falling[3] = {0, 200, 100}, shortTop[3] = {0, 100, 254}, late[3] = {1, 100, 255};
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, falling), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, shortTop), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 3, late), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 1, nodes), -1);
  EXPECT_EQ(CcSetGridAxis(c, 3, 4, nodes), -1);
  EXPECT_EQ(CcSetGridAxis(c, 0, 4, nullptr), -1);
  EXPECT_EQ(c->in[0].nodeCount, 4);
  EXPECT_EQ(c->in[0].nodes[1], 100);
  EXPECT_EQ(c->in[0].fractions[150], 16384);
  // Nodes need every axis described first.
  const uint16_t values[3] = {1, 2, 3};
  EXPECT_EQ(CcSetGridNode(c, 0, values), -2);
  ASSERT_EQ(CcSetGridAxis(c, 1, 2, nodes + 2), -1);  // does not start at 0
  const uint16_t two[2] = {0, 255};
  ASSERT_EQ(CcSetGridAxis(c, 1, 2, two), 0);
  ASSERT_EQ(CcSetGridAxis(c, 2, 2, two), 0);
  EXPECT_EQ(c->in[1].stride, 12);
  EXPECT_EQ(c->in[2].stride, 24);
  EXPECT_EQ(CcSetGridNode(c, 15, values), 0);
  EXPECT_EQ(CcSetGridNode(c, 16, values), -1);
  const uint16_t tooBig[3] = {256, 0, 0};
  EXPECT_EQ(CcSetGridNode(c, 0, tooBig), -1);
  CcFreeContext(c);

  // Modes 0 and 1 overwrite positions with an even grid and demand equal counts.
  ASSERT_EQ(CcCreateContext(&c, 3, 3, 1, 1, 1, 0, 1), 0);
  uint16_t caller[5] = {0, 1, 2, 3, 255};
  EXPECT_EQ(CcSetGridAxis(c, 0, 4, caller), -9);
  ASSERT_EQ(CcSetGridAxis(c, 0, 5, caller), 0);
  EXPECT_EQ(caller[1], 1);  // the caller's array is left alone
  const uint16_t even[5] = {0, 64, 128, 192, 255};
  for (int k = 0; k < 5; ++k)
    EXPECT_EQ(c->in[0].nodes[k], even[k]);
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
  uint32_t index = 0;
  for (int b = 0; b < 27; ++b)
    for (int g = 0; g < 27; ++g)
      for (int r = 0; r < 27; ++r) {
        const uint16_t v[3] = {nodes[r], nodes[g], nodes[b]};
        ASSERT_EQ(CcSetGridNode(c, index++, v), 0);
      }
  CcTransform t{};
  CcFillTransform(&t, c);
  std::vector<uint8_t> in(3 * 256 * 256), out(in.size());
  for (size_t i = 0; i < 256 * 256; ++i) {
    in[3 * i] = uint8_t(i), in[3 * i + 1] = uint8_t(i >> 8), in[3 * i + 2] = uint8_t(i * 7 + 3);
  }
  CcPixelRow from{{in.data(), in.data() + 1, in.data() + 2}},
      to{{out.data(), out.data() + 1, out.data() + 2}};
  ASSERT_EQ(CcApplySl(&t, 256 * 256, &from, 3, &to, 3), 0);
  EXPECT_EQ(in, out);
  EXPECT_EQ(CcFreeTransform(&t), 0);
}

}  // namespace

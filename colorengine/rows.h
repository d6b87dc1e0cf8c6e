// The row routines, written once as templates over the sample widths (and the
// channel counts, so that no pixel tests them). Each routine reads its tables,
// pointers and strides into locals once per row; per pixel it only indexes,
// multiplies, adds and shifts.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "colorengine/cc.h"
#include "colorengine/interp.h"

namespace cc {

using RowRoutine = int32_t (*)(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                               uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride);

// The routine for the context's grid flag, input channel count, node size
// and sample sizes.
RowRoutine PickRow(const CcTransformContext &c);

// A 16-bit output curve that is absent means the identity; a row that mixes
// absent and present curves reads this table for the absent ones.
const uint16_t *IdentityCurve16();
const uint8_t *IdentityRamp8();

// Samples may sit at any byte offset (interleaved rows with odd strides).
template <class T>
inline T Load(const uint8_t *p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
inline void Store(uint8_t *p, T v) {
  std::memcpy(p, &v, sizeof v);
}

// A curve table read at input x: directly, or (Coarse, 16-bit in and out with
// 8-bit nodes) between the two entries around the high byte, weighted by the
// low byte.
template <class In, class Out, bool Coarse>
inline Out CurveAt(const Out *table, In x) {
  if constexpr (Coarse) {
    const uint32_t i = x >> 8, f = x & 255u;
    return static_cast<Out>((table[i] * (256 - f) + table[i + 1] * f + 128) >> 8);
  } else {
    return table[x];
  }
}

// Output channels 0, 1 and 2 are written unless the count is 1, and channel 3
// unless it is 1 or 3.
inline int WrittenOutputs(int32_t outChannels) {
  return outChannels == 1 ? 1 : outChannels == 3 ? 3 : 4;
}

// Per-channel curves: channel k of the destination is channel k's curve at
// channel k of the source.
template <class In, class Out, bool Coarse, int N>
int32_t CurvePixels(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                    uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  const Out *table[N];
  const uint8_t *s[N];
  uint8_t *d[N];
  for (int k = 0; k < N; ++k) {
    table[k] = static_cast<const Out *>(c->in[k].table);
    if (!table[k]) return CcErrUndescribed;
    s[k] = src->channel[k];
    d[k] = dst->channel[k];
  }
  size_t from = 0, to = 0;  // running byte offsets, as in the interpolators
  for (uint32_t i = 0; i < count; ++i, from += srcStride, to += dstStride)
    for (int k = 0; k < N; ++k)
      Store<Out>(d[k] + to, CurveAt<In, Out, Coarse>(table[k], Load<In>(s[k] + from)));
  return CcOk;
}

// Calls `run` with std::integral_constant<int, N> when the input channel count
// is N, one of `Counts`, so that the count reaches the pixel loop as a template
// argument; any other count gives `otherwise`.
template <int... Counts, class Run>
int32_t ByInputs(int32_t inChannels, int32_t otherwise, Run run) {
  int32_t result = otherwise;
  (void)((inChannels == Counts && (result = run(std::integral_constant<int, Counts>{}), true)) ||
         ...);
  return result;
}

template <class In, class Out, bool Coarse>
int32_t CurveRow(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                 uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  return ByInputs<1, 3, 4>(c->inChannels, CcErrArgument, [&](auto n) {
    return CurvePixels<In, Out, Coarse, decltype(n)::value>(c, count, src, srcStride, dst,
                                                            dstStride);
  });
}

// The output curves of a row. A row whose curves are all the identity (absent
// 16-bit curves, or 8-bit ramps with entry i = i, which every grid transform
// starts with) skips the look-up: same result, three loads fewer per pixel.
template <class Out, int W>
struct OutputCurves {
  const Out *curve[W];
  bool identity = true;
  explicit OutputCurves(const CcTransformContext *c) {
    for (int k = 0; k < W; ++k) {
      curve[k] = static_cast<const Out *>(c->out[k].curve);
      if constexpr (sizeof(Out) == 1)
        identity = identity && curve[k] && std::memcmp(curve[k], IdentityRamp8(), 256) == 0;
      else
        identity = identity && !curve[k];
    }
    if constexpr (sizeof(Out) == 2)
      for (int k = 0; k < W; ++k)
        if (!curve[k]) curve[k] = IdentityCurve16();
  }
  bool missing() const {
    for (int k = 0; k < W; ++k)
      if (!curve[k]) return true;
    return false;
  }
};

// Runs Kernel::Run<W, Identity> for the row's number of written outputs and
// whether its output curves can be skipped, so that neither is tested per pixel.
template <class Kernel>
int32_t ByOutputs(bool identityAllowed, const CcTransformContext *c, uint32_t count,
                  const CcPixelRow *src, uint32_t srcStride, const CcPixelRow *dst,
                  uint32_t dstStride) {
  using Out = typename Kernel::Sample;
  const int written = WrittenOutputs(c->outChannels);
  const bool identity = identityAllowed && (written == 1   ? OutputCurves<Out, 1>(c).identity
                                            : written == 3 ? OutputCurves<Out, 3>(c).identity
                                                           : OutputCurves<Out, 4>(c).identity);
  switch (written * 2 + (identity ? 1 : 0)) {
    case 2:
      return Kernel::template Run<1, false>(c, count, src, srcStride, dst, dstStride);
    case 3:
      return Kernel::template Run<1, true>(c, count, src, srcStride, dst, dstStride);
    case 6:
      return Kernel::template Run<3, false>(c, count, src, srcStride, dst, dstStride);
    case 7:
      return Kernel::template Run<3, true>(c, count, src, srcStride, dst, dstStride);
    case 8:
      return Kernel::template Run<4, false>(c, count, src, srcStride, dst, dstStride);
    default:
      return Kernel::template Run<4, true>(c, count, src, srcStride, dst, dstStride);
  }
}

// One input: its curve gives an index into the output curves, and every
// written output channel takes its own curve at that index.
template <class In, class Out, bool Coarse, int W, bool Identity>
int32_t OneInputPixels(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                       uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  const auto *table = static_cast<const Out *>(c->in[0].table);
  const OutputCurves<Out, W> out(c);
  if (!table || out.missing()) return CcErrUndescribed;
  const uint8_t *s = src->channel[0];
  uint8_t *d[W];
  for (int k = 0; k < W; ++k)
    d[k] = dst->channel[k];
  size_t from = 0, to = 0;
  for (uint32_t i = 0; i < count; ++i, from += srcStride, to += dstStride) {
    const Out v = CurveAt<In, Out, Coarse>(table, Load<In>(s + from));
    for (int k = 0; k < W; ++k)
      Store<Out>(d[k] + to, Identity ? v : out.curve[k][v]);
  }
  return CcOk;
}

template <class In, class Out, bool Coarse>
struct OneInputKernel {
  using Sample = Out;
  template <int W, bool Identity>
  static int32_t Run(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                     uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
    return OneInputPixels<In, Out, Coarse, W, Identity>(c, count, src, srcStride, dst, dstStride);
  }
};

template <class In, class Out, bool Coarse>
int32_t OneInputRow(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                    uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  return ByOutputs<OneInputKernel<In, Out, Coarse>>(true, c, count, src, srcStride, dst, dstStride);
}

// Where each input value lands on one axis: the grid offset of its interval's
// lower node and its fraction inside the interval.
template <class In>
struct AxisTables {
  const uint32_t *offsets = nullptr;
  const uint8_t *intervals = nullptr;  // 16-bit input only
  const uint16_t *fractions = nullptr;
  bool Load(const CcInputChannel &in) {
    offsets = in.offsets;
    intervals = static_cast<const uint8_t *>(in.table);
    fractions = in.fractions;
    return fractions && (sizeof(In) == 1 || intervals);
  }
  uint32_t Offset(In x) const {
    if constexpr (sizeof(In) == 1)
      return offsets[x];
    else
      return offsets[intervals[x]];
  }
};

// What the vector interpolators need of a row of the editing view's member
// (8-bit nodes, samples and curves; three inputs and outputs).
struct Interp8x3 {
  const uint8_t *grid;
  const uint32_t *offsets[3];
  const uint16_t *fractions[3];
  const uint32_t *corner1, *corner2;  // per row of the tetrahedron table
  uint32_t far, shift, rounding;
  const uint8_t *curve[3];
  bool identity;
  const uint8_t *src[3];
  uint8_t *dst[3];
  uint32_t srcStride, dstStride;
};

// The instruction sets the vector interpolators are written for, in order.
enum class VectorLevel { kScalar, kSse41, kAvx2 };
// The best the processor runs.
VectorLevel BestVectorLevel();
// Limits the interpolators to `level` (at most the best); returns the old one.
// For comparing every level with the scalar loop.
VectorLevel SetVectorLevel(VectorLevel level);
// Runs the first pixels of the row, a whole number of vector widths; returns
// how many it did (0 when no vector form runs here).
uint32_t Interp8x3Vector(const Interp8x3 &row, uint32_t count);

// The interpolators: locate the pixel in the grid, pick its simplex, sum the
// corners' node values by weight, scale back with the context's shift and
// rounding, and write each output channel through its output curve.
template <class Node, class In, class Out, int Inputs, int W, bool Identity>
int32_t InterpPixels(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                     uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  const auto *grid = static_cast<const Node *>(c->grid);
  const OutputCurves<Out, W> out(c);
  if (!grid || out.missing()) return CcErrUndescribed;
  AxisTables<In> axis[Inputs];
  uint32_t stride[4] = {0, 0, 0, 0};
  const uint8_t *s[Inputs];
  for (int a = 0; a < Inputs; ++a) {
    if (!axis[a].Load(c->in[a])) return CcErrUndescribed;
    stride[a] = static_cast<uint32_t>(c->in[a].stride);
    s[a] = src->channel[a];
  }
  uint8_t *d[W];
  for (int k = 0; k < W; ++k)
    d[k] = dst->channel[k];
  const Tetrahedra cube(stride[0], stride[1], stride[2]);
  const uint32_t shift = c->shift, rounding = c->rounding;

  // One running byte offset per side rather than a pointer per channel: the
  // channel pointers then stay put and the loop keeps fewer values alive.
  size_t from = 0, to = 0;
  uint32_t i = 0;
  // The editing view's member (W = 3 means three output channels, so nodes
  // lie three bytes apart) goes through a vector form first.
  if constexpr (sizeof(Node) == 1 && sizeof(In) == 1 && sizeof(Out) == 1 && Inputs == 3 && W == 3) {
    const Interp8x3 row{grid,
                        {axis[0].offsets, axis[1].offsets, axis[2].offsets},
                        {axis[0].fractions, axis[1].fractions, axis[2].fractions},
                        cube.Corners1(),
                        cube.Corners2(),
                        cube.Far(),
                        shift,
                        rounding,
                        {out.curve[0], out.curve[1], out.curve[2]},
                        Identity,
                        {s[0], s[1], s[2]},
                        {d[0], d[1], d[2]},
                        srcStride,
                        dstStride};
    i = Interp8x3Vector(row, count);
    from = size_t{i} * srcStride;
    to = size_t{i} * dstStride;
  }
  for (; i < count; ++i, from += srcStride, to += dstStride) {
    uint32_t base = 0, f[Inputs];
    for (int a = 0; a < Inputs; ++a) {
      const In x = Load<In>(s[a] + from);
      base += axis[a].Offset(x);
      f[a] = axis[a].fractions[x];
    }
    Simplex<Inputs> t;
    if constexpr (Inputs == 3)
      cube.Pick(f[0], f[1], f[2], &t);
    else
      PickSimplex4(f, stride, &t);
    const Node *p = grid + base;
    for (int k = 0; k < W; ++k) {
      uint32_t sum = rounding;
      for (int j = 0; j <= Inputs; ++j)
        sum += t.weight[j] * p[t.corner[j] + k];
      const uint32_t v = sum >> shift;
      Store<Out>(d[k] + to, Identity ? static_cast<Out>(v) : out.curve[k][v]);
    }
  }
  return CcOk;
}

template <class Node, class In, class Out, int Inputs>
struct InterpKernel {
  using Sample = Out;
  template <int W, bool Identity>
  static int32_t Run(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                     uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
    return InterpPixels<Node, In, Out, Inputs, W, Identity>(c, count, src, srcStride, dst,
                                                            dstStride);
  }
};

template <class Node, class In, class Out, int Inputs>
int32_t InterpOutputs(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                      uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  // Skipping identity curves needs every index to be a sample value; with
  // 16-bit nodes and creation's rounding the top index is 256.
  constexpr uint64_t kNodeTop = sizeof(Node) == 1 ? 255 : 65535;
  const bool inRange =
      ((kNodeTop * kWeightOne + c->rounding) >> c->shift) <= (sizeof(Out) == 1 ? 255u : 65535u);
  return ByOutputs<InterpKernel<Node, In, Out, Inputs>>(inRange, c, count, src, srcStride, dst,
                                                        dstStride);
}

// Three and four inputs interpolate; one or two are refused; none or more
// than four write nothing and succeed, as stored transforms rely on.
template <class Node, class In, class Out>
int32_t InterpRow(const CcTransformContext *c, uint32_t count, const CcPixelRow *src,
                  uint32_t srcStride, const CcPixelRow *dst, uint32_t dstStride) {
  if (c->inChannels == 1 || c->inChannels == 2) return CcErrArgument;
  return ByInputs<3, 4>(c->inChannels, CcOk, [&](auto n) {
    return InterpOutputs<Node, In, Out, decltype(n)::value>(c, count, src, srcStride, dst,
                                                            dstStride);
  });
}

}  // namespace cc

// Grid axes and nodes, and the per-input-value tables the row routines read:
// for a grid axis the offset of the interval holding each input value and the
// value's position inside it; for a curve its table at the sample widths in
// force. Everything a pixel needs is worked out here, once.
#include <cstdlib>
#include <cstring>

#include "colorengine/cc.h"
#include "colorengine/tables.h"

namespace {

constexpr uint32_t kOne = 32768;  // a fraction of 32768 is the upper node

// An input value on the 16-bit scale after the channel's range: below the
// range is 0, above it 65535, in between rounded to nearest.
uint32_t ToSixteen(uint32_t x, int32_t low, int32_t high) {
  if (x <= static_cast<uint32_t>(low)) return 0;
  if (x >= static_cast<uint32_t>(high)) return 65535;
  const uint32_t span = static_cast<uint32_t>(high - low);
  return static_cast<uint32_t>((uint64_t{x - static_cast<uint32_t>(low)} * 65535 + span / 2) /
                               span);
}

// Node positions on the 16-bit scale. A description that reaches 65535 is
// already on that scale (every 16-bit axis does); otherwise the positions are
// 8-bit values.
void NodesOnSixteen(const CcInputChannel &in, uint32_t *positions) {
  const bool sixteen = in.nodes[in.nodeCount - 1] >= 65535;
  for (int32_t k = 0; k < in.nodeCount; ++k)
    positions[k] = sixteen ? in.nodes[k] : (uint32_t{in.nodes[k]} * 65535 + 127) / 255;
}

// Replaces *block with a fresh allocation of `bytes`; false when that fails,
// leaving *block null.
template <class T>
bool Renew(T **block, size_t bytes) {
  std::free(*block);
  *block = static_cast<T *>(std::malloc(bytes));
  return *block != nullptr;
}

int32_t BuildAxisTables(CcTransformContext *c, CcInputChannel &in) {
  uint32_t positions[256];
  NodesOnSixteen(in, positions);
  const bool wide = c->inSampleSize == 2;
  const uint32_t values = wide ? 65536 : 256;
  if (!Renew(&in.fractions, values * sizeof(uint16_t))) return CcErrMemory;
  if (wide) {
    if (!Renew(&in.table, values)) return CcErrMemory;
  } else {
    std::free(in.table);
    in.table = nullptr;
  }
  auto *intervals = static_cast<uint8_t *>(in.table);
  const uint32_t last = static_cast<uint32_t>(in.nodeCount - 1);
  const uint32_t stride = static_cast<uint32_t>(in.stride);
  uint32_t k = 0;
  for (uint32_t x = 0; x < values; ++x) {
    const uint32_t v = ToSixteen(x, in.low, in.high);
    // Values only grow with x, so the upward search resumes where it stopped.
    while (k < last && v >= positions[k + 1])
      ++k;
    // Past the end, or exactly on the last node: the last interval, so the
    // top value reads the last node with a fraction of 32768.
    const uint32_t interval = k < last ? k : last - 1;
    const uint32_t a = positions[interval], b = positions[interval + 1];
    const uint32_t f = static_cast<uint32_t>((uint64_t{v - a} * kOne + (b - a) / 2) / (b - a));
    in.fractions[x] = static_cast<uint16_t>(f < kOne ? f : kOne);
    if (wide)
      intervals[x] = static_cast<uint8_t>(interval);
    else
      in.offsets[x] = stride * interval;
  }
  // With 16-bit input the offset table is indexed by interval instead.
  if (wide)
    for (uint32_t i = 0; i < 256; ++i)
      in.offsets[i] = stride * i;
  return CcOk;
}

// The curve's value at input x, on the 16-bit scale: linear between the 256
// points, which lie evenly over the input range.
uint32_t CurveAt(const CcInputChannel &in, uint32_t x) {
  const uint32_t pos = ToSixteen(x, in.low, in.high) * 255;
  const uint32_t i = pos / 65535, r = pos % 65535;
  if (i >= 255) return in.nodes[255];
  const uint32_t a = in.nodes[i], b = in.nodes[i + 1];
  return static_cast<uint32_t>((uint64_t{a} * (65535 - r) + uint64_t{b} * r + 32767) / 65535);
}

template <class Out>
void FillCurve(const CcTransformContext &c, const CcInputChannel &in, int32_t low, int32_t high,
               Out *table, uint32_t entries, uint32_t inputStep) {
  const uint32_t inputMax = static_cast<uint32_t>(CcSampleMax(c.inSampleSize));
  for (uint32_t i = 0; i < entries; ++i) {
    const uint32_t x = i * inputStep < inputMax ? i * inputStep : inputMax;
    const uint64_t v = CurveAt(in, x);
    table[i] = static_cast<Out>(low + (v * static_cast<uint64_t>(high - low) + 32767) / 65535);
  }
}

int32_t BuildCurveTable(CcTransformContext *c, int32_t channel) {
  CcInputChannel &in = c->in[channel];
  const bool coarse = CcCoarseCurve(*c);
  const uint32_t entries = c->inSampleSize == 1 ? 256 : coarse ? 257 : 65536;
  const uint32_t inputStep = coarse ? 256 : 1;
  // A curve-only transform writes samples, so its curve ends in the output
  // range; a one-input grid's curve yields an index into the output curves,
  // which carry the range themselves.
  const int32_t fullHigh = CcSampleMax(c->outSampleSize);
  const int32_t low = c->gridFlag == 0 ? c->out[channel].low : 0;
  const int32_t high = c->gridFlag == 0 ? c->out[channel].high : fullHigh;
  in.nodeCount = c->inSampleSize == 1 ? 256 : 65536;
  if (c->outSampleSize == 1) {
    if (!Renew(&in.table, entries)) return CcErrMemory;
    FillCurve(*c, in, low, high, static_cast<uint8_t *>(in.table), entries, inputStep);
  } else {
    if (!Renew(&in.table, entries * sizeof(uint16_t))) return CcErrMemory;
    FillCurve(*c, in, low, high, static_cast<uint16_t *>(in.table), entries, inputStep);
  }
  return CcOk;
}

// Modes 0 and 1 take only evenly spaced grids of 2^k + 1 nodes.
bool IsEvenCount(int32_t n) {
  return n == 2 || n == 3 || n == 5 || n == 9 || n == 17;
}

void EvenNodes(int32_t n, uint16_t *nodes) {
  int32_t k = 0;
  while ((1 << k) < n - 1)
    ++k;
  nodes[0] = 0;
  for (int32_t i = 1; i < n - 1; ++i)
    nodes[i] = static_cast<uint16_t>(nodes[i - 1] + (256 >> k));
  nodes[n - 1] = 255;
}

}  // namespace

void CcRebuildStrides(CcTransformContext *c) {
  // Curve-only channels count table entries, not nodes: they have no stride.
  if (!CcInterpolates(*c)) return;
  int64_t stride = c->outChannels;
  for (int32_t k = 0; k < 4; ++k) {
    c->in[k].stride = static_cast<int32_t>(stride);
    // At most 4 x 256^3 for the last axis; a grid that large is refused anyway.
    if (k < 3) stride *= c->in[k].nodeCount;
  }
}

int32_t CcRebuildInputTables(CcTransformContext *c, int32_t channel) {
  CcInputChannel &in = c->in[channel];
  if (CcInterpolates(*c)) return in.nodeCount >= 2 ? BuildAxisTables(c, in) : CcOk;
  return in.table ? BuildCurveTable(c, channel) : CcOk;
}

int32_t CcSetGridAxis(CcTransformContext *context, int32_t channel, int32_t nodeCount,
                      const uint16_t *nodes) {
  if (!context) return CcErrArgument;
  CcTransformContext *c = context;
  if (!CcInterpolates(*c)) {
    if (channel < 0 || channel >= c->inChannels) return CcErrArgument;
    c->in[channel].nodeCount = c->inSampleSize == 1 ? 256 : 65536;
    return CcOk;
  }
  // The even positions go into a copy; the caller's array is left alone.
  uint16_t even[17];
  if (c->mode == 0 || c->mode == 1) {
    if (!IsEvenCount(nodeCount)) return CcErrUnsupported;
    if (!nodes) return CcErrArgument;
    for (int32_t k = 0; k < c->inChannels; ++k)
      if (c->in[k].nodeCount != 1 && c->in[k].nodeCount != nodeCount) return CcErrUnsupported;
    EvenNodes(nodeCount, even);
    nodes = even;
  }
  if (!nodes || nodeCount < 2 || nodeCount > 256 || channel < 0 || channel >= c->inChannels)
    return CcErrArgument;
  const int32_t top = CcSampleMax(c->inSampleSize);
  if (nodes[0] != 0 || nodes[nodeCount - 1] < top) return CcErrArgument;
  for (int32_t k = 1; k < nodeCount; ++k)
    if (nodes[k] <= nodes[k - 1]) return CcErrArgument;

  CcInputChannel &in = c->in[channel];
  if (c->grid && in.nodeCount != nodeCount) {
    // A different node count changes the grid's shape; its values must be set anew.
    std::free(c->grid);
    c->grid = nullptr;
    c->gridNodes = 0;
  }
  std::memcpy(in.nodes, nodes, sizeof(uint16_t) * static_cast<size_t>(nodeCount));
  in.nodeCount = nodeCount;
  CcRebuildStrides(c);
  for (int32_t k = 0; k < c->inChannels; ++k)
    if (const int32_t code = CcRebuildInputTables(c, k); code != CcOk) return code;
  return CcOk;
}

int32_t CcSetGridNode(CcTransformContext *context, uint32_t index, const uint16_t *values) {
  if (!context || !values) return CcErrArgument;
  CcTransformContext *c = context;
  if (!CcInterpolates(*c)) return CcErrUnsupported;
  uint64_t nodes = 1;
  for (int32_t k = 0; k < c->inChannels; ++k) {
    if (c->in[k].nodeCount < 2) return CcErrUndescribed;
    nodes *= static_cast<uint64_t>(c->in[k].nodeCount);
  }
  if (index >= nodes) return CcErrArgument;
  const int32_t top = c->nodeSize == 1 ? 255 : 65535;
  for (int32_t k = 0; k < c->outChannels; ++k)
    if (values[k] > top) return CcErrArgument;
  const uint64_t entries = nodes * static_cast<uint64_t>(c->outChannels);
  if (!c->grid) {
    // More than 2^26 nodes cannot be a colour grid anyone means to fill.
    if (nodes > (uint64_t{1} << 26)) return CcErrMemory;
    c->grid = std::calloc(entries, static_cast<size_t>(c->nodeSize));
    if (!c->grid) return CcErrMemory;
    c->gridNodes = static_cast<uint32_t>(nodes);
  }
  const size_t at = size_t{index} * static_cast<size_t>(c->outChannels);
  for (int32_t k = 0; k < c->outChannels; ++k) {
    if (c->nodeSize == 1)
      static_cast<uint8_t *>(c->grid)[at + static_cast<size_t>(k)] =
          static_cast<uint8_t>(values[k]);
    else
      static_cast<uint16_t *>(c->grid)[at + static_cast<size_t>(k)] = values[k];
  }
  return CcOk;
}

int32_t CcSetCurve(CcTransformContext *context, int32_t channel, const uint16_t points[256]) {
  if (!context || !points) return CcErrArgument;
  CcTransformContext *c = context;
  if (CcInterpolates(*c)) return CcErrUnsupported;
  // A one-input grid has one curve, on its only input.
  const int32_t curves = c->gridFlag == 0 ? c->inChannels : 1;
  if (channel < 0 || channel >= curves) return CcErrArgument;
  std::memcpy(c->in[channel].nodes, points, 256 * sizeof(uint16_t));
  return BuildCurveTable(c, channel);
}

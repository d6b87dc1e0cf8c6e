// Tables a context derives from its description: the per-input-value grid
// offsets and fractions, the curve tables and the output curves. Rebuilt
// whenever what they depend on changes (an axis, a curve, a sample size or a
// range), so a transform is never run through tables of the wrong width.
#pragma once

#include <cstdint>

#include "colorengine/cc.h"

// Grid flag 1 with more than one input channel: pixels are located in the
// grid and interpolated. Otherwise each input goes through a curve.
inline bool CcInterpolates(const CcTransformContext &c) {
  return c.gridFlag == 1 && c.inChannels > 1;
}

// Curve-only and one-input transforms with 16-bit in and out. The node size
// says how precisely the transform was made: with 8-bit nodes its curves
// hold 256 steps, so 257 points one high byte apart, interpolated by the low
// byte, reproduce them without a 128 KB table per channel; with 16-bit nodes
// every input value gets its own entry in a 65,536-entry table.
inline bool CcCoarseCurve(const CcTransformContext &c) {
  return c.inSampleSize == 2 && c.outSampleSize == 2 && c.nodeSize == 1;
}

inline int32_t CcSampleMax(int32_t sampleSize) {
  return sampleSize == 1 ? 255 : 65535;
}

// Entries of an 8-bit output curve. One more than 256: with 16-bit nodes the
// creation-time rounding (2^22 with shift 23) can round the top value up to
// 256, and that index must still read the top of the curve.
constexpr int kOutCurve8Entries = 257;

// Rebuilds input channel `channel`'s tables: the offset and fraction tables
// of a described grid axis, or the curve table of a curve that has been set.
// Does nothing for a channel not yet described.
[[nodiscard]] int32_t CcRebuildInputTables(CcTransformContext *c, int32_t channel);
// Recomputes every axis stride from the output channel count and the node
// counts (axis 0 fastest).
void CcRebuildStrides(CcTransformContext *c);
// The default output curve of one channel for the output size and range in force.
[[nodiscard]] int32_t CcRebuildOutputCurve(CcTransformContext *c, int32_t channel);

// The transform context: creation with its checks, sample sizes and ranges,
// default output curves, and release of everything the context owns.
#include <cstdlib>

#include "colorengine/cc.h"
#include "colorengine/tables.h"

namespace {

// Channels demanded by a colour-space code; 0 for codes the engine rejects.
int32_t ChannelsOfSpace(int32_t space) {
  switch (space) {
    case CcSpaceRgb:
    case CcSpaceLab:
    case CcSpaceYcc:
      return 3;
    case CcSpaceCmyk:
      return 4;
    case CcSpaceGrey:
      return 1;
    default:
      return 0;
  }
}

bool IsOneOf(int32_t space, int32_t a, int32_t b, int32_t c) {
  return space == a || space == b || space == c;
}

// Each check records its code only when no earlier one has, so the first
// failure decides the result even though every check is evaluated.
int32_t CheckArguments(CcTransformContext **out, int32_t inChannels, int32_t outChannels,
                       int32_t inSpace, int32_t outSpace, int32_t gridFlag, int32_t mode,
                       int32_t nodeSize) {
  int32_t code = CcOk;
  auto record = [&code](bool failed, int32_t failure) {
    if (failed && code == CcOk) code = failure;
  };
  record(!out || (gridFlag != 0 && gridFlag != 1) || mode < 0 || mode > 2, CcErrArgument);
  record(gridFlag == 0 && (inChannels != outChannels || inSpace != outSpace), CcErrArgument);
  if (mode == 0) {
    const bool badSpace = IsOneOf(inSpace, CcSpaceGrey, CcSpaceLab, CcSpaceYcc) ||
                          IsOneOf(outSpace, CcSpaceGrey, CcSpaceLab, CcSpaceYcc);
    record(badSpace || gridFlag != 1, CcErrUnsupported);
    record(nodeSize != 1, CcErrArgument);
  } else if (mode == 1) {
    record(inSpace == CcSpaceGrey || outSpace == CcSpaceGrey || gridFlag != 1, CcErrUnsupported);
    record(nodeSize != 1, CcErrArgument);
  } else if (mode == 2) {
    record(nodeSize < 1 || nodeSize > 2, CcErrArgument);
  }
  const int32_t inWanted = ChannelsOfSpace(inSpace), outWanted = ChannelsOfSpace(outSpace);
  record(inWanted == 0 || inWanted != inChannels, CcErrArgument);
  record(outWanted == 0 || outWanted != outChannels, CcErrArgument);
  return code;
}

// The fixed-point pair for an interpolated sum of node values times weights
// summing to 32768. 8-bit nodes into 16-bit output keep 127, not 128, and
// 16-bit nodes into 8-bit output truncate: both as the stored transforms
// expect, so results match them code for code.
void SetFixedPoint(CcTransformContext *c) {
  static const struct {
    uint32_t shift, rounding;
  } kPairs[2][2] = {{{15, 16384}, {7, 127}}, {{23, 0}, {15, 16384}}};
  const auto &pair = kPairs[c->nodeSize - 1][c->outSampleSize - 1];
  c->shift = pair.shift;
  c->rounding = pair.rounding;
}

}  // namespace

int32_t CcRebuildOutputCurve(CcTransformContext *c, int32_t channel) {
  CcOutputChannel &o = c->out[channel];
  std::free(o.curve);
  o.curve = nullptr;
  const int64_t low = o.low, high = o.high;
  if (c->outSampleSize == 1) {
    auto *curve = static_cast<uint8_t *>(std::malloc(kOutCurve8Entries));
    if (!curve) return CcErrMemory;
    for (int64_t i = 0; i < 256; ++i) {
      const int64_t v = (i * (high - low) + low * 255 + 127) / 255;
      curve[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
    curve[256] = curve[255];
    o.curve = curve;
    return CcOk;
  }
  // The full 16-bit range needs no table: the row routines write the
  // interpolated value itself. A narrower range is the same ramp as the 8-bit
  // one, scaled over 65,535 steps and rounded to nearest.
  if (low == 0 && high == 65535) return CcOk;
  auto *curve = static_cast<uint16_t *>(std::malloc(65536 * sizeof(uint16_t)));
  if (!curve) return CcErrMemory;
  for (int64_t i = 0; i < 65536; ++i)
    curve[i] = static_cast<uint16_t>(low + (i * (high - low) + 32767) / 65535);
  o.curve = curve;
  return CcOk;
}

int32_t CcCreateContext(CcTransformContext **out, int32_t inChannels, int32_t outChannels,
                        int32_t inSpace, int32_t outSpace, int32_t gridFlag, int32_t mode,
                        int32_t nodeSize) {
  const int32_t code =
      CheckArguments(out, inChannels, outChannels, inSpace, outSpace, gridFlag, mode, nodeSize);
  if (code != CcOk) return code;
  auto *c = static_cast<CcTransformContext *>(std::calloc(1, sizeof(CcTransformContext)));
  if (!c) return CcErrMemory;
  // The shift and rounding are creation's own pair: for 16-bit nodes it rounds
  // (2^22) where setting the output size later truncates; the guard entry of
  // the 8-bit output curves absorbs the one index it can overshoot by.
  *c = CcTransformContext{.mode = mode,
                          .inChannels = inChannels,
                          .outChannels = outChannels,
                          .inSpace = inSpace,
                          .outSpace = outSpace,
                          .gridFlag = gridFlag,
                          .nodeSize = nodeSize,
                          .inSampleSize = 1,
                          .outSampleSize = 1,
                          .shift = nodeSize == 1 ? 15u : 23u,
                          .rounding = nodeSize == 1 ? 16384u : 4194304u,
                          .in = {},
                          .out = {},
                          .grid = nullptr,
                          .gridNodes = 0};
  for (int32_t k = 0; k < 4; ++k) {
    c->in[k].nodeCount = 1;
    c->in[k].low = 0;
    c->in[k].high = CcSampleMax(c->inSampleSize);
    c->out[k].low = 0;
    c->out[k].high = CcSampleMax(c->outSampleSize);
  }
  CcRebuildStrides(c);
  // One-input grids read the output curves too (input curve, then output
  // curve), so every grid transform gets them.
  if (gridFlag == 1) {
    for (int32_t k = 0; k < 4; ++k) {
      if (CcRebuildOutputCurve(c, k) != CcOk) {
        CcFreeContext(c);
        return CcErrMemory;
      }
    }
  }
  *out = c;
  return CcOk;
}

int32_t CcSetSampleSize(CcTransformContext *context, int32_t side, int32_t size) {
  if (!context || (side != 0 && side != 1) || (size != 1 && size != 2)) return CcErrArgument;
  CcTransformContext *c = context;
  const int32_t max = CcSampleMax(size);
  if (side == 1) {
    c->outSampleSize = size;
    SetFixedPoint(c);
  } else {
    c->inSampleSize = size;
  }
  for (int32_t k = 0; k < 4; ++k) {
    if (side == 1) {
      c->out[k].low = 0;
      c->out[k].high = max;
    } else {
      c->in[k].low = 0;
      c->in[k].high = max;
    }
  }
  // Curve tables hold output samples, so both sides rebuild them.
  for (int32_t k = 0; k < 4; ++k) {
    if (side == 1 && c->gridFlag == 1 && CcRebuildOutputCurve(c, k) != CcOk) return CcErrMemory;
    if (CcRebuildInputTables(c, k) != CcOk) return CcErrMemory;
  }
  return CcOk;
}

int32_t CcSetTransformSampleSize(CcTransform *transform, int32_t side, int32_t size) {
  if (!transform) return CcErrArgument;
  const int32_t code = CcSetSampleSize(transform->context, side, size);
  if (code == CcOk) (side == 0 ? transform->inSampleSize : transform->outSampleSize) = size;
  return code;
}

int32_t CcSetChannelRange(CcTransformContext *context, int32_t side, int32_t channel, int32_t low,
                          int32_t high) {
  if (!context || (side != 0 && side != 1) || channel < 0 || channel > 3) return CcErrArgument;
  CcTransformContext *c = context;
  const int32_t max = CcSampleMax(side == 0 ? c->inSampleSize : c->outSampleSize);
  if (low < 0 || high > max || low >= high) return CcErrArgument;
  if (side == 0) {
    c->in[channel].low = low;
    c->in[channel].high = high;
    return CcRebuildInputTables(c, channel);
  }
  c->out[channel].low = low;
  c->out[channel].high = high;
  if (c->gridFlag == 1) return CcRebuildOutputCurve(c, channel);
  return CcRebuildInputTables(c, channel);
}

void CcFillTransform(CcTransform *transform, CcTransformContext *context) {
  transform->inChannels = context->inChannels;
  transform->outChannels = context->outChannels;
  transform->inSpace = context->inSpace;
  transform->outSpace = context->outSpace;
  transform->nodeSize = context->nodeSize;
  transform->inSampleSize = context->inSampleSize;
  transform->outSampleSize = context->outSampleSize;
  transform->context = context;
}

void CcFreeContext(CcTransformContext *context) {
  if (!context) return;
  for (int32_t k = 0; k < 4; ++k) {
    std::free(context->in[k].table);
    context->in[k].table = nullptr;
    std::free(context->in[k].fractions);
    context->in[k].fractions = nullptr;
    std::free(context->out[k].curve);
    context->out[k].curve = nullptr;
  }
  std::free(context->grid);
  context->grid = nullptr;
  std::free(context);
}

int32_t CcFreeTransform(CcTransform *transform) {
  if (!transform) return CcErrArgument;
  // Works on a copy: the handle keeps its old pointer, and its owner deletes
  // the handle right after.
  CcTransformContext *context = transform->context;
  CcFreeContext(context);
  return CcOk;
}

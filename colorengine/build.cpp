// CcBuildTransform: from the correction parameters and the photo to a filled
// transform handle, in the order the steps depend on each other.
#include <cmath>
#include <memory>

#include "colorengine/cc.h"
#include "colorengine/work.h"

namespace cc {

namespace {

struct ArrayDeleter {
  void operator()(CcArray *array) const { (void)CcArrayFree(array); }
};
using Array = std::unique_ptr<CcArray, ArrayDeleter>;

struct ContextDeleter {
  void operator()(CcTransformContext *context) const { CcFreeContext(context); }
};
using Context = std::unique_ptr<CcTransformContext, ContextDeleter>;

constexpr int32_t kNodeCounts[8] = {5, 7, 9, 11, 14, 17, 22, 27};

// 0..1 to a byte: a half added and the fraction dropped, then clamped, so a
// slightly negative value becomes 0 like any other below the range. The
// clamp comes before the conversion, which is only defined in range.
uint16_t Quantise(double v) {
  const double scaled = v * 255.0 + 0.5;
  if (!(scaled > 0.0)) return 0;  // NaN too
  return static_cast<uint16_t>(scaled >= 255.0 ? 255 : static_cast<int>(scaled));
}

// Sample every point that takes part, classify the ones whose kind
// is still open, and write the kinds back so that a rebuild does not
// classify them again. A point that cannot be sampled gets kind -1 and stays
// in the list, out of every estimate.
void ExaminePoints(const ColourModel &model, const PlanarImage *image, CcParams *params,
                   WorkRecord *work, PointColour *colours) {
  for (int32_t i = 0; i < work->pointCount; ++i) {
    CcPoint &point = work->points[i];
    colours[i] = PointColour{};
    // Kinds outside the four tools and "open" belong to nobody's estimate.
    if (point.kind < CcKindUnclassified || point.kind > CcKindNeutral) continue;
    PointSample sample;
    if (!SamplePoint(image, point.x, point.y, work->flags[1] != 0, &sample)) {
      point.kind = CcKindUnclassified;
    } else {
      double linear[3], lab[3];
      for (int c = 0; c < 3; ++c) {
        colours[i].rgb[c] = sample.mean[c] / 255.0;
        linear[c] = std::pow(colours[i].rgb[c], model.gamma);
      }
      LinearToLab(model, linear, lab);
      colours[i].lightness = lab[0];
      if (point.kind == CcKindUnclassified) point.kind = ClassifySample(model, sample);
      colours[i].usable = point.kind != CcKindUnclassified;
    }
    params->points[i].kind = point.kind;
  }
}

bool IsIdentity(const double m[9]) {
  for (int i = 0; i < 9; ++i)
    if (std::fabs(m[i] - (i % 4 == 0 ? 1.0 : 0.0)) > 1e-8) return false;
  return true;
}

// No colour mixing is needed, so each channel is its own tone curve.
int32_t BakeCurves(const WorkRecord &work, Context *out) {
  CcTransformContext *raw = nullptr;
  const int32_t code = CcCreateContext(&raw, 3, 3, CcSpaceRgb, CcSpaceRgb, 0, 2, 1);
  if (code != CcOk) return code;
  Context context(raw);
  for (int c = 0; c < 3; ++c) {
    uint16_t points[256];
    for (int i = 0; i < 256; ++i)
      points[i] = static_cast<uint16_t>(Quantise(ToneChannel(work, c, i / 255.0, true)) * 257);
    if (const int32_t failed = CcSetCurve(context.get(), c, points); failed != CcOk) return failed;
  }
  *out = std::move(context);
  return CcOk;
}

// Colours mix: the tone path, the matrix in linear light and the return to the
// photo's encoding, baked into a 27 x 27 x 27 grid.
int32_t BakeGrid(const WorkRecord &work, const double matrix[9], Context *out) {
  CcTransformContext *raw = nullptr;
  int32_t code = CcCreateContext(&raw, 3, 3, CcSpaceRgb, CcSpaceRgb, 1, 2, 1);
  if (code != CcOk) return code;
  Context context(raw);
  const int32_t n = kNodeCounts[work.gridSizeIndex];
  uint16_t nodes[256];
  for (int32_t k = 0; k < n; ++k)
    nodes[k] = static_cast<uint16_t>((k * 255 + (n - 1) / 2) / (n - 1));
  for (int32_t axis = 0; axis < 3; ++axis)
    if ((code = CcSetGridAxis(context.get(), axis, n, nodes)) != CcOk) return code;
  double linear[3][256];
  for (int c = 0; c < 3; ++c)
    for (int32_t k = 0; k < n; ++k)
      linear[c][k] = std::pow(Clamp01(ToneChannel(work, c, nodes[k] / 255.0, true)), work.gamma);
  const double inverseGamma = 1.0 / work.gamma;
  uint32_t index = 0;  // red fastest, then green, blue outermost
  for (int32_t b = 0; b < n; ++b)
    for (int32_t g = 0; g < n; ++g)
      for (int32_t r = 0; r < n; ++r, ++index) {
        const double in[3] = {linear[0][r], linear[1][g], linear[2][b]};
        uint16_t values[3];
        for (int j = 0; j < 3; ++j) {
          const double v = in[0] * matrix[j] + in[1] * matrix[3 + j] + in[2] * matrix[6 + j];
          values[j] = Quantise(v > 0.0 ? std::pow(v, inverseGamma) : 0.0);
        }
        if ((code = CcSetGridNode(context.get(), index, values)) != CcOk) return code;
      }
  *out = std::move(context);
  return CcOk;
}

}  // namespace

}  // namespace cc

int32_t CcBuildTransform(CcParams *params, const PlanarImage *imageDesc, CcTransform *transform) {
  using namespace cc;
  // The record holds 50 points; a longer list is refused before it is read.
  if (!params || !transform || params->pointCount < 0 || params->pointCount > CcMaxPoints)
    return CcErrArgument;
  WorkRecord work;
  FillWorkRecord(*params, &work);

  Array toXyz(CreateRgbToXyz(work.primaries, work.white));
  Array fromXyz(CreateXyzToRgb(work.primaries, work.white));
  if (!toXyz || !fromXyz) return CcErrMemory;
  ColourModel model;
  int32_t code = MakeColourModel(work, toXyz.get(), fromXyz.get(), &model);
  if (code != CcOk) return code;

  PointColour colours[CcMaxPoints];
  ExaminePoints(model, imageDesc, params, &work, colours);

  double matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  code = EstimateCorrection(model, &work, colours, matrix);
  toXyz.reset();
  fromXyz.reset();
  if (code != CcOk) return code;

  Context context;
  code = IsIdentity(matrix) ? BakeCurves(work, &context) : BakeGrid(work, matrix, &context);
  if (code != CcOk) return code;
  CcFillTransform(transform, context.release());
  return CcOk;
}

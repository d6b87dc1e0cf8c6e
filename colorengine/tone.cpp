// The work record and the per-channel tone path every colour of the builder
// goes through: levels, brightness bias, contrast and the estimated curves.
#include <cstring>

#include "colorengine/work.h"

namespace cc {

namespace {

// q(x) = k x^2 + (1 - k) x with k = 1 - 2a, twice: a = 0.5 is the identity,
// smaller a lifts the middle tones, larger a lowers them; 0 and 1 stay put.
double Bias(double a, double x) {
  const double k = 1.0 - 2.0 * a;
  for (int pass = 0; pass < 2; ++pass)
    x = k * x * x + (1.0 - k) * x;
  return x;
}

}  // namespace

void FillWorkRecord(const CcParams &params, WorkRecord *work) {
  std::memset(work, 0, sizeof *work);
  work->gamma = params.space.gamma;
  std::memcpy(work->white, params.space.white, sizeof work->white);
  std::memcpy(work->primaries, params.space.primaries, sizeof work->primaries);
  std::memcpy(work->targets, params.targets, sizeof work->targets);
  work->flags[0] = params.flags[0];
  work->flags[1] = params.flags[1];
  work->bias = params.bias;
  work->pointCount = params.pointCount;
  std::memcpy(work->points, params.points, sizeof(CcPoint) * size_t(params.pointCount));
  work->gridSizeIndex = 7;
  for (int c = 0; c < 3; ++c) {
    work->black[c] = 0.0f;
    work->whiteLevel[c] = 255.0f;
  }
  work->contrast = 0.5f;
  work->lightnessTop = 100.0f;
  for (float &setting : work->neutralSettings)
    setting = 0.5f;
  work->haveCurves = false;
}

double ToneChannel(const WorkRecord &work, int channel, double t, bool withCurves) {
  const double black = work.black[channel] / 255.0, white = work.whiteLevel[channel] / 255.0;
  t = Clamp01((t - black) / (white - black));
  t = Bias(work.bias, t);
  const double a = work.contrast;
  t = t <= 0.5 ? 0.5 * Bias(1.0 - a, 2.0 * t) : 0.5 * Bias(a, 2.0 * t - 1.0) + 0.5;
  if (!withCurves || !work.haveCurves) return t;
  const float *curve = work.curves[channel];
  const double at = Clamp01(t) * (kCurvePoints - 1);
  const int i = at >= kCurvePoints - 1 ? kCurvePoints - 2 : static_cast<int>(at);
  const double f = at - i;
  return curve[i] + (curve[i + 1] - curve[i]) * f;
}

}  // namespace cc

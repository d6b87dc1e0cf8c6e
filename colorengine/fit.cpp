// The estimate at the heart of building: per-channel tone curves from the
// neutral clicks, then a 3 x 3 colour matrix fitted by least squares to pairs
// of present and wanted colours, limited toward the identity so that no click
// can wreck the photo.
#include <cmath>
#include <cstdlib>

#include "colorengine/invert.h"
#include "colorengine/whitebalance.h"
#include "colorengine/work.h"

namespace cc {

namespace {

constexpr int kKinds = 4;
constexpr int kMaxPairs = 40;

struct Pair {
  double present[3], wanted[3];
};

// A tool's target at lightness L as the photo would store it (0..1): the
// target converted to RGB, clipped to what RGB can show.
void TargetStored(const ColourModel &model, const CcToolTarget &target, double lightness,
                  double stored[3]) {
  double lab[3], linear[3];
  TargetLab(target, lightness, lab);
  LabToLinear(model, lab, linear);
  for (int c = 0; c < 3; ++c)
    stored[c] = std::pow(Clamp01(linear[c]), 1.0 / model.gamma);
}

// Stored 0..1 colour through the tone path and into linear light.
void ToneToLinear(const WorkRecord &work, const double stored[3], bool withCurves,
                  double linear[3]) {
  for (int c = 0; c < 3; ++c)
    linear[c] = std::pow(Clamp01(ToneChannel(work, c, stored[c], withCurves)), work.gamma);
}

// The neutral clicks' present and wanted values through the tone path, from
// which the white balance is estimated.
void EstimateCurves(const ColourModel &model, const PointColour *colours, WorkRecord *work) {
  NeutralSample samples[CcMaxPoints];
  int count = 0;
  for (int32_t i = 0; i < work->pointCount; ++i) {
    if (!colours[i].usable || work->points[i].kind != CcKindNeutral) continue;
    double grey[3];
    TargetStored(model, work->targets[CcKindNeutral], colours[i].lightness, grey);
    for (int c = 0; c < 3; ++c) {
      samples[count].present[c] = ToneChannel(*work, c, colours[i].rgb[c], false);
      samples[count].wanted[c] = ToneChannel(*work, c, grey[c], false);
    }
    ++count;
  }
  EstimateWhiteBalance(samples, count, work);
}

// Per-kind lightness bins. The 120-byte work area of a kind holds the sums of
// its present colours, ten bins of three floats; the wanted sums and the
// counts sit beside it in the same order.
struct KindBins {
  float (*present)[3];  // the kind's work area
  double wanted[kBins][3];
  int count[kBins];
};

// A bin nobody clicked in takes the pair of its filled neighbours: linear
// between the nearest filled bin below and above, or a copy of the nearest
// one beyond the ends. The fit then sees the clicked colours carried across
// the whole lightness range, with no jumps between bins.
void PairsFromBins(const KindBins &bins, Pair out[kBins]) {
  Pair mean[kBins];
  for (int b = 0; b < kBins; ++b)
    for (int c = 0; c < 3; ++c) {
      mean[b].present[c] = bins.count[b] ? bins.present[b][c] / bins.count[b] : 0.0;
      mean[b].wanted[c] = bins.count[b] ? bins.wanted[b][c] / bins.count[b] : 0.0;
    }
  for (int b = 0; b < kBins; ++b) {
    int below = b, above = b;
    while (below >= 0 && !bins.count[below])
      --below;
    while (above < kBins && !bins.count[above])
      ++above;
    const int from = below >= 0 ? below : above, to = above < kBins ? above : below;
    const double f = from == to ? 0.0 : double(b - from) / double(to - from);
    for (int c = 0; c < 3; ++c) {
      out[b].present[c] = mean[from].present[c] + f * (mean[to].present[c] - mean[from].present[c]);
      out[b].wanted[c] = mean[from].wanted[c] + f * (mean[to].wanted[c] - mean[from].wanted[c]);
    }
  }
}

// A kind nobody clicked keeps its colours: its target at five lightnesses,
// each wanted exactly where it is.
int AnchorPairs(const ColourModel &model, const CcToolTarget &target, Pair *out) {
  static const double kLightness[5] = {0.0, 25.0, 50.0, 75.0, 100.0};
  for (int i = 0; i < 5; ++i) {
    double lab[3];
    TargetLab(target, kLightness[i], lab);
    LabToLinear(model, lab, out[i].present);
    for (int c = 0; c < 3; ++c)
      out[i].wanted[c] = out[i].present[c] = Clamp01(out[i].present[c]);
  }
  return 5;
}

// present x m = wanted in the least-squares sense: m = (sum p p^T)^-1 (sum p w^T).
int32_t SolveMatrix(const Pair *pairs, int count, double matrix[9]) {
  if (count < 3) return CcErrArgument;
  double normal[9] = {}, cross[9] = {};
  for (int n = 0; n < count; ++n)
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        normal[i * 3 + j] += pairs[n].present[i] * pairs[n].present[j];
        cross[i * 3 + j] += pairs[n].present[i] * pairs[n].wanted[j];
      }
  double inverse[9];
  if (!InvertMatrix(normal, inverse, 3)) return CcErrArgument;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      matrix[i * 3 + j] = inverse[i * 3] * cross[j] + inverse[i * 3 + 1] * cross[3 + j] +
                          inverse[i * 3 + 2] * cross[6 + j];
  return CcOk;
}

}  // namespace

void LimitMatrix(double matrix[9]) {
  double share = 0.0;
  for (int i = 0; i < 9; ++i) {
    const double e = matrix[i];
    double t = 0.0;
    if (i % 4 == 0) {  // diagonal
      if (e > 1.1) t = (e - 1.1) / (e - 1.0);
      if (e < 0.9) t = (0.9 - e) / (1.0 - e);
    } else {
      if (e > 0.1) t = (e - 0.1) / e;
      if (e < -0.1) t = (-0.1 - e) / (-e);
    }
    if (t > share) share = t;
  }
  // One share for the whole matrix: clamping elements one by one would
  // change the balance between channels and tint the photo.
  if (share <= 0.0) return;
  for (int i = 0; i < 9; ++i) {
    const double identity = i % 4 == 0 ? 1.0 : 0.0;
    matrix[i] += share * (identity - matrix[i]);
  }
}

int32_t EstimateCorrection(const ColourModel &model, WorkRecord *work, const PointColour *colours,
                           double matrix[9]) {
  KindBins bins[kKinds] = {};
  int32_t code = CcOk;
  for (KindBins &kind : bins) {
    kind.present = static_cast<float(*)[3]>(std::calloc(1, sizeof(float[kBins][3])));
    if (!kind.present) code = CcErrMemory;
  }
  if (code == CcOk) {
    if (work->flags[0]) EstimateCurves(model, colours, work);
    for (int32_t i = 0; i < work->pointCount; ++i) {
      const int32_t kind = work->points[i].kind;
      if (!colours[i].usable || kind < 0 || kind >= kKinds) continue;
      const double lightness = colours[i].lightness;
      int bin = static_cast<int>(lightness * kBins / work->lightnessTop);
      bin = bin < 0 ? 0 : bin > kBins - 1 ? kBins - 1 : bin;
      double present[3], wanted[3];
      ToneToLinear(*work, colours[i].rgb, true, present);
      TargetStored(model, work->targets[kind], lightness, wanted);
      ToneToLinear(*work, wanted, false, wanted);
      for (int c = 0; c < 3; ++c) {
        bins[kind].present[bin][c] += static_cast<float>(present[c]);
        bins[kind].wanted[bin][c] += wanted[c];
      }
      ++bins[kind].count[bin];
    }
    Pair pairs[kMaxPairs];
    int count = 0;
    for (int kind = 0; kind < kKinds; ++kind) {
      bool clicked = false;
      for (int b = 0; b < kBins; ++b)
        clicked = clicked || bins[kind].count[b] > 0;
      if (clicked) {
        PairsFromBins(bins[kind], pairs + count);
        count += kBins;
      } else {
        count += AnchorPairs(model, work->targets[kind], pairs + count);
      }
    }
    code = SolveMatrix(pairs, count, matrix);
    if (code == CcOk) LimitMatrix(matrix);
  }
  for (KindBins &kind : bins)
    std::free(kind.present);
  return code;
}

}  // namespace cc

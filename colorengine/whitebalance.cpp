// White balance from neutral clicks. A wrong white balance (the camera set
// for daylight under a lamp, or for a lamp in the shade) multiplies each
// channel's linear light by a constant of its own: the same factor for a dark
// coat as for a white wall. The correction is modelled the same way, as a gain
// per channel in linear light, so that one clicked grey puts every lightness
// right. A curve fitted to the stored values through the one clicked grey (a
// power, say) is right only there and bends the other greys the other way.
//
// Several clicks give a monotone cubic in linear light through all of them,
// for what one gain cannot describe (a lamp that tints shadows and highlights
// differently, a photo whose encoding is not quite the assumed one); beyond
// the darkest and the lightest click the curve is that click's gain.
#include "colorengine/whitebalance.h"

#include <algorithm>
#include <cmath>

namespace cc {

namespace {

// Where a lifted channel leaves its straight line and rolls off into full
// scale: above an L* 90 grey (0.76 linear), so greys up to there get the
// exact gain. A lowered channel stays a plain gain to the top. Bending it back
// up to full scale would keep a blown white white, but the colour grid samples
// the curve every tenth level, so the bend would reach down into the light
// greys and tint them.
constexpr double kShoulder = 0.8;
// Beyond these a "grey" is a coloured thing clicked as one; balancing to it
// would wreck the tones rather than correct them.
constexpr double kLowestGain = 0.25, kHighestGain = 4.0;
// Stored values at the very ends are clipped or lost in noise and say nothing
// about the gain.
constexpr double kLowestStored = 1.0 / 255.0, kHighestStored = 254.0 / 255.0;
// Clicks closer than this in a channel's linear light are one click.
constexpr double kSameLight = 1e-4;

// Linear light of a stored value and back. A gamma of 2.2 is how a colour
// space states the sRGB encoding that cameras write: a 2.4 power with a
// straight foot, near 2.2 overall. A gain is constant only in the light the
// photo was really written in: read through the plain power, the gain of a
// dark grey is a tenth off that of a light one, enough for a click on the
// dark grey to tint the light ones.
bool IsSrgb(double gamma) {
  return std::fabs(gamma - 2.2) < 1e-3;
}

double ToLinear(double stored, double gamma) {
  if (!IsSrgb(gamma)) return std::pow(stored, gamma);
  return stored <= 0.04045 ? stored / 12.92 : std::pow((stored + 0.055) / 1.055, 2.4);
}

double ToStored(double linear, double gamma) {
  if (!IsSrgb(gamma)) return std::pow(linear, 1.0 / gamma);
  return linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

double GainSlope(double gain, double x) {
  if (gain > 1.0) {
    const double u = gain * x;
    if (u <= kShoulder) return gain;
    const double span = gain - kShoulder, power = span / (1.0 - kShoulder);
    return gain * std::pow(1.0 - (u - kShoulder) / span, power - 1.0);
  }
  return gain;
}

// A clicked grey in one channel, linear light: what it is and what it should be.
struct Knot {
  double x, y, weight;
};

struct ChannelCurve {
  Knot knots[CcMaxPoints];
  double tangents[CcMaxPoints];
  int count = 0;
  double lowGain = 1.0, highGain = 1.0;  // beyond the first and the last knot
};

void Merge(Knot *into, const Knot &from) {
  const double w = into->weight + from.weight;
  into->x = (into->x * into->weight + from.x * from.weight) / w;
  into->y = (into->y * into->weight + from.y * from.weight) / w;
  into->weight = w;
}

// Sorts the knots by present light and averages those that contradict each
// other (a lighter present grey that should end darker) or coincide, until the
// wanted light rises strictly with the present light.
void Pool(ChannelCurve *curve) {
  std::sort(curve->knots, curve->knots + curve->count,
            [](const Knot &a, const Knot &b) { return a.x < b.x; });
  int kept = 0;
  for (int i = 0; i < curve->count; ++i) {
    curve->knots[kept++] = curve->knots[i];
    while (kept > 1 && (curve->knots[kept - 1].y <= curve->knots[kept - 2].y ||
                        curve->knots[kept - 1].x - curve->knots[kept - 2].x < kSameLight)) {
      Merge(&curve->knots[kept - 2], curve->knots[kept - 1]);
      --kept;
    }
  }
  curve->count = kept;
}

// The end knots take their own gain's curve, whose top is bent; should that
// undo the rise towards a neighbour, the two are averaged and tried again.
void FitEnds(ChannelCurve *curve) {
  for (;;) {
    Knot &first = curve->knots[0], &last = curve->knots[curve->count - 1];
    curve->lowGain = first.y / first.x;
    curve->highGain = last.y / last.x;
    const double low = GainCurve(curve->lowGain, first.x);
    const double high = GainCurve(curve->highGain, last.x);
    if (curve->count == 1) {
      first.y = low;
      return;
    }
    if (low < curve->knots[1].y && high > curve->knots[curve->count - 2].y) {
      first.y = low;
      last.y = high;
      return;
    }
    if (low >= curve->knots[1].y) {
      Merge(&curve->knots[1], first);
      std::copy(curve->knots + 1, curve->knots + curve->count, curve->knots);
    } else {
      Merge(&curve->knots[curve->count - 2], last);
    }
    --curve->count;
  }
}

// Tangents that keep each cubic piece monotone: the harmonic mean of the
// neighbouring secants inside, the end gains' own slopes at the ends, held to
// three secants (the bound beyond which a cubic piece can overshoot).
void FitTangents(ChannelCurve *curve) {
  const int n = curve->count;
  auto secant = [curve](int i) {
    const Knot &a = curve->knots[i], &b = curve->knots[i + 1];
    return (b.y - a.y) / (b.x - a.x);
  };
  curve->tangents[0] = GainSlope(curve->lowGain, curve->knots[0].x);
  curve->tangents[n - 1] = GainSlope(curve->highGain, curve->knots[n - 1].x);
  for (int i = 1; i < n - 1; ++i)
    curve->tangents[i] = 2.0 / (1.0 / secant(i - 1) + 1.0 / secant(i));
  if (n > 1) {
    curve->tangents[0] = std::min(curve->tangents[0], 3.0 * secant(0));
    curve->tangents[n - 1] = std::min(curve->tangents[n - 1], 3.0 * secant(n - 2));
  }
}

double Evaluate(const ChannelCurve &curve, double x) {
  const Knot *knots = curve.knots;
  const int n = curve.count;
  if (x <= knots[0].x) return GainCurve(curve.lowGain, x);
  if (x >= knots[n - 1].x) return GainCurve(curve.highGain, x);
  int i = 0;
  while (x >= knots[i + 1].x)
    ++i;
  const double h = knots[i + 1].x - knots[i].x, s = (x - knots[i].x) / h;
  const double s2 = s * s, s3 = s2 * s;
  return (2 * s3 - 3 * s2 + 1) * knots[i].y + (s3 - 2 * s2 + s) * h * curve.tangents[i] +
         (-2 * s3 + 3 * s2) * knots[i + 1].y + (s3 - s2) * h * curve.tangents[i + 1];
}

}  // namespace

double GainCurve(double gain, double x) {
  if (gain > 1.0) {
    const double u = gain * x;
    if (u <= kShoulder) return u;
    // 1 - (1 - s)^p over the span from the shoulder to the unbent top: it
    // leaves the line with the line's slope and flattens into exactly 1.
    const double span = gain - kShoulder, power = span / (1.0 - kShoulder);
    return kShoulder + (1.0 - kShoulder) * (1.0 - std::pow(1.0 - (u - kShoulder) / span, power));
  }
  return gain * x;
}

void EstimateWhiteBalance(const NeutralSample *samples, int count, WorkRecord *work) {
  if (count <= 0) return;
  const double gamma = work->gamma;
  bool any = false;
  for (int c = 0; c < 3; ++c) {
    ChannelCurve curve;
    for (int i = 0; i < count; ++i) {
      const double p = samples[i].present[c], w = samples[i].wanted[c];
      if (p < kLowestStored || p > kHighestStored || w < kLowestStored || w > kHighestStored)
        continue;
      const double x = ToLinear(p, gamma);
      const double gain = std::clamp(ToLinear(w, gamma) / x, kLowestGain, kHighestGain);
      curve.knots[curve.count++] = {x, gain * x, 1.0};
    }
    any = any || curve.count > 0;
    if (curve.count == 0) curve.knots[curve.count++] = {0.5, 0.5, 1.0};  // nothing to go by
    Pool(&curve);
    FitEnds(&curve);
    FitTangents(&curve);
    for (int i = 0; i < kCurvePoints; ++i) {
      const double x = ToLinear(double(i) / (kCurvePoints - 1), gamma);
      work->curves[c][i] = static_cast<float>(ToStored(Clamp01(Evaluate(curve, x)), gamma));
    }
  }
  work->haveCurves = any;
}

}  // namespace cc

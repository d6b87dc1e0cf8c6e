// The colour arithmetic of the builder: the RGB-to-XYZ matrix of a set of
// primaries and a white point, adaptation to the 5000 K white under which
// clicked colours are judged, and CIE L*a*b* both ways.
#include <cmath>

#include "colorengine/cc.h"
#include "colorengine/invert.h"
#include "colorengine/work.h"

namespace cc {

namespace {

constexpr double kPi = 3.14159265358979323846;

void Multiply(const double a[9], const double b[9], double out[9]) {
  double r[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r[i * 3 + j] = a[i * 3] * b[j] + a[i * 3 + 1] * b[3 + j] + a[i * 3 + 2] * b[6 + j];
  for (int i = 0; i < 9; ++i)
    out[i] = r[i];
}

void Apply(const double m[9], const double v[3], double out[3]) {
  const double r[3] = {m[0] * v[0] + m[1] * v[1] + m[2] * v[2],
                       m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
                       m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
  out[0] = r[0], out[1] = r[1], out[2] = r[2];
}

// Each primary's XYZ at Y = 1 in a column, scaled so that full red, green
// and blue together give the white point: the usual construction from
// chromaticities.
bool RgbToXyz(const float primaries[6], const float white[3], double m[9]) {
  double p[9];
  for (int i = 0; i < 3; ++i) {
    const double x = primaries[2 * i], y = primaries[2 * i + 1];
    if (!(y > 0.0)) return false;
    p[0 + i] = x / y;
    p[3 + i] = 1.0;
    p[6 + i] = (1.0 - x - y) / y;
  }
  double inverse[9], scale[3];
  if (!InvertMatrix(p, inverse, 3)) return false;
  const double w[3] = {white[0], white[1], white[2]};
  Apply(inverse, w, scale);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      m[r * 3 + c] = p[r * 3 + c] * scale[c];
  return true;
}

CcArray *ArrayFrom(const double m[9]) {
  CcArray *array = CcArrayCreate(3, 2);
  if (!array) return nullptr;
  auto **rows = static_cast<float **>(array->data);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      rows[r][c] = static_cast<float>(m[r * 3 + c]);
  return array;
}

void DoublesFrom(const CcArray *array, double m[9]) {
  const float *cells = CcArrayCells(array);
  for (int i = 0; i < 9; ++i)
    m[i] = cells[i];
}

// Bradford cone response: adapting through it keeps a colour's appearance
// when the white changes better than scaling XYZ does, so a sky stays a sky
// when judged under 5000 K.
constexpr double kBradford[9] = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135,
                                 0.0367, 0.0389, -0.0685, 1.0296};

void Adaptation(const double from[3], const double to[3], double m[9]) {
  double inverse[9], coneFrom[3], coneTo[3];
  InvertMatrix(kBradford, inverse, 3);
  Apply(kBradford, from, coneFrom);
  Apply(kBradford, to, coneTo);
  double scaled[9];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      scaled[r * 3 + c] = kBradford[r * 3 + c] * coneTo[r] / coneFrom[r];
  Multiply(inverse, scaled, m);
}

// CIE 1976 lightness function and its inverse, with the linear part near black.
constexpr double kEpsilon = 216.0 / 24389.0, kKappa = 24389.0 / 27.0;

double LabF(double t) {
  return t > kEpsilon ? std::cbrt(t) : (kKappa * t + 16.0) / 116.0;
}

double LabFInverse(double f) {
  const double cube = f * f * f;
  return cube > kEpsilon ? cube : (116.0 * f - 16.0) / kKappa;
}

}  // namespace

CcArray *CreateRgbToXyz(const float primaries[6], const float white[3]) {
  double m[9];
  if (!RgbToXyz(primaries, white, m)) return nullptr;
  return ArrayFrom(m);
}

CcArray *CreateXyzToRgb(const float primaries[6], const float white[3]) {
  CcArray *inverse = CcArrayCreate(3, 2);
  CcArray *forward = CreateRgbToXyz(primaries, white);
  const bool ok = inverse && forward && CcArrayInvert(forward, inverse) == 0;
  CcArrayFree(forward);
  if (ok) return inverse;
  CcArrayFree(inverse);
  return nullptr;
}

int32_t MakeColourModel(const WorkRecord &work, const CcArray *toXyz, const CcArray *fromXyz,
                        ColourModel *model) {
  float judgingWhite[3];
  (void)CcWhiteFromTemperature(5000.0, judgingWhite);
  const double photoWhite[3] = {work.white[0], work.white[1], work.white[2]};
  double forward[9], backward[9], adapt[9], unadapt[9];
  DoublesFrom(toXyz, forward);
  DoublesFrom(fromXyz, backward);
  for (int i = 0; i < 3; ++i)
    model->white[i] = judgingWhite[i];
  Adaptation(photoWhite, model->white, adapt);
  Adaptation(model->white, photoWhite, unadapt);
  Multiply(adapt, forward, model->toJudging);
  Multiply(backward, unadapt, model->fromJudging);
  model->gamma = work.gamma;
  return CcOk;
}

void LinearToLab(const ColourModel &model, const double rgb[3], double lab[3]) {
  double xyz[3];
  Apply(model.toJudging, rgb, xyz);
  const double fx = LabF(xyz[0] / model.white[0]);
  const double fy = LabF(xyz[1] / model.white[1]);
  const double fz = LabF(xyz[2] / model.white[2]);
  lab[0] = 116.0 * fy - 16.0;
  lab[1] = 500.0 * (fx - fy);
  lab[2] = 200.0 * (fy - fz);
}

void LabToLinear(const ColourModel &model, const double lab[3], double rgb[3]) {
  const double fy = (lab[0] + 16.0) / 116.0;
  const double xyz[3] = {model.white[0] * LabFInverse(fy + lab[1] / 500.0),
                         model.white[1] * LabFInverse(fy),
                         model.white[2] * LabFInverse(fy - lab[2] / 200.0)};
  Apply(model.fromJudging, xyz, rgb);
}

void TargetLab(const CcToolTarget &target, double lightness, double lab[3]) {
  // Full chroma at L = 50, none at black or white.
  const double chroma = target.chroma * 0.04 * lightness * (1.0 - lightness * 0.01);
  const double hue = (target.hue + target.hueSlope * (lightness - 50.0)) * kPi / 180.0;
  lab[0] = lightness;
  lab[1] = chroma * std::cos(hue);
  lab[2] = chroma * std::sin(hue);
}

double ChromaOf(const double lab[3]) {
  return std::hypot(lab[1], lab[2]);
}

double HueOf(const double lab[3]) {
  const double h = std::atan2(lab[2], lab[1]) * 180.0 / kPi;
  return h < 0.0 ? h + 360.0 : h;
}

}  // namespace cc

// The builder's private records: the work record copied from the caller's
// parameters with the builder's fixed settings, the colour model used to
// judge clicked colours, and the steps that CcBuildTransform runs in order.
#pragma once

#include <cstdint>

#include "colorengine/cc.h"

struct PlanarImage;

namespace cc {

constexpr int kBins = 10;          // lightness bins per kind
constexpr int kCurvePoints = 100;  // points of an estimated per-channel curve

inline double Clamp01(double t) {
  return t < 0.0 ? 0.0 : t > 1.0 ? 1.0 : t;
}

struct WorkRecord {
  float gamma;
  float white[3];
  float primaries[6];
  CcToolTarget targets[4];
  uint8_t flags[2];
  float bias;
  int32_t pointCount;
  CcPoint points[CcMaxPoints];
  // Fixed settings.
  int32_t gridSizeIndex;          // into the table of node counts
  float black[3], whiteLevel[3];  // per-channel levels on the 0..255 scale
  float contrast;                 // 0.5 = no change
  float lightnessTop;             // top of the L* scale
  // Further tone settings held at their no-change value; the tone path has
  // no step that reads them.
  float neutralSettings[7];
  // Per-channel curves, when the estimate made them.
  bool haveCurves;
  float curves[3][kCurvePoints];
};

void FillWorkRecord(const CcParams &params, WorkRecord *work);

// One channel's tone path for t in 0..1: levels, brightness bias, contrast
// and, when asked and estimated, the channel's curve.
double ToneChannel(const WorkRecord &work, int channel, double t, bool withCurves);

// Linear RGB of the photo to and from CIE L*a*b* judged under a 5000 K white.
struct ColourModel {
  double gamma;
  double toJudging[9];  // linear RGB -> XYZ adapted to 5000 K, row by row (xyz = M rgb)
  double fromJudging[9];
  double white[3];  // 5000 K white, Y = 1
};

// Builds the model from the RGB-to-XYZ matrix of the primaries and white
// point and its inverse (CcArray objects, freed by the caller).
int32_t MakeColourModel(const WorkRecord &work, const CcArray *toXyz, const CcArray *fromXyz,
                        ColourModel *model);
// The 3 x 3 array taking linear RGB to XYZ (xyz = M rgb), and its inverse;
// null when memory runs out or the primaries are degenerate.
CcArray *CreateRgbToXyz(const float primaries[6], const float white[3]);
CcArray *CreateXyzToRgb(const float primaries[6], const float white[3]);

void LinearToLab(const ColourModel &model, const double rgb[3], double lab[3]);
void LabToLinear(const ColourModel &model, const double lab[3], double rgb[3]);
// The target colour of a tool at lightness L, as L*a*b*.
void TargetLab(const CcToolTarget &target, double lightness, double lab[3]);
// Chroma and hue angle (degrees, 0..360) of an L*a*b* colour.
double ChromaOf(const double lab[3]);
double HueOf(const double lab[3]);

// What sampling a clicked point found: the mean colour (0..255 per channel)
// and the means of its lighter and darker halves, whose hues tell a grey
// surface (hues all over) from a pale but coloured one (one hue).
struct PointSample {
  double mean[3];
  double lighter[3], darker[3];
};
// False (kind -1) when the description or the point is refused.
bool SamplePoint(const PlanarImage *image, int32_t x, int32_t y, bool neighbourhood,
                 PointSample *sample);
int32_t ClassifySample(const ColourModel &model, const PointSample &sample);

// Per point: its sampled colour (0..1 per channel, as stored in the photo)
// and its lightness. Filled for the points that take part in the estimate.
struct PointColour {
  bool usable;
  double rgb[3];
  double lightness;
};

// The estimate: the per-channel curves (into work) and the 3 x 3 matrix, row by
// row, applied to linear RGB as a row vector. Returns 0, -1 or -3.
int32_t EstimateCorrection(const ColourModel &model, WorkRecord *work, const PointColour *colours,
                           double matrix[9]);
// The share-of-the-way limiting toward the identity (the last part of the estimate).
void LimitMatrix(double matrix[9]);

}  // namespace cc

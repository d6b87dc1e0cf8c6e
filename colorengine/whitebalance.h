// White balance from neutral clicks: the per-channel curves of the tone path.
#pragma once

#include "colorengine/work.h"

namespace cc {

// One clicked grey per channel: its value through the tone path (0..1, the
// photo's encoding) and the value the grey of its lightness has there.
struct NeutralSample {
  double present[3], wanted[3];
};

// Fills work->curves from the samples and sets haveCurves. With no sample the
// record keeps no curves, so the tone path stays the identity; a channel no
// sample can speak for (clipped or black in every one) keeps the identity.
void EstimateWhiteBalance(const NeutralSample *samples, int count, WorkRecord *work);

// One gain in linear light as a curve: y = gain x, where the gain lifts the
// channel rolling off smoothly into 1 instead of clipping.
double GainCurve(double gain, double x);

}  // namespace cc

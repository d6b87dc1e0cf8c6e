// The correction parameters' defaults: the photo's colour space, the tool
// targets, and the daylight white point of a colour temperature.
#include "colorengine/cc.h"

namespace {

// How a value outside its allowed range is treated: refused with -2,
// clamped into the range, or taken as it is. Clamping is in force.
enum class RangePolicy { kRefuse, kClamp, kUnchecked };
constexpr RangePolicy kRangePolicy = RangePolicy::kClamp;

constexpr double kLowestKelvin = 4000.0, kHighestKelvin = 25000.0;

}  // namespace

int32_t CcWhiteFromTemperature(double kelvin, float xyz[3]) {
  if (kelvin < kLowestKelvin || kelvin > kHighestKelvin) {
    if (kRangePolicy == RangePolicy::kRefuse) return CcErrUndescribed;
    if (kRangePolicy == RangePolicy::kClamp)
      kelvin = kelvin < kLowestKelvin ? kLowestKelvin : kHighestKelvin;
  }
  // Chromaticity on the CIE daylight locus, in powers of 1 / T.
  const double u = 1.0 / kelvin;
  const double x = kelvin >= 7000.0 ? ((-2.0064e9 * u + 1.9018e6) * u + 247.48) * u + 0.23704
                                    : ((-4.607e9 * u + 2.9678e6) * u + 99.11) * u + 0.244063;
  const double y = (-3.0 * x + 2.87) * x - 0.275;
  const double luminance = 1.0;
  if (y >= 1e-10) {
    xyz[0] = static_cast<float>(x * luminance / y);
    xyz[1] = static_cast<float>(luminance);
    xyz[2] = static_cast<float>((1.0 - x - y) * luminance / y);
  } else {
    xyz[0] = xyz[1] = xyz[2] = 0.0f;
  }
  return CcOk;
}

int32_t CcInitColorSpace(CcColorSpace *block) {
  if (!block) return CcErrArgument;
  block->gamma = 2.2f;
  static const float kPrimaries[6] = {0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f};
  for (int i = 0; i < 6; ++i)
    block->primaries[i] = kPrimaries[i];
  return CcWhiteFromTemperature(6500.0, block->white);
}

int32_t CcGetToolTarget(int32_t tool, CcToolTarget *target) {
  if (!target) return CcErrArgument;
  static const CcToolTarget kTargets[4] = {
      {40.0f, 120.0f, -0.5f},  // grass and leaves
      {32.0f, 45.0f, 0.0f},    // skin
      {40.0f, 258.0f, -0.7f},  // sky
      {0.0f, 0.0f, 0.0f},      // neutral
  };
  *target = kTargets[tool >= 0 && tool <= 2 ? tool : 3];
  return CcOk;
}

int32_t CcInitParams(CcParams *params) {
  if (!params) return CcErrArgument;
  (void)CcInitColorSpace(&params->space);
  for (int32_t tool = 0; tool < 4; ++tool)
    (void)CcGetToolTarget(tool, &params->targets[tool]);
  params->flags[0] = 1;
  params->flags[1] = 1;
  params->bias = 0.5f;
  params->pointCount = 0;
  return CcOk;
}

// Model conversions to 8-bit RGB, one row at a time.
//
// Grey is replicated into all three channels.
// RGB with alpha (four channels) is flattened on white.
// CMYK planes hold ink amounts (0 = no ink); each primary is what the two
// inks that do not absorb it leave, multiplied by what black leaves:
//   R = (255 - C) (255 - K) / 255, likewise G with M and B with Y, rounded.
// CIE L*a*b* planes hold L scaled to 0..255 and a, b offset by 128. They are
// taken relative to the D50 white that colour-managed writers use for L*a*b*
// (the connection space of ICC profiles; a real L*a*b* photo and its RGB twin
// agree within 2 levels on average this way, and differ twice as much when
// read as D65), turned into XYZ by the CIE formulas, into linear sRGB by the
// sRGB matrix adapted to D50 (Bradford) and encoded with the sRGB curve.
// Photo CD YCC uses the published PhotoYCC scaling:
//   Y' = 1.3584 Y, C1' = 2.2179 (C1 - 156), C2' = 1.8215 (C2 - 137),
//   R = Y' + C2', G = Y' - 0.194 C1' - 0.509 C2', B = Y' + C1',
// which can exceed 255 for the film's extended highlights; those are clipped.
// Samples wider than 8 bits are first scaled to 0..255, except Cineon's:
// its 10-bit code values are printing densities, 0.002 a step, and a film
// scan shown as they stand looks grey and flat. They are viewed through the
// customary conversion of a negative to a display: reference white at code
// 685 and black at 95, film gamma 0.6 and display gamma 1.7, so
//   v = 10^((code - 685) 0.002 / 0.6 / 1.7),  out = 255 (v - v95) / (1 - v95),
// highlights above the reference white clipped.
#include "raster/rasrgb.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

uint8_t Clip(double v) {
  return static_cast<uint8_t>(v <= 0 ? 0 : v >= 255 ? 255 : v + 0.5);
}

struct CineonView {
  uint8_t v[1024];
  CineonView() : v{} {
    const auto view = [](double code) { return std::pow(10.0, (code - 685) * 0.002 / 0.6 / 1.7); };
    const double black = view(95);
    for (int code = 0; code < 1024; ++code)
      v[code] = Clip(255 * (view(code) - black) / (1 - black));
  }
};

// Sample x of channel k as 0..255, whatever the file's sample width.
struct Samples {
  const RasSl *sl;
  uint32_t maxval;
  const uint8_t *log;  // Cineon's view of its code values, or null
  uint32_t operator()(uint32_t k, uint32_t x) const {
    if (maxval <= 255) return sl->plane8[k][x];
    if (log) return log[sl->plane16[k][x] & 1023];
    return (sl->plane16[k][x] * 255u + maxval / 2) / maxval;
  }
};

double SrgbEncode(double linear) {
  return linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}

double LabInverse(double t) {
  constexpr double kDelta = 6.0 / 29.0;
  return t > kDelta ? t * t * t : 3 * kDelta * kDelta * (t - 4.0 / 29.0);
}

void LabToRgb(double l, double a, double b, uint8_t *rgb) {
  const double fy = (l + 16) / 116;
  const double x = 0.96422 * LabInverse(fy + a / 500);
  const double y = 1.00000 * LabInverse(fy);
  const double z = 0.82521 * LabInverse(fy - b / 200);
  const double linear[3] = {3.1338561 * x - 1.6168667 * y - 0.4906146 * z,
                            -0.9787684 * x + 1.9161415 * y + 0.0334540 * z,
                            0.0719453 * x - 0.2289914 * y + 1.4052427 * z};
  for (int k = 0; k < 3; ++k)
    rgb[k] = Clip(255 * SrgbEncode(linear[k] < 0 ? 0 : linear[k]));
}

}  // namespace

int RasSlToRgb(const RasSl *sl, const RasDesc *desc, uint8_t *red, uint8_t *green, uint8_t *blue) {
  if (!sl || !desc || !red || !green || !blue) return RasError("RasSlToRgb", RasErrArg, 0);
  static const CineonView kCineon;
  const bool cineon = desc->format == RasFormatCineon && desc->maxval == 1023;
  const Samples at{sl, desc->maxval, cineon ? kCineon.v : nullptr};
  const uint32_t width = desc->width;
  // RGB with alpha in plane 3: shown over white, as a viewer shows a
  // transparent picture on a page (c a + white (1 - a), alpha 0..maxval).
  if (desc->model == RasModelRgb && desc->channels == 4) {
    uint8_t *const out[3] = {red, green, blue};
    for (uint32_t x = 0; x < width; ++x) {
      const uint32_t alpha = desc->maxval <= 255 ? sl->plane8[3][x] : sl->plane16[3][x];
      const uint32_t clear = desc->maxval - std::min(alpha, desc->maxval);
      for (uint32_t k = 0; k < 3; ++k) {
        const uint64_t c = desc->maxval <= 255 ? sl->plane8[k][x] : sl->plane16[k][x];
        const uint64_t v = c * std::min(alpha, desc->maxval) + uint64_t{desc->maxval} * clear;
        out[k][x] = uint8_t((v * 255 + uint64_t{desc->maxval} * desc->maxval / 2) /
                            (uint64_t{desc->maxval} * desc->maxval));
      }
    }
    return RasOk;
  }
  if (desc->maxval <= 255 && (desc->model == RasModelRgb || desc->model == RasModelGray)) {
    const bool grey = desc->model == RasModelGray;
    std::memcpy(red, sl->plane8[0], width);
    std::memcpy(green, sl->plane8[grey ? 0 : 1], width);
    std::memcpy(blue, sl->plane8[grey ? 0 : 2], width);
    return RasOk;
  }
  switch (desc->model) {
    case RasModelGray:
      for (uint32_t x = 0; x < width; ++x)
        red[x] = green[x] = blue[x] = uint8_t(at(0, x));
      return RasOk;
    case RasModelRgb:
      for (uint32_t x = 0; x < width; ++x) {
        red[x] = uint8_t(at(0, x));
        green[x] = uint8_t(at(1, x));
        blue[x] = uint8_t(at(2, x));
      }
      return RasOk;
    case RasModelCmyk:
      for (uint32_t x = 0; x < width; ++x) {
        const uint32_t white = 255 - at(3, x);
        red[x] = uint8_t(((255 - at(0, x)) * white + 127) / 255);
        green[x] = uint8_t(((255 - at(1, x)) * white + 127) / 255);
        blue[x] = uint8_t(((255 - at(2, x)) * white + 127) / 255);
      }
      return RasOk;
    case RasModelLab:
      for (uint32_t x = 0; x < width; ++x) {
        uint8_t rgb[3];
        LabToRgb(at(0, x) * 100.0 / 255.0, at(1, x) - 128.0, at(2, x) - 128.0, rgb);
        red[x] = rgb[0], green[x] = rgb[1], blue[x] = rgb[2];
      }
      return RasOk;
    case RasModelYcc:
      for (uint32_t x = 0; x < width; ++x) {
        const double y = 1.3584 * at(0, x);
        const double c1 = 2.2179 * (at(1, x) - 156.0), c2 = 1.8215 * (at(2, x) - 137.0);
        red[x] = Clip(y + c2);
        green[x] = Clip(y - 0.194 * c1 - 0.509 * c2);
        blue[x] = Clip(y + c1);
      }
      return RasOk;
    default:
      return RasError("RasSlToRgb", RasErrArg, 1);
  }
}

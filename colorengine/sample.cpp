// Sampling the photo around a clicked point and classifying what was found
// as grass and leaves, skin, sky or neutral.
#include <cmath>
#include <cstddef>

#include "colorengine/work.h"
#include "pixels/pixels.h"

namespace cc {

namespace {

// A click lands on one pixel of a textured surface (leaves, skin pores,
// sensor noise); the mean of the 5 x 5 pixels around it is the colour the
// user meant. Near an edge of the photo only the pixels inside count.
constexpr int32_t kReach = 2;

bool DescriptionIsUsable(const PlanarImage *image) {
  if (!image || image->sampleType != 1 || image->channels < 3 || image->width < 1 ||
      image->height < 1 || image->pixelStep == 0 || image->rowStride == 0)
    return false;
  return image->planes[0] && image->planes[1] && image->planes[2];
}

void Pixel(const PlanarImage &image, int32_t x, int32_t y, double rgb[3]) {
  const std::ptrdiff_t at =
      std::ptrdiff_t{y} * image.rowStride + std::ptrdiff_t{x} * image.pixelStep;
  for (int c = 0; c < 3; ++c)
    rgb[c] = image.planes[c][at];
}

void MeanOf(const double sum[3], int count, double mean[3]) {
  for (int c = 0; c < 3; ++c)
    mean[c] = count > 0 ? sum[c] / count : 0.0;
}

double HueDistance(double a, double b) {
  const double d = std::fabs(a - b);
  return d > 180.0 ? 360.0 - d : d;
}

}  // namespace

bool SamplePoint(const PlanarImage *image, int32_t x, int32_t y, bool neighbourhood,
                 PointSample *sample) {
  if (!DescriptionIsUsable(image) || x < 0 || x >= image->width || y < 0 || y >= image->height)
    return false;
  const int32_t reach = neighbourhood ? kReach : 0;
  const int32_t left = x - reach < 0 ? 0 : x - reach;
  const int32_t right = x + reach >= image->width ? image->width - 1 : x + reach;
  const int32_t top = y - reach < 0 ? 0 : y - reach;
  const int32_t bottom = y + reach >= image->height ? image->height - 1 : y + reach;
  double sum[3] = {0, 0, 0};
  int count = 0;
  for (int32_t row = top; row <= bottom; ++row)
    for (int32_t col = left; col <= right; ++col, ++count) {
      double rgb[3];
      Pixel(*image, col, row, rgb);
      for (int c = 0; c < 3; ++c)
        sum[c] += rgb[c];
    }
  MeanOf(sum, count, sample->mean);
  // Split the pixels by brightness around the mean.
  const double middle = sample->mean[0] + sample->mean[1] + sample->mean[2];
  double light[3] = {0, 0, 0}, dark[3] = {0, 0, 0};
  int lights = 0, darks = 0;
  for (int32_t row = top; row <= bottom; ++row)
    for (int32_t col = left; col <= right; ++col) {
      double rgb[3];
      Pixel(*image, col, row, rgb);
      const bool lighter = rgb[0] + rgb[1] + rgb[2] >= middle;
      for (int c = 0; c < 3; ++c)
        (lighter ? light : dark)[c] += rgb[c];
      ++(lighter ? lights : darks);
    }
  MeanOf(light, lights, sample->lighter);
  // A flat patch has no darker half; it then agrees with itself.
  MeanOf(darks > 0 ? dark : light, darks > 0 ? darks : lights, sample->darker);
  return true;
}

int32_t ClassifySample(const ColourModel &model, const PointSample &sample) {
  auto labOf = [&model](const double rgb[3], double lab[3]) {
    double linear[3];
    for (int c = 0; c < 3; ++c)
      linear[c] = std::pow(rgb[c] / 255.0, model.gamma);
    LinearToLab(model, linear, lab);
  };
  double lab[3];
  labOf(sample.mean, lab);
  const double lightness = lab[0], chroma = ChromaOf(lab);
  if (!(chroma >= 0.0)) return CcKindUnclassified;
  if (chroma < 7.0) return CcKindNeutral;
  if ((lightness > 85.0 || lightness < 15.0) && chroma < 15.0) return CcKindNeutral;

  // References at the point's own lightness: grey, grass, skin, sky. The skin
  // reference's hue (48) is deliberately not the skin target's (45).
  static const struct {
    double chroma, hue;
  } kReferences[4] = {{0, 0}, {40, 120}, {32, 48}, {40, 258}};
  double best = 10000.0;
  int nearest = 0;
  for (int r = 0; r < 4; ++r) {
    const CcToolTarget reference{static_cast<float>(kReferences[r].chroma),
                                 static_cast<float>(kReferences[r].hue), 0.0f};
    double at[3];
    TargetLab(reference, lightness, at);
    // Squared distance in L*a*b*; the lightness is the point's own, so only
    // a* and b* differ.
    const double da = lab[1] - at[1], db = lab[2] - at[2];
    const double distance = da * da + db * db;
    if (distance < best) {
      best = distance;
      nearest = r;
    }
  }
  static const int32_t kKindOfReference[4] = {CcKindNeutral, CcKindFoliage, CcKindSkin, CcKindSky};
  if (nearest != 0) return kKindOfReference[nearest];
  // Nearer grey than any colour but too colourful to be plainly neutral:
  // a grey surface under mixed light or noise shows different hues in its
  // lighter and darker parts, while pale skin keeps one hue across its shading.
  double lighter[3], darker[3];
  labOf(sample.lighter, lighter);
  labOf(sample.darker, darker);
  return HueDistance(HueOf(lighter), HueOf(darker)) >= 100.0 ? CcKindNeutral : CcKindSkin;
}

}  // namespace cc

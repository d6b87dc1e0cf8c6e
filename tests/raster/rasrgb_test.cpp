// Every colour model as RGB: known values, and a real L*a*b* photo against the
// same photo stored as RGB by another program.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "raster/rasrgb.h"
#include "tests/raster/testutil.h"

namespace {

struct Rgb {
  int r, g, b;
};

Rgb Convert(uint32_t model, std::initializer_list<uint32_t> samples, uint32_t maxval = 255) {
  uint8_t p8[4][1] = {};
  uint16_t p16[4][1] = {};
  RasSl sl{1, static_cast<uint32_t>(samples.size()), {}, {}};
  uint32_t k = 0;
  for (uint32_t v : samples) {
    p8[k][0] = static_cast<uint8_t>(v), p16[k][0] = static_cast<uint16_t>(v);
    sl.plane8[k] = p8[k], sl.plane16[k] = p16[k], ++k;
  }
  RasDesc desc{1, 1, k, model, RasFormatTiff, 0, maxval, 72.0f, nullptr};
  uint8_t r = 0, g = 0, b = 0;
  EXPECT_EQ(RasSlToRgb(&sl, &desc, &r, &g, &b), RasOk);
  return {r, g, b};
}

TEST(RasSlToRgb, KnownValuesOfEveryModel) {
  const struct {
    uint32_t model;
    std::initializer_list<uint32_t> samples;
    uint32_t maxval;
    Rgb want;
    int tolerance;
  } cases[] = {
      {RasModelGray, {77}, 255, {77, 77, 77}, 0},
      {RasModelGray, {65535}, 65535, {255, 255, 255}, 0},
      {RasModelRgb, {1, 2, 3}, 255, {1, 2, 3}, 0},
      {RasModelRgb, {257, 32896, 65535}, 65535, {1, 128, 255}, 0},
      {RasModelCmyk, {0, 0, 0, 0}, 255, {255, 255, 255}, 0},
      {RasModelCmyk, {255, 0, 0, 0}, 255, {0, 255, 255}, 0},
      {RasModelCmyk, {0, 0, 0, 255}, 255, {0, 0, 0}, 0},
      {RasModelCmyk, {0, 128, 0, 128}, 255, {127, 63, 127}, 0},
      {RasModelLab, {255, 128, 128}, 255, {255, 255, 255}, 1},
      {RasModelLab, {0, 128, 128}, 255, {0, 0, 0}, 0},
      {RasModelLab, {138, 209, 198}, 255, {255, 0, 0}, 6},  // sRGB red is about 54, 81, 70
      {RasModelYcc, {0, 156, 137}, 255, {0, 0, 0}, 0},
      {RasModelYcc, {100, 156, 137}, 255, {136, 136, 136}, 0},
      {RasModelYcc, {188, 156, 137}, 255, {255, 255, 255}, 0},  // film highlights clip
  };
  for (const auto &c : cases) {
    const Rgb got = Convert(c.model, c.samples, c.maxval);
    SCOPED_TRACE(testing::Message()
                 << "model " << c.model << " -> " << got.r << "," << got.g << "," << got.b);
    EXPECT_NEAR(got.r, c.want.r, c.tolerance);
    EXPECT_NEAR(got.g, c.want.g, c.tolerance);
    EXPECT_NEAR(got.b, c.want.b, c.tolerance);
  }
  RasDesc desc{1, 1, 1, 3, RasFormatTiff, 0, 255, 72.0f, nullptr};
  RasSl sl{};
  uint8_t byte = 0;
  EXPECT_EQ(RasSlToRgb(&sl, &desc, &byte, &byte, &byte), RasErrArg);  // model 3 has no meaning
  EXPECT_EQ(RasSlToRgb(nullptr, &desc, &byte, &byte, &byte), RasErrArg);
}

// The same portrait, written as CIE L*a*b* TIFF and as RGB BMP by another
// program: converted, the two agree closely.
TEST(RasSlToRgb, LabPhotoMatchesItsRgbTwin) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR);
  testutil::Picture lab, rgb;
  RasDesc labDesc{};
  ASSERT_EQ(testutil::ReadPicture(dir + "/tiff/pillow__hopper.Lab.tif", &lab, &labDesc), RasOk);
  ASSERT_EQ(testutil::ReadPicture(dir + "/bmp/pillow__hopper.bmp", &rgb), RasOk);
  ASSERT_EQ(labDesc.model, RasModelLab);
  ASSERT_TRUE(lab.width == rgb.width && lab.height == rgb.height);
  double total = 0;
  RasSl sl{lab.width, 3, {}, {}};
  uint8_t out[3][128];
  for (uint32_t y = 0; y < lab.height; ++y) {
    for (int k = 0; k < 3; ++k)
      sl.plane8[k] = &lab.At(0, y, k);
    ASSERT_EQ(RasSlToRgb(&sl, &labDesc, out[0], out[1], out[2]), RasOk);
    for (uint32_t x = 0; x < lab.width; ++x)
      for (int k = 0; k < 3; ++k)
        total += std::abs(out[k][x] - rgb.At(x, y, k));
  }
  EXPECT_LT(total / (3.0 * lab.width * lab.height), 2.0);
}

}  // namespace

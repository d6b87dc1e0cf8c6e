// korvel-raster color as a user runs it: clicks given as TOOL:X,Y points.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;

bool Exists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

TEST(ToolColor, NoPointsLeaveEverySampleAsItWas) {
  const std::string in = TempPath("color_same.bmp");
  const Picture original = Pattern(13, 7, 3);
  ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, original), RasOk);
  for (const char *name : {"color_same_out.bmp", "color_same_out.tif"}) {
    const std::string out = TempPath(name);
    const ToolResult result = RunTool("color " + in + " " + out);
    ASSERT_EQ(result.status, 0) << result.out;
    Picture back;
    ASSERT_EQ(ReadPicture(out, &back), RasOk);
    EXPECT_TRUE(back == original) << name;
  }
}

TEST(ToolColor, BadArgumentsWriteNothing) {
  const std::string in = TempPath("color_bad.bmp"), out = TempPath("color_bad_out.bmp");
  ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, Pattern(10, 6, 3)), RasOk);
  struct Case {
    std::string points;
    int status;
    std::string message;
  };
  std::string many;
  for (int i = 0; i < 51; ++i)
    many += " sky:1,1";
  const Case cases[] = {
      {"grass:1,1", 2,
       "korvel-raster: color: unknown tool 'grass' (foliage, skin, sky or neutrals)\n"},
      {"sky:1", 2, "korvel-raster: color: 'sky:1' is not a point (TOOL:X,Y)\n"},
      {"sky:1,2x", 2, "korvel-raster: color: 'sky:1,2x' is not a point (TOOL:X,Y)\n"},
      {"skin", 2, "korvel-raster: color: 'skin' is not a point (TOOL:X,Y)\n"},
      {"neutrals:10,0", 1,
       "korvel-raster: color refused: the point 10,0 lies outside the 10x6 photo\n"},
      {"foliage:0,-1", 1,
       "korvel-raster: color refused: the point 0,-1 lies outside the 10x6 photo\n"},
      {many, 2, "korvel-raster: color: at most 50 points make one correction\n"},
  };
  for (const Case &c : cases) {
    const ToolResult result = RunTool("color " + in + " " + out + " " + c.points);
    EXPECT_EQ(result.status, c.status) << c.points;
    EXPECT_EQ(result.out, c.message);
    EXPECT_FALSE(Exists(out)) << c.points;
  }
  EXPECT_EQ(RunTool("color " + in).status, 2);
}

TEST(ToolColor, NeutralClickTakesTheCastOffAGreyCard) {
  const std::string in = TempPath("color_cast.tif"), out = TempPath("color_cast_out.bmp");
  // A warm cast over a gradient, and a grey card (140, 128, 104 with the cast).
  Picture photo;
  photo.width = 48, photo.height = 32, photo.channels = 3;
  photo.planes.assign(3, Bytes(48 * 32));
  for (uint32_t y = 0; y < 32; ++y)
    for (uint32_t x = 0; x < 48; ++x) {
      const bool card = x >= 16 && x < 32 && y >= 8 && y < 24;
      const int base = card ? 128 : int(40 + x * 4);
      photo.At(x, y, 0) = uint8_t(base + 12 > 255 ? 255 : base + 12);
      photo.At(x, y, 1) = uint8_t(base);
      photo.At(x, y, 2) = uint8_t(base - 24 < 0 ? 0 : base - 24);
    }
  ASSERT_EQ(WritePicture(in, RasFormatTiff, RasModelRgb, photo), RasOk);
  const ToolResult result = RunTool("color " + in + " " + out + " neutrals:24,16");
  ASSERT_EQ(result.status, 0) << result.out;
  Picture corrected;
  ASSERT_EQ(ReadPicture(out, &corrected), RasOk);
  auto spread = [](const Picture &p) {  // red minus blue over the card
    long sum = 0;
    for (uint32_t y = 9; y < 23; ++y)
      for (uint32_t x = 17; x < 31; ++x)
        sum += p.At(x, y, 0) - p.At(x, y, 2);
    return double(sum) / (14 * 14);
  };
  EXPECT_NEAR(spread(photo), 36.0, 0.01);
  EXPECT_LE(std::abs(spread(corrected)), 0.3 * 36.0) << spread(corrected);
}

}  // namespace

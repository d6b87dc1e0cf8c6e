// korvel-raster as a user runs it: output lines, exit codes, messages, files.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using testutil::RunTool;

class Tool : public testing::Test {
 protected:
  static std::string Path(const char *name) { return testutil::TempPath(name); }
  static void Write(const std::string &path, uint32_t format, uint32_t channels, uint32_t model,
                    uint32_t width = 5, uint32_t height = 3) {
    ASSERT_EQ(testutil::WritePicture(path, format, model,
                                     testutil::Pattern(width, height, channels), 150.0f),
              RasOk);
  }
};

TEST_F(Tool, InfoPrintsOneLinePerFileAndFailsOnAnUnknownFile) {
  const std::string bmp = Path("info.bmp"), tif = Path("info.tif"), junk = Path("junk.txt");
  Write(bmp, RasFormatBmp, 3, RasModelRgb);
  Write(tif, RasFormatTiff, 4, RasModelCmyk, 2, 7);
  std::ofstream(junk) << "no picture here";
  testutil::ToolResult r = RunTool("info " + bmp + " " + tif);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, bmp + ": bmp 5x3 channels=3 model=1 maxval=255 resolution=150.012\n" + tif +
                       ": tiff 2x7 channels=4 model=4 maxval=255 resolution=150\n");
  r = RunTool("info " + bmp + " " + junk);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out.rfind(bmp + ": bmp 5x3", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("\n" + junk + ": error -"), std::string::npos) << r.out;
}

TEST_F(Tool, ConvertChoosesTheFormatByExtensionAndKeepsEverySample) {
  const std::string bmp = Path("src.bmp"), tif = Path("copy.TIFF"), back = Path("back.bmp");
  const std::string odd = Path("copy.photo");
  Write(bmp, RasFormatBmp, 3, RasModelRgb, 37, 11);
  ASSERT_EQ(RunTool("convert " + bmp + " " + tif).status, 0);
  ASSERT_EQ(RunTool("convert " + tif + " " + back).status, 0);
  testutil::Picture picture;
  ASSERT_EQ(testutil::ReadPicture(back, &picture), RasOk);
  EXPECT_TRUE(picture == testutil::Pattern(37, 11, 3));
  ASSERT_EQ(RunTool("convert " + bmp + " " + odd + " --quality 90").status, 0);
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(tif.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatTiff);
  ASSERT_EQ(RasGetInfo(odd.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatJpeg);
}

TEST_F(Tool, ConvertTurnsWhatTheTargetCannotHoldIntoRgbAndLeavesOldFilesAloneOnFailure) {
  const std::string cmyk = Path("cmyk.tif"), out = Path("kept.bmp");
  Write(cmyk, RasFormatTiff, 4, RasModelCmyk);
  testutil::ToolResult r = RunTool("convert " + cmyk + " " + out);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "korvel-raster: " + out + ": a bmp file cannot hold CMYK samples; writing RGB\n");
  testutil::Picture rgb;
  RasDesc desc{};
  ASSERT_EQ(testutil::ReadPicture(out, &rgb, &desc), RasOk);
  EXPECT_EQ(desc.model, uint32_t{RasModelRgb});
  // Ink darkens multiplicatively: each channel is (255 - ink) * (255 - black) / 255.
  const testutil::Picture inks = testutil::Pattern(5, 3, 4);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 5; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        EXPECT_NEAR(rgb.At(x, y, k), (255 - inks.At(x, y, k)) * (255 - inks.At(x, y, 3)) / 255.0,
                    0.5)
            << x << "," << y << "," << k;

  std::ofstream(out) << "an older file";
  r = RunTool("convert " + Path("missing.jpg") + " " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("missing.jpg: not a readable photo"), std::string::npos) << r.out;
  std::ifstream kept(out);
  std::string text;
  std::getline(kept, text);
  EXPECT_EQ(text, "an older file");
  EXPECT_EQ(RunTool("convert " + cmyk + " " + Path("q.jpg") + " --quality 101").status, 2);
  EXPECT_EQ(RunTool("convert " + cmyk).status, 2);
  EXPECT_EQ(RunTool("frobnicate").status, 2);
  r = RunTool("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("convert IN OUT [--quality N]"), std::string::npos);
}

}  // namespace

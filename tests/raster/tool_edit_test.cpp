// korvel-raster's edit commands as a user runs them: the same pixel routines
// the editing view uses, on every model the library reads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;

int RunEdit(const std::string &args, std::string *out = nullptr) {
  const ToolResult result = RunTool(args);
  if (out) *out = result.out;
  return result.status;
}

TEST(ToolEdit, RotatingRightFourTimesAndLeftThenRightGiveTheOriginal) {
  const std::string a = TempPath("rot_a.bmp"), b = TempPath("rot_b.bmp");
  const Picture original = Pattern(7, 4, 3);
  ASSERT_EQ(WritePicture(a, RasFormatBmp, RasModelRgb, original), RasOk);
  for (int turn = 0; turn < 4; ++turn) {
    ASSERT_EQ(RunEdit("rotate right " + (turn % 2 ? b + " " + a : a + " " + b)), 0);
    Picture step;
    ASSERT_EQ(ReadPicture(turn % 2 ? a : b, &step), RasOk);
    EXPECT_EQ(step.width, turn % 2 ? 7u : 4u);
    // A right turn brings the bottom-left pixel to the top-left.
    if (turn == 0) {
      EXPECT_EQ(step.At(0, 0, 0), original.At(0, 3, 0));
    }
  }
  Picture back;
  ASSERT_EQ(ReadPicture(a, &back), RasOk);
  EXPECT_TRUE(back == original);
  ASSERT_EQ(RunEdit("rotate left " + a + " " + b), 0);
  ASSERT_EQ(RunEdit("rotate right " + b + " " + a), 0);
  ASSERT_EQ(ReadPicture(a, &back), RasOk);
  EXPECT_TRUE(back == original);
}

TEST(ToolEdit, RefusalsWriteNothing) {
  const std::string in = TempPath("edit_in.bmp"), out = TempPath("edit_out.bmp");
  ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, Pattern(10, 6, 3)), RasOk);
  std::string text;
  EXPECT_EQ(RunEdit("crop 5 0 6 6 " + in + " " + out, &text), 1);
  EXPECT_EQ(text,
            "korvel-raster: crop refused: the rectangle 6x6 at 5,0 reaches outside the "
            "10x6 photo\n");
  EXPECT_EQ(RunEdit("redeye 10 0 " + in + " " + out, &text), 1);
  EXPECT_EQ(RunEdit("zoom 30 " + in + " " + out), 2);
  EXPECT_EQ(RunEdit("rotate up " + in + " " + out), 2);
  EXPECT_NE(access(out.c_str(), F_OK), 0);  // no refusal wrote anything
}

TEST(ToolEdit, CropAndZoomGiveTheViewsSizesAndSamples) {
  const std::string in = TempPath("zoom_in.tif"), out = TempPath("zoom_out.bmp");
  const Picture original = Pattern(12, 8, 3);
  ASSERT_EQ(WritePicture(in, RasFormatTiff, RasModelRgb, original), RasOk);
  Picture result;
  ASSERT_EQ(RunEdit("crop 2 3 10 5 " + in + " " + out), 0);
  ASSERT_EQ(ReadPicture(out, &result), RasOk);
  EXPECT_TRUE(result.width == 10 && result.height == 5 &&
              result.At(0, 0, 1) == original.At(2, 3, 1));
  ASSERT_EQ(RunEdit("zoom 200 " + in + " " + out), 0);
  ASSERT_EQ(ReadPicture(out, &result), RasOk);
  EXPECT_TRUE(result.width == 24 && result.height == 16);
  EXPECT_EQ(result.At(23, 15, 2), original.At(11, 7, 2));
  ASSERT_EQ(RunEdit("zoom 50 " + in + " " + out), 0);
  ASSERT_EQ(ReadPicture(out, &result), RasOk);
  EXPECT_TRUE(result.width == 6 && result.height == 4) << result.width << "x" << result.height;
}

}  // namespace

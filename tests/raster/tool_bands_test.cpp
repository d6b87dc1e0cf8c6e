// korvel-raster reads a BMP photo in bands of rows, each thread through a
// descriptor of its own: on any number of threads the photo read is the
// file's picture, stored bottom-up or top-down, and a file cut short fails
// with the same words and status.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// The file stored top-down: rows in the other order, height negated.
Bytes TopDown(const Bytes &file, uint32_t width, uint32_t height) {
  const uint32_t offset = GetField(file, 10, 4), stride = (width * 3 + 3) / 4 * 4;
  Bytes b(file.begin(), file.begin() + offset);
  for (uint32_t s = height; s-- > 0;)
    b.insert(b.end(), file.begin() + offset + s * stride, file.begin() + offset + (s + 1) * stride);
  PutField(b, 22, uint32_t(-int32_t(height)), 4);
  return b;
}

ToolResult RunOn(const char *threads, const std::string &args) {
  setenv("KORVEL_THREADS", threads, 1);
  ToolResult result = RunTool(args);
  unsetenv("KORVEL_THREADS");
  return result;
}

TEST(ToolBands, EveryThreadCountReadsThePicture) {
  // Bands are 128 rows: a single row, a single column, uneven last bands.
  const uint32_t shapes[][2] = {{1, 300}, {300, 1}, {301, 517}, {64, 129}};
  const std::string in = TempPath("bands.bmp"), out = TempPath("bands-out.bmp");
  for (const auto &[width, height] : shapes) {
    const Picture p = Pattern(width, height, 3);
    ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, p), RasOk);
    const Bytes bottomUp = ReadFile(in);
    for (const bool down : {false, true}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height << (down ? " top-down" : ""));
      WriteFile(in, down ? TopDown(bottomUp, width, height) : bottomUp);
      const std::string crop =
          "crop 0 0 " + std::to_string(width) + " " + std::to_string(height) + " " + in + " " + out;
      for (const char *threads : {"1", "4"}) {
        ASSERT_EQ(RunOn(threads, crop).status, 0) << threads;
        Picture got;
        ASSERT_EQ(ReadPicture(out, &got), RasOk);
        EXPECT_TRUE(got == p) << threads << " threads";
      }
      // Cut inside a row near the middle: bottom-up, the top rows are gone.
      const Bytes file = ReadFile(in);
      WriteFile(in, Bytes(file.begin(), file.begin() + 54 + (file.size() - 54) / 2 + 1));
      const ToolResult one = RunOn("1", "rotate left " + in + " " + out);
      EXPECT_EQ(one.status, 1);
      EXPECT_NE(one.out.find("cannot read a row"), std::string::npos) << one.out;
      const ToolResult four = RunOn("4", "rotate left " + in + " " + out);
      EXPECT_EQ(four.status, one.status);
      EXPECT_EQ(four.out, one.out);
    }
  }
}

}  // namespace

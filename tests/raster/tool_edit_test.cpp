// korvel-raster's edit commands as a user runs them: the same pixel routines
// the editing view uses, on every model the library reads.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;

int RunEdit(const std::string &args, std::string *out = nullptr) {
  const ToolResult result = RunTool(args);
  if (out) *out = result.out;
  return result.status;
}

// A JPEG's bytes with an EXIF block carrying `orientation` right after the
// start marker, the rest unchanged, so it decodes to the same pixels.
Bytes WithOrientation(const Bytes &jpeg, int orientation) {
  const Bytes exif = {0xFF,
                      0xE1,
                      0,
                      34,
                      'E',
                      'x',
                      'i',
                      'f',
                      0,
                      0,  // APP1, length 34
                      'I',
                      'I',
                      42,
                      0,
                      8,
                      0,
                      0,
                      0,  // little-endian TIFF
                      1,
                      0,
                      0x12,
                      0x01,
                      3,
                      0,
                      1,
                      0,
                      0,
                      0,  // 1 entry: 0x0112 SHORT
                      static_cast<uint8_t>(orientation),
                      0,
                      0,
                      0,
                      0,
                      0,
                      0,
                      0};  // value, no next
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  out.insert(out.end(), exif.begin(), exif.end());
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

Picture Read(const std::string &path) {
  Picture picture;
  EXPECT_EQ(ReadPicture(path, &picture), RasOk) << path;
  return picture;
}

// Names in the folder of `path` that start with its file name: the output
// itself and any temporary file beside it.
std::vector<std::string> Beside(const std::string &path) {
  const size_t slash = path.rfind('/');
  const std::string folder = path.substr(0, slash), name = path.substr(slash + 1);
  std::vector<std::string> found;
  if (DIR *dir = opendir(folder.c_str())) {
    while (const dirent *entry = readdir(dir))
      if (std::string(entry->d_name).rfind(name, 0) == 0) found.push_back(entry->d_name);
    closedir(dir);
  }
  return found;
}

// Runs `body` with the tool on one thread and on as many as it likes.
template <class Body>
void OnOneThreadAndMany(Body body) {
  for (const bool one : {true, false}) {
    SCOPED_TRACE(one ? "one thread" : "every thread");
    if (one) setenv("KORVEL_THREADS", "1", 1);
    body();
    unsetenv("KORVEL_THREADS");
  }
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

// Zooming out reads the photo a band at a time unless it must be turned
// upright first, which takes the whole-photo path. A JPEG tagged as stored
// upside down (whole path, turned) must give exactly the bytes of the same
// pixels stored turned in a BMP or TIFF (streamed); the JPEG itself and a grey
// one (streamed, converted to RGB) give those of their pixels in a BMP. The
// photo is several bands high and an odd size.
TEST(ToolEdit, ZoomingOutInBandsGivesTheWholePhotosBytes) {
  const std::string plain = TempPath("zs_plain.jpg"), tagged = TempPath("zs_tagged.jpg"),
                    grey = TempPath("zs_grey.jpg"), turned = TempPath("zs_turned.bmp"),
                    turnedTiff = TempPath("zs_turned.tif"), upright = TempPath("zs_upright.bmp"),
                    greyBmp = TempPath("zs_grey.bmp"), whole = TempPath("zs_whole.bmp"),
                    out = TempPath("zs_out.bmp"), again = TempPath("zs_again.bmp");
  ASSERT_EQ(WritePicture(plain, RasFormatJpeg, RasModelRgb, Pattern(67, 301, 3)), RasOk);
  ASSERT_EQ(WritePicture(grey, RasFormatJpeg, RasModelGray, Pattern(67, 301, 1)), RasOk);
  WriteFile(tagged, WithOrientation(ReadFile(plain), 3));
  ASSERT_EQ(RunEdit("rotate 180 " + plain + " " + turned), 0);
  ASSERT_EQ(WritePicture(turnedTiff, RasFormatTiff, RasModelRgb, Read(turned)), RasOk);
  ASSERT_EQ(RunEdit("rotate 180 " + turned + " " + upright), 0);
  ASSERT_EQ(
      RunEdit("rotate 180 " + grey + " " + out) + RunEdit("rotate 180 " + out + " " + greyBmp), 0);
  for (const int percent : {25, 50, 75}) {
    SCOPED_TRACE(percent);
    const std::string zoom = "zoom " + std::to_string(percent) + " ";
    ASSERT_EQ(RunEdit(zoom + tagged + " " + whole), 0);
    const Picture expected = Read(whole);
    ASSERT_EQ(expected.width, 67u * percent / 100);
    ASSERT_EQ(RunEdit(zoom + upright + " " + out), 0);
    const Picture fromUpright = Read(out);
    ASSERT_EQ(RunEdit(zoom + greyBmp + " " + out), 0);
    const Picture fromGrey = Read(out);
    ASSERT_EQ(RunEdit(zoom + "--keep-orientation " + tagged + " " + out), 0);
    EXPECT_TRUE(Read(out) == fromUpright);
    OnOneThreadAndMany([&] {
      for (const auto &[in, want] : {std::pair{turned, &expected},
                                     {turnedTiff, &expected},
                                     {plain, &fromUpright},
                                     {grey, &fromGrey}}) {
        ASSERT_EQ(RunEdit(zoom + in + " " + out), 0) << in;
        EXPECT_TRUE(Read(out) == *want) << in;
      }
    });
  }
}

// A damaged photo is refused with the same words and code whether it is read
// in bands or whole, and leaves nothing beside the output's name; a file
// already there is kept as it was.
TEST(ToolEdit, ZoomingOutADamagedPhotoRefusesAsBeforeAndWritesNothing) {
  const std::string bmp = TempPath("zd_cut.bmp"), jpeg = TempPath("zd.jpg"),
                    tagged = TempPath("zd_tagged.jpg"), out = TempPath("zd_out.bmp"),
                    kept = TempPath("zd_kept.bmp");
  ASSERT_EQ(WritePicture(bmp, RasFormatBmp, RasModelRgb, Pattern(67, 301, 3)), RasOk);
  Bytes bytes = ReadFile(bmp);
  bytes.resize(bytes.size() * 2 / 3);  // BMP rows go bottom up: the top rows are gone
  WriteFile(bmp, bytes);
  ASSERT_EQ(WritePicture(jpeg, RasFormatJpeg, RasModelRgb, Pattern(67, 301, 3)), RasOk);
  const Bytes whole = ReadFile(jpeg);
  Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(whole.size() / 2)),
      marked = whole;
  marked[whole.size() / 2] = 0xFF;  // a table marker in the middle of the picture's data
  marked[whole.size() / 2 + 1] = 0xC4;
  ASSERT_EQ(WritePicture(kept, RasFormatBmp, RasModelRgb, Pattern(5, 4, 3)), RasOk);
  const Bytes before = ReadFile(kept);
  OnOneThreadAndMany([&] {
    const std::string zoom = "zoom 50 ";
    std::string text;
    EXPECT_EQ(RunEdit(zoom + bmp + " " + out, &text), 1);
    EXPECT_EQ(text, "korvel-raster: " + bmp +
                        ": cannot read a row: read failed or was short (code -5)\n");
    for (const Bytes *damaged : {&cut, &marked}) {
      // Tagged, the photo is loaded whole to be turned; untagged, in bands.
      std::string loaded, banded;
      WriteFile(tagged, WithOrientation(*damaged, 3));
      WriteFile(jpeg, *damaged);
      EXPECT_EQ(RunEdit(zoom + tagged + " " + out, &loaded), 1);
      EXPECT_EQ(RunEdit(zoom + jpeg + " " + out, &banded), 1);
      ASSERT_NE(loaded.find(tagged + ": cannot read a row: "), std::string::npos) << loaded;
      EXPECT_EQ(banded, "korvel-raster: " + jpeg + loaded.substr(loaded.find(": cannot")));
    }
    EXPECT_EQ(RunEdit(zoom + jpeg + " " + kept), 1);
    EXPECT_EQ(Beside(out), std::vector<std::string>{});
    EXPECT_EQ(Beside(kept), std::vector<std::string>{kept.substr(kept.rfind('/') + 1)});
    EXPECT_EQ(ReadFile(kept), before);
  });
}

// The same BMP stored top down: the height negated and the rows in picture
// order.
Bytes TopDown(const Bytes &bmp) {
  const uint32_t offset = GetField(bmp, 10, 4), width = GetField(bmp, 18, 4),
                 height = GetField(bmp, 22, 4), stride = (width * 3 + 3) / 4 * 4;
  Bytes out(bmp.begin(), bmp.begin() + offset);
  PutField(out, 22, static_cast<uint32_t>(-static_cast<int32_t>(height)), 4);
  for (uint32_t row = height; row-- > 0;) {
    const auto at = bmp.begin() + offset + static_cast<ptrdiff_t>(row) * stride;
    out.insert(out.end(), at, at + stride);
  }
  return out;
}

// A BMP is zoomed out in runs of rows taken by every thread, each reading its
// own rows; the result must be the whole-photo reduction's to the byte. A
// JPEG tagged as stored upside down takes the whole path; its pixels stored
// turned, bottom up and top down, take the runs, on one thread and on more
// threads than runs. The sizes are odd, not
// whole numbers of runs, as low as one run, and as narrow or flat as a
// result of two samples allows.
TEST(ToolEdit, ZoomingOutABmpInRunsGivesTheWholePhotosBytes) {
  const std::string plain = TempPath("zr_plain.jpg"), tagged = TempPath("zr_tagged.jpg"),
                    turned = TempPath("zr_turned.bmp"), topDown = TempPath("zr_topdown.bmp"),
                    whole = TempPath("zr_whole.bmp"), out = TempPath("zr_out.bmp");
  const uint32_t sizes[][2] = {{53, 129}, {9, 130}, {131, 9}, {40, 63}};
  for (const auto &[width, height] : sizes) {
    ASSERT_EQ(WritePicture(plain, RasFormatJpeg, RasModelRgb, Smooth(width, height, 3)), RasOk);
    WriteFile(tagged, WithOrientation(ReadFile(plain), 3));
    ASSERT_EQ(RunEdit("rotate 180 " + plain + " " + turned), 0);
    WriteFile(topDown, TopDown(ReadFile(turned)));
    ASSERT_TRUE(Read(topDown) == Read(turned));
    for (const int percent : {25, 50, 75}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height << " at " << percent << "%");
      const std::string zoom = "zoom " + std::to_string(percent) + " ";
      ASSERT_EQ(RunEdit(zoom + tagged + " " + whole), 0);
      const Picture expected = Read(whole);
      ASSERT_GE(std::min(expected.width, expected.height), 2u);
      for (const char *threads : {"1", "7"}) {
        SCOPED_TRACE(threads);
        setenv("KORVEL_THREADS", threads, 1);
        for (const std::string &in : {turned, topDown}) {
          ASSERT_EQ(RunEdit(zoom + in + " " + out), 0) << in;
          EXPECT_TRUE(Read(out) == expected) << in;
        }
        unsetenv("KORVEL_THREADS");
      }
    }
  }
}

// A BMP too narrow or too flat for a result of two samples is refused as the
// whole path refuses it; a BMP whose last rows are missing (top down, cut)
// is refused for the first row it lacks, as loading it whole would, however
// many threads make the runs and whichever run meets it first. Nothing is
// left beside the output, and a file already there keeps its bytes.
TEST(ToolEdit, ZoomingOutABmpInRunsRefusesAsTheWholePathDoes) {
  const std::string narrow = TempPath("zf_narrow.bmp"), flat = TempPath("zf_flat.bmp"),
                    cut = TempPath("zf_cut.bmp"), kept = TempPath("zf_kept.bmp");
  ASSERT_EQ(WritePicture(narrow, RasFormatBmp, RasModelRgb, Pattern(1, 200, 3)), RasOk);
  ASSERT_EQ(WritePicture(flat, RasFormatBmp, RasModelRgb, Pattern(300, 7, 3)), RasOk);
  ASSERT_EQ(WritePicture(cut, RasFormatBmp, RasModelRgb, Pattern(61, 517, 3)), RasOk);
  const Bytes topDown = TopDown(ReadFile(cut));
  ASSERT_EQ(WritePicture(kept, RasFormatBmp, RasModelRgb, Pattern(5, 4, 3)), RasOk);
  const Bytes before = ReadFile(kept);
  const std::string tooSmall = ": too small or too large to zoom: out of memory (code -3)\n";
  const std::string short5 = ": cannot read a row: read failed or was short (code -5)\n";
  for (const char *threads : {"1", "", "7"}) {
    SCOPED_TRACE(threads);
    setenv("KORVEL_THREADS", threads, 1);
    std::string text;
    EXPECT_EQ(RunEdit("zoom 50 " + narrow + " " + kept, &text), 1);
    EXPECT_EQ(text, "korvel-raster: " + narrow + tooSmall);
    EXPECT_EQ(RunEdit("zoom 25 " + flat + " " + kept, &text), 1);
    EXPECT_EQ(text, "korvel-raster: zoom refused (code -1): the photo could not be resampled\n");
    // Cut inside the last row, inside the last run, and near the top.
    for (const size_t lost : {size_t{5}, size_t{200} * 184, size_t{480} * 184}) {
      WriteFile(cut, Bytes(topDown.begin(), topDown.end() - static_cast<ptrdiff_t>(lost)));
      for (const int percent : {25, 75}) {
        EXPECT_EQ(RunEdit("zoom " + std::to_string(percent) + " " + cut + " " + kept, &text), 1);
        EXPECT_EQ(text, "korvel-raster: " + cut + short5) << lost;
      }
    }
    unsetenv("KORVEL_THREADS");
    EXPECT_EQ(Beside(kept), std::vector<std::string>{kept.substr(kept.rfind('/') + 1)});
    EXPECT_EQ(ReadFile(kept), before);
  }
}

}  // namespace

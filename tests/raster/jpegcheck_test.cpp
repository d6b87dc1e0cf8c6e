// A JPEG file checked by a scaled decode is refused exactly when a full read
// of every row refuses it, with the same code, and gives the same size,
// channels and resolution; the rows it keeps when asked are those the
// thumbnail decode makes at the same reduction.
#include "raster/jpegcheck.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/raster/jpegdamage.h"

namespace {

// What the reader gives for the file read as JPEG, every row in order: the
// first failing code, and the descriptor the open filled in.
int FullRead(const std::string &path, RasDesc *desc) {
  *desc = RasDesc{};
  desc->format = RasFormatJpeg;
  int code = RasOpen(path.c_str(), 'r', desc);
  if (code != RasOk) return code;
  RasSl sl{};
  code = RasMakeSl(&sl, desc);
  for (uint32_t y = 0; y < desc->height && code == RasOk; ++y)
    code = RasReadSl(desc, y, &sl);
  (void)RasFreeSl(&sl);
  (void)RasClose(desc);
  return code;
}

// A check keeping its rows refuses as one that does not, and keeps exactly
// the rows JpegThumbDecode gives at an eighth (none for inks, which it does
// not convert, nor after a refusal).
void ExpectKeptRowsAsThumbDecode(const std::string &path, int without, const JpegCheck &found) {
  JpegCheck check{};
  JpegThumb kept{};
  const int code = JpegCheckFile(path.c_str(), &check, &kept);
  EXPECT_EQ(code, without);
  EXPECT_EQ(std::memcmp(&check, &found, sizeof check), 0);
  if (code != RasOk || check.channels == 4) {
    EXPECT_EQ(kept.rgb, nullptr);
    EXPECT_EQ(kept.width, 0u);
    return;
  }
  JpegThumb decoded{};
  ASSERT_EQ(JpegThumbDecode(path.c_str(), (check.width + 7) / 8, (check.height + 7) / 8, &decoded),
            RasOk);
  EXPECT_EQ(decoded.denominator, 8u);
  EXPECT_EQ(kept.denominator, 8u);
  EXPECT_EQ(kept.fullWidth, check.width);
  EXPECT_EQ(kept.fullHeight, check.height);
  ASSERT_EQ(kept.width, decoded.width);
  ASSERT_EQ(kept.height, decoded.height);
  ASSERT_NE(kept.rgb, nullptr);
  EXPECT_EQ(std::memcmp(kept.rgb, decoded.rgb, size_t{kept.width} * kept.height * 3), 0);
  JpegThumbFree(&decoded);
  JpegThumbFree(&kept);
}

TEST(JpegCheck, RefusesWhatAFullReadRefusesAndAgreesOnTheRest) {
  const std::vector<jpegdamage::Case> cases = jpegdamage::Cases(
      KORVEL_TESTDATA_DIR,
      [](const std::string &name) { return testutil::TempPath("check " + name); });
  for (const jpegdamage::Case &c : cases) {
    SCOPED_TRACE(c.label);
    RasDesc desc{};
    ASSERT_EQ(FullRead(c.path, &desc), c.code);
    JpegCheck check{};
    EXPECT_EQ(JpegCheckFile(c.path.c_str(), &check), c.code);
    EXPECT_EQ(RasPixelLimitRefused(), c.code == RasErrUnsupported);
    if (c.code != RasOk) {
      ExpectKeptRowsAsThumbDecode(c.path, c.code, check);
      continue;
    }
    EXPECT_EQ(check.width, desc.width);
    EXPECT_EQ(check.height, desc.height);
    EXPECT_EQ(check.channels, desc.channels);
    EXPECT_FLOAT_EQ(check.resolution, desc.resolution);
    ExpectKeptRowsAsThumbDecode(c.path, c.code, check);
  }
  // Resolutions from the JFIF header: none, dots per inch, dots per cm.
  const std::pair<std::string, float> densities[] = {{"/jpeg/ljt__testorig.jpg", -1.0f},
                                                     {"/jpeg/pillow__hopper.jpg", 96.0f},
                                                     {"/jpeg/pillow__jfif_unit_cm.jpg", 2.54f}};
  for (const auto &[file, resolution] : densities) {
    JpegCheck check{};
    ASSERT_EQ(JpegCheckFile((KORVEL_TESTDATA_DIR + file).c_str(), &check), RasOk);
    EXPECT_FLOAT_EQ(check.resolution, resolution) << file;
  }
}

TEST(JpegCheck, RefusesWhatItCannotReadAtAll) {
  JpegCheck check{};
  EXPECT_EQ(JpegCheckFile(nullptr, &check), RasErrArg);
  EXPECT_EQ(JpegCheckFile("x.jpg", nullptr), RasErrArg);
  EXPECT_EQ(JpegCheckFile("/no/such/file.jpg", &check), RasErrOpen);
  const std::string empty = testutil::TempPath("empty.jpg"), text = testutil::TempPath("text.jpg");
  testutil::WriteFile(empty, {});
  testutil::WriteFile(text, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'h', 'o', 't', 'o'});
  RasDesc desc{};
  for (const std::string &path : {empty, text}) {
    EXPECT_EQ(JpegCheckFile(path.c_str(), &check), RasErrFormat) << path;
    EXPECT_EQ(FullRead(path, &desc), RasErrFormat) << path;
  }
}

}  // namespace

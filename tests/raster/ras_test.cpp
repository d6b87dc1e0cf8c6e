// Descriptors, scanline records, the generic entry points and the error hook.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

bool SameDesc(const RasDesc &a, const RasDesc &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(RasDesc, SetDescRefusesBadValuesAndLeavesTheDescriptorAlone) {
  RasDesc desc;
  std::memset(&desc, 0x5a, sizeof desc);
  const RasDesc before = desc;
  const struct {
    uint32_t format, channels, model;
  } refused[] = {{1, 2, 1}, {0, 3, 1}, {15, 3, 1}, {1, 3, 2}, {1, 3, 3},
                 {1, 3, 6}, {1, 0, 1}, {1, 5, 1},  {1, 3, 0}, {1, 3, 9}};
  for (const auto &r : refused) {
    EXPECT_EQ(RasSetDesc(&desc, r.format, 10, 10, r.channels, r.model, 72.0f), RasErrArg)
        << r.format << " " << r.channels << " " << r.model;
    EXPECT_TRUE(SameDesc(desc, before));
  }
  EXPECT_EQ(RasSetDesc(nullptr, 1, 1, 1, 1, 5, 1.0f), RasErrArg);
}

TEST(RasDesc, SetDescFillsEveryWordWithTheFormatsMaxval) {
  const uint32_t maxval[] = {0,    255, 255,   255, 255, 255, 255, 255,
                             1023, 255, 65535, 255, 255, 255, 255};
  for (uint32_t format = 1; format <= 14; ++format) {
    RasDesc desc;
    std::memset(&desc, 0x5a, sizeof desc);
    ASSERT_EQ(RasSetDesc(&desc, format, 640, 480, 4, RasModelCmyk, -1.0f), RasOk);
    const RasDesc want{640, 480, 4, RasModelCmyk, format, 0, maxval[format], -1.0f, nullptr};
    EXPECT_TRUE(SameDesc(desc, want)) << format;
  }
}

TEST(RasSl, MakeSlAllocatesOnePlaneSetBySampleWidth) {
  const uint32_t cases[][3] = {
      {RasFormatTiff16, 3, 2}, {RasFormatJpeg, 4, 1}, {RasFormatCineon, 1, 2}};
  for (const auto &[format, channels, bytes] : cases) {
    RasDesc desc;
    RasSl sl;
    std::memset(&sl, 0x5a, sizeof sl);
    ASSERT_EQ(RasSetDesc(&desc, format, 7, 2, channels, RasModelRgb, 0.0f), RasOk);
    ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);
    EXPECT_TRUE(sl.width == 7 && sl.channels == channels) << format;
    for (uint32_t k = 0; k < 4; ++k) {
      EXPECT_EQ(sl.plane8[k] != nullptr, bytes == 1 && k < channels) << format << " " << k;
      EXPECT_EQ(sl.plane16[k] != nullptr, bytes == 2 && k < channels) << format << " " << k;
    }
    if (bytes == 2) sl.plane16[channels - 1][6] = 65535;  // 2 x width bytes: all writable
    EXPECT_EQ(RasFreeSl(&sl), RasOk);
    for (uint32_t k = 0; k < 4; ++k)
      EXPECT_TRUE(!sl.plane8[k] && !sl.plane16[k]);
  }
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 0, 1, 3, RasModelRgb, 0.0f), RasOk);
  RasSl sl;
  std::memset(&sl, 0x5a, sizeof sl);
  ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);  // width 0: an empty record, not an error
  EXPECT_TRUE(sl.width == 0 && sl.plane8[0] == nullptr);
  desc.width = 4;
  desc.channels = 2;
  std::memset(&sl, 0x5a, sizeof sl);
  EXPECT_EQ(RasMakeSl(&sl, &desc), RasErrArg);
  EXPECT_EQ(sl.plane8[0], nullptr);  // zeroed before the check
  EXPECT_EQ(RasMakeSl(&sl, nullptr), RasErrArg);
  EXPECT_EQ(RasMakeSl(nullptr, &desc), RasErrArg);
}

TEST(RasOpen, ArgumentsAreCheckedAndFailuresLeaveNoState) {
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 4, 4, 3, RasModelRgb, 0.0f), RasOk);
  EXPECT_EQ(RasOpen("x.bmp", 'a', &desc), RasErrArg);
  EXPECT_EQ(RasOpen(nullptr, 'r', &desc), RasErrArg);
  EXPECT_EQ(RasOpen("x.bmp", 'r', nullptr), RasErrArg);
  EXPECT_EQ(RasOpen("/nonexistent/x.bmp", 'r', &desc), RasErrOpen);
  EXPECT_EQ(desc.state, nullptr);
  desc.format = 15;
  EXPECT_EQ(RasOpen("x.bmp", 'r', &desc), RasErrArg);
  EXPECT_EQ(desc.state, nullptr);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(nullptr, 0, &sl), RasErrArg);
  EXPECT_EQ(RasReadSl(&desc, 0, nullptr), RasErrArg);
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrArg);  // unknown format
  EXPECT_EQ(RasWriteSl(&desc, 0, &sl), RasErrArg);
  EXPECT_EQ(RasClose(nullptr), RasErrArg);
  EXPECT_EQ(RasClose(&desc), RasErrArg);
}

TEST(RasGetInfo, AFileNoReaderAcceptsFailsAndLeavesNoState) {
  const std::string path = testing::TempDir() + "not_a_photo.txt";
  std::ofstream(path) << "These bytes are no picture in any format the library reads.\n";
  RasDesc desc{};
  EXPECT_NE(RasGetInfo(path.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.state, nullptr);
  EXPECT_EQ(RasGetErrorReporting(), 1);  // the probe put the switch back
  EXPECT_EQ(RasGetInfo(nullptr, &desc), RasErrArg);
  EXPECT_EQ(RasGetInfo(path.c_str(), nullptr), RasErrArg);
  std::remove(path.c_str());
}

TEST(RasError, LogsRoutineCodeDetailAndFileWhenAsked) {
  testutil::ErrorLog log;
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 4, 4, 3, RasModelRgb, 0.0f), RasOk);
  EXPECT_EQ(RasOpen("/nonexistent/photo.bmp", 'r', &desc), RasErrOpen);
  EXPECT_NE(log.Text().find("BmpOpen failed: code -4 (the file could not be opened) detail 1 "
                            "file=/nonexistent/photo.bmp"),
            std::string::npos)
      << log.Text();

  // A probe that finds nothing says what each reader thought of the file.
  log.Clear();
  const std::string junk = testutil::TempPath("junk.bin");
  testutil::WriteFile(junk, {'B', 'M', ' ', 'j', 'u', 'n', 'k'});
  EXPECT_NE(RasGetInfo(junk.c_str(), &desc), RasOk);
  const std::string probe = log.Text();
  EXPECT_NE(probe.find("RasGetInfo: no reader accepts the file file=" + junk), std::string::npos)
      << probe;
  EXPECT_NE(probe.find("  bmp: BmpOpen code -5"), std::string::npos) << probe;
  EXPECT_NE(probe.find("  jpeg: JpegOpen code -8"), std::string::npos) << probe;

  // With reporting off nothing is written.
  log.Clear();
  const int previous = RasSetErrorReporting(0);
  EXPECT_EQ(RasError("Quiet", RasErrRead, 7), RasErrRead);
  RasSetErrorReporting(previous);
  EXPECT_EQ(log.Text(), "");
  std::remove(junk.c_str());
}

}  // namespace

// 16-bit TIFF: every model in both byte orders and planar configurations,
// samples whose two bytes differ coming back whole, the file's sample bytes in
// its own byte order, and the 8- and 16-bit readers each refusing the other's
// files so the probe tells them apart.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "raster/tiff.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// Restores the TIFF settings a test changes.
struct TiffSettings {
  uint32_t planar = TiffGetOption(TiffOptPlanar), order = TiffGetOption(TiffOptByteOrder);
  ~TiffSettings() {
    (void)TiffSetOption(TiffOptPlanar, planar, nullptr);
    (void)TiffSetOption(TiffOptByteOrder, order, nullptr);
  }
};

TEST(Tiff16, RoundTripsEveryModelInBothOrdersAndLayouts) {
  TiffSettings keep;
  const std::string path = TempPath("rt16.tif");
  for (uint32_t order : {18761u, 19789u}) {
    for (uint32_t planar : {1u, 2u}) {
      for (const auto &[model, channels] : {std::pair{RasModelGray, 1u},
                                            {RasModelRgb, 3u},
                                            {RasModelCmyk, 4u},
                                            {RasModelLab, 3u}}) {
        SCOPED_TRACE(testing::Message() << order << " planar " << planar << " model " << model);
        ASSERT_EQ(TiffSetOption(TiffOptByteOrder, order, nullptr), RasOk);
        ASSERT_EQ(TiffSetOption(TiffOptPlanar, planar, nullptr), RasOk);
        const Planes16 p = Pattern16(7, 5, channels, 65535);
        ASSERT_EQ(WritePlanes16(path, RasFormatTiff16, model, 7, 5, p, 150.0f), RasOk);
        const Bytes file = ReadFile(path);
        const bool big = order == 19789;
        // The image data ends the file, first pixel's first channel first, in
        // the file's byte order; Lab's a and b stand signed, without the
        // plane's 0x8000 offset.
        const size_t data = file.size() - 7 * 5 * channels * 2;
        EXPECT_EQ(GetField(file, data, 2, big), p[0][0]);
        if (model == RasModelLab) {
          EXPECT_EQ(GetField(file, planar == 1 ? data + 2 : data + 7 * 5 * 2, 2, big),
                    p[1][0] ^ 0x8000u);
        }
        ExpectPlanes16(path, RasFormatTiff16, 65535u, model, 150.0f, p);
      }
    }
  }
}

// Each width's reader refuses the other's files, so the probe gives 16-bit
// files to format 10 with maxval 65535.
TEST(Tiff16, ReadersOfEachWidthRefuseTheOther) {
  const std::string wide = TempPath("w16.tif"), narrow = TempPath("w8.tif");
  ASSERT_EQ(WritePlanes16(wide, RasFormatTiff16, RasModelRgb, 3, 2, Pattern16(3, 2, 3, 65535)),
            RasOk);
  ASSERT_EQ(WritePicture(narrow, RasFormatTiff, RasModelRgb, Pattern(3, 2, 3)), RasOk);
  for (const auto &[path, format, other] : {std::tuple{wide, RasFormatTiff16, RasFormatTiff},
                                            {narrow, RasFormatTiff, RasFormatTiff16}}) {
    RasDesc desc{};
    ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk);
    EXPECT_EQ(desc.format, format);
    EXPECT_EQ(desc.maxval, RasFormatMaxval(format));
    desc.format = other;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrUnsupported);
    EXPECT_EQ(desc.state, nullptr);
  }
  // A fourth BitsPerSample value (entry 3 of the directory) stands for no
  // sample and is ignored.
  Bytes extra = ReadFile(wide);
  ASSERT_EQ(GetField(extra, 10 + 12 * 3, 2), 258u);
  PutField(extra, 10 + 12 * 3 + 4, 4, 4);
  WriteFile(narrow, extra);
  Planes16 back;
  RasDesc read{};
  EXPECT_EQ(ReadPlanes16(narrow, &read, &back), RasOk);
  EXPECT_EQ(back, Pattern16(3, 2, 3, 65535));
  // A record of 8-bit planes cannot take 16-bit rows.
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(wide.c_str(), &desc), RasOk);
  ASSERT_EQ(RasOpen(wide.c_str(), 'r', &desc), RasOk);
  std::vector<uint8_t> bytes(3 * 3);
  RasSl sl{3, 3, {bytes.data(), bytes.data() + 3, bytes.data() + 6}, {}};
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrArg);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

}  // namespace

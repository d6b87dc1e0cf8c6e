// Colour JPEG files decode straight into the picture block: the result is
// byte for byte the picture built from the library's planar rows, and the
// straight row reader refuses rows out of order and files of other formats.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "photo/dib.h"
#include "photo/dibraster.h"
#include "raster/jpeg.h"
#include "raster/ras.h"

namespace {

bool OpenRead(const std::string &path, RasDesc *desc) {
  return RasGetInfo(path.c_str(), desc) == RasOk && RasOpen(path.c_str(), 'r', desc) == RasOk;
}

// The picture's bytes made by hand from the planar rows: bottom row first,
// blue, green, red, rows padded with zeros to four bytes.
std::vector<uint8_t> FromPlanes(const std::string &path) {
  RasDesc desc{};
  RasSl sl{};
  if (!OpenRead(path, &desc)) return {};
  const size_t rowSize = (size_t{desc.width} * 3 + 3) & ~size_t{3};
  std::vector<uint8_t> bytes(rowSize * desc.height, 0);
  for (uint32_t y = 0; y < desc.height; ++y) {
    EXPECT_EQ(RasReadSl(&desc, y, &sl), RasOk);
    uint8_t *row = bytes.data() + rowSize * (desc.height - 1 - y);
    for (uint32_t x = 0; x < desc.width; ++x)
      for (int k = 0; k < 3; ++k)
        row[3 * x + k] = sl.plane8[2 - k][x];
  }
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
  return bytes;
}

TEST(DibJpeg, StraightRowsGiveThePlanarPicture) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/jpeg/";
  for (const char *name :
       {"ljt__testorig.jpg", "ljt__testimgint.jpg", "pillow__hopper.jpg",
        "imagers__images_jpg_progressive_cat.jpg", "pillow__hopper_16bit_qtables.jpg"}) {
    SCOPED_TRACE(name);
    const std::vector<uint8_t> want = FromPlanes(dir + name);
    ASSERT_FALSE(want.empty());
    RasDesc desc{};
    RasSl sl{};
    ASSERT_TRUE(OpenRead(dir + name, &desc));
    ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);
    int code = -100;
    const CDib dib(DibFromScanlines(&desc, &sl, &code));
    EXPECT_EQ(code, RasOk);
    RasFreeSl(&sl);
    EXPECT_EQ(RasClose(&desc), RasOk);
    ASSERT_NE(dib.Header(), nullptr);
    EXPECT_EQ(std::memcmp(dib.Bits(), want.data(), want.size()), 0);
  }

  // Rows strictly in order, on JPEG files only.
  RasDesc desc{};
  ASSERT_TRUE(OpenRead(dir + "ljt__testorig.jpg", &desc));
  std::vector<uint8_t> row(size_t{desc.width} * 3);
  EXPECT_EQ(JpegReadRow(&desc, 1, row.data()), RasErrArg);
  EXPECT_EQ(JpegReadRow(&desc, 0, row.data()), RasOk);
  EXPECT_EQ(JpegReadRow(&desc, 0, row.data()), RasErrArg);
  EXPECT_EQ(JpegReadRow(&desc, 1, nullptr), RasErrArg);
  EXPECT_EQ(JpegReadRow(&desc, 1, row.data()), RasOk);
  EXPECT_EQ(RasClose(&desc), RasOk);
  RasDesc bmp{};
  ASSERT_TRUE(OpenRead(std::string(KORVEL_TESTDATA_DIR) + "/bmp/ljt__vgl_6434_0018a.bmp", &bmp));
  EXPECT_EQ(JpegReadRow(&bmp, 0, row.data()), RasErrArg);
  EXPECT_EQ(RasClose(&bmp), RasOk);
}

}  // namespace

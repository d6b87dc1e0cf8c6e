// Photos of every colour model a reader returns open as correct RGB pictures:
// compared with files of the same picture stored as RGB by other programs.
#include <gtest/gtest.h>

#include <QRect>
#include <cmath>
#include <string>

#include "app/dib.h"
#include "app/dibraster.h"
#include "tests/raster/testutil.h"

namespace {

std::string Data(const char *name) {
  return std::string(KORVEL_TESTDATA_DIR) + "/" + name;
}

CDib Open(const std::string &path) {
  RasDesc desc{};
  int code = RasGetInfo(path.c_str(), &desc);
  if (code == RasOk) code = RasOpen(path.c_str(), 'r', &desc);
  if (code != RasOk) return CDib();
  RasSl sl{};
  HGLOBAL h = RasMakeSl(&sl, &desc) == RasOk ? DibFromScanlines(&desc, &sl, &code) : nullptr;
  RasFreeSl(&sl);
  RasClose(&desc);
  return CDib(h);
}

// How closely two pictures of one size agree: the mean absolute difference
// of their samples, and the least correlation of a channel across pixels (1
// when one is a brighter or darker copy of the other, 0 when unrelated).
struct Agreement {
  double mean = 1e9;
  double correlation = 0;
};

Agreement Compare(const CDib &a, const CDib &b) {
  Agreement r;
  if (!a.Header() || !b.Header() || a.Width() != b.Width() || a.Height() != b.Height()) return r;
  double sum = 0, least = 1;
  for (int k = 0; k < 3; ++k) {
    double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
    const double n = double(a.Width()) * a.Height();
    for (uint32_t y = 0; y < a.Height(); ++y)
      for (uint32_t x = 0; x < a.Width(); ++x) {
        const double u = a.RowPointer(int32_t(y))[3 * x + k],
                     v = b.RowPointer(int32_t(y))[3 * x + k];
        sum += std::abs(u - v);
        sa += u, sb += v, saa += u * u, sbb += v * v, sab += u * v;
      }
    const double cov = sab / n - sa / n * sb / n;
    least =
        std::min(least, cov / std::sqrt((saa / n - sa / n * sa / n) * (sbb / n - sb / n * sb / n)));
  }
  r.mean = sum / (double(a.Width()) * a.Height() * 3);
  r.correlation = least;
  return r;
}

TEST(DibModels, EveryModelOpensAsTheRgbPictureItHolds) {
  // Grey: every pixel has three equal samples, the file's grey.
  CDib grey = Open(Data("jpeg/pillow__hopper_gray.jpg"));
  ASSERT_NE(grey.Header(), nullptr);
  testutil::Picture g;
  ASSERT_EQ(testutil::ReadPicture(Data("jpeg/pillow__hopper_gray.jpg"), &g), RasOk);
  for (uint32_t y = 0; y < grey.Height(); ++y)
    for (uint32_t x = 0; x < grey.Width(); ++x)
      for (int k = 0; k < 3; ++k)
        ASSERT_EQ(grey.RowPointer(int32_t(y))[3 * x + k], g.At(x, y, 0)) << x << "," << y;

  // CIE L*a*b* of the same photo (D50, adapted to sRGB's white) against the
  // RGB original: the same colours up to rounding and gamut edges.
  const Agreement lab =
      Compare(Open(Data("tiff/pillow__hopper.Lab.tif")), Open(Data("bmp/pillow__hopper.bmp")));
  EXPECT_LT(lab.mean, 2.5);
  EXPECT_GT(lab.correlation, 0.99);
  // Printing inks: the separation was made with a press profile, so it comes
  // out darker than the RGB original, but every channel follows it.
  const CDib contig = Open(Data("tiff/oiioimg__libtiffpic_depth_flower-separated-contig-08.tif"));
  const CDib planar = Open(Data("tiff/oiioimg__libtiffpic_depth_flower-separated-planar-08.tif"));
  const CDib rgb = Open(Data("tiff/oiioimg__libtiffpic_depth_flower-rgb-planar-08.tif"));
  EXPECT_EQ(Compare(contig, planar).mean, 0.0);
  EXPECT_GT(Compare(contig, rgb).correlation, 0.9);
  // Inks in a JPEG file (stored complemented) open too, as a picture of the
  // same size with colour in it.
  const CDib jpeg = Open(Data("jpeg/pillow__pil_sample_cmyk.jpg"));
  ASSERT_NE(jpeg.Header(), nullptr);
  EXPECT_EQ(jpeg.Width(), 100u);
}

}  // namespace

// Photos of every colour model a reader returns open as correct RGB pictures:
// compared with files of the same picture stored as RGB by other programs.
#include <gtest/gtest.h>

#include <QRect>
#include <algorithm>
#include <cmath>
#include <string>

#include "photo/dib.h"
#include "photo/dibraster.h"
#include "raster/photocd.h"
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

// Photo CD, Targa, Scitex CT and Cineon files open as RGB pictures of what
// they hold.
TEST(DibModels, PhotoCdTargaScitexAndCineonOpenAsTheirPictures) {
  // The Photo CD image pack was made from the same photo, stretched to 3:2;
  // its chroma decodes to strong colour casts, so the check is on brightness:
  // the YCC converted for display follows the original's luminance.
  uint32_t level = 3;
  ASSERT_EQ(PcdGetOption(PcdOptLevel, &level), RasOk);
  ASSERT_EQ(PcdSetOption(PcdOptLevel, 1), RasOk);
  const CDib pcd = Open(Data("photocd/pillow__hopper.pcd"));
  (void)PcdSetOption(PcdOptLevel, level);
  const CDib bmp = Open(Data("bmp/pillow__hopper.bmp"));
  ASSERT_NE(pcd.Header(), nullptr);
  ASSERT_EQ(pcd.Width(), 192u);
  ASSERT_EQ(pcd.Height(), 128u);
  ASSERT_NE(bmp.Header(), nullptr);
  double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
  const double n = double(bmp.Width()) * bmp.Height();
  for (uint32_t y = 0; y < bmp.Height(); ++y)
    for (uint32_t x = 0; x < bmp.Width(); ++x) {
      const uint8_t *p = pcd.RowPointer(int32_t(y)) + 3 * (x * pcd.Width() / bmp.Width());
      const uint8_t *q = bmp.RowPointer(int32_t(y)) + 3 * x;
      const double u = 0.114 * p[0] + 0.587 * p[1] + 0.299 * p[2];
      const double v = 0.114 * q[0] + 0.587 * q[1] + 0.299 * q[2];
      sa += u, sb += v, saa += u * u, sbb += v * v, sab += u * v;
    }
  const double cov = sab / n - sa / n * sb / n;
  EXPECT_GT(cov / std::sqrt((saa / n - sa / n * sa / n) * (sbb / n - sb / n * sb / n)), 0.7);

  // The Truevision samples hold one test pattern at every depth: 24 and 32
  // bits agree exactly, 16 bits and a 16-bit colour map to the 5-bit steps.
  const CDib tc24 = Open(Data("targa/oiioimg__targa_UTC24.TGA"));
  EXPECT_EQ(Compare(tc24, Open(Data("targa/oiioimg__targa_UTC32.TGA"))).mean, 0.0);
  EXPECT_LT(Compare(tc24, Open(Data("targa/oiioimg__targa_UTC16.TGA"))).mean, 4.0);
  EXPECT_LT(Compare(tc24, Open(Data("targa/oiioimg__targa_UCM8.TGA"))).mean, 4.0);
  // A Cineon film scan shows through the negative-to-display view, which
  // spreads the checker's two densities (codes 374 and 509) well apart: the
  // two most common greys differ by more than 50 levels (34 as raw codes).
  const CDib cineon = Open(Data("cineon/oiioimg__cineon_checker.cin"));
  ASSERT_NE(cineon.Header(), nullptr);
  ASSERT_EQ(cineon.Width(), 160u);
  int count[256] = {};
  for (uint32_t y = 0; y < cineon.Height(); ++y)
    for (uint32_t x = 0; x < cineon.Width(); ++x) {
      const uint8_t *p = cineon.RowPointer(int32_t(y)) + 3 * x;
      if (p[0] == p[1] && p[1] == p[2]) ++count[p[0]];
    }
  const int first = int(std::max_element(count, count + 256) - count);
  count[first] = 0;
  const int second = int(std::max_element(count, count + 256) - count);
  EXPECT_GT(std::abs(first - second), 50);
  // A Scitex CT separation follows its RGB twin in every channel.
  EXPECT_GT(Compare(Open(Data("scitex/kif__sct_cmyk.sct")), Open(Data("scitex/kif__sct_rgb.sct")))
                .correlation,
            0.9);
}

}  // namespace

// The eight orientations against a model written from the tag's meaning (which
// side of the upright picture the stored first row and column lie on), and
// against real photos: eight files of one portrait, each stored turned or
// mirrored its own way, come out upright as another program turns them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "pixels/orient.h"
#include "tests/raster/testutil.h"

namespace {

// Where stored pixel (x, y) of a w x h picture lands in the upright one,
// straight from the definition: 1 first row on top and first column left,
// 2 top/right, 3 bottom/right, 4 bottom/left, 5 left/top, 6 right/top,
// 7 right/bottom, 8 left/bottom.
void Upright(int orientation, int x, int y, int w, int h, int *ux, int *uy) {
  const int rowSide[9] = {0, 0, 0, 1, 1, 2, 3, 3, 2};  // 0 top 1 bottom 2 left 3 right
  const bool columnFar[9] = {false, false, true, true, false, false, false, true, true};
  const int side = rowSide[orientation];
  if (side < 2) {  // rows stay rows
    *ux = columnFar[orientation] ? w - 1 - x : x;
    *uy = side == 0 ? y : h - 1 - y;
  } else {  // rows become columns
    *ux = side == 2 ? y : h - 1 - y;
    *uy = columnFar[orientation] ? w - 1 - x : x;
  }
}

// A planar image over `bytes`: `step` 1 is planar, 3 interleaved.
PlanarImage View(std::vector<uint8_t> &bytes, int w, int h, int step) {
  bytes.assign(size_t(w) * h * 3, 0);
  PlanarImage image{1, 3, w, h, 0, step, step == 1 ? w : 3 * w, {}};
  for (int c = 0; c < 3; ++c)
    image.planes[c] = bytes.data() + (step == 1 ? size_t(c) * w * h : size_t(c));
  return image;
}

uint8_t &At(const PlanarImage &p, int x, int y, int c) {
  return p.planes[c][ptrdiff_t(y) * p.rowStride + ptrdiff_t(x) * p.pixelStep];
}

TEST(Orient, EveryOrientationAndLayoutMatchesTheModel) {
  const int w = 7, h = 5;  // odd sizes leave a middle row and column
  for (int orientation = 1; orientation <= 8; ++orientation) {
    for (int step : {1, 3}) {
      SCOPED_TRACE("orientation " + std::to_string(orientation) + " step " + std::to_string(step));
      std::vector<uint8_t> a, b;
      const PlanarImage src = View(a, w, h, step);
      const bool turned = OrientationExchanges(orientation);
      PlanarImage dst = View(b, turned ? h : w, turned ? w : h, step);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          for (int c = 0; c < 3; ++c)
            At(src, x, y, c) = static_cast<uint8_t>(y * w + x + 100 * c);
      ASSERT_EQ(OrientImage(&src, orientation, &dst), 0);
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          int ux, uy;
          Upright(orientation, x, y, w, h, &ux, &uy);
          for (int c = 0; c < 3; ++c)
            ASSERT_EQ(At(dst, ux, uy, c), At(src, x, y, c)) << x << "," << y << " c" << c;
        }
      }
    }
  }
}

TEST(Orient, RefusesWhatItCannotDo) {
  std::vector<uint8_t> a, b;
  const PlanarImage src = View(a, 4, 2, 1);
  PlanarImage same = View(b, 4, 2, 1);
  for (int orientation : {0, 9, -1})
    EXPECT_EQ(OrientImage(&src, orientation, &same), -1);
  EXPECT_EQ(OrientImage(&src, 6, &same), -1);  // a quarter turn needs 2 x 4
  EXPECT_EQ(OrientImage(nullptr, 1, &same), -1);
}

int MaxDifference(const testutil::Samples &a, const testutil::Samples &b) {
  int worst = 0;
  for (size_t i = 0; i < a.values.size(); ++i)
    worst = std::max(worst, std::abs(int(a.values[i]) - int(b.values[i])));
  return worst;
}

double MeanDifference(const testutil::Samples &a, const testutil::Samples &b) {
  double sum = 0;
  for (size_t i = 0; i < a.values.size(); ++i)
    sum += std::abs(int(a.values[i]) - int(b.values[i]));
  return sum / double(a.values.size());
}

// ImageMagick's -auto-orient is the independent reference for each file; all
// eight then show one picture: each file is its own JPEG encoding of the
// turned photo, so they agree to a few levels, while a wrong turn differs by
// tens.
TEST(Orient, EightStoredWaysOfOnePortraitComeOutAsOne) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/exif/recurser__Portrait_";
  testutil::Samples first;
  for (int n = 1; n <= 8; ++n) {
    SCOPED_TRACE(n);
    const std::string in = dir + std::to_string(n) + ".jpg";
    const std::string out = testutil::TempPath("portrait" + std::to_string(n) + ".bmp");
    const std::string reference = testutil::TempPath("portrait" + std::to_string(n) + ".ppm");
    const auto r = testutil::RunTool("convert " + in + " " + out);
    ASSERT_EQ(r.status, 0) << r.out;
    ASSERT_TRUE(testutil::Shell("convert " + in + " -auto-orient " + reference));
    int code = -1;
    const testutil::Samples upright = testutil::ReadSamples(out, &code);
    ASSERT_EQ(code, RasOk);
    const testutil::Samples expected = testutil::ReadNetpbm(reference);
    ASSERT_EQ(upright.width, 1200u);
    ASSERT_EQ(upright.height, 1800u);
    ASSERT_EQ(expected.width, 1200u);
    EXPECT_LE(MaxDifference(upright, expected), 1);
    if (n == 1) first = upright;
    EXPECT_LT(MeanDifference(upright, first), 4.0);
  }
}

}  // namespace

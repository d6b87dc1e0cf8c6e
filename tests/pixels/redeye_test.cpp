// Red-eye classification, grey rounding and the patch that a click repaints.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "pixels/pixels.h"

namespace {

using Rgb = std::array<int, 3>;

// Which threshold, if any, the byte triple sits on exactly in integer arithmetic.
enum Threshold { kNone, kL09, kL01, kS015, kH015, kH075, kThresholds };

Threshold ExactThreshold(int r, int g, int b) {
  const int max = std::max({r, g, b}), min = std::min({r, g, b}), sum = max + min, d = max - min;
  if (sum == 459 || sum == 51) return sum == 459 ? kL09 : kL01;  // L = sum / 510
  if (d == 0) return kNone;
  if (20 * d == 3 * (sum >= 255 ? 510 - sum : sum)) return kS015;
  if (r == max) return 10 * (g - b) == 9 * d ? kH015 : kNone;  // H = (g - b) / 6d
  return g != max && 2 * (r - g) == d ? kH075 : kNone;         // H = (4 + (r - g) / d) / 6
}

// The classification rules worked in double from the bytes; sum = 2L.
bool ReferenceRedEye(int r8, int g8, int b8) {
  const double r = r8 / 255.0, g = g8 / 255.0, b = b8 / 255.0;
  const double max = std::max({r, g, b}), min = std::min({r, g, b}), d = max - min, sum = max + min;
  if (sum > 1.8) return true;
  if (sum < 0.2 || d == 0 || (sum >= 1 ? d / (2 - max - min) : d / sum) < 0.15) return false;
  // A negative hue would wrap to above 5 / 6, which is red anyway.
  const double h = (r == max ? (g - b) / d : g == max ? 2 + (b - r) / d : 4 + (r - g) / d) / 6;
  return h > 0.75 || h < 0.15;
}

TEST(RgbToHslTest, KnownColours) {
  // r, g, b -> h, s, l; (1, 0, 1) wraps a negative hue; the last has L >= 0.5.
  // clang-format off
  const float cases[][6] = {{1, 0, 0, 0, 1, 0.5f}, {0, 1, 0, 1 / 3.0f, 1, 0.5f},
      {0, 0, 1, 2 / 3.0f, 1, 0.5f}, {1, 1, 0, 1 / 6.0f, 1, 0.5f}, {0, 1, 1, 0.5f, 1, 0.5f},
      {1, 0, 1, 5 / 6.0f, 1, 0.5f}, {0.5f, 0.5f, 0.5f, 0, 0, 0.5f}, {1, 1, 1, 0, 0, 1},
      {0, 0, 0, 0, 0, 0}, {0.4f, 0.2f, 0.2f, 0, 1 / 3.0f, 0.3f},
      {0.2f, 0.4f, 0.3f, 5 / 12.0f, 1 / 3.0f, 0.3f}, {0.8f, 0.4f, 0.4f, 0, 0.5f, 0.6f}};
  // clang-format on
  for (const auto &c : cases) {
    float hsl[3] = {-1, -1, -1};
    EXPECT_EQ(RgbToHsl(c, hsl), 0);
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(hsl[i], c[3 + i], 1e-6) << c[0] << "," << c[1] << "," << c[2];
  }
}

// r, g, b and red or not, for triples exactly on each threshold (L = 0.9 twice, L = 0.1
// twice, S = 0.15 below and above L = 0.5, H = 0.75, H = 0.15) and beside it. On L = 0.9, L = 0.1
// and H = 0.75 the float values land on the exact rule's side; on S = 0.15 (L < 0.5) and H = 0.15
// they cross it. The whole cube then agrees with the double rules except exactly on a threshold, in
// counts that pin the float arithmetic.
TEST(IsRedEyePixelTest, ThresholdsAndDoubleReference) {
  // clang-format off
  const int cases[][4] = {{230, 229, 229, 0}, {230, 230, 230, 1}, {229, 229, 229, 0},
      {255, 204, 204, 1}, {204, 255, 204, 0}, {255, 255, 255, 1}, {51, 0, 0, 1}, {50, 0, 0, 0},
      {52, 0, 0, 1}, {26, 25, 25, 0}, {115, 85, 85, 0}, {116, 85, 85, 1}, {114, 85, 85, 0},
      {170, 140, 140, 1}, {171, 140, 140, 1}, {169, 140, 140, 0}, {100, 0, 200, 0},
      {101, 0, 200, 1}, {99, 0, 200, 0}, {200, 180, 0, 1}, {200, 181, 0, 0}, {200, 179, 0, 1},
      {255, 0, 191, 1}, {255, 0, 1, 1}, {0, 255, 0, 0}};
  // clang-format on
  for (const auto &[r, g, b, red] : cases)
    EXPECT_EQ(IsRedEyePixel(r, g, b), red != 0) << r << "," << g << "," << b;
  std::array<int, kThresholds> differ{};
  for (int r = 0; r <= 255; ++r)
    for (int g = 0; g <= 255; ++g)
      for (int b = 0; b <= 255; ++b)
        if (IsRedEyePixel(r, g, b) != ReferenceRedEye(r, g, b)) ++differ[ExactThreshold(r, g, b)];
  EXPECT_EQ(differ, (std::array<int, kThresholds>{0, 0, 0, 401, 2198, 112}));
}

TEST(GreyPixelTest, RoundsTheMean) {
  // clang-format off
  const int cases[][4] = {{1, 1, 0, 1}, {0, 0, 1, 0}, {255, 0, 0, 85}, {0, 0, 0, 0}, {2, 2, 1, 2},
      {2, 2, 0, 1}, {255, 255, 255, 255}, {255, 255, 0, 170}, {200, 30, 40, 90}};
  // clang-format on
  for (const auto &[r, g, b, grey] : cases) {
    uint8_t p[3] = {uint8_t(r), uint8_t(g), uint8_t(b)};
    GreyPixel(&p[0], &p[1], &p[2]);
    EXPECT_EQ(Rgb({p[0], p[1], p[2]}), Rgb({grey, grey, grey})) << r << "," << g << "," << b;
  }
}

// A picture drawn as text, rows split by '/': '.' background, 'r' red, 'w' white; ':',
// 'R', 'W' the same but greyed by the repaint; the click is '*' (red) or '@' (white) and
// is greyed. With `after` the greyed pixels are drawn as the repaint should leave them.
// Three planes one after another, or interleaved bottom-up (negative stride) with two
// bytes of row padding; the buffer is exactly as large as needed, for AddressSanitizer.
struct Picture {
  std::vector<uint8_t> bytes;
  PlanarImage image{};
  int cx = -1, cy = -1;
  Picture(const char *text, bool flipped, bool after = false) {
    const int w = int(std::strcspn(text, "/")), h = int(std::strlen(text) + 1) / (w + 1);
    const int s = 3 * w + 2, plane = flipped ? 1 : w * h;  // s: the interleaved row stride
    bytes.resize(size_t(flipped ? s * (h - 1) + 3 * w : 3 * w * h));
    uint8_t *const o = bytes.data() + (flipped ? s * (h - 1) : 0);
    image = {1, 3, w, h, 0, flipped ? 3 : 1, flipped ? -s : w, {o, o + plane, o + 2 * plane}};
    for (int i = 0, x = 0, y = 0; i < w * h; x = ++i % w, y = i / w) {
      const char k = text[y * (w + 1) + x];
      const bool red = std::strchr("rR*", k), white = std::strchr("wW@", k);
      const Rgb p = red ? Rgb{200, 30, 40} : white ? Rgb{255, 255, 255} : Rgb{40, 160, 60};
      if (std::strchr("*@", k)) cx = x, cy = y;
      for (int c = 0; c < 3; ++c)
        image.planes[c][y * image.rowStride + x * image.pixelStep] =
            uint8_t(after && std::strchr(":RW*@", k) ? (p[0] + p[1] + p[2] + 1) / 3 : p[c]);
    }
  }
};

TEST(RemoveRedEyeTest, GreysTheExpectedDisc) {
  // Lone pixel; r = 1; 1 x 5 run, r = 2; reach 2 stops a row and a column; reach 0 still
  // steps once; reach 3; centring; upward scan; a glint; edges and corners.
  // clang-format off
  const std::pair<int, const char *> cases[] = {{2, "...../..*../....."},
      {2, "...../.:R:./.R*R./.:R:./....."},
      {2, "......./..:::../.:::::./.RR*RR./.:::::./..:::../......."},
      {2, "...:::.../..:::::../.rRR*RRr./..:::::../...:::..."},
      {2, "...../...../.:*:./.:R:./.:R:./..r../..r.."},
      {0, "........./...:::.../.rrR*Rrr./...:::.../........."},
      {3, "...:::.../..:::::../.:::::::./.RRR*RRR./.:::::::./..:::::../...:::..."},
      {2, "..:::..../..*RRrr../..:::...."}, {2, "...:::.../...*R:.../...:::..."},
      {2, ".r./:R:/:R:/:*:/.../..."}, {2, "..:::../.:::::./.RR@RR./.:::::./..:::.."},
      {2, ".RR*RR./.:::::./..:::.."}, {2, "RR*RR"}, {2, "..:::../.:::::./.RR*RR."},
      {2, ".../R:./R::/*::/R::/R:./..."}, {2, "*R:./:::./...."}, {2, ".../.:R/::R/::*/::R/.:R/..."},
      {2, "..../..../..:R/..:*"}, {0, "*"}};
  // clang-format on
  for (const auto &[reach, text] : cases)
    for (const bool flipped : {false, true}) {
      Picture pic(text, flipped), want(text, flipped, true);
      EXPECT_EQ(RemoveRedEye(&pic.image, pic.cx, pic.cy, reach, 0), 0) << text;
      EXPECT_EQ(pic.bytes, want.bytes) << text << (flipped ? " flipped" : "");
    }
}

// Refused calls and clicks off the red leave every byte as it was.
TEST(RemoveRedEyeTest, RefusedOrNonRedClicksChangeNothing) {
  Picture pic("...../.r*r./.....", false);
  std::vector<PlanarImage> bad(8, pic.image);  // a zero width or height is refused by the click
  // clang-format off
  bad[0].channels = 2; bad[1].channels = 4; bad[2].sampleType = 2; bad[3].pixelStep = 0;
  bad[4].rowStride = 0; for (int c = 0; c < 3; ++c) bad[5 + c].planes[c] = nullptr;
  const int calls[][4] = {{0, 1, 2, 0} /* not red */, {-1, 1, 2, -1}, {5, 1, 2, -1},
                          {2, -1, 2, -1}, {2, 3, 2, -1}, {2, 1, -1, -1}};  // x, y, reach, result
  // clang-format on
  for (PlanarImage &image : bad)
    EXPECT_EQ(RemoveRedEye(&image, 2, 1, 2, 0), -1) << &image - bad.data();
  for (const auto &[x, y, reach, result] : calls)
    EXPECT_EQ(RemoveRedEye(&pic.image, x, y, reach, 0), result) << x << "," << y << "," << reach;
  EXPECT_EQ(RemoveRedEye(nullptr, 0, 0, 2, 0), -1);
  EXPECT_EQ(pic.bytes, Picture("...../.r*r./.....", false).bytes);
}

}  // namespace

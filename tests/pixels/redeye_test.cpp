// Red-eye classification, grey rounding and the patch that a click repaints.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "edit/pixels/pixels.h"

namespace {

using Rgb = std::array<int, 3>;

// Which classification threshold, if any, the byte triple sits on exactly in
// integer arithmetic; there float rounding decides the side.
enum Threshold { kNone, kL09, kL01, kS015, kH015, kH075, kThresholds };

Threshold ExactThreshold(int r, int g, int b) {
  const int max = std::max({r, g, b}), min = std::min({r, g, b});
  const int sum = max + min, d = max - min;
  if (sum == 459 || sum == 51) return sum == 459 ? kL09 : kL01;  // L = sum / 510
  if (d == 0) return kNone;
  if (20 * d == 3 * (sum >= 255 ? 510 - sum : sum)) return kS015;
  if (r == max) return 10 * (g - b) == 9 * d ? kH015 : kNone;  // H = (g - b) / 6d
  return g != max && 2 * (r - g) == d ? kH075 : kNone;         // H = (4 + (r - g) / d) / 6
}

// The classification rules worked in double from the bytes.
bool ReferenceRedEye(int r8, int g8, int b8) {
  const double r = r8 / 255.0, g = g8 / 255.0, b = b8 / 255.0;
  const double max = std::max({r, g, b}), min = std::min({r, g, b}), d = max - min;
  const double l = (max + min) / 2;
  if (l > 0.9) return true;
  if (l < 0.1 || d == 0 || (l >= 0.5 ? d / (2 - max - min) : d / (max + min)) < 0.15) return false;
  double h = r == max ? (g - b) / d : g == max ? 2 + (b - r) / d : 4 + (r - g) / d;
  h = h < 0 ? h / 6 + 1 : h / 6;
  return h > 0.75 || h < 0.15;
}

TEST(RgbToHslTest, KnownColours) {
  const struct {
    std::array<float, 3> rgb, hsl;
  } cases[] = {
      // clang-format off
      {{1, 0, 0}, {0, 1, 0.5f}}, {{0, 1, 0}, {1 / 3.0f, 1, 0.5f}}, {{0, 0, 1}, {2 / 3.0f, 1, 0.5f}},
      {{1, 1, 0}, {1 / 6.0f, 1, 0.5f}}, {{0, 1, 1}, {0.5f, 1, 0.5f}},
      {{1, 0, 1}, {5 / 6.0f, 1, 0.5f}},  // negative hue wraps
      {{0.5f, 0.5f, 0.5f}, {0, 0, 0.5f}}, {{1, 1, 1}, {0, 0, 1}}, {{0, 0, 0}, {0, 0, 0}},
      {{0.4f, 0.2f, 0.2f}, {0, 1 / 3.0f, 0.3f}}, {{0.2f, 0.4f, 0.3f}, {5 / 12.0f, 1 / 3.0f, 0.3f}},
      {{0.8f, 0.4f, 0.4f}, {0, 0.5f, 0.6f}},  // L >= 0.5: S = d / (2 - max - min)
      // clang-format on
  };
  for (const auto &c : cases) {
    float hsl[3] = {-1, -1, -1};
    EXPECT_EQ(RgbToHsl(c.rgb.data(), hsl), 0);
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(hsl[i], c.hsl[i], 1e-6) << c.rgb[0] << "," << c.rgb[1] << "," << c.rgb[2];
  }
}

// Triples on and beside each threshold. Those on one land where their float
// values put them: for L = 0.9 (float 0.89999998, not a glint), L = 0.1
// (0.10000000, passes) and H = 0.75 (exact, not red) that is the exact rule's
// side; S = 0.15 with L < 0.5 (0.14999999) and H = 0.15 (0.14999999) cross it.
TEST(IsRedEyePixelTest, ThresholdsOnBothSides) {
  const struct {
    Rgb rgb;
    Threshold on;
    bool red;
  } cases[] = {
      // clang-format off
      {{230, 229, 229}, kL09, false}, {{230, 230, 230}, kNone, true}, {{229, 229, 229}, kNone, false},
      {{255, 204, 204}, kL09, true}, {{204, 255, 204}, kL09, false}, {{255, 255, 255}, kNone, true},
      {{51, 0, 0}, kL01, true}, {{50, 0, 0}, kNone, false}, {{52, 0, 0}, kNone, true},
      {{26, 25, 25}, kL01, false},
      {{115, 85, 85}, kS015, false}, {{116, 85, 85}, kNone, true}, {{114, 85, 85}, kNone, false},
      {{170, 140, 140}, kS015, true}, {{171, 140, 140}, kNone, true},
      {{169, 140, 140}, kNone, false},
      {{100, 0, 200}, kH075, false}, {{101, 0, 200}, kNone, true}, {{99, 0, 200}, kNone, false},
      {{200, 180, 0}, kH015, true}, {{200, 181, 0}, kNone, false}, {{200, 179, 0}, kNone, true},
      {{255, 0, 191}, kNone, true}, {{255, 0, 1}, kNone, true}, {{0, 255, 0}, kNone, false},
      // clang-format on
  };
  for (const auto &c : cases) {
    const auto [r, g, b] = c.rgb;
    EXPECT_EQ(ExactThreshold(r, g, b), c.on) << r << "," << g << "," << b;
    EXPECT_EQ(IsRedEyePixel(r, g, b), c.red) << r << "," << g << "," << b;
  }
}

// Over the whole colour cube the float classification agrees with the double
// one except on triples exactly on a threshold, where the two roundings may
// pick different sides; the counts per threshold pin the float arithmetic.
TEST(IsRedEyePixelTest, AgreesWithDoubleReferenceOffThresholds) {
  std::array<int, kThresholds> differ{};
  for (int r = 0; r <= 255; ++r)
    for (int g = 0; g <= 255; ++g)
      for (int b = 0; b <= 255; ++b)
        if (IsRedEyePixel(r, g, b) != ReferenceRedEye(r, g, b)) ++differ[ExactThreshold(r, g, b)];
  const std::array<int, kThresholds> expected = {0, 0, 0, 401, 2198, 112};
  EXPECT_EQ(differ, expected);
}

TEST(GreyPixelTest, RoundsTheMean) {
  const std::pair<Rgb, int> cases[] = {
      {{1, 1, 0}, 1},         {{0, 0, 1}, 0},       {{255, 0, 0}, 85},
      {{0, 0, 0}, 0},         {{2, 2, 1}, 2},       {{2, 2, 0}, 1},
      {{255, 255, 255}, 255}, {{255, 255, 0}, 170}, {{200, 30, 40}, 90}};
  for (const auto &[rgb, grey] : cases) {
    uint8_t p[3] = {uint8_t(rgb[0]), uint8_t(rgb[1]), uint8_t(rgb[2])};
    GreyPixel(&p[0], &p[1], &p[2]);
    EXPECT_EQ(Rgb({p[0], p[1], p[2]}), Rgb({grey, grey, grey})) << rgb[0] << "," << rgb[1];
  }
}

enum class Layout { kPlanes, kInterleavedPadded, kBottomUp };

// A picture drawn as text, rows split by '/': '.' background, 'r' red, 'w'
// white, the clicked pixel in capitals. Buffers are exactly as large as the
// layout needs, so a stray access shows under AddressSanitizer.
class Picture {
 public:
  Picture(const std::string &text, Layout layout) {
    rows.emplace_back();
    for (const char ch : text)
      ch == '/' ? rows.emplace_back() : rows.back() += ch;
    const int w = static_cast<int>(rows[0].size()), h = static_cast<int>(rows.size());
    image_ = PlanarImage{1, 3, w, h, 0, 1, w, {}};
    const int stride = 3 * w + 2;  // interleaved, two bytes of row padding
    if (layout == Layout::kPlanes) {
      for (int c = 0; c < 3; ++c)
        image_.planes[c] = (planes_[c] = std::vector<uint8_t>(size_t(w * h))).data();
    } else {
      planes_[0].resize(size_t(stride * (h - 1) + 3 * w));
      image_.pixelStep = 3;
      image_.rowStride = layout == Layout::kBottomUp ? -stride : stride;
      for (int c = 0; c < 3; ++c)
        image_.planes[c] =
            planes_[0].data() + (layout == Layout::kBottomUp ? stride * (h - 1) : 0) + c;
    }
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const char k = static_cast<char>(rows[y][x] | 0x20);
        Set(x, y, k == 'r' ? Rgb{200, 30, 40} : k == 'w' ? Rgb{255, 255, 255} : Rgb{40, 160, 60});
        if (rows[y][x] != k) click = {x, y};
      }
  }
  PlanarImage *image() { return &image_; }
  Rgb Get(int x, int y) const {
    const int at = y * image_.rowStride + x * image_.pixelStep;
    return {image_.planes[0][at], image_.planes[1][at], image_.planes[2][at]};
  }
  void Set(int x, int y, Rgb p) {
    for (int c = 0; c < 3; ++c)
      image_.planes[c][y * image_.rowStride + x * image_.pixelStep] = uint8_t(p[c]);
  }
  std::vector<Rgb> All() const {
    std::vector<Rgb> all;
    for (int y = 0; y < image_.height; ++y)
      for (int x = 0; x < image_.width; ++x)
        all.push_back(Get(x, y));
    return all;
  }
  std::vector<std::string> rows;
  std::array<int, 2> click{-1, -1};

 private:
  std::array<std::vector<uint8_t>, 3> planes_;
  PlanarImage image_;
};

// Each case: the reach, the picture and the hand-drawn pixels that must come
// out grey ('#'); every other pixel must be untouched. Run in every layout.
TEST(RemoveRedEyeTest, GreysTheExpectedDisc) {
  const struct {
    const char *name;
    int reach;
    const char *picture, *greyed;
  } cases[] = {
      // clang-format off
      {"lone pixel, r = 0", 2, "...../..R../.....", "...../..#../....."},
      {"plus, r = 1 fills the square", 2, "...../..r../.rRr./..r../.....",
                                          "...../.###./.###./.###./....."},
      {"1 x 5 run, r = 2", 2, "......./......./......./.rrRrr./......./......./.......",
                              "......./..###../.#####./.#####./.#####./..###../......."},
      {"reach 2 stops a long row", 2, "........./........./.rrrRrrr./........./.........",
                                      "...###.../..#####../..#####../..#####../...###..."},
      {"reach 2 stops a long column", 2, "...../...../..R../..r../..r../..r../..r..",
                                         "...../...../.###./.###./.###./...../....."},
      {"reach 0 still steps once", 0, "........./........./.rrrRrrr./........./.........",
                                      "........./...###.../...###.../...###.../........."},
      {"reach 1", 1, "........./........./.rrrRrrr./........./.........",
                     "........./...###.../...###.../...###.../........."},
      {"reach 3, r = 3", 3, "........./........./........./.rrrRrrr./........./........./.........",
                            "...###.../..#####../.#######./.#######./.#######./..#####../...###..."},
      {"centred on the patch", 2, "........./..Rrrrr../.........", "..###..../..###..../..###....."},
      {"even run rounds right", 2, "........./...Rr..../.........", "...###.../...###.../...###..."},
      {"column scan", 2, ".r./.r./.r./.R./.../...", ".../###/###/###/.../..."},
      {"white glint starts a patch", 2, "......./......./.rrWrr./......./.......",
                                        "..###../.#####./.#####./.#####./..###.."},
      {"top edge", 2, ".rrRrr./......./.......", ".#####./.#####./..###.."},
      {"bottom edge", 2, "......./......./.rrRrr.", "..###../.#####./.#####."},
      {"left edge", 2, ".../r../r../R../r../r../...", ".../##./###/###/###/##./..."},
      {"right edge", 2, ".../..r/..r/..R/..r/..r/...", ".../.##/###/###/###/.##/..."},
      {"top-left corner", 2, "Rr../..../....", "###./###./...."},
      {"bottom-right corner", 2, "..../..../...r/...R", "..../..../..##/..##"},
      {"one-row photo", 2, "rrRrr", "#####"},
      {"one-pixel photo", 0, "R", "#"},
      // clang-format on
  };
  for (const auto &c : cases) {
    for (const Layout layout : {Layout::kPlanes, Layout::kInterleavedPadded, Layout::kBottomUp}) {
      SCOPED_TRACE(::testing::Message() << c.name << ", layout " << static_cast<int>(layout));
      Picture picture(c.picture, layout);
      const Picture greyed(c.greyed, Layout::kPlanes);
      const std::vector<Rgb> before = picture.All();
      ASSERT_EQ(RemoveRedEye(picture.image(), picture.click[0], picture.click[1], c.reach, 0), 0);
      for (size_t i = 0, w = picture.rows[0].size(); i < before.size(); ++i) {
        Rgb want = before[i];
        if (greyed.rows[i / w][i % w] == '#') want.fill((want[0] + want[1] + want[2] + 1) / 3);
        EXPECT_EQ(picture.Get(int(i % w), int(i / w)), want) << "at " << i % w << "," << i / w;
      }
    }
  }
}

// Refused calls and clicks off the red leave every byte as it was.
TEST(RemoveRedEyeTest, RefusedOrNonRedClicksChangeNothing) {
  const struct {
    int x, y, reach, result;
    void (*spoil)(PlanarImage &);
  } cases[] = {
      // clang-format off
      {0, 1, 2, 0, nullptr},  // not red, beside red
      {-1, 1, 2, -1, nullptr}, {5, 1, 2, -1, nullptr}, {2, -1, 2, -1, nullptr},
      {2, 3, 2, -1, nullptr}, {2, 1, -1, -1, nullptr},
      {2, 1, 2, -1, [](PlanarImage &i) { i.channels = 2; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.channels = 4; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.sampleType = 2; }},
      {0, 0, 2, -1, [](PlanarImage &i) { i.width = 0; }},
      {0, 0, 2, -1, [](PlanarImage &i) { i.height = 0; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.pixelStep = 0; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.rowStride = 0; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.planes[0] = nullptr; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.planes[1] = nullptr; }},
      {2, 1, 2, -1, [](PlanarImage &i) { i.planes[2] = nullptr; }},
      // clang-format on
  };
  for (const auto &c : cases) {
    Picture picture("...../.rRr./.....", Layout::kPlanes);
    const std::vector<Rgb> before = picture.All();
    PlanarImage spoilt = *picture.image();
    if (c.spoil) c.spoil(spoilt);
    EXPECT_EQ(RemoveRedEye(&spoilt, c.x, c.y, c.reach, 0), c.result) << &c - cases;
    EXPECT_EQ(picture.All(), before) << &c - cases;
  }
  EXPECT_EQ(RemoveRedEye(nullptr, 0, 0, 2, 0), -1);
}

}  // namespace

// Rotation, crop and enlargement: turn properties on shapes that cross the
// copy's tile and band edges, a per-pixel model as referee, hand-worked small
// cases, strided views, refusals that leave the destination untouched, and the
// progress sequence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "edit/pixels/pixels.h"

namespace {

using Owned = std::unique_ptr<PlanarImage, decltype(&PlanarFree)>;
Owned Make(int32_t w, int32_t h, int32_t channels = 3) {
  return Owned(PlanarCreate(w, h, channels), &PlanarFree);
}
uint8_t &At(const PlanarImage &im, int c, int x, int y) {
  return im.planes[c][y * im.rowStride + x * im.pixelStep];
}
template <class F>
PlanarImage &Fill(PlanarImage &im, F f) {
  for (int c = 0; c < im.channels; ++c)
    for (int y = 0; y < im.height; ++y)
      for (int x = 0; x < im.width; ++x)
        At(im, c, x, y) = uint8_t(f(c, x, y));
  return im;
}
// The size, then every sample plane by plane, row by row.
std::vector<int> Samples(const PlanarImage &im) {
  std::vector<int> v{im.width, im.height};
  for (int c = 0; c < im.channels; ++c)
    for (int y = 0; y < im.height; ++y)
      for (int x = 0; x < im.width; ++x)
        v.push_back(At(im, c, x, y));
  return v;
}
Owned Pattern(int32_t w, int32_t h, int32_t channels = 3) {
  Owned im = Make(w, h, channels);
  Fill(*im, [](int c, int x, int y) { return x * 7 + y * 31 + c * 101; });
  return im;
}
Owned Turned(const PlanarImage &s, int mode) {
  Owned d = mode == 1 ? Make(s.width, s.height) : Make(s.height, s.width);
  EXPECT_EQ(RotateImage(&s, mode, d.get(), nullptr), 0);
  return d;
}
// Referee: each destination pixel fetched from where the turn says it comes from.
Owned Model(const PlanarImage &s, int mode) {
  const int w = s.width, h = s.height;
  Owned d = mode == 1 ? Make(w, h) : Make(h, w);
  Fill(*d, [&](int c, int j, int r) {
    return mode == 0 ? At(s, c, r, h - 1 - j)
                     : (mode == 1 ? At(s, c, w - 1 - j, h - 1 - r) : At(s, c, w - 1 - r, j));
  });
  return d;
}
// Interleaved samples (pixel step 3) in padded, optionally bottom-up rows.
struct Interleaved {
  std::vector<uint8_t> bytes;
  PlanarImage im;
  Interleaved(int32_t w, int32_t h, bool up) : bytes(size_t(h) * (w * 3 + 5), 0xEE) {
    uint8_t *top = bytes.data() + (up ? (h - 1) * (w * 3 + 5) : 0);
    im = PlanarImage{1, 3, w, h, 0, 3, (up ? -1 : 1) * (w * 3 + 5), {top, top + 1, top + 2}};
  }
};

std::vector<float> calls;
int Record(float f) {
  calls.push_back(f);
  return calls.size() == 3 ? 7 : 0;  // the third row asks to stop
}

const std::pair<int32_t, int32_t> kShapes[] = {{1, 1},    {1, 9},   {9, 1},    {7, 5},
                                               {65, 33},  {33, 65}, {130, 17}, {200, 150},
                                               {530, 21}, {21, 530}};

TEST(PixGeometry, TurnsAgreeWithModelAndEachOther) {
  for (const auto &[w, h] : kShapes) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Owned src = Pattern(w, h);
    EXPECT_EQ(Samples(*Turned(*Turned(*Turned(*Turned(*src, 0), 0), 0), 0)), Samples(*src));
    EXPECT_EQ(Samples(*Turned(*Turned(*src, 2), 0)), Samples(*src));
    EXPECT_EQ(Samples(*Turned(*src, 1)), Samples(*Turned(*Turned(*src, 0), 0)));
    for (int mode = 0; mode < 3; ++mode) {
      EXPECT_EQ(Samples(*Turned(*src, mode)), Samples(*Model(*src, mode))) << mode;
      Interleaved in(w, h, true), out(mode == 1 ? w : h, mode == 1 ? h : w, false);
      Fill(in.im, [&](int c, int x, int y) { return At(*src, c, x, y); });
      ASSERT_EQ(RotateImage(&in.im, mode, &out.im, nullptr), 0);
      EXPECT_EQ(Samples(out.im), Samples(*Turned(*src, mode))) << "strided " << mode;
    }
  }
  const Owned hand = Pattern(3, 2, 1);  // 0 7 14 / 31 38 45
  const std::vector<int> expected[] = {
      {2, 3, 31, 0, 38, 7, 45, 14}, {3, 2, 45, 38, 31, 14, 7, 0}, {2, 3, 14, 45, 7, 38, 0, 31}};
  for (int mode = 0; mode < 3; ++mode) {
    Owned d = mode == 1 ? Make(3, 2, 1) : Make(2, 3, 1);
    ASSERT_EQ(RotateImage(hand.get(), mode, d.get(), nullptr), 0);
    EXPECT_EQ(Samples(*d), expected[mode]) << mode;
  }
}

TEST(PixGeometry, RefusalsWriteNothing) {
  const std::function<void(PlanarImage &, PlanarImage &, int &)> breakers[] = {
      [](PlanarImage &, PlanarImage &d, int &) { d.width = 4; },  // 7x5 turned needs 5x7
      [](PlanarImage &s, PlanarImage &d, int &) { d.planes[1] = s.planes[1]; },
      [](PlanarImage &, PlanarImage &, int &m) { m = 3; },
      [](PlanarImage &, PlanarImage &, int &m) { m = -1; },
      [](PlanarImage &, PlanarImage &, int &m) { m = 1; },  // the half turn keeps 7x5
      [](PlanarImage &, PlanarImage &d, int &) { d.channels = 2; },
      [](PlanarImage &s, PlanarImage &, int &) { s.planes[2] = nullptr; },
      [](PlanarImage &s, PlanarImage &, int &) { s.pixelStep = 0; },
      [](PlanarImage &, PlanarImage &d, int &) { d.rowStride = 0; },
      [](PlanarImage &s, PlanarImage &, int &) { s.sampleType = 2; },
      [](PlanarImage &s, PlanarImage &d, int &) { s.channels = d.channels = 5; },
  };
  const Owned src = Pattern(7, 5);
  for (size_t i = 0; i < std::size(breakers); ++i) {
    Owned dst = Make(5, 7);
    const std::vector<int> before = Samples(Fill(*dst, [](int, int, int) { return 0xAB; }));
    PlanarImage s = *src, d = *dst;
    int mode = 0;
    breakers[i](s, d, mode);
    EXPECT_EQ(RotateImage(&s, mode, &d, nullptr), -1) << i;
    EXPECT_EQ(Samples(*dst), before) << i;
  }
  EXPECT_EQ(RotateImage(nullptr, 0, Make(5, 7).get(), nullptr), -1);
  EXPECT_EQ(RotateImage(src.get(), 0, nullptr, nullptr), -1);
}

TEST(PixGeometry, ProgressOncePerRowAndStops) {
  const Owned src = Pattern(600, 70);
  const std::function<int(PlanarImage *, PixProgress)> runs[] = {
      [&](PlanarImage *d, PixProgress p) { return RotateImage(src.get(), 0, d, p); },
      [&](PlanarImage *d, PixProgress p) { return RotateImage(src.get(), 2, d, p); },
      [&](PlanarImage *d, PixProgress p) { return RotateImage(src.get(), 1, d, p); },
      [&](PlanarImage *d, PixProgress p) { return CropImage(src.get(), 0, 0, d, p); },
      [&](PlanarImage *d, PixProgress p) { return EnlargeImage(src.get(), 0.5f, 0.5f, 2, d, p); },
  };
  for (size_t i = 0; i < std::size(runs); ++i) {
    Owned dst = i < 2 ? Make(70, 600) : (i == 2 ? Make(600, 70) : Make(60, 40));
    std::vector<float> expected;
    for (int r = 0; r < dst->height; ++r)
      expected.push_back(float(double(r) / dst->height));
    calls.clear();
    EXPECT_EQ(runs[i](dst.get(), [](float f) { return calls.push_back(f), 0; }), 0) << i;
    EXPECT_EQ(calls, expected) << i;
    calls.clear();
    EXPECT_EQ(runs[i](dst.get(), &Record), 7) << i;
    EXPECT_EQ(calls.size(), 3u) << i;
  }
}

TEST(PixGeometry, CropWholeRectangleOnly) {
  const Owned src = Pattern(9, 6);
  const std::vector<int32_t> cases[] = {
      // left, top, width, height, code
      {0, 0, 9, 6, 0},   {0, 0, 10, 6, -1}, {0, 0, 9, 7, -1}, {1, 0, 9, 6, -1}, {0, 1, 9, 6, -1},
      {-1, 0, 2, 2, -1}, {0, -1, 2, 2, -1}, {7, 3, 2, 3, 0},  {8, 5, 1, 1, 0},  {8, 5, 2, 1, -1}};
  for (const auto &k : cases) {
    Owned dst = Make(k[2], k[3]), model = Make(k[2], k[3]);
    Fill(*dst, [](int, int, int) { return 0xAB; });  // a refusal leaves this as it is
    Fill(*model,
         [&](int c, int x, int y) { return k[4] ? 0xAB : At(*src, c, k[0] + x, k[1] + y); });
    ASSERT_EQ(CropImage(src.get(), k[0], k[1], dst.get(), nullptr), k[4]) << k[0] << "," << k[1];
    EXPECT_EQ(Samples(*dst), Samples(*model));
    Interleaved view(k[2], k[3], true);  // each image walked with its own pixel step
    if (k[4] == 0) {
      ASSERT_EQ(CropImage(src.get(), k[0], k[1], &view.im, nullptr), 0);
      EXPECT_EQ(Samples(view.im), Samples(*model));
    }
  }
}

TEST(PixGeometry, EnlargeWindows) {
  const Owned big = Pattern(13, 8);
  Owned copy = Make(13, 8);
  ASSERT_EQ(EnlargeImage(big.get(), 0.3f, 0.7f, 1, copy.get(), nullptr), 0);
  EXPECT_EQ(Samples(*copy), Samples(*big));

  // 0 7 / 31 38 three times over is 6 x 6; a 4 x 4 window has excess 2, so
  // 0, 0.5 and 1 give offsets 0, 1 and 2.
  const Owned src = Pattern(2, 2, 1);
  const std::vector<int> a = {0, 0, 0, 7, 7, 7}, b = {31, 31, 31, 38, 38, 38};
  struct Case {
    float fx, fy;
    int32_t w, h, ox;
    std::vector<std::vector<int>> rows;  // of the 6 x 6 picture, each shown from column ox
  };
  const Case cases[] = {{0, 0, 4, 4, 0, {a, a, a, b}},
                        {0.5f, 1, 4, 4, 1, {a, b, b, b}},
                        {1, 0.5f, 4, 4, 2, {a, a, b, b}},
                        {0.5f, 0, 5, 2, 1, {a, a}},
                        {1, 1, 1, 1, 5, {b}},
                        {0.5f, 0.5f, 6, 6, 0, {a, a, a, b, b, b}},
                        {0, 0, 7, 7, 0, {a, a, a, b, b, b, b}}};  // beyond: last column, row repeat
  for (const Case &k : cases) {
    Owned dst = Make(k.w, k.h, 1);
    ASSERT_EQ(EnlargeImage(src.get(), k.fx, k.fy, 3, dst.get(), nullptr), 0);
    std::vector<int> expected{k.w, k.h};
    for (const auto &row : k.rows)
      for (int x = 0; x < k.w; ++x)
        expected.push_back(row[std::min(k.ox + x, 5)]);
    EXPECT_EQ(Samples(*dst), expected) << k.fx << "," << k.fy << " " << k.w << "x" << k.h;
  }
  Owned dst = Make(4, 4, 1);
  for (const float f : {-0.01f, 1.01f, NAN}) {
    EXPECT_EQ(EnlargeImage(src.get(), f, 0, 3, dst.get(), nullptr), -1) << f;
    EXPECT_EQ(EnlargeImage(src.get(), 0, f, 3, dst.get(), nullptr), -1) << f;
  }
  EXPECT_EQ(EnlargeImage(src.get(), 0, 0, 0, dst.get(), nullptr), -1);
}

}  // namespace

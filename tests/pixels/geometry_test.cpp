// Rotation, crop and enlargement: turns on shapes crossing the copy's tile and
// band edges, a per-pixel model as referee, strided views, hand-worked cases,
// refusals that leave the destination untouched, and the progress sequence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "pixels/pixels.h"

namespace {

// Sets every sample to f(c, x, y) if given; returns the size, then the samples plane by plane.
using Fn = std::function<int(int, int, int)>;
std::vector<int> Samples(const PlanarImage &im, Fn f = nullptr) {
  std::vector<int> v{im.width, im.height};
  for (int i = 0; i < im.channels * im.width * im.height; ++i) {
    const int c = i / (im.width * im.height), x = i % im.width, y = i / im.width % im.height;
    uint8_t &b = im.planes[c][y * im.rowStride + x * im.pixelStep];
    v.push_back(f ? b = uint8_t(f(c, x, y)) : b);
  }
  return v;
}
const auto Pat = [](int c, int x, int y) { return x * 7 + y * 31 + c * 101; };
using Owned = std::unique_ptr<PlanarImage, decltype(&PlanarFree)>;
Owned Make(int32_t w, int32_t h, int32_t ch = 3, Fn f = nullptr) {  // blank samples are 0xAB
  Owned im(PlanarCreate(w, h, ch), &PlanarFree);
  Samples(*im, f ? f : Fn([](int, int, int) { return 0xAB; }));
  return im;
}
Owned Turned(const PlanarImage &s, int mode) {
  Owned d = mode == 1 ? Make(s.width, s.height, s.channels) : Make(s.height, s.width, s.channels);
  EXPECT_EQ(RotateImage(&s, mode, d.get(), nullptr), 0);
  return d;
}
// Interleaved samples (pixel step 3) in padded, optionally bottom-up rows.
PlanarImage View(std::vector<uint8_t> &bytes, int32_t w, int32_t h, bool up) {
  bytes.assign(size_t(h) * (w * 3 + 5), 0xAB);
  uint8_t *top = bytes.data() + (up ? (h - 1) * (w * 3 + 5) : 0);
  return {1, 3, w, h, 0, 3, (up ? -1 : 1) * (w * 3 + 5), {top, top + 1, top + 2}};
}

TEST(PixGeometry, TurnsAgreeWithModelAndEachOther) {
  const std::pair<int, int> shapes[] = {{1, 1},   {1, 9},    {9, 1},     {7, 5},    {65, 33},
                                        {33, 65}, {130, 17}, {200, 150}, {530, 21}, {21, 530}};
  for (const auto &[w, h] : shapes) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Owned src = Make(w, h, 3, Pat);
    EXPECT_EQ(Samples(*Turned(*Turned(*Turned(*Turned(*src, 0), 0), 0), 0)), Samples(*src));
    EXPECT_EQ(Samples(*Turned(*Turned(*src, 2), 0)), Samples(*src));
    EXPECT_EQ(Samples(*Turned(*src, 1)), Samples(*Turned(*Turned(*src, 0), 0)));
    for (int mode = 0; mode < 3; ++mode) {
      const int32_t mw = mode == 1 ? w : h, mh = mode == 1 ? h : w;
      const auto m = Samples(*Make(mw, mh, 3, [&](int c, int j, int r) {  // each pixel's source
        return mode == 0 ? Pat(c, r, h - 1 - j)
                         : (mode == 1 ? Pat(c, w - 1 - j, h - 1 - r) : Pat(c, w - 1 - r, j));
      }));
      EXPECT_EQ(Samples(*Turned(*src, mode)), m) << mode;
      std::vector<uint8_t> ib, ob;
      PlanarImage in = View(ib, w, h, true), out = View(ob, mw, mh, false);
      Samples(in, Pat);
      ASSERT_EQ(RotateImage(&in, mode, &out, nullptr), 0);
      EXPECT_EQ(Samples(out), m) << "strided " << mode;
    }
  }
  // 0 7 14 / 31 38 45 turned right.
  EXPECT_EQ(Samples(*Turned(*Make(3, 2, 1, Pat), 0)), (std::vector{2, 3, 31, 0, 38, 7, 45, 14}));
}

TEST(PixGeometry, RefusalsWriteNothing) {
  void (*const breakers[])(PlanarImage &, PlanarImage &, int &) = {
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
  const Owned src = Make(7, 5, 3, Pat), dst = Make(5, 7);
  const std::vector<int> before = Samples(*dst);
  for (size_t i = 0; i < std::size(breakers); ++i) {
    PlanarImage s = *src, d = *dst;
    int mode = 0;
    breakers[i](s, d, mode);
    EXPECT_EQ(RotateImage(&s, mode, &d, nullptr), -1) << i;
    EXPECT_EQ(Samples(*dst), before) << i;
  }
  EXPECT_EQ(RotateImage(nullptr, 0, dst.get(), nullptr), -1);
  EXPECT_EQ(RotateImage(src.get(), 0, nullptr, nullptr), -1);
}

std::vector<float> calls;
size_t stopAt;  // the call that returns 7; 0 never stops
const PixProgress Log = [](float f) { return calls.push_back(f), calls.size() == stopAt ? 7 : 0; };

TEST(PixGeometry, ProgressOncePerRowAndStops) {
  const Owned src = Make(600, 70, 3, Pat);
  for (int i = 0; i < 5; ++i) {  // turns by mode, crop, enlarge
    Owned dst = i == 0 || i == 2 ? Make(70, 600) : (i == 1 ? Make(600, 70) : Make(60, 40));
    for (const size_t stop : {0, 3}) {  // all rows, then stopped by the third call
      calls.clear(), stopAt = stop;
      EXPECT_EQ(i < 3    ? RotateImage(src.get(), i, dst.get(), Log)
                : i == 3 ? CropImage(src.get(), 0, 0, dst.get(), Log)
                         : EnlargeImage(src.get(), 0.5f, 0.5f, 2, dst.get(), Log),
                stop ? 7 : 0)
          << i;
      ASSERT_EQ(calls.size(), stop ? 3u : size_t(dst->height)) << i;
      for (size_t r = 0; r < calls.size(); ++r)
        EXPECT_EQ(calls[r], float(double(r) / dst->height)) << i << " row " << r;
    }
  }
}

TEST(PixGeometry, CropWholeRectangleOnly) {
  const Owned src = Make(9, 6, 3, Pat);
  // left, top, width, height, code
  const int32_t cases[][5] = {
      {0, 0, 9, 6, 0},   {0, 0, 10, 6, -1}, {0, 0, 9, 7, -1}, {1, 0, 9, 6, -1}, {0, 1, 9, 6, -1},
      {-1, 0, 2, 2, -1}, {0, -1, 2, 2, -1}, {7, 3, 2, 3, 0},  {8, 5, 1, 1, 0},  {8, 5, 2, 1, -1}};
  for (const auto &k : cases) {
    SCOPED_TRACE(::testing::Message() << k[0] << "," << k[1] << " " << k[2] << "x" << k[3]);
    const Owned dst = Make(k[2], k[3]);
    const auto m = Samples(*Make(k[2], k[3], 3, [&](int c, int x, int y) {
      return k[4] ? 0xAB : Pat(c, k[0] + x, k[1] + y);  // a refusal leaves 0xAB
    }));
    std::vector<uint8_t> bytes;
    PlanarImage view = View(bytes, k[2], k[3], true);  // each image walked with its own step
    for (PlanarImage *d : {dst.get(), &view}) {
      ASSERT_EQ(CropImage(src.get(), k[0], k[1], d, nullptr), k[4]);
      EXPECT_EQ(Samples(*d), m);
    }
  }
}

TEST(PixGeometry, EnlargeWindows) {
  // Sample (0, 0) (1, 0) / (0, 1) (1, 1) k times over is 2k x 2k; with k = 3 a 4 x 4 window
  // has excess 2, so 0, 0.5 and 1 give offsets 0, 1 and 2. Beyond the picture the last
  // column and row repeat. With k = 1 the window is a plain copy.
  const Owned src = Make(2, 2, 3, Pat);
  // fx, fy, factor, width, height, then the window's offsets (5 x 0.5 rounds up to 3)
  const float cases[][7] = {
      {0, 0, 3, 4, 4, 0, 0},    {0.5f, 1, 3, 4, 4, 1, 2},    {1, 0.5f, 3, 4, 4, 2, 1},
      {0.5f, 0, 3, 5, 2, 1, 0}, {1, 1, 3, 1, 1, 5, 5},       {0.5f, 0.5f, 3, 6, 6, 0, 0},
      {0, 0, 3, 7, 7, 0, 0},    {0.3f, 0.7f, 1, 2, 2, 0, 0}, {1, 0.5f, 1, 1, 2, 1, 0},
      {1, 1, 1, 1, 1, 1, 1},    {0.5f, 0.5f, 3, 1, 1, 3, 3}};
  for (const auto &k : cases) {
    SCOPED_TRACE(::testing::Message() << k[0] << "," << k[1] << " k" << k[2] << " " << k[3]);
    const int n = int(k[2]), last = 2 * n - 1;
    const Owned dst = Make(k[3], k[4]);
    const Owned model = Make(k[3], k[4], 3, [&](int c, int x, int y) {
      return Pat(c, std::min(int(k[5]) + x, last) / n, std::min(int(k[6]) + y, last) / n);
    });
    ASSERT_EQ(EnlargeImage(src.get(), k[0], k[1], n, dst.get(), nullptr), 0);
    EXPECT_EQ(Samples(*dst), Samples(*model));
  }
  const float bad[][3] = {{-0.01f, 0, 3}, {1.01f, 0, 3}, {NAN, 0, 3}, {0, -0.01f, 3},
                          {0, 1.01f, 3},  {0, NAN, 3},   {0, 0, 0}};  // fx, fy, factor
  for (const auto &b : bad)
    EXPECT_EQ(EnlargeImage(src.get(), b[0], b[1], b[2], Make(4, 4).get(), nullptr), -1) << b[0];
}

}  // namespace

// Rotation, enlargement and reduction shared among worker threads give the
// one-thread result byte for byte, on shapes that leave uneven parts: a
// single row or column, odd sizes, and sizes off the copy's tile and band.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "pixels/pixels.h"
#include "platform/workers.h"

namespace {

// Several threads even on a one-core machine; a KORVEL_THREADS given from
// outside is kept.
const bool kThreadsSet = setenv("KORVEL_THREADS", "4", 0) == 0;

using Owned = std::unique_ptr<PlanarImage, decltype(&PlanarFree)>;
using Routine = std::function<int(const PlanarImage *, PlanarImage *)>;

// The routine's destination bytes, run with `threads` threads on a fresh
// destination of w x h filled with 0xAB.
std::vector<uint8_t> Bytes(const PlanarImage &src, int32_t w, int32_t h, const Routine &routine,
                           int threads) {
  Owned dst(PlanarCreate(w, h, src.channels), &PlanarFree);
  const size_t bytes = size_t(w) * size_t(h) * size_t(src.channels);
  std::fill_n(dst->planes[0], bytes, 0xAB);
  const int old = SetWorkerLimit(threads);
  EXPECT_EQ(routine(&src, dst.get()), 0);
  SetWorkerLimit(old);
  std::vector<uint8_t> out(dst->planes[0], dst->planes[0] + bytes);
  out.push_back(uint8_t(dst->width)), out.push_back(uint8_t(dst->height));  // the reducer fits them
  return out;
}

TEST(PixThreads, EveryRoutineGivesTheOneThreadBytes) {
  ASSERT_TRUE(kThreadsSet);
  const struct {
    int32_t w, h;
  } kShapes[] = {{1, 700}, {700, 1}, {33, 47}, {531, 17}, {1037, 523}, {16, 1040}};
  const PixRect whole{0, 0, 0, 0};
  const PixReduceOptions options{};
  for (const auto &shape : kShapes) {
    Owned src(PlanarCreate(shape.w, shape.h, 3), &PlanarFree);
    for (size_t i = 0; i < size_t(shape.w) * shape.h * 3; ++i)
      src->planes[0][i] = uint8_t(i * 2654435761u >> 23);
    const struct {
      const char *name;
      int32_t w, h;
      Routine routine;
    } kCases[] = {
        {"right", shape.h, shape.w, [](auto s, auto d) { return RotateImage(s, 0, d, nullptr); }},
        {"half", shape.w, shape.h, [](auto s, auto d) { return RotateImage(s, 1, d, nullptr); }},
        {"left", shape.h, shape.w, [](auto s, auto d) { return RotateImage(s, 2, d, nullptr); }},
        {"x3", shape.w * 3, shape.h * 3,
         [](auto s, auto d) { return EnlargeImage(s, 0.5f, 0.5f, 3, d, nullptr); }},
        {"x8 window", 301, 299,
         [](auto s, auto d) { return EnlargeImage(s, 0.3f, 0.7f, 8, d, nullptr); }},
        {"25%", shape.w / 4, shape.h / 4,
         [&](auto s, auto d) { return ReduceImage(nullptr, s, 1, d, &whole, &options, nullptr); }},
        {"75%", shape.w * 3 / 4, shape.h * 3 / 4,
         [&](auto s, auto d) { return ReduceImage(nullptr, s, 1, d, &whole, &options, nullptr); }},
    };
    for (const auto &c : kCases) {
      if (c.w < 2 || c.h < 2) continue;  // too small for the reducer
      SCOPED_TRACE(testing::Message() << c.name << " " << shape.w << "x" << shape.h);
      EXPECT_EQ(Bytes(*src, c.w, c.h, c.routine, 4), Bytes(*src, c.w, c.h, c.routine, 1));
    }
  }
}

// Quarter turns large enough to be written past the cache, with a
// destination wider than the transposing buffer (three chunks of columns, the
// last not a whole tile) and a height off the 32-row group: every byte is
// the model's, and four threads give the one-thread bytes.
TEST(PixThreads, LargeQuarterTurnsFollowTheModel) {
  ASSERT_TRUE(kThreadsSet);
  const int32_t w = 2077, h = 2100;  // turned: 2100 wide, 2077 high
  Owned src(PlanarCreate(w, h, 2), &PlanarFree);
  const auto value = [](int c, int32_t x, int32_t y) { return uint8_t(x * 7 + y * 13 + c * 101); };
  for (int c = 0; c < 2; ++c)
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x)
        src->planes[c][size_t(y) * w + x] = value(c, x, y);
  for (const int mode : {0, 2}) {
    const Routine turn = [mode](auto s, auto d) { return RotateImage(s, mode, d, nullptr); };
    const std::vector<uint8_t> one = Bytes(*src, h, w, turn, 1);
    EXPECT_EQ(Bytes(*src, h, w, turn, 4), one) << "mode " << mode;
    size_t wrong = 0;
    for (int c = 0; c < 2; ++c)
      for (int32_t r = 0; r < w; ++r)
        for (int32_t j = 0; j < h; ++j) {
          const uint8_t want = mode == 0 ? value(c, r, h - 1 - j) : value(c, w - 1 - r, j);
          wrong += one[(size_t(c) * w + r) * h + j] != want;
        }
    EXPECT_EQ(wrong, 0u) << "mode " << mode;
  }
}

}  // namespace

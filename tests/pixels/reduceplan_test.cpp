// The planned reduction run piecemeal: any split of the destination rows, in
// any order, from a ring that holds only the rows a band allows, gives
// ReduceImage's bytes; every row read lies in the range the plan announces.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "pixels/pixels.h"
#include "pixels/reduceplan.h"

namespace {

struct Planes {
  std::vector<uint8_t> bytes;
  PlanarImage image;
  Planes(int32_t w, int32_t h, int32_t channels)
      : bytes(size_t(w) * h * channels), image{1, channels, w, h, 0, 1, w, {}} {
    for (int32_t c = 0; c < channels; ++c)
      image.planes[c] = bytes.data() + size_t(w) * h * c;
  }
};

uint8_t Noise(int32_t c, int32_t x, int32_t y) {
  return static_cast<uint8_t>(
      (static_cast<uint32_t>(c * 7919 + x * 104729 + y * 1299709) * 2654435761u) >> 13);
}

Planes NoisePicture(int32_t w, int32_t h, int32_t channels) {
  Planes p(w, h, channels);
  for (int32_t c = 0; c < channels; ++c)
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x)
        p.image.planes[c][size_t(y) * w + x] = Noise(c, x, y);
  return p;
}

// Source rows straight from the picture, each read checked against the
// destination row being made.
struct Whole {
  const Planes *src;
  const ReducePlan *plan;
  int32_t row = 0;  // the destination row under way, when one at a time
  bool checkRange = false;
  int outside = 0;
};
const uint8_t *WholeRow(void *context, int32_t c, int32_t y) {
  auto *whole = static_cast<Whole *>(context);
  if (whole->checkRange &&
      (y < whole->plan->FirstRow(whole->row) || y > whole->plan->LastRow(whole->row)))
    ++whole->outside;
  return whole->src->image.planes[c] + size_t(y) * whole->src->image.rowStride;
}

// A ring of `depth` rows a plane, filled in bands; asking for a row it does
// not hold counts as a miss (and gives a row of the wrong bytes).
struct Ring {
  int32_t width, depth, channels;
  std::vector<uint8_t> bytes;
  int32_t low = 0, high = 0;  // rows [low, high) are held
  int misses = 0;
  uint8_t *Slot(int32_t c, int32_t y) {
    return bytes.data() + (size_t(c) * depth + y % depth) * width;
  }
  void Load(const Planes &src, int32_t through) {
    for (; high < through; ++high)
      for (int32_t c = 0; c < channels; ++c)
        std::copy_n(src.image.planes[c] + size_t(high) * width, width, Slot(c, high));
    low = std::max(0, high - depth);
  }
};
const uint8_t *RingRowAt(void *context, int32_t c, int32_t y) {
  auto *ring = static_cast<Ring *>(context);
  if (y < ring->low || y >= ring->high) ++ring->misses;
  return ring->Slot(c, y);
}

// The destination rows [r0, r1) of `dst` (all its rows) as their own planes.
std::vector<uint8_t> RowsOf(const Planes &dst, int32_t r0, int32_t r1) {
  std::vector<uint8_t> out;
  const size_t w = size_t(dst.image.width), stride = size_t(dst.image.rowStride);
  for (int32_t c = 0; c < dst.image.channels; ++c)
    for (int32_t r = r0; r < r1; ++r)
      out.insert(out.end(), dst.image.planes[c] + r * stride, dst.image.planes[c] + r * stride + w);
  return out;
}

TEST(ReducePlan, PiecesInAnyOrderAndFromABandedRingGiveReduceImagesBytes) {
  // source, requested: ratios 1:1.3 to 1:15 (short and wide kernels), odd
  // sizes, a picture two pixels wide, one channel and four.
  const int32_t cases[][5] = {{45, 31, 34, 34, 3},  {97, 61, 48, 48, 3},  {97, 61, 24, 24, 1},
                              {301, 37, 20, 20, 3}, {37, 301, 20, 20, 4}, {2, 41, 2, 40, 3},
                              {41, 2, 40, 2, 3},    {63, 255, 31, 31, 3}, {211, 9, 105, 9, 2}};
  std::mt19937 random(7);
  for (const auto &[sw, sh, dw, dh, channels] : cases) {
    SCOPED_TRACE(testing::Message() << sw << "x" << sh << " to " << dw << "x" << dh);
    const Planes src = NoisePicture(sw, sh, channels);
    Planes want(dw, dh, channels);
    const PixRect rect{};
    const PixReduceOptions options{};
    ASSERT_EQ(ReduceImage(nullptr, &src.image, 1, &want.image, &rect, &options, nullptr), 0);
    std::unique_ptr<ReducePlan> plan;
    ASSERT_EQ(ReducePlan::Make(sw, sh, channels, dw, dh, &plan), 0);
    const int32_t fw = plan->Width(), fh = plan->Height();
    ASSERT_EQ(std::pair(fw, fh), std::pair(want.image.width, want.image.height));
    const std::vector<uint8_t> expected = RowsOf(want, 0, fh);

    // The announced ranges: within the picture, no deeper than Depth(), moving
    // down with r, from the top.
    EXPECT_EQ(plan->FirstRow(0), 0);
    for (int32_t r = 0; r < fh; ++r) {
      ASSERT_TRUE(plan->FirstRow(r) >= 0 && plan->LastRow(r) < sh &&
                  plan->LastRow(r) - plan->FirstRow(r) < plan->Depth())
          << r;
      ASSERT_TRUE(r == 0 || (plan->FirstRow(r) >= plan->FirstRow(r - 1) &&
                             plan->LastRow(r) >= plan->LastRow(r - 1)));
    }

    // One row at a time in shuffled order, each read checked against its range.
    Planes got(fw, fh, channels);
    Whole whole{&src, plan.get(), 0, true, 0};
    std::vector<int32_t> order(static_cast<size_t>(fh));
    for (int32_t r = 0; r < fh; ++r)
      order[r] = r;
    std::shuffle(order.begin(), order.end(), random);
    for (const int32_t r : order) {
      whole.row = r;
      ASSERT_EQ(plan->Rows(WholeRow, &whole, &got.image, r, r + 1), 0);
    }
    EXPECT_EQ(whole.outside, 0);
    EXPECT_EQ(RowsOf(got, 0, fh), expected);

    // Random ranges in shuffled order, each into planes of its own rows only.
    std::vector<std::pair<int32_t, int32_t>> ranges;
    for (int32_t r = 0; r < fh;) {
      const int32_t next = std::min(fh, r + 1 + static_cast<int32_t>(random() % 5));
      ranges.emplace_back(r, next);
      r = next;
    }
    std::shuffle(ranges.begin(), ranges.end(), random);
    whole.checkRange = false;
    for (const auto &[r0, r1] : ranges) {
      Planes band(fw, r1 - r0, channels);
      ASSERT_EQ(plan->Rows(WholeRow, &whole, &band.image, r0, r1, r0), 0);
      EXPECT_EQ(RowsOf(band, 0, r1 - r0), RowsOf(want, r0, r1)) << r0;
    }

    // Source bands of random heights into a ring of Depth() + the band
    // height rows; after each band, the destination rows it completes.
    for (const int32_t bandRows : {1, 3, 8}) {
      Ring ring{sw, plan->Depth() + bandRows, channels, {}};
      ring.bytes.resize(size_t(channels) * ring.depth * sw);
      Planes fromRing(fw, fh, channels);
      int32_t done = 0;
      for (int32_t y = 0; y < sh;) {
        y = std::min(sh, y + 1 + static_cast<int32_t>(random() % bandRows));
        ring.Load(src, y);
        int32_t last = done;
        while (last < fh && plan->LastRow(last) < y)
          ++last;
        ASSERT_EQ(plan->Rows(RingRowAt, &ring, &fromRing.image, done, last), 0);
        done = last;
      }
      EXPECT_EQ(done, fh);
      EXPECT_EQ(ring.misses, 0) << bandRows;
      EXPECT_EQ(RowsOf(fromRing, 0, fh), expected) << bandRows;
    }
  }
}

TEST(ReducePlan, RefusesWhatReduceImageRefuses) {
  // source, requested, channels: a picture one pixel wide or high, a
  // destination under 2, fits that leave under 2, five channels.
  const int32_t refused[][5] = {{1, 31, 2, 20, 3},  {31, 1, 20, 2, 3},   {31, 31, 1, 20, 3},
                                {31, 31, 20, 1, 3}, {300, 4, 20, 20, 3}, {2, 41, 2, 13, 3},
                                {31, 31, 20, 20, 5}};
  for (const auto &[sw, sh, dw, dh, channels] : refused) {
    SCOPED_TRACE(testing::Message() << sw << "x" << sh << " to " << dw << "x" << dh);
    std::unique_ptr<ReducePlan> plan;
    EXPECT_EQ(ReducePlan::Make(sw, sh, channels, dw, dh, &plan), -1);
    EXPECT_EQ(plan, nullptr);
    if (channels > 4) continue;
    const Planes src = NoisePicture(sw, sh, channels);
    Planes dst(std::max(dw, 1), std::max(dh, 1), channels);
    const PixRect rect{};
    const PixReduceOptions options{};
    EXPECT_EQ(ReduceImage(nullptr, &src.image, 1, &dst.image, &rect, &options, nullptr), -1);
  }
  EXPECT_EQ(ReducePlan::Make(31, 31, 3, 20, 20, nullptr), -1);
}

// The horizontal pass's AVX2 forms (eight columns a step for 4-tap kernels,
// four for 8 and 16 padded taps) give the bytes of the SSE2 form, at pixel
// step 1 and into interleaved planes.
TEST(ReducePlan, VectorFiltersGiveTheSameBytesAtAnyPixelStep) {
  for (const int32_t sw : {37, 301}) {
    for (const int32_t dw : {sw * 3 / 4, sw / 2 + 1, sw / 2 - 1, sw / 4, sw / 7}) {
      for (const int32_t step : {1, 3}) {
        SCOPED_TRACE(testing::Message() << sw << " to " << dw << " step " << step);
        const Planes src = NoisePicture(sw, 23, 3);
        const auto run = [&](bool avx2) {
          std::vector<uint8_t> bytes(size_t(dw) * 23 * 3, 0);
          PlanarImage dst{1, 3, dw, 23, 0, step, dw * step, {}};
          for (int32_t c = 0; c < 3; ++c)
            dst.planes[c] = bytes.data() + (step == 1 ? size_t(dw) * 23 * c : size_t(c));
          const PixRect rect{};
          const PixReduceOptions options{};
          const bool old = SetReduceAvx2(avx2);
          EXPECT_EQ(ReduceImage(nullptr, &src.image, 1, &dst, &rect, &options, nullptr), 0);
          SetReduceAvx2(old);
          return bytes;
        };
        EXPECT_EQ(run(true), run(false));
      }
    }
  }
}

}  // namespace

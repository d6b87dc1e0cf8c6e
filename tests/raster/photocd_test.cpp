// Photo CD reader: the signature and reachability checks, the levels, and the
// chroma restored from half resolution by the exact integer formulas, whatever
// order the rows are read in.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <cstring>
#include <string>

#include "raster/photocd.h"
#include "raster/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

constexpr uint32_t kWidth = 192, kHeight = 128, kHalf = 96;
constexpr size_t kOffset = 8192, kRecord = 3 * kWidth;

// Keeps the level setting as it was found.
class Level {
 public:
  explicit Level(uint32_t level) {
    EXPECT_EQ(PcdGetOption(PcdOptLevel, &saved_), RasOk);
    EXPECT_EQ(PcdSetOption(PcdOptLevel, level), RasOk);
  }
  ~Level() { (void)PcdSetOption(PcdOptLevel, saved_); }

 private:
  uint32_t saved_ = 3;
};

// A level-1 image pack: luma of row y is (y * 3 + x) mod 256; record k's
// first chroma row holds 10 + 20 k + 10 (i mod 2) at sample i, the second
// chroma row 200 - that.
Bytes MakePcd() {
  Bytes b(kOffset + kRecord * kHeight / 2, 0);
  std::memcpy(&b[2048], "PCD_IPI", 7);
  for (uint32_t k = 0; k < kHeight / 2; ++k) {
    uint8_t *r = &b[kOffset + k * kRecord];
    for (uint32_t x = 0; x < kWidth; ++x) {
      r[x] = static_cast<uint8_t>((2 * k) * 3 + x);
      r[kWidth + x] = static_cast<uint8_t>((2 * k + 1) * 3 + x);
    }
    for (uint32_t i = 0; i < kHalf; ++i) {
      const auto c = static_cast<uint8_t>(10 + 20 * k % 160 + 10 * (i % 2));
      r[2 * kWidth + i] = c;
      r[2 * kWidth + kHalf + i] = static_cast<uint8_t>(200 - c);
    }
  }
  return b;
}

uint8_t Chroma(uint32_t record, uint32_t i) {
  return static_cast<uint8_t>(10 + 20 * record % 160 + 10 * (i % 2));
}

TEST(PhotoCd, OpensOnlyWhatItCanRead) {
  Level level(1);
  const std::string path = TempPath("a.pcd");
  // Writing fails before anything is created.
  RasDesc desc{};
  ASSERT_EQ(RasSetDesc(&desc, RasFormatPhotoCd, kWidth, kHeight, 3, RasModelYcc, 0.0f), RasOk);
  EXPECT_EQ(RasOpen(path.c_str(), 'w', &desc), RasErrArg);
  EXPECT_EQ(desc.state, nullptr);
  struct stat st;
  EXPECT_NE(stat(path.c_str(), &st), 0);

  Bytes good = MakePcd();
  WriteFile(path, good);
  desc = RasDesc{};
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatPhotoCd);
  EXPECT_EQ(desc.width, kWidth);
  EXPECT_EQ(desc.height, kHeight);
  EXPECT_EQ(desc.channels, 3u);
  EXPECT_EQ(desc.model, RasModelYcc);
  EXPECT_EQ(desc.resolution, -1.0f);

  ErrorLog log;
  for (size_t i = 0; i < 7; ++i) {
    Bytes bad = good;
    bad[2048 + i] ^= 0x20;
    WriteFile(path, bad);
    desc = RasDesc{};
    desc.format = RasFormatPhotoCd;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrFormat);
    EXPECT_EQ(log.Last(), (Logged{"PcdOpen", RasErrFormat, 4}));
    EXPECT_EQ(desc.state, nullptr);
  }
  // One byte short of the image: unreachable, on disk and in memory.
  Bytes cut(good.begin(), good.end() - 1);
  WriteFile(path, cut);
  desc = RasDesc{};
  desc.format = RasFormatPhotoCd;
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"PcdOpen", RasErrRead, 6}));
  // A block two bytes short cannot even be sought to the last byte.
  RasMemName mem;
  RasMakeMemName(&mem, cut.data(), cut.size() - 1);
  EXPECT_EQ(RasOpen(RasMemNameOf(mem), 'r', &desc), RasErrPosition);
  EXPECT_EQ(log.Last(), (Logged{"PcdOpen", RasErrPosition, 6}));
  EXPECT_EQ(desc.state, nullptr);

  // The level setter takes 1 to 3 only; the getter knows only option 0.
  uint32_t value = 0;
  EXPECT_EQ(PcdSetOption(PcdOptLevel, 4), RasOk);
  EXPECT_EQ(PcdSetOption(PcdOptLevel, 0), RasOk);
  EXPECT_EQ(PcdGetOption(PcdOptLevel, &value), RasOk);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(PcdGetOption(1, &value), 65535);
}

TEST(PhotoCd, RestoresChromaByTheIntegerFormulas) {
  Level level(1);
  const std::string path = TempPath("c.pcd");
  WriteFile(path, MakePcd());
  Picture p;
  RasDesc desc{};
  ASSERT_EQ(ReadPicture(path, &p, &desc), RasOk);
  for (uint32_t y = 0; y < kHeight; ++y)
    for (uint32_t x = 0; x < kWidth; x += 37)
      ASSERT_EQ(p.At(x, y, 0), static_cast<uint8_t>(y * 3 + x)) << x << "," << y;

  // Row 0 and the last row: along the row only, from their own record.
  // Neighbours 10, 20 give (30 + 20 + 2) / 4 = 13 and (10 + 60 + 2) / 4 = 18.
  EXPECT_EQ(p.At(0, 0, 1), 10);
  EXPECT_EQ(p.At(1, 0, 1), 13);
  EXPECT_EQ(p.At(2, 0, 1), 18);
  EXPECT_EQ(p.At(kWidth - 1, 0, 1), 20);
  const uint32_t last = kHeight - 1;
  const int a = Chroma(63, 0), b = Chroma(63, 1);
  EXPECT_EQ(p.At(0, last, 1), a);
  EXPECT_EQ(p.At(1, last, 1), (3 * a + b + 2) / 4);
  EXPECT_EQ(p.At(kWidth - 1, last, 2), 200 - b);

  // Row 1 weights record 0 by 3/4 and record 1 by 1/4: near 10, 20 and far
  // 30, 40 give 18 and 23, the first sample (30 + 30 + 2) / 4 = 15.
  EXPECT_EQ(p.At(0, 1, 1), 15);
  EXPECT_EQ(p.At(1, 1, 1), 18);
  EXPECT_EQ(p.At(2, 1, 1), 23);
  // Row 2 is near record 1 and far record 0: a = 30, b = 40, c = 10, d = 20.
  EXPECT_EQ(p.At(0, 2, 1), (3 * 30 + 10 + 2) / 4);
  EXPECT_EQ(p.At(1, 2, 1), (16 * 30 + 4 * 10 - 80 + 0 + 8) / 16);
  EXPECT_EQ(p.At(2, 2, 1), (16 * 30 + 12 * 10 - 80 + 0 + 8) / 16);
  // Second chroma: near 190, 180 and far 170, 160 (row 1).
  EXPECT_EQ(p.At(1, 1, 2), (16 * 190 - 40 - 80 + 0 + 8) / 16);

  // Any order of rows gives the same picture as reading them in order.
  std::vector<uint32_t> order;
  for (uint32_t y = kHeight; y-- > 0;)
    order.push_back(y);
  for (uint32_t y : {5u, 64u, 0u, 127u, 6u, 7u, 3u})
    order.push_back(y);
  Picture again;
  ASSERT_EQ(ReadPicture(path, &again, &desc, order), RasOk);
  EXPECT_EQ(again, p);
}

// The image pack of the shared test data at each level: the level's size,
// every row readable.
TEST(PhotoCd, ReadsEveryLevelOfARealFile) {
  const std::string path = std::string(KORVEL_TESTDATA_DIR) + "/photocd/pillow__hopper.pcd";
  const uint32_t sizes[][2] = {{192, 128}, {384, 256}, {768, 512}};
  for (uint32_t l = 1; l <= 3; ++l) {
    Level level(l);
    Picture p;
    RasDesc desc{};
    ASSERT_EQ(ReadPicture(path, &p, &desc), RasOk) << l;
    EXPECT_EQ(desc.width, sizes[l - 1][0]);
    EXPECT_EQ(desc.height, sizes[l - 1][1]);
    int lumaRange = 0;
    for (uint8_t v : p.planes[0])
      lumaRange = std::max(lumaRange, int{v});
    EXPECT_GT(lumaRange, 200);
  }
}

}  // namespace

// Photo CD reader: the signature and reachability checks, the levels, and the
// chroma restored from half resolution by the exact integer formulas, whatever
// order the rows are read in.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>

#include "raster/core/rasfile.h"
#include "raster/photocd.h"
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

uint8_t Chroma(uint32_t record, uint32_t i) {
  return static_cast<uint8_t>(10 + 20 * record % 160 + 10 * (i % 2));
}

// A level-1 image pack: luma of row y is (y * 3 + x) mod 256; record k's
// first chroma row holds Chroma(k, i) at sample i, the second 200 - that.
Bytes MakePcd() {
  Bytes b(kOffset + kRecord * kHeight / 2, 0);
  std::memcpy(&b[2048], "PCD_IPI", 7);
  for (uint32_t k = 0; k < kHeight / 2; ++k) {
    uint8_t *r = &b[kOffset + k * kRecord];
    for (uint32_t x = 0; x < 2 * kWidth; ++x)
      r[x] = static_cast<uint8_t>((2 * k + x / kWidth) * 3 + x % kWidth);
    for (uint32_t i = 0; i < kHalf; ++i) {
      r[2 * kWidth + i] = Chroma(k, i);
      r[2 * kWidth + kHalf + i] = static_cast<uint8_t>(200 - Chroma(k, i));
    }
  }
  return b;
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

  const Bytes good = MakePcd();
  WriteFile(path, good);
  desc = RasDesc{};
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk);
  EXPECT_EQ(std::tuple(desc.format, desc.width, desc.height, desc.channels, desc.model),
            std::tuple(RasFormatPhotoCd, kWidth, kHeight, 3u, RasModelYcc));
  EXPECT_EQ(desc.resolution, -1.0f);

  // Every byte of the signature; then one byte short of the image, on disk;
  // then a block two bytes short, which cannot even be sought to the last.
  ErrorLog log;
  Bytes cut(good.begin(), good.end() - 1);
  RasMemName mem;
  RasMakeMemName(&mem, cut.data(), cut.size() - 1);
  for (size_t i = 0; i < 9; ++i) {
    SCOPED_TRACE(i);
    Bytes bad = good;
    if (i < 7) bad[2048 + i] ^= 0x20;
    WriteFile(path, i < 7 ? bad : cut);
    desc = RasDesc{};
    desc.format = RasFormatPhotoCd;
    const int code = i < 7 ? RasErrFormat : i == 7 ? RasErrRead : RasErrPosition;
    EXPECT_EQ(RasOpen(i < 8 ? path.c_str() : RasMemNameOf(mem), 'r', &desc), code);
    EXPECT_EQ(log.Last(), (Logged{"PcdOpen", code, i < 7 ? 4 : 6}));
    EXPECT_EQ(desc.state, nullptr);
  }

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

  // Row 0 and the last row (record 63: 150, 160) along the row only, from
  // their own record: 10, (3 * 10 + 20 + 2) / 4, (10 + 3 * 20 + 2) / 4 ...
  // Row 1 weights record 0 (10, 20) by 3/4 and record 1 (30, 40) by 1/4, the
  // first sample (3 * 10 + 30 + 2) / 4; row 2 is near record 1 and far record
  // 0, the second sample (16 * 30 + 4 * 10 - 80 + 8) / 16 and the third
  // (16 * 30 + 12 * 10 - 80 + 8) / 16. Second chroma of row 1: near 190, 180
  // and far 170, 160, (16 * 190 - 40 - 80 + 8) / 16.
  const uint32_t right = kWidth - 1, last = kHeight - 1;
  const std::tuple<uint32_t, uint32_t, uint32_t, int> samples[] = {
      {0, 0, 1, 10},     {1, 0, 1, 13},        {2, 0, 1, 18}, {right, 0, 1, 20}, {0, last, 1, 150},
      {1, last, 1, 153}, {right, last, 2, 40}, {0, 1, 1, 15}, {1, 1, 1, 18},     {2, 1, 1, 23},
      {0, 2, 1, 25},     {1, 2, 1, 28},        {2, 2, 1, 33}, {1, 1, 2, 183}};
  for (const auto &[x, y, k, want] : samples)
    EXPECT_EQ(p.At(x, y, k), want) << x << "," << y << "," << k;

  // Any order of rows gives the same picture as reading them in order.
  std::vector<uint32_t> order;
  for (uint32_t y = kHeight; y-- > 0;)
    order.push_back(y);
  order.insert(order.end(), {5u, 64u, 0u, 127u, 6u, 7u, 3u});
  Picture again;
  ASSERT_EQ(ReadPicture(path, &again, &desc, order), RasOk);
  EXPECT_EQ(again, p);
}

// The image pack of the shared test data at each level: the level's size,
// every row readable.
TEST(PhotoCd, ReadsEveryLevelOfARealFile) {
  const std::string path = std::string(KORVEL_TESTDATA_DIR) + "/photocd/pillow__hopper.pcd";
  for (uint32_t l = 1; l <= 3; ++l) {
    Level level(l);
    Picture p;
    RasDesc desc{};
    ASSERT_EQ(ReadPicture(path, &p, &desc), RasOk) << l;
    EXPECT_EQ(std::tuple(desc.width, desc.height), std::tuple(192u << (l - 1), 128u << (l - 1)));
    EXPECT_GT(*std::max_element(p.planes[0].begin(), p.planes[0].end()), 200);
  }
}

}  // namespace

// Cineon reader and writer: the generic header's fields, three 10-bit samples
// a word for every width, either byte order on reading, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "raster/rasrgb.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// Bottom row first: rows go in any order.
int WriteCin(const std::string &path, uint32_t model, uint32_t width, uint32_t height,
             const Planes16 &p) {
  std::vector<uint32_t> rows;
  for (uint32_t y = height; y-- > 0;)
    rows.push_back(y);
  return WritePlanes16(path, RasFormatCineon, model, width, height, p, 254.0f, rows);
}

TEST(Cineon, WritesTheGenericHeaderAndPackedWords) {
  const std::string path = TempPath("h.cin");
  ASSERT_EQ(WriteCin(path, RasModelRgb, 2, 1, {{1023, 1}, {0, 2}, {512, 3}}), RasOk);
  const Bytes b = ReadFile(path);
  ASSERT_EQ(b.size(), 2048u + 8);
  // Magic, offsets, "V4.5", channels, packing into left-justified 32-bit
  // words, 10 pixels a millimetre (254 an inch) as a float, the undefined
  // industry header.
  const std::tuple<size_t, int, uint32_t> fields[] = {
      {0, 4, 0x802A5FD7u}, {4, 4, 2048},         {8, 4, 1024},   {12, 4, 1024},
      {20, 4, 2056},       {24, 4, 0x56342E35u}, {28, 1, 0},     {193, 1, 3},
      {681, 1, 5},         {972, 4, 0x41200000}, {1024, 1, 0xFF}};
  for (const auto &[at, size, value] : fields)
    EXPECT_EQ(GetField(b, at, size, true), value) << at;
  // Red, green and blue printing density, 10 bits, 2 by 1 pixels.
  for (uint32_t k = 0; k < 3; ++k) {
    const size_t e = 196 + 28 * k;
    EXPECT_EQ((Bytes{b[e + 1], b[e + 2]}), (Bytes{uint8_t(k + 1), 10}));
    EXPECT_EQ(GetField(b, e + 4, 4, true) << 8 | GetField(b, e + 8, 4, true), 2u << 8 | 1u);
  }
  EXPECT_EQ(GetField(b, 2048, 4, true), 1023u << 22 | 0u << 12 | 512u << 2);
  EXPECT_EQ(GetField(b, 2052, 4, true), 1u << 22 | 2u << 12 | 3u << 2);
}

// Grey packs three pixels a word and starts every row on a word, so widths
// 1 to 7 meet every partial word.
TEST(Cineon, RoundTripsEveryWidthInEitherByteOrder) {
  const std::string path = TempPath("rt.cin");
  for (uint32_t width = 1; width <= 7; ++width) {
    for (const auto &[model, channels] : {std::pair{RasModelGray, 1u}, {RasModelRgb, 3u}}) {
      SCOPED_TRACE(testing::Message() << width << " wide, " << channels << " channels");
      const Planes16 p = Pattern16(width, 3, channels, 1023);
      ASSERT_EQ(WriteCin(path, model, width, 3, p), RasOk);
      Bytes b = ReadFile(path);
      ASSERT_EQ(b.size(), 2048u + 3 * 4 * ((width * channels + 2) / 3));
      // Then the same file with every word of the header's fields and of the
      // data reversed.
      for (int pass = 0; pass < 2; ++pass) {
        ExpectPlanes16(path, RasFormatCineon, 1023u, model, 254.0f, p);
        std::vector<size_t> words = {0, 4, 8, 12, 16, 20, 684, 688, 972, 976};
        for (uint32_t k = 0; k < channels; ++k)
          for (size_t at : {4, 8, 12, 16, 20, 24})
            words.push_back(196 + 28 * k + at);
        for (size_t at = 2048; at < b.size(); at += 4)
          words.push_back(at);
        for (size_t at : words)
          std::reverse(b.begin() + at, b.begin() + at + 4);
        WriteFile(path, b);
      }
    }
  }
  // Larger samples are clipped, and what no file holds is refused.
  ASSERT_EQ(WriteCin(path, RasModelGray, 1, 1, {{4000}}), RasOk);
  Planes16 back;
  RasDesc desc{};
  ASSERT_EQ(ReadPlanes16(path, &desc, &back), RasOk);
  EXPECT_EQ(back[0][0], 1023);
  EXPECT_EQ(WriteCin(path, RasModelCmyk, 1, 1, Pattern16(1, 1, 4, 1023)), RasErrArg);
  EXPECT_EQ(WriteCin(path, RasModelLab, 1, 1, Pattern16(1, 1, 3, 1023)), RasErrArg);
}

TEST(Cineon, RefusesWhatItDoesNotRead) {
  const std::string path = TempPath("bad.cin");
  ASSERT_EQ(WriteCin(path, RasModelRgb, 4, 4, Pattern16(4, 4, 3, 1023)), RasOk);
  const Bytes good = ReadFile(path);
  ErrorLog log;
  // Magic, data offset inside the header, two channels, the corrupt sample's
  // 255, 8 bits, the second channel wider than the first, packing, signed,
  // and rows missing from the end.
  // Each: where, bytes cut from the end, the value put, code and detail.
  const std::tuple<size_t, size_t, uint8_t, int, int> breaks[] = {
      {0, 0, 0x81, RasErrFormat, 4},     {6, 0, 0x01, RasErrFormat, 5},
      {193, 0, 2, RasErrUnsupported, 6}, {193, 0, 255, RasErrUnsupported, 6},
      {198, 0, 8, RasErrUnsupported, 6}, {230, 0, 5, RasErrUnsupported, 6},
      {681, 0, 0, RasErrUnsupported, 6}, {682, 0, 1, RasErrUnsupported, 6},
      {0, 1, 0x80, RasErrFormat, 7}};
  for (const auto &[at, cut, value, code, detail] : breaks) {
    SCOPED_TRACE(at);
    log.Clear();
    Bytes bad = good;
    bad[at] = value;
    bad.resize(bad.size() - cut);
    WriteFile(path, bad);
    RasDesc desc{};
    desc.format = RasFormatCineon;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), code);
    EXPECT_EQ(log.Last(), (Logged{"CineonOpen", code, detail}));
    EXPECT_EQ(desc.state, nullptr);
  }
}

// For display the code values go through the negative-to-display view:
// reference black (95) and below are black, reference white (685) and above
// white, a mid density in between, and the same for grey.
TEST(Cineon, ShowsCodeValuesThroughTheFilmView) {
  std::vector<uint16_t> codes = {0, 95, 300, 470, 685, 1023};
  const uint8_t want[] = {0, 0, 29, 85, 255, 255};
  RasSl sl{6, 3, {}, {codes.data(), codes.data(), codes.data()}};
  RasDesc desc{6, 1, 3, RasModelRgb, RasFormatCineon, 0, 1023, 72.0f, nullptr};
  uint8_t r[6], g[6], b[6];
  ASSERT_EQ(RasSlToRgb(&sl, &desc, r, g, b), RasOk);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(r[i], want[i]) << codes[i];
    EXPECT_EQ(b[i], want[i]) << codes[i];
  }
  desc.model = RasModelGray;
  desc.channels = sl.channels = 1;
  ASSERT_EQ(RasSlToRgb(&sl, &desc, r, g, b), RasOk);
  EXPECT_EQ(g[3], 85);
}

}  // namespace

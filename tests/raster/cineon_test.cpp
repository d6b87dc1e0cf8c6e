// Cineon reader and writer: the generic header's fields, three 10-bit samples
// a word for every width, either byte order on reading, and the refusals.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "raster/rasrgb.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

using Planes = Planes16;

Planes Codes(uint32_t width, uint32_t height, uint32_t channels) {
  return Pattern16(width, height, channels, 1023);
}

// Bottom row first: rows go in any order.
int WriteCin(const std::string &path, uint32_t model, uint32_t width, uint32_t height,
             const Planes &p, float resolution = 254.0f) {
  std::vector<uint32_t> rows;
  for (uint32_t y = height; y-- > 0;)
    rows.push_back(y);
  return WritePlanes16(path, RasFormatCineon, model, width, height, p, resolution, rows);
}

TEST(Cineon, WritesTheGenericHeaderAndPackedWords) {
  const std::string path = TempPath("h.cin");
  Planes p(3, std::vector<uint16_t>(2));
  p[0] = {1023, 1};
  p[1] = {0, 2};
  p[2] = {512, 3};
  ASSERT_EQ(WriteCin(path, RasModelRgb, 2, 1, p), RasOk);
  const Bytes b = ReadFile(path);
  ASSERT_EQ(b.size(), 2048u + 8);
  EXPECT_EQ(GetField(b, 0, 4, true), 0x802A5FD7u);
  EXPECT_EQ(GetField(b, 4, 4, true), 2048u);
  EXPECT_EQ(GetField(b, 8, 4, true), 1024u);
  EXPECT_EQ(GetField(b, 12, 4, true), 1024u);
  EXPECT_EQ(GetField(b, 20, 4, true), 2056u);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[24])), "V4.5");
  EXPECT_EQ(b[193], 3);
  for (uint32_t k = 0; k < 3; ++k) {
    const size_t e = 196 + 28 * k;
    EXPECT_EQ(b[e + 1], k + 1);  // red, green, blue printing density
    EXPECT_EQ(b[e + 2], 10);
    EXPECT_EQ(GetField(b, e + 4, 4, true), 2u);
    EXPECT_EQ(GetField(b, e + 8, 4, true), 1u);
  }
  EXPECT_EQ(b[681], 5);  // packed into 32-bit words, left justified
  float pitch;
  const uint32_t bits = GetField(b, 972, 4, true);
  std::memcpy(&pitch, &bits, 4);
  EXPECT_FLOAT_EQ(pitch, 10.0f);  // 254 an inch is 10 a millimetre
  EXPECT_EQ(b[1024], 0xFF);       // industry header: undefined
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
      const Planes p = Codes(width, 3, channels);
      ASSERT_EQ(WriteCin(path, model, width, 3, p), RasOk);
      const uint32_t words = (width * channels + 2) / 3;
      Bytes b = ReadFile(path);
      ASSERT_EQ(b.size(), 2048u + 3 * 4 * words);
      Planes back;
      RasDesc desc{};
      ASSERT_EQ(ReadPlanes16(path, &desc, &back), RasOk);
      EXPECT_EQ(desc.format, RasFormatCineon);
      EXPECT_EQ(desc.maxval, 1023u);
      EXPECT_EQ(desc.model, model);
      EXPECT_NEAR(desc.resolution, 254.0f, 0.01f);
      EXPECT_EQ(back, p);

      // The same file with every word of the header's fields and the data
      // reversed reads the same.
      auto swap = [&b](size_t at) { std::reverse(b.begin() + at, b.begin() + at + 4); };
      for (size_t at : {0, 4, 8, 12, 16, 20, 684, 688, 972, 976})
        swap(at);
      for (uint32_t k = 0; k < channels; ++k)
        for (size_t at : {4, 8, 12, 16, 20, 24})
          swap(196 + 28 * k + at);
      for (size_t at = 2048; at < b.size(); at += 4)
        swap(at);
      WriteFile(path, b);
      ASSERT_EQ(ReadPlanes16(path, &desc, &back), RasOk);
      EXPECT_EQ(back, p);
      EXPECT_NEAR(desc.resolution, 254.0f, 0.01f);
    }
  }
  // Larger samples are clipped, and what no file holds is refused.
  Planes big(1, std::vector<uint16_t>{4000});
  ASSERT_EQ(WriteCin(path, RasModelGray, 1, 1, big), RasOk);
  Planes back;
  RasDesc desc{};
  ASSERT_EQ(ReadPlanes16(path, &desc, &back), RasOk);
  EXPECT_EQ(back[0][0], 1023);
  EXPECT_EQ(WriteCin(path, RasModelCmyk, 1, 1, Codes(1, 1, 4)), RasErrArg);
  EXPECT_EQ(WriteCin(path, RasModelLab, 1, 1, Codes(1, 1, 3)), RasErrArg);
}

TEST(Cineon, RefusesWhatItDoesNotRead) {
  const std::string path = TempPath("bad.cin");
  ASSERT_EQ(WriteCin(path, RasModelRgb, 4, 4, Codes(4, 4, 3)), RasOk);
  const Bytes good = ReadFile(path);
  ErrorLog log;
  const struct {
    size_t at;
    uint8_t value;
    int code, detail;
  } breaks[] = {
      {0, 0x81, RasErrFormat, 4},        // magic
      {6, 0x01, RasErrFormat, 5},        // data offset inside the header
      {193, 2, RasErrUnsupported, 6},    // two channels
      {193, 255, RasErrUnsupported, 6},  // the corrupt sample's 255
      {198, 8, RasErrUnsupported, 6},    // 8 bits
      {230, 5, RasErrUnsupported, 6},    // the second channel wider than the first
      {681, 0, RasErrUnsupported, 6},    // packing
      {682, 1, RasErrUnsupported, 6},    // signed
  };
  for (const auto &br : breaks) {
    Bytes bad = good;
    bad[br.at] = br.value;
    WriteFile(path, bad);
    RasDesc desc{};
    desc.format = RasFormatCineon;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), br.code) << br.at;
    EXPECT_EQ(log.Last(), (Logged{"CineonOpen", br.code, br.detail})) << br.at;
    EXPECT_EQ(desc.state, nullptr);
    log.Clear();
  }
  // Rows missing from the end are found at the open.
  WriteFile(path, Bytes(good.begin(), good.end() - 1));
  RasDesc desc{};
  desc.format = RasFormatCineon;
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrFormat);
  EXPECT_EQ(log.Last(), (Logged{"CineonOpen", RasErrFormat, 7}));
}

// For display the code values go through the negative-to-display view:
// reference black (95) and below are black, reference white (685) and above
// white, a mid density in between, and the same for grey.
TEST(Cineon, ShowsCodeValuesThroughTheFilmView) {
  const uint16_t codes[] = {0, 95, 300, 470, 685, 1023};
  const uint8_t want[] = {0, 0, 29, 85, 255, 255};
  std::vector<uint16_t> plane(std::begin(codes), std::end(codes));
  RasSl sl{6, 3, {}, {plane.data(), plane.data(), plane.data()}};
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

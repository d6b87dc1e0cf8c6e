// Scitex CT reader and writer: the header's exact text fields, the padding of
// odd widths, complemented inks and the reading rules.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

std::string Text(const Bytes &b, size_t at, size_t n) {
  return std::string(b.begin() + at, b.begin() + at + n);
}

// Writes `p` row by row from planes of width + 1 bytes, the spare byte of
// each plane set to `spare`.
int WriteScitex(const std::string &path, uint32_t model, const Picture &p, float resolution,
                uint8_t spare, RasDesc *desc) {
  int code = RasSetDesc(desc, RasFormatScitex, p.width, p.height, p.channels, model, resolution);
  if (code == RasOk) code = RasOpen(path.c_str(), 'w', desc);
  if (code != RasOk) return code;
  std::vector<Bytes> rows(p.channels, Bytes(p.width + 1, spare));
  RasSl sl{p.width, p.channels, {}, {}};
  for (uint32_t y = 0; y < p.height && code == RasOk; ++y) {
    for (uint32_t k = 0; k < p.channels; ++k) {
      std::memcpy(rows[k].data(), &p.planes[k][size_t{y} * p.width], p.width);
      sl.plane8[k] = rows[k].data();
    }
    code = RasWriteSl(desc, y, &sl);
    for (uint32_t k = 0; k < p.channels; ++k)  // the writer gives the caller's row back
      EXPECT_EQ(0, std::memcmp(rows[k].data(), &p.planes[k][size_t{y} * p.width], p.width));
  }
  const int closed = RasClose(desc);
  return code != RasOk ? code : closed;
}

TEST(Scitex, WritesTheHeaderFieldsExactly) {
  const std::string path = TempPath("w.sct");
  RasDesc desc{};
  const Picture rgb = Pattern(5, 3, 3);
  ASSERT_EQ(WriteScitex(path, RasModelRgb, rgb, 0.0f, 0, &desc), RasOk);
  EXPECT_EQ(desc.resolution, 300.0f);
  const Bytes b = ReadFile(path);
  ASSERT_EQ(b.size(), 2048u + 3 * 3 * 6);
  ASSERT_LT(path.size(), 80u);
  EXPECT_EQ(Text(b, 0, path.size()), path);
  EXPECT_EQ(Text(b, path.size(), 80 - path.size()), std::string(80 - path.size(), ' '));
  EXPECT_EQ(Text(b, 80, 2), "CT");
  EXPECT_EQ(b[82], 0);
  EXPECT_EQ((Bytes{b[1024], b[1025], b[1026], b[1027]}), (Bytes{1, 3, 0, 7}));
  // 3 and 5 pixels at 300 an inch.
  EXPECT_EQ(Text(b, 1028, 14), "+.10000000E-01");
  EXPECT_EQ(Text(b, 1042, 14), "+.16666667E-01");
  EXPECT_EQ(Text(b, 1056, 12), "+00000000003");
  EXPECT_EQ(Text(b, 1068, 12), "+00000000005");
  EXPECT_EQ(b[1080], 0);
  for (size_t i = 1081; i < 2048; ++i)
    ASSERT_EQ(b[i], 0) << i;

  // 640 pixels at 300 an inch, as the format's own example; one grey
  // separation with mask 8; at 1 an inch the exponent is positive.
  Picture line = Pattern(640, 1, 1);
  ASSERT_EQ(WriteScitex(path, RasModelGray, line, 300.0f, 0, &desc), RasOk);
  const Bytes g = ReadFile(path);
  EXPECT_EQ(Text(g, 1042, 14), "+.21333333E+01");
  EXPECT_EQ(Text(g, 1028, 14), "+.33333333E-02");
  EXPECT_EQ((Bytes{g[1025], g[1027]}), (Bytes{1, 8}));
  ASSERT_EQ(WriteScitex(path, RasModelGray, Pattern(2, 1, 1), 1.0f, 0, &desc), RasOk);
  EXPECT_EQ(Text(ReadFile(path), 1042, 14), "+.20000000E+01");
}

// Odd widths move a padding byte a channel through the planes; inks are
// stored complemented and come back as written, the caller's rows untouched.
TEST(Scitex, RoundTripsPaddingAndInks) {
  const std::string path = TempPath("rt.sct");
  for (uint32_t width : {1u, 2u, 3u, 8u, 9u}) {
    for (const auto &[model, channels] :
         {std::pair{RasModelGray, 1u}, {RasModelRgb, 3u}, {RasModelCmyk, 4u}}) {
      SCOPED_TRACE(testing::Message() << width << " wide, " << channels << " channels");
      const Picture p = Pattern(width, 3, channels);
      RasDesc desc{};
      ASSERT_EQ(WriteScitex(path, model, p, 72.0f, 0xA5, &desc), RasOk);
      const Bytes b = ReadFile(path);
      const uint32_t padded = width + width % 2;
      ASSERT_EQ(b.size(), 2048u + 3 * channels * padded);
      // Row 1, last channel: complemented for inks, the padding byte after it.
      const size_t at = 2048 + (channels + channels - 1) * padded;
      const uint8_t first = p.At(0, 1, channels - 1);
      EXPECT_EQ(b[at], channels == 4 ? 255 - first : first);
      if (width % 2) {
        EXPECT_EQ(b[at + width], channels == 4 ? 255 - 0xA5 : 0xA5);
      }
      Picture back;
      RasDesc read{};
      ASSERT_EQ(ReadPicture(path, &back, &read, {2, 0, 1}), RasOk);
      EXPECT_EQ(read.format, RasFormatScitex);
      EXPECT_EQ(read.model, model);
      EXPECT_NEAR(read.resolution, 72.0f, 0.01f);
      EXPECT_EQ(back, p);
    }
  }
}

Bytes Header(uint8_t units, uint8_t separations, uint8_t mask, const char *height,
             const char *width, const char *rows, const char *columns) {
  Bytes b(2048, 0);
  b[80] = 'C';
  b[81] = 'T';
  b[1024] = units;
  b[1025] = separations;
  b[1027] = mask;
  std::memcpy(&b[1028], height, 14);
  std::memcpy(&b[1042], width, 14);
  std::memcpy(&b[1056], rows, 12);
  std::memcpy(&b[1068], columns, 12);
  return b;
}

// Millimetres become inches; every reading rule refuses with -8.
TEST(Scitex, AppliesTheReadingRules) {
  const std::string path = TempPath("r.sct");
  Bytes good = Header(0, 1, 1, "+.25400000E+03", "+.25400000E+03", "+00000000002", "+00000000100");
  good.resize(2048 + 2 * 100, 7);
  WriteFile(path, good);
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatScitex);
  EXPECT_EQ(desc.width, 100u);
  EXPECT_EQ(desc.height, 2u);
  EXPECT_NEAR(desc.resolution, 10.0f, 1e-4f);  // 100 pixels over 254 mm

  ErrorLog log;
  const struct {
    size_t at;
    uint8_t value;
  } breaks[] = {{80, 'c'},   {1024, 2},   {1025, 2},   {1026, 1},   {1027, 3},
                {1028, '-'}, {1039, '*'}, {1042, ' '}, {1053, 'E'}, {1056, '-'},
                {1062, 'x'}, {1068, '0'}, {1079, ' '}};
  for (const auto &br : breaks) {
    Bytes bad = good;
    bad[br.at] = br.value;
    WriteFile(path, bad);
    desc = RasDesc{};
    desc.format = RasFormatScitex;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrFormat) << br.at;
    EXPECT_EQ(log.Last(), (Logged{"ScitexCTOpen", RasErrFormat, 4})) << br.at;
    EXPECT_EQ(desc.state, nullptr);
    log.Clear();
  }
  // Masks by separation count: four need 15, three 7.
  for (const auto &[separations, mask, ok] :
       {std::tuple{4, 15, true}, {4, 7, false}, {3, 7, true}, {3, 15, false}, {1, 4, true}}) {
    Bytes b = good;
    b[1025] = static_cast<uint8_t>(separations);
    b[1027] = static_cast<uint8_t>(mask);
    b.resize(2048 + 2 * 100 * separations, 0);
    WriteFile(path, b);
    desc = RasDesc{};
    desc.format = RasFormatScitex;
    const int code = RasOpen(path.c_str(), 'r', &desc);
    EXPECT_EQ(code, ok ? RasOk : RasErrFormat) << separations << "/" << mask;
    if (code == RasOk) RasClose(&desc);
  }
  // A header cut short, and rows missing from the end.
  WriteFile(path, Bytes(good.begin(), good.begin() + 2000));
  desc = RasDesc{};
  desc.format = RasFormatScitex;
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrRead);
  WriteFile(path, Bytes(good.begin(), good.begin() + 2048 + 150));
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), RasErrRead);
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 2, &sl), RasErrArg);
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

}  // namespace

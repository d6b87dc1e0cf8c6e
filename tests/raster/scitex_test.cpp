// Scitex CT reader and writer: the header's exact text fields, the padding of
// odd widths, complemented inks and the reading rules.
#include <gtest/gtest.h>

#include <tuple>

#include <cstring>
#include <string>

#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

std::string Text(const Bytes &b, size_t at, size_t n) {
  return std::string(b.begin() + at, b.begin() + at + n);
}

// Writes `p` row by row from planes of width + 1 bytes, the spare byte of
// each plane set to `spare`; the caller's rows must come back untouched.
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
    for (uint32_t k = 0; k < p.channels; ++k)
      EXPECT_EQ(0, std::memcmp(rows[k].data(), &p.planes[k][size_t{y} * p.width], p.width));
  }
  const int closed = RasClose(desc);
  return code != RasOk ? code : closed;
}

// Bytes 1024 to 1080: units, separations, mask and the sizes in inches from
// the pixel counts and resolution (none means 300); 640 pixels at 300 an inch
// as the format's own example; at 1 an inch the exponent is positive.
TEST(Scitex, WritesTheHeaderFieldsExactly) {
  using namespace std::string_literals;
  const std::string path = TempPath("w.sct");
  ASSERT_LT(path.size(), 80u);
  const struct {
    uint32_t model;
    Picture p;
    float resolution;
    std::string fields;
  } cases[] = {
      {RasModelRgb, Pattern(5, 3, 3), 0.0f,
       "\1\3\0\7+.10000000E-01+.16666667E-01+00000000003+00000000005\0"s},
      {RasModelGray, Pattern(640, 1, 1), 300.0f,
       "\1\1\0\10+.33333333E-02+.21333333E+01+00000000001+00000000640\0"s},
      {RasModelGray, Pattern(2, 1, 1), 1.0f,
       "\1\1\0\10+.10000000E+01+.20000000E+01+00000000001+00000000002\0"s},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.p.width);
    RasDesc desc{};
    ASSERT_EQ(WriteScitex(path, c.model, c.p, c.resolution, 0, &desc), RasOk);
    EXPECT_EQ(desc.resolution, c.resolution ? c.resolution : 300.0f);
    const Bytes b = ReadFile(path);
    ASSERT_EQ(b.size(), 2048u + c.p.height * c.p.channels * (c.p.width + c.p.width % 2));
    EXPECT_EQ(Text(b, 0, 83), path + std::string(80 - path.size(), ' ') + "CT"s + '\0');
    EXPECT_EQ(Text(b, 1024, 57), c.fields);
    EXPECT_EQ(Bytes(b.begin() + 1081, b.begin() + 2048), Bytes(967, 0));
  }
}

// Odd widths move a padding byte a channel through the planes; inks are
// stored complemented and come back as written.
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
      ASSERT_EQ(ReadPicture(path, &back, &desc, {2, 0, 1}), RasOk);
      EXPECT_EQ(std::tuple(desc.format, desc.model), std::tuple(RasFormatScitex, model));
      EXPECT_NEAR(desc.resolution, 72.0f, 0.01f);
      EXPECT_EQ(back, p);
    }
  }
}

// Millimetres become inches; every reading rule refuses with -8.
TEST(Scitex, AppliesTheReadingRules) {
  const std::string path = TempPath("r.sct");
  Bytes good(2048, 0);
  std::memcpy(&good[80], "CT", 2);
  good[1025] = good[1027] = 1;  // one separation, mask 1, millimetres
  std::memcpy(&good[1028], "+.25400000E+03+.25400000E+03+00000000002+00000000100", 52);
  good.resize(2048 + 2 * 100, 7);
  WriteFile(path, good);
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk);
  EXPECT_EQ(std::tuple(desc.format, desc.width, desc.height),
            std::tuple(RasFormatScitex, 100u, 2u));
  EXPECT_NEAR(desc.resolution, 10.0f, 1e-4f);  // 100 pixels over 254 mm

  ErrorLog log;
  const std::pair<size_t, uint8_t> breaks[] = {
      {80, 'c'},   {1024, 2},   {1025, 2},   {1026, 1},   {1027, 3},   {1028, '-'}, {1039, '*'},
      {1042, ' '}, {1053, 'E'}, {1056, '-'}, {1062, 'x'}, {1068, '0'}, {1079, ' '}};
  for (const auto &[at, value] : breaks) {
    SCOPED_TRACE(at);
    log.Clear();
    Bytes bad = good;
    bad[at] = value;
    WriteFile(path, bad);
    EXPECT_EQ(OpenAs(path, RasFormatScitex), RasErrFormat);
    EXPECT_EQ(log.Last(), (Logged{"ScitexCTOpen", RasErrFormat, 4}));
  }
  // Masks by separation count: four need 15, three 7.
  for (const auto &[separations, mask, ok] :
       {std::tuple{4, 15, true}, {4, 7, false}, {3, 7, true}, {3, 15, false}, {1, 4, true}}) {
    Bytes b = good;
    b[1025] = static_cast<uint8_t>(separations);
    b[1027] = static_cast<uint8_t>(mask);
    b.resize(2048 + 2 * 100 * separations, 0);
    WriteFile(path, b);
    EXPECT_EQ(OpenAs(path, RasFormatScitex), ok ? RasOk : RasErrFormat)
        << separations << "/" << mask;
  }
  // A header cut short, and rows missing from the end.
  WriteFile(path, Bytes(good.begin(), good.begin() + 2000));
  EXPECT_EQ(OpenAs(path, RasFormatScitex), RasErrRead);
  WriteFile(path, Bytes(good.begin(), good.begin() + 2048 + 150));
  desc.format = RasFormatScitex;
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

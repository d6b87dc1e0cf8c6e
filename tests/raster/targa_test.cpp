// Targa reader and writer: the writer's exact bytes, hand-built files for every
// depth and colour map the reader takes, and the checks in their order.
#include <gtest/gtest.h>

#include <tuple>

#include "raster/core/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// A header of the fields given, then `rest`: the ID of `idLength`, the map
// and the pixels.
Bytes Tga(uint8_t mapType, uint8_t imageType, uint8_t entrySize, uint16_t mapLength, uint8_t depth,
          uint16_t width, uint16_t height, const Bytes &rest, uint8_t idLength = 0) {
  Bytes b = {idLength, mapType, imageType, 0, 0, 0, 0, entrySize, 0, 0, 0, 0, 0, 0, 0, 0, depth, 0};
  PutField(b, 5, mapLength, 2);
  PutField(b, 12, width, 2);
  PutField(b, 14, height, 2);
  b.insert(b.end(), rest.begin(), rest.end());
  return b;
}

// Every written header; pixels bottom row first as blue, green, red; grey as
// type 3; both read back in any row order.
TEST(Targa, WritesExactBytesAndReadsThemBack) {
  const std::string path = TempPath("write.tga");
  const struct {
    uint32_t model;
    Picture p;
    Bytes header;
  } cases[] = {
      {RasModelRgb, Pattern(5, 3, 3), {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 3, 0, 24, 0}},
      {RasModelGray, Pattern(4, 3, 1), {0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 3, 0, 8, 0}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.p.channels);
    RasDesc desc{};
    ASSERT_EQ(WritePicture(path, RasFormatTarga, c.model, c.p, 0.0f, &desc, {2, 0, 1}), RasOk);
    EXPECT_EQ(desc.resolution, 300.0f);
    const Bytes file = ReadFile(path);
    ASSERT_EQ(file.size(), 18u + c.p.width * c.p.height * c.p.channels);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 18), c.header);
    for (uint32_t k = 0; k < c.p.channels; ++k)
      EXPECT_EQ(file[18 + k], c.p.At(0, c.p.height - 1, c.p.channels - 1 - k)) << k;
    Picture back;
    ASSERT_EQ(ReadPicture(path, &back, &desc, {1, 2, 0}), RasOk);
    EXPECT_EQ(std::tuple(desc.format, desc.model), std::tuple(RasFormatTarga, c.model));
    EXPECT_EQ(desc.resolution, -1.0f);
    EXPECT_EQ(back, c.p);
  }
  // A width beyond 16 bits is cut by the header field.
  RasDesc wide{};
  ASSERT_EQ(RasSetDesc(&wide, RasFormatTarga, 65536 + 7, 1, 3, RasModelRgb, 72.0f), RasOk);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &wide), RasOk);
  EXPECT_EQ(RasClose(&wide), RasOk);
  EXPECT_EQ(GetField(ReadFile(path), 12, 2), 7u);
  EXPECT_EQ(WritePicture(path, RasFormatTarga, RasModelCmyk, Pattern(2, 2, 4)), RasErrArg);
}

// Two pixels each, their red, green and blue in reading order: 16-bit true
// colour through the 5-bit scale (0x7FFF white, 0x0421 eight); 32-bit skipping
// the fourth byte, rows bottom-up after the ID; 15- and 16-bit maps of pure
// red and pure blue; 24- and 32-bit maps keeping the entry's byte order, its
// first byte as red; an index beyond the map as black.
TEST(Targa, ReadsEveryDepthAndColourMap) {
  const struct {
    Bytes file, want;
  } cases[] = {
      {Tga(0, 2, 0, 0, 16, 2, 1, {0xFF, 0x7F, 0x21, 0x04}), {255, 255, 255, 8, 8, 8}},
      {Tga(0, 2, 0, 0, 32, 1, 2, {'a', 'b', 'c', 1, 2, 3, 99, 4, 5, 6, 99}, 3), {6, 5, 4, 3, 2, 1}},
      {Tga(1, 1, 15, 2, 8, 2, 1, {0x00, 0x7C, 0x1F, 0x00, 1, 0}), {0, 0, 255, 255, 0, 0}},
      {Tga(1, 1, 16, 2, 8, 2, 1, {0x00, 0x7C, 0x1F, 0x00, 1, 0}), {0, 0, 255, 255, 0, 0}},
      {Tga(1, 1, 24, 2, 8, 2, 1, {10, 20, 30, 40, 50, 60, 1, 0}), {40, 50, 60, 10, 20, 30}},
      {Tga(1, 1, 32, 2, 8, 2, 1, {10, 20, 30, 0, 40, 50, 60, 0, 1, 0}), {40, 50, 60, 10, 20, 30}},
      {Tga(1, 1, 32, 2, 8, 2, 1, {10, 20, 30, 0, 40, 50, 60, 0, 200, 0}), {0, 0, 0, 10, 20, 30}}};
  const std::string path = TempPath("hand.tga");
  for (const auto &c : cases) {
    SCOPED_TRACE(&c - cases);
    WriteFile(path, c.file);
    Picture p;
    ASSERT_EQ(ReadPicture(path, &p), RasOk);
    ASSERT_EQ(p.channels, 3u);
    Bytes got;
    for (uint32_t y = 0; y < p.height; ++y)
      for (uint32_t x = 0; x < p.width; ++x)
        for (uint32_t k = 0; k < 3; ++k)
          got.push_back(p.At(x, y, k));
    EXPECT_EQ(got, c.want);
  }
}

// The checks in their order, each with its detail; nothing stays open after
// a refusal.
TEST(Targa, RefusesInTheCheckOrder) {
  ErrorLog log;
  const std::string path = TempPath("bad.tga");
  // Each: map type, image type, entry size, depth, code.
  const std::tuple<uint8_t, uint8_t, uint8_t, uint8_t, int> cases[] = {
      {5, 10, 0, 7, RasErrUnsupported},  // compressed first, whatever else is wrong
      {0, 9, 0, 24, RasErrUnsupported}, {0, 11, 0, 8, RasErrUnsupported},
      {2, 2, 0, 24, RasErrFormat},      {0, 4, 0, 24, RasErrFormat},
      {1, 1, 8, 8, RasErrFormat},       {0, 2, 0, 15, RasErrFormat},
  };
  RasDesc desc{};
  for (const auto &[mapType, imageType, entrySize, depth, code] : cases) {
    SCOPED_TRACE(int{imageType});
    log.Clear();
    WriteFile(path, Tga(mapType, imageType, entrySize, 0, depth, 1, 1, Bytes(4, 0)));
    desc = RasDesc{};
    desc.format = RasFormatTarga;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), code);
    EXPECT_EQ(desc.state, nullptr);
    EXPECT_EQ(log.Last(), (Logged{"TargaOpen", code, 4}));
    EXPECT_NE(log.Text().find("TargaCheckTRH failed: code " + std::to_string(code)),
              std::string::npos);
  }
  // A colour-mapped picture with no map opens but refuses its rows.
  RasSl sl{};
  WriteFile(path, Tga(0, 1, 0, 0, 8, 1, 1, {0}));
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrFormat);
  EXPECT_EQ(RasClose(&desc), RasOk);
  // A short file refuses the missing row, and the failure closes the file.
  WriteFile(path, Tga(0, 2, 0, 0, 24, 1, 2, Bytes(3, 0)));
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"TargaReadSl", RasErrRead, 7}));
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), RasErrArg);
  EXPECT_EQ(RasClose(&desc), RasOk);
  EXPECT_EQ(desc.state, nullptr);
  RasFreeSl(&sl);
  // A map that ends early is a short read at the open.
  WriteFile(path, Tga(1, 1, 24, 256, 8, 1, 1, {}));
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"TargaOpen", RasErrRead, 8}));
  EXPECT_EQ(desc.state, nullptr);
}

}  // namespace

// Targa reader and writer: the writer's exact bytes, hand-built files for every
// depth and colour map the reader takes, and the checks in their order.
#include <gtest/gtest.h>

#include "raster/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

struct Tga {
  uint8_t mapType = 0, imageType = 2, entrySize = 0, depth = 24;
  uint16_t mapLength = 0, width = 1, height = 1;
  Bytes id, map, pixels;
};

Bytes Build(const Tga &t) {
  Bytes b(18, 0);
  b[0] = static_cast<uint8_t>(t.id.size());
  b[1] = t.mapType;
  b[2] = t.imageType;
  PutField(b, 5, t.mapLength, 2);
  b[7] = t.entrySize;
  PutField(b, 12, t.width, 2);
  PutField(b, 14, t.height, 2);
  b[16] = t.depth;
  for (const Bytes *part : {&t.id, &t.map, &t.pixels})
    b.insert(b.end(), part->begin(), part->end());
  return b;
}

// Opens the bytes as Targa; the first row read (or the open's code).
int ReadTga(const Bytes &bytes, Picture *picture, RasDesc *desc) {
  const std::string path = TempPath("hand.tga");
  WriteFile(path, bytes);
  return ReadPicture(path, picture, desc);
}

// The header of every written file, the pixels bottom row first as blue,
// green, red, the descriptor's resolution replaced when it has none; grey as
// type 3; both read back in any row order.
TEST(Targa, WritesExactBytesAndReadsThemBack) {
  const std::string path = TempPath("write.tga");
  const Picture rgb = Pattern(5, 3, 3);
  RasDesc desc{};
  ASSERT_EQ(WritePicture(path, RasFormatTarga, RasModelRgb, rgb, 0.0f, &desc, {2, 0, 1}), RasOk);
  EXPECT_EQ(desc.resolution, 300.0f);
  const Bytes file = ReadFile(path);
  ASSERT_EQ(file.size(), 18u + 5 * 3 * 3);
  const Bytes header(file.begin(), file.begin() + 18);
  EXPECT_EQ(header, (Bytes{0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 3, 0, 24, 0}));
  EXPECT_EQ(file[18], rgb.At(0, 2, 2));
  EXPECT_EQ(file[19], rgb.At(0, 2, 1));
  EXPECT_EQ(file[20], rgb.At(0, 2, 0));
  Picture back;
  RasDesc read{};
  ASSERT_EQ(ReadPicture(path, &back, &read, {1, 2, 0}), RasOk);
  EXPECT_EQ(read.format, RasFormatTarga);
  EXPECT_EQ(read.resolution, -1.0f);
  EXPECT_EQ(back, rgb);

  const Picture grey = Pattern(4, 2, 1);
  ASSERT_EQ(WritePicture(path, RasFormatTarga, RasModelGray, grey), RasOk);
  const Bytes greyFile = ReadFile(path);
  EXPECT_EQ(greyFile[2], 3);
  EXPECT_EQ(greyFile[16], 8);
  EXPECT_EQ(greyFile[18], grey.At(0, 1, 0));
  ASSERT_EQ(ReadPicture(path, &back, &read), RasOk);
  EXPECT_EQ(read.model, RasModelGray);
  EXPECT_EQ(back, grey);

  // A width beyond 16 bits is cut by the header field.
  RasDesc wide{};
  ASSERT_EQ(RasSetDesc(&wide, RasFormatTarga, 65536 + 7, 1, 3, RasModelRgb, 72.0f), RasOk);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &wide), RasOk);
  EXPECT_EQ(RasClose(&wide), RasOk);
  EXPECT_EQ(GetField(ReadFile(path), 12, 2), 7u);

  // Inks have no place in the file's pixels.
  Picture cmyk = Pattern(2, 2, 4);
  EXPECT_EQ(WritePicture(path, RasFormatTarga, RasModelCmyk, cmyk), RasErrArg);
}

TEST(Targa, ReadsEveryDepthAndColourMap) {
  Picture p;
  RasDesc desc{};
  // 16-bit true colour through the 5-bit scale: 0x7FFF is white, 0x0421 is 8.
  Tga t;
  t.depth = 16;
  t.width = 2;
  t.pixels = {0xFF, 0x7F, 0x21, 0x04};
  ASSERT_EQ(ReadTga(Build(t), &p, &desc), RasOk);
  EXPECT_EQ(p.At(0, 0, 0), 255);
  EXPECT_EQ(p.At(0, 0, 2), 255);
  for (uint32_t k = 0; k < 3; ++k)
    EXPECT_EQ(p.At(1, 0, k), 8);

  // 32-bit true colour skips the fourth byte; rows stored bottom-up, after
  // the ID text.
  t = Tga{};
  t.depth = 32;
  t.height = 2;
  t.id = {'a', 'b', 'c'};
  t.pixels = {1, 2, 3, 99, 4, 5, 6, 99};
  ASSERT_EQ(ReadTga(Build(t), &p, &desc), RasOk);
  EXPECT_EQ(p.At(0, 0, 0), 6);
  EXPECT_EQ(p.At(0, 0, 2), 4);
  EXPECT_EQ(p.At(0, 1, 0), 3);
  EXPECT_EQ(p.At(0, 1, 1), 2);

  // A 16-bit map: entry 0 pure red, entry 1 pure blue, in the right planes;
  // the 15-bit map is read the same way.
  for (uint8_t size : {15, 16}) {
    t = Tga{};
    t.mapType = 1;
    t.imageType = 1;
    t.entrySize = size;
    t.mapLength = 2;
    t.depth = 8;
    t.width = 2;
    t.map = {0x00, 0x7C, 0x1F, 0x00};
    t.pixels = {1, 0};
    ASSERT_EQ(ReadTga(Build(t), &p, &desc), RasOk);
    EXPECT_EQ(desc.channels, 3u);
    EXPECT_EQ(p.At(0, 0, 0), 0);
    EXPECT_EQ(p.At(0, 0, 2), 255);
    EXPECT_EQ(p.At(1, 0, 0), 255);
    EXPECT_EQ(p.At(1, 0, 2), 0);
  }
  // 24- and 32-bit maps keep the entry's byte order: its first byte, blue in
  // Targa's terms, comes out as red.
  for (uint8_t size : {24, 32}) {
    t.entrySize = size;
    t.map = size == 24 ? Bytes{10, 20, 30, 40, 50, 60} : Bytes{10, 20, 30, 0, 40, 50, 60, 0};
    ASSERT_EQ(ReadTga(Build(t), &p, &desc), RasOk);
    EXPECT_EQ(p.At(0, 0, 0), 40);
    EXPECT_EQ(p.At(0, 0, 1), 50);
    EXPECT_EQ(p.At(0, 0, 2), 60);
    EXPECT_EQ(p.At(1, 0, 0), 10);
  }
  // Indices beyond a short map read as black rather than outside the tables.
  t.pixels = {200, 0};
  ASSERT_EQ(ReadTga(Build(t), &p, &desc), RasOk);
  EXPECT_EQ(p.At(0, 0, 0) + p.At(0, 0, 1) + p.At(0, 0, 2), 0);
}

// The checks in their order, each with its detail; a colour-mapped picture
// with no map opens but refuses its rows; a short file refuses the row that
// is missing. Nothing stays open after a refusal.
TEST(Targa, RefusesInTheCheckOrder) {
  ErrorLog log;
  const std::string path = TempPath("bad.tga");
  struct Case {
    uint8_t mapType, imageType, entrySize, depth;
    int code, detail;
  } cases[] = {
      {5, 10, 0, 7, RasErrUnsupported, 0},  // compressed first, whatever else is wrong
      {0, 9, 0, 24, RasErrUnsupported, 0}, {0, 11, 0, 8, RasErrUnsupported, 0},
      {2, 2, 0, 24, RasErrFormat, 1},      {0, 4, 0, 24, RasErrFormat, 2},
      {1, 1, 8, 8, RasErrFormat, 3},       {0, 2, 0, 15, RasErrFormat, 4},
  };
  for (const Case &c : cases) {
    Tga t;
    t.mapType = c.mapType;
    t.imageType = c.imageType;
    t.entrySize = c.entrySize;
    t.depth = c.depth;
    t.pixels = Bytes(4, 0);
    WriteFile(path, Build(t));
    RasDesc desc{};
    desc.format = RasFormatTarga;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), c.code);
    EXPECT_EQ(desc.state, nullptr);
    EXPECT_EQ(log.Last(), (Logged{"TargaOpen", c.code, 4}));
    EXPECT_NE(log.Text().find(std::string("TargaCheckTRH failed: code ") + std::to_string(c.code)),
              std::string::npos);
    log.Clear();
  }

  Tga mapless;
  mapless.imageType = 1;
  mapless.depth = 8;
  mapless.pixels = {0};
  WriteFile(path, Build(mapless));
  RasDesc desc{};
  desc.format = RasFormatTarga;
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrFormat);
  EXPECT_EQ(RasClose(&desc), RasOk);
  RasFreeSl(&sl);
  sl = RasSl{};

  Tga shortFile;
  shortFile.height = 2;
  shortFile.pixels = Bytes(3, 0);  // the bottom row only
  WriteFile(path, Build(shortFile));
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"TargaReadSl", RasErrRead, 7}));
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), RasErrArg);  // the failure closed the file
  EXPECT_EQ(RasClose(&desc), RasOk);
  EXPECT_EQ(desc.state, nullptr);
  RasFreeSl(&sl);

  // A map that ends early is a short read at the open.
  Tga cut;
  cut.mapType = 1;
  cut.imageType = 1;
  cut.entrySize = 24;
  cut.mapLength = 256;
  cut.depth = 8;
  WriteFile(path, Build(cut));
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"TargaOpen", RasErrRead, 8}));
  EXPECT_EQ(desc.state, nullptr);
}

}  // namespace

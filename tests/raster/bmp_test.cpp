// BMP reader and writer: exact header bytes, row layout and padding, round
// trips in any row order, hand-built files for the reader's variants and
// refusals (with the detail each refusal reports through the error log).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "raster/ras.h"
#include "raster/rasfile.h"

namespace {

using Bytes = std::vector<uint8_t>;

void Put(Bytes &b, size_t at, uint32_t v, int size) {
  for (int i = 0; i < size; ++i)
    b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// A hand-built BMP file. Fields beyond the header's size are left out.
struct Bmp {
  uint32_t headerSize = 40;
  int32_t width = 1;
  int32_t height = 1;
  uint32_t planes = 1;
  uint32_t bits = 24;
  uint32_t compression = 0;
  int32_t ppm = 2835;
  Bytes palette;  // blue, green, red, reserved per entry
  Bytes pixels;   // stored rows, padding included
  uint8_t signature[2] = {'B', 'M'};
  uint8_t reserved[4] = {0, 0, 0, 0};

  Bytes Build() const {
    const size_t offset = 14 + headerSize + palette.size();
    Bytes b(14 + headerSize, 0);
    b[0] = signature[0];
    b[1] = signature[1];
    Put(b, 2, static_cast<uint32_t>(offset + pixels.size()), 4);
    for (int i = 0; i < 4; ++i)
      b[6 + i] = reserved[i];
    Put(b, 10, static_cast<uint32_t>(offset), 4);
    Put(b, 14, headerSize, 4);
    const struct {
      size_t at;
      uint32_t value;
      int size;
    } fields[] = {{18, static_cast<uint32_t>(width), 4},
                  {22, static_cast<uint32_t>(height), 4},
                  {26, planes, 2},
                  {28, bits, 2},
                  {30, compression, 4},
                  {38, static_cast<uint32_t>(ppm), 4}};
    for (const auto &f : fields) {
      if (f.at + f.size <= b.size()) Put(b, f.at, f.value, f.size);
    }
    b.insert(b.end(), palette.begin(), palette.end());
    b.insert(b.end(), pixels.begin(), pixels.end());
    return b;
  }
};

struct LoggedError {
  std::string function;
  int code = 0;
  int detail = -1;
};

class BmpTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "bmp_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern + "/";
    log_ = dir_ + "errors.log";
    const char *previous = getenv("KORVEL_RAS_LOG");
    if (previous) previousLog_ = previous;
    setenv("KORVEL_RAS_LOG", log_.c_str(), 1);
    (void)RasSetErrorReporting(1);
  }
  void TearDown() override {
    if (previousLog_)
      setenv("KORVEL_RAS_LOG", previousLog_->c_str(), 1);
    else
      unsetenv("KORVEL_RAS_LOG");
    for (const auto &f : files_)
      std::remove(f.c_str());
    std::remove(log_.c_str());
    rmdir(dir_.c_str());
  }

  std::string Path(const std::string &leaf) {
    files_.push_back(dir_ + leaf);
    return files_.back();
  }

  // The last failure the library reported: routine, code and detail.
  LoggedError LastError() {
    std::ifstream in(log_);
    std::string line, last;
    while (std::getline(in, line))
      last = line;
    LoggedError e;
    char function[64] = {};
    if (std::sscanf(last.c_str(), "korvel-raster: %63s failed: code %d", function, &e.code) == 2)
      e.function = function;
    const size_t at = last.find(" detail ");
    if (at != std::string::npos) e.detail = std::atoi(last.c_str() + at + 8);
    return e;
  }

  void ExpectError(int result, const char *function, int code, int detail) {
    EXPECT_EQ(result, code);
    const LoggedError e = LastError();
    EXPECT_EQ(e.function, function);
    EXPECT_EQ(e.code, code);
    EXPECT_EQ(e.detail, detail);
  }

  std::string dir_, log_;
  std::optional<std::string> previousLog_;
  std::vector<std::string> files_;
};

Bytes ReadWhole(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void WriteWhole(const std::string &path, const Bytes &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

uint8_t Sample(uint32_t x, uint32_t y, uint32_t k) {
  return static_cast<uint8_t>(x * 7 + y * 31 + k * 85 + 1);
}

// Writes an image whose samples are Sample(x, y, k), rows in `order`.
int WriteImage(const char *name, RasDesc *desc, uint32_t model, uint32_t width, uint32_t height,
               float resolution, const std::vector<uint32_t> &order) {
  const uint32_t channels = model == RasModelGray ? 1 : 3;
  if (RasSetDesc(desc, RasFormatBmp, width, height, channels, model, resolution) != RasOk)
    return -100;
  int code = RasOpen(name, 'w', desc);
  if (code != RasOk) return code;
  RasSl sl;
  if (RasMakeSl(&sl, desc) != RasOk) return -101;
  for (uint32_t y : order) {
    for (uint32_t k = 0; k < channels; ++k)
      for (uint32_t x = 0; x < width; ++x)
        sl.plane8[k][x] = Sample(x, y, k);
    code = RasWriteSl(desc, y, &sl);
    if (code != RasOk) break;
  }
  RasFreeSl(&sl);
  const int closed = RasClose(desc);
  return code != RasOk ? code : closed;
}

std::vector<uint32_t> Rows(uint32_t height, bool shuffled) {
  std::vector<uint32_t> rows;
  for (uint32_t y = 0; y < height; ++y)
    rows.push_back(y);
  // A fixed interleaving: odd rows from the bottom, then even rows from the top.
  if (shuffled) {
    std::vector<uint32_t> mixed;
    for (uint32_t y = height; y-- > 0;)
      if (y % 2) mixed.push_back(y);
    for (uint32_t y = 0; y < height; y += 2)
      mixed.push_back(y);
    rows = mixed;
  }
  return rows;
}

TEST_F(BmpTest, RgbHeaderBytesAndDefaultResolution) {
  const std::string path = Path("rgb.bmp");
  RasDesc desc;
  ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelRgb, 1, 2, -1.0f, Rows(2, false)), RasOk);
  EXPECT_EQ(desc.resolution, 300.0f);
  // clang-format off
  const Bytes expected = {'B', 'M', 62, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0,  // file header
                          40, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0,             // size, width, height
                          1, 0, 24, 0, 0, 0, 0, 0, 0, 0, 0, 0,             // planes, bits, ...
                          0x23, 0x2E, 0, 0, 0x23, 0x2E, 0, 0,              // 11811 ppm twice
                          0, 0, 0, 0, 0, 0, 0, 0};
  // clang-format on
  const Bytes file = ReadWhole(path);
  ASSERT_EQ(file.size(), 62u);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 54), expected);
}

TEST_F(BmpTest, GrayHeaderBytesAndPalette) {
  const std::string path = Path("gray.bmp");
  RasDesc desc;
  ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelGray, 3, 2, 72.0f, Rows(2, false)), RasOk);
  EXPECT_EQ(desc.resolution, 72.0f);
  // 1086 bytes in all, pixel data at 1078, 8 bits per pixel, 2835 pixels per metre.
  // clang-format off
  const Bytes expected = {'B', 'M', 0x3E, 0x04, 0, 0, 0, 0, 0, 0, 0x36, 0x04, 0, 0,
                          40, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 1, 0, 8, 0,
                          0, 0, 0, 0, 0, 0, 0, 0,
                          0x13, 0x0B, 0, 0, 0x13, 0x0B, 0, 0,
                          0, 0, 0, 0, 0, 0, 0, 0};
  // clang-format on
  const Bytes file = ReadWhole(path);
  ASSERT_EQ(file.size(), 1086u);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 54), expected);
  for (int i = 0; i < 256; ++i) {
    const uint8_t entry[4] = {file[54 + 4 * i], file[55 + 4 * i], file[56 + 4 * i],
                              file[57 + 4 * i]};
    ASSERT_TRUE(entry[0] == i && entry[1] == i && entry[2] == i && entry[3] == 0) << i;
  }
}

// Every padding case for both depths: stored bottom-up, B, G, R order, zero padding.
TEST_F(BmpTest, RowLayoutAndZeroPadding) {
  const struct {
    uint32_t model, width, stride, fileSize;
  } cases[] = {{RasModelRgb, 1, 4, 66},    {RasModelRgb, 2, 8, 78},     {RasModelRgb, 3, 12, 90},
               {RasModelRgb, 4, 12, 90},   {RasModelRgb, 5, 16, 102},   {RasModelRgb, 16, 48, 198},
               {RasModelRgb, 17, 52, 210}, {RasModelRgb, 37, 112, 390}, {RasModelGray, 1, 4, 1090},
               {RasModelGray, 2, 4, 1090}, {RasModelGray, 3, 4, 1090},  {RasModelGray, 4, 4, 1090},
               {RasModelGray, 5, 8, 1102}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " width " << c.width);
    const std::string path = Path("layout.bmp");
    RasDesc desc;
    ASSERT_EQ(WriteImage(path.c_str(), &desc, c.model, c.width, 3, 300.0f, Rows(3, false)), RasOk);
    const Bytes file = ReadWhole(path);
    ASSERT_EQ(file.size(), c.fileSize);
    EXPECT_EQ(file[2] | file[3] << 8, static_cast<int>(c.fileSize));
    const bool gray = c.model == RasModelGray;
    const size_t offset = gray ? 1078 : 54;
    const uint32_t bpp = gray ? 1 : 3;
    for (uint32_t y = 0; y < 3; ++y) {
      const size_t start = offset + (2 - y) * c.stride;
      for (uint32_t x = 0; x < c.width; ++x)
        for (uint32_t k = 0; k < bpp; ++k)
          ASSERT_EQ(file[start + x * bpp + k], Sample(x, y, gray ? 0 : 2 - k));
      for (uint32_t p = c.width * bpp; p < c.stride; ++p)
        ASSERT_EQ(file[start + p], 0) << y;
    }
  }
}

TEST_F(BmpTest, RoundTripsInAnyRowOrder) {
  const uint32_t shapes[][2] = {{1, 1}, {1, 7},  {7, 1},  {5, 3}, {13, 9},
                                {2, 4}, {16, 2}, {37, 3}, {33, 5}};
  for (uint32_t model : {RasModelRgb, RasModelGray}) {
    for (const auto &shape : shapes) {
      const uint32_t width = shape[0], height = shape[1];
      SCOPED_TRACE(testing::Message() << model << ": " << width << "x" << height);
      const std::string path = Path("trip.bmp");
      RasDesc desc;
      ASSERT_EQ(WriteImage(path.c_str(), &desc, model, width, height, 150.0f, Rows(height, true)),
                RasOk);
      RasDesc in{};
      in.format = RasFormatBmp;
      ASSERT_EQ(RasOpen(path.c_str(), 'r', &in), RasOk);
      EXPECT_EQ(in.width, width);
      EXPECT_EQ(in.height, height);
      EXPECT_EQ(in.model, model);
      ASSERT_EQ(in.channels, model == RasModelGray ? 1u : 3u);
      EXPECT_NEAR(in.resolution, 150.0f, 0.02f);  // through 5906 pixels per metre
      RasSl sl{};                                 // width 0: the reader allocates the planes
      for (uint32_t y : Rows(height, true)) {
        ASSERT_EQ(RasReadSl(&in, height - 1 - y, &sl), RasOk);
        for (uint32_t k = 0; k < in.channels; ++k)
          for (uint32_t x = 0; x < width; ++x)
            ASSERT_EQ(sl.plane8[k][x], Sample(x, height - 1 - y, k));
      }
      RasFreeSl(&sl);
      EXPECT_EQ(RasClose(&in), RasOk);
      EXPECT_EQ(in.state, nullptr);
    }
  }
}

int OpenMemory(const Bytes &file, RasMemName *mem, RasDesc *desc) {
  RasMakeMemName(mem, const_cast<uint8_t *>(file.data()), file.size());
  *desc = RasDesc{};
  desc->format = RasFormatBmp;
  return RasOpen(RasMemNameOf(*mem), 'r', desc);
}

TEST_F(BmpTest, TopDownFileReadsFirstStoredRowAsRowZero) {
  Bmp bmp;
  bmp.width = 2;
  bmp.height = -3;
  bmp.ppm = 11811;
  // Stored rows: pixel (x, stored row s) = B 10s+x, G 100+s, R 200+x, then 2 padding bytes.
  for (int s = 0; s < 3; ++s) {
    for (int x = 0; x < 2; ++x)
      bmp.pixels.insert(bmp.pixels.end(),
                        {uint8_t(10 * s + x), uint8_t(100 + s), uint8_t(200 + x)});
    bmp.pixels.insert(bmp.pixels.end(), {0xEE, 0xEE});
  }
  const Bytes file = bmp.Build();
  RasMemName mem;
  RasDesc desc;
  ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  EXPECT_EQ(desc.height, 3u);
  EXPECT_NEAR(desc.resolution, 300.0f, 0.001f);
  RasSl sl{};
  for (uint32_t row : {2u, 0u, 1u, 1u}) {
    ASSERT_EQ(RasReadSl(&desc, row, &sl), RasOk);
    for (uint32_t x = 0; x < 2; ++x) {
      EXPECT_EQ(sl.plane8[0][x], 200 + x);
      EXPECT_EQ(sl.plane8[1][x], 100 + row);
      EXPECT_EQ(sl.plane8[2][x], 10 * row + x);
    }
  }
  ExpectError(RasReadSl(&desc, 3, &sl), "BmpReadSl", RasErrArg, 5);
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

Bmp EightBit(int entries) {
  Bmp bmp;
  bmp.bits = 8;
  bmp.width = 3;
  for (int i = 0; i < entries; ++i) {
    const uint8_t v = static_cast<uint8_t>(255 - 16 * i);
    bmp.palette.insert(bmp.palette.end(), {v, v, v, 0});
  }
  bmp.pixels = {0, 5, 200, 0};
  return bmp;
}

TEST_F(BmpTest, ShortGrayPaletteKeepsIdentityForTheRest) {
  const Bytes file = EightBit(16).Build();
  RasMemName mem;
  RasDesc desc;
  ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  EXPECT_EQ(desc.model, RasModelGray);
  EXPECT_EQ(desc.channels, 1u);
  RasSl sl{};
  ASSERT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
  EXPECT_EQ(sl.plane8[0][0], 255);
  EXPECT_EQ(sl.plane8[0][1], 255 - 80);
  EXPECT_EQ(sl.plane8[0][2], 200);  // beyond the palette: identity
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

TEST_F(BmpTest, OneColouredEntryReadsAsRgbThroughThePalette) {
  Bmp bmp = EightBit(16);
  bmp.palette[5 * 4 + 0] = 1;  // entry 5: blue 1, green 175, red 175
  bmp.headerSize = 124;        // the longest header, with a palette behind it
  const Bytes file = bmp.Build();
  RasMemName mem;
  RasDesc desc;
  ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  EXPECT_EQ(desc.model, RasModelRgb);
  ASSERT_EQ(desc.channels, 3u);
  EXPECT_NEAR(desc.resolution, 72.009f, 0.001f);
  RasSl sl{};
  ASSERT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
  const uint8_t expected[3][3] = {{255, 175, 200}, {255, 175, 200}, {255, 1, 200}};
  for (int k = 0; k < 3; ++k)
    for (int x = 0; x < 3; ++x)
      EXPECT_EQ(sl.plane8[k][x], expected[k][x]) << k << "," << x;
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

// A full palette whose last entry is coloured, and an oversized one whose
// entries past 256 must be ignored (the pixel data still starts at its offset).
TEST_F(BmpTest, PaletteOfAllOrTooManyEntries) {
  for (int entries : {256, 300}) {
    SCOPED_TRACE(entries);
    Bmp bmp = EightBit(entries);
    for (int i = 255; i < entries; ++i)
      bmp.palette[4 * i + 1] = 7;  // green 7 from entry 255 on
    bmp.pixels = {255, 3, 0, 0};
    const Bytes file = bmp.Build();
    RasMemName mem;
    RasDesc desc;
    ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
    ASSERT_EQ(desc.channels, 3u);
    RasSl sl{};
    ASSERT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
    // Entry i is 255 - 16 i wrapped to a byte: entry 255 is 15, entry 3 is 207.
    const uint8_t expected[3][3] = {{15, 207, 255}, {7, 207, 255}, {15, 207, 255}};
    for (int k = 0; k < 3; ++k)
      for (int x = 0; x < 3; ++x)
        EXPECT_EQ(sl.plane8[k][x], expected[k][x]) << k << "," << x;
    RasFreeSl(&sl);
    EXPECT_EQ(RasClose(&desc), RasOk);
  }
}

TEST_F(BmpTest, ShortHeaderKeepsDefaultResolutionAndSkipsCompression) {
  Bmp bmp = EightBit(0);
  bmp.headerSize = 16;  // width, height, planes and bits only
  const Bytes file = bmp.Build();
  RasMemName mem;
  RasDesc desc;
  ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  EXPECT_EQ(desc.resolution, 300.0f);
  EXPECT_EQ(desc.model, RasModelGray);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

// Reads a whole image as interleaved samples; empty when it does not open.
Bytes ReadAll(const std::string &path, RasDesc *desc) {
  *desc = RasDesc{};
  desc->format = RasFormatBmp;
  if (RasOpen(path.c_str(), 'r', desc) != RasOk) return {};
  Bytes all;
  RasSl sl{};
  for (uint32_t y = 0; y < desc->height; ++y) {
    if (RasReadSl(desc, y, &sl) != RasOk) {
      all.clear();
      break;
    }
    for (uint32_t x = 0; x < desc->width; ++x)
      for (uint32_t k = 0; k < desc->channels; ++k)
        all.push_back(sl.plane8[k][x]);
  }
  RasFreeSl(&sl);
  RasClose(desc);
  return all;
}

// Another program wrote the same picture with different headers, palette
// sizes, offsets and row orders: every variant must read back the same.
TEST_F(BmpTest, RealFileVariantsReadAlike) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/bmp/";
  const struct {
    const char *reference;
    std::vector<const char *> variants;
  } groups[] = {
      {"pillow__bmp_g_pal8.bmp",
       {"pillow__bmp_g_pal8topdown.bmp", "pillow__bmp_g_pal8v5.bmp", "pillow__bmp_q_pal8offs.bmp",
        "pillow__bmp_q_pal8os2v2.bmp", "pillow__bmp_q_pal8os2v2-16.bmp",
        "pillow__bmp_q_pal8oversizepal.bmp", "pillow__bmp_g_pal8-0.bmp"}},
      {"pillow__bmp_g_rgb24.bmp", {"pillow__bmp_q_rgb24largepal.bmp"}},
  };
  for (const auto &group : groups) {
    RasDesc desc;
    const Bytes reference = ReadAll(dir + group.reference, &desc);
    ASSERT_EQ(reference.size(), 127u * 64u * 3u) << group.reference;
    for (const char *variant : group.variants) {
      EXPECT_TRUE(ReadAll(dir + variant, &desc) == reference) << variant;
      EXPECT_EQ(desc.model, RasModelRgb);
    }
  }
  RasDesc gray;
  EXPECT_EQ(ReadAll(dir + "bmpsuite28__g_pal8gs.bmp", &gray).size(), 127u * 64u);
  EXPECT_EQ(gray.model, RasModelGray);
}

TEST_F(BmpTest, RefusesOtherVariantsWithTheirDetail) {
  struct Case {
    const char *what;
    void (*change)(Bmp &);
    int code, detail;
  };
  const Case cases[] = {
      {"signature", [](Bmp &b) { b.signature[1] = 'A'; }, RasErrFormat, 3},
      {"reserved byte 8", [](Bmp &b) { b.reserved[2] = 1; }, RasErrFormat, 3},
      {"reserved byte 9", [](Bmp &b) { b.reserved[3] = 1; }, RasErrFormat, 3},
      {"core header", [](Bmp &b) { b.headerSize = 12; }, RasErrFormat, 6},
      {"header beyond 124", [](Bmp &b) { b.headerSize = 128; }, RasErrUnsupported, 20},
      {"planes", [](Bmp &b) { b.planes = 2; }, RasErrFormat, 8},
      {"4-bit", [](Bmp &b) { b.bits = 4; }, RasErrUnsupported, 9},
      {"16-bit", [](Bmp &b) { b.bits = 16; }, RasErrUnsupported, 9},
      {"32-bit", [](Bmp &b) { b.bits = 32; }, RasErrUnsupported, 9},
      {"run-length",
       [](Bmp &b) {
         b.bits = 8;
         b.compression = 1;
       },
       RasErrUnsupported, 11},
      {"row beyond 256 MiB", [](Bmp &b) { b.width = INT32_MAX; }, RasErrMemory, 10},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Bmp bmp;
    bmp.pixels = {1, 2, 3, 0};
    c.change(bmp);
    const Bytes file = bmp.Build();
    RasMemName mem;
    RasDesc desc;
    ExpectError(OpenMemory(file, &mem, &desc), "BmpOpen", c.code, c.detail);
    EXPECT_EQ(desc.state, nullptr);
  }
  // The first reserved word is not checked.
  Bmp tagged;
  tagged.reserved[0] = 'X';
  tagged.pixels = {1, 2, 3, 0};
  const Bytes file = tagged.Build();
  RasMemName mem;
  RasDesc desc;
  EXPECT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

TEST_F(BmpTest, TruncatedFilesFailToRead) {
  const Bytes whole = EightBit(16).Build();
  const struct {
    size_t size;
    int detail;
  } headers[] = {{10, 2}, {16, 5}, {30, 7}, {54 + 30, 12}};
  for (const auto &h : headers) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(h.size));
    RasMemName mem;
    RasDesc desc;
    ExpectError(OpenMemory(cut, &mem, &desc), "BmpOpen", RasErrRead, h.detail);
  }

  // Two rows of 24-bit pixels, the last stored row (image row 0) cut short.
  Bmp bmp;
  bmp.width = 2;
  bmp.height = 2;
  bmp.pixels = {1, 2, 3, 4, 5, 6, 0, 0, 7, 8};
  const std::string path = Path("cut.bmp");
  WriteWhole(path, bmp.Build());
  RasDesc desc{};
  desc.format = RasFormatBmp;
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
  RasSl sl{};
  ExpectError(RasReadSl(&desc, 0, &sl), "BmpReadSl", RasErrRead, 4);
  // The failure closed the file; later reads say so and closing still works.
  ExpectError(RasReadSl(&desc, 1, &sl), "BmpReadSl", RasErrRead, 1);
  EXPECT_EQ(RasClose(&desc), RasOk);
  RasFreeSl(&sl);
}

TEST_F(BmpTest, AbsurdDimensionsAreRefusedCleanly) {
  Bmp bmp;
  bmp.width = 3000000;
  bmp.height = 2000000;  // 18 TB of pixels in a few bytes
  bmp.pixels = {1, 2, 3, 0};
  Bytes file = bmp.Build();
  RasMemName mem;
  RasDesc desc;
  ExpectError(OpenMemory(file, &mem, &desc), "BmpOpen", RasErrMemory, 22);
  EXPECT_EQ(desc.state, nullptr);

  bmp.height = 100;  // under 4 GiB: opens, and the missing rows fail to read
  file = bmp.Build();
  ASSERT_EQ(OpenMemory(file, &mem, &desc), RasOk);
  RasSl sl{};
  ExpectError(RasReadSl(&desc, 0, &sl), "BmpReadSl", RasErrSeek, 3);
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

TEST_F(BmpTest, WriteOpenRestoresExpectedSizeOption) {
  const int64_t previous = 12345;
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &previous), RasOk);
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 4, 4, 3, RasModelRgb, 300.0f), RasOk);
  const std::string path = Path("option.bmp");
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc), RasOk);
  int64_t now = 0;
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &now), RasOk);
  EXPECT_EQ(now, previous);
  EXPECT_EQ(RasClose(&desc), RasOk);
  ASSERT_EQ(RasFileSetOption(RasFileOptReset, nullptr), RasOk);
}

TEST_F(BmpTest, SmallMemoryBlockReportsTheItemBeingWritten) {
  // RGB 2x2: 54 + 2 * 8 = 70 bytes; gray 2x2: 1078 + 2 * 4 = 1086 bytes.
  const struct {
    uint32_t model;
    size_t capacity;
    const char *function;
    int detail;
  } cases[] = {{RasModelRgb, 10, "BmpOpen", 17},
               {RasModelRgb, 30, "BmpOpen", 18},
               {RasModelGray, 500, "BmpOpen", 19},
               {RasModelRgb, 69, "BmpWriteSl", 5},
               {RasModelGray, 1085, "BmpWriteSl", 4}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.capacity);
    Bytes block(c.capacity);
    RasMemName mem;
    RasMakeMemName(&mem, block.data(), block.size());
    RasDesc desc;
    ExpectError(WriteImage(RasMemNameOf(mem), &desc, c.model, 2, 2, 300.0f, Rows(2, false)),
                c.function, RasErrWrite, c.detail);
    EXPECT_EQ(desc.state, nullptr);
  }
}

TEST_F(BmpTest, WriterRefusesRowsItCannotPlace) {
  Bytes block(200);
  RasMemName mem;
  RasMakeMemName(&mem, block.data(), block.size());
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatBmp, 2, 2, 4, RasModelCmyk, 300.0f), RasOk);
  ASSERT_EQ(RasOpen(RasMemNameOf(mem), 'w', &desc), RasOk);
  RasSl sl;
  ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);
  ExpectError(RasWriteSl(&desc, 2, &sl), "BmpWriteSl", RasErrArg, 7);
  ExpectError(RasWriteSl(&desc, 0, &sl), "BmpWriteSl", RasErrArg, 6);  // no CMYK in BMP
  ExpectError(RasWriteSl(&desc, 1, &sl), "BmpWriteSl", RasErrArg, 1);  // closed by the failure
  EXPECT_EQ(block[28], 24);                                            // header already written
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc), RasOk);
}

}  // namespace

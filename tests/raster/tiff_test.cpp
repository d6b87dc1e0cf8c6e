// TIFF reader and writer (8-bit samples): exact header and directory bytes of
// written files, strip layout, round trips in every model and planar
// configuration, hand-built files for the reader's variants and refusals,
// short writes item by item, and the IPTC block carried from file to file.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "raster/ras.h"
#include "raster/rasfile.h"
#include "raster/rasstate.h"
#include "raster/tiff.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t Get(const Bytes &b, size_t at, int size, bool big) {
  uint32_t v = 0;
  for (int i = 0; i < size; ++i)
    v |= uint32_t{b.at(at + i)} << (8 * (big ? size - 1 - i : i));
  return v;
}

void Append(Bytes &b, uint32_t v, int size, bool big) {
  for (int i = 0; i < size; ++i)
    b.push_back(static_cast<uint8_t>(v >> (8 * (big ? size - 1 - i : i))));
}

Bytes ReadWhole(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

uint8_t Sample(uint32_t x, uint32_t y, uint32_t k) {
  return static_cast<uint8_t>(x * 7 + y * 31 + k * 85 + 1);
}

// A directory entry as the test expects it: SHORT values of count 1 stand in
// the field's first two bytes, everything else is a LONG-sized field.
struct Entry {
  uint32_t tag, type, count, value;
};

// Checks the directory at offset 8 entry by entry, padding bytes included.
void ExpectDirectory(const Bytes &file, bool big, const std::vector<Entry> &expected) {
  ASSERT_GE(file.size(), 14 + 12 * expected.size());
  ASSERT_EQ(Get(file, 8, 2, big), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const size_t at = 10 + 12 * i;
    const Entry &e = expected[i];
    SCOPED_TRACE(testing::Message() << "entry " << i << " tag " << e.tag);
    EXPECT_EQ(Get(file, at, 2, big), e.tag);
    EXPECT_EQ(Get(file, at + 2, 2, big), e.type);
    EXPECT_EQ(Get(file, at + 4, 4, big), e.count);
    if (e.type == 3 && e.count == 1) {
      EXPECT_EQ(Get(file, at + 8, 2, big), e.value);
      EXPECT_EQ(Get(file, at + 10, 2, big), 0u);
    } else {
      EXPECT_EQ(Get(file, at + 8, 4, big), e.value);
    }
  }
  EXPECT_EQ(Get(file, 10 + 12 * expected.size(), 4, big), 0u);  // no next directory
}

// A hand-built TIFF file: the pixel data right after the header, the
// directory after the data, out-of-line values after the directory.
struct Builder {
  bool big = false;
  uint32_t magic = 42;
  Bytes pixels;
  struct Item {
    uint32_t tag, type, count;
    Bytes data;  // the value bytes in file order
  };
  std::vector<Item> items;

  static constexpr uint32_t kDataAt = 8;

  Builder &Values(uint32_t tag, uint32_t type, const std::vector<uint32_t> &values) {
    Item item{tag, type, static_cast<uint32_t>(values.size()), {}};
    const int size = type == 1 ? 1 : type == 3 ? 2 : 4;
    for (uint32_t v : values)
      Append(item.data, v, size, big);
    items.push_back(item);
    return *this;
  }
  Builder &Short(uint32_t tag, const std::vector<uint32_t> &v) { return Values(tag, 3, v); }
  Builder &Long(uint32_t tag, const std::vector<uint32_t> &v) { return Values(tag, 4, v); }
  Builder &Rational(uint32_t tag, uint32_t num, uint32_t den) {
    Values(tag, 4, {num, den});
    items.back().type = 5;
    items.back().count = 1;
    return *this;
  }
  Builder &Raw(uint32_t tag, uint32_t type, uint32_t count, const Bytes &data) {
    items.push_back({tag, type, count, data});
    return *this;
  }
  Builder &Drop(uint32_t tag) {
    std::erase_if(items, [tag](const Item &i) { return i.tag == tag; });
    return *this;
  }
  Builder &Replace(uint32_t tag, uint32_t type, const std::vector<uint32_t> &values) {
    Drop(tag);
    return Values(tag, type, values);
  }

  // The usual tags of an uncompressed, single-strip image of `pixels`.
  static Builder Image(bool big, uint32_t width, uint32_t height, uint32_t samples,
                       uint32_t photometric, const Bytes &pixels) {
    Builder b;
    b.big = big;
    b.pixels = pixels;
    b.Long(256, {width}).Long(257, {height});
    b.Short(258, std::vector<uint32_t>(samples, 8)).Short(259, {1}).Short(262, {photometric});
    b.Long(273, {kDataAt}).Short(277, {samples}).Long(278, {height});
    b.Long(279, {static_cast<uint32_t>(pixels.size())});
    return b;
  }

  Bytes Build() const {
    Bytes out;
    out.push_back(big ? 'M' : 'I');
    out.push_back(big ? 'M' : 'I');
    Append(out, magic, 2, big);
    const uint32_t directory = kDataAt + static_cast<uint32_t>(pixels.size() + pixels.size() % 2);
    Append(out, directory, 4, big);
    out.insert(out.end(), pixels.begin(), pixels.end());
    out.resize(directory);
    uint32_t extra = directory + 2 + 12 * static_cast<uint32_t>(items.size()) + 4;
    Bytes tail;
    Append(out, static_cast<uint32_t>(items.size()), 2, big);
    for (const Item &item : items) {
      Append(out, item.tag, 2, big);
      Append(out, item.type, 2, big);
      Append(out, item.count, 4, big);
      if (item.data.size() <= 4) {
        Bytes field = item.data;
        field.resize(4);
        out.insert(out.end(), field.begin(), field.end());
      } else {
        Append(out, extra + static_cast<uint32_t>(tail.size()), 4, big);
        tail.insert(tail.end(), item.data.begin(), item.data.end());
      }
    }
    Append(out, 0, 4, big);
    out.insert(out.end(), tail.begin(), tail.end());
    return out;
  }
};

Bytes Pattern(size_t n) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i)
    b[i] = static_cast<uint8_t>(i * 37 + 11);
  return b;
}

struct Logged {
  std::string function;
  int code = 0;
  int detail = -1;
  bool operator==(const Logged &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Logged &e) {
  return os << e.function << " " << e.code << "/" << e.detail;
}

class TiffTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "tiff_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern + "/";
    log_ = dir_ + "errors.log";
    setenv("KORVEL_RAS_LOG", log_.c_str(), 1);
    (void)RasSetErrorReporting(1);
    ResetOptions();
  }
  void TearDown() override {
    ResetOptions();
    unsetenv("KORVEL_RAS_LOG");
    for (const auto &f : files_)
      std::remove(f.c_str());
    std::remove(log_.c_str());
    rmdir(dir_.c_str());
  }
  static void ResetOptions() {
    ASSERT_EQ(TiffSetOption(TiffOptPlanar, 1, nullptr), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptByteOrder, 18761, nullptr), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptClearIptc, 0, nullptr), RasOk);
  }

  std::string Path(const std::string &leaf) {
    files_.push_back(dir_ + leaf);
    return files_.back();
  }

  std::vector<Logged> Errors() {
    std::ifstream in(log_);
    std::vector<Logged> all;
    std::string line;
    while (std::getline(in, line)) {
      Logged e;
      char function[64] = {};
      if (std::sscanf(line.c_str(), "korvel-raster: %63s failed: code %d", function, &e.code) != 2)
        continue;
      e.function = function;
      const size_t at = line.find(" detail ");
      if (at != std::string::npos) e.detail = std::atoi(line.c_str() + at + 8);
      all.push_back(e);
    }
    return all;
  }
  void ClearLog() { std::remove(log_.c_str()); }
  // The failure was reported, by the routine that found it, somewhere in the
  // chain of reports since the log was last cleared.
  void ExpectReported(const Logged &e) {
    const auto all = Errors();
    EXPECT_NE(std::find(all.begin(), all.end(), e), all.end()) << "missing " << e;
  }
  void ExpectLast(const Logged &e) {
    const auto all = Errors();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.back(), e);
  }

  std::string dir_, log_;
  std::vector<std::string> files_;
};

int WriteImage(const char *name, RasDesc *desc, uint32_t model, uint32_t channels, uint32_t width,
               uint32_t height, float resolution = 72.0f) {
  if (RasSetDesc(desc, RasFormatTiff, width, height, channels, model, resolution) != RasOk)
    return -100;
  int code = RasOpen(name, 'w', desc);
  if (code != RasOk) return code;
  RasSl sl;
  if (RasMakeSl(&sl, desc) != RasOk) return -101;
  for (uint32_t y = 0; y < height && code == RasOk; ++y) {
    for (uint32_t k = 0; k < channels; ++k)
      for (uint32_t x = 0; x < width; ++x)
        sl.plane8[k][x] = Sample(x, y, k);
    code = RasWriteSl(desc, y, &sl);
  }
  RasFreeSl(&sl);
  const int closed = RasClose(desc);
  return code != RasOk ? code : closed;
}

int OpenMemory(const Bytes &bytes, RasMemName *mem, RasDesc *desc) {
  RasMakeMemName(mem, const_cast<uint8_t *>(bytes.data()), bytes.size());
  *desc = RasDesc{};
  desc->format = RasFormatTiff;
  return RasOpen(RasMemNameOf(*mem), 'r', desc);
}

// The whole picture, plane by plane, rows in the given order.
std::vector<Bytes> ReadPlanes(RasDesc *desc, const std::vector<uint32_t> &order) {
  std::vector<Bytes> planes(desc->channels, Bytes(size_t{desc->width} * desc->height));
  RasSl sl{};
  for (uint32_t y : order) {
    EXPECT_EQ(RasReadSl(desc, y, &sl), RasOk) << "row " << y;
    for (uint32_t k = 0; k < desc->channels; ++k)
      std::copy(sl.plane8[k], sl.plane8[k] + desc->width, planes[k].begin() + y * desc->width);
  }
  RasFreeSl(&sl);
  return planes;
}

std::vector<uint32_t> InOrder(uint32_t height) {
  std::vector<uint32_t> rows(height);
  for (uint32_t y = 0; y < height; ++y)
    rows[y] = y;
  return rows;
}

TEST_F(TiffTest, SingleStripRgbHeaderAndDirectoryBytes) {
  const std::string path = Path("rgb.tif");
  RasDesc desc;
  ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelRgb, 3, 100, 100, 72.0f), RasOk);
  const Bytes file = ReadWhole(path);
  // 14 entries end at 182; BitsPerSample 182..188, rationals at 188 and 196,
  // pixels from 204: one strip of 30000 bytes, its offset and count inline.
  // clang-format off
  const Bytes head = {
      'I', 'I', 42, 0, 8, 0, 0, 0, 14, 0,
      0xFE, 0, 4, 0, 1, 0, 0, 0, 0, 0, 0, 0,        // NewSubfileType
      0, 1, 4, 0, 1, 0, 0, 0, 100, 0, 0, 0,         // ImageWidth
      1, 1, 4, 0, 1, 0, 0, 0, 100, 0, 0, 0,         // ImageLength
      2, 1, 3, 0, 3, 0, 0, 0, 182, 0, 0, 0,         // BitsPerSample
      3, 1, 3, 0, 1, 0, 0, 0, 1, 0, 0, 0,           // Compression
      6, 1, 3, 0, 1, 0, 0, 0, 2, 0, 0, 0,           // PhotometricInterpretation
      0x11, 1, 4, 0, 1, 0, 0, 0, 204, 0, 0, 0,      // StripOffsets
      0x15, 1, 3, 0, 1, 0, 0, 0, 3, 0, 0, 0,        // SamplesPerPixel
      0x16, 1, 4, 0, 1, 0, 0, 0, 100, 0, 0, 0,      // RowsPerStrip
      0x17, 1, 4, 0, 1, 0, 0, 0, 0x30, 0x75, 0, 0,  // StripByteCounts
      0x1A, 1, 5, 0, 1, 0, 0, 0, 188, 0, 0, 0,      // XResolution
      0x1B, 1, 5, 0, 1, 0, 0, 0, 196, 0, 0, 0,      // YResolution
      0x1C, 1, 3, 0, 1, 0, 0, 0, 1, 0, 0, 0,        // PlanarConfiguration
      0x28, 1, 3, 0, 1, 0, 0, 0, 2, 0, 0, 0,        // ResolutionUnit
      0, 0, 0, 0,                                   // next directory
      8, 0, 8, 0, 8, 0,                             // BitsPerSample values
      0x40, 0x19, 1, 0, 0xE8, 3, 0, 0,              // 72000 / 1000
      0x40, 0x19, 1, 0, 0xE8, 3, 0, 0};
  // clang-format on
  ASSERT_EQ(file.size(), 204u + 30000u);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 204), head);
  EXPECT_EQ(file[204 + 3 * 5 + 1], Sample(5, 0, 1));
  EXPECT_EQ(file[204 + 300 * 99 + 3 * 99 + 2], Sample(99, 99, 2));
}

TEST_F(TiffTest, GreyAndFourChannelDirectoriesInBothByteOrders) {
  // An IPTC block of three words to carry into the four-channel file.
  const Bytes iptc = {0x1C, 2, 0, 0, 2, 0, 4, 0x1C, 2, 5, 1, 'x'};
  const Bytes source = Builder::Image(false, 1, 1, 1, 1, {9}).Raw(33723, 7, 12, iptc).Build();
  RasMemName mem;
  RasDesc in;
  for (bool big : {false, true}) {
    SCOPED_TRACE(big ? "MM" : "II");
    ASSERT_EQ(TiffSetOption(TiffOptByteOrder, big ? 19789 : 18761, nullptr), RasOk);
    const uint32_t S = 3, L = 4, R = 5;
    // 10x10 CMYK: 16 entries end at 206; BitsPerSample 206..214; rationals
    // 214 and 222; IPTC 230..242; pixels from 242.
    ASSERT_EQ(TiffSetOption(TiffOptClearIptc, 0, nullptr), RasOk);
    ASSERT_EQ(OpenMemory(source, &mem, &in), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), RasOk);
    ASSERT_EQ(RasClose(&in), RasOk);
    const std::string cmyk = Path(big ? "cmyk_mm.tif" : "cmyk_ii.tif");
    RasDesc desc;
    ASSERT_EQ(WriteImage(cmyk.c_str(), &desc, RasModelCmyk, 4, 10, 10, 150.0f), RasOk);
    Bytes file = ReadWhole(cmyk);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 4),
              big ? Bytes({'M', 'M', 0, 42}) : Bytes({'I', 'I', 42, 0}));
    ExpectDirectory(file, big,
                    {{254, L, 1, 0},
                     {256, L, 1, 10},
                     {257, L, 1, 10},
                     {258, S, 4, 206},
                     {259, S, 1, 1},
                     {262, S, 1, 5},
                     {273, L, 1, 242},
                     {277, S, 1, 4},
                     {278, L, 1, 10},
                     {279, L, 1, 400},
                     {282, R, 1, 214},
                     {283, R, 1, 222},
                     {284, S, 1, 1},
                     {296, S, 1, 2},
                     {332, S, 1, 1},
                     {33723, L, 3, 230}});
    ASSERT_EQ(file.size(), 242u + 400u);
    for (int k = 0; k < 4; ++k)
      EXPECT_EQ(Get(file, 206 + 2 * k, 2, big), 8u);
    EXPECT_EQ(Get(file, 214, 4, big), 150000u);
    EXPECT_EQ(Get(file, 226, 4, big), 1000u);
    EXPECT_EQ(Bytes(file.begin() + 230, file.begin() + 242), iptc);  // byte for byte

    // Grey: 13 entries, no PlanarConfiguration; 8 bits inline; rationals at
    // 170 and 178, pixels from 186.
    ASSERT_EQ(TiffSetOption(TiffOptClearIptc, 0, nullptr), RasOk);
    const std::string grey = Path(big ? "grey_mm.tif" : "grey_ii.tif");
    ASSERT_EQ(WriteImage(grey.c_str(), &desc, RasModelGray, 1, 100, 100), RasOk);
    file = ReadWhole(grey);
    ExpectDirectory(file, big,
                    {{254, L, 1, 0},
                     {256, L, 1, 100},
                     {257, L, 1, 100},
                     {258, S, 1, 8},
                     {259, S, 1, 1},
                     {262, S, 1, 1},
                     {273, L, 1, 186},
                     {277, S, 1, 1},
                     {278, L, 1, 100},
                     {279, L, 1, 10000},
                     {282, R, 1, 170},
                     {283, R, 1, 178},
                     {296, S, 1, 2}});
    EXPECT_EQ(file.size(), 186u + 10000u);
    EXPECT_EQ(Get(file, 170, 4, big), 72000u);
    EXPECT_EQ(file[186 + 100 * 42 + 17], Sample(17, 42, 0));
  }
}

TEST_F(TiffTest, MultiStripTablesAndPlacement) {
  // 200x120 RGB: 50 rows per strip (30000 / 600), strips of 50, 50 and 20 rows.
  const uint32_t S = 3, L = 4, R = 5;
  for (uint32_t planar : {1u, 2u}) {
    SCOPED_TRACE(testing::Message() << "planar " << planar);
    ASSERT_EQ(TiffSetOption(TiffOptPlanar, planar, nullptr), RasOk);
    const std::string path = Path("strips.tif");
    RasDesc desc;
    ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelRgb, 3, 200, 120), RasOk);
    const Bytes file = ReadWhole(path);
    const uint32_t n = planar == 1 ? 3 : 9;
    const uint32_t offsetsAt = 188, countsAt = offsetsAt + 4 * n, xAt = countsAt + 4 * n;
    const uint32_t dataAt = xAt + 16;
    ExpectDirectory(file, false,
                    {{254, L, 1, 0},
                     {256, L, 1, 200},
                     {257, L, 1, 120},
                     {258, S, 3, 182},
                     {259, S, 1, 1},
                     {262, S, 1, 2},
                     {273, L, n, offsetsAt},
                     {277, S, 1, 3},
                     {278, L, 1, 50},
                     {279, L, n, countsAt},
                     {282, R, 1, xAt},
                     {283, R, 1, xAt + 8},
                     {284, S, 1, planar},
                     {296, S, 1, 2}});
    ASSERT_EQ(file.size(), dataAt + 72000u);
    std::vector<uint32_t> offsets, counts;
    if (planar == 1) {
      offsets = {dataAt, dataAt + 30000, dataAt + 60000};
      counts = {30000, 30000, 12000};
    } else {  // plane by plane; each strip holds its three planes in turn
      for (uint32_t k = 0; k < 3; ++k) {
        offsets.insert(offsets.end(),
                       {dataAt + k * 10000, dataAt + 30000 + k * 10000, dataAt + 60000 + k * 4000});
        counts.insert(counts.end(), {10000, 10000, 4000});
      }
    }
    for (uint32_t i = 0; i < n; ++i) {
      EXPECT_EQ(Get(file, offsetsAt + 4 * i, 4, false), offsets[i]) << i;
      EXPECT_EQ(Get(file, countsAt + 4 * i, 4, false), counts[i]) << i;
    }
    // Row 105, pixel 3, green: in the last strip, 5 rows into it.
    const size_t at = planar == 1 ? offsets[2] + 5 * 600 + 3 * 3 + 1 : offsets[5] + 5 * 200 + 3;
    EXPECT_EQ(file[at], Sample(3, 105, 1));
  }
}

TEST_F(TiffTest, ResolutionDefaultsAndRowsPerStrip) {
  const struct {
    float resolution;
    uint32_t width, height, stored, rowsPerStrip;
    float after;
  } cases[] = {{0.0f, 4, 2, 300000, 2, 300.0f},    {-1.0f, 4, 2, 300000, 2, 300.0f},
               {72.3f, 4, 2, 72300, 2, 72.3f},     {0.0004f, 4, 2, 0, 2, 0.0004f},
               {96.0f, 20000, 3, 96000, 1, 96.0f}, {96.0f, 10001, 2, 96000, 1, 96.0f},
               {96.0f, 10000, 2, 96000, 1, 96.0f}, {96.0f, 4999, 5, 96000, 2, 96.0f}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << c.resolution << " " << c.width);
    const std::string path = Path("res.tif");
    RasDesc desc;
    ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelRgb, 3, c.width, c.height, c.resolution),
              RasOk);
    EXPECT_EQ(desc.resolution, c.after);
    const Bytes file = ReadWhole(path);
    const uint32_t xAt = Get(file, 10 + 12 * 10 + 8, 4, false);
    EXPECT_EQ(Get(file, xAt, 4, false), c.stored);
    EXPECT_EQ(Get(file, xAt + 4, 4, false), 1000u);
    EXPECT_EQ(Get(file, 10 + 12 * 8 + 8, 4, false), c.rowsPerStrip);
  }
}

TEST_F(TiffTest, RoundTripsEveryModelPlanarAndByteOrder) {
  const struct {
    uint32_t model, channels;
  } models[] = {{RasModelGray, 1}, {RasModelRgb, 3}, {RasModelCmyk, 4}, {RasModelLab, 3}};
  // 37 x 700 RGB: 270 rows per strip, the last strip 160 rows; 1 x 9 and
  // 9 x 1 for the degenerate shapes.
  const uint32_t shapes[][2] = {{37, 700}, {1, 9}, {9, 1}};
  std::mt19937 random(7);
  for (const auto &m : models) {
    for (uint32_t planar : {1u, 2u}) {
      for (bool big : {false, true}) {
        for (const auto &shape : shapes) {
          SCOPED_TRACE(testing::Message()
                       << "model " << m.model << " planar " << planar << (big ? " MM " : " II ")
                       << shape[0] << "x" << shape[1]);
          ASSERT_EQ(TiffSetOption(TiffOptPlanar, planar, nullptr), RasOk);
          ASSERT_EQ(TiffSetOption(TiffOptByteOrder, big ? 19789 : 18761, nullptr), RasOk);
          const std::string path = Path("trip.tif");
          RasDesc desc;
          ASSERT_EQ(WriteImage(path.c_str(), &desc, m.model, m.channels, shape[0], shape[1]),
                    RasOk);
          RasDesc in{};
          in.format = RasFormatTiff;
          ASSERT_EQ(RasOpen(path.c_str(), 'r', &in), RasOk);
          EXPECT_EQ(in.width, shape[0]);
          EXPECT_EQ(in.height, shape[1]);
          EXPECT_EQ(in.channels, m.channels);
          EXPECT_EQ(in.model, m.model);
          EXPECT_EQ(in.resolution, 72.0f);
          std::vector<uint32_t> order = InOrder(shape[1]);
          std::shuffle(order.begin(), order.end(), random);
          const auto planes = ReadPlanes(&in, order);
          EXPECT_EQ(RasClose(&in), RasOk);
          for (uint32_t k = 0; k < m.channels; ++k)
            for (uint32_t y = 0; y < shape[1]; ++y)
              for (uint32_t x = 0; x < shape[0]; ++x)
                ASSERT_EQ(planes[k][y * shape[0] + x], Sample(x, y, k))
                    << k << " " << x << " " << y;
        }
      }
    }
  }
}

TEST_F(TiffTest, LabStoresSignedAbInTheFile) {
  for (uint32_t planar : {1u, 2u}) {
    ASSERT_EQ(TiffSetOption(TiffOptPlanar, planar, nullptr), RasOk);
    const std::string path = Path("lab.tif");
    RasDesc desc;
    ASSERT_EQ(WriteImage(path.c_str(), &desc, RasModelLab, 3, 4, 2), RasOk);
    const Bytes file = ReadWhole(path);
    EXPECT_EQ(Get(file, 10 + 12 * 5 + 8, 2, false), 8u);  // photometric CIE L*a*b*
    const uint32_t dataAt = planar == 1 ? 204 : 204 + 24;
    for (uint32_t x = 0; x < 4; ++x) {
      const size_t l = planar == 1 ? dataAt + 3 * x : dataAt + x;
      const size_t a = planar == 1 ? l + 1 : dataAt + 8 + x;
      const size_t b = planar == 1 ? l + 2 : dataAt + 16 + x;
      EXPECT_EQ(file[l], Sample(x, 0, 0));
      EXPECT_EQ(file[a], (Sample(x, 0, 1) + 128) % 256);
      EXPECT_EQ(file[b], (Sample(x, 0, 2) + 128) % 256);
    }
  }
}

TEST_F(TiffTest, ReaderVariants) {
  const Bytes grey = {0, 10, 200, 255, 1, 2, 3, 4};  // 4x2
  RasMemName mem;
  RasDesc desc;
  struct Case {
    const char *what;
    Bytes file;
    uint32_t model;
    float resolution;
    Bytes row1;  // plane 0 of row 1 (all planes for three-sample cases)
  };
  const Bytes rgb = Pattern(2 * 3 * 2);  // 2x2 interleaved
  std::vector<Case> cases = {
      {"min-is-white inverts",
       Builder::Image(false, 4, 2, 1, 0, grey).Build(),
       RasModelGray,
       -1.0f,
       {254, 253, 252, 251}},
      {"MM, SHORT offsets and counts, centimetres",
       Builder::Image(true, 4, 2, 1, 1, grey)
           .Replace(273, 3, {8})
           .Replace(279, 3, {8})
           .Rational(282, 118, 1)
           .Short(296, {3})
           .Build(),
       RasModelGray,
       118 * 2.54f,
       {1, 2, 3, 4}},
      {"two strips, inline SHORT pairs, unit none",
       Builder::Image(false, 4, 2, 1, 1, grey)
           .Replace(273, 3, {8, 12})
           .Replace(279, 3, {4, 4})
           .Replace(278, 4, {1})
           .Rational(282, 300, 2)
           .Short(296, {1})
           .Build(),
       RasModelGray,
       150 * 2.54f,
       {1, 2, 3, 4}},
      {"one BitsPerSample for three samples, unknown tags, inch",
       Builder::Image(false, 2, 2, 3, 2, rgb)
           .Replace(258, 3, {8})
           .Raw(305, 2, 6, {'x', 'y', 'z', 'w', 'v', 0})
           .Short(40000, {5})
           .Rational(282, 600, 2)
           .Build(),
       RasModelRgb,
       300.0f,
       {rgb[6], rgb[9], rgb[7], rgb[10], rgb[8], rgb[11]}},
      {"ICC L*a*b* reads as stored",
       Builder::Image(false, 2, 2, 3, 9, rgb).Build(),
       RasModelLab,
       -1.0f,
       {rgb[6], rgb[9], rgb[7], rgb[10], rgb[8], rgb[11]}},
      {"CIE L*a*b* a and b exchanged",
       Builder::Image(false, 2, 2, 3, 8, rgb).Build(),
       RasModelLab,
       -1.0f,
       {rgb[6], rgb[9], uint8_t(rgb[7] ^ 0x80), uint8_t(rgb[10] ^ 0x80), uint8_t(rgb[8] ^ 0x80),
        uint8_t(rgb[11] ^ 0x80)}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(OpenMemory(c.file, &mem, &desc), RasOk);
    EXPECT_EQ(desc.model, c.model);
    EXPECT_NEAR(desc.resolution, c.resolution, 1e-3);
    RasSl sl{};
    ASSERT_EQ(RasReadSl(&desc, 1, &sl), RasOk);
    Bytes row;
    for (uint32_t k = 0; k < desc.channels; ++k)
      row.insert(row.end(), sl.plane8[k], sl.plane8[k] + desc.width);
    EXPECT_EQ(row, c.row1);
    RasFreeSl(&sl);
    EXPECT_EQ(RasClose(&desc), RasOk);
  }
}

TEST_F(TiffTest, RefusalsCarryTheirCodes) {
  const Bytes px = Pattern(48);
  const auto rgb = [&](bool big = false) { return Builder::Image(big, 4, 4, 3, 2, px); };
  Builder magic = rgb();
  magic.magic = 43;  // BigTIFF
  Builder wrong = rgb(true);
  wrong.magic = 0x2A00;
  Bytes order = rgb().Build();
  order[0] = 'M';
  const struct {
    const char *what;
    Bytes file;
    Logged inner;
    int openDetail;
  } cases[] = {
      {"BigTIFF", magic.Build(), {"TiffOpen", -8, 5}, 5},
      {"wrong magic", wrong.Build(), {"TiffOpen", -8, 5}, 5},
      {"mixed byte order", order, {"TiffOpen", -8, 4}, 4},
      {"too short", {'I', 'I', 42, 0, 8}, {"TiffOpen", -8, 3}, 3},
      {"LZW", rgb().Replace(259, 3, {5}).Build(), {"TiffCheckTRH", -9, 0}, 10},
      {"tiled",
       rgb().Drop(273).Drop(279).Long(322, {16}).Long(323, {16}).Build(),
       {"TiffCheckTRH", -9, 0},
       10},
      {"zero width", rgb().Replace(256, 4, {0}).Build(), {"TiffCheckTRH", -9, 0}, 10},
      {"planar 3", rgb().Short(284, {3}).Build(), {"TiffCheckTRH", -9, 1}, 10},
      {"16 bits", rgb().Replace(258, 3, {16, 16, 16}).Build(), {"TiffCheckTRH", -9, 2}, 10},
      {"1 bit",
       Builder::Image(false, 8, 1, 1, 0, {0x55}).Replace(258, 3, {1}).Build(),
       {"TiffCheckTRH", -9, 2},
       10},
      {"no BitsPerSample (1 bit)", rgb().Drop(258).Build(), {"TiffCheckTRH", -9, 2}, 10},
      {"two samples", Builder::Image(false, 4, 4, 2, 1, px).Build(), {"TiffCheckTRH", -9, 2}, 10},
      {"palette", Builder::Image(false, 4, 4, 1, 3, px).Build(), {"TiffCheckTRH", -9, 3}, 10},
      {"RGB with alpha",
       Builder::Image(false, 2, 4, 4, 2, px).Short(338, {2}).Build(),
       {"TiffCheckTRH", -9, 3},
       10},
      {"YCbCr", rgb().Replace(262, 3, {6}).Build(), {"TiffCheckTRH", -9, 3}, 10},
      {"no photometric", rgb().Drop(262).Build(), {"TiffCheckTRH", -9, 3}, 10},
      {"strip table too short", rgb().Replace(278, 4, {1}).Build(), {"TiffOpen", -9, 25}, 25},
      {"absurd height", rgb().Replace(257, 4, {2000000}).Build(), {"TiffOpen", -9, 24}, 24},
      {"RATIONAL width",
       rgb().Drop(256).Rational(256, 4, 1).Build(),
       {"TiffProcessIFDE", -9, 0},
       9},
      {"strip table beyond the file",
       rgb().Drop(273).Raw(273, 4, 3, {0xF0, 0xFF, 0, 0}).Build(),
       {"TiffProcessIFDE", -5, 3},
       9},
      {"huge strip count",
       rgb().Raw(273, 4, 0x40000000, {0, 1, 0, 0}).Build(),
       {"TiffProcessIFDE", -9, 1},
       9},
      {"directory past the end",
       [&] {
         Bytes b = rgb().Build();
         b[4] = 0xF0;
         b[5] = 0xFF;
         return b;
       }(),
       {"TiffReadIFDE", -8, 0},
       8},
      {"no entries",
       [&] {
         Bytes b = rgb().Build();
         b[Get(b, 4, 4, false)] = 0;
         return b;
       }(),
       {"TiffReadIFDE", -9, 2},
       8},
      {"directory cut short",
       [&] {
         Bytes b = rgb().Build();
         b.resize(Get(b, 4, 4, false) + 30);
         return b;
       }(),
       {"TiffReadIFDE", -5, 4},
       8},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    ClearLog();
    RasMemName mem;
    RasDesc desc;
    EXPECT_EQ(OpenMemory(c.file, &mem, &desc), c.inner.code);
    EXPECT_EQ(desc.state, nullptr);
    ExpectReported(c.inner);
    ExpectLast({"TiffOpen", c.inner.code, c.openDetail});
  }
}

TEST_F(TiffTest, RealFilesTheReaderRefuses) {
  const struct {
    const char *file;
    int code;
  } cases[] = {{"libtiff__32bpp-None.tiff", -9},       {"libtiff__minisblack-1c-16b.tiff", -9},
               {"libtiff__miniswhite-1c-1b.tiff", -9}, {"libtiff__palette-1c-8b.tiff", -9},
               {"pillow__hopper_lzw.tif", -9},         {"pillow__tiff_tiled_raw.tif", -9},
               {"pillow__hopper_bigtiff.tif", -8}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.file);
    RasDesc desc{};
    desc.format = RasFormatTiff;
    EXPECT_EQ(RasOpen((std::string(KORVEL_TESTDATA_DIR) + "/tiff/" + c.file).c_str(), 'r', &desc),
              c.code);
    EXPECT_EQ(desc.state, nullptr);
  }
}

// The same picture stored interleaved and plane by plane by another program
// must read the same.
TEST_F(TiffTest, RealContiguousAndPlanarFilesAgree) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/tiff/";
  std::vector<Bytes> pictures[2];
  const char *names[] = {"oiioimg__libtiffpic_depth_flower-separated-contig-08.tif",
                         "oiioimg__libtiffpic_depth_flower-separated-planar-08.tif"};
  for (int i = 0; i < 2; ++i) {
    RasDesc desc{};
    ASSERT_EQ(RasGetInfo((dir + names[i]).c_str(), &desc), RasOk);
    ASSERT_EQ(desc.format, RasFormatTiff);
    ASSERT_EQ(RasOpen((dir + names[i]).c_str(), 'r', &desc), RasOk);
    EXPECT_EQ(desc.model, RasModelCmyk);
    EXPECT_EQ(desc.width, 73u);
    EXPECT_EQ(desc.height, 43u);
    pictures[i] = ReadPlanes(&desc, InOrder(desc.height));
    EXPECT_EQ(RasClose(&desc), RasOk);
  }
  EXPECT_EQ(pictures[0], pictures[1]);
  EXPECT_NE(pictures[0][0], pictures[0][3]);  // not a flat picture
}

TEST_F(TiffTest, ShortStripsAreReadErrors) {
  const Bytes px = Pattern(4 * 6);  // 4x6 grey, two strips of three rows
  Builder b = Builder::Image(false, 4, 6, 1, 1, px).Replace(278, 4, {3});
  // The second strip's byte count covers only its first row.
  const Bytes counted = b.Replace(273, 4, {8, 20}).Replace(279, 4, {12, 4}).Build();
  RasMemName mem;
  RasDesc desc;
  ASSERT_EQ(OpenMemory(counted, &mem, &desc), RasOk);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(&desc, 3, &sl), RasOk);
  ClearLog();
  EXPECT_EQ(RasReadSl(&desc, 4, &sl), -5);
  ExpectLast({"TiffReadSl", -5, 5});
  EXPECT_EQ(RasReadSl(&desc, 2, &sl), RasOk);  // the file stays usable
  EXPECT_EQ(Bytes(sl.plane8[0], sl.plane8[0] + 4), Bytes(px.begin() + 8, px.begin() + 12));
  EXPECT_EQ(RasClose(&desc), RasOk);

  // A second strip that runs past the end of the file: its first row is
  // inside, its second is not.
  const size_t size = b.Build().size();
  const Bytes cut =
      b.Replace(273, 4, {8, static_cast<uint32_t>(size - 6)}).Replace(279, 4, {12, 12}).Build();
  ASSERT_EQ(cut.size(), size);
  ASSERT_EQ(OpenMemory(cut, &mem, &desc), RasOk);
  EXPECT_EQ(RasReadSl(&desc, 3, &sl), RasOk);
  ClearLog();
  EXPECT_EQ(RasReadSl(&desc, 4, &sl), -5);
  ExpectLast({"TiffReadSl", -5, 6});
  EXPECT_EQ(RasClose(&desc), RasOk);
  RasFreeSl(&sl);
}

TEST_F(TiffTest, ShortWritesReportTheItemAndLeaveNothingOpen) {
  // 200x120 RGB with a three-word IPTC block: 15 entries end at 194; bits
  // 194..200, offsets 200..212, counts 212..224, rationals 224..240, IPTC
  // 240..252, pixels from 252.
  const Bytes source =
      Builder::Image(false, 1, 1, 1, 1, {9}).Raw(33723, 1, 12, Pattern(12)).Build();
  RasMemName mem;
  RasDesc in;
  ASSERT_EQ(OpenMemory(source, &mem, &in), RasOk);
  ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), RasOk);
  ASSERT_EQ(RasClose(&in), RasOk);
  ASSERT_EQ(TiffGetOption(TiffOptCopyIptc), 3u);
  const struct {
    size_t capacity;
    int detail;
  } cases[] = {{4, 15},   {9, 16},   {30, 17},  {192, 18}, {196, 19},
               {205, 20}, {220, 21}, {230, 22}, {245, 23}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.detail);
    ClearLog();
    Bytes block(c.capacity);
    RasMakeMemName(&mem, block.data(), block.size());
    RasDesc desc;
    ASSERT_EQ(RasSetDesc(&desc, RasFormatTiff, 200, 120, 3, RasModelRgb, 72.0f), RasOk);
    EXPECT_EQ(RasOpen(RasMemNameOf(mem), 'w', &desc), -6);
    EXPECT_EQ(desc.state, nullptr);
    ExpectLast({"TiffOpen", -6, c.detail});
    if (c.detail == 17) ExpectReported({"TiffWriteIFDE", -6, 0});
  }
  // Room for the head and part of the first strip: the strip's row fails.
  Bytes block(252 + 100);
  RasMakeMemName(&mem, block.data(), block.size());
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatTiff, 200, 120, 3, RasModelRgb, 72.0f), RasOk);
  ASSERT_EQ(RasOpen(RasMemNameOf(mem), 'w', &desc), RasOk);
  RasSl sl;
  ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);
  for (uint32_t y = 0; y < 49; ++y)
    ASSERT_EQ(RasWriteSl(&desc, y, &sl), RasOk);  // still in the strip buffer
  EXPECT_EQ(RasWriteSl(&desc, 49, &sl), -6);
  ExpectLast({"TiffWriteSl", -6, 5});
  EXPECT_EQ(RasClose(&desc), RasOk);
  RasFreeSl(&sl);
}

TEST_F(TiffTest, WriterTakesRowsInOrderOnceAndRefusesWhatItCannotWrite) {
  const std::string path = Path("order.tif");
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatTiff, 4, 3, 1, RasModelGray, 72.0f), RasOk);
  int64_t expected = 12345;
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &expected), RasOk);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc), RasOk);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &expected), RasOk);
  EXPECT_EQ(expected, 12345);  // restored after the open
  (void)RasFileSetOption(RasFileOptReset, nullptr);
  RasSl sl;
  ASSERT_EQ(RasMakeSl(&sl, &desc), RasOk);
  const struct {
    uint32_t row;
    int code;
    int detail;
  } steps[] = {{1, -1, 3}, {0, 0, 0}, {0, -1, 3}, {2, -1, 3}, {3, -1, 2}, {1, 0, 0}, {2, 0, 0}};
  for (const auto &s : steps) {
    std::fill(sl.plane8[0], sl.plane8[0] + 4, static_cast<uint8_t>(10 + s.row));
    ClearLog();
    EXPECT_EQ(RasWriteSl(&desc, s.row, &sl), s.code) << s.row;
    if (s.code != RasOk) ExpectLast({"TiffWriteSl", s.code, s.detail});
  }
  EXPECT_EQ(RasClose(&desc), RasOk);
  const Bytes file = ReadWhole(path);
  ASSERT_EQ(file.size(), 186u + 12u);
  EXPECT_EQ(Bytes(file.begin() + 186, file.end()),
            Bytes({10, 10, 10, 10, 11, 11, 11, 11, 12, 12, 12, 12}));

  // Descriptors no TIFF file of ours can hold: nothing is created.
  const struct {
    uint32_t width, height, channels, model;
    int detail;
  } refused[] = {{0, 5, 3, RasModelRgb, 11}, {5, 0, 1, RasModelGray, 11},
                 {5, 5, 1, RasModelRgb, 11}, {5, 5, 3, RasModelCmyk, 11},
                 {5, 5, 4, RasModelLab, 11}, {70000, 70000, 3, RasModelRgb, 12}};
  for (const auto &r : refused) {
    SCOPED_TRACE(r.detail);
    const std::string name = Path("refused.tif");
    ASSERT_EQ(RasSetDesc(&desc, RasFormatTiff, r.width, r.height, r.channels, r.model, 72.0f),
              RasOk);
    EXPECT_EQ(RasOpen(name.c_str(), 'w', &desc), -1);
    ExpectLast({"TiffOpen", -1, r.detail});
    EXPECT_EQ(desc.state, nullptr);
    EXPECT_NE(access(name.c_str(), F_OK), 0);
  }
  RasFreeSl(&sl);
}

TEST_F(TiffTest, OptionsAndTheIptcBlockFromFileToFile) {
  EXPECT_EQ(TiffGetOption(TiffOptPlanar), 1u);
  EXPECT_EQ(TiffGetOption(TiffOptByteOrder), 18761u);
  EXPECT_EQ(TiffGetOption(4), 65535u);
  EXPECT_EQ(TiffGetOption(-1), 65535u);
  EXPECT_EQ(TiffSetOption(TiffOptPlanar, 3, nullptr), -1);
  EXPECT_EQ(TiffSetOption(TiffOptByteOrder, 18762, nullptr), -1);
  EXPECT_EQ(TiffSetOption(7, 1, nullptr), -1);
  EXPECT_EQ(TiffGetOption(TiffOptPlanar), 1u);
  EXPECT_EQ(TiffGetOption(TiffOptByteOrder), 18761u);

  // A big-endian source whose IPTC block is typed LONG: five bytes of data
  // in two words. The block travels as bytes into a little-endian file.
  const Bytes iptc = {0x1C, 2, 0, 0, 2, 0, 0, 0};
  const Bytes source = Builder::Image(true, 2, 1, 1, 1, {1, 2}).Raw(33723, 4, 2, iptc).Build();
  RasMemName mem;
  RasDesc in;
  ASSERT_EQ(OpenMemory(source, &mem, &in), RasOk);
  ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), RasOk);
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 2u);
  const std::string first = Path("first.tif");
  RasDesc out;
  ASSERT_EQ(WriteImage(first.c_str(), &out, RasModelGray, 1, 2, 1), RasOk);
  Bytes file = ReadWhole(first);
  // 14 entries, the last the IPTC block after the rationals (182 and 190).
  ASSERT_EQ(Get(file, 8, 2, false), 14u);
  EXPECT_EQ(Get(file, 10 + 12 * 13, 2, false), 33723u);
  EXPECT_EQ(Get(file, 10 + 12 * 13 + 2, 2, false), 4u);
  EXPECT_EQ(Get(file, 10 + 12 * 13 + 4, 4, false), 2u);
  EXPECT_EQ(Get(file, 10 + 12 * 13 + 8, 4, false), 198u);
  EXPECT_EQ(Bytes(file.begin() + 198, file.begin() + 206), iptc);
  EXPECT_EQ(Get(file, 10 + 12 * 6 + 8, 4, false), 206u);  // pixels after the block
  ASSERT_EQ(RasClose(&in), RasOk);

  // Reading the written file back and copying again gives the same block.
  ASSERT_EQ(TiffSetOption(TiffOptClearIptc, 0, nullptr), RasOk);
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 0u);
  in = RasDesc{};
  in.format = RasFormatTiff;
  ASSERT_EQ(RasOpen(first.c_str(), 'r', &in), RasOk);
  ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), RasOk);
  ASSERT_EQ(RasClose(&in), RasOk);
  const std::string second = Path("second.tif");
  ASSERT_EQ(TiffSetOption(TiffOptByteOrder, 19789, nullptr), RasOk);
  ASSERT_EQ(WriteImage(second.c_str(), &out, RasModelGray, 1, 2, 1), RasOk);
  file = ReadWhole(second);
  EXPECT_EQ(Bytes(file.begin() + 198, file.begin() + 206), iptc);

  // One word stands inline in its entry.
  const Bytes word = {0x1C, 2, 0, 7};
  ASSERT_EQ(
      OpenMemory(Builder::Image(false, 1, 1, 1, 1, {5}).Raw(33723, 7, 4, word).Build(), &mem, &in),
      RasOk);
  ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), RasOk);
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 1u);
  // Another format's descriptor empties the buffer; a closed TIFF one is refused.
  RasDesc other = in;
  other.format = RasFormatBmp;
  const std::string third = Path("third.tif");
  ASSERT_EQ(WriteImage(third.c_str(), &out, RasModelGray, 1, 1, 1), RasOk);
  ASSERT_EQ(RasClose(&in), RasOk);
  file = ReadWhole(third);
  EXPECT_EQ(Get(file, 8, 2, true), 14u);
  EXPECT_EQ(Bytes(file.begin() + 10 + 12 * 13 + 8, file.begin() + 10 + 12 * 13 + 12), word);
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &other), RasOk);
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 0u);
  ClearLog();
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &in), -1);  // closed: no state
  ExpectLast({"TiffSetOption", -1, 3});
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, nullptr), -1);
}

TEST_F(TiffTest, RealFilesThroughTheWriterAndBack) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/tiff/";
  const struct {
    const char *file;
    uint32_t model;
  } cases[] = {{"oiioimg__libtiffpic_pc260001.tif", RasModelRgb},
               {"pillow__hopper.Lab.tif", RasModelLab},
               {"oiioimg__libtiffpic_jim___dg.tif", RasModelGray},
               {"oiioimg__libtiffpic_depth_flower-rgb-planar-08.tif", RasModelRgb}};
  ASSERT_EQ(TiffSetOption(TiffOptPlanar, 2, nullptr), RasOk);
  ASSERT_EQ(TiffSetOption(TiffOptByteOrder, 19789, nullptr), RasOk);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.file);
    RasDesc in{};
    ASSERT_EQ(RasGetInfo((dir + c.file).c_str(), &in), RasOk);
    ASSERT_EQ(in.format, RasFormatTiff);
    EXPECT_EQ(in.model, c.model);
    ASSERT_EQ(RasOpen((dir + c.file).c_str(), 'r', &in), RasOk);
    std::vector<uint32_t> bottomUp = InOrder(in.height);
    std::reverse(bottomUp.begin(), bottomUp.end());
    const auto original = ReadPlanes(&in, bottomUp);
    const std::string path = Path("copy.tif");
    RasDesc out;
    ASSERT_EQ(
        RasSetDesc(&out, RasFormatTiff, in.width, in.height, in.channels, in.model, in.resolution),
        RasOk);
    ASSERT_EQ(RasClose(&in), RasOk);
    ASSERT_EQ(RasOpen(path.c_str(), 'w', &out), RasOk);
    RasSl sl;
    ASSERT_EQ(RasMakeSl(&sl, &out), RasOk);
    for (uint32_t y = 0; y < out.height; ++y) {
      for (uint32_t k = 0; k < out.channels; ++k)
        std::copy_n(original[k].begin() + y * out.width, out.width, sl.plane8[k]);
      ASSERT_EQ(RasWriteSl(&out, y, &sl), RasOk);
    }
    RasFreeSl(&sl);
    ASSERT_EQ(RasClose(&out), RasOk);
    RasDesc back{};
    back.format = RasFormatTiff;
    ASSERT_EQ(RasOpen(path.c_str(), 'r', &back), RasOk);
    EXPECT_EQ(ReadPlanes(&back, InOrder(back.height)), original);
    EXPECT_EQ(RasClose(&back), RasOk);
  }
}

}  // namespace

// TIFF reader and writer (8-bit samples): exact header, directory and strip
// bytes of written files in both byte orders, round trips in every model and
// planar configuration, hand-built files for the reader's variants and
// refusals, short writes item by item, and IPTC blocks copied into written files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <regex>
#include <tuple>

#include "raster/core/rasfile.h"
#include "raster/tiff.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;

constexpr uint16_t S = 3, L = 4, R = 5;  // SHORT, LONG, RATIONAL

void Add(Bytes &b, bool big, int size, std::initializer_list<uint32_t> values) {
  for (uint32_t v : values)
    PutField(b, b.size(), v, size, big);
}

// An entry: values of its type, or `raw` bytes with `count`.
struct Field {
  uint16_t type;
  std::vector<uint32_t> values;
  Bytes raw = {};
  uint32_t count = 0;
};
using Tags = std::map<uint16_t, Field>;
using Rows = std::initializer_list<std::vector<uint32_t>>;

// Rows of {tag, type, values...} over `tags`; a row {tag} removes the tag.
Tags Entries(Rows rows, Tags tags = {}) {
  for (const auto &r : rows) {
    tags.erase(r[0]);
    if (r.size() > 1) tags[r[0]] = {uint16_t(r[1]), {r.begin() + 2, r.end()}};
  }
  return tags;
}

// One uncompressed strip at offset 8, over `tags`.
Tags Strip(uint32_t width, uint32_t height, uint32_t samples, uint32_t photometric,
           Tags tags = {}) {
  tags[258] = {S, std::vector<uint32_t>(samples, 8)};
  // clang-format off
  return Entries({{256, L, width}, {257, L, height}, {259, S, 1}, {262, S, photometric},
      {273, L, 8}, {277, S, samples}, {278, L, height}, {279, L, width * height * samples}}, tags);
  // clang-format on
}

// How written files start their directory: one strip at `offset`, resolution
// `res` / 1000 in inches, then `more` over these.
Tags Written(uint32_t width, uint32_t height, uint32_t samples, uint32_t photometric,
             uint32_t offset, uint32_t res, Rows more = {}) {
  const Tags tags = Entries(
      {{254, L, 0}, {273, L, offset}, {282, R, res, 1000}, {283, R, res, 1000}, {296, S, 2}},
      Strip(width, height, samples, photometric));
  return Entries(more, tags);
}

// Header, pixels, directory, then the values that do not fit their entries in
// tag order. Without pixels, this is how written files start.
Bytes Build(const Tags &tags, const Bytes &pixels, bool big = false, uint32_t magic = 42) {
  const uint32_t dir = 8 + pixels.size();
  Bytes out{uint8_t(big ? 'M' : 'I'), uint8_t(big ? 'M' : 'I')}, tail;
  Add(out, big, 2, {magic});
  Add(out, big, 4, {dir});
  out.insert(out.end(), pixels.begin(), pixels.end());
  Add(out, big, 2, {uint32_t(tags.size())});
  for (const auto &[tag, f] : tags) {
    Bytes data = f.raw;
    for (uint32_t v : f.values)
      PutField(data, data.size(), v, f.type == S ? 2 : 4, big);
    Add(out, big, 2, {tag, f.type});
    Add(out, big, 4, {f.count ? f.count : f.type == R ? 1 : uint32_t(f.values.size())});
    if (data.size() > 4) Add(out, big, 4, {uint32_t(dir + 6 + 12 * tags.size() + tail.size())});
    data.resize(std::max<size_t>(data.size(), 4));
    Bytes &to = data.size() > 4 ? tail : out;
    to.insert(to.end(), data.begin(), data.end());
  }
  Add(out, big, 4, {0});
  out.insert(out.end(), tail.begin(), tail.end());
  return out;
}

// The pixel bytes a written file ends with: strips of `rows` rows, each
// interleaved (planar 1) or its planes one after another (planar 2); L*a*b*
// a and b stored signed.
Bytes Stored(const Picture &p, bool lab, uint32_t planar, uint32_t rows) {
  Bytes out;
  for (uint32_t y0 = 0; y0 < p.height; y0 += rows)
    for (uint32_t k = 0; k < (planar == 2 ? p.channels : 1); ++k)
      for (uint32_t y = y0; y < std::min(p.height, y0 + rows); ++y)
        for (uint32_t x = 0; x < p.width; ++x)
          for (uint32_t j = planar == 2 ? k : 0; j < (planar == 2 ? k + 1 : p.channels); ++j)
            out.push_back(p.At(x, y, j) ^ (lab && j > 0 ? 0x80 : 0));
  return out;
}

class TiffTest : public testing::Test {
 protected:
  void TearDown() override { SetOptions(1, false); }  // the defaults
  static void SetOptions(uint32_t planar, bool big) {
    ASSERT_EQ(TiffSetOption(TiffOptPlanar, planar, nullptr), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptByteOrder, big ? 19789 : 18761, nullptr), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptClearIptc, 0, nullptr), RasOk);
  }
  // Opens `bytes` (kept alive by the caller) for reading into desc_.
  int Open(const Bytes &bytes) {
    RasMakeMemName(&mem_, const_cast<uint8_t *>(bytes.data()), bytes.size());
    desc_ = RasDesc{0, 0, 0, 0, RasFormatTiff, 0, 0, 0.0f, nullptr};
    return RasOpen(RasMemNameOf(mem_), 'r', &desc_);
  }
  // Copies the IPTC block of a hand-built file into the buffer.
  void CopyIptc(const Field &iptc, bool big = false) {
    const Bytes file = Build(Strip(1, 1, 1, 1, {{33723, iptc}}), {9}, big);
    ASSERT_EQ(Open(file), RasOk);
    ASSERT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &desc_), RasOk);
    ASSERT_EQ(RasClose(&desc_), RasOk);
  }
  // The format's reports since the log was last cleared.
  std::vector<Logged> Chain() const {
    static const std::regex line(R"((Tiff\w+) failed: code (-?\d+) \(.*\) detail (-?\d+))");
    const std::string text = log_.Text();
    std::vector<Logged> all;
    for (std::sregex_iterator i(text.begin(), text.end(), line), end; i != end; ++i)
      all.push_back({(*i)[1], std::stoi((*i)[2]), std::stoi((*i)[3])});
    return all;
  }
  ErrorLog log_;
  RasMemName mem_;
  RasDesc desc_;
};

TEST_F(TiffTest, HeaderDirectoryAndStripBytesInBothByteOrders) {
  // RGB in one strip: its offset and count stand in their entries. Grey: no
  // PlanarConfiguration, BitsPerSample inline; resolution 0 stands for 300.
  // CMYK: InkSet, an IPTC block of a big-endian file byte for byte; -1 stands
  // for 300. 200x120 plane by plane: strips of 50, 50 and 20 rows, each its
  // planes in turn. 2x1 grey with an IPTC block of one word: inline in its entry.
  // clang-format off
  const Tags rgb = Written(100, 100, 3, 2, 204, 72000, {{284, S, 1}});
  const Tags grey = Written(100, 100, 1, 1, 186, 300000);
  Tags cmyk = Written(10, 10, 4, 5, 242, 300000, {{284, S, 1}, {332, S, 1}});
  const Tags planar = Written(200, 120, 3, 2, 0, 72300, {{278, L, 50}, {284, S, 2},
      {273, L, 276, 30276, 60276, 10276, 40276, 64276, 20276, 50276, 68276},
      {279, L, 10000, 10000, 4000, 10000, 10000, 4000, 10000, 10000, 4000}});
  Tags word = Written(2, 1, 1, 1, 198, 72000);
  // clang-format on
  const Bytes iptc = {0x1C, 2, 0, 0, 2, 0, 4, 0x1C, 2, 5, 1, 'x'};
  cmyk[33723] = {L, {}, iptc, 3}, word[33723] = {L, {}, {0x1C, 2, 0, 7}, 1};
  // clang-format off
  const std::tuple<uint32_t, uint32_t, float, Tags> cases[] = {
      {RasModelRgb, 1, 72.0f, rgb}, {RasModelGray, 1, 0.0f, grey}, {RasModelCmyk, 1, -1.0f, cmyk},
      {RasModelRgb, 2, 72.3f, planar}, {RasModelGray, 1, 72.0f, word}};
  // clang-format on
  const std::string path = TempPath("head.tif");
  for (const auto &[model, planarity, resolution, tags] : cases)
    for (bool big : {false, true}) {
      SCOPED_TRACE(testing::Message() << model << " planar " << planarity << (big ? " MM" : " II"));
      SetOptions(planarity, big);
      if (tags.count(33723)) CopyIptc(tags.at(33723), true);
      const Picture picture =
          Pattern(tags.at(256).values[0], tags.at(257).values[0], tags.at(277).values[0]);
      ASSERT_EQ(WritePicture(path, RasFormatTiff, model, picture, resolution), RasOk);
      const Bytes file = ReadFile(path), head = Build(tags, {}, big);
      const Bytes data = Stored(picture, false, planarity, tags.at(278).values[0]);
      ASSERT_EQ(file.size(), head.size() + data.size());
      EXPECT_EQ(Bytes(file.begin(), file.begin() + head.size()), head);
      EXPECT_TRUE(std::equal(data.begin(), data.end(), file.begin() + head.size()));
    }
}

TEST_F(TiffTest, RoundTripsEveryModelPlanarAndByteOrderInAnyRowOrder) {
  const uint32_t models[][2] = {
      {RasModelGray, 1}, {RasModelRgb, 3}, {RasModelCmyk, 4}, {RasModelLab, 3}};
  // 37x700 RGB has strips of 270, 270 and 160 rows; 20000x2 strips of one row.
  const uint32_t shapes[][2] = {{37, 700}, {20000, 2}, {1, 9}, {2, 3},  {3, 2},
                                {4, 5},    {5, 4},     {9, 1}, {17, 3}, {33, 2}};
  std::mt19937 random(7);
  const std::string path = TempPath("trip.tif");
  for (const auto &[model, channels] : models)
    for (uint32_t planar : {1u, 2u})
      for (bool big : {false, true})
        for (const auto &[width, height] : shapes) {
          SCOPED_TRACE(testing::Message() << "model " << model << " planar " << planar << " MM "
                                          << big << " " << width << "x" << height);
          SetOptions(planar, big);
          const Picture picture = Pattern(width, height, channels);
          ASSERT_EQ(WritePicture(path, RasFormatTiff, model, picture), RasOk);
          const Bytes file = ReadFile(path);
          const uint32_t rows = GetField(file, 10 + 12 * 8 + 8, 4, big);  // RowsPerStrip
          EXPECT_TRUE(width < 20000 || rows == 1) << rows;                // never less than one row
          const Bytes data = Stored(picture, model == RasModelLab, channels > 1 ? planar : 1, rows);
          EXPECT_TRUE(file.size() > data.size() &&
                      std::equal(data.begin(), data.end(), file.end() - data.size()));
          std::vector<uint32_t> order(height);
          std::iota(order.begin(), order.end(), 0u);
          std::shuffle(order.begin(), order.end(), random);
          Picture back;
          ASSERT_EQ(ReadPicture(path, &back, &desc_, order), RasOk);
          EXPECT_EQ(desc_.model, model);
          EXPECT_TRUE(back == picture);
        }
}

TEST_F(TiffTest, ReaderVariants) {
  const Bytes grey = {0, 10, 200, 255, 1, 2, 3, 4}, rgb = Pattern(12, 1, 1).planes[0];
  // 4x2 grey: SHORT tables in a big-endian file, centimetres; two strips of one
  // row in inline SHORT pairs, no unit. 2x2 RGB: one BitsPerSample for three
  // samples, unknown tags, inch; or a fourth BitsPerSample for no sample.
  // clang-format off
  const Tags mm = Entries({{273, S, 8}, {279, S, 8}, {282, R, 118, 1}, {296, S, 3}},
      Strip(4, 2, 1, 1));
  const Tags two = Entries({{273, S, 8, 12}, {279, S, 4, 4}, {278, L, 1}, {282, R, 300, 2},
      {296, S, 1}}, Strip(4, 2, 1, 1));
  const Tags one = Entries({{258, S, 8}, {305, L, 1, 2}, {40000, S, 5}, {282, R, 600, 2}},
      Strip(2, 2, 3, 2));
  // clang-format on
  const std::vector<Bytes> rgbPlanes = {{0, 21, 42, 63}, {7, 28, 49, 70}, {14, 35, 56, 77}};
  // clang-format off
  const std::tuple<Bytes, uint32_t, float, std::vector<Bytes>> cases[] = {
      {Build(Strip(4, 2, 1, 0), grey), RasModelGray, -1.0f,  // min-is-white
       {{255, 245, 55, 0, 254, 253, 252, 251}}},
      {Build(mm, grey, true), RasModelGray, 118 * 2.54f, {grey}},
      {Build(two, grey), RasModelGray, 150 * 2.54f, {grey}},
      {Build(one, rgb), RasModelRgb, 300.0f, rgbPlanes},
      {Build(Entries({{258, S, 8, 8, 8, 1}}, Strip(2, 2, 3, 2)), rgb), RasModelRgb, -1.0f,
       rgbPlanes},
      {Build(Strip(2, 2, 3, 9), rgb), RasModelLab, -1.0f, rgbPlanes},  // ICC L*a*b* as stored
      {Build(Strip(2, 2, 3, 8), rgb), RasModelLab, -1.0f,  // CIE L*a*b*: a and b signed
       {{0, 21, 42, 63}, {135, 156, 177, 198}, {142, 163, 184, 205}}}};
  // clang-format on
  const std::string path = TempPath("variant.tif");
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const auto &[file, model, resolution, expected] = cases[i];
    WriteFile(path, file);
    Picture picture;
    ASSERT_EQ(ReadPicture(path, &picture, &desc_), RasOk);
    EXPECT_EQ(desc_.model, model);
    EXPECT_NEAR(desc_.resolution, resolution, 1e-3);
    EXPECT_EQ(picture.planes, expected);
  }
}

TEST_F(TiffTest, RefusalsReportTheirCodeAndDetail) {
  const Bytes px = Pattern(48, 1, 1).planes[0];
  const Tags rgb = Strip(4, 4, 3, 2);
  const auto with = [&](Rows rows) { return Build(Entries(rows, rgb), px); };
  Tags beyond = rgb, huge = rgb, alpha = Entries({{338, S, 2}}, Strip(2, 4, 4, 2));
  beyond[273] = {L, {}, {0xF0, 0xFF, 0, 0}, 3}, huge[273] = {L, {}, {0, 1, 0, 0}, 0x40000000};
  const Logged check{"TiffCheckTRH", -9, 0}, bits{"TiffCheckTRH", -9, 2};
  const Logged model{"TiffCheckTRH", -9, 3}, open{"TiffOpen", -9, 10};
  const Logged tiled{"TiffCheckTRH", -9, 4};
  const std::pair<Bytes, std::vector<Logged>> cases[] = {
      {Build(rgb, px, false, 43), {{"TiffOpen", -8, 5}}},  // BigTIFF
      {Build(rgb, px, true, 0x2A00), {{"TiffOpen", -8, 5}}},
      {{'M', 'I', 42, 0, 8, 0, 0, 0}, {{"TiffOpen", -8, 4}}},
      {{'I', 'I', 42, 0, 8}, {{"TiffOpen", -8, 3}}},
      {with({{259, S, 5}}), {check, open}},  // LZW
      {with({{273}, {279}, {322, L, 16}, {323, L, 16}}), {tiled, open}},
      {with({{324, L, 8}, {325, L, 48}}), {tiled, open}},  // tiles and strips
      {with({{256, L, 0}}), {check, open}},
      {with({{284, S, 3}}), {{"TiffCheckTRH", -9, 1}, open}},
      {with({{258, S, 16, 16, 16}}), {bits, open}},
      {with({{258, S, 8, 16, 8, 8}}), {bits, open}},
      {Build(Entries({{258, S, 1}}, Strip(8, 1, 1, 0)), {0x55}), {bits, open}},  // 1 bit
      {with({{258}}), {bits, open}},                                             // 1 bit by default
      {Build(Strip(4, 4, 2, 1), px), {bits, open}},
      {Build(Strip(4, 4, 1, 3), px), {model, open}},  // palette
      {Build(alpha, px), {model, open}},              // extra samples
      {with({{262, S, 6}}), {model, open}},           // YCbCr
      {with({{262}}), {model, open}},
      {with({{278, L, 1}}), {{"TiffOpen", -9, 25}}},  // strip tables too short
      {with({{257, L, 2000000}}), {{"TiffOpen", -9, 24}}},
      {with({{256, R, 4, 1}}), {{"TiffProcessIFDE", -9, 0}, {"TiffOpen", -9, 9}}},
      {Build(beyond, px), {{"TiffProcessIFDE", -5, 3}, {"TiffOpen", -5, 9}}},
      {Build(huge, px), {{"TiffProcessIFDE", -9, 1}, {"TiffOpen", -9, 9}}},
      {{'I', 'I', 42, 0, 0xF0, 0xFF, 0, 0}, {{"TiffReadIFDE", -8, 0}, {"TiffOpen", -8, 8}}},
      {Build({}, px), {{"TiffReadIFDE", -9, 2}, {"TiffOpen", -9, 8}}},
      {{'I', 'I', 42, 0, 8, 0, 0, 0, 9, 0}, {{"TiffReadIFDE", -5, 4}, {"TiffOpen", -5, 8}}}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const auto &[file, chain] = cases[i];
    log_.Clear();
    EXPECT_EQ(Open(file), chain.back().code);
    EXPECT_EQ(desc_.state, nullptr);
    EXPECT_EQ(Chain(), chain);
  }
}

TEST_F(TiffTest, PicturesBeyondThePixelLimitAreRefusedBeforeTheirRows) {
  // 500 million pixels is the limit itself; one row more is refused by the
  // generic open after the reader took the file, and by the probe.
  for (const auto &[height, code] : {std::pair{20000u, 0}, {20001u, -9}}) {
    SCOPED_TRACE(height);
    const Bytes file = Build(Strip(25000, height, 1, 1), {});
    log_.Clear();
    EXPECT_EQ(Open(file), code);
    EXPECT_EQ(log_.Last(), (code ? Logged{"RasOpen", -9, 4} : Logged{}));
    EXPECT_EQ(RasPixelLimitRefused(), code != 0);
    EXPECT_EQ(std::pair(desc_.width, desc_.height), std::pair(25000u, height));
    EXPECT_EQ(desc_.state ? RasClose(&desc_) : RasOk, RasOk);
    RasDesc probed{};
    EXPECT_EQ(RasGetInfo(RasMemNameOf(mem_), &probed), code);
    EXPECT_EQ(probed.state, nullptr);
  }
}

TEST_F(TiffTest, StripsShorterThanTheirRowsAreReadErrors) {
  const Bytes px = Pattern(24, 1, 1).planes[0];  // 4x6 grey, two strips of three rows
  const Tags tags = Entries({{278, L, 3}, {273, L, 8, 20}, {279, L, 12, 4}}, Strip(4, 6, 1, 1));
  // The second strip's count covers one row; then its second row lies past
  // the end of the file (162 bytes).
  const Bytes counted = Build(tags, px);
  const Bytes cut = Build(Entries({{273, L, 8, 156}, {279, L, 12, 12}}, tags), px);
  for (const auto &[file, detail] : {std::pair{counted, 5}, std::pair{cut, 6}}) {
    SCOPED_TRACE(detail);
    ASSERT_EQ(Open(file), RasOk);
    RasSl sl{};
    EXPECT_EQ(RasReadSl(&desc_, 3, &sl), RasOk);
    EXPECT_EQ(RasReadSl(&desc_, 4, &sl), -5);
    EXPECT_EQ(log_.Last(), (Logged{"TiffReadSl", -5, detail}));
    ASSERT_EQ(RasReadSl(&desc_, 2, &sl), RasOk);  // the file stays usable
    EXPECT_EQ(Bytes(sl.plane8[0], sl.plane8[0] + 4), Bytes(px.begin() + 8, px.begin() + 12));
    RasFreeSl(&sl);
    EXPECT_EQ(RasClose(&desc_), RasOk);
  }
}

TEST_F(TiffTest, ShortWritesReportTheItemAndLeaveNothingOpen) {
  // 200x120 RGB with three IPTC words: 15 entries end at 194; bits 194..200,
  // offsets 200..212, counts 212..224, rationals 224..240, IPTC 240..252.
  CopyIptc({1, {}, Pattern(12, 1, 1).planes[0], 12});
  ASSERT_EQ(TiffGetOption(TiffOptCopyIptc), 3u);
  RasSl sl;
  ASSERT_EQ(RasSetDesc(&desc_, RasFormatTiff, 200, 120, 3, RasModelRgb, 72.0f), RasOk);
  ASSERT_EQ(RasMakeSl(&sl, &desc_), RasOk);
  // With room for the head and some of the first strip, the strip's last row
  // fails (detail 5).
  const std::pair<size_t, int> cases[] = {{4, 15},   {9, 16},   {30, 17},  {192, 18}, {196, 19},
                                          {205, 20}, {220, 21}, {230, 22}, {245, 23}, {352, 5}};
  for (const auto &[capacity, detail] : cases) {
    SCOPED_TRACE(detail);
    log_.Clear();
    Bytes block(capacity);
    RasMakeMemName(&mem_, block.data(), block.size());
    int code = RasOpen(RasMemNameOf(mem_), 'w', &desc_);
    uint32_t rows = 0;
    while (code == RasOk)
      code = RasWriteSl(&desc_, rows++, &sl);
    EXPECT_EQ(code, -6);
    EXPECT_EQ(rows, detail == 5 ? 50u : 0u);
    std::vector<Logged> chain{{detail == 5 ? "TiffWriteSl" : "TiffOpen", -6, detail}};
    if (detail == 17) chain.insert(chain.begin(), {"TiffWriteIFDE", -6, 0});
    EXPECT_EQ(Chain(), chain);
    EXPECT_EQ(desc_.state != nullptr, detail == 5);  // a failed open leaves nothing open
    EXPECT_EQ(desc_.state ? RasClose(&desc_) : RasOk, RasOk);
  }
  RasFreeSl(&sl);
}

TEST_F(TiffTest, WriterTakesRowsInOrderOnceAndRefusesWhatItCannotWrite) {
  const std::string path = TempPath("order.tif");
  ASSERT_EQ(RasSetDesc(&desc_, RasFormatTiff, 4, 3, 1, RasModelGray, 0.0f), RasOk);
  int64_t expected = 12345;
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &expected), RasOk);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc_), RasOk);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &expected), RasOk);
  EXPECT_EQ(expected, 12345);           // restored after the open
  EXPECT_EQ(desc_.resolution, 300.0f);  // what went into the file
  (void)RasFileSetOption(RasFileOptReset, nullptr);
  RasSl sl;
  ASSERT_EQ(RasMakeSl(&sl, &desc_), RasOk);
  // Row, code, detail; a refused row must not land.
  const int steps[][3] = {{1, -1, 3}, {0, 0, 0}, {0, -1, 3}, {2, -1, 3},
                          {3, -1, 2}, {1, 0, 0}, {2, 0, 0}};
  for (const auto &[row, code, detail] : steps) {
    std::fill(sl.plane8[0], sl.plane8[0] + 4, code ? 99 : 10 + row);
    log_.Clear();
    EXPECT_EQ(RasWriteSl(&desc_, row, &sl), code) << row;
    EXPECT_EQ(log_.Last(), (code ? Logged{"TiffWriteSl", code, detail} : Logged{}));
  }
  RasFreeSl(&sl);
  EXPECT_EQ(RasClose(&desc_), RasOk);
  const Bytes file = ReadFile(path);
  ASSERT_EQ(file.size(), 186u + 12u);
  EXPECT_EQ(Bytes(file.begin() + 186, file.end()),
            Bytes({10, 10, 10, 10, 11, 11, 11, 11, 12, 12, 12, 12}));
  // Descriptors no TIFF file of ours can hold: nothing is created.
  const uint32_t refused[][5] = {{0, 5, 3, RasModelRgb, 11}, {5, 0, 1, RasModelGray, 11},
                                 {5, 5, 1, RasModelRgb, 11}, {5, 5, 3, RasModelCmyk, 11},
                                 {5, 5, 4, RasModelLab, 11}, {70000, 70000, 3, RasModelRgb, 12}};
  const std::string name = TempPath("refused.tif");
  for (const auto &[width, height, channels, model, detail] : refused) {
    SCOPED_TRACE(detail);
    ASSERT_EQ(RasSetDesc(&desc_, RasFormatTiff, width, height, channels, model, 72.0f), RasOk);
    EXPECT_EQ(RasOpen(name.c_str(), 'w', &desc_), -1);
    EXPECT_EQ(log_.Last(), (Logged{"TiffOpen", -1, int(detail)}));
    EXPECT_EQ(desc_.state, nullptr);
    EXPECT_NE(access(name.c_str(), F_OK), 0);
  }
}

TEST_F(TiffTest, OptionsRefuseWhatTheyCannotHold) {
  EXPECT_EQ(TiffGetOption(4), 65535u);
  EXPECT_EQ(TiffGetOption(-1), 65535u);
  const int bad[][3] = {{TiffOptPlanar, 3, 1}, {TiffOptByteOrder, 18762, 2}, {7, 1, 0}};
  for (const auto &[option, value, detail] : bad) {
    EXPECT_EQ(TiffSetOption(option, value, nullptr), -1);
    EXPECT_EQ(log_.Last(), (Logged{"TiffSetOption", -1, detail}));
  }
  EXPECT_EQ(TiffGetOption(TiffOptPlanar), 1u);
  EXPECT_EQ(TiffGetOption(TiffOptByteOrder), 18761u);
  // Another format's descriptor empties the IPTC buffer; a descriptor without
  // state is refused.
  CopyIptc({7, {}, {0x1C, 2, 0, 7}, 4});
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 1u);
  RasDesc other{};
  other.format = RasFormatBmp;
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &other), RasOk);
  EXPECT_EQ(TiffGetOption(TiffOptCopyIptc), 0u);
  other.format = RasFormatTiff;
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, &other), -1);
  EXPECT_EQ(log_.Last(), (Logged{"TiffSetOption", -1, 3}));
  EXPECT_EQ(TiffSetOption(TiffOptCopyIptc, 0, nullptr), -1);
}

}  // namespace

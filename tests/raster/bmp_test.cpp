// BMP reader and writer: exact header bytes, row layout and padding, round
// trips in any row order, hand-built files for the reader's variants and
// refusals (with the detail each refusal reports through the error log).
#include <gtest/gtest.h>

#include <tuple>

#include "raster/core/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// A hand-built file; fields past `headerSize` are cut off.
Bytes MakeBmp(int32_t width, int32_t height, uint32_t bits, const Bytes &palette,
              const Bytes &pixels, uint32_t headerSize = 40, int32_t ppm = 2835) {
  const auto offset = uint32_t(14 + headerSize + palette.size()), w = uint32_t(width);
  // clang-format off
  const uint32_t fields[][3] = {{2, offset + uint32_t(pixels.size()), 4}, {10, offset, 4},
      {14, headerSize, 4}, {18, w, 4}, {22, uint32_t(height), 4}, {26, 1, 2}, {28, bits, 2},
      {38, uint32_t(ppm), 4}, {42, uint32_t(ppm), 4}};
  // clang-format on
  Bytes b{'B', 'M'};
  for (const auto &[at, value, size] : fields)
    PutField(b, at, value, int(size));
  b.resize(14 + headerSize);
  b.insert(b.end(), palette.begin(), palette.end());
  b.insert(b.end(), pixels.begin(), pixels.end());
  return b;
}

// Entry i grey 255 - 16 i, except that entries from `from` on get `byte` = value.
Bytes Palette(int entries, int from = 1000, int byte = 0, uint8_t value = 0) {
  Bytes p;
  for (int i = 0; i < entries; ++i) {
    const auto v = static_cast<uint8_t>(255 - 16 * i);
    p.insert(p.end(), {v, v, v, 0});
    if (i >= from) p[4 * i + byte] = value;
  }
  return p;
}

// Rows from the bottom and the top in turn.
std::vector<uint32_t> Mixed(uint32_t height) {
  std::vector<uint32_t> rows;
  for (uint32_t i = 0; i < height; ++i)
    rows.push_back(i % 2 ? i / 2 : height - 1 - i / 2);
  return rows;
}

// The result and the log's last report; clears the log so that the next
// check needs a report of its own.
void ExpectError(const ErrorLog &log, int result, const char *function, int code, int detail) {
  EXPECT_EQ(result, code);
  EXPECT_EQ(log.Last(), (Logged{function, code, detail}));
  log.Clear();
}

// Exact header and palette, rows stored bottom-up with blue first and zero
// padding, written and read in mixed row order: every padding case, and the
// 16-pixel row routine with and without its tail. The writer leaves the
// expected-size option as it found it.
TEST(Bmp, WritesExactBytesAndReadsThemBack) {
  const int64_t option = 12345;
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &option), RasOk);
  const uint32_t shapes[][4] = {// width, height, RGB stride, grey stride
                                {1, 1, 4, 4},    {1, 7, 4, 4},     {2, 4, 8, 4},
                                {3, 3, 12, 4},   {4, 2, 12, 4},    {5, 3, 16, 8},
                                {7, 1, 24, 8},   {13, 9, 40, 16},  {16, 2, 48, 16},
                                {17, 3, 52, 20}, {33, 5, 100, 36}, {37, 3, 112, 40}};
  for (const uint32_t model : {RasModelRgb, RasModelGray}) {
    for (const auto &[width, height, rgbStride, greyStride] : shapes) {
      SCOPED_TRACE(testing::Message() << model << ": " << width << "x" << height);
      const bool grey = model == RasModelGray;
      const uint32_t bpp = grey ? 1 : 3, ppm = grey ? 2835 : 11811;
      const uint32_t stride = grey ? greyStride : rgbStride;
      const std::string path = TempPath("write.bmp");
      const Picture p = Pattern(width, height, bpp);
      const std::vector<uint32_t> order = Mixed(height);
      RasDesc desc;
      ASSERT_EQ(WritePicture(path, RasFormatBmp, model, p, grey ? 72.0f : -1.0f, &desc, order),
                RasOk);
      EXPECT_EQ(desc.resolution, grey ? 72.0f : 300.0f);
      int64_t now = 0;
      EXPECT_TRUE(RasFileGetOption(RasFileOptExpectedSize, &now) == RasOk && now == option);
      Bytes palette, pixels;  // grey identity palette; rows bottom-up, blue first, zero padding
      for (uint32_t i = 0; grey && i < 256; ++i)
        palette.insert(palette.end(), {uint8_t(i), uint8_t(i), uint8_t(i), 0});
      for (uint32_t y = height; y-- > 0;) {
        for (uint32_t x = 0; x < width; ++x)
          for (uint32_t k = bpp; k-- > 0;)
            pixels.push_back(p.At(x, y, k));
        pixels.resize(pixels.size() + stride - width * bpp);
      }
      EXPECT_EQ(ReadFile(path), MakeBmp(width, height, bpp * 8, palette, pixels, 40, ppm));
      Picture back;
      ASSERT_EQ(ReadPicture(path, &back, &desc, {order.rbegin(), order.rend()}), RasOk);
      EXPECT_TRUE(back == p);
      EXPECT_NEAR(desc.resolution, grey ? 72.009f : 299.999f, 0.001f);
    }
  }
  ASSERT_EQ(RasFileSetOption(RasFileOptReset, nullptr), RasOk);
}

// Top-down rows; palettes grey (identity past a short one), coloured, full or
// oversized; a short header keeps the default resolution and never reads
// compression from the pixels behind it.
TEST(Bmp, ReadsHandBuiltVariants) {
  const Bytes row{0, 5, 200, 0}, high{255, 3, 0, 0}, green{15, 207, 255, 7, 207, 255, 15, 207, 255};
  const Bytes blue{255, 175, 200, 255, 175, 200, 255, 1, 200};
  // Stored row s, pixel x: blue 10 s + x, green 100 + s, red 200 + x, 2 padding bytes.
  const Bytes downFile{0,   100, 200,  1,    100, 201, 0xEE, 0xEE, 10,  101, 200,  11,
                       101, 201, 0xEE, 0xEE, 20,  102, 200,  21,   102, 201, 0xEE, 0xEE};
  const Bytes down{200, 201, 200, 201, 200, 201, 100, 100, 101,
                   101, 102, 102, 0,   1,   10,  11,  20,  21};
  // what, resolution, planes one after another, rows read, file
  const std::tuple<const char *, float, Bytes, std::vector<uint32_t>, Bytes> cases[] = {
      {"top-down", 299.999f, down, {2, 0, 1, 1}, MakeBmp(2, -3, 24, {}, downFile, 40, 11811)},
      {"grey palette", 72.009f, {255, 175, 200}, {}, MakeBmp(3, 1, 8, Palette(16), row)},
      {"coloured entry", 72.009f, blue, {}, MakeBmp(3, 1, 8, Palette(16, 5, 0, 1), row, 124)},
      {"full palette", 72.009f, green, {}, MakeBmp(3, 1, 8, Palette(256, 255, 1, 7), high)},
      {"oversized palette", 72.009f, green, {}, MakeBmp(3, 1, 8, Palette(300, 255, 1, 7), high)},
      {"short header", 300.0f, {0, 5, 200}, {}, MakeBmp(3, 1, 8, {}, row, 16)},
  };
  for (const auto &[what, resolution, planes, order, file] : cases) {
    SCOPED_TRACE(what);
    const std::string path = TempPath("variant.bmp");
    WriteFile(path, file);
    Picture got;
    RasDesc desc;
    ASSERT_EQ(ReadPicture(path, &got, &desc, order), RasOk);
    EXPECT_EQ(desc.model, got.channels == 1 ? RasModelGray : RasModelRgb);
    EXPECT_NEAR(desc.resolution, resolution, 0.001f);
    Bytes all;
    for (const Bytes &plane : got.planes)
      all.insert(all.end(), plane.begin(), plane.end());
    EXPECT_EQ(all, planes);
  }
}

// Another program wrote the same picture with other headers, palette sizes,
// offsets and row orders: each variant reads as its reference.
TEST(Bmp, RealFileVariantsReadAlike) {
  const std::string dir = std::string(KORVEL_TESTDATA_DIR) + "/bmp/";
  const char *const pairs[][2] = {{"g_pal8topdown", "g_pal8"},  {"g_pal8v5", "g_pal8"},
                                  {"q_pal8offs", "g_pal8"},     {"q_pal8os2v2", "g_pal8"},
                                  {"q_pal8os2v2-16", "g_pal8"}, {"q_pal8oversizepal", "g_pal8"},
                                  {"g_pal8-0", "g_pal8"},       {"q_rgb24largepal", "g_rgb24"}};
  for (const auto &[variant, reference] : pairs) {
    SCOPED_TRACE(variant);
    Picture want, got;
    ASSERT_EQ(ReadPicture(dir + "pillow__bmp_" + reference + ".bmp", &want), RasOk);
    ASSERT_EQ(ReadPicture(dir + "pillow__bmp_" + variant + ".bmp", &got), RasOk);
    EXPECT_EQ(want.width * want.height * want.channels, 127u * 64u * 3u);
    EXPECT_TRUE(got == want);
  }
}

// The same file stored top-down: rows in the other order, height negated.
Bytes TopDown(const Bytes &file, uint32_t stride, uint32_t height) {
  const uint32_t offset = GetField(file, 10, 4);
  Bytes b(file.begin(), file.begin() + offset);
  for (uint32_t s = height; s-- > 0;)
    b.insert(b.end(), file.begin() + offset + s * stride, file.begin() + offset + (s + 1) * stride);
  PutField(b, 22, uint32_t(-int32_t(height)), 4);
  return b;
}

// Disk files taken in order go through blocks of rows: whole blocks, a last
// part block, a single row, rows too long for a block, both storage orders.
// The bytes equal those the row-by-row writer puts in a memory block; rows
// read in order and out of order equal the picture; a file cut inside a row
// reads every whole row before the cut and then fails as before.
TEST(Bmp, BlocksOfRowsMatchRowByRow) {
  ErrorLog log;
  const uint32_t shapes[][3] = {// width, height, channels
                                {1, 70000, 3},  {3000, 70, 3},  {21845, 3, 3}, {5000, 1, 3},
                                {100000, 2, 3}, {4097, 130, 1}, {1, 9, 1}};
  for (const auto &[width, height, channels] : shapes) {
    SCOPED_TRACE(testing::Message() << width << "x" << height << "x" << channels);
    const uint32_t model = channels == 1 ? RasModelGray : RasModelRgb;
    const Picture p = Pattern(width, height, channels);
    const uint32_t stride = (width * channels + 3) / 4 * 4;
    Bytes memory(54 + (channels == 1 ? 1024 : 0) + size_t{stride} * height);
    RasMemName mem;
    RasMakeMemName(&mem, memory.data(), memory.size());
    ASSERT_EQ(WritePicture(RasMemNameOf(mem), RasFormatBmp, model, p), RasOk);
    const std::string path = TempPath("blocks.bmp");
    ASSERT_EQ(WritePicture(path, RasFormatBmp, model, p), RasOk);
    const Bytes bottomUp = ReadFile(path);
    ASSERT_EQ(bottomUp, memory);
    for (const bool down : {false, true}) {
      const Bytes file = down ? TopDown(bottomUp, stride, height) : bottomUp;
      WriteFile(path, file);
      Picture got;
      ASSERT_EQ(ReadPicture(path, &got), RasOk);
      EXPECT_TRUE(got == p);
      ASSERT_EQ(ReadPicture(path, &got, nullptr, Mixed(height)), RasOk);
      EXPECT_TRUE(got == p);
      // Cut in the middle of the row a third of the way through the file.
      const size_t offset = file.size() - size_t{stride} * height;
      const uint32_t cutRow = height / 3;  // file row
      WriteFile(path, Bytes(file.begin(), file.begin() + offset + size_t{cutRow} * stride +
                                              width * channels / 2));
      // Bottom-up, the cut row and all after it come first.
      const uint32_t whole = down ? cutRow : 0;
      RasDesc desc{};
      desc.format = RasFormatBmp;
      ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), RasOk);
      RasSl sl{};
      for (uint32_t y = 0; y < whole; ++y) {
        ASSERT_EQ(RasReadSl(&desc, y, &sl), RasOk);
        for (uint32_t k = 0; k < channels; ++k)
          ASSERT_EQ(Bytes(sl.plane8[k], sl.plane8[k] + width),
                    Bytes(p.planes[k].begin() + size_t{y} * width,
                          p.planes[k].begin() + size_t{y + 1} * width));
      }
      log.Clear();
      ExpectError(log, RasReadSl(&desc, whole, &sl), "BmpReadSl", RasErrRead, 4);
      ExpectError(log, RasReadSl(&desc, 0, &sl), "BmpReadSl", RasErrRead, 1);
      RasFreeSl(&sl);
      EXPECT_EQ(RasClose(&desc), RasOk);
    }
  }
}

// Each refusal's code and detail (row -1: at open). Argument refusals leave
// the file open; any other failure closes it, and the next read says so.
TEST(Bmp, RefusesWithItsDetail) {
  ErrorLog log;
  const Bytes base = MakeBmp(3, 1, 8, Palette(16), {0, 5, 200, 0});
  const auto patched = [&](size_t at, uint32_t value, int size) {
    Bytes b = base;
    PutField(b, at, value, size);
    return b;
  };
  const std::tuple<const char *, Bytes, int, int, int> cases[] = {
      // what, file, row, code, detail
      {"signature", patched(1, 'A', 1), -1, RasErrFormat, 3},
      {"reserved byte 8", patched(8, 1, 1), -1, RasErrFormat, 3},
      {"reserved byte 9", patched(9, 1, 1), -1, RasErrFormat, 3},
      {"first reserved word unchecked", patched(6, 'X', 1), -1, RasOk, -1},
      {"core header", patched(14, 12, 4), -1, RasErrFormat, 6},
      {"header beyond 124", patched(14, 128, 4), -1, RasErrUnsupported, 20},
      {"planes", patched(26, 2, 2), -1, RasErrFormat, 8},
      {"4-bit", patched(28, 4, 2), -1, RasErrUnsupported, 9},
      {"16-bit", patched(28, 16, 2), -1, RasErrUnsupported, 9},
      {"32-bit", patched(28, 32, 2), -1, RasErrUnsupported, 9},
      {"run-length", patched(30, 1, 4), -1, RasErrUnsupported, 11},
      {"row beyond 256 MiB", patched(18, INT32_MAX, 4), -1, RasErrMemory, 10},
      {"data of 4 GiB", patched(22, 1u << 30, 4), -1, RasErrMemory, 22},
      {"cut in file header", Bytes(base.begin(), base.begin() + 10), -1, RasErrRead, 2},
      {"cut in header size", Bytes(base.begin(), base.begin() + 16), -1, RasErrRead, 5},
      {"cut in header", Bytes(base.begin(), base.begin() + 30), -1, RasErrRead, 7},
      {"cut in palette", Bytes(base.begin(), base.begin() + 84), -1, RasErrRead, 12},
      {"row beyond height", base, 1, RasErrArg, 5},
      {"row cut short", MakeBmp(2, 2, 24, {}, {1, 2, 3, 4, 5, 6, 0, 0, 7, 8}), 0, RasErrRead, 4},
      {"rows missing", MakeBmp(3000000, 100, 24, {}, {1, 2, 3, 0}), 0, RasErrSeek, 3},
  };
  for (const auto &[what, file, row, code, detail] : cases) {
    SCOPED_TRACE(what);
    RasMemName mem;
    RasMakeMemName(&mem, const_cast<uint8_t *>(file.data()), file.size());
    RasDesc desc{};
    desc.format = RasFormatBmp;
    const int opened = RasOpen(RasMemNameOf(mem), 'r', &desc);
    if (row < 0) {
      ExpectError(log, opened, code ? "BmpOpen" : "", code, detail);
      EXPECT_EQ(desc.state == nullptr, code != RasOk);
    } else {
      ASSERT_EQ(opened, RasOk);
      RasSl sl{};
      ExpectError(log, RasReadSl(&desc, row, &sl), "BmpReadSl", code, detail);
      if (code == RasErrArg)
        EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasOk);
      else
        ExpectError(log, RasReadSl(&desc, 0, &sl), "BmpReadSl", RasErrRead, 1);
      RasFreeSl(&sl);
    }
    EXPECT_EQ(RasClose(&desc), RasOk);
  }
}

// Too small a memory block for the header, the info header, the palette or
// the last row (RGB 2x2 takes 70 bytes, grey 2x2 1086); rows beyond the
// height; no CMYK in BMP.
TEST(Bmp, WriterRefusesWithItsDetail) {
  ErrorLog log;
  const std::tuple<uint32_t, size_t, std::vector<uint32_t>, const char *, int, int> cases[] = {
      {RasModelRgb, 10, {}, "BmpOpen", RasErrWrite, 17},
      {RasModelRgb, 30, {}, "BmpOpen", RasErrWrite, 18},
      {RasModelGray, 500, {}, "BmpOpen", RasErrWrite, 19},
      {RasModelRgb, 69, {}, "BmpWriteSl", RasErrWrite, 5},
      {RasModelGray, 1085, {}, "BmpWriteSl", RasErrWrite, 4},
      {RasModelRgb, 70, {1, 0, 2}, "BmpWriteSl", RasErrArg, 7},
      {RasModelCmyk, 200, {}, "BmpWriteSl", RasErrArg, 6}};
  for (const auto &[model, capacity, order, function, code, detail] : cases) {
    SCOPED_TRACE(capacity);
    Bytes block(capacity);
    RasMemName mem;
    RasMakeMemName(&mem, block.data(), block.size());
    const Picture p = Pattern(2, 2, model == RasModelGray ? 1 : model == RasModelRgb ? 3 : 4);
    RasDesc desc;
    ExpectError(log,
                WritePicture(RasMemNameOf(mem), RasFormatBmp, model, p, 300.0f, &desc,
                             order.empty() ? Mixed(p.height) : order),
                function, code, detail);
    EXPECT_EQ(desc.state, nullptr);
  }
}

}  // namespace

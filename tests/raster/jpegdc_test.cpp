// The DC-only eighth-size decode against the codec itself: files encoded
// here with every sampling, restart spacing, table precision and coding the
// codec offers, then decoded both ways. Where the DC-only reader takes a
// file its bytes must be the codec's; where it declines, the thumbnail
// decode must still give the codec's picture.
#include "raster/jpegdc.h"

#include <gtest/gtest.h>

// clang-format off
#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "raster/core/rasfile.h"
#include "raster/core/rasstr.h"
#include "raster/jpegcheck.h"
#include "raster/jpegthumb.h"
#include "tests/raster/testutil.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Encoding {
  int h = 2, v = 2;  // the brightness's sampling; chroma is 1x1
  int quality = 90;
  int restartMcus = 0;
  bool grey = false, optimize = false, progressive = false, arithmetic = false;
  bool rgb = false;      // stored as RGB with the Adobe marker
  bool baseline = true;  // false allows 16-bit quantisation tables
  bool jfif = true;
};

struct Codec {
  jpeg_error_mgr err;
  jmp_buf jump;
};

[[noreturn]] void Jump(j_common_ptr c) {
  std::longjmp(static_cast<Codec *>(c->client_data)->jump, 1);
}
void Quiet(j_common_ptr) {}

// A picture with smooth ramps, saturated corners and noise, so that DC and
// AC coefficients of every size occur, clamping included.
Bytes Scene(uint32_t width, uint32_t height) {
  Bytes rgb(size_t{width} * height * 3);
  uint32_t noise = 2463534242u;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      noise ^= noise << 13, noise ^= noise >> 17, noise ^= noise << 5;
      uint8_t *p = &rgb[(size_t{y} * width + x) * 3];
      const bool corner = x < width / 4 && y < height / 4;
      p[0] = corner ? 255 : static_cast<uint8_t>(x * 255 / std::max(1u, width - 1));
      p[1] = corner ? 0 : static_cast<uint8_t>((y * 7 + (noise & 63)) & 255);
      p[2] = static_cast<uint8_t>(((x ^ y) * 3 + (noise >> 26)) & 255);
    }
  return rgb;
}

Bytes Encode(uint32_t width, uint32_t height, const Encoding &e) {
  const Bytes rgb = Scene(width, height);
  Codec codec{};
  jpeg_compress_struct c{};
  c.err = jpeg_std_error(&codec.err);
  codec.err.error_exit = Jump;
  codec.err.output_message = Quiet;
  Bytes file;
  if (setjmp(codec.jump) == 0) {
    c.client_data = &codec;
    unsigned long size = 0;
    unsigned char *out = nullptr;
    jpeg_create_compress(&c);
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = width, c.image_height = height;
    c.input_components = 3, c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    if (e.grey) jpeg_set_colorspace(&c, JCS_GRAYSCALE);
    if (e.rgb) jpeg_set_colorspace(&c, JCS_RGB);
    jpeg_set_quality(&c, e.quality, e.baseline ? TRUE : FALSE);
    if (!e.grey && !e.rgb) c.comp_info[0].h_samp_factor = e.h, c.comp_info[0].v_samp_factor = e.v;
    c.restart_interval = static_cast<unsigned>(e.restartMcus);
    c.optimize_coding = e.optimize ? TRUE : FALSE;
    c.arith_code = e.arithmetic ? TRUE : FALSE;
    c.write_JFIF_header = e.jfif ? TRUE : FALSE;
    if (e.progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < height) {
      JSAMPROW row = const_cast<uint8_t *>(&rgb[size_t{c.next_scanline} * width * 3]);
      jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    file.assign(out, out + size);
    std::free(out);
  }
  jpeg_destroy_compress(&c);
  return file;
}

// The codec's eighth-size decode with the thumbnail decode's settings; empty
// when it gives up on the file. Warnings are passed over, as there.
Bytes CodecEighth(const Bytes &file, uint32_t *width, uint32_t *height) {
  Codec codec{};
  jpeg_decompress_struct d{};
  d.err = jpeg_std_error(&codec.err);
  codec.err.error_exit = Jump;
  codec.err.output_message = Quiet;
  Bytes rgb;
  if (setjmp(codec.jump) == 0) {
    d.client_data = &codec;
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&d, TRUE);
    d.scale_num = 1, d.scale_denom = 8;
    d.dct_method = JDCT_IFAST;
    d.do_fancy_upsampling = FALSE;
    d.out_color_space = JCS_RGB;
    jpeg_start_decompress(&d);
    *width = d.output_width, *height = d.output_height;
    rgb.resize(size_t{d.output_width} * d.output_height * 3);
    while (d.output_scanline < d.output_height) {
      JSAMPROW row = &rgb[size_t{d.output_scanline} * d.output_width * 3];
      jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
  } else {
    rgb.clear();
  }
  jpeg_destroy_decompress(&d);
  return rgb;
}

// Decodes `file` both ways: true when the DC-only reader took it, and then
// its picture must equal the codec's byte for byte.
bool TakenAndExact(const Bytes &file, const std::string &what) {
  JpegThumb thumb{};
  if (!JpegDcDecode(file.data(), file.size(), 1, 1, &thumb)) return false;
  uint32_t width = 0, height = 0;
  const Bytes reference = CodecEighth(file, &width, &height);
  EXPECT_EQ(thumb.denominator, 8U) << what;
  EXPECT_EQ(thumb.width, width) << what;
  EXPECT_EQ(thumb.height, height) << what;
  const Bytes ours(thumb.rgb, thumb.rgb + size_t{thumb.width} * thumb.height * 3);
  EXPECT_EQ(ours, reference) << what;
  JpegThumbFree(&thumb);
  return true;
}

// The thumbnail decode of `file` through a memory-block name.
Bytes ThumbOf(Bytes file, int *code) {
  RasMemName name;
  RasMakeMemName(&name, file.data(), file.size());
  JpegThumb thumb{};
  *code = JpegThumbDecode(RasMemNameOf(name), 1, 1, &thumb);
  Bytes rgb;
  if (*code == RasOk) rgb.assign(thumb.rgb, thumb.rgb + size_t{thumb.width} * thumb.height * 3);
  JpegThumbFree(&thumb);
  return rgb;
}

TEST(JpegDc, EverySamplingSizeAndRestartSpacingGivesTheCodecsBytes) {
  const std::pair<uint32_t, uint32_t> sizes[] = {{1, 1},  {7, 9},  {8, 8},     {17, 9},  {16, 16},
                                                 {1, 70}, {70, 1}, {203, 141}, {96, 33}, {33, 96}};
  const std::pair<int, int> samplings[] = {{2, 2}, {2, 1}, {1, 2}, {1, 1}};
  int taken = 0, tried = 0;
  for (const auto &[width, height] : sizes)
    for (const auto &[h, v] : samplings)
      for (int restart : {0, 1, 3}) {
        Encoding e;
        e.h = h, e.v = v, e.restartMcus = restart;
        e.quality = 50 + (tried * 7) % 51;
        e.optimize = tried % 2 == 1;
        const std::string what = std::to_string(width) + "x" + std::to_string(height) +
                                 " sampling " + std::to_string(h) + "x" + std::to_string(v) +
                                 " restart " + std::to_string(restart);
        ++tried;
        taken += TakenAndExact(Encode(width, height, e), what) ? 1 : 0;
      }
  EXPECT_EQ(taken, tried);
}

TEST(JpegDc, GreyExtremeTablesAndNoJfifAreTakenExactly) {
  Encoding grey;
  grey.grey = true;
  EXPECT_TRUE(TakenAndExact(Encode(203, 141, grey), "grey"));
  grey.restartMcus = 5;
  EXPECT_TRUE(TakenAndExact(Encode(61, 29, grey), "grey with restarts"));
  Encoding finest;  // every quantiser 1: the largest DC values, clamped both ways
  finest.quality = 100;
  EXPECT_TRUE(TakenAndExact(Encode(120, 88, finest), "quality 100"));
  Encoding coarse;  // quantisers over 255 need 16-bit tables
  coarse.quality = 1, coarse.baseline = false;
  const Bytes wide = Encode(120, 88, coarse);
  EXPECT_TRUE(TakenAndExact(wide, "16-bit tables"));
  Encoding bare;  // no JFIF segment: component numbers 1, 2, 3 mean YCbCr
  bare.jfif = false;
  EXPECT_TRUE(TakenAndExact(Encode(64, 48, bare), "no JFIF"));
}

TEST(JpegDc, OtherCodingsAreDeclinedAndStillDecodeThroughTheCodec) {
  Encoding progressive, arithmetic, rgb;
  progressive.progressive = true;
  arithmetic.arithmetic = true;
  rgb.rgb = true, rgb.jfif = false;
  for (const Encoding &e : {progressive, arithmetic, rgb}) {
    const Bytes file = Encode(90, 70, e);
    ASSERT_FALSE(file.empty());
    JpegThumb thumb{};
    EXPECT_FALSE(JpegDcDecode(file.data(), file.size(), 1, 1, &thumb));
    EXPECT_EQ(thumb.rgb, nullptr);
    uint32_t width = 0, height = 0;
    int code = 0;
    EXPECT_EQ(ThumbOf(file, &code), CodecEighth(file, &width, &height));
    EXPECT_EQ(code, RasOk);
  }
  // A reduction other than an eighth is the codec's too.
  const Bytes file = Encode(160, 120, Encoding{});
  JpegThumb thumb{};
  EXPECT_FALSE(JpegDcDecode(file.data(), file.size(), 21, 1, &thumb));
  EXPECT_TRUE(JpegDcDecode(file.data(), file.size(), 20, 15, &thumb));
  JpegThumbFree(&thumb);
}

// Damage anywhere (cut files, bytes changed in the headers and in the coded
// data, restart markers renumbered) never gives a picture other than the
// codec's: the DC-only reader either reads what the codec reads or declines.
TEST(JpegDc, DamagedFilesGiveTheCodecsPictureOrTheCodecsRefusal) {
  Encoding e;
  e.restartMcus = 2;
  const Bytes good = Encode(96, 64, e);
  std::vector<Bytes> damaged;
  for (size_t cut : {good.size() - 2, good.size() - 40, good.size() / 2, size_t{300}})
    damaged.emplace_back(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut));
  uint32_t state = 12345;
  for (int i = 0; i < 200; ++i) {
    Bytes changed = good;
    state = state * 1664525u + 1013904223u;
    const size_t at = 2 + (state >> 8) % (good.size() - 4);
    changed[at] ^= static_cast<uint8_t>(1u << (state & 7));
    damaged.push_back(changed);
  }
  for (size_t i = 0; i + 1 < good.size(); ++i)
    if (good[i] == 0xFF && good[i + 1] >= 0xD0 && good[i + 1] <= 0xD7) {
      Bytes renumbered = good;
      renumbered[i + 1] = static_cast<uint8_t>(0xD0 + ((good[i + 1] - 0xD0 + 1) & 7));
      damaged.push_back(renumbered);
      break;
    }
  int declined = 0;
  for (size_t i = 0; i < damaged.size(); ++i) {
    const std::string what = "damaged file " + std::to_string(i);
    if (!TakenAndExact(damaged[i], what)) ++declined;
    uint32_t width = 0, height = 0;
    int code = 0;
    const Bytes reference = CodecEighth(damaged[i], &width, &height);
    const Bytes thumb = ThumbOf(damaged[i], &code);
    EXPECT_EQ(thumb, reference) << what;
    EXPECT_EQ(code == RasOk, !reference.empty()) << what;
  }
  // The cut files and the renumbered marker at least are left to the codec.
  EXPECT_GE(declined, 5);
}

TEST(JpegDc, CameraFilesInTheTestDataAreReadAsTheCodecReadsThem) {
  int taken = 0, jpegs = 0;
  for (const testutil::ManifestRow &row : testutil::ReadManifest(KORVEL_TESTDATA_DIR)) {
    const std::string path = std::string(KORVEL_TESTDATA_DIR) + "/" + row.folder + "/" + row.file;
    const Bytes file = testutil::ReadFile(path);
    if (file.size() < 3 || file[0] != 0xFF || file[1] != 0xD8) continue;
    ++jpegs;
    taken += TakenAndExact(file, row.file) ? 1 : 0;
    // Inked files need the thumbnail decode's own conversion, which the
    // reference here does not make; they are never taken.
    uint32_t width = 0, height = 0;
    int code = 0;
    const Bytes reference = CodecEighth(file, &width, &height);
    if (!reference.empty()) {
      EXPECT_EQ(ThumbOf(file, &code), reference) << row.file;
    }
  }
  EXPECT_GT(jpegs, 10);
  EXPECT_GE(taken, jpegs / 2);
}

// The open check leans on the DC-only reader for intact files: the fields
// still come from the header and the rows it keeps are the codec's.
TEST(JpegDc, TheOpenCheckOfAnIntactFileKeepsTheCodecsRowsAndTheHeadersFields) {
  Encoding grey;
  grey.grey = true;
  for (const Encoding &e : {Encoding{}, grey}) {
    Bytes file = Encode(203, 141, e);
    RasMemName name;
    RasMakeMemName(&name, file.data(), file.size());
    JpegCheck check{};
    JpegThumb rows{};
    ASSERT_EQ(JpegCheckFile(RasMemNameOf(name), &check, &rows), RasOk);
    EXPECT_EQ(check.width, 203U);
    EXPECT_EQ(check.height, 141U);
    EXPECT_EQ(check.channels, e.grey ? 1U : 3U);
    EXPECT_EQ(check.resolution, -1.0F);  // a JFIF density of 1:1 says nothing of inches
    uint32_t width = 0, height = 0;
    const Bytes reference = CodecEighth(file, &width, &height);
    ASSERT_EQ(rows.width, width);
    EXPECT_EQ(Bytes(rows.rgb, rows.rgb + reference.size()), reference);
    JpegThumbFree(&rows);
    // Cut before its end, the same file is the codec's to judge, and a
    // full read would refuse it: most rows are missing.
    file.resize(file.size() / 3);
    RasMakeMemName(&name, file.data(), file.size());
    EXPECT_EQ(JpegCheckFile(RasMemNameOf(name), &check, &rows), RasErrRead);
    EXPECT_EQ(rows.rgb, nullptr);
  }
}

}  // namespace

// JPEG reader and writer: round trips checked byte for byte against djpeg's
// decoding of the same files, CMYK complementing checked against libjpeg
// itself, row access rules, settings, JFIF density in both directions and the
// failure paths (with the detail each reports through the error log).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// clang-format off
#include <jpeglib.h>
// clang-format on

#include "raster/formats.h"
#include "raster/jpeg.h"
#include "raster/ras.h"
#include "raster/rasfile.h"
#include "raster/rasstate.h"

namespace {

using Bytes = std::vector<uint8_t>;

// An image with interleaved samples, as djpeg and libjpeg hand them over.
struct Image {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  Bytes samples;
  uint8_t &At(uint32_t x, uint32_t y, uint32_t k) {
    return samples[(static_cast<size_t>(y) * width + x) * channels + k];
  }
};

// Smooth shapes with a little texture, so that compression keeps it close.
Image Pattern(uint32_t width, uint32_t height, uint32_t channels) {
  Image image{width, height, channels, Bytes(size_t{width} * height * channels)};
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (uint32_t k = 0; k < channels; ++k) {
        double v = 128 + 90 * std::sin(0.21 * x + k) * std::cos(0.17 * y + 0.5 * k);
        image.At(x, y, k) = static_cast<uint8_t>(v + ((x * 7 + y * 13 + k) % 5));
      }
  return image;
}

int MaxDiff(const Image &a, const Image &b) {
  if (a.samples.size() != b.samples.size()) return 1000;
  int worst = 0;
  for (size_t i = 0; i < a.samples.size(); ++i)
    worst = std::max(worst, std::abs(a.samples[i] - b.samples[i]));
  return worst;
}

Image Complemented(Image image) {
  for (uint8_t &v : image.samples)
    v = static_cast<uint8_t>(255 - v);
  return image;
}

Bytes Load(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void Save(const std::string &path, const Bytes &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// libjpeg used directly, as a referee: it decodes the samples as stored (CMYK
// not complemented).
struct Referee {
  jpeg_error_mgr err;
  jmp_buf jump;
};

void RefereeExit(j_common_ptr codec) {
  std::longjmp(static_cast<Referee *>(codec->client_data)->jump, 1);
}

bool DecodeRaw(const char *path, Image *out) {
  Referee ref;
  jpeg_decompress_struct codec;
  FILE *file = std::fopen(path, "rb");
  if (!file) return false;
  codec.err = jpeg_std_error(&ref.err);
  ref.err.error_exit = RefereeExit;
  codec.client_data = &ref;
  if (setjmp(ref.jump)) {
    jpeg_destroy_decompress(&codec);
    std::fclose(file);
    return false;
  }
  jpeg_create_decompress(&codec);
  jpeg_stdio_src(&codec, file);
  jpeg_read_header(&codec, TRUE);
  jpeg_start_decompress(&codec);
  out->width = codec.output_width;
  out->height = codec.output_height;
  out->channels = static_cast<uint32_t>(codec.output_components);
  out->samples.resize(size_t{out->width} * out->height * out->channels);
  while (codec.output_scanline < codec.output_height) {
    JSAMPROW row = &out->samples[size_t{codec.output_scanline} * out->width * out->channels];
    jpeg_read_scanlines(&codec, &row, 1);
  }
  jpeg_finish_decompress(&codec);
  jpeg_destroy_decompress(&codec);
  std::fclose(file);
  return true;
}

// djpeg's PGM or PPM output for a file.
Image Djpeg(const std::string &jpeg, const std::string &pnm) {
  Image image;
  std::string command = "/usr/bin/djpeg -pnm -outfile '" + pnm + "' '" + jpeg + "'";
  if (std::system(command.c_str()) != 0) return image;
  Bytes bytes = Load(pnm);
  unsigned width = 0, height = 0, maxval = 0;
  char kind = 0;
  int used = 0;
  bytes.push_back(0);
  if (std::sscanf(reinterpret_cast<const char *>(bytes.data()), "P%c %u %u %u%n", &kind, &width,
                  &height, &maxval, &used) != 4)
    return image;
  image = {width, height, kind == '5' ? 1u : 3u, {}};
  image.samples.assign(bytes.begin() + used + 1, bytes.end() - 1);
  return image;
}

class JpegTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "jpeg_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern + "/";
    log_ = dir_ + "ras.log";
    setenv("KORVEL_RAS_LOG", log_.c_str(), 1);
    for (int i = 0; i < 5; ++i)
      JpegGetOption(i, &settings_[i]);
    ASSERT_EQ(JpegSetOption(JpegOptQuality, 100), 0);
  }
  void TearDown() override {
    unsetenv("KORVEL_RAS_LOG");
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ(JpegSetOption(i, settings_[i]), 0);
    std::filesystem::remove_all(dir_);
  }

  std::string Path(const char *name) const { return dir_ + name; }

  // True when the last error report names this routine, code and detail.
  bool Logged(const std::string &function, int code, int detail) const {
    std::ifstream in(log_);
    std::string line, last;
    while (std::getline(in, line))
      last = line + " ";
    return last.find(function + " failed: code " + std::to_string(code) + " ") !=
               std::string::npos &&
           last.find(" detail " + std::to_string(detail) + " ") != std::string::npos;
  }

  // Writes through the generic entry points; the first failing code, or 0.
  static int Write(const char *name, uint32_t model, Image &image, float resolution = 72.0F) {
    RasDesc desc;
    int rc = RasSetDesc(&desc, RasFormatJpeg, image.width, image.height, image.channels, model,
                        resolution);
    if (rc == 0) rc = RasOpen(name, 'w', &desc);
    if (rc != 0) return rc;
    RasSl sl;
    rc = RasMakeSl(&sl, &desc);
    for (uint32_t y = 0; rc == 0 && y < image.height; ++y) {
      for (uint32_t x = 0; x < image.width; ++x)
        for (uint32_t k = 0; k < image.channels; ++k)
          sl.plane8[k][x] = image.At(x, y, k);
      rc = RasWriteSl(&desc, y, &sl);
    }
    RasClose(&desc);
    RasFreeSl(&sl);
    return rc;
  }

  // Reads every row through the probe and the generic entry points.
  static int Read(const char *name, Image *image, RasDesc *desc) {
    int rc = RasGetInfo(name, desc);
    if (rc == 0) rc = RasOpen(name, 'r', desc);
    if (rc != 0) return rc;
    *image = {desc->width, desc->height, desc->channels, {}};
    image->samples.resize(size_t{desc->width} * desc->height * desc->channels);
    RasSl sl{};
    for (uint32_t y = 0; rc == 0 && y < desc->height; ++y) {
      rc = RasReadSl(desc, y, &sl);
      for (uint32_t x = 0; rc == 0 && x < desc->width; ++x)
        for (uint32_t k = 0; k < desc->channels; ++k)
          image->At(x, y, k) = sl.plane8[k][x];
    }
    RasClose(desc);
    RasFreeSl(&sl);
    return rc;
  }

  std::string dir_, log_;
  int settings_[5] = {};
};

TEST_F(JpegTest, RoundTripsMatchAnIndependentDecoderExactly) {
  const struct {
    uint32_t model, channels, width, height;
    int tolerance;
  } cases[] = {
      {RasModelGray, 1, 1, 1, 2},  {RasModelGray, 1, 17, 5, 2},  {RasModelGray, 1, 1, 40, 2},
      {RasModelRgb, 3, 40, 1, 12}, {RasModelRgb, 3, 33, 17, 12}, {RasModelRgb, 3, 16, 16, 12},
      {RasModelRgb, 3, 15, 9, 12}, {RasModelCmyk, 4, 31, 7, 2},  {RasModelCmyk, 4, 48, 3, 2},
      {RasModelCmyk, 4, 1, 1, 2},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " " << c.width << "x" << c.height);
    std::string path = Path("round.jpg");
    Image original = Pattern(c.width, c.height, c.channels);
    ASSERT_EQ(Write(path.c_str(), c.model, original), 0);
    Image back;
    RasDesc desc{};
    ASSERT_EQ(Read(path.c_str(), &back, &desc), 0);
    EXPECT_EQ(desc.format, RasFormatJpeg);
    EXPECT_EQ(desc.model, c.model);
    EXPECT_EQ(desc.channels, c.channels);
    EXPECT_EQ(desc.maxval, 255u);
    // A CMYK file carries no JFIF marker, so no density either.
    EXPECT_EQ(desc.resolution, c.model == RasModelCmyk ? -1.0F : 72.0F);
    EXPECT_EQ(desc.state, nullptr);
    EXPECT_LE(MaxDiff(original, back), c.tolerance);
    Image reference;
    if (c.model == RasModelCmyk) {
      ASSERT_TRUE(DecodeRaw(path.c_str(), &reference));
      reference = Complemented(reference);
    } else {
      reference = Djpeg(path, Path("round.pnm"));
    }
    EXPECT_EQ(MaxDiff(reference, back), 0);
  }
}

TEST_F(JpegTest, ReadsOtherProgramsFilesLikeDjpeg) {
  for (const char *file : {"imagers__images_jpg_progressive_cat.jpg", "ljt__testorig.jpg",
                           "pillow__hopper.jpg", "pillow__hopper_gray.jpg"}) {
    SCOPED_TRACE(file);
    std::string path = std::string(KORVEL_TESTDATA_DIR) + "/jpeg/" + file;
    Image ours;
    RasDesc desc{};
    ASSERT_EQ(Read(path.c_str(), &ours, &desc), 0);
    EXPECT_EQ(MaxDiff(Djpeg(path, Path("other.pnm")), ours), 0);
  }
}

TEST_F(JpegTest, CmykIsStoredComplemented) {
  // What libjpeg sees of a row we wrote is the complement of the row.
  Image original = Pattern(24, 16, 4);
  ASSERT_EQ(Write(Path("cmyk.jpg").c_str(), RasModelCmyk, original), 0);
  Image stored;
  ASSERT_TRUE(DecodeRaw(Path("cmyk.jpg").c_str(), &stored));
  EXPECT_LE(MaxDiff(Complemented(stored), original), 2);

  // Files from other programs read as the complement of their samples, and
  // writing what we read stores those samples again.
  for (const char *file : {"pillow__pil_sample_cmyk.jpg", "oiio__jpeg_src_YCbCrK.jpg"}) {
    SCOPED_TRACE(file);
    std::string path = std::string(KORVEL_TESTDATA_DIR) + "/jpeg/" + file;
    Image ours, theirs, again;
    RasDesc desc{};
    ASSERT_EQ(Read(path.c_str(), &ours, &desc), 0);
    EXPECT_EQ(desc.model, RasModelCmyk);
    ASSERT_TRUE(DecodeRaw(path.c_str(), &theirs));
    EXPECT_EQ(MaxDiff(Complemented(theirs), ours), 0);
    ASSERT_EQ(Write(Path("again.jpg").c_str(), RasModelCmyk, ours), 0);
    ASSERT_TRUE(DecodeRaw(Path("again.jpg").c_str(), &again));
    EXPECT_LE(MaxDiff(again, theirs), 3);
  }
}

TEST_F(JpegTest, RowsGoBackByReopeningAndRepeatTheBufferedRow) {
  Image original = Pattern(20, 10, 3), whole;
  std::string path = Path("rows.jpg");
  ASSERT_EQ(Write(path.c_str(), RasModelRgb, original), 0);
  RasDesc desc{};
  ASSERT_EQ(Read(path.c_str(), &whole, &desc), 0);
  ASSERT_EQ(RasOpen(path.c_str(), 'r', &desc), 0);
  RasSl sl{};  // a record without width is allocated by the reader
  // Going back from 2 to 0 and from 9 to 2 reopens; 2 and 9 again repeat the
  // buffered row, and 9 again after the image is finished reopens as well.
  for (uint32_t row : {0u, 1u, 2u, 0u, 2u, 2u, 9u, 9u, 2u}) {
    SCOPED_TRACE(row);
    ASSERT_EQ(RasReadSl(&desc, row, &sl), 0);
    ASSERT_EQ(sl.width, 20u);
    for (uint32_t k = 0; k < 3; ++k)
      for (uint32_t x = 0; x < 20; ++x)
        ASSERT_EQ(sl.plane8[k][x], whole.At(x, row, k)) << x << "," << k;
  }
  EXPECT_EQ(RasReadSl(&desc, 10, &sl), -1);
  EXPECT_TRUE(Logged("JpegReadSl", -1, 4));
  EXPECT_EQ(RasWriteSl(&desc, 0, &sl), -1);  // a reader is not a writer
  EXPECT_TRUE(Logged("JpegWriteSl", -1, 2));
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);
}

TEST_F(JpegTest, WriterTakesRowsInOrderAndToleratesTheLastAgain) {
  std::string path = Path("order.jpg");
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 8, 3, 1, RasModelGray, -1.0F), 0);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc), 0);
  RasSl sl;
  ASSERT_EQ(RasMakeSl(&sl, &desc), 0);
  auto put = [&](uint32_t row, uint8_t value) {
    std::fill(sl.plane8[0], sl.plane8[0] + 8, value);
    return RasWriteSl(&desc, row, &sl);
  };
  EXPECT_EQ(put(0, 40), 0);
  EXPECT_EQ(put(0, 200), 0);  // ignored
  EXPECT_EQ(put(2, 250), -1);
  EXPECT_TRUE(Logged("JpegWriteSl", -1, 3));
  EXPECT_EQ(put(1, 120), 0);
  EXPECT_EQ(put(2, 250), 0);
  EXPECT_EQ(put(2, 0), 0);
  EXPECT_EQ(put(3, 0), -1);
  EXPECT_TRUE(Logged("JpegWriteSl", -1, 4));
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);

  Image back;
  RasDesc read{};
  ASSERT_EQ(Read(path.c_str(), &back, &read), 0);
  ASSERT_EQ(back.height, 3u);
  const int expected[3] = {40, 120, 250};
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 8; ++x)
      EXPECT_LE(std::abs(back.At(x, y, 0) - expected[y]), 4) << x << "," << y;
}

TEST_F(JpegTest, SettingsAreValidated) {
  const struct {
    int index, value, code;
  } cases[] = {
      {0, 101, -1}, {0, -1, -1}, {1, 3, -1},  {1, -1, -1}, {2, 101, -1}, {3, -1, -1},
      {4, 2, -1},   {0, 0, 0},   {0, 100, 0}, {1, 2, 0},   {2, 100, 0},  {3, 0, 0},
      {3, 1000, 0}, {4, 1, 0},   {7, 55, 0},  {5, 9, 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << c.index << "=" << c.value);
    int before[5], after[5];
    for (int i = 0; i < 5; ++i)
      JpegGetOption(i, &before[i]);
    EXPECT_EQ(JpegSetOption(c.index, c.value), c.code);
    for (int i = 0; i < 5; ++i) {
      JpegGetOption(i, &after[i]);
      EXPECT_EQ(after[i], (c.code == 0 && i == c.index) ? c.value : before[i]);
    }
  }
  int untouched = 1234;
  EXPECT_EQ(JpegGetOption(7, &untouched), 0);
  EXPECT_EQ(untouched, 1234);
}

TEST_F(JpegTest, ResolutionComesFromTheJfifDensity) {
  Image image = Pattern(9, 9, 1);
  ASSERT_EQ(Write(Path("dpi.jpg").c_str(), RasModelGray, image), 0);
  Bytes file = Load(Path("dpi.jpg"));
  const struct {
    uint8_t unit, density;
    float resolution;
  } cases[] = {{2, 100, 254.0F}, {1, 200, 200.0F}, {0, 100, -1.0F}, {3, 100, -1.0F}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.unit);
    file[13] = c.unit;  // the JFIF segment right behind the start of image
    file[14] = 0;
    file[15] = c.density;
    Save(Path("density.jpg"), file);
    RasDesc desc{};
    ASSERT_EQ(RasGetInfo(Path("density.jpg").c_str(), &desc), 0);
    EXPECT_EQ(desc.resolution, c.resolution);
  }
}

TEST_F(JpegTest, WriterSetsTheJfifDensity) {
  const struct {
    float resolution;
    int unit, density;
  } cases[] = {{72.0F, 1, 72}, {299.5F, 1, 300}, {299.4F, 1, 299},
               {0.4F, 1, 0},   {0.0F, 0, 1},     {-1.0F, 0, 1}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.resolution);
    for (uint32_t model : {RasModelGray, RasModelRgb}) {
      Image image = Pattern(5, 5, model == RasModelGray ? 1 : 3);
      ASSERT_EQ(Write(Path("jfif.jpg").c_str(), model, image, c.resolution), 0);
      Bytes b = Load(Path("jfif.jpg"));
      ASSERT_GE(b.size(), 18u);
      ASSERT_EQ(Bytes(b.begin(), b.begin() + 11),
                (Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}));
      EXPECT_EQ(b[13], c.unit);
      EXPECT_EQ(b[14] * 256 + b[15], c.density);
      EXPECT_EQ(b[16] * 256 + b[17], c.density);
    }
  }
}

TEST_F(JpegTest, RestartMarkersFollowTheSetting) {
  Image image = Pattern(16, 64, 1);
  for (int interval : {1, 0}) {
    SCOPED_TRACE(interval);
    ASSERT_EQ(JpegSetOption(JpegOptRestart, interval), 0);
    ASSERT_EQ(Write(Path("rst.jpg").c_str(), RasModelGray, image), 0);
    Bytes b = Load(Path("rst.jpg"));
    int restarts = 0, defines = 0;
    for (size_t i = 0; i + 1 < b.size(); ++i) {
      if (b[i] != 0xFF) continue;
      restarts += b[i + 1] >= 0xD0 && b[i + 1] <= 0xD7;
      defines += b[i + 1] == 0xDD;
    }
    EXPECT_EQ(defines, interval);
    EXPECT_EQ(restarts, interval == 1 ? 7 : 0);  // between the 8 MCU rows
  }
}

TEST_F(JpegTest, DamagedFilesFailCleanly) {
  // An empty file is a fatal codec error at open.
  Save(Path("empty.jpg"), {});
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 1, 1, 1, RasModelGray, -1.0F), 0);
  EXPECT_EQ(RasOpen(Path("empty.jpg").c_str(), 'r', &desc), -8);
  EXPECT_TRUE(Logged("JpegOpen", -8, 1));
  EXPECT_EQ(desc.state, nullptr);
  EXPECT_NE(RasGetInfo(Path("empty.jpg").c_str(), &desc), 0);

  Image image = Pattern(64, 48, 3);
  ASSERT_EQ(Write(Path("whole.jpg").c_str(), RasModelRgb, image), 0);
  Bytes whole = Load(Path("whole.jpg"));

  // Cut short: the header alone does not make an image; half the data reads
  // to the end with the missing part made up by the codec.
  Save(Path("cut.jpg"), Bytes(whole.begin(), whole.begin() + 20));
  EXPECT_NE(RasGetInfo(Path("cut.jpg").c_str(), &desc), 0);
  Save(Path("cut.jpg"), Bytes(whole.begin(), whole.begin() + whole.size() / 2));
  Image back;
  EXPECT_EQ(Read(Path("cut.jpg").c_str(), &back, &desc), 0);
  EXPECT_EQ(back.height, 48u);

  // A second frame where the end of image belongs fails the last row.
  Bytes twice(whole.begin(), whole.end() - 2);
  twice.insert(twice.end(), whole.begin() + 2, whole.end());
  Save(Path("twice.jpg"), twice);
  ASSERT_EQ(RasGetInfo(Path("twice.jpg").c_str(), &desc), 0);
  ASSERT_EQ(RasOpen(Path("twice.jpg").c_str(), 'r', &desc), 0);
  RasSl sl{};
  for (uint32_t y = 0; y + 1 < 48; ++y)
    ASSERT_EQ(RasReadSl(&desc, y, &sl), 0);
  EXPECT_EQ(RasReadSl(&desc, 47, &sl), -8);
  EXPECT_TRUE(Logged("JpegReadSl", -8, 8));
  EXPECT_EQ(RasReadSl(&desc, 47, &sl), -8);  // decoded again from the top
  EXPECT_EQ(RasReadSl(&desc, 3, &sl), 0);
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);
}

TEST_F(JpegTest, MemoryBlocksServeAsSourceAndDestination) {
  Image image = Pattern(37, 21, 3);
  ASSERT_EQ(Write(Path("disk.jpg").c_str(), RasModelRgb, image), 0);
  Bytes file = Load(Path("disk.jpg"));
  RasMemName source;
  RasMakeMemName(&source, file.data(), file.size());
  Image fromDisk, fromMemory;
  RasDesc desc{};
  ASSERT_EQ(Read(Path("disk.jpg").c_str(), &fromDisk, &desc), 0);
  ASSERT_EQ(Read(RasMemNameOf(source), &fromMemory, &desc), 0);
  EXPECT_EQ(fromMemory.samples, fromDisk.samples);

  // Going back reopens a memory block by its whole name.
  ASSERT_EQ(RasOpen(RasMemNameOf(source), 'r', &desc), 0);
  RasSl sl{};
  ASSERT_EQ(RasReadSl(&desc, 5, &sl), 0);
  ASSERT_EQ(RasReadSl(&desc, 1, &sl), 0);
  EXPECT_EQ(sl.plane8[0][36], fromDisk.At(36, 1, 0));
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);

  // A block too small for the file: the short write is a fatal codec error
  // in the row that overflows it, and later rows are refused.
  Bytes block(file.size() / 3);
  RasMemName dest;
  RasMakeMemName(&dest, block.data(), block.size());
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 37, 21, 3, RasModelRgb, -1.0F), 0);
  ASSERT_EQ(RasOpen(RasMemNameOf(dest), 'w', &desc), 0);
  ASSERT_EQ(RasMakeSl(&sl, &desc), 0);
  int rc = 0;
  uint32_t y = 0;
  for (; rc == 0 && y < 21; ++y)
    rc = RasWriteSl(&desc, y, &sl);
  EXPECT_EQ(rc, -8);
  EXPECT_TRUE(Logged("JpegWriteSl", -8, 6));
  if (y < 21) {
    EXPECT_EQ(RasWriteSl(&desc, y, &sl), -8);
  }
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);
}

TEST_F(JpegTest, WriterRefusesWhatItCannotStore) {
  RasDesc desc;
  // CIE L*a*b* has no JPEG colour space here; no file is created.
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 4, 4, 3, RasModelLab, -1.0F), 0);
  EXPECT_EQ(RasOpen(Path("lab.jpg").c_str(), 'w', &desc), -1);
  EXPECT_TRUE(Logged("JpegOpen", -1, 2));
  EXPECT_FALSE(std::filesystem::exists(Path("lab.jpg")));
  // Channels that do not fit the model, or no pixels, fail in the codec.
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 4, 4, 4, RasModelRgb, -1.0F), 0);
  EXPECT_EQ(RasOpen(Path("bad.jpg").c_str(), 'w', &desc), -8);
  EXPECT_EQ(desc.state, nullptr);
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 0, 4, 1, RasModelGray, -1.0F), 0);
  EXPECT_EQ(RasOpen(Path("bad.jpg").c_str(), 'w', &desc), -8);
  EXPECT_TRUE(Logged("JpegOpen", -8, 1));
  // A folder that does not exist.
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 4, 4, 1, RasModelGray, -1.0F), 0);
  EXPECT_EQ(RasOpen(Path("no/such.jpg").c_str(), 'w', &desc), -4);
  EXPECT_TRUE(Logged("JpegOpen", -4, 13));
  // An open mode that is neither reading nor writing, seen by the format.
  RasState state;
  RasStateReset(&state);
  desc.state = &state;
  EXPECT_EQ(JpegOpen(Path("x.jpg").c_str(), 'a', &desc), -1);
  EXPECT_TRUE(Logged("JpegOpen", -1, 16));
  EXPECT_EQ(JpegClose(&desc), 0);
  EXPECT_EQ(JpegClose(nullptr), 0);
}

TEST_F(JpegTest, WriteOpenLeavesTheExpectedSizeAsItWas) {
  int64_t saved = 0, now = 0;
  const int64_t expected = 4321;
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &saved), 0);
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &expected), 0);
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 4, 4, 1, RasModelGray, -1.0F), 0);
  ASSERT_EQ(RasOpen(Path("size.jpg").c_str(), 'w', &desc), 0);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &now), 0);
  EXPECT_EQ(now, expected);
  EXPECT_EQ(RasClose(&desc), 0);
  EXPECT_EQ(RasFileSetOption(RasFileOptExpectedSize, &saved), 0);
}

}  // namespace

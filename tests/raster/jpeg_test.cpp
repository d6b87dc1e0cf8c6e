// JPEG reader and writer: round trips checked byte for byte against libjpeg
// decoding on its own, row access, settings, JFIF density and failure paths.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

// clang-format off
#include <jpeglib.h>
// clang-format on

#include "raster/core/rasfile.h"
#include "raster/jpeg.h"
#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;

template <class Sample>
Picture Make(uint32_t width, uint32_t height, uint32_t channels, Sample sample) {
  Picture p{width, height, channels, std::vector<Bytes>(channels, Bytes(size_t{width} * height))};
  for (uint32_t k = 0; k < channels; ++k)
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x)
        p.At(x, y, k) = static_cast<uint8_t>(sample(x, y, k));
  return p;
}

// Smooth shapes with a little texture, so that compression keeps them close.
Picture Textured(uint32_t width, uint32_t height, uint32_t channels) {
  return Make(width, height, channels, [](uint32_t x, uint32_t y, uint32_t k) {
    return 128 + 90 * std::sin(0.21 * x + k) * std::cos(0.17 * y + 0.5 * k) + (x * 7 + y * 13) % 5;
  });
}

// libjpeg as the referee, samples as planes, CMYK inks complemented as read; a fatal error in
// it ends the program.
Picture Decode(const std::string &path) {
  jpeg_error_mgr err;
  jpeg_decompress_struct codec;
  codec.err = jpeg_std_error(&err);
  const Bytes file = ReadFile(path);
  jpeg_create_decompress(&codec);
  jpeg_mem_src(&codec, file.data(), file.size());
  jpeg_read_header(&codec, TRUE);
  jpeg_start_decompress(&codec);
  const size_t stride = size_t{codec.output_width} * codec.output_components;
  Bytes samples(stride * codec.output_height);
  for (JSAMPROW row; codec.output_scanline < codec.output_height;)
    jpeg_read_scanlines(&codec, &(row = &samples[codec.output_scanline * stride]), 1);
  jpeg_finish_decompress(&codec);
  jpeg_destroy_decompress(&codec);
  const uint32_t width = codec.output_width, channels = codec.output_components;
  return Make(width, codec.output_height, channels, [&](uint32_t x, uint32_t y, uint32_t k) {
    return samples[(size_t{y} * width + x) * channels + k] ^ (channels == 4 ? 0xFF : 0);  // CMYK
  });
}

// Offers row `y` of `image` to a writer.
int Put(RasDesc *desc, const Picture &image, uint32_t y) {
  RasSl sl{image.width, image.channels, {}, {}};
  for (uint32_t k = 0; k < image.channels; ++k)
    sl.plane8[k] = const_cast<uint8_t *>(image.planes[k].data()) + size_t{y} * image.width;
  return RasWriteSl(desc, y, &sl);
}

// Offset of the first header segment with marker `code` (0xC0 the frame, 0xDA
// the scan), or the file's size.
size_t Segment(const Bytes &file, uint8_t code) {
  for (size_t i = 2; i + 4 <= file.size() && file[i] == 0xFF;
       i += 2 + GetField(file, i + 2, 2, true))
    if (file[i + 1] == code) return i;
  return file.size();
}

std::vector<int> Options() {
  std::vector<int> values(5);
  for (int i = 0; i < 5; ++i)
    JpegGetOption(i, &values[i]);
  return values;
}

class JpegTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(JpegSetOption(JpegOptQuality, 100), 0); }
  void TearDown() override {
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ(JpegSetOption(i, settings_[i]), 0);
  }
  static int Write(const std::string &name, uint32_t model, const Picture &p, float dpi = 72.0F) {
    return WritePicture(name, RasFormatJpeg, model, p, dpi);
  }

  const std::vector<int> settings_ = Options();
  ErrorLog log_;
};

TEST_F(JpegTest, RoundTripsMatchAnIndependentDecoderExactly) {
  // Widths below, at and past the 16-pixel blocks of the interleave routines.
  const uint32_t shapes[][2] = {{1, 40}, {5, 9}, {16, 16}, {17, 5}, {33, 17}, {47, 3}};
  const std::string path = TempPath("round.jpg");
  const std::pair<uint32_t, uint32_t> models[] = {
      {RasModelGray, 1}, {RasModelRgb, 3}, {RasModelCmyk, 4}};
  for (const auto &[model, channels] : models)
    for (const auto &[width, height] : shapes) {
      SCOPED_TRACE(testing::Message() << channels << " channels " << width << "x" << height);
      const Picture original = Textured(width, height, channels);
      ASSERT_EQ(Write(path, model, original), 0);
      Picture back;
      RasDesc desc{};
      ASSERT_EQ(ReadPicture(path, &back, &desc), 0);
      // A CMYK file carries no JFIF marker, so no density either.
      EXPECT_EQ(std::tuple(desc.format, desc.model, desc.maxval, desc.resolution),
                std::tuple(+RasFormatJpeg, model, 255u, channels == 4 ? -1.0F : 72.0F));
      EXPECT_LE(MaxDifference(original, back), channels == 3 ? 12 : 2);
      EXPECT_EQ(Decode(path), back);
    }
}

TEST_F(JpegTest, ReadsOtherProgramsFilesLikeTheReferee) {
  for (const char *file :
       {"imagers__images_jpg_progressive_cat.jpg", "ljt__testorig.jpg", "pillow__hopper.jpg",
        "pillow__hopper_gray.jpg", "pillow__pil_sample_cmyk.jpg", "oiio__jpeg_src_YCbCrK.jpg"}) {
    SCOPED_TRACE(file);
    const std::string path = std::string(KORVEL_TESTDATA_DIR) + "/jpeg/" + file;
    Picture ours;
    ASSERT_EQ(ReadPicture(path, &ours), 0);
    EXPECT_EQ(Decode(path), ours);  // CMYK read as the complement of the stored samples
  }
}

TEST_F(JpegTest, WriterTakesRowsInOrderAndToleratesTheLastAgain) {
  const std::string path = TempPath("order.jpg");
  const Picture rows = Make(8, 3, 1, [](uint32_t, uint32_t y, uint32_t) { return 40 + 80 * y; });
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 8, 3, 1, RasModelGray, -1.0F), 0);
  ASSERT_EQ(RasOpen(path.c_str(), 'w', &desc), 0);
  EXPECT_EQ(Put(&desc, rows, 0), 0);
  EXPECT_EQ(Put(&desc, Textured(8, 3, 1), 0), 0);  // ignored
  EXPECT_EQ(Put(&desc, rows, 2), -1);
  EXPECT_EQ(log_.Last(), (Logged{"JpegWriteSl", -1, 3}));
  EXPECT_EQ(Put(&desc, rows, 1), 0);
  EXPECT_EQ(Put(&desc, rows, 2), 0);
  EXPECT_EQ(Put(&desc, rows, 3), -1);
  EXPECT_EQ(log_.Last(), (Logged{"JpegWriteSl", -1, 4}));
  EXPECT_EQ(RasClose(&desc), 0);
  Picture back;
  ASSERT_EQ(ReadPicture(path, &back), 0);
  EXPECT_LE(MaxDifference(rows, back), 4);
}

TEST_F(JpegTest, SettingsAreValidated) {
  const int cases[][3] = {{0, 101, -1}, {0, -1, -1}, {1, 3, -1}, {2, 101, -1}, {3, -1, -1},
                          {4, 2, -1},   {0, 100, 0}, {1, 2, 0},  {2, 100, 0},  {3, 0, 0},
                          {4, 1, 0},    {7, 55, 0},  {5, 9, 0}};
  for (const auto &[index, value, code] : cases) {
    SCOPED_TRACE(testing::Message() << index << "=" << value);
    std::vector<int> expected = Options();
    log_.Clear();
    EXPECT_EQ(JpegSetOption(index, value), code);
    EXPECT_EQ(log_.Last(), code ? (Logged{"JpegSetOption", -1, 1}) : Logged{});
    if (code == 0 && index < 5) expected[index] = value;
    EXPECT_EQ(Options(), expected);
  }
  int untouched = 1234;
  EXPECT_EQ(JpegGetOption(7, &untouched), 0);
  EXPECT_EQ(untouched, 1234);
}

TEST_F(JpegTest, JfifDensityBothWays) {
  const std::tuple<float, uint8_t, uint32_t> cases[] = {
      {72.0F, 1, 72},      {299.5F, 1, 300}, {299.4F, 1, 299}, {0.4F, 1, 0},
      {70000.0F, 1, 4464}, {1e30F, 1, 0},    {0.0F, 0, 1},     {-1.0F, 0, 1}};
  const std::string path = TempPath("jfif.jpg");
  // The write open also leaves the file layer's expected size as it was.
  int64_t saved = 0, now = 0;
  const int64_t expected = 4321;
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &saved), 0);
  ASSERT_EQ(RasFileSetOption(RasFileOptExpectedSize, &expected), 0);
  RasDesc desc{};
  for (const auto &[resolution, unit, density] : cases) {
    SCOPED_TRACE(resolution);
    ASSERT_EQ(Write(path, RasModelRgb, Textured(5, 5, 3), resolution), 0);
    const Bytes b = ReadFile(path);
    const auto hi = static_cast<uint8_t>(density >> 8), lo = static_cast<uint8_t>(density);
    EXPECT_EQ(
        Bytes(b.begin(), b.begin() + std::min<size_t>(b.size(), 18)),
        (Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, unit, hi, lo, hi, lo}));
    ASSERT_EQ(RasGetInfo(path.c_str(), &desc), 0);
    EXPECT_EQ(desc.resolution, unit ? static_cast<float>(density) : -1.0F);
  }
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &now), 0);
  EXPECT_EQ(RasFileSetOption(RasFileOptExpectedSize, &saved), 0);
  EXPECT_EQ(now, expected);
  // Dots per centimetre.
  ASSERT_EQ(Write(path, RasModelGray, Textured(5, 5, 1), 100.0F), 0);
  Bytes file = ReadFile(path);
  file[13] = 2;
  WriteFile(path, file);
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), 0);
  EXPECT_EQ(desc.resolution, 254.0F);
}

TEST_F(JpegTest, RestartMarkersFollowTheSetting) {
  for (bool off : {false, true}) {  // the default first
    SCOPED_TRACE(off);
    ASSERT_EQ(off ? JpegSetOption(JpegOptRestart, 0) : 0, 0);
    ASSERT_EQ(Write(TempPath("rst.jpg"), RasModelGray, Textured(16, 64, 1)), 0);
    const Bytes b = ReadFile(TempPath("rst.jpg"));
    int markers = 0;  // the interval's definition, and one between each two of 8 MCU rows
    for (size_t i = 0; i + 1 < b.size(); ++i)
      markers += b[i] == 0xFF && ((b[i + 1] & 0xF8) == 0xD0 || b[i + 1] == 0xDD);
    EXPECT_EQ(markers, off ? 0 : 8);
  }
}

TEST_F(JpegTest, DamagedFilesFailCleanly) {
  // A photo missing the last third of its data reads to the end, the rest
  // made up as any decoder makes it up; one missing three quarters would be
  // mostly made up, and fails at the first row past its data.
  const Bytes photo = ReadFile(std::string(KORVEL_TESTDATA_DIR) + "/jpeg/pillow__hopper.jpg");
  const size_t data = Segment(photo, 0xDA), length = photo.size() - data;
  ASSERT_LT(data, photo.size());
  WriteFile(TempPath("cut.jpg"), Bytes(photo.begin(), photo.begin() + data + length * 2 / 3));
  WriteFile(TempPath("stub.jpg"), Bytes(photo.begin(), photo.begin() + data + length / 4));
  Picture back;
  EXPECT_EQ(ReadPicture(TempPath("cut.jpg"), &back), 0);
  EXPECT_EQ(back, Decode(TempPath("cut.jpg")));
  EXPECT_EQ(ReadPicture(TempPath("stub.jpg"), &back), -5);
  EXPECT_EQ(log_.Last(), (Logged{"JpegReadSl", -5, 8}));

  ASSERT_EQ(Write(TempPath("whole.jpg"), RasModelRgb, Textured(64, 48, 3)), 0);
  const Bytes whole = ReadFile(TempPath("whole.jpg"));

  // A second frame where the end of image belongs fails the last row.
  Bytes twice(whole.begin(), whole.end() - 2);
  twice.insert(twice.end(), whole.begin() + 2, whole.end());
  WriteFile(TempPath("twice.jpg"), twice);
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 1, 1, 1, RasModelGray, -1.0F), 0);
  ASSERT_EQ(RasOpen(TempPath("twice.jpg").c_str(), 'r', &desc), 0);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(&desc, 47, &sl), -8);  // fails finishing the image
  EXPECT_EQ(log_.Last(), (Logged{"JpegReadSl", -8, 8}));
  EXPECT_EQ(RasReadSl(&desc, 47, &sl), -8);  // decoded again from the top
  EXPECT_EQ(RasReadSl(&desc, 3, &sl), 0);    // going back reopens
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);
}

TEST_F(JpegTest, HugeDeclaredPicturesAreRefusedBeforeAnyDecoding) {
  ASSERT_EQ(Write(TempPath("small.jpg"), RasModelRgb, Textured(16, 16, 3)), 0);
  const Bytes small = ReadFile(TempPath("small.jpg"));
  const size_t frame = Segment(small, 0xC0);
  ASSERT_LT(frame, small.size());
  // The same few hundred bytes declaring a picture of `side` x `side`.
  const auto declare = [&](const char *name, uint32_t side) {
    Bytes forged = small;
    PutField(forged, frame + 5, side, 2, true);
    PutField(forged, frame + 7, side, 2, true);
    WriteFile(TempPath(name), forged);
    return TempPath(name);
  };
  // Beyond the pixel limit: the probe and the open refuse, declaring the size.
  const std::string huge = declare("huge.jpg", 65500);
  RasDesc desc{};
  EXPECT_EQ(RasGetInfo(huge.c_str(), &desc), -9);
  EXPECT_EQ(log_.Last(), (Logged{"RasGetInfo", -9, 2}));
  EXPECT_TRUE(RasPixelLimitRefused());
  EXPECT_EQ(std::tuple(desc.width, desc.height, desc.state), std::tuple(65500u, 65500u, nullptr));
  desc.format = RasFormatJpeg;
  EXPECT_EQ(RasOpen(huge.c_str(), 'r', &desc), -9);
  EXPECT_EQ(log_.Last(), (Logged{"JpegOpen", -9, 17}));
  EXPECT_EQ(desc.state, nullptr);
  // Within the limit but with data for a few blocks only: open, then the
  // first row fails instead of 400 million pixels of filler.
  const std::string filler = declare("filler.jpg", 20000);
  ASSERT_EQ(RasGetInfo(filler.c_str(), &desc), 0);
  EXPECT_FALSE(RasPixelLimitRefused());
  ASSERT_EQ(RasOpen(filler.c_str(), 'r', &desc), 0);
  RasSl sl{};
  EXPECT_EQ(RasReadSl(&desc, 0, &sl), -5);
  EXPECT_EQ(log_.Last(), (Logged{"JpegReadSl", -5, 8}));
  EXPECT_EQ(RasReadSl(&desc, 1, &sl), -5);
  EXPECT_EQ(log_.Last(), (Logged{"JpegReadSl", -5, 9}));
  EXPECT_EQ(RasClose(&desc), 0);
  RasFreeSl(&sl);
}

TEST_F(JpegTest, MemoryBlocksServeAsSourceAndDestination) {
  const Picture image = Textured(300, 20, 3);
  ASSERT_EQ(Write(TempPath("disk.jpg"), RasModelRgb, image), 0);
  Bytes file = ReadFile(TempPath("disk.jpg"));
  RasMemName source, dest;
  RasMakeMemName(&source, file.data(), file.size());
  const char *name = RasMemNameOf(source);
  // 2 to 0 and 2 to 1 reopen the block by its whole name, 2 again repeats the
  // buffered row, 19 again after the image is finished and 19 to 18 reopen.
  // Each row's last reading is the one the comparison sees.
  const std::vector<uint32_t> order = {0, 1,  2,  0,  2,  2,  1,  2,  3,  4,  5,  6,  7,  8,
                                       9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 19, 18, 20};
  Picture fromDisk, fromMemory;
  ASSERT_EQ(ReadPicture(TempPath("disk.jpg"), &fromDisk), 0);
  EXPECT_EQ(ReadPicture(name, &fromMemory, nullptr, order), -1);
  EXPECT_EQ(log_.Last(), (Logged{"JpegReadSl", -1, 4}));  // 20 is past the end
  EXPECT_EQ(fromMemory, fromDisk);

  // A block too small: the row that overflows it is a failed write, and the
  // same row offered again is refused.
  Bytes block(file.size() / 3);
  RasMakeMemName(&dest, block.data(), block.size());
  RasDesc desc;
  ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, 300, 20, 3, RasModelRgb, -1.0F), 0);
  ASSERT_EQ(RasOpen(RasMemNameOf(dest), 'w', &desc), 0);
  uint32_t y = 0;
  while (y < 20 && Put(&desc, image, y) == 0)
    ++y;
  ASSERT_LT(y, 19u);  // before the end of image
  EXPECT_EQ(log_.Last(), (Logged{"JpegWriteSl", -6, 6}));
  EXPECT_EQ(Put(&desc, image, y), -6);
  EXPECT_EQ(log_.Last(), (Logged{"JpegWriteSl", -6, 7}));
  EXPECT_EQ(RasClose(&desc), 0);
}

TEST_F(JpegTest, OpenRefusesWhatItCannotHandle) {
  WriteFile(TempPath("empty.jpg"), {});
  const std::tuple<uint32_t, uint32_t, uint32_t, const char *, char, int, int> cases[] = {
      {1, 1, RasModelGray, "empty.jpg", 'r', -8, 1},
      {4, 3, RasModelLab, "lab.jpg", 'w', -1, 2},  // no JPEG colour space for it
      {4, 4, RasModelRgb, "bad.jpg", 'w', -8, 1},  // channels not fitting the model
      {0, 1, RasModelGray, "bad.jpg", 'w', -8, 1},
      {4, 1, RasModelGray, "no/such.jpg", 'w', -4, 13}};
  for (const auto &[width, channels, model, name, mode, code, detail] : cases) {
    SCOPED_TRACE(name);
    RasDesc desc;
    ASSERT_EQ(RasSetDesc(&desc, RasFormatJpeg, width, 4, channels, model, -1.0F), 0);
    log_.Clear();
    EXPECT_EQ(RasOpen(TempPath(name).c_str(), mode, &desc), code);
    EXPECT_EQ(log_.Last(), (Logged{"JpegOpen", code, detail}));
  }
  EXPECT_FALSE(std::filesystem::exists(TempPath("lab.jpg")));
}

}  // namespace

// Reduced-size JPEG decoding: the reduction chosen, the sizes the codec
// makes, and pixels that agree with a full decode averaged over blocks.
#include "raster/jpegthumb.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

#include <cmath>
#include <cstdlib>

#include "tests/thumbs/thumbtest.h"

namespace {

struct Decoded {
  JpegThumb thumb{};
  ~Decoded() { JpegThumbFree(&thumb); }
};

TEST(JpegThumb, DenominatorIsTheLargestReductionStillBigEnough) {
  struct Case {
    uint32_t width, height, atLeastWidth, atLeastHeight, denominator;
  };
  const Case cases[] = {
      {4000, 3000, 128, 96, 8},  {4000, 3000, 500, 375, 8}, {4000, 3000, 501, 375, 4},
      {4000, 3000, 256, 376, 4}, {1000, 750, 256, 192, 2},  {1000, 750, 500, 375, 2},
      {1000, 750, 501, 100, 1},  {100, 100, 128, 128, 1},   {17, 9, 3, 2, 8},
      {17, 9, 3, 3, 4},          {6000, 4000, 0, 0, 8},     {1, 1, 1, 1, 8},
  };
  for (const Case &c : cases)
    EXPECT_EQ(JpegThumbDenominator(c.width, c.height, c.atLeastWidth, c.atLeastHeight),
              c.denominator)
        << c.width << "x" << c.height << " at least " << c.atLeastWidth << "x" << c.atLeastHeight;
}

// The average of each `d` x `d` block of `full` (the last ones partial, as
// the codec's rounded-up sizes have them).
testutil::Picture BoxReduced(const testutil::Picture &full, uint32_t d) {
  testutil::Picture out{(full.width + d - 1) / d, (full.height + d - 1) / d, 3, {}};
  out.planes.assign(3, testutil::Bytes(size_t{out.width} * out.height));
  for (uint32_t y = 0; y < out.height; ++y)
    for (uint32_t x = 0; x < out.width; ++x)
      for (uint32_t k = 0; k < 3; ++k) {
        uint32_t sum = 0, n = 0;
        for (uint32_t v = y * d; v < std::min(full.height, y * d + d); ++v)
          for (uint32_t u = x * d; u < std::min(full.width, x * d + d); ++u, ++n)
            sum += full.At(u, v, k);
        out.At(x, y, k) = static_cast<uint8_t>((sum + n / 2) / n);
      }
  return out;
}

TEST(JpegThumb, ReducedDecodeMatchesABoxFilteredFullDecode) {
  QTemporaryDir dir;
  // 203 x 141: neither side a whole number of blocks at any reduction.
  const QString path = thumbtest::Write(dir.path(), "smooth.jpg", thumbtest::Gradient(203, 141));
  testutil::Picture full;
  ASSERT_EQ(testutil::ReadPicture(QFile::encodeName(path).toStdString(), &full), RasOk);
  for (uint32_t d : {1U, 2U, 4U, 8U}) {
    SCOPED_TRACE(d);
    Decoded decoded;
    const uint32_t wantWidth = (203 + d - 1) / d, wantHeight = (141 + d - 1) / d;
    ASSERT_EQ(
        JpegThumbDecode(QFile::encodeName(path).constData(), wantWidth, wantHeight, &decoded.thumb),
        RasOk);
    const JpegThumb &t = decoded.thumb;
    EXPECT_EQ(t.denominator, d);
    EXPECT_EQ(t.width, wantWidth);
    EXPECT_EQ(t.height, wantHeight);
    EXPECT_EQ(t.fullWidth, 203U);
    EXPECT_EQ(t.fullHeight, 141U);
    const testutil::Picture reference = BoxReduced(full, d);
    double total = 0;
    int worst = 0;
    for (uint32_t y = 0; y < t.height; ++y)
      for (uint32_t x = 0; x < t.width; ++x)
        for (uint32_t k = 0; k < 3; ++k) {
          const int diff =
              std::abs(int(t.rgb[(size_t{y} * t.width + x) * 3 + k]) - int(reference.At(x, y, k)));
          worst = std::max(worst, diff);
          total += diff;
        }
    // The fast transform and plain chroma upsampling differ from the
    // accurate full decode by a few levels on a smooth picture.
    EXPECT_LE(worst, 6);
    EXPECT_LT(total / (double(t.width) * t.height * 3), 1.5);
  }
}

TEST(JpegThumb, GreyAndMemoryFilesComeOutAsRgb) {
  QTemporaryDir dir;
  testutil::Picture grey{64, 32, 1, {testutil::Bytes(64 * 32, 90)}};
  const std::string path = QFile::encodeName(dir.path() + "/grey.jpg").toStdString();
  ASSERT_EQ(testutil::WritePicture(path, RasFormatJpeg, RasModelGray, grey), RasOk);
  testutil::Bytes bytes = testutil::ReadFile(path);
  RasMemName mem;
  RasMakeMemName(&mem, bytes.data(), bytes.size());
  Decoded decoded;
  ASSERT_EQ(JpegThumbDecode(RasMemNameOf(mem), 16, 8, &decoded.thumb), RasOk);
  EXPECT_EQ(decoded.thumb.denominator, 4U);
  ASSERT_EQ(decoded.thumb.width, 16U);
  for (size_t i = 0; i < size_t{16} * 8 * 3; ++i)
    EXPECT_NEAR(decoded.thumb.rgb[i], 90, 2) << i;
}

TEST(JpegThumb, RefusalsSayWhyAndLeaveNoRows) {
  QTemporaryDir dir;
  Decoded decoded;
  EXPECT_EQ(JpegThumbDecode(nullptr, 1, 1, &decoded.thumb), RasErrArg);
  EXPECT_EQ(JpegThumbDecode("x", 1, 1, nullptr), RasErrArg);
  const QString missing = dir.path() + "/missing.jpg";
  EXPECT_EQ(JpegThumbDecode(QFile::encodeName(missing).constData(), 1, 1, &decoded.thumb),
            RasErrOpen);
  const QString bmp =
      thumbtest::Write(dir.path(), "p.bmp", testutil::Pattern(8, 8, 3), RasFormatBmp);
  EXPECT_EQ(JpegThumbDecode(QFile::encodeName(bmp).constData(), 1, 1, &decoded.thumb),
            RasErrFormat);
  EXPECT_EQ(decoded.thumb.rgb, nullptr);
  EXPECT_EQ(decoded.thumb.width, 0U);
  // A file cut in its header is refused; one cut in its data still decodes.
  // A busy picture, so that most of the file is picture data.
  const QString whole = thumbtest::Write(dir.path(), "w.jpg", testutil::Pattern(256, 256, 3));
  testutil::Bytes bytes = testutil::ReadFile(QFile::encodeName(whole).toStdString());
  const std::string head = QFile::encodeName(dir.path() + "/head.jpg").toStdString();
  testutil::WriteFile(head, testutil::Bytes(bytes.begin(), bytes.begin() + 100));
  EXPECT_EQ(JpegThumbDecode(head.c_str(), 8, 8, &decoded.thumb), RasErrFormat);
  const std::string tail = QFile::encodeName(dir.path() + "/tail.jpg").toStdString();
  testutil::WriteFile(tail, testutil::Bytes(bytes.begin(), bytes.end() - bytes.size() / 3));
  EXPECT_EQ(JpegThumbDecode(tail.c_str(), 8, 8, &decoded.thumb), RasOk);
  EXPECT_EQ(decoded.thumb.width, 32U);
}

TEST(JpegThumb, PicturesOverThePixelLimitAreRefusedBeforeDecoding) {
  QTemporaryDir dir;
  // 700 x 600 is over the 400000 pixels the test main allows, even though
  // its reduced picture would be small.
  const QString path = thumbtest::Write(dir.path(), "big.jpg", thumbtest::Gradient(700, 600));
  Decoded decoded;
  EXPECT_EQ(JpegThumbDecode(QFile::encodeName(path).constData(), 8, 8, &decoded.thumb),
            RasErrUnsupported);
  EXPECT_TRUE(RasPixelLimitRefused());
  EXPECT_EQ(decoded.thumb.fullWidth, 700U);
  EXPECT_EQ(decoded.thumb.fullHeight, 600U);
  EXPECT_EQ(decoded.thumb.rgb, nullptr);
  const QString fits = thumbtest::Write(dir.path(), "fits.jpg", thumbtest::Gradient(600, 600));
  EXPECT_EQ(JpegThumbDecode(QFile::encodeName(fits).constData(), 8, 8, &decoded.thumb), RasOk);
  EXPECT_FALSE(RasPixelLimitRefused());
}

}  // namespace

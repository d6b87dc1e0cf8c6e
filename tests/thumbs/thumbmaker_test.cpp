// Making one thumbnail: which source is used, the size it comes out at, and
// the picture turned upright.
#include "photo/thumbmaker.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>

#include "meta/exifthumb.h"
#include "meta/meta.h"
#include "tests/thumbs/thumbtest.h"

namespace {

constexpr QRgb kBlue = qRgb(20, 40, 220);
constexpr QRgb kRed = qRgb(230, 20, 20);

bool Near(QRgb a, QRgb b, int tolerance = 24) {
  return std::abs(qRed(a) - qRed(b)) <= tolerance && std::abs(qGreen(a) - qGreen(b)) <= tolerance &&
         std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

// A blue JPEG photo of `width` x `height` carrying a red EXIF thumbnail of
// `thumbWidth` x `thumbHeight`: which one a thumbnail was made from shows.
QString PhotoWithExifThumb(const QString &dir, uint32_t width, uint32_t height, uint32_t thumbWidth,
                           uint32_t thumbHeight) {
  const QString path =
      thumbtest::Write(dir, "photo.jpg", thumbtest::Flat(width, height, 20, 40, 220));
  const auto thumb =
      thumbtest::JpegBytes(dir, thumbtest::Flat(thumbWidth, thumbHeight, 230, 20, 20));
  std::string error;
  EXPECT_TRUE(MetaWriteExifThumb(QFile::encodeName(path).constData(), thumb, &error)) << error;
  return path;
}

TEST(ThumbMaker, ExifThumbnailUsedOnlyWhenBigEnoughAndWhole) {
  QTemporaryDir dir;
  const QString path = PhotoWithExifThumb(dir.path(), 640, 480, 160, 120);
  MetaThumbInfo info;
  ASSERT_TRUE(MetaReadThumbInfo(QFile::encodeName(path).constData(), &info));
  EXPECT_EQ(info.width, 640U);
  EXPECT_EQ(info.height, 480U);
  EXPECT_FALSE(info.jpeg.empty());

  ThumbSource source = ThumbSource::None;
  QImage thumb = MakeThumbnail(path, 128, &source);
  EXPECT_EQ(source, ThumbSource::Exif);
  EXPECT_EQ(thumb.size(), QSize(128, 96));
  EXPECT_TRUE(Near(thumbtest::MeanColour(thumb), kRed));
  // 160 x 120 is too small for 256 x 192: the photo itself is decoded.
  thumb = MakeThumbnail(path, 256, &source);
  EXPECT_EQ(source, ThumbSource::ScaledJpeg);
  EXPECT_EQ(thumb.size(), QSize(256, 192));
  EXPECT_TRUE(Near(thumbtest::MeanColour(thumb), kBlue));

  // A 4:3 thumbnail of a 3:2 photo has bars in it.
  QTemporaryDir wide;
  const QString padded = PhotoWithExifThumb(wide.path(), 600, 400, 160, 120);
  thumb = MakeThumbnail(padded, 128, &source);
  EXPECT_EQ(source, ThumbSource::ScaledJpeg);
  EXPECT_EQ(thumb.size(), QSize(128, 85));
  EXPECT_TRUE(Near(thumbtest::MeanColour(thumb), kBlue));
}

// Where the stored pixel (x, y) of a w x h picture is shown, for each EXIF
// orientation: the tag's definition, written out by hand.
QPoint Shown(int orientation, int x, int y, int w, int h) {
  switch (orientation) {
    case 2:
      return {w - 1 - x, y};
    case 3:
      return {w - 1 - x, h - 1 - y};
    case 4:
      return {x, h - 1 - y};
    case 5:
      return {y, x};
    case 6:
      return {h - 1 - y, x};
    case 7:
      return {h - 1 - y, w - 1 - x};
    case 8:
      return {y, w - 1 - x};
    default:
      return {x, y};
  }
}

TEST(ThumbMaker, PicturesAreTurnedUprightByTheirTag) {
  QTemporaryDir dir;
  // Blue, with a red square near the stored top-left corner.
  testutil::Picture picture = thumbtest::Flat(64, 32, 20, 40, 220);
  for (uint32_t y = 0; y < 16; ++y)
    for (uint32_t x = 0; x < 16; ++x)
      picture.At(x, y, 0) = 230, picture.At(x, y, 2) = 20;
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    const QString path = thumbtest::Write(dir.path(), "turned.jpg", picture);
    std::string error;
    ASSERT_TRUE(MetaWrite(QFile::encodeName(path).constData(), PhotoMeta{},
                          MetaSaveInfo{64, 32, orientation}, &error))
        << error;
    ThumbSource source = ThumbSource::None;
    const QImage thumb = MakeThumbnail(path, 128, &source);
    EXPECT_EQ(source, ThumbSource::ScaledJpeg);
    const bool exchanged = orientation >= 5;
    ASSERT_EQ(thumb.size(), exchanged ? QSize(32, 64) : QSize(64, 32));
    EXPECT_TRUE(Near(thumb.pixel(Shown(orientation, 7, 7, 64, 32)), kRed));
    EXPECT_TRUE(Near(thumb.pixel(Shown(orientation, 56, 8, 64, 32)), kBlue));
    EXPECT_TRUE(Near(thumb.pixel(Shown(orientation, 8, 24, 64, 32)), kBlue));
  }
}

TEST(ThumbMaker, OtherFormatsAreSubsampledAndFitted) {
  QTemporaryDir dir;
  // Red left half, blue right half, a green bottom row band.
  testutil::Picture picture = thumbtest::Flat(400, 300, 230, 20, 20);
  for (uint32_t y = 0; y < 300; ++y)
    for (uint32_t x = 0; x < 400; ++x) {
      if (x >= 200) picture.At(x, y, 0) = 20, picture.At(x, y, 2) = 220, picture.At(x, y, 1) = 40;
      if (y >= 270) picture.At(x, y, 0) = 0, picture.At(x, y, 1) = 255, picture.At(x, y, 2) = 0;
    }
  for (uint32_t format : {RasFormatBmp, RasFormatPng, RasFormatTiff}) {
    SCOPED_TRACE(format);
    const QString path = thumbtest::Write(dir.path(), "picture", picture, format);
    ThumbSource source = ThumbSource::None;
    const QImage thumb = MakeThumbnail(path, 128, &source);
    EXPECT_EQ(source, ThumbSource::Subsampled);
    ASSERT_EQ(thumb.size(), QSize(128, 96));
    EXPECT_TRUE(Near(thumb.pixel(20, 40), kRed));
    EXPECT_TRUE(Near(thumb.pixel(110, 40), kBlue));
    EXPECT_TRUE(Near(thumb.pixel(64, 94), qRgb(0, 255, 0)));
  }
  // Small pictures keep their size.
  const QString small =
      thumbtest::Write(dir.path(), "small.bmp", thumbtest::Flat(30, 20, 1, 2, 3), RasFormatBmp);
  EXPECT_EQ(MakeThumbnail(small, 128).size(), QSize(30, 20));
}

TEST(ThumbMaker, UnreadableFilesGiveNoThumbnail) {
  QTemporaryDir dir;
  QFile text(dir.path() + "/notes.jpg");
  ASSERT_TRUE(text.open(QIODevice::WriteOnly));
  text.write("\xFF\xD8\xFF but nothing else of a picture");
  text.close();
  ThumbSource source = ThumbSource::Exif;
  EXPECT_TRUE(MakeThumbnail(text.fileName(), 128, &source).isNull());
  EXPECT_EQ(source, ThumbSource::None);
  EXPECT_TRUE(MakeThumbnail(dir.path() + "/missing.png", 128, &source).isNull());
  EXPECT_EQ(source, ThumbSource::None);
}

TEST(ThumbMaker, FittedSizes) {
  EXPECT_EQ(ThumbFittedSize({4000, 3000}, 128), QSize(128, 96));
  EXPECT_EQ(ThumbFittedSize({3000, 4000}, 256), QSize(192, 256));
  EXPECT_EQ(ThumbFittedSize({10000, 10}, 128), QSize(128, 1));
  EXPECT_EQ(ThumbFittedSize({100, 50}, 128), QSize(100, 50));
  EXPECT_EQ(ThumbFittedSize({0, 50}, 128), QSize(1, 1));
}

}  // namespace

// Opening a JPEG leaves in the thumbnail cache what the thumbnailer would
// make of it, from the camera's own thumbnail or the decode that checked it:
// the same pixels, marked as checked, never over a current entry, never for
// a refused file or one inside the cache, and nothing where the thumbnailer
// would make it from another reduction.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "meta/exifthumb.h"
#include "meta/meta.h"
#include "photo/photofiles.h"
#include "photo/thumbmaker.h"
#include "tests/raster/jpegdamage.h"
#include "tests/thumbs/thumbtest.h"

namespace {

// The thumbnail tests' pixel limit is 400000, hence the long thin photos: an
// eighth of a side must still cover the cache's size along the longer one.
struct Photo {
  const char *label;
  uint32_t width, height, channels;
  int orientation;
  bool exifThumb;  // carries a camera thumbnail of its own shape
  bool normal;     // the check can make the normal entry
  bool large;      // and the large one
};

const Photo kPhotos[] = {
    {"upright", 1030, 380, 3, 1, false, true, false},
    {"turned a quarter", 1030, 380, 3, 6, false, true, false},
    {"grey", 1024, 384, 1, 1, false, true, false},
    {"odd size, turned half", 1037, 383, 3, 3, false, true, false},
    {"large enough for both", 2050, 190, 3, 8, false, true, true},
    {"an eighth too small", 700, 400, 3, 1, false, false, false},
    {"camera thumbnail", 1024, 384, 3, 1, true, true, false},
    {"inks", 1030, 380, 4, 1, false, false, false},
    {"inks with a camera thumbnail", 1024, 384, 4, 1, true, true, false},
};

QString WritePhoto(const QString &dir, const Photo &photo) {
  const QString path = dir + '/' + photo.label + ".jpg";
  const std::string name = QFile::encodeName(path).toStdString();
  const uint32_t model = photo.channels == 1   ? RasModelGray
                         : photo.channels == 4 ? RasModelCmyk
                                               : RasModelRgb;
  EXPECT_EQ(testutil::WritePicture(name, RasFormatJpeg, model,
                                   testutil::Pattern(photo.width, photo.height, photo.channels)),
            RasOk);
  std::string error;
  if (photo.orientation != 1) {
    const MetaSaveInfo info{int32_t(photo.width), int32_t(photo.height), photo.orientation};
    EXPECT_TRUE(MetaWrite(name.c_str(), PhotoMeta{}, info, &error)) << error;
  }
  if (photo.exifThumb) {
    const auto thumb = thumbtest::JpegBytes(dir, thumbtest::Flat(160, 60, 230, 20, 20));
    EXPECT_TRUE(MetaWriteExifThumb(name.c_str(), thumb, &error)) << error;
  }
  return path;
}

QImage Rgb(const QImage &image) {
  return image.convertToFormat(QImage::Format_RGB32);
}

// The entry at `size` is MakeThumbnail's thumbnail when `made`, else absent.
void ExpectEntry(const ThumbCache &cache, const QString &path, int size, bool made) {
  SCOPED_TRACE(size);
  const QImage entry = cache.Lookup(path, size);
  ASSERT_EQ(!entry.isNull(), made);
  if (!made) return;
  const QImage thumb = MakeThumbnail(path, size);
  EXPECT_EQ(entry.size(), thumb.size());
  EXPECT_TRUE(Rgb(entry) == Rgb(thumb));
}

TEST(OpenThumbs, AnOpenedJpegLeavesWhatTheThumbnailerWouldMake) {
  QTemporaryDir dir;
  // No screen without a window system: the user's cache, the normal size.
  const OpenThumbs screen = OpenThumbsForScreen();
  EXPECT_EQ(screen.cache.Root(), ThumbCache().Root());
  EXPECT_FALSE(screen.large);
  const OpenThumbs dense{ThumbCache(dir.filePath("dense")), true};
  for (const Photo &photo : kPhotos) {
    SCOPED_TRACE(photo.label);
    const QString path = WritePhoto(dir.path(), photo);
    for (const OpenThumbs *thumbs : {&screen, &dense}) {
      EXPECT_TRUE(CheckPhotoFile(path, thumbs).opens);
      ExpectEntry(thumbs->cache, path, ThumbCache::kNormal, photo.normal);
      EXPECT_EQ(thumbs->cache.PassedCheck(path), photo.normal);
      ExpectEntry(thumbs->cache, path, ThumbCache::kLarge, photo.large && thumbs->large);
    }
  }
}

TEST(OpenThumbs, NoEntryReplacedNorMadeForRefusedOrCachedFiles) {
  QTemporaryDir dir;
  const OpenThumbs thumbs{ThumbCache(dir.filePath("cache")), true};
  const QString path = WritePhoto(dir.path(), kPhotos[4]);
  // A current entry made before stays as it is; the missing size is made.
  QImage mine(128, 12, QImage::Format_RGB32);
  mine.fill(qRgb(230, 20, 20));
  ASSERT_TRUE(thumbs.cache.Store(path, ThumbCache::kNormal, mine));
  ASSERT_TRUE(CheckPhotoFile(path, &thumbs).opens);
  EXPECT_TRUE(Rgb(thumbs.cache.Lookup(path, ThumbCache::kNormal)) == mine);
  ExpectEntry(thumbs.cache, path, ThumbCache::kLarge, true);
  // A file that does not open leaves nothing, nor does one in the cache.
  const QString cut = dir.filePath("cut.jpg");
  testutil::WriteFile(
      QFile::encodeName(cut).toStdString(),
      jpegdamage::Cut(testutil::ReadFile(QFile::encodeName(path).toStdString()), 0.3));
  const QString cached = thumbs.cache.Root() + "/photo.jpg";
  ASSERT_TRUE(QFile::copy(path, cached));
  EXPECT_FALSE(CheckPhotoFile(cut, &thumbs).opens);
  EXPECT_TRUE(CheckPhotoFile(cached, &thumbs).opens);
  for (const QString &file : {cut, cached})
    for (const int size : {ThumbCache::kNormal, ThumbCache::kLarge})
      EXPECT_FALSE(QFile::exists(thumbs.cache.EntryPath(file, size))) << file.toStdString();
}

}  // namespace

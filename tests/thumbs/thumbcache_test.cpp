// The disk cache of thumbnails: where entries go, what they record, and
// which entries are not trusted.
#include "photo/thumbcache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "photo/thumbmaker.h"
#include "tests/thumbs/thumbtest.h"

namespace {

QImage Coloured(int w, int h, QRgb colour) {
  QImage image(w, h, QImage::Format_RGB32);
  image.fill(colour);
  return image;
}

mode_t ModeOf(const QString &path) {
  struct stat info {};
  EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0) << path.toStdString();
  return info.st_mode & 0777;
}

bool SetModified(const QString &path, const QDateTime &when) {
  QFile file(path);
  return file.open(QIODevice::ReadWrite) &&
         file.setFileTime(when, QFileDevice::FileModificationTime);
}

TEST(ThumbCache, EntryNamesFollowTheFileUri) {
  EXPECT_EQ(ThumbCache::UriOf("/photos/a b/100%/é.jpg"),
            QByteArray("file:///photos/a%20b/100%25/%C3%A9.jpg"));
  const ThumbCache cache("/tmp/x/thumbnails");
  const QByteArray md5 = QCryptographicHash::hash("file:///photos/a.jpg", QCryptographicHash::Md5);
  EXPECT_EQ(cache.EntryPath("/photos/a.jpg", ThumbCache::kNormal),
            "/tmp/x/thumbnails/normal/" + md5.toHex() + ".png");
  EXPECT_EQ(cache.EntryPath("/photos/a.jpg", ThumbCache::kLarge),
            "/tmp/x/thumbnails/large/" + md5.toHex() + ".png");
  EXPECT_EQ(ThumbCache::FlavourFor(100), ThumbCache::kNormal);
  EXPECT_EQ(ThumbCache::FlavourFor(128), ThumbCache::kNormal);
  EXPECT_EQ(ThumbCache::FlavourFor(200), ThumbCache::kLarge);
  const QByteArray saved = qgetenv("XDG_CACHE_HOME");
  qputenv("XDG_CACHE_HOME", "/somewhere/cache");
  EXPECT_EQ(ThumbCache::DefaultRoot(), "/somewhere/cache/thumbnails");
  qputenv("XDG_CACHE_HOME", saved);
}

TEST(ThumbCache, StoredEntryRoundTripsWithItsRecords) {
  QTemporaryDir dir;
  const QString photo = thumbtest::Write(dir.path(), "photo 1.jpg", thumbtest::Gradient(40, 30));
  ASSERT_TRUE(SetModified(photo, QDateTime::fromSecsSinceEpoch(1700000123)));
  const ThumbCache cache(dir.path() + "/cache/thumbnails");
  const QImage thumb = Coloured(40, 30, qRgb(10, 200, 30));
  ASSERT_TRUE(cache.Store(photo, ThumbCache::kNormal, thumb));

  const QString entry = cache.EntryPath(photo, ThumbCache::kNormal);
  const QImage stored(entry, "png");
  EXPECT_EQ(stored.text("Thumb::URI"),
            "file://" + QDir(dir.path()).absolutePath() + "/photo%201.jpg");
  EXPECT_EQ(stored.text("Thumb::MTime"), "1700000123");
  EXPECT_EQ(stored.text("Thumb::Size"), QString::number(QFileInfo(photo).size()));
  EXPECT_EQ(stored.text("Software"), "KorvelApp");
  EXPECT_EQ(ModeOf(entry), 0600U);
  EXPECT_EQ(ModeOf(cache.Root()), 0700U);
  EXPECT_EQ(ModeOf(QFileInfo(entry).path()), 0700U);
  // Nothing but the entry is left in its folder.
  EXPECT_EQ(QDir(QFileInfo(entry).path()).entryList(QDir::Files).size(), 1);

  const QImage back = cache.Lookup(photo, ThumbCache::kNormal);
  ASSERT_EQ(back.size(), QSize(40, 30));
  EXPECT_EQ(back.pixel(20, 15), qRgb(10, 200, 30));
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kLarge).isNull());
  EXPECT_TRUE(cache.Lookup(dir.path() + "/other.jpg", ThumbCache::kNormal).isNull());
}

TEST(ThumbCache, StaleCorruptAndForeignEntriesAreNotTrusted) {
  QTemporaryDir dir;
  const QString photo = thumbtest::Write(dir.path(), "p.jpg", thumbtest::Gradient(40, 30));
  const ThumbCache cache(dir.path() + "/thumbnails");
  ASSERT_TRUE(cache.Store(photo, ThumbCache::kNormal, Coloured(4, 3, qRgb(1, 2, 3))));
  const QString entry = cache.EntryPath(photo, ThumbCache::kNormal);

  // The photo changed a second later: the entry is stale until remade.
  const QDateTime then = QFileInfo(photo).lastModified();
  ASSERT_TRUE(SetModified(photo, then.addSecs(1)));
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kNormal).isNull());
  ASSERT_TRUE(cache.Store(photo, ThumbCache::kNormal, Coloured(4, 3, qRgb(4, 5, 6))));
  EXPECT_EQ(cache.Lookup(photo, ThumbCache::kNormal).pixel(0, 0), qRgb(4, 5, 6));

  // An entry cut short keeps its records but not its pixels.
  QFile file(entry);
  ASSERT_TRUE(file.open(QIODevice::ReadWrite));
  ASSERT_TRUE(file.resize(file.size() - 20));
  file.close();
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kNormal).isNull());
  // Garbage in its place.
  ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write("not a png at all");
  file.close();
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kNormal).isNull());
  ASSERT_TRUE(cache.Store(photo, ThumbCache::kNormal, Coloured(4, 3, qRgb(7, 8, 9))));
  EXPECT_EQ(cache.Lookup(photo, ThumbCache::kNormal).pixel(0, 0), qRgb(7, 8, 9));

  // An entry recording another file (same name in the cache, say copied
  // from another machine) is not this photo's.
  const QString other = thumbtest::Write(dir.path(), "q.jpg", thumbtest::Gradient(40, 30));
  ASSERT_TRUE(cache.Store(other, ThumbCache::kNormal, Coloured(4, 3, 0)));
  ASSERT_TRUE(QFile::remove(entry));
  ASSERT_TRUE(QFile::copy(cache.EntryPath(other, ThumbCache::kNormal), entry));
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kNormal).isNull());
}

TEST(ThumbCache, FilesInsideTheCacheAreNeverStored) {
  QTemporaryDir dir;
  const ThumbCache cache(dir.path() + "/thumbnails");
  const QString photo = thumbtest::Write(dir.path(), "p.jpg", thumbtest::Gradient(16, 16));
  ASSERT_TRUE(cache.Store(photo, ThumbCache::kNormal, Coloured(4, 4, 0)));
  const QString entry = cache.EntryPath(photo, ThumbCache::kNormal);
  EXPECT_TRUE(cache.Holds(entry));
  EXPECT_FALSE(cache.Holds(photo));
  EXPECT_FALSE(cache.Holds(dir.path() + "/thumbnails-old/x.png"));
  EXPECT_FALSE(cache.Store(entry, ThumbCache::kNormal, Coloured(4, 4, 0)));
  EXPECT_FALSE(QFileInfo::exists(cache.EntryPath(entry, ThumbCache::kNormal)));
  // Nor is a thumbnail of a file that is not there.
  EXPECT_FALSE(cache.Store(dir.path() + "/gone.jpg", ThumbCache::kNormal, Coloured(4, 4, 0)));
}

// A photo nothing could be made of is noted privately under fail/korvelapp,
// and is tried again once it changes.
TEST(ThumbCache, FailuresAreNotedUntilThePhotoChanges) {
  QTemporaryDir dir;
  const ThumbCache cache(dir.path() + "/thumbnails");
  const QString photo = thumbtest::Write(dir.path(), "p.jpg", thumbtest::Gradient(16, 16));
  ASSERT_TRUE(SetModified(photo, QDateTime::fromSecsSinceEpoch(1700000500)));
  EXPECT_FALSE(cache.Failed(photo));
  ASSERT_TRUE(cache.StoreFailure(photo));
  const QString note = cache.FailurePath(photo);
  EXPECT_EQ(QFileInfo(note).dir().absolutePath(),
            QDir(dir.path()).absolutePath() + "/thumbnails/fail/korvelapp");
  EXPECT_EQ(QFileInfo(note).fileName(), QFileInfo(cache.EntryPath(photo, 128)).fileName());
  EXPECT_EQ(QImage(note, "png").text("Thumb::MTime"), "1700000500");
  EXPECT_EQ(ModeOf(note), 0600U);
  for (const char *folder : {"/thumbnails/fail", "/thumbnails/fail/korvelapp"})
    EXPECT_EQ(ModeOf(dir.path() + folder), 0700U) << folder;
  EXPECT_TRUE(cache.Failed(photo));
  EXPECT_TRUE(cache.Lookup(photo, ThumbCache::kNormal).isNull());
  ASSERT_TRUE(SetModified(photo, QDateTime::fromSecsSinceEpoch(1700000501)));
  EXPECT_FALSE(cache.Failed(photo));
  EXPECT_FALSE(cache.StoreFailure(dir.path() + "/gone.jpg"));
}

}  // namespace

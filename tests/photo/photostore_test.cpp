// The pixel store: photos that equal their files are dropped and decoded
// again under the budget, least recently used first; unsaved pixels go to
// private spill files and come back byte for byte.
#include "photo/photostore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>
#include <string>
#include <vector>

#include "tests/raster/testutil.h"

namespace {

// The bytes of a picture's whole block: header and rows.
std::vector<uint8_t> BlockBytes(const CDib &image) {
  HGLOBAL handle = image.Handle();
  const auto *bytes = static_cast<const uint8_t *>(GlobalLock(handle));
  std::vector<uint8_t> copy;
  if (bytes) copy.assign(bytes, bytes + GlobalSize(handle));
  GlobalUnlock(handle);
  return copy;
}

// A folder of small photo files, a reader that counts what it decodes and a
// spill folder of its own.
class PhotoStoreTest : public testing::Test {
 protected:
  QString Photo(const QString &name, uint32_t format, uint32_t width, uint32_t height) {
    const QString path = dir_.path() + '/' + name;
    EXPECT_EQ(testutil::WritePicture(QFile::encodeName(path).toStdString(), format, RasModelRgb,
                                     testutil::Pattern(width, height, 3)),
              RasOk);
    return path;
  }
  // The bytes the block of the photo at `path` takes.
  static size_t BlockSize(const QString &path) {
    return BlockBytes(CDib(ReadPhotoFile(path))).size();
  }
  PhotoStore::Reader CountingReader() {
    return [this](const QString &path) {
      decoded_.push_back(path);
      return ReadPhotoFile(path);
    };
  }
  QString SpillFolder() const { return spill_.path(); }
  int SpillFiles() const { return int(QDir(spill_.path()).entryList(QDir::Files).size()); }

  QTemporaryDir dir_, spill_;
  QStringList decoded_;
};

TEST_F(PhotoStoreTest, DropsLeastRecentlyUsedAndDecodesThemAgainIdentically) {
  const QString a = Photo("a.jpg", RasFormatJpeg, 40, 30);
  const QString b = Photo("b.bmp", RasFormatBmp, 40, 30);
  const QString c = Photo("c.png", RasFormatPng, 40, 30);
  const size_t one = BlockSize(a);
  ASSERT_EQ(BlockSize(b), one);
  PhotoStore store(2 * one, SpillFolder(), CountingReader());

  // Opening hands over what it read; the third one pushes out the oldest.
  const std::vector<uint8_t> first = BlockBytes(CDib(ReadPhotoFile(a)));
  store.AddFile(a, CDib(ReadPhotoFile(a)));
  store.AddFile(b, CDib(ReadPhotoFile(b)));
  store.AddFile(c);  // nothing decoded yet
  EXPECT_TRUE(decoded_.isEmpty());
  EXPECT_TRUE(store.Resident(0) && store.Resident(1) && !store.Resident(2));

  // c decoded: a, least recently used, goes; b was used later.
  EXPECT_EQ(store.At(2).Width(), 40u);
  EXPECT_EQ(decoded_, QStringList{c});
  EXPECT_FALSE(store.Resident(0));
  EXPECT_TRUE(store.Resident(1));
  EXPECT_LE(store.ResidentBytes(), store.Budget());

  // Using b makes c the oldest: a comes back byte for byte and c goes.
  (void)store.At(1);
  const CDib again = store.At(0);
  EXPECT_EQ(decoded_, (QStringList{c, a}));
  EXPECT_EQ(BlockBytes(again), first);
  EXPECT_TRUE(store.Resident(0) && store.Resident(1) && !store.Resident(2));
  EXPECT_TRUE(store.SpillPath(0).isEmpty() && store.SpillPath(2).isEmpty());
  EXPECT_EQ(SpillFiles(), 0);  // what equals a file is never spilled

  // A holder keeps its copy when the store lets go of it.
  (void)store.At(2);
  (void)store.At(1);
  EXPECT_FALSE(store.Resident(0));
  EXPECT_EQ(BlockBytes(again), first);
}

TEST_F(PhotoStoreTest, UnsavedPixelsSpillPrivatelyAndComeBackIdentically) {
  const QString a = Photo("a.bmp", RasFormatBmp, 33, 21);
  const QString b = Photo("b.bmp", RasFormatBmp, 33, 21);
  const size_t one = BlockSize(a);
  QString spilled;
  std::vector<uint8_t> edit;
  {
    PhotoStore store(one, SpillFolder(), CountingReader());
    store.AddPixels(CDib(ReadPhotoFile(a)));  // an edit nobody saved
    edit = BlockBytes(store.At(0));
    store.AddPixels(CDib(ReadPhotoFile(b)));
    ASSERT_FALSE(store.Resident(0));
    spilled = store.SpillPath(0);
    ASSERT_TRUE(spilled.startsWith(SpillFolder() + '/')) << spilled.toStdString();
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(spilled).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(size_t(info.st_size), edit.size());

    // Read back identically; the spill file stays valid, so pushing it out
    // again writes nothing new.
    EXPECT_EQ(BlockBytes(store.At(0)), edit);
    EXPECT_TRUE(decoded_.isEmpty());  // never taken from the photo's file
    EXPECT_FALSE(store.Resident(1));
    EXPECT_EQ(SpillFiles(), 2);
    (void)store.At(1);
    EXPECT_EQ(store.SpillPath(0), spilled);
    EXPECT_EQ(BlockBytes(store.At(0)), edit);

    // A new edit outdates its spill file; removing an entry removes its own.
    const QString second = store.SpillPath(1);
    store.SetPixels(0, CDib(ReadPhotoFile(b)));
    EXPECT_FALSE(QFile::exists(spilled));
    store.Remove(1);
    EXPECT_FALSE(QFile::exists(second));
    EXPECT_EQ(store.Count(), 1);
    EXPECT_EQ(BlockBytes(store.At(0)), BlockBytes(CDib(ReadPhotoFile(b))));

    // Saved, it needs no spill file: it is dropped and read from its file.
    store.AddPixels(CDib(ReadPhotoFile(a)));
    ASSERT_FALSE(store.SpillPath(0).isEmpty());
    store.SetFile(0, a, store.At(0));
    EXPECT_TRUE(store.SpillPath(0).isEmpty());
    (void)store.At(1);
    EXPECT_FALSE(store.Resident(0));
    EXPECT_TRUE(store.SpillPath(0).isEmpty());
    EXPECT_EQ(SpillFiles(), 1);  // the second entry's
  }
  EXPECT_EQ(SpillFiles(), 0);  // the store's end takes the rest
}

// A spilled entry leaves the grid's picture of its pixels behind, made from
// what went to the spill file; new pixels, a file or removal take it away, and
// pixels rewritten in place outdate it until they are spilled again.
TEST_F(PhotoStoreTest, ASpilledEntryLeavesThePictureOfWhatItHolds) {
  const auto reduced = [](const CDib &image) { return MakeCellPicture(image, 1)->image; };
  const auto kept = [&](PhotoStore &store, int index) {
    const CellPicture *picture = store.KeptPicture(index);
    return picture ? picture->image : QImage();
  };
  const CDib wide(ReadPhotoFile(Photo("w.bmp", RasFormatBmp, 300, 200)));
  const CDib tall(ReadPhotoFile(Photo("t.bmp", RasFormatBmp, 200, 300)));
  const CDib whole(ReadPhotoFile(Photo("s.bmp", RasFormatBmp, 190, 190)));
  PhotoStore store(0, SpillFolder(), CountingReader());
  store.AddPixels(wide);
  EXPECT_EQ(store.KeptPicture(0), nullptr);  // in memory: nothing spilled yet
  store.AddPixels(whole);
  ASSERT_NE(store.KeptPicture(0), nullptr);
  EXPECT_EQ(store.KeptPicture(0)->width, 300u);
  EXPECT_EQ(kept(store, 0), reduced(wide));
  EXPECT_EQ(store.KeptPictureBytes(), size_t(reduced(wide).sizeInBytes()));
  store.AddPixels(tall);  // too large a picture for a photo so small: none
  EXPECT_FALSE(store.SpillPath(1).isEmpty());
  EXPECT_EQ(store.KeptPicture(1), nullptr);

  // Read back, it still shows what the entry holds, until rewritten in place.
  const CDib back = store.At(0);
  EXPECT_EQ(kept(store, 0), reduced(wide));
  EXPECT_EQ(kept(store, 2), reduced(tall));
  auto *bytes = static_cast<uint8_t *>(GlobalLock(back.Handle()));
  std::memset(bytes + GlobalSize(back.Handle()) / 2, 0, GlobalSize(back.Handle()) / 2);
  GlobalUnlock(back.Handle());
  GlobalTouch(back.Handle());
  EXPECT_EQ(store.KeptPicture(0), nullptr);
  (void)store.At(2);  // pushes entry 0 out again, spilled anew
  EXPECT_EQ(kept(store, 0), reduced(back));
  EXPECT_NE(reduced(back), reduced(wide));

  store.Remove(1);
  EXPECT_EQ(kept(store, 0), reduced(back));
  store.SetPixels(1, wide);  // entry 1 is tall's until now
  store.AddPixels(whole);
  EXPECT_EQ(kept(store, 1), reduced(wide));
  store.SetPixels(1, whole);
  store.SetFile(0, Photo("saved.bmp", RasFormatBmp, 300, 200), CDib());
  EXPECT_EQ(store.KeptPicture(0), nullptr);
  EXPECT_EQ(store.KeptPicture(1), nullptr);
  EXPECT_EQ(store.KeptPictureBytes(), 0u);  // the third entry's is too large
  EXPECT_TRUE(decoded_.isEmpty());
}

TEST_F(PhotoStoreTest, APhotoBiggerThanTheBudgetStillOpens) {
  const QString big = Photo("big.png", RasFormatPng, 64, 48);
  const QString small = Photo("small.png", RasFormatPng, 8, 8);
  PhotoStore store(16, SpillFolder(), CountingReader());
  store.AddFile(big);
  const CDib picture = store.At(0);
  EXPECT_EQ(picture.Width(), 64u);
  EXPECT_TRUE(store.Resident(0));  // the one in use stays
  store.AddFile(small, CDib(ReadPhotoFile(small)));
  EXPECT_FALSE(store.Resident(0));
  EXPECT_TRUE(store.Resident(1));
  EXPECT_EQ(store.At(0).Height(), 48u);
  EXPECT_FALSE(store.Resident(1));
}

// With nowhere to write a spill file the pixels stay in memory, over the
// budget: an unsaved photo is never the price of staying within it.
TEST_F(PhotoStoreTest, UnsavedPixelsStayWhenNoSpillFileCanBeMade) {
  const QString a = Photo("a.bmp", RasFormatBmp, 10, 10);
  const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
  qunsetenv("XDG_RUNTIME_DIR");
  {
    PhotoStore store(0, dir_.path() + "/missing", CountingReader());
    store.AddPixels(CDib(ReadPhotoFile(a)));
    store.AddPixels(CDib(ReadPhotoFile(a)));
    EXPECT_TRUE(store.Resident(0) && store.Resident(1));
    EXPECT_GT(store.ResidentBytes(), store.Budget());
    EXPECT_EQ(store.KeptPicture(0), nullptr);  // its pixels are all it shows
    EXPECT_EQ(store.KeptPictureBytes(), 0u);
    // A file-backed picture rewritten in place no longer equals its file: it
    // is kept as well rather than dropped.
    const CDib opened(ReadPhotoFile(a));
    store.AddFile(a, opened);
    static_cast<uint8_t *>(GlobalLock(opened.Handle()))[60] ^= 0xff;
    GlobalUnlock(opened.Handle());
    GlobalTouch(opened.Handle());
    (void)store.At(0);
    EXPECT_TRUE(store.Resident(2));
    EXPECT_FALSE(store.FileBacked(2));
  }
  if (!runtime.isNull()) qputenv("XDG_RUNTIME_DIR", runtime);
}

TEST(PhotoStoreBudget, EnvironmentOverridesTheSetting) {
  const QByteArray old = qgetenv("KORVEL_MEMORY_BUDGET_MB");
  qputenv("KORVEL_MEMORY_BUDGET_MB", "3");
  EXPECT_EQ(PhotoStore::ConfiguredBudget(), size_t(3) << 20);
  qputenv("KORVEL_MEMORY_BUDGET_MB", "0");
  EXPECT_EQ(PhotoStore::ConfiguredBudget(), 0u);
  if (old.isNull())
    qunsetenv("KORVEL_MEMORY_BUDGET_MB");
  else
    qputenv("KORVEL_MEMORY_BUDGET_MB", old);
}

}  // namespace

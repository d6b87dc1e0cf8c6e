// Photos are checked on worker threads while the window's thread goes on
// running its events, with the same entries, order, metadata and failures as
// a read on the window's own thread.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <cstring>
#include <thread>
#include <vector>

#include "meta/exifthumb.h"
#include "meta/exiv.h"
#include "meta/meta.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/photometa.h"
#include "photo/photostore.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

namespace {

const QString kExif = QStringLiteral(KORVEL_TESTDATA_DIR "/exif/");

// The whole stored block, header and rows.
std::vector<uint8_t> BlockBytes(HGLOBAL handle) {
  std::vector<uint8_t> bytes(GlobalSize(handle));
  if (!bytes.empty()) {
    std::memcpy(bytes.data(), GlobalLock(handle), bytes.size());
    GlobalUnlock(handle);
  }
  return bytes;
}

// What a read on this thread gives for `path`, the block let go afterwards.
std::vector<uint8_t> ReadHere(const QString &path) {
  HGLOBAL handle = ReadPhotoFile(path);
  std::vector<uint8_t> bytes = BlockBytes(handle);
  GlobalFree(handle);
  return bytes;
}

QString WriteJpeg(const QString &path, uint32_t width, uint32_t height) {
  EXPECT_EQ(testutil::WritePicture(QFile::encodeName(path).toStdString(), RasFormatJpeg,
                                   RasModelRgb, testutil::Smooth(width, height, 3)),
            RasOk);
  return path;
}

// Counts the turns of the window thread's event loop through a timer that
// is always due. Until the first turn it holds the metadata lock, which every
// check of a photo takes, so that no worker, however fast, is done before the
// window's thread has begun to wait: a check made on the window's thread
// itself would never finish.
class Ticks {
 public:
  Ticks() {
    meta::Lock().lock();
    timer_.setInterval(0);
    QObject::connect(&timer_, &QTimer::timeout, [this] {
      ++count_;
      Release();
    });
    timer_.start();
  }
  ~Ticks() { Release(); }
  int count() const { return count_; }

 private:
  void Release() {
    if (held_) meta::Lock().unlock();
    held_ = false;
  }
  QTimer timer_;
  int count_ = 0;
  bool held_ = true;
};

TEST(OpenThread, ABatchOpensInOrderWhileTheWindowThreadRuns) {
  QTemporaryDir dir;
  QStringList paths;
  for (int i = 0; i < 6; ++i)
    paths << WriteJpeg(dir.filePath(QStringLiteral("%1.jpg").arg(i)), 900 + 20 * i, 700);
  // A file no reader takes, in the middle of the batch.
  const QString broken = dir.filePath(QStringLiteral("broken.jpg"));
  {
    QFile file(broken);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("\xff\xd8\xff\xe0 not a picture");
  }
  paths.insert(3, broken);

  CKorvelAppDoc doc;
  OpenBatch batch;
  int ticks = 0;
  {
    // No progress is given, so nothing but the waits for the worker lets
    // the timer fire: a decode on this thread would leave it at zero.
    const Ticks during;
    batch = OpenPhotoFiles(&doc, paths);
    ticks = during.count();
  }
  EXPECT_GT(ticks, 0);
  EXPECT_EQ(batch.opened, 6);
  EXPECT_EQ(batch.failed, QStringList{broken});
  EXPECT_FALSE(batch.stopped);
  ASSERT_EQ(doc.Count(), 6);
  QStringList expected = paths;
  expected.removeAll(broken);
  for (int i = 0; i < doc.Count(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(doc.PathAt(i), expected[i]);
    EXPECT_EQ(doc.ImageAt(i).Width(), 900u + 20u * static_cast<uint32_t>(i));
    EXPECT_EQ(BlockBytes(doc.ImageAt(i).Handle()), ReadHere(expected[i]));
    EXPECT_FLOAT_EQ(doc.ResolutionAt(i), 72.0f);
  }

  ScriptedPrompt prompt;
  ReportUnopened(batch.failed);
  EXPECT_EQ(prompt.messages, QStringList{QStringLiteral("Cannot open file ") + broken});
}

TEST(OpenThread, PhotosTurnedOnTheWorkerMatchAReadHereAndKeepTheirMetadata) {
  const int orientations[] = {1, 3, 6, 8};
  QStringList paths;
  for (int n : orientations)
    paths << kExif + QStringLiteral("recurser__Portrait_%1.jpg").arg(n);
  CKorvelAppDoc doc;
  const OpenBatch batch = OpenPhotoFiles(&doc, paths);
  ASSERT_EQ(batch.opened, 4);
  for (int i = 0; i < doc.Count(); ++i) {
    SCOPED_TRACE(paths[i].toStdString());
    EXPECT_EQ(doc.PathAt(i), paths[i]);
    EXPECT_EQ(doc.ImageAt(i).Width(), 1200u);
    EXPECT_EQ(doc.ImageAt(i).Height(), 1800u);
    // The work area remembers what the worker read, under the entry's path.
    const KeptMeta *kept = KeptMetaFor(paths[i]);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->appliedOrientation, orientations[i]);
    EXPECT_EQ(kept->source, paths[i]);
    EXPECT_FALSE(kept->meta.exif.empty());
    const PhotoMeta before = kept->meta;
    EXPECT_EQ(BlockBytes(doc.ImageAt(i).Handle()), ReadHere(paths[i]));
    // A read here remembers the same record the worker's read gave.
    EXPECT_EQ(KeptMetaFor(paths[i])->meta.exif, before.exif);
    EXPECT_EQ(KeptMetaFor(paths[i])->meta.xmp, before.xmp);
  }
}

TEST(OpenThread, OnePhotoOpensWhileTheWindowThreadRunsAndAFailureAddsNothing) {
  QTemporaryDir dir;
  const QString path = WriteJpeg(dir.filePath(QStringLiteral("one.jpg")), 1600, 1200);
  CKorvelAppDoc doc;
  {
    const Ticks during;
    ASSERT_TRUE(OpenPhotoFile(&doc, path));
    EXPECT_GT(during.count(), 0);
  }
  ASSERT_EQ(doc.Count(), 1);
  EXPECT_EQ(BlockBytes(doc.ImageAt(0).Handle()), ReadHere(path));

  ScriptedPrompt prompt;
  EXPECT_FALSE(OpenPhotoFile(&doc, dir.filePath(QStringLiteral("missing.jpg"))));
  EXPECT_FALSE(OpenPhotoFile(nullptr, path));
  EXPECT_EQ(doc.Count(), 1);
  EXPECT_TRUE(prompt.messages.isEmpty());
  // No work area: every file of a batch fails, none is lost track of.
  const OpenBatch none = OpenPhotoFiles(nullptr, {path, path});
  EXPECT_EQ(none.opened, 0);
  EXPECT_EQ(none.failed, (QStringList{path, path}));
}

// The metadata library's XMP parser breaks when two threads use it at once;
// every entry point takes one lock, so reads on several threads (the
// thumbnailer's and the opening worker's) all give what one thread alone
// reads.
TEST(OpenThread, MetadataReadsOnSeveralThreadsAgreeWithOneThread) {
  const std::string path =
      QFile::encodeName(kExif + QStringLiteral("libavif__paris_exif_xmp_icc.jpg")).toStdString();
  PhotoMeta alone;
  ASSERT_TRUE(MetaRead(path.c_str(), &alone));
  ASSERT_FALSE(alone.xmp.empty());
  MetaThumbInfo thumbAlone;
  ASSERT_TRUE(MetaReadThumbInfo(path.c_str(), &thumbAlone));
  PhotoMeta strippedAlone = alone;
  MetaStripPrivate(&strippedAlone);

  constexpr int kThreads = 4;
  std::vector<int> agreed(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 6; ++round) {
        PhotoMeta meta;
        MetaThumbInfo thumb;
        const bool read = t % 2 ? MetaReadThumbInfo(path.c_str(), &thumb) &&
                                      thumb.orientation == thumbAlone.orientation &&
                                      thumb.jpeg == thumbAlone.jpeg
                                : MetaRead(path.c_str(), &meta) && meta.xmp == alone.xmp &&
                                      meta.exif == alone.exif && meta.icc == alone.icc;
        PhotoMeta stripped = alone;
        MetaStripPrivate(&stripped);
        agreed[t] +=
            read && stripped.xmp == strippedAlone.xmp && stripped.exif == strippedAlone.exif;
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(agreed, std::vector<int>(kThreads, 6));
}

}  // namespace

// The thumbnailer: answers in priority order, cached thumbnails first within
// a priority, cancelled requests unanswered, and results stored in the cache.
#include "photo/thumbnailer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <fcntl.h>
#include <unistd.h>

#include "tests/thumbs/thumbtest.h"

namespace {

struct Answers {
  QStringList order;
  QHash<QString, QImage> images;
  QStringList failed;
  explicit Answers(Thumbnailer *thumbnailer) {
    QObject::connect(thumbnailer, &Thumbnailer::thumbnailReady,
                     [this](const QString &path, const QImage &thumb) {
                       order << path;
                       images[path] = thumb;
                     });
    QObject::connect(thumbnailer, &Thumbnailer::thumbnailFailed,
                     [this](const QString &path) { failed << path; });
  }
};

// Runs the event loop until every request is answered (or a generous limit).
bool AllAnswered(Thumbnailer *thumbnailer) {
  QSignalSpy any(thumbnailer, &Thumbnailer::thumbnailReady);
  for (int i = 0; i < 200 && thumbnailer->Outstanding() > 0; ++i)
    (void)any.wait(50);
  return thumbnailer->Outstanding() == 0;
}

QStringList Photos(const QString &dir, int count) {
  QStringList paths;
  for (int i = 0; i < count; ++i) {
    const QByteArray name = QByteArray("p") + QByteArray::number(i) + ".jpg";
    paths << thumbtest::Write(dir, name.constData(), thumbtest::Gradient(200, 150));
  }
  return paths;
}

TEST(Thumbnailer, AnswersFollowPrioritiesAndCancellations) {
  QTemporaryDir dir;
  const QStringList p = Photos(dir.path(), 6);
  Thumbnailer thumbnailer(100, ThumbCache(dir.path() + "/thumbnails"), 1);
  Answers answers(&thumbnailer);
  thumbnailer.Pause();
  for (const QString &path : p)
    thumbnailer.Request(path);
  EXPECT_TRUE(thumbnailer.SetPriority(p[4], 10));
  thumbnailer.Request(p[2], 5);  // asked again: the new priority
  thumbnailer.Cancel(p[1]);
  EXPECT_FALSE(thumbnailer.SetPriority(p[1], 20));
  EXPECT_EQ(thumbnailer.Outstanding(), 5);
  thumbnailer.Resume();
  ASSERT_TRUE(AllAnswered(&thumbnailer));
  EXPECT_EQ(answers.order, (QStringList{p[4], p[2], p[0], p[3], p[5]}));
  EXPECT_TRUE(answers.failed.isEmpty());
  // Fitted into the box, and stored in the cache at its normal size.
  EXPECT_EQ(answers.images[p[0]].size(), QSize(100, 75));
  const ThumbCache cache(dir.path() + "/thumbnails");
  EXPECT_EQ(cache.Lookup(p[0], ThumbCache::kNormal).size(), QSize(128, 96));
  EXPECT_TRUE(cache.Lookup(p[1], ThumbCache::kNormal).isNull());
}

// Higher priorities first, the cached before those to be made among equals.
TEST(Thumbnailer, CachedThumbnailsComeFirstWithinTheirPriority) {
  QTemporaryDir dir;
  const QStringList p = Photos(dir.path(), 4);
  const ThumbCache cache(dir.path() + "/thumbnails");
  QImage marked(128, 96, QImage::Format_RGB32);
  marked.fill(qRgb(1, 250, 3));
  ASSERT_TRUE(cache.Store(p[2], ThumbCache::kNormal, marked));
  ASSERT_TRUE(cache.Store(p[3], ThumbCache::kNormal, marked));
  Thumbnailer thumbnailer(128, cache, 1);
  Answers answers(&thumbnailer);
  thumbnailer.Pause();
  thumbnailer.Request(p[0], 9);
  thumbnailer.Request(p[1], 0);
  thumbnailer.Request(p[2], 9);
  thumbnailer.Request(p[3], 0);
  thumbnailer.Resume();
  ASSERT_TRUE(AllAnswered(&thumbnailer));
  EXPECT_EQ(answers.order, (QStringList{p[2], p[0], p[3], p[1]}));
  EXPECT_EQ(answers.images[p[2]].pixel(5, 5), qRgb(1, 250, 3));
  EXPECT_FALSE(cache.Lookup(p[0], ThumbCache::kNormal).isNull());
}

TEST(Thumbnailer, UnreadableFilesFailAndCancelAllSilences) {
  QTemporaryDir dir;
  const QStringList p = Photos(dir.path(), 2);
  // Junk of the photo's size, so that the photo may later take its place
  // with the same size and time.
  QFile junk(dir.path() + "/junk.png");
  ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
  junk.write(QByteArray(QFileInfo(p[0]).size(), 'j'));
  junk.close();
  Thumbnailer thumbnailer(100, ThumbCache(dir.path() + "/thumbnails"), 2);
  EXPECT_EQ(thumbnailer.Threads(), 2);
  Answers answers(&thumbnailer);
  thumbnailer.Request(junk.fileName());
  QSignalSpy failed(&thumbnailer, &Thumbnailer::thumbnailFailed);
  ASSERT_TRUE(failed.wait(5000));
  EXPECT_EQ(answers.failed, QStringList{junk.fileName()});
  // Noted in the cache: while the file keeps its time and size, another
  // thumbnailer fails it without trying, even once it holds a photo.
  const ThumbCache cache(dir.path() + "/thumbnails");
  ASSERT_TRUE(cache.Failed(junk.fileName()));
  const QDateTime then = QFileInfo(junk).lastModified();
  ASSERT_TRUE(QFile::remove(junk.fileName()));
  ASSERT_TRUE(QFile::copy(p[0], junk.fileName()));
  ASSERT_TRUE(junk.open(QIODevice::ReadWrite));
  ASSERT_TRUE(junk.setFileTime(then, QFileDevice::FileModificationTime));
  junk.close();
  {
    Thumbnailer again(100, cache, 1);
    QSignalSpy failedAgain(&again, &Thumbnailer::thumbnailFailed);
    again.Request(junk.fileName());
    ASSERT_TRUE(failedAgain.wait(5000));
  }
  // A byte more at the same time is another file: the note no longer holds.
  ASSERT_TRUE(junk.open(QIODevice::Append));
  junk.write("x");
  ASSERT_TRUE(junk.setFileTime(then, QFileDevice::FileModificationTime));
  junk.close();
  EXPECT_FALSE(cache.Failed(junk.fileName()));

  thumbnailer.Pause();
  for (const QString &path : p)
    thumbnailer.Request(path);
  thumbnailer.CancelAll();
  EXPECT_EQ(thumbnailer.Outstanding(), 0);
  thumbnailer.Resume();
  QSignalSpy ready(&thumbnailer, &Thumbnailer::thumbnailReady);
  EXPECT_FALSE(ready.wait(200));
  EXPECT_TRUE(answers.order.isEmpty());
}

// Opens the pipe `name` for writing once something reads it, and closes it
// at once; false when nothing came to read within five seconds.
bool CloseWhenRead(const QString &name) {
  for (int i = 0; i < 2500; ++i) {
    const int fd = ::open(QFile::encodeName(name).constData(), O_WRONLY | O_NONBLOCK);
    if (fd >= 0) return ::close(fd) == 0;
    QThread::msleep(2);
  }
  return false;
}

bool IsPipe(const QString &name) {
  struct stat info {};
  return ::stat(QFile::encodeName(name).constData(), &info) == 0 && S_ISFIFO(info.st_mode);
}

// A request cancelled while a worker reads the cache is not made after the
// cache misses: a pipe at the cache entry holds the worker in its read until
// the cancel is in.
TEST(Thumbnailer, CancelDuringTheCacheLookupMakesNothing) {
  QTemporaryDir dir;
  const QStringList p = Photos(dir.path(), 2);
  const ThumbCache cache(dir.path() + "/thumbnails");
  for (const QString &path : p) {
    const QString entry = cache.EntryPath(path, ThumbCache::kNormal);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(entry).path()));
    ASSERT_EQ(::mkfifo(QFile::encodeName(entry).constData(), 0600), 0);
  }
  Thumbnailer thumbnailer(100, cache, 1);
  Answers answers(&thumbnailer);
  thumbnailer.Request(p[0]);
  thumbnailer.Request(p[1]);
  // The single worker holds p[0] once it is off the queue.
  for (int i = 0; i < 500 && thumbnailer.Priority(p[0]).has_value(); ++i)
    QThread::msleep(2);
  ASSERT_FALSE(thumbnailer.Priority(p[0]).has_value());
  thumbnailer.Cancel(p[0]);
  // Let both reads through, each once its reader is there: an empty entry,
  // a cache miss.
  for (const QString &path : p)
    ASSERT_TRUE(CloseWhenRead(cache.EntryPath(path, ThumbCache::kNormal)));
  ASSERT_TRUE(AllAnswered(&thumbnailer));
  EXPECT_EQ(answers.order, QStringList{p[1]});
  // p[1] was made and stored over its pipe; p[0]'s pipe was never replaced.
  EXPECT_TRUE(IsPipe(cache.EntryPath(p[0], ThumbCache::kNormal)));
  EXPECT_FALSE(IsPipe(cache.EntryPath(p[1], ThumbCache::kNormal)));

  // Cancelled mid-lookup and asked for again: the new request is answered
  // with the thumbnail, and the dropped lookup answers nothing.
  thumbnailer.Request(p[0]);
  for (int i = 0; i < 500 && thumbnailer.Priority(p[0]).has_value(); ++i)
    QThread::msleep(2);
  thumbnailer.Cancel(p[0]);
  thumbnailer.Request(p[0]);
  ASSERT_TRUE(CloseWhenRead(cache.EntryPath(p[0], ThumbCache::kNormal)));
  // The new request is taken once the dropped lookup has closed the pipe.
  for (int i = 0; i < 500 && thumbnailer.Priority(p[0]).has_value(); ++i)
    QThread::msleep(2);
  ASSERT_TRUE(CloseWhenRead(cache.EntryPath(p[0], ThumbCache::kNormal)));
  ASSERT_TRUE(AllAnswered(&thumbnailer));
  EXPECT_EQ(answers.order, (QStringList{p[1], p[0]}));
  EXPECT_TRUE(answers.failed.isEmpty());
  EXPECT_FALSE(IsPipe(cache.EntryPath(p[0], ThumbCache::kNormal)));
}

}  // namespace

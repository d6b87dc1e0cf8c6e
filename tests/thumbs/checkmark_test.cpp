// A JPEG our open check passed is not decoded again while its file stays as
// it was: the check's entry in the thumbnail cache carries a mark of our own
// and the file's size, and a later check reads only the header. Each test
// damages the data after the first check, keeping the size and putting the
// time back, so that only a check that skips the decode lets the file open.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>
#include <QImageReader>
#include <QImageWriter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <map>
#include <string>

#include "photo/photofiles.h"
#include "photo/thumbnailer.h"
#include "raster/jpegcheck.h"
#include "tests/raster/jpegdamage.h"
#include "tests/thumbs/thumbtest.h"

namespace {

using testutil::Bytes;

std::string Local(const QString &path) {
  return QFile::encodeName(path).toStdString();
}

// `bytes` as the whole of `path`, modified at `time`.
void Rewrite(const QString &path, const Bytes &bytes, const QDateTime &time) {
  testutil::WriteFile(Local(path), bytes);
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::ReadWrite));
  ASSERT_TRUE(file.setFileTime(time, QFileDevice::FileModificationTime));
}

// Every text key of the PNG at `entry` with its value.
std::map<QString, QString> KeysOf(const QString &entry) {
  QImageReader reader(entry, "png");
  const QImage image = reader.read();
  std::map<QString, QString> keys;
  for (const QString &key : image.textKeys())
    keys[key] = image.text(key);
  return keys;
}

// A photo the check makes the normal entry of (an eighth of its width
// covers 128), its bytes, the same bytes with a start of image inside the
// data (fatal to any decode, not to the header), and its time.
struct Fixture {
  QTemporaryDir dir;
  OpenThumbs thumbs{ThumbCache(dir.filePath("cache")), false};
  QString path = dir.filePath("photo.jpg");
  Bytes good, damaged;
  QDateTime time;

  Fixture() {
    EXPECT_EQ(testutil::WritePicture(Local(path), RasFormatJpeg, RasModelRgb,
                                     testutil::Pattern(1030, 380, 3)),
              RasOk);
    good = testutil::ReadFile(Local(path));
    damaged = jpegdamage::Overwritten(good, 0.5, {0xFF, 0xD8});
    // Well in the past, so that the time put back differs from any write.
    time = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch() - 3600);
    Rewrite(path, good, time);
  }
  bool Opens() const { return CheckPhotoFile(path, &thumbs).opens; }
  QString Entry() const { return thumbs.cache.EntryPath(path, ThumbCache::kNormal); }
  void Damage() { Rewrite(path, damaged, time); }
};

TEST(CheckMark, ASecondCheckOfAnUnchangedFileReadsOnlyItsHeader) {
  Fixture f;
  // The damage is one a decode refuses, at the photo's very size.
  ASSERT_EQ(f.damaged.size(), f.good.size());
  const std::string damagedCopy = Local(f.dir.filePath("damaged.jpg"));
  testutil::WriteFile(damagedCopy, f.damaged);
  JpegCheck check{};
  ASSERT_EQ(JpegCheckFile(damagedCopy.c_str(), &check), RasErrFormat);
  EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
  ASSERT_TRUE(f.Opens());
  EXPECT_TRUE(f.thumbs.cache.PassedCheck(f.path));
  // The entry: the standard's keys, ours beside them, nothing else.
  const std::map<QString, QString> keys = KeysOf(f.Entry());
  const std::map<QString, QString> expected = {
      {"Thumb::URI", QString::fromLatin1(ThumbCache::UriOf(f.path))},
      {"Thumb::MTime", QString::number(f.time.toSecsSinceEpoch())},
      {"Thumb::Size", QString::number(f.good.size())},
      {"Software", "KorvelApp"},
      {"X-KorvelApp::OpenCheck", "passed"}};
  EXPECT_EQ(keys, expected);
  f.Damage();
  EXPECT_TRUE(f.Opens());
  EXPECT_TRUE(f.thumbs.cache.PassedCheck(f.path));
  // Without a cache to ask, every check decodes.
  EXPECT_FALSE(CheckPhotoFile(f.path).opens);
  // The header is still read: a picture over the pixel limit, written at
  // the same size and time, is refused in spite of the mark.
  Rewrite(f.path, jpegdamage::Declaring(f.damaged, 65000, 65000), f.time);
  EXPECT_TRUE(f.thumbs.cache.PassedCheck(f.path));
  EXPECT_FALSE(f.Opens());
}

TEST(CheckMark, OnlyOurMarkOnACurrentEntryOfTheSameSizeSkipsTheDecode) {
  Fixture f;
  ASSERT_TRUE(f.Opens());
  const QImage marked = f.thumbs.cache.Lookup(f.path, ThumbCache::kNormal);
  ASSERT_FALSE(marked.isNull());
  const QByteArray markedBytes = [&] {
    QFile entry(f.Entry());
    return entry.open(QIODevice::ReadOnly) ? entry.readAll() : QByteArray();
  }();
  const auto putBack = [&] {
    QFile entry(f.Entry());
    ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
    entry.write(markedBytes);
  };
  f.Damage();
  ASSERT_TRUE(f.Opens());
  {
    SCOPED_TRACE("the mark missing: stored as the thumbnailer stores");
    ASSERT_TRUE(f.thumbs.cache.Store(f.path, ThumbCache::kNormal, marked));
    EXPECT_FALSE(f.thumbs.cache.Lookup(f.path, ThumbCache::kNormal).isNull());
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
    putBack();
    EXPECT_TRUE(f.Opens());
  }
  {
    SCOPED_TRACE("a byte more at the same time");
    Bytes longer = f.damaged;
    longer.push_back(0);
    Rewrite(f.path, longer, f.time);
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
    Rewrite(f.path, f.damaged, f.time);
    EXPECT_TRUE(f.Opens());
  }
  {
    SCOPED_TRACE("another time, the same size");
    Rewrite(f.path, f.damaged, f.time.addSecs(2));
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
  }
}

TEST(CheckMark, EntriesOfOurThumbnailerNeverSkipTheDecode) {
  Fixture f;
  Thumbnailer thumbnailer(ThumbCache::kNormal, f.thumbs.cache, 1);
  QSignalSpy ready(&thumbnailer, &Thumbnailer::thumbnailReady);
  thumbnailer.Request(f.path);
  ASSERT_TRUE(ready.wait(5000));
  ASSERT_FALSE(f.thumbs.cache.Lookup(f.path, ThumbCache::kNormal).isNull());
  EXPECT_EQ(KeysOf(f.Entry()).count("X-KorvelApp::OpenCheck"), 0U);
  // The open finds its entry current and leaves it as it is, unmarked.
  ASSERT_TRUE(f.Opens());
  EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
  f.Damage();
  EXPECT_FALSE(f.Opens());
}

// An entry written by a program that knows only the standard's required keys,
// with `extra` keys besides.
void WriteForeignEntry(const Fixture &f, const std::map<QString, QString> &extra) {
  QImage image(128, 47, QImage::Format_RGB32);
  image.fill(qRgb(20, 30, 230));
  image.setText("Thumb::URI", QString::fromLatin1(ThumbCache::UriOf(f.path)));
  image.setText("Thumb::MTime", QString::number(f.time.toSecsSinceEpoch()));
  for (const auto &[key, value] : extra)
    image.setText(key, value);
  QImageWriter writer(f.Entry(), "png");
  ASSERT_TRUE(writer.write(image));
}

TEST(CheckMark, ForeignAndCorruptEntriesNeverSkipTheDecode) {
  Fixture f;
  ASSERT_TRUE(f.Opens());
  f.Damage();
  const QString size = QString::number(f.good.size());
  {
    SCOPED_TRACE("URI and MTime only");
    WriteForeignEntry(f, {});
    EXPECT_FALSE(f.thumbs.cache.Lookup(f.path, ThumbCache::kNormal).isNull());
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
  }
  {
    SCOPED_TRACE("our mark without the size");
    WriteForeignEntry(f, {{"X-KorvelApp::OpenCheck", "passed"}});
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
  }
  {
    SCOPED_TRACE("the size and a mark of another value");
    WriteForeignEntry(f, {{"Thumb::Size", size}, {"X-KorvelApp::OpenCheck", "yes"}});
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
  }
  // A whole marked entry passes; cut short or overwritten, it is no entry.
  WriteForeignEntry(f, {{"Thumb::Size", size}, {"X-KorvelApp::OpenCheck", "passed"}});
  ASSERT_TRUE(f.thumbs.cache.PassedCheck(f.path));
  QFile entry(f.Entry());
  ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
  const QByteArray whole = entry.readAll();
  entry.close();
  for (const QByteArray &broken : {whole.left(whole.size() / 2), QByteArray(whole.size(), 'x')}) {
    SCOPED_TRACE(broken.size());
    ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
    entry.write(broken);
    entry.close();
    EXPECT_FALSE(f.thumbs.cache.PassedCheck(f.path));
    EXPECT_FALSE(f.Opens());
  }
}

// The header-only check gives JpegCheckFile's fields for every file, and its
// refusals wherever the header decides them; the rows it never reads.
TEST(CheckMark, TheHeaderCheckAgreesWithTheWholeCheckOnTheHeader) {
  QTemporaryDir dir;
  const std::vector<jpegdamage::Case> cases = jpegdamage::Cases(
      KORVEL_TESTDATA_DIR,
      [&](const std::string &name) { return Local(dir.filePath(QString::fromStdString(name))); });
  int headerRefusals = 0, rowRefusals = 0;
  for (const jpegdamage::Case &c : cases) {
    SCOPED_TRACE(c.label);
    JpegCheck whole{}, header{};
    const int wholeCode = JpegCheckFile(c.path.c_str(), &whole);
    const int headerCode = JpegCheckHeader(c.path.c_str(), &header);
    if (headerCode != RasOk) {
      EXPECT_EQ(headerCode, wholeCode);
      ++headerRefusals;
    } else if (wholeCode != RasOk) {
      ++rowRefusals;
    }
    EXPECT_EQ(header.width, whole.width);
    EXPECT_EQ(header.height, whole.height);
    EXPECT_EQ(header.resolution, whole.resolution);
    if (headerCode == RasOk && wholeCode == RasOk) {
      EXPECT_EQ(header.channels, whole.channels);
    }
  }
  // The pixel limit (the tests' is low) and the 12-bit file at least, and
  // the broken data.
  EXPECT_GE(headerRefusals, 2);
  EXPECT_GE(rowRefusals, 3);
  const Bytes photo = testutil::ReadFile(cases[0].path);
  const struct {
    const char *label;
    Bytes bytes;
  } broken[] = {{"header cut short", Bytes(photo.begin(), photo.begin() + 40)},
                {"no JPEG", Bytes(400, 0x42)},
                {"empty", Bytes()}};
  for (const auto &b : broken) {
    SCOPED_TRACE(b.label);
    const std::string path = Local(dir.filePath(b.label));
    testutil::WriteFile(path, b.bytes);
    JpegCheck whole{}, header{};
    const int code = JpegCheckFile(path.c_str(), &whole);
    EXPECT_NE(code, RasOk);
    EXPECT_EQ(JpegCheckHeader(path.c_str(), &header), code);
  }
  JpegCheck check{};
  EXPECT_EQ(JpegCheckHeader(nullptr, &check), RasErrArg);
  EXPECT_EQ(JpegCheckHeader("x.jpg", nullptr), RasErrArg);
  EXPECT_EQ(JpegCheckHeader("/no/such/file.jpg", &check), RasErrOpen);
}

}  // namespace

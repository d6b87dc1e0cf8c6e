// Opening checks a JPEG file by a scaled decode instead of reading it whole:
// the same files open, in the order given, with the resolution and metadata
// a whole read gives, and every one that opens gives its picture when asked.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>

#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/photometa.h"
#include "photo/thumbmaker.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/jpegdamage.h"

namespace {

void ExpectSameKept(const KeptMeta &kept, const KeptMeta &whole) {
  EXPECT_EQ(kept.source, whole.source);
  EXPECT_EQ(kept.appliedOrientation, whole.appliedOrientation);
  EXPECT_EQ(kept.meta.orientation, whole.meta.orientation);
  EXPECT_EQ(kept.meta.hasOrientation, whole.meta.hasOrientation);
  EXPECT_EQ(kept.meta.exif, whole.meta.exif);
  EXPECT_EQ(kept.meta.xmp, whole.meta.xmp);
  EXPECT_EQ(kept.meta.iptc, whole.meta.iptc);
  EXPECT_EQ(kept.meta.icc, whole.meta.icc);
}

// The JPEG cases, then files of other kinds: a BMP at 150 dpi, words named
// as a JPEG, and a path with nothing behind it.
std::vector<jpegdamage::Case> AllCases(const QTemporaryDir &dir) {
  const auto place = [&](const std::string &name) {
    return QFile::encodeName(dir.filePath(QString::fromStdString(name))).toStdString();
  };
  std::vector<jpegdamage::Case> cases = jpegdamage::Cases(KORVEL_TESTDATA_DIR, place);
  cases.push_back({"BMP", place("photo.bmp"), RasOk});
  EXPECT_EQ(testutil::WritePicture(cases.back().path, RasFormatBmp, RasModelRgb,
                                   testutil::Pattern(9, 5, 3), 150.0f),
            RasOk);
  cases.push_back({"words", place("notes.jpg"), RasErrFormat});
  testutil::WriteFile(cases.back().path, {'w', 'o', 'r', 'd', 's'});
  cases.push_back({"missing", place("missing.jpg"), RasErrOpen});
  return cases;
}

QString PathOf(const jpegdamage::Case &c) {
  return QFile::decodeName(c.path.c_str());
}

TEST(OpenCheck, ABatchOpensInOrderAndRefusesWhatAWholeReadRefuses) {
  QTemporaryDir dir;
  std::vector<jpegdamage::Case> cases = AllCases(dir);
  std::reverse(cases.begin(), cases.end());
  QStringList paths, opened, failed;
  for (const jpegdamage::Case &c : cases) {
    paths << PathOf(c);
    PhotoFileRead whole = ReadPhotoFileApart(PathOf(c));
    EXPECT_EQ(whole.handle != nullptr, c.code == RasOk) << c.label;
    (whole.handle ? opened : failed) << PathOf(c);
    GlobalFree(whole.handle);
  }
  CKorvelAppDoc doc;
  int steps = 0;
  const OpenBatch batch = OpenPhotoFiles(&doc, paths, [&](int done, int total) {
    EXPECT_EQ(done, ++steps);
    EXPECT_EQ(total, paths.size());
    return true;
  });
  EXPECT_EQ(steps, paths.size());
  EXPECT_EQ(batch.failed, failed);
  ASSERT_EQ(doc.Count(), opened.size());
  for (int i = 0; i < doc.Count(); ++i) {
    SCOPED_TRACE(opened[i].toStdString());
    EXPECT_EQ(doc.PathAt(i), opened[i]);
    PhotoFileRead whole = ReadPhotoFileApart(opened[i]);
    const CDib picture(whole.handle);  // lets the block go
    EXPECT_FLOAT_EQ(doc.ResolutionAt(i), whole.resolution);
    ASSERT_NE(KeptMetaFor(opened[i]), nullptr);
    ExpectSameKept(*KeptMetaFor(opened[i]), whole.kept);
    // What opened decodes when it is wanted, as the whole read did.
    EXPECT_EQ(doc.ImageAt(i).Width(), picture.Width());
    EXPECT_EQ(doc.ImageAt(i).Height(), picture.Height());
  }
  ScriptedPrompt prompt;
  ReportUnopened(batch.failed);
  for (const char *name : {"start of image in the data.jpg", "cut at 30%.jpg"})
    EXPECT_TRUE(prompt.messages.contains("Cannot open file " + dir.filePath(name))) << name;
  EXPECT_TRUE(opened.contains(dir.filePath("cut at 80%.jpg")));
  // The whole read and the check found more than nothing to agree on.
  const QString turned = KORVEL_TESTDATA_DIR "/exif/recurser__Portrait_6.jpg";
  EXPECT_EQ(KeptMetaFor(turned)->appliedOrientation, 6);
  EXPECT_FALSE(
      KeptMetaFor(KORVEL_TESTDATA_DIR "/exif/libavif__paris_exif_xmp_icc.jpg")->meta.xmp.empty());
  EXPECT_FLOAT_EQ(doc.ResolutionAt(static_cast<int>(opened.indexOf(dir.filePath("whole.jpg")))),
                  300.0f);
  EXPECT_FALSE(CheckPhotoFile(dir.filePath("cut at 30%.jpg")).opens);
}

TEST(OpenCheck, AStoppedBatchRemembersNothingOfTheFilesCheckedAhead) {
  QTemporaryDir dir;
  const std::vector<jpegdamage::Case> cases = AllCases(dir);
  // Files of this test's own that open, so that no other test has opened them.
  QStringList paths;
  for (const jpegdamage::Case &c : cases)
    if (c.code == RasOk && PathOf(c).startsWith(dir.path())) paths << PathOf(c);
  ASSERT_GE(paths.size(), 4);
  CKorvelAppDoc doc;
  const OpenBatch batch = OpenPhotoFiles(&doc, paths, [](int, int) { return false; });
  EXPECT_TRUE(batch.stopped);
  EXPECT_EQ(batch.opened, 1);
  ASSERT_EQ(doc.Count(), 1);
  EXPECT_EQ(doc.PathAt(0), paths[0]);
  for (const QString &path : paths.mid(1))
    EXPECT_EQ(KeptMetaFor(path), nullptr) << path.toStdString();
}

TEST(OpenCheck, OpeningLeavesTheGridsThumbnailInTheCache) {
  QTemporaryDir dir;
  const QString photo = dir.filePath("photo.jpg"), cut = dir.filePath("cut.jpg");
  const std::string name = QFile::encodeName(photo).toStdString();
  ASSERT_EQ(
      testutil::WritePicture(name, RasFormatJpeg, RasModelRgb, testutil::Pattern(1100, 700, 3)),
      RasOk);
  testutil::WriteFile(QFile::encodeName(cut).toStdString(),
                      jpegdamage::Cut(testutil::ReadFile(name), 0.3));
  CKorvelAppDoc doc;
  EXPECT_EQ(OpenPhotoFiles(&doc, {photo, cut}).failed, QStringList{cut});
  const ThumbCache cache;
  const QImage entry = cache.Lookup(photo, ThumbCache::kNormal);
  ASSERT_FALSE(entry.isNull());
  EXPECT_TRUE(entry.convertToFormat(QImage::Format_RGB32) ==
              MakeThumbnail(photo, ThumbCache::kNormal).convertToFormat(QImage::Format_RGB32));
  EXPECT_TRUE(cache.Lookup(cut, ThumbCache::kNormal).isNull());
}

}  // namespace

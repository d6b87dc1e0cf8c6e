// The work area under a memory budget: opened photos come back from their
// files with the very same pixels, unsaved ones from private spill files, and
// the close question still finds every unsaved photo.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QFile>
#include <QTemporaryDir>
#include <cstring>

#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/photostore.h"
#include "photo/settings.h"
#include "raster/ras.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

namespace {

const QString kExif = QStringLiteral(KORVEL_TESTDATA_DIR "/exif/");

// The budget documents made while it lives are given, in megabytes; null
// leaves it to the setting.
class BudgetOverride {
 public:
  explicit BudgetOverride(const char *megabytes) : old_(qgetenv(kName)) {
    if (megabytes)
      qputenv(kName, megabytes);
    else
      qunsetenv(kName);
  }
  ~BudgetOverride() {
    if (old_.isNull())
      qunsetenv(kName);
    else
      qputenv(kName, old_);
  }

 private:
  static constexpr char kName[] = "KORVEL_MEMORY_BUDGET_MB";
  QByteArray old_;
};

// Same size and the same pixels, row by row (headers may differ in what the
// file format kept of the resolution).
bool SamePixels(const CDib &a, const CDib &b) {
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.BitsPerPixel() != b.BitsPerPixel())
    return false;
  const size_t row = size_t(a.Width()) * a.BitsPerPixel() / 8;
  for (uint32_t y = 0; y < a.Height(); ++y)
    if (std::memcmp(a.RowPointer(int32_t(y)), b.RowPointer(int32_t(y)), row) != 0) return false;
  return true;
}

QString SmallPhoto(const QTemporaryDir &dir, const QString &name) {
  const QString path = dir.path() + '/' + name;
  EXPECT_EQ(testutil::WritePicture(QFile::encodeName(path).toStdString(), RasFormatBmp, RasModelRgb,
                                   testutil::Pattern(21, 13, 3)),
            RasOk);
  return path;
}

TEST(DocumentStore, OpenedPhotosComeBackFromTheirFilesUprightAndIdentical) {
  const BudgetOverride budget("0");  // every photo is bigger than this
  QTemporaryDir dir;
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, kExif + "recurser__Portrait_6.jpg"));
  const std::vector<uint8_t> opened = BlockBytes(doc.ImageAt(0));
  ASSERT_TRUE(OpenPhotoFile(&doc, SmallPhoto(dir, "small.bmp")));
  EXPECT_FALSE(doc.Pixels().Resident(0));
  EXPECT_TRUE(doc.Pixels().FileBacked(0));
  EXPECT_EQ(doc.UnsavedAt(0), 0);

  const CDib again = doc.ImageAt(0);
  EXPECT_EQ(again.Width(), 1200u);  // turned upright again, as on opening
  EXPECT_EQ(again.Height(), 1800u);
  EXPECT_EQ(BlockBytes(again), opened);
  EXPECT_FALSE(doc.Pixels().Resident(1));
  EXPECT_TRUE(doc.Pixels().SpillPath(0).isEmpty());

  // What no reader takes is still refused, with nothing added.
  QFile junk(dir.path() + "/junk.jpg");
  ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
  junk.write("not a photo");
  junk.close();
  EXPECT_FALSE(OpenPhotoFile(&doc, junk.fileName()));
  EXPECT_EQ(doc.Count(), 2);
}

TEST(DocumentStore, AnUnsavedEditIsSpilledAndStillOfferedAtClose) {
  const BudgetOverride budget("0");
  QTemporaryDir dir;
  ScriptedPrompt prompt;
  QString spilled;
  {
    CKorvelAppDoc doc;
    const QString a = SmallPhoto(dir, "a.bmp");
    ASSERT_TRUE(OpenPhotoFile(&doc, a));
    const CDib edit(MakePhoto(9, 7, qRgb(10, 200, 30)));
    doc.ReplaceImage(0, edit, 1, QString());  // a kept edit
    ASSERT_TRUE(OpenPhotoFile(&doc, SmallPhoto(dir, "b.bmp")));

    spilled = doc.Pixels().SpillPath(0);
    ASSERT_FALSE(spilled.isEmpty());
    EXPECT_TRUE(spilled.startsWith(CKorvelAppDoc::TempPath())) << spilled.toStdString();
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(spilled).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_FALSE(doc.Pixels().Resident(0));

    // The close question names it and saves the edit, not the opened file.
    prompt.savePhoto.push_back({KorvelPrompt::IDOK, "YES"});
    EXPECT_TRUE(SaveBeforeClose(&doc));
    EXPECT_EQ(prompt.savePhotoNames, QStringList{"a.bmp"});
    EXPECT_TRUE(SamePixels(CDib(ReadPhotoFile(a)), edit));
    EXPECT_EQ(doc.UnsavedAt(0), 1);  // the close question leaves the flags alone

    // A second unsaved entry's spill file goes with the work area.
    doc.AddImage(MakePhoto(5, 5), 1, dir.path() + "/Zib001.jpg");
    (void)doc.ImageAt(0);
    const QString second = doc.Pixels().SpillPath(2);
    ASSERT_FALSE(second.isEmpty());
    doc.Remove(0);
    EXPECT_FALSE(QFile::exists(spilled));
    spilled = second;
    EXPECT_TRUE(QFile::exists(spilled));
  }
  EXPECT_FALSE(QFile::exists(spilled));
}

TEST(DocumentStore, ASavedPhotoIsReadFromItsFileAndAnUnwrittenOneIsKept) {
  const BudgetOverride budget("0");
  QTemporaryDir dir;
  CKorvelAppDoc doc;
  doc.AddImage(MakePhoto(6, 4), 1, dir.path() + "/Zib001.jpg");
  doc.AddImage(MakePhoto(6, 4, qRgb(1, 2, 3)), 1, dir.path() + "/Zib002.jpg");
  EXPECT_FALSE(doc.Pixels().FileBacked(0));

  // Marked saved without a file to read it from: the pixels are all there is.
  doc.ReplaceImage(0, doc.ImageAt(0), 0, QString());
  doc.ReplaceImage(0, doc.ImageAt(0), 0, dir.path() + "/never-written.jpg");
  EXPECT_FALSE(doc.Pixels().FileBacked(0));

  // Written, it is read from there once the budget lets it go.
  const QString saved = dir.path() + "/saved.bmp";
  const CDib picture = doc.ImageAt(0);
  ASSERT_TRUE(SavePicture(RasFormatBmp, saved, picture));
  doc.ReplaceImage(0, picture, 0, saved);
  EXPECT_TRUE(doc.Pixels().FileBacked(0));
  EXPECT_TRUE(doc.Pixels().SpillPath(0).isEmpty());
  (void)doc.ImageAt(1);
  EXPECT_FALSE(doc.Pixels().Resident(0));
  EXPECT_TRUE(doc.Pixels().SpillPath(0).isEmpty());
  EXPECT_TRUE(SamePixels(doc.ImageAt(0), picture));
  EXPECT_EQ(doc.PathAt(0), saved);
}

TEST(DocumentStore, TheBudgetComesFromTheSettingUnlessTheEnvironmentSaysOtherwise) {
  {
    const BudgetOverride none(nullptr);
    EXPECT_EQ(PhotoStore::ConfiguredBudget(), PhotoStore::kDefaultBudgetMB << 20);
    KorvelSettings()->setValue("memory/budgetMB", 7);
    EXPECT_EQ(CKorvelAppDoc().Pixels().Budget(), size_t(7) << 20);
    KorvelSettings()->setValue("memory/budgetMB", "lots");  // unreadable: the default
    EXPECT_EQ(PhotoStore::ConfiguredBudget(), PhotoStore::kDefaultBudgetMB << 20);
  }
  const BudgetOverride budget("2");
  EXPECT_EQ(CKorvelAppDoc().Pixels().Budget(), size_t(2) << 20);
  KorvelSettings()->remove("memory/budgetMB");
}

}  // namespace

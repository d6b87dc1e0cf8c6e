// Opening and saving photos: the format an extension names, the save
// command's name rules and refusals, the failures of a save, round trips
// through every format the program writes, the open command and the question
// asked at close.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QTemporaryDir>
#include <string>
#include <vector>

#include "app/document.h"
#include "app/photofiles.h"
#include "raster/jpeg.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

// Test failures show texts as text.
inline void PrintTo(const QString &text, std::ostream *out) {
  *out << '"' << text.toStdString() << '"';
}

namespace {

using testutil::Picture;

const QString kTestData = QStringLiteral(KORVEL_TESTDATA_DIR);

// The picture of a work-area entry as planes, top row first, red first.
Picture PictureOf(const CDib &dib) {
  Picture p;
  p.width = dib.Width();
  p.height = dib.Height();
  p.channels = 3;
  p.planes.assign(3, testutil::Bytes(size_t{p.width} * p.height));
  for (uint32_t y = 0; y < p.height; ++y) {
    const uint8_t *row = dib.RowPointer(static_cast<int32_t>(y));
    for (uint32_t x = 0; x < p.width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        p.At(x, y, k) = row[3 * x + 2 - k];
  }
  return p;
}

// The format the library's probe finds in a file; 0 when none takes it.
uint32_t FormatOf(const QString &path) {
  RasDesc desc{};
  return RasGetInfo(QFile::encodeName(path).constData(), &desc) == RasOk ? desc.format : 0;
}

// The pixels of a file as the program opens it; an empty picture when it
// does not open.
Picture Reopen(const QString &path) {
  CKorvelAppDoc doc;
  if (!OpenPhotoFile(&doc, path)) return {};
  return PictureOf(doc.ImageAt(0));
}

int JpegQuality() {
  int quality = -1;
  JpegGetOption(JpegOptQuality, &quality);
  return quality;
}

// A BMP file of the test pattern; 37 pixels wide so that rows need padding.
QString WritePattern(const QString &path, uint32_t format = RasFormatBmp, uint32_t width = 37,
                     uint32_t height = 23) {
  EXPECT_EQ(testutil::WritePicture(QFile::encodeName(path).toStdString(), format, RasModelRgb,
                                   testutil::Pattern(width, height, 3)),
            RasOk);
  return path;
}

// What the raster library itself writes for `picture` as JPEG at quality
// 100, with the resolution the program gives its photos: a photo saved as
// JPEG must be exactly this file.
testutil::Bytes JpegAtBest(const QString &path, const Picture &picture) {
  int quality = 75;
  JpegGetOption(JpegOptQuality, &quality);
  EXPECT_EQ(JpegSetOption(JpegOptQuality, 100), RasOk);
  EXPECT_EQ(testutil::WritePicture(QFile::encodeName(path).toStdString(), RasFormatJpeg,
                                   RasModelRgb, picture, 1.0f),
            RasOk);
  (void)JpegSetOption(JpegOptQuality, quality);
  return testutil::ReadFile(QFile::encodeName(path).toStdString());
}

testutil::Bytes Contents(const QString &path) {
  return testutil::ReadFile(QFile::encodeName(path).toStdString());
}

// A work area holding the pattern, opened from a file, as the current and
// only selected entry.
void OpenCurrent(CKorvelAppDoc *doc, const QString &path) {
  ASSERT_TRUE(OpenPhotoFile(doc, path));
  doc->SetCurrentIndex(doc->Count() - 1);
  doc->Selection() = {static_cast<uint32_t>(doc->Count() - 1)};
}

KorvelPrompt::FileAnswer Chosen(const QString &path, int filterIndex) {
  KorvelPrompt::FileAnswer answer;
  answer.ok = true;
  answer.path = path;
  answer.filterIndex = filterIndex;
  return answer;
}

KorvelPrompt::SavePhotoAnswer Answered(const char *choice) {
  return {KorvelPrompt::IDOK, QString::fromLatin1(choice)};
}

// Sets an environment variable for the test's lifetime.
class EnvScope {
 public:
  EnvScope(const char *name, const QByteArray &value)
      : name_(name), had_(qEnvironmentVariableIsSet(name)), old_(qgetenv(name)) {
    qputenv(name, value);
  }
  ~EnvScope() {
    if (had_)
      qputenv(name_, old_);
    else
      qunsetenv(name_);
  }

 private:
  const char *name_;
  bool had_;
  QByteArray old_;
};

TEST(PhotoFiles, FormatByExtension) {
  const std::vector<std::pair<const char *, uint32_t>> cases = {
      {"jpg", RasFormatJpeg},  {"JPG", RasFormatJpeg},  {"bmp", RasFormatBmp},
      {"BmP", RasFormatBmp},   {"tif", RasFormatTiff},  {"TIF", RasFormatTiff},
      {"tiff", RasFormatTiff}, {"Tiff", RasFormatTiff}, {"png", RasFormatJpeg},
      {"jpeg", RasFormatJpeg}, {"", RasFormatJpeg},     {"b.bmp", RasFormatJpeg},
      {"tga", RasFormatJpeg},  {"bmp ", RasFormatJpeg},
  };
  for (const auto &[extension, format] : cases)
    EXPECT_EQ(FormatForExtension(QString::fromLatin1(extension)), format) << extension;
}

TEST(PhotoFiles, SaveCommandNamesAndFormats) {
  QTemporaryDir dir;
  const QString d = dir.path();
  ASSERT_TRUE(QDir(d).mkpath("x.jpg.old"));
  ASSERT_TRUE(QDir(d).mkpath("y.tif.old"));
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(d + "/source.bmp"));
  const Picture original = PictureOf(doc.ImageAt(0));
  ASSERT_EQ(original, testutil::Pattern(37, 23, 3));

  struct Case {
    QString chosen;
    int filterIndex;
    QString written;
    uint32_t format;
  };
  const std::vector<Case> cases = {
      // The name's own extension wins over the type chosen.
      {d + "/named.bmp", 1, d + "/named.bmp", RasFormatBmp},
      // Without one, the type gives it and it is appended.
      {d + "/photo", 2, d + "/photo.bmp", RasFormatBmp},
      {d + "/photo", 3, d + "/photo.tif", RasFormatTiff},
      {d + "/photo", 1, d + "/photo.jpg", RasFormatJpeg},
      {d + "/upper.TIF", 1, d + "/upper.TIF", RasFormatTiff},
      // An extension no writer has: JPEG data under that very name.
      {d + "/photo.PNG", 2, d + "/photo.PNG", RasFormatJpeg},
      // ".jpg" anywhere in the path keeps it from being appended ...
      {d + "/x.jpg.old/photo", 1, d + "/x.jpg.old/photo", RasFormatJpeg},
      // ... but another extension in a folder name does not count.
      {d + "/y.tif.old/photo", 2, d + "/y.tif.old/photo.bmp", RasFormatBmp},
  };
  const testutil::Bytes reference = JpegAtBest(d + "/reference.jpg", original);
  ScriptedPrompt prompt;
  QString previous = doc.PathAt(0);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.chosen.toStdString());
    doc.ReplaceImage(0, doc.ImageAt(0), 1, QString());  // as if an edit was kept
    prompt.saveFiles.push_back(Chosen(c.chosen, c.filterIndex));
    EXPECT_TRUE(SavePhotoCommand(&doc));
    EXPECT_EQ(prompt.saveInitials.constLast(), previous);
    EXPECT_EQ(FormatOf(c.written), c.format);
    EXPECT_EQ(doc.PathAt(0), c.written);
    EXPECT_EQ(doc.UnsavedAt(0), 0);
    if (c.format != RasFormatJpeg)
      EXPECT_EQ(Reopen(c.written), original);
    else
      EXPECT_EQ(Contents(c.written), reference);
    previous = c.written;
  }
  EXPECT_TRUE(prompt.messages.isEmpty()) << prompt.messages.join('|').toStdString();
  EXPECT_FALSE(QFileInfo::exists(d + "/x.jpg.old/photo.jpg"));
  EXPECT_FALSE(QFileInfo::exists(d + "/photo.PNG.jpg"));
  EXPECT_EQ(prompt.saveFilters.value(0),
            "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif||");

  // A second reader agrees that the BMP is one, pixel for pixel.
  const QImage image(d + "/photo.bmp");
  ASSERT_FALSE(image.isNull());
  EXPECT_EQ(image.size(), QSize(37, 23));
  for (int y = 0; y < 23; y += 11)
    for (int x = 0; x < 37; x += 9) {
      const QRgb rgb = image.pixel(x, y);
      EXPECT_EQ(qRed(rgb), original.At(x, y, 0));
      EXPECT_EQ(qGreen(rgb), original.At(x, y, 1));
      EXPECT_EQ(qBlue(rgb), original.At(x, y, 2));
    }
}

TEST(PhotoFiles, SaveCommandRefusals) {
  QTemporaryDir dir;
  const QString source = WritePattern(dir.path() + "/source.bmp");
  const QString target = dir.path() + "/out.bmp";
  ScriptedPrompt prompt;

  // Nothing chosen: refused before the dialog, even with a selection.
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, source));
  ASSERT_TRUE(OpenPhotoFile(&doc, source));
  doc.Selection() = {0, 1};
  prompt.saveFiles.push_back(Chosen(target, 2));
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages, QStringList{"Please select an image that you would like to save"});

  // More than one selected.
  doc.SetCurrentIndex(1);
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages.value(1), "Please select only one image that you would like to save");

  // An entry without a picture.
  doc.AddImage(nullptr, 1, dir.path() + "/empty.jpg");
  doc.SetCurrentIndex(2);
  doc.Selection() = {2};
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages.value(2), "Unable to save the image");

  EXPECT_EQ(prompt.messages.size(), 3);
  EXPECT_TRUE(prompt.saveInitials.isEmpty());  // no dialog was shown
  EXPECT_EQ(prompt.saveFiles.size(), 1u);
  EXPECT_FALSE(QFileInfo::exists(target));
  EXPECT_EQ(doc.UnsavedAt(2), 1);
  EXPECT_EQ(doc.PathAt(2), dir.path() + "/empty.jpg");

  // Cancelling the dialog writes nothing and leaves the entry as it was.
  prompt.saveFiles.clear();
  doc.SetCurrentIndex(1);
  doc.Selection() = {1};
  doc.ReplaceImage(1, doc.ImageAt(1), 1, QString());
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.saveInitials, QStringList{source});
  EXPECT_EQ(doc.UnsavedAt(1), 1);
  EXPECT_EQ(doc.PathAt(1), source);
  EXPECT_EQ(prompt.messages.size(), 3);
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"source.bmp"});
}

TEST(PhotoFiles, SaveFailuresAreShownAndTheEntryCountsAsSaved) {
  QTemporaryDir dir;
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(dir.path() + "/source.bmp"));
  const CDib picture = doc.ImageAt(0);
  ScriptedPrompt prompt;

  // Folders that cannot take the file: a missing one, and one that is a file.
  // (The tests may run as root, for whom a read-only folder is no obstacle.)
  for (const QString &path :
       {dir.path() + "/missing/photo.jpg", dir.path() + "/source.bmp/a.bmp"}) {
    prompt.messages.clear();
    EXPECT_FALSE(SavePicture(FormatForExtension(QFileInfo(path).suffix()), path, picture));
    EXPECT_EQ(prompt.messages, QStringList{"Could not open file to write"});
    EXPECT_FALSE(QFileInfo::exists(path));
  }

  // No format behind the code: the description is refused.
  prompt.messages.clear();
  EXPECT_FALSE(SavePicture(0, dir.path() + "/none.jpg", picture));
  EXPECT_EQ(prompt.messages, QStringList{"Could not save image"});
  EXPECT_FALSE(QFileInfo::exists(dir.path() + "/none.jpg"));

  // The save command reports the failure and still marks the entry saved
  // under the new name.
  prompt.messages.clear();
  doc.ReplaceImage(0, picture, 1, QString());
  prompt.saveFiles.push_back(Chosen(dir.path() + "/missing/photo", 3));
  EXPECT_TRUE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages, QStringList{"Could not open file to write"});
  EXPECT_EQ(doc.UnsavedAt(0), 0);
  EXPECT_EQ(doc.PathAt(0), dir.path() + "/missing/photo.tif");
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST(PhotoFiles, JpegIsWrittenAtBestQualityAndTheSettingRestored) {
  QTemporaryDir dir;
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(dir.path() + "/source.bmp", RasFormatBmp, 96, 64));
  ScriptedPrompt prompt;

  int before = 0;
  JpegGetOption(JpegOptQuality, &before);
  const testutil::Bytes best = JpegAtBest(dir.path() + "/best.jpg", testutil::Pattern(96, 64, 3));
  ASSERT_EQ(JpegSetOption(JpegOptQuality, 30), RasOk);
  EXPECT_TRUE(SavePicture(RasFormatJpeg, dir.path() + "/saved.jpg", doc.ImageAt(0)));
  EXPECT_EQ(Contents(dir.path() + "/saved.jpg"), best);
  EXPECT_EQ(JpegQuality(), 30);

  // Other formats leave the setting alone; a failed JPEG save restores it.
  EXPECT_TRUE(SavePicture(RasFormatBmp, dir.path() + "/p.bmp", doc.ImageAt(0)));
  EXPECT_EQ(JpegQuality(), 30);
  EXPECT_FALSE(SavePicture(RasFormatJpeg, dir.path() + "/missing/p.jpg", doc.ImageAt(0)));
  EXPECT_EQ(JpegQuality(), 30);
  EXPECT_EQ(prompt.messages.size(), 1);
  (void)JpegSetOption(JpegOptQuality, before);
}

TEST(PhotoFiles, AFailedRowWriteIsReported) {
  if (!QFileInfo::exists("/dev/full")) GTEST_SKIP() << "no /dev/full to fill";
  // A picture larger than the standard I/O buffer, so that writing its rows
  // (not only closing the file) meets the full device.
  QTemporaryDir dir;
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(dir.path() + "/big.bmp", RasFormatBmp, 300, 200));
  ScriptedPrompt prompt;
  for (const uint32_t format : {RasFormatBmp, RasFormatTiff, RasFormatJpeg}) {
    prompt.messages.clear();
    const int quality = JpegQuality();
    EXPECT_FALSE(SavePicture(format, "/dev/full", doc.ImageAt(0))) << format;
    EXPECT_EQ(prompt.messages, QStringList{"Unable to save image. Please try again"}) << format;
    EXPECT_EQ(JpegQuality(), quality);
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  }
}

TEST(PhotoFiles, RoundTripsKeepEveryPixel) {
  QTemporaryDir dir;
  const QString d = dir.path();
  const Picture pattern = testutil::Pattern(37, 23, 3);
  struct Source {
    QString path;
    int width, height;
    bool exact;  // the pattern itself comes back
  };
  const std::vector<Source> sources = {
      {WritePattern(d + "/p.bmp", RasFormatBmp), 37, 23, true},
      {WritePattern(d + "/p.tif", RasFormatTiff), 37, 23, true},
      {WritePattern(d + "/p.jpg", RasFormatJpeg), 37, 23, false},
      {kTestData + "/bmp/pillow__bmp_g_rgb24.bmp", 127, 64, false},
      {kTestData + "/tiff/libtiff__rgb-3c-8b.tiff", 157, 151, false},
      {kTestData + "/tiff/libtiff__minisblack-1c-8b.tiff", 157, 151, false},
      {kTestData + "/jpeg/pillow__hopper.jpg", 128, 128, false},
  };
  ScriptedPrompt prompt;
  for (const Source &source : sources) {
    SCOPED_TRACE(source.path.toStdString());
    CKorvelAppDoc doc;
    ASSERT_TRUE(OpenPhotoFile(&doc, source.path));
    ASSERT_EQ(doc.Count(), 1);
    EXPECT_EQ(doc.PathAt(0), source.path);
    EXPECT_EQ(doc.UnsavedAt(0), 0);
    const CDib &dib = doc.ImageAt(0);
    EXPECT_EQ(dib.Width(), uint32_t(source.width));
    EXPECT_EQ(dib.Height(), uint32_t(source.height));
    EXPECT_EQ(dib.BitsPerPixel(), 24u);
    const Picture opened = PictureOf(dib);
    if (source.exact) {
      EXPECT_EQ(opened, pattern);
    }
    for (const uint32_t format : {RasFormatBmp, RasFormatTiff}) {
      const QString saved = d + "/saved" + (format == RasFormatBmp ? ".bmp" : ".tif");
      ASSERT_TRUE(SavePicture(format, saved, dib));
      EXPECT_EQ(FormatOf(saved), format);
      EXPECT_EQ(Reopen(saved), opened) << format;
    }
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST(PhotoFiles, FilesThatAreNoPhotosAreNotOpened) {
  QTemporaryDir dir;
  const QString text = dir.path() + "/notes.jpg";
  QFile file(text);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("these are words, not pixels\n");
  file.close();
  QFile(dir.path() + "/empty.bmp").open(QIODevice::WriteOnly);
  // A BMP cut off in its rows: the probe takes it, the rows fail.
  testutil::Bytes cut = testutil::ReadFile(
      QFile::encodeName(WritePattern(dir.path() + "/whole.bmp", RasFormatBmp, 64, 64))
          .toStdString());
  cut.resize(cut.size() / 2);
  testutil::WriteFile(QFile::encodeName(dir.path() + "/cut.bmp").toStdString(), cut);

  ScriptedPrompt prompt;
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, dir.path() + "/whole.bmp"));
  for (const QString &path : {text, dir.path() + "/empty.bmp", dir.path() + "/cut.bmp",
                              dir.path() + "/absent.jpg", dir.path(), QString()}) {
    EXPECT_FALSE(OpenPhotoFile(&doc, path)) << path.toStdString();
    EXPECT_EQ(doc.Count(), 1);
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(doc.PathAt(0), dir.path() + "/whole.bmp");
}

TEST(PhotoFiles, OpenCommand) {
  QTemporaryDir photos, elsewhere;
  const QString good = WritePattern(elsewhere.path() + "/good.bmp");
  const QString bad = elsewhere.path() + "/bad.jpg";
  QFile(bad).open(QIODevice::WriteOnly);
  ScriptedPrompt prompt;
  CKorvelAppDoc doc;
  {
    EnvScope folder("KORVEL_PHOTO_DIR", photos.path().toUtf8());
    prompt.openFiles.push_back(Chosen(good, 2));
    EXPECT_TRUE(OpenPhotoCommand(&doc));
    EXPECT_EQ(prompt.openInitials.value(0), photos.path() + "/*.jpg");
    EXPECT_EQ(prompt.openFilters.value(0),
              "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif|"
              "All Image Files(*.jpg,*.bmp,*.tif)|*.jpg;*.bmp;*.tif||");
    ASSERT_EQ(doc.Count(), 1);
    EXPECT_EQ(doc.PathAt(0), good);
    EXPECT_EQ(doc.UnsavedAt(0), 0);
    EXPECT_EQ(PictureOf(doc.ImageAt(0)), testutil::Pattern(37, 23, 3));

    prompt.openFiles.push_back(Chosen(bad, 1));
    EXPECT_FALSE(OpenPhotoCommand(&doc));
    EXPECT_EQ(prompt.messages, QStringList{"Cannot open file " + bad});
    EXPECT_EQ(doc.Count(), 1);

    // Cancelled: nothing shown, nothing added.
    EXPECT_FALSE(OpenPhotoCommand(&doc));
    EXPECT_EQ(prompt.messages.size(), 1);
    EXPECT_EQ(doc.Count(), 1);
  }
  {
    EnvScope folder("KORVEL_PHOTO_DIR", (photos.path() + "/gone").toUtf8());
    EXPECT_FALSE(OpenPhotoCommand(&doc));
    EXPECT_EQ(prompt.openInitials.constLast(), QString());
  }
}

TEST(PhotoFiles, SaveBeforeCloseAsksAboutUnsavedPhotosOnly) {
  QTemporaryDir dir;
  const QString d = dir.path();
  const QString source = WritePattern(d + "/source.bmp");
  CKorvelAppDoc doc;
  // Unsaved photos at 0, 2 and 3; 1 came from a file and is never asked about.
  for (int i = 0; i < 4; ++i)
    ASSERT_TRUE(OpenPhotoFile(&doc, source));
  const QStringList paths = {d + "/one.jpg", d + "/two.jpg", d + "/three.bmp", d + "/four"};
  for (int i = 0; i < 4; ++i)
    doc.ReplaceImage(i, doc.ImageAt(i), i == 1 ? 0 : 1, paths[i]);

  {  // No, then No to All: nothing saved, the program may close.
    ScriptedPrompt prompt;
    prompt.savePhoto = {Answered("NO"), Answered("NOTOALL"), Answered("YES")};
    EXPECT_TRUE(SaveBeforeClose(&doc));
    EXPECT_EQ(prompt.savePhotoNames, (QStringList{"one.jpg", "three.bmp"}));
    EXPECT_EQ(prompt.beeps, 2);
    EXPECT_EQ(QDir(d).entryList(QDir::Files), QStringList{"source.bmp"});
  }
  {  // Escape at the first question keeps the program open.
    ScriptedPrompt prompt;
    prompt.savePhoto = {KorvelPrompt::SavePhotoAnswer{}, Answered("YES")};
    EXPECT_FALSE(SaveBeforeClose(&doc));
    EXPECT_EQ(prompt.savePhotoNames, QStringList{"one.jpg"});
    EXPECT_EQ(prompt.beeps, 1);
    EXPECT_EQ(QDir(d).entryList(QDir::Files), QStringList{"source.bmp"});
  }
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(doc.UnsavedAt(i), i == 1 ? 0 : 1);

  // An empty work area closes without a question.
  CKorvelAppDoc empty;
  ScriptedPrompt prompt;
  EXPECT_TRUE(SaveBeforeClose(&empty));
  EXPECT_TRUE(prompt.savePhotoNames.isEmpty());
  EXPECT_EQ(prompt.beeps, 0);
}

TEST(PhotoFiles, SaveBeforeCloseSavesToTheEntrysOwnPath) {
  QTemporaryDir dir;
  const QString d = dir.path();
  // Each entry was opened from its file, then an edit (another picture) kept.
  const QString edited = WritePattern(d + "/edited.bmp", RasFormatBmp, 20, 30);
  const QStringList paths = {d + "/kept.bmp", d + "/a.b.jpg", d + "/a.b.bmp", d + "/plain",
                             d + "/c.tif"};
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, edited));
  for (const QString &path : paths) {
    ASSERT_TRUE(OpenPhotoFile(&doc, WritePattern(path)));
    doc.ReplaceImage(doc.Count() - 1, doc.ImageAt(0), 1, QString());
  }
  doc.Remove(0);
  const testutil::Bytes before = testutil::ReadFile(QFile::encodeName(paths[0]).toStdString());

  ScriptedPrompt prompt;
  for (int i = 0; i < 5; ++i)
    prompt.savePhoto.push_back(Answered("YES"));
  EXPECT_TRUE(SaveBeforeClose(&doc));
  EXPECT_EQ(prompt.beeps, 5);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_NE(testutil::ReadFile(QFile::encodeName(paths[0]).toStdString()), before);
  const Picture picture = testutil::Pattern(20, 30, 3);
  const testutil::Bytes reference = JpegAtBest(d + "/reference.jpg", picture);
  // The extension is everything after the first dot of the name: "b.jpg"
  // and "b.bmp" are not extensions any writer has, so both are JPEG.
  const std::vector<uint32_t> formats = {RasFormatBmp, RasFormatJpeg, RasFormatJpeg, RasFormatJpeg,
                                         RasFormatTiff};
  for (int i = 0; i < 5; ++i) {
    SCOPED_TRACE(paths[i].toStdString());
    EXPECT_EQ(FormatOf(paths[i]), formats[i]);
    EXPECT_EQ(doc.PathAt(i), paths[i]);  // saved where it was, no extension added
    EXPECT_EQ(doc.UnsavedAt(i), 1);      // and still counted as unsaved
    if (formats[i] == RasFormatJpeg)
      EXPECT_EQ(Contents(paths[i]), reference);
    else
      EXPECT_EQ(Reopen(paths[i]), picture);
  }
  EXPECT_EQ(QDir(d).entryList(QDir::Files).size(), 7);  // nothing beside them
}

}  // namespace

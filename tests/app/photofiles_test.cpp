// Opening and saving photos: the format an extension names, the save
// command's name rules and refusals, failed saves, round trips, the open
// command and the question asked at close.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <csignal>
#include <string>
#include <vector>

#include "app/filedialog.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "raster/jpeg.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

inline void PrintTo(const QString &text, std::ostream *out) {
  *out << '"' << text.toStdString() << '"';
}

namespace {

using testutil::Picture;
using Answer = KorvelPrompt::SavePhotoAnswer;
using File = KorvelPrompt::FileAnswer;

const QString kTestData = QStringLiteral(KORVEL_TESTDATA_DIR);
const QString kDevFull = QStringLiteral("/dev/full");

std::string Local(const QString &path) {
  return QFile::encodeName(path).toStdString();
}
testutil::Bytes Contents(const QString &path) {
  return testutil::ReadFile(Local(path));
}

// A work-area entry's picture as planes, top row first, red first.
Picture PictureOf(const CDib &dib) {
  Picture p;
  p.width = dib.Width();
  p.height = dib.Height();
  p.channels = 3;
  p.planes.assign(3, testutil::Bytes(size_t{p.width} * p.height));
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        p.At(x, y, k) = dib.RowPointer(static_cast<int32_t>(y))[3 * x + 2 - k];
  return p;
}

uint32_t FormatOf(const QString &path) {
  RasDesc desc{};
  return RasGetInfo(QFile::encodeName(path).constData(), &desc) == RasOk ? desc.format : 0;
}

// The pixels of a file as the program opens it; empty when it does not open.
Picture Reopen(const QString &path) {
  CKorvelAppDoc doc;
  return OpenPhotoFile(&doc, path) ? PictureOf(doc.ImageAt(0)) : Picture{};
}

int JpegQuality() {
  int quality = -1;
  JpegGetOption(JpegOptQuality, &quality);
  return quality;
}

// The test pattern as a file; 37 pixels wide so that BMP rows need padding.
QString WritePattern(const QString &path, uint32_t format = RasFormatBmp, uint32_t width = 37,
                     uint32_t height = 23) {
  EXPECT_EQ(
      testutil::WritePicture(Local(path), format, RasModelRgb, testutil::Pattern(width, height, 3)),
      RasOk);
  return path;
}

// What the raster library writes for `picture` as JPEG at quality 100 and
// `resolution`: a photo saved as JPEG must be exactly this file.
testutil::Bytes JpegAtBest(const QString &path, const Picture &picture, float resolution) {
  const int quality = JpegQuality();
  EXPECT_EQ(JpegSetOption(JpegOptQuality, 100), RasOk);
  EXPECT_EQ(testutil::WritePicture(Local(path), RasFormatJpeg, RasModelRgb, picture, resolution),
            RasOk);
  (void)JpegSetOption(JpegOptQuality, quality);
  return Contents(path);
}

// Opens `path` as the current and only selected entry.
void OpenCurrent(CKorvelAppDoc *doc, const QString &path) {
  ASSERT_TRUE(OpenPhotoFile(doc, path));
  doc->SetCurrentIndex(doc->Count() - 1);
  doc->Selection() = {static_cast<uint32_t>(doc->Count() - 1)};
}

TEST(PhotoFiles, FormatByExtension) {
  const std::pair<uint32_t, QStringList> cases[] = {
      {RasFormatJpeg, {"jpg", "JPG", "jpeg", "", "b.bmp", "tga", "bmp ", "png "}},
      {RasFormatBmp, {"bmp", "BmP"}},
      {RasFormatTiff, {"tif", "TIF", "tiff", "Tiff"}},
      {RasFormatPng, {"png", "PNG"}},
      {RasFormatWebp, {"webp"}},
      {RasFormatHeic, {"heic", "HEIF"}},
      {RasFormatAvif, {"avif"}}};
  for (const auto &[format, extensions] : cases)
    for (const QString &extension : extensions)
      EXPECT_EQ(FormatForExtension(extension), format) << extension.toStdString();
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
  // The source's 72 dpi goes along with the photo.
  const testutil::Bytes reference = JpegAtBest(d + "/reference.jpg", original, 72.0f);
  struct Case {
    QString chosen;
    int filterIndex;
    QString written;
    uint32_t format;
  };
  const Case cases[] = {
      {d + "/named.bmp", 1, d + "/named.bmp", RasFormatBmp},  // the name's extension wins
      {d + "/photo", 2, d + "/photo.bmp", RasFormatBmp},      // else the type's is appended
      {d + "/photo", 3, d + "/photo.tif", RasFormatTiff},
      {d + "/photo", 1, d + "/photo.jpg", RasFormatJpeg},
      {d + "/upper.TIF", 1, d + "/upper.TIF", RasFormatTiff},
      {d + "/photo.XYZ", 2, d + "/photo.XYZ", RasFormatJpeg},  // unknown: JPEG, name kept
      // ".jpg" anywhere in the path keeps it from being appended; ".tif" does not count.
      {d + "/x.jpg.old/photo", 1, d + "/x.jpg.old/photo", RasFormatJpeg},
      {d + "/y.tif.old/photo", 2, d + "/y.tif.old/photo.bmp", RasFormatBmp},
  };
  ScriptedPrompt prompt;
  QString previous = doc.PathAt(0);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.chosen.toStdString());
    doc.ReplaceImage(0, doc.ImageAt(0), 1, QString());  // as if an edit was kept
    prompt.saveFiles.push_back(File{true, c.chosen, c.filterIndex});
    EXPECT_TRUE(SavePhotoCommand(&doc));
    EXPECT_EQ(prompt.saveInitials.constLast(), previous);
    EXPECT_EQ(FormatOf(c.written), c.format);
    EXPECT_EQ(doc.PathAt(0), c.written);
    EXPECT_EQ(doc.UnsavedAt(0), 0);
    if (c.format == RasFormatJpeg)
      EXPECT_EQ(Contents(c.written), reference);
    else
      EXPECT_EQ(Reopen(c.written), original);
    previous = c.written;
  }
  EXPECT_TRUE(prompt.messages.isEmpty()) << prompt.messages.join('|').toStdString();
  EXPECT_FALSE(QFileInfo::exists(d + "/x.jpg.old/photo.jpg"));
  EXPECT_FALSE(QFileInfo::exists(d + "/photo.XYZ.jpg"));
  EXPECT_EQ(prompt.saveFilters.value(0),
            "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif||");
}

TEST(PhotoFiles, SaveCommandRefusalsAndFailures) {
  QTemporaryDir dir;
  const QString d = dir.path();
  const QString source = WritePattern(d + "/source.bmp");
  ScriptedPrompt prompt;
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, source));
  ASSERT_TRUE(OpenPhotoFile(&doc, source));
  doc.AddImage(nullptr, 1, d + "/empty.jpg");
  doc.Selection() = {0, 1};
  prompt.saveFiles.push_back(File{true, d + "/out.bmp", 2});
  // Refused before the dialog: nothing current (even with a selection), two
  // selected, an entry without a picture.
  EXPECT_FALSE(SavePhotoCommand(&doc));
  doc.SetCurrentIndex(1);
  EXPECT_FALSE(SavePhotoCommand(&doc));
  doc.SetCurrentIndex(2);
  doc.Selection() = {2};
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages,
            (QStringList{"Please select an image that you would like to save",
                         "Please select only one image that you would like to save",
                         "Unable to save the image"}));
  EXPECT_TRUE(prompt.saveInitials.isEmpty());
  EXPECT_EQ(doc.UnsavedAt(2), 1);
  EXPECT_EQ(doc.PathAt(2), d + "/empty.jpg");

  // Cancelling the dialog writes nothing and leaves the entry as it was.
  prompt.saveFiles.clear();
  prompt.messages.clear();
  doc.SetCurrentIndex(1);
  doc.Selection() = {1};
  doc.ReplaceImage(1, doc.ImageAt(1), 1, QString());
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.saveInitials, QStringList{source});
  EXPECT_EQ(doc.UnsavedAt(1), 1);
  EXPECT_EQ(doc.PathAt(1), source);
  EXPECT_EQ(QDir(d).entryList(QDir::Files), QStringList{"source.bmp"});

  // A failed write is reported and leaves the entry unsaved under its old name.
  prompt.saveFiles.push_back(File{true, d + "/missing/photo", 3});
  EXPECT_FALSE(SavePhotoCommand(&doc));
  EXPECT_EQ(prompt.messages, QStringList{"Could not open file to write"});
  EXPECT_EQ(doc.UnsavedAt(1), 1);
  EXPECT_EQ(doc.PathAt(1), source);
}

TEST(PhotoFiles, SavePictureWritesJpegAtBestAndReportsFailures) {
  QTemporaryDir dir;
  const QString d = dir.path();
  // Larger than the standard I/O buffer, so that writing rows (not only
  // closing the file) meets a full device.
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(d + "/source.bmp", RasFormatBmp, 300, 200));
  const CDib picture = doc.ImageAt(0);
  ScriptedPrompt prompt;
  const int before = JpegQuality();
  const testutil::Bytes best =
      JpegAtBest(d + "/best.jpg", testutil::Pattern(300, 200, 3), kUnknownResolution);
  ASSERT_EQ(JpegSetOption(JpegOptQuality, 30), RasOk);
  EXPECT_TRUE(SavePicture(RasFormatJpeg, d + "/saved.jpg", picture));
  EXPECT_EQ(Contents(d + "/saved.jpg"), best);
  EXPECT_EQ(JpegQuality(), 30);  // put back after the save
  EXPECT_TRUE(prompt.messages.isEmpty());

  struct Case {
    uint32_t format;
    QString path;
    QString message;
  };
  // (The tests may run as root, for whom a read-only folder is no obstacle.)
  std::vector<Case> cases = {
      {RasFormatJpeg, d + "/missing/p.jpg", "Could not open file to write"},
      {RasFormatBmp, d + "/source.bmp/a.bmp", "Could not open file to write"},
      {0, d + "/none.jpg", "Could not save image"}};
  if (QFileInfo::exists(kDevFull))
    for (const uint32_t format : {RasFormatBmp, RasFormatTiff, RasFormatJpeg})
      cases.push_back(
          {format, kDevFull, "Unable to save image. Please try again\n\nNo space left on device."});
  for (const Case &c : cases) {
    SCOPED_TRACE(c.path.toStdString() + " " + std::to_string(c.format));
    prompt.messages.clear();
    EXPECT_FALSE(SavePicture(c.format, c.path, picture));
    EXPECT_EQ(prompt.messages, QStringList{c.message});
    EXPECT_TRUE(c.path == kDevFull || !QFileInfo::exists(c.path));
    EXPECT_EQ(JpegQuality(), 30);
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  }
  (void)JpegSetOption(JpegOptQuality, before);
}

// A file size limit stands in for a full disk: past it every write fails
// with EFBIG (its signal ignored), whoever runs the test, root included.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit saved_{};
  void (*handler_)(int);
};

TEST(PhotoFiles, AFailedSaveLeavesTheFileThatWasThere) {
  QTemporaryDir dir;
  const QString d = dir.path();
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(d + "/large.bmp", RasFormatBmp, 300, 200));
  const QStringList names = {"small.bmp", "small.jpg", "small.tif"};
  std::vector<testutil::Bytes> before;
  for (const QString &name : names)
    before.push_back(Contents(WritePattern(d + '/' + name, FormatForExtension(name.mid(6)))));
  ScriptedPrompt prompt;
  QStringList expected;
  {
    FileSizeLimit disk(16 * 1024);
    for (const QString &name : names) {
      const QString path = d + '/' + name;
      // The save command over the file, then the close question's Yes, which
      // writes over the entry's own path.
      prompt.saveFiles.push_back(File{true, path, 1});
      EXPECT_FALSE(SavePhotoCommand(&doc));
      EXPECT_EQ(doc.UnsavedAt(0), name == names[0] ? 0 : 1);
      doc.ReplaceImage(0, doc.ImageAt(0), 1, path);
      prompt.savePhoto.push_back(Answer{KorvelPrompt::IDOK, "YES"});
      EXPECT_FALSE(SaveBeforeClose(&doc));  // the program stays open with the photo
      const QString message = "Unable to save image. Please try again\n\nFile too large. \"" +
                              path + "\" was left as it was.";
      expected << message << message;
    }
  }
  EXPECT_EQ(prompt.messages, expected);
  for (size_t i = 0; i < before.size(); ++i)
    EXPECT_EQ(Contents(d + '/' + names[int(i)]), before[i]) << i;
  EXPECT_EQ(QDir(d).entryList(QDir::Files), QStringList{"large.bmp"} + names);
}

TEST(PhotoFiles, NewPicturesTakeOnlyNamesNothingHas) {
  QTemporaryDir dir, outside;
  const QString d = dir.path();
  CKorvelAppDoc doc;
  OpenCurrent(&doc, WritePattern(d + "/source.bmp"));
  testutil::WriteFile(Local(d + "/taken.jpg"), {'m', 'i', 'n', 'e'});
  ASSERT_TRUE(QFile::link(outside.path() + "/escaped.jpg", d + "/dangling.jpg"));
  ScriptedPrompt prompt;
  QStringList offered = {d + "/taken.jpg", d + "/dangling.jpg", d + "/free.jpg"};
  const auto next = [&offered] { return offered.isEmpty() ? QString() : offered.takeFirst(); };
  EXPECT_EQ(SaveNewPicture(RasFormatJpeg, next, doc.ImageAt(0)), d + "/free.jpg");
  EXPECT_EQ(Reopen(d + "/free.jpg").width, 37u);
  // Offered a taken name twice, or no name: nothing is written, and it says so.
  offered = {d + "/taken.jpg", d + "/taken.jpg"};
  EXPECT_EQ(SaveNewPicture(RasFormatJpeg, next, doc.ImageAt(0)), QString());
  EXPECT_EQ(SaveNewPicture(RasFormatJpeg, next, doc.ImageAt(0)), QString());
  EXPECT_EQ(prompt.messages,
            (QStringList{"Unable to save image. Please try again\n\nFile exists. Nothing was "
                         "saved as \"" +
                             d + "/taken.jpg\".",
                         "Could not open file to write"}));
  EXPECT_EQ(Contents(d + "/taken.jpg"), (testutil::Bytes{'m', 'i', 'n', 'e'}));
  EXPECT_TRUE(QDir(outside.path()).isEmpty());
  EXPECT_EQ(QDir(d).entryList(QDir::Files | QDir::System),
            (QStringList{"dangling.jpg", "free.jpg", "source.bmp", "taken.jpg"}));
}

// The resolution fields of a saved file as they stand in it: JFIF's unit and
// densities; BMP's pixels per metre across and down; TIFF's XResolution and
// YResolution rationals and ResolutionUnit (little-endian, as written).
testutil::Bytes ResolutionFields(const QString &path, uint32_t format) {
  const testutil::Bytes b = Contents(path);
  if (b.size() < 54) return {};
  if (format == RasFormatJpeg) {
    EXPECT_EQ(testutil::Bytes(b.begin() + 2, b.begin() + 11),
              (testutil::Bytes{0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}));
    return {b.begin() + 13, b.begin() + 18};
  }
  if (format == RasFormatBmp) return {b.begin() + 38, b.begin() + 46};
  testutil::Bytes fields;
  const uint32_t directory = testutil::GetField(b, 4, 4);
  for (uint32_t i = 0; i < testutil::GetField(b, directory, 2); ++i) {
    const size_t entry = directory + 2 + 12 * size_t{i};
    const uint32_t tag = testutil::GetField(b, entry, 2);
    const size_t at = tag == 296 ? entry + 8 : testutil::GetField(b, entry + 8, 4);
    if (tag == 282 || tag == 283 || tag == 296)
      fields.insert(fields.end(), b.begin() + at, b.begin() + at + (tag == 296 ? 2 : 8));
  }
  return fields;
}

TEST(PhotoFiles, SavedFilesKeepTheSourceResolutionOrSayNone) {
  QTemporaryDir dir;
  const QString d = dir.path();
  const testutil::Bytes dpi300[] = {
      {1, 0x01, 0x2C, 0x01, 0x2C},
      {0x23, 0x2E, 0, 0, 0x23, 0x2E, 0, 0},                                       // 11811 per metre
      {0xE0, 0x93, 4, 0, 0xE8, 3, 0, 0, 0xE0, 0x93, 4, 0, 0xE8, 3, 0, 0, 2, 0}};  // 300000/1000
  const testutil::Bytes none[] = {
      {0, 0, 1, 0, 1},  // unit 0 (none) with the 1:1 aspect JFIF requires
      {0, 0, 0, 0, 0, 0, 0, 0},
      {0x40, 0x19, 1, 0, 0xE8, 3, 0, 0, 0x40, 0x19, 1, 0, 0xE8, 3, 0, 0, 2, 0}};  // 72000/1000
  const struct {
    const char *name;
    float resolution;
    const testutil::Bytes *expected;
  } sources[] = {{"a.jpg", 300.0f, dpi300},
                 {"b.tif", 300.0f, dpi300},
                 {"c.jpg", -1.0f, none},
                 {"d.bmp", 0.0f, none}};
  const uint32_t formats[] = {RasFormatJpeg, RasFormatBmp, RasFormatTiff};
  ScriptedPrompt prompt;
  for (const auto &source : sources) {
    const QString path = d + '/' + source.name;
    ASSERT_EQ(testutil::WritePicture(Local(path), FormatForExtension(path.right(3)), RasModelRgb,
                                     testutil::Pattern(9, 7, 3), source.resolution),
              RasOk);
    if (source.resolution == 0.0f) {  // no BMP writer leaves these 0, other programs do
      testutil::Bytes bytes = Contents(path);
      std::fill(bytes.begin() + 38, bytes.begin() + 46, 0);
      testutil::WriteFile(Local(path), bytes);
    }
    CKorvelAppDoc doc;
    OpenCurrent(&doc, path);
    doc.ReplaceImage(0, doc.ImageAt(0), 1, QString());  // a kept edit keeps it too
    for (int k = 0; k < 3; ++k) {
      const QString saved = d + '/' + source.name[0] + QStringLiteral("out");
      prompt.saveFiles.push_back(File{true, saved, k + 1});
      ASSERT_TRUE(SavePhotoCommand(&doc));
      const QString written = saved + '.' + DFileDialog::ExtensionForIndex(k + 1);
      EXPECT_EQ(ResolutionFields(written, formats[k]), source.expected[k]) << written.toStdString();
    }
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
}

TEST(PhotoFiles, RoundTripsKeepEveryPixel) {
  QTemporaryDir dir;
  const QString d = dir.path();
  const struct {
    QString path;
    uint32_t width, height;
    bool exact;  // the pattern itself comes back
  } sources[] = {
      {WritePattern(d + "/p.bmp", RasFormatBmp), 37, 23, true},
      {WritePattern(d + "/p.tif", RasFormatTiff), 37, 23, true},
      {WritePattern(d + "/p.jpg", RasFormatJpeg), 37, 23, false},
      {kTestData + "/bmp/pillow__bmp_g_rgb24.bmp", 127, 64, false},
      {kTestData + "/tiff/libtiff__rgb-3c-8b.tiff", 157, 151, false},
      {kTestData + "/tiff/libtiff__minisblack-1c-8b.tiff", 157, 151, false},
      {kTestData + "/jpeg/pillow__hopper.jpg", 128, 128, false},
  };
  ScriptedPrompt prompt;
  for (const auto &source : sources) {
    SCOPED_TRACE(source.path.toStdString());
    CKorvelAppDoc doc;
    ASSERT_TRUE(OpenPhotoFile(&doc, source.path));
    ASSERT_EQ(doc.Count(), 1);
    const CDib &dib = doc.ImageAt(0);
    EXPECT_EQ(dib.BitsPerPixel(), 24u);
    const Picture opened = PictureOf(dib);
    EXPECT_EQ(opened.width, source.width);
    EXPECT_EQ(opened.height, source.height);
    if (source.exact) {
      EXPECT_EQ(opened, testutil::Pattern(37, 23, 3));
    }
    for (const uint32_t format : {RasFormatBmp, RasFormatTiff}) {
      const QString saved = d + (format == RasFormatBmp ? "/saved.bmp" : "/saved.tif");
      ASSERT_TRUE(SavePicture(format, saved, dib));
      EXPECT_EQ(FormatOf(saved), format);
      EXPECT_EQ(Reopen(saved), opened) << format;
    }
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST(PhotoFiles, OpenCommand) {
  QTemporaryDir photos, elsewhere;
  const QString d = elsewhere.path();
  const QString good = WritePattern(d + "/good.bmp");
  testutil::WriteFile(Local(d + "/notes.jpg"), {'w', 'o', 'r', 'd', 's', '\n'});
  testutil::WriteFile(Local(d + "/empty.bmp"), {});
  // A BMP cut off in its rows: the probe takes it, the rows fail.
  testutil::Bytes cut = Contents(WritePattern(d + "/whole.bmp", RasFormatBmp, 64, 64));
  cut.resize(cut.size() / 2);
  testutil::WriteFile(Local(d + "/cut.bmp"), cut);
  struct EnvScope {
    const char *name;
    bool had = qEnvironmentVariableIsSet(name);
    QByteArray old = qgetenv(name);
    ~EnvScope() { had ? qputenv(name, old) : qunsetenv(name); }
  } scope{"KORVEL_PHOTO_DIR"};
  qputenv(scope.name, photos.path().toUtf8());
  ScriptedPrompt prompt;
  CKorvelAppDoc doc;
  prompt.openFiles = {File{true, good, 2}};
  EXPECT_TRUE(OpenPhotoCommand(&doc));
  EXPECT_EQ(prompt.openInitials, QStringList{photos.path() + "/*.jpg"});
  EXPECT_EQ(prompt.openFilters.value(0),
            "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif|"
            "PNG Files (*.png)|*.png|WebP Files (*.webp)|*.webp|"
            "HEIF Files (*.heic,*.heif,*.avif)|*.heic;*.heif;*.avif|"
            "All Image Files(*.jpg,*.bmp,*.tif,*.png,*.webp,*.heic,*.heif,*.avif)|"
            "*.jpg;*.bmp;*.tif;*.png;*.webp;*.heic;*.heif;*.avif||");
  ASSERT_EQ(doc.Count(), 1);
  EXPECT_EQ(doc.PathAt(0), good);
  EXPECT_EQ(doc.UnsavedAt(0), 0);
  EXPECT_EQ(PictureOf(doc.ImageAt(0)), testutil::Pattern(37, 23, 3));
  // Files that are no photos: only the command's own message, nothing added.
  QStringList messages;
  for (const QString &path :
       {d + "/notes.jpg", d + "/empty.bmp", d + "/cut.bmp", d + "/absent.jpg", d, QString()}) {
    prompt.openFiles.push_back(File{true, path, 1});
    EXPECT_FALSE(OpenPhotoCommand(&doc)) << path.toStdString();
    messages << "Cannot open file " + path;
  }
  EXPECT_FALSE(OpenPhotoCommand(&doc));  // cancelled: nothing shown
  EXPECT_EQ(prompt.messages, messages);
  EXPECT_EQ(doc.Count(), 1);
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  qputenv(scope.name, (photos.path() + "/gone").toUtf8());  // no such folder: no name
  EXPECT_FALSE(OpenPhotoCommand(&doc));
  EXPECT_EQ(prompt.openInitials.constLast(), QString());
}

TEST(PhotoFiles, SaveBeforeClose) {
  QTemporaryDir dir;
  const QString d = dir.path();
  struct Entry {
    const char *name;
    int unsaved;
    const char *answer;  // null: not asked
    uint32_t format;     // 0: left as it was
  };
  // The extension is everything after the name's first dot: "b.jpg" and
  // "b.bmp" are no extensions any writer has, so both are JPEG.
  const Entry entries[] = {
      {"kept.bmp", 1, "YES", RasFormatBmp},
      {"a.b.jpg", 1, "YES", RasFormatJpeg},
      {"from.jpg", 0, nullptr, 0},
      {"a.b.bmp", 1, "YES", RasFormatJpeg},
      {"skip.bmp", 1, "NO", 0},
      {"plain", 1, "YES", RasFormatJpeg},
      {"c.tif", 1, "YES", RasFormatTiff},
      {"last.bmp", 1, "NOTOALL", 0},
      {"after.bmp", 1, nullptr, 0},
  };
  // Each entry was opened from its file, then an edit (another picture) kept.
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, WritePattern(d + "/edited.bmp", RasFormatBmp, 20, 30)));
  std::vector<testutil::Bytes> before;
  ScriptedPrompt prompt;
  QStringList asked;
  for (const Entry &e : entries) {
    ASSERT_TRUE(OpenPhotoFile(&doc, WritePattern(d + '/' + e.name)));
    doc.ReplaceImage(doc.Count() - 1, doc.ImageAt(0), e.unsaved, QString());
    before.push_back(Contents(d + '/' + e.name));
    if (e.answer) {
      asked << e.name;
      prompt.savePhoto.push_back(Answer{KorvelPrompt::IDOK, e.answer});
    }
  }
  doc.Remove(0);
  prompt.savePhoto.push_front(Answer{});  // Escape at the first question keeps the program open
  EXPECT_FALSE(SaveBeforeClose(&doc));
  EXPECT_EQ(prompt.savePhotoNames, QStringList{"kept.bmp"});
  EXPECT_EQ(prompt.beeps, 1);
  EXPECT_EQ(Contents(d + "/kept.bmp"), before[0]);
  prompt.savePhotoNames.clear();
  prompt.beeps = 0;
  EXPECT_TRUE(SaveBeforeClose(&doc));
  EXPECT_EQ(prompt.savePhotoNames, asked);
  EXPECT_EQ(prompt.beeps, asked.size());
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(QDir(d).entryList(QDir::Files).size(), 10);  // no name was extended
  const Picture picture = testutil::Pattern(20, 30, 3);
  const testutil::Bytes reference = JpegAtBest(d + "/reference.jpg", picture, 72.0f);
  for (int i = 0; i < doc.Count(); ++i) {
    const QString path = d + '/' + entries[i].name;
    SCOPED_TRACE(path.toStdString());
    EXPECT_EQ(doc.PathAt(i), path);
    EXPECT_EQ(doc.UnsavedAt(i), entries[i].unsaved);  // saving does not change it
    EXPECT_EQ(FormatOf(path), entries[i].format ? entries[i].format : RasFormatBmp);
    if (!entries[i].format)
      EXPECT_EQ(Contents(path), before[i]);
    else if (entries[i].format == RasFormatJpeg)
      EXPECT_EQ(Contents(path), reference);
    else
      EXPECT_EQ(Reopen(path), picture);
  }
  CKorvelAppDoc empty;  // closes without a question
  EXPECT_TRUE(SaveBeforeClose(&empty));
  EXPECT_EQ(prompt.beeps, asked.size());
}

}  // namespace

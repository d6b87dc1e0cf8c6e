// Photos in the work area stand upright by their orientation tag, and keep
// their metadata through an edit and a save.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>

#include "photo/dibplanar.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/photometa.h"
#include "tests/app/scriptedprompt.h"
#include "tests/meta/metatest.h"
#include "tests/raster/testutil.h"

namespace {

const QString kExif = QStringLiteral(KORVEL_TESTDATA_DIR "/exif/");

std::string Local(const QString &path) {
  return QFile::encodeName(path).toStdString();
}

// Mean difference of two same-sized 24-bit entries, over every sample.
double MeanDifference(const CDib &a, const CDib &b) {
  double sum = 0;
  for (uint32_t y = 0; y < a.Height(); ++y)
    for (uint32_t i = 0; i < 3 * a.Width(); ++i)
      sum += std::abs(a.RowPointer(int32_t(y))[i] - b.RowPointer(int32_t(y))[i]);
  return sum / (3.0 * a.Width() * a.Height());
}

TEST(PhotoMetaApp, OpenedPhotosStandUpright) {
  CKorvelAppDoc doc;
  for (int n : {1, 2, 5, 6, 7, 8})
    ASSERT_TRUE(OpenPhotoFile(&doc, kExif + QStringLiteral("recurser__Portrait_%1.jpg").arg(n)));
  for (int i = 0; i < doc.Count(); ++i) {
    SCOPED_TRACE(doc.PathAt(i).toStdString());
    ASSERT_EQ(doc.ImageAt(i).Width(), 1200u);
    ASSERT_EQ(doc.ImageAt(i).Height(), 1800u);
    // Separate JPEG encodings of one picture: a few levels apart; a wrong
    // turn or mirror is tens.
    EXPECT_LT(MeanDifference(doc.ImageAt(i), doc.ImageAt(0)), 4.0);
  }
}

TEST(PhotoMetaApp, OpenEditSaveKeepsTheMetadata) {
  QTemporaryDir dir;
  ScriptedPrompt prompt;
  const QString source = kExif + "libavif__paris_exif_xmp_icc.jpg";
  const metatest::Blocks from = metatest::ReadBlocks(Local(source));
  for (const char *name : {"/edited.jpg", "/edited.tif", "/edited.png", "/edited.webp"}) {
    SCOPED_TRACE(name);
    CKorvelAppDoc doc;
    ASSERT_TRUE(OpenPhotoFile(&doc, source));
    // The edit: keep a 200 x 100 corner, as the editor keeps a crop.
    const Planar corner(PlanarFromDib(doc.ImageAt(0), QRect(0, 0, 200, 100)));
    ASSERT_TRUE(corner);
    doc.ReplaceImage(0, CDib(DibFromPlanar(corner.get())), 1, QString());
    doc.SetCurrentIndex(0);
    prompt.saveFiles.push_back({true, dir.path() + name, 1});
    ASSERT_TRUE(SavePhotoCommand(&doc));
    const metatest::Blocks to = metatest::ReadBlocks(Local(dir.path() + name));
    for (const char *key : {"Exif.Photo.DateTimeOriginal", "Exif.Image.Make",
                            "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLongitude"}) {
      EXPECT_FALSE(metatest::ValueBytes(from.exif, key).empty()) << key;
      EXPECT_EQ(metatest::ValueBytes(to.exif, key), metatest::ValueBytes(from.exif, key)) << key;
    }
    EXPECT_EQ(to.icc, from.icc);
    EXPECT_FALSE(to.xmp.empty());
    EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"))->toLong(), 1);
    EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Photo.PixelXDimension"))->toLong(), 200);
  }
}

TEST(PhotoMetaApp, SharedCopiesLeaveThePositionBehindWhenAsked) {
  QTemporaryDir dir;
  const QString source = kExif + "exiftool__GPS.jpg";
  const auto before = testutil::ReadFile(Local(source));
  CKorvelAppDoc doc;
  ASSERT_TRUE(OpenPhotoFile(&doc, source));
  for (bool withoutPrivate : {true, false}) {
    const QString name = dir.path() + (withoutPrivate ? "/bare.jpg" : "/full.jpg");
    ShareKeptMeta(source, name, withoutPrivate);
    ASSERT_EQ(SaveNewPicture(
                  RasFormatJpeg, [&] { return name; }, doc.ImageAt(0)),
              name);
    const metatest::Blocks sent = metatest::ReadBlocks(Local(name));
    EXPECT_EQ(metatest::KeysOf(sent.exif, "GPSInfo").empty(), withoutPrivate);
    EXPECT_FALSE(metatest::ValueBytes(sent.exif, "Exif.Photo.DateTimeOriginal").empty());
    EXPECT_FALSE(sent.iptc.empty());
  }
  EXPECT_EQ(testutil::ReadFile(Local(source)), before);
}

}  // namespace

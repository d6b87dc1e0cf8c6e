// Metadata through open, edit and save: what the source carried arrives
// byte for byte, sizes and orientation are made true to the saved pixels,
// and the privacy copy loses only the position and serial numbers.
#include <gtest/gtest.h>

#include <string>

#include "meta/meta.h"
#include "raster/heif.h"
#include "tests/meta/metatest.h"
#include "tests/raster/testutil.h"

namespace {

using metatest::Blocks;
using metatest::ReadBlocks;
using metatest::ValueBytes;

const std::string kExif = std::string(KORVEL_TESTDATA_DIR) + "/exif/";

testutil::Picture Decode(const std::string &path) {
  testutil::Picture picture;
  EXPECT_EQ(testutil::ReadPicture(path, &picture), RasOk) << path;
  return picture;
}

std::string IptcValue(const Exiv2::IptcData &iptc, const char *key) {
  const auto it = iptc.findKey(Exiv2::IptcKey(key));
  return it == iptc.end() ? std::string() : it->toString();
}

std::string XmpValue(const Exiv2::XmpData &xmp, const char *key) {
  const auto it = xmp.findKey(Exiv2::XmpKey(key));
  return it == xmp.end() ? std::string() : it->toString();
}

// Formats without a place for IPTC carry its datasets as the XMP properties
// that stand for them.
void ExpectIptcAsXmp(const Blocks &from, const Blocks &to) {
  EXPECT_TRUE(to.iptc.empty());
  const struct {
    const char *iptc, *xmp;
  } kPairs[] = {{"Iptc.Application2.City", "Xmp.photoshop.City"},
                {"Iptc.Application2.Headline", "Xmp.photoshop.Headline"},
                {"Iptc.Application2.Byline", "Xmp.dc.creator"}};
  for (const auto &pair : kPairs)
    EXPECT_EQ(XmpValue(to.xmp, pair.xmp), IptcValue(from.iptc, pair.iptc)) << pair.xmp;
  std::string keywords;
  for (const Exiv2::Iptcdatum &d : from.iptc)
    if (d.key() == "Iptc.Application2.Keywords")
      keywords += (keywords.empty() ? "" : ", ") + d.toString();
  EXPECT_EQ(XmpValue(to.xmp, "Xmp.dc.subject"), keywords);
}

TEST(MetaSave, EditedPhotosKeepTheirMetadataByteForByte) {
  const struct {
    const char *command, *source, *ext;
  } kCases[] = {{"rotate right", "libavif__paris_exif_xmp_icc.jpg", ".jpg"},
                {"rotate right", "libavif__paris_exif_xmp_icc.jpg", ".tif"},
                {"crop 2 3 50 40", "exiftool__GPS.jpg", ".tif"},
                {"color", "exiftool__GPS.jpg", ".jpg"},
                {"zoom 50", "exiftool__IPTC.jpg", ".jpg"},
                {"convert", "libavif__paris_exif_xmp_icc.jpg", ".tif"},
                {"rotate right", "libavif__paris_exif_xmp_icc.jpg", ".png"},
                {"crop 2 3 50 40", "exiftool__GPS.jpg", ".webp"},
                {"zoom 50", "exiftool__IPTC.jpg", ".png"},
                {"convert", "exiftool__IPTC.jpg", ".webp"}};
  for (const auto &c : kCases) {
    SCOPED_TRACE(std::string(c.command) + " " + c.source + " to " + c.ext);
    const std::string in = kExif + c.source;
    const std::string out = testutil::TempPath(std::string("kept") + c.ext);
    const std::string bare = testutil::TempPath(std::string("bare") + c.ext);
    auto r = testutil::RunTool(std::string(c.command) + " " + in + " " + out);
    ASSERT_EQ(r.status, 0) << r.out;
    r = testutil::RunTool(std::string(c.command) + " --strip " + in + " " + bare);
    ASSERT_EQ(r.status, 0) << r.out;
    const Blocks from = ReadBlocks(in), to = ReadBlocks(out), none = ReadBlocks(bare);
    for (const char *key : {"Exif.Photo.DateTimeOriginal", "Exif.Image.Make", "Exif.Image.Model"})
      EXPECT_EQ(ValueBytes(to.exif, key), ValueBytes(from.exif, key)) << key;
    const auto gps = metatest::KeysOf(from.exif, "GPSInfo");
    EXPECT_EQ(metatest::KeysOf(to.exif, "GPSInfo"), gps);
    for (const auto &key : gps)
      EXPECT_EQ(ValueBytes(to.exif, key), ValueBytes(from.exif, key));
    EXPECT_EQ(to.icc, from.icc);
    if (std::string(c.ext) == ".png" || std::string(c.ext) == ".webp") {
      ExpectIptcAsXmp(from, to);
    } else {
      ASSERT_EQ(to.iptc.size(), from.iptc.size());
      for (auto a = to.iptc.begin(), b = from.iptc.begin(); a != to.iptc.end(); ++a, ++b)
        EXPECT_EQ(a->key() + "=" + a->toString(), b->key() + "=" + b->toString());
    }
    const Exiv2::XmpKey tool("Xmp.xmp.CreatorTool");
    if (from.xmp.findKey(tool) != from.xmp.end()) {
      EXPECT_EQ(to.xmp.findKey(tool)->toString(), from.xmp.findKey(tool)->toString());
    }
    // Sizes and orientation describe the saved pixels; no stale thumbnail.
    const testutil::Picture kept = Decode(out);
    if (!from.exif.empty()) {
      EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"))->toLong(), 1);
      if (!ValueBytes(from.exif, "Exif.Photo.PixelXDimension").empty()) {
        EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Photo.PixelXDimension"))->toLong(),
                  long(kept.width));
        EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Photo.PixelYDimension"))->toLong(),
                  long(kept.height));
      }
    }
    EXPECT_FALSE(to.thumbnail);
    // --strip writes none of it, and writing metadata left the pixels alone.
    EXPECT_TRUE(ValueBytes(none.exif, "Exif.Photo.DateTimeOriginal").empty() &&
                ValueBytes(none.exif, "Exif.Image.Make").empty() &&
                metatest::KeysOf(none.exif, "GPSInfo").empty() && none.xmp.empty() &&
                none.iptc.empty() && none.icc.empty());
    EXPECT_TRUE(kept == Decode(bare));
  }
}

// A pipe is streamed to and cannot be read back: the pixels go through and
// the tool finishes, whatever the format, rather than waiting on the pipe.
TEST(MetaSave, APipeGetsThePixelsAndTheToolFinishes) {
  for (const char *ext : {".jpg", ".png"}) {
    SCOPED_TRACE(ext);
    const std::string pipe = testutil::TempPath(std::string("pipe") + ext);
    const std::string out = testutil::TempPath(std::string("piped") + ext);
    std::remove(pipe.c_str());
    std::remove(out.c_str());
    ASSERT_TRUE(testutil::Shell("mkfifo " + pipe));
    ASSERT_TRUE(testutil::Shell("cat " + pipe + " > " + out + " & timeout 30 " +
                                std::string(KORVEL_TOOL_PATH) + " convert " + kExif +
                                "libavif__paris_exif_xmp_icc.jpg " + pipe +
                                "; status=$?; wait; exit $status"));
    const testutil::Picture piped = Decode(out);
    EXPECT_EQ(piped.width, 403u);
    EXPECT_EQ(piped.height, 302u);
    std::remove(pipe.c_str());
  }
}

// HEIC holds the metadata beside the coded picture: written by the encoder,
// read back through the container's own reader, and carried on into a JPEG
// whole.
TEST(MetaSave, HeicKeepsTheMetadataBothWays) {
  if (!HeifCanWrite(RasFormatHeic)) GTEST_SKIP() << "no HEVC encoder";
  const std::string in = kExif + "libavif__paris_exif_xmp_icc.jpg";
  const std::string heic = testutil::TempPath("kept.heic");
  const std::string back = testutil::TempPath("back.jpg");
  auto r = testutil::RunTool("rotate right " + in + " " + heic);
  ASSERT_EQ(r.status, 0) << r.out;
  r = testutil::RunTool("convert " + heic + " " + back);
  ASSERT_EQ(r.status, 0) << r.out;
  const Blocks from = ReadBlocks(in), to = ReadBlocks(back);
  for (const char *key : {"Exif.Photo.DateTimeOriginal", "Exif.Image.Make",
                          "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLongitude"}) {
    EXPECT_FALSE(ValueBytes(from.exif, key).empty()) << key;
    EXPECT_EQ(ValueBytes(to.exif, key), ValueBytes(from.exif, key)) << key;
  }
  EXPECT_EQ(to.icc, from.icc);
  EXPECT_EQ(XmpValue(to.xmp, "Xmp.xmp.CreatorTool"), XmpValue(from.xmp, "Xmp.xmp.CreatorTool"));
  EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"))->toLong(), 1);
  // Turned right: the saved sizes are the source's exchanged.
  EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Photo.PixelXDimension"))->toLong(), 302);
  EXPECT_FALSE(to.thumbnail);

  r = testutil::RunTool("rotate right --strip " + in + " " + heic);
  ASSERT_EQ(r.status, 0) << r.out;
  PhotoMeta none;
  EXPECT_TRUE(MetaRead(heic.c_str(), &none));
  EXPECT_TRUE(none.Empty());
}

TEST(MetaSave, KeptOrientationKeepsTheTagAndTheStoredPixels) {
  for (const char *ext : {".jpg", ".png", ".webp"}) {
    SCOPED_TRACE(ext);
    const std::string out = testutil::TempPath(std::string("kept6") + ext);
    const auto r = testutil::RunTool("rotate 180 --keep-orientation " + kExif +
                                     "recurser__Portrait_6.jpg " + out);
    ASSERT_EQ(r.status, 0) << r.out;
    const Blocks to = ReadBlocks(out);
    ASSERT_NE(to.exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation")), to.exif.end());
    EXPECT_EQ(to.exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"))->toLong(), 6);
    const testutil::Picture stored = Decode(out);
    EXPECT_EQ(stored.width, 1800u);
    EXPECT_EQ(stored.height, 1200u);
  }
}

// A copy of the GPS photo with every kind of serial number added.
std::string PrivatePhoto() {
  const std::string path = testutil::TempPath("private.jpg");
  testutil::WriteFile(path, testutil::ReadFile(kExif + "libavif__paris_exif_xmp_icc.jpg"));
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  image->exifData()["Exif.Photo.BodySerialNumber"] = "BODY-123";
  image->exifData()["Exif.Image.CameraSerialNumber"] = "CAM-456";
  image->exifData()["Exif.Photo.LensSerialNumber"] = "LENS-789";
  image->xmpData()["Xmp.aux.SerialNumber"] = "AUX-1";
  image->xmpData()["Xmp.exif.GPSLatitude"] = "54,59.38N";
  image->writeMetadata();
  return path;
}

TEST(MetaPrivacy, CopyLosesPositionAndSerialsOnly) {
  const std::string original = PrivatePhoto();
  const auto before = testutil::ReadFile(original);
  const std::string copy = testutil::TempPath("shared.jpg");
  std::string error;
  ASSERT_TRUE(MetaPrivateCopy(original.c_str(), copy.c_str(), &error)) << error;
  EXPECT_EQ(testutil::ReadFile(original), before);
  const Blocks from = ReadBlocks(original), to = ReadBlocks(copy);
  EXPECT_EQ(metatest::SerialKeys(from).size(), 5u);
  EXPECT_FALSE(metatest::KeysOf(from.exif, "GPSInfo").empty());
  EXPECT_TRUE(metatest::SerialKeys(to).empty());
  EXPECT_TRUE(metatest::KeysOf(to.exif, "GPSInfo").empty());
  EXPECT_EQ(ValueBytes(to.exif, "Exif.Photo.DateTimeOriginal"),
            ValueBytes(from.exif, "Exif.Photo.DateTimeOriginal"));
  EXPECT_EQ(to.icc, from.icc);
  EXPECT_TRUE(Decode(copy) == Decode(original));

  PhotoMeta record;
  ASSERT_TRUE(MetaRead(original.c_str(), &record));
  EXPECT_TRUE(MetaHasPrivate(record));
  MetaStripPrivate(&record);
  EXPECT_FALSE(MetaHasPrivate(record));
  EXPECT_FALSE(record.exif.empty());
  ASSERT_TRUE(MetaRead(copy.c_str(), &record));
  EXPECT_FALSE(MetaHasPrivate(record));
}

TEST(MetaPrivacy, CopyOfAFileWithoutMetadataIsTheSameBytes) {
  const std::string bmp = testutil::TempPath("plain.bmp");
  ASSERT_EQ(testutil::WritePicture(bmp, RasFormatBmp, RasModelRgb, testutil::Pattern(5, 3, 3)),
            RasOk);
  const std::string copy = testutil::TempPath("plain-copy.bmp");
  std::string error;
  ASSERT_TRUE(MetaPrivateCopy(bmp.c_str(), copy.c_str(), &error)) << error;
  EXPECT_EQ(testutil::ReadFile(copy), testutil::ReadFile(bmp));
  EXPECT_FALSE(MetaPrivateCopy("/nonexistent/x.jpg", copy.c_str(), &error));
}

}  // namespace

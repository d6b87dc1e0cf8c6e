// The orientation and metadata rows of the shared test data's manifest: each
// file's orientation and capture date as the row says, and what the row says
// a save keeps is in the tool's JPEG output. Rows are parsed here, so a row
// added to those folders is checked without touching this test.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "meta/meta.h"
#include "tests/meta/metatest.h"
#include "tests/raster/testutil.h"

namespace {

const std::string kTestData = KORVEL_TESTDATA_DIR;

// The sections of the folders that hold photos with metadata.
std::vector<testutil::ManifestRow> MetadataRows() {
  std::vector<testutil::ManifestRow> rows;
  for (auto &row : testutil::ReadManifest(kTestData))
    if (row.folder == "exif" || row.folder == "png" || row.folder == "webp" || row.folder == "heif")
      rows.push_back(std::move(row));
  return rows;
}

// "EXIF, XMP and ICC all kept on save", "IPTC City/Keywords ... kept on save".
bool Kept(const std::string &expected, const char *what) {
  static const std::regex kept(R"(;([^;]*) kept on save)");
  std::smatch m;
  return std::regex_search(expected, m, kept) && m[1].str().find(what) != std::string::npos;
}

TEST(MetaManifest, OrientationDateAndKeptMetadataAsEachRowSays) {
  static const std::regex orientation(R"([Oo]rientation (\d))");
  static const std::regex date(R"(DateTimeOriginal (\d{4}:\d\d:\d\d \d\d:\d\d:\d\d))");
  int exifRows = 0;
  for (const auto &row : MetadataRows()) {
    SCOPED_TRACE(row.folder + "/" + row.file + ": " + row.expected);
    const std::string path = kTestData + "/" + row.folder + "/" + row.file;
    PhotoMeta meta;
    const bool read = MetaRead(path.c_str(), &meta);
    std::smatch m;
    if (std::regex_search(row.expected, m, orientation)) {
      EXPECT_EQ(meta.orientation, std::stoi(m[1]));
    } else if (row.expected.find("no orientation tag") != std::string::npos) {
      EXPECT_FALSE(meta.hasOrientation);
    }
    if (row.folder != "exif") continue;  // saving the newer formats is tested with them
    ++exifRows;
    ASSERT_TRUE(read);
    const std::string out = testutil::TempPath("manifest-" + row.file);
    const auto r = testutil::RunTool("convert " + path + " " + out);
    ASSERT_EQ(r.status, 0) << r.out;
    const metatest::Blocks saved = metatest::ReadBlocks(out);
    if (std::regex_search(row.expected, m, date)) {
      EXPECT_EQ(saved.exif.findKey(Exiv2::ExifKey("Exif.Photo.DateTimeOriginal"))->toString(),
                m[1].str());
    }
    // What a row names as kept must be there; a row may name less than the
    // file has (a photo's EXIF is kept whether or not its row says so).
    const struct {
      const char *what;
      bool present;
    } kBlocks[] = {{"EXIF", !saved.exif.empty()},
                   {"GPS", !metatest::KeysOf(saved.exif, "GPSInfo").empty()},
                   {"IPTC", !saved.iptc.empty()},
                   {"XMP", !saved.xmp.empty()},
                   {"ICC", !saved.icc.empty()}};
    for (const auto &block : kBlocks)
      EXPECT_TRUE(block.present || !Kept(row.expected, block.what)) << block.what;
  }
  EXPECT_EQ(exifRows, 11);
}

}  // namespace

// Every file that other programs wrote, in the shared test data, opens or is
// refused as its manifest row says. The manifest is parsed here, so a row that
// is added or changed is checked without touching this test.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

const std::string kTestData = KORVEL_TESTDATA_DIR;

using Row = testutil::ManifestRow;
std::vector<Row> ReadManifest() {
  return testutil::ReadManifest(kTestData);
}

// Folders whose format has a reader in this library, with its format code.
// Rows of other folders are still probed: no reader may claim those files.
const std::map<std::string, uint32_t> kReadFolders = {
    {"jpeg", RasFormatJpeg},     {"bmp", RasFormatBmp},       {"tiff", RasFormatTiff},
    {"targa", RasFormatTarga},   {"scitex", RasFormatScitex}, {"photocd", RasFormatPhotoCd},
    {"cineon", RasFormatCineon}, {"eps", RasFormatEps}};

struct Accept {
  uint32_t width, height, channels, model;
  std::optional<float> resolution;
};

const std::map<std::string, uint32_t> kModels = {{"RGB", RasModelRgb},
                                                 {"grey", RasModelGray},
                                                 {"CMYK", RasModelCmyk},
                                                 {"CIE L*a*b*", RasModelLab}};

// The model a bare channel count stands for ("160x90, 3 ch").
uint32_t ModelOfChannels(uint32_t channels) {
  return channels == 1 ? RasModelGray : channels == 3 ? RasModelRgb : RasModelCmyk;
}

// "W x H <model> Nch", "W x H, N ch", "... 768x512 (levels 1-3), 3ch YCC" (the
// largest level, the reader's default) or "accept WxH N ch if ...".
std::optional<Accept> ParseAccept(const std::string &text) {
  static const std::regex size(R"((\d+)x(\d+) (RGB|grey|CMYK|CIE L\*a\*b\*) (\d)ch)");
  static const std::regex bare(R"((\d+)x(\d+),? (\d) ?ch)");
  static const std::regex ycc(R"((\d+)x(\d+) \(levels [^)]*\), (\d)ch YCC)");
  static const std::regex resolution(R"(resolution (-?[0-9.]+)|(-?[0-9.]+) dpi)");
  std::smatch m;
  Accept accept{};
  auto number = [&m](int i) { return static_cast<uint32_t>(std::stoul(m[i])); };
  if (std::regex_search(text, m, size)) {
    accept = {number(1), number(2), number(4), kModels.at(m[3]), std::nullopt};
  } else if (std::regex_search(text, m, ycc)) {
    accept = {number(1), number(2), number(3), RasModelYcc, std::nullopt};
  } else if (std::regex_search(text, m, bare)) {
    accept = {number(1), number(2), number(3), ModelOfChannels(number(3)), std::nullopt};
  } else {
    return std::nullopt;
  }
  if (std::regex_search(text, m, resolution))
    accept.resolution = std::stof(m[1].matched ? m[1].str() : m[2].str());
  return accept;
}

// Every code named after "expect" or "refuse", e.g. "refuse -9" or
// "expect -3 (row buffer) or -5 on reading".
std::set<int> ParseCodes(const std::string &text) {
  std::set<int> codes;
  static const std::regex code(R"((?:refuses? \(?|expect |or )(-\d+))");
  for (std::sregex_iterator it(text.begin(), text.end(), code), end; it != end; ++it)
    codes.insert(std::stoi((*it)[1]));
  return codes;
}

// Reads every row; returns the first failing code, or 0.
int ReadAll(const std::string &path, RasDesc *desc) {
  int code = RasOpen(path.c_str(), 'r', desc);
  if (code != RasOk) return code;
  RasSl sl{};
  for (uint32_t row = 0; row < desc->height && code == RasOk; ++row)
    code = RasReadSl(desc, row, &sl);
  RasFreeSl(&sl);
  const int closed = RasClose(desc);
  EXPECT_EQ(desc->state, nullptr);
  return code != RasOk ? code : closed;
}

void CheckAccepted(const Row &row, uint32_t format, const Accept &want) {
  const std::string path = kTestData + "/" + row.folder + "/" + row.file;
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk) << row.file << ": " << row.expected;
  EXPECT_EQ(desc.state, nullptr);
  EXPECT_EQ(desc.format, format) << row.file;
  EXPECT_EQ(desc.width, want.width) << row.file;
  EXPECT_EQ(desc.height, want.height) << row.file;
  EXPECT_EQ(desc.channels, want.channels) << row.file;
  EXPECT_EQ(desc.model, want.model) << row.file;
  EXPECT_EQ(desc.maxval, RasFormatMaxval(format)) << row.file;
  if (want.resolution) {
    EXPECT_NEAR(desc.resolution, *want.resolution, 0.05) << row.file;
  }
  EXPECT_EQ(ReadAll(path, &desc), RasOk) << row.file;
}

// The format's own reader refuses with one of the codes. A refusal at the open
// means the probe takes the file for no format at all; a file whose damage only
// shows in the compressed data (a second frame header deep in a JPEG) is
// recognised by its own reader's probe and refused on reading.
void CheckRefused(const Row &row, uint32_t format, const std::set<int> &codes) {
  const std::string path = kTestData + "/" + row.folder + "/" + row.file;
  RasDesc desc{};
  desc.format = format;
  const int opened = RasOpen(path.c_str(), 'r', &desc);
  if (opened == RasOk) RasClose(&desc);
  desc.format = format;
  const int code = ReadAll(path, &desc);
  // "refuse (truncated)" or "(corrupt)" names no code: any refusal will do.
  if (codes.empty())
    EXPECT_NE(code, RasOk) << row.file << "; manifest: " << row.expected;
  else
    EXPECT_TRUE(codes.count(code))
        << row.file << " gave " << code << "; manifest: " << row.expected;
  if (row.expected.find("16-bit TIFF reader: accept") != std::string::npos) return;
  RasDesc probed{};
  const int probe = RasGetInfo(path.c_str(), &probed);
  EXPECT_EQ(probed.state, nullptr);
  if (opened == RasOk) {
    EXPECT_TRUE(probe == RasOk && probed.format == format) << row.file;
  } else {
    EXPECT_NE(probe, RasOk) << row.file << " was taken as " << RasFormatName(probed.format);
  }
}

TEST(Manifest, EveryRowOfTheReadFormatsIsMet) {
  const auto rows = ReadManifest();
  ASSERT_GT(rows.size(), 40u) << "manifest not found or not understood in " << kTestData;
  int checked = 0;
  for (const Row &row : rows) {
    const auto folder = kReadFolders.find(row.folder);
    if (folder == kReadFolders.end()) continue;
    SCOPED_TRACE(row.file);
    std::string expected = row.expected;
    // libjpeg-turbo is what is linked here, and it decodes arithmetic coding.
    const auto turbo = expected.find("libjpeg-turbo decodes");
    if (turbo != std::string::npos) expected = "accept " + expected.substr(turbo);
    const std::set<int> codes = ParseCodes(expected);
    // Rows for readers without a fixed definition say what an accepting
    // reader delivers and what a refusing one returns; either passes, as long
    // as what it does is what that branch says.
    const auto either = expected.find("expected accept ");
    if (either != std::string::npos) {
      RasDesc desc{};
      desc.format = folder->second;
      const std::string path = kTestData + "/" + row.folder + "/" + row.file;
      if (RasOpen(path.c_str(), 'r', &desc) == RasOk) {
        RasClose(&desc);
        expected = expected.substr(either + 9);
      }
    }
    // 16-bit TIFF files: refused by the 8-bit reader, taken by the 16-bit one.
    const auto wide = expected.find("16-bit TIFF reader: accept");
    if (wide != std::string::npos) {
      const auto accept = ParseAccept(expected.substr(wide));
      ASSERT_TRUE(accept) << "cannot read the manifest's expectation: " << expected;
      CheckAccepted(row, RasFormatTiff16, *accept);
      EXPECT_EQ(RasFormatMaxval(RasFormatTiff16), 65535u);
    }
    if (expected.rfind("accept", 0) == 0) {
      const auto accept = ParseAccept(expected);
      ASSERT_TRUE(accept) << "cannot read the manifest's expectation: " << expected;
      CheckAccepted(row, folder->second, *accept);
    } else {
      ASSERT_TRUE(!codes.empty() || expected.rfind("refuse (", 0) == 0)
          << "cannot read the manifest's expectation: " << expected;
      CheckRefused(row, folder->second, codes);
    }
    ++checked;
  }
  EXPECT_EQ(checked, 13 + 24 + 17 + 12 + 2 + 2 + 2 + 5);
}

// PNG, WebP and HEIF rows say "accept W x H" with RGB, RGBA, grey with alpha
// or an expanded palette, and sometimes a sample width; or "the upright
// picture is W wide x H tall" for a file whose container turns it; or
// "refuse cleanly". Alpha of any picture opens as a fourth plane beside RGB.
TEST(Manifest, EveryRowOfTheNewerFormatsIsMet) {
  static const std::regex size(R"((\d+)x(\d+)|(\d+) wide x (\d+) tall)");
  static const std::regex bits(R"((\d+)-bit samples)");
  int checked = 0;
  for (const Row &row : ReadManifest()) {
    if (row.folder != "png" && row.folder != "webp" && row.folder != "heif") continue;
    SCOPED_TRACE(row.file);
    const std::string path = kTestData + "/" + row.folder + "/" + row.file;
    const uint32_t format = row.folder == "png"                           ? RasFormatPng
                            : row.folder == "webp"                        ? RasFormatWebp
                            : row.file.find(".avif") != std::string::npos ? RasFormatAvif
                                                                          : RasFormatHeic;
    ++checked;
    if (row.expected.rfind("refuse cleanly", 0) == 0) {
      CheckRefused(row, format, {});
      continue;
    }
    std::smatch m;
    ASSERT_TRUE(row.expected.rfind("accept", 0) == 0 && std::regex_search(row.expected, m, size))
        << "cannot read the manifest's expectation: " << row.expected;
    const bool upright = m[3].matched;
    const uint32_t width = std::stoul(m[upright ? 3 : 1]), height = std::stoul(m[upright ? 4 : 2]);
    const bool alpha = row.expected.find("RGBA") != std::string::npos ||
                       row.expected.find("with alpha") != std::string::npos;
    std::smatch b;
    const uint32_t maxval =
        std::regex_search(row.expected, b, bits) ? (1u << std::stoul(b[1])) - 1 : 255;
    RasDesc desc{};
    ASSERT_EQ(RasGetInfo(path.c_str(), &desc), RasOk) << row.expected;
    EXPECT_EQ(
        std::tuple(desc.format, desc.width, desc.height, desc.channels, desc.model, desc.maxval),
        std::tuple(format, width, height, alpha ? 4u : 3u, RasModelRgb, maxval));
    EXPECT_EQ(ReadAll(path, &desc), RasOk);
  }
  EXPECT_EQ(checked, 9 + 5 + 8);
}

// No reader claims another format's files, and probing a refused file fails
// cleanly.
TEST(Manifest, NoReaderClaimsAnotherFormatsFiles) {
  const std::map<std::string, uint32_t> own = {{"targa", RasFormatTarga},
                                               {"scitex", RasFormatScitex},
                                               {"photocd", RasFormatPhotoCd},
                                               {"cineon", RasFormatCineon},
                                               {"eps", RasFormatEps}};
  int probed = 0;
  for (const Row &row : ReadManifest()) {
    const auto folder = own.find(row.folder);
    if (folder == own.end()) continue;
    const std::string path = kTestData + "/" + row.folder + "/" + row.file;
    RasDesc desc{};
    const int code = RasGetInfo(path.c_str(), &desc);
    EXPECT_EQ(desc.state, nullptr);
    if (code == RasOk) {
      EXPECT_TRUE(desc.format == folder->second ||
                  (row.folder == "eps" && desc.format == RasFormatDcs))
          << row.file << " claimed as " << RasFormatName(desc.format);
    }
    ++probed;
  }
  EXPECT_EQ(probed, 12 + 2 + 2 + 2 + 5);
}

}  // namespace

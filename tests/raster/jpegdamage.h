// JPEG files for comparing a reader that walks the compressed data without
// making the picture with one that reads every row: files from other
// programs, and a file of our own broken on purpose in the ways that decide
// whether a file opens (a marker inside the data, the data ending early, a
// header declaring too many pixels). Header only, so that the raster and the
// work-area tests share it.
#pragma once

#include <string>
#include <vector>

#include "tests/raster/testutil.h"

namespace jpegdamage {

using testutil::Bytes;

// One file and the code a full read of every row gives for it.
struct Case {
  std::string label;
  std::string path;
  int code;
};

// Where a JPEG's first scan's coded data starts: just past its SOS segment;
// 0 when the markers before it do not parse.
inline size_t DataStart(const Bytes &jpeg) {
  size_t at = 2;
  while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF) {
    const size_t length = testutil::GetField(jpeg, at + 2, 2, true);
    if (jpeg[at + 1] == 0xDA) return at + 2 + length;
    at += 2 + length;
  }
  return 0;
}

// The offset `fraction` of the way through the coded data (up to its EOI).
inline size_t Into(const Bytes &jpeg, double fraction) {
  const size_t start = DataStart(jpeg);
  return start + static_cast<size_t>(static_cast<double>(jpeg.size() - 2 - start) * fraction);
}

// `jpeg` with `bytes` written over it at `fraction` of its coded data.
inline Bytes Overwritten(Bytes jpeg, double fraction, const Bytes &bytes) {
  std::copy(bytes.begin(), bytes.end(), jpeg.begin() + static_cast<long>(Into(jpeg, fraction)));
  return jpeg;
}

inline Bytes Cut(Bytes jpeg, double fraction) {
  jpeg.resize(Into(jpeg, fraction));
  return jpeg;
}

// `jpeg` declaring `width` x `height` in its SOF0 header.
inline Bytes Declaring(Bytes jpeg, uint32_t width, uint32_t height) {
  for (size_t at = 2; at + 9 < jpeg.size(); ++at) {
    if (jpeg[at] != 0xFF || jpeg[at + 1] != 0xC0) continue;
    testutil::PutField(jpeg, at + 5, height, 2, true);
    testutil::PutField(jpeg, at + 7, width, 2, true);
    break;
  }
  return jpeg;
}

// The cases, the broken ones written where `place(name)` says. Our own file is 64x256
// at 300 dpi, with a restart marker every row of blocks as the library
// writes it, so a broken stretch is resynchronised at the next one and only a
// marker the decoder cannot skip is fatal.
template <class Place>
std::vector<Case> Cases(const std::string &testData, Place place) {
  const std::string jpeg = testData + "/jpeg/", exif = testData + "/exif/";
  std::vector<Case> cases = {
      {"progressive", jpeg + "imagers__images_jpg_progressive_cat.jpg", RasOk},
      {"12-bit", jpeg + "ljt__monkey12.jpg", RasErrFormat},
      {"arithmetic", jpeg + "ljt__testimgari.jpg", RasOk},
      {"baseline", jpeg + "ljt__testorig.jpg", RasOk},
      {"two SOF markers", jpeg + "oiio__jpeg-corrupt_src_corrupt-iptc-8011.jpg", RasErrFormat},
      {"YCCK", jpeg + "oiio__jpeg_src_YCbCrK.jpg", RasOk},
      {"96 dpi", jpeg + "pillow__hopper.jpg", RasOk},
      {"grey", jpeg + "pillow__hopper_gray.jpg", RasOk},
      {"dots per cm", jpeg + "pillow__jfif_unit_cm.jpg", RasOk},
      {"CMYK", jpeg + "pillow__pil_sample_cmyk.jpg", RasOk},
      {"progressive cut short", jpeg + "pillow__truncated_jpeg.jpg", RasOk},
      {"EXIF and GPS", exif + "exiftool__GPS.jpg", RasOk},
      {"EXIF, XMP and ICC", exif + "libavif__paris_exif_xmp_icc.jpg", RasOk},
      {"turned a quarter", exif + "recurser__Portrait_6.jpg", RasOk},
  };
  const std::string whole = place("whole.jpg");
  EXPECT_EQ(testutil::WritePicture(whole, RasFormatJpeg, RasModelRgb, testutil::Smooth(64, 256, 3),
                                   300.0f),
            RasOk);
  const Bytes bytes = testutil::ReadFile(whole);
  const Bytes soi = {0xFF, 0xD8}, eoi = {0xFF, 0xD9}, zeros(48, 0);
  const struct {
    const char *label;
    Bytes file;
    int code;
  } made[] = {
      // A second start of image is no marker a scan may hold: fatal when the
      // decoder reads the markers after the data.
      {"start of image in the data", Overwritten(bytes, 0.5, soi), RasErrFormat},
      {"end of image at 30%", Overwritten(bytes, 0.3, eoi), RasErrRead},
      {"end of image at 70%", Overwritten(bytes, 0.7, eoi), RasOk},
      {"cut at 30%", Cut(bytes, 0.3), RasErrRead},
      {"cut at 80%", Cut(bytes, 0.8), RasOk},
      {"zeros in the data", Overwritten(bytes, 0.5, zeros), RasOk},
      {"65000x65000", Declaring(bytes, 65000, 65000), RasErrUnsupported},
      {"progressive, start of image in the data",
       Overwritten(testutil::ReadFile(cases[0].path), 0.5, soi), RasErrFormat},
  };
  cases.push_back({"our own", whole, RasOk});
  for (const auto &m : made) {
    const std::string path = place(std::string(m.label) + ".jpg");
    testutil::WriteFile(path, m.file);
    cases.push_back({m.label, path, m.code});
  }
  return cases;
}

}  // namespace jpegdamage

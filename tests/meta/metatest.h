// Reading files back with Exiv2 itself, for the metadata tests.
#pragma once

#include <exiv2/exiv2.hpp>
#include <string>
#include <vector>

namespace metatest {

struct Blocks {
  Exiv2::ExifData exif;
  Exiv2::XmpData xmp;
  Exiv2::IptcData iptc;
  std::vector<uint8_t> icc;
  bool thumbnail = false;
};
Blocks ReadBlocks(const std::string &path);

// A tag's value bytes in one byte order, so tags compare byte for byte
// whichever order each file stores; empty when the tag is missing.
std::vector<uint8_t> ValueBytes(const Exiv2::ExifData &exif, const std::string &key);

// The EXIF keys of one group ("GPSInfo") or naming a serial number.
std::vector<std::string> KeysOf(const Exiv2::ExifData &exif, const std::string &group);
std::vector<std::string> SerialKeys(const Blocks &blocks);

}  // namespace metatest

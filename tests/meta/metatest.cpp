#include "tests/meta/metatest.h"

namespace metatest {

Blocks ReadBlocks(const std::string &path) {
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  Blocks b{image->exifData(), image->xmpData(), image->iptcData(), {}, false};
  if (image->iccProfileDefined())
    b.icc.assign(image->iccProfile()->pData_,
                 image->iccProfile()->pData_ + image->iccProfile()->size_);
  b.thumbnail = Exiv2::ExifThumbC(b.exif).copy().size_ > 0;
  return b;
}

std::vector<uint8_t> ValueBytes(const Exiv2::ExifData &exif, const std::string &key) {
  const auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end()) return {};
  std::vector<uint8_t> bytes(it->size());
  it->copy(bytes.data(), Exiv2::bigEndian);
  return bytes;
}

std::vector<std::string> KeysOf(const Exiv2::ExifData &exif, const std::string &group) {
  std::vector<std::string> keys;
  for (const auto &d : exif)
    if (d.groupName() == group) keys.push_back(d.key());
  return keys;
}

std::vector<std::string> SerialKeys(const Blocks &blocks) {
  std::vector<std::string> keys;
  for (const auto &d : blocks.exif)
    if (d.tagName().find("Serial") != std::string::npos) keys.push_back(d.key());
  for (const auto &d : blocks.xmp)
    if (d.tagName().find("Serial") != std::string::npos || d.tagName().rfind("GPS", 0) == 0)
      keys.push_back(d.key());
  return keys;
}

}  // namespace metatest

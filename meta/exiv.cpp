#include "meta/exiv.h"

#include <algorithm>
#include <cctype>
#include <mutex>

namespace meta {

void Init() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
  });
}

std::mutex &Lock() {
  static std::mutex lock;
  return lock;
}

Exiv2::ExifData DecodeExif(const std::vector<uint8_t> &bytes) {
  Exiv2::ExifData exif;
  if (!bytes.empty())
    Exiv2::ExifParser::decode(exif, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return exif;
}

std::vector<uint8_t> EncodeExif(const Exiv2::ExifData &exif) {
  Exiv2::Blob blob;
  if (!exif.empty()) Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
  return blob;
}

Exiv2::XmpData DecodeXmp(const std::string &packet) {
  Exiv2::XmpData xmp;
  if (!packet.empty() && Exiv2::XmpParser::decode(xmp, packet) != 0) xmp.clear();
  return xmp;
}

namespace {

bool NamesSerial(const std::string &tag) {
  std::string lower(tag);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower.find("serial") != std::string::npos;
}

// Every serial number a camera writes, whatever maker note or schema holds
// it, has "serial" in its tag name (BodySerialNumber, CameraSerialNumber,
// LensSerialNumber, InternalSerialNumber, SerialNO, aux:SerialNumber); the
// position is the GPS directory and its pointer, or XMP's exif:GPS* tags.
template <typename Data, typename Private>
bool EraseIf(Data *data, Private isPrivate) {
  bool erased = false;
  for (auto it = data->begin(); it != data->end();) {
    if (isPrivate(*it)) {
      it = data->erase(it);
      erased = true;
    } else {
      ++it;
    }
  }
  return erased;
}

}  // namespace

bool StripExif(Exiv2::ExifData *exif) {
  return EraseIf(exif, [](const Exiv2::Exifdatum &d) {
    return d.groupName() == "GPSInfo" || d.key() == "Exif.Image.GPSTag" || NamesSerial(d.tagName());
  });
}

bool StripXmp(Exiv2::XmpData *xmp) {
  return EraseIf(xmp, [](const Exiv2::Xmpdatum &d) {
    return (d.groupName() == "exif" && d.tagName().rfind("GPS", 0) == 0) ||
           NamesSerial(d.tagName());
  });
}

}  // namespace meta

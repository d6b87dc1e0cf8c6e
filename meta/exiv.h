// What the metadata files share inside this library: Exiv2 set up once,
// and the records' byte blocks turned into Exiv2's containers and back.
#pragma once

#include <exiv2/exiv2.hpp>
#include <mutex>

#include "meta/meta.h"

namespace meta {

// Exiv2 made quiet (a damaged tag in a user's photo is not worth a line on
// standard error) and its XMP toolkit started, once per process.
void Init();

// Held by every entry point that runs Exiv2. Its XMP toolkit is not safe for
// two threads parsing at once, and files are read on several: the
// thumbnailer's threads and the worker that opens photos.
std::mutex &Lock();
using Hold = std::lock_guard<std::mutex>;

Exiv2::ExifData DecodeExif(const std::vector<uint8_t> &bytes);
std::vector<uint8_t> EncodeExif(const Exiv2::ExifData &exif);
Exiv2::XmpData DecodeXmp(const std::string &packet);

// Removes the GPS position and serial numbers; true when anything went.
bool StripExif(Exiv2::ExifData *exif);
bool StripXmp(Exiv2::XmpData *xmp);

}  // namespace meta

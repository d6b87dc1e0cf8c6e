// Copies without the GPS position and camera serial numbers, for photos that
// leave the machine; the photo itself is never touched.
#include <cstdio>
#include <exception>
#include <filesystem>

#include "meta/exiv.h"

void MetaStripPrivate(PhotoMeta *meta) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  try {
    Exiv2::ExifData exif = meta::DecodeExif(meta->exif);
    if (meta::StripExif(&exif)) meta->exif = meta::EncodeExif(exif);
    Exiv2::XmpData xmp = meta::DecodeXmp(meta->xmp);
    if (meta::StripXmp(&xmp) && Exiv2::XmpParser::encode(meta->xmp, xmp) != 0) meta->xmp.clear();
  } catch (const std::exception &) {
    // Blocks that cannot be read back cannot be cleaned: they go.
    meta->exif.clear();
    meta->xmp.clear();
  }
}

bool MetaHasPrivate(const PhotoMeta &meta) {
  PhotoMeta copy = meta;
  MetaStripPrivate(&copy);
  return copy.exif != meta.exif || copy.xmp != meta.xmp;
}

namespace {

// Removes the private tags from the copy at `path`, rewriting it only when
// it holds some; Exiv2 throws when it cannot.
void CleanCopy(const char *path) {
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  Exiv2::ExifData exif = image->exifData();
  Exiv2::XmpData xmp = image->xmpData();
  const bool exifChanged = meta::StripExif(&exif);
  const bool xmpChanged = meta::StripXmp(&xmp);
  if (!exifChanged && !xmpChanged) return;
  image->setExifData(exif);
  image->setXmpData(xmp);
  image->writeMetadata();
}

}  // namespace

bool MetaPrivateCopy(const char *from, const char *to, std::string *error) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  std::error_code code;
  std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, code);
  if (code) {
    if (error) *error = code.message();
    return false;
  }
  int type = Exiv2::ImageType::none;
  try {
    type = Exiv2::ImageFactory::getType(to);
  } catch (const std::exception &) {
  }
  // A format the metadata library does not know (BMP among them) has no
  // place for a position or serial number.
  if (type == Exiv2::ImageType::none) return true;
  try {
    CleanCopy(to);
    return true;
  } catch (const std::exception &e) {
    if (error) *error = e.what();
  }
  // A copy that might still hold the position is not sent.
  std::remove(to);
  return false;
}

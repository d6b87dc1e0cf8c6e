// Writing a PhotoMeta record into a saved JPEG or TIFF file.
#include <exception>

#include "meta/exiv.h"

namespace {

bool CarriesMetadata(int type) {
  return type == Exiv2::ImageType::jpeg || type == Exiv2::ImageType::tiff;
}

// Sets `key` to `value` only where the source had the tag: a size or
// orientation is corrected, never invented.
template <typename Data, typename Key>
void Update(Data *data, const char *key, long value) {
  const auto it = data->findKey(Key(key));
  if (it != data->end()) it->setValue(std::to_string(value));
}

void UpdateExif(Exiv2::ExifData *exif, const MetaSaveInfo &info) {
  Update<Exiv2::ExifData, Exiv2::ExifKey>(exif, "Exif.Photo.PixelXDimension", info.width);
  Update<Exiv2::ExifData, Exiv2::ExifKey>(exif, "Exif.Photo.PixelYDimension", info.height);
  Update<Exiv2::ExifData, Exiv2::ExifKey>(exif, "Exif.Image.ImageWidth", info.width);
  Update<Exiv2::ExifData, Exiv2::ExifKey>(exif, "Exif.Image.ImageLength", info.height);
  // Every photo with EXIF says how it stands, so no reader goes on to turn
  // pixels that are already upright by a tag it remembers from elsewhere.
  (*exif)["Exif.Image.Orientation"] = static_cast<uint16_t>(info.orientation);
}

void UpdateXmp(Exiv2::XmpData *xmp, const MetaSaveInfo &info) {
  Update<Exiv2::XmpData, Exiv2::XmpKey>(xmp, "Xmp.exif.PixelXDimension", info.width);
  Update<Exiv2::XmpData, Exiv2::XmpKey>(xmp, "Xmp.exif.PixelYDimension", info.height);
  Update<Exiv2::XmpData, Exiv2::XmpKey>(xmp, "Xmp.tiff.ImageWidth", info.width);
  Update<Exiv2::XmpData, Exiv2::XmpKey>(xmp, "Xmp.tiff.ImageLength", info.height);
  Update<Exiv2::XmpData, Exiv2::XmpKey>(xmp, "Xmp.tiff.Orientation", info.orientation);
}

// The tags the saved file already has (a TIFF's own description of its
// strips) stay; the source's tags join them.
void MergeExif(Exiv2::Image *image, const PhotoMeta &meta, const MetaSaveInfo &info) {
  Exiv2::ExifData merged = image->exifData();
  const Exiv2::ExifData source = meta::DecodeExif(meta.exif);
  for (const Exiv2::Exifdatum &d : source)
    if (merged.findKey(Exiv2::ExifKey(d.key())) == merged.end()) merged.add(d);
  if (!source.empty() || info.orientation != 1) UpdateExif(&merged, info);
  image->setExifData(merged);
}

void SetXmp(Exiv2::Image *image, const std::string &packet, const MetaSaveInfo &info) {
  if (packet.empty()) return;
  Exiv2::XmpData xmp;
  if (Exiv2::XmpParser::decode(xmp, packet) != 0) {
    // A packet the toolkit cannot parse goes across as it came.
    image->setXmpPacket(packet);
    image->writeXmpFromPacket(true);
    return;
  }
  UpdateXmp(&xmp, info);
  image->setXmpData(xmp);
}

// MetaWritable for a caller that holds the lock.
bool Writable(const char *path) {
  try {
    return CarriesMetadata(Exiv2::ImageFactory::getType(path));
  } catch (const std::exception &) {
    return false;
  }
}

}  // namespace

bool MetaWritable(const char *path) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  return Writable(path);
}

bool MetaWrite(const char *path, const PhotoMeta &meta, const MetaSaveInfo &info,
               std::string *error) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  if (!Writable(path)) return true;
  if (meta.Empty() && info.orientation == 1) return true;
  try {
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    MergeExif(image.get(), meta, info);
    SetXmp(image.get(), meta.xmp, info);
    if (!meta.iptc.empty()) {
      Exiv2::IptcData iptc;
      Exiv2::IptcParser::decode(iptc, meta.iptc.data(), static_cast<uint32_t>(meta.iptc.size()));
      image->setIptcData(iptc);
    }
    // The profile goes across unchanged, also after a colour correction:
    // the correction moves values within the photo's own RGB, so the values
    // still mean colours of the space the profile describes. Only a
    // conversion to another space would make the profile wrong, and no edit
    // does that.
    if (!meta.icc.empty()) {
      Exiv2::DataBuf icc(meta.icc.data(), static_cast<long>(meta.icc.size()));
      image->setIccProfile(icc, false);
    }
    image->writeMetadata();
    return true;
  } catch (const std::exception &e) {
    if (error) *error = e.what();
    return false;
  }
}

// Writing a PhotoMeta record into a saved JPEG, TIFF, PNG or WebP file.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <exiv2/webpimage.hpp>

#include "meta/chunks.h"
#include "meta/exiv.h"
#include "platform/safefile.h"
#include "raster/heif.h"
#include "raster/ras.h"

namespace {

// JPEG and TIFF are rewritten by Exiv2. PNG and WebP get their chunks from
// our own writers (chunks.h): the toolkit's writers for these two can leave
// a file other decoders refuse.
bool ByToolkit(int type) {
  return type == Exiv2::ImageType::jpeg || type == Exiv2::ImageType::tiff;
}

bool ByChunks(int type) {
  return type == Exiv2::ImageType::png || type == Exiv2::ImageType::webp;
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

// The file's Exiv2 image type, or -1 when it cannot be told. Only a regular
// file is asked: a pipe or a device has been streamed to and can be neither
// read back nor rewritten (opening a pipe to read would wait for a writer
// that never comes), so it gets the pixels alone, as BMP does.
int TypeOf(const char *path) {
  struct stat file {};
  if (::stat(path, &file) != 0 || !S_ISREG(file.st_mode)) return -1;
  try {
    return Exiv2::ImageFactory::getType(path);
  } catch (const std::exception &) {
    return -1;
  }
}

// The photo's XMP with its IPTC datasets added as XMP properties where the
// packet lacks them: PNG and WebP have no place for IPTC itself, and the
// XMP forms are the ones today's programs read.
std::string XmpWithIptc(const PhotoMeta &meta, const MetaSaveInfo &info) {
  Exiv2::XmpData xmp;
  if (!meta.xmp.empty() && Exiv2::XmpParser::decode(xmp, meta.xmp) != 0) return meta.xmp;
  if (!meta.iptc.empty()) {
    Exiv2::IptcData iptc;
    Exiv2::XmpData fromIptc;
    if (Exiv2::IptcParser::decode(iptc, meta.iptc.data(),
                                  static_cast<uint32_t>(meta.iptc.size())) == 0)
      Exiv2::copyIptcToXmp(iptc, fromIptc);
    for (const Exiv2::Xmpdatum &d : fromIptc)
      if (xmp.findKey(Exiv2::XmpKey(d.key())) == xmp.end()) xmp.add(d);
  }
  if (xmp.empty()) return std::string();
  UpdateXmp(&xmp, info);
  std::string packet;
  return Exiv2::XmpParser::encode(packet, xmp) == 0 ? packet : meta.xmp;
}

// MetaBlocksFor for a caller that holds the lock.
MetaBlocks BlocksFor(const PhotoMeta &meta, const MetaSaveInfo &info) {
  MetaBlocks blocks;
  Exiv2::ExifData exif = meta::DecodeExif(meta.exif);
  if (!exif.empty() || info.orientation != 1) UpdateExif(&exif, info);
  blocks.exif = meta::EncodeExif(exif);
  blocks.xmp = XmpWithIptc(meta, info);
  blocks.icc = meta.icc;
  return blocks;
}

// The error of the call that just failed; one that set none still failed.
int Errno() {
  return errno != 0 ? errno : EIO;
}

bool ReadWhole(const char *path, std::vector<uint8_t> *bytes, std::string *error) {
  FILE *file = std::fopen(path, "rb");
  bool ok = file != nullptr;
  uint8_t chunk[1 << 16];
  for (size_t n = 0; ok && (n = std::fread(chunk, 1, sizeof chunk, file)) > 0;)
    bytes->insert(bytes->end(), chunk, chunk + n);
  ok = ok && !std::ferror(file);
  if (!ok && error) *error = std::strerror(Errno());
  if (file) std::fclose(file);
  return ok;
}

// The file replaced whole, so that a failure leaves it as it was: a save
// that cannot keep the metadata still has its picture.
bool ReplaceWhole(const char *path, const std::vector<uint8_t> &bytes, std::string *error) {
  ReplacingFile file(path);
  int failure = file.error();
  if (failure == 0) {
    FILE *out = std::fopen(file.path().c_str(), "wb");
    if (!out) {
      failure = Errno();
    } else {
      if (std::fwrite(bytes.data(), 1, bytes.size(), out) != bytes.size()) failure = Errno();
      if (std::fclose(out) != 0 && failure == 0) failure = Errno();
    }
  }
  if (failure == 0) failure = file.Commit();
  if (failure != 0 && error) *error = std::strerror(failure);
  return failure == 0;
}

bool WriteChunks(const char *path, int type, const PhotoMeta &meta, const MetaSaveInfo &info,
                 std::string *error) {
  const MetaBlocks blocks = BlocksFor(meta, info);
  if (blocks.exif.empty() && blocks.xmp.empty() && blocks.icc.empty()) return true;
  std::vector<uint8_t> before, after;
  if (!ReadWhole(path, &before, error)) return false;
  const bool made = type == Exiv2::ImageType::png ? PngWithMeta(before, blocks, &after, error)
                                                  : WebpWithMeta(before, blocks, &after, error);
  return made && ReplaceWhole(path, after, error);
}

}  // namespace

MetaBlocks MetaBlocksFor(const PhotoMeta &meta, const MetaSaveInfo &info) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  try {
    return BlocksFor(meta, info);
  } catch (const std::exception &) {
    return MetaBlocks{};
  }
}

void MetaHandToEncoder(uint32_t format, const PhotoMeta &meta, const MetaSaveInfo &info) {
  if (format != RasFormatHeic && format != RasFormatAvif) return;
  if (meta.Empty() && info.orientation == 1) {
    HeifSetNextMeta(nullptr, 0, nullptr, 0, nullptr, 0);
    return;
  }
  const MetaBlocks blocks = MetaBlocksFor(meta, info);
  HeifSetNextMeta(blocks.exif.empty() ? nullptr : blocks.exif.data(), blocks.exif.size(),
                  blocks.xmp.empty() ? nullptr : blocks.xmp.data(), blocks.xmp.size(),
                  blocks.icc.empty() ? nullptr : blocks.icc.data(), blocks.icc.size());
}

bool MetaWritable(const char *path) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  const int type = TypeOf(path);
  return ByToolkit(type) || ByChunks(type);
}

bool MetaWrite(const char *path, const PhotoMeta &meta, const MetaSaveInfo &info,
               std::string *error) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  const int type = TypeOf(path);
  if (!ByToolkit(type) && !ByChunks(type)) return true;
  if (meta.Empty() && info.orientation == 1) return true;
  if (ByChunks(type)) {
    try {
      return WriteChunks(path, type, meta, info, error);
    } catch (const std::exception &e) {
      if (error) *error = e.what();
      return false;
    }
  }
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

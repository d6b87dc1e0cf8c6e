// Reading a file's metadata into a PhotoMeta record.
#include <cstring>
#include <exception>
#include <iterator>
#include <vector>

#include "meta/exiv.h"
#include "raster/heif.h"

namespace {

// Tags that describe how the source file stored its pixels, not the photo:
// carried into another file they would describe strips, tiles or samples
// that are not there. A TIFF source has them in its first directory, and
// keeps its XMP, IPTC and profile in tags the writer of each format puts
// back in the right place itself.
bool DescribesStorage(const Exiv2::Exifdatum &d, bool tiffSource) {
  // A TIFF's size and resolution are part of how it stores the picture;
  // every writer records the photo's own.
  if (tiffSource && d.groupName() == "Image" &&
      (d.tag() == 0x0100 || d.tag() == 0x0101 || d.tag() == 0x011a || d.tag() == 0x011b ||
       d.tag() == 0x0128))
    return true;
  static const uint16_t kStorage[] = {0x00fe, 0x00ff, 0x0102, 0x0103, 0x0106, 0x0107, 0x010a,
                                      0x0111, 0x0115, 0x0116, 0x0117, 0x011c, 0x013d, 0x0140,
                                      0x0142, 0x0143, 0x0144, 0x0145, 0x014a, 0x0152, 0x0153,
                                      0x015b, 0x0212, 0x02bc, 0x83bb, 0x8649, 0x8773};
  if (d.groupName() != "Image") return d.groupName().rfind("SubImage", 0) == 0;
  for (uint16_t tag : kStorage)
    if (d.tag() == tag) return true;
  return false;
}

void ReadOrientation(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp, PhotoMeta *meta) {
  long value = 0;
  const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
  if (tag != exif.end() && tag->count() > 0) {
    value = tag->toLong();
    meta->hasOrientation = true;
  } else if (const auto x = xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation")); x != xmp.end()) {
    // A PNG or WebP may carry its orientation only in XMP.
    value = x->toLong();
    meta->hasOrientation = true;
  }
  // A value outside 1..8 says nothing about how to turn the picture.
  meta->orientation = value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
}

}  // namespace

namespace {

// The EXIF block as it is kept: without the embedded thumbnail, which shows
// the picture as it was (after an edit, what was cropped away or painted
// over), and without the tags that describe how the source stored it.
void KeepExif(Exiv2::ExifData exif, bool tiffSource, PhotoMeta *meta) {
  Exiv2::ExifThumb(exif).erase();
  for (auto it = exif.begin(); it != exif.end();)
    it = DescribesStorage(*it, tiffSource) ? exif.erase(it) : std::next(it);
  meta->exif = meta::EncodeExif(exif);
}

void Fill(Exiv2::Image &image, PhotoMeta *meta) {
  image.readMetadata();
  const Exiv2::ExifData &exif = image.exifData();
  ReadOrientation(exif, image.xmpData(), meta);
  KeepExif(exif, image.imageType() == Exiv2::ImageType::tiff, meta);
  meta->xmp = image.xmpPacket();
  if (!image.iptcData().empty()) {
    const Exiv2::DataBuf iptc = Exiv2::IptcParser::encode(image.iptcData());
    meta->iptc.assign(iptc.pData_, iptc.pData_ + iptc.size_);
  }
  if (image.iccProfileDefined()) {
    const Exiv2::DataBuf *icc = image.iccProfile();
    meta->icc.assign(icc->pData_, icc->pData_ + icc->size_);
  }
}

// HEIF and AVIF files are read through libheif, whose container reader
// finds the EXIF and XMP items in every layout of the item table (Exiv2's
// finds them in some only). Their pictures come out of the decoder already
// turned by the container's own rotation and mirror boxes, so the EXIF
// orientation is not read: turning them again would undo that. False when
// the bytes are no HEIF file.
bool ReadHeif(const uint8_t *data, size_t size, PhotoMeta *meta) {
  constexpr size_t kBox = 12;  // a first box "....ftyp" and a brand
  if (size < kBox || std::memcmp(data + 4, "ftyp", 4) != 0) return false;
  std::vector<uint8_t> tiff;
  if (!HeifReadMeta(data, size, &tiff, &meta->xmp, &meta->icc)) {
    *meta = PhotoMeta{};
    return false;
  }
  KeepExif(meta::DecodeExif(tiff), false, meta);
  return true;
}

// Exiv2 refuses damaged or foreign files by throwing; the photo still opens,
// only without metadata.
template <typename Open>
bool Read(const uint8_t *data, size_t size, Open open, PhotoMeta *meta) {
  *meta = PhotoMeta{};
  meta::Init();
  const meta::Hold hold(meta::Lock());
  try {
    if (ReadHeif(data, size, meta)) return true;
    auto image = open();
    if (!image.get()) return false;
    Fill(*image, meta);
    return true;
  } catch (const std::exception &) {
    *meta = PhotoMeta{};
    return false;
  }
}

}  // namespace

bool MetaRead(const char *path, PhotoMeta *meta) {
  // Only a HEIF file, known by its first box, is mapped for libheif; every
  // other file costs a 12-byte read here before Exiv2 opens it.
  Exiv2::FileIo file(path);
  uint8_t head[12] = {};
  const bool heif = file.open() == 0 && file.read(head, sizeof head) == sizeof head &&
                    std::memcmp(head + 4, "ftyp", 4) == 0;
  const uint8_t *data = heif ? file.mmap(false) : nullptr;
  const size_t size = data ? static_cast<size_t>(file.size()) : 0;
  return Read(
      data, size, [path] { return Exiv2::ImageFactory::open(path); }, meta);
}

bool MetaReadBytes(const uint8_t *data, size_t size, PhotoMeta *meta) {
  return Read(
      data, size, [=] { return Exiv2::ImageFactory::open(data, static_cast<long>(size)); }, meta);
}

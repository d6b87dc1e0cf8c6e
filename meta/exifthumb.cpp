#include "meta/exifthumb.h"

#include <exception>

#include "meta/exiv.h"

namespace {

int OrientationOf(const Exiv2::Image &image) {
  // HEIF pictures come out of their decoder already turned by the
  // container's own boxes.
  if (image.imageType() == Exiv2::ImageType::bmff) return 1;
  long value = 0;
  const auto &exif = image.exifData();
  const auto &xmp = image.xmpData();
  if (const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
      tag != exif.end() && tag->count() > 0) {
    value = tag->toLong();
  } else if (const auto x = xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation")); x != xmp.end()) {
    value = x->toLong();
  }
  return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
}

void FillThumbInfo(Exiv2::Image &image, MetaThumbInfo *info) {
  image.readMetadata();
  info->orientation = OrientationOf(image);
  info->width = static_cast<uint32_t>(image.pixelWidth());
  info->height = static_cast<uint32_t>(image.pixelHeight());
  const Exiv2::ExifThumbC thumb(image.exifData());
  // A TIFF-structured thumbnail (rare, and only in old cameras' files) is
  // left to the full decode.
  if (std::string(thumb.mimeType()) != "image/jpeg") return;
  const Exiv2::DataBuf bytes = thumb.copy();
  if (bytes.size_ > 0) info->jpeg.assign(bytes.pData_, bytes.pData_ + bytes.size_);
}

}  // namespace

bool MetaReadThumbInfo(const char *path, MetaThumbInfo *info) {
  *info = MetaThumbInfo{};
  meta::Init();
  const meta::Hold hold(meta::Lock());
  try {
    auto image = Exiv2::ImageFactory::open(path);
    if (!image.get()) return false;
    FillThumbInfo(*image, info);
    return true;
  } catch (const std::exception &) {
    *info = MetaThumbInfo{};
    return false;
  }
}

bool MetaWriteExifThumb(const char *path, const std::vector<uint8_t> &jpeg, std::string *error) {
  meta::Init();
  const meta::Hold hold(meta::Lock());
  try {
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    Exiv2::ExifData exif = image->exifData();
    Exiv2::ExifThumb(exif).setJpegThumbnail(jpeg.data(), static_cast<long>(jpeg.size()));
    image->setExifData(exif);
    image->writeMetadata();
    return true;
  } catch (const std::exception &e) {
    if (error) *error = e.what();
    return false;
  }
}

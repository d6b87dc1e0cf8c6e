#include "photo/thumbmaker.h"

#include <QFile>
#include <QTransform>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "meta/exifthumb.h"
#include "raster/jpegthumb.h"
#include "raster/ras.h"
#include "raster/rasrgb.h"

namespace {

// An EXIF thumbnail whose shape differs from the picture's by more than this
// carries black bars (cameras pad 3:2 photos into 4:3 thumbnails) or shows
// another crop; the picture itself is decoded instead.
constexpr double kShapeTolerance = 0.02;

// The rows copied into an image of its own; null when memory ran out.
QImage ImageOf(const JpegThumb &thumb) {
  QImage image(static_cast<int>(thumb.width), static_cast<int>(thumb.height),
               QImage::Format_RGB888);
  if (image.isNull()) return image;
  const size_t rowBytes = size_t{thumb.width} * 3;
  for (uint32_t y = 0; y < thumb.height; ++y)
    std::memcpy(image.scanLine(static_cast<int>(y)), thumb.rgb + rowBytes * y, rowBytes);
  return image;
}

bool IsJpegFile(const QString &path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return false;
  const QByteArray start = file.read(3);
  return start == QByteArray("\xFF\xD8\xFF", 3);
}

bool SameShape(QSize a, QSize b) {
  const double ratioA = static_cast<double>(a.width()) / a.height();
  const double ratioB = static_cast<double>(b.width()) / b.height();
  return std::abs(ratioA - ratioB) <= kShapeTolerance * ratioB;
}

// The embedded thumbnail when it is at least `wanted` and shows the whole
// `stored` picture; else null.
QImage FromExif(const MetaThumbInfo &info, QSize stored, QSize wanted) {
  if (info.jpeg.empty() || stored.isEmpty()) return {};
  RasMemName mem;
  RasMakeMemName(&mem, const_cast<uint8_t *>(info.jpeg.data()), info.jpeg.size());
  ReducedJpeg decoded;
  if (JpegThumbDecode(RasMemNameOf(mem), static_cast<uint32_t>(wanted.width()),
                      static_cast<uint32_t>(wanted.height()), &decoded.thumb) != RasOk)
    return {};
  const QSize got(static_cast<int>(decoded.thumb.width), static_cast<int>(decoded.thumb.height));
  if (got.width() < wanted.width() || got.height() < wanted.height() || !SameShape(got, stored))
    return {};
  return ImageOf(decoded.thumb);
}

// `image`, a reduced or subsampled picture of a `stored` one, fitted by the
// whole picture's shape (which the reduced one keeps only to within a pixel)
// and turned upright.
QImage FittedUpright(QImage image, QSize stored, int box, int orientation) {
  if (image.isNull()) return image;
  const QSize fitted = ThumbFittedSize(stored, box);
  if (fitted != image.size())
    image = image.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  return ThumbUpright(image, orientation);
}

QImage FromReducedJpeg(const JpegThumb &reduced, int orientation, int box) {
  const QSize stored(static_cast<int>(reduced.fullWidth), static_cast<int>(reduced.fullHeight));
  return FittedUpright(ImageOf(reduced), stored, box, orientation);
}

// The size a decode is asked for. Without the stored size from the
// metadata, asking the whole box along both sides still never leaves the
// decode too small.
QSize WantedSize(QSize stored, int box) {
  return stored.isEmpty() ? QSize(box, box) : ThumbFittedSize(stored, box);
}

// One raster file open for reading and its scanline record, let go on every
// way out.
struct OpenRaster {
  RasDesc desc{};
  RasSl sl{};
  bool open = false;
  ~OpenRaster() {
    if (open) (void)RasClose(&desc);
    RasFreeSl(&sl);
  }
};

// Every `step`th row and column of the file's picture, as RGB.
QImage Subsampled(OpenRaster &file, uint32_t step) {
  const uint32_t width = (file.desc.width + step - 1) / step;
  const uint32_t height = (file.desc.height + step - 1) / step;
  QImage image(static_cast<int>(width), static_cast<int>(height), QImage::Format_RGB888);
  std::vector<uint8_t> planes(size_t{file.desc.width} * 3);
  uint8_t *const red = planes.data();
  uint8_t *const green = red + file.desc.width;
  uint8_t *const blue = green + file.desc.width;
  for (uint32_t y = 0; y < height && !image.isNull(); ++y) {
    if (RasReadSl(&file.desc, y * step, &file.sl) != RasOk ||
        RasSlToRgb(&file.sl, &file.desc, red, green, blue) != RasOk)
      return {};
    uint8_t *out = image.scanLine(static_cast<int>(y));
    for (uint32_t x = 0; x < width; ++x, out += 3) {
      const uint32_t from = x * step;
      out[0] = red[from];
      out[1] = green[from];
      out[2] = blue[from];
    }
  }
  return image;
}

// Any format the raster library reads, keeping every Nth row and column
// with N as large as still leaves `box` pixels along the fitted sides.
QImage FromRaster(const QByteArray &name, int box, QSize *stored) {
  OpenRaster file;
  if (RasGetInfo(name.constData(), &file.desc) != RasOk) return {};
  if (RasOpen(name.constData(), 'r', &file.desc) != RasOk) return {};
  file.open = true;
  if (RasMakeSl(&file.sl, &file.desc) != RasOk) return {};
  *stored = QSize(static_cast<int>(file.desc.width), static_cast<int>(file.desc.height));
  const QSize wanted = ThumbFittedSize(*stored, box);
  const uint32_t step = static_cast<uint32_t>(
      std::max(1, std::min(stored->width() / wanted.width(), stored->height() / wanted.height())));
  return Subsampled(file, step);
}

// The thumbnail of `path`, from the first source that gives one.
QImage Made(const QString &path, const MetaThumbInfo &info, int box, ThumbSource *source) {
  QSize stored(static_cast<int>(info.width), static_cast<int>(info.height));
  const QSize wanted = WantedSize(stored, box);
  *source = ThumbSource::Exif;
  QImage thumb = FittedUpright(FromExif(info, stored, wanted), stored, box, info.orientation);
  const QByteArray name = QFile::encodeName(path);
  if (thumb.isNull() && IsJpegFile(path)) {
    ReducedJpeg decoded;
    if (JpegThumbDecode(name.constData(), static_cast<uint32_t>(wanted.width()),
                        static_cast<uint32_t>(wanted.height()), &decoded.thumb) == RasOk)
      thumb = FromReducedJpeg(decoded.thumb, info.orientation, box);
    *source = ThumbSource::ScaledJpeg;
  }
  if (thumb.isNull()) {
    thumb = FittedUpright(FromRaster(name, box, &stored), stored, box, info.orientation);
    *source = ThumbSource::Subsampled;
  }
  if (thumb.isNull()) *source = ThumbSource::None;
  return thumb;
}

}  // namespace

QSize ThumbFittedSize(QSize stored, int box) {
  if (stored.isEmpty()) return {1, 1};
  if (stored.width() <= box && stored.height() <= box) return stored;
  return stored.scaled(box, box, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

QImage ThumbUpright(const QImage &image, int orientation) {
  const auto turned = [&image](qreal degrees) {
    return image.transformed(QTransform().rotate(degrees));
  };
  switch (orientation) {
    case 2:
      return image.mirrored(true, false);
    case 3:
      return image.mirrored(true, true);
    case 4:
      return image.mirrored(false, true);
    case 5:  // transposed: a quarter turn clockwise, then mirrored left-right
      return turned(90).mirrored(true, false);
    case 6:
      return turned(90);
    case 7:  // transversed: a quarter turn clockwise, then mirrored top-bottom
      return turned(90).mirrored(false, true);
    case 8:
      return turned(270);
    default:
      return image;
  }
}

QImage ThumbFromJpegCheck(const JpegThumb &reduced, const MetaThumbInfo &info, int box) {
  const QSize stored(static_cast<int>(info.width), static_cast<int>(info.height));
  const QSize wanted = WantedSize(stored, box);
  const QImage exif = FittedUpright(FromExif(info, stored, wanted), stored, box, info.orientation);
  if (!exif.isNull()) return exif;
  if (reduced.rgb == nullptr) return {};
  const uint32_t denominator = JpegThumbDenominator(reduced.fullWidth, reduced.fullHeight,
                                                    static_cast<uint32_t>(wanted.width()),
                                                    static_cast<uint32_t>(wanted.height()));
  if (denominator != reduced.denominator) return {};
  return FromReducedJpeg(reduced, info.orientation, box);
}

QImage MakeThumbnail(const QString &path, int box, ThumbSource *source) {
  MetaThumbInfo info;
  (void)MetaReadThumbInfo(QFile::encodeName(path).constData(), &info);
  ThumbSource made = ThumbSource::None;
  QImage thumb = Made(path, info, box, &made);
  if (source) *source = made;
  return thumb;
}

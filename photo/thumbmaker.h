// Making one thumbnail of a photo file, as small and as cheaply as the file
// allows: the camera's own EXIF thumbnail when it is big enough and shows the
// whole picture, else a JPEG decoded at a reduced size by the codec's DCT
// scaling, else (the other formats) every Nth row and column of the picture
// read through the raster library. The result is fitted into a square of
// the asked size (never enlarged) and turned upright by the file's
// orientation tag. Safe to call from several threads at once.
#pragma once

#include <QImage>
#include <QSize>
#include <QString>

#include "meta/exifthumb.h"
#include "raster/jpegthumb.h"

enum class ThumbSource {
  None,        // the file could not be read
  Exif,        // the embedded EXIF thumbnail
  ScaledJpeg,  // a reduced-size JPEG decode
  Subsampled,  // every Nth row and column through the raster library
};

// The size a `stored` picture takes fitted into `box` x `box`, kept as it is
// when it fits already; at least 1 x 1.
QSize ThumbFittedSize(QSize stored, int box);

// `image` as it should be shown given EXIF orientation `orientation` (1..8;
// anything else leaves it as it is).
QImage ThumbUpright(const QImage &image, int orientation);

// The rows of a reduced JPEG decode, released with the holder.
struct ReducedJpeg {
  JpegThumb thumb{};
  ReducedJpeg() = default;
  ReducedJpeg(const ReducedJpeg &) = delete;
  ReducedJpeg &operator=(const ReducedJpeg &) = delete;
  ~ReducedJpeg() { JpegThumbFree(&thumb); }
};

// What MakeThumbnail(path, box) makes of a JPEG file whose metadata reads as
// `info`, given `reduced`, the file decoded at a reduced size (by
// JpegThumbDecode or a check that keeps its rows): the camera's EXIF
// thumbnail where MakeThumbnail takes that, else the very step it takes
// after its own decode. Null when MakeThumbnail would make it from another
// reduction, or from a decode `reduced` does not hold (no rows kept).
QImage ThumbFromJpegCheck(const JpegThumb &reduced, const MetaThumbInfo &info, int box);

// The thumbnail of `path` no larger than `box` x `box`, upright; a null
// image when the file cannot be read. `source`, when given, says how it was
// made.
QImage MakeThumbnail(const QString &path, int box, ThumbSource *source = nullptr);

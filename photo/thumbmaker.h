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

// The thumbnail of `path` no larger than `box` x `box`, upright; a null
// image when the file cannot be read. `source`, when given, says how it was
// made.
QImage MakeThumbnail(const QString &path, int box, ThumbSource *source = nullptr);

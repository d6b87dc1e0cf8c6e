// Pictures for the thumbnail tests: JPEG and other files written through the
// raster library from a planar picture, and such pictures compared.
#pragma once

#include <QImage>
#include <QString>
#include <cstdint>
#include <string>
#include <vector>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace thumbtest {

// A picture of one colour.
testutil::Picture Flat(uint32_t width, uint32_t height, uint8_t r, uint8_t g, uint8_t b);
// A smooth picture with no wrap-around: each channel a gentle slope.
testutil::Picture Gradient(uint32_t width, uint32_t height);
// Writes `picture` as a file of `format` under `dir`; its path.
QString Write(const QString &dir, const char *name, const testutil::Picture &picture,
              uint32_t format = RasFormatJpeg);
// The bytes of a JPEG file of `picture`.
std::vector<uint8_t> JpegBytes(const QString &dir, const testutil::Picture &picture);
// The mean of every pixel's red, green and blue.
QRgb MeanColour(const QImage &image);

}  // namespace thumbtest

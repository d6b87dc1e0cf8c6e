#include "tests/thumbs/thumbtest.h"

#include <gtest/gtest.h>
#include <QFile>

namespace thumbtest {

testutil::Picture Flat(uint32_t width, uint32_t height, uint8_t r, uint8_t g, uint8_t b) {
  testutil::Picture picture{width, height, 3, {}};
  for (uint8_t value : {r, g, b})
    picture.planes.emplace_back(size_t{width} * height, value);
  return picture;
}

testutil::Picture Gradient(uint32_t width, uint32_t height) {
  testutil::Picture picture = Flat(width, height, 0, 0, 0);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        picture.At(x, y, k) = static_cast<uint8_t>(20 + 120 * x / width + 50 * y / height + 20 * k);
  return picture;
}

QString Write(const QString &dir, const char *name, const testutil::Picture &picture,
              uint32_t format) {
  const QString path = dir + '/' + name;
  EXPECT_EQ(
      testutil::WritePicture(QFile::encodeName(path).toStdString(), format, RasModelRgb, picture),
      RasOk);
  return path;
}

std::vector<uint8_t> JpegBytes(const QString &dir, const testutil::Picture &picture) {
  return testutil::ReadFile(QFile::encodeName(Write(dir, "bytes.jpg", picture)).toStdString());
}

QRgb MeanColour(const QImage &image) {
  const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
  uint64_t sum[3] = {0, 0, 0};
  for (int y = 0; y < rgb.height(); ++y)
    for (int x = 0; x < rgb.width(); ++x) {
      const QRgb p = rgb.pixel(x, y);
      sum[0] += qRed(p), sum[1] += qGreen(p), sum[2] += qBlue(p);
    }
  const uint64_t n = std::max<uint64_t>(1, uint64_t(rgb.width()) * rgb.height());
  return qRgb(int(sum[0] / n), int(sum[1] / n), int(sum[2] / n));
}

}  // namespace thumbtest

#include "artwork.h"

namespace skingen {

// The painter on an image with a device pixel ratio works in logical pixels, so every
// drawing routine draws the same shapes at any scale and only the pixel grid changes.
QImage BlankImage(QSize size, qreal scale, QImage::Format format) {
  QImage image((QSizeF(size) * scale).toSize(), format);
  image.setDevicePixelRatio(scale);
  image.fill(Qt::transparent);
  return image;
}

}  // namespace skingen

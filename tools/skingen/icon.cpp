#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include "artwork.h"
#include "camera.h"
#include "palette.h"

namespace skingen {

void PaintIcon(QPainter &painter) {
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF tile(12, 12, 232, 232);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0, 0, 0, 60));
  painter.drawRoundedRect(tile.translated(0, 4), 54, 54);
  QLinearGradient warm(tile.topLeft(), tile.bottomRight());
  warm.setColorAt(0, QColor(kAccentLight));
  warm.setColorAt(1, QColor(0xe0, 0x6a, 0x1e));
  painter.setBrush(warm);
  painter.drawRoundedRect(tile, 54, 54);

  const QRectF camera(40, 62, 176, 132);
  painter.setBrush(QColor(0x6a, 0x2c, 0x00, 70));
  painter.drawRoundedRect(QRectF(44, 92, 168, 110), 22, 22);
  DrawCamera(painter, camera, QColor(0xfb, 0xf7, 0xf2), QColor(kAccent));
}

// Each size is drawn from the shapes rather than scaled from the largest, so that the
// small icons keep sharp edges.
QImage DrawIcon(int side) {
  QImage image = BlankImage(QSize(side, side), 1);
  QPainter painter(&image);
  painter.scale(side / 256.0, side / 256.0);
  PaintIcon(painter);
  return image;
}

}  // namespace skingen

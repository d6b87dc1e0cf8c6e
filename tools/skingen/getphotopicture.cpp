#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include "artwork.h"
#include "camera.h"
#include "palette.h"
#include "skintable.h"

namespace skingen {

// A camera handing a print over: the dialog offers to fetch photos from the camera
// or from a file, and this picture stands for the first.
QImage DrawGetPhotoPicture(qreal scale) {
  QImage image = BlankImage(kGetPhotoPictureSize, scale);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);

  QLinearGradient card(0, 0, 0, 96);
  card.setColorAt(0, QColor(kFaceBottom));
  card.setColorAt(1, QColor(kPanel));
  painter.setPen(QPen(QColor(kBorder), 1));
  painter.setBrush(card);
  painter.drawRoundedRect(QRectF(0.5, 0.5, 179, 95), 10, 10);

  DrawCamera(painter, QRectF(14, 22, 64, 48), QColor(0xfb, 0xf7, 0xf2), QColor(kAccent));

  painter.setPen(QPen(QColor(kAccent), 4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawLine(QPointF(88, 48), QPointF(104, 48));
  painter.drawPolyline(QPolygonF({{98, 41}, {105, 48}, {98, 55}}));

  // The print, tilted a little as if just laid down.
  painter.translate(140, 48);
  painter.rotate(-6);
  const QRectF print(-26, -30, 52, 60);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0, 0, 0, 90));
  painter.drawRect(print.translated(2, 3));
  painter.setBrush(QColor(0xfb, 0xf7, 0xf2));
  painter.drawRect(print);
  const QRectF scene(-21, -25, 42, 40);
  QLinearGradient sky(scene.topLeft(), scene.bottomLeft());
  sky.setColorAt(0, QColor(0x4f, 0x9d, 0xe8));
  sky.setColorAt(1, QColor(0xb8, 0xdc, 0xf6));
  painter.setBrush(sky);
  painter.drawRect(scene);
  painter.setBrush(QColor(kAccentLight));
  painter.drawEllipse(QPointF(9, -14), 5, 5);
  QPainterPath hills;
  hills.moveTo(scene.bottomLeft());
  hills.lineTo(-21, 4);
  hills.quadTo(-8, -6, 4, 5);
  hills.quadTo(13, -2, 21, 3);
  hills.lineTo(scene.bottomRight());
  hills.closeSubpath();
  painter.setBrush(QColor(0x4c, 0xa0, 0x48));
  painter.drawPath(hills);
  return image;
}

}  // namespace skingen

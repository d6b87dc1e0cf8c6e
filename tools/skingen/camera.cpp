#include "camera.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

#include "palette.h"

namespace skingen {

// Drawn on a 100 x 75 grid.
void DrawCamera(QPainter &painter, const QRectF &bounds, const QColor &body, const QColor &trim) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(bounds.topLeft());
  painter.scale(bounds.width() / 100.0, bounds.width() / 100.0);

  QPainterPath shape;
  shape.addRoundedRect(QRectF(2, 14, 96, 60), 12, 12);
  QPainterPath hump;
  hump.addRoundedRect(QRectF(30, 2, 40, 20), 6, 6);
  shape = shape.united(hump);
  QLinearGradient shade(0, 2, 0, 74);
  shade.setColorAt(0, body.lighter(104));
  shade.setColorAt(1, body.darker(112));
  painter.setPen(Qt::NoPen);
  painter.setBrush(shade);
  painter.drawPath(shape);

  // Grip band along the bottom, the shutter release and the flash.
  painter.setBrush(body.darker(125));
  painter.drawRoundedRect(QRectF(8, 5.5, 14, 8), 2.5, 2.5);
  painter.setBrush(trim);
  painter.drawRoundedRect(QRectF(76, 22, 13, 7), 2, 2);

  // The lens: a dark barrel, a ring in the trim colour and glass with a catch-light.
  const QPointF centre(50, 45);
  painter.setBrush(QColor(kBorder));
  painter.drawEllipse(centre, 25, 25);
  painter.setBrush(trim);
  painter.drawEllipse(centre, 20.5, 20.5);
  QRadialGradient glass(centre + QPointF(-5, -6), 20);
  glass.setColorAt(0, QColor(0x56, 0x5c, 0x7c));
  glass.setColorAt(0.6, QColor(0x24, 0x22, 0x30));
  glass.setColorAt(1, QColor(0x0e, 0x0d, 0x12));
  painter.setBrush(glass);
  painter.drawEllipse(centre, 16.5, 16.5);
  painter.setBrush(QColor(255, 255, 255, 200));
  painter.drawEllipse(centre + QPointF(-6, -6.5), 4.2, 3.2);
  painter.setBrush(QColor(255, 255, 255, 90));
  painter.drawEllipse(centre + QPointF(6.5, 7), 2.2, 2.2);
  painter.restore();
}

}  // namespace skingen

#include "pictograms.h"

#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include "palette.h"

namespace skingen {
namespace {

constexpr qreal kGrid = 24.0;
constexpr qreal kStroke = 1.9;

// Colour in a pictogram tells the colour tools apart; a disabled button shows the
// same shapes in flat grey so that nothing on it looks usable.
QColor Tint(QRgb colour, bool muted) {
  if (!muted) return QColor(colour);
  const int grey = qGray(colour) / 2 + 40;
  return QColor(grey, grey, grey);
}

void Polyline(QPainter &painter, std::initializer_list<QPointF> points) {
  painter.drawPolyline(QPolygonF(QList<QPointF>(points)));
}

void Magnifier(QPainter &painter, bool plus) {
  painter.drawEllipse(QPointF(10, 10), 6.8, 6.8);
  painter.save();
  QPen handle = painter.pen();
  handle.setWidthF(kStroke * 1.7);
  painter.setPen(handle);
  painter.drawLine(QPointF(15.4, 15.4), QPointF(20.5, 20.5));
  painter.restore();
  painter.drawLine(QPointF(6.9, 10), QPointF(13.1, 10));
  if (plus) painter.drawLine(QPointF(10, 6.9), QPointF(10, 13.1));
}

// Three quarters of a circle with an arrowhead at its end; the left turn is the
// right turn mirrored, so the two buttons read as a pair.
void TurnArrow(QPainter &painter, bool clockwise) {
  painter.save();
  if (!clockwise) {
    painter.translate(kGrid, 0);
    painter.scale(-1, 1);
  }
  const QRectF circle(4.5, 5, 15, 15);
  QPainterPath arc;
  arc.arcMoveTo(circle, 220);
  arc.arcTo(circle, 220, -265);
  painter.drawPath(arc);
  Polyline(painter, {{13.8, 3.2}, {18.2, 6.8}, {13.8, 9.6}});
  painter.restore();
}

void Swatch(QPainter &painter, QRgb colour, const QColor &ink, bool muted) {
  painter.save();
  painter.setBrush(Tint(colour, muted));
  painter.setPen(QPen(ink, 1.3));
  painter.drawEllipse(QPointF(12, 12), 7.2, 7.2);
  painter.restore();
}

// Three overlapping light circles: additive colour, the usual sign for colour work.
void ColourCircles(QPainter &painter, const QColor &ink, bool muted) {
  painter.save();
  painter.setPen(QPen(ink, 1.1));
  const struct {
    QPointF centre;
    QRgb colour;
  } circles[] = {{{12, 8}, qRgb(0xff, 0x55, 0x4f)},
                 {{8, 15}, qRgb(0x4c, 0xd0, 0x64)},
                 {{16, 15}, qRgb(0x4f, 0x9d, 0xff)}};
  for (const auto &circle : circles) {
    QColor fill = Tint(circle.colour, muted);
    fill.setAlpha(200);
    painter.setBrush(fill);
    painter.drawEllipse(circle.centre, 5.6, 5.6);
  }
  painter.restore();
}

void Eye(QPainter &painter, const QColor &ink, bool muted) {
  QPainterPath lid;
  lid.moveTo(2, 12);
  lid.quadTo(12, 2.5, 22, 12);
  lid.quadTo(12, 21.5, 2, 12);
  painter.drawPath(lid);
  painter.drawEllipse(QPointF(12, 12), 4.4, 4.4);
  painter.save();
  painter.setPen(Qt::NoPen);
  painter.setBrush(Tint(qRgb(0xff, 0x3b, 0x30), muted));
  painter.drawEllipse(QPointF(12, 12), 2.6, 2.6);
  painter.setBrush(ink);
  painter.drawEllipse(QPointF(13.3, 10.7), 0.9, 0.9);
  painter.restore();
}

}  // namespace

void DrawPictogram(QPainter &painter, Pictogram pictogram, const QRectF &square, const QColor &ink,
                   bool muted) {
  if (pictogram == Pictogram::kNone) return;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(square.topLeft());
  painter.scale(square.width() / kGrid, square.height() / kGrid);
  painter.setPen(QPen(ink, kStroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);

  switch (pictogram) {
    case Pictogram::kNone:
      break;
    case Pictogram::kDownload:
      painter.drawLine(QPointF(12, 3), QPointF(12, 14.5));
      Polyline(painter, {{7, 9.5}, {12, 14.5}, {17, 9.5}});
      Polyline(painter, {{4, 15}, {4, 20.5}, {20, 20.5}, {20, 15}});
      break;
    case Pictogram::kSave:
      painter.drawPolygon(QPolygonF({{4, 4}, {17, 4}, {20, 7}, {20, 20}, {4, 20}}));
      Polyline(painter, {{8, 4}, {8, 9}, {15, 9}, {15, 4}});
      painter.drawRoundedRect(QRectF(7.5, 13, 9, 7), 1, 1);
      break;
    case Pictogram::kShare:
      painter.drawLine(QPointF(6.5, 12), QPointF(17.5, 5.5));
      painter.drawLine(QPointF(6.5, 12), QPointF(17.5, 18.5));
      painter.setBrush(ink);
      painter.drawEllipse(QPointF(17.5, 5.5), 2.7, 2.7);
      painter.drawEllipse(QPointF(6.5, 12), 2.7, 2.7);
      painter.drawEllipse(QPointF(17.5, 18.5), 2.7, 2.7);
      break;
    case Pictogram::kProjects:
      // A photo book: the back page shows only where the front one leaves it free.
      Polyline(painter, {{8, 7.5}, {8, 3}, {21, 3}, {21, 15.5}, {17.5, 15.5}});
      painter.drawRoundedRect(QRectF(3, 7.5, 14.5, 13), 1.2, 1.2);
      Polyline(painter, {{5, 18}, {8.5, 14}, {11, 16.5}, {12.8, 15}, {15.5, 18}});
      painter.save();
      painter.setPen(Qt::NoPen);
      painter.setBrush(Tint(kAccent, muted));
      painter.drawEllipse(QPointF(13, 11.2), 1.6, 1.6);
      painter.restore();
      break;
    case Pictogram::kPrint:
      Polyline(painter, {{6.5, 17}, {3, 17}, {3, 9}, {21, 9}, {21, 17}, {17.5, 17}});
      Polyline(painter, {{6.5, 9}, {6.5, 3}, {17.5, 3}, {17.5, 9}});
      painter.drawRect(QRectF(6.5, 14, 11, 7));
      painter.save();
      painter.setPen(Qt::NoPen);
      painter.setBrush(Tint(kAccent, muted));
      painter.drawEllipse(QPointF(18, 12), 1.2, 1.2);
      painter.restore();
      break;
    case Pictogram::kDelete:
      painter.drawLine(QPointF(3.5, 6), QPointF(20.5, 6));
      Polyline(painter, {{9, 6}, {9, 3.2}, {15, 3.2}, {15, 6}});
      Polyline(painter, {{5.8, 6}, {7, 21}, {17, 21}, {18.2, 6}});
      painter.drawLine(QPointF(10, 10), QPointF(10, 17));
      painter.drawLine(QPointF(14, 10), QPointF(14, 17));
      break;
    case Pictogram::kThumbnails:
      for (const QPointF corner :
           {QPointF(3.5, 3.5), QPointF(13, 3.5), QPointF(3.5, 13), QPointF(13, 13)}) {
        painter.drawRoundedRect(QRectF(corner, QSizeF(7.5, 7.5)), 1.3, 1.3);
      }
      break;
    case Pictogram::kZoomIn:
      Magnifier(painter, true);
      break;
    case Pictogram::kZoomOut:
      Magnifier(painter, false);
      break;
    case Pictogram::kCrop:
      Polyline(painter, {{6.5, 2.5}, {6.5, 17.5}, {21.5, 17.5}});
      Polyline(painter, {{2.5, 6.5}, {17.5, 6.5}, {17.5, 21.5}});
      break;
    case Pictogram::kColor:
      ColourCircles(painter, ink, muted);
      break;
    case Pictogram::kRotate: {
      // A photo with the arrow of a quarter turn over its corner.
      painter.drawRoundedRect(QRectF(3, 10, 11.5, 11), 1.2, 1.2);
      QPainterPath turn;
      turn.moveTo(8.5, 5.5);
      turn.quadTo(19, 4, 19.8, 14.5);
      painter.drawPath(turn);
      Polyline(painter, {{16.6, 11.8}, {19.8, 15}, {22.6, 11.4}});
      break;
    }
    case Pictogram::kRotateRight:
      TurnArrow(painter, true);
      break;
    case Pictogram::kRotateLeft:
      TurnArrow(painter, false);
      break;
    case Pictogram::kRedEye:
      Eye(painter, ink, muted);
      break;
    case Pictogram::kGlobe:
      painter.drawEllipse(QPointF(12, 12), 9, 9);
      painter.drawEllipse(QPointF(12, 12), 4, 9);
      painter.drawLine(QPointF(3, 12), QPointF(21, 12));
      painter.drawLine(QPointF(4.6, 7.5), QPointF(19.4, 7.5));
      painter.drawLine(QPointF(4.6, 16.5), QPointF(19.4, 16.5));
      break;
    case Pictogram::kEmail:
      painter.drawRoundedRect(QRectF(3, 5.5, 18, 13), 1.6, 1.6);
      Polyline(painter, {{3.8, 6.8}, {12, 13}, {20.2, 6.8}});
      break;
    case Pictogram::kSky:
      Swatch(painter, qRgb(0x5a, 0xb1, 0xf2), ink, muted);
      break;
    case Pictogram::kFoliage:
      Swatch(painter, qRgb(0x5c, 0xbc, 0x4a), ink, muted);
      break;
    case Pictogram::kSkin:
      Swatch(painter, qRgb(0xe9, 0xb0, 0x8a), ink, muted);
      break;
    case Pictogram::kNeutrals:
      Swatch(painter, qRgb(0x9c, 0x9c, 0x9c), ink, muted);
      break;
    case Pictogram::kUndo: {
      Polyline(painter, {{8.5, 3.5}, {4, 8}, {8.5, 12.5}});
      QPainterPath back;
      back.moveTo(4, 8);
      back.lineTo(14, 8);
      back.cubicTo(18.5, 8, 21, 11, 21, 14.5);
      back.cubicTo(21, 18, 18.5, 21, 14, 21);
      back.lineTo(9, 21);
      painter.drawPath(back);
      break;
    }
    case Pictogram::kKeep:
      Polyline(painter, {{4, 12.5}, {9.5, 18}, {20, 6}});
      break;
    case Pictogram::kClose:
      painter.drawLine(QPointF(6, 6), QPointF(18, 18));
      painter.drawLine(QPointF(18, 6), QPointF(6, 18));
      break;
  }
  painter.restore();
}

}  // namespace skingen

#include <QLinearGradient>
#include <QPainter>

#include "artwork.h"
#include "camera.h"
#include "captionfont.h"
#include "palette.h"

namespace skingen {
namespace {

// The work area is control 1021's corner, (22, 29) in dialog units, with the size the
// form view gives its child views; the help pane runs below it.
constexpr QRect kWorkRect(33, 47, 645, 453);
constexpr int kTopBarHeight = 44;
constexpr int kBottomBarTop = kWorkRect.bottom() + 1;

void DrawBar(QPainter &painter, const QRect &bar, QRgb colour, bool lineBelow) {
  QLinearGradient shade(bar.topLeft(), bar.bottomLeft());
  shade.setColorAt(0, QColor(colour).lighter(108));
  shade.setColorAt(1, QColor(colour));
  painter.fillRect(bar, shade);
  // A dark line and a light one make the edge read as a fold rather than a seam.
  const int dark = lineBelow ? bar.bottom() : bar.top();
  const int light = lineBelow ? bar.bottom() + 1 : bar.top() + 1;
  painter.fillRect(QRect(0, dark, bar.width(), 1), QColor(kHairlineDark));
  painter.fillRect(QRect(0, light, bar.width(), 1), QColor(kHairlineLight));
}

// The wordmark goes at the right of the top bar, past the last of the top buttons
// (which end at 640 px) and above the tool column.
void DrawWordmark(QPainter &painter) {
  const QRectF emblem(664, 12, 28, 21);
  DrawCamera(painter, emblem, QColor(kAccent), QColor(kText));
  QFont font = CaptionFont(23);
  font.setLetterSpacing(QFont::AbsoluteSpacing, 0.5);
  painter.setFont(font);
  painter.setPen(QColor(kText));
  painter.drawText(QPointF(699, 31), QStringLiteral("Korvel"));
}

}  // namespace

QImage DrawFormBackground(qreal scale) {
  QImage image = BlankImage(QSize(kFormWidth, kFormHeight), scale, QImage::Format_RGB32);
  image.fill(QColor(kPanel));
  QPainter painter(&image);
  painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);

  DrawBar(painter, QRect(0, 0, kFormWidth, kTopBarHeight), kBarTop, true);
  DrawBar(painter, QRect(0, kBottomBarTop, kFormWidth, kFormHeight - kBottomBarTop), kBarBottom,
          false);

  // The work area stays one flat colour: the thumbnail and editing views cover it,
  // and a plain well is what shows in the moment before they do.
  painter.setRenderHint(QPainter::Antialiasing, false);
  painter.setPen(QColor(kHairlineDark));
  painter.drawRect(kWorkRect.adjusted(-1, -1, 0, 0));
  painter.fillRect(kWorkRect, QColor(kWorkArea));
  painter.setRenderHint(QPainter::Antialiasing, true);
  DrawWordmark(painter);
  return image;
}

}  // namespace skingen

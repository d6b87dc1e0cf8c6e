#include "buttonface.h"

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QStringList>
#include <algorithm>
#include <optional>
#include <utility>

#include "artwork.h"
#include "captionfont.h"
#include "palette.h"

namespace skingen {
namespace {

constexpr qreal kPadX = 5.0, kPadY = 3.0, kGap = 4.0;
constexpr int kSmallestPixelSize = 9;
// Two-line captions sit a pixel closer than the font's own leading: capitals and
// descenders of these words never meet, and the pixel lets two lines of 12-pixel text
// fit the 37-pixel buttons of the top bar.
constexpr qreal kTightening = 1.0;

struct Caption {
  QFont font;
  QStringList lines;
  QSizeF size;
};

// The caption at the largest size, up to `largest` pixels, that fits `box`: on one
// line, or failing that on two lines split at the space that balances them best.
std::optional<Caption> FitCaption(const QString &text, QSizeF box, int largest) {
  for (int pixels = largest; pixels >= kSmallestPixelSize; --pixels) {
    const QFont font = CaptionFont(pixels);
    const QFontMetricsF metrics(font);
    const qreal oneLine = metrics.horizontalAdvance(text);
    if (oneLine <= box.width() && metrics.height() <= box.height()) {
      return Caption{font, {text}, {oneLine, metrics.height()}};
    }
    const qreal twoLines = metrics.height() + metrics.lineSpacing() - kTightening;
    if (twoLines > box.height()) continue;
    std::optional<Caption> best;
    for (qsizetype space = text.indexOf(' '); space > 0; space = text.indexOf(' ', space + 1)) {
      const QString first = text.left(space);
      const QString second = text.mid(space + 1);
      const qreal wide =
          std::max(metrics.horizontalAdvance(first), metrics.horizontalAdvance(second));
      if (wide <= box.width() && (!best || wide < best->size.width())) {
        best = Caption{font, {first, second}, {wide, twoLines}};
      }
    }
    if (best) return best;
  }
  return std::nullopt;
}

void DrawCaption(QPainter &painter, const Caption &caption, QPointF topLeft, const QColor &ink,
                 bool embossed) {
  painter.setFont(caption.font);
  const QFontMetricsF metrics(caption.font);
  qreal baseline = topLeft.y() + metrics.ascent();
  for (const QString &line : caption.lines) {
    const qreal x = topLeft.x() + (caption.size.width() - metrics.horizontalAdvance(line)) / 2;
    // A dark line one pixel below lifts light text off the gradient.
    if (embossed) {
      painter.setPen(QColor(0, 0, 0, 110));
      painter.drawText(QPointF(x, baseline + 1), line);
    }
    painter.setPen(ink);
    painter.drawText(QPointF(x, baseline), line);
    baseline += metrics.lineSpacing() - kTightening;
  }
}

QPainterPath FaceOutline(QSizeF size) {
  const QRectF body(0.5, 0.5, size.width() - 1, size.height() - 2);
  const qreal radius = std::min<qreal>(6, size.height() / 4);
  QPainterPath path;
  path.addRoundedRect(body, radius, radius);
  return path;
}

// The face's gradient, top and bottom.
std::pair<QRgb, QRgb> FaceColours(FaceState state) {
  switch (state) {
    case FaceState::kDown:
      return {kFacePressedTop, kFacePressedBottom};
    case FaceState::kSelected:
      return {kAccentLight, kAccentDark};
    case FaceState::kDisabled:
      return {kFaceDisabled, kFaceDisabled};
    case FaceState::kUp:
    case FaceState::kFocus:
      break;
  }
  return {kFaceTop, kFaceBottom};
}

void DrawFace(QPainter &painter, QSizeF size, FaceState state) {
  const QPainterPath outline = FaceOutline(size);
  // Raised faces cast a one-pixel shadow; a pressed face sits flush with the panel.
  if (state != FaceState::kDown) {
    painter.fillPath(outline.translated(0, 1), QColor(0, 0, 0, 90));
  }
  const auto [top, bottom] = FaceColours(state);
  QLinearGradient fill(0, 0, 0, size.height());
  fill.setColorAt(0, QColor(top));
  fill.setColorAt(1, QColor(bottom));
  painter.fillPath(outline, fill);

  if (state == FaceState::kUp || state == FaceState::kFocus || state == FaceState::kSelected) {
    // The light catches the upper edge only.
    QLinearGradient sheen(0, 0, 0, size.height() / 2);
    sheen.setColorAt(0, QColor(255, 255, 255, state == FaceState::kSelected ? 120 : 60));
    sheen.setColorAt(1, QColor(255, 255, 255, 0));
    painter.setPen(QPen(QBrush(sheen), 1));
    painter.drawPath(FaceOutline(size - QSizeF(2, 2)).translated(1, 1));
  }
  if (state == FaceState::kDown) {
    // An inner shadow along the top edge makes the face look pushed in.
    QLinearGradient inner(0, 0, 0, 5);
    inner.setColorAt(0, QColor(0, 0, 0, 120));
    inner.setColorAt(1, QColor(0, 0, 0, 0));
    painter.setPen(QPen(QBrush(inner), 2));
    painter.drawPath(FaceOutline(size - QSizeF(2, 2)).translated(1, 1));
  }

  QColor border(kBorder);
  qreal borderWidth = 1;
  if (state == FaceState::kFocus) {
    border = QColor(kAccent);
    borderWidth = 1.6;
  } else if (state == FaceState::kSelected) {
    border = QColor(0x7a, 0x46, 0x0c);
  }
  painter.setPen(QPen(border, borderWidth));
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(
      state == FaceState::kFocus ? FaceOutline(size - QSizeF(1, 1)).translated(0.5, 0.5) : outline);
}

QColor InkFor(FaceState state) {
  switch (state) {
    case FaceState::kDown:
      return QColor(kTextPressed);
    case FaceState::kSelected:
      return QColor(kTextOnAccent);
    case FaceState::kDisabled:
      return QColor(kTextDisabled);
    case FaceState::kUp:
    case FaceState::kFocus:
      break;
  }
  return QColor(kText);
}

// Where the pictogram and the caption go. Squarish buttons stack the pictogram over
// the caption; wide ones set it to the left, or above a one-line caption that is too
// long to share the width; a caption that cannot share the face with its pictogram at a
// legible size drops the pictogram.
struct Layout {
  QRectF pictogram;
  std::optional<Caption> caption;
  QPointF captionAt;
};

Layout Arrange(QSizeF size, const QString &label, Pictogram pictogram) {
  const QRectF inner(kPadX, kPadY, size.width() - 2 * kPadX, size.height() - 1 - 2 * kPadY);
  const int largest = size.height() >= 30 ? 12 : 11;
  Layout layout;
  if (label.isEmpty()) {
    const qreal side = std::min(inner.width(), inner.height()) * 0.86;
    layout.pictogram = QRectF(0, 0, side, side);
    layout.pictogram.moveCenter(inner.center());
    return layout;
  }
  const auto stack = [&](const QRectF &box, qreal largestSide) {
    if (box.height() < 28) return false;
    auto caption = FitCaption(label, QSizeF(box.width(), box.height() - 15), 11);
    if (!caption || caption->lines.size() > 1 || caption->font.pixelSize() < 10) return false;
    const qreal side = std::min(largestSide, box.height() - caption->size.height() - 1);
    const qreal total = side + 1 + caption->size.height();
    const qreal top = box.top() + (box.height() - total) / 2;
    layout.pictogram = QRectF(box.center().x() - side / 2, top, side, side);
    layout.captionAt = QPointF(box.center().x() - caption->size.width() / 2, top + side + 1);
    layout.caption = caption;
    return true;
  };
  if (pictogram != Pictogram::kNone) {
    // Square buttons have the height to spare, and less width than a caption wants.
    const QRectF tall(3, 2, size.width() - 6, size.height() - 5);
    if (size.width() < 60 && stack(tall, 22)) return layout;
    const qreal side = std::min<qreal>(size.height() >= 30 ? 20 : 14, inner.height());
    const QSizeF textBox(inner.width() - side - kGap, inner.height());
    if (auto caption = FitCaption(label, textBox, largest);
        caption && caption->font.pixelSize() >= 10) {
      const qreal total = side + kGap + caption->size.width();
      const qreal left = inner.left() + (inner.width() - total) / 2;
      layout.pictogram = QRectF(left, inner.center().y() - side / 2, side, side);
      layout.captionAt =
          QPointF(left + side + kGap, inner.center().y() - caption->size.height() / 2);
      layout.caption = caption;
      return layout;
    }
    if (stack(tall, 16)) return layout;
  }
  layout.pictogram = {};
  layout.caption = FitCaption(label, inner.size(), largest);
  if (layout.caption) {
    layout.captionAt = inner.center() -
                       QPointF(layout.caption->size.width() / 2, layout.caption->size.height() / 2);
  }
  return layout;
}

}  // namespace

QImage DrawButtonFace(QSize size, const QString &label, Pictogram pictogram, FaceState state,
                      qreal scale) {
  QImage image = BlankImage(size, scale);
  QPainter painter(&image);
  painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
  DrawFace(painter, size, state);

  const Layout layout = Arrange(size, label, pictogram);
  if (state == FaceState::kDown) painter.translate(1, 1);
  const QColor ink = InkFor(state);
  DrawPictogram(painter, pictogram, layout.pictogram, ink, state == FaceState::kDisabled);
  if (layout.caption) {
    const bool embossed = state == FaceState::kUp || state == FaceState::kFocus;
    DrawCaption(painter, *layout.caption, layout.captionAt, ink, embossed);
  }
  return image;
}

bool CaptionFits(QSize size, const QString &label, Pictogram pictogram) {
  return label.isEmpty() || Arrange(size, label, pictogram).caption.has_value();
}

}  // namespace skingen

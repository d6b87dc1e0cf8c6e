// Fitting a photo into a grid cell, and the small picture kept to draw it
// there without the photo's pixels.
#include "photo/cellpicture.h"

#include <QGuiApplication>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "photo/dibpreview.h"

namespace {

// The picture's size inside its cell. A picture larger than the cell either
// way is scaled to the cell along its longer side, keeping its proportions; a
// smaller one is stretched over the whole cell on purpose, so that every
// thumbnail fills its cell. The shorter side is the one multiplied, which
// keeps the product inside 32 bits for any picture that fits in memory.
QSize FittedSize(uint32_t w, uint32_t h) {
  constexpr uint32_t cell = kGridCell;
  uint32_t fw = cell, fh = cell;
  if (w > cell || h > cell) {
    if (w < h)
      fw = w * cell / h;
    else
      fh = h * cell / w;
  }
  return QSize(static_cast<int>(fw), static_cast<int>(fh));
}

}  // namespace

// Halves are truncated, so an odd fitted size loses one pixel.
QRect CellPictureRect(const QRect &cell, uint32_t w, uint32_t h) {
  constexpr int half = kGridCell / 2;
  const QSize fitted = FittedSize(w, h);
  const QPoint centre = cell.topLeft() + QPoint(half, half);
  return QRect(centre - QPoint(fitted.width() / 2, fitted.height() / 2),
               centre + QPoint(fitted.width() / 2, fitted.height() / 2) - QPoint(1, 1));
}

int DrawReduction(uint32_t w, uint32_t h, QSize target, qreal ratio) {
  const auto steps = [ratio](uint32_t size, int covered) {
    return static_cast<int>(size / std::ceil(covered * ratio));
  };
  return std::clamp(std::min(steps(w, target.width()), steps(h, target.height())), 1,
                    kDibMaxReduction);
}

// Every screen's picture is made for the densest one: a cell on a less dense
// screen scales it down smoothly, where one made too small would blur.
qreal CellPictureRatio() {
  return qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
}

std::optional<CellPicture> MakeCellPicture(const CDib &dib, qreal ratio) {
  if (!dib.Header()) return std::nullopt;
  const uint32_t w = dib.Width(), h = dib.Height();
  CellPicture picture{QImage(), w, h};
  const QSize target = CellPictureRect(QRect(0, 0, kGridCell, kGridCell), w, h).size();
  if (target.isEmpty()) return picture;  // CDib::Draw draws nothing there either
  const int factor = DrawReduction(w, h, target, ratio);
  // Sized before it is made, so that a picture too large is never decoded.
  const double bytes = 4.0 * std::ceil(double(w) / factor) * std::ceil(double(h) / factor);
  if (bytes > double(kCellPictureMostBytes) * ratio * ratio) return std::nullopt;
  // The preview CDib::Draw keeps for the block, when the grid drew it while
  // it was in memory, so that it is not made twice.
  picture.image = factor >= 2
                      ? DibPreview(dib, factor)
                      : DibDecode(dib, QRect(0, 0, static_cast<int>(w), static_cast<int>(h)));
  if (picture.image.isNull()) return std::nullopt;
  return picture;
}

void DrawCellPicture(QPainter &painter, const CellPicture &picture, const QRect &cell) {
  if (picture.image.isNull()) return;
  const QRect target = CellPictureRect(cell, picture.width, picture.height);
  painter.save();
  const QSize size = picture.image.size();
  painter.setRenderHint(QPainter::SmoothPixmapTransform,
                        size.width() > target.width() || size.height() > target.height());
  painter.drawImage(target, picture.image);
  painter.restore();
}

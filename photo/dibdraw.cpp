// Drawing a photo stretched over a rectangle. A repaint must not cost the
// whole photo: a strong reduction (thumbnails, fitted views) is drawn from a
// preview made once per block and kept while the block is unchanged; a
// picture drawn near its own size or larger decodes only what is visible.
#include <QPaintDevice>
#include <QPainter>
#include <cmath>
#include <cstdint>
#include <list>

#include "photo/cellpicture.h"
#include "photo/dibpreview.h"

namespace {

// Previews are small (a 24-Mpixel photo shown at 100x100 keeps about 30 KB);
// the limit only matters when many photos are shown large and reduced.
constexpr size_t kPreviewBudget = size_t{96} << 20;

struct Preview {
  HGLOBAL handle;
  uint64_t serial;
  int factor;
  QImage image;
};

// Most recently used first.
std::list<Preview> &Previews() {
  static std::list<Preview> previews;
  return previews;
}
size_t gPreviewBytes = 0;

void Trim() {
  auto &previews = Previews();
  while (gPreviewBytes > kPreviewBudget && !previews.empty()) {
    gPreviewBytes -= static_cast<size_t>(previews.back().image.sizeInBytes());
    previews.pop_back();
  }
}

}  // namespace

QImage DibPreview(const CDib &dib, int factor) {
  const HGLOBAL handle = dib.Handle();
  const uint64_t serial = GlobalSerial(handle);
  auto &previews = Previews();
  for (auto it = previews.begin(); it != previews.end(); ++it) {
    if (it->handle != handle || it->factor != factor) continue;
    if (it->serial == serial) {
      previews.splice(previews.begin(), previews, it);
      return it->image;
    }
    gPreviewBytes -= static_cast<size_t>(it->image.sizeInBytes());
    previews.erase(it);  // the block changed since
    break;
  }
  QImage image = DibReduce(dib, factor);
  if (image.isNull()) return image;
  previews.push_front(Preview{handle, serial, factor, image});
  gPreviewBytes += static_cast<size_t>(image.sizeInBytes());
  Trim();
  return image;
}

void DibForgetPreviews(HGLOBAL handle) {
  Previews().remove_if([handle](const Preview &p) {
    if (p.handle != handle) return false;
    gPreviewBytes -= static_cast<size_t>(p.image.sizeInBytes());
    return true;
  });
}

size_t DibPreviewBytes() {
  return gPreviewBytes;
}

void CDib::Draw(QPainter *painter, int left, int top, int right, int bottom) const {
  if (!header_ || !painter || right <= left || bottom <= top) return;
  const QRect target(left, top, right - left, bottom - top);
  const int w = static_cast<int>(width_), h = static_cast<int>(height_);
  // Reduce in whole steps while the picture stays at least as large as the
  // device pixels it covers, then let the painter do the last, gentle scaling.
  const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
  const int factor = DrawReduction(width_, height_, target.size(), ratio);
  painter->save();
  if (factor >= 2) {
    const QImage preview = DibPreview(*this, factor);
    painter->setRenderHint(QPainter::SmoothPixmapTransform, true);
    if (!preview.isNull()) painter->drawImage(target, preview);
    painter->restore();
    return;
  }
  // Near one to one or enlarged: the source pixels under the visible part.
  QRectF visible = target;
  if (painter->hasClipping()) visible &= painter->clipBoundingRect();
  const QRectF device = painter->combinedTransform().inverted().mapRect(
      QRectF(0, 0, painter->device()->width(), painter->device()->height()));
  visible &= device;
  const double sx = double(w) / target.width(), sy = double(h) / target.height();
  const int x0 = static_cast<int>(std::floor((visible.left() - left) * sx));
  const int y0 = static_cast<int>(std::floor((visible.top() - top) * sy));
  const int x1 = static_cast<int>(std::ceil((visible.right() - left) * sx));
  const int y1 = static_cast<int>(std::ceil((visible.bottom() - top) * sy));
  const QRect area = QRect(x0, y0, x1 - x0, y1 - y0).intersected(QRect(0, 0, w, h));
  const QImage part = visible.isEmpty() ? QImage() : DibDecode(*this, area);
  if (!part.isNull()) {
    painter->setRenderHint(QPainter::SmoothPixmapTransform, sx > 1.0 || sy > 1.0);
    painter->drawImage(QRectF(left + area.left() / sx, top + area.top() / sy, area.width() / sx,
                              area.height() / sy),
                       part);
  }
  painter->restore();
}

// The drawn copy of the working picture at the view's zoom.
#include "views/zoomedpicture.h"

#include <QPainter>

#include "photo/dibplanar.h"
#include "pixels/pixels.h"

namespace {

// floor(a / b) for b > 0, also for negative a (points left of the picture).
int64_t FloorDiv(int64_t a, int64_t b) {
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// `n` units of a side `from` long, on a side `to` long, rounded to nearest;
// `centre` measures from the middle of unit n instead of its start.
int Rescale(int n, int from, int to, bool centre) {
  if (from <= 0) return n;
  const int64_t twice = 2 * int64_t{n} + (centre ? 1 : 0);
  return int(FloorDiv(twice * to + (centre ? 0 : from), 2 * int64_t{from}));
}

}  // namespace

void CZoomedPicture::Set(std::shared_ptr<const EditorPicture> picture, float scale) {
  const uint64_t serial = picture ? picture->Serial() : 0;
  if (serial == serial_ && scale == scale_) return;
  picture_ = std::move(picture);
  serial_ = serial;
  scale_ = scale;
  image_ = QImage();
  window_ = QRect();
  photo_ = picture_ ? QSize(int(picture_->Width()), int(picture_->Height())) : QSize(0, 0);
  factor_ = 1;
  size_ = photo_;
  if (photo_.isEmpty()) return;
  if (scale < 1.0f) {
    Reduce(scale);
    return;
  }
  // The steps from 100% up are whole numbers; the routine replicates by the
  // whole part, and a whole number of copies of every pixel always fits.
  const auto factor = static_cast<int64_t>(scale);
  if (factor * photo_.width() > INT32_MAX || factor * photo_.height() > INT32_MAX) return;
  factor_ = int(factor);
  size_ = photo_ * factor_;
}

// The whole picture through the filtered reduction, into a result of the
// scaled size; the routine fits that size to the picture's aspect ratio.
void CZoomedPicture::Reduce(float scale) {
  const PlanarImage *source = picture_->Planes();
  const Planar result(source ? PlanarCreateScaled(source, scale) : nullptr);
  if (!result) return;
  const PixRect whole{};
  const PixReduceOptions options{};
  if (ReduceImage(nullptr, source, 1, result.get(), &whole, &options, nullptr) != 0) return;
  QImage image = ImageFromPlanar(result.get());
  if (image.isNull()) return;
  image_ = std::move(image);
  factor_ = 0;
  size_ = image_.size();
}

void CZoomedPicture::EnsureWindow(const QRect &visible) {
  if (window_.contains(visible) && !image_.isNull()) return;
  image_ = QImage();
  window_ = QRect();
  const int k = factor_;
  // The photo pixels under the visible part, whole.
  const QRect area = QRect(QPoint(visible.left() / k, visible.top() / k),
                           QPoint(visible.right() / k, visible.bottom() / k))
                         .intersected(QRect(QPoint(0, 0), photo_));
  const Planar source(picture_->CopyArea(area));
  const Planar result(source ? PlanarCreate(area.width() * k, area.height() * k, 3) : nullptr);
  // The result is exactly k times the source, so the routine's offsets
  // place nothing: the window matches the whole enlargement's pixels.
  if (!result || EnlargeImage(source.get(), 0.5f, 0.5f, k, result.get(), nullptr) != 0) return;
  image_ = ImageFromPlanar(result.get());
  if (!image_.isNull()) window_ = QRect(area.topLeft() * k, image_.size());
}

void CZoomedPicture::Draw(QPainter *painter, QPoint origin, const QRect &visible) {
  const QRect part = visible.intersected(QRect(QPoint(0, 0), size_));
  if (part.isEmpty()) return;
  if (factor_ == 0) {
    painter->drawImage(origin + part.topLeft(), image_, part);
    return;
  }
  EnsureWindow(part);
  if (!image_.isNull())
    painter->drawImage(origin + part.topLeft(), image_, part.translated(-window_.topLeft()));
}

QPoint CZoomedPicture::ToPhoto(QPoint drawn) const {
  return {Rescale(drawn.x(), size_.width(), photo_.width(), true),
          Rescale(drawn.y(), size_.height(), photo_.height(), true)};
}

QPoint CZoomedPicture::EdgeToPhoto(QPoint drawn) const {
  return {Rescale(drawn.x(), size_.width(), photo_.width(), false),
          Rescale(drawn.y(), size_.height(), photo_.height(), false)};
}

QPoint CZoomedPicture::EdgeToDrawn(QPoint photo) const {
  return {Rescale(photo.x(), photo_.width(), size_.width(), false),
          Rescale(photo.y(), photo_.height(), size_.height(), false)};
}

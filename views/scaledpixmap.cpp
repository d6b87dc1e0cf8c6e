#include "views/scaledpixmap.h"

#include <QFileInfo>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace {

QString DoubleSizePath(const QString &path) {
  const QFileInfo file(path);
  const QString suffix = file.suffix().isEmpty() ? QString() : "." + file.suffix();
  return path.left(path.size() - suffix.size()) + QStringLiteral("@2x") + suffix;
}

}  // namespace

bool CScaledPixmap::Load(const QString &path) {
  Clear();
  if (!one_.load(path)) return false;
  if (two_.load(DoubleSizePath(path)) && two_.size() == one_.size() * 2)
    two_.setDevicePixelRatio(2);
  else
    two_ = QPixmap();
  return true;
}

void CScaledPixmap::Clear() {
  one_ = two_ = QPixmap();
}

const QPixmap &CScaledPixmap::For(const QPainter &painter) const {
  // The device transform holds the screen's scale (and any the painter adds); the
  // world transform alone would miss the screen's.
  const QTransform &device = painter.deviceTransform();
  const qreal scale = std::max(std::abs(device.m11()), std::abs(device.m22()));
  return scale > 1.01 && !two_.isNull() ? two_ : one_;
}

void CScaledPixmap::Draw(QPainter &painter, QPoint at) const {
  const QPixmap &picture = For(painter);
  // Fractional scales filter the picture rather than picking every other pixel.
  painter.save();
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.drawPixmap(at, picture);
  painter.restore();
}

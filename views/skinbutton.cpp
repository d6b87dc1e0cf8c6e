#include "views/skinbutton.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>

namespace {

bool LoadSkin(CScaledPixmap &skin, int bitmap) {
  skin.Clear();
  if (bitmap == 0) return true;
  return skin.Load(QStringLiteral(":/skins/%1.png").arg(bitmap));
}

}  // namespace

CSkinButton::CSkinButton(QWidget *parent) : QAbstractButton(parent) {}

bool CSkinButton::LoadBitmaps(int up, int down, int focus, int disabled) {
  down_.Clear();
  focus_.Clear();
  disabled_.Clear();
  if (up == 0 || !LoadSkin(up_, up)) {
    up_.Clear();
    update();
    return false;
  }
  // Like the framework's bitmap buttons, a skin that fails to load leaves that state
  // to the up skin but still reports the failure.
  bool all = LoadSkin(down_, down);
  all = LoadSkin(focus_, focus) && all;
  all = LoadSkin(disabled_, disabled) && all;
  updateGeometry();
  update();
  return all;
}

void CSkinButton::SizeToContent() {
  if (!up_.IsNull()) resize(up_.Size());
}

QSize CSkinButton::sizeHint() const {
  if (!up_.IsNull()) return up_.Size();
  const QFontMetrics metrics(font());
  return {metrics.horizontalAdvance(text()) + 24, metrics.height() + 12};
}

// The framework's order: pressed, then focused, then disabled, each only when that skin
// exists; everything else, and any state without its own skin, shows the up skin. A
// focused disabled button cannot happen, so the order between those two never shows.
const CScaledPixmap &CSkinButton::SkinForState() const {
  if (isDown() && !down_.IsNull()) return down_;
  if (hasFocus() && !focus_.IsNull()) return focus_;
  if (!isEnabled() && !disabled_.IsNull()) return disabled_;
  return up_;
}

void CSkinButton::paintEvent(QPaintEvent *) {
  QPainter painter(this);
  if (up_.IsNull()) {
    DrawCaptionButton(painter, rect(), text(), isDown(), hasFocus(), isEnabled());
    return;
  }
  SkinForState().Draw(painter, QPoint(0, 0));
}

void CSkinButton::DrawCaptionButton(QPainter &painter, const QRect &rect, const QString &caption,
                                    bool down, bool focused, bool enabled) {
  // The colours of the skins' slate faces and amber focus ring.
  static constexpr QRgb kFaceTop = qRgb(0x55, 0x4e, 0x5f);
  static constexpr QRgb kFaceBottom = qRgb(0x40, 0x3a, 0x48);
  static constexpr QRgb kPressedTop = qRgb(0x26, 0x23, 0x2b);
  static constexpr QRgb kPressedBottom = qRgb(0x30, 0x2c, 0x36);
  static constexpr QRgb kDisabledFace = qRgb(0x36, 0x32, 0x3b);
  static constexpr QRgb kAccent = qRgb(0xf3, 0xa5, 0x3b);

  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF body = QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5);
  const qreal radius = std::min<qreal>(6, rect.height() / 4.0);
  QLinearGradient fill(body.topLeft(), body.bottomLeft());
  fill.setColorAt(0, QColor(!enabled ? kDisabledFace : down ? kPressedTop : kFaceTop));
  fill.setColorAt(1, QColor(!enabled ? kDisabledFace : down ? kPressedBottom : kFaceBottom));
  painter.setBrush(fill);
  painter.setPen(QPen(focused && enabled ? QColor(kAccent) : QColor(0x14, 0x12, 0x17),
                      focused && enabled ? 1.6 : 1.0));
  painter.drawRoundedRect(body, radius, radius);

  QFont font(QStringLiteral("Arial"));
  font.setPixelSize(std::clamp(rect.height() / 2 - 1, 9, 12));
  font.setBold(true);
  painter.setFont(font);
  painter.setPen(enabled ? QColor(0xf5, 0xf3, 0xf8) : QColor(0x7c, 0x76, 0x84));
  const QRect textRect = down ? rect.translated(1, 1) : rect;
  painter.drawText(textRect, Qt::AlignCenter,
                   painter.fontMetrics().elidedText(caption, Qt::ElideRight, rect.width() - 6));
  painter.restore();
}

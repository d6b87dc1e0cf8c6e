// The pictures besides the button skins: the form's background, the application icon,
// the Get Photo dialog's picture and a contact sheet for judging them all together.
#ifndef KORVEL_SKINGEN_ARTWORK_H
#define KORVEL_SKINGEN_ARTWORK_H

#include <QImage>
#include <QPainter>
#include <QString>

namespace skingen {

inline constexpr int kFormWidth = 800;
inline constexpr int kFormHeight = 585;

// A transparent picture of `size` logical pixels drawn for device pixel ratio `scale`:
// it holds size * scale pixels and a painter on it works in logical pixels.
QImage BlankImage(QSize size, qreal scale,
                  QImage::Format format = QImage::Format_ARGB32_Premultiplied);

QImage DrawFormBackground(qreal scale = 1);
QImage DrawIcon(int side);
// The icon drawn through `painter` on a 256 x 256 canvas, for any kind of paint device.
void PaintIcon(QPainter &painter);
QImage DrawGetPhotoPicture(qreal scale = 1);

// Every skin of `skinDir` in its states, under the form as it looks while the colour
// tools are out. Empty when a skin is missing.
QImage DrawContactSheet(const QString &skinDir);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_ARTWORK_H

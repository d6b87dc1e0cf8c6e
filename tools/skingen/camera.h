// The camera emblem shared by the application icon, the form's wordmark and the Get
// Photo picture.
#ifndef KORVEL_SKINGEN_CAMERA_H
#define KORVEL_SKINGEN_CAMERA_H

#include <QColor>
#include <QRectF>

class QPainter;

namespace skingen {

// Draws a camera filling the width of `bounds` (its height is 3/4 of its width) with a
// body of `body` colour; `trim` colours the lens ring and the flash.
void DrawCamera(QPainter &painter, const QRectF &bounds, const QColor &body, const QColor &trim);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_CAMERA_H

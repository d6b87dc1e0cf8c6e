// The pictures besides the button skins: the form's background, the application icon,
// the Get Photo dialog's picture and a contact sheet for judging them all together.
#ifndef KORVEL_SKINGEN_ARTWORK_H
#define KORVEL_SKINGEN_ARTWORK_H

#include <QImage>
#include <QString>

namespace skingen {

inline constexpr int kFormWidth = 800;
inline constexpr int kFormHeight = 585;

QImage DrawFormBackground();
QImage DrawIcon(int side);
QImage DrawGetPhotoPicture();

// Every skin of `skinDir` in its states, under the form as it looks while the colour
// tools are out. Empty when a skin is missing.
QImage DrawContactSheet(const QString &skinDir);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_ARTWORK_H

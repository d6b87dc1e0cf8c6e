// The colours of the application's artwork. Everything the generator draws takes its
// colours from here, so the skins, the form background and the icon stay one family.
#ifndef KORVEL_SKINGEN_PALETTE_H
#define KORVEL_SKINGEN_PALETTE_H

#include <QColor>

namespace skingen {

// The panel is a violet-tinted slate that sits well beside the help pane's own
// RGB(61, 55, 67), which the form view paints and the artwork cannot change.
inline constexpr QRgb kPanel = qRgb(0x2e, 0x2a, 0x33);
inline constexpr QRgb kBarTop = qRgb(0x27, 0x24, 0x2c);
inline constexpr QRgb kBarBottom = qRgb(0x20, 0x1d, 0x24);
inline constexpr QRgb kWorkArea = qRgb(0x1c, 0x1a, 0x20);
inline constexpr QRgb kHairlineDark = qRgb(0x16, 0x14, 0x19);
inline constexpr QRgb kHairlineLight = qRgb(0x3e, 0x39, 0x45);

inline constexpr QRgb kFaceTop = qRgb(0x55, 0x4e, 0x5f);
inline constexpr QRgb kFaceBottom = qRgb(0x40, 0x3a, 0x48);
inline constexpr QRgb kFacePressedTop = qRgb(0x26, 0x23, 0x2b);
inline constexpr QRgb kFacePressedBottom = qRgb(0x30, 0x2c, 0x36);
inline constexpr QRgb kFaceDisabled = qRgb(0x36, 0x32, 0x3b);
inline constexpr QRgb kBorder = qRgb(0x14, 0x12, 0x17);

inline constexpr QRgb kText = qRgb(0xf5, 0xf3, 0xf8);
inline constexpr QRgb kTextPressed = qRgb(0xd8, 0xd3, 0xde);
inline constexpr QRgb kTextDisabled = qRgb(0x7c, 0x76, 0x84);

// The one accent: a warm amber, the colour of late sunlight in a photo.
inline constexpr QRgb kAccent = qRgb(0xf3, 0xa5, 0x3b);
inline constexpr QRgb kAccentLight = qRgb(0xf8, 0xbf, 0x62);
inline constexpr QRgb kAccentDark = qRgb(0xd8, 0x7f, 0x1c);
inline constexpr QRgb kTextOnAccent = qRgb(0x2a, 0x1c, 0x0c);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_PALETTE_H

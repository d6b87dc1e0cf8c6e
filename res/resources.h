// Where the application's embedded artwork lives. Linking korvel_resources into an
// executable registers it; there is nothing to call first.
#ifndef KORVEL_RES_RESOURCES_H
#define KORVEL_RES_RESOURCES_H

#include <QString>

// The skin with bitmap number `bitmap`, e.g. ":/skins/221.png".
QString KorvelSkinPath(int bitmap);

// The program's version, as the package and --version give it.
QString KorvelVersion();

inline constexpr char kKorvelFormBackground[] = ":/skins/form.png";
inline constexpr char kKorvelIcon[] = ":/icons/korvelapp.png";

#endif  // KORVEL_RES_RESOURCES_H

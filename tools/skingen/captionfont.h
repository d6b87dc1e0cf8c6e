// The one typeface of the artwork, asked for by name so that every run on the same
// system draws the same glyphs.
#ifndef KORVEL_SKINGEN_CAPTIONFONT_H
#define KORVEL_SKINGEN_CAPTIONFONT_H

#include <QFont>

namespace skingen {

// "Arial" first, as the form asks for it; fontconfig maps it to Liberation Sans, which
// has the same metrics, and naming that too keeps the choice off any other fallback.
inline QFont CaptionFont(int pixels, QFont::Weight weight = QFont::Bold) {
  QFont font;
  font.setFamilies({QStringLiteral("Arial"), QStringLiteral("Liberation Sans")});
  font.setPixelSize(pixels);
  font.setWeight(weight);
  font.setHintingPreference(QFont::PreferVerticalHinting);
  font.setStyleStrategy(QFont::PreferAntialias);
  return font;
}

}  // namespace skingen

#endif  // KORVEL_SKINGEN_CAPTIONFONT_H

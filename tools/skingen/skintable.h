// The skinned buttons of the main form (form 101): where each sits, how large it is
// and which bitmap numbers it shows in its four states.
#ifndef KORVEL_SKINGEN_SKINTABLE_H
#define KORVEL_SKINGEN_SKINTABLE_H

#include <QPoint>
#include <QSize>
#include <span>

#include "pictograms.h"
#include "res/formcontrols.h"

namespace skingen {

struct SkinnedControl {
  int id;
  // The text drawn on the skin: the control's caption, or a short name for the two
  // buttons whose form entry has none.
  const char *label;
  Pictogram pictogram;
  int x, y, width, height;        // dialog units
  int up, down, focus, disabled;  // bitmap numbers, 0 where the button has none
};

// Form 101 is laid out in the dialog units of 8-point MS Sans Serif; its bitmaps are
// made at the sizes those units give on screen (DluToPixelsX/Y).
inline QSize PixelSize(const SkinnedControl &control) {
  return {DluToPixelsX(control.width), DluToPixelsY(control.height)};
}
inline QPoint PixelPlace(const SkinnedControl &control) {
  return {DluToPixelsX(control.x), DluToPixelsY(control.y)};
}

std::span<const SkinnedControl> SkinnedControls();
const SkinnedControl *FindControl(int id);

// The picture of the Get Photo dialog (dialog 194).
inline constexpr int kGetPhotoPicture = 271;
inline constexpr QSize kGetPhotoPictureSize(180, 96);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_SKINTABLE_H

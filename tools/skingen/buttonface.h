// One button skin: a rounded face with a pictogram and a caption, in one state.
#ifndef KORVEL_SKINGEN_BUTTONFACE_H
#define KORVEL_SKINGEN_BUTTONFACE_H

#include <QImage>
#include <QSize>
#include <QString>

#include "pictograms.h"

namespace skingen {

enum class FaceState {
  kUp,        // raised
  kDown,      // pressed: darker, its contents moved one pixel down and right
  kFocus,     // raised, ringed in the accent colour
  kSelected,  // the chosen tool: the form disables it, so its disabled skin is this one
  kDisabled,  // flat, with a grey caption
};

// `size` is in logical pixels; `scale` is the device pixel ratio the face is drawn for
// (2 for screens that show two pixels to each logical one).
QImage DrawButtonFace(QSize size, const QString &label, Pictogram pictogram, FaceState state,
                      qreal scale = 1);

// Whether the caption finds room on a face of this size at a legible size.
bool CaptionFits(QSize size, const QString &label, Pictogram pictogram);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_BUTTONFACE_H

// Line pictograms for the button skins, drawn on a 24-unit grid and scaled to the
// square they are given, so one drawing serves every button size.
#ifndef KORVEL_SKINGEN_PICTOGRAMS_H
#define KORVEL_SKINGEN_PICTOGRAMS_H

#include <QColor>
#include <QRectF>

class QPainter;

namespace skingen {

enum class Pictogram {
  kNone,
  kDownload,
  kSave,
  kShare,
  kProjects,
  kPrint,
  kDelete,
  kThumbnails,
  kZoomIn,
  kZoomOut,
  kCrop,
  kColor,
  kRotate,
  kRotateRight,
  kRotateLeft,
  kRedEye,
  kGlobe,
  kEmail,
  kSky,
  kFoliage,
  kSkin,
  kNeutrals,
  kUndo,
  kKeep,
  kClose,
};

// Draws `pictogram` into `square` with strokes in `ink`. A muted pictogram (a
// disabled button) draws its coloured parts in greys as well.
void DrawPictogram(QPainter &painter, Pictogram pictogram, const QRectF &square, const QColor &ink,
                   bool muted);

}  // namespace skingen

#endif  // KORVEL_SKINGEN_PICTOGRAMS_H

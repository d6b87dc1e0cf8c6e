// Turning a picture upright by the orientation its camera recorded: the eight
// EXIF orientations, mirrored ones included.
#pragma once

#include "pixels/pixels.h"

// Orientations 5 to 8 stand the picture on its side: the upright picture
// has the stored width and height exchanged.
inline bool OrientationExchanges(int orientation) {
  return orientation >= 5 && orientation <= 8;
}

// An empty destination of the upright size for `src` stored as
// `orientation` says; null when memory runs out.
PlanarImage *PlanarCreateOriented(const PlanarImage *src, int orientation);

// Writes into `dst` the upright picture of `src`, whose pixels are stored as
// EXIF orientation `orientation` (1..8) says: 2 mirrored left-right, 3 turned
// half round, 4 mirrored top-bottom, 5 transposed, 6 to be turned a quarter
// clockwise, 7 transversed, 8 to be turned a quarter counter-clockwise.
// Returns 0, or -1 for an orientation outside 1..8 or a destination of the
// wrong size.
[[nodiscard]] int OrientImage(const PlanarImage *src, int orientation, PlanarImage *dst);

// The JPEG module (format 9): its entry points for the dispatcher, its
// settings (per thread) and its direct row decoding.
#pragma once

#include <cstdint>

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Jpeg)

enum : int {
  JpegOptQuality = 0,    // 0..100, default 75, baseline forced
  JpegOptDctMethod = 1,  // 0 accurate integer, 1 fast integer, 2 float
  JpegOptSmoothing = 2,  // 0..100
  JpegOptRestart = 3,    // restart marker every this many MCU rows, default 1
  JpegOptNoFancy = 4,    // 1 turns fancy upsampling off
};

// Both ignore an index above 4 and return 0 for it.
int JpegGetOption(int index, int *value);
[[nodiscard]] int JpegSetOption(int index, int value);

// Decodes row `row` of a JPEG file open for reading straight into `out`: the
// samples of each pixel side by side in the file's order (red, green, blue
// for colour), with no planar row in between. Rows come strictly in order
// from the first; any other row is refused with -1.
[[nodiscard]] int JpegReadRow(RasDesc *desc, uint32_t row, uint8_t *out);

// The Photo CD module (format 6): its entry points for the dispatcher and the
// reader's setting (per thread), which of the image pack's three lowest
// resolutions it delivers.
#pragma once

#include <cstdint>

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Pcd)

enum : int {
  PcdOptLevel = 0,  // 1 = 192 x 128, 2 = 384 x 256, 3 = 768 x 512 (the default)
};

// Takes only 1, 2 or 3 for the level and ignores anything else; returns 0 in
// every case.
int PcdSetOption(int option, uint32_t value);
// Stores the level in `*value` and returns 0 for option 0; any other option
// answers 65535.
int PcdGetOption(int option, uint32_t *value);

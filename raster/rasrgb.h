// Every colour model a reader returns, as red, green and blue: what the
// application shows when it opens a photo, and what korvel-raster writes when
// a target format cannot hold the file's own model.
#pragma once

#include <cstdint>

#include "raster/ras.h"

// Converts one row of `sl`, read from a file described by `desc` (its model
// and maxval), into three 8-bit planes of desc->width samples. Returns -1 for
// a null argument or a model with no conversion.
[[nodiscard]] int RasSlToRgb(const RasSl *sl, const RasDesc *desc, uint8_t *red, uint8_t *green,
                             uint8_t *blue);

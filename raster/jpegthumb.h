// JPEG decoded at a reduced size for thumbnails: the codec's DCT scaling
// makes a picture of 1/2, 1/4 or 1/8 the size from the low frequencies of
// each block, doing a fraction of a full decode's work and holding only the
// reduced rows. The rows come out as 24-bit RGB whatever the file's colour
// space (grey, YCbCr, RGB, CMYK or YCCK).
#pragma once

#include <cstdint>

#include "raster/core/rasdesc.h"

struct JpegThumb {
  uint32_t width;  // of the decoded picture
  uint32_t height;
  uint32_t fullWidth;  // of the picture the file holds
  uint32_t fullHeight;
  uint32_t denominator;  // the reduction: 1, 2, 4 or 8
  uint8_t *rgb;          // `height` rows of width * 3 bytes, from RasAlloc
};

// The largest of 8, 4, 2 and 1 that reduces a `width` x `height` picture to
// no less than `atLeastWidth` x `atLeastHeight` (a reduced side is rounded
// up, as the codec rounds it); 1 when even that is too small.
uint32_t JpegThumbDenominator(uint32_t width, uint32_t height, uint32_t atLeastWidth,
                              uint32_t atLeastHeight);

// Decodes the JPEG file `name` (a path or a memory-block name) reduced by
// JpegThumbDenominator. On success `thumb` holds the rows, to be released
// with JpegThumbFree; on failure it holds no rows and the code is -1 for a
// null argument, -4 when the file cannot be opened, -3 when memory ran out,
// -9 for a picture over RasMaxPixels (the full sizes are then filled in, and
// RasPixelLimitRefused says so) and
// -8 when the codec refused the data. A file cut short still decodes: a
// thumbnail of what arrived, the rest grey, tells the user more than none.
[[nodiscard]] int JpegThumbDecode(const char *name, uint32_t atLeastWidth, uint32_t atLeastHeight,
                                  JpegThumb *thumb);
void JpegThumbFree(JpegThumb *thumb);

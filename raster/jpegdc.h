// A JPEG picture at an eighth of its size, read from the scan's DC
// coefficients without the codec. At that reduction each 8x8 block of the
// brightness comes down to one pixel, its DC value, so all that costs is
// walking the entropy-coded data; the codec does the same walk but pays for
// its general machinery on every block, and a thumbnail of a 12-Mpixel
// photo took 21 ms of which most was that. The bytes are the codec's own
// for the thumbnail decode's settings (1/8 DCT scaling, no fancy
// upsampling, RGB out): the same 1x1 and, for chroma halved both ways, 2x2
// reduced transforms, the same clamping, the same colour conversion.
// Only the common case is read here: baseline or extended sequential
// Huffman, 8 bits, one interleaved scan, grey or YCbCr with sampling factors
// of 1 and 2, an intact stream ending in EOI. Anything else (progressive,
// arithmetic coding, CMYK, RGB, damaged or cut data, a picture over the
// pixel limit) is declined and left to the codec, which knows every
// variant and says what is wrong.
#pragma once

#include <cstddef>
#include <cstdint>

#include "raster/jpegthumb.h"

// Decodes the `size` bytes at `data`, a whole JPEG file, when
// JpegThumbDenominator gives 8 for it and `atLeastWidth` x `atLeastHeight`.
// True with `thumb` filled (rows from RasAlloc, sizes, denominator 8);
// false, with `thumb` untouched, when declined.
bool JpegDcDecode(const uint8_t *data, size_t size, uint32_t atLeastWidth, uint32_t atLeastHeight,
                  JpegThumb *thumb);

// The same for the file `name`, a path or a memory-block name; a disk file
// is mapped, not read. False also when it cannot be opened or mapped.
bool JpegDcDecodeFile(const char *name, uint32_t atLeastWidth, uint32_t atLeastHeight,
                      JpegThumb *thumb);

// Pictures to and from the raster file library: a file's rows, whatever their
// colour model, into a 24-bit bottom-up CDib (opening a photo), and a CDib's
// rows into three-channel scanlines (saving one).
#pragma once

#include <cstddef>
#include <cstdint>

#include "photo/dib.h"
#include "raster/ras.h"

// Bytes reserved for a w x h picture: the header, three bytes a pixel and
// the row padding. The padding term is reckoned from the width; a picture
// taller than wide needs it once per row, so the larger side counts.
size_t DibBlockBytes(uint32_t width, uint32_t height);

// The pixels per inch a picture's header gives (a camera driver may fill in
// its pixels per metre); kUnknownResolution when it gives none.
float DibResolution(const BITMAPINFOHEADER *header);

// Reads every row of `desc` (opened for reading, `sl` made for it) into a new
// moveable, zeroed block: grey is replicated, CMYK, L*a*b* and YCC converted
// to RGB, wider samples narrowed. Null on failure, with the library's code in
// `*code` (RasErrMemory when the block cannot be had).
HGLOBAL DibFromScanlines(RasDesc *desc, RasSl *sl, int *code);

// Writes the picture's rows, top first, through `sl` (made for `desc`, opened
// for writing, three 8-bit channels). Returns the first failing code.
int DibToScanlines(const CDib &dib, RasDesc *desc, RasSl *sl);

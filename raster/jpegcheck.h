// Whether a JPEG file reads, found without making its picture. Every scan's
// compressed data is walked as a full read walks it, through the same entropy
// decoder and marker reader, so a file whose rows are broken fails here as it
// fails there; only the output is made at an eighth of each side (the codec's
// DCT scaling), which spares the transforms, colour conversion and the rows
// of the full size. A file the DC-only reader (raster/jpegdc.h) takes whole
// needs no second walk: that reader declines everything short of one intact
// scan ending in its end-of-image marker. Refused as a full read (JpegOpen
// and every row) refuses:
// the header, the pixel limit, colour spaces with no model, the codec's
// fatal errors, and data ending before half the rows.
#pragma once

#include <cstdint>

#include "raster/core/rasdesc.h"
#include "raster/jpegthumb.h"

struct JpegCheck {
  uint32_t width;  // of the picture the file holds
  uint32_t height;
  uint32_t channels;  // of a full read's rows: 1 grey, 3 RGB, 4 CMYK
  float resolution;   // pixels per inch from the JFIF density; -1 when it gives none
};

// RasOk when a full read of the JPEG file `name` would give every row, with
// `check` filled in. Otherwise the code that read fails with: -1 for a null
// argument or a colour space that maps to no model, -4 when the file cannot
// be opened, -3 when the codec ran out of memory, -9 for a picture over
// RasMaxPixels (RasPixelLimitRefused then says so), -5 when the data ends
// before half the rows, -8 when the codec refused the data.
//
// When `picture` is given, a passed check also leaves in it the rows it
// decoded, an eighth of each side, as the RGB rows JpegThumbDecode makes at
// that reduction (a grey picture's samples repeated), to be released with
// JpegThumbFree; the thumbnails need not decode the file again. It stays
// empty after a refusal, for CMYK and YCCK files (whose inks the check does
// not convert) and when memory for it ran out: what the check refuses never
// depends on it. Without it, the rows are thrown away as they come.
[[nodiscard]] int JpegCheckFile(const char *name, JpegCheck *check, JpegThumb *picture = nullptr);

// The part of JpegCheckFile the header decides, for a file whose rows are
// known to read already: the same fields, and the same refusals wherever the
// header decides them (-1 for a null argument or a colour space with no
// model, -4 when the file cannot be opened, -3 when memory ran out, -8 for a
// file that is no JPEG or whose header is broken or cut short, -9 over the
// pixel limit), without walking the data. A file that passes may still fail
// JpegCheckFile in its rows.
[[nodiscard]] int JpegCheckHeader(const char *name, JpegCheck *check);

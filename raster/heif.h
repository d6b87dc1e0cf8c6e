// HEIF files (HEIC with HEVC pictures, AVIF with AV1 pictures): one module
// reads both, and the open says which a file is by its format code. Both are
// written when the installed libheif has an encoder for them; the quality
// follows the encoders' quality setting (RasEncoderQuality, which
// JpegOptQuality sets).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Heif)  // HEIC and AVIF files alike

// True when this build can write the format (RasFormatHeic or RasFormatAvif).
bool HeifCanWrite(unsigned format);

// The metadata the next HEIF file opened for writing on this thread carries,
// since the container holds it beside the coded picture and only the encoder
// can place it: EXIF (TIFF-structured, from its byte-order mark), an XMP
// packet and an ICC profile, each left out when empty. The open takes them,
// so one call serves one file; a null pointer clears what was set.
void HeifSetNextMeta(const uint8_t *exif, size_t exifSize, const char *xmp, size_t xmpSize,
                     const uint8_t *icc, size_t iccSize);

// The EXIF block (TIFF-structured, from its byte-order mark, past the item's
// header offset), the XMP packet and the ICC profile of the primary picture
// of the HEIF file in `data`, as the container's item table and colour
// property place them. False when the bytes are no HEIF file libheif reads;
// a block the file lacks comes back empty.
bool HeifReadMeta(const uint8_t *data, size_t size, std::vector<uint8_t> *exif, std::string *xmp,
                  std::vector<uint8_t> *icc);

// HEIF files (HEIC with HEVC pictures, AVIF with AV1 pictures): one module
// reads both, and the open says which a file is by its format code. Both are
// written when the installed libheif has an encoder for them; the quality
// follows the encoders' quality setting (RasEncoderQuality, which
// JpegOptQuality sets).
#pragma once

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Heif)  // HEIC and AVIF files alike

// True when this build can write the format (RasFormatHeic or RasFormatAvif).
bool HeifCanWrite(unsigned format);

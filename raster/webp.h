// WebP files (format 12): the module's entry points for the dispatcher. How a
// picture is encoded follows the encoders' quality setting (RasEncoderQuality,
// which JpegOptQuality sets): 100, the application's own, writes lossless
// WebP, which keeps every sample; below that the lossy encoder runs at that
// quality.
#pragma once

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Webp)

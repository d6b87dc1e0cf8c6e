// BMP files (format 7): the module's entry points for the dispatcher.
#pragma once

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Bmp)

// EPS (format 4) and DCS (format 5) files, one module for both: its entry
// points for the dispatcher.
#pragma once

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Eps)
RAS_FORMAT_ENTRY_POINTS(Dcs)

// The TIFF module (formats 1 and 10, 8- and 16-bit samples): its entry
// points for the dispatcher and its settings (per thread).
#pragma once

#include <cstdint>

#include "raster/core/rasentry.h"

RAS_FORMAT_ENTRY_POINTS(Tiff)
RAS_FORMAT_ENTRY_POINTS(Tiff16)

enum : int {
  TiffOptPlanar = 0,     // planar configuration for several channels: 1 or 2
  TiffOptByteOrder = 1,  // 18761 ("II") or 19789 ("MM")
  TiffOptCopyIptc = 2,   // copy the IPTC block of an open TIFF file into the buffer
  TiffOptClearIptc = 3,  // empty the IPTC buffer
};

// `desc` is used by option 2 only. The getter answers 65535 for an unknown option.
[[nodiscard]] int TiffSetOption(int option, uint32_t value, RasDesc *desc);
uint32_t TiffGetOption(int option);

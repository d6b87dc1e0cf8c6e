// Entry points of the individual formats, called only by the generic
// dispatch in ras.cpp. Each has the generic routine's signature and codes.
#pragma once

#include "raster/ras.h"

#define RAS_FORMAT_ENTRY_POINTS(Prefix)                                            \
  [[nodiscard]] int Prefix##Open(const char *name, char mode, RasDesc *desc);      \
  [[nodiscard]] int Prefix##ReadSl(RasDesc *desc, uint32_t row, RasSl *sl);        \
  [[nodiscard]] int Prefix##WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl); \
  int Prefix##Close(RasDesc *desc);

RAS_FORMAT_ENTRY_POINTS(Tiff)
RAS_FORMAT_ENTRY_POINTS(Targa)
RAS_FORMAT_ENTRY_POINTS(ScitexCT)
RAS_FORMAT_ENTRY_POINTS(Eps)
RAS_FORMAT_ENTRY_POINTS(Dcs)
RAS_FORMAT_ENTRY_POINTS(Pcd)
RAS_FORMAT_ENTRY_POINTS(Bmp)
RAS_FORMAT_ENTRY_POINTS(Cineon)
RAS_FORMAT_ENTRY_POINTS(Jpeg)
RAS_FORMAT_ENTRY_POINTS(Tiff16)
RAS_FORMAT_ENTRY_POINTS(Png)
RAS_FORMAT_ENTRY_POINTS(Webp)
RAS_FORMAT_ENTRY_POINTS(Heif)  // HEIC and AVIF files alike

#undef RAS_FORMAT_ENTRY_POINTS

// Public interface of the raster file library: the entry points that
// dispatch on the format code (descriptor set-up, open, rows, close) and the
// format probe, over the core's descriptor, scanline record and error hook.
#pragma once

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"

[[nodiscard]] int RasSetDesc(RasDesc *desc, uint32_t format, uint32_t width, uint32_t height,
                             uint32_t channels, uint32_t model, float resolution);
[[nodiscard]] int RasOpen(const char *name, char mode, RasDesc *desc);
[[nodiscard]] int RasReadSl(RasDesc *desc, uint32_t row, RasSl *sl);
[[nodiscard]] int RasWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl);
int RasClose(RasDesc *desc);
[[nodiscard]] int RasGetInfo(const char *name, RasDesc *desc);

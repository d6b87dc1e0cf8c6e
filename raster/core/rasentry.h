// The four entry points every format module gives the dispatcher, each with
// the generic routine's signature and result codes. A format's own header
// declares its set with RAS_FORMAT_ENTRY_POINTS(Prefix).
#pragma once

#include "raster/core/rasdesc.h"

#define RAS_FORMAT_ENTRY_POINTS(Prefix)                                            \
  [[nodiscard]] int Prefix##Open(const char *name, char mode, RasDesc *desc);      \
  [[nodiscard]] int Prefix##ReadSl(RasDesc *desc, uint32_t row, RasSl *sl);        \
  [[nodiscard]] int Prefix##WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl); \
  int Prefix##Close(RasDesc *desc);

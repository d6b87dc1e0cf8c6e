// The per-file state block that the open entry points hang in a descriptor.
// Only the library allocates and frees it; formats reach their private block
// through it.
#pragma once

#include "raster/core/rasdesc.h"
#include "raster/core/rasfile.h"

struct RasState {
  char name[RasNameSize];  // the name as passed (a memory-block name is kept whole)
  char mode;               // 'r' or 'w'
  RasFile file;
  int32_t book[4];  // per-format bookkeeping words
  void *priv;       // the format's private block
};

// Clears a state block to "nothing open": empty name, file closed, no bookkeeping.
void RasStateReset(RasState *state);

// What the format modules do alike: the open's argument checks, the state a
// row routine needs, the planes of a record, reads and writes at tracked
// positions, the write-open with its expected size, closing, and byte fields
// in either order. Only the format modules include it.
#pragma once

#include <cstdint>

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasstate.h"

// Checks an open's arguments (a null one is -1 with detail 0, a mode other
// than 'r' or 'w' -1 with `modeDetail`) and readies the state block: the name
// kept, the mode set, no private block yet.
[[nodiscard]] int RasFormatBegin(const char *routine, const char *name, char mode, RasDesc *desc,
                                 int modeDetail);

// An open's whole course for a module whose reader and writer each take the
// name and the descriptor: RasFormatBegin's checks, then `openRead` or
// `openWrite` by the mode.
using RasFormatSideFn = int (*)(const char *name, RasDesc *desc);
[[nodiscard]] int RasFormatOpen(const char *routine, const char *name, char mode, RasDesc *desc,
                                int modeDetail, RasFormatSideFn openRead,
                                RasFormatSideFn openWrite);

// 0 when a declared picture of `width` x `height` is within RasMaxPixels,
// else -9 reported for `routine` with `detail` and remembered for
// RasPixelLimitRefused. The generic open checks every reader; a reader that
// allocates for the whole picture at open checks before it does.
[[nodiscard]] int RasFormatCheckPixels(const char *routine, uint32_t width, uint32_t height,
                                       int detail);
// Forgets an earlier refusal; the generic open and the probe call it first.
void RasFormatClearPixelRefusal();

// The state of a descriptor open in `mode` with its private block, or null.
RasState *RasFormatState(const RasDesc *desc, char mode);

// The first checks of a row routine: a null descriptor is -1 with detail 0, a
// null record -1 with detail 1, a descriptor not open in `mode` -1 with detail
// 2. The state, or null with the RasError code in `*code`.
RasState *RasFormatRowState(const char *routine, const RasDesc *desc, const RasSl *sl, char mode,
                            int *code);

// The private block of a descriptor that is open, as the module's own type.
template <class Priv>
Priv *RasFormatPriv(const RasDesc *desc) {
  return static_cast<Priv *>(desc->state->priv);
}

// Makes the planes of a record that has none (width or channels 0); the
// code of RasMakeSl, or 0 when the record had planes.
[[nodiscard]] int RasFormatMakePlanes(RasSl *sl, const RasDesc *desc);
// True when the record is `width` wide and has `channels` planes of 8 bits,
// or of 16 bits when `wide`.
bool RasFormatPlanesFit(const RasSl *sl, uint32_t width, uint32_t channels, bool wide);

// Seeks to `target` unless `*position` says the file stands there already;
// `*position` follows the file, -1 when unknown.
[[nodiscard]] int RasFormatSeek(RasFile *file, int64_t *position, int64_t target);
[[nodiscard]] int RasFormatRead(RasFile *file, void *bytes, int64_t count);  // exactly
[[nodiscard]] int RasFormatWrite(RasFile *file, const void *bytes, int64_t count);

// Opens `name` for reading and reads its first `size` bytes into `header`. A
// failed open is reported for `routine` with its own code and `detail`; a file
// shorter than the header is closed and reported as -8 with `detail` + 1.
[[nodiscard]] int RasFormatOpenHeader(const char *routine, RasState *state, const char *name,
                                      uint8_t *header, int64_t size, int detail);

// Opens `name` for writing with the file layer's expected-size option set to
// `expected` for the open and restored afterwards.
[[nodiscard]] int RasFormatOpenWrite(RasFile *file, const char *name, int64_t expected);

// Closes the state's file if it is open; a file being written is removed
// when `remove` is set (an open that failed half way).
void RasFormatDropFile(RasState *state, bool remove);
// Closes the state's file if it is open: -6 when the last bytes of a file
// being written could not be flushed, else 0.
[[nodiscard]] int RasFormatCloseFile(RasState *state);

// The quality the lossy encoders work at, 0..100, 75 until set: the JPEG
// module's quality option sets it, and the WebP and HEIF writers follow it.
int RasEncoderQuality();
void RasSetEncoderQuality(int quality);

// 16- and 32-bit fields, big-endian when `big`, byte by byte so the host's
// order never matters.
uint32_t RasGet16(const uint8_t *p, bool big);
uint32_t RasGet32(const uint8_t *p, bool big);
void RasPut16(uint8_t *p, uint32_t v, bool big);
void RasPut32(uint8_t *p, uint32_t v, bool big);

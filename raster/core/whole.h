// What the WebP and HEIF modules share: their codecs take a whole file in
// memory and a whole picture at once, so reading holds the file and the
// decoded picture, and writing gathers every row before encoding.
#pragma once

#include <cstddef>
#include <cstdint>

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasstate.h"

// The file's bytes from its start, in one RasAlloc block the caller frees.
[[nodiscard]] int RasWholeReadFile(RasFile *file, uint8_t **bytes, size_t *size);

// A picture of 8-bit interleaved samples, 3 (RGB) or 4 (RGB and alpha) a
// pixel, gathered row by row for an encoder.
struct RasWholePicture {
  uint8_t *pixels;
  uint32_t width, height, channels;
  bool grey;     // rows come as one plane, kept as RGB
  int32_t last;  // last row kept, -1 before the first
};

// A zeroed private block of `size` bytes for a module, kept in
// `state->priv`; null when out of memory.
void *RasWholeNewPriv(RasState *state, size_t size);

// The checks before a row is read: the descriptor open for reading, `row`
// inside the picture and planes (made when absent) that hold a row of
// `desc->channels` samples, 16-bit ones by `wide`. The state, or null with
// the RasError code in `*code` (details 0 not open, 1 row out of range, 2 no
// planes, 3 planes too small).
RasState *RasWholeReadState(const char *routine, RasDesc *desc, uint32_t row, RasSl *sl, bool wide,
                            int *code);
// The state of a descriptor open for writing, or null with a RasError code
// (detail 0) in `*code`.
RasState *RasWholeWriteState(const char *routine, RasDesc *desc, const RasSl *sl, int *code);

// Begins `picture` for a write-open and opens the file `name`; a RasError
// code, after which the caller drops its private block.
[[nodiscard]] int RasWholeOpenWrite(const char *routine, const char *name, const RasDesc *desc,
                                    uint32_t limit, RasState *state, RasWholePicture *picture);

// Checks a write-open's descriptor (grey is kept as RGB, since neither
// format stores grey alone) and allocates the picture; a RasError code.
[[nodiscard]] int RasWholeBegin(const char *routine, const RasDesc *desc, uint32_t limit,
                                RasWholePicture *picture);
// Keeps row `row`: rows strictly in order, the last one again tolerated.
// `*complete` says the picture now has all its rows. A RasError code.
[[nodiscard]] int RasWholeKeepRow(const char *routine, RasWholePicture *picture, uint32_t row,
                                  const RasSl *sl, bool *complete);
void RasWholeFree(RasWholePicture *picture);

// A whole-picture writer's row routine: keeps the row in the private block's
// `picture` and, once every row is in, calls `finish(priv, file)` to encode
// and write the file. Details: 0 no open writer, 1 row out of order, 2 planes
// too small, 3 `finish` failed.
template <class Priv, class Finish>
[[nodiscard]] int RasWholeWriteSl(const char *routine, RasDesc *desc, uint32_t row, const RasSl *sl,
                                  Finish finish) {
  int code = RasOk;
  RasState *state = RasWholeWriteState(routine, desc, sl, &code);
  if (!state) return code;
  auto *priv = static_cast<Priv *>(state->priv);
  bool complete = false;
  code = RasWholeKeepRow(routine, &priv->picture, row, sl, &complete);
  if (code != RasOk || !complete) return code;
  const int written = finish(priv, &state->file);
  return written == RasOk ? RasOk : RasError(routine, written, 3);
}

// Spreads row `row` of a decoded picture (`stride` bytes a row, `channels`
// samples a pixel, 8 or host-order 16 bits by `wide`) into the planes.
void RasWholeSplitRow(const uint8_t *pixels, size_t stride, uint32_t channels, bool wide,
                      uint32_t row, uint32_t width, RasSl *sl);

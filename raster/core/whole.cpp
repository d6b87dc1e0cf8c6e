// Whole files and whole pictures for the codecs that need them at once.
#include "raster/core/whole.h"

#include <cstring>

#include "raster/core/rasformat.h"
#include "raster/core/rowpack.h"

int RasWholeReadFile(RasFile *file, uint8_t **bytes, size_t *size) {
  *bytes = nullptr;
  int64_t end = 0;
  int code = RasFileSeek(file, 0, 2);
  if (code == RasOk) code = RasFileTell(file, &end);
  if (code == RasOk) code = RasFileSeek(file, 0, 0);
  if (code != RasOk) return code;
  if (end <= 0 || static_cast<uint64_t>(end) > SIZE_MAX) return RasErrFormat;
  *bytes = static_cast<uint8_t *>(RasAlloc(static_cast<size_t>(end)));
  if (!*bytes) return RasErrMemory;
  *size = static_cast<size_t>(end);
  code = RasFormatRead(file, *bytes, end);
  if (code != RasOk) *bytes = static_cast<uint8_t *>(RasFree(*bytes));
  return code;
}

void *RasWholeNewPriv(RasState *state, size_t size) {
  void *priv = RasAlloc(size);
  if (priv) std::memset(priv, 0, size);
  state->priv = priv;
  return priv;
}

RasState *RasWholeReadState(const char *routine, RasDesc *desc, uint32_t row, RasSl *sl, bool wide,
                            int *code) {
  RasState *state = desc && sl ? RasFormatState(desc, 'r') : nullptr;
  if (!state)
    *code = RasError(routine, RasErrArg, 0);
  else if (row >= desc->height)
    *code = RasError(routine, RasErrArg, 1);
  else if (RasFormatMakePlanes(sl, desc) != RasOk)
    *code = RasError(routine, RasErrMemory, 2);
  else if (!RasFormatPlanesFit(sl, desc->width, desc->channels, wide))
    *code = RasError(routine, RasErrArg, 3);
  else
    return state;
  return nullptr;
}

RasState *RasWholeWriteState(const char *routine, RasDesc *desc, const RasSl *sl, int *code) {
  RasState *state = desc && sl ? RasFormatState(desc, 'w') : nullptr;
  if (!state) *code = RasError(routine, RasErrArg, 0);
  return state;
}

int RasWholeOpenWrite(const char *routine, const char *name, const RasDesc *desc, uint32_t limit,
                      RasState *state, RasWholePicture *picture) {
  const int begun = RasWholeBegin(routine, desc, limit, picture);
  if (begun != RasOk) return begun;
  if (RasFormatOpenWrite(&state->file, name, 0) != RasOk) return RasError(routine, RasErrOpen, 13);
  return RasOk;
}

int RasWholeBegin(const char *routine, const RasDesc *desc, uint32_t limit,
                  RasWholePicture *picture) {
  std::memset(picture, 0, sizeof *picture);
  picture->last = -1;
  const bool grey = desc->model == RasModelGray && desc->channels == 1;
  const bool rgb = desc->model == RasModelRgb && (desc->channels == 3 || desc->channels == 4);
  if (!grey && !rgb) return RasError(routine, RasErrArg, 5);
  if (desc->maxval != 255) return RasError(routine, RasErrArg, 6);
  if (desc->width == 0 || desc->height == 0 || desc->width > limit || desc->height > limit)
    return RasError(routine, RasErrArg, 7);
  picture->width = desc->width;
  picture->height = desc->height;
  picture->channels = grey ? 3 : desc->channels;
  picture->grey = grey;
  const size_t bytes = size_t{desc->width} * desc->height * picture->channels;
  picture->pixels = static_cast<uint8_t *>(RasAlloc(bytes));
  return picture->pixels ? RasOk : RasError(routine, RasErrMemory, 8);
}

int RasWholeKeepRow(const char *routine, RasWholePicture *picture, uint32_t row, const RasSl *sl,
                    bool *complete) {
  *complete = false;
  if (static_cast<int64_t>(row) == picture->last) return RasOk;
  if (static_cast<int64_t>(row) != picture->last + 1 || row >= picture->height)
    return RasError(routine, RasErrArg, 1);
  const bool grey = picture->grey;
  if (!RasFormatPlanesFit(sl, picture->width, grey ? 1 : picture->channels, false))
    return RasError(routine, RasErrArg, 2);
  uint8_t *out = picture->pixels + size_t{row} * picture->width * picture->channels;
  const uint8_t *const planes[4] = {sl->plane8[0], sl->plane8[grey ? 0 : 1],
                                    sl->plane8[grey ? 0 : 2], sl->plane8[3]};
  RasJoinRowFor(picture->channels, false)(out, planes, picture->width);
  picture->last = static_cast<int32_t>(row);
  *complete = row + 1 == picture->height;
  return RasOk;
}

void RasWholeFree(RasWholePicture *picture) {
  picture->pixels = static_cast<uint8_t *>(RasFree(picture->pixels));
}

void RasWholeSplitRow(const uint8_t *pixels, size_t stride, uint32_t channels, bool wide,
                      uint32_t row, uint32_t width, RasSl *sl) {
  const uint8_t *samples = pixels + stride * row;
  if (wide)
    RasSplitRow16(reinterpret_cast<const uint16_t *>(samples), sl->plane16, width, channels);
  else
    RasSplitRowFor(channels, false)(samples, sl->plane8, width);
}

// What the format codes imply, the state block's reset and the scanline
// records: the pieces of the descriptor that every format uses.
#include "raster/core/rasdesc.h"

#include <cstring>

#include "raster/core/raserror.h"
#include "raster/core/rasstate.h"

bool RasValidChannels(uint32_t channels) {
  return channels == 1 || channels == 3 || channels == 4;
}

uint32_t RasFormatMaxval(uint32_t format) {
  if (format == RasFormatCineon) return 1023;
  if (format == RasFormatTiff16) return 65535;
  return 255;
}

bool RasFormatDepthVaries(uint32_t format) {
  return format == RasFormatPng || format == RasFormatHeic || format == RasFormatAvif;
}

const char *RasFormatName(uint32_t format) {
  static const char *const kNames[] = {"?",      "tiff",    "targa", "scitex", "eps",
                                       "dcs",    "photocd", "bmp",   "cineon", "jpeg",
                                       "tiff16", "png",     "webp",  "heic",   "avif"};
  return format <= RasFormatAvif ? kNames[format] : "?";
}

void RasStateReset(RasState *state) {
  std::memset(state, 0, sizeof *state);
  RasFileInit(&state->file);
}

int RasMakeSl(RasSl *sl, const RasDesc *desc) {
  if (!sl) return RasError("RasMakeSl", RasErrArg, 1);
  std::memset(sl, 0, sizeof *sl);
  if (!desc) return RasError("RasMakeSl", RasErrArg, 2);
  if (!RasValidChannels(desc->channels)) return RasError("RasMakeSl", RasErrArg, 3);
  if (desc->width == 0) return RasOk;
  sl->width = desc->width;
  sl->channels = desc->channels;
  const bool wide = desc->maxval >= 256;
  // Scitex CT rows of odd width carry a padding byte that its reader and
  // writer move through the plane, so each plane gets one spare byte.
  const size_t spare = desc->format == RasFormatScitex && desc->width % 2 == 1 ? 1 : 0;
  const size_t bytes = (static_cast<size_t>(desc->width) + spare) * (wide ? 2 : 1);
  for (uint32_t k = 0; k < desc->channels; ++k) {
    void *plane = RasAlloc(bytes);
    if (!plane) {
      RasFreeSl(sl);
      return RasError("RasMakeSl", RasErrMemory, 0);
    }
    if (wide)
      sl->plane16[k] = static_cast<uint16_t *>(plane);
    else
      sl->plane8[k] = static_cast<uint8_t *>(plane);
  }
  return RasOk;
}

int RasFreeSl(RasSl *sl) {
  if (!sl) return RasError("RasFreeSl", RasErrArg, 0);
  for (int k = 0; k < 4; ++k) {
    sl->plane8[k] = static_cast<uint8_t *>(RasFree(sl->plane8[k]));
    sl->plane16[k] = static_cast<uint16_t *>(RasFree(sl->plane16[k]));
  }
  return RasOk;
}

// Generic entry points: descriptor set-up, open/read/write/close dispatched on
// the format code with plain switches, scanline records and the format probe.
#include "raster/ras.h"

#include <cstring>

#include "raster/formats.h"
#include "raster/raserror.h"
#include "raster/rasformat.h"
#include "raster/rasstate.h"

namespace {

bool ValidChannels(uint32_t channels) {
  return channels == 1 || channels == 3 || channels == 4;
}

bool ValidModel(uint32_t model) {
  return model == RasModelRgb || model == RasModelCmyk || model == RasModelGray ||
         model == RasModelLab || model == RasModelYcc;
}

RasState *NewState() {
  auto *state = static_cast<RasState *>(RasAlloc(sizeof(RasState)));
  if (state) RasStateReset(state);
  return state;
}

void DropState(RasDesc *desc) {
  desc->state = static_cast<RasState *>(RasFree(desc->state));
}

int DispatchOpen(const char *name, char mode, RasDesc *desc) {
  switch (desc->format) {
    case RasFormatTiff:
      return TiffOpen(name, mode, desc);
    case RasFormatTarga:
      return TargaOpen(name, mode, desc);
    case RasFormatScitex:
      return ScitexCTOpen(name, mode, desc);
    case RasFormatEps:
      return EpsOpen(name, mode, desc);
    case RasFormatDcs:
      return DcsOpen(name, mode, desc);
    case RasFormatPhotoCd:
      return PcdOpen(name, mode, desc);
    case RasFormatBmp:
      return BmpOpen(name, mode, desc);
    case RasFormatCineon:
      return CineonOpen(name, mode, desc);
    case RasFormatJpeg:
      return JpegOpen(name, mode, desc);
    case RasFormatTiff16:
      return Tiff16Open(name, mode, desc);
    case RasFormatPng:
      return PngOpen(name, mode, desc);
    case RasFormatWebp:
      return WebpOpen(name, mode, desc);
    case RasFormatHeic:
    case RasFormatAvif:
      return HeifOpen(name, mode, desc);
    default:
      return RasError("RasOpen", RasErrArg, 3);
  }
}

int DispatchClose(RasDesc *desc) {
  switch (desc->format) {
    case RasFormatTiff:
      return TiffClose(desc);
    case RasFormatTarga:
      return TargaClose(desc);
    case RasFormatScitex:
      return ScitexCTClose(desc);
    case RasFormatEps:
      return EpsClose(desc);
    case RasFormatDcs:
      return DcsClose(desc);
    case RasFormatPhotoCd:
      return PcdClose(desc);
    case RasFormatBmp:
      return BmpClose(desc);
    case RasFormatCineon:
      return CineonClose(desc);
    case RasFormatJpeg:
      return JpegClose(desc);
    case RasFormatTiff16:
      return Tiff16Close(desc);
    case RasFormatPng:
      return PngClose(desc);
    case RasFormatWebp:
      return WebpClose(desc);
    case RasFormatHeic:
    case RasFormatAvif:
      return HeifClose(desc);
    default:
      return RasError("RasClose", RasErrArg, 1);
  }
}

// The probe's order: strong signatures first (PNG, WebP and HEIF files begin
// with fixed bytes, so they go before Targa, which has none); JPEG, Scitex CT
// and Cineon, whose checks are weakest, last. The HEIF reader takes AVIF
// files as well and says which they are.
constexpr uint32_t kProbeOrder[] = {
    RasFormatPhotoCd, RasFormatTiff,   RasFormatTiff16, RasFormatEps,   RasFormatDcs,
    RasFormatPng,     RasFormatWebp,   RasFormatHeic,   RasFormatTarga, RasFormatBmp,
    RasFormatJpeg,    RasFormatScitex, RasFormatCineon,
};

}  // namespace

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

int RasSetDesc(RasDesc *desc, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
               uint32_t model, float resolution) {
  if (!desc) return RasError("RasSetDesc", RasErrArg, 0);
  if (!ValidChannels(channels)) return RasError("RasSetDesc", RasErrArg, 1);
  if (format < RasFormatTiff || format > RasFormatAvif) return RasError("RasSetDesc", RasErrArg, 2);
  if (!ValidModel(model)) return RasError("RasSetDesc", RasErrArg, 3);
  desc->width = width;
  desc->height = height;
  desc->channels = channels;
  desc->model = model;
  desc->format = format;
  desc->flags = 0;
  desc->maxval = RasFormatMaxval(format);
  desc->resolution = resolution;
  desc->state = nullptr;
  return RasOk;
}

int RasOpen(const char *name, char mode, RasDesc *desc) {
  if (!name || !desc) return RasError("RasOpen", RasErrArg, 0);
  if (mode != 'r' && mode != 'w') return RasError("RasOpen", RasErrArg, 1);
  desc->state = NewState();
  if (!desc->state) return RasError("RasOpen", RasErrMemory, 2);
  RasErrorFileScope scope(name);
  if (mode == 'r') RasFormatClearPixelRefusal();
  int code = DispatchOpen(name, mode, desc);
  // Every reader's declared size is checked here, before the caller makes
  // rows for it or reads any.
  if (code == RasOk && mode == 'r') {
    code = RasFormatCheckPixels("RasOpen", desc->width, desc->height, 4);
    if (code != RasOk) (void)DispatchClose(desc);
  }
  if (code != RasOk) {
    DropState(desc);
    return code;
  }
  desc->flags = 0;
  // A file that chooses its own sample width has told the descriptor (read)
  // or been told by it (write).
  if (!RasFormatDepthVaries(desc->format)) desc->maxval = RasFormatMaxval(desc->format);
  return RasOk;
}

int RasReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  if (!desc || !sl) return RasError("RasReadSl", RasErrArg, 0);
  RasErrorFileScope scope(desc->state ? desc->state->name : nullptr);
  switch (desc->format) {
    case RasFormatTiff:
      return TiffReadSl(desc, row, sl);
    case RasFormatTarga:
      return TargaReadSl(desc, row, sl);
    case RasFormatScitex:
      return ScitexCTReadSl(desc, row, sl);
    case RasFormatEps:
      return EpsReadSl(desc, row, sl);
    case RasFormatDcs:
      return DcsReadSl(desc, row, sl);
    case RasFormatPhotoCd:
      return PcdReadSl(desc, row, sl);
    case RasFormatBmp:
      return BmpReadSl(desc, row, sl);
    case RasFormatCineon:
      return CineonReadSl(desc, row, sl);
    case RasFormatJpeg:
      return JpegReadSl(desc, row, sl);
    case RasFormatTiff16:
      return Tiff16ReadSl(desc, row, sl);
    case RasFormatPng:
      return PngReadSl(desc, row, sl);
    case RasFormatWebp:
      return WebpReadSl(desc, row, sl);
    case RasFormatHeic:
    case RasFormatAvif:
      return HeifReadSl(desc, row, sl);
    default:
      return RasError("RasReadSl", RasErrArg, 1);
  }
}

int RasWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  if (!desc || !sl) return RasError("RasWriteSl", RasErrArg, 0);
  RasErrorFileScope scope(desc->state ? desc->state->name : nullptr);
  switch (desc->format) {
    case RasFormatTiff:
      return TiffWriteSl(desc, row, sl);
    case RasFormatTarga:
      return TargaWriteSl(desc, row, sl);
    case RasFormatScitex:
      return ScitexCTWriteSl(desc, row, sl);
    case RasFormatEps:
      return EpsWriteSl(desc, row, sl);
    case RasFormatDcs:
      return DcsWriteSl(desc, row, sl);
    case RasFormatPhotoCd:
      return PcdWriteSl(desc, row, sl);
    case RasFormatBmp:
      return BmpWriteSl(desc, row, sl);
    case RasFormatCineon:
      return CineonWriteSl(desc, row, sl);
    case RasFormatJpeg:
      return JpegWriteSl(desc, row, sl);
    case RasFormatTiff16:
      return Tiff16WriteSl(desc, row, sl);
    case RasFormatPng:
      return PngWriteSl(desc, row, sl);
    case RasFormatWebp:
      return WebpWriteSl(desc, row, sl);
    case RasFormatHeic:
    case RasFormatAvif:
      return HeifWriteSl(desc, row, sl);
    default:
      return RasError("RasWriteSl", RasErrArg, 1);
  }
}

int RasClose(RasDesc *desc) {
  if (!desc) return RasError("RasClose", RasErrArg, 0);
  RasErrorFileScope scope(desc->state ? desc->state->name : nullptr);
  const int code = DispatchClose(desc);
  DropState(desc);
  return code;
}

int RasMakeSl(RasSl *sl, const RasDesc *desc) {
  if (!sl) return RasError("RasMakeSl", RasErrArg, 1);
  std::memset(sl, 0, sizeof *sl);
  if (!desc) return RasError("RasMakeSl", RasErrArg, 2);
  if (!ValidChannels(desc->channels)) return RasError("RasMakeSl", RasErrArg, 3);
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

int RasGetInfo(const char *name, RasDesc *desc) {
  if (!name || !desc) return RasError("RasGetInfo", RasErrArg, 0);
  desc->state = NewState();
  if (!desc->state) return RasError("RasGetInfo", RasErrMemory, 1);
  desc->flags = 0;
  desc->maxval = 255;
  RasErrorFileScope scope(name);
  RasProbeLog log;
  const int reporting = RasSetErrorReporting(0);
  int code = RasErrArg;
  RasFormatClearPixelRefusal();
  for (uint32_t format : kProbeOrder) {
    RasStateReset(desc->state);
    desc->format = format;
    log.Trying();
    code = DispatchOpen(name, 'r', desc);
    if (code == RasOk) (void)DispatchClose(desc);
    // A reader that knew the file but found it too large ends the probe too:
    // no weaker reader may claim the file after it.
    if (code == RasOk || RasPixelLimitRefused()) break;
    log.Refused(format);
  }
  if (code == RasOk && desc->format == RasFormatTiff16) desc->maxval = 65535;
  if (code == RasOk && desc->format == RasFormatCineon) desc->maxval = 1023;
  RasSetErrorReporting(reporting);
  if (code == RasOk || RasPixelLimitRefused())
    code = RasFormatCheckPixels("RasGetInfo", desc->width, desc->height, 2);
  else if (reporting)
    log.Write(name);
  DropState(desc);
  return code;
}

// The dispatcher: descriptor set-up, open/read/write/close sent to the
// format the descriptor names through one table, and the format probe. It is
// the only file that knows every format; the formats know only the core.
#include "raster/ras.h"

#include "raster/bmp.h"
#include "raster/cineon.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/eps.h"
#include "raster/heif.h"
#include "raster/jpeg.h"
#include "raster/photocd.h"
#include "raster/png.h"
#include "raster/scitex.h"
#include "raster/targa.h"
#include "raster/tiff.h"
#include "raster/webp.h"

namespace {

struct FormatEntry {
  int (*open)(const char *name, char mode, RasDesc *desc);
  int (*readSl)(RasDesc *desc, uint32_t row, RasSl *sl);
  int (*writeSl)(RasDesc *desc, uint32_t row, const RasSl *sl);
  int (*close)(RasDesc *desc);
};

#define RAS_FORMAT_ENTRY(Prefix) \
  { Prefix##Open, Prefix##ReadSl, Prefix##WriteSl, Prefix##Close }

// Indexed by format code; HEIC and AVIF files share one module.
constexpr FormatEntry kFormats[] = {
    {nullptr, nullptr, nullptr, nullptr},
    RAS_FORMAT_ENTRY(Tiff),
    RAS_FORMAT_ENTRY(Targa),
    RAS_FORMAT_ENTRY(ScitexCT),
    RAS_FORMAT_ENTRY(Eps),
    RAS_FORMAT_ENTRY(Dcs),
    RAS_FORMAT_ENTRY(Pcd),
    RAS_FORMAT_ENTRY(Bmp),
    RAS_FORMAT_ENTRY(Cineon),
    RAS_FORMAT_ENTRY(Jpeg),
    RAS_FORMAT_ENTRY(Tiff16),
    RAS_FORMAT_ENTRY(Png),
    RAS_FORMAT_ENTRY(Webp),
    RAS_FORMAT_ENTRY(Heif),
    RAS_FORMAT_ENTRY(Heif),
};

#undef RAS_FORMAT_ENTRY

// The table entry for the descriptor's format, or null for a code that names
// no format.
const FormatEntry *EntryOf(const RasDesc *desc) {
  const uint32_t format = desc->format;
  return format >= RasFormatTiff && format <= RasFormatAvif ? &kFormats[format] : nullptr;
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
  const FormatEntry *entry = EntryOf(desc);
  return entry ? entry->open(name, mode, desc) : RasError("RasOpen", RasErrArg, 3);
}

int DispatchClose(RasDesc *desc) {
  const FormatEntry *entry = EntryOf(desc);
  return entry ? entry->close(desc) : RasError("RasClose", RasErrArg, 1);
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

int RasSetDesc(RasDesc *desc, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
               uint32_t model, float resolution) {
  if (!desc) return RasError("RasSetDesc", RasErrArg, 0);
  if (!RasValidChannels(channels)) return RasError("RasSetDesc", RasErrArg, 1);
  if (format < RasFormatTiff || format > RasFormatAvif) return RasError("RasSetDesc", RasErrArg, 2);
  if (!ValidModel(model)) return RasError("RasSetDesc", RasErrArg, 3);
  *desc = RasDesc{.width = width,
                  .height = height,
                  .channels = channels,
                  .model = model,
                  .format = format,
                  .flags = 0,
                  .maxval = RasFormatMaxval(format),
                  .resolution = resolution,
                  .state = nullptr};
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
  const FormatEntry *entry = EntryOf(desc);
  return entry ? entry->readSl(desc, row, sl) : RasError("RasReadSl", RasErrArg, 1);
}

int RasWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  if (!desc || !sl) return RasError("RasWriteSl", RasErrArg, 0);
  RasErrorFileScope scope(desc->state ? desc->state->name : nullptr);
  const FormatEntry *entry = EntryOf(desc);
  return entry ? entry->writeSl(desc, row, sl) : RasError("RasWriteSl", RasErrArg, 1);
}

int RasClose(RasDesc *desc) {
  if (!desc) return RasError("RasClose", RasErrArg, 0);
  RasErrorFileScope scope(desc->state ? desc->state->name : nullptr);
  const int code = DispatchClose(desc);
  DropState(desc);
  return code;
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

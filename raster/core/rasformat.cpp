// Shared pieces of the format modules.
#include "raster/core/rasformat.h"

#include <cerrno>
#include <cstdlib>

namespace {

constexpr uint64_t kDefaultMaxPixels = 500'000'000;
// Per thread, as every setting and report of the library: the refusal is
// about the last open on the asking thread.
thread_local bool gPixelRefusal = false;
thread_local int gEncoderQuality = 75;

// Only a plain positive number replaces the default: a typo must not turn
// the limit off or make every photo too large.
uint64_t ReadMaxPixels() {
  const char *text = std::getenv("KORVEL_MAX_PIXELS");
  if (!text || *text < '0' || *text > '9') return kDefaultMaxPixels;
  char *end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (errno != 0 || *end != 0 || value == 0) return kDefaultMaxPixels;
  return value;
}

}  // namespace

uint64_t RasMaxPixels() {
  static const uint64_t limit = ReadMaxPixels();
  return limit;
}

bool RasPixelLimitRefused() {
  return gPixelRefusal;
}

// The refusal is -9, the code for a file of a kind this library does not
// take, as the readers already answer for dimensions beyond their own caps:
// the file may be sound, and nothing ran out (-3 would invite a retry with
// more memory, -8 would call the file broken).
int RasFormatCheckPixels(const char *routine, uint32_t width, uint32_t height, int detail) {
  if (uint64_t{width} * height <= RasMaxPixels()) return RasOk;
  gPixelRefusal = true;
  return RasError(routine, RasErrUnsupported, detail);
}

void RasFormatClearPixelRefusal() {
  gPixelRefusal = false;
}

int RasFormatBegin(const char *routine, const char *name, char mode, RasDesc *desc,
                   int modeDetail) {
  if (!name || !desc || !desc->state) return RasError(routine, RasErrArg, 0);
  if (mode != 'r' && mode != 'w') return RasError(routine, RasErrArg, modeDetail);
  RasState *state = desc->state;
  RasCopyName(state->name, name);
  state->mode = mode;
  state->priv = nullptr;
  return RasOk;
}

int RasFormatOpen(const char *routine, const char *name, char mode, RasDesc *desc, int modeDetail,
                  RasFormatSideFn openRead, RasFormatSideFn openWrite) {
  const int begun = RasFormatBegin(routine, name, mode, desc, modeDetail);
  if (begun != RasOk) return begun;
  return mode == 'w' ? openWrite(name, desc) : openRead(name, desc);
}

RasState *RasFormatState(const RasDesc *desc, char mode) {
  RasState *state = desc->state;
  if (!state || !state->priv || state->mode != mode || state->file.kind == RasFileKindClosed)
    return nullptr;
  return state;
}

RasState *RasFormatRowState(const char *routine, const RasDesc *desc, const RasSl *sl, char mode,
                            int *code) {
  if (!desc || !sl) {
    *code = RasError(routine, RasErrArg, desc ? 1 : 0);
    return nullptr;
  }
  RasState *state = RasFormatState(desc, mode);
  if (!state) *code = RasError(routine, RasErrArg, 2);
  return state;
}

int RasFormatMakePlanes(RasSl *sl, const RasDesc *desc) {
  if (sl->width != 0 && sl->channels != 0) return RasOk;
  return RasMakeSl(sl, desc);
}

bool RasFormatPlanesFit(const RasSl *sl, uint32_t width, uint32_t channels, bool wide) {
  if (sl->width < width || sl->channels < channels) return false;
  for (uint32_t k = 0; k < channels; ++k) {
    if (wide ? !sl->plane16[k] : !sl->plane8[k]) return false;
  }
  return true;
}

int RasFormatSeek(RasFile *file, int64_t *position, int64_t target) {
  if (*position == target) return RasOk;
  *position = -1;
  const int code = RasFileSeek(file, target, 0);
  if (code == RasOk) *position = target;
  return code;
}

int RasFormatRead(RasFile *file, void *bytes, int64_t count) {
  int64_t n = count;
  return RasFileRead(file, bytes, &n, 1);
}

int RasFormatWrite(RasFile *file, const void *bytes, int64_t count) {
  int64_t n = count;
  return RasFileWrite(file, bytes, &n);
}

int RasFormatOpenHeader(const char *routine, RasState *state, const char *name, uint8_t *header,
                        int64_t size, int detail) {
  const int code = RasFileOpen(&state->file, name, RasFileModeRead);
  if (code != RasOk) return RasError(routine, code, detail);
  if (RasFormatRead(&state->file, header, size) == RasOk) return RasOk;
  RasFormatDropFile(state, true);
  return RasError(routine, RasErrFormat, detail + 1);
}

int RasFormatOpenWrite(RasFile *file, const char *name, int64_t expected) {
  int64_t previous = 0;
  if (RasFileGetOption(RasFileOptExpectedSize, &previous) != RasOk) previous = 0;
  (void)RasFileSetOption(RasFileOptExpectedSize, &expected);
  const int opened = RasFileOpen(file, name, RasFileModeWrite);
  (void)RasFileSetOption(RasFileOptExpectedSize, &previous);
  return opened;
}

void RasFormatDropFile(RasState *state, bool remove) {
  if (state->file.kind == RasFileKindClosed) return;
  if (remove && state->mode == 'w')
    (void)RasFileCloseRemove(&state->file);
  else
    (void)RasFileClose(&state->file);
}

int RasFormatCloseFile(RasState *state) {
  if (state->file.kind == RasFileKindClosed) return RasOk;
  const int closed = RasFileClose(&state->file);
  return closed != RasOk && state->mode == 'w' ? RasErrWrite : RasOk;
}

int RasEncoderQuality() {
  return gEncoderQuality;
}

void RasSetEncoderQuality(int quality) {
  gEncoderQuality = quality;
}

uint32_t RasGet16(const uint8_t *p, bool big) {
  return big ? uint32_t{p[0]} << 8 | p[1] : uint32_t{p[1]} << 8 | p[0];
}

uint32_t RasGet32(const uint8_t *p, bool big) {
  return big ? uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3]
             : uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
}

void RasPut16(uint8_t *p, uint32_t v, bool big) {
  p[big ? 0 : 1] = static_cast<uint8_t>(v >> 8);
  p[big ? 1 : 0] = static_cast<uint8_t>(v);
}

void RasPut32(uint8_t *p, uint32_t v, bool big) {
  for (int i = 0; i < 4; ++i)
    p[big ? 3 - i : i] = static_cast<uint8_t>(v >> (8 * i));
}

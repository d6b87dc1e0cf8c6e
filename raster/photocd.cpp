// Photo CD reader (format 6, read only): one of the image pack's three lowest
// resolutions, delivered as luma and two chroma planes (model 8, YCC) as the
// file holds them; converting them for display is the caller's business.
//
// The image data is a sequence of records, each covering two image rows: the
// two rows' luma, then one row of each chroma at half resolution in both
// directions. A row's chroma is restored to full resolution from its own
// record's chroma (the near row) and the neighbouring record's (the far row)
// with fixed integer formulas. Two records are cached, A (the record above)
// and B (the record at or below the row), so that reading rows in order loads
// each record once.
//
// Choices made where the format leaves room:
//   - The reachability check seeks to the image's last byte and reads it: on
//     a disk file a seek beyond the end succeeds, and a truncated file would
//     otherwise open and fail only at the rows.
//   - A cached record whose read failed is marked empty, so a later row does
//     not use half a record.
//
// Failure details not given by the format's own checks:
//   PcdOpen     0 null argument or no state block.
//   PcdReadSl   2 not open for reading; 10 row beyond the height; 11 record
//               too narrow.
//   PcdWriteSl  0 always: no open for writing succeeds.
#include "raster/photocd.h"

#include <cstring>
#include <utility>

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"

namespace {

constexpr int64_t kSignatureAt = 2048;
constexpr char kSignature[] = "PCD_IPI";
constexpr int64_t kSignatureSize = 7;

struct Level {
  uint32_t width;
  uint32_t height;
  int64_t offset;
};
constexpr Level kLevels[] = {{192, 128, 8192}, {384, 256, 47104}, {768, 512, 196608}};

thread_local uint32_t gLevel = 3;  // per thread, as every library setting

struct PcdRecord {
  uint8_t *bytes;
  int64_t first;  // image row of the record's first row, -1 when empty
};

struct PcdPriv {
  int64_t dataOffset;
  int64_t position;  // where the file stands, -1 when unknown
  uint32_t recordSize;
  uint32_t width;
  uint32_t height;
  PcdRecord a;
  PcdRecord b;
};

constexpr auto PrivOf = RasFormatPriv<PcdPriv>;

void FreePriv(RasState *state) {
  auto *p = static_cast<PcdPriv *>(state->priv);
  if (p) {
    RasFree(p->a.bytes);
    RasFree(p->b.bytes);
  }
  state->priv = RasFree(p);
}

int FailOpen(RasState *state, int code, int detail) {
  RasFormatDropFile(state, false);
  FreePriv(state);
  return RasError("PcdOpen", code, detail);
}

int OpenRead(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  RasFile *file = &state->file;
  if (RasFileOpen(file, name, RasFileModeRead) != RasOk) return RasError("PcdOpen", RasErrOpen, 1);
  int code = RasFileSeek(file, kSignatureAt, 0);
  if (code != RasOk) return FailOpen(state, code, 2);
  char signature[kSignatureSize];
  code = RasFormatRead(file, signature, kSignatureSize);
  if (code != RasOk) return FailOpen(state, code, 3);
  if (std::memcmp(signature, kSignature, kSignatureSize) != 0)
    return FailOpen(state, RasErrFormat, 4);
  if (gLevel < 1 || gLevel > 3) return FailOpen(state, RasErrPosition, 5);
  const Level &level = kLevels[gLevel - 1];

  const int64_t last = level.offset + int64_t{level.width} * 3 * level.height / 2 - 1;
  code = RasFileSeek(file, last, 0);
  if (code != RasOk) return FailOpen(state, code, 6);
  uint8_t byte;
  code = RasFormatRead(file, &byte, 1);
  if (code != RasOk) return FailOpen(state, code, 6);
  code = RasFileSeek(file, level.offset, 0);
  if (code != RasOk) return FailOpen(state, code, 7);

  auto *p = static_cast<PcdPriv *>(RasAlloc(sizeof(PcdPriv)));
  if (!p) return FailOpen(state, RasErrMemory, 8);
  std::memset(p, 0, sizeof *p);
  state->priv = p;
  p->dataOffset = level.offset;
  p->position = level.offset;
  p->width = level.width;
  p->height = level.height;
  p->recordSize = 3 * level.width;
  p->a.first = p->b.first = -1;
  p->a.bytes = static_cast<uint8_t *>(RasAlloc(p->recordSize));
  p->b.bytes = static_cast<uint8_t *>(RasAlloc(p->recordSize));
  if (!p->a.bytes || !p->b.bytes) return FailOpen(state, RasErrMemory, 9);

  desc->width = level.width;
  desc->height = level.height;
  desc->channels = 3;
  desc->model = RasModelYcc;
  desc->resolution = -1.0f;
  desc->format = RasFormatPhotoCd;
  desc->flags = 0;
  desc->maxval = 255;
  return RasOk;
}

// Loads the record whose first row is `first` into `r`, seeking only when the
// file stands elsewhere.
int LoadRecord(RasFile *file, PcdPriv *p, PcdRecord *r, int64_t first, int seekDetail,
               int readDetail) {
  r->first = -1;
  int code = RasFormatSeek(file, &p->position, first / 2 * p->recordSize + p->dataOffset);
  if (code != RasOk) return RasError("PcdReadSl", code, seekDetail);
  code = RasFormatRead(file, r->bytes, p->recordSize);
  if (code != RasOk) {
    p->position = -1;
    return RasError("PcdReadSl", code, readDetail);
  }
  p->position += p->recordSize;
  r->first = first;
  return RasOk;
}

// The first and last rows have no record beyond them: their chroma is
// interpolated along the row only.
void ChromaEdge(const uint8_t *n, uint32_t half, uint8_t *out) {
  out[0] = n[0];
  for (uint32_t i = 0; i + 1 < half; ++i) {
    const int a = n[i], b = n[i + 1];
    out[2 * i + 1] = static_cast<uint8_t>((3 * a + b + 2) / 4);
    out[2 * i + 2] = static_cast<uint8_t>((a + 3 * b + 2) / 4);
  }
  out[2 * half - 1] = n[half - 1];
}

// Every other row: bilinear, the far row weighted 1/4. The sums are never
// negative, so the divisions truncate as the shifts of the formulas do.
void ChromaInterior(const uint8_t *n, const uint8_t *f, uint32_t half, uint8_t *out) {
  out[0] = static_cast<uint8_t>((3 * n[0] + f[0] + 2) >> 2);
  for (uint32_t i = 0; i + 1 < half; ++i) {
    const int a = n[i], b = n[i + 1], c = f[i], d = f[i + 1];
    const int s = d - b - c + a;
    const int dx = b - a;
    const int dy = 4 * (c - a);
    out[2 * i + 1] = static_cast<uint8_t>((16 * a + 4 * dx + dy + s + 8) / 16);
    out[2 * i + 2] = static_cast<uint8_t>((16 * a + 12 * dx + dy + 3 * s + 8) / 16);
  }
  const uint32_t last = half - 1;
  out[2 * half - 1] = static_cast<uint8_t>((3 * n[last] + f[last] + 2) >> 2);
}

}  // namespace

int PcdOpen(const char *name, char mode, RasDesc *desc) {
  if (!name || !desc || !desc->state) return RasError("PcdOpen", RasErrArg, 0);
  // Checked before anything touches the file, so a refused write creates nothing.
  if (mode == 'w') return RasError("PcdOpen", RasErrArg, 10);
  if (mode != 'r') return RasError("PcdOpen", RasErrArg, 11);
  RasState *state = desc->state;
  RasCopyName(state->name, name);
  state->mode = mode;
  state->priv = nullptr;
  return OpenRead(name, desc);
}

int PcdReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state = RasFormatRowState("PcdReadSl", desc, sl, 'r', &code);
  if (!state) return code;
  PcdPriv *p = PrivOf(desc);
  if (row >= p->height) return RasError("PcdReadSl", RasErrArg, 10);
  if (sl->width == 0 || sl->channels == 0) {
    const int made = RasMakeSl(sl, desc);
    if (made != RasOk) return RasError("PcdReadSl", made, 4);
  } else {
    bool missing = false;
    for (uint32_t k = 0; k < sl->channels && k < 4; ++k)
      missing = missing || !sl->plane8[k];
    if (missing) {
      for (uint8_t *&plane : sl->plane8)
        plane = static_cast<uint8_t *>(RasFree(plane));
      const int made = RasMakeSl(sl, desc);
      if (made != RasOk) return RasError("PcdReadSl", made, 3);
    }
  }
  if (sl->width < p->width || sl->channels < 3) return RasError("PcdReadSl", RasErrArg, 11);

  const int64_t below = (int64_t{row} + 1) & ~int64_t{1};
  const int64_t above = below - 2;
  if (p->a.first != above && p->b.first == above) std::swap(p->a, p->b);
  if (p->b.first != below && p->a.first == below) std::swap(p->a, p->b);
  RasFile *file = &state->file;
  if (p->a.first != above && above >= 0) {
    const int code = LoadRecord(file, p, &p->a, above, 5, 6);
    if (code != RasOk) return code;
  }
  if (p->b.first != below && below < p->height) {
    const int code = LoadRecord(file, p, &p->b, below, 7, 8);
    if (code != RasOk) return code;
  }

  const uint32_t width = p->width;
  const uint32_t half = width / 2;
  const bool odd = row % 2 == 1;
  const PcdRecord &nearRecord = odd ? p->a : p->b;
  const PcdRecord &farRecord = odd ? p->b : p->a;
  const uint8_t *luma = odd ? p->a.bytes + width : p->b.bytes;
  std::memcpy(sl->plane8[0], luma, width);
  const bool edge = row == 0 || row == p->height - 1;
  for (uint32_t k = 1; k <= 2; ++k) {
    const uint32_t at = 2 * width + (k - 1) * half;
    const uint8_t *n = nearRecord.bytes + at;
    if (edge)
      ChromaEdge(n, half, sl->plane8[k]);
    else
      ChromaInterior(n, farRecord.bytes + at, half, sl->plane8[k]);
  }
  return RasOk;
}

int PcdWriteSl(RasDesc *, uint32_t, const RasSl *) {
  return RasError("PcdWriteSl", RasErrArg, 0);
}

int PcdClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  (void)RasFormatCloseFile(desc->state);
  FreePriv(desc->state);
  return RasOk;
}

int PcdSetOption(int option, uint32_t value) {
  if (option == PcdOptLevel && value >= 1 && value <= 3) gLevel = value;
  return RasOk;
}

int PcdGetOption(int option, uint32_t *value) {
  if (option != PcdOptLevel) return 65535;
  if (!value) return RasError("PcdGetOption", RasErrArg, 0);
  *value = gLevel;
  return RasOk;
}

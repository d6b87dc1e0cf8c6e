// BMP reader and writer (format 7): uncompressed device-independent bitmaps
// with a 40-byte or longer info header, 8 bits per pixel through a palette or
// 24 bits per pixel. Rows may be read and written in any order: each row's
// place in the file is computed from its number. Rows taken in order from a
// disk file go through a block of rows (raster/bmpblock.h), so that a photo
// costs a few hundred calls to the system rather than two for each row.
//
// Failure details not given by the format's own checks:
//   BmpOpen     -1/0 null argument, no state block or unknown mode;
//               -9/20 an info header longer than 124 bytes (no published
//               header is; refused rather than guessing at its layout);
//               -1/21 a descriptor whose size the header fields cannot hold;
//               -3/22 pixel data beyond 4 GiB (stride x height), which no
//               32-bit file size can describe;
//               -9/23 a width or height of 0.
//   BmpReadSl   -1/5 row at or beyond the height; -1/6 a scanline record too
//               narrow or missing a plane; -1/7 the file was opened for
//               writing; -3/8 the record's planes could not be allocated.
//   BmpWriteSl  -1/7 row at or beyond the height; -1/8 a scanline record too
//               narrow or missing a plane; -1/9 the file was opened for
//               reading.
//   BmpClose    -6/1 the last buffered rows could not be written.
// Those argument refusals leave the file open; every failure that concerns
// the file itself closes it and frees the private block.
#include <cstring>

#include "raster/bmp.h"
#include "raster/bmpblock.h"
#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rowpack.h"

namespace {

constexpr int64_t kFileHeaderSize = 14;
constexpr int64_t kInfoHeaderSize = 40;
constexpr int64_t kPaletteBytes = 256 * 4;
// The longest info header published (the fifth version) minus its size word.
constexpr int64_t kLongestHeaderRest = 124 - 4;
// A file row larger than this is refused as out of memory: no real photo has
// one, and a forged header must not make us allocate gigabytes.
constexpr int64_t kMaxStride = int64_t{256} << 20;
constexpr float kDefaultResolution = 300.0f;
constexpr double kMetresPerInch = 0.0254;

struct BmpPriv;
using UnpackRow = void (*)(const BmpPriv &bmp, const uint8_t *row, uint8_t *const *planes);
using PackRow = void (*)(const BmpPriv &bmp, uint8_t *row, uint8_t *const *planes);

struct BmpPriv {
  int64_t dataOffset;
  uint8_t *row;  // one file row of `stride` bytes
  uint32_t width;
  uint32_t height;
  uint8_t topDown;
  uint32_t bytesPerPixel;
  uint32_t stride;
  uint32_t model;
  float resolution;
  uint8_t red[256];
  uint8_t green[256];
  uint8_t blue[256];
  // Where the file stands, so that consecutive rows need no seek; -1 when
  // unknown.
  int64_t position;
  RasSplitRowFn split;  // 24-bit rows, chosen once at open
  RasJoinRowFn join;
  UnpackRow unpack;  // reading: file row -> planes
  PackRow pack;      // writing: planes -> file row; null for models we cannot write
  BmpRowBlock block;
};

// ---- Little-endian fields, byte by byte so the host's order never matters.

uint32_t GetU16(const uint8_t *p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8;
}

uint32_t GetU32(const uint8_t *p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

int32_t GetI32(const uint8_t *p) {
  return static_cast<int32_t>(GetU32(p));
}

void PutU16(uint8_t *p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void PutU32(uint8_t *p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
  p[2] = static_cast<uint8_t>(v >> 16);
  p[3] = static_cast<uint8_t>(v >> 24);
}

// ---- Row routines, chosen once at open.

// The file keeps blue, green, red; the shared row routines take the planes in
// file order.
void UnpackBgr(const BmpPriv &bmp, const uint8_t *row, uint8_t *const *planes) {
  uint8_t *const bgr[3] = {planes[2], planes[1], planes[0]};
  bmp.split(row, bgr, bmp.width);
}

void PackBgr(const BmpPriv &bmp, uint8_t *row, uint8_t *const *planes) {
  const uint8_t *const bgr[3] = {planes[2], planes[1], planes[0]};
  bmp.join(row, bgr, bmp.width);
}

void UnpackGrayIdentity(const BmpPriv &bmp, const uint8_t *row, uint8_t *const *planes) {
  std::memcpy(planes[0], row, bmp.width);
}

void UnpackGray(const BmpPriv &bmp, const uint8_t *row, uint8_t *const *planes) {
  const uint8_t *__restrict src = row;
  uint8_t *__restrict gray = planes[0];
  const uint8_t *__restrict table = bmp.red;
  const size_t width = bmp.width;
  for (size_t x = 0; x < width; ++x)
    gray[x] = table[src[x]];
}

void UnpackPalette(const BmpPriv &bmp, const uint8_t *row, uint8_t *const *planes) {
  const uint8_t *__restrict src = row;
  uint8_t *__restrict r = planes[0];
  uint8_t *__restrict g = planes[1];
  uint8_t *__restrict b = planes[2];
  const size_t width = bmp.width;
  for (size_t x = 0; x < width; ++x) {
    const uint8_t index = src[x];
    r[x] = bmp.red[index];
    g[x] = bmp.green[index];
    b[x] = bmp.blue[index];
  }
}

// The packers never touch the padding bytes at the end of the row buffer;
// they were zeroed when it was allocated and stay zero.
void PackGray(const BmpPriv &bmp, uint8_t *row, uint8_t *const *planes) {
  std::memcpy(row, planes[0], bmp.width);
}

// ---- Private block.

BmpPriv *NewPriv() {
  auto *bmp = static_cast<BmpPriv *>(RasAlloc(sizeof(BmpPriv)));
  if (!bmp) return nullptr;
  std::memset(bmp, 0, sizeof *bmp);
  bmp->resolution = kDefaultResolution;
  // Identity palette: entries a short palette leaves out read as grey levels.
  for (int i = 0; i < 256; ++i) {
    bmp->red[i] = bmp->green[i] = bmp->blue[i] = static_cast<uint8_t>(i);
  }
  bmp->position = -1;
  return bmp;
}

// Each row padded to a multiple of 4 bytes.
int64_t StrideOf(uint32_t width, uint32_t bytesPerPixel) {
  return (int64_t{width} * bytesPerPixel + 3) & ~int64_t{3};
}

// A writer's buffer starts out zero, so the padding it stores is zero; a
// reader never reads the padding and leaves its buffer untouched.
bool AllocRow(BmpPriv *bmp, bool zero) {
  const size_t bytes = bmp->stride > 0 ? bmp->stride : 4;
  bmp->row = static_cast<uint8_t *>(RasAlloc(bytes));
  if (!bmp->row) return false;
  if (zero) std::memset(bmp->row, 0, bytes);
  return true;
}

constexpr auto PrivOf = RasFormatPriv<BmpPriv>;

void FreePriv(RasState *state) {
  auto *bmp = static_cast<BmpPriv *>(state->priv);
  if (bmp) {
    RasFree(bmp->row);
    BmpBlockFree(&bmp->block);
  }
  state->priv = RasFree(bmp);
}

// Closes the file and drops the private block, then reports the failure.
int Fail(RasState *state, const char *routine, int code, int detail) {
  if (state->file.kind != RasFileKindClosed) (void)RasFileClose(&state->file);
  FreePriv(state);
  return RasError(routine, code, detail);
}

bool IsGrayPalette(const BmpPriv &bmp) {
  for (int i = 0; i < 256; ++i) {
    if (bmp.red[i] != bmp.green[i] || bmp.red[i] != bmp.blue[i]) return false;
  }
  return true;
}

bool IsIdentity(const uint8_t *table) {
  for (int i = 0; i < 256; ++i) {
    if (table[i] != i) return false;
  }
  return true;
}

int Write(RasFile *file, const uint8_t *bytes, int64_t count) {
  int64_t n = count;
  return RasFileWrite(file, bytes, &n);
}

int ReadExact(RasFile *file, uint8_t *bytes, int64_t count) {
  int64_t n = count;
  return RasFileRead(file, bytes, &n, 1);
}

// Pixels per metre from pixels per inch, rounded; a resolution too large for
// the signed field is held at its largest value.
uint32_t PixelsPerMetre(float resolution) {
  const double ppm = static_cast<double>(resolution) / kMetresPerInch + 0.5;
  if (ppm >= 2147483647.0) return 2147483647u;
  return static_cast<uint32_t>(ppm);
}

// ---- Opening for writing.

void BuildHeaders(const BmpPriv &bmp, int64_t fileSize, uint8_t *file, uint8_t *info) {
  const bool gray = bmp.model == RasModelGray;
  std::memset(file, 0, kFileHeaderSize);
  std::memset(info, 0, kInfoHeaderSize);
  file[0] = 'B';
  file[1] = 'M';
  PutU32(file + 2, static_cast<uint32_t>(fileSize));
  PutU32(file + 10, static_cast<uint32_t>(bmp.dataOffset));
  PutU32(info + 0, kInfoHeaderSize);
  PutU32(info + 4, bmp.width);
  PutU32(info + 8, bmp.height);  // positive: rows stored bottom-up
  PutU16(info + 12, 1);
  PutU16(info + 14, gray ? 8 : 24);
  const uint32_t ppm = PixelsPerMetre(bmp.resolution);
  PutU32(info + 24, ppm);
  PutU32(info + 28, ppm);
}

int WriteHeaders(RasState *state, const BmpPriv &bmp, int64_t fileSize) {
  uint8_t file[kFileHeaderSize];
  uint8_t info[kInfoHeaderSize];
  BuildHeaders(bmp, fileSize, file, info);
  if (Write(&state->file, file, kFileHeaderSize) != RasOk)
    return Fail(state, "BmpOpen", RasErrWrite, 17);
  if (Write(&state->file, info, kInfoHeaderSize) != RasOk)
    return Fail(state, "BmpOpen", RasErrWrite, 18);
  if (bmp.model != RasModelGray) return RasOk;
  for (uint32_t i = 0; i < 256; ++i) {
    const uint8_t entry[4] = {static_cast<uint8_t>(i), static_cast<uint8_t>(i),
                              static_cast<uint8_t>(i), 0};
    if (Write(&state->file, entry, 4) != RasOk) return Fail(state, "BmpOpen", RasErrWrite, 19);
  }
  return RasOk;
}

int OpenWrite(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  // The caller sees the resolution that went into the file.
  if (!(desc->resolution > 0.0f)) desc->resolution = kDefaultResolution;
  const bool gray = desc->model == RasModelGray;
  const uint32_t bytesPerPixel = gray ? 1 : 3;
  const int64_t stride = StrideOf(desc->width, bytesPerPixel);
  const int64_t dataOffset = kFileHeaderSize + kInfoHeaderSize + (gray ? kPaletteBytes : 0);
  // The size field is 32 bits and the height a signed 32-bit field.
  if (desc->width > INT32_MAX || desc->height > INT32_MAX ||
      (stride > 0 && desc->height > (int64_t{UINT32_MAX} - dataOffset) / stride))
    return RasError("BmpOpen", RasErrArg, 21);
  const int64_t fileSize = dataOffset + stride * desc->height;

  BmpPriv *bmp = NewPriv();
  if (!bmp) return RasError("BmpOpen", RasErrMemory, 14);
  state->priv = bmp;
  bmp->width = desc->width;
  bmp->height = desc->height;
  bmp->bytesPerPixel = bytesPerPixel;
  bmp->model = desc->model;
  bmp->resolution = desc->resolution;
  bmp->dataOffset = dataOffset;
  bmp->join = RasJoinRowFor(3, false);
  bmp->pack = desc->model == RasModelRgb ? PackBgr : gray ? PackGray : nullptr;
  if (stride > kMaxStride) return Fail(state, "BmpOpen", RasErrMemory, 15);
  bmp->stride = static_cast<uint32_t>(stride);
  if (!AllocRow(bmp, true)) return Fail(state, "BmpOpen", RasErrMemory, 15);

  int64_t previous = 0;
  if (RasFileGetOption(RasFileOptExpectedSize, &previous) != RasOk) previous = 0;
  (void)RasFileSetOption(RasFileOptExpectedSize, &fileSize);
  const int opened = RasFileOpen(&state->file, name, RasFileModeWrite);
  (void)RasFileSetOption(RasFileOptExpectedSize, &previous);
  if (opened != RasOk) return Fail(state, "BmpOpen", RasErrOpen, 16);

  const int written = WriteHeaders(state, *bmp, fileSize);
  if (written != RasOk) return written;
  bmp->position = dataOffset;
  return RasOk;
}

// ---- Opening for reading.

// Shape, depth, compression and resolution from the info header after its
// size word (offsets relative to file offset 18).
int ParseInfo(RasState *state, BmpPriv *bmp, const uint8_t *rest, int64_t restSize) {
  bmp->width = GetU32(rest);
  const int32_t height = GetI32(rest + 4);
  bmp->topDown = height < 0;
  bmp->height = static_cast<uint32_t>(height < 0 ? -int64_t{height} : height);
  if (GetU16(rest + 8) != 1) return Fail(state, "BmpOpen", RasErrFormat, 8);
  const uint32_t bits = GetU16(rest + 10);
  if (bits != 8 && bits != 24) return Fail(state, "BmpOpen", RasErrUnsupported, 9);
  // A picture with no pixels is no photo, and would cost a call per empty row.
  if (bmp->width == 0 || bmp->height == 0) return Fail(state, "BmpOpen", RasErrUnsupported, 23);
  bmp->bytesPerPixel = bits / 8;
  const int64_t stride = StrideOf(bmp->width, bmp->bytesPerPixel);
  if (stride > kMaxStride) return Fail(state, "BmpOpen", RasErrMemory, 10);
  // Pixel data that a 32-bit file size cannot describe is a forged header,
  // not a photo; refusing it here spares reading millions of missing rows.
  if (stride * bmp->height > int64_t{UINT32_MAX}) return Fail(state, "BmpOpen", RasErrMemory, 22);
  bmp->stride = static_cast<uint32_t>(stride);
  if (!AllocRow(bmp, false)) return Fail(state, "BmpOpen", RasErrMemory, 10);
  if (restSize >= 16 && GetU32(rest + 12) != 0)
    return Fail(state, "BmpOpen", RasErrUnsupported, 11);
  if (restSize >= 24) bmp->resolution = static_cast<float>(GetI32(rest + 20) * kMetresPerInch);
  return RasOk;
}

// The palette fills the gap between the header and the pixel data; entries
// beyond 256 are ignored.
int ReadPalette(RasState *state, BmpPriv *bmp, int64_t position) {
  int64_t entries = (bmp->dataOffset - position) / 4;
  if (entries < 0) entries = 0;
  if (entries > 256) entries = 256;
  uint8_t entry[4];
  for (int64_t i = 0; i < entries; ++i) {
    if (ReadExact(&state->file, entry, 4) != RasOk) return Fail(state, "BmpOpen", RasErrRead, 12);
    bmp->blue[i] = entry[0];
    bmp->green[i] = entry[1];
    bmp->red[i] = entry[2];
  }
  return RasOk;
}

void ChooseModel(BmpPriv *bmp) {
  if (bmp->bytesPerPixel == 3) {
    bmp->model = RasModelRgb;
    bmp->split = RasSplitRowFor(3, false);
    bmp->unpack = UnpackBgr;
  } else if (IsGrayPalette(*bmp)) {
    bmp->model = RasModelGray;
    bmp->unpack = IsIdentity(bmp->red) ? UnpackGrayIdentity : UnpackGray;
  } else {
    bmp->model = RasModelRgb;
    bmp->unpack = UnpackPalette;
  }
}

int OpenRead(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk)
    return RasError("BmpOpen", RasErrOpen, 1);
  uint8_t header[kFileHeaderSize];
  if (ReadExact(&state->file, header, kFileHeaderSize) != RasOk)
    return Fail(state, "BmpOpen", RasErrRead, 2);
  // The first reserved word is not checked: some writers put a tag there.
  if (header[0] != 'B' || header[1] != 'M' || header[8] != 0 || header[9] != 0)
    return Fail(state, "BmpOpen", RasErrFormat, 3);

  BmpPriv *bmp = NewPriv();
  if (!bmp) return Fail(state, "BmpOpen", RasErrMemory, 4);
  state->priv = bmp;
  bmp->dataOffset = GetU32(header + 10);

  uint8_t sizeField[4];
  if (ReadExact(&state->file, sizeField, 4) != RasOk) return Fail(state, "BmpOpen", RasErrRead, 5);
  const int64_t restSize = int64_t{GetU32(sizeField)} - 4;
  if (restSize < 12) return Fail(state, "BmpOpen", RasErrFormat, 6);
  if (restSize > kLongestHeaderRest) return Fail(state, "BmpOpen", RasErrUnsupported, 20);
  uint8_t rest[kLongestHeaderRest];
  if (ReadExact(&state->file, rest, restSize) != RasOk)
    return Fail(state, "BmpOpen", RasErrRead, 7);

  const int parsed = ParseInfo(state, bmp, rest, restSize);
  if (parsed != RasOk) return parsed;
  const int paletted = ReadPalette(state, bmp, kFileHeaderSize + 4 + restSize);
  if (paletted != RasOk) return paletted;
  ChooseModel(bmp);

  const int sought = RasFileSeek(&state->file, bmp->dataOffset, 0);
  if (sought != RasOk) return Fail(state, "BmpOpen", sought, 13);
  bmp->position = bmp->dataOffset;

  desc->width = bmp->width;
  desc->height = bmp->height;
  desc->channels = bmp->model == RasModelGray ? 1 : 3;
  desc->model = bmp->model;
  desc->resolution = bmp->resolution;
  desc->format = RasFormatBmp;
  desc->flags = 0;
  desc->maxval = 255;
  return RasOk;
}

// ---- Rows.

bool PlanesFit(const RasSl *sl, uint32_t width, uint32_t channels) {
  if (width == 0) return true;
  if (sl->width < width || sl->channels < channels) return false;
  for (uint32_t k = 0; k < channels; ++k) {
    if (!sl->plane8[k]) return false;
  }
  return true;
}

int SeekTo(RasFile *file, BmpPriv *bmp, int64_t target) {
  return BmpSeekTo(file, target, &bmp->position);
}

int64_t RowPosition(const BmpPriv &bmp, uint32_t fileRow) {
  return int64_t{fileRow} * bmp.stride + bmp.dataOffset;
}

BmpLayout Layout(const BmpPriv &bmp) {
  return {bmp.dataOffset, bmp.stride, bmp.width * bmp.bytesPerPixel, bmp.height, bmp.topDown != 0};
}

// One row on its own, where a block cannot serve it. Only the pixels are
// read: a file whose last row lacks its padding still reads whole.
int ReadRowAlone(RasState *state, BmpPriv *bmp, uint32_t row) {
  const uint32_t fileRow = bmp->topDown ? row : bmp->height - row - 1;
  if (SeekTo(&state->file, bmp, RowPosition(*bmp, fileRow)) != RasOk)
    return Fail(state, "BmpReadSl", RasErrSeek, 3);
  const int64_t bytes = int64_t{bmp->width} * bmp->bytesPerPixel;
  if (ReadExact(&state->file, bmp->row, bytes) != RasOk)
    return Fail(state, "BmpReadSl", RasErrRead, 4);
  bmp->position += bytes;
  return RasOk;
}

// Always bottom-up: the header carries a positive height. Moving back
// writes out the rows buffered so far, so this is where a full disk shows
// (-6).
int WriteRowAlone(RasState *state, BmpPriv *bmp, uint32_t row, const RasSl *sl) {
  const int sought = SeekTo(&state->file, bmp, RowPosition(*bmp, bmp->height - row - 1));
  if (sought != RasOk) return Fail(state, "BmpWriteSl", sought, 3);
  if (bmp->width > 0) bmp->pack(*bmp, bmp->row, sl->plane8);
  if (Write(&state->file, bmp->row, bmp->stride) != RasOk) {
    return Fail(state, "BmpWriteSl", RasErrWrite, bmp->model == RasModelGray ? 4 : 5);
  }
  bmp->position += bmp->stride;
  return RasOk;
}

// The rows waiting in the block, written in one call; a failure is reported
// as `routine` with `detail`.
int WriteBlock(RasState *state, BmpPriv *bmp, const char *routine, int detail) {
  const int code = BmpBlockWrite(&state->file, &bmp->block, Layout(*bmp), &bmp->position);
  return code == RasOk ? RasOk : Fail(state, routine, RasErrWrite, detail);
}

}  // namespace

int BmpOpen(const char *name, char mode, RasDesc *desc) {
  if (!name || !desc || !desc->state || (mode != 'r' && mode != 'w'))
    return RasError("BmpOpen", RasErrArg, 0);
  RasState *state = desc->state;
  RasCopyName(state->name, name);
  state->mode = mode;
  state->priv = nullptr;
  return mode == 'w' ? OpenWrite(name, desc) : OpenRead(name, desc);
}

int BmpReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  if (!desc || !sl) return RasError("BmpReadSl", RasErrArg, 0);
  RasState *state = desc->state;
  if (!state || state->file.kind == RasFileKindClosed) return RasError("BmpReadSl", RasErrRead, 1);
  if (!state->priv) return Fail(state, "BmpReadSl", RasErrArg, 2);
  BmpPriv *bmp = PrivOf(desc);
  if (state->mode != 'r') return RasError("BmpReadSl", RasErrArg, 7);
  if (row >= bmp->height) return RasError("BmpReadSl", RasErrArg, 5);
  const uint32_t channels = bmp->model == RasModelGray ? 1 : 3;
  if (sl->width == 0 || sl->channels == 0) {
    const int made = RasMakeSl(sl, desc);
    if (made != RasOk) return RasError("BmpReadSl", made, 8);
  }
  if (!PlanesFit(sl, bmp->width, channels)) return RasError("BmpReadSl", RasErrArg, 6);

  const uint8_t *pixels = BmpBlockHeld(bmp->block, Layout(*bmp), row);
  if (!pixels && BmpBlockInOrder(state->file, &bmp->block, Layout(*bmp), row)) {
    const int code = BmpBlockRead(&state->file, &bmp->block, Layout(*bmp), row, &bmp->position);
    if (code == RasErrSeek) return Fail(state, "BmpReadSl", RasErrSeek, 3);
    if (code == RasErrRead) return Fail(state, "BmpReadSl", RasErrRead, 4);
    if (code == RasOk) pixels = BmpBlockHeld(bmp->block, Layout(*bmp), row);
  }
  if (!pixels) {
    const int code = ReadRowAlone(state, bmp, row);
    if (code != RasOk) return code;
    pixels = bmp->row;
  }
  bmp->block.next = row + 1;
  if (bmp->width > 0) bmp->unpack(*bmp, pixels, sl->plane8);
  return RasOk;
}

int BmpWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  if (!desc || !sl) return RasError("BmpWriteSl", RasErrArg, 0);
  RasState *state = desc->state;
  if (!state || state->file.kind == RasFileKindClosed) return RasError("BmpWriteSl", RasErrArg, 1);
  if (!state->priv) return Fail(state, "BmpWriteSl", RasErrArg, 2);
  BmpPriv *bmp = PrivOf(desc);
  if (state->mode != 'w') return RasError("BmpWriteSl", RasErrArg, 9);
  if (row >= bmp->height) return RasError("BmpWriteSl", RasErrArg, 7);
  const uint32_t channels = bmp->model == RasModelGray ? 1 : 3;
  if (bmp->pack && !PlanesFit(sl, bmp->width, channels))
    return RasError("BmpWriteSl", RasErrArg, 8);

  if (!bmp->pack) return Fail(state, "BmpWriteSl", RasErrArg, 6);
  if (BmpBlockInOrder(state->file, &bmp->block, Layout(*bmp), row)) {
    if (bmp->width > 0) bmp->pack(*bmp, BmpBlockSlot(&bmp->block, Layout(*bmp), row), sl->plane8);
    if (!BmpBlockPacked(&bmp->block)) return RasOk;
    return WriteBlock(state, bmp, "BmpWriteSl", bmp->model == RasModelGray ? 4 : 5);
  }
  // Rows waiting in the block go out first, so that a row written again
  // lands over them.
  const int waiting = WriteBlock(state, bmp, "BmpWriteSl", 3);
  if (waiting != RasOk) return waiting;
  bmp->block.next = row + 1;
  return WriteRowAlone(state, bmp, row, sl);
}

int BmpClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  RasState *state = desc->state;
  // Closing writes out the last buffered rows of a file being written.
  if (state->priv && state->mode == 'w' && state->file.kind != RasFileKindClosed) {
    BmpPriv *bmp = PrivOf(desc);
    if (BmpBlockWrite(&state->file, &bmp->block, Layout(*bmp), &bmp->position) != RasOk)
      return Fail(state, "BmpClose", RasErrWrite, 1);
  }
  const int closed = RasFormatCloseFile(state);
  FreePriv(state);
  return closed != RasOk ? RasError("BmpClose", closed, 1) : RasOk;
}

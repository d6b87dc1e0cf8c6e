// Targa reader and writer (format 2): uncompressed colour-mapped (type 1),
// true-colour (type 2) and grey (type 3) files. Every row's place in the file
// is computed from its number, so rows go in any order.
//
// Kept as the program has always had them:
//   - Rows are read bottom-up whatever the image descriptor says, so files
//     with a top-left origin come out upside down.
//   - A 24- or 32-bit colour map puts the entry's first byte (blue, in Targa
//     terms) into the red plane; 15- and 16-bit maps come out right.
//   - Colour-mapped rows are one index byte a pixel, grey rows one byte a
//     pixel, whatever the pixel depth field says.
//   - The colour map's first-entry field is not applied: indices address the
//     map from 0.
//
// Choices made where the format leaves room:
//   - A colour-mapped image whose file declares no colour map has nothing to
//     look its indices up in; its rows are refused with -8, the open is not.
//   - The colour tables hold 256 entries whatever the map's length, entries
//     the map does not give being black, so no index byte reads outside them.
//   - A picture of width or height 0 is refused at the open (-9): a 16-bit
//     field of 0 is no photo.
//   - Row reads and writes that fail at the file close it and drop the
//     private block, as the open does; argument refusals leave it open.
//
// Failure details not given by the format's own checks:
//   TargaOpen     0 null argument or no state block; 16 unknown mode;
//                 17 width or height 0 (-9).
//   TargaReadSl   0, 1 null descriptor or record; 2 not open for reading;
//                 14 a colour-mapped image without colour map (-8); 15 row at
//                 or beyond the height; 16 planes could not be made; 17 the
//                 record is too narrow or misses a plane.
//   TargaWriteSl  0, 1 null descriptor or record; 2 not open for writing;
//                 9 row at or beyond the height; 10 record too narrow or
//                 missing a plane.
//   TargaClose    1 the last buffered rows could not be written (-6).
#include <cstring>

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rowpack.h"
#include "raster/targa.h"

namespace {

constexpr int64_t kHeaderSize = 18;
constexpr float kDefaultResolution = 300.0f;
constexpr uint32_t kTableEntries = 256;

enum : uint32_t {
  kTypeMapped = 1,
  kTypeTrueColour = 2,
  kTypeGrey = 3,
  kTypeMappedRle = 9,
  kTypeTrueColourRle = 10,
  kTypeGreyRle = 11,
};

// The header's fields widened to words, in the header's order, after the
// bookkeeping of the open file.
struct TargaPriv {
  int64_t dataOffset;
  uint8_t *row;  // one file row, allocated on first use
  uint32_t spare;
  uint32_t rowBytes;
  uint32_t idLength;
  uint32_t mapType;
  uint32_t imageType;
  uint32_t mapFirst;
  uint32_t mapLength;
  uint32_t mapEntrySize;
  uint32_t xOrigin;
  uint32_t yOrigin;
  uint32_t width;
  uint32_t height;
  uint32_t depth;
  uint32_t descriptor;
  char *id;
  uint8_t *table[3];  // red, green, blue planes of the map
};

// v x 255 / 31 rounded: what a 5-bit sample is on the 8-bit scale.
constexpr uint8_t Scale5(uint32_t v) {
  return static_cast<uint8_t>((v * 255 + 15) / 31);
}

struct Scale5Table {
  uint8_t v[32];
  constexpr Scale5Table() : v{} {
    for (uint32_t i = 0; i < 32; ++i)
      v[i] = Scale5(i);
  }
};
constexpr Scale5Table kScale5;

constexpr auto PrivOf = RasFormatPriv<TargaPriv>;

TargaPriv *NewPriv() {
  auto *t = static_cast<TargaPriv *>(RasAlloc(sizeof(TargaPriv)));
  if (!t) return nullptr;
  std::memset(t, 0, sizeof *t);
  t->imageType = kTypeTrueColour;
  t->depth = 24;
  return t;
}

void FreePriv(RasState *state) {
  auto *t = static_cast<TargaPriv *>(state->priv);
  if (t) {
    RasFree(t->row);
    RasFree(t->id);
    for (uint8_t *table : t->table)
      RasFree(table);
  }
  state->priv = RasFree(t);
}

// Closes the file and drops the private block, then reports.
int Fail(RasState *state, const char *routine, int code, int detail) {
  RasFormatDropFile(state, false);
  FreePriv(state);
  return RasError(routine, code, detail);
}

void Unpack(TargaPriv *t, const uint8_t *header) {
  t->idLength = header[0];
  t->mapType = header[1];
  t->imageType = header[2];
  t->mapFirst = RasGet16(header + 3, false);
  t->mapLength = RasGet16(header + 5, false);
  t->mapEntrySize = header[7];
  t->xOrigin = RasGet16(header + 8, false);
  t->yOrigin = RasGet16(header + 10, false);
  t->width = RasGet16(header + 12, false);
  t->height = RasGet16(header + 14, false);
  t->depth = header[16];
  t->descriptor = header[17];
}

int TargaCheckTRH(const TargaPriv &t) {
  if (t.imageType == kTypeMappedRle || t.imageType == kTypeTrueColourRle ||
      t.imageType == kTypeGreyRle)
    return RasError("TargaCheckTRH", RasErrUnsupported, 0);
  if (t.mapType != 0 && t.mapType != 1) return RasError("TargaCheckTRH", RasErrFormat, 1);
  if (t.imageType != kTypeMapped && t.imageType != kTypeTrueColour && t.imageType != kTypeGrey)
    return RasError("TargaCheckTRH", RasErrFormat, 2);
  const uint32_t e = t.mapEntrySize;
  if (e != 0 && e != 15 && e != 16 && e != 24 && e != 32)
    return RasError("TargaCheckTRH", RasErrFormat, 3);
  const uint32_t d = t.depth;
  if (d != 8 && d != 16 && d != 24 && d != 32) return RasError("TargaCheckTRH", RasErrFormat, 4);
  return RasOk;
}

// Reads the map and spreads its entries over the three tables.
int ReadColourMap(RasState *state, TargaPriv *t) {
  const uint32_t bytesPerEntry = (t->mapEntrySize + 7) / 8;
  const int64_t bytes = int64_t{t->mapLength} * bytesPerEntry;
  auto *map = static_cast<uint8_t *>(RasAlloc(bytes > 0 ? static_cast<size_t>(bytes) : 1));
  if (!map) return Fail(state, "TargaOpen", RasErrMemory, 7);
  if (bytes > 0 && RasFormatRead(&state->file, map, bytes) != RasOk) {
    RasFree(map);
    return Fail(state, "TargaOpen", RasErrRead, 8);
  }
  for (int k = 0; k < 3; ++k) {
    t->table[k] = static_cast<uint8_t *>(RasAlloc(kTableEntries));
    if (!t->table[k]) {
      RasFree(map);
      return Fail(state, "TargaOpen", RasErrMemory, 9 + k);
    }
    std::memset(t->table[k], 0, kTableEntries);
  }
  const uint32_t entries = t->mapLength < kTableEntries ? t->mapLength : kTableEntries;
  switch (t->mapEntrySize) {
    case 15:
    case 16:
      for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t v = RasGet16(map + 2 * i, false);
        t->table[0][i] = kScale5.v[(v >> 10) & 31];
        t->table[1][i] = kScale5.v[(v >> 5) & 31];
        t->table[2][i] = kScale5.v[v & 31];
      }
      break;
    case 24:
    case 32:
      for (uint32_t i = 0; i < entries; ++i) {
        const uint8_t *entry = map + i * bytesPerEntry;
        for (int k = 0; k < 3; ++k)
          t->table[k][i] = entry[k];
      }
      break;
    default:
      RasFree(map);
      return Fail(state, "TargaOpen", RasErrFormat, 12);
  }
  RasFree(map);
  return RasOk;
}

int OpenRead(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  const int opened = RasFileOpen(&state->file, name, RasFileModeRead);
  if (opened != RasOk) return RasError("TargaOpen", RasErrOpen, 1);
  uint8_t header[kHeaderSize];
  if (RasFormatRead(&state->file, header, kHeaderSize) != RasOk)
    return Fail(state, "TargaOpen", RasErrRead, 2);
  TargaPriv *t = NewPriv();
  if (!t) return Fail(state, "TargaOpen", RasErrMemory, 3);
  state->priv = t;
  Unpack(t, header);
  const int checked = TargaCheckTRH(*t);
  if (checked != RasOk) return Fail(state, "TargaOpen", checked, 4);
  if (t->width == 0 || t->height == 0) return Fail(state, "TargaOpen", RasErrUnsupported, 17);

  if (t->idLength != 0) {
    t->id = static_cast<char *>(RasAlloc(t->idLength + 1));
    if (!t->id) return Fail(state, "TargaOpen", RasErrMemory, 5);
    if (RasFormatRead(&state->file, t->id, t->idLength) != RasOk)
      return Fail(state, "TargaOpen", RasErrRead, 6);
    t->id[t->idLength] = 0;
  }
  if (t->mapType == 1) {
    const int mapped = ReadColourMap(state, t);
    if (mapped != RasOk) return mapped;
  }
  t->dataOffset = kHeaderSize + t->idLength +
                  (t->mapType == 1 ? int64_t{t->mapLength} * ((t->mapEntrySize + 7) / 8) : 0);

  const bool grey = t->imageType == kTypeGrey;
  desc->width = t->width;
  desc->height = t->height;
  desc->channels = grey ? 1 : 3;
  desc->model = grey ? RasModelGray : RasModelRgb;
  desc->resolution = -1.0f;
  desc->format = RasFormatTarga;
  desc->flags = 0;
  desc->maxval = 255;
  return RasOk;
}

int OpenWrite(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  // Targa carries no resolution; the caller still learns the one assumed.
  if (!(desc->resolution > 0.0f)) desc->resolution = kDefaultResolution;
  const int64_t expected =
      int64_t{desc->channels} * desc->width * int64_t{desc->height} + kHeaderSize;
  const int opened = RasFormatOpenWrite(&state->file, name, expected);
  if (opened != RasOk) return RasError("TargaOpen", RasErrOpen, 13);
  TargaPriv *t = NewPriv();
  if (!t) return Fail(state, "TargaOpen", RasErrMemory, 14);
  state->priv = t;
  const bool grey = desc->channels == 1;
  t->imageType = grey ? kTypeGrey : kTypeTrueColour;
  t->depth = grey ? 8 : 24;
  t->width = desc->width;
  t->height = desc->height;

  uint8_t header[kHeaderSize] = {};
  header[2] = static_cast<uint8_t>(t->imageType);
  // Larger pictures are cut to the 16 bits the fields hold.
  RasPut16(header + 12, t->width & 0xFFFF, false);
  RasPut16(header + 14, t->height & 0xFFFF, false);
  header[16] = static_cast<uint8_t>(t->depth);
  if (RasFormatWrite(&state->file, header, kHeaderSize) != RasOk)
    return Fail(state, "TargaOpen", RasErrWrite, 15);
  t->dataOffset = kHeaderSize;
  return RasOk;
}

// The file row that holds image row `row`: the last row in the file is the top.
int64_t RowPosition(const TargaPriv &t, uint32_t row, uint32_t rowBytes) {
  return int64_t{t.height - row - 1} * rowBytes + t.dataOffset;
}

bool EnsureRow(TargaPriv *t, uint32_t bytes) {
  if (t->row) return true;
  t->row = static_cast<uint8_t *>(RasAlloc(bytes));
  t->rowBytes = t->row ? bytes : 0;
  return t->row != nullptr;
}

void Unpack16(const uint8_t *src, uint8_t *const *planes, uint32_t width) {
  for (uint32_t x = 0; x < width; ++x) {
    const uint32_t v = RasGet16(src + 2 * x, false);
    planes[0][x] = kScale5.v[(v >> 10) & 31];
    planes[1][x] = kScale5.v[(v >> 5) & 31];
    planes[2][x] = kScale5.v[v & 31];
  }
}

// Blue, green, red and a fourth byte that is skipped.
void Unpack32(const uint8_t *src, uint8_t *const *planes, uint32_t width) {
  for (uint32_t x = 0; x < width; ++x, src += 4) {
    planes[2][x] = src[0];
    planes[1][x] = src[1];
    planes[0][x] = src[2];
  }
}

int ReadMapped(RasState *state, TargaPriv *t, uint32_t row, RasSl *sl) {
  if (!t->table[0]) return RasError("TargaReadSl", RasErrFormat, 14);
  if (RasFileSeek(&state->file, RowPosition(*t, row, t->width), 0) != RasOk)
    return Fail(state, "TargaReadSl", RasErrSeek, 3);
  uint8_t *index = sl->plane8[0];
  if (RasFormatRead(&state->file, index, t->width) != RasOk)
    return Fail(state, "TargaReadSl", RasErrRead, 4);
  // Plane 0 holds the indices until the last table has been applied.
  for (uint32_t x = 0; x < t->width; ++x) {
    const uint8_t i = index[x];
    sl->plane8[2][x] = t->table[2][i];
    sl->plane8[1][x] = t->table[1][i];
    sl->plane8[0][x] = t->table[0][i];
  }
  return RasOk;
}

int ReadTrueColour(RasState *state, TargaPriv *t, uint32_t row, RasSl *sl) {
  const uint32_t bytes = (t->depth + 7) / 8 * t->width;
  if (!EnsureRow(t, bytes)) return Fail(state, "TargaReadSl", RasErrMemory, 5);
  if (RasFileSeek(&state->file, RowPosition(*t, row, bytes), 0) != RasOk)
    return Fail(state, "TargaReadSl", RasErrSeek, 6);
  if (RasFormatRead(&state->file, t->row, bytes) != RasOk)
    return Fail(state, "TargaReadSl", RasErrRead, 7);
  uint8_t *const bgr[3] = {sl->plane8[2], sl->plane8[1], sl->plane8[0]};
  switch (t->depth) {
    case 16:
      Unpack16(t->row, sl->plane8, t->width);
      return RasOk;
    case 24:
      RasSplitRowFor(3, false)(t->row, bgr, t->width);
      return RasOk;
    case 32:
      Unpack32(t->row, sl->plane8, t->width);
      return RasOk;
    default:
      return Fail(state, "TargaReadSl", RasErrArg, 8);
  }
}

int ReadGrey(RasState *state, TargaPriv *t, uint32_t row, RasSl *sl) {
  if (RasFileSeek(&state->file, RowPosition(*t, row, t->width), 0) != RasOk)
    return Fail(state, "TargaReadSl", RasErrSeek, 9);
  if (RasFormatRead(&state->file, sl->plane8[0], t->width) != RasOk)
    return Fail(state, "TargaReadSl", RasErrRead, 10);
  return RasOk;
}

}  // namespace

int TargaOpen(const char *name, char mode, RasDesc *desc) {
  return RasFormatOpen("TargaOpen", name, mode, desc, 16, OpenRead, OpenWrite);
}

int TargaReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state = RasFormatRowState("TargaReadSl", desc, sl, 'r', &code);
  if (!state) return code;
  TargaPriv *t = PrivOf(desc);
  if (row >= t->height) return RasError("TargaReadSl", RasErrArg, 15);
  const uint32_t channels = t->imageType == kTypeGrey ? 1 : 3;
  const int made = RasFormatMakePlanes(sl, desc);
  if (made != RasOk) return RasError("TargaReadSl", made, 16);
  if (!RasFormatPlanesFit(sl, t->width, channels, false))
    return RasError("TargaReadSl", RasErrArg, 17);
  switch (t->imageType) {
    case kTypeMapped:
      return ReadMapped(state, t, row, sl);
    case kTypeTrueColour:
      return ReadTrueColour(state, t, row, sl);
    case kTypeGrey:
      return ReadGrey(state, t, row, sl);
    case kTypeMappedRle:
      return Fail(state, "TargaReadSl", RasErrUnsupported, 11);
    case kTypeTrueColourRle:
      return Fail(state, "TargaReadSl", RasErrUnsupported, 12);
    default:
      return Fail(state, "TargaReadSl", RasErrUnsupported, 13);
  }
}

int TargaWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  int code = RasOk;
  RasState *state = RasFormatRowState("TargaWriteSl", desc, sl, 'w', &code);
  if (!state) return code;
  TargaPriv *t = PrivOf(desc);
  if (row >= t->height) return RasError("TargaWriteSl", RasErrArg, 9);
  switch (desc->model) {
    case RasModelGray:
      if (!RasFormatPlanesFit(sl, t->width, 1, false))
        return RasError("TargaWriteSl", RasErrArg, 10);
      // Moving writes out the rows buffered so far: a full disk shows here
      // as the seek's -6.
      if (const int code = RasFileSeek(&state->file, RowPosition(*t, row, t->width), 0))
        return Fail(state, "TargaWriteSl", code, 3);
      if (RasFormatWrite(&state->file, sl->plane8[0], t->width) != RasOk)
        return Fail(state, "TargaWriteSl", RasErrWrite, 4);
      return RasOk;
    case RasModelRgb:
    case RasModelYcc: {
      if (!RasFormatPlanesFit(sl, t->width, 3, false))
        return RasError("TargaWriteSl", RasErrArg, 10);
      const uint32_t bytes = 3 * t->width;
      if (!EnsureRow(t, bytes)) return Fail(state, "TargaWriteSl", RasErrMemory, 5);
      const uint8_t *const bgr[3] = {sl->plane8[2], sl->plane8[1], sl->plane8[0]};
      RasJoinRowFor(3, false)(t->row, bgr, t->width);
      if (const int code = RasFileSeek(&state->file, RowPosition(*t, row, bytes), 0))
        return Fail(state, "TargaWriteSl", code, 6);
      if (RasFormatWrite(&state->file, t->row, bytes) != RasOk)
        return Fail(state, "TargaWriteSl", RasErrWrite, 7);
      return RasOk;
    }
    default:
      return RasError("TargaWriteSl", RasErrArg, 8);
  }
}

int TargaClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  // Closing writes out the last buffered rows of a file being written.
  const int code = RasFormatCloseFile(desc->state);
  FreePriv(desc->state);
  return code == RasOk ? RasOk : RasError("TargaClose", code, 1);
}

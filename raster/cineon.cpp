// Cineon reader and writer (format 8): the published film-scan layout, a
// 1024-byte generic header (file information, then image information, data
// format and origination), an industry header and user data the reader
// passes over, and rows of 10-bit samples packed three to a 32-bit word, left
// justified (packing 5), pixel-interleaved. Samples reach the caller's 16-bit
// planes as the file's code values, 0 to 1023 (maxval 1023).
//
// Choices made where the format leaves room:
//   - The magic number decides the byte order of every integer and float
//     field and of the data words; files in either order are read. Files are
//     written big-endian, the order of the original system.
//   - Read: 1 channel (grey) or 3 (RGB), all of 10 bits and of one size,
//     packing 5, unsigned, pixel-interleaved; anything else is refused with
//     -9. End-of-line padding is honoured; rows start on a word.
//   - The X input pitch, in samples per millimetre, gives the resolution
//     when it is a plausible number; otherwise the resolution is unknown.
//     The writer stores the resolution there.
//   - The writer takes grey (1 channel) and RGB or YCC (3 channels), larger
//     samples clipped to 1023; it writes no date, time or device names, so
//     equal pictures give equal files, and an industry header of 1024 bytes
//     marked undefined (all ones) as the format does for fields not known.
//   - Rows are addressed by position, so they go in any order.
//
// Failure details:
//   CineonOpen     0 null argument or no state block; 1 unknown mode;
//                  reading: 2 open; 3 header short (-8); 4 magic (-8);
//                  5 header lengths or data offset (-8); 6 channels, depth,
//                  size or packing not handled (-9); 7 file shorter than
//                  its rows (-8); 8 private block; 9 row buffer; 10 file size.
//                  writing: 11 descriptor not writable (-1); 12 private
//                  block or row buffer; 13 open; 14 header write (-6).
//   CineonReadSl   0 null argument; 1 not open for reading; 2 row beyond
//                  the height; 3 planes could not be made; 4 record too
//                  narrow; 5 seek; 6 read.
//   CineonWriteSl  0 null argument; 1 not open for writing; 2 row beyond
//                  the height; 3 record too narrow; 4 seek; 5 write.
#include <cmath>
#include <cstring>

#include "raster/cineon.h"
#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rasstr.h"

namespace {

constexpr uint32_t kMagic = 0x802A5FD7;
constexpr int64_t kGenericSize = 1024, kIndustrySize = 1024;
constexpr int64_t kWrittenOffset = kGenericSize + kIndustrySize;
constexpr uint32_t kMaxDimension = uint32_t{1} << 20, kMaxPadding = 1u << 16;
constexpr uint32_t kMaxCode = 1023;
constexpr double kMillimetresPerInch = 25.4;

// Generic header offsets, a line for each part: file information, image
// information, the channel table, data format and origination.
constexpr size_t kAtMagic = 0, kAtImageOffset = 4, kAtGenericSize = 8, kAtIndustrySize = 12,
                 kAtUserSize = 16, kAtFileSize = 20, kAtVersion = 24, kAtFileName = 32;
constexpr size_t kAtOrientation = 192, kAtChannels = 193;
constexpr size_t kAtChannelInfo = 196;  // eight entries of 28 bytes
constexpr size_t kAtInterleave = 680, kAtPacking = 681, kAtSigned = 682, kAtSense = 683,
                 kAtLinePadding = 684, kAtChannelPadding = 688;
constexpr size_t kAtXPitch = 972, kAtYPitch = 976;

// Within a channel entry: what the channel is, its size, then the code
// values and quantities its range maps.
constexpr size_t kChDesignator = 0, kChBits = 2, kChWidth = 4, kChHeight = 8;
constexpr size_t kChMinData = 12, kChMinQuantity = 16, kChMaxData = 20, kChMaxQuantity = 24;
constexpr size_t kChannelEntry = 28;

constexpr uint32_t kPackingLongwordLeft = 5;

struct CineonPriv {
  bool big;
  int64_t dataOffset;
  uint32_t width, height, channels;
  uint32_t rowBytes;  // packed samples and the end-of-line padding
  uint32_t words;     // words of packed samples a row
  uint8_t *row;
  int64_t position;  // where the file stands, -1 when unknown
};

// Written files are big-endian.
void Put32(uint8_t *p, uint32_t v) {
  RasPut32(p, v, true);
}

float GetFloat(const uint8_t *p, bool big) {
  const uint32_t bits = RasGet32(p, big);
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

void PutFloat(uint8_t *p, float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  Put32(p, bits);
}

constexpr auto PrivOf = RasFormatPriv<CineonPriv>;

void FreePriv(RasState *state) {
  auto *c = static_cast<CineonPriv *>(state->priv);
  if (c) RasFree(c->row);
  state->priv = RasFree(c);
}

int FailOpen(RasState *state, int code, int detail) {
  RasFormatDropFile(state, true);
  FreePriv(state);
  return RasError("CineonOpen", code, detail);
}

// Three samples a word, the first in the top bits.
void SetShape(CineonPriv *c, uint32_t padding) {
  c->words = static_cast<uint32_t>((uint64_t{c->width} * c->channels + 2) / 3);
  c->rowBytes = 4 * c->words + padding;
}

bool ChannelsAgree(const uint8_t *h, bool big, uint32_t channels) {
  const uint8_t *first = h + kAtChannelInfo;
  for (uint32_t k = 0; k < channels; ++k) {
    const uint8_t *e = first + k * kChannelEntry;
    if (e[kChBits] != 10) return false;
    if (RasGet32(e + kChWidth, big) != RasGet32(first + kChWidth, big)) return false;
    if (RasGet32(e + kChHeight, big) != RasGet32(first + kChHeight, big)) return false;
  }
  return true;
}

float ResolutionOf(const uint8_t *h, bool big) {
  const float pitch = GetFloat(h + kAtXPitch, big);
  if (!std::isfinite(pitch) || pitch <= 0.0f || pitch > 100000.0f) return -1.0f;
  return static_cast<float>(pitch * kMillimetresPerInch);
}

int OpenRead(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  RasFile *file = &state->file;
  uint8_t h[kGenericSize];
  int code = RasFormatOpenHeader("CineonOpen", state, name, h, kGenericSize, 2);
  if (code != RasOk) return code;
  bool big;
  if (RasGet32(h + kAtMagic, true) == kMagic)
    big = true;
  else if (RasGet32(h + kAtMagic, false) == kMagic)
    big = false;
  else
    return FailOpen(state, RasErrFormat, 4);
  const uint32_t offset = RasGet32(h + kAtImageOffset, big);
  const uint32_t generic = RasGet32(h + kAtGenericSize, big);
  if (generic < kGenericSize || offset < generic) return FailOpen(state, RasErrFormat, 5);
  const uint32_t channels = h[kAtChannels];
  const uint8_t *first = h + kAtChannelInfo;
  const uint32_t width = RasGet32(first + kChWidth, big);
  const uint32_t height = RasGet32(first + kChHeight, big);
  const uint32_t padding = RasGet32(h + kAtLinePadding, big);
  if ((channels != 1 && channels != 3) || !ChannelsAgree(h, big, channels) || width == 0 ||
      height == 0 || width > kMaxDimension || height > kMaxDimension ||
      h[kAtPacking] != kPackingLongwordLeft || h[kAtSigned] != 0 ||
      (channels > 1 && h[kAtInterleave] != 0) || padding > kMaxPadding)
    return FailOpen(state, RasErrUnsupported, 6);

  auto *c = static_cast<CineonPriv *>(RasAlloc(sizeof(CineonPriv)));
  if (!c) return FailOpen(state, RasErrMemory, 8);
  std::memset(c, 0, sizeof *c);
  state->priv = c;
  c->big = big;
  c->dataOffset = offset;
  c->width = width;
  c->height = height;
  c->channels = channels;
  SetShape(c, padding);
  int64_t size = 0;
  code = RasFileSeek(file, 0, 2);
  if (code == RasOk) code = RasFileTell(file, &size);
  if (code != RasOk) return FailOpen(state, code, 10);
  c->position = size;
  // The last row needs its samples, not its padding.
  const int64_t end = c->dataOffset + int64_t{c->rowBytes} * (height - 1) + 4 * int64_t{c->words};
  if (size < end) return FailOpen(state, RasErrFormat, 7);
  c->row = static_cast<uint8_t *>(RasAlloc(c->rowBytes));
  if (!c->row) return FailOpen(state, RasErrMemory, 9);

  desc->width = width;
  desc->height = height;
  desc->channels = channels;
  desc->model = channels == 3 ? RasModelRgb : RasModelGray;
  desc->resolution = ResolutionOf(h, big);
  desc->format = RasFormatCineon;
  desc->flags = 0;
  desc->maxval = kMaxCode;
  return RasOk;
}

void BuildHeader(const char *name, const RasDesc &desc, const CineonPriv &c, uint8_t *h) {
  std::memset(h, 0, kGenericSize);
  std::memset(h + kGenericSize, 0xFF, kIndustrySize);
  Put32(h + kAtMagic, kMagic);
  Put32(h + kAtImageOffset, static_cast<uint32_t>(kWrittenOffset));
  Put32(h + kAtGenericSize, kGenericSize);
  Put32(h + kAtIndustrySize, kIndustrySize);
  Put32(h + kAtUserSize, 0);
  Put32(h + kAtFileSize, static_cast<uint32_t>(kWrittenOffset + uint64_t{c.rowBytes} * c.height));
  RasStrCpy(reinterpret_cast<char *>(h + kAtVersion), "V4.5");
  // The name without its folders, as far as the field holds it.
  if (!RasIsMemName(name)) {
    const char *slash = RasStrRChr(name, '/');
    RasStrNCpy(reinterpret_cast<char *>(h + kAtFileName), slash ? slash + 1 : name, 99);
  }
  h[kAtOrientation] = 0;
  h[kAtChannels] = static_cast<uint8_t>(c.channels);
  for (uint32_t k = 0; k < c.channels; ++k) {
    uint8_t *e = h + kAtChannelInfo + k * kChannelEntry;
    e[kChDesignator] = 0;  // universal metric
    e[kChDesignator + 1] = static_cast<uint8_t>(c.channels == 3 ? k + 1 : 0);
    e[kChBits] = 10;
    Put32(e + kChWidth, c.width);
    Put32(e + kChHeight, c.height);
    PutFloat(e + kChMinData, 0.0f);
    PutFloat(e + kChMinQuantity, 0.0f);
    PutFloat(e + kChMaxData, static_cast<float>(kMaxCode));
    PutFloat(e + kChMaxQuantity, 2.048f);  // printing density
  }
  h[kAtInterleave] = 0;
  h[kAtPacking] = kPackingLongwordLeft;
  h[kAtSigned] = 0;
  h[kAtSense] = 0;
  Put32(h + kAtLinePadding, 0);
  Put32(h + kAtChannelPadding, 0);
  const float pitch = static_cast<float>(desc.resolution / kMillimetresPerInch);
  PutFloat(h + kAtXPitch, pitch);
  PutFloat(h + kAtYPitch, pitch);
}

int OpenWrite(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  const bool grey = desc->model == RasModelGray && desc->channels == 1;
  const bool colour =
      (desc->model == RasModelRgb || desc->model == RasModelYcc) && desc->channels == 3;
  if ((!grey && !colour) || desc->width == 0 || desc->height == 0 || desc->width > kMaxDimension ||
      desc->height > kMaxDimension)
    return RasError("CineonOpen", RasErrArg, 11);
  if (!(desc->resolution > 0.0f)) desc->resolution = 300.0f;
  auto *c = static_cast<CineonPriv *>(RasAlloc(sizeof(CineonPriv)));
  if (!c) return RasError("CineonOpen", RasErrMemory, 12);
  std::memset(c, 0, sizeof *c);
  state->priv = c;
  c->big = true;
  c->dataOffset = kWrittenOffset;
  c->width = desc->width;
  c->height = desc->height;
  c->channels = desc->channels;
  SetShape(c, 0);
  c->row = static_cast<uint8_t *>(RasAlloc(c->rowBytes));
  if (!c->row) return FailOpen(state, RasErrMemory, 12);

  const int64_t expected = kWrittenOffset + int64_t{c->rowBytes} * c->height;
  const int opened = RasFormatOpenWrite(&state->file, name, expected);
  if (opened != RasOk) return FailOpen(state, opened, 13);
  uint8_t h[kWrittenOffset];
  BuildHeader(name, *desc, *c, h);
  int64_t count = kWrittenOffset;
  if (RasFileWrite(&state->file, h, &count) != RasOk) return FailOpen(state, RasErrWrite, 14);
  c->position = kWrittenOffset;
  return RasOk;
}

bool PlanesFit(const RasSl *sl, const CineonPriv &c) {
  return RasFormatPlanesFit(sl, c.width, c.channels, true);
}

int SeekRow(RasFile *file, CineonPriv *c, uint32_t row) {
  return RasFormatSeek(file, &c->position, c->dataOffset + int64_t{row} * c->rowBytes);
}

// Sample i of the row (pixel i / channels, channel i % channels) is field
// i % 3 of word i / 3.
void Unpack(const CineonPriv &c, uint16_t *const *planes) {
  const uint32_t n = c.channels;
  const uint64_t samples = uint64_t{c.width} * n;
  uint32_t word = 0;
  for (uint64_t i = 0; i < samples; ++i) {
    const uint32_t field = static_cast<uint32_t>(i % 3);
    if (field == 0) word = RasGet32(c.row + 4 * (i / 3), c.big);
    planes[i % n][i / n] = static_cast<uint16_t>(word >> (22 - 10 * field) & kMaxCode);
  }
}

void Pack(const CineonPriv &c, const uint16_t *const *planes) {
  const uint32_t n = c.channels;
  const uint64_t samples = uint64_t{c.width} * n;
  uint32_t word = 0;
  for (uint64_t i = 0; i < samples; ++i) {
    const uint32_t field = static_cast<uint32_t>(i % 3);
    uint32_t v = planes[i % n][i / n];
    if (v > kMaxCode) v = kMaxCode;
    word |= v << (22 - 10 * field);
    if (field == 2 || i + 1 == samples) {
      Put32(c.row + 4 * (i / 3), word);
      word = 0;
    }
  }
}

}  // namespace

int CineonOpen(const char *name, char mode, RasDesc *desc) {
  return RasFormatOpen("CineonOpen", name, mode, desc, 1, OpenRead, OpenWrite);
}

int CineonReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  if (!desc || !sl) return RasError("CineonReadSl", RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'r');
  if (!state) return RasError("CineonReadSl", RasErrArg, 1);
  CineonPriv *c = PrivOf(desc);
  if (row >= c->height) return RasError("CineonReadSl", RasErrArg, 2);
  const int made = RasFormatMakePlanes(sl, desc);
  if (made != RasOk) return RasError("CineonReadSl", made, 3);
  if (!PlanesFit(sl, *c)) return RasError("CineonReadSl", RasErrArg, 4);
  int code = SeekRow(&state->file, c, row);
  if (code != RasOk) return RasError("CineonReadSl", code, 5);
  int64_t count = 4 * int64_t{c->words};
  code = RasFileRead(&state->file, c->row, &count, 1);
  if (code != RasOk) {
    c->position = -1;
    return RasError("CineonReadSl", code, 6);
  }
  c->position += count;
  Unpack(*c, sl->plane16);
  return RasOk;
}

int CineonWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  if (!desc || !sl) return RasError("CineonWriteSl", RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'w');
  if (!state) return RasError("CineonWriteSl", RasErrArg, 1);
  CineonPriv *c = PrivOf(desc);
  if (row >= c->height) return RasError("CineonWriteSl", RasErrArg, 2);
  if (!PlanesFit(sl, *c)) return RasError("CineonWriteSl", RasErrArg, 3);
  int code = SeekRow(&state->file, c, row);
  if (code != RasOk) return RasError("CineonWriteSl", code, 4);
  Pack(*c, sl->plane16);
  int64_t count = c->rowBytes;
  code = RasFileWrite(&state->file, c->row, &count);
  if (code != RasOk) {
    c->position = -1;
    return RasError("CineonWriteSl", code, 5);
  }
  c->position += c->rowBytes;
  return RasOk;
}

int CineonClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  const int code = RasFormatCloseFile(desc->state);
  FreePriv(desc->state);
  return code == RasOk ? RasOk : RasError("CineonClose", code, 0);
}

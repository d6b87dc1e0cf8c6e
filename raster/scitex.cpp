// Scitex CT reader and writer (format 3): a 2048-byte header whose sizes are
// text, then rows top to bottom, each row holding its channels one after the
// other. Rows are addressed by position, so any order works.
//
// The text fields are formatted and parsed with the library's own RasSprintf
// and RasSscanf, so that they come out the same on every platform.
//
// Kept as the program has always had them:
//   - A row of odd width carries one padding byte a channel, and the reader
//     and writer move it through the caller's plane: planes hold width + 1
//     bytes for such files (RasMakeSl gives them the spare byte).
//   - The name field holds the name as passed, padded with spaces to 80
//     bytes; a longer name is copied whole and the signature follows it, so
//     such a file does not read back.
//   - A size whose mantissa rounds up to 100000000 prints nine digits, and the
//     next field written overwrites the last one.
//
// Choices made where the format leaves room:
//   - A name is copied into the header up to byte 1022 at most, so that no
//     path, however long, reaches the text fields.
//   - The reader refuses a width or height of 0 or above 2^20 pixels (-9):
//     no photo is either, and a forged header must not cost gigabytes.
//   - A width in units of 0 (or one that does not parse) leaves the
//     resolution unknown, -1.0.
//   - Row failures leave the file open; the caller may try another row.
//
// Failure details not given by the format's own checks:
//   ScitexCTOpen     0 null argument or no state block; 10 unknown mode;
//                    11 width or height 0 or too large (-9); 12 a
//                    descriptor that cannot be written (-1: width or height 0
//                    or beyond the 11-digit fields' int range).
//   ScitexCTReadSl   2 not open for reading; 5 row beyond the height;
//                    6 planes could not be made; 7 record too narrow or
//                    missing a plane.
//   ScitexCTWriteSl  2 not open for writing; 5 row beyond the height;
//                    7 record too narrow or missing a plane.
#include <cstring>

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rasstr.h"
#include "raster/scitex.h"

namespace {

constexpr int64_t kHeaderSize = 2048;
constexpr float kDefaultResolution = 300.0f, kMillimetresPerInch = 25.4f;
constexpr uint32_t kMaxDimension = uint32_t{1} << 20;
constexpr size_t kNameField = 80, kLongestName = 1022;

// Header offsets: the name's signature, the one-byte fields, then the size
// fields in physical units and in pixels.
constexpr size_t kAtSignature = 80;
constexpr size_t kAtUnits = 1024, kAtSeparations = 1025, kAtReserved = 1026, kAtMask = 1027;
constexpr size_t kAtHeightUnits = 1028, kAtWidthUnits = 1042, kAtHeightPixels = 1056,
                 kAtWidthPixels = 1068, kAtEnd = 1080;

// Within a size field: '+', the point and eight digits, 'E', the exponent's
// sign and two digits.
constexpr size_t kMantissaAt = 1, kExpSignAt = 11, kExpDigitsAt = 12;

struct ScitexPriv {
  int64_t dataOffset;
  float widthInches, heightInches;
  uint32_t width, height, channels;
  uint32_t padding, rowBytes;
  // Where the file stands, so that consecutive rows need no seek; -1 when
  // unknown.
  int64_t position;
};

constexpr auto PrivOf = RasFormatPriv<ScitexPriv>;

void FreePriv(RasState *state) {
  state->priv = RasFree(state->priv);
}

// Closes the file (removing one being written), frees the header buffer and
// the block, then reports.
int FailOpen(RasState *state, uint8_t *header, int code, int detail) {
  RasFree(header);
  RasFormatDropFile(state, true);
  FreePriv(state);
  return RasError("ScitexCTOpen", code, detail);
}

void SetLayout(ScitexPriv *s) {
  s->padding = s->width % 2;
  s->rowBytes = s->channels * (s->width + s->padding);
  s->dataOffset = kHeaderSize;
}

// A physical size as "+.ddddddddE+dd": normalised to 0.1 <= size < 1 by
// powers of ten. Worked in double precision from the pixel count, so that 640
// pixels at 300 an inch give the digits of 2.1333..., not of its float.
void FormatSize(char *field, double inches) {
  double size = inches;
  int e = 0;
  while (size >= 1.0) {
    size *= 0.1;
    ++e;
  }
  while (size > 0.0 && size < 0.1) {
    size *= 10;
    --e;
  }
  const long mantissa = static_cast<long>(size * 100000000 + 0.5);
  RasSprintf(field, "+.%08ldE%c%02d", mantissa, e < 0 ? '-' : '+', e < 0 ? -e : e);
}

// The size a field holds, in the file's units.
float ParseSize(const uint8_t *field) {
  char text[10];
  RasMemCpy(text, field + kMantissaAt, 9);
  text[9] = 0;
  float size = 0;
  if (RasSscanf(text, "%f", &size) != 1) size = 0;
  char digits[3] = {static_cast<char>(field[kExpDigitsAt]),
                    static_cast<char>(field[kExpDigitsAt + 1]), 0};
  int e = 0;
  if (RasSscanf(digits, "%d", &e) != 1) e = 0;
  for (int i = 0; i < e; ++i) {
    if (field[kExpSignAt] == '+')
      size *= 10;
    else
      size /= 10;
  }
  return size;
}

uint32_t ParsePixels(const uint8_t *field) {
  char text[12];
  RasMemCpy(text, field + 1, 11);
  text[11] = 0;
  int value = 0;
  if (RasSscanf(text, "%d", &value) != 1 || value < 0) return 0;
  return static_cast<uint32_t>(value);
}

bool IsDigit(uint8_t c) {
  return c >= '0' && c <= '9';
}

bool SizeFieldOk(const uint8_t *field) {
  return field[0] == '+' && (field[kExpSignAt] == '+' || field[kExpSignAt] == '-');
}

bool PixelFieldOk(const uint8_t *field) {
  if (field[0] != '+') return false;
  for (int i = 1; i <= 11; ++i) {
    if (!IsDigit(field[i])) return false;
  }
  return true;
}

bool HeaderOk(const uint8_t *h) {
  if (h[kAtSignature] != 'C' || h[kAtSignature + 1] != 'T') return false;
  if (h[kAtUnits] > 1) return false;
  const uint8_t separations = h[kAtSeparations];
  if (separations != 1 && separations != 3 && separations != 4) return false;
  if (h[kAtReserved] != 0) return false;
  const uint8_t mask = h[kAtMask];
  if (separations == 4 && mask != 15) return false;
  if (separations == 3 && mask != 7) return false;
  if (separations == 1 && mask != 1 && mask != 2 && mask != 4 && mask != 8) return false;
  return SizeFieldOk(h + kAtHeightUnits) && SizeFieldOk(h + kAtWidthUnits) &&
         PixelFieldOk(h + kAtHeightPixels) && PixelFieldOk(h + kAtWidthPixels);
}

uint32_t ModelOf(uint32_t separations) {
  return separations == 4 ? RasModelCmyk : separations == 3 ? RasModelRgb : RasModelGray;
}

int OpenRead(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk)
    return RasError("ScitexCTOpen", RasErrOpen, 1);
  auto *h = static_cast<uint8_t *>(RasAlloc(kHeaderSize));
  if (!h) return FailOpen(state, nullptr, RasErrMemory, 2);
  int64_t got = kHeaderSize;
  if (RasFileRead(&state->file, h, &got, 1) != RasOk) return FailOpen(state, h, RasErrRead, 3);
  if (!HeaderOk(h)) return FailOpen(state, h, RasErrFormat, 4);
  auto *s = static_cast<ScitexPriv *>(RasAlloc(sizeof(ScitexPriv)));
  if (!s) return FailOpen(state, h, RasErrMemory, 5);
  std::memset(s, 0, sizeof *s);
  state->priv = s;

  s->heightInches = ParseSize(h + kAtHeightUnits);
  s->widthInches = ParseSize(h + kAtWidthUnits);
  if (h[kAtUnits] == 0) {
    s->heightInches /= kMillimetresPerInch;
    s->widthInches /= kMillimetresPerInch;
  }
  s->height = ParsePixels(h + kAtHeightPixels);
  s->width = ParsePixels(h + kAtWidthPixels);
  s->channels = h[kAtSeparations];
  if (s->width == 0 || s->height == 0 || s->width > kMaxDimension || s->height > kMaxDimension)
    return FailOpen(state, h, RasErrUnsupported, 11);
  SetLayout(s);
  s->position = kHeaderSize;
  RasFree(h);

  desc->width = s->width;
  desc->height = s->height;
  desc->channels = s->channels;
  desc->model = ModelOf(s->channels);
  desc->resolution = s->widthInches > 0.0f ? s->width / s->widthInches : -1.0f;
  desc->format = RasFormatScitex;
  desc->flags = 0;
  desc->maxval = 255;
  return RasOk;
}

void BuildHeader(const char *name, const RasDesc &desc, const ScitexPriv &s, uint8_t *h) {
  size_t length = RasStrLen(name);
  if (length > kLongestName) length = kLongestName;
  RasMemCpy(h, name, length);
  for (size_t i = length; i < kNameField; ++i)
    h[i] = ' ';
  const size_t signature = length > kNameField ? length : kNameField;
  h[signature] = 'C';
  h[signature + 1] = 'T';
  h[kAtUnits] = 1;
  h[kAtSeparations] = static_cast<uint8_t>(desc.channels);
  h[kAtReserved] = 0;
  h[kAtMask] = desc.channels == 4 ? 15 : desc.channels == 3 ? 7 : 8;
  // Field by field in this order: a field that overflows by a character is
  // cut by the one written after it.
  char *text = reinterpret_cast<char *>(h);
  const double resolution = desc.resolution;
  FormatSize(text + kAtHeightUnits, s.height / resolution);
  FormatSize(text + kAtWidthUnits, s.width / resolution);
  RasSprintf(text + kAtHeightPixels, "+%011d", static_cast<int>(s.height));
  RasSprintf(text + kAtWidthPixels, "+%011d", static_cast<int>(s.width));
  h[kAtEnd] = 0;
}

int OpenWrite(const char *name, RasDesc *desc) {
  RasState *state = desc->state;
  if (!(desc->resolution > 0.0f)) desc->resolution = kDefaultResolution;
  if (desc->width == 0 || desc->height == 0 || desc->width > INT32_MAX || desc->height > INT32_MAX)
    return RasError("ScitexCTOpen", RasErrArg, 12);
  const int64_t expected =
      int64_t{(desc->width + 1) & ~1u} * desc->height * desc->channels + kHeaderSize;
  const int opened = RasFormatOpenWrite(&state->file, name, expected);
  if (opened != RasOk) return RasError("ScitexCTOpen", RasErrOpen, 6);
  auto *s = static_cast<ScitexPriv *>(RasAlloc(sizeof(ScitexPriv)));
  if (!s) return FailOpen(state, nullptr, RasErrMemory, 7);
  std::memset(s, 0, sizeof *s);
  state->priv = s;
  s->width = desc->width;
  s->height = desc->height;
  s->channels = desc->channels;
  s->heightInches = static_cast<float>(desc->height / static_cast<double>(desc->resolution));
  s->widthInches = static_cast<float>(desc->width / static_cast<double>(desc->resolution));
  SetLayout(s);

  auto *h = static_cast<uint8_t *>(RasAlloc(kHeaderSize));
  if (!h) return FailOpen(state, nullptr, RasErrMemory, 8);
  std::memset(h, 0, kHeaderSize);
  BuildHeader(name, *desc, *s, h);
  int64_t count = kHeaderSize;
  if (RasFileWrite(&state->file, h, &count) != RasOk) return FailOpen(state, h, RasErrWrite, 9);
  RasFree(h);
  s->position = kHeaderSize;
  return RasOk;
}

void Complement(uint8_t *plane, uint32_t bytes) {
  for (uint32_t i = 0; i < bytes; ++i)
    plane[i] = static_cast<uint8_t>(255 - plane[i]);
}

int SeekRow(RasFile *file, ScitexPriv *s, uint32_t row) {
  return RasFormatSeek(file, &s->position, int64_t{row} * s->rowBytes + s->dataOffset);
}

}  // namespace

int ScitexCTOpen(const char *name, char mode, RasDesc *desc) {
  return RasFormatOpen("ScitexCTOpen", name, mode, desc, 10, OpenRead, OpenWrite);
}

int ScitexCTReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state = RasFormatRowState("ScitexCTReadSl", desc, sl, 'r', &code);
  if (!state) return code;
  ScitexPriv *s = PrivOf(desc);
  if (row >= s->height) return RasError("ScitexCTReadSl", RasErrArg, 5);
  const int made = RasFormatMakePlanes(sl, desc);
  if (made != RasOk) return RasError("ScitexCTReadSl", made, 6);
  if (!RasFormatPlanesFit(sl, s->width, s->channels, false))
    return RasError("ScitexCTReadSl", RasErrArg, 7);
  const int sought = SeekRow(&state->file, s, row);
  if (sought != RasOk) return RasError("ScitexCTReadSl", sought, 3);
  const uint32_t bytes = s->width + s->padding;
  for (uint32_t k = 0; k < s->channels; ++k) {
    int64_t count = bytes;
    const int code = RasFileRead(&state->file, sl->plane8[k], &count, 1);
    if (code != RasOk) {
      s->position = -1;
      return RasError("ScitexCTReadSl", code, 4);
    }
    s->position += bytes;
    // The file holds inks as 255 minus the amount.
    if (s->channels == 4) Complement(sl->plane8[k], bytes);
  }
  return RasOk;
}

int ScitexCTWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  int code = RasOk;
  RasState *state = RasFormatRowState("ScitexCTWriteSl", desc, sl, 'w', &code);
  if (!state) return code;
  ScitexPriv *s = PrivOf(desc);
  if (row >= s->height) return RasError("ScitexCTWriteSl", RasErrArg, 5);
  if (!RasFormatPlanesFit(sl, s->width, s->channels, false))
    return RasError("ScitexCTWriteSl", RasErrArg, 7);
  const int sought = SeekRow(&state->file, s, row);
  if (sought != RasOk) return RasError("ScitexCTWriteSl", sought, 3);
  const uint32_t bytes = s->width + s->padding;
  const bool inks = s->channels == 4;
  for (uint32_t k = 0; k < s->channels; ++k) {
    // Complemented in place for the write and back at once, so the caller's
    // row is as it was whatever happens.
    uint8_t *plane = sl->plane8[k];
    if (inks) Complement(plane, bytes);
    int64_t count = bytes;
    const int code = RasFileWrite(&state->file, plane, &count);
    if (inks) Complement(plane, bytes);
    if (code != RasOk) {
      s->position = -1;
      return RasError("ScitexCTWriteSl", code, 4);
    }
    s->position += bytes;
  }
  return RasOk;
}

int ScitexCTClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  (void)RasFormatCloseFile(desc->state);
  FreePriv(desc->state);
  return RasOk;
}

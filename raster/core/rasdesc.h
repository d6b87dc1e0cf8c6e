// The library's core vocabulary, below the dispatcher and every format: the
// format, colour model and result codes, the raster descriptor, the planar
// scanline record, what each format code implies, the pixel limit and the
// library's memory.
#pragma once

#include <cstddef>
#include <cstdint>

// Format codes. Their order is also the order of the dispatch switches.
constexpr uint32_t RasFormatTiff = 1, RasFormatTarga = 2, RasFormatScitex = 3, RasFormatEps = 4,
                   RasFormatDcs = 5, RasFormatPhotoCd = 6, RasFormatBmp = 7, RasFormatCineon = 8,
                   RasFormatJpeg = 9, RasFormatTiff16 = 10;
// The formats below take their sample width from the file: PNG and HEIF
// files of more than 8 bits a sample open with maxval 65535 (PNG) or
// 2^bits - 1 (HEIF, e.g. 1023 for 10 bits), and a PNG is written with
// 16-bit samples when the caller sets maxval 65535 after RasSetDesc. The two
// HEIF codes are for HEVC and for AV1 pictures.
constexpr uint32_t RasFormatPng = 11, RasFormatWebp = 12, RasFormatHeic = 13, RasFormatAvif = 14;

// Colour model codes; 0 is never valid. An RGB descriptor of four channels
// carries alpha in plane 3 (0 transparent, maxval opaque); PNG, WebP and HEIF
// pictures with alpha, grey ones included, open that way.
constexpr uint32_t RasModelRgb = 1, RasModelCmyk = 4, RasModelGray = 5, RasModelLab = 7,
                   RasModelYcc = 8;

// Result codes shared by every routine of the library.
constexpr int RasOk = 0;
constexpr int RasErrArg = -1, RasErrPosition = -2, RasErrMemory = -3, RasErrOpen = -4,
              RasErrRead = -5, RasErrWrite = -6, RasErrSeek = -7, RasErrFormat = -8,
              RasErrUnsupported = -9, RasErrNullString = -1000;

struct RasState;

// The raster descriptor, owned by the caller. `state` is non-null exactly
// while a file is open on it.
struct RasDesc {
  uint32_t width, height, channels;
  uint32_t model, format, flags, maxval;
  float resolution;  // pixels per inch, -1.0 when unknown
  RasState *state;
};

// One planar image row. Exactly one of the two pointer sets is allocated:
// 8-bit planes while maxval is below 256, 16-bit planes otherwise.
struct RasSl {
  uint32_t width, channels;
  uint8_t *plane8[4];
  uint16_t *plane16[4];
};

// True for the channel counts a descriptor and a record may have: 1, 3 or 4.
bool RasValidChannels(uint32_t channels);
[[nodiscard]] int RasMakeSl(RasSl *sl, const RasDesc *desc);
int RasFreeSl(RasSl *sl);

// The largest sample value a format's files carry once open (for the formats
// whose files choose, the 8-bit value RasSetDesc starts from).
uint32_t RasFormatMaxval(uint32_t format);
// True for the formats whose files choose their sample width.
bool RasFormatDepthVaries(uint32_t format);
// The format's short name for people and scripts ("tiff", "jpeg" ...), "?" for
// a code that names no format.
const char *RasFormatName(uint32_t format);

// Readers refuse a picture of more pixels (width x height) than this with -9,
// before anything is allocated for its rows: 500 million, well above any
// camera's, unless KORVEL_MAX_PIXELS (read once, at the first use) holds a
// positive whole number.
uint64_t RasMaxPixels();
// True when the last RasOpen for reading or RasGetInfo was refused by that
// limit; the descriptor then holds the width and height the file declared.
bool RasPixelLimitRefused();

// Memory of the library: every allocation goes through these two.
void *RasAlloc(size_t size);
void *RasFree(void *block);  // accepts null; returns null for `p = RasFree(p)`

// What the TIFF module's reader, writer and directory parser share: the
// format's constants, the directory entry, the private block and the routines
// each side calls into. Only the tiff*.cpp files include it.
#pragma once

#include <cstdint>

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasstate.h"
#include "raster/core/rowpack.h"

namespace tiff {

// The byte-order marks "II" and "MM", read as little-endian words.
constexpr uint32_t kOrderIntel = 18761, kOrderMotorola = 19789;
constexpr uint32_t kMagic = 42;
constexpr int64_t kHeaderSize = 8, kEntrySize = 12;

// Field types, by the size of their values: bytes, text, 16-bit, 32-bit and the
// rationals and floats.
constexpr uint16_t kTypeByte = 1, kTypeAscii = 2, kTypeSByte = 6, kTypeUndefined = 7;
constexpr uint16_t kTypeShort = 3, kTypeSShort = 8;
constexpr uint16_t kTypeLong = 4, kTypeSLong = 9, kTypeFloat = 11;
constexpr uint16_t kTypeRational = 5, kTypeSRational = 10, kTypeDouble = 12;

// Tags: the picture's shape and samples, where its strips or tiles are, its
// resolution, then the rest.
constexpr uint16_t kTagNewSubfileType = 254, kTagImageWidth = 256, kTagImageLength = 257,
                   kTagBitsPerSample = 258, kTagCompression = 259, kTagPhotometric = 262,
                   kTagSamplesPerPixel = 277, kTagPlanarConfiguration = 284;
constexpr uint16_t kTagStripOffsets = 273, kTagRowsPerStrip = 278, kTagStripByteCounts = 279,
                   kTagTileWidth = 322, kTagTileLength = 323, kTagTileOffsets = 324,
                   kTagTileByteCounts = 325;
constexpr uint16_t kTagXResolution = 282, kTagYResolution = 283, kTagResolutionUnit = 296;
constexpr uint16_t kTagInkSet = 332, kTagIptc = 33723;

constexpr uint32_t kPhotometricMinIsWhite = 0, kPhotometricMinIsBlack = 1, kPhotometricRgb = 2,
                   kPhotometricSeparated = 5, kPhotometricCieLab = 8, kPhotometricIccLab = 9;

constexpr uint32_t kUnitInch = 2, kInkSetCmyk = 1;
// A strip of the files we write holds about this many bytes.
constexpr uint64_t kStripBudget = 30000;
constexpr float kDefaultResolution = 300.0f;
constexpr uint32_t kResolutionDenominator = 1000;
constexpr double kCentimetresPerInch = 2.54;

// Limits against forged headers. Real directories have a few dozen entries;
// no photo is a million pixels on a side; a strip table can never be longer
// than the file that holds it.
constexpr uint32_t kMaxEntries = 4096, kMaxDimension = uint32_t{1} << 20,
                   kMaxTable = uint32_t{1} << 24;
constexpr int64_t kMaxBuffer = int64_t{256} << 20, kMaxOffset = 0xFFFFFFFF;

// The writer's options and the IPTC buffer carried from one file to the next,
// per thread like every setting of the library.
extern thread_local uint32_t gPlanar, gByteOrder;
extern thread_local uint32_t gIptcWords, *gIptc;

// One directory entry as read: the value field is kept as the file's four
// bytes, since whether it holds the value or an offset depends on the type.
struct TiffEntry {
  uint16_t tag;
  uint16_t type;
  uint32_t count;
  uint8_t value[4];
};
static_assert(sizeof(TiffEntry) == kEntrySize);

struct TiffPriv {
  bool big;              // the file's byte order is "MM"
  uint32_t sampleBytes;  // bytes per sample in the file and in the planes
  uint32_t width, height, samples;
  uint32_t bitsCount;  // values the BitsPerSample entry carried
  uint16_t bits[4];
  uint32_t compression, photometric, planar, resolutionUnit, inkSet;
  uint32_t rowsPerStrip, stripsPerImage;
  uint32_t offsetCount;
  uint32_t *offsets;  // StripOffsets, plane by plane for planar configuration 2
  uint32_t byteCountCount;
  uint32_t *byteCounts;
  bool tiled;  // any tile field was present
  bool hasXResolution;
  uint32_t xResolution[2], yResolution[2];  // numerator, denominator
  uint32_t iptcWords;
  uint32_t *iptc;
  bool hasIptc;
  TiffEntry iptcEntry;  // read once the directory is done
  int64_t fileSize;
  // Where the file stands, so that consecutive rows need no seek; -1 when
  // unknown.
  int64_t position;
  uint64_t rowBytes;     // a row of every sample
  uint64_t planeBytes;   // a row of one sample
  uint8_t *buffer;       // reading: one interleaved row; writing: one strip
  uint32_t nextRow;      // writing: the only row accepted next
  bool interleaved;      // several samples in one plane
  uint8_t flip[4];       // XOR between the file's samples and the planes
  uint16_t flip16[4];    // the same for 16-bit samples
  RasSplitRowFn unpack;  // interleaved reading
  RasJoinRowFn pack;     // interleaved writing
};

// ---- The private block and file access (tiff.cpp).
TiffPriv *NewPriv(uint32_t sampleBytes);
TiffPriv *PrivOf(const RasDesc *desc);
void FreePriv(RasState *state);
// Closes (and for a file being written, removes) the file, drops the private
// block and reports.
int FailOpen(RasState *state, int code, int detail);
// Reads `bytes` at `offset`, seeking only when the file stands elsewhere.
// Anything reaching past the end of the file is a short read.
int ReadAt(RasFile *file, TiffPriv *p, int64_t offset, void *dst, int64_t bytes);
// A record can serve a file when it is as wide and has every plane of the
// file's sample width.
bool PlanesFit(const RasSl *sl, const TiffPriv &p);

// ---- The directory (tifftags.cpp).
uint32_t TypeSize(uint32_t type);
// Reads the directory at `offset` into a new array of `*count` entries,
// decoded to host order (the value fields stay as the file's bytes).
int TiffReadIFDE(RasFile *file, TiffPriv *p, int64_t offset, TiffEntry **entries, uint32_t *count);
int TiffProcessIFDE(RasFile *file, TiffPriv *p, const TiffEntry &e);
// Accepts uncompressed strips of `bits`-bit samples in the models the
// library knows; gives the model code.
int TiffCheckTRH(const TiffPriv &p, uint32_t bits, uint32_t *model);
float ResolutionOf(const TiffPriv &p);
// The strips the image needs and the tables' coverage of them.
bool StripsCovered(TiffPriv *p);
int CopyIptcAtOpen(RasFile *file, TiffPriv *p);

// ---- The two sides (tiffread.cpp, tiffwrite.cpp); `routine` names the entry
// point in reports.
int OpenRead(const char *name, RasDesc *desc, uint32_t bits, uint32_t format);
int OpenWrite(const char *name, RasDesc *desc, uint32_t bits);
int ReadRow(RasDesc *desc, uint32_t row, RasSl *sl, const char *routine);
int WriteRow(RasDesc *desc, uint32_t row, const RasSl *sl, const char *routine);

}  // namespace tiff

// TIFF reader and writer (formats 1 and 10): uncompressed strips in the
// first image directory, grey, RGB, CMYK or CIE L*a*b*, interleaved (planar
// configuration 1) or one plane after another (2), either byte order, with 8-
// or 16-bit samples.
//
// Both sample widths share the directory reading and writing, the strip
// layout, the row placement and the row checks (TiffPriv::sampleBytes, the
// expected bits per sample passed to TiffCheckTRH and PlanLayout); only the
// conversion of a row between the file and the planes differs. 16-bit samples
// stand in the file's byte order and reach the caller's 16-bit planes in the
// host's. The open of either width reports as "TiffOpen".
//
// Choices made here where the format leaves room:
//   - Tags the reader does not use are ignored, whatever their type.
//   - Photometric 0 (min-is-white) reads as grey with every sample inverted,
//     so the picture looks as other viewers show it.
//   - The a and b samples of photometric 8 (signed CIE L*a*b*) are exchanged
//     by adding 128 modulo 256 (32768 modulo 65536 for 16-bit samples) on
//     reading and writing; photometric 9 (ICC L*a*b*) already stores them
//     offset and reads as it stands.
//   - No usable XResolution (absent, zero numerator or denominator) reads as
//     -1.0, unknown.
//   - A single BitsPerSample value stands for every sample. Values beyond
//     SamplesPerPixel (8,8,8,1 for three samples, as some writers leave them)
//     are ignored: they describe no sample of the file.
//   - A tiled file is refused at open (TiffCheckTRH detail 4), strip fields
//     or not: its pixels lie in tiles, which rows cannot be read from.
//   - The IPTC block is kept as the bytes of the file, in 32-bit words, and
//     written back byte for byte whatever either file's byte order, because
//     IPTC data is a byte stream even where a writer typed it LONG. A block of
//     one word stands inline in its entry, as TIFF places any value of four
//     bytes.
//   - Four-channel files are written with InkSet 1 (CMYK).
//   - The writer takes rows strictly in order, each exactly once: a row other
//     than the next one is refused with -1 and changes nothing. The reader
//     takes rows in any order.
//   - The writer refuses a model whose channel count does not match (-1):
//     grey is one channel, RGB, YCC and L*a*b* three, CMYK four.
//   - Row reads that fail leave the file open; the caller may try another row.
//
// Failure details not given by the format's own checks:
//   TiffOpen         0 null argument or no state block; 1 unknown mode;
//                    2..10 reading: open, header short (-8), byte order (-8),
//                    magic (-8, BigTIFF's 43 included), private block, file
//                    size, directory, entry, check; 11..18 writing:
//                    descriptor not writable (-1), file beyond 32-bit offsets
//                    (-1), allocation, open, header, entry count, entry,
//                    next-directory word; 19..23 the items after the
//                    directory; 24 dimensions beyond the cap (-9); 25 strip
//                    tables shorter than the image needs (-9); 26 IPTC block
//                    outside the file (-5); 27 row buffer; 123 IPTC copy.
//   TiffReadSl       0 null argument; 1 not open for reading; 2 row beyond the
//                    height; 3 planes could not be made; 4 record does not fit;
//                    5 strip shorter than its rows (-5); 6 read.
//   TiffWriteSl      0 null argument; 1 not open for writing; 2 row beyond the
//                    height; 3 row out of order; 4 record does not fit;
//                    5 write.
//   TiffReadIFDE     0 directory outside the file (-8); 1 entry count;
//                    2 entry count 0 or absurd (-9); 3 allocation; 4 entries.
//   TiffProcessIFDE  0 integer field of another type (-9); 1 table longer than
//                    the cap or the file (-9); 2 allocation; 3 table read;
//                    4 rational read.
//   TiffWriteIFDE    0 short write.
//   TiffClose        0 nothing open; 1 the last buffered bytes failed (-6).
//   TiffSetOption    0 unknown option; 1 planar not 1 or 2; 2 byte order not
//                    II or MM; 3 no state or private block; 4 allocation.
#include "raster/tiff.h"

#include <cstring>
#include <initializer_list>

#include "raster/formats.h"
#include "raster/ras.h"
#include "raster/rasfile.h"
#include "raster/rasformat.h"
#include "raster/rasstate.h"
#include "raster/rowpack.h"

namespace {

constexpr uint32_t kOrderIntel = 18761;     // "II"
constexpr uint32_t kOrderMotorola = 19789;  // "MM"
constexpr uint32_t kMagic = 42;
constexpr int64_t kHeaderSize = 8;
constexpr int64_t kEntrySize = 12;

enum : uint16_t {
  kTypeByte = 1,
  kTypeAscii = 2,
  kTypeShort = 3,
  kTypeLong = 4,
  kTypeRational = 5,
  kTypeSByte = 6,
  kTypeUndefined = 7,
  kTypeSShort = 8,
  kTypeSLong = 9,
  kTypeSRational = 10,
  kTypeFloat = 11,
  kTypeDouble = 12,
};

enum : uint16_t {
  kTagNewSubfileType = 254,
  kTagImageWidth = 256,
  kTagImageLength = 257,
  kTagBitsPerSample = 258,
  kTagCompression = 259,
  kTagPhotometric = 262,
  kTagStripOffsets = 273,
  kTagSamplesPerPixel = 277,
  kTagRowsPerStrip = 278,
  kTagStripByteCounts = 279,
  kTagXResolution = 282,
  kTagYResolution = 283,
  kTagPlanarConfiguration = 284,
  kTagResolutionUnit = 296,
  kTagTileWidth = 322,
  kTagTileLength = 323,
  kTagTileOffsets = 324,
  kTagTileByteCounts = 325,
  kTagInkSet = 332,
  kTagIptc = 33723,
};

enum : uint32_t {
  kPhotometricMinIsWhite = 0,
  kPhotometricMinIsBlack = 1,
  kPhotometricRgb = 2,
  kPhotometricSeparated = 5,
  kPhotometricCieLab = 8,
  kPhotometricIccLab = 9,
};

constexpr uint32_t kUnitInch = 2;
constexpr uint32_t kInkSetCmyk = 1;
// A strip of the files we write holds about this many bytes.
constexpr uint64_t kStripBudget = 30000;
constexpr float kDefaultResolution = 300.0f;
constexpr uint32_t kResolutionDenominator = 1000;
constexpr double kCentimetresPerInch = 2.54;

// Limits against forged headers. Real directories have a few dozen entries;
// no photo is a million pixels on a side; a strip table can never be longer
// than the file that holds it.
constexpr uint32_t kMaxEntries = 4096;
constexpr uint32_t kMaxDimension = uint32_t{1} << 20;
constexpr uint32_t kMaxTable = uint32_t{1} << 24;
constexpr int64_t kMaxBuffer = int64_t{256} << 20;
constexpr int64_t kMaxOffset = 0xFFFFFFFF;

// Process-wide settings and the IPTC buffer carried from one file to the next.
uint32_t gPlanar = 1;
uint32_t gByteOrder = kOrderIntel;
uint32_t gIptcWords = 0;
uint32_t *gIptc = nullptr;

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
  uint32_t width;
  uint32_t height;
  uint32_t samples;
  uint32_t bitsCount;  // values the BitsPerSample entry carried
  uint16_t bits[4];
  uint32_t compression;
  uint32_t photometric;
  uint32_t planar;
  uint32_t resolutionUnit;
  uint32_t inkSet;
  uint32_t rowsPerStrip;
  uint32_t stripsPerImage;
  uint32_t offsetCount;
  uint32_t *offsets;  // StripOffsets, plane by plane for planar configuration 2
  uint32_t byteCountCount;
  uint32_t *byteCounts;
  bool tiled;  // any tile field was present
  bool hasXResolution;
  uint32_t xResolution[2];  // numerator, denominator
  uint32_t yResolution[2];
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

uint32_t TypeSize(uint32_t type) {
  switch (type) {
    case kTypeByte:
    case kTypeAscii:
    case kTypeSByte:
    case kTypeUndefined:
      return 1;
    case kTypeShort:
    case kTypeSShort:
      return 2;
    case kTypeLong:
    case kTypeSLong:
    case kTypeFloat:
      return 4;
    case kTypeRational:
    case kTypeSRational:
    case kTypeDouble:
      return 8;
    default:
      return 0;
  }
}

bool IsInteger(uint32_t type) {
  return type == kTypeByte || type == kTypeShort || type == kTypeLong;
}

// ---- Row routines, chosen once at open. The 8-bit ones.
// Colour rows go through the library's shared interleave routines; only
// L*a*b* needs its own pair, for the exchange of a and b between the signed
// samples in the file and the offset samples in the planes.

void UnpackLab(const uint8_t *src, uint8_t *const *planes, uint32_t width) {
  const uint8_t *__restrict s = src;
  uint8_t *__restrict p0 = planes[0];
  uint8_t *__restrict p1 = planes[1];
  uint8_t *__restrict p2 = planes[2];
  for (uint32_t x = 0; x < width; ++x) {
    p0[x] = s[3 * x];
    p1[x] = s[3 * x + 1] ^ 0x80;
    p2[x] = s[3 * x + 2] ^ 0x80;
  }
}

void PackLab(uint8_t *dst, const uint8_t *const *planes, uint32_t width) {
  uint8_t *__restrict d = dst;
  const uint8_t *__restrict p0 = planes[0];
  const uint8_t *__restrict p1 = planes[1];
  const uint8_t *__restrict p2 = planes[2];
  for (uint32_t x = 0; x < width; ++x) {
    d[3 * x] = p0[x];
    d[3 * x + 1] = p1[x] ^ 0x80;
    d[3 * x + 2] = p2[x] ^ 0x80;
  }
}

// One plane between the file and the record, exchanged by `flip`.
void CopyPlane(uint8_t *__restrict dst, const uint8_t *__restrict src, uint64_t bytes,
               uint8_t flip) {
  if (flip == 0) {
    std::memcpy(dst, src, bytes);
    return;
  }
  for (uint64_t i = 0; i < bytes; ++i)
    dst[i] = src[i] ^ flip;
}

void FlipPlane(uint8_t *plane, uint64_t bytes, uint8_t flip) {
  for (uint64_t i = 0; i < bytes; ++i)
    plane[i] ^= flip;
}

// ---- Private block.

TiffPriv *NewPriv(uint32_t sampleBytes) {
  auto *p = static_cast<TiffPriv *>(RasAlloc(sizeof(TiffPriv)));
  if (!p) return nullptr;
  std::memset(p, 0, sizeof *p);
  p->sampleBytes = sampleBytes;
  // The defaults TIFF gives fields a directory leaves out; photometric has
  // none, so it starts at a value the check refuses.
  p->bitsCount = 1;
  for (uint16_t &b : p->bits)
    b = 1;
  p->compression = 1;
  p->photometric = 0xFFFF;
  p->planar = 1;
  p->samples = 1;
  p->resolutionUnit = kUnitInch;
  p->rowsPerStrip = 0xFFFFFFFF;
  p->position = -1;
  return p;
}

TiffPriv *PrivOf(const RasDesc *desc) {
  return static_cast<TiffPriv *>(desc->state->priv);
}

void FreePriv(RasState *state) {
  auto *p = static_cast<TiffPriv *>(state->priv);
  if (p) {
    RasFree(p->offsets);
    RasFree(p->byteCounts);
    RasFree(p->iptc);
    RasFree(p->buffer);
  }
  state->priv = RasFree(p);
}

// Closes (and for a file being written, removes) the file, drops the private
// block and reports.
int FailOpen(RasState *state, int code, int detail) {
  RasFormatDropFile(state, true);
  FreePriv(state);
  return RasError("TiffOpen", code, detail);
}

// Reads `bytes` at `offset`, seeking only when the file stands elsewhere.
// Anything reaching past the end of the file is a short read.
int ReadAt(RasFile *file, TiffPriv *p, int64_t offset, void *dst, int64_t bytes) {
  if (offset < 0 || bytes < 0 || bytes > p->fileSize - offset) return RasErrRead;
  if (p->position != offset) {
    p->position = -1;
    const int code = RasFileSeek(file, offset, 0);
    if (code != RasOk) return code;
  }
  int64_t count = bytes;
  const int code = RasFileRead(file, dst, &count, 1);
  p->position = code == RasOk ? offset + bytes : -1;
  return code;
}

void ClearIptc() {
  gIptc = static_cast<uint32_t *>(RasFree(gIptc));
  gIptcWords = 0;
}

// ---- Reading the directory.

// The first `n` integer values of an entry, from its value field when they
// all fit there and from its offset otherwise. `out` holds `n` words; a
// table is read straight into it and widened in place from the end.
int ReadValues(RasFile *file, TiffPriv *p, const TiffEntry &e, uint32_t *out, uint32_t n) {
  const uint32_t size = TypeSize(e.type);
  const uint64_t bytes = uint64_t{size} * e.count;
  auto *raw = reinterpret_cast<uint8_t *>(out);
  const uint8_t *src = e.value;
  if (bytes > 4) {
    const int code = ReadAt(file, p, RasGet32(e.value, p->big), raw, int64_t{size} * n);
    if (code != RasOk) return code;
    src = raw;
  }
  for (uint32_t i = n; i-- > 0;) {
    const uint8_t *at = src + uint64_t{i} * size;
    const uint32_t v = size == 1 ? at[0] : size == 2 ? RasGet16(at, p->big) : RasGet32(at, p->big);
    std::memcpy(out + i, &v, sizeof v);
  }
  return RasOk;
}

int ReadScalar(RasFile *file, TiffPriv *p, const TiffEntry &e, uint32_t *value) {
  if (!IsInteger(e.type)) return RasError("TiffProcessIFDE", RasErrUnsupported, 0);
  if (e.count == 0) return RasOk;  // no value: as if the tag were absent
  const int code = ReadValues(file, p, e, value, 1);
  return code == RasOk ? RasOk : RasError("TiffProcessIFDE", code, 3);
}

// StripOffsets or StripByteCounts, SHORT or LONG, inline or at an offset.
int ReadTable(RasFile *file, TiffPriv *p, const TiffEntry &e, uint32_t **table, uint32_t *count) {
  if (!IsInteger(e.type)) return RasError("TiffProcessIFDE", RasErrUnsupported, 0);
  const uint64_t bytes = uint64_t{TypeSize(e.type)} * e.count;
  if (e.count > kMaxTable || (bytes > 4 && bytes > static_cast<uint64_t>(p->fileSize)))
    return RasError("TiffProcessIFDE", RasErrUnsupported, 1);
  // A repeated tag replaces the earlier table.
  *table = static_cast<uint32_t *>(RasFree(*table));
  *count = 0;
  if (e.count == 0) return RasOk;
  *table = static_cast<uint32_t *>(RasAlloc(sizeof(uint32_t) * e.count));
  if (!*table) return RasError("TiffProcessIFDE", RasErrMemory, 2);
  const int code = ReadValues(file, p, e, *table, e.count);
  if (code != RasOk) return RasError("TiffProcessIFDE", code, 3);
  *count = e.count;
  return RasOk;
}

int ReadBits(RasFile *file, TiffPriv *p, const TiffEntry &e) {
  if (!IsInteger(e.type)) return RasError("TiffProcessIFDE", RasErrUnsupported, 0);
  if (e.count == 0) return RasOk;
  uint32_t values[4];
  const uint32_t n = e.count < 4 ? e.count : 4;
  const int code = ReadValues(file, p, e, values, n);
  if (code != RasOk) return RasError("TiffProcessIFDE", code, 3);
  p->bitsCount = e.count;
  for (uint32_t k = 0; k < 4; ++k)
    p->bits[k] = static_cast<uint16_t>(values[k < n ? k : n - 1]);
  return RasOk;
}

// A rational of another type is ignored like an unknown tag.
int ReadRational(RasFile *file, TiffPriv *p, const TiffEntry &e, uint32_t *value, bool *found) {
  if (e.type != kTypeRational || e.count == 0) return RasOk;
  uint8_t bytes[8];
  const int code = ReadAt(file, p, RasGet32(e.value, p->big), bytes, 8);
  if (code != RasOk) return RasError("TiffProcessIFDE", code, 4);
  value[0] = RasGet32(bytes, p->big);
  value[1] = RasGet32(bytes + 4, p->big);
  if (found) *found = true;
  return RasOk;
}

int TiffProcessIFDE(RasFile *file, TiffPriv *p, const TiffEntry &e) {
  switch (e.tag) {
    case kTagImageWidth:
      return ReadScalar(file, p, e, &p->width);
    case kTagImageLength:
      return ReadScalar(file, p, e, &p->height);
    case kTagBitsPerSample:
      return ReadBits(file, p, e);
    case kTagCompression:
      return ReadScalar(file, p, e, &p->compression);
    case kTagPhotometric:
      return ReadScalar(file, p, e, &p->photometric);
    case kTagStripOffsets:
      return ReadTable(file, p, e, &p->offsets, &p->offsetCount);
    case kTagSamplesPerPixel:
      return ReadScalar(file, p, e, &p->samples);
    case kTagRowsPerStrip:
      return ReadScalar(file, p, e, &p->rowsPerStrip);
    case kTagStripByteCounts:
      return ReadTable(file, p, e, &p->byteCounts, &p->byteCountCount);
    case kTagXResolution:
      return ReadRational(file, p, e, p->xResolution, &p->hasXResolution);
    case kTagYResolution:
      return ReadRational(file, p, e, p->yResolution, nullptr);
    case kTagPlanarConfiguration:
      return ReadScalar(file, p, e, &p->planar);
    case kTagResolutionUnit:
      return ReadScalar(file, p, e, &p->resolutionUnit);
    case kTagInkSet:
      return ReadScalar(file, p, e, &p->inkSet);
    case kTagTileWidth:
    case kTagTileLength:
    case kTagTileOffsets:
    case kTagTileByteCounts:
      p->tiled = true;
      return RasOk;
    case kTagIptc:
      // Copied once the whole directory is known, by the open itself.
      p->iptcEntry = e;
      p->hasIptc = true;
      return RasOk;
    default:
      return RasOk;
  }
}

// Reads the directory at `offset` into a new array of `*count` entries,
// decoded to host order (the value fields stay as the file's bytes).
int TiffReadIFDE(RasFile *file, TiffPriv *p, int64_t offset, TiffEntry **entries, uint32_t *count) {
  if (offset < kHeaderSize || offset > p->fileSize - 2)
    return RasError("TiffReadIFDE", RasErrFormat, 0);
  uint8_t word[2];
  int code = ReadAt(file, p, offset, word, 2);
  if (code != RasOk) return RasError("TiffReadIFDE", code, 1);
  const uint32_t n = RasGet16(word, p->big);
  if (n == 0 || n > kMaxEntries) return RasError("TiffReadIFDE", RasErrUnsupported, 2);
  auto *list = static_cast<TiffEntry *>(RasAlloc(sizeof(TiffEntry) * n));
  if (!list) return RasError("TiffReadIFDE", RasErrMemory, 3);
  code = ReadAt(file, p, offset + 2, list, kEntrySize * n);
  if (code != RasOk) {
    RasFree(list);
    return RasError("TiffReadIFDE", code, 4);
  }
  for (uint32_t i = 0; i < n; ++i) {
    uint8_t raw[kEntrySize];
    std::memcpy(raw, &list[i], sizeof raw);
    list[i].tag = static_cast<uint16_t>(RasGet16(raw, p->big));
    list[i].type = static_cast<uint16_t>(RasGet16(raw + 2, p->big));
    list[i].count = RasGet32(raw + 4, p->big);
  }
  *entries = list;
  *count = n;
  return RasOk;
}

// Accepts uncompressed strips of `bits`-bit samples in the models the
// library knows; gives the model code.
int TiffCheckTRH(const TiffPriv &p, uint32_t bits, uint32_t *model) {
  if (p.tiled) return RasError("TiffCheckTRH", RasErrUnsupported, 4);
  if (p.compression != 1 || p.width == 0 || p.height == 0 || p.rowsPerStrip == 0 ||
      p.offsetCount == 0 || p.byteCountCount == 0)
    return RasError("TiffCheckTRH", RasErrUnsupported, 0);
  if (p.planar != 1 && p.planar != 2) return RasError("TiffCheckTRH", RasErrUnsupported, 1);
  bool samplesOk = p.samples == 1 || p.samples == 3 || p.samples == 4;
  samplesOk = samplesOk && (p.bitsCount == 1 || p.bitsCount >= p.samples);
  for (uint32_t k = 0; samplesOk && k < p.samples; ++k)
    samplesOk = p.bits[k] == bits;
  if (!samplesOk) return RasError("TiffCheckTRH", RasErrUnsupported, 2);
  const uint32_t ph = p.photometric;
  if (p.samples == 1 && (ph == kPhotometricMinIsWhite || ph == kPhotometricMinIsBlack))
    *model = RasModelGray;
  else if (p.samples == 3 && ph == kPhotometricRgb)
    *model = RasModelRgb;
  else if (p.samples == 3 && (ph == kPhotometricCieLab || ph == kPhotometricIccLab))
    *model = RasModelLab;
  else if (p.samples == 4 && ph == kPhotometricSeparated)
    *model = RasModelCmyk;
  else
    return RasError("TiffCheckTRH", RasErrUnsupported, 3);
  return RasOk;
}

float ResolutionOf(const TiffPriv &p) {
  if (!p.hasXResolution || p.xResolution[0] == 0 || p.xResolution[1] == 0) return -1.0f;
  double r = static_cast<double>(p.xResolution[0]) / p.xResolution[1];
  if (p.resolutionUnit != kUnitInch) r *= kCentimetresPerInch;
  return static_cast<float>(r);
}

// The strips the image needs and the tables' coverage of them.
bool StripsCovered(TiffPriv *p) {
  if (p->rowsPerStrip > p->height) p->rowsPerStrip = p->height;
  p->stripsPerImage = (p->height - 1) / p->rowsPerStrip + 1;
  const uint64_t needed = uint64_t{p->stripsPerImage} * (p->planar == 2 ? p->samples : 1);
  return p->offsetCount >= needed && p->byteCountCount >= needed;
}

int CopyIptcAtOpen(RasFile *file, TiffPriv *p) {
  const TiffEntry &e = p->iptcEntry;
  const uint64_t bytes = uint64_t{TypeSize(e.type)} * e.count;
  if (bytes == 0) return RasOk;
  if (bytes > static_cast<uint64_t>(p->fileSize)) return RasErrRead;
  const uint64_t words = (bytes + 3) / 4;
  p->iptc = static_cast<uint32_t *>(RasAlloc(words * 4));
  if (!p->iptc) return RasErrOpen;
  p->iptc[words - 1] = 0;
  if (bytes <= 4) {
    std::memcpy(p->iptc, e.value, bytes);
  } else {
    const int code =
        ReadAt(file, p, RasGet32(e.value, p->big), p->iptc, static_cast<int64_t>(bytes));
    if (code != RasOk) return code;
  }
  p->iptcWords = static_cast<uint32_t>(words);
  return RasOk;
}

// Decides the row path once: interleaved rows through a buffer and an
// unpacker, single planes straight into the record.
void ChooseReadRows(TiffPriv *p, uint32_t model) {
  const bool signedLab = model == RasModelLab && p->photometric == kPhotometricCieLab;
  if (signedLab) {
    p->flip[1] = p->flip[2] = 0x80;
    p->flip16[1] = p->flip16[2] = 0x8000;
  }
  if (p->photometric == kPhotometricMinIsWhite) {
    p->flip[0] = 0xFF;
    p->flip16[0] = 0xFFFF;
  }
  p->interleaved = p->samples > 1 && p->planar == 1;
  p->planeBytes = uint64_t{p->width} * p->sampleBytes;
  p->rowBytes = p->planeBytes * p->samples;
  p->unpack = signedLab ? UnpackLab : RasSplitRowFor(p->samples, false);
}

int OpenRead(const char *name, RasDesc *desc, uint32_t bits, uint32_t format) {
  RasState *state = desc->state;
  RasFile *file = &state->file;
  int code = RasFileOpen(file, name, RasFileModeRead);
  if (code != RasOk) return RasError("TiffOpen", code, 2);
  uint8_t header[kHeaderSize];
  int64_t got = kHeaderSize;
  if (RasFileRead(file, header, &got, 1) != RasOk) return FailOpen(state, RasErrFormat, 3);
  const uint32_t order = RasGet16(header, false);
  if (order != kOrderIntel && order != kOrderMotorola) return FailOpen(state, RasErrFormat, 4);
  const bool big = order == kOrderMotorola;
  if (RasGet16(header + 2, big) != kMagic) return FailOpen(state, RasErrFormat, 5);

  TiffPriv *p = NewPriv(bits / 8);
  if (!p) return FailOpen(state, RasErrMemory, 6);
  state->priv = p;
  p->big = big;
  code = RasFileSeek(file, 0, 2);
  if (code == RasOk) code = RasFileTell(file, &p->fileSize);
  if (code != RasOk) return FailOpen(state, code, 7);
  p->position = p->fileSize;

  TiffEntry *entries = nullptr;
  uint32_t count = 0;
  code = TiffReadIFDE(file, p, RasGet32(header + 4, big), &entries, &count);
  if (code != RasOk) return FailOpen(state, code, 8);
  for (uint32_t i = 0; i < count && code == RasOk; ++i)
    code = TiffProcessIFDE(file, p, entries[i]);
  RasFree(entries);
  if (code != RasOk) return FailOpen(state, code, 9);

  uint32_t model = 0;
  code = TiffCheckTRH(*p, bits, &model);
  if (code != RasOk) return FailOpen(state, code, 10);
  if (p->width > kMaxDimension || p->height > kMaxDimension)
    return FailOpen(state, RasErrUnsupported, 24);
  if (!StripsCovered(p)) return FailOpen(state, RasErrUnsupported, 25);
  if (p->hasIptc) {
    code = CopyIptcAtOpen(file, p);
    // An IPTC block that cannot be held is reported as it always has been.
    if (code == RasErrOpen) return FailOpen(state, RasErrOpen, 123);
    if (code != RasOk) return FailOpen(state, code, 26);
  }
  ChooseReadRows(p, model);
  if (p->interleaved) {
    p->buffer = static_cast<uint8_t *>(RasAlloc(p->rowBytes));
    if (!p->buffer) return FailOpen(state, RasErrMemory, 27);
  }

  desc->width = p->width;
  desc->height = p->height;
  desc->channels = p->samples;
  desc->model = model;
  desc->format = format;
  desc->flags = 0;
  desc->maxval = RasFormatMaxval(format);
  desc->resolution = ResolutionOf(*p);
  return RasOk;
}

// ---- Writing.

// Where everything of a written file goes; every offset is known before the
// first byte is written.
struct TiffLayout {
  uint32_t entries;
  uint32_t tableCount;  // values of StripOffsets and StripByteCounts
  uint64_t directoryEnd;
  uint64_t bitsAt;
  uint64_t offsetsAt;
  uint64_t countsAt;
  uint64_t xResolutionAt;
  uint64_t yResolutionAt;
  uint64_t iptcAt;
  uint64_t dataAt;
  uint64_t end;
};

uint32_t PhotometricOf(uint32_t model) {
  switch (model) {
    case RasModelRgb:
    case RasModelYcc:
      return kPhotometricRgb;
    case RasModelCmyk:
      return kPhotometricSeparated;
    case RasModelGray:
      return kPhotometricMinIsBlack;
    case RasModelLab:
      return kPhotometricCieLab;
    default:
      return 0xFFFF;
  }
}

bool ModelFitsChannels(uint32_t model, uint32_t channels) {
  switch (model) {
    case RasModelGray:
      return channels == 1;
    case RasModelRgb:
    case RasModelYcc:
    case RasModelLab:
      return channels == 3;
    case RasModelCmyk:
      return channels == 4;
    default:
      return false;
  }
}

// Strip shape of the written file: about kStripBudget bytes a strip, never
// less than a row nor more than the image.
void PlanStrips(TiffPriv *p) {
  uint64_t rows = kStripBudget / (uint64_t{p->samples} * p->width);
  if (rows == 0) rows = 1;
  if (rows > p->height) rows = p->height;
  p->rowsPerStrip = static_cast<uint32_t>(rows);
  p->stripsPerImage = (p->height - 1) / p->rowsPerStrip + 1;
}

// False when the file would need offsets beyond 32 bits.
bool PlanLayout(const TiffPriv &p, uint32_t iptcWords, TiffLayout *l) {
  const uint32_t channels = p.samples;
  const uint64_t pixels = uint64_t{p.width} * p.height;
  if (pixels > static_cast<uint64_t>(kMaxOffset)) return false;
  const uint64_t dataBytes = pixels * channels * p.sampleBytes;
  l->entries = 14 + (channels == 4 ? 1 : 0) - (channels == 1 ? 1 : 0) + (iptcWords > 0 ? 1 : 0);
  l->tableCount = p.stripsPerImage * (p.planar == 2 ? channels : 1);
  l->directoryEnd = kHeaderSize + 2 + kEntrySize * l->entries + 4;
  l->bitsAt = l->directoryEnd;
  const uint64_t bitsBytes = channels > 1 ? 2 * channels : 0;
  l->offsetsAt = l->bitsAt + bitsBytes;
  const uint64_t tableBytes = l->tableCount > 1 ? 4 * uint64_t{l->tableCount} : 0;
  l->countsAt = l->offsetsAt + tableBytes;
  l->xResolutionAt = l->countsAt + tableBytes;
  l->yResolutionAt = l->xResolutionAt + 8;
  l->iptcAt = l->yResolutionAt + 8;
  l->dataAt = l->iptcAt + (iptcWords > 1 ? 4 * uint64_t{iptcWords} : 0);
  l->end = l->dataAt + dataBytes;
  return l->end <= static_cast<uint64_t>(kMaxOffset);
}

// Where strip `s` of plane `k` starts and how long it is. A plane-by-plane
// strip holds its planes one after the other, each as long as the strip's
// rows need, so the last, shorter strip leaves no gaps.
void StripPlace(const TiffPriv &p, const TiffLayout &l, uint32_t s, uint32_t k, uint32_t *offset,
                uint32_t *bytes) {
  const uint64_t full = uint64_t{p.rowsPerStrip} * p.rowBytes;
  const uint64_t first = uint64_t{s} * p.rowsPerStrip;
  const uint64_t rows = p.height - first < p.rowsPerStrip ? p.height - first : p.rowsPerStrip;
  const uint64_t start = l.dataAt + s * full;
  if (p.planar == 2) {
    *offset = static_cast<uint32_t>(start + k * rows * p.planeBytes);
    *bytes = static_cast<uint32_t>(rows * p.planeBytes);
  } else {
    *offset = static_cast<uint32_t>(start);
    *bytes = static_cast<uint32_t>(rows * p.rowBytes);
  }
}

uint32_t ResolutionNumerator(float resolution) {
  const double n = static_cast<double>(resolution) * kResolutionDenominator + 0.5;
  if (n >= 4294967295.0) return 0xFFFFFFFF;
  return static_cast<uint32_t>(n);
}

// Everything between the directory and the image data, in file order.
void BuildExtras(const TiffPriv &p, const TiffLayout &l, float resolution, uint8_t *out) {
  const bool big = p.big;
  const uint64_t base = l.directoryEnd;
  if (p.samples > 1) {
    for (uint32_t k = 0; k < p.samples; ++k)
      RasPut16(out + (l.bitsAt - base) + 2 * k, 8 * p.sampleBytes, big);
  }
  if (l.tableCount > 1) {
    uint32_t i = 0;
    const uint32_t planes = p.planar == 2 ? p.samples : 1;
    for (uint32_t k = 0; k < planes; ++k) {
      for (uint32_t s = 0; s < p.stripsPerImage; ++s, ++i) {
        uint32_t offset, bytes;
        StripPlace(p, l, s, k, &offset, &bytes);
        RasPut32(out + (l.offsetsAt - base) + 4 * uint64_t{i}, offset, big);
        RasPut32(out + (l.countsAt - base) + 4 * uint64_t{i}, bytes, big);
      }
    }
  }
  const uint32_t numerator = ResolutionNumerator(resolution);
  for (uint64_t at : {l.xResolutionAt, l.yResolutionAt}) {
    RasPut32(out + (at - base), numerator, big);
    RasPut32(out + (at - base) + 4, kResolutionDenominator, big);
  }
  if (gIptcWords > 1) std::memcpy(out + (l.iptcAt - base), gIptc, 4 * uint64_t{gIptcWords});
}

int TiffWriteIFDE(RasFile *file, bool big, uint32_t tag, uint32_t type, uint32_t count,
                  const uint8_t *field) {
  uint8_t entry[kEntrySize];
  RasPut16(entry, tag, big);
  RasPut16(entry + 2, type, big);
  RasPut32(entry + 4, count, big);
  std::memcpy(entry + 8, field, 4);
  const int code = RasFormatWrite(file, entry, kEntrySize);
  return code == RasOk ? RasOk : RasError("TiffWriteIFDE", code, 0);
}

struct Field {
  uint8_t b[4];
};

// A SHORT stands in the first two bytes of the value field.
Field ShortField(uint32_t v, bool big) {
  Field f{};
  RasPut16(f.b, v, big);
  return f;
}

Field LongField(uint64_t v, bool big) {
  Field f{};
  RasPut32(f.b, static_cast<uint32_t>(v), big);
  return f;
}

int WriteDirectory(RasFile *file, const TiffPriv &p, const TiffLayout &l, uint32_t model) {
  const bool big = p.big;
  const uint32_t channels = p.samples;
  uint32_t firstOffset, firstBytes;
  StripPlace(p, l, 0, 0, &firstOffset, &firstBytes);
  const bool inlineTables = l.tableCount == 1;
  Field iptcField{};
  if (gIptcWords == 1)
    std::memcpy(iptcField.b, gIptc, 4);
  else
    iptcField = LongField(l.iptcAt, big);
  const struct {
    bool present;
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    Field field;
  } rows[] = {
      {true, kTagNewSubfileType, kTypeLong, 1, LongField(0, big)},
      {true, kTagImageWidth, kTypeLong, 1, LongField(p.width, big)},
      {true, kTagImageLength, kTypeLong, 1, LongField(p.height, big)},
      {true, kTagBitsPerSample, kTypeShort, channels,
       channels == 1 ? ShortField(8 * p.sampleBytes, big) : LongField(l.bitsAt, big)},
      {true, kTagCompression, kTypeShort, 1, ShortField(1, big)},
      {true, kTagPhotometric, kTypeShort, 1, ShortField(PhotometricOf(model), big)},
      {true, kTagStripOffsets, kTypeLong, l.tableCount,
       LongField(inlineTables ? firstOffset : l.offsetsAt, big)},
      {true, kTagSamplesPerPixel, kTypeShort, 1, ShortField(channels, big)},
      {true, kTagRowsPerStrip, kTypeLong, 1, LongField(p.rowsPerStrip, big)},
      {true, kTagStripByteCounts, kTypeLong, l.tableCount,
       LongField(inlineTables ? firstBytes : l.countsAt, big)},
      {true, kTagXResolution, kTypeRational, 1, LongField(l.xResolutionAt, big)},
      {true, kTagYResolution, kTypeRational, 1, LongField(l.yResolutionAt, big)},
      {channels > 1, kTagPlanarConfiguration, kTypeShort, 1, ShortField(p.planar, big)},
      {true, kTagResolutionUnit, kTypeShort, 1, ShortField(kUnitInch, big)},
      {channels == 4, kTagInkSet, kTypeShort, 1, ShortField(kInkSetCmyk, big)},
      {gIptcWords > 0, kTagIptc, kTypeLong, gIptcWords, iptcField},
  };
  for (const auto &r : rows) {
    if (!r.present) continue;
    const int code = TiffWriteIFDE(file, big, r.tag, r.type, r.count, r.field.b);
    if (code != RasOk) return code;
  }
  return RasOk;
}

// Writes header, directory and the items after it, each short write
// reported by the item.
int WriteHead(RasState *state, const TiffPriv &p, const TiffLayout &l, uint32_t model,
              const uint8_t *extras) {
  RasFile *file = &state->file;
  const bool big = p.big;
  uint8_t bytes[kHeaderSize];
  RasPut16(bytes, big ? kOrderMotorola : kOrderIntel, false);
  RasPut16(bytes + 2, kMagic, big);
  RasPut32(bytes + 4, kHeaderSize, big);
  if (RasFormatWrite(file, bytes, kHeaderSize) != RasOk) return FailOpen(state, RasErrWrite, 15);
  RasPut16(bytes, l.entries, big);
  if (RasFormatWrite(file, bytes, 2) != RasOk) return FailOpen(state, RasErrWrite, 16);
  if (WriteDirectory(file, p, l, model) != RasOk) return FailOpen(state, RasErrWrite, 17);
  RasPut32(bytes, 0, big);
  if (RasFormatWrite(file, bytes, 4) != RasOk) return FailOpen(state, RasErrWrite, 18);
  const uint64_t base = l.directoryEnd;
  const struct {
    uint64_t from;
    uint64_t to;
    int detail;
  } items[] = {
      {l.bitsAt, l.offsetsAt, 19},       {l.offsetsAt, l.countsAt, 20},
      {l.countsAt, l.xResolutionAt, 21}, {l.xResolutionAt, l.iptcAt, 22},
      {l.iptcAt, l.dataAt, 23},
  };
  for (const auto &item : items) {
    if (item.to == item.from) continue;
    const int code = RasFormatWrite(file, extras + (item.from - base), item.to - item.from);
    if (code != RasOk) return FailOpen(state, RasErrWrite, item.detail);
  }
  return RasOk;
}

void ChooseWriteRows(TiffPriv *p, uint32_t model) {
  const bool lab = model == RasModelLab;
  if (lab) {
    p->flip[1] = p->flip[2] = 0x80;
    p->flip16[1] = p->flip16[2] = 0x8000;
  }
  p->interleaved = p->samples > 1 && p->planar == 1;
  p->planeBytes = uint64_t{p->width} * p->sampleBytes;
  p->rowBytes = p->planeBytes * p->samples;
  p->pack = lab ? PackLab : RasJoinRowFor(p->samples, false);
}

int OpenWrite(const char *name, RasDesc *desc, uint32_t bits) {
  RasState *state = desc->state;
  // The caller sees the resolution that went into the file.
  if (!(desc->resolution > 0.0f)) desc->resolution = kDefaultResolution;
  const uint32_t channels = desc->channels;
  if (desc->width == 0 || desc->height == 0 || !ModelFitsChannels(desc->model, channels))
    return RasError("TiffOpen", RasErrArg, 11);

  TiffPriv *p = NewPriv(bits / 8);
  if (!p) return RasError("TiffOpen", RasErrMemory, 13);
  state->priv = p;
  p->big = gByteOrder == kOrderMotorola;
  p->width = desc->width;
  p->height = desc->height;
  p->samples = channels;
  p->photometric = PhotometricOf(desc->model);
  p->planar = channels == 1 ? 1 : gPlanar;
  ChooseWriteRows(p, desc->model);
  PlanStrips(p);
  TiffLayout l{};
  if (!PlanLayout(*p, gIptcWords, &l)) return FailOpen(state, RasErrArg, 12);

  const uint64_t stripBytes = uint64_t{p->rowsPerStrip} * p->rowBytes;
  const uint64_t extraBytes = l.dataAt - l.directoryEnd;
  if (stripBytes > static_cast<uint64_t>(kMaxBuffer)) return FailOpen(state, RasErrMemory, 13);
  p->buffer = static_cast<uint8_t *>(RasAlloc(stripBytes));
  auto *extras = static_cast<uint8_t *>(RasAlloc(extraBytes));
  if (!p->buffer || !extras) {
    RasFree(extras);
    return FailOpen(state, RasErrMemory, 13);
  }
  BuildExtras(*p, l, desc->resolution, extras);

  const int opened = RasFormatOpenWrite(&state->file, name, static_cast<int64_t>(l.end));
  if (opened != RasOk) {
    RasFree(extras);
    return FailOpen(state, opened, 14);
  }
  const int written = WriteHead(state, *p, l, desc->model, extras);
  RasFree(extras);
  if (written != RasOk) return written;
  p->position = static_cast<int64_t>(l.dataAt);
  p->nextRow = 0;
  return RasOk;
}

// A record can serve a file when it is as wide and has every plane of the
// file's sample width.
bool PlanesFit(const RasSl *sl, const TiffPriv &p) {
  return RasFormatPlanesFit(sl, p.width, p.samples, p.sampleBytes == 2);
}

int OpenChecked(const char *name, char mode, RasDesc *desc, uint32_t bits, uint32_t format) {
  const int begun = RasFormatBegin("TiffOpen", name, mode, desc, 1);
  if (begun != RasOk) return begun;
  return mode == 'w' ? OpenWrite(name, desc, bits) : OpenRead(name, desc, bits, format);
}

// The file position of row `row` of plane `k` (plane 0 for interleaved
// files), or -1 when the strip's byte count does not reach the row.
int64_t RowOffset(const TiffPriv &p, uint32_t row, uint32_t k, uint64_t bytes) {
  const uint32_t strip = row / p.rowsPerStrip;
  const uint64_t inStrip = row - uint64_t{strip} * p.rowsPerStrip;
  const uint64_t index = uint64_t{k} * p.stripsPerImage + strip;
  if ((inStrip + 1) * bytes > p.byteCounts[index]) return -1;
  return static_cast<int64_t>(p.offsets[index] + inStrip * bytes);
}

// ---- 16-bit rows. Samples are taken in the file's byte order and handed
// over in the host's, exchanged by `flip16` like the 8-bit ones.

void Unpack16(const TiffPriv &p, const uint8_t *src, uint16_t *const *planes) {
  const uint32_t n = p.samples;
  for (uint32_t k = 0; k < n; ++k) {
    uint16_t *__restrict plane = planes[k];
    const uint8_t *at = src + 2 * k;
    for (uint32_t x = 0; x < p.width; ++x, at += 2 * n)
      plane[x] = static_cast<uint16_t>(RasGet16(at, p.big) ^ p.flip16[k]);
  }
}

void Pack16(const TiffPriv &p, uint8_t *dst, const uint16_t *const *planes) {
  const uint32_t n = p.samples;
  for (uint32_t k = 0; k < n; ++k) {
    const uint16_t *__restrict plane = planes[k];
    uint8_t *at = dst + 2 * k;
    for (uint32_t x = 0; x < p.width; ++x, at += 2 * n)
      RasPut16(at, plane[x] ^ p.flip16[k], p.big);
  }
}

// One plane read as the file's bytes, turned into samples where it lies.
void Plane16InPlace(const TiffPriv &p, uint16_t *plane, uint16_t flip) {
  auto *bytes = reinterpret_cast<uint8_t *>(plane);
  for (uint32_t x = 0; x < p.width; ++x) {
    const auto v = static_cast<uint16_t>(RasGet16(bytes + 2 * x, p.big) ^ flip);
    std::memcpy(bytes + 2 * x, &v, 2);
  }
}

void PlaneToFile16(const TiffPriv &p, uint8_t *dst, const uint16_t *plane, uint16_t flip) {
  for (uint32_t x = 0; x < p.width; ++x)
    RasPut16(dst + 2 * x, plane[x] ^ flip, p.big);
}

// Rows of either sample width, the checks shared; `routine` names the entry
// point in reports.
int ReadRow(RasDesc *desc, uint32_t row, RasSl *sl, const char *routine) {
  if (!desc || !sl) return RasError(routine, RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'r');
  if (!state) return RasError(routine, RasErrArg, 1);
  TiffPriv *p = PrivOf(desc);
  if (row >= p->height) return RasError(routine, RasErrArg, 2);
  const int made = RasFormatMakePlanes(sl, desc);
  if (made != RasOk) return RasError(routine, made, 3);
  if (!PlanesFit(sl, *p)) return RasError(routine, RasErrArg, 4);

  RasFile *file = &state->file;
  const bool wide = p->sampleBytes == 2;
  if (p->interleaved) {
    const int64_t offset = RowOffset(*p, row, 0, p->rowBytes);
    if (offset < 0) return RasError(routine, RasErrRead, 5);
    const int code = ReadAt(file, p, offset, p->buffer, static_cast<int64_t>(p->rowBytes));
    if (code != RasOk) return RasError(routine, code, 6);
    if (wide)
      Unpack16(*p, p->buffer, sl->plane16);
    else
      p->unpack(p->buffer, sl->plane8, p->width);
    return RasOk;
  }
  for (uint32_t k = 0; k < p->samples; ++k) {
    const int64_t offset = RowOffset(*p, row, k, p->planeBytes);
    if (offset < 0) return RasError(routine, RasErrRead, 5);
    void *dst = wide ? static_cast<void *>(sl->plane16[k]) : sl->plane8[k];
    const int code = ReadAt(file, p, offset, dst, static_cast<int64_t>(p->planeBytes));
    if (code != RasOk) return RasError(routine, code, 6);
    if (wide)
      Plane16InPlace(*p, sl->plane16[k], p->flip16[k]);
    else if (p->flip[k])
      FlipPlane(sl->plane8[k], p->planeBytes, p->flip[k]);
  }
  return RasOk;
}

int WriteRow(RasDesc *desc, uint32_t row, const RasSl *sl, const char *routine) {
  if (!desc || !sl) return RasError(routine, RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'w');
  if (!state) return RasError(routine, RasErrArg, 1);
  TiffPriv *p = PrivOf(desc);
  if (row >= p->height) return RasError(routine, RasErrArg, 2);
  if (row != p->nextRow) return RasError(routine, RasErrArg, 3);
  if (!PlanesFit(sl, *p)) return RasError(routine, RasErrArg, 4);

  const uint32_t strip = row / p->rowsPerStrip;
  const uint64_t first = uint64_t{strip} * p->rowsPerStrip;
  const uint64_t inStrip = row - first;
  const uint64_t left = p->height - first;
  const uint64_t rows = left < p->rowsPerStrip ? left : p->rowsPerStrip;
  const bool wide = p->sampleBytes == 2;
  if (p->interleaved) {
    uint8_t *dst = p->buffer + inStrip * p->rowBytes;
    if (wide)
      Pack16(*p, dst, sl->plane16);
    else
      p->pack(dst, sl->plane8, p->width);
  } else {
    for (uint32_t k = 0; k < p->samples; ++k) {
      uint8_t *dst = p->buffer + (k * rows + inStrip) * p->planeBytes;
      if (wide)
        PlaneToFile16(*p, dst, sl->plane16[k], p->flip16[k]);
      else
        CopyPlane(dst, sl->plane8[k], p->planeBytes, p->flip[k]);
    }
  }
  if (inStrip + 1 == rows) {
    const int64_t bytes = static_cast<int64_t>(rows * p->rowBytes);
    const int code = RasFormatWrite(&state->file, p->buffer, bytes);
    if (code != RasOk) return RasError(routine, code, 5);
    p->position += bytes;
  }
  p->nextRow = row + 1;
  return RasOk;
}

}  // namespace

int TiffOpen(const char *name, char mode, RasDesc *desc) {
  return OpenChecked(name, mode, desc, 8, RasFormatTiff);
}

int TiffReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  return ReadRow(desc, row, sl, "TiffReadSl");
}

int TiffWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return WriteRow(desc, row, sl, "TiffWriteSl");
}

int TiffClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasError("TiffClose", RasErrArg, 0);
  RasState *state = desc->state;
  const int code = RasFormatCloseFile(state);
  FreePriv(state);
  return code == RasOk ? RasOk : RasError("TiffClose", code, 1);
}

// 16-bit TIFF (format 10): the same files with 16-bit samples, read and
// written through the same open steps and row code.
int Tiff16Open(const char *name, char mode, RasDesc *desc) {
  return OpenChecked(name, mode, desc, 16, RasFormatTiff16);
}

int Tiff16ReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  return ReadRow(desc, row, sl, "Tiff16ReadSl");
}

int Tiff16WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return WriteRow(desc, row, sl, "Tiff16WriteSl");
}

int Tiff16Close(RasDesc *desc) {
  return TiffClose(desc);
}

int TiffSetOption(int option, uint32_t value, RasDesc *desc) {
  switch (option) {
    case TiffOptPlanar:
      if (value != 1 && value != 2) return RasError("TiffSetOption", RasErrArg, 1);
      gPlanar = value;
      return RasOk;
    case TiffOptByteOrder:
      if (value != kOrderIntel && value != kOrderMotorola)
        return RasError("TiffSetOption", RasErrArg, 2);
      gByteOrder = value;
      return RasOk;
    case TiffOptCopyIptc: {
      if (!desc) return RasError("TiffSetOption", RasErrArg, 3);
      if (desc->format != RasFormatTiff) {
        ClearIptc();
        return RasOk;
      }
      if (!desc->state || !desc->state->priv) return RasError("TiffSetOption", RasErrArg, 3);
      const TiffPriv *p = PrivOf(desc);
      ClearIptc();
      if (p->iptcWords == 0) return RasOk;
      gIptc = static_cast<uint32_t *>(RasAlloc(4 * uint64_t{p->iptcWords}));
      if (!gIptc) return RasError("TiffSetOption", RasErrMemory, 4);
      std::memcpy(gIptc, p->iptc, 4 * uint64_t{p->iptcWords});
      gIptcWords = p->iptcWords;
      return RasOk;
    }
    case TiffOptClearIptc:
      ClearIptc();
      return RasOk;
    default:
      return RasError("TiffSetOption", RasErrArg, 0);
  }
}

// Options 2 and 3 answer the number of IPTC words the buffer holds.
uint32_t TiffGetOption(int option) {
  switch (option) {
    case TiffOptPlanar:
      return gPlanar;
    case TiffOptByteOrder:
      return gByteOrder;
    case TiffOptCopyIptc:
    case TiffOptClearIptc:
      return gIptcWords;
    default:
      return 65535;
  }
}

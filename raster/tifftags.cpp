// The TIFF directory: entry types, the tags the reader knows and what a
// directory must hold for the reader to take the file.
#include <cstring>

#include "raster/core/rasformat.h"
#include "raster/tiffpriv.h"

namespace tiff {

namespace {

bool IsInteger(uint32_t type) {
  return type == kTypeByte || type == kTypeShort || type == kTypeLong;
}

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

}  // namespace

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

}  // namespace tiff

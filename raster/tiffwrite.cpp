// The TIFF writer: the file's layout planned before the first byte, the
// directory and the items after it, then rows strictly in order gathered into
// strips.
#include <cstring>
#include <initializer_list>

#include "raster/core/rasformat.h"
#include "raster/tiff.h"
#include "raster/tiffpriv.h"

namespace tiff {

namespace {

// The L*a*b* packer exchanges a and b between the offset samples in the
// planes and the signed samples in the file.
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

void Pack16(const TiffPriv &p, uint8_t *dst, const uint16_t *const *planes) {
  const uint32_t n = p.samples;
  for (uint32_t k = 0; k < n; ++k) {
    const uint16_t *__restrict plane = planes[k];
    uint8_t *at = dst + 2 * k;
    for (uint32_t x = 0; x < p.width; ++x, at += 2 * n)
      RasPut16(at, plane[x] ^ p.flip16[k], p.big);
  }
}

void PlaneToFile16(const TiffPriv &p, uint8_t *dst, const uint16_t *plane, uint16_t flip) {
  for (uint32_t x = 0; x < p.width; ++x)
    RasPut16(dst + 2 * x, plane[x] ^ flip, p.big);
}

}  // namespace

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

}  // namespace tiff

int TiffWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return tiff::WriteRow(desc, row, sl, "TiffWriteSl");
}

int Tiff16WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return tiff::WriteRow(desc, row, sl, "Tiff16WriteSl");
}

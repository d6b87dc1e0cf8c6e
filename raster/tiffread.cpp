// The TIFF reader: the open's steps after the header, and rows of 8- or 16-bit
// samples, interleaved or plane by plane, in any order.
#include <cstring>

#include "raster/core/rasformat.h"
#include "raster/tiff.h"
#include "raster/tiffpriv.h"

namespace tiff {

namespace {

// Colour rows go through the library's shared interleave routines; only
// L*a*b* needs its own unpacker, for the exchange of a and b between the
// signed samples in the file and the offset samples in the planes.
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

void FlipPlane(uint8_t *plane, uint64_t bytes, uint8_t flip) {
  for (uint64_t i = 0; i < bytes; ++i)
    plane[i] ^= flip;
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

// 16-bit samples are taken in the file's byte order and handed over in the
// host's, exchanged by `flip16` like the 8-bit ones.
void Unpack16(const TiffPriv &p, const uint8_t *src, uint16_t *const *planes) {
  const uint32_t n = p.samples;
  for (uint32_t k = 0; k < n; ++k) {
    uint16_t *__restrict plane = planes[k];
    const uint8_t *at = src + 2 * k;
    for (uint32_t x = 0; x < p.width; ++x, at += 2 * n)
      plane[x] = static_cast<uint16_t>(RasGet16(at, p.big) ^ p.flip16[k]);
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

// The file position of row `row` of plane `k` (plane 0 for interleaved
// files), or -1 when the strip's byte count does not reach the row.
int64_t RowOffset(const TiffPriv &p, uint32_t row, uint32_t k, uint64_t bytes) {
  const uint32_t strip = row / p.rowsPerStrip;
  const uint64_t inStrip = row - uint64_t{strip} * p.rowsPerStrip;
  const uint64_t index = uint64_t{k} * p.stripsPerImage + strip;
  if ((inStrip + 1) * bytes > p.byteCounts[index]) return -1;
  return static_cast<int64_t>(p.offsets[index] + inStrip * bytes);
}

}  // namespace

int OpenRead(const char *name, RasDesc *desc, uint32_t bits, uint32_t format) {
  RasState *state = desc->state;
  RasFile *file = &state->file;
  uint8_t header[kHeaderSize];
  int code = RasFormatOpenHeader("TiffOpen", state, name, header, kHeaderSize, 2);
  if (code != RasOk) return code;
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

}  // namespace tiff

int TiffReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  return tiff::ReadRow(desc, row, sl, "TiffReadSl");
}

int Tiff16ReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  return tiff::ReadRow(desc, row, sl, "Tiff16ReadSl");
}

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

#include "raster/core/rasformat.h"
#include "raster/tiffpriv.h"

namespace tiff {

thread_local uint32_t gPlanar = 1;
thread_local uint32_t gByteOrder = kOrderIntel;
thread_local uint32_t gIptcWords = 0;
thread_local uint32_t *gIptc = nullptr;

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
  return RasFormatPriv<TiffPriv>(desc);
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

int FailOpen(RasState *state, int code, int detail) {
  RasFormatDropFile(state, true);
  FreePriv(state);
  return RasError("TiffOpen", code, detail);
}

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

bool PlanesFit(const RasSl *sl, const TiffPriv &p) {
  return RasFormatPlanesFit(sl, p.width, p.samples, p.sampleBytes == 2);
}

namespace {

void ClearIptc() {
  gIptc = static_cast<uint32_t *>(RasFree(gIptc));
  gIptcWords = 0;
}

int OpenChecked(const char *name, char mode, RasDesc *desc, uint32_t bits, uint32_t format) {
  const int begun = RasFormatBegin("TiffOpen", name, mode, desc, 1);
  if (begun != RasOk) return begun;
  return mode == 'w' ? OpenWrite(name, desc, bits) : OpenRead(name, desc, bits, format);
}

}  // namespace

}  // namespace tiff

using namespace tiff;

int TiffOpen(const char *name, char mode, RasDesc *desc) {
  return OpenChecked(name, mode, desc, 8, RasFormatTiff);
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

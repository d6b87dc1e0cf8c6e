// The DC-only eighth-size decode: markers read up to the scan, then the
// scan's blocks, then the colour conversion. Every refusal returns false
// early; nothing is written to the caller's record until the picture is
// complete.
#include "raster/jpegdc.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstr.h"
#include "raster/jpegdcbits.h"

namespace {

using jpegdc::BitReader;
using jpegdc::HuffTable;

// Zigzag position -> natural (row-major) position, with the codec's 16
// spare entries past the end, so a damaged run stores to the last place
// instead of past the block.
constexpr uint8_t kNatural[80] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                  12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                  35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                  58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
                                  63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63};

// Sample values after a reduced transform, indexed by the value less 128
// and masked to 10 bits: the codec's post-transform clamp, including its
// wrap for values far out of range.
struct Clamp {
  uint8_t table[1024];
  Clamp() {
    for (int i = 0; i < 1024; ++i)
      table[i] = static_cast<uint8_t>(i < 128 ? i + 128 : i < 512 ? 255 : i < 896 ? 0 : i - 896);
  }
  uint8_t operator()(int value) const { return table[value & 1023]; }
};
const Clamp kClamp;

struct Component {
  int id = 0, h = 1, v = 1, quantIndex = 0;
  int scaled = 1;  // pixels along a block's side at the eighth: 1, or 2 for halved chroma
  int blocksWide = 0, blocksHigh = 0;  // blocks that hold picture; the rest pad the MCU
  const HuffTable *dc = nullptr;
  const HuffTable *ac = nullptr;
  int16_t quant[64] = {};  // natural order, as the codec's 16-bit multipliers hold it
  int prediction = 0;
  int16_t block[64] = {};      // the coefficients of the block being read
  std::vector<uint8_t> plane;  // blocksWide * scaled by blocksHigh * scaled samples
  size_t stride = 0;
};

struct Frame {
  uint16_t quant[4][64] = {};
  bool quantDefined[4] = {};
  HuffTable dcTables[4], acTables[4];
  int restartInterval = 0;
  bool jfif = false, adobe = false, sawFrame = false;
  uint32_t width = 0, height = 0;
  int count = 0, maxH = 1, maxV = 1;
  Component parts[3];
};

// A marker segment's bytes after its length field.
struct Segment {
  const uint8_t *data;
  size_t length;
};

uint32_t Be16(const uint8_t *p) {
  return uint32_t{p[0]} << 8 | p[1];
}

bool ReadQuant(Segment s, Frame *f) {
  while (s.length > 0) {
    const int precision = s.data[0] >> 4, index = s.data[0] & 15;
    const size_t bytes = 1 + 64 * static_cast<size_t>(precision + 1);
    if (precision > 1 || index > 3 || s.length < bytes) return false;
    for (int i = 0; i < 64; ++i)
      f->quant[index][kNatural[i]] =
          static_cast<uint16_t>(precision ? Be16(s.data + 1 + 2 * i) : uint32_t{s.data[1 + i]});
    f->quantDefined[index] = true;
    s.data += bytes, s.length -= bytes;
  }
  return true;
}

bool ReadHuffman(Segment s, Frame *f) {
  while (s.length > 0) {
    if (s.length < 17) return false;
    const int kind = s.data[0] >> 4, index = s.data[0] & 15;
    int total = 0;
    for (int i = 1; i <= 16; ++i)
      total += s.data[i];
    if (kind > 1 || index > 3 || s.length < 17 + static_cast<size_t>(total)) return false;
    HuffTable *table = kind == 0 ? &f->dcTables[index] : &f->acTables[index];
    if (!jpegdc::BuildHuffTable(s.data + 1, s.data + 17, total, kind == 0, table)) return false;
    s.data += 17 + total, s.length -= 17 + static_cast<size_t>(total);
  }
  return true;
}

bool ReadFrame(Segment s, Frame *f) {
  if (f->sawFrame || s.length < 6) return false;
  f->sawFrame = true;
  f->height = Be16(s.data + 1), f->width = Be16(s.data + 3);
  f->count = s.data[5];
  if (s.data[0] != 8 || f->width == 0 || f->height == 0 || (f->count != 1 && f->count != 3) ||
      s.length != 6 + 3 * static_cast<size_t>(f->count))
    return false;
  for (int c = 0; c < f->count; ++c) {
    Component &part = f->parts[c];
    const uint8_t *p = s.data + 6 + 3 * c;
    part.id = p[0], part.h = p[1] >> 4, part.v = p[1] & 15, part.quantIndex = p[2];
    if (part.h < 1 || part.h > 2 || part.v < 1 || part.v > 2 || part.quantIndex > 3) return false;
    for (int other = 0; other < c; ++other)
      if (f->parts[other].id == part.id) return false;
  }
  // A lone component is read one block at a time whatever its factors say.
  if (f->count == 1) f->parts[0].h = f->parts[0].v = 1;
  for (int c = 0; c < f->count; ++c)
    f->maxH = std::max(f->maxH, f->parts[c].h), f->maxV = std::max(f->maxV, f->parts[c].v);
  return true;
}

// The scan header: every component, in the frame's order, whole spectrum.
bool ReadScan(Segment s, Frame *f) {
  if (!f->sawFrame || s.length < 1 || s.data[0] != f->count ||
      s.length != 4 + 2 * static_cast<size_t>(f->count))
    return false;
  for (int c = 0; c < f->count; ++c) {
    Component &part = f->parts[c];
    const uint8_t *p = s.data + 1 + 2 * c;
    const int dc = p[1] >> 4, ac = p[1] & 15;
    if (p[0] != part.id || dc > 3 || ac > 3 || !f->dcTables[dc].defined ||
        !f->acTables[ac].defined || !f->quantDefined[part.quantIndex])
      return false;
    part.dc = &f->dcTables[dc], part.ac = &f->acTables[ac];
    for (int i = 0; i < 64; ++i)
      part.quant[i] = static_cast<int16_t>(f->quant[part.quantIndex][i]);
  }
  const uint8_t *spectrum = s.data + 1 + 2 * f->count;
  return spectrum[0] == 0 && spectrum[1] == 63 && spectrum[2] == 0;
}

// APP0 "JFIF" and APP14 "Adobe" decide how the codec takes three
// components; it looks at no other application segment.
void NoteApplication(int marker, Segment s, Frame *f) {
  if (marker == 0xE0 && s.length >= 14 && std::memcmp(s.data, "JFIF", 5) == 0) f->jfif = true;
  if (marker == 0xEE && s.length >= 12 && std::memcmp(s.data, "Adobe", 5) == 0) f->adobe = true;
}

bool ReadSegment(int marker, Segment s, Frame *f) {
  if (marker == 0xDB) return ReadQuant(s, f);
  if (marker == 0xC4) return ReadHuffman(s, f);
  if (marker == 0xC0 || marker == 0xC1) return ReadFrame(s, f);
  if (marker == 0xDD) {
    if (s.length != 2) return false;
    f->restartInterval = static_cast<int>(Be16(s.data));
    return true;
  }
  if ((marker >= 0xE0 && marker <= 0xEF) || marker == 0xFE) {
    NoteApplication(marker, s, f);
    return true;
  }
  return false;  // another coding process, or a marker out of place
}

// The markers up to and including the scan header; `*scan` then points at
// the entropy-coded data.
bool ReadMarkers(const uint8_t *data, size_t size, Frame *f, const uint8_t **scan) {
  if (size < 4 || data[0] != 0xFF || data[1] != 0xD8) return false;
  size_t at = 2;
  for (;;) {
    if (at >= size || data[at] != 0xFF) return false;
    while (at < size && data[at] == 0xFF)
      ++at;
    if (at + 2 >= size) return false;
    const int marker = data[at];
    const size_t length = Be16(data + at + 1);
    if (length < 2 || at + 1 + length > size) return false;
    const Segment segment{data + at + 3, length - 2};
    at += 1 + length;
    if (marker == 0xDA) {
      *scan = data + at;
      return ReadScan(segment, f);
    }
    if (!ReadSegment(marker, segment, f)) return false;
  }
}

// How the codec takes three components: YCbCr unless an Adobe segment
// without JFIF, or the component names R, G, B, say otherwise; those are
// declined rather than guessed.
bool IsGreyOrYcc(const Frame &f) {
  if (f.count == 1) return true;
  if (f.jfif) return true;
  if (f.adobe) return false;
  return !(f.parts[0].id == 'R' && f.parts[1].id == 'G' && f.parts[2].id == 'B');
}

// The codec's choice of reduced transform per component, the blocks that
// hold picture, and the sample planes.
bool PlanComponents(Frame *f) {
  int blocksInMcu = 0;
  for (int c = 0; c < f->count; ++c) {
    Component &part = f->parts[c];
    blocksInMcu += part.h * part.v;
    // Chroma halved both ways is reduced by a 2x2 transform rather than
    // upsampled: the codec scales a component up while the frame's largest
    // factors allow.
    part.scaled = f->maxH % (part.h * 2) == 0 && f->maxV % (part.v * 2) == 0 ? 2 : 1;
    const uint32_t sampledWide = (f->width * part.h + f->maxH - 1) / f->maxH;
    const uint32_t sampledHigh = (f->height * part.v + f->maxV - 1) / f->maxV;
    part.blocksWide = static_cast<int>((sampledWide + 7) / 8);
    part.blocksHigh = static_cast<int>((sampledHigh + 7) / 8);
    part.stride = static_cast<size_t>(part.blocksWide) * part.scaled;
    try {
      part.plane.assign(part.stride * static_cast<size_t>(part.blocksHigh) * part.scaled, 0);
    } catch (const std::bad_alloc &) {
      return false;
    }
  }
  return blocksInMcu <= 10;
}

// One DC difference or AC symbol read whole: `run` and `size` of the
// symbol, its coefficient value returned. False for a code no table holds.
inline bool Decode(BitReader &bits, const HuffTable &table, int *run, int *size, int *value) {
  bits.Ensure();
  const uint32_t entry = table.fast[bits.Peek(jpegdc::kFastBits)];
  if (entry & jpegdc::kEntryComplete) {
    bits.Drop(jpegdc::EntryBits(entry));
    *run = jpegdc::EntryRun(entry), *size = jpegdc::EntrySize(entry);
    *value = jpegdc::EntryValue(entry);
    return true;
  }
  int symbol;
  if (entry != 0) {
    bits.Drop(jpegdc::EntryBits(entry));
    symbol = jpegdc::EntryRun(entry) << 4 | jpegdc::EntrySize(entry);
  } else {
    int length = jpegdc::kFastBits + 1;
    int32_t code = static_cast<int32_t>(bits.Peek(length));
    while (length <= 16 && code > table.maxcode[length])
      code = static_cast<int32_t>(bits.Peek(++length));
    if (length > 16) return false;
    bits.Drop(length);
    symbol = table.values[(code + table.valoffset[length]) & 255];
  }
  *run = symbol >> 4, *size = symbol & 15;
  bits.Ensure();
  *value = jpegdc::Extend(bits.Take(*size), *size);
  return true;
}

// Passes over a block's AC coefficients: the codec's loop, without
// storing, several symbols a step while the block has room for them all.
inline bool SkipAc(BitReader &bits, const HuffTable &table) {
  for (int k = 1; k < 64;) {
    bits.Ensure();
    const uint16_t skip = table.skip[bits.Peek(jpegdc::kSkipBits)];
    if (jpegdc::SkipBits(skip) != 0 && k + jpegdc::SkipAdvance(skip) <= 63) {
      bits.Drop(jpegdc::SkipBits(skip));
      if (jpegdc::SkipEnds(skip)) break;
      k += jpegdc::SkipAdvance(skip);
      continue;
    }
    int run, size, value;
    if (!Decode(bits, table, &run, &size, &value)) return false;
    if (size != 0) {
      k += run + 1;
    } else if (run == 15) {
      k += 16;
    } else {
      break;
    }
  }
  return true;
}

// Reads a block's AC coefficients into `block`, noting in `*written` the
// (natural) places it stored to.
inline bool ReadAc(BitReader &bits, const HuffTable &table, int16_t block[64], uint64_t *written) {
  for (int k = 1; k < 64;) {
    int run, size, value;
    if (!Decode(bits, table, &run, &size, &value)) return false;
    if (size != 0) {
      k += run;
      block[kNatural[k]] = static_cast<int16_t>(value);
      *written |= uint64_t{1} << kNatural[k];
      ++k;
    } else if (run == 15) {
      k += 16;
    } else {
      break;
    }
  }
  return true;
}

// The codec's 1x1 reduced transform: the DC value over 8, centred.
inline uint8_t Reduce1x1(int16_t dc, int16_t quant) {
  const int value = dc * quant;
  return kClamp((value + 4) >> 3);
}

// The codec's 2x2 reduced transform (its integer LL&M derivation, 13-bit
// constants), from the coefficients of rows and columns 0, 1, 3, 5 and 7.
// `written` marks the AC coefficients that may be other than zero; columns
// without any come out as the codec's arithmetic makes them, zero.
void Reduce2x2(const int16_t block[64], uint64_t written, const int16_t quant[64], uint8_t *out,
               size_t stride) {
  constexpr int kConstBits = 13, kPass1Bits = 2;
  constexpr uint64_t kOddRows = 0xFFull << 8 | 0xFFull << 24 | 0xFFull << 40 | 0xFFull << 56;
  constexpr auto descale = [](int64_t x, int n) {
    return static_cast<int>((x + (int64_t{1} << (n - 1))) >> n);
  };
  // The odd part both passes share, from the terms at 1, 3, 5 and 7.
  constexpr auto odd = [](int64_t t1, int64_t t3, int64_t t5, int64_t t7) {
    return t7 * -5906 + t5 * 6967 + t3 * -10426 + t1 * 29692;
  };
  int work[16] = {};
  for (int col : {0, 1, 3, 5, 7}) {
    const uint64_t column = 0x0101010101010101ull << col;
    if (col != 0 && (written & column) == 0) continue;
    const auto q = [&](int row) { return block[row * 8 + col] * quant[row * 8 + col]; };
    if ((written & column & kOddRows) == 0) {
      // Wide, then wrapped to int as the codec's shift wraps it.
      work[col] = work[8 + col] = static_cast<int>(int64_t{q(0)} * (1 << kPass1Bits));
      continue;
    }
    const int64_t even = int64_t{q(0)} * (1 << (kConstBits + 2));
    const int64_t o = odd(q(1), q(3), q(5), q(7));
    work[col] = descale(even + o, kConstBits - kPass1Bits + 2);
    work[8 + col] = descale(even - o, kConstBits - kPass1Bits + 2);
  }
  for (int row = 0; row < 2; ++row) {
    const int *w = work + 8 * row;
    const int64_t even = int64_t{w[0]} * (1 << (kConstBits + 2));
    const int64_t o = odd(w[1], w[3], w[5], w[7]);
    out[row * stride] = kClamp(descale(even + o, kConstBits + kPass1Bits + 3 + 2));
    out[row * stride + 1] = kClamp(descale(even - o, kConstBits + kPass1Bits + 3 + 2));
  }
}

// One block of `part` at block column `col`, row `row` of its plane.
inline bool ReadBlock(BitReader &bits, Component &part, int col, int row) {
  int run, size, diff;
  if (!Decode(bits, *part.dc, &run, &size, &diff)) return false;
  part.prediction += diff;
  // The codec stops where the running DC value would overflow; it is far
  // out of range long before.
  if (part.prediction > (1 << 30) || part.prediction < -(1 << 30)) return false;
  const bool inside = col < part.blocksWide && row < part.blocksHigh;
  if (part.scaled == 1) {
    if (!SkipAc(bits, *part.ac)) return false;
    if (inside)
      part.plane[static_cast<size_t>(row) * part.stride + static_cast<size_t>(col)] =
          Reduce1x1(static_cast<int16_t>(part.prediction), part.quant[0]);
    return true;
  }
  int16_t *block = part.block;
  uint64_t written = 0;
  if (!ReadAc(bits, *part.ac, block, &written)) return false;
  block[0] = static_cast<int16_t>(part.prediction);
  if (inside)
    Reduce2x2(block, written, part.quant,
              part.plane.data() + static_cast<size_t>(row) * 2 * part.stride + col * 2,
              part.stride);
  for (; written != 0; written &= written - 1)
    block[__builtin_ctzll(written)] = 0;
  return true;
}

bool ReadMcu(BitReader &bits, Frame &f, int mcuCol, int mcuRow) {
  for (int c = 0; c < f.count; ++c) {
    Component &part = f.parts[c];
    for (int y = 0; y < part.v; ++y)
      for (int x = 0; x < part.h; ++x)
        if (!ReadBlock(bits, part, mcuCol * part.h + x, mcuRow * part.v + y)) return false;
  }
  return true;
}

bool ReadScanData(const uint8_t *scan, const uint8_t *end, Frame &f) {
  const int mcusWide = f.count == 1 ? f.parts[0].blocksWide
                                    : static_cast<int>((f.width + 8 * f.maxH - 1) / (8 * f.maxH));
  const int mcusHigh = f.count == 1 ? f.parts[0].blocksHigh
                                    : static_cast<int>((f.height + 8 * f.maxV - 1) / (8 * f.maxV));
  BitReader bits(scan, end);
  int64_t done = 0;
  int nextRestart = 0;
  for (int row = 0; row < mcusHigh; ++row)
    for (int col = 0; col < mcusWide; ++col, ++done) {
      if (f.restartInterval != 0 && done != 0 && done % f.restartInterval == 0) {
        if (!bits.Restart(nextRestart)) return false;
        nextRestart = (nextRestart + 1) & 7;
        for (int c = 0; c < f.count; ++c)
          f.parts[c].prediction = 0;
      }
      if (!ReadMcu(bits, f, col, row)) return false;
    }
  return bits.AtEnd();
}

// The codec's YCbCr to RGB tables (16-bit fixed point, rounded as it rounds).
struct YccTables {
  int crRed[256], cbBlue[256], crGreen[256], cbGreen[256];
  YccTables() {
    constexpr int kBits = 16;
    const auto fix = [](double x) { return static_cast<int>(x * (1 << kBits) + 0.5); };
    for (int i = 0; i < 256; ++i) {
      const int x = i - 128;
      crRed[i] = (fix(1.40200) * x + (1 << (kBits - 1))) >> kBits;
      cbBlue[i] = (fix(1.77200) * x + (1 << (kBits - 1))) >> kBits;
      crGreen[i] = -fix(0.71414) * x;
      cbGreen[i] = -fix(0.34414) * x + (1 << (kBits - 1));
    }
  }
};
const YccTables kYcc;

uint8_t Clamp255(int v) {
  return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

// Row `y` of component `part` as the output row needs it, its samples
// repeated where the component is sampled more coarsely than the picture.
const uint8_t *PartRow(const Frame &f, const Component &part, uint32_t y, int *shift) {
  const int across = f.maxH / (part.h * part.scaled), down = f.maxV / (part.v * part.scaled);
  *shift = across == 2 ? 1 : 0;
  return part.plane.data() + static_cast<size_t>(down == 2 ? y / 2 : y) * part.stride;
}

void ToRgb(const Frame &f, uint32_t width, uint32_t height, uint8_t *rgb) {
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t *out = rgb + size_t{y} * width * 3;
    int ys, cbs, crs;
    const uint8_t *luma = PartRow(f, f.parts[0], y, &ys);
    if (f.count == 1) {
      for (uint32_t x = 0; x < width; ++x, out += 3)
        out[0] = out[1] = out[2] = luma[x];
      continue;
    }
    const uint8_t *cb = PartRow(f, f.parts[1], y, &cbs);
    const uint8_t *cr = PartRow(f, f.parts[2], y, &crs);
    for (uint32_t x = 0; x < width; ++x, out += 3) {
      const int l = luma[x >> ys], b = cb[x >> cbs], r = cr[x >> crs];
      out[0] = Clamp255(l + kYcc.crRed[r]);
      out[1] = Clamp255(l + ((kYcc.cbGreen[b] + kYcc.crGreen[r]) >> 16));
      out[2] = Clamp255(l + kYcc.cbBlue[b]);
    }
  }
}

// The whole file in memory for the DC-only decode: a memory block as it
// is, a disk file mapped read-only (its pages shared with the page cache,
// none copied). Empty when the file cannot be mapped; the codec then reads
// it as a stream.
class WholeFile {
 public:
  explicit WholeFile(const char *name) {
    if (RasIsMemName(name)) {
      RasMemName mem;
      std::memcpy(&mem, name, sizeof mem);
      data_ = static_cast<const uint8_t *>(mem.address);
      size_ = static_cast<size_t>(mem.capacity);
      return;
    }
    // Only the names the file layer itself would open.
    int64_t memoryOnly = 0;
    if (name[0] == 0 || strnlen(name, RasNameSize) >= static_cast<size_t>(RasNameSize) ||
        RasFileGetOption(RasFileOptMemoryOnly, &memoryOnly) != RasOk || memoryOnly != 0)
      return;
    const int fd = open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat info {};
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
      void *mapped = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ,
                          MAP_PRIVATE | MAP_POPULATE, fd, 0);
      if (mapped != MAP_FAILED) {
        mapped_ = true;
        data_ = static_cast<const uint8_t *>(mapped);
        size_ = static_cast<size_t>(info.st_size);
      }
    }
    close(fd);
  }
  ~WholeFile() {
    if (mapped_) munmap(const_cast<uint8_t *>(data_), size_);
  }
  WholeFile(const WholeFile &) = delete;
  WholeFile &operator=(const WholeFile &) = delete;

  const uint8_t *Data() const { return data_; }
  size_t Size() const { return size_; }

 private:
  const uint8_t *data_ = nullptr;
  size_t size_ = 0;
  bool mapped_ = false;
};

}  // namespace

bool JpegDcDecode(const uint8_t *data, size_t size, uint32_t atLeastWidth, uint32_t atLeastHeight,
                  JpegThumb *thumb) {
  auto frame = std::make_unique<Frame>();
  const uint8_t *scan = nullptr;
  if (!ReadMarkers(data, size, frame.get(), &scan) || !IsGreyOrYcc(*frame)) return false;
  Frame &f = *frame;
  if (uint64_t{f.width} * f.height > RasMaxPixels() ||
      JpegThumbDenominator(f.width, f.height, atLeastWidth, atLeastHeight) != 8)
    return false;
  if (!PlanComponents(&f) || !ReadScanData(scan, data + size, f)) return false;
  const uint32_t width = (f.width + 7) / 8, height = (f.height + 7) / 8;
  auto *rgb = static_cast<uint8_t *>(RasAlloc(size_t{width} * height * 3));
  if (rgb == nullptr) return false;
  ToRgb(f, width, height, rgb);
  *thumb = JpegThumb{width, height, f.width, f.height, 8, rgb};
  return true;
}

bool JpegDcDecodeFile(const char *name, uint32_t atLeastWidth, uint32_t atLeastHeight,
                      JpegThumb *thumb) {
  const WholeFile whole(name);
  return whole.Size() != 0 &&
         JpegDcDecode(whole.Data(), whole.Size(), atLeastWidth, atLeastHeight, thumb);
}

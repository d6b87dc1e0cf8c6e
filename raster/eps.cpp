// EPS (format 4) and DCS (format 5) reader and writer: encapsulated
// PostScript that carries one 8-bit raster image, drawn by the `image` or
// `colorimage` operator, and announced by a "%ImageData:" comment, the
// convention page-layout programs use to find the pixels of a raster EPS
// without interpreting PostScript:
//
//   %ImageData: columns rows depth mode pad-channels block encoding "start"
//
// mode 1 is grey, 3 RGB and 4 CMYK; the samples start on the line after the
// first line that ends with the start text, pixel-interleaved (block 1), as
// hexadecimal text (encoding 1) or bytes (encoding 2).
//
// A DCS file is the Desktop Color Separations form of a CMYK picture: a
// 30-byte DOS EPS header whose PostScript section is the composite picture
// (what any interpreter draws) and, after that section, one EPS plate a ink,
// each a grey picture of its separation (dark where the ink goes), located by
// "%%PlateFile: (Cyan) EPS #offset length" comments in the composite's
// header. The reader of either format reads the composite.
//
// Choices made here:
//   - The reader takes any EPS of that form (its own files and those of other
//     programs that write it): depth 8, modes 1, 3 and 4, no padding
//     channels. An EPS without "%ImageData:", or with a variant it does not
//     read, is refused with -9; a file that is no EPS at all with -8. A file
//     with "%%PlateFile:" comments is DCS and refused by the EPS reader (-9),
//     so the probe hands it on; the DCS reader takes only such files.
//   - The DOS EPS header is followed to its PostScript section for both.
//   - Hexadecimal rows are decoded as a stream: reading the rows in order
//     reads the file once; going back starts again from the first row.
//   - The writer takes grey, RGB and CMYK (DCS: CMYK only); other models are
//     refused (-1). It writes every row as hexadecimal text, 64 digits a
//     line, each row starting a line, so that every row's place is known at
//     the open and rows go in any order. The picture is scaled to its
//     resolution (300 pixels an inch when the descriptor has none), and the
//     reader takes the resolution back from the bounding box.
//   - Everything but the rows is written at the open; a row not written
//     leaves its place empty.
//
// Failure details:
//   EpsOpen/DcsOpen  0 null argument or no state block; 1 unknown mode;
//                    reading: 2 open; 3 not PostScript (-8); 4 DOS header
//                    section outside the file (-8); 5 no "%ImageData:" or no
//                    start line (-9); 6 variant not read (-9); 7 DCS file
//                    for EPS or plain EPS for DCS (-9, -8); 8 private block
//                    or header buffer; 9 row buffers; 11 file size.
//                    writing: 12 model or size not written (-1); 13 private
//                    block; 14 open; 15 structure write.
//   EpsReadSl/DcsReadSl    0 null argument; 1 not open for reading; 2 row
//                    beyond the height; 3 planes could not be made; 4 record
//                    too narrow; 5 seek; 6 read; 7 not hexadecimal (-8).
//   EpsWriteSl/DcsWriteSl  0 null argument; 1 not open for writing; 2 row
//                    beyond the height; 3 record too narrow; 4 seek; 5 write.
#include <cstring>

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rasstr.h"
#include "raster/core/rowpack.h"
#include "raster/eps.h"

namespace {

constexpr uint8_t kDosMagic[4] = {0xC5, 0xD0, 0xD3, 0xC6};
constexpr int64_t kDosHeaderSize = 30;
constexpr int64_t kLineBuffer = 1024;
// How far the reader looks for the image comment before giving up: past any
// preview a page-layout program puts in the header.
constexpr int64_t kMaxHeaderScan = int64_t{16} << 20;
constexpr uint32_t kMaxDimension = uint32_t{1} << 20;
constexpr uint32_t kHexPerLine = 64;
constexpr int64_t kChunk = 1 << 16;
constexpr float kDefaultResolution = 300.0f;
constexpr size_t kTextSize = 2048;
constexpr const char *kInkNames[4] = {"Cyan", "Magenta", "Yellow", "Black"};

struct EpsPriv {
  uint32_t format;
  uint32_t width;
  uint32_t height;
  uint32_t channels;
  int64_t psEnd;      // end of the PostScript section
  int64_t dataStart;  // first byte of the rows (after the start line)
  bool hex;
  uint8_t *row;  // one row of interleaved samples
  // Reading hexadecimal rows as a stream.
  uint32_t nextRow;
  int64_t streamAt;  // file position of chunk[0]
  uint8_t *chunk;
  int64_t chunkLength;
  int64_t chunkUsed;
  // Writing: where the rows of the composite and of the plates go, and how
  // many bytes a row of each takes as text.
  int64_t plateData[4];
  uint64_t rowText;
  uint64_t plateRowText;
  char *text;  // one row as text
  RasSplitRowFn split;
  RasJoinRowFn join;
};

const char *RoutineOpen(uint32_t format) {
  return format == RasFormatDcs ? "DcsOpen" : "EpsOpen";
}
const char *RoutineRead(uint32_t format) {
  return format == RasFormatDcs ? "DcsReadSl" : "EpsReadSl";
}
const char *RoutineWrite(uint32_t format) {
  return format == RasFormatDcs ? "DcsWriteSl" : "EpsWriteSl";
}

constexpr auto PrivOf = RasFormatPriv<EpsPriv>;

void FreePriv(RasState *state) {
  auto *e = static_cast<EpsPriv *>(state->priv);
  if (e) {
    RasFree(e->row);
    RasFree(e->chunk);
    RasFree(e->text);
  }
  state->priv = RasFree(e);
}

int FailOpen(RasState *state, uint32_t format, int code, int detail) {
  RasFormatDropFile(state, true);
  FreePriv(state);
  return RasError(RoutineOpen(format), code, detail);
}

bool StartsWith(const char *text, const char *prefix) {
  return RasStrNCmp(text, prefix, RasStrLen(prefix)) == 0;
}

// True when the line (its line feed removed) ends with `tail`.
bool EndsWith(const char *line, const char *tail) {
  size_t n = RasStrLen(line);
  while (n > 0 && (line[n - 1] == ' ' || line[n - 1] == '\t'))
    --n;
  const size_t t = RasStrLen(tail);
  return t > 0 && n >= t && RasStrNCmp(line + n - t, tail, t) == 0;
}

int HexValue(uint8_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsSpace(uint8_t c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f';
}

// ---- Reading the header.

struct ImageData {
  int columns, rows, depth, mode, pad, block, encoding;
  char start[128];
};

bool ParseImageData(const char *line, ImageData *d) {
  const char *rest = line + RasStrLen("%ImageData:");
  if (RasSscanf(rest, "%d %d %d %d %d %d %d", &d->columns, &d->rows, &d->depth, &d->mode, &d->pad,
                &d->block, &d->encoding) != 7)
    return false;
  const char *open = RasStrChr(rest, '"');
  const char *close = open ? RasStrRChr(open + 1, '"') : nullptr;
  if (!close || close - open - 1 >= static_cast<ptrdiff_t>(sizeof d->start)) return false;
  RasMemCpy(d->start, open + 1, static_cast<size_t>(close - open - 1));
  d->start[close - open - 1] = 0;
  return d->start[0] != 0;
}

// Pixels an inch from the picture's width and its bounding box in points.
float ResolutionFrom(const char *box, uint32_t width) {
  float x1 = 0, y1 = 0, x2 = 0, y2 = 0;
  if (RasSscanf(box, "%f %f %f %f", &x1, &y1, &x2, &y2) != 4 || !(x2 - x1 > 0.0f)) return -1.0f;
  return static_cast<float>(width * 72.0 / (x2 - x1));
}

// Where the PostScript starts and ends: after a DOS EPS header, the section
// it names; otherwise the whole file.
int FindSection(RasFile *file, int64_t size, int64_t *start, int64_t *end) {
  uint8_t head[kDosHeaderSize];
  int64_t count = kDosHeaderSize;
  *start = 0;
  *end = size;
  if (RasFileRead(file, head, &count, 0) != RasOk || count < 4) return RasOk;
  if (std::memcmp(head, kDosMagic, 4) != 0) return RasOk;
  if (count < 12) return RasErrFormat;
  const int64_t offset = RasGet32(head + 4, false);
  const int64_t length = RasGet32(head + 8, false);
  if (offset < 12 || offset + length > size) return RasErrFormat;
  *start = offset;
  *end = offset + length;
  return RasOk;
}

bool Contains(const char *text, const char *part) {
  const size_t n = RasStrLen(part);
  for (const char *p = text; *p; ++p) {
    if (RasStrNCmp(p, part, n) == 0) return true;
  }
  return false;
}

struct HeaderScan {
  ImageData data;
  bool haveData;
  bool plates;
  char box[kLineBuffer];    // the bounding box's numbers
  char hiRes[kLineBuffer];  // the high-resolution box's, when given
  char line[kLineBuffer];
  uint8_t chunk[kChunk];
};

// One header line: 0 to go on, 1 when it is the start line of the image
// data, or a code that refuses the file.
int TakeLine(HeaderScan *scan, bool first) {
  const char *line = scan->line;
  if (first) return Contains(line, "EPSF") ? 0 : RasErrFormat;
  if (StartsWith(line, "%%PlateFile:")) {
    scan->plates = true;
  } else if (StartsWith(line, "%%BoundingBox:")) {
    RasStrNCpy(scan->box, line + 14, sizeof scan->box - 1);
  } else if (StartsWith(line, "%%HiResBoundingBox:")) {
    RasStrNCpy(scan->hiRes, line + 19, sizeof scan->hiRes - 1);
  } else if (!scan->haveData && StartsWith(line, "%ImageData:")) {
    if (!ParseImageData(line, &scan->data)) return RasErrUnsupported;
    scan->haveData = true;
  } else if (scan->haveData && line[0] != '%' && EndsWith(line, scan->data.start)) {
    return 1;
  }
  return 0;
}

// Walks the header lines, a chunk of the file at a time, up to the start
// line of the image data; `*dataStart` is the byte after that line's end (a
// carriage return and line feed together being one end). A line longer than
// the buffer is cut. A code other than 0 refuses the file.
int ScanHeader(RasFile *file, int64_t start, int64_t end, HeaderScan *scan, int64_t *dataStart) {
  char magic[11];
  if (RasFormatRead(file, magic, sizeof magic) != RasOk ||
      RasStrNCmp(magic, "%!PS-Adobe-", sizeof magic) != 0)
    return RasErrFormat;
  const int64_t limit = end - start > kMaxHeaderScan ? start + kMaxHeaderScan : end;
  int64_t chunkAt = start, length = 0, used = 0;
  size_t n = 0;
  bool first = true, afterCr = false, found = false;
  for (;;) {
    if (used == length) {
      chunkAt += length;
      used = 0;
      length = limit - chunkAt < kChunk ? limit - chunkAt : kChunk;
      if (length <= 0 || RasFileSeek(file, chunkAt, 0) != RasOk ||
          RasFileRead(file, scan->chunk, &length, 0) != RasOk)
        break;
    }
    const uint8_t c = scan->chunk[used++];
    if (afterCr && c == '\n') {  // the second half of a CR LF end
      afterCr = false;
      if (found) break;
      continue;
    }
    afterCr = false;
    if (found) {
      --used;
      break;
    }
    if (c != '\n' && c != '\r') {
      if (n < sizeof scan->line - 1) scan->line[n++] = static_cast<char>(c);
      continue;
    }
    afterCr = c == '\r';
    scan->line[n] = 0;
    n = 0;
    const int taken = TakeLine(scan, first);
    first = false;
    if (taken < 0) return taken;
    if (taken == 1) {
      found = true;
      if (!afterCr) break;
    }
  }
  if (!found) return RasErrUnsupported;
  *dataStart = chunkAt + used;
  return RasOk;
}

uint32_t ChannelsOfMode(int mode) {
  return mode == 1 ? 1 : mode == 3 ? 3 : mode == 4 ? 4 : 0;
}

uint32_t ModelOf(uint32_t channels) {
  return channels == 1 ? RasModelGray : channels == 3 ? RasModelRgb : RasModelCmyk;
}

int OpenRead(const char *name, RasDesc *desc, uint32_t format) {
  RasState *state = desc->state;
  RasFile *file = &state->file;
  int code = RasFileOpen(file, name, RasFileModeRead);
  if (code != RasOk) return RasError(RoutineOpen(format), code, 2);
  int64_t size = 0;
  code = RasFileSeek(file, 0, 2);
  if (code == RasOk) code = RasFileTell(file, &size);
  if (code == RasOk) code = RasFileSeek(file, 0, 0);
  if (code != RasOk) return FailOpen(state, format, code, 11);
  int64_t start = 0, end = 0;
  if (FindSection(file, size, &start, &end) != RasOk)
    return FailOpen(state, format, RasErrFormat, 4);
  code = RasFileSeek(file, start, 0);
  if (code != RasOk) return FailOpen(state, format, code, 11);

  auto *scan = static_cast<HeaderScan *>(RasAlloc(sizeof(HeaderScan)));
  if (!scan) return FailOpen(state, format, RasErrMemory, 8);
  std::memset(scan, 0, sizeof *scan);
  int64_t dataStart = 0;
  code = ScanHeader(file, start, end, scan, &dataStart);
  if (code != RasOk) {
    RasFree(scan);
    return FailOpen(state, format, code, code == RasErrFormat ? 3 : 5);
  }
  const ImageData d = scan->data;
  const uint32_t channels = ChannelsOfMode(d.mode);
  const bool plates = scan->plates;
  const float resolution = ResolutionFrom(scan->hiRes[0] ? scan->hiRes : scan->box,
                                          d.columns > 0 ? static_cast<uint32_t>(d.columns) : 0);
  RasFree(scan);
  if (d.columns <= 0 || d.rows <= 0 || static_cast<uint32_t>(d.columns) > kMaxDimension ||
      static_cast<uint32_t>(d.rows) > kMaxDimension || d.depth != 8 || channels == 0 ||
      d.pad != 0 || (channels > 1 && d.block != 1) || (d.encoding != 1 && d.encoding != 2))
    return FailOpen(state, format, RasErrUnsupported, 6);
  if (format == RasFormatEps && plates) return FailOpen(state, format, RasErrUnsupported, 7);
  if (format == RasFormatDcs && (!plates || channels != 4))
    return FailOpen(state, format, RasErrFormat, 7);

  auto *e = static_cast<EpsPriv *>(RasAlloc(sizeof(EpsPriv)));
  if (!e) return FailOpen(state, format, RasErrMemory, 8);
  std::memset(e, 0, sizeof *e);
  state->priv = e;
  e->format = format;
  e->width = static_cast<uint32_t>(d.columns);
  e->height = static_cast<uint32_t>(d.rows);
  e->channels = channels;
  e->psEnd = end;
  e->dataStart = dataStart;
  e->hex = d.encoding == 1;
  e->split = RasSplitRowFor(channels, false);
  e->row = static_cast<uint8_t *>(RasAlloc(size_t{e->width} * channels));
  e->chunk = static_cast<uint8_t *>(RasAlloc(kChunk));
  if (!e->row || !e->chunk) return FailOpen(state, format, RasErrMemory, 9);
  e->streamAt = dataStart;

  desc->width = e->width;
  desc->height = e->height;
  desc->channels = channels;
  desc->model = ModelOf(channels);
  desc->resolution = resolution;
  desc->format = format;
  desc->flags = 0;
  desc->maxval = 255;
  return RasOk;
}

// ---- Reading rows.

// The next byte of the hexadecimal stream, or -1 at the section's end or a
// failed read.
int NextByte(RasFile *file, EpsPriv *e) {
  if (e->chunkUsed == e->chunkLength) {
    e->streamAt += e->chunkLength;
    e->chunkLength = e->chunkUsed = 0;
    int64_t count = e->psEnd - e->streamAt;
    if (count <= 0) return -1;
    if (count > kChunk) count = kChunk;
    if (RasFileSeek(file, e->streamAt, 0) != RasOk) return -1;
    if (RasFileRead(file, e->chunk, &count, 0) != RasOk) return -1;
    e->chunkLength = count;
  }
  return e->chunk[e->chunkUsed++];
}

// Decodes one row of the stream into `e->row`: 0, -5 when the stream ends
// first, -8 on a character that is neither a digit nor white space.
int DecodeHexRow(RasFile *file, EpsPriv *e) {
  const uint64_t bytes = uint64_t{e->width} * e->channels;
  for (uint64_t i = 0; i < bytes; ++i) {
    int digits[2];
    for (int &digit : digits) {
      int c;
      do {
        c = NextByte(file, e);
      } while (c >= 0 && IsSpace(static_cast<uint8_t>(c)));
      if (c < 0) return RasErrRead;
      digit = HexValue(static_cast<uint8_t>(c));
      if (digit < 0) return RasErrFormat;
    }
    e->row[i] = static_cast<uint8_t>(digits[0] << 4 | digits[1]);
  }
  return RasOk;
}

int ReadRowBytes(RasFile *file, EpsPriv *e, uint32_t row) {
  const int64_t bytes = int64_t{e->width} * e->channels;
  if (!e->hex) {
    const int64_t at = e->dataStart + int64_t{row} * bytes;
    if (at + bytes > e->psEnd) return RasErrRead;
    const int code = RasFileSeek(file, at, 0);
    if (code != RasOk) return code;
    int64_t count = bytes;
    return RasFileRead(file, e->row, &count, 1);
  }
  if (row < e->nextRow) {
    e->nextRow = 0;
    e->streamAt = e->dataStart;
    e->chunkLength = e->chunkUsed = 0;
  }
  while (e->nextRow <= row) {
    const int code = DecodeHexRow(file, e);
    if (code != RasOk) {
      // The stream's place is lost; the next read starts again.
      e->nextRow = UINT32_MAX;
      return code;
    }
    ++e->nextRow;
  }
  return RasOk;
}

int ReadSl(RasDesc *desc, uint32_t row, RasSl *sl, uint32_t format) {
  const char *routine = RoutineRead(format);
  if (!desc || !sl) return RasError(routine, RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'r');
  if (!state) return RasError(routine, RasErrArg, 1);
  EpsPriv *e = PrivOf(desc);
  if (row >= e->height) return RasError(routine, RasErrArg, 2);
  const int made = RasFormatMakePlanes(sl, desc);
  if (made != RasOk) return RasError(routine, made, 3);
  if (!RasFormatPlanesFit(sl, e->width, e->channels, false)) return RasError(routine, RasErrArg, 4);
  const int code = ReadRowBytes(&state->file, e, row);
  if (code == RasErrFormat) return RasError(routine, code, 7);
  if (code == RasErrSeek || code == RasErrPosition) return RasError(routine, code, 5);
  if (code != RasOk) return RasError(routine, code, 6);
  e->split(e->row, sl->plane8, e->width);
  return RasOk;
}

// ---- Writing.

// Text of a section, built line by line with the library's formatter.
struct Text {
  char *buffer;
  size_t length;
  template <typename... Args>
  void Line(const char *format, Args... args) {
    RasSprintf(buffer + length, format, args...);
    length += RasStrLen(buffer + length);
  }
};

// Bytes a row takes as text: two digits a sample and a line feed after every
// full line and after the row's last, shorter one.
uint64_t RowTextBytes(uint64_t samples) {
  const uint64_t digits = 2 * samples;
  return digits + (digits + kHexPerLine - 1) / kHexPerLine;
}

// The largest string length of at most 65535 bytes (PostScript's limit) that
// divides the row, so the procedure's last read ends with the image data.
uint32_t ReadLength(uint64_t rowBytes) {
  if (rowBytes <= 65535) return static_cast<uint32_t>(rowBytes);
  for (uint32_t n = 65535; n > 1; --n) {
    if (rowBytes % n == 0) return n;
  }
  return 1;
}

const char *ImageOperator(uint32_t channels) {
  return channels == 1 ? "image" : channels == 3 ? "false 3 colorimage" : "false 4 colorimage";
}

// Everything of a picture's EPS before its rows. `comments` adds lines to the
// header comments; the drawing puts the picture at the origin, scaled from
// pixels to points by the resolution.
void PictureHead(Text *t, uint32_t width, uint32_t height, uint32_t channels, float resolution,
                 const char *comments) {
  const double w = width * 72.0 / resolution, h = height * 72.0 / resolution;
  const int boxW = static_cast<int>(w) + (w > static_cast<int>(w) ? 1 : 0);
  const int boxH = static_cast<int>(h) + (h > static_cast<int>(h) ? 1 : 0);
  t->Line("%%!PS-Adobe-3.0 EPSF-3.0\n");
  t->Line("%%%%Creator: KorvelApp\n");
  t->Line("%%%%BoundingBox: 0 0 %d %d\n", boxW, boxH);
  t->Line("%%%%HiResBoundingBox: 0 0 %f %f\n", w, h);
  t->Line("%%%%LanguageLevel: 2\n");
  t->Line("%s", comments);
  t->Line("%%%%EndComments\n");
  t->Line("%%%%BeginProlog\n%%%%EndProlog\n");
  t->Line("/KorvelState save def\n");
  t->Line("/KorvelRow %d string def\n", static_cast<int>(ReadLength(uint64_t{width} * channels)));
  t->Line("%f %f scale\n", w, h);
  t->Line("%%ImageData: %d %d 8 %d 0 1 1 \"%s\"\n", static_cast<int>(width),
          static_cast<int>(height), static_cast<int>(channels), ImageOperator(channels));
  t->Line("%d %d 8 [%d 0 0 -%d 0 %d]\n", static_cast<int>(width), static_cast<int>(height),
          static_cast<int>(width), static_cast<int>(height), static_cast<int>(height));
  t->Line("{currentfile KorvelRow readhexstring pop}\n");
  t->Line("%s\n", ImageOperator(channels));
}

void PictureTail(Text *t) {
  t->Line("KorvelState restore\nshowpage\n%%%%Trailer\n%%%%EOF\n");
}

struct Layout {
  Text head, tail;  // the composite's
  Text plateHead[4], plateTail[4];
  int64_t composite;  // bytes of the composite's PostScript
  int64_t dataAt;     // the composite's rows
  int64_t plateAt[4];
  int64_t end;
};

int WriteAt(RasFile *file, int64_t at, const void *bytes, int64_t count) {
  int code = RasFileSeek(file, at, 0);
  if (code != RasOk) return code;
  int64_t n = count;
  return RasFileWrite(file, bytes, &n);
}

// Lays the file out: the texts around the rows and where everything goes.
void Plan(EpsPriv *e, float resolution, char *texts, Layout *layout) {
  Layout &l = *layout;
  l.head = {texts, 0};
  l.tail = {texts + kTextSize, 0};
  for (int k = 0; k < 4; ++k) {
    l.plateHead[k] = {texts + (2 + 2 * k) * kTextSize, 0};
    l.plateTail[k] = {texts + (3 + 2 * k) * kTextSize, 0};
  }
  const bool dcs = e->format == RasFormatDcs;
  const uint64_t rows = uint64_t{e->height};
  const int64_t start = dcs ? kDosHeaderSize : 0;
  PictureTail(&l.tail);
  int64_t composite = 0;
  if (dcs) {
    for (int k = 0; k < 4; ++k) {
      PictureHead(&l.plateHead[k], e->width, e->height, 1, resolution, "");
      PictureTail(&l.plateTail[k]);
    }
    // The plate offsets are written with a fixed number of digits, so the
    // header's length is known before they are.
    char comments[kTextSize];
    Text c{comments, 0};
    for (int pass = 0; pass < 2; ++pass) {
      c.length = 0;
      l.head.length = 0;
      c.Line("%%%%DocumentProcessColors: Cyan Magenta Yellow Black\n");
      for (int k = 0; k < 4; ++k) {
        const int64_t plateLength = static_cast<int64_t>(
            l.plateHead[k].length + rows * e->plateRowText + l.plateTail[k].length);
        const int64_t plateStart =
            pass == 0 ? 0 : l.plateAt[k] - static_cast<int64_t>(l.plateHead[k].length);
        c.Line("%%%%PlateFile: (%s) EPS #%010ld %010ld\n", kInkNames[k],
               static_cast<long>(plateStart), static_cast<long>(plateLength));
      }
      PictureHead(&l.head, e->width, e->height, 4, resolution, comments);
      composite = static_cast<int64_t>(l.head.length + rows * e->rowText + l.tail.length);
      int64_t at = start + composite;
      for (int k = 0; k < 4; ++k) {
        l.plateAt[k] = at + static_cast<int64_t>(l.plateHead[k].length);
        at = l.plateAt[k] + static_cast<int64_t>(rows * e->plateRowText + l.plateTail[k].length);
      }
      l.end = at;
    }
  } else {
    PictureHead(&l.head, e->width, e->height, e->channels, resolution, "");
    composite = static_cast<int64_t>(l.head.length + rows * e->rowText + l.tail.length);
    l.end = composite;
  }
  l.dataAt = start + static_cast<int64_t>(l.head.length);
  l.composite = composite;
  e->dataStart = l.dataAt;
  for (int k = 0; k < 4; ++k)
    e->plateData[k] = l.plateAt[k];
  e->psEnd = l.end;
}

// Writes everything but the rows.
int WriteStructure(RasFile *file, const EpsPriv &e, const Layout &l) {
  const bool dcs = e.format == RasFormatDcs;
  const uint64_t rows = e.height;
  const int64_t start = dcs ? kDosHeaderSize : 0;
  if (dcs) {
    uint8_t dos[kDosHeaderSize] = {};
    std::memcpy(dos, kDosMagic, 4);
    RasPut32(dos + 4, kDosHeaderSize, false);
    RasPut32(dos + 8, static_cast<uint32_t>(l.composite), false);
    dos[28] = dos[29] = 0xFF;  // no checksum
    int code = WriteAt(file, 0, dos, kDosHeaderSize);
    if (code != RasOk) return code;
  }
  int code = WriteAt(file, start, l.head.buffer, static_cast<int64_t>(l.head.length));
  if (code != RasOk) return code;
  code = WriteAt(file, l.dataAt + static_cast<int64_t>(rows * e.rowText), l.tail.buffer,
                 static_cast<int64_t>(l.tail.length));
  for (int k = 0; dcs && k < 4 && code == RasOk; ++k) {
    code = WriteAt(file, l.plateAt[k] - static_cast<int64_t>(l.plateHead[k].length),
                   l.plateHead[k].buffer, static_cast<int64_t>(l.plateHead[k].length));
    if (code == RasOk)
      code = WriteAt(file, l.plateAt[k] + static_cast<int64_t>(rows * e.plateRowText),
                     l.plateTail[k].buffer, static_cast<int64_t>(l.plateTail[k].length));
  }
  return code;
}

int OpenWrite(const char *name, RasDesc *desc, uint32_t format) {
  RasState *state = desc->state;
  const uint32_t channels = desc->channels;
  const bool modelOk = format == RasFormatDcs ? desc->model == RasModelCmyk && channels == 4
                                              : (desc->model == RasModelGray && channels == 1) ||
                                                    (desc->model == RasModelRgb && channels == 3) ||
                                                    (desc->model == RasModelCmyk && channels == 4);
  if (!modelOk || desc->width == 0 || desc->height == 0 || desc->width > kMaxDimension ||
      desc->height > kMaxDimension)
    return RasError(RoutineOpen(format), RasErrArg, 12);
  if (!(desc->resolution > 0.0f)) desc->resolution = kDefaultResolution;

  auto *e = static_cast<EpsPriv *>(RasAlloc(sizeof(EpsPriv)));
  if (!e) return RasError(RoutineOpen(format), RasErrMemory, 13);
  std::memset(e, 0, sizeof *e);
  state->priv = e;
  e->format = format;
  e->width = desc->width;
  e->height = desc->height;
  e->channels = channels;
  e->join = RasJoinRowFor(channels, false);
  e->rowText = RowTextBytes(uint64_t{e->width} * channels);
  e->plateRowText = RowTextBytes(e->width);
  e->row = static_cast<uint8_t *>(RasAlloc(size_t{e->width} * channels));
  e->text = static_cast<char *>(RasAlloc(e->rowText));
  auto *texts = static_cast<char *>(RasAlloc(10 * kTextSize));
  if (!e->row || !e->text || !texts) {
    RasFree(texts);
    return FailOpen(state, format, RasErrMemory, 13);
  }

  Layout layout{};
  Plan(e, desc->resolution, texts, &layout);

  const int opened = RasFormatOpenWrite(&state->file, name, layout.end);
  if (opened != RasOk) {
    RasFree(texts);
    return FailOpen(state, format, opened, 14);
  }
  const int code = WriteStructure(&state->file, *e, layout);
  RasFree(texts);
  if (code != RasOk) return FailOpen(state, format, code, 15);
  return RasOk;
}

// Hexadecimal text of `bytes` samples, `flip` XORed into each, 64 digits a
// line; returns the text's length.
uint64_t HexText(const uint8_t *bytes, uint64_t count, uint8_t flip, char *out) {
  static const char kDigits[] = "0123456789abcdef";
  uint64_t n = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const uint8_t v = bytes[i] ^ flip;
    out[n++] = kDigits[v >> 4];
    out[n++] = kDigits[v & 15];
    if ((2 * (i + 1)) % kHexPerLine == 0 || i + 1 == count) out[n++] = '\n';
  }
  return n;
}

int WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl, uint32_t format) {
  const char *routine = RoutineWrite(format);
  if (!desc || !sl) return RasError(routine, RasErrArg, 0);
  RasState *state = RasFormatState(desc, 'w');
  if (!state) return RasError(routine, RasErrArg, 1);
  EpsPriv *e = PrivOf(desc);
  if (row >= e->height) return RasError(routine, RasErrArg, 2);
  if (!RasFormatPlanesFit(sl, e->width, e->channels, false)) return RasError(routine, RasErrArg, 3);
  RasFile *file = &state->file;
  e->join(e->row, sl->plane8, e->width);
  uint64_t n = HexText(e->row, uint64_t{e->width} * e->channels, 0, e->text);
  int code = RasFileSeek(file, e->dataStart + static_cast<int64_t>(row * e->rowText), 0);
  if (code != RasOk) return RasError(routine, code, 4);
  int64_t count = static_cast<int64_t>(n);
  code = RasFileWrite(file, e->text, &count);
  if (code != RasOk) return RasError(routine, code, 5);
  if (e->format != RasFormatDcs) return RasOk;
  // A plate shows its ink dark on white: the grey level is 255 minus the ink.
  for (uint32_t k = 0; k < 4; ++k) {
    n = HexText(sl->plane8[k], e->width, 0xFF, e->text);
    code = RasFileSeek(file, e->plateData[k] + static_cast<int64_t>(row * e->plateRowText), 0);
    if (code != RasOk) return RasError(routine, code, 4);
    count = static_cast<int64_t>(n);
    code = RasFileWrite(file, e->text, &count);
    if (code != RasOk) return RasError(routine, code, 5);
  }
  return RasOk;
}

int Close(RasDesc *desc, const char *routine) {
  if (!desc || !desc->state) return RasOk;
  const int code = RasFormatCloseFile(desc->state);
  FreePriv(desc->state);
  return code == RasOk ? RasOk : RasError(routine, code, 0);
}

int Open(const char *name, char mode, RasDesc *desc, uint32_t format) {
  const int begun = RasFormatBegin(RoutineOpen(format), name, mode, desc, 1);
  if (begun != RasOk) return begun;
  return mode == 'w' ? OpenWrite(name, desc, format) : OpenRead(name, desc, format);
}

}  // namespace

// The two formats share every routine: their entry points differ only in the
// format code and in the name a close reports under.
#define EPS_MODULE_ENTRY_POINTS(Prefix)                               \
  int Prefix##Open(const char *name, char mode, RasDesc *desc) {      \
    return Open(name, mode, desc, RasFormat##Prefix);                 \
  }                                                                   \
  int Prefix##ReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {        \
    return ReadSl(desc, row, sl, RasFormat##Prefix);                  \
  }                                                                   \
  int Prefix##WriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) { \
    return WriteSl(desc, row, sl, RasFormat##Prefix);                 \
  }                                                                   \
  int Prefix##Close(RasDesc *desc) {                                  \
    return Close(desc, #Prefix "Close");                              \
  }

EPS_MODULE_ENTRY_POINTS(Eps)
EPS_MODULE_ENTRY_POINTS(Dcs)

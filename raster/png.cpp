// PNG files, format code 11: the glue between the raster scanline interface
// and libpng. libpng reads and writes through the library's file layer, and
// its errors come back through the jump buffer that libpng keeps in its own
// structure; only the routines below arm it, so a corrupt file never reaches
// past this file.
//
// What a file holds is delivered as grey (1 channel), RGB (3) or RGB with
// alpha (4, alpha in plane 3): palettes are expanded, grey with alpha becomes
// RGB with alpha (the descriptor has no two-channel form), transparency
// chunks become alpha, and samples of fewer than 8 bits are widened. 16-bit
// files keep their 16 bits (maxval 65535). Gamma and colour chunks are not
// applied: the samples are delivered as stored, as other decoders do.
//
// Every function that calls setjmp holds only trivially destructible locals.
#include "raster/png.h"

#include <png.h>

#include <csetjmp>
#include <cstring>

#include "raster/core/rasformat.h"
#include "raster/core/rowpack.h"
#include "raster/core/whole.h"

namespace {

struct PngPriv {
  png_structp png;
  png_infop info;
  int32_t last;       // last row read or written, -1 before the first
  uint32_t channels;  // samples a pixel in the interleaved rows
  bool wide;          // 16-bit samples
  bool interlaced;    // read whole at the first row into `image`
  bool failed;        // libpng gave up; no further rows
  size_t rowBytes;
  uint8_t *row;    // one interleaved row
  uint8_t *image;  // the whole picture of an interlaced file
};

[[noreturn]] void PngFail(png_structp png, png_const_charp) {
  png_longjmp(png, 1);
}

void PngQuiet(png_structp, png_const_charp) {}

void PngReadData(png_structp png, png_bytep data, size_t length) {
  auto *file = static_cast<RasFile *>(png_get_io_ptr(png));
  if (RasFormatRead(file, data, static_cast<int64_t>(length)) != RasOk) png_error(png, "short");
}

void PngWriteData(png_structp png, png_bytep data, size_t length) {
  auto *file = static_cast<RasFile *>(png_get_io_ptr(png));
  if (RasFormatWrite(file, data, static_cast<int64_t>(length)) != RasOk) png_error(png, "write");
}

void PngFlush(png_structp) {}

PngPriv *PngNewPriv() {
  auto *priv = static_cast<PngPriv *>(RasAlloc(sizeof(PngPriv)));
  if (priv) {
    std::memset(priv, 0, sizeof *priv);
    priv->last = -1;
  }
  return priv;
}

// Destroys libpng's structures and the row buffers, keeping the block.
void PngDropCodec(PngPriv *priv, char mode) {
  if (mode == 'r')
    png_destroy_read_struct(&priv->png, &priv->info, nullptr);
  else
    png_destroy_write_struct(&priv->png, &priv->info);
  priv->row = static_cast<uint8_t *>(RasFree(priv->row));
  priv->image = static_cast<uint8_t *>(RasFree(priv->image));
}

void PngDiscard(RasState *state, bool remove) {
  if (auto *priv = static_cast<PngPriv *>(state->priv)) {
    PngDropCodec(priv, state->mode);
    state->priv = RasFree(priv);
  }
  RasFormatDropFile(state, remove);
}

float PngResolutionOf(png_structp png, png_infop info) {
  png_uint_32 x = 0, y = 0;
  int unit = 0;
  if (!png_get_pHYs(png, info, &x, &y, &unit) || unit != PNG_RESOLUTION_METER || x == 0)
    return -1.0f;
  return static_cast<float>(x * 0.0254);
}

// Asks libpng for rows of 1, 3 or 4 channels of 8 or 16 host-order bits.
void PngChooseTransforms(png_structp png, png_infop info) {
  const int type = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  const bool alpha = (type & PNG_COLOR_MASK_ALPHA) || png_get_valid(png, info, PNG_INFO_tRNS);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (!(type & PNG_COLOR_MASK_COLOR) && alpha) png_set_gray_to_rgb(png);
  if (depth == 16) png_set_swap(png);  // PNG is big-endian; planes are host order
  (void)png_set_interlace_handling(png);
  png_read_update_info(png, info);
}

// Creates the reader on the file (at its start), reads the header and
// settles the row layout. libpng's errors leave through its jump buffer,
// which the caller has armed.
void PngStartReader(PngPriv *priv, RasFile *file) {
  png_set_read_fn(priv->png, file, PngReadData);
  png_read_info(priv->png, priv->info);
  PngChooseTransforms(priv->png, priv->info);
  priv->channels = png_get_channels(priv->png, priv->info);
  priv->wide = png_get_bit_depth(priv->png, priv->info) == 16;
  priv->interlaced = png_get_interlace_type(priv->png, priv->info) != PNG_INTERLACE_NONE;
  priv->rowBytes = png_get_rowbytes(priv->png, priv->info);
}

bool PngCreate(PngPriv *priv, char mode) {
  priv->png = mode == 'r' ? png_create_read_struct(PNG_LIBPNG_VER_STRING, priv, PngFail, PngQuiet)
                          : png_create_write_struct(PNG_LIBPNG_VER_STRING, priv, PngFail, PngQuiet);
  if (priv->png) priv->info = png_create_info_struct(priv->png);
  return priv->png && priv->info;
}

// Starts (or, going back, restarts) reading at the file's first byte.
int PngCheck(PngPriv *priv, RasFile *file) {
  if (!PngCreate(priv, 'r')) return RasErrMemory;
  if (setjmp(png_jmpbuf(priv->png))) return RasErrFormat;
  PngStartReader(priv, file);
  if (priv->channels != 1 && priv->channels != 3 && priv->channels != 4) return RasErrUnsupported;
  if (priv->rowBytes == 0 || priv->rowBytes > SIZE_MAX / 2) return RasErrUnsupported;
  priv->row = static_cast<uint8_t *>(RasAlloc(priv->rowBytes));
  return priv->row ? RasOk : RasErrMemory;
}

int PngOpenRead(const char *name, RasDesc *desc, RasState *state) {
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk)
    return RasError("PngOpen", RasErrOpen, 1);
  // The signature first: most files the probe offers are not PNG, and they
  // are turned away before libpng is set up.
  png_byte signature[8];
  if (RasFormatRead(&state->file, signature, 8) != RasOk || png_sig_cmp(signature, 0, 8) != 0 ||
      RasFileSeek(&state->file, 0, 0) != RasOk) {
    PngDiscard(state, false);
    return RasError("PngOpen", RasErrFormat, 2);
  }
  auto *priv = PngNewPriv();
  if (!priv) {
    PngDiscard(state, false);
    return RasError("PngOpen", RasErrMemory, 3);
  }
  state->priv = priv;
  const int code = PngCheck(priv, &state->file);
  if (code != RasOk) {
    PngDiscard(state, false);
    return RasError("PngOpen", code, 4);
  }
  desc->width = png_get_image_width(priv->png, priv->info);
  desc->height = png_get_image_height(priv->png, priv->info);
  desc->channels = priv->channels;
  desc->model = priv->channels == 1 ? RasModelGray : RasModelRgb;
  desc->maxval = priv->wide ? 65535 : 255;
  desc->resolution = PngResolutionOf(priv->png, priv->info);
  desc->format = RasFormatPng;
  return RasOk;
}

// An interlaced file is only whole after its last pass, so it is read at once.
int PngReadImage(PngPriv *priv, uint32_t height) {
  if (priv->rowBytes > SIZE_MAX / height) return RasErrMemory;
  priv->image = static_cast<uint8_t *>(RasAlloc(priv->rowBytes * height));
  if (!priv->image) return RasErrMemory;
  png_bytep *rows = static_cast<png_bytep *>(RasAlloc(sizeof(png_bytep) * height));
  if (!rows) return RasErrMemory;
  for (uint32_t y = 0; y < height; ++y)
    rows[y] = priv->image + priv->rowBytes * y;
  priv->last = static_cast<int32_t>(height) - 1;
  if (setjmp(png_jmpbuf(priv->png))) {
    RasFree(rows);
    return RasErrFormat;
  }
  png_read_image(priv->png, rows);
  RasFree(rows);
  return RasOk;
}

// Decodes forward up to `row`; the row's interleaved samples, or null with
// the failure in `*code`.
const uint8_t *PngRowAt(PngPriv *priv, uint32_t row, uint32_t height, int *code) {
  *code = RasOk;
  if (priv->interlaced) {
    if (!priv->image) *code = PngReadImage(priv, height);
    return *code == RasOk ? priv->image + priv->rowBytes * row : nullptr;
  }
  if (setjmp(png_jmpbuf(priv->png))) {
    *code = RasErrFormat;
    return nullptr;
  }
  while (priv->last < static_cast<int32_t>(row)) {
    png_read_row(priv->png, priv->row, nullptr);
    ++priv->last;
  }
  return priv->row;
}

// Going back: libpng reads forward only, so reading starts again from the
// file's first byte.
int PngRewind(RasState *state, PngPriv *priv) {
  PngDropCodec(priv, 'r');
  priv->last = -1;
  priv->failed = false;
  if (RasFileSeek(&state->file, 0, 0) != RasOk) return RasErrSeek;
  return PngCheck(priv, &state->file);
}

// Writing ---------------------------------------------------------------

int PngColorType(const RasDesc *desc) {
  if (desc->model == RasModelGray && desc->channels == 1) return PNG_COLOR_TYPE_GRAY;
  if (desc->model == RasModelRgb && desc->channels == 3) return PNG_COLOR_TYPE_RGB;
  if (desc->model == RasModelRgb && desc->channels == 4) return PNG_COLOR_TYPE_RGB_ALPHA;
  return -1;
}

int PngStartWriter(PngPriv *priv, RasFile *file, const RasDesc *desc, int type) {
  if (!PngCreate(priv, 'w')) return RasErrMemory;
  if (setjmp(png_jmpbuf(priv->png))) return RasErrWrite;
  png_set_write_fn(priv->png, file, PngWriteData, PngFlush);
  png_set_IHDR(priv->png, priv->info, desc->width, desc->height, priv->wide ? 16 : 8, type,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (desc->resolution > 0.0f && desc->resolution < 1.0e7f) {
    const auto perMetre = static_cast<png_uint_32>(desc->resolution / 0.0254 + 0.5);
    png_set_pHYs(priv->png, priv->info, perMetre, perMetre, PNG_RESOLUTION_METER);
  }
  png_write_info(priv->png, priv->info);
  if (priv->wide) png_set_swap(priv->png);
  priv->rowBytes = png_get_rowbytes(priv->png, priv->info);
  priv->row = static_cast<uint8_t *>(RasAlloc(priv->rowBytes));
  return priv->row ? RasOk : RasErrMemory;
}

int PngOpenWrite(const char *name, RasDesc *desc, RasState *state) {
  const int type = PngColorType(desc);
  if (type < 0) return RasError("PngOpen", RasErrArg, 5);
  if (desc->maxval != 255 && desc->maxval != 65535) return RasError("PngOpen", RasErrArg, 6);
  if (desc->width == 0 || desc->height == 0 || desc->width > PNG_UINT_31_MAX ||
      desc->height > PNG_UINT_31_MAX)
    return RasError("PngOpen", RasErrArg, 7);
  if (RasFormatOpenWrite(&state->file, name, 0) != RasOk)
    return RasError("PngOpen", RasErrOpen, 13);
  auto *priv = PngNewPriv();
  if (!priv) {
    PngDiscard(state, true);
    return RasError("PngOpen", RasErrMemory, 14);
  }
  state->priv = priv;
  priv->wide = desc->maxval == 65535;
  priv->channels = desc->channels;
  const int code = PngStartWriter(priv, &state->file, desc, type);
  if (code != RasOk) {
    PngDiscard(state, true);
    return RasError("PngOpen", code, 15);
  }
  return RasOk;
}

int PngEncodeRow(PngPriv *priv, uint32_t row, uint32_t height, const RasSl *sl, uint32_t width) {
  if (priv->wide)
    RasJoinRow16(reinterpret_cast<uint16_t *>(priv->row), sl->plane16, width, priv->channels);
  else
    RasJoinRowFor(priv->channels, false)(priv->row, sl->plane8, width);
  if (setjmp(png_jmpbuf(priv->png))) return RasErrWrite;
  png_write_row(priv->png, priv->row);
  priv->last = static_cast<int32_t>(row);
  if (row + 1 == height) png_write_end(priv->png, nullptr);
  return RasOk;
}

}  // namespace

int PngOpen(const char *name, char mode, RasDesc *desc) {
  const int code = RasFormatBegin("PngOpen", name, mode, desc, 16);
  if (code != RasOk) return code;
  return mode == 'r' ? PngOpenRead(name, desc, desc->state) : PngOpenWrite(name, desc, desc->state);
}

// Details: 0 no open reader, 1 row out of range, 2 no planes, 3 planes too
// small, 4 going back failed, 5 libpng failed on the rows, 6 asked after that.
int PngReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state =
      RasWholeReadState("PngReadSl", desc, row, sl, desc && desc->maxval > 255, &code);
  if (!state) return code;
  auto *priv = static_cast<PngPriv *>(state->priv);
  // The rows hold what the file was opened as, whatever the descriptor says now.
  if (desc->channels != priv->channels || (desc->maxval > 255) != priv->wide)
    return RasError("PngReadSl", RasErrArg, 3);
  if (priv->failed) return RasError("PngReadSl", RasErrFormat, 6);
  if (!priv->interlaced && static_cast<int32_t>(row) < priv->last) code = PngRewind(state, priv);
  if (code != RasOk) {
    priv->failed = true;
    return RasError("PngReadSl", code, 4);
  }
  const uint8_t *samples = PngRowAt(priv, row, desc->height, &code);
  if (!samples) {
    priv->failed = true;
    return RasError("PngReadSl", code, 5);
  }
  RasWholeSplitRow(samples, 0, priv->channels, priv->wide, 0, desc->width, sl);
  return RasOk;
}

// Details: 0 no open writer, 1 row out of order, 2 planes too small, 3
// libpng failed (a short write included), 4 offered after that.
int PngWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  int code = RasOk;
  RasState *state = RasWholeWriteState("PngWriteSl", desc, sl, &code);
  if (!state) return code;
  auto *priv = static_cast<PngPriv *>(state->priv);
  if (static_cast<int64_t>(row) == priv->last) return RasOk;  // repeated: tolerated
  if (static_cast<int64_t>(row) != priv->last + 1 || row >= desc->height)
    return RasError("PngWriteSl", RasErrArg, 1);
  if (!RasFormatPlanesFit(sl, desc->width, priv->channels, priv->wide))
    return RasError("PngWriteSl", RasErrArg, 2);
  if (priv->failed) return RasError("PngWriteSl", RasErrWrite, 4);
  code = PngEncodeRow(priv, row, desc->height, sl, desc->width);
  if (code != RasOk) {
    priv->failed = true;
    return RasError("PngWriteSl", code, 3);
  }
  return RasOk;
}

int PngClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  RasState *state = desc->state;
  if (auto *priv = static_cast<PngPriv *>(state->priv)) {
    PngDropCodec(priv, state->mode);
    state->priv = RasFree(priv);
  }
  return RasFormatCloseFile(state) == RasOk ? RasOk : RasError("PngClose", RasErrWrite, 0);
}

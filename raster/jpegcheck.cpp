// The check of a JPEG file by a scaled decode. The codec's fatal errors come
// back through a jump buffer; the routine holding the setjmp keeps only
// trivially destructible locals.
#include "raster/jpegcheck.h"

#include <csetjmp>
#include <cstdio>

// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstr.h"
#include "raster/jpegcodec.h"
#include "raster/jpegdc.h"

namespace {

// As for full decodes: a progressive file's coefficient buffers, which are
// of the full size whatever the scaling, may not ask for more than this.
constexpr long kCheckMaxCodecMemory = 1L << 30;

// The smallest output the codec makes: one sample for every 8x8 block.
constexpr unsigned kCheckScale = 8;

struct CheckCodec {
  jpeg_decompress_struct dinfo;
  jpeg_error_mgr err;
  jmp_buf jump;
  RasFile file;
  // RasErrRead when the data ended too soon, RasOk when the codec gave up.
  int fault;
};

[[noreturn]] void CheckErrorExit(j_common_ptr codec) {
  std::longjmp(static_cast<CheckCodec *>(codec->client_data)->jump, 1);
}

void CheckOutputMessage(j_common_ptr) {}

// A full read refuses a file whose data ends before half its rows (the rest
// would be made up as grey); a file of several scans covers every row once
// its first scan is complete. Scaling changes neither count.
bool MostlyFiller(const jpeg_decompress_struct *codec) {
  if (codec->input_scan_number != 1) return false;
  return uint64_t{codec->input_iMCU_row} * 2 < codec->total_iMCU_rows;
}

// Warnings pass, as in a full read, but for the one that says the data ended
// (the file's own end of image, or the one made up for a truncated file)
// while most blocks were still missing.
void CheckEmitMessage(j_common_ptr codec, int level) {
  if (level != -1) return;
  ++codec->err->num_warnings;
  if (codec->err->msg_code != JWRN_HIT_MARKER) return;
  auto *dinfo = reinterpret_cast<j_decompress_ptr>(codec);
  if (dinfo->unread_marker == JPEG_EOI && MostlyFiller(dinfo)) {
    static_cast<CheckCodec *>(codec->client_data)->fault = RasErrRead;
    ERREXIT(codec, JERR_INPUT_EOF);
  }
}

bool HasModel(J_COLOR_SPACE space) {
  return space == JCS_GRAYSCALE || space == JCS_RGB || space == JCS_CMYK;
}

float ResolutionOf(const jpeg_decompress_struct *codec) {
  if (codec->density_unit == 1) return static_cast<float>(codec->X_density);
  if (codec->density_unit == 2) return static_cast<float>(codec->X_density * 2.54);
  return -1.0F;
}

// Header, pixel limit and model, as the full read's open checks them. The
// output is set to the check's scaled decode; the header alone decides
// every field and refusal here, so the header-only check stops after it.
int CheckHeader(CheckCodec *codec, JpegCheck *check) {
  j_decompress_ptr d = &codec->dinfo;
  (void)jpeg_read_header(d, TRUE);
  check->width = d->image_width;
  check->height = d->image_height;
  check->resolution = ResolutionOf(d);
  if (uint64_t{d->image_width} * d->image_height > RasMaxPixels()) {
    return RasFormatCheckPixels("JpegCheckFile", d->image_width, d->image_height, 2);
  }
  d->scale_num = 1;
  d->scale_denom = kCheckScale;
  // JpegThumbDecode's settings, which change nothing the check refuses and
  // make the rows a caller keeps the ones that decode would give.
  d->dct_method = JDCT_IFAST;
  d->do_fancy_upsampling = FALSE;
  d->do_block_smoothing = FALSE;
  // The output colour space stays the one the header chose, as in a full
  // read, so that the same files map to no model.
  jpeg_calc_output_dimensions(d);
  check->channels = static_cast<uint32_t>(d->output_components);
  return HasModel(d->out_color_space) ? RasOk : RasError("JpegCheckFile", RasErrArg, 3);
}

// Room for the rows a caller keeps, when it asked for them and they come out
// as grey or RGB; otherwise nothing is kept. Running out of memory for them
// is no reason to refuse the file.
uint8_t *KeptRows(const jpeg_decompress_struct *d, JpegThumb *picture) {
  if (picture == nullptr || (d->output_components != 1 && d->output_components != 3))
    return nullptr;
  picture->rgb = static_cast<uint8_t *>(RasAlloc(size_t{d->output_width} * d->output_height * 3));
  if (picture->rgb == nullptr) return nullptr;
  picture->width = d->output_width;
  picture->height = d->output_height;
  picture->fullWidth = d->image_width;
  picture->fullHeight = d->image_height;
  picture->denominator = kCheckScale;
  return picture->rgb;
}

// Grey samples as RGB, the same value three times, as the codec's own grey
// to RGB conversion makes them.
void GreyToRgb(const JSAMPLE *grey, uint8_t *rgb, JDIMENSION width) {
  for (JDIMENSION x = 0; x < width; ++x, rgb += 3)
    rgb[0] = rgb[1] = rgb[2] = grey[x];
}

// Every row, then the end of the image: the markers after the last scan are
// read there, and a broken one is as fatal here as in a full read. Kept RGB
// rows are decoded straight into the picture.
int CheckRows(CheckCodec *codec, JpegThumb *picture) {
  j_decompress_ptr d = &codec->dinfo;
  const JDIMENSION rowSize = d->output_width * static_cast<JDIMENSION>(d->output_components);
  JSAMPARRAY row =
      (*d->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(d), JPOOL_IMAGE, rowSize, 1);
  uint8_t *kept = KeptRows(d, picture);
  const bool grey = d->output_components == 1;
  const size_t keptRow = size_t{d->output_width} * 3;
  while (d->output_scanline < d->output_height) {
    uint8_t *out = kept ? kept + keptRow * d->output_scanline : nullptr;
    JSAMPROW target[1] = {out && !grey ? out : row[0]};
    if (jpeg_read_scanlines(d, target, 1) != 1) return RasError("JpegCheckFile", RasErrFormat, 4);
    if (out && grey) GreyToRgb(row[0], out, d->output_width);
  }
  (void)jpeg_finish_decompress(d);
  return RasOk;
}

// The header, then, when `rows`, the scaled decode of every row.
int CheckRun(CheckCodec *codec, JpegCheck *check, JpegThumb *picture, bool rows) {
  j_decompress_ptr d = &codec->dinfo;
  d->err = jpeg_std_error(&codec->err);
  codec->err.error_exit = CheckErrorExit;
  codec->err.output_message = CheckOutputMessage;
  codec->err.emit_message = CheckEmitMessage;
  d->client_data = codec;
  if (setjmp(codec->jump) != 0) {
    int failure = codec->err.msg_code == JERR_OUT_OF_MEMORY ? RasErrMemory : RasErrFormat;
    if (codec->fault != RasOk) failure = codec->fault;
    return RasError("JpegCheckFile", failure, 5);
  }
  jpeg_create_decompress(d);
  d->mem->max_memory_to_use = kCheckMaxCodecMemory;
  if (codec->file.kind == RasFileKindMemory) {
    jpeg_mem_src(d, codec->file.block, static_cast<unsigned long>(codec->file.capacity));
  } else {
    jpeg_stdio_src(d, codec->file.stream);
  }
  const int code = CheckHeader(codec, check);
  if (code != RasOk || !rows) return code;
  (void)jpeg_start_decompress(d);
  return CheckRows(codec, picture);
}

// The check, with or without the rows, for both entries.
int Check(const char *name, JpegCheck *check, JpegThumb *picture, bool rows) {
  if (name == nullptr || check == nullptr) return RasError("JpegCheckFile", RasErrArg, 0);
  *check = JpegCheck{0, 0, 0, -1.0F};
  RasFormatClearPixelRefusal();
  RasErrorFileScope scope(name);
  return RunJpegCodec<CheckCodec>("JpegCheckFile", name, [&](CheckCodec *codec) {
    return CheckRun(codec, check, picture, rows);
  });
}

}  // namespace

int JpegCheckFile(const char *name, JpegCheck *check, JpegThumb *picture) {
  if (picture != nullptr) RasMemSet(picture, 0, sizeof(JpegThumb));
  // A file the DC-only reader takes is one intact scan of grey or YCbCr
  // ending in its end-of-image marker, which a full read reads to the last
  // row; what is left to find is what the header says.
  JpegThumb rows{};
  if (name != nullptr && check != nullptr && JpegDcDecodeFile(name, 1, 1, &rows)) {
    const int code = JpegCheckHeader(name, check);
    if (code == RasOk && picture != nullptr) {
      *picture = rows;
    } else {
      JpegThumbFree(&rows);
    }
    return code;
  }
  const int code = Check(name, check, picture, true);
  if (code != RasOk) JpegThumbFree(picture);
  return code;
}

int JpegCheckHeader(const char *name, JpegCheck *check) {
  return Check(name, check, nullptr, false);
}

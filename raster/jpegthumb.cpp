// Reduced-size JPEG decoding for thumbnails. The codec reads a disk file
// through the file layer's standard I/O stream and a memory block (an EXIF
// thumbnail held by the caller) straight from the block. Its fatal errors
// come back through a jump buffer; the routine holding the setjmp keeps only
// trivially destructible locals.
#include "raster/jpegthumb.h"

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

// As for full decodes: a progressive file's coefficient buffers may not ask
// for more than this, whatever its header claims.
constexpr long kThumbMaxCodecMemory = 1L << 30;

struct ThumbCodec {
  jpeg_decompress_struct dinfo;
  jpeg_error_mgr err;
  jmp_buf jump;
  RasFile file;
  JSAMPARRAY row;  // one row of the codec's output, in its image pool
};

[[noreturn]] void ThumbErrorExit(j_common_ptr codec) {
  std::longjmp(static_cast<ThumbCodec *>(codec->client_data)->jump, 1);
}

// A thumbnail is a courtesy: warnings (a truncated file included, whose
// missing rows come out grey) are never shown.
void ThumbOutputMessage(j_common_ptr) {}

uint32_t Reduced(uint32_t side, uint32_t denominator) {
  return static_cast<uint32_t>((uint64_t{side} + denominator - 1) / denominator);
}

uint8_t Scale255(unsigned a, unsigned b) {
  return static_cast<uint8_t>((a * b + 127) / 255);
}

// Adobe's CMYK JPEGs store the inks inverted (0 full ink), which is what the
// codec hands back for both CMYK and YCCK when the Adobe marker is present.
void CmykToRgb(const JSAMPLE *cmyk, uint8_t *rgb, uint32_t width, bool inverted) {
  for (uint32_t x = 0; x < width; ++x, cmyk += 4, rgb += 3) {
    const unsigned k = inverted ? cmyk[3] : 255U - cmyk[3];
    for (int c = 0; c < 3; ++c) {
      rgb[c] = Scale255(inverted ? cmyk[c] : 255U - cmyk[c], k);
    }
  }
}

// Header read, pixel limit checked, reduction and output colour chosen,
// decoding started. Codec errors leave through the jump buffer.
int ThumbStart(ThumbCodec *codec, uint32_t atLeastWidth, uint32_t atLeastHeight, JpegThumb *thumb) {
  j_decompress_ptr d = &codec->dinfo;
  (void)jpeg_read_header(d, TRUE);
  thumb->fullWidth = d->image_width;
  thumb->fullHeight = d->image_height;
  if (uint64_t{d->image_width} * d->image_height > RasMaxPixels()) {
    return RasFormatCheckPixels("JpegThumbDecode", d->image_width, d->image_height, 2);
  }
  thumb->denominator =
      JpegThumbDenominator(d->image_width, d->image_height, atLeastWidth, atLeastHeight);
  d->scale_num = 1;
  d->scale_denom = thumb->denominator;
  // The picture is reduced further after this, which hides the difference
  // between the fast and the accurate transforms and upsamplings.
  d->dct_method = JDCT_IFAST;
  d->do_fancy_upsampling = FALSE;
  d->do_block_smoothing = FALSE;
  const bool inked = d->jpeg_color_space == JCS_CMYK || d->jpeg_color_space == JCS_YCCK;
  d->out_color_space = inked ? JCS_CMYK : JCS_RGB;
  (void)jpeg_start_decompress(d);
  thumb->width = d->output_width;
  thumb->height = d->output_height;
  const JDIMENSION rowSize = d->output_width * static_cast<JDIMENSION>(d->output_components);
  codec->row = (*d->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(d), JPOOL_IMAGE, rowSize, 1);
  const size_t bytes = size_t{thumb->width} * thumb->height * 3;
  thumb->rgb = static_cast<uint8_t *>(RasAlloc(bytes));
  return thumb->rgb != nullptr ? RasOk : RasError("JpegThumbDecode", RasErrMemory, 3);
}

void ThumbReadRows(ThumbCodec *codec, JpegThumb *thumb) {
  j_decompress_ptr d = &codec->dinfo;
  const bool inked = d->out_color_space == JCS_CMYK;
  const bool inverted = d->saw_Adobe_marker != FALSE;
  for (uint32_t y = 0; y < thumb->height; ++y) {
    uint8_t *out = thumb->rgb + size_t{y} * thumb->width * 3;
    JSAMPROW target[1] = {inked ? codec->row[0] : out};
    // A source that reads whole files never suspends, so no row is skipped.
    (void)jpeg_read_scanlines(d, target, 1);
    if (inked) CmykToRgb(codec->row[0], out, thumb->width, inverted);
  }
  (void)jpeg_finish_decompress(d);
}

void ThumbAttachSource(ThumbCodec *codec) {
  if (codec->file.kind == RasFileKindMemory) {
    jpeg_mem_src(&codec->dinfo, codec->file.block,
                 static_cast<unsigned long>(codec->file.capacity));
  } else {
    jpeg_stdio_src(&codec->dinfo, codec->file.stream);
  }
}

// Everything the codec does, with its fatal errors caught. `codec` is the
// caller's, so nothing here outlives the jump.
int ThumbRun(ThumbCodec *codec, uint32_t atLeastWidth, uint32_t atLeastHeight, JpegThumb *thumb) {
  j_decompress_ptr d = &codec->dinfo;
  d->err = jpeg_std_error(&codec->err);
  codec->err.error_exit = ThumbErrorExit;
  codec->err.output_message = ThumbOutputMessage;
  d->client_data = codec;
  if (setjmp(codec->jump) != 0) {
    const bool memory = codec->err.msg_code == JERR_OUT_OF_MEMORY;
    return RasError("JpegThumbDecode", memory ? RasErrMemory : RasErrFormat, 2);
  }
  jpeg_create_decompress(d);
  d->mem->max_memory_to_use = kThumbMaxCodecMemory;
  ThumbAttachSource(codec);
  const int code = ThumbStart(codec, atLeastWidth, atLeastHeight, thumb);
  if (code != RasOk) return code;
  ThumbReadRows(codec, thumb);
  return RasOk;
}

}  // namespace

uint32_t JpegThumbDenominator(uint32_t width, uint32_t height, uint32_t atLeastWidth,
                              uint32_t atLeastHeight) {
  for (uint32_t denominator = 8; denominator > 1; denominator /= 2) {
    if (Reduced(width, denominator) >= atLeastWidth &&
        Reduced(height, denominator) >= atLeastHeight) {
      return denominator;
    }
  }
  return 1;
}

int JpegThumbDecode(const char *name, uint32_t atLeastWidth, uint32_t atLeastHeight,
                    JpegThumb *thumb) {
  if (name == nullptr || thumb == nullptr) {
    return RasError("JpegThumbDecode", RasErrArg, 0);
  }
  RasMemSet(thumb, 0, sizeof(JpegThumb));
  RasFormatClearPixelRefusal();
  RasErrorFileScope scope(name);
  if (JpegDcDecodeFile(name, atLeastWidth, atLeastHeight, thumb)) return RasOk;
  const int code = RunJpegCodec<ThumbCodec>("JpegThumbDecode", name, [&](ThumbCodec *codec) {
    return ThumbRun(codec, atLeastWidth, atLeastHeight, thumb);
  });
  if (code != RasOk) JpegThumbFree(thumb);
  return code;
}

void JpegThumbFree(JpegThumb *thumb) {
  if (thumb == nullptr) return;
  thumb->rgb = static_cast<uint8_t *>(RasFree(thumb->rgb));
  thumb->width = 0;
  thumb->height = 0;
}

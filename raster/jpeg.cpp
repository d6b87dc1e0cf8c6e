// JPEG (JFIF) files, format code 9: the glue between the raster scanline
// interface and the IJG codec. The codec reads and writes through the
// library's file layer by the source and destination managers below, and its
// fatal errors come back as -8 through a jump buffer in the private block;
// those the managers raise for the file itself say what happened instead:
// -5 for data that ended too soon, -6 for a failed write.
//
// Every function that calls setjmp holds only trivially destructible locals
// (pointers and integers), and the codec objects are destroyed only by
// jpeg_destroy_*, which never raises an error.
#include "raster/jpeg.h"

#include <cmath>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasformat.h"
#include "raster/core/rasstate.h"
#include "raster/core/rasstr.h"
#include "raster/core/rowpack.h"

namespace {

// Settings, per thread like every setting of the library: DCT method, smoothing, restart interval
// in MCU rows, fancy upsampling off. The quality (index 0) is the core's encoder quality, which the
// WebP and HEIF writers share; its slot here is unused.
thread_local int gJpegSettings[5] = {0, 0, 0, 1, 0};

constexpr size_t kJpegBufferSize = 4096;

// Ceiling for the codec's whole-image coefficient buffers (progressive and
// multi-scan files). Without a backing store, a file asking for more fails
// as a fatal codec error instead of allocating whatever its header claims.
constexpr long kJpegMaxCodecMemory = 1L << 30;

struct JpegPriv {
  jpeg_decompress_struct dinfo;  // reading
  jpeg_compress_struct cinfo;    // writing
  int32_t last;                  // last row read or written, -1 before the first
  JSAMPARRAY row;                // one interleaved row in the codec's image pool
  jpeg_error_mgr err;
  jmp_buf jump;
  // Chosen once at open from the component count and colour space.
  RasSplitRowFn split;
  RasJoinRowFn merge;
  // True only while a routine that set the jump buffer is running.
  bool armed;
  // A fatal codec error left the object unusable for further rows.
  bool failed;
  // What a source or destination manager found wrong with the file before
  // raising a fatal error (-5 or -6), 0 when the codec itself gave up.
  int fault;
};

struct JpegSource {
  jpeg_source_mgr pub;
  RasFile *file;
  JOCTET *buffer;
  bool start;  // nothing read yet
};

struct JpegDest {
  jpeg_destination_mgr pub;
  RasFile *file;
  JOCTET *buffer;
};

// `count` objects of type T from one of the codec's memory pools, freed with
// the pool; the codec's memory manager reports a failure through the jump.
template <typename T, typename Codec>
T *JpegPoolNew(Codec codec, int pool, size_t count) {
  auto common = reinterpret_cast<j_common_ptr>(codec);
  return static_cast<T *>((*common->mem->alloc_small)(common, pool, sizeof(T) * count));
}

// ---------------------------------------------------------------------------
// Error manager

[[noreturn]] void JpegErrorExit(j_common_ptr codec) {
  auto *priv = static_cast<JpegPriv *>(codec->client_data);
  // A fatal error outside an armed routine would jump into a frame that has
  // returned; stopping here makes such a fault visible instead of undefined.
  if (priv == nullptr || !priv->armed) {
    std::abort();
  }
  std::longjmp(priv->jump, 1);
}

void JpegOutputMessage(j_common_ptr) {}

// Notes what went wrong with the file and raises the fatal error; never returns.
void JpegFileFault(j_common_ptr codec, int fault, int message) {
  static_cast<JpegPriv *>(codec->client_data)->fault = fault;
  ERREXIT(codec, message);
}

// True when the compressed data, ending now, covered less than half of the
// picture's rows, the rest to be made up as grey. A photo cut short by a
// broken download still shows what arrived; but once most of it would be
// grey there is little photo left to show, and a few hundred forged bytes
// declaring a huge picture would have every caller decode gigabytes of grey.
// A file of several scans covers every row once its first scan is complete.
bool JpegMostlyFiller(const jpeg_decompress_struct *codec) {
  if (codec->input_scan_number == 0) return false;  // still in the header
  if (codec->input_scan_number > 1) return false;
  return uint64_t{codec->input_iMCU_row} * 2 < codec->total_iMCU_rows;
}

// Warnings are not shown, but one of them says that the compressed data
// ended: the entropy decoder met the end of the image (the file's own, or the
// one made up for a truncated file) while blocks were still missing.
void JpegEmitMessage(j_common_ptr codec, int level) {
  if (level != -1) return;
  ++codec->err->num_warnings;
  if (!codec->is_decompressor || codec->err->msg_code != JWRN_HIT_MARKER) return;
  auto *dinfo = reinterpret_cast<j_decompress_ptr>(codec);
  if (dinfo->unread_marker == JPEG_EOI && JpegMostlyFiller(dinfo)) {
    JpegFileFault(codec, RasErrRead, JERR_INPUT_EOF);
  }
}

// The code a fatal codec error is reported with.
int JpegFailure(const JpegPriv *priv) {
  return priv->fault != RasOk ? priv->fault : RasErrFormat;
}

void JpegInstallErrors(JpegPriv *priv, jpeg_common_struct *codec) {
  codec->err = jpeg_std_error(&priv->err);
  priv->err.error_exit = JpegErrorExit;
  priv->err.output_message = JpegOutputMessage;
  priv->err.emit_message = JpegEmitMessage;
  codec->client_data = priv;
}

// ---------------------------------------------------------------------------
// Source manager

void JpegInitSource(j_decompress_ptr codec) {
  reinterpret_cast<JpegSource *>(codec->src)->start = true;
}

boolean JpegFillInput(j_decompress_ptr codec) {
  auto *src = reinterpret_cast<JpegSource *>(codec->src);
  int64_t count = kJpegBufferSize;
  if (RasFileRead(src->file, src->buffer, &count, 0) != RasOk || count <= 0) {
    if (src->start) {
      ERREXIT(codec, JERR_INPUT_EMPTY);
    }
    // A truncated file still yields its decoded part: end it with a fake EOI.
    WARNMS(codec, JWRN_JPEG_EOF);
    src->buffer[0] = 0xFF;
    src->buffer[1] = JPEG_EOI;
    count = 2;
  }
  src->pub.next_input_byte = src->buffer;
  src->pub.bytes_in_buffer = static_cast<size_t>(count);
  src->start = false;
  return TRUE;
}

void JpegSkipInput(j_decompress_ptr codec, long count) {
  if (count <= 0) {
    return;
  }
  jpeg_source_mgr *src = codec->src;
  auto left = static_cast<size_t>(count);
  while (left > src->bytes_in_buffer) {
    left -= src->bytes_in_buffer;
    (void)(*src->fill_input_buffer)(codec);
  }
  src->next_input_byte += left;
  src->bytes_in_buffer -= left;
}

void JpegTermSource(j_decompress_ptr) {}

void JpegAttachSource(j_decompress_ptr codec, RasFile *file) {
  auto *src = JpegPoolNew<JpegSource>(codec, JPOOL_PERMANENT, 1);
  src->buffer = JpegPoolNew<JOCTET>(codec, JPOOL_PERMANENT, kJpegBufferSize);
  src->file = file;
  src->start = true;
  src->pub = {
      nullptr,       0, JpegInitSource, JpegFillInput, JpegSkipInput, jpeg_resync_to_restart,
      JpegTermSource};
  codec->src = &src->pub;
}

// ---------------------------------------------------------------------------
// Destination manager

void JpegInitDest(j_compress_ptr codec) {
  auto *dest = reinterpret_cast<JpegDest *>(codec->dest);
  dest->buffer = JpegPoolNew<JOCTET>(codec, JPOOL_IMAGE, kJpegBufferSize);
  dest->pub.next_output_byte = dest->buffer;
  dest->pub.free_in_buffer = kJpegBufferSize;
}

void JpegWriteOut(j_compress_ptr codec, JpegDest *dest, size_t size) {
  int64_t count = static_cast<int64_t>(size);
  if (RasFileWrite(dest->file, dest->buffer, &count) != RasOk ||
      count != static_cast<int64_t>(size)) {
    JpegFileFault(reinterpret_cast<j_common_ptr>(codec), RasErrWrite, JERR_FILE_WRITE);
  }
}

boolean JpegEmptyOutput(j_compress_ptr codec) {
  auto *dest = reinterpret_cast<JpegDest *>(codec->dest);
  JpegWriteOut(codec, dest, kJpegBufferSize);
  dest->pub.next_output_byte = dest->buffer;
  dest->pub.free_in_buffer = kJpegBufferSize;
  return TRUE;
}

void JpegTermDest(j_compress_ptr codec) {
  auto *dest = reinterpret_cast<JpegDest *>(codec->dest);
  size_t used = kJpegBufferSize - dest->pub.free_in_buffer;
  if (used > 0) {
    JpegWriteOut(codec, dest, used);
  }
}

void JpegAttachDest(j_compress_ptr codec, RasFile *file) {
  auto *dest = JpegPoolNew<JpegDest>(codec, JPOOL_PERMANENT, 1);
  dest->file = file;
  dest->buffer = nullptr;
  dest->pub = {nullptr, 0, JpegInitDest, JpegEmptyOutput, JpegTermDest};
  codec->dest = &dest->pub;
}

// Codec colour space for a model already known to be grey, RGB or CMYK.
J_COLOR_SPACE JpegColorSpaceOf(uint32_t model) {
  switch (model) {
    case RasModelGray:
      return JCS_GRAYSCALE;
    case RasModelRgb:
      return JCS_RGB;
    default:
      return JCS_CMYK;
  }
}

// Model code for the codec's output colour space, 0 for none.
uint32_t JpegModelOf(J_COLOR_SPACE space) {
  switch (space) {
    case JCS_GRAYSCALE:
      return RasModelGray;
    case JCS_RGB:
      return RasModelRgb;
    case JCS_CMYK:
      return RasModelCmyk;
    default:
      return 0;
  }
}

float JpegResolutionOf(const jpeg_decompress_struct *codec) {
  if (codec->density_unit == 1) {
    return static_cast<float>(codec->X_density);
  }
  if (codec->density_unit == 2) {
    return static_cast<float>(codec->X_density * 2.54);
  }
  return -1.0F;
}

// Resolution rounded to whole dots per inch and cut to the 16 bits of the
// JFIF field; values beyond any integer type give 0 rather than overflow.
UINT16 JpegDensityOf(float resolution) {
  double whole = std::floor(static_cast<double>(resolution) + 0.5);
  if (!(whole >= 0.0 && whole < 18446744073709551616.0)) {
    return 0;
  }
  return static_cast<UINT16>(static_cast<uint64_t>(whole) & 0xFFFFU);
}

// ---------------------------------------------------------------------------
// Private block

JpegPriv *JpegNewPriv() {
  auto *priv = static_cast<JpegPriv *>(RasAlloc(sizeof(JpegPriv)));
  if (priv != nullptr) {
    // All zero: destroying a codec object that was never created is harmless.
    RasMemSet(priv, 0, sizeof(JpegPriv));
    priv->last = -1;
  }
  return priv;
}

void JpegDestroyPriv(JpegPriv *priv, char mode) {
  if (mode != 'r') {
    jpeg_destroy_compress(&priv->cinfo);
  } else {
    jpeg_destroy_decompress(&priv->dinfo);
  }
  RasFree(priv);
}

// Undoes a failed open: codec object, private block and file.
void JpegDiscard(RasState *state) {
  if (state->priv != nullptr) {
    JpegDestroyPriv(static_cast<JpegPriv *>(state->priv), state->mode);
    state->priv = nullptr;
  }
  if (state->file.kind != RasFileKindClosed) {
    RasFileClose(&state->file);
  }
}

bool JpegRowFits(const RasSl *sl, uint32_t width, int channels) {
  if (sl->width < width || sl->channels < static_cast<uint32_t>(channels) || channels > 4) {
    return false;
  }
  for (int k = 0; k < channels; ++k) {
    if (sl->plane8[k] == nullptr) {
      return false;
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// Reading

// Creates the decompression object and reads the header. Codec errors leave
// through the jump buffer armed by the caller.
void JpegReadHeader(JpegPriv *priv, RasFile *file) {
  j_decompress_ptr codec = &priv->dinfo;
  JpegInstallErrors(priv, reinterpret_cast<j_common_ptr>(codec));
  jpeg_create_decompress(codec);
  codec->mem->max_memory_to_use = kJpegMaxCodecMemory;
  JpegAttachSource(codec, file);
  (void)jpeg_read_header(codec, TRUE);
}

// Starts decoding a file whose header is read. Returns the model code of the
// output, 0 when it maps to none. Codec errors leave through the jump buffer
// armed by the caller.
uint32_t JpegStartDecoder(JpegPriv *priv) {
  j_decompress_ptr codec = &priv->dinfo;
  codec->dct_method = static_cast<J_DCT_METHOD>(gJpegSettings[JpegOptDctMethod]);
  codec->do_fancy_upsampling = gJpegSettings[JpegOptNoFancy] != 0 ? FALSE : TRUE;
  codec->do_block_smoothing = FALSE;
  jpeg_calc_output_dimensions(codec);
  priv->row = (*codec->mem->alloc_sarray)(
      reinterpret_cast<j_common_ptr>(codec), JPOOL_IMAGE,
      codec->output_width * static_cast<JDIMENSION>(codec->output_components), 1);
  (void)jpeg_start_decompress(codec);
  uint32_t model = JpegModelOf(codec->out_color_space);
  if (model != 0) {
    priv->split =
        RasSplitRowFor(static_cast<uint32_t>(codec->output_components), model == RasModelCmyk);
  }
  return model;
}

// The codec steps of an open, run with its fatal errors caught: a new private
// block hung in the state (-3 with `memoryDetail` when there is none, the file
// closed again), then `step`. A codec error is the open's detail 1; after any
// failure neither the block nor the file is left open.
int JpegOpenArmed(RasDesc *desc, RasState *state, int memoryDetail,
                  int (*step)(JpegPriv *, RasDesc *, RasState *)) {
  JpegPriv *priv = JpegNewPriv();
  if (priv == nullptr) {
    RasFileClose(&state->file);
    return RasError("JpegOpen", RasErrMemory, memoryDetail);
  }
  state->priv = priv;

  priv->armed = true;
  if (setjmp(priv->jump) != 0) {
    priv->armed = false;
    const int failure = JpegFailure(priv);
    JpegDiscard(state);
    return RasError("JpegOpen", failure, 1);
  }
  const int code = step(priv, desc, state);
  priv->armed = false;
  if (code != RasOk) {
    JpegDiscard(state);
  }
  return code;
}

int JpegStartReading(JpegPriv *priv, RasDesc *desc, RasState *state) {
  JpegReadHeader(priv, &state->file);
  // A file of several scans is decoded whole when decoding starts, into
  // buffers for the whole picture: its size is checked before that.
  desc->width = priv->dinfo.image_width;
  desc->height = priv->dinfo.image_height;
  if (uint64_t{desc->width} * desc->height > RasMaxPixels()) {
    return RasFormatCheckPixels("JpegOpen", desc->width, desc->height, 17);
  }
  const uint32_t model = JpegStartDecoder(priv);
  if (model == 0) {
    return RasError("JpegOpen", RasErrArg, 1);
  }

  const jpeg_decompress_struct *codec = &priv->dinfo;
  desc->width = codec->output_width;
  desc->height = codec->output_height;
  desc->channels = static_cast<uint32_t>(codec->output_components);
  desc->model = model;
  desc->resolution = JpegResolutionOf(codec);
  desc->format = RasFormatJpeg;
  return RasOk;
}

int JpegOpenRead(const char *name, RasDesc *desc, RasState *state) {
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk) {
    return RasError("JpegOpen", RasErrOpen, 1);
  }
  return JpegOpenArmed(desc, state, 3, JpegStartReading);
}

// Decodes up to `row` and spreads it into the planes; finishes the image
// after its last row. Returns 0, or -8 after a fatal codec error.
// With `into`, that row is decoded straight into it as interleaved samples
// and no plane is written.
int JpegDecodeTo(JpegPriv *priv, uint32_t row, RasSl *sl, uint8_t *into = nullptr) {
  j_decompress_ptr codec = &priv->dinfo;
  priv->armed = true;
  if (setjmp(priv->jump) != 0) {
    priv->armed = false;
    priv->failed = true;
    return RasError("JpegReadSl", JpegFailure(priv), 8);
  }
  while (priv->last < static_cast<int32_t>(row)) {
    const bool wanted = into && priv->last + 1 == static_cast<int32_t>(row);
    JSAMPROW target[1] = {wanted ? into : priv->row[0]};
    if (jpeg_read_scanlines(codec, target, 1) != 1) {
      priv->armed = false;
      priv->failed = true;
      return RasError("JpegReadSl", RasErrFormat, 8);
    }
    ++priv->last;
  }
  if (!into) priv->split(priv->row[0], sl->plane8, codec->output_width);
  if (row + 1 == codec->output_height) {
    (void)jpeg_finish_decompress(codec);
    // Finishing released the image pool and the row buffer with it.
    priv->row = nullptr;
  }
  priv->armed = false;
  return RasOk;
}

// Detail numbers beyond the documented ones: 6 the scanline record could not
// be allocated, 7 the record is too small for the image, 8 the codec failed
// while decoding (-5 when the data ended before half the rows), 9 a row was
// asked after such a failure.
int JpegReadForward(RasDesc *desc, uint32_t row, RasSl *sl) {
  auto *priv = static_cast<JpegPriv *>(desc->state->priv);
  if (row >= priv->dinfo.output_height) {
    return RasError("JpegReadSl", RasErrArg, 4);
  }
  if (sl->width == 0 || sl->channels == 0) {
    int rc = RasMakeSl(sl, desc);
    if (rc != RasOk) {
      return RasError("JpegReadSl", rc, 6);
    }
  }
  if (!JpegRowFits(sl, priv->dinfo.output_width, priv->dinfo.output_components)) {
    return RasError("JpegReadSl", RasErrArg, 7);
  }
  if (priv->failed) {
    return RasError("JpegReadSl", JpegFailure(priv), 9);
  }
  return JpegDecodeTo(priv, row, sl);
}

// Going back to an earlier row: the codec decodes forward only, so the file
// is opened again from its start in the same state block. The open writes the
// block's name, so the name is copied out first.
int JpegReadAgain(RasDesc *desc, uint32_t row, RasSl *sl) {
  char name[RasNameSize];
  RasCopyName(name, desc->state->name);
  int rc = JpegClose(desc);
  if (rc != RasOk) {
    return RasError("JpegReadSl", rc, 3);
  }
  RasStateReset(desc->state);
  rc = JpegOpen(name, 'r', desc);
  if (rc != RasOk) {
    return RasError("JpegReadSl", rc, 5);
  }
  return JpegReadForward(desc, row, sl);
}

// ---------------------------------------------------------------------------
// Writing

// Creates the compression object with the current settings and starts it.
// Codec errors leave through the jump buffer armed by the caller.
void JpegStartEncoder(JpegPriv *priv, RasFile *file, const RasDesc *desc) {
  j_compress_ptr codec = &priv->cinfo;
  JpegInstallErrors(priv, reinterpret_cast<j_common_ptr>(codec));
  jpeg_create_compress(codec);
  JpegAttachDest(codec, file);
  codec->image_width = desc->width;
  codec->image_height = desc->height;
  codec->input_components = static_cast<int>(desc->channels);
  codec->in_color_space = JpegColorSpaceOf(desc->model);
  priv->merge = RasJoinRowFor(desc->channels, desc->model == RasModelCmyk);
  jpeg_set_defaults(codec);
  // The defaults reset the density, so it is set after them.
  if (desc->resolution > 0.0F) {
    UINT16 density = JpegDensityOf(desc->resolution);
    codec->density_unit = 1;
    codec->X_density = density;
    codec->Y_density = density;
  } else {
    codec->density_unit = 0;
  }
  jpeg_set_quality(codec, RasEncoderQuality(), TRUE);
  codec->dct_method = static_cast<J_DCT_METHOD>(gJpegSettings[JpegOptDctMethod]);
  codec->smoothing_factor = gJpegSettings[JpegOptSmoothing];
  codec->restart_in_rows = gJpegSettings[JpegOptRestart];
  // Starting checks the geometry and the components against the colour
  // space, so the row size below is known to be sane.
  jpeg_start_compress(codec, TRUE);
  priv->row = (*codec->mem->alloc_sarray)(
      reinterpret_cast<j_common_ptr>(codec), JPOOL_IMAGE,
      codec->image_width * static_cast<JDIMENSION>(codec->input_components), 1);
}

int JpegOpenWriteFile(const char *name, RasState *state) {
  // The final size of a compressed file is not known in advance.
  int64_t saved = 0;
  int64_t unknown = 0;
  (void)RasFileGetOption(RasFileOptExpectedSize, &saved);
  (void)RasFileSetOption(RasFileOptExpectedSize, &unknown);
  int rc = RasFileOpen(&state->file, name, RasFileModeWrite);
  (void)RasFileSetOption(RasFileOptExpectedSize, &saved);
  return rc;
}

int JpegStartWriting(JpegPriv *priv, RasDesc *desc, RasState *state) {
  JpegStartEncoder(priv, &state->file, desc);
  return RasOk;
}

int JpegOpenWrite(const char *name, RasDesc *desc, RasState *state) {
  if (desc->model != RasModelGray && desc->model != RasModelRgb && desc->model != RasModelCmyk) {
    return RasError("JpegOpen", RasErrArg, 2);
  }
  if (JpegOpenWriteFile(name, state) != RasOk) {
    return RasError("JpegOpen", RasErrOpen, 13);
  }
  return JpegOpenArmed(desc, state, 14, JpegStartWriting);
}

// Interleaves one row and hands it to the codec; finishes the image after
// its last row. Returns 0, or -8 after a fatal codec error.
int JpegEncodeRow(JpegPriv *priv, uint32_t row, const RasSl *sl) {
  j_compress_ptr codec = &priv->cinfo;
  priv->armed = true;
  if (setjmp(priv->jump) != 0) {
    priv->armed = false;
    priv->failed = true;
    return RasError("JpegWriteSl", JpegFailure(priv), 6);
  }
  priv->merge(priv->row[0], sl->plane8, codec->image_width);
  (void)jpeg_write_scanlines(codec, priv->row, 1);
  priv->last = static_cast<int32_t>(row);
  if (row + 1 == codec->image_height) {
    jpeg_finish_compress(codec);
    // Finishing released the image pool and the row buffer with it.
    priv->row = nullptr;
  }
  priv->armed = false;
  return RasOk;
}

}  // namespace

// ---------------------------------------------------------------------------
// Settings

int JpegGetOption(int index, int *value) {
  if (index < 0) {
    return RasError("JpegGetOption", RasErrArg, 0);
  }
  if (index > JpegOptNoFancy) {
    return RasOk;
  }
  if (value == nullptr) {
    return RasError("JpegGetOption", RasErrArg, 1);
  }
  *value = index == JpegOptQuality ? RasEncoderQuality() : gJpegSettings[index];
  return RasOk;
}

int JpegSetOption(int index, int value) {
  if (index < 0) {
    return RasError("JpegSetOption", RasErrArg, 0);
  }
  bool allowed = true;
  switch (index) {
    case JpegOptQuality:
    case JpegOptSmoothing:
      allowed = value >= 0 && value <= 100;
      break;
    case JpegOptDctMethod:
      allowed = value >= 0 && value <= 2;
      break;
    case JpegOptRestart:
      allowed = value >= 0;
      break;
    case JpegOptNoFancy:
      allowed = value == 0 || value == 1;
      break;
    default:
      return RasOk;
  }
  if (!allowed) {
    return RasError("JpegSetOption", RasErrArg, 1);
  }
  if (index == JpegOptQuality)
    RasSetEncoderQuality(value);
  else
    gJpegSettings[index] = value;
  return RasOk;
}

// ---------------------------------------------------------------------------
// Entry points

// Detail numbers of the open beyond the documented ones: 17 the picture has
// more pixels than RasMaxPixels (-9).
int JpegOpen(const char *name, char mode, RasDesc *desc) {
  if (name == nullptr || desc == nullptr || desc->state == nullptr) {
    return RasError("JpegOpen", RasErrArg, 0);
  }
  RasState *state = desc->state;
  RasCopyName(state->name, name);
  state->mode = mode;
  if (mode == 'r') {
    return JpegOpenRead(name, desc, state);
  }
  if (mode == 'w') {
    return JpegOpenWrite(name, desc, state);
  }
  return RasError("JpegOpen", RasErrArg, 16);
}

int JpegReadRow(RasDesc *desc, uint32_t row, uint8_t *out) {
  if (desc == nullptr || desc->state == nullptr || out == nullptr) {
    return RasError("JpegReadRow", RasErrArg, 0);
  }
  auto *priv = static_cast<JpegPriv *>(desc->state->priv);
  if (desc->format != RasFormatJpeg || priv == nullptr || desc->state->mode != 'r') {
    return RasError("JpegReadRow", RasErrArg, 1);
  }
  if (priv->failed) {
    return RasError("JpegReadRow", RasErrFormat, 9);
  }
  if (static_cast<int64_t>(row) != int64_t{priv->last} + 1 || row >= priv->dinfo.output_height) {
    return RasError("JpegReadRow", RasErrArg, 2);
  }
  return JpegDecodeTo(priv, row, nullptr, out);
}

int JpegReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  if (desc == nullptr) {
    return RasError("JpegReadSl", RasErrArg, 0);
  }
  if (desc->state == nullptr) {
    return RasError("JpegReadSl", RasErrArg, 1);
  }
  auto *priv = static_cast<JpegPriv *>(desc->state->priv);
  if (priv == nullptr || desc->state->mode != 'r') {
    return RasError("JpegReadSl", RasErrArg, 2);
  }
  int64_t wanted = row;
  // The buffered row is gone once the image is finished or a decode failed,
  // so asking for it again goes back as well.
  if (priv->last >= 0 &&
      (wanted < priv->last || (wanted == priv->last && (priv->row == nullptr || priv->failed)))) {
    return JpegReadAgain(desc, row, sl);
  }
  return JpegReadForward(desc, row, sl);
}

// Detail numbers beyond the documented ones: 5 the scanline record is too
// small for the image, 6 the codec failed (a short write included), 7 a row
// was offered after such a failure.
int JpegWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  if (desc == nullptr) {
    return RasError("JpegWriteSl", RasErrArg, 0);
  }
  if (desc->state == nullptr) {
    return RasError("JpegWriteSl", RasErrArg, 1);
  }
  auto *priv = static_cast<JpegPriv *>(desc->state->priv);
  if (priv == nullptr || desc->state->mode != 'w') {
    return RasError("JpegWriteSl", RasErrArg, 2);
  }
  int64_t offered = row;
  // A repeated call for the row just written is tolerated and ignored.
  if (offered == priv->last) {
    return RasOk;
  }
  if (offered != priv->last + 1) {
    return RasError("JpegWriteSl", RasErrArg, 3);
  }
  if (row >= priv->cinfo.image_height) {
    return RasError("JpegWriteSl", RasErrArg, 4);
  }
  if (!JpegRowFits(sl, priv->cinfo.image_width, priv->cinfo.input_components)) {
    return RasError("JpegWriteSl", RasErrArg, 5);
  }
  if (priv->failed) {
    return RasError("JpegWriteSl", JpegFailure(priv), 7);
  }
  return JpegEncodeRow(priv, row, sl);
}

int JpegClose(RasDesc *desc) {
  if (desc == nullptr || desc->state == nullptr) {
    return RasOk;
  }
  RasState *state = desc->state;
  // Closing writes out the last buffered bytes of a file being written.
  const int closed = RasFormatCloseFile(state);
  if (state->priv != nullptr) {
    JpegDestroyPriv(static_cast<JpegPriv *>(state->priv), state->mode);
    state->priv = nullptr;
  }
  return closed != RasOk ? RasError("JpegClose", closed, 1) : RasOk;
}

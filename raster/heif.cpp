// HEIF files, format codes 13 (HEIC) and 14 (AVIF), through libheif. Like
// WebP, the codec takes a whole file: the open holds the bytes and reads the
// primary picture's header, and the first row asked decodes the picture with
// its rotation and mirroring applied (the picture as meant to be seen).
// Pictures of more than 8 bits a sample keep them (maxval 2^bits - 1);
// pictures with alpha open as RGB with alpha in plane 3. Writing gathers the
// rows and encodes 8-bit RGB (or RGB and alpha) after the last one.
#include "raster/heif.h"

#include <libheif/heif.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "raster/core/rasformat.h"
#include "raster/core/whole.h"

namespace {

struct HeifMeta {
  std::vector<uint8_t> exif;
  std::string xmp;
  std::vector<uint8_t> icc;
};

// Set by HeifSetNextMeta, taken by the next open for writing on the thread.
thread_local std::unique_ptr<HeifMeta> tNextMeta;

struct HeifPriv {
  uint8_t *bytes;  // the file, which the context reads without a copy
  size_t size;
  heif_context *context;
  heif_image_handle *handle;
  heif_image *image;  // the decoded picture
  bool wide;
  bool failed;
  RasWholePicture picture;  // the rows written so far (writing)
  HeifMeta *meta;           // what the written file carries, or null
};

heif_compression_format HeifCompressionOf(uint32_t format) {
  return format == RasFormatAvif ? heif_compression_AV1 : heif_compression_HEVC;
}

void HeifFreePriv(RasState *state) {
  auto *priv = static_cast<HeifPriv *>(state->priv);
  if (!priv) return;
  if (priv->image) heif_image_release(priv->image);
  if (priv->handle) heif_image_handle_release(priv->handle);
  if (priv->context) heif_context_free(priv->context);
  RasFree(priv->bytes);
  RasWholeFree(&priv->picture);
  delete priv->meta;
  state->priv = RasFree(priv);
}

HeifPriv *HeifNewPriv(RasState *state) {
  return static_cast<HeifPriv *>(RasWholeNewPriv(state, sizeof(HeifPriv)));
}

// An "ftyp" box naming a HEIF brand, checked on the first bytes before the
// whole file is read.
bool HeifCheck(RasFile *file) {
  uint8_t head[32];
  int64_t count = sizeof head;
  if (RasFileRead(file, head, &count, 0) != RasOk || count < 12) return false;
  const heif_filetype_result kind = heif_check_filetype(head, static_cast<int>(count));
  return kind == heif_filetype_yes_supported;
}

uint32_t HeifFormatOf(const HeifPriv *priv) {
  const int size = static_cast<int>(priv->size < 4096 ? priv->size : 4096);
  const heif_brand2 brand = heif_read_main_brand(priv->bytes, size);
  if (brand == heif_fourcc_to_brand("avif") || brand == heif_fourcc_to_brand("avis") ||
      heif_has_compatible_brand(priv->bytes, size, "avif"))
    return RasFormatAvif;
  return RasFormatHeic;
}

// Reads the file and its primary picture's header; a result code.
int HeifLoad(HeifPriv *priv, RasFile *file) {
  int code = RasWholeReadFile(file, &priv->bytes, &priv->size);
  if (code != RasOk) return code;
  if (priv->size > static_cast<size_t>(INT32_MAX)) return RasErrUnsupported;
  priv->context = heif_context_alloc();
  if (!priv->context) return RasErrMemory;
  heif_error error =
      heif_context_read_from_memory_without_copy(priv->context, priv->bytes, priv->size, nullptr);
  if (error.code == heif_error_Ok)
    error = heif_context_get_primary_image_handle(priv->context, &priv->handle);
  if (error.code == heif_error_Memory_allocation_error) return RasErrMemory;
  return error.code == heif_error_Ok ? RasOk : RasErrFormat;
}

int HeifOpenRead(const char *name, RasDesc *desc, RasState *state) {
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk)
    return RasError("HeifOpen", RasErrOpen, 1);
  int code = HeifCheck(&state->file) ? RasOk : RasErrFormat;
  HeifPriv *priv = code == RasOk ? HeifNewPriv(state) : nullptr;
  if (code == RasOk && !priv) code = RasErrMemory;
  if (code == RasOk) code = HeifLoad(priv, &state->file);
  const int bits = code == RasOk ? heif_image_handle_get_luma_bits_per_pixel(priv->handle) : 0;
  if (code == RasOk && (bits < 1 || bits > 16)) code = RasErrUnsupported;
  if (code != RasOk) {
    HeifFreePriv(state);
    RasFormatDropFile(state, false);
    return RasError("HeifOpen", code, 2);
  }
  priv->wide = bits > 8;
  desc->width = static_cast<uint32_t>(heif_image_handle_get_width(priv->handle));
  desc->height = static_cast<uint32_t>(heif_image_handle_get_height(priv->handle));
  desc->channels = heif_image_handle_has_alpha_channel(priv->handle) ? 4 : 3;
  desc->model = RasModelRgb;
  desc->maxval = priv->wide ? (1u << bits) - 1 : 255;
  desc->resolution = -1.0f;
  desc->format = HeifFormatOf(priv);
  return RasOk;
}

// Decodes the primary picture into interleaved RGB (and alpha) samples.
int HeifDecode(HeifPriv *priv, const RasDesc *desc) {
  const bool alpha = desc->channels == 4;
  const heif_chroma chroma =
      priv->wide ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
                 : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
  const heif_error error =
      heif_decode_image(priv->handle, &priv->image, heif_colorspace_RGB, chroma, nullptr);
  if (error.code == heif_error_Memory_allocation_error) return RasErrMemory;
  if (error.code != heif_error_Ok) return RasErrFormat;
  // The picture must be the size the header promised, or rows would be
  // taken from beyond it.
  if (heif_image_get_width(priv->image, heif_channel_interleaved) !=
          static_cast<int>(desc->width) ||
      heif_image_get_height(priv->image, heif_channel_interleaved) !=
          static_cast<int>(desc->height))
    return RasErrFormat;
  // The file is no longer needed once decoded.
  heif_image_handle_release(priv->handle);
  heif_context_free(priv->context);
  priv->handle = nullptr;
  priv->context = nullptr;
  priv->bytes = static_cast<uint8_t *>(RasFree(priv->bytes));
  return RasOk;
}

heif_error HeifWriteOut(heif_context *, const void *data, size_t size, void *file) {
  const int code = RasFormatWrite(static_cast<RasFile *>(file), data, static_cast<int64_t>(size));
  if (code == RasOk) return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
  return {heif_error_Encoding_error, heif_suberror_Cannot_write_output_data, "write failed"};
}

// The gathered rows as a libheif picture; null when it cannot be made.
heif_image *HeifPictureOf(const RasWholePicture &p) {
  heif_image *image = nullptr;
  const bool alpha = p.channels == 4;
  const int w = static_cast<int>(p.width), h = static_cast<int>(p.height);
  if (heif_image_create(w, h, heif_colorspace_RGB,
                        alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &image)
          .code != heif_error_Ok)
    return nullptr;
  int stride = 0;
  if (heif_image_add_plane(image, heif_channel_interleaved, w, h, 8).code == heif_error_Ok) {
    uint8_t *plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    const size_t rowBytes = size_t{p.width} * p.channels;
    for (uint32_t y = 0; y < p.height; ++y)
      std::memcpy(plane + size_t(stride) * y, p.pixels + rowBytes * y, rowBytes);
    return image;
  }
  heif_image_release(image);
  return nullptr;
}

constexpr uint8_t kExifMark[6] = {'E', 'x', 'i', 'f', 0, 0};

// EXIF and XMP as items describing the coded picture. The EXIF block goes
// after an "Exif\0\0" mark, which the item's header offset (found by the
// library) steps over: the form phones and cameras write, and the one that
// readers skipping a fixed ten bytes take too.
int HeifAddMeta(heif_context *context, const heif_image_handle *handle, const HeifMeta &meta) {
  const auto fits = [](size_t size) { return size <= static_cast<size_t>(INT32_MAX); };
  if (!fits(meta.exif.size() + sizeof kExifMark) || !fits(meta.xmp.size())) return RasErrArg;
  if (!meta.exif.empty()) {
    std::vector<uint8_t> exif(kExifMark, kExifMark + sizeof kExifMark);
    exif.insert(exif.end(), meta.exif.begin(), meta.exif.end());
    if (heif_context_add_exif_metadata(context, handle, exif.data(), static_cast<int>(exif.size()))
            .code != heif_error_Ok)
      return RasErrArg;
  }
  if (!meta.xmp.empty() && heif_context_add_XMP_metadata(context, handle, meta.xmp.data(),
                                                         static_cast<int>(meta.xmp.size()))
                                   .code != heif_error_Ok)
    return RasErrArg;
  return RasOk;
}

// Encodes the gathered picture and writes the file; a result code.
int HeifFinish(HeifPriv *priv, uint32_t format, RasFile *file) {
  heif_image *image = HeifPictureOf(priv->picture);
  RasWholeFree(&priv->picture);
  heif_context *context = heif_context_alloc();
  heif_encoder *encoder = nullptr;
  const int quality = RasEncoderQuality();
  int code = image && context ? RasOk : RasErrMemory;
  if (code == RasOk &&
      heif_context_get_encoder_for_format(context, HeifCompressionOf(format), &encoder).code !=
          heif_error_Ok)
    code = RasErrUnsupported;
  const HeifMeta *meta = priv->meta;
  // The profile goes with the picture into the encoder, which writes it as
  // the coded image's colour property.
  if (code == RasOk && meta && !meta->icc.empty() &&
      heif_image_set_raw_color_profile(image, "prof", meta->icc.data(), meta->icc.size()).code !=
          heif_error_Ok)
    code = RasErrMemory;
  heif_image_handle *handle = nullptr;
  if (code == RasOk) {
    (void)heif_encoder_set_lossy_quality(encoder, quality);
    if (heif_context_encode_image(context, image, encoder, nullptr, &handle).code != heif_error_Ok)
      code = RasErrFormat;
  }
  if (code == RasOk && meta) code = HeifAddMeta(context, handle, *meta);
  if (handle) heif_image_handle_release(handle);
  heif_writer writer{1, HeifWriteOut};
  if (code == RasOk && heif_context_write(context, &writer, file).code != heif_error_Ok)
    code = RasErrWrite;
  if (encoder) heif_encoder_release(encoder);
  if (context) heif_context_free(context);
  if (image) heif_image_release(image);
  return code;
}

}  // namespace

bool HeifCanWrite(unsigned format) {
  return (format == RasFormatHeic || format == RasFormatAvif) &&
         heif_have_encoder_for_format(HeifCompressionOf(format));
}

int HeifOpen(const char *name, char mode, RasDesc *desc) {
  // Taken before anything can fail, so an open that fails leaves nothing
  // for a later file.
  std::unique_ptr<HeifMeta> meta(mode == 'w' ? tNextMeta.release() : nullptr);
  const int code = RasFormatBegin("HeifOpen", name, mode, desc, 16);
  if (code != RasOk) return code;
  RasState *state = desc->state;
  if (mode == 'r') return HeifOpenRead(name, desc, state);
  if (!HeifCanWrite(desc->format)) return RasError("HeifOpen", RasErrUnsupported, 12);
  HeifPriv *priv = HeifNewPriv(state);
  if (!priv) return RasError("HeifOpen", RasErrMemory, 14);
  priv->meta = meta.release();
  // Bounded so a row of samples fits the int strides libheif works with.
  const int opened = RasWholeOpenWrite("HeifOpen", name, desc, 1u << 16, state, &priv->picture);
  if (opened != RasOk) HeifFreePriv(state);
  return opened;
}

// Details: 0 no open reader, 1 row out of range, 2 no planes, 3 planes too
// small, 4 the picture could not be decoded, 5 asked after that.
int HeifReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state =
      RasWholeReadState("HeifReadSl", desc, row, sl, desc && desc->maxval > 255, &code);
  if (!state) return code;
  auto *priv = static_cast<HeifPriv *>(state->priv);
  if (priv->failed) return RasError("HeifReadSl", RasErrFormat, 5);
  if (!priv->image || priv->handle) {
    code = HeifDecode(priv, desc);
    if (code != RasOk) {
      priv->failed = true;
      return RasError("HeifReadSl", code, 4);
    }
  }
  int stride = 0;
  const uint8_t *pixels =
      heif_image_get_plane_readonly(priv->image, heif_channel_interleaved, &stride);
  RasWholeSplitRow(pixels, static_cast<size_t>(stride), desc->channels, priv->wide, row,
                   desc->width, sl);
  return RasOk;
}

// Details: 0 no open writer, 1 row out of order, 2 planes too small, 3 the
// encoder failed or the file could not be written.
int HeifWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return RasWholeWriteSl<HeifPriv>(
      "HeifWriteSl", desc, row, sl,
      [desc](HeifPriv *priv, RasFile *file) { return HeifFinish(priv, desc->format, file); });
}

int HeifClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  HeifFreePriv(desc->state);
  return RasFormatCloseFile(desc->state) == RasOk ? RasOk : RasError("HeifClose", RasErrWrite, 0);
}

void HeifSetNextMeta(const uint8_t *exif, size_t exifSize, const char *xmp, size_t xmpSize,
                     const uint8_t *icc, size_t iccSize) {
  tNextMeta.reset();
  if (!exif && !xmp && !icc) return;
  auto meta = std::make_unique<HeifMeta>();
  if (exif) meta->exif.assign(exif, exif + exifSize);
  if (xmp) meta->xmp.assign(xmp, xmpSize);
  if (icc) meta->icc.assign(icc, icc + iccSize);
  tNextMeta = std::move(meta);
}

bool HeifReadMeta(const uint8_t *data, size_t size, std::vector<uint8_t> *exif, std::string *xmp,
                  std::vector<uint8_t> *icc) {
  exif->clear();
  xmp->clear();
  icc->clear();
  heif_context *context = heif_context_alloc();
  heif_image_handle *handle = nullptr;
  const bool read = context &&
                    heif_context_read_from_memory_without_copy(context, data, size, nullptr).code ==
                        heif_error_Ok &&
                    heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok;
  const int count = read ? heif_image_handle_get_number_of_metadata_blocks(handle, nullptr) : 0;
  std::vector<heif_item_id> ids(static_cast<size_t>(count > 0 ? count : 0));
  if (count > 0)
    (void)heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids.data(), count);
  for (const heif_item_id id : ids) {
    const std::string type = heif_image_handle_get_metadata_type(handle, id);
    const char *content = heif_image_handle_get_metadata_content_type(handle, id);
    const bool isExif = type == "Exif" && exif->empty();
    const bool isXmp = type == "mime" && content &&
                       std::strcmp(content, "application/rdf+xml") == 0 && xmp->empty();
    if (!isExif && !isXmp) continue;
    std::vector<uint8_t> block(heif_image_handle_get_metadata_size(handle, id));
    if (block.empty() ||
        heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok)
      continue;
    if (isXmp) {
      xmp->assign(block.begin(), block.end());
      continue;
    }
    // The item starts with the offset of the TIFF header from the end of
    // that field (6 past an "Exif\0\0" mark, as phones write it).
    if (block.size() < 4) continue;
    const size_t offset =
        size_t{block[0]} << 24 | size_t{block[1]} << 16 | size_t{block[2]} << 8 | block[3];
    if (offset < block.size() - 4)
      exif->assign(block.begin() + 4 + static_cast<ptrdiff_t>(offset), block.end());
  }
  const heif_color_profile_type profile =
      read ? heif_image_handle_get_color_profile_type(handle) : heif_color_profile_type_not_present;
  if (profile == heif_color_profile_type_prof || profile == heif_color_profile_type_rICC) {
    icc->resize(heif_image_handle_get_raw_color_profile_size(handle));
    if (icc->empty() ||
        heif_image_handle_get_raw_color_profile(handle, icc->data()).code != heif_error_Ok)
      icc->clear();
  }
  if (handle) heif_image_handle_release(handle);
  if (context) heif_context_free(context);
  return read;
}

// WebP files, format code 12, through libwebp. The decoder works on the whole
// file at once, so the open holds the file's bytes and checks its header,
// and the first row asked decodes the picture, which later rows (going back
// as well) are taken from. Writing gathers the rows and encodes after the
// last one. Pictures with alpha open as RGB with alpha in plane 3.
#include "raster/webp.h"

#include <webp/decode.h>
#include <webp/encode.h>

#include <cstring>

#include "raster/core/rasformat.h"
#include "raster/core/whole.h"

namespace {

struct WebpPriv {
  uint8_t *bytes;  // the file (reading)
  size_t size;
  WebPDecoderConfig config;  // its output is the decoded picture
  bool decoded;
  bool failed;
  RasWholePicture picture;  // the rows written so far (writing)
};

void WebpFreePriv(RasState *state) {
  auto *priv = static_cast<WebpPriv *>(state->priv);
  if (!priv) return;
  if (priv->decoded) WebPFreeDecBuffer(&priv->config.output);
  RasFree(priv->bytes);
  RasWholeFree(&priv->picture);
  state->priv = RasFree(priv);
}

WebpPriv *WebpNewPriv(RasState *state) {
  return static_cast<WebpPriv *>(RasWholeNewPriv(state, sizeof(WebpPriv)));
}

// The RIFF header: "RIFF", a size, "WEBP".
bool WebpCheck(RasFile *file) {
  uint8_t head[12];
  return RasFormatRead(file, head, 12) == RasOk && std::memcmp(head, "RIFF", 4) == 0 &&
         std::memcmp(head + 8, "WEBP", 4) == 0;
}

int WebpOpenRead(const char *name, RasDesc *desc, RasState *state) {
  if (RasFileOpen(&state->file, name, RasFileModeRead) != RasOk)
    return RasError("WebpOpen", RasErrOpen, 1);
  int code = WebpCheck(&state->file) ? RasOk : RasErrFormat;
  WebpPriv *priv = code == RasOk ? WebpNewPriv(state) : nullptr;
  if (code == RasOk && !priv) code = RasErrMemory;
  if (code == RasOk) code = RasWholeReadFile(&state->file, &priv->bytes, &priv->size);
  if (code == RasOk && !WebPInitDecoderConfig(&priv->config)) code = RasErrUnsupported;
  WebPBitstreamFeatures *features = priv ? &priv->config.input : nullptr;
  if (code == RasOk && WebPGetFeatures(priv->bytes, priv->size, features) != VP8_STATUS_OK)
    code = RasErrFormat;
  if (code == RasOk && features->has_animation) code = RasErrUnsupported;
  if (code != RasOk) {
    WebpFreePriv(state);
    RasFormatDropFile(state, false);
    return RasError("WebpOpen", code, 2);
  }
  desc->width = static_cast<uint32_t>(features->width);
  desc->height = static_cast<uint32_t>(features->height);
  desc->channels = features->has_alpha ? 4 : 3;
  desc->model = RasModelRgb;
  desc->resolution = -1.0f;
  desc->format = RasFormatWebp;
  return RasOk;
}

// Decodes the whole picture. libwebp reads the frame's headers before it
// allocates the picture, so a file whose header claims a huge canvas over a
// few bytes of data is refused without that allocation.
int WebpDecode(WebpPriv *priv) {
  WebPDecoderConfig *config = &priv->config;
  config->output.colorspace = config->input.has_alpha ? MODE_RGBA : MODE_RGB;
  const VP8StatusCode status = WebPDecode(priv->bytes, priv->size, config);
  if (status == VP8_STATUS_OUT_OF_MEMORY) return RasErrMemory;
  if (status != VP8_STATUS_OK) {
    WebPFreeDecBuffer(&config->output);
    return RasErrFormat;
  }
  priv->decoded = true;
  priv->bytes = static_cast<uint8_t *>(RasFree(priv->bytes));  // no longer needed
  return RasOk;
}

// Lossless at quality 100, else lossy at the quality; the encoded bytes in
// `*out` (freed with WebPFree), 0 when encoding fails.
size_t WebpEncode(const RasWholePicture &p, uint8_t **out) {
  const int quality = RasEncoderQuality();
  WebPConfig config;
  WebPPicture picture;
  WebPMemoryWriter writer;
  if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) return 0;
  WebPMemoryWriterInit(&writer);
  config.lossless = quality >= 100;
  config.quality = config.lossless ? 75.0f : static_cast<float>(quality);  // lossless: effort
  config.exact = 1;  // colours under transparent pixels are the photo's too
  picture.use_argb = config.lossless;
  picture.width = static_cast<int>(p.width);
  picture.height = static_cast<int>(p.height);
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = &writer;
  const int stride = picture.width * static_cast<int>(p.channels);
  bool ok = p.channels == 4 ? WebPPictureImportRGBA(&picture, p.pixels, stride)
                            : WebPPictureImportRGB(&picture, p.pixels, stride);
  ok = ok && WebPEncode(&config, &picture);
  WebPPictureFree(&picture);
  if (!ok) {
    WebPMemoryWriterClear(&writer);
    return 0;
  }
  *out = writer.mem;
  return writer.size;
}

int WebpFinish(WebpPriv *priv, RasFile *file) {
  uint8_t *encoded = nullptr;
  const size_t size = WebpEncode(priv->picture, &encoded);
  RasWholeFree(&priv->picture);
  const int code =
      size == 0 ? RasErrMemory : RasFormatWrite(file, encoded, static_cast<int64_t>(size));
  WebPFree(encoded);
  return code;
}

}  // namespace

int WebpOpen(const char *name, char mode, RasDesc *desc) {
  const int code = RasFormatBegin("WebpOpen", name, mode, desc, 16);
  if (code != RasOk) return code;
  RasState *state = desc->state;
  if (mode == 'r') return WebpOpenRead(name, desc, state);
  WebpPriv *priv = WebpNewPriv(state);
  if (!priv) return RasError("WebpOpen", RasErrMemory, 14);
  const int opened =
      RasWholeOpenWrite("WebpOpen", name, desc, WEBP_MAX_DIMENSION, state, &priv->picture);
  if (opened != RasOk) WebpFreePriv(state);
  return opened;
}

// Details: 0 no open reader, 1 row out of range, 2 no planes, 3 planes too
// small, 4 the picture could not be decoded, 5 asked after that.
int WebpReadSl(RasDesc *desc, uint32_t row, RasSl *sl) {
  int code = RasOk;
  RasState *state = RasWholeReadState("WebpReadSl", desc, row, sl, false, &code);
  if (!state) return code;
  auto *priv = static_cast<WebpPriv *>(state->priv);
  if (priv->failed) return RasError("WebpReadSl", RasErrFormat, 5);
  if (!priv->decoded) {
    code = WebpDecode(priv);
    if (code != RasOk) {
      priv->failed = true;
      return RasError("WebpReadSl", code, 4);
    }
  }
  const WebPRGBABuffer &rgba = priv->config.output.u.RGBA;
  RasWholeSplitRow(rgba.rgba, static_cast<size_t>(rgba.stride), desc->channels, false, row,
                   desc->width, sl);
  return RasOk;
}

// Details: 0 no open writer, 1 row out of order, 2 planes too small, 3 the
// encoder failed or the file could not be written.
int WebpWriteSl(RasDesc *desc, uint32_t row, const RasSl *sl) {
  return RasWholeWriteSl<WebpPriv>("WebpWriteSl", desc, row, sl, WebpFinish);
}

int WebpClose(RasDesc *desc) {
  if (!desc || !desc->state) return RasOk;
  WebpFreePriv(desc->state);
  return RasFormatCloseFile(desc->state) == RasOk ? RasOk : RasError("WebpClose", RasErrWrite, 0);
}

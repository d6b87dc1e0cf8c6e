// WebP chunks for metadata, through libwebp's own container writer: it turns
// a simple file into the extended form, whose header then says which of the
// ICCP, EXIF and XMP chunks follow.
#include <webp/decode.h>
#include <webp/mux.h>

#include <memory>

#include "meta/chunks.h"

namespace {

struct MuxFree {
  void operator()(WebPMux *mux) const { WebPMuxDelete(mux); }
};

bool SetChunk(WebPMux *mux, const char fourcc[5], const uint8_t *bytes, size_t size) {
  if (size == 0) return true;
  const WebPData data{bytes, size};
  // Copied, so that nothing depends on the blocks living on.
  return WebPMuxSetChunk(mux, fourcc, &data, 1) == WEBP_MUX_OK;
}

// Whether `after` parses as a WebP container and its picture has the size
// and alpha of the one in `before`.
bool SameShape(const WebPData &before, const WebPData &after) {
  const std::unique_ptr<WebPMux, MuxFree> again(WebPMuxCreate(&after, 0));
  WebPBitstreamFeatures was, is;
  return again && WebPGetFeatures(before.bytes, before.size, &was) == VP8_STATUS_OK &&
         WebPGetFeatures(after.bytes, after.size, &is) == VP8_STATUS_OK && was.width == is.width &&
         was.height == is.height && was.has_alpha == is.has_alpha;
}

}  // namespace

bool WebpWithMeta(const std::vector<uint8_t> &webp, const MetaBlocks &blocks,
                  std::vector<uint8_t> *out, std::string *error) {
  const auto fail = [error](const char *why) {
    if (error) *error = why;
    return false;
  };
  const WebPData in{webp.data(), webp.size()};
  const std::unique_ptr<WebPMux, MuxFree> mux(WebPMuxCreate(&in, 1));
  if (!mux) return fail("not a WebP file");
  const auto *xmp = reinterpret_cast<const uint8_t *>(blocks.xmp.data());
  if (!SetChunk(mux.get(), "ICCP", blocks.icc.data(), blocks.icc.size()) ||
      !SetChunk(mux.get(), "EXIF", blocks.exif.data(), blocks.exif.size()) ||
      !SetChunk(mux.get(), "XMP ", xmp, blocks.xmp.size()))
    return fail("cannot add the metadata to the WebP file");
  WebPData made;
  WebPDataInit(&made);
  if (WebPMuxAssemble(mux.get(), &made) != WEBP_MUX_OK) {
    WebPDataClear(&made);
    return fail("cannot assemble the WebP file");
  }
  // The file replaces the one the encoder wrote, so it must read back as the
  // same picture before it may.
  const bool same = SameShape(in, made);
  if (same) out->assign(made.bytes, made.bytes + made.size);
  WebPDataClear(&made);
  return same || fail("cannot assemble the WebP file");
}

// Feeds arbitrary bytes, through a memory-block name, to the thumbnail's
// reduced JPEG decode, to the format probe and then to every row of whatever
// reader accepts them, to the PNG and WebP metadata chunk writers, whose
// output must take a second pass, and to the HEIF metadata reader. The last byte picks the Photo CD
// level, so all three resolutions' offsets and records are tried.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "meta/chunks.h"
#include "raster/core/rasfile.h"
#include "raster/heif.h"
#include "raster/jpegthumb.h"
#include "raster/photocd.h"
#include "raster/ras.h"

namespace {

// Enough rows to reach every reader's per-row paths without letting a header
// that claims a giant picture turn one input into a minute of decoding.
constexpr uint64_t kSampleBudget = uint64_t{1} << 24;

void ReadAllRows(RasDesc *desc) {
  RasSl sl{};
  uint64_t samples = 0;
  for (uint32_t row = 0; row < desc->height && samples < kSampleBudget; ++row) {
    if (RasReadSl(desc, row, &sl) != RasOk) break;
    samples += uint64_t{desc->width} * desc->channels + 1;  // empty rows cost a call each
  }
  RasFreeSl(&sl);
}

void AddMetaChunks(const std::vector<uint8_t> &bytes) {
  MetaBlocks blocks;
  blocks.exif = {'I', 'I', '*', 0, 8, 0, 0, 0, 0, 0};
  blocks.xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>";
  blocks.icc.assign(bytes.begin(),
                    bytes.begin() + static_cast<ptrdiff_t>(std::min<size_t>(bytes.size(), 64)));
  std::vector<uint8_t> once, twice;
  if (PngWithMeta(bytes, blocks, &once, nullptr) && !PngWithMeta(once, blocks, &twice, nullptr))
    __builtin_trap();
  if (WebpWithMeta(bytes, blocks, &once, nullptr) && !WebpWithMeta(once, blocks, &twice, nullptr))
    __builtin_trap();
  std::vector<uint8_t> exif, icc;
  std::string xmp;
  (void)HeifReadMeta(bytes.data(), bytes.size(), &exif, &xmp, &icc);
}

}  // namespace

// libheif's AV1 decoding plugin hands the decoder a data block it made and,
// when the decoder refuses it (an image item with no data), never gives the
// block back: 40 bytes of that library's per broken AVIF file, which the leak
// check passes over. Everything of ours stays checked.
extern "C" const char *__lsan_default_suppressions() {
  return "leak:libdav1d.so\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool memory_only = [] {
    const int64_t on = 1;
    return RasFileSetOption(RasFileOptMemoryOnly, &on) == RasOk;
  }();
  if (!memory_only || size == 0) return 0;
  (void)PcdSetOption(PcdOptLevel, data[size - 1] % 3 + 1u);
  std::vector<uint8_t> bytes(data, data + size);
  AddMetaChunks(bytes);
  RasMemName name;
  RasMakeMemName(&name, bytes.data(), bytes.size());
  // The thumbnail's eighth-size decode reads JPEG data by a reader of its
  // own before the codec.
  JpegThumb thumb{};
  if (JpegThumbDecode(RasMemNameOf(name), 1, 1, &thumb) == RasOk) JpegThumbFree(&thumb);
  RasDesc desc{};
  if (RasGetInfo(RasMemNameOf(name), &desc) != RasOk) return 0;
  if (RasOpen(RasMemNameOf(name), 'r', &desc) != RasOk) return 0;
  ReadAllRows(&desc);
  RasClose(&desc);
  return 0;
}

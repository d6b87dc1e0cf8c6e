// PNG chunks for metadata: eXIf holds the EXIF block as it is, iCCP the
// profile deflated under a name, and iTXt under the keyword XMP readers look
// for holds the packet uncompressed.
#include <zlib.h>

#include <cstring>

#include "meta/chunks.h"

namespace {

constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr char kXmpKeyword[] = "XML:com.adobe.xmp";
constexpr char kProfileName[] = "ICC Profile";

uint32_t BigEndian32(const uint8_t *p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

void PutBigEndian32(std::vector<uint8_t> *out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8)
    out->push_back(static_cast<uint8_t>(v >> shift));
}

void PutChunk(std::vector<uint8_t> *out, const char type[4], const std::vector<uint8_t> &data) {
  PutBigEndian32(out, static_cast<uint32_t>(data.size()));
  const size_t start = out->size();
  out->insert(out->end(), type, type + 4);
  out->insert(out->end(), data.begin(), data.end());
  // The CRC covers the type and the data, not the length.
  const uLong crc = crc32(0L, out->data() + start, static_cast<uInt>(out->size() - start));
  PutBigEndian32(out, static_cast<uint32_t>(crc));
}

bool Deflated(const std::vector<uint8_t> &in, std::vector<uint8_t> *out) {
  uLongf size = compressBound(static_cast<uLong>(in.size()));
  std::vector<uint8_t> packed(size);
  if (compress2(packed.data(), &size, in.data(), static_cast<uLong>(in.size()), 9) != Z_OK)
    return false;
  out->insert(out->end(), packed.begin(), packed.begin() + static_cast<ptrdiff_t>(size));
  return true;
}

// Whether a text chunk (tEXt, zTXt or iTXt: all start with a keyword and a
// zero) carries the XMP packet.
bool IsXmpText(const uint8_t *type, const uint8_t *data, uint32_t length) {
  if (std::memcmp(type, "iTXt", 4) != 0 && std::memcmp(type, "tEXt", 4) != 0 &&
      std::memcmp(type, "zTXt", 4) != 0)
    return false;
  const size_t keyword = sizeof kXmpKeyword;  // with its zero
  return length >= keyword && std::memcmp(data, kXmpKeyword, keyword) == 0;
}

bool Replaced(const uint8_t *type, const uint8_t *data, uint32_t length, const MetaBlocks &blocks) {
  if (!blocks.exif.empty() && std::memcmp(type, "eXIf", 4) == 0) return true;
  if (!blocks.icc.empty() &&
      (std::memcmp(type, "iCCP", 4) == 0 || std::memcmp(type, "sRGB", 4) == 0))
    return true;
  return !blocks.xmp.empty() && IsXmpText(type, data, length);
}

bool NewChunks(const MetaBlocks &blocks, std::vector<uint8_t> *out) {
  if (!blocks.icc.empty()) {
    std::vector<uint8_t> data(kProfileName, kProfileName + sizeof kProfileName);  // with its zero
    data.push_back(0);                                                            // deflate
    if (!Deflated(blocks.icc, &data)) return false;
    PutChunk(out, "iCCP", data);
  }
  if (!blocks.exif.empty()) PutChunk(out, "eXIf", blocks.exif);
  if (!blocks.xmp.empty()) {
    std::vector<uint8_t> data(kXmpKeyword, kXmpKeyword + sizeof kXmpKeyword);
    // Not compressed, method 0, no language and no translated keyword: the
    // form XMP readers scan for.
    data.insert(data.end(), {0, 0, 0, 0});
    data.insert(data.end(), blocks.xmp.begin(), blocks.xmp.end());
    PutChunk(out, "iTXt", data);
  }
  return true;
}

}  // namespace

bool PngWithMeta(const std::vector<uint8_t> &png, const MetaBlocks &blocks,
                 std::vector<uint8_t> *out, std::string *error) {
  const auto fail = [error](const char *why) {
    if (error) *error = why;
    return false;
  };
  if (png.size() < sizeof kSignature || std::memcmp(png.data(), kSignature, sizeof kSignature) != 0)
    return fail("not a PNG file");
  std::vector<uint8_t> made(png.begin(), png.begin() + sizeof kSignature);
  made.reserve(png.size() + blocks.exif.size() + blocks.xmp.size() + blocks.icc.size() + 256);
  size_t at = sizeof kSignature;
  bool first = true;
  for (;;) {
    if (png.size() - at < 12) return fail("the PNG file is cut short");
    const uint32_t length = BigEndian32(&png[at]);
    if (length > png.size() - at - 12) return fail("the PNG file is cut short");
    const uint8_t *type = &png[at + 4];
    const uint8_t *data = type + 4;
    const size_t whole = size_t{length} + 12;
    if (first && std::memcmp(type, "IHDR", 4) != 0)
      return fail("the PNG file does not start with IHDR");
    if (!Replaced(type, data, length, blocks))
      made.insert(made.end(), png.begin() + static_cast<ptrdiff_t>(at),
                  png.begin() + static_cast<ptrdiff_t>(at + whole));
    if (first && !NewChunks(blocks, &made)) return fail("cannot compress the colour profile");
    first = false;
    at += whole;
    if (std::memcmp(type, "IEND", 4) == 0) break;
  }
  // Whatever a writer left after IEND stays: it is not ours to judge.
  made.insert(made.end(), png.begin() + static_cast<ptrdiff_t>(at), png.end());
  *out = std::move(made);
  return true;
}

// A photo's metadata put into a finished PNG or WebP file as the format's own
// chunks. These formats hold EXIF, XMP and an ICC profile natively, and
// writing the chunks ourselves keeps each file readable by every decoder:
// the bytes that describe the picture are copied through unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The blocks as they go into the file; an empty one is not written.
struct MetaBlocks {
  std::vector<uint8_t> exif;  // TIFF-structured, starting "II*\0" or "MM\0*"
  std::string xmp;            // a whole XMP packet, UTF-8
  std::vector<uint8_t> icc;   // the profile's bytes
};

// `png` with the blocks as iCCP, eXIf and iTXt "XML:com.adobe.xmp" chunks
// right after IHDR. Chunks of the same kinds already there go, and so does
// sRGB when a profile comes (a file should not claim both). False, with
// `error` set and `out` untouched, for bytes that are no whole PNG.
bool PngWithMeta(const std::vector<uint8_t> &png, const MetaBlocks &blocks,
                 std::vector<uint8_t> *out, std::string *error);

// `webp` as an extended WebP file with ICCP, EXIF and "XMP " chunks, which
// replace any of the same kinds. False, with `error` set and `out`
// untouched, for bytes the WebP container reader refuses.
bool WebpWithMeta(const std::vector<uint8_t> &webp, const MetaBlocks &blocks,
                  std::vector<uint8_t> *out, std::string *error);

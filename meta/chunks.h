// A photo's metadata put into a finished PNG or WebP file as the format's own
// chunks. These formats hold EXIF, XMP and an ICC profile natively, and
// writing the chunks ourselves keeps each file readable by every decoder:
// the bytes that describe the picture are copied through unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "meta/meta.h"

// `png` with the blocks (an empty one is not written) as iCCP, eXIf and iTXt "XML:com.adobe.xmp"
// chunks right after IHDR. Chunks of the same kinds already there go, and so does sRGB when a
// profile comes (a file should not claim both). False, with `error` set and `out` untouched, for
// bytes that are no whole PNG.
bool PngWithMeta(const std::vector<uint8_t> &png, const MetaBlocks &blocks,
                 std::vector<uint8_t> *out, std::string *error);

// `webp` as an extended WebP file with ICCP, EXIF and "XMP " chunks, which
// replace any of the same kinds. False, with `error` set and `out`
// untouched, for bytes the WebP container reader refuses.
bool WebpWithMeta(const std::vector<uint8_t> &webp, const MetaBlocks &blocks,
                  std::vector<uint8_t> *out, std::string *error);

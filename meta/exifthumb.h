// The small picture a camera embeds in a photo's EXIF block, read together
// with what a thumbnail needs besides it (the orientation and the stored
// picture's size) in one pass over the file's metadata, and written into a
// file for the programs that make such files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct MetaThumbInfo {
  int orientation = 1;  // 1..8 as EXIF numbers them; 1 when the file has no tag
  uint32_t width = 0;   // of the picture as stored, 0 when the library cannot tell
  uint32_t height = 0;
  std::vector<uint8_t> jpeg;  // the embedded thumbnail's JPEG file, empty when none
};

// Reads the thumbnail information of `path`. False, leaving an empty record,
// when the file has no metadata the library can read. Safe to call from
// several threads at once.
bool MetaReadThumbInfo(const char *path, MetaThumbInfo *info);

// Embeds the JPEG file `jpeg` as the EXIF thumbnail of the JPEG or TIFF file
// `path`, keeping its other metadata. False with `error` set when the file
// could not be rewritten.
bool MetaWriteExifThumb(const char *path, const std::vector<uint8_t> &jpeg, std::string *error);

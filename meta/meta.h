// A photo's metadata carried from the file it was opened from into the files
// it is saved as: the EXIF orientation, and the EXIF, XMP, IPTC and ICC blocks
// as bytes, so the record can be kept with an open photo long after its file
// changed or went away (a camera download's temporary file, a save over the
// original). Metadata is an extra: a file the metadata library cannot read
// simply has none, and never stops a photo from opening.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct PhotoMeta {
  int orientation = 1;          // 1..8 as EXIF numbers them; 1 when the file has no tag
  bool hasOrientation = false;  // the file carries a tag (EXIF, or XMP alone)
  std::vector<uint8_t> exif;    // TIFF-structured EXIF, thumbnail already removed
  std::string xmp;              // the XMP packet
  std::vector<uint8_t> iptc;    // IPTC-IIM datasets
  std::vector<uint8_t> icc;     // the ICC colour profile
  bool Empty() const { return exif.empty() && xmp.empty() && iptc.empty() && icc.empty(); }
};

// Reads the metadata of `path`. Returns false, leaving an empty record, when
// the file has none the library can read.
bool MetaRead(const char *path, PhotoMeta *meta);
// The same for a file held in memory (a camera download).
bool MetaReadBytes(const uint8_t *data, size_t size, PhotoMeta *meta);

// What a save changed about the picture, so the metadata stays true to it.
struct MetaSaveInfo {
  int32_t width = 0;  // of the saved pixels
  int32_t height = 0;
  int orientation = 1;  // 1 for upright pixels; the source's tag when saved as stored
};

// The blocks a saved file gets from `meta`: EXIF and XMP with the sizes and
// orientation of `info`, IPTC's datasets added to the XMP as the properties
// that stand for them (for formats with no place for IPTC), and the profile.
struct MetaBlocks {
  std::vector<uint8_t> exif;  // TIFF-structured, starting "II*\0" or "MM\0*"
  std::string xmp;            // a whole XMP packet, UTF-8
  std::vector<uint8_t> icc;   // the profile's bytes
};
MetaBlocks MetaBlocksFor(const PhotoMeta &meta, const MetaSaveInfo &info);

// HEIC and AVIF hold their metadata beside the coded picture, where only the
// encoder can put it: for those formats this hands `meta` (as MetaBlocksFor
// makes it) to the next file of `format` opened for writing on this thread,
// and must come before that open. Other formats need nothing here.
void MetaHandToEncoder(uint32_t format, const PhotoMeta &meta, const MetaSaveInfo &info);

// Writes `meta` into the finished JPEG, TIFF, PNG or WebP file `path` (other
// formats get nothing and true: BMP has no place for metadata). PNG and WebP
// have no place for IPTC either; its datasets go into the XMP packet as the
// properties that stand for them. Sizes and orientation are set from `info`.
// False with `error` set when the file could not be rewritten; a PNG or WebP
// file is then as it was. The caller decides whether that fails the save.
bool MetaWrite(const char *path, const PhotoMeta &meta, const MetaSaveInfo &info,
               std::string *error);

// Whether the file `path` can take metadata from MetaWrite.
bool MetaWritable(const char *path);

// Removes the GPS position and camera, body and lens serial numbers from the
// record (EXIF, maker notes and XMP alike).
void MetaStripPrivate(PhotoMeta *meta);
// Whether the record holds any of what MetaStripPrivate removes.
bool MetaHasPrivate(const PhotoMeta &meta);

// Copies the file `from` to `to` byte for byte, then removes the GPS position
// and serial numbers from the copy. `from` is only read. False with `error`
// set when the copy could not be made or cleaned (and then `to` is removed).
bool MetaPrivateCopy(const char *from, const char *to, std::string *error);

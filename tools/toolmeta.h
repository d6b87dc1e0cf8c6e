// Orientation and metadata for korvel-raster's commands. A run reads one
// photo and writes one: the photo's metadata is read when it is loaded and
// written into the output (JPEG or TIFF) before the output takes its name,
// and its pixels are turned upright first unless --keep-orientation asks to
// keep them as stored.
#pragma once

#include <cstdint>
#include <vector>

#include "raster/ras.h"

struct Photo;

// Takes --keep-orientation and --strip out of the arguments after the
// command name, wherever they stand; returns the arguments left.
int TakeMetaOptions(int argc, char **argv);

// " orientation=N" for a file that carries an orientation tag, else "".
const char *OrientationNote(const char *path);

// Reads the metadata of the input `path`; returns the orientation its pixels
// are to be turned by (1 with --keep-orientation).
int ReadSourceMeta(const char *path);

// Turns a loaded photo upright (after ReadSourceMeta). The process exit status.
int OrientLoaded(const char *path, Photo *photo);

// Hands the input's metadata (none with --strip) to the encoder of an output
// `format` that places it itself (HEIC, AVIF); call before opening it.
void HandSourceMetaToEncoder(uint32_t format, uint32_t width, uint32_t height);

// Writes the input's metadata into the finished output `temp` (for `path`),
// of `width` x `height` pixels, unless --strip. The process exit status.
int WriteSourceMeta(const char *temp, const char *path, uint32_t width, uint32_t height);

// Output rows in stored order, written straight through when nothing is to
// turn, else held until the last is in and written upright by Finish.
class OrientedRows {
 public:
  OrientedRows(RasDesc *out, int orientation, uint32_t storedWidth, uint32_t storedHeight);
  int Put(uint32_t y, const RasSl &row);
  int Finish();

 private:
  RasDesc *out_;
  int orientation_;
  uint32_t width_, height_;
  bool wide_;  // 16-bit samples, held as a low and a high byte plane
  std::vector<std::vector<uint8_t>> planes_;
};

// Photos read into the planar RGB form the editing view works on (every
// model converted as when the application opens a photo), whole or a run of
// rows at a time, and written back row by row in the format of the output
// name's extension.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pixels/pixels.h"
#include "raster/ras.h"
#include "tools/toolio.h"

struct PlanarDeleter {
  void operator()(PlanarImage *image) const { PlanarFree(image); }
};
using Planar = std::unique_ptr<PlanarImage, PlanarDeleter>;

struct Photo {
  Planar image;
  float resolution = -1.0f;
};

// Reads every row of `path` into three 8-bit planes R, G, B. Returns the
// process exit status (0, or 1 after printing why).
int LoadPhoto(const char *path, Photo *photo);

// A photo read as RGB planes a run of rows at a time, for commands that never
// hold the whole picture; every model is converted as LoadPhoto converts it.
class PhotoReader {
 public:
  // The process exit status (0, or 1 after printing why, as LoadPhoto does).
  int Open(const char *path);
  int32_t width() const { return static_cast<int32_t>(in_.desc.width); }
  int32_t height() const { return static_cast<int32_t>(in_.desc.height); }
  float resolution() const { return in_.desc.resolution; }
  // Rows [first, last) into the three planes of `into`, whose row 0 is
  // picture row `top`. A BMP's rows are read on every thread, each through a
  // descriptor of its own (kept for the next run); other formats in order.
  // A library code: a damaged file fails with the code of its first bad row,
  // as reading in order would.
  int Read(int32_t first, int32_t last, const PlanarImage &into, int32_t top);

  // Whether rows can be read in any order, each thread through a descriptor
  // of its own (ReadOwn); a BMP's can, as a row's place follows from its
  // number.
  bool AnyOrder() const { return in_.desc.format == RasFormatBmp; }
  // Rows [first, last) as Read reads them, on the calling thread alone,
  // through `*own`: a descriptor made on first use and kept by the caller
  // for its next rows, which it reads fastest in order. A library code.
  int ReadOwn(std::unique_ptr<OpenRaster> *own, int32_t first, int32_t last,
              const PlanarImage &into, int32_t top);

 private:
  int ReadShared(int32_t first, int32_t last, const PlanarImage &into, int32_t top);
  std::unique_ptr<OpenRaster> Descriptor(int *code);

  std::string path_;
  OpenRaster in_;
  std::mutex lock_;
  std::vector<std::unique_ptr<OpenRaster>> spare_;
};

// Fills `row` (three 8-bit planes of the photo's width) with picture row `y`,
// pointing its planes wherever the row's samples are. Returns a library code.
using RowSource = std::function<int(int32_t y, RasSl *row)>;

// The exit status for a code `rows` returned, after printing why; by default
// the output cannot be written.
using RowFailure = std::function<int(int code)>;

// Writes a width x height RGB picture whose rows come from `rows`, at JPEG
// quality 100 for JPEG names; `path` appears only when every row is in.
// Returns the process exit status.
int SavePhoto(const char *path, int32_t width, int32_t height, float resolution,
              const RowSource &rows, const RowFailure &failed = nullptr);
// The planes of `image` as they are.
int SavePhoto(const char *path, const PlanarImage &image, float resolution);

// Photos read whole into the planar RGB form the editing view works on
// (every model converted as when the application opens a photo), and
// written back row by row in the format of the output name's extension.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "pixels/pixels.h"
#include "raster/ras.h"

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

// Fills `row` (three 8-bit planes of the photo's width) with picture row `y`,
// pointing its planes wherever the row's samples are. Returns a library code.
using RowSource = std::function<int(int32_t y, RasSl *row)>;

// Writes a width x height RGB picture whose rows come from `rows`, at JPEG
// quality 100 for JPEG names; `path` appears only when every row is in.
// Returns the process exit status.
int SavePhoto(const char *path, int32_t width, int32_t height, float resolution,
              const RowSource &rows);
// The planes of `image` as they are.
int SavePhoto(const char *path, const PlanarImage &image, float resolution);

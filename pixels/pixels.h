// Pixel routines on planar images in memory: the PlanarImage record, 90 and
// 180 degree rotation, crop, enlargement by replication, filtered reduction
// and red-eye removal. Plain procedural code: every routine checks its
// arguments, works from a source into a separate destination (red eye works in
// place), reports progress through an optional callback and returns 0, -1 for
// bad arguments, or the callback's non-zero code when it asks to stop.
#pragma once

#include <cstdint>

struct RasDesc;

// One image, planar: pixel (x, y) of channel c is the byte at
// planes[c] + y * rowStride + x * pixelStep. Row 0 is the top row.
struct PlanarImage {
  uint32_t sampleType;  // 1: 8-bit samples, the only type produced
  int32_t channels;     // >= 1; the editing view uses 3 (R, G, B)
  int32_t width;
  int32_t height;
  uint32_t unused;  // left unset by the editing view; never read here
  int32_t pixelStep;
  int32_t rowStride;
  uint8_t *planes[4];
};

// Fraction done (current row / destination height); 0 goes on, anything else
// stops the routine, which returns that code.
using PixProgress = int (*)(float fraction);

// Empty results as the editing view makes them: one block of width x height x
// channels bytes holding the planes one after another, pixel step 1 and row
// stride = width. Null when a size is below 1 or memory runs out.
PlanarImage *PlanarCreate(int32_t width, int32_t height, int32_t channels);
PlanarImage *PlanarCreateExchanged(const PlanarImage *src);  // width and height swapped
PlanarImage *PlanarCreateScaled(const PlanarImage *src, float factor);
PlanarImage *PlanarCreateRect(const PlanarImage *src, int32_t left, int32_t top, int32_t right,
                              int32_t bottom);
void PlanarFree(PlanarImage *image);  // accepts null

// The library's readiness check; always 0. Every routine calls it first and
// returns its code when non-zero.
[[nodiscard]] int PixReady();

[[nodiscard]] int RotateImage(const PlanarImage *src, int mode, PlanarImage *dst,
                              PixProgress progress);
[[nodiscard]] int CropImage(const PlanarImage *src, int32_t left, int32_t top, PlanarImage *dst,
                            PixProgress progress);
[[nodiscard]] int EnlargeImage(const PlanarImage *src, float fx, float fy, int32_t factor,
                               PlanarImage *dst, PixProgress progress);

struct PixRect {
  int32_t left, top, right, bottom;
};
struct PixReduceOptions {
  int32_t words[4];  // zeroed by the editing view
};
// From an open raster file (`file`, opened for reading) or an in-memory
// source (`src`); exactly one of the two. ReducePlan (pixels/reduceplan.h)
// makes the same reduction a range of rows at a time.
[[nodiscard]] int ReduceImage(RasDesc *file, const PlanarImage *src, int mode, PlanarImage *dst,
                              const PixRect *rect, const PixReduceOptions *options,
                              PixProgress progress);

[[nodiscard]] int RemoveRedEye(PlanarImage *image, int32_t x, int32_t y, int32_t reach,
                               int32_t reserved);
bool IsRedEyePixel(uint8_t r, uint8_t g, uint8_t b);
int RgbToHsl(const float rgb[3], float hsl[3]);
void GreyDisc(int32_t left, int32_t right, int32_t top, int32_t bottom, PlanarImage *image);
void GreyPixel(uint8_t *r, uint8_t *g, uint8_t *b);

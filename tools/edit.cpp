// korvel-raster rotate, crop, zoom and redeye: a photo read into the planar
// RGB form the application edits (every model converted as when a photo is
// opened), one pixel routine, and the result written in the format of the
// output name's extension.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "pixels/pixels.h"
#include "raster/ras.h"
#include "tools/commands.h"
#include "tools/photoio.h"
#include "tools/toolio.h"

namespace {

bool ParseInt(const char *text, long low, long high, int32_t *value) {
  char *end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (*text == 0 || *end != 0 || v < low || v > high) return false;
  *value = static_cast<int32_t>(v);
  return true;
}

int Usage(const char *usage) {
  std::fprintf(stderr, "korvel-raster: usage: korvel-raster %s\n", usage);
  return 2;
}

// A routine's refusal: nothing is written.
int Refused(const char *command, int code, const char *why) {
  std::fprintf(stderr, "korvel-raster: %s refused (code %d): %s\n", command, code, why);
  return 1;
}

}  // namespace

int RunRotate(int argc, char **argv) {
  const char *usage = "rotate left|right|180 IN OUT";
  if (argc != 3) return Usage(usage);
  // The editing view's Rotate Left is mode 2 and Rotate Right mode 0.
  const int mode = std::strcmp(argv[0], "right") == 0  ? 0
                   : std::strcmp(argv[0], "180") == 0  ? 1
                   : std::strcmp(argv[0], "left") == 0 ? 2
                                                       : -1;
  if (mode < 0) return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[1], &photo)) return status;
  Planar result(mode == 1 ? PlanarCreate(photo.image->width, photo.image->height, 3)
                          : PlanarCreateExchanged(photo.image.get()));
  if (!result) return Fail(argv[1], "too large to edit", RasErrMemory);
  const int code = RotateImage(photo.image.get(), mode, result.get(), nullptr);
  if (code != 0) return Refused("rotate", code, "the rotation failed");
  return SavePhoto(argv[2], *result, photo.resolution);
}

int RunCrop(int argc, char **argv) {
  const char *usage = "crop LEFT TOP WIDTH HEIGHT IN OUT";
  int32_t left, top, width, height;
  if (argc != 6 || !ParseInt(argv[0], INT32_MIN, INT32_MAX, &left) ||
      !ParseInt(argv[1], INT32_MIN, INT32_MAX, &top) || !ParseInt(argv[2], 1, INT32_MAX, &width) ||
      !ParseInt(argv[3], 1, INT32_MAX, &height))
    return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[4], &photo)) return status;
  const PlanarImage &src = *photo.image;
  if (left < 0 || top < 0 || width > src.width - left || height > src.height - top) {
    std::fprintf(stderr,
                 "korvel-raster: crop refused: the rectangle %dx%d at %d,%d reaches outside the "
                 "%dx%d photo\n",
                 width, height, left, top, src.width, src.height);
    return 1;
  }
  Planar result(PlanarCreate(width, height, 3));
  if (!result) return Fail(argv[4], "too large to edit", RasErrMemory);
  const int code = CropImage(&src, left, top, result.get(), nullptr);
  if (code != 0) return Refused("crop", code, "the rectangle does not fit the photo");
  return SavePhoto(argv[5], *result, photo.resolution);
}

int RunZoom(int argc, char **argv) {
  const char *usage = "zoom 25|50|75|100|200|400|800 IN OUT";
  int32_t percent = 0;
  if (argc != 3 || !ParseInt(argv[0], 25, 800, &percent)) return Usage(usage);
  if (percent != 25 && percent != 50 && percent != 75 && percent != 100 && percent != 200 &&
      percent != 400 && percent != 800)
    return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[1], &photo)) return status;
  // As the editing view zooms: a result of trunc(size x factor), enlarged by
  // replication with centred offsets, or reduced over the whole photo.
  const double factor = percent * 0.01;
  Planar result(PlanarCreateScaled(photo.image.get(), static_cast<float>(factor)));
  if (!result) return Fail(argv[1], "too small or too large to zoom", RasErrMemory);
  int code;
  if (factor >= 1.0) {
    code = EnlargeImage(photo.image.get(), 0.5f, 0.5f, static_cast<int32_t>(factor), result.get(),
                        nullptr);
  } else {
    const PixRect whole{};
    const PixReduceOptions options{};
    code = ReduceImage(nullptr, photo.image.get(), 1, result.get(), &whole, &options, nullptr);
  }
  if (code != 0) return Refused("zoom", code, "the photo could not be resampled");
  return SavePhoto(argv[2], *result, photo.resolution);
}

int RunRedEye(int argc, char **argv) {
  const char *usage = "redeye X Y IN OUT";
  int32_t x, y;
  if (argc != 4 || !ParseInt(argv[0], INT32_MIN, INT32_MAX, &x) ||
      !ParseInt(argv[1], INT32_MIN, INT32_MAX, &y))
    return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[2], &photo)) return status;
  // The editing view searches two pixels along the row and column of the click.
  const int code = RemoveRedEye(photo.image.get(), x, y, 2, 0);
  if (code != 0) return Refused("redeye", code, "the point lies outside the photo");
  return SavePhoto(argv[3], *photo.image, photo.resolution);
}

// korvel-raster color: the colour correction of the editing view from the
// command line. Every TOOL:X,Y point joins one click list, with the tool's
// code as its kind, exactly as the view records clicks; one transform is
// built on the photo and applied to it row by row with CcApplySl.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "colorengine/cc.h"
#include "pixels/pixels.h"
#include "raster/ras.h"
#include "tools/commands.h"
#include "tools/photoio.h"
#include "tools/toolio.h"

namespace {

const char kUsage[] =
    "korvel-raster: usage: korvel-raster color IN OUT [TOOL:X,Y ...]\n"
    "  TOOL is foliage, skin, sky or neutrals\n";

struct TransformHandle {
  CcTransform handle{};
  ~TransformHandle() { (void)CcFreeTransform(&handle); }
};

// The editing view's tool codes.
int32_t ToolCode(const char *name, size_t length) {
  static const char *const kTools[4] = {"foliage", "skin", "sky", "neutrals"};
  for (int32_t code = 0; code < 4; ++code)
    if (std::strlen(kTools[code]) == length && std::strncmp(name, kTools[code], length) == 0)
      return code;
  return -1;
}

bool ParseCoordinate(const char *text, char stop, const char **end, int32_t *value) {
  char *after = nullptr;
  const long v = std::strtol(text, &after, 10);
  if (after == text || *after != stop || v < INT32_MIN || v > INT32_MAX) return false;
  *value = static_cast<int32_t>(v);
  *end = after;
  return true;
}

// TOOL:X,Y. Prints why and returns false when the text is not a point.
bool ParsePoint(const char *text, CcPoint *point) {
  const char *colon = std::strchr(text, ':');
  if (!colon) {
    std::fprintf(stderr, "korvel-raster: color: '%s' is not a point (TOOL:X,Y)\n", text);
    return false;
  }
  point->kind = ToolCode(text, static_cast<size_t>(colon - text));
  if (point->kind < 0) {
    std::fprintf(stderr,
                 "korvel-raster: color: unknown tool '%.*s' (foliage, skin, sky or neutrals)\n",
                 static_cast<int>(colon - text), text);
    return false;
  }
  const char *at = colon + 1;
  if (!ParseCoordinate(at, ',', &at, &point->x) || !ParseCoordinate(at + 1, 0, &at, &point->y)) {
    std::fprintf(stderr, "korvel-raster: color: '%s' is not a point (TOOL:X,Y)\n", text);
    return false;
  }
  return true;
}

// Each corrected row goes straight to the writer, so no second photo is held.
int ApplyAndSave(const char *path, const CcTransform &transform, const PlanarImage &p,
                 float resolution) {
  const size_t width = static_cast<size_t>(p.width);
  std::vector<uint8_t> rgb(3 * width);
  const CcPixelRow to{{rgb.data(), rgb.data() + width, rgb.data() + 2 * width, nullptr}};
  return SavePhoto(path, p.width, p.height, resolution, [&](int32_t y, RasSl *sl) {
    const size_t at = size_t(y) * size_t(p.rowStride);
    const CcPixelRow from{{p.planes[0] + at, p.planes[1] + at, p.planes[2] + at, nullptr}};
    if (CcApplySl(&transform, static_cast<uint32_t>(p.width), &from,
                  static_cast<uint32_t>(p.pixelStep), &to, 1) != 0)
      return int{RasErrArg};
    for (int k = 0; k < 3; ++k)
      sl->plane8[k] = to.channel[k];
    return int{RasOk};
  });
}

}  // namespace

int RunColor(int argc, char **argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const int pointCount = argc - 2;
  if (pointCount > CcMaxPoints) {
    std::fprintf(stderr, "korvel-raster: color: at most %d points make one correction\n",
                 static_cast<int>(CcMaxPoints));
    return 2;
  }
  CcParams params;
  (void)CcInitParams(&params);
  for (int i = 0; i < pointCount; ++i)
    if (!ParsePoint(argv[2 + i], &params.points[i])) return 2;
  params.pointCount = pointCount;

  Photo photo;
  if (const int status = LoadPhoto(argv[0], &photo)) return status;
  const Planar &image = photo.image;
  for (int i = 0; i < pointCount; ++i) {
    const CcPoint &point = params.points[i];
    if (point.x < 0 || point.x >= image->width || point.y < 0 || point.y >= image->height) {
      std::fprintf(stderr,
                   "korvel-raster: color refused: the point %d,%d lies outside the %dx%d photo\n",
                   point.x, point.y, image->width, image->height);
      return 1;
    }
  }
  TransformHandle transform;
  const int32_t code = CcBuildTransform(&params, image.get(), &transform.handle);
  if (code != 0) {
    std::fprintf(stderr, "korvel-raster: color refused (code %d): no correction could be built\n",
                 code);
    return 1;
  }
  return ApplyAndSave(argv[1], transform.handle, *image, photo.resolution);
}

#include "tools/photoio.h"

#include "raster/rasrgb.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

int LoadPhoto(const char *path, Photo *photo) {
  OpenRaster in;
  int code = RasGetInfo(path, &in.desc);
  if (code == RasOk) code = RasOpen(path, 'r', &in.desc);
  if (code != RasOk) return Fail(path, "not a readable photo", code);
  photo->image.reset(
      PlanarCreate(static_cast<int32_t>(in.desc.width), static_cast<int32_t>(in.desc.height), 3));
  if (!photo->image) return Fail(path, "too large to edit", RasErrMemory);
  photo->resolution = in.desc.resolution;
  Scanline row;
  const PlanarImage &p = *photo->image;
  // RGB rows are read straight into the planes; other models go through a
  // scanline of their own and are converted.
  const bool direct = in.desc.model == RasModelRgb && in.desc.maxval <= 255;
  for (uint32_t y = 0; y < in.desc.height; ++y) {
    const size_t at = size_t{y} * static_cast<size_t>(p.rowStride);
    RasSl into{in.desc.width, 3, {p.planes[0] + at, p.planes[1] + at, p.planes[2] + at}, {}};
    code = RasReadSl(&in.desc, y, direct ? &into : &row.sl);
    if (code == RasOk && !direct)
      code = RasSlToRgb(&row.sl, &in.desc, into.plane8[0], into.plane8[1], into.plane8[2]);
    if (code != RasOk) return Fail(path, "cannot read a row", code);
  }
  return OrientLoaded(path, photo);
}

int SavePhoto(const char *path, int32_t width, int32_t height, float resolution,
              const RowSource &rows) {
  OutputFile file(path);
  if (!file.temp()) return Fail(path, "cannot create", RasErrOpen);
  OpenRaster out;
  JpegQualityScope quality(100);
  int code = RasSetDesc(&out.desc, FormatForName(path), static_cast<uint32_t>(width),
                        static_cast<uint32_t>(height), 3, RasModelRgb, resolution);
  if (code == RasOk) code = RasOpen(file.temp(), 'w', &out.desc);
  if (code != RasOk) return Fail(path, "cannot create", code);
  RasSl sl{static_cast<uint32_t>(width), 3, {}, {}};
  for (int32_t y = 0; y < height && code == RasOk; ++y) {
    code = rows(y, &sl);
    if (code == RasOk) code = RasWriteSl(&out.desc, static_cast<uint32_t>(y), &sl);
  }
  if (code == RasOk) code = RasClose(&out.desc);
  if (code != RasOk) return Fail(path, "cannot write", code);
  if (const int status = WriteSourceMeta(file.temp(), path, static_cast<uint32_t>(width),
                                         static_cast<uint32_t>(height)))
    return status;
  if (!file.Commit()) return Fail(path, "cannot replace", RasErrWrite);
  return 0;
}

int SavePhoto(const char *path, const PlanarImage &p, float resolution) {
  return SavePhoto(path, p.width, p.height, resolution, [&p](int32_t y, RasSl *sl) {
    for (int k = 0; k < 3; ++k)
      sl->plane8[k] = p.planes[k] + size_t(y) * size_t(p.rowStride);
    return int{RasOk};
  });
}

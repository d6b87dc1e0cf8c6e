#include "tools/photoio.h"

#include <cstdint>
#include <mutex>

#include "platform/workers.h"
#include "raster/rasrgb.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

namespace {

// Rows [first, last) of an open file into the planes of `p`; RGB rows go
// straight into the planes, other models through a scanline of their own
// and are converted. On failure `*failed` is the row that failed.
int ReadRows(RasDesc *desc, uint32_t first, uint32_t last, const PlanarImage &p, uint32_t *failed) {
  Scanline row;
  const bool direct = desc->model == RasModelRgb && desc->maxval <= 255;
  for (uint32_t y = first; y < last; ++y) {
    const size_t at = size_t{y} * static_cast<size_t>(p.rowStride);
    RasSl into{desc->width, 3, {p.planes[0] + at, p.planes[1] + at, p.planes[2] + at}, {}};
    int code = RasReadSl(desc, y, direct ? &into : &row.sl);
    if (code == RasOk && !direct)
      code = RasSlToRgb(&row.sl, desc, into.plane8[0], into.plane8[1], into.plane8[2]);
    if (code != RasOk) {
      *failed = y;
      return code;
    }
  }
  return RasOk;
}

// A BMP row lies at a place computed from its number, so each thread reads a
// band of rows through a descriptor of its own: the copy from the file, the
// spread into planes and the first touch of the fresh planes run on every
// core. A damaged file fails at the same first row, with the same code, as
// reading it in order would.
int ReadBands(const char *path, const RasDesc &header, const PlanarImage &p) {
  constexpr int64_t kBandRows = 128;
  std::mutex lock;
  uint32_t firstFailed = UINT32_MAX;
  int code = RasOk;
  SplitWork(header.height, kBandRows, [&](int64_t first, int64_t last) {
    OpenRaster own;
    own.desc.format = header.format;
    uint32_t failed = static_cast<uint32_t>(first);
    int got = RasOpen(path, 'r', &own.desc);
    if (got == RasOk && (own.desc.width != header.width || own.desc.height != header.height ||
                         own.desc.model != header.model))
      got = RasErrFormat;  // the file changed under us
    if (got == RasOk)
      got = ReadRows(&own.desc, static_cast<uint32_t>(first), static_cast<uint32_t>(last), p,
                     &failed);
    if (got == RasOk) return;
    const std::lock_guard<std::mutex> held(lock);
    if (failed < firstFailed) {
      firstFailed = failed;
      code = got;
    }
  });
  return code;
}

}  // namespace

int LoadPhoto(const char *path, Photo *photo) {
  OpenRaster in;
  int code = RasGetInfo(path, &in.desc);
  if (code == RasOk) code = RasOpen(path, 'r', &in.desc);
  if (code != RasOk) return Fail(path, "not a readable photo", code);
  photo->image.reset(
      PlanarCreate(static_cast<int32_t>(in.desc.width), static_cast<int32_t>(in.desc.height), 3));
  if (!photo->image) return Fail(path, "too large to edit", RasErrMemory);
  photo->resolution = in.desc.resolution;
  uint32_t failed = 0;
  code = in.desc.format == RasFormatBmp
             ? ReadBands(path, in.desc, *photo->image)
             : ReadRows(&in.desc, 0, in.desc.height, *photo->image, &failed);
  if (code != RasOk) return Fail(path, "cannot read a row", code);
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

#include "tools/photoio.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <new>

#include "platform/workers.h"
#include "raster/rasrgb.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

namespace {

// Rows [first, last) of an open file into the planes of `p`, whose row 0 is
// picture row `top`; RGB rows go straight into the planes, other models
// through a scanline of their own and are converted. On failure `*failed` is
// the row that failed.
int ReadRows(RasDesc *desc, int32_t first, int32_t last, const PlanarImage &p, int32_t top,
             int32_t *failed) {
  Scanline row;
  const bool direct = desc->model == RasModelRgb && desc->maxval <= 255;
  for (int32_t y = first; y < last; ++y) {
    const size_t at = size_t(y - top) * static_cast<size_t>(p.rowStride);
    RasSl into{desc->width, 3, {p.planes[0] + at, p.planes[1] + at, p.planes[2] + at}, {}};
    int code = RasReadSl(desc, static_cast<uint32_t>(y), direct ? &into : &row.sl);
    if (code == RasOk && !direct)
      code = RasSlToRgb(&row.sl, desc, into.plane8[0], into.plane8[1], into.plane8[2]);
    if (code != RasOk) {
      *failed = y;
      return code;
    }
  }
  return RasOk;
}

}  // namespace

int PhotoReader::Open(const char *path) {
  path_ = path;
  int code = RasGetInfo(path, &in_.desc);
  if (code == RasOk) code = RasOpen(path, 'r', &in_.desc);
  if (code != RasOk) return Fail(path, "not a readable photo", code);
  return 0;
}

int PhotoReader::Read(int32_t first, int32_t last, const PlanarImage &into, int32_t top) {
  if (in_.desc.format == RasFormatBmp) return ReadShared(first, last, into, top);
  int32_t failed = 0;
  return ReadRows(&in_.desc, first, last, into, top, &failed);
}

// A spare descriptor of the file, or a new one checked against the first.
std::unique_ptr<OpenRaster> PhotoReader::Descriptor(int *code) {
  {
    const std::lock_guard<std::mutex> held(lock_);
    if (!spare_.empty()) {
      std::unique_ptr<OpenRaster> spare = std::move(spare_.back());
      spare_.pop_back();
      return spare;
    }
  }
  auto own = std::make_unique<OpenRaster>();
  own->desc.format = in_.desc.format;
  *code = RasOpen(path_.c_str(), 'r', &own->desc);
  if (*code == RasOk && (own->desc.width != in_.desc.width || own->desc.height != in_.desc.height ||
                         own->desc.model != in_.desc.model))
    *code = RasErrFormat;  // the file changed under us
  return own;
}

int PhotoReader::ReadOwn(std::unique_ptr<OpenRaster> *own, int32_t first, int32_t last,
                         const PlanarImage &into, int32_t top) {
  if (!*own) {
    int code = RasOk;
    try {  // on a thread of the caller's, where nothing else would catch it
      std::unique_ptr<OpenRaster> made = Descriptor(&code);
      if (code == RasOk) *own = std::move(made);
    } catch (const std::bad_alloc &) {
      code = RasErrMemory;
    }
    if (code != RasOk) return code;
  }
  int32_t failed = 0;
  return ReadRows(&(*own)->desc, first, last, into, top, &failed);
}

// A BMP row lies at a place computed from its number, so each thread reads a
// part of the rows through a descriptor of its own: the copy from the file,
// the spread into planes and the first touch of fresh planes run on every
// core.
int PhotoReader::ReadShared(int32_t first, int32_t last, const PlanarImage &into, int32_t top) {
  constexpr int64_t kGrainRows = 16;
  int32_t firstFailed = INT32_MAX;
  int code = RasOk;
  SplitWork(last - first, kGrainRows, [&](int64_t from, int64_t to) {
    int got = RasOk;
    std::unique_ptr<OpenRaster> own = Descriptor(&got);
    int32_t failed = first + static_cast<int32_t>(from);
    if (got == RasOk)
      got = ReadRows(&own->desc, failed, first + static_cast<int32_t>(to), into, top, &failed);
    const std::lock_guard<std::mutex> held(lock_);
    if (got == RasOk) {
      spare_.push_back(std::move(own));
    } else if (failed < firstFailed) {
      firstFailed = failed;
      code = got;
    }
  });
  return code;
}

int LoadPhoto(const char *path, Photo *photo) {
  PhotoReader reader;
  if (const int status = reader.Open(path)) return status;
  photo->image.reset(PlanarCreate(reader.width(), reader.height(), 3));
  if (!photo->image) return Fail(path, "too large to edit", RasErrMemory);
  photo->resolution = reader.resolution();
  const int code = reader.Read(0, reader.height(), *photo->image, 0);
  if (code != RasOk) return Fail(path, "cannot read a row", code);
  return OrientLoaded(path, photo);
}

// Rows' worth of bytes between two requests to start writing to the disk.
constexpr int64_t kWritebackBytes = 4 << 20;

int SavePhoto(const char *path, int32_t width, int32_t height, float resolution,
              const RowSource &rows, const RowFailure &failed) {
  OutputFile file(path);
  if (!file.temp()) return Fail(path, "cannot create", RasErrOpen);
  OpenRaster out;
  JpegQualityScope quality(100);
  int code = RasSetDesc(&out.desc, FormatForName(path), static_cast<uint32_t>(width),
                        static_cast<uint32_t>(height), 3, RasModelRgb, resolution);
  if (code == RasOk) {
    HandSourceMetaToEncoder(out.desc.format, out.desc.width, out.desc.height);
    code = RasOpen(file.temp(), 'w', &out.desc);
  }
  if (code != RasOk) return Fail(path, "cannot create", code);
  RasSl sl{static_cast<uint32_t>(width), 3, {}, {}};
  // A replaced file is flushed before it takes the old one's name: handing
  // the rows to the disk as they go hides most of that wait behind the work.
  const int64_t writebackRows = std::max<int64_t>(1, kWritebackBytes / (int64_t{3} * width));
  for (int32_t y = 0; y < height && code == RasOk; ++y) {
    code = rows(y, &sl);
    if (code != RasOk && failed) return failed(code);
    if (code == RasOk) code = RasWriteSl(&out.desc, static_cast<uint32_t>(y), &sl);
    if ((y + 1) % writebackRows == 0) file.StartWriteback();
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

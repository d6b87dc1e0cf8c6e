#include "tools/toolmeta.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "meta/meta.h"
#include "pixels/orient.h"
#include "tools/photoio.h"
#include "tools/toolio.h"

namespace {

struct Run {
  bool keepOrientation = false;
  bool strip = false;
  PhotoMeta source;
} gRun;

// `count` byte planes of width x height, pixel step 1, as the pixel routines
// take them.
PlanarImage Planes(uint8_t *const *planes, int count, uint32_t width, uint32_t height) {
  PlanarImage image{1, count, static_cast<int32_t>(width), static_cast<int32_t>(height),
                    0, 1,     static_cast<int32_t>(width), {}};
  for (int i = 0; i < count; ++i)
    image.planes[i] = planes[i];
  return image;
}

}  // namespace

int TakeMetaOptions(int argc, char **argv) {
  int kept = 0;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--keep-orientation") == 0) {
      gRun.keepOrientation = true;
    } else if (std::strcmp(argv[i], "--strip") == 0) {
      gRun.strip = true;
    } else {
      argv[kept++] = argv[i];
    }
  }
  return kept;
}

const char *OrientationNote(const char *path) {
  static char note[32];
  PhotoMeta meta;
  note[0] = 0;
  if (MetaRead(path, &meta) && meta.hasOrientation)
    std::snprintf(note, sizeof note, " orientation=%d", meta.orientation);
  return note;
}

int ReadSourceMeta(const char *path) {
  (void)MetaRead(path, &gRun.source);
  return gRun.keepOrientation ? 1 : gRun.source.orientation;
}

int OrientLoaded(const char *path, Photo *photo) {
  const int orientation = ReadSourceMeta(path);
  if (orientation == 1) return 0;
  Planar upright(PlanarCreateOriented(photo->image.get(), orientation));
  if (!upright) return Fail(path, "too large to edit", RasErrMemory);
  if (OrientImage(photo->image.get(), orientation, upright.get()) != 0)
    return Fail(path, "cannot turn upright", RasErrArg);
  photo->image = std::move(upright);
  return 0;
}

// What a saved output of `width` x `height` says of itself.
MetaSaveInfo SavedInfo(uint32_t width, uint32_t height) {
  return {static_cast<int32_t>(width), static_cast<int32_t>(height),
          gRun.keepOrientation ? gRun.source.orientation : 1};
}

void HandSourceMetaToEncoder(uint32_t format, uint32_t width, uint32_t height) {
  MetaHandToEncoder(format, gRun.strip ? PhotoMeta{} : gRun.source, SavedInfo(width, height));
}

int WriteSourceMeta(const char *temp, const char *path, uint32_t width, uint32_t height) {
  if (gRun.strip) return 0;
  std::string why;
  if (MetaWrite(temp, gRun.source, SavedInfo(width, height), &why)) return 0;
  // Nothing is written rather than a photo that silently lost its date,
  // place and camera.
  std::fprintf(stderr, "korvel-raster: %s: cannot keep the metadata: %s (--strip writes none)\n",
               path, why.c_str());
  return 1;
}

OrientedRows::OrientedRows(RasDesc *out, int orientation, uint32_t storedWidth,
                           uint32_t storedHeight)
    : out_(out),
      orientation_(orientation),
      width_(storedWidth),
      height_(storedHeight),
      wide_(out->maxval > 255) {
  if (orientation_ == 1) return;
  planes_.resize(out->channels * (wide_ ? 2 : 1));
  for (auto &plane : planes_)
    plane.resize(size_t{width_} * height_);
}

int OrientedRows::Put(uint32_t y, const RasSl &row) {
  if (orientation_ == 1) return RasWriteSl(out_, y, &row);
  const size_t at = size_t{y} * width_;
  for (uint32_t k = 0; k < out_->channels; ++k) {
    if (!wide_) {
      std::memcpy(planes_[k].data() + at, row.plane8[k], width_);
      continue;
    }
    for (uint32_t x = 0; x < width_; ++x) {
      planes_[2 * k][at + x] = static_cast<uint8_t>(row.plane16[k][x]);
      planes_[2 * k + 1][at + x] = static_cast<uint8_t>(row.plane16[k][x] >> 8);
    }
  }
  return RasOk;
}

int OrientedRows::Finish() {
  if (orientation_ == 1) return RasOk;
  // A turn only moves samples, so a 16-bit sample's two bytes may travel in
  // planes of their own; the pixel routines take four planes at a time.
  const uint32_t uw = out_->width, uh = out_->height;
  std::vector<std::vector<uint8_t>> upright(planes_.size(),
                                            std::vector<uint8_t>(planes_[0].size()));
  for (size_t first = 0; first < planes_.size(); first += 4) {
    const int count = static_cast<int>(std::min<size_t>(4, planes_.size() - first));
    uint8_t *from[4], *to[4];
    for (int i = 0; i < count; ++i) {
      from[i] = planes_[first + i].data();
      to[i] = upright[first + i].data();
    }
    const PlanarImage src = Planes(from, count, width_, height_);
    PlanarImage dst = Planes(to, count, uw, uh);
    if (OrientImage(&src, orientation_, &dst) != 0) return RasErrArg;
  }
  // Rows go out through a scanline the writer made, as some writers keep
  // working room in their own planes.
  Scanline row;
  if (const int code = RasMakeSl(&row.sl, out_); code != RasOk) return code;
  for (uint32_t y = 0; y < uh; ++y) {
    const size_t at = size_t{y} * uw;
    for (uint32_t k = 0; k < out_->channels; ++k) {
      if (!wide_) {
        std::memcpy(row.sl.plane8[k], upright[k].data() + at, uw);
        continue;
      }
      for (uint32_t x = 0; x < uw; ++x)
        row.sl.plane16[k][x] =
            static_cast<uint16_t>(upright[2 * k][at + x] | upright[2 * k + 1][at + x] << 8);
    }
    if (const int code = RasWriteSl(out_, y, &row.sl); code != RasOk) return code;
  }
  return RasOk;
}

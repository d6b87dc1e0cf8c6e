#include "views/editorpicture.h"

#include <atomic>

namespace {

uint64_t NextSerial() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

EditorPicture::EditorPicture(const CDib &picture)
    : picture_(picture),
      width_(picture.Width()),
      height_(picture.Height()),
      serial_(NextSerial()) {}

EditorPicture::EditorPicture(Planar planes)
    : planes_(std::move(planes)),
      width_(planes_ ? uint32_t(planes_->width) : 0),
      height_(planes_ ? uint32_t(planes_->height) : 0),
      serial_(NextSerial()) {}

const PlanarImage *EditorPicture::Planes() const {
  if (!planes_ && picture_.Handle()) planes_.reset(PlanarFromDib(picture_));
  return planes_.get();
}

const CDib *EditorPicture::Picture() const {
  if (!picture_.Handle() && planes_) {
    HGLOBAL block = DibFromPlanar(planes_.get());
    if (!block) return nullptr;
    picture_.Attach(block);
  }
  return &picture_;
}

PlanarImage *EditorPicture::CopyArea(const QRect &area) const {
  // Without planes the block's rows are converted directly: only the part
  // asked for, not the whole photo.
  if (!planes_) return picture_.Handle() ? PlanarFromDib(picture_, area) : nullptr;
  Planar copy(PlanarCreate(area.width(), area.height(), 3));
  if (!copy || CropImage(planes_.get(), area.left(), area.top(), copy.get(), nullptr) != 0)
    return nullptr;
  return copy.release();
}

// CDib: holding, locking and addressing a packed DIB.
#include "photo/dib.h"

#include <cstdlib>

CDib::CDib(HGLOBAL handle) {
  Attach(handle);
}

CDib::CDib(const CDib &other) {
  Attach(other.handle_);
}

CDib &CDib::operator=(const CDib &other) {
  // Attach adds the new reference before releasing the old one, so assigning
  // a picture to itself (or to another holder of its block) frees nothing.
  Attach(other.handle_);
  return *this;
}

CDib::~CDib() {
  Unlock();
  Detach();
}

int CDib::Attach(HGLOBAL handle) {
  Unlock();
  DibAddRef(handle);
  DibRelease(handle_);
  handle_ = handle;
  return Lock();
}

void CDib::Detach() {
  Unlock();
  DibRelease(handle_);
  handle_ = nullptr;
}

int CDib::Lock() {
  if (!header_ && handle_) {
    header_ = static_cast<BITMAPINFOHEADER *>(GlobalLock(handle_));
    if (header_ && GlobalSize(handle_) < sizeof(BITMAPINFOHEADER)) {
      GlobalUnlock(handle_);  // too short to be a picture at all
      header_ = nullptr;
    }
    if (header_) {
      width_ = static_cast<uint32_t>(header_->biWidth);
      height_ = static_cast<uint32_t>(std::abs(header_->biHeight));
      bitsPerPixel_ = header_->biBitCount;
      bits_ = Bits();
    }
  }
  return header_ != nullptr;
}

void CDib::Unlock() {
  if (header_) {
    GlobalUnlock(handle_);
    header_ = nullptr;
    bits_ = nullptr;
  }
  width_ = height_ = bitsPerPixel_ = 0;
}

int32_t CDib::RowSize() const {
  return ((static_cast<int32_t>(width_) * static_cast<int32_t>(bitsPerPixel_) + 31) / 32) * 4;
}

uint32_t CDib::PaletteSize() const {
  if (!header_) return 0;
  if (header_->biClrUsed) return header_->biClrUsed;
  // The shift count wraps at 32, so 32-bit pictures report one entry and 16-bit
  // ones none; pictures of those depths carry no table the program reads.
  return (1u << (bitsPerPixel_ % 32)) & 0xFFF;
}

uint8_t *CDib::Bits() const {
  if (!header_) return nullptr;
  return reinterpret_cast<uint8_t *>(header_) + header_->biSize + PaletteSize() * 4;
}

uint8_t *CDib::RowPointer(int32_t row) const {
  if (!header_) return nullptr;
  const int64_t rowSize = RowSize();
  if (header_->biHeight < 1) return bits_ + rowSize * row;
  return bits_ + rowSize * (static_cast<int64_t>(height_) - row - 1);
}

BITMAPINFOHEADER DibHeader24(uint32_t width, uint32_t height) {
  BITMAPINFOHEADER h{};
  h.biSize = sizeof(BITMAPINFOHEADER);
  h.biWidth = static_cast<int32_t>(width);
  h.biHeight = static_cast<int32_t>(height);
  h.biPlanes = 1;
  h.biBitCount = 24;
  h.biSizeImage = width * height * 3;  // the padding is deliberately not counted
  return h;
}

size_t DibRowBytes24(uint32_t width) {
  return (size_t{width} * 3 + 3) & ~size_t{3};
}

// The photo image: a packed device-independent bitmap (40-byte header, colour
// table, rows padded to four bytes) in one movable memory block. CDib is a
// small value: copies share the block, and a process-wide table of reference
// counts frees the block when its last holder lets go.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/movable.h"

class QPainter;

// The header that starts every packed DIB, in its on-disk layout.
struct BITMAPINFOHEADER {
  uint32_t biSize;
  int32_t biWidth;
  int32_t biHeight;  // positive: bottom row first; negative: top row first
  uint16_t biPlanes;
  uint16_t biBitCount;
  uint32_t biCompression;
  uint32_t biSizeImage;
  int32_t biXPelsPerMeter;
  int32_t biYPelsPerMeter;
  uint32_t biClrUsed;
  uint32_t biClrImportant;
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

// The resolution, in pixels per inch, of a photo whose file did not give one.
inline constexpr float kUnknownResolution = -1.0f;

class CDib {
 public:
  CDib() = default;
  explicit CDib(HGLOBAL handle);
  CDib(const CDib &other);
  CDib &operator=(const CDib &other);
  virtual ~CDib();

  // Holds `handle` (one more reference) and locks it; nonzero when a header is
  // then available. The reference to the old handle is released after the new
  // one is added, so attaching the handle already held never frees it.
  int Attach(HGLOBAL handle);
  void Detach();
  int Lock();
  void Unlock();

  int32_t RowSize() const;                 // bytes a row, padded to four
  uint32_t PaletteSize() const;            // colour-table entries
  uint8_t *Bits() const;                   // first pixel row as stored
  uint8_t *RowPointer(int32_t row) const;  // row 0 is the top of the picture

  // Stretches the whole picture over the rectangle; nothing when empty.
  void Draw(QPainter *painter, int left, int top, int right, int bottom) const;

  BITMAPINFOHEADER *Header() const { return header_; }
  HGLOBAL Handle() const { return handle_; }
  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  uint32_t BitsPerPixel() const { return bitsPerPixel_; }

 private:
  HGLOBAL handle_ = nullptr;
  BITMAPINFOHEADER *header_ = nullptr;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint32_t bitsPerPixel_ = 0;
  uint8_t *bits_ = nullptr;
};

// A 40-byte header for a 24-bit bottom-up picture of the program's own kind.
BITMAPINFOHEADER DibHeader24(uint32_t width, uint32_t height);

// Bytes of one packed 24-bit row: three a pixel, padded to a multiple of four.
size_t DibRowBytes24(uint32_t width);

// The process-wide reference counts, keyed by handle. Adding a null handle is
// ignored. Releasing frees the block when the count falls to nothing, and
// frees at once a handle the table does not hold.
void DibAddRef(HGLOBAL handle);
void DibRelease(HGLOBAL handle);
// What the table holds, for inspection: a handle's count (0 when absent), the
// number of entries, and whether the bucket array exists.
int32_t DibRefCount(HGLOBAL handle);
int DibRefEntries();
bool DibRefTableAllocated();

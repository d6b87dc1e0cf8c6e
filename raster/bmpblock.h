// Blocks of BMP rows for reading and writing a disk file in order. A photo
// read or written one row at a time costs a seek and a call to the system
// per row (a bottom-up file is walked backwards); taken in order, its rows
// instead go through a block of consecutive file rows moved in one call.
// Rows taken out of order, and memory blocks, which gain nothing, go row by
// row as they always did.
#pragma once

#include <cstdint>

#include "raster/core/rasfile.h"

// Where the rows lie in the file.
struct BmpLayout {
  int64_t dataOffset;
  uint32_t stride;    // bytes from one file row to the next
  uint32_t rowBytes;  // the pixels of a row, without its padding
  uint32_t height;
  bool topDown;
};

// Zero-initialised by its owner. Rows are held in file order; `first` and
// `count` count in picture order (row 0 at the top).
struct BmpRowBlock {
  uint8_t *bytes;     // `capacity` rows of `stride` bytes; padding zero
  uint32_t capacity;  // rows; 0 until first used
  uint32_t first;     // the first row held or waiting
  uint32_t span;      // the rows the block covers from `first`
  uint32_t count;     // rows held (reading) or waiting to be written
  uint32_t next;      // the row that continues the order
  bool unusable;      // a row too long for a block, or no memory for one
};

void BmpBlockFree(BmpRowBlock *block);

// Positions the file at `target` unless `*position`, where it stands (-1 when
// unknown), says it is there already.
[[nodiscard]] int BmpSeekTo(RasFile *file, int64_t target, int64_t *position);

// Whether `row` continues the order of `file` (a disk file) and a block can
// serve it; makes the block on first use.
bool BmpBlockInOrder(const RasFile &file, BmpRowBlock *block, const BmpLayout &layout,
                     uint32_t row);

// Reading: the row's bytes if the block holds them, else null.
const uint8_t *BmpBlockHeld(const BmpRowBlock &block, const BmpLayout &layout, uint32_t row);
// Reads the block that starts at `row`, as many rows as the file holds whole
// (`*position` follows the file). RasOk with the row held; 1 when the file
// does not hold the row whole, which the caller reads alone to report it as
// always; else the code of a failed seek (-8) or read (-5).
[[nodiscard]] int BmpBlockRead(RasFile *file, BmpRowBlock *block, const BmpLayout &layout,
                               uint32_t row, int64_t *position);

// Writing: where the caller packs `row`, which continues the order; the
// block starts at `row` when empty.
uint8_t *BmpBlockSlot(BmpRowBlock *block, const BmpLayout &layout, uint32_t row);
// Counts the packed row in; true when the block is full and must be written.
bool BmpBlockPacked(BmpRowBlock *block);
// Writes the waiting rows, if any, and empties the block. RasOk or the code
// of the failed seek or write.
[[nodiscard]] int BmpBlockWrite(RasFile *file, BmpRowBlock *block, const BmpLayout &layout,
                                int64_t *position);

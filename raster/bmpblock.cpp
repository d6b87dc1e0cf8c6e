#include "raster/bmpblock.h"

#include <algorithm>
#include <cstring>

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"

namespace {

// Large enough that a 24-Mpixel photo takes a few hundred calls, small enough
// that a block just read is still in the core's cache when its rows are
// spread into planes.
constexpr int64_t kBlockBytes = int64_t{256} << 10;

int64_t RowAt(const BmpLayout &layout, uint32_t fileRow) {
  return int64_t{fileRow} * layout.stride + layout.dataOffset;
}

uint32_t FileRow(const BmpLayout &layout, uint32_t row) {
  return layout.topDown ? row : layout.height - 1 - row;
}

// The lowest file row of `count` rows in picture order from `first`.
uint32_t LowestFileRow(const BmpLayout &layout, uint32_t first, uint32_t count) {
  return layout.topDown ? first : layout.height - first - count;
}

// The block's slot of a row it covers: file order, whichever way the
// picture is stored.
size_t SlotOf(const BmpRowBlock &block, const BmpLayout &layout, uint32_t row) {
  const uint32_t k = row - block.first;
  return size_t{layout.topDown ? k : block.span - 1 - k} * layout.stride;
}

}  // namespace

int BmpSeekTo(RasFile *file, int64_t target, int64_t *position) {
  if (*position == target) return RasOk;
  *position = -1;
  const int code = RasFileSeek(file, target, 0);
  if (code == RasOk) *position = target;
  return code;
}

void BmpBlockFree(BmpRowBlock *block) {
  block->bytes = static_cast<uint8_t *>(RasFree(block->bytes));
  block->capacity = 0;
}

bool BmpBlockInOrder(const RasFile &file, BmpRowBlock *block, const BmpLayout &layout,
                     uint32_t row) {
  if (file.kind != RasFileKindDisk || block->unusable || row != block->next) return false;
  if (block->capacity > 0) return true;
  const int64_t rows = std::min<int64_t>(kBlockBytes / layout.stride, layout.height);
  const size_t bytes = static_cast<size_t>(rows) * layout.stride;
  block->bytes = rows >= 2 ? static_cast<uint8_t *>(RasAlloc(bytes)) : nullptr;
  if (!block->bytes) {
    block->unusable = true;
    return false;
  }
  std::memset(block->bytes, 0, bytes);
  block->capacity = static_cast<uint32_t>(rows);
  return true;
}

const uint8_t *BmpBlockHeld(const BmpRowBlock &block, const BmpLayout &layout, uint32_t row) {
  if (block.count == 0 || row < block.first || row - block.first >= block.count) return nullptr;
  return block.bytes + SlotOf(block, layout, row);
}

int BmpBlockRead(RasFile *file, BmpRowBlock *block, const BmpLayout &layout, uint32_t row,
                 int64_t *position) {
  block->count = 0;
  int64_t size = 0;
  if (RasFileSize(file, &size) != RasOk) return 1;
  // Rows count only when whole: a short last row is read alone, to fail
  // exactly as it would have.
  const auto whole = [&](uint32_t r) {
    return RowAt(layout, FileRow(layout, r)) + layout.rowBytes <= size;
  };
  if (!whole(row)) return 1;
  uint32_t span = std::min(block->capacity, layout.height - row);
  // Stored bottom-up, the rows after `row` lie before it in the file; top
  // down, the file may end inside the block.
  if (layout.topDown) {
    const int64_t after = (size - RowAt(layout, row) - layout.rowBytes) / layout.stride;
    span = static_cast<uint32_t>(std::min<int64_t>(span, after + 1));
  }
  block->first = row;
  block->span = span;
  const int64_t start = RowAt(layout, LowestFileRow(layout, row, span));
  const int sought = BmpSeekTo(file, start, position);
  if (sought != RasOk) return sought;
  int64_t bytes = int64_t{span - 1} * layout.stride + layout.rowBytes;
  if (RasFileRead(file, block->bytes, &bytes, 1) != RasOk) {
    *position = -1;
    return RasErrRead;
  }
  *position = start + bytes;
  block->count = span;
  block->next = row + 1;
  return RasOk;
}

uint8_t *BmpBlockSlot(BmpRowBlock *block, const BmpLayout &layout, uint32_t row) {
  if (block->count == 0) {
    block->first = row;
    block->span = std::min(block->capacity, layout.height - row);
  }
  return block->bytes + SlotOf(*block, layout, row);
}

bool BmpBlockPacked(BmpRowBlock *block) {
  ++block->count;
  ++block->next;
  return block->count == block->span;
}

int BmpBlockWrite(RasFile *file, BmpRowBlock *block, const BmpLayout &layout, int64_t *position) {
  if (block->count == 0) return RasOk;
  const uint32_t count = block->count;
  block->count = 0;
  const int64_t start = RowAt(layout, LowestFileRow(layout, block->first, count));
  const int sought = BmpSeekTo(file, start, position);
  if (sought != RasOk) return sought;
  // The waiting rows are the first `count` slots of a top-down block and the
  // last of a bottom-up one.
  const uint8_t *from =
      block->bytes + (layout.topDown ? 0 : size_t{block->span - count} * layout.stride);
  int64_t bytes = int64_t{count} * layout.stride;
  if (RasFileWrite(file, from, &bytes) != RasOk) {
    *position = -1;
    return RasErrWrite;
  }
  *position = start + bytes;
  return RasOk;
}

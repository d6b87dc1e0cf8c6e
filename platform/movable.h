// Movable blocks of memory, as photos, camera transfers and editing tools keep
// them: a block is named by an opaque handle, reached through a pointer only
// while it is locked, can grow or shrink keeping its contents, and running out
// of memory is a null result, never an exception.
#pragma once

#include <cstddef>
#include <cstdint>

struct MovableBlock;
using HGLOBAL = MovableBlock *;

enum : uint32_t {
  GMEM_FIXED = 0x0000,
  GMEM_MOVEABLE = 0x0002,
  GMEM_ZEROINIT = 0x0040,
};

// A new block of `bytes`; zeroed with GMEM_ZEROINIT. Null when memory runs out.
HGLOBAL GlobalAlloc(uint32_t flags, size_t bytes);
// The block's address, counting one more lock; null for a handle that names no
// live block or a block of no bytes.
void *GlobalLock(HGLOBAL block);
// Counts one lock less; true while locks remain.
bool GlobalUnlock(HGLOBAL block);
// Resizes, keeping the contents up to the smaller size and zeroing what is
// added with GMEM_ZEROINIT. A locked block may move only when `flags` holds
// GMEM_MOVEABLE. Null on failure, and the block is then as it was.
HGLOBAL GlobalReAlloc(HGLOBAL block, size_t bytes, uint32_t flags);
// Frees the block, locked or not; null on success, the handle itself when it
// names no live block.
HGLOBAL GlobalFree(HGLOBAL block);
size_t GlobalSize(HGLOBAL block);         // 0 for a handle that names no live block
uint32_t GlobalLockCount(HGLOBAL block);  // 0 likewise

// A number that no other block, and no earlier state of this block, ever had:
// it is new after GlobalAlloc, after every successful GlobalReAlloc and after
// GlobalTouch, which whoever rewrites a block's bytes in place calls. Pictures
// derived from a block (scaled previews for drawing) stay valid while it holds.
// 0 for a handle that names no live block.
uint64_t GlobalSerial(HGLOBAL block);
void GlobalTouch(HGLOBAL block);

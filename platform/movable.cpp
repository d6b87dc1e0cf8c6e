// Handles are kept in a set of live blocks, so that a stale or foreign handle
// is refused instead of being dereferenced: a photo's handle passes through
// many hands (copies of a picture, the editing view, camera transfers).
#include "platform/movable.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_set>

struct MovableBlock {
  uint8_t *data;
  size_t size;
  size_t mapped;  // bytes mapped from the system for a large block, else 0
  uint32_t locks;
  uint64_t serial;
};

namespace {

std::mutex gMutex;
uint64_t gLastSerial = 0;  // guarded by gMutex

std::unordered_set<MovableBlock *> &Live() {
  static auto *live = new std::unordered_set<MovableBlock *>;  // lives to the very end
  return *live;
}

MovableBlock *Find(HGLOBAL block) {
  return block && Live().count(block) ? block : nullptr;
}

// One field of a live block, read under the lock; 0 for any other handle.
template <class T>
T FieldOf(HGLOBAL handle, T MovableBlock::*field) {
  std::lock_guard<std::mutex> guard(gMutex);
  const MovableBlock *block = Find(handle);
  return block ? block->*field : T{0};
}

// A photo's block is tens of megabytes, written once from end to end right
// after it is made. Such blocks are mapped straight from the system: its pages
// come zeroed (no second pass to honour GMEM_ZEROINIT), 2 MiB at a time where
// the kernel allows (a 4 KiB page's first touch costs a fault each), and they
// grow in place or move without a copy. Under the address sanitizer every
// block stays on the heap, where overruns are caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kMapFrom = SIZE_MAX;
#else
constexpr size_t kMapFrom = size_t{4} << 20;
#endif
constexpr size_t kHugePage = size_t{2} << 20;

struct Storage {
  uint8_t *data = nullptr;
  size_t mapped = 0;
};

Storage Map(size_t bytes) {
  const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  void *raw = mmap(nullptr, rounded + kHugePage, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return {};
  // Keep the 2 MiB-aligned part, so that every page of it can be a huge one.
  auto *base = static_cast<uint8_t *>(raw);
  auto *aligned = reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(base) + kHugePage - 1) &
                                              ~(kHugePage - 1));
  if (aligned > base) munmap(base, static_cast<size_t>(aligned - base));
  const size_t tail = static_cast<size_t>(base + rounded + kHugePage - (aligned + rounded));
  if (tail) munmap(aligned + rounded, tail);
#ifdef MADV_HUGEPAGE
  (void)madvise(aligned, rounded, MADV_HUGEPAGE);
#endif
  return {aligned, rounded};
}

// `bytes` of new storage; heap storage is zeroed only when asked.
Storage Obtain(size_t bytes, bool zero) {
  if (bytes >= kMapFrom) return Map(bytes);
  void *data = zero ? std::calloc(bytes, 1) : std::malloc(bytes);
  return {static_cast<uint8_t *>(data), 0};
}

void Release(uint8_t *data, size_t mapped) {
  if (mapped)
    munmap(data, mapped);
  else
    std::free(data);
}

// The block's bytes in storage of `bytes`, keeping what both sizes hold and
// zeroing what is added when asked. False, and the block as it was, when
// memory runs out.
bool Resize(MovableBlock *block, size_t bytes, bool zero) {
  const size_t keep = block->size < bytes ? block->size : bytes;
  if (block->mapped && bytes >= kMapFrom) {
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void *moved = mremap(block->data, block->mapped, rounded, MREMAP_MAYMOVE);
    if (moved == MAP_FAILED) return false;
    // Pages added by the system come zeroed; the old mapping's slack beyond
    // the old size may still hold bytes from before a shrink.
    const size_t dirtyEnd = block->mapped < bytes ? block->mapped : bytes;
    if (zero && dirtyEnd > keep)
      std::memset(static_cast<uint8_t *>(moved) + keep, 0, dirtyEnd - keep);
    block->data = static_cast<uint8_t *>(moved);
    block->mapped = rounded;
  } else if (!block->mapped && bytes < kMapFrom) {
    auto *data = static_cast<uint8_t *>(std::realloc(block->data, bytes));
    if (!data) return false;
    if (zero && bytes > keep) std::memset(data + keep, 0, bytes - keep);
    block->data = data;
  } else {
    const Storage fresh = Obtain(bytes, zero);
    if (!fresh.data) return false;
    if (keep) std::memcpy(fresh.data, block->data, keep);
    Release(block->data, block->mapped);
    block->data = fresh.data;
    block->mapped = fresh.mapped;
  }
  block->size = bytes;
  return true;
}

}  // namespace

HGLOBAL GlobalAlloc(uint32_t flags, size_t bytes) {
  auto *block = static_cast<MovableBlock *>(std::malloc(sizeof(MovableBlock)));
  Storage storage;
  if (bytes > 0) storage = Obtain(bytes, flags & GMEM_ZEROINIT);
  if (!block || (bytes > 0 && !storage.data)) {
    std::free(block);
    Release(storage.data, storage.mapped);
    return nullptr;
  }
  std::lock_guard<std::mutex> guard(gMutex);
  *block = MovableBlock{storage.data, bytes, storage.mapped, 0, ++gLastSerial};
  try {
    Live().insert(block);
  } catch (const std::bad_alloc &) {
    Release(storage.data, storage.mapped);
    std::free(block);
    return nullptr;
  }
  return block;
}

void *GlobalLock(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  MovableBlock *block = Find(handle);
  if (!block || !block->data) return nullptr;
  ++block->locks;
  return block->data;
}

bool GlobalUnlock(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  MovableBlock *block = Find(handle);
  if (!block || block->locks == 0) return false;
  return --block->locks > 0;
}

HGLOBAL GlobalReAlloc(HGLOBAL handle, size_t bytes, uint32_t flags) {
  std::lock_guard<std::mutex> guard(gMutex);
  MovableBlock *block = Find(handle);
  if (!block) return nullptr;
  // Growing may move the block, which a lock holder would not expect.
  if (block->locks > 0 && bytes > block->size && !(flags & GMEM_MOVEABLE)) return nullptr;
  if (bytes == 0) {
    if (block->locks > 0) return nullptr;
    Release(block->data, block->mapped);
    *block = MovableBlock{nullptr, 0, 0, 0, ++gLastSerial};
    return block;
  }
  if (!Resize(block, bytes, flags & GMEM_ZEROINIT)) return nullptr;
  block->serial = ++gLastSerial;
  return block;
}

HGLOBAL GlobalFree(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  MovableBlock *block = Find(handle);
  if (!block) return handle;
  Live().erase(block);
  Release(block->data, block->mapped);
  std::free(block);
  return nullptr;
}

size_t GlobalSize(HGLOBAL handle) {
  return FieldOf(handle, &MovableBlock::size);
}

uint32_t GlobalLockCount(HGLOBAL handle) {
  return FieldOf(handle, &MovableBlock::locks);
}

uint64_t GlobalSerial(HGLOBAL handle) {
  return FieldOf(handle, &MovableBlock::serial);
}

void GlobalTouch(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  if (MovableBlock *block = Find(handle)) block->serial = ++gLastSerial;
}

// Handles are kept in a set of live blocks, so that a stale or foreign handle
// is refused instead of being dereferenced: a photo's handle passes through
// many hands (copies of a picture, the editing view, camera transfers).
#include "platform/movable.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_set>

struct MovableBlock {
  uint8_t *data;
  size_t size;
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

}  // namespace

HGLOBAL GlobalAlloc(uint32_t flags, size_t bytes) {
  auto *block = static_cast<MovableBlock *>(std::malloc(sizeof(MovableBlock)));
  uint8_t *data = nullptr;
  if (bytes > 0)
    data = static_cast<uint8_t *>((flags & GMEM_ZEROINIT) ? std::calloc(bytes, 1)
                                                          : std::malloc(bytes));
  if (!block || (bytes > 0 && !data)) {
    std::free(block);
    std::free(data);
    return nullptr;
  }
  std::lock_guard<std::mutex> guard(gMutex);
  *block = MovableBlock{data, bytes, 0, ++gLastSerial};
  try {
    Live().insert(block);
  } catch (const std::bad_alloc &) {
    std::free(data);
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
    std::free(block->data);
    *block = MovableBlock{nullptr, 0, 0, ++gLastSerial};
    return block;
  }
  uint8_t *data;
  if ((flags & GMEM_ZEROINIT) && bytes > 2 * block->size) {
    // Growing a lot: fresh zeroed memory (whole pages come zeroed from the
    // system) and a copy of the old bytes cost less than zeroing the grown
    // part by hand; a photo's block grows from its header this way.
    data = static_cast<uint8_t *>(std::calloc(bytes, 1));
    if (!data) return nullptr;
    if (block->size) std::memcpy(data, block->data, block->size);
    std::free(block->data);
  } else {
    data = static_cast<uint8_t *>(std::realloc(block->data, bytes));
    if (!data) return nullptr;
    if ((flags & GMEM_ZEROINIT) && bytes > block->size)
      std::memset(data + block->size, 0, bytes - block->size);
  }
  block->data = data;
  block->size = bytes;
  block->serial = ++gLastSerial;
  return block;
}

HGLOBAL GlobalFree(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  MovableBlock *block = Find(handle);
  if (!block) return handle;
  Live().erase(block);
  std::free(block->data);
  std::free(block);
  return nullptr;
}

size_t GlobalSize(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  const MovableBlock *block = Find(handle);
  return block ? block->size : 0;
}

uint32_t GlobalLockCount(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  const MovableBlock *block = Find(handle);
  return block ? block->locks : 0;
}

uint64_t GlobalSerial(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  const MovableBlock *block = Find(handle);
  return block ? block->serial : 0;
}

void GlobalTouch(HGLOBAL handle) {
  std::lock_guard<std::mutex> guard(gMutex);
  if (MovableBlock *block = Find(handle)) block->serial = ++gLastSerial;
}

// The reference counts behind CDib: a small hash map from handle to count with
// 17 buckets and entries carved from blocks of ten. It exists only while it
// holds something: the bucket array appears with the first entry and goes,
// with every block of entries, when the last one is removed. Used from the
// user-interface thread only.
#include <cstdint>
#include <cstdlib>

#include "photo/dib.h"
#include "photo/dibpreview.h"

namespace {

constexpr uint32_t kBuckets = 17;
constexpr int kEntriesPerBlock = 10;

struct Entry {
  Entry *next;
  HGLOBAL handle;
  int32_t count;
};

struct EntryBlock {
  EntryBlock *next;
  Entry entries[kEntriesPerBlock];
};

class RefTable {
 public:
  constexpr RefTable() = default;
  RefTable(const RefTable &) = delete;
  RefTable &operator=(const RefTable &) = delete;
  ~RefTable() { RemoveAll(); }

  Entry *Find(HGLOBAL handle) const {
    if (!buckets_) return nullptr;
    for (Entry *e = buckets_[Hash(handle)]; e; e = e->next)
      if (e->handle == handle) return e;
    return nullptr;
  }

  // A new entry with count 0, or null when memory runs out.
  Entry *Insert(HGLOBAL handle) {
    if (!buckets_) {
      buckets_ = static_cast<Entry **>(std::calloc(kBuckets, sizeof(Entry *)));
      if (!buckets_) return nullptr;
    }
    if (!free_ && !Grow()) return nullptr;
    Entry *e = free_;
    free_ = e->next;
    const uint32_t at = Hash(handle);
    *e = Entry{buckets_[at], handle, 0};
    buckets_[at] = e;
    ++entries_;
    return e;
  }

  void Remove(HGLOBAL handle) {
    if (!buckets_) return;
    for (Entry **link = &buckets_[Hash(handle)]; *link; link = &(*link)->next) {
      if ((*link)->handle != handle) continue;
      Entry *gone = *link;
      *link = gone->next;
      gone->next = free_;
      free_ = gone;
      if (--entries_ == 0) RemoveAll();
      return;
    }
  }

  int entries() const { return entries_; }
  bool allocated() const { return buckets_ != nullptr; }

 private:
  static uint32_t Hash(HGLOBAL handle) {
    return static_cast<uint32_t>((reinterpret_cast<uintptr_t>(handle) >> 4) % kBuckets);
  }

  bool Grow() {
    auto *block = static_cast<EntryBlock *>(std::malloc(sizeof(EntryBlock)));
    if (!block) return false;
    block->next = blocks_;
    blocks_ = block;
    for (Entry &e : block->entries) {
      e.next = free_;
      free_ = &e;
    }
    return true;
  }

  void RemoveAll() {
    std::free(buckets_);
    buckets_ = nullptr;
    while (blocks_) {
      EntryBlock *next = blocks_->next;
      std::free(blocks_);
      blocks_ = next;
    }
    free_ = nullptr;
    entries_ = 0;
  }

  Entry **buckets_ = nullptr;
  EntryBlock *blocks_ = nullptr;
  Entry *free_ = nullptr;
  int entries_ = 0;
};

// Constant-initialised, so it is ready before any other static object and
// empty again when the program ends.
constinit RefTable gRefs;

void FreeBlock(HGLOBAL handle) {
  DibForgetPreviews(handle);
  GlobalFree(handle);
}

}  // namespace

void DibAddRef(HGLOBAL handle) {
  if (!handle) return;
  Entry *e = gRefs.Find(handle);
  if (!e) e = gRefs.Insert(handle);
  if (e) ++e->count;
}

void DibRelease(HGLOBAL handle) {
  if (!handle) return;
  Entry *e = gRefs.Find(handle);
  if (!e) {
    FreeBlock(handle);
  } else if (e->count > 1) {
    --e->count;
  } else {
    gRefs.Remove(handle);
    FreeBlock(handle);
  }
}

int32_t DibRefCount(HGLOBAL handle) {
  const Entry *e = gRefs.Find(handle);
  return e ? e->count : 0;
}

int DibRefEntries() {
  return gRefs.entries();
}
bool DibRefTableAllocated() {
  return gRefs.allocated();
}

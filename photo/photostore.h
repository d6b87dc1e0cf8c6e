// The work area's pixels under a memory budget. A photo that equals its file
// (opened and not edited since, or just saved) needs only its path: its
// pixels are decoded when asked for and dropped, least recently used first,
// when the budget is exceeded. A photo whose pixels exist nowhere else (a kept
// edit, a camera download) is never dropped: under pressure it goes to a
// private spill file and is read back, byte for byte, when asked for; it
// leaves behind a small picture for the thumbnail grid, so that showing the
// work area never reads it back.
#pragma once

#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "photo/cellpicture.h"
#include "photo/dib.h"

// Reads the photo file at `path` exactly as opening it does (every colour
// model to 24-bit RGB, turned upright by its orientation tag, its metadata
// remembered under the path). Null when no reader takes it or memory runs
// out; `*resolution`, when asked for, gets its pixels per inch.
HGLOBAL ReadPhotoFile(const QString &path, float *resolution = nullptr);

class PhotoStore {
 public:
  using Reader = std::function<HGLOBAL(const QString &path)>;

  static constexpr size_t kDefaultBudgetMB = 512;
  // $KORVEL_MEMORY_BUDGET_MB, else the setting memory/budgetMB, else 512, in
  // bytes.
  static size_t ConfiguredBudget();

  // Spill files go in `spillFolder`, or in $XDG_RUNTIME_DIR when none can be
  // made there. `reader` decodes file-backed entries (ReadPhotoFile).
  PhotoStore(size_t budgetBytes, const QString &spillFolder, Reader reader = {});
  ~PhotoStore();  // removes every spill file
  PhotoStore(const PhotoStore &) = delete;
  PhotoStore &operator=(const PhotoStore &) = delete;

  int Count() const { return static_cast<int>(entries_.size()); }
  // An entry whose pixels are those of the file at `path`; `decoded`, when
  // given, is what reading it gave and serves until the budget needs it.
  void AddFile(const QString &path, const CDib &decoded = CDib());
  // An entry whose pixels exist only here.
  void AddPixels(const CDib &image);
  // The entry now holds `image`, which exists only here.
  void SetPixels(int index, const CDib &image);
  // The entry's pixels were written to `path` and are read from there once
  // the budget has dropped `image`.
  void SetFile(int index, const QString &path, const CDib &image);
  void Remove(int index);

  // The entry's pixels, decoded or read back when they are not in memory;
  // the entry becomes the most recently used and is never the one dropped to
  // make room for itself. An empty picture outside the store or when its file
  // can no longer be read.
  CDib At(int index);

  // For inspection.
  size_t Budget() const { return budget_; }
  size_t ResidentBytes() const;
  bool Resident(int index) const;
  bool FileBacked(int index) const;
  QString SpillPath(int index) const;  // empty when the entry has none

  // The grid's picture of a spilled entry's pixels, made before they left
  // memory; null when there is none or it no longer shows what the entry
  // holds. It goes with the spill file: new pixels or a file outdate both.
  const CellPicture *KeptPicture(int index) const;
  size_t KeptPictureBytes() const;

 private:
  struct Entry {
    QString file;         // what the pixels equal; empty when they exist only here
    CDib pixels;          // in memory, or empty
    uint64_t serial = 0;  // the block's serial when it was known to equal `file` or `spill`
    QString spill;        // a copy of unsaved pixels, valid while `serial` holds
    std::optional<CellPicture> picture;  // of what `spill` holds
    uint64_t lastUse = 0;
  };

  bool Valid(int index) const { return index >= 0 && index < Count(); }
  void Touch(Entry &entry) { entry.lastUse = ++clock_; }
  // The pixels still equal what `file` or `spill` holds: nobody rewrote the
  // block in place since.
  static bool Unchanged(const Entry &entry);
  void DropSpill(Entry &entry);
  // Frees memory from least recently used entries other than `keep` until
  // the budget holds or nothing more can go.
  void Trim(int keep);
  // Lets the entry's pixels go, spilling them first when they exist nowhere
  // else. False when they had to stay (the spill file could not be written).
  bool Evict(Entry &entry);
  bool WriteSpill(Entry &entry);
  CDib ReadSpill(const Entry &entry) const;

  size_t budget_;
  QString spillFolder_;
  Reader reader_;
  std::vector<Entry> entries_;
  uint64_t clock_ = 0;
};

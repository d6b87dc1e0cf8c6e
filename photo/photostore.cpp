// The work area's pixels under a memory budget, with decoding on demand for
// photos that equal their files and spill files for those that do not.
#include "photo/photostore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <QSet>
#include <algorithm>
#include <cerrno>
#include <limits>
#include <mutex>

#include "photo/dibraster.h"
#include "photo/photofiles.h"
#include "photo/photometa.h"
#include "photo/settings.h"
#include "photo/spillfiles.h"
#include "raster/ras.h"

namespace {

// The raster file and its scanline frame, let go on every way out.
class OpenRaster {
 public:
  OpenRaster() = default;
  OpenRaster(const OpenRaster &) = delete;
  OpenRaster &operator=(const OpenRaster &) = delete;
  ~OpenRaster() {
    if (frame_) RasFreeSl(&sl_);
    if (open_) (void)RasClose(&desc_);
  }

  bool Open(const char *name) {
    if (RasGetInfo(name, &desc_) != RasOk) return false;
    open_ = RasOpen(name, 'r', &desc_) == RasOk;
    frame_ = open_ && RasMakeSl(&sl_, &desc_) == RasOk;
    return frame_;
  }
  HGLOBAL Rows() {
    int code = RasOk;
    return DibFromScanlines(&desc_, &sl_, &code);
  }
  float Resolution() const { return desc_.resolution; }

 private:
  RasDesc desc_{};
  RasSl sl_{};
  bool open_ = false;
  bool frame_ = false;
};

size_t BytesOf(const CDib &image) {
  return image.Handle() ? GlobalSize(image.Handle()) : 0;
}

// Moves all `size` bytes through `transfer` (read or write on `fd`), riding
// out short transfers and signals; false at an error or an early end.
template <class Byte, class Transfer>
bool Whole(Transfer transfer, int fd, Byte *bytes, size_t size) {
  while (size > 0) {
    const ssize_t done = transfer(fd, bytes, size);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    bytes += done;
    size -= static_cast<size_t>(done);
  }
  return true;
}

// Each folder is swept once a process: the files of sessions that ended
// without cleaning up are no use to anyone and only fill the disk.
void SweepOnce(const QString &folder) {
  static std::mutex mutex;
  static QSet<QString> swept;
  const std::lock_guard<std::mutex> guard(mutex);
  if (folder.isEmpty() || swept.contains(folder)) return;
  swept.insert(folder);
  (void)RemoveOrphanSpills(folder);
}

}  // namespace

PhotoFileRead ReadPhotoFileApart(const QString &path) {
  PhotoFileRead read;
  OpenRaster file;
  if (!file.Open(QFile::encodeName(path).constData())) return read;
  read.handle = file.Rows();
  if (read.handle) read.handle = UprightOpenedPhoto(read.handle, path, &read.kept);
  if (read.handle) read.resolution = file.Resolution();
  return read;
}

HGLOBAL ReadPhotoFile(const QString &path, float *resolution) {
  PhotoFileRead read = ReadPhotoFileApart(path);
  if (!read.handle) return nullptr;
  KeepOpenedMeta(path, std::move(read.kept));
  if (resolution) *resolution = read.resolution;
  return read.handle;
}

size_t PhotoStore::ConfiguredBudget() {
  bool ok = false;
  qulonglong megabytes = qEnvironmentVariable("KORVEL_MEMORY_BUDGET_MB").toULongLong(&ok);
  if (!ok)
    megabytes =
        KorvelSettings()->value("memory/budgetMB", qulonglong(kDefaultBudgetMB)).toULongLong(&ok);
  if (!ok) megabytes = kDefaultBudgetMB;
  constexpr qulonglong kMost = std::numeric_limits<size_t>::max() >> 20;
  return static_cast<size_t>(std::min(megabytes, kMost)) << 20;
}

PhotoStore::PhotoStore(size_t budgetBytes, const QString &spillFolder, Reader reader)
    : budget_(budgetBytes), spillFolder_(spillFolder), reader_(std::move(reader)) {
  if (!reader_) reader_ = [](const QString &path) { return ReadPhotoFile(path); };
  SweepOnce(spillFolder_);
  SweepOnce(qEnvironmentVariable("XDG_RUNTIME_DIR"));
}

PhotoStore::~PhotoStore() {
  for (Entry &entry : entries_)
    DropSpill(entry);
}

void PhotoStore::AddFile(const QString &path, const CDib &decoded) {
  entries_.push_back(Entry{});
  SetFile(Count() - 1, path, decoded);
}

void PhotoStore::AddPixels(const CDib &image) {
  entries_.push_back(Entry{});
  SetPixels(Count() - 1, image);
}

void PhotoStore::SetPixels(int index, const CDib &image) {
  if (!Valid(index)) return;
  Entry &entry = entries_[static_cast<size_t>(index)];
  // Putting back the very block that was spilled, unchanged (a download
  // renamed after its save), keeps the spill file; anything else outdates it.
  const bool same = image.Handle() && image.Handle() == entry.pixels.Handle() && Unchanged(entry);
  if (!same) DropSpill(entry);
  entry.file.clear();
  entry.pixels = image;
  Touch(entry);
  Trim(index);
}

// A saved entry's pixels are only kept in memory until the budget needs
// them; after that the saved file is what the entry shows. For a lossless
// format that is the same picture; for JPEG it is the picture as written,
// which is what the user chose to keep and what reopening would show, so the
// exact pre-save pixels are not worth memory or a spill file.
void PhotoStore::SetFile(int index, const QString &path, const CDib &image) {
  if (!Valid(index)) return;
  Entry &entry = entries_[static_cast<size_t>(index)];
  DropSpill(entry);
  entry.file = path;
  entry.pixels = image;
  entry.serial = image.Handle() ? GlobalSerial(image.Handle()) : 0;
  Touch(entry);
  Trim(index);
}

void PhotoStore::Remove(int index) {
  if (!Valid(index)) return;
  DropSpill(entries_[static_cast<size_t>(index)]);
  entries_.erase(entries_.begin() + index);
}

CDib PhotoStore::At(int index) {
  if (!Valid(index)) return CDib();
  Entry &entry = entries_[static_cast<size_t>(index)];
  if (!entry.pixels.Handle()) {
    if (!entry.spill.isEmpty()) {
      entry.pixels = ReadSpill(entry);
    } else if (!entry.file.isEmpty()) {
      entry.pixels = CDib(reader_(entry.file));
    }
    entry.serial = entry.pixels.Handle() ? GlobalSerial(entry.pixels.Handle()) : 0;
  }
  Touch(entry);
  Trim(index);
  return entry.pixels;
}

size_t PhotoStore::ResidentBytes() const {
  size_t total = 0;
  for (const Entry &entry : entries_)
    total += BytesOf(entry.pixels);
  return total;
}

bool PhotoStore::Resident(int index) const {
  return Valid(index) && entries_[static_cast<size_t>(index)].pixels.Handle();
}

bool PhotoStore::FileBacked(int index) const {
  return Valid(index) && !entries_[static_cast<size_t>(index)].file.isEmpty();
}

QString PhotoStore::SpillPath(int index) const {
  return Valid(index) ? entries_[static_cast<size_t>(index)].spill : QString();
}

// Pixels rewritten in place since the spill no longer look like its picture.
const CellPicture *PhotoStore::KeptPicture(int index) const {
  if (!Valid(index)) return nullptr;
  const Entry &entry = entries_[static_cast<size_t>(index)];
  if (!entry.picture || (entry.pixels.Handle() && !Unchanged(entry))) return nullptr;
  return &*entry.picture;
}

size_t PhotoStore::KeptPictureBytes() const {
  size_t total = 0;
  for (const Entry &entry : entries_)
    if (entry.picture) total += static_cast<size_t>(entry.picture->image.sizeInBytes());
  return total;
}

bool PhotoStore::Unchanged(const Entry &entry) {
  return entry.pixels.Handle() && GlobalSerial(entry.pixels.Handle()) == entry.serial;
}

void PhotoStore::DropSpill(Entry &entry) {
  if (entry.spill.isEmpty()) return;
  (void)::unlink(QFile::encodeName(entry.spill).constData());
  entry.spill.clear();
  entry.picture.reset();
}

void PhotoStore::Trim(int keep) {
  size_t resident = ResidentBytes();
  std::vector<bool> stuck(entries_.size(), false);
  while (resident > budget_) {
    Entry *oldest = nullptr;
    size_t oldestIndex = 0;
    for (size_t i = 0; i < entries_.size(); ++i) {
      Entry &entry = entries_[i];
      if (static_cast<int>(i) == keep || stuck[i] || !entry.pixels.Handle()) continue;
      if (!oldest || entry.lastUse < oldest->lastUse) {
        oldest = &entry;
        oldestIndex = i;
      }
    }
    if (!oldest) return;
    const size_t bytes = BytesOf(oldest->pixels);
    if (Evict(*oldest))
      resident -= bytes;
    else
      stuck[oldestIndex] = true;
  }
}

bool PhotoStore::Evict(Entry &entry) {
  // A file-backed block someone rewrote in place no longer equals its file;
  // it is kept like any unsaved picture.
  if (!entry.file.isEmpty() && !Unchanged(entry)) entry.file.clear();
  const bool kept =
      !entry.file.isEmpty() || (Unchanged(entry) && !entry.spill.isEmpty()) || WriteSpill(entry);
  if (!kept) return false;
  // The grid's picture is made while the pixels are still here: once they
  // are gone, drawing the entry would mean reading all of them back.
  if (entry.file.isEmpty() && !entry.picture)
    entry.picture = MakeCellPicture(entry.pixels, CellPictureRatio());
  entry.pixels = CDib();
  return true;
}

bool PhotoStore::WriteSpill(Entry &entry) {
  DropSpill(entry);
  QString path;
  int fd = MakeSpillFile(spillFolder_, &path);
  if (fd < 0) fd = MakeSpillFile(qEnvironmentVariable("XDG_RUNTIME_DIR"), &path);
  if (fd < 0) return false;
  HGLOBAL handle = entry.pixels.Handle();
  const auto *bytes = static_cast<const uint8_t *>(GlobalLock(handle));
  bool written = bytes && Whole(::write, fd, bytes, GlobalSize(handle));
  GlobalUnlock(handle);
  written = (::close(fd) == 0) && written;
  if (!written) {
    (void)::unlink(QFile::encodeName(path).constData());
    return false;
  }
  entry.spill = path;
  entry.serial = GlobalSerial(handle);
  return true;
}

// The spill file's bytes in a new block. The file was written whole, so a
// size that differs means it was tampered with or cut short, and is refused.
CDib PhotoStore::ReadSpill(const Entry &entry) const {
  const int fd = ::open(QFile::encodeName(entry.spill).constData(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return CDib();
  struct stat info {};
  HGLOBAL block = nullptr;
  if (::fstat(fd, &info) == 0 && info.st_size > 0)
    block = GlobalAlloc(GMEM_MOVEABLE, static_cast<size_t>(info.st_size));
  auto *bytes = static_cast<uint8_t *>(GlobalLock(block));
  const bool read = bytes && Whole(::read, fd, bytes, static_cast<size_t>(info.st_size));
  if (block) GlobalUnlock(block);
  ::close(fd);
  if (!read) {
    if (block) GlobalFree(block);
    return CDib();
  }
  return CDib(block);
}

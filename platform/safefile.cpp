// Replacing a file by rename is atomic on POSIX file systems: a reader, or
// the user after a crash, sees either the old file or the whole new one. The
// fsync before the rename keeps a power cut from leaving the new name on
// empty blocks; the fsync of the folder afterwards makes the rename itself
// durable. Both protect a file being replaced: where no file stood, a power
// cut can cost only the new file, never one that was there, so Commit skips
// them (waiting for the disk is most of the time a large save takes).
#include "platform/safefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

// Room for ".XXXXXX" within the 255 bytes a file name may have.
constexpr size_t kLongestBase = 200;

std::string FolderOf(const std::string &path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string TempPatternFor(const std::string &target) {
  const size_t slash = target.rfind('/');
  const size_t start = slash == std::string::npos ? 0 : slash + 1;
  std::string pattern = target;
  if (target.size() - start > kLongestBase) pattern.resize(start + kLongestBase);
  return pattern + ".XXXXXX";
}

// The rights a file created by this process gets.
mode_t NewFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Best effort: the rename has happened whatever this says, and a folder that
// cannot be flushed (some network and FUSE file systems refuse) is no reason
// to tell the user the save failed.
void SyncFolder(const std::string &path) {
  const int fd = open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  (void)fsync(fd);
  close(fd);
}

// link() is refused by file systems without hard links (FAT on a memory
// card, some network shares) with one of these.
bool NoHardLinks(int error) {
  return error == EPERM || error == ENOTSUP || error == EOPNOTSUPP || error == EMLINK ||
         error == ENOSYS;
}

}  // namespace

ReplacingFile::ReplacingFile(const std::string &target, Mode mode) : target_(target) {
  if (target.empty()) {
    error_ = ENOENT;
    return;
  }
  mode_t rights = NewFileMode();
  struct stat st {};
  if (mode == kReplace && stat(target.c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode)) {
      direct_ = true;
      return;
    }
    existed_ = true;
    rights = st.st_mode & 07777;
    struct stat link {};
    if (lstat(target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
      if (char *real = realpath(target.c_str(), nullptr)) {
        target_ = real;
        std::free(real);
      }
    }
  }
  temp_ = TempPatternFor(target_);
  fd_ = mkostemp(temp_.data(), O_CLOEXEC);
  if (fd_ < 0) {
    error_ = errno;
    temp_.clear();
    return;
  }
  (void)fchmod(fd_, rights);
  // Only root may give a file away; for anyone else the file is simply theirs.
  if (existed_) (void)fchown(fd_, st.st_uid, st.st_gid);
}

ReplacingFile::~ReplacingFile() {
  Discard();
}

int ReplacingFile::Flush(bool sync) {
  int error = !sync || fsync(fd_) == 0 ? 0 : errno;
  if (close(fd_) != 0 && error == 0) error = errno;
  fd_ = -1;
  return error;
}

void ReplacingFile::Discard() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  if (!temp_.empty()) unlink(temp_.c_str());
  temp_.clear();
}

void ReplacingFile::StartWriteback() {
  // Only a hint: where the file system cannot take it, Commit flushes all.
  if (fd_ >= 0 && existed_) (void)sync_file_range(fd_, 0, 0, SYNC_FILE_RANGE_WRITE);
}

int ReplacingFile::Commit() {
  if (direct_) return 0;
  if (temp_.empty()) return error_ ? error_ : EBADF;
  int error = fd_ >= 0 ? Flush(existed_) : 0;
  if (error == 0 && std::rename(temp_.c_str(), target_.c_str()) != 0) error = errno;
  if (error != 0) {
    Discard();
    return error;
  }
  temp_.clear();
  if (existed_) SyncFolder(target_);
  return 0;
}

int ReplacingFile::CommitNew(const std::string &name) {
  if (temp_.empty()) return error_ ? error_ : EBADF;
  if (fd_ >= 0) {
    if (const int error = Flush(true)) return error;
  }
  // link() never replaces and never follows a link standing at the name.
  if (link(temp_.c_str(), name.c_str()) == 0) {
    unlink(temp_.c_str());
  } else {
    const int error = errno;
    if (!NoHardLinks(error)) return error;
    // Hold the name with an empty file of our own, then move the contents
    // over it: the same guarantee, in two steps.
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    close(fd);
    if (std::rename(temp_.c_str(), name.c_str()) != 0) {
      const int failed = errno;
      unlink(name.c_str());
      return failed;
    }
  }
  temp_.clear();
  SyncFolder(name);
  return 0;
}

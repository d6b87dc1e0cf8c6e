#include "photo/spillfiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace {

constexpr char kSpillPrefix[] = "korvel-pixels-";
constexpr char kLockPrefix[] = ".korvel-pixels-";
constexpr char kLockSuffix[] = ".lock";

QByteArray FolderBytes(const QString &folder) {
  QByteArray bytes = QFile::encodeName(folder);
  if (!bytes.endsWith('/')) bytes += '/';
  return bytes;
}

QByteArray LockName(const QByteArray &folder, long pid) {
  return folder + kLockPrefix + QByteArray::number(static_cast<qlonglong>(pid)) + kLockSuffix;
}

// Whether `fd` still is the file called `name`: a sweep may have removed the
// name between our open and our lock.
bool StillAt(int fd, const char *name) {
  struct stat open {
  }, named{};
  return ::fstat(fd, &open) == 0 && ::stat(name, &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

// This session's lock in `folder`, taken at the first spill there and held
// (its descriptor never closed) until the process ends.
bool HoldSessionLock(const QByteArray &folder) {
  static std::mutex mutex;
  static std::map<QByteArray, int> held;
  const std::lock_guard<std::mutex> guard(mutex);
  if (held.count(folder)) return true;
  const QByteArray name = LockName(folder, ::getpid());
  // A lock file left by an earlier process with this id may be held for a
  // moment by a sweep that is removing it: try again shortly.
  for (int attempt = 0; attempt < 20; ++attempt) {
    const int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return false;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && StillAt(fd, name.constData())) {
      held.emplace(folder, fd);
      return true;
    }
    ::close(fd);
    ::usleep(1000);
  }
  return false;
}

// The process id in "korvel-pixels-PID-XXXXXX" or ".korvel-pixels-PID.lock",
// or -1 for any other name (also the unnumbered spill files of before).
long OwnerOf(const char *name, bool *lock) {
  const char *digits = nullptr;
  const char *end = nullptr;
  if (std::strncmp(name, kSpillPrefix, sizeof kSpillPrefix - 1) == 0) {
    digits = name + sizeof kSpillPrefix - 1;
    *lock = false;
  } else if (std::strncmp(name, kLockPrefix, sizeof kLockPrefix - 1) == 0) {
    digits = name + sizeof kLockPrefix - 1;
    *lock = true;
  } else {
    return -1;
  }
  long pid = 0;
  for (end = digits; *end >= '0' && *end <= '9' && end - digits < 10; ++end)
    pid = pid * 10 + (*end - '0');
  if (end == digits) return -1;
  const bool whole =
      *lock ? std::strcmp(end, kLockSuffix) == 0 : end[0] == '-' && std::strlen(end + 1) == 6;
  return whole ? pid : -1;
}

// This user's own regular file: anything else under the name is left alone.
bool Ours(const QByteArray &path) {
  struct stat info {};
  return ::lstat(path.constData(), &info) == 0 && S_ISREG(info.st_mode) &&
         info.st_uid == ::getuid();
}

}  // namespace

int MakeSpillFile(const QString &folder, QString *path) {
  if (folder.isEmpty()) return -1;
  const QByteArray base = FolderBytes(folder);
  if (!HoldSessionLock(base)) return -1;
  QByteArray name =
      base + kSpillPrefix + QByteArray::number(static_cast<qlonglong>(::getpid())) + "-XXXXXX";
  // mkstemp creates the file 0600 and never opens one that is already there.
  const int fd = ::mkstemp(name.data());
  if (fd >= 0) *path = QFile::decodeName(name);
  return fd;
}

int RemoveOrphanSpills(const QString &folder) {
  if (folder.isEmpty()) return 0;
  const QByteArray base = FolderBytes(folder);
  std::map<long, std::vector<QByteArray>> spills;  // by owner; locks appear with none
  DIR *dir = ::opendir(base.constData());
  if (!dir) return 0;
  while (const dirent *entry = ::readdir(dir)) {
    bool lock = false;
    const long pid = OwnerOf(entry->d_name, &lock);
    if (pid < 0) continue;
    std::vector<QByteArray> &names = spills[pid];
    if (!lock) names.push_back(base + entry->d_name);
  }
  ::closedir(dir);

  int removed = 0;
  for (const auto &[pid, names] : spills) {
    const QByteArray lockName = LockName(base, pid);
    const int fd = ::open(lockName.constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    // Held: that session runs (this one included, once it has spilled here).
    if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      ::close(fd);
      continue;
    }
    // A session takes its lock before its first spill, so spill files with
    // no lock file beside them have outlived their session too.
    for (const QByteArray &name : names) {
      if (Ours(name) && ::unlink(name.constData()) == 0) ++removed;
    }
    if (fd >= 0) {
      if (StillAt(fd, lockName.constData()) && Ours(lockName)) ::unlink(lockName.constData());
      ::close(fd);
    }
  }
  return removed;
}

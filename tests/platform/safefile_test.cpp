// Files replaced whole or not at all. New files (CommitNew) are tried where
// the application makes them, in tests/app/photofiles_test.cpp.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/safefile.h"

// Every fsync the library makes, counted: this definition stands in front of
// the C library's for the whole test program.
int gFsyncs = 0;
extern "C" int fsync(int fd) {
  ++gFsyncs;
  return static_cast<int>(syscall(SYS_fsync, fd));
}

// And every request to start writing back, likewise.
int gWritebacks = 0;
extern "C" int sync_file_range(int fd, off_t offset, off_t count, unsigned int flags) {
  ++gWritebacks;
  return static_cast<int>(syscall(SYS_sync_file_range, fd, offset, count, flags));
}

namespace {

struct Folder {
  std::string path;
  Folder() {
    char pattern[] = "/tmp/safefile.XXXXXX";
    path = mkdtemp(pattern);
  }
  ~Folder() { (void)std::system(("rm -rf '" + path + "'").c_str()); }
  std::string operator/(const std::string &name) const { return path + '/' + name; }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    if (DIR *dir = opendir(path.c_str())) {
      while (const dirent *e = readdir(dir))
        if (e->d_name[0] != '.') names.emplace_back(e->d_name);
      closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

void Put(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}
std::string Get(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
mode_t ModeOf(const std::string &path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(SafeFile, ReplacesWholeOnlyOnCommit) {
  Folder d;
  Put(d / "photo.jpg", "original");
  ASSERT_EQ(chmod((d / "photo.jpg").c_str(), 0640), 0);
  {
    ReplacingFile abandoned(d / "photo.jpg");
    ASSERT_EQ(abandoned.error(), 0);
    EXPECT_TRUE(abandoned.replacing());
    EXPECT_EQ(abandoned.path().rfind(d / "photo.jpg.", 0), 0u) << abandoned.path();
    Put(abandoned.path(), "half");
    EXPECT_EQ(Get(d / "photo.jpg"), "original");
  }
  EXPECT_EQ(d.Names(), std::vector<std::string>{"photo.jpg"});
  ReplacingFile file(d / "photo.jpg");
  Put(file.path(), "new contents");
  gFsyncs = gWritebacks = 0;
  file.StartWriteback();  // the contents start on their way; nothing else changes
  EXPECT_EQ(gWritebacks, 1);
  EXPECT_EQ(Get(d / "photo.jpg"), "original");
  EXPECT_EQ(file.Commit(), 0);
  EXPECT_EQ(gFsyncs, 2);  // the file, then the folder
  EXPECT_EQ(Get(d / "photo.jpg"), "new contents");
  EXPECT_EQ(ModeOf(d / "photo.jpg"), 0640u);
  EXPECT_EQ(d.Names(), std::vector<std::string>{"photo.jpg"});

  // Through a link the file it names is replaced and the link stays.
  ASSERT_EQ(mkdir((d / "real").c_str(), 0755), 0);
  Put(d / "real/p.bmp", "old");
  ASSERT_EQ(symlink("real/p.bmp", (d / "link.bmp").c_str()), 0);
  ReplacingFile linked(d / "link.bmp");
  Put(linked.path(), "via link");
  EXPECT_EQ(linked.Commit(), 0);
  EXPECT_EQ(Get(d / "real/p.bmp"), "via link");
  char target[64] = {};
  EXPECT_EQ(readlink((d / "link.bmp").c_str(), target, sizeof target - 1), 10);
  EXPECT_STREQ(target, "real/p.bmp");

  // Where nothing stood, nothing on the disk is at risk: no wait for it.
  ReplacingFile fresh(d / "new.jpg");
  EXPECT_FALSE(fresh.replacing());
  Put(fresh.path(), "fresh");
  gFsyncs = gWritebacks = 0;
  fresh.StartWriteback();
  EXPECT_EQ(fresh.Commit(), 0);
  EXPECT_EQ(gFsyncs, 0);
  EXPECT_EQ(gWritebacks, 0);
  EXPECT_EQ(Get(d / "new.jpg"), "fresh");
  EXPECT_EQ(d.Names(), (std::vector<std::string>{"link.bmp", "new.jpg", "photo.jpg", "real"}));

  // What cannot be made or replaced.
  EXPECT_EQ(ReplacingFile(d / "missing/p.jpg").error(), ENOENT);
  EXPECT_EQ(ReplacingFile("").error(), ENOENT);
  ReplacingFile device("/dev/null");
  EXPECT_EQ(device.path(), "/dev/null");
  EXPECT_FALSE(device.replacing());
  EXPECT_EQ(device.Commit(), 0);
}

}  // namespace

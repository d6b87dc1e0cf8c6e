// korvel-raster against what must not cost a user a photo or a disk: pictures
// declaring more pixels than the limit, a disk that fills up, and a
// conversion stopped by a signal.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

extern char **environ;

namespace {

using namespace testutil;

// Files in the temporary folder whose names begin with `path`'s, itself
// included: an output and any OUT.XXXXXX left beside it.
int FilesNamedLike(const std::string &path) {
  const std::filesystem::path p(path);
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator(p.parent_path()))
    count += entry.path().filename().string().rfind(p.filename().string(), 0) == 0;
  return count;
}

// Sets an environment variable for as long as it lives.
struct Env {
  Env(const char *name, const char *value) : name(name) { setenv(name, value, 1); }
  ~Env() { unsetenv(name); }
  const char *name;
};

TEST(ToolSafety, PicturesBeyondThePixelLimitAreRefusedWithAClearMessage) {
  // A BMP header declaring 30000 x 30000 over a 5 x 3 picture's bytes.
  const std::string small = TempPath("limit.bmp"), big = TempPath("huge.bmp");
  ASSERT_EQ(WritePicture(small, RasFormatBmp, RasModelRgb, Pattern(5, 3, 3)), RasOk);
  Bytes forged = ReadFile(small);
  PutField(forged, 18, 30000, 4);
  PutField(forged, 22, 30000, 4);
  WriteFile(big, forged);
  const std::string reason = "more than 500000000 pixels (KORVEL_MAX_PIXELS sets the limit)";
  ToolResult r = RunTool("info " + big);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, big + ": error -9 " + reason + "\n");
  const std::string out = TempPath("huge_out.jpg");
  for (const std::string &command :
       {"convert " + big + " " + out, "rotate left " + big + " " + out}) {
    r = RunTool(command);
    EXPECT_EQ(r.status, 1) << command;
    EXPECT_EQ(r.out,
              "korvel-raster: " + big + ": not a readable photo: " + reason + " (code -9)\n");
  }
  EXPECT_EQ(FilesNamedLike(out), 0);
  // The limit from the environment, when it is a positive whole number.
  const std::pair<const char *, const char *> limits[] = {
      {"14", ": error -9 more than 14 pixels (KORVEL_MAX_PIXELS sets the limit)\n"},
      {"15", ": bmp 5x3 channels=3 model=1 maxval=255 resolution=72.009\n"},
      {"14 pixels", ": bmp 5x3"},
      {"0", ": bmp 5x3"},
      {"-3", ": bmp 5x3"}};
  for (const auto &[limit, expected] : limits) {
    Env env("KORVEL_MAX_PIXELS", limit);
    EXPECT_EQ(RunTool("info " + small).out.rfind(small + expected, 0), 0u) << limit;
  }
}

TEST(ToolSafety, AFullDiskIsReportedAsAFailedWriteAndLeavesNothingBehind) {
  // Files of this process and its children may not grow past 4 KiB: writing
  // beyond fails as on a full disk.
  const std::string in = TempPath("full_in.bmp");
  ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, Pattern(64, 64, 3)), RasOk);
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  const auto xfsz = std::signal(SIGXFSZ, SIG_IGN);
  // The JPEG file is short enough to fail only when its last bytes go out.
  const std::pair<const char *, const char *> cases[] = {{"full.jpg", "cannot finish"},
                                                         {"full.bmp", "cannot write a row"},
                                                         {"full.tif", "cannot write a row"}};
  for (const auto &[name, what] : cases) {
    const std::string out = TempPath(name);
    rlimit small = saved;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const ToolResult r = RunTool("convert " + in + " " + out);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_EQ(r.out,
              "korvel-raster: " + out + ": " + what + ": write failed or was short (code -6)\n");
    EXPECT_EQ(FilesNamedLike(out), 0) << name;
  }
  std::signal(SIGXFSZ, xfsz);
}

TEST(ToolSafety, AConversionEndedByASignalRemovesItsTemporaryFile) {
  // The input's rows stop short, so the conversion fails after its output
  // file is made; it then reports to a log that is a pipe nobody reads, and
  // waits there for the signal.
  const std::string in = TempPath("cut.bmp"), fifo = TempPath("log.fifo");
  ASSERT_EQ(WritePicture(in, RasFormatBmp, RasModelRgb, Pattern(64, 64, 3)), RasOk);
  Bytes bytes = ReadFile(in);
  bytes.resize(bytes.size() / 2);
  WriteFile(in, bytes);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Env log("KORVEL_RAS_LOG", fifo.c_str());
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    const std::string out = TempPath("signal_" + std::to_string(signal) + ".jpg");
    const char *argv[] = {KORVEL_TOOL_PATH, "convert", in.c_str(), out.c_str(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(
        posix_spawn(&pid, KORVEL_TOOL_PATH, nullptr, nullptr, const_cast<char **>(argv), environ),
        0);
    for (int i = 0; i < 1000 && FilesNamedLike(out) == 0; ++i)
      usleep(10000);
    EXPECT_EQ(FilesNamedLike(out), 1);  // the temporary file
    kill(pid, signal);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_EQ(FilesNamedLike(out), 0);
  }
}

}  // namespace

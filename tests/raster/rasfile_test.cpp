// The file layer over memory blocks and disk files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "raster/core/rasfile.h"
#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

struct MemoryFile {
  std::vector<uint8_t> bytes;
  RasMemName name;
  RasFile file;
  MemoryFile(std::vector<uint8_t> content, int mode) : bytes(std::move(content)) {
    RasMakeMemName(&name, bytes.data(), bytes.size());
    EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), mode), RasOk);
  }
  MemoryFile(const std::string &text, int mode)
      : MemoryFile(std::vector<uint8_t>(text.begin(), text.end()), mode) {}
  ~MemoryFile() {
    if (file.kind != RasFileKindClosed) RasFileClose(&file);
  }
  int64_t Tell() {
    int64_t at = -1;
    EXPECT_EQ(RasFileTell(&file, &at), RasOk);
    return at;
  }
  int Read(int64_t wanted, int exact, int64_t got) {
    std::vector<uint8_t> buffer(wanted + 1);
    int64_t count = wanted;
    const int code = RasFileRead(&file, buffer.data(), &count, exact);
    EXPECT_EQ(count, got);
    return code;
  }
};

TEST(RasFile, NamesAndModesAreCheckedBeforeUse) {
  RasFile file;
  RasMemName name;
  uint8_t byte = 0;
  RasMakeMemName(&name, nullptr, 16);
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrArg);
  RasMakeMemName(&name, &byte, 0);
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrArg);
  RasMakeMemName(&name, &byte, 1);
  name.tag[1] = 'M';  // a form with no meaning here
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrPosition);
  EXPECT_EQ(RasFileOpen(&file, "x", 0), RasErrArg);
  EXPECT_EQ(RasFileOpen(&file, "x", 4), RasErrArg);
  EXPECT_EQ(RasFileOpen(&file, std::string(300, 'a').c_str(), RasFileModeRead), RasErrPosition);
  EXPECT_EQ(RasFileClose(&file), RasErrArg);  // never opened
}

TEST(RasFile, MemoryReadsStopAtTheCapacityAndFailOnlyWhenExactOrEmpty) {
  MemoryFile mem(std::string("0123456789"), RasFileModeRead);
  EXPECT_EQ(mem.Read(4, 1, 4), RasOk);
  EXPECT_EQ(mem.Read(16, 0, 6), RasOk);
  EXPECT_EQ(mem.Read(3, 0, 0), RasErrRead);  // nothing left
  ASSERT_EQ(RasFileSeek(&mem.file, 8, 0), RasOk);
  EXPECT_EQ(mem.Read(4, 1, 2), RasErrRead);
  EXPECT_EQ(mem.Read(0, 1, 0), RasOk);
  EXPECT_EQ(mem.Read(-1, 1, -1), RasErrArg);
}

TEST(RasFile, MemorySeeksStayInsideTheBlock) {
  MemoryFile mem(std::vector<uint8_t>(100), RasFileModeRead);
  // A read block ends at its capacity; refused seeks leave the position.
  const int64_t cases[][4] = {{40, 0, RasOk, 40},           {101, 0, RasErrPosition, 40},
                              {-41, 1, RasErrPosition, 40}, {-10, 1, RasOk, 30},
                              {-1, 2, RasOk, 99},           {1, 2, RasErrPosition, 99},
                              {0, 3, RasErrArg, 99}};
  for (const auto &[offset, whence, code, at] : cases) {
    SCOPED_TRACE(testing::Message() << offset << " from " << whence);
    EXPECT_EQ(RasFileSeek(&mem.file, offset, static_cast<int>(whence)), code);
    EXPECT_EQ(mem.Tell(), at);
  }
}

TEST(RasFile, MemoryWritesAreCutAtTheCapacityAndRaiseTheHighWaterMark) {
  MemoryFile mem(std::vector<uint8_t>(8), RasFileModeWrite);
  int64_t count = 5;
  ASSERT_EQ(RasFileWrite(&mem.file, "abcdef", &count), RasOk);
  EXPECT_EQ(RasFileSeek(&mem.file, 0, 2), RasOk);  // a write block ends at the mark
  EXPECT_EQ(mem.Tell(), 5);
  ASSERT_EQ(RasFileSeek(&mem.file, 7, 0), RasOk);  // seeking raises the mark too
  ASSERT_EQ(RasFileSeek(&mem.file, 0, 2), RasOk);
  EXPECT_EQ(mem.Tell(), 7);
  count = 6;
  EXPECT_EQ(RasFileWrite(&mem.file, "abcdef", &count), RasErrWrite);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(std::string(mem.bytes.begin(), mem.bytes.end()), std::string("abcde\0\0a", 8));
}

TEST(RasFile, TextWritesExpandLineFeedsAndLinesComeBackOneAtATime) {
  MemoryFile out(std::vector<uint8_t>(64), RasFileModeWrite);
  ASSERT_EQ(RasFileWriteText(&out.file, "abc\nde\n\nf"), RasOk);
  EXPECT_EQ(std::string(out.bytes.begin(), out.bytes.begin() + out.Tell()), "abc\r\nde\r\n\r\nf");
  MemoryFile in(std::string("abc\r\nde\r\n\r\nfghijkl"), RasFileModeRead);
  const std::tuple<int64_t, const char *, int64_t> lines[] = {
      {32, "abc\n", 5}, {32, "de\n", 9}, {32, "\n", 11}, {5, "fgh", 14}, {32, "ijkl", 18}};
  for (const auto &[wanted, text, position] : lines) {
    char buffer[32];
    int64_t size = wanted;
    ASSERT_EQ(RasFileReadLine(&in.file, buffer, &size), RasOk);
    EXPECT_STREQ(buffer, text);
    EXPECT_EQ(size, static_cast<int64_t>(std::strlen(text)));
    EXPECT_EQ(in.Tell(), position);
  }
  char buffer[8];
  int64_t size = sizeof buffer;
  EXPECT_EQ(RasFileReadLine(&in.file, buffer, &size), RasErrRead);
}

TEST(RasFile, OptionsAreLibraryWideWords) {
  int64_t saved[3], value = 0;
  ASSERT_EQ(RasFileGetOption(RasFileOptAll, saved), RasOk);
  const int64_t set[3] = {0, 65536, 1234};
  ASSERT_EQ(RasFileSetOption(RasFileOptAll, set), RasOk);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &value), RasOk);
  EXPECT_EQ(value, 1234);
  ASSERT_EQ(RasFileGetOption(RasFileOptBufferSize, &value), RasOk);
  EXPECT_EQ(value, 65536);
  ASSERT_EQ(RasFileSetOption(RasFileOptReset, nullptr), RasOk);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &value), RasOk);
  EXPECT_EQ(value, 0);
  const int64_t two = 2, on = 1;
  EXPECT_EQ(RasFileSetOption(RasFileOptMemoryOnly, &two), RasErrPosition);
  EXPECT_EQ(RasFileSetOption(5, &two), RasErrArg);
  EXPECT_EQ(RasFileGetOption(2, &value), RasErrArg);
  // With disk names refused, only memory blocks open.
  ASSERT_EQ(RasFileSetOption(RasFileOptMemoryOnly, &on), RasOk);
  RasFile file;
  EXPECT_EQ(RasFileOpen(&file, "/dev/null", RasFileModeRead), RasErrArg);
  EXPECT_EQ(MemoryFile(std::string("x"), RasFileModeRead).file.kind, RasFileKindMemory);
  ASSERT_EQ(RasFileSetOption(RasFileOptAll, saved), RasOk);
}

// Thumbnails are read on worker threads while the window reads and writes
// photos: a setting made on one thread must not change how another opens.
TEST(RasFile, OptionsBelongToTheThreadThatSetsThem) {
  int64_t saved[3];
  ASSERT_EQ(RasFileGetOption(RasFileOptAll, saved), RasOk);
  const int64_t on = 1;
  ASSERT_EQ(RasFileSetOption(RasFileOptMemoryOnly, &on), RasOk);
  int64_t elsewhere = -1;
  int openedElsewhere = RasErrArg;
  std::thread worker([&] {
    EXPECT_EQ(RasFileGetOption(RasFileOptMemoryOnly, &elsewhere), RasOk);
    RasFile file;
    openedElsewhere = RasFileOpen(&file, "/dev/null", RasFileModeRead);
    if (openedElsewhere == RasOk) RasFileClose(&file);
  });
  worker.join();
  EXPECT_EQ(elsewhere, 0);
  EXPECT_EQ(openedElsewhere, RasOk);
  RasFile file;
  EXPECT_EQ(RasFileOpen(&file, "/dev/null", RasFileModeRead), RasErrArg);
  ASSERT_EQ(RasFileSetOption(RasFileOptAll, saved), RasOk);
}

TEST(RasFile, DiskFilesReadWriteSeekAndRemove) {
  const std::string path = testutil::TempPath("rasfile_disk.bin");
  RasFile file;
  ASSERT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeWrite), RasOk);
  int64_t count = 6;
  ASSERT_EQ(RasFileWrite(&file, "korvel", &count), RasOk);
  ASSERT_EQ(RasFileClose(&file), RasOk);
  ASSERT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeUpdate), RasOk);
  ASSERT_EQ(RasFileSeek(&file, -2, 2), RasOk);
  char buffer[8] = {};
  count = 8;
  ASSERT_EQ(RasFileRead(&file, buffer, &count, 0), RasOk);
  EXPECT_STREQ(buffer, "el");
  ASSERT_EQ(RasFileCloseRemove(&file), RasOk);
  EXPECT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeRead), RasErrOpen);
  EXPECT_EQ(RasFileRemove("\0m"), RasOk);  // a memory block is never removed
}

// A full disk, as /dev/full is one, fails every writer with -6, whether a row
// or the close finds it out. They write through a link to it, so a writer
// that removes what it could not finish removes only the link.
TEST(RasFile, EveryWriterReportsAFullDiskAsAFailedWrite) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "this system has no /dev/full";
  const std::string link = testutil::TempPath("full.out");
  const std::pair<uint32_t, uint32_t> writers[] = {
      {RasFormatTiff, RasModelRgb}, {RasFormatTarga, RasModelRgb}, {RasFormatScitex, RasModelRgb},
      {RasFormatEps, RasModelRgb},  {RasFormatDcs, RasModelCmyk},  {RasFormatBmp, RasModelRgb},
      {RasFormatJpeg, RasModelRgb}};
  for (const auto &[format, model] : writers) {
    SCOPED_TRACE(RasFormatName(format));
    (void)unlink(link.c_str());
    ASSERT_EQ(symlink("/dev/full", link.c_str()), 0);
    const uint32_t channels = model == RasModelCmyk ? 4 : 3;
    EXPECT_EQ(testutil::WritePicture(link, format, model, testutil::Pattern(64, 64, channels)),
              RasErrWrite);
  }
  for (const auto &[format, maxval] :
       {std::pair{RasFormatTiff16, 65535u}, {RasFormatCineon, 1023u}}) {
    SCOPED_TRACE(RasFormatName(format));
    EXPECT_EQ(testutil::WritePlanes16(link, format, RasModelRgb, 64, 64,
                                      testutil::Pattern16(64, 64, 3, maxval)),
              RasErrWrite);
  }
  (void)unlink(link.c_str());
}

}  // namespace

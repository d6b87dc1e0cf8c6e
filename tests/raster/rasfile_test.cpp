// The file layer over memory blocks and disk files.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "raster/ras.h"
#include "raster/rasfile.h"

namespace {

struct MemoryFile {
  std::vector<uint8_t> bytes;
  RasMemName name;
  RasFile file;
  MemoryFile(size_t capacity, int mode) : MemoryFile(std::vector<uint8_t>(capacity), mode) {}
  MemoryFile(std::vector<uint8_t> content, int mode) : bytes(std::move(content)) {
    RasMakeMemName(&name, bytes.data(), bytes.size());
    EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), mode), RasOk);
  }
  ~MemoryFile() {
    if (file.kind != RasFileKindClosed) RasFileClose(&file);
  }
};

int64_t Tell(RasFile *file) {
  int64_t at = -1;
  EXPECT_EQ(RasFileTell(file, &at), RasOk);
  return at;
}

TEST(RasFile, MemoryBlockNamesAreCheckedBeforeUse) {
  RasFile file;
  RasMemName name;
  RasMakeMemName(&name, nullptr, 16);
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrArg);
  uint8_t byte = 0;
  RasMakeMemName(&name, &byte, 0);
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrArg);
  RasMakeMemName(&name, &byte, 1);
  name.tag[1] = 'M';
  EXPECT_EQ(RasFileOpen(&file, RasMemNameOf(name), RasFileModeRead), RasErrPosition);
  EXPECT_EQ(RasFileOpen(&file, "x", 0), RasErrArg);
  EXPECT_EQ(RasFileOpen(&file, "x", 4), RasErrArg);
  EXPECT_EQ(RasFileOpen(nullptr, "x", 1), RasErrArg);
  EXPECT_EQ(RasFileClose(&file), RasErrArg);  // never opened
}

TEST(RasFile, ShortReadsStopAtTheCapacityAndFailOnlyWhenExact) {
  MemoryFile mem(10, RasFileModeRead);
  for (int i = 0; i < 10; ++i)
    mem.bytes[i] = static_cast<uint8_t>(i);
  uint8_t buffer[16] = {};
  int64_t count = 4;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 1), RasOk);
  EXPECT_EQ(count, 4);
  count = 16;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 0), RasOk);
  EXPECT_EQ(count, 6);
  EXPECT_EQ(buffer[0], 4);
  EXPECT_EQ(buffer[5], 9);
  count = 3;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 0), RasErrRead);  // nothing left
  EXPECT_EQ(count, 0);
  ASSERT_EQ(RasFileSeek(&mem.file, 8, 0), RasOk);
  count = 4;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 1), RasErrRead);
  EXPECT_EQ(count, 2);
  count = 0;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 1), RasOk);
  count = -1;
  EXPECT_EQ(RasFileRead(&mem.file, buffer, &count, 1), RasErrArg);
}

TEST(RasFile, MemorySeeksStayInsideTheBlock) {
  MemoryFile mem(100, RasFileModeRead);
  ASSERT_EQ(RasFileSeek(&mem.file, 40, 0), RasOk);
  EXPECT_EQ(RasFileSeek(&mem.file, 101, 0), RasErrPosition);
  EXPECT_EQ(Tell(&mem.file), 40);  // a refused seek leaves the position
  EXPECT_EQ(RasFileSeek(&mem.file, -41, 1), RasErrPosition);
  EXPECT_EQ(RasFileSeek(&mem.file, -10, 1), RasOk);
  EXPECT_EQ(Tell(&mem.file), 30);
  EXPECT_EQ(RasFileSeek(&mem.file, -1, 2), RasOk);  // read blocks end at the capacity
  EXPECT_EQ(Tell(&mem.file), 99);
  EXPECT_EQ(RasFileSeek(&mem.file, 1, 2), RasErrPosition);
  EXPECT_EQ(RasFileSeek(&mem.file, 100, 0), RasOk);
  EXPECT_EQ(RasFileSeek(&mem.file, 0, 3), RasErrArg);
}

TEST(RasFile, MemoryWritesAreCutAtTheCapacityAndRaiseTheHighWaterMark) {
  MemoryFile mem(8, RasFileModeWrite);
  const char text[] = "abcdef";
  int64_t count = 5;
  ASSERT_EQ(RasFileWrite(&mem.file, text, &count), RasOk);
  EXPECT_EQ(RasFileSeek(&mem.file, 0, 2), RasOk);  // a write block ends at the high-water mark
  EXPECT_EQ(Tell(&mem.file), 5);
  ASSERT_EQ(RasFileSeek(&mem.file, 7, 0), RasOk);  // seeking raises the mark too
  ASSERT_EQ(RasFileSeek(&mem.file, 0, 2), RasOk);
  EXPECT_EQ(Tell(&mem.file), 7);
  count = 6;
  EXPECT_EQ(RasFileWrite(&mem.file, text, &count), RasErrWrite);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(std::string(mem.bytes.begin(), mem.bytes.end()), std::string("abcde\0\0a", 8));
}

TEST(RasFile, TextWritesExpandLineFeedsAndLinesComeBackOneAtATime) {
  MemoryFile out(64, RasFileModeWrite);
  ASSERT_EQ(RasFileWriteText(&out.file, "abc\nde\n\nf"), RasOk);
  EXPECT_EQ(Tell(&out.file), 12);
  EXPECT_EQ(std::string(out.bytes.begin(), out.bytes.begin() + 12), "abc\r\nde\r\n\r\nf");

  MemoryFile in(std::vector<uint8_t>(out.bytes.begin(), out.bytes.begin() + 12), RasFileModeRead);
  const struct {
    const char *text;
    int64_t position;
  } lines[] = {{"abc\n", 5}, {"de\n", 9}, {"\n", 11}, {"f", 12}};
  for (const auto &line : lines) {
    char buffer[32];
    int64_t size = sizeof buffer;
    ASSERT_EQ(RasFileReadLine(&in.file, buffer, &size), RasOk);
    EXPECT_STREQ(buffer, line.text);
    EXPECT_EQ(size, static_cast<int64_t>(std::strlen(line.text)));
    EXPECT_EQ(Tell(&in.file), line.position);
  }
  char buffer[8];
  int64_t size = sizeof buffer;
  EXPECT_EQ(RasFileReadLine(&in.file, buffer, &size), RasErrRead);
}

TEST(RasFile, ReadLineTakesAtMostSizeLessTwoBytes) {
  const std::string text = "abcdefgh\r\nxy";
  MemoryFile in(std::vector<uint8_t>(text.begin(), text.end()), RasFileModeRead);
  char buffer[6];
  int64_t size = sizeof buffer;
  ASSERT_EQ(RasFileReadLine(&in.file, buffer, &size), RasOk);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(Tell(&in.file), 4);
}

TEST(RasFile, OptionsAreLibraryWideWords) {
  int64_t saved[3];
  ASSERT_EQ(RasFileGetOption(RasFileOptAll, saved), RasOk);
  const int64_t set[3] = {0, 65536, 1234};
  ASSERT_EQ(RasFileSetOption(RasFileOptAll, set), RasOk);
  int64_t value = 0;
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &value), RasOk);
  EXPECT_EQ(value, 1234);
  ASSERT_EQ(RasFileGetOption(RasFileOptBufferSize, &value), RasOk);
  EXPECT_EQ(value, 65536);
  ASSERT_EQ(RasFileSetOption(RasFileOptReset, nullptr), RasOk);
  ASSERT_EQ(RasFileGetOption(RasFileOptExpectedSize, &value), RasOk);
  EXPECT_EQ(value, 0);
  const int64_t two = 2;
  EXPECT_EQ(RasFileSetOption(RasFileOptMemoryOnly, &two), RasErrPosition);
  EXPECT_EQ(RasFileSetOption(5, &two), RasErrArg);
  EXPECT_EQ(RasFileGetOption(2, &value), RasErrArg);

  // With disk names refused, only memory blocks open.
  const int64_t on = 1;
  ASSERT_EQ(RasFileSetOption(RasFileOptMemoryOnly, &on), RasOk);
  RasFile file;
  EXPECT_EQ(RasFileOpen(&file, "/dev/null", RasFileModeRead), RasErrArg);
  {
    MemoryFile mem(4, RasFileModeRead);
    EXPECT_EQ(mem.file.kind, RasFileKindMemory);
  }
  ASSERT_EQ(RasFileSetOption(RasFileOptAll, saved), RasOk);
}

TEST(RasFile, DiskFilesReadWriteSeekAndRemove) {
  const std::string path = testing::TempDir() + "rasfile_disk.bin";
  RasFile file;
  ASSERT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeWrite), RasOk);
  int64_t count = 6;
  ASSERT_EQ(RasFileWrite(&file, "korvel", &count), RasOk);
  ASSERT_EQ(RasFileClose(&file), RasOk);
  ASSERT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeUpdate), RasOk);
  ASSERT_EQ(RasFileSeek(&file, -2, 2), RasOk);
  EXPECT_EQ(Tell(&file), 4);
  char buffer[8] = {};
  count = 8;
  ASSERT_EQ(RasFileRead(&file, buffer, &count, 0), RasOk);
  EXPECT_EQ(count, 2);
  EXPECT_STREQ(buffer, "el");
  ASSERT_EQ(RasFileCloseRemove(&file), RasOk);
  EXPECT_EQ(RasFileOpen(&file, path.c_str(), RasFileModeRead), RasErrOpen);
  EXPECT_EQ(RasFileRemove("\0m"), RasOk);
  const std::string tooLong(300, 'a');
  EXPECT_EQ(RasFileOpen(&file, tooLong.c_str(), RasFileModeRead), RasErrPosition);
}

}  // namespace

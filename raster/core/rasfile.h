// The file layer under every format: disk files through standard I/O, or a
// caller's memory block named by a memory-block name.
#pragma once

#include <cstdint>
#include <cstdio>

constexpr int RasNameSize = 256;

constexpr int32_t RasFileKindDisk = 0, RasFileKindMemory = 4, RasFileKindClosed = 1000;
constexpr int32_t RasFileModeRead = 1, RasFileModeWrite = 2, RasFileModeUpdate = 3;

struct RasFile {
  int32_t kind, mode;
  char name[RasNameSize];
  FILE *stream;
  // Memory block: current position, block, capacity and the high-water mark
  // of what was written.
  int64_t position;
  uint8_t *block;
  int64_t capacity;
  int64_t high;
};

// A name whose first byte is 0 is not a path. With 'm' as its second byte it
// names a memory block. The block's address and capacity follow the tag in
// pointer-sized, naturally aligned fields, so that one name type serves 32-
// and 64-bit builds alike.
struct RasMemName {
  char tag[8];  // 0, 'm', then zeros
  void *address;
  uint64_t capacity;
};

// Fills `mem` to name `size` bytes at `address`; the result is passed to the
// library as `reinterpret_cast<const char *>(&mem)`, or through RasMemNameOf.
void RasMakeMemName(RasMemName *mem, void *address, uint64_t size);
inline const char *RasMemNameOf(const RasMemName &mem) {
  return reinterpret_cast<const char *>(&mem);
}
// True when `name` is a memory-block name rather than a path.
bool RasIsMemName(const char *name);
// Copies a name of either form into a RasNameSize field. A path that does not
// fit is cut and marked by an empty field, which no later open accepts.
void RasCopyName(char *field, const char *name);

void RasFileInit(RasFile *file);  // kind closed, everything cleared
[[nodiscard]] int RasFileOpen(RasFile *file, const char *name, int mode);
int RasFileClose(RasFile *file);
[[nodiscard]] int RasFileRead(RasFile *file, void *buffer, int64_t *count, int exact);
[[nodiscard]] int RasFileWrite(RasFile *file, const void *buffer, int64_t *count);
[[nodiscard]] int RasFileSeek(RasFile *file, int64_t offset, int whence);
[[nodiscard]] int RasFileTell(RasFile *file, int64_t *position);
// The bytes a reader can reach: a disk file's size (0 for a pipe or a
// terminal), or the end of a memory block.
[[nodiscard]] int RasFileSize(RasFile *file, int64_t *size);
int RasFileRemove(const char *name);
int RasFileCloseRemove(RasFile *file);
[[nodiscard]] int RasFileWriteText(RasFile *file, const char *text);
[[nodiscard]] int RasFileReadLine(RasFile *file, char *buffer, int64_t *size);

// Library-wide options: 1 resets option 4; 3 refuses disk names; 4 is the
// size the next file opened for writing is expected to reach; 6 the standard
// I/O buffer size; 7 sets or gets options 3, 6 and 4 through a three-word array.
constexpr int RasFileOptReset = 1, RasFileOptMemoryOnly = 3, RasFileOptExpectedSize = 4,
              RasFileOptBufferSize = 6, RasFileOptAll = 7;
[[nodiscard]] int RasFileSetOption(int option, const int64_t *value);
[[nodiscard]] int RasFileGetOption(int option, int64_t *value);

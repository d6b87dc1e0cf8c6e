// The file layer: disk files through standard I/O, memory blocks by name.
#include "raster/core/rasfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"

namespace {

// Options 3, 4 and 6, like the rest of the library's settings, belong to the
// thread that sets them: a caller sets them, opens, and sets them back, and a
// worker thread reading another picture meanwhile must not see them.
thread_local int64_t gMemoryOnly = 0;
thread_local int64_t gExpectedSize = 0;
thread_local int64_t gBufferSize = 0;

bool IsOpen(const RasFile *file) {
  return file && file->kind != RasFileKindClosed;
}

// How many of `wanted` bytes a memory block holds from its position on: a
// read or write there stops at the block's end.
int64_t MemoryRoom(const RasFile *file, int64_t wanted) {
  return std::clamp<int64_t>(file->capacity - file->position, 0, wanted);
}

// The expected size of a file opened for writing is only a hint: reserving
// the blocks up front keeps a large photo contiguous on disk and finds a full
// disk before the first row. The file's size is not changed, so a writer that
// stops early leaves exactly what it wrote.
void ReserveExpectedSize(FILE *stream) {
  if (gExpectedSize <= 0) return;
  (void)fallocate(fileno(stream), FALLOC_FL_KEEP_SIZE, 0, gExpectedSize);
}

int OpenMemory(RasFile *file, const char *name, int mode) {
  RasMemName mem;
  std::memcpy(&mem, name, sizeof mem);
  if (mem.address == nullptr || mem.capacity < 1) return RasError("RasFileOpen", RasErrArg, 3);
  file->kind = RasFileKindMemory;
  file->mode = mode;
  file->block = static_cast<uint8_t *>(mem.address);
  file->capacity = static_cast<int64_t>(mem.capacity);
  file->position = 0;
  file->high = (mode & RasFileModeRead) ? file->capacity : 0;
  std::memcpy(file->name, name, sizeof mem);
  return RasOk;
}

int64_t MemoryEnd(const RasFile *file) {
  return (file->mode & RasFileModeRead) ? file->capacity : file->high;
}

}  // namespace

void RasMakeMemName(RasMemName *mem, void *address, uint64_t size) {
  std::memset(mem, 0, sizeof *mem);
  mem->tag[1] = 'm';
  mem->address = address;
  mem->capacity = size;
}

bool RasIsMemName(const char *name) {
  return name && name[0] == 0 && name[1] == 'm';
}

void RasCopyName(char *field, const char *name) {
  std::memset(field, 0, RasNameSize);
  if (!name) return;
  if (name[0] == 0) {
    std::memcpy(field, name, sizeof(RasMemName));
    return;
  }
  const size_t length = strnlen(name, RasNameSize);
  if (length < static_cast<size_t>(RasNameSize)) std::memcpy(field, name, length);
}

void RasFileInit(RasFile *file) {
  std::memset(file, 0, sizeof *file);
  file->kind = RasFileKindClosed;
}

int RasFileOpen(RasFile *file, const char *name, int mode) {
  if (!file || !name || mode < RasFileModeRead || mode > RasFileModeUpdate)
    return RasError("RasFileOpen", RasErrArg, 0);
  RasFileInit(file);
  if (name[0] == 0) {
    // Only 'm' has a meaning; the 'M' and 'R' forms of old callers name
    // nothing this layer can reach, so they are refused like any other form.
    if (name[1] != 'm') return RasError("RasFileOpen", RasErrPosition, 1);
    return OpenMemory(file, name, mode);
  }
  if (gMemoryOnly) return RasError("RasFileOpen", RasErrArg, 2);
  // A path longer than the name field would open some other, shorter path.
  if (strnlen(name, RasNameSize) >= static_cast<size_t>(RasNameSize))
    return RasError("RasFileOpen", RasErrPosition, 4);
  static const char *const kModes[] = {"", "rb", "wb", "r+b"};
  FILE *stream = std::fopen(name, kModes[mode]);
  if (!stream) return RasError("RasFileOpen", RasErrOpen, 5);
  if (gBufferSize > 0) setvbuf(stream, nullptr, _IOFBF, static_cast<size_t>(gBufferSize));
  if (mode == RasFileModeWrite) ReserveExpectedSize(stream);
  file->kind = RasFileKindDisk;
  file->mode = mode;
  file->stream = stream;
  std::memcpy(file->name, name, strnlen(name, RasNameSize));
  return RasOk;
}

int RasFileClose(RasFile *file) {
  if (!IsOpen(file)) return RasError("RasFileClose", RasErrArg, 0);
  int code = RasOk;
  if (file->kind == RasFileKindDisk && std::fclose(file->stream) != 0)
    code = RasError("RasFileClose", RasErrWrite, 1);
  file->kind = RasFileKindClosed;
  file->stream = nullptr;
  file->block = nullptr;
  return code;
}

int RasFileRead(RasFile *file, void *buffer, int64_t *count, int exact) {
  if (!IsOpen(file) || !buffer || !count || *count < 0)
    return RasError("RasFileRead", RasErrArg, 0);
  const int64_t wanted = *count;
  if (wanted == 0) return RasOk;
  int64_t got;
  if (file->kind == RasFileKindMemory) {
    got = MemoryRoom(file, wanted);
    std::memcpy(buffer, file->block + file->position, static_cast<size_t>(got));
    file->position += got;
  } else {
    got = static_cast<int64_t>(std::fread(buffer, 1, static_cast<size_t>(wanted), file->stream));
  }
  *count = got;
  if (exact ? got != wanted : got == 0) return RasError("RasFileRead", RasErrRead, exact ? 1 : 2);
  return RasOk;
}

int RasFileWrite(RasFile *file, const void *buffer, int64_t *count) {
  if (!IsOpen(file) || !buffer || !count || *count < 0)
    return RasError("RasFileWrite", RasErrArg, 0);
  const int64_t wanted = *count;
  if (wanted == 0) return RasOk;
  int64_t put;
  if (file->kind == RasFileKindMemory) {
    put = MemoryRoom(file, wanted);
    std::memcpy(file->block + file->position, buffer, static_cast<size_t>(put));
    file->position += put;
    if (file->position > file->high) file->high = file->position;
  } else {
    put = static_cast<int64_t>(std::fwrite(buffer, 1, static_cast<size_t>(wanted), file->stream));
  }
  *count = put;
  if (put != wanted) return RasError("RasFileWrite", RasErrWrite, 1);
  return RasOk;
}

int RasFileSeek(RasFile *file, int64_t offset, int whence) {
  if (!IsOpen(file) || whence < 0 || whence > 2) return RasError("RasFileSeek", RasErrArg, 0);
  if (file->kind == RasFileKindDisk) {
    // Moving a stream first writes out what it holds: when that fails (a
    // full disk) the write failed, not the seek, and the code says so.
    if ((file->mode & RasFileModeWrite) && std::fflush(file->stream) != 0)
      return RasError("RasFileSeek", RasErrWrite, 3);
    static const int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (fseeko(file->stream, offset, kWhence[whence]) != 0)
      return RasError("RasFileSeek", RasErrSeek, 1);
    return RasOk;
  }
  const int64_t base = whence == 0 ? 0 : whence == 1 ? file->position : MemoryEnd(file);
  if (offset > file->capacity - base || offset < -base)
    return RasError("RasFileSeek", RasErrPosition, 2);
  file->position = base + offset;
  if (file->position > file->high) file->high = file->position;
  return RasOk;
}

int RasFileTell(RasFile *file, int64_t *position) {
  if (!IsOpen(file) || !position) return RasError("RasFileTell", RasErrArg, 0);
  if (file->kind == RasFileKindMemory) {
    *position = file->position;
    return RasOk;
  }
  const off_t at = ftello(file->stream);
  if (at < 0) return RasError("RasFileTell", RasErrSeek, 1);
  *position = at;
  return RasOk;
}

int RasFileSize(RasFile *file, int64_t *size) {
  if (!IsOpen(file) || !size) return RasError("RasFileSize", RasErrArg, 0);
  if (file->kind == RasFileKindMemory) {
    *size = MemoryEnd(file);
    return RasOk;
  }
  struct stat st {};
  if (fstat(fileno(file->stream), &st) != 0) return RasError("RasFileSize", RasErrSeek, 1);
  *size = S_ISREG(st.st_mode) ? static_cast<int64_t>(st.st_size) : 0;
  return RasOk;
}

int RasFileRemove(const char *name) {
  if (!name) return RasError("RasFileRemove", RasErrArg, 0);
  if (name[0] == 0) return RasOk;
  if (std::remove(name) != 0) return RasError("RasFileRemove", RasErrOpen, 1);
  return RasOk;
}

int RasFileCloseRemove(RasFile *file) {
  if (!IsOpen(file)) return RasError("RasFileCloseRemove", RasErrArg, 0);
  const bool disk = file->kind == RasFileKindDisk;
  const int closed = RasFileClose(file);
  const int removed = disk ? RasFileRemove(file->name) : RasOk;
  return closed != RasOk ? closed : removed;
}

int RasFileWriteText(RasFile *file, const char *text) {
  if (!IsOpen(file) || !text) return RasError("RasFileWriteText", RasErrArg, 0);
  const size_t length = std::strlen(text);
  size_t feeds = 0;
  for (size_t i = 0; i < length; ++i)
    feeds += text[i] == '\n';
  char *copy = static_cast<char *>(RasAlloc(length + feeds + 1));
  if (!copy) return RasError("RasFileWriteText", RasErrMemory, 1);
  size_t out = 0;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '\n') copy[out++] = '\r';
    copy[out++] = text[i];
  }
  int64_t count = static_cast<int64_t>(out);
  const int code = RasFileWrite(file, copy, &count);
  RasFree(copy);
  return code == RasOk ? RasOk : RasError("RasFileWriteText", code, 2);
}

int RasFileReadLine(RasFile *file, char *buffer, int64_t *size) {
  if (!IsOpen(file) || !buffer || !size || *size < 3)
    return RasError("RasFileReadLine", RasErrArg, 0);
  int64_t count = *size - 2;
  const int code = RasFileRead(file, buffer, &count, 0);
  if (code != RasOk) return RasError("RasFileReadLine", code, 1);
  // Cut at the first line feed and at the first carriage return; the longer
  // cut is the consumed part, so "abc\r\n" consumes all five bytes.
  int64_t lf = -1, cr = -1;
  for (int64_t i = 0; i < count && (lf < 0 || cr < 0); ++i) {
    if (buffer[i] == '\n' && lf < 0) lf = i;
    if (buffer[i] == '\r' && cr < 0) cr = i;
  }
  const int64_t first = (lf < 0) ? cr : (cr < 0 ? lf : (lf < cr ? lf : cr));
  int64_t length = count;
  int64_t consumed = count;
  if (first >= 0) {
    length = first;
    const int64_t last = lf > cr ? lf : cr;
    // Only a pair of adjacent line ends counts as one line end.
    consumed = (last == first + 1) ? last + 1 : first + 1;
    buffer[length++] = '\n';
  }
  buffer[length] = 0;
  *size = length;
  const int back = RasFileSeek(file, consumed - count, 1);
  return back == RasOk ? RasOk : RasError("RasFileReadLine", back, 2);
}

int RasFileSetOption(int option, const int64_t *value) {
  switch (option) {
    case RasFileOptReset:
      gExpectedSize = 0;
      return RasOk;
    case RasFileOptMemoryOnly:
      if (!value) return RasError("RasFileSetOption", RasErrArg, 0);
      if (*value != 0 && *value != 1) return RasError("RasFileSetOption", RasErrPosition, 1);
      gMemoryOnly = *value;
      return RasOk;
    case RasFileOptExpectedSize:
    case RasFileOptBufferSize:
      if (!value) return RasError("RasFileSetOption", RasErrArg, 0);
      (option == RasFileOptExpectedSize ? gExpectedSize : gBufferSize) = *value;
      return RasOk;
    case RasFileOptAll:
      if (!value) return RasError("RasFileSetOption", RasErrArg, 0);
      if (value[0] != 0 && value[0] != 1) return RasError("RasFileSetOption", RasErrPosition, 1);
      gMemoryOnly = value[0];
      gBufferSize = value[1];
      gExpectedSize = value[2];
      return RasOk;
    default:
      return RasError("RasFileSetOption", RasErrArg, 2);
  }
}

int RasFileGetOption(int option, int64_t *value) {
  if (!value) return RasError("RasFileGetOption", RasErrArg, 0);
  switch (option) {
    case RasFileOptMemoryOnly:
      *value = gMemoryOnly;
      return RasOk;
    case RasFileOptExpectedSize:
      *value = gExpectedSize;
      return RasOk;
    case RasFileOptBufferSize:
      *value = gBufferSize;
      return RasOk;
    case RasFileOptAll:
      value[0] = gMemoryOnly;
      value[1] = gBufferSize;
      value[2] = gExpectedSize;
      return RasOk;
    default:
      return RasError("RasFileGetOption", RasErrArg, 1);
  }
}

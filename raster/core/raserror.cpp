// The error hook, its reporting switch and log, and the library's allocator.
#include "raster/core/raserror.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "raster/core/rasdesc.h"
#include "raster/core/rasfile.h"

namespace {

// Each thread has its own reporting switch, file name and first report, so a
// thumbnail read on a worker thread never mixes its errors with the window's.
thread_local int gReporting = 1;
thread_local const char *gFileName = nullptr;

struct Report {
  const char *function = "";
  int code = 0;
  int detail = 0;
};
// The first report of a format's routine since the probe began trying that
// format: the innermost check that refused, which says more than the open
// routine's own report. The file layer's reports only say that a read fell
// short, so the format's report about it is the one kept.
thread_local Report gFirst;
thread_local bool gFirstTaken = false;

// The log destination is read at each report, so a user can turn it on for
// one run without anything else changing.
FILE *OpenLog(bool *close) {
  const char *target = std::getenv("KORVEL_RAS_LOG");
  *close = false;
  if (!target || !*target) return nullptr;
  if (std::strcmp(target, "-") == 0) return stderr;
  FILE *log = std::fopen(target, "a");
  *close = log != nullptr;
  return log;
}

void PrintFileName(FILE *log, const char *name) {
  if (!name) return;
  if (name[0] == 0)
    std::fputs(" file=<memory block>", log);
  else
    std::fprintf(log, " file=%.*s", RasNameSize, name);
}

}  // namespace

RasErrorFileScope::RasErrorFileScope(const char *name) : previous_(gFileName), name_{} {
  if (name) RasCopyName(name_, name);
  gFileName = name ? name_ : nullptr;
}
RasErrorFileScope::~RasErrorFileScope() {
  gFileName = previous_;
}

int RasError(const char *function, int code, int detail) {
  if (!gFirstTaken && function && std::strncmp(function, "RasFile", 7) != 0) {
    gFirst = {function, code, detail};
    gFirstTaken = true;
  }
  if (!gReporting) return code;
  bool close = false;
  FILE *log = OpenLog(&close);
  if (!log) return code;
  std::fprintf(log, "korvel-raster: %s failed: code %d (%s) detail %d", function ? function : "",
               code, RasErrorText(code), detail);
  PrintFileName(log, gFileName);
  std::fputc('\n', log);
  if (close) std::fclose(log);
  return code;
}

int RasSetErrorReporting(int on) {
  const int previous = gReporting;
  gReporting = on ? 1 : 0;
  return previous;
}

int RasGetErrorReporting() {
  return gReporting;
}

const char *RasErrorText(int code) {
  switch (code) {
    case RasOk:
      return "success";
    case RasErrArg:
      return "bad argument or state";
    case RasErrPosition:
      return "position or name form not allowed";
    case RasErrMemory:
      return "out of memory";
    case RasErrOpen:
      return "the file could not be opened";
    case RasErrRead:
      return "read failed or was short";
    case RasErrWrite:
      return "write failed or was short";
    case RasErrSeek:
      return "seek or tell failed";
    case RasErrFormat:
      return "not a file of this format, or its header is inconsistent";
    case RasErrUnsupported:
      return "unsupported kind of file, or corrupt";
    case RasErrNullString:
      return "null string";
    default:
      return "unknown result code";
  }
}

RasProbeLog::RasProbeLog() : refusals_{}, count_(0) {}

void RasProbeLog::Trying() {
  gFirstTaken = false;
}

void RasProbeLog::Refused(uint32_t format) {
  if (count_ < static_cast<int>(std::size(refusals_)))
    refusals_[count_++] = {format, gFirst.function, gFirst.code, gFirst.detail};
}

void RasProbeLog::Write(const char *name) const {
  bool close = false;
  FILE *log = OpenLog(&close);
  if (!log) return;
  std::fputs("korvel-raster: RasGetInfo: no reader accepts the file", log);
  PrintFileName(log, name);
  std::fputc('\n', log);
  for (int i = 0; i < count_; ++i) {
    const Refusal &r = refusals_[i];
    std::fprintf(log, "  %s: %s code %d (%s) detail %d\n", RasFormatName(r.format), r.function,
                 r.code, RasErrorText(r.code), r.detail);
  }
  if (close) std::fclose(log);
}

void *RasAlloc(size_t size) {
  return std::malloc(size ? size : 1);
}

void *RasFree(void *block) {
  std::free(block);
  return nullptr;
}

#include "tools/toolio.h"

#include <strings.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "raster/jpeg.h"

uint32_t FormatForName(const char *path) {
  const char *slash = std::strrchr(path, '/');
  const char *dot = std::strrchr(slash ? slash : path, '.');
  const char *ext = dot ? dot + 1 : "";
  if (strcasecmp(ext, "bmp") == 0) return RasFormatBmp;
  if (strcasecmp(ext, "tif") == 0 || strcasecmp(ext, "tiff") == 0) return RasFormatTiff;
  if (strcasecmp(ext, "tga") == 0) return RasFormatTarga;
  if (strcasecmp(ext, "sct") == 0) return RasFormatScitex;
  if (strcasecmp(ext, "cin") == 0) return RasFormatCineon;
  if (strcasecmp(ext, "eps") == 0) return RasFormatEps;
  if (strcasecmp(ext, "png") == 0) return RasFormatPng;
  if (strcasecmp(ext, "webp") == 0) return RasFormatWebp;
  if (strcasecmp(ext, "heic") == 0 || strcasecmp(ext, "heif") == 0) return RasFormatHeic;
  if (strcasecmp(ext, "avif") == 0) return RasFormatAvif;
  return RasFormatJpeg;
}

JpegQualityScope::JpegQualityScope(int quality) {
  JpegGetOption(JpegOptQuality, &saved_);
  ok_ = JpegSetOption(JpegOptQuality, quality) == RasOk;
}

JpegQualityScope::~JpegQualityScope() {
  (void)JpegSetOption(JpegOptQuality, saved_);
}

namespace {

// The temporary file being written, for the signal handler, which may run
// at any moment and so may only read a fixed buffer and call
// async-signal-safe functions.
char gTempPath[PATH_MAX];
volatile sig_atomic_t gTempSet = 0;
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void RemoveTempAndEnd(int signal) {
  if (gTempSet) unlink(gTempPath);
  // The handler was reset on entry: raised again once it returns, the signal
  // ends the process as it would have, and whoever waits sees that.
  raise(signal);
}

// A conversion stopped by Ctrl+C, a closed terminal or a kill leaves no
// half-written OUT.XXXXXX behind. A signal the caller chose to ignore stays
// ignored.
void CatchEndingSignals() {
  struct sigaction action {};
  action.sa_handler = RemoveTempAndEnd;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND;
  for (int signal : kEndingSignals) {
    struct sigaction old {};
    if (sigaction(signal, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
      sigaction(signal, &action, nullptr);
  }
}

// Blocks the ending signals for as long as it lives, so the temporary file
// and the handler's copy of its name come and go together.
class EndingSignalsHeld {
 public:
  EndingSignalsHeld() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : kEndingSignals)
      sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, &saved_);
  }
  ~EndingSignalsHeld() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }

 private:
  sigset_t saved_;
};

}  // namespace

OutputFile::OutputFile(const char *path) {
  EndingSignalsHeld held;
  file_.emplace(path);
  // A device or pipe is written in place, and is no temporary file to remove.
  const std::string &temp = file_->path();
  if (!file_->error() && !file_->direct() && temp.size() < sizeof gTempPath) {
    std::memcpy(gTempPath, temp.c_str(), temp.size() + 1);
    gTempSet = 1;
    CatchEndingSignals();
  }
}

OutputFile::~OutputFile() {
  EndingSignalsHeld held;
  gTempSet = 0;
  file_.reset();
}

bool OutputFile::Commit() {
  EndingSignalsHeld held;
  // Renamed into place or removed: either way nothing is left to clean up.
  const bool done = file_->Commit() == 0;
  gTempSet = 0;
  return done;
}

const char *ToolErrorText(int code) {
  // The one refusal whose general meaning would leave a user guessing.
  if (code != RasErrUnsupported || !RasPixelLimitRefused()) return RasErrorText(code);
  static char text[100];
  std::snprintf(text, sizeof text, "more than %llu pixels (KORVEL_MAX_PIXELS sets the limit)",
                static_cast<unsigned long long>(RasMaxPixels()));
  return text;
}

int Fail(const char *name, const char *what, int code) {
  std::fprintf(stderr, "korvel-raster: %s: %s: %s (code %d)\n", name, what, ToolErrorText(code),
               code);
  return 1;
}

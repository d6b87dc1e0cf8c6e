// The library's error hook and log: the routine every failing path returns
// through, the reporting switch, which file the library is working on, and
// what each format said while the probe kept quiet.
#pragma once

#include <cstdint>

#include "raster/core/rasfile.h"

// Every failing path of the library returns through RasError as its last act.
// It returns `code` unchanged. When the environment variable KORVEL_RAS_LOG
// names a file (or "-" for standard error) and reporting is on, it appends one
// line naming the routine, the code, the detail and the file being worked on.
int RasError(const char *function, int code, int detail);
// The library-wide error-reporting switch; returns the previous setting.
int RasSetErrorReporting(int on);
int RasGetErrorReporting();
// What a result code means, in a few words for people.
const char *RasErrorText(int code);

// Names the file in log lines for as long as it lives; scopes nest. It keeps
// its own copy of the name: the state block that held the name it was given
// may be reset while it lives (JPEG going back to an earlier row reopens its
// file) or freed (a close).
class RasErrorFileScope {
 public:
  explicit RasErrorFileScope(const char *name);
  ~RasErrorFileScope();
  RasErrorFileScope(const RasErrorFileScope &) = delete;
  RasErrorFileScope &operator=(const RasErrorFileScope &) = delete;

 private:
  const char *previous_;
  char name_[RasNameSize];
};

// The probe turns reporting off, so a file that no reader accepts would leave
// no trace. It collects each format's refusal instead and writes them as one
// record when nothing matched.
class RasProbeLog {
 public:
  RasProbeLog();
  void Trying();                  // a format's attempt begins
  void Refused(uint32_t format);  // takes the first report of the attempt
  void Write(const char *name) const;

 private:
  struct Refusal {
    uint32_t format;
    const char *function;
    int code;
    int detail;
  };
  Refusal refusals_[16];  // one for each format the probe tries, with room
  int count_;
};

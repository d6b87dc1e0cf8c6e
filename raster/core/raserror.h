// Internal side of the error hook: which file the library is working on, and
// what each format said while the probe kept quiet.
#pragma once

#include <cstdint>

#include "raster/rasfile.h"

// Names the file in log lines for as long as it lives; scopes nest. It keeps
// its own copy of the name: a format that reopens its file (JPEG going back to
// an earlier row) frees the state block that held the name it was given.
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

// Helpers shared by the raster library's tests: whole-file bytes, a planar
// picture with a known pattern written and read through the generic entry
// points, and the error log read back to see which check refused.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "raster/ras.h"

namespace testutil {

using Bytes = std::vector<uint8_t>;

Bytes ReadFile(const std::string &path);
void WriteFile(const std::string &path, const Bytes &bytes);
// A path under the test's temporary folder, unique to this process; the file
// is removed when the process ends.
std::string TempPath(const std::string &name);

// Little-endian or big-endian fields of `size` bytes, as files store them.
uint32_t GetField(const Bytes &bytes, size_t at, int size, bool big = false);
void PutField(Bytes &bytes, size_t at, uint32_t value, int size, bool big = false);

// A planar 8-bit picture, planes in the library's order, top row first.
struct Picture {
  uint32_t width = 0, height = 0, channels = 0;
  std::vector<Bytes> planes;
  uint8_t &At(uint32_t x, uint32_t y, uint32_t k) { return planes[k][size_t{y} * width + x]; }
  uint8_t At(uint32_t x, uint32_t y, uint32_t k) const { return planes[k][size_t{y} * width + x]; }
};
bool operator==(const Picture &a, const Picture &b);

// Samples that differ by position and channel, so a swapped plane, a row out
// of place or a pixel off by one shows.
Picture Pattern(uint32_t width, uint32_t height, uint32_t channels);
// A smooth picture, as photos mostly are, so lossy coding stays close; a fourth
// channel falls from top to bottom.
Picture Smooth(uint32_t width, uint32_t height, uint32_t channels);
// The largest difference between two pictures of the same shape.
int MaxDifference(const Picture &a, const Picture &b);

// Writes every row in `order` (top first when empty) through RasSetDesc,
// RasOpen, RasWriteSl and RasClose; `desc` keeps what the writer stored back.
// Returns the first failing code. `name` may be a memory-block name.
int WritePicture(const char *name, uint32_t format, uint32_t model, const Picture &picture,
                 float resolution = 72.0f, RasDesc *desc = nullptr,
                 const std::vector<uint32_t> &order = {});
inline int WritePicture(const std::string &name, uint32_t format, uint32_t model,
                        const Picture &picture, float resolution = 72.0f, RasDesc *desc = nullptr,
                        const std::vector<uint32_t> &order = {}) {
  return WritePicture(name.c_str(), format, model, picture, resolution, desc, order);
}
// Probes and reads every row in `order` (all rows top first when empty);
// `desc` receives what the probe filled in. Returns the first failing code.
int ReadPicture(const char *name, Picture *picture, RasDesc *desc = nullptr,
                const std::vector<uint32_t> &order = {});
inline int ReadPicture(const std::string &name, Picture *picture, RasDesc *desc = nullptr,
                       const std::vector<uint32_t> &order = {}) {
  return ReadPicture(name.c_str(), picture, desc, order);
}

// Planes of samples wider than 8 bits, [channel][y * width + x], for the
// formats whose maxval is above 255.
using Planes16 = std::vector<std::vector<uint16_t>>;
// Samples of 0 to `maxval` that differ by position and channel, and whose two
// bytes differ, so a swapped byte shows as well as a swapped plane.
Planes16 Pattern16(uint32_t width, uint32_t height, uint32_t channels, uint32_t maxval);
// Writes every row, in `order` (top first when empty), from `planes` of
// `width` x `height` through the 16-bit plane pointers; the first failing code.
int WritePlanes16(const std::string &name, uint32_t format, uint32_t model, uint32_t width,
                  uint32_t height, const Planes16 &planes, float resolution = 72.0f,
                  const std::vector<uint32_t> &order = {});
// Probes and reads every row into `planes`, checking that the reader made
// 16-bit planes only; `desc` receives what the probe filled in.
int ReadPlanes16(const std::string &name, RasDesc *desc, Planes16 *planes);

// Reads `path` back through ReadPlanes16 and checks what the probe filled in
// (format, maxval, model and, within 0.01, the resolution) and every sample.
void ExpectPlanes16(const std::string &path, uint32_t format, uint32_t maxval, uint32_t model,
                    float resolution, const Planes16 &planes);

// Opens `path` as `format` for reading and closes it again: the open's code,
// checking that a refused open left nothing open.
int OpenAs(const std::string &path, uint32_t format);

// Rows of the tables of `testData`/MANIFEST.md: | `file` | bytes | origin |
// licence | what it is | expected outcome | verified |, each with the folder
// its section's heading names.
struct ManifestRow {
  std::string folder, file, expected;
};
std::vector<ManifestRow> ReadManifest(const std::string &testData);

// korvel-raster run as a user runs it: its exit status, and its standard
// output and standard error together.
struct ToolResult {
  int status = -1;
  std::string out;
};
ToolResult RunTool(const std::string &args);

// A picture as interleaved samples of any width: what another program's
// decoder wrote as netpbm (P5, P6, or P7 with 1 to 4 channels), or what the
// library reads from a file.
struct Samples {
  uint32_t width = 0, height = 0, channels = 0, maxval = 0;
  std::vector<uint16_t> values;  // [(y * width + x) * channels + k]
  bool operator==(const Samples &other) const = default;
};
Samples ReadNetpbm(const std::string &path);
// Probes and reads every row of `path`; the first failing code in `*code`.
Samples ReadSamples(const std::string &path, int *code);
// Runs a shell command (quietly); true when it exited with 0.
bool Shell(const std::string &command);

// What RasError last reported, read back from the log it writes.
struct Logged {
  std::string function;
  int code = 0;
  int detail = -1;
  bool operator==(const Logged &other) const {
    return function == other.function && code == other.code && detail == other.detail;
  }
};
std::ostream &operator<<(std::ostream &out, const Logged &logged);

// Points KORVEL_RAS_LOG at a fresh file for as long as it lives.
class ErrorLog {
 public:
  ErrorLog();
  ~ErrorLog();
  ErrorLog(const ErrorLog &) = delete;
  ErrorLog &operator=(const ErrorLog &) = delete;
  Logged Last() const;  // the last report, or an empty one
  std::string Text() const;
  void Clear() const;

 private:
  std::string path_;
};

}  // namespace testutil

// Pieces every korvel-raster command shares: the output format by name, open
// descriptors and scanlines that clean up after themselves, the JPEG quality
// for one save, and output files that appear only when complete.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/safefile.h"
#include "raster/ras.h"

// The application saves by extension: jpg, bmp, tif or tiff; anything else
// becomes JPEG, so a photo is never refused for an odd name.
uint32_t FormatForName(const char *path);

// An open descriptor that is closed however the conversion ends.
struct OpenRaster {
  RasDesc desc{};
  ~OpenRaster() {
    if (desc.state) RasClose(&desc);
  }
};

struct Scanline {
  RasSl sl{};
  ~Scanline() { RasFreeSl(&sl); }
};

class JpegQualityScope {
 public:
  explicit JpegQualityScope(int quality);
  ~JpegQualityScope();
  bool ok() const { return ok_; }

 private:
  int saved_ = 75;
  bool ok_ = false;
};

// The output is written beside its final name and renamed into place only when
// every row is in, so a failed conversion never leaves a damaged file and never
// destroys a file that was there before.
class OutputFile {
 public:
  explicit OutputFile(const char *path);
  ~OutputFile();
  // Where to write; null when no file could be made.
  const char *temp() const { return file_ && !file_->error() ? file_->path().c_str() : nullptr; }
  bool Commit();
  // Starts the replacing file's way to the disk while more is written.
  void StartWriteback() {
    if (file_) file_->StartWriteback();
  }

 private:
  std::optional<ReplacingFile> file_;
};

// What a result code means, for the tool's messages: the library's words,
// or the pixel limit when that refused the file.
const char *ToolErrorText(int code);
// Prints "korvel-raster: NAME: WHAT: meaning (code N)" and returns 1.
int Fail(const char *name, const char *what, int code);

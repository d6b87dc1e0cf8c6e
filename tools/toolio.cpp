#include "tools/toolio.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

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

OutputFile::OutputFile(const char *path) : path_(path), temp_(std::string(path) + ".XXXXXX") {
  const int fd = mkstemp(temp_.data());
  if (fd < 0) {
    temp_.clear();
    return;
  }
  // mkstemp makes the file private; a finished photo gets the usual rights.
  const mode_t mask = umask(0);
  umask(mask);
  (void)fchmod(fd, 0666 & ~mask);
  close(fd);
}

OutputFile::~OutputFile() {
  if (!temp_.empty()) unlink(temp_.c_str());
}

bool OutputFile::Commit() {
  if (std::rename(temp_.c_str(), path_) != 0) return false;
  temp_.clear();
  return true;
}

int Fail(const char *name, const char *what, int code) {
  std::fprintf(stderr, "korvel-raster: %s: %s: %s (code %d)\n", name, what, RasErrorText(code),
               code);
  return 1;
}

// The frame the reduced-size JPEG decoders share: a codec record of their
// own, zeroed, with the file open for reading, handed to a routine and
// taken down again on every way out.
#pragma once

// clang-format off
#include <cstddef>
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"
#include "raster/core/rasfile.h"
#include "raster/core/rasstr.h"

// Runs run(codec) for a zeroed Codec (a record with a decompression object
// `dinfo` and a RasFile `file`) whose file is `name` open for reading, and
// returns what it returns; failures to allocate or open come back as
// `routine`'s -3 and -4. The decompression object is destroyed after the
// run whether or not it was created: destroying a zeroed one is harmless.
template <class Codec, class Run>
int RunJpegCodec(const char *routine, const char *name, Run run) {
  auto *codec = static_cast<Codec *>(RasAlloc(sizeof(Codec)));
  if (codec == nullptr) return RasError(routine, RasErrMemory, 1);
  RasMemSet(codec, 0, sizeof(Codec));
  RasFileInit(&codec->file);
  int code = RasFileOpen(&codec->file, name, RasFileModeRead);
  if (code != RasOk) {
    code = RasError(routine, RasErrOpen, 1);
  } else {
    code = run(codec);
    jpeg_destroy_decompress(&codec->dinfo);
    RasFileClose(&codec->file);
  }
  RasFree(codec);
  return code;
}

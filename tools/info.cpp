// korvel-raster info: what the probe finds in each file.
#include <cstdio>

#include "raster/ras.h"
#include "tools/commands.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

int RunInfo(int argc, char **argv) {
  if (argc < 1) {
    std::fputs("korvel-raster: info needs at least one FILE\n", stderr);
    return 2;
  }
  int status = 0;
  for (int i = 0; i < argc; ++i) {
    RasDesc desc{};
    const int code = RasGetInfo(argv[i], &desc);
    if (code != RasOk) {
      std::printf("%s: error %d %s\n", argv[i], code, ToolErrorText(code));
      std::fflush(stdout);  // before any log lines the library wrote to standard error
      status = 1;
      continue;
    }
    std::printf("%s: %s %ux%u channels=%u model=%u maxval=%u resolution=%g%s\n", argv[i],
                RasFormatName(desc.format), desc.width, desc.height, desc.channels, desc.model,
                desc.maxval, static_cast<double>(desc.resolution), OrientationNote(argv[i]));
  }
  return status;
}

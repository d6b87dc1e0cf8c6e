// korvel-raster: the raster file library from the command line.
#include <cstdio>
#include <cstring>

#include "tools/commands.h"

namespace {

const char kUsage[] =
    "Usage: korvel-raster COMMAND ...\n"
    "\n"
    "  info FILE...                    one line per file: format, size, channels,\n"
    "                                  colour model, largest sample value, resolution\n"
    "  convert IN OUT [--quality N]    read IN and write OUT in the format of OUT's\n"
    "                                  extension: jpg (or anything else) JPEG, bmp BMP,\n"
    "                                  tif or tiff TIFF; JPEG quality N, default 100\n"
    "  --help                          this text\n"
    "\n"
    "Set KORVEL_RAS_LOG to a file name, or - for standard error, to see why a file\n"
    "is refused.\n";

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const char *command = argv[1];
  if (std::strcmp(command, "--help") == 0 || std::strcmp(command, "-h") == 0 ||
      std::strcmp(command, "help") == 0) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (std::strcmp(command, "info") == 0) return RunInfo(argc - 2, argv + 2);
  if (std::strcmp(command, "convert") == 0) return RunConvert(argc - 2, argv + 2);
  std::fprintf(stderr, "korvel-raster: unknown command '%s' (try --help)\n", command);
  return 2;
}

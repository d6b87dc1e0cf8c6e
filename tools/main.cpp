// korvel-raster: the raster file library from the command line.
#include <cstdio>
#include <cstring>

#include "tools/commands.h"
#include "tools/toolmeta.h"

namespace {

const char kUsage[] =
    "Usage: korvel-raster COMMAND ...\n"
    "\n"
    "  info FILE...                    one line per file: format, size, channels,\n"
    "                                  colour model, largest sample value, resolution\n"
    "  convert IN OUT [--quality N]    read IN and write OUT in the format of OUT's\n"
    "                                  extension: jpg (or anything else) JPEG, bmp BMP,\n"
    "                                  tif or tiff TIFF; JPEG quality N, default 100\n"
    "  rotate left|right|180 IN OUT    turn the photo a quarter or half turn\n"
    "  crop LEFT TOP WIDTH HEIGHT IN OUT\n"
    "                                  keep the rectangle, which must lie in the photo\n"
    "  zoom PERCENT IN OUT             25, 50 or 75 (filtered reduction), 100, 200,\n"
    "                                  400 or 800 (pixel replication)\n"
    "  redeye X Y IN OUT               grey the red patch around pixel X, Y\n"
    "  color IN OUT [TOOL:X,Y ...]     correct colours from clicks, TOOL one of foliage,\n"
    "                                  skin, sky or neutrals (no points: unchanged)\n"
    "                                  (edits read any model as RGB, as the application\n"
    "                                  does, and write OUT by its extension)\n"
    "  Every command but info turns the photo upright by its orientation tag and\n"
    "  keeps its EXIF, XMP, IPTC and colour profile in JPEG and TIFF output:\n"
    "  --keep-orientation              write the pixels as stored, keeping the tag\n"
    "  --strip                         write no metadata\n"
    "  --help                          this text\n"
    "  --version                       the version\n"
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
  if (std::strcmp(command, "--version") == 0) {
    std::puts("korvel-raster " KORVEL_VERSION);
    return 0;
  }
  static const struct {
    const char *name;
    int (*run)(int, char **);
  } kCommands[] = {{"info", RunInfo},  {"convert", RunConvert}, {"rotate", RunRotate},
                   {"crop", RunCrop},  {"zoom", RunZoom},       {"redeye", RunRedEye},
                   {"color", RunColor}};
  const int rest = TakeMetaOptions(argc - 2, argv + 2);
  for (const auto &c : kCommands)
    if (std::strcmp(command, c.name) == 0) return c.run(rest, argv + 2);
  std::fprintf(stderr, "korvel-raster: unknown command '%s' (try --help)\n", command);
  return 2;
}

// The HEVC encoder that libheif drives keeps a few blocks from each encoder
// it opens after heif_encoder_release has closed it; they are that library's,
// not ours, so the leak check of a sanitizer build passes over them only
// when the tool writes a HEIC file.
extern "C" const char *__lsan_default_suppressions() {
  return "leak:libx265.so\n";
}

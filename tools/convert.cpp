// korvel-raster convert: every row of one file into another, streamed one
// scanline at a time, the output format chosen by the output name's extension.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "raster/ras.h"
#include "raster/rasrgb.h"
#include "tools/commands.h"
#include "tools/toolio.h"

namespace {

bool FormatStoresModel(uint32_t format, uint32_t model) {
  switch (format) {
    case RasFormatBmp:
      return model == RasModelRgb || model == RasModelGray;
    case RasFormatJpeg:
      return model == RasModelRgb || model == RasModelGray || model == RasModelCmyk;
    case RasFormatTiff:
      return model != RasModelYcc;  // TIFF would label YCC samples as RGB
    default:
      return true;
  }
}

const char *ModelName(uint32_t model) {
  switch (model) {
    case RasModelRgb:
      return "RGB";
    case RasModelCmyk:
      return "CMYK";
    case RasModelGray:
      return "grayscale";
    case RasModelLab:
      return "CIE L*a*b*";
    case RasModelYcc:
      return "Photo CD YCC";
    default:
      return "unknown-model";
  }
}

// Files of more than 8 bits a sample go into 8-bit formats scaled to 0..255.
void NarrowRow(const RasSl &wide, uint32_t maxval, RasSl *narrow) {
  for (uint32_t k = 0; k < wide.channels; ++k) {
    const uint16_t *in = wide.plane16[k];
    uint8_t *out = narrow->plane8[k];
    for (uint32_t x = 0; x < wide.width; ++x)
      out[x] = static_cast<uint8_t>((in[x] * 255u + maxval / 2) / maxval);
  }
}

struct Options {
  const char *in = nullptr;
  const char *out = nullptr;
  int quality = 100;
};

bool ParseOptions(int argc, char **argv, Options *options) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quality") == 0 && i + 1 < argc) {
      char *end = nullptr;
      const long quality = std::strtol(argv[++i], &end, 10);
      if (*end != 0 || quality < 0 || quality > 100) {
        std::fprintf(stderr, "korvel-raster: --quality takes a number from 0 to 100\n");
        return false;
      }
      options->quality = static_cast<int>(quality);
    } else if (!options->in) {
      options->in = argv[i];
    } else if (!options->out) {
      options->out = argv[i];
    } else {
      std::fprintf(stderr, "korvel-raster: convert takes IN OUT [--quality N]\n");
      return false;
    }
  }
  if (options->out) return true;
  std::fprintf(stderr, "korvel-raster: convert takes IN OUT [--quality N]\n");
  return false;
}

// Rows go across as they are, narrowed to 8 bits when wider, or turned into
// RGB as the application does on opening when the target cannot hold the
// file's own model.
int CopyRows(const Options &options, OpenRaster *in, OpenRaster *out) {
  Scanline source, narrow;
  const bool toRgb = out->desc.model != in->desc.model;
  const bool wide = in->desc.maxval > 255;
  int code = RasMakeSl(&source.sl, &in->desc);
  if (code == RasOk && (wide || toRgb)) code = RasMakeSl(&narrow.sl, &out->desc);
  if (code != RasOk) return Fail(options.in, "cannot make a scanline", code);
  for (uint32_t row = 0; row < in->desc.height; ++row) {
    code = RasReadSl(&in->desc, row, &source.sl);
    if (code == RasOk && toRgb)
      code = RasSlToRgb(&source.sl, &in->desc, narrow.sl.plane8[0], narrow.sl.plane8[1],
                        narrow.sl.plane8[2]);
    else if (code == RasOk && wide)
      NarrowRow(source.sl, in->desc.maxval, &narrow.sl);
    if (code != RasOk) return Fail(options.in, "cannot read a row", code);
    code = RasWriteSl(&out->desc, row, wide || toRgb ? &narrow.sl : &source.sl);
    if (code != RasOk) return Fail(options.out, "cannot write a row", code);
  }
  return 0;
}

}  // namespace

int RunConvert(int argc, char **argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) return 2;
  OpenRaster in, out;
  int code = RasGetInfo(options.in, &in.desc);
  if (code != RasOk) return Fail(options.in, "not a readable photo", code);
  const uint32_t format = FormatForName(options.out);
  uint32_t channels = in.desc.channels, model = in.desc.model;
  if (!FormatStoresModel(format, model)) {
    std::fprintf(stderr, "korvel-raster: %s: a %s file cannot hold %s samples; writing RGB\n",
                 options.out, RasFormatName(format), ModelName(model));
    channels = 3;
    model = RasModelRgb;
  }
  code = RasOpen(options.in, 'r', &in.desc);
  if (code != RasOk) return Fail(options.in, "cannot open", code);
  OutputFile file(options.out);
  if (!file.temp()) {
    std::fprintf(stderr, "korvel-raster: %s: cannot create: %s\n", options.out,
                 std::strerror(errno));
    return 1;
  }
  code = RasSetDesc(&out.desc, format, in.desc.width, in.desc.height, channels, model,
                    in.desc.resolution);
  JpegQualityScope quality(options.quality);
  if (code == RasOk) code = RasOpen(file.temp(), 'w', &out.desc);
  if (code != RasOk) return Fail(options.out, "cannot create", code);
  if (const int status = CopyRows(options, &in, &out)) return status;
  code = RasClose(&out.desc);
  if (code != RasOk) return Fail(options.out, "cannot finish", code);
  if (!file.Commit()) {
    std::fprintf(stderr, "korvel-raster: %s: cannot replace: %s\n", options.out,
                 std::strerror(errno));
    return 1;
  }
  return 0;
}

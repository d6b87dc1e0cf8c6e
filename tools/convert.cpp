// korvel-raster convert: every row of one file into another, streamed one
// scanline at a time, the output format chosen by the output name's extension.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "pixels/orient.h"
#include "raster/ras.h"
#include "raster/rasrgb.h"
#include "tools/commands.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

namespace {

bool FormatStoresModel(uint32_t format, uint32_t model) {
  switch (format) {
    case RasFormatBmp:
      return model == RasModelRgb || model == RasModelGray;
    case RasFormatJpeg:
      return model == RasModelRgb || model == RasModelGray || model == RasModelCmyk;
    case RasFormatTiff:
      return model != RasModelYcc;  // TIFF would label YCC samples as RGB
    case RasFormatTarga:
    case RasFormatCineon:
      return model == RasModelRgb || model == RasModelGray;
    case RasFormatScitex:
    case RasFormatEps:
      return model == RasModelRgb || model == RasModelGray || model == RasModelCmyk;
    default:
      return true;
  }
}

const char *ModelName(uint32_t model) {
  struct Named {
    uint32_t model;
    const char *name;
  };
  static constexpr Named kNames[] = {{RasModelRgb, "RGB"},
                                     {RasModelCmyk, "CMYK"},
                                     {RasModelGray, "grayscale"},
                                     {RasModelLab, "CIE L*a*b*"},
                                     {RasModelYcc, "Photo CD YCC"}};
  for (const Named &named : kNames)
    if (named.model == model) return named.name;
  return "unknown-model";
}

// Samples go from one file's range to the other's (0..255 for 8-bit formats,
// 0..1023 for Cineon, 0..65535 for 16-bit TIFF), scaled and rounded.
void RescaleRow(const RasSl &from, uint32_t fromMax, uint32_t toMax, RasSl *to) {
  for (uint32_t k = 0; k < to->channels; ++k) {
    for (uint32_t x = 0; x < to->width; ++x) {
      const uint64_t v = fromMax <= 255 ? from.plane8[k][x] : from.plane16[k][x];
      const uint64_t scaled = (v * toMax + fromMax / 2) / fromMax;
      if (toMax <= 255)
        to->plane8[k][x] = static_cast<uint8_t>(scaled);
      else
        to->plane16[k][x] = static_cast<uint16_t>(scaled);
    }
  }
}

struct Options {
  const char *in = nullptr;
  const char *out = nullptr;
  int quality = 100;
  int orientation = 1;  // how IN's pixels are turned upright on the way
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

// Rows go across as they are, rescaled when the two formats' sample ranges
// differ, or turned into RGB as the application does on opening when the
// target cannot hold the file's own model.
int CopyRows(const Options &options, OpenRaster *in, OpenRaster *out) {
  Scanline source, rgb, target;
  const bool toRgb = out->desc.model != in->desc.model || out->desc.channels != in->desc.channels;
  const uint32_t inMax = toRgb ? 255 : in->desc.maxval;
  // Scitex CT rows move a padding byte through planes made for them, so its
  // rows always go through a record of its own.
  const bool rescale = inMax != out->desc.maxval || out->desc.format == RasFormatScitex;
  RasDesc rgbDesc = in->desc;
  rgbDesc.channels = 3;
  rgbDesc.maxval = 255;
  int code = RasMakeSl(&source.sl, &in->desc);
  if (code == RasOk && toRgb) code = RasMakeSl(&rgb.sl, &rgbDesc);
  if (code == RasOk && rescale) code = RasMakeSl(&target.sl, &out->desc);
  if (code != RasOk) return Fail(options.in, "cannot make a scanline", code);
  OrientedRows rows(&out->desc, options.orientation, in->desc.width, in->desc.height);
  for (uint32_t row = 0; row < in->desc.height; ++row) {
    code = RasReadSl(&in->desc, row, &source.sl);
    const RasSl *from = &source.sl;
    if (code == RasOk && toRgb) {
      code =
          RasSlToRgb(&source.sl, &in->desc, rgb.sl.plane8[0], rgb.sl.plane8[1], rgb.sl.plane8[2]);
      from = &rgb.sl;
    }
    if (code != RasOk) return Fail(options.in, "cannot read a row", code);
    if (rescale) {
      RescaleRow(*from, inMax, out->desc.maxval, &target.sl);
      from = &target.sl;
    }
    code = rows.Put(row, *from);
    if (code != RasOk) return Fail(options.out, "cannot write a row", code);
  }
  code = rows.Finish();
  if (code != RasOk) return Fail(options.out, "cannot write a row", code);
  return 0;
}

}  // namespace

int RunConvert(int argc, char **argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) return 2;
  OpenRaster in, out;
  int code = RasGetInfo(options.in, &in.desc);
  if (code != RasOk) return Fail(options.in, "not a readable photo", code);
  options.orientation = ReadSourceMeta(options.in);
  const bool exchanged = OrientationExchanges(options.orientation);
  const uint32_t format = FormatForName(options.out);
  uint32_t channels = in.desc.channels, model = in.desc.model;
  if (!FormatStoresModel(format, model)) {
    std::fprintf(stderr, "korvel-raster: %s: a %s file cannot hold %s samples; writing RGB\n",
                 options.out, RasFormatName(format), ModelName(model));
    channels = 3;
    model = RasModelRgb;
  }
  // Alpha goes only where the format keeps it; elsewhere it is flattened on white.
  const bool keepsAlpha = format == RasFormatPng || format == RasFormatWebp ||
                          format == RasFormatHeic || format == RasFormatAvif;
  if (model == RasModelRgb && channels == 4 && !keepsAlpha) channels = 3;
  code = RasOpen(options.in, 'r', &in.desc);
  if (code != RasOk) return Fail(options.in, "cannot open", code);
  OutputFile file(options.out);
  if (!file.temp()) {
    std::fprintf(stderr, "korvel-raster: %s: cannot create: %s\n", options.out,
                 std::strerror(errno));
    return 1;
  }
  code =
      RasSetDesc(&out.desc, format, exchanged ? in.desc.height : in.desc.width,
                 exchanged ? in.desc.width : in.desc.height, channels, model, in.desc.resolution);
  // Samples wider than 8 bits stay wide in a PNG.
  if (format == RasFormatPng && in.desc.maxval > 255) out.desc.maxval = 65535;
  JpegQualityScope quality(options.quality);
  if (code == RasOk) {
    HandSourceMetaToEncoder(out.desc.format, out.desc.width, out.desc.height);
    code = RasOpen(file.temp(), 'w', &out.desc);
  }
  if (code != RasOk) return Fail(options.out, "cannot create", code);
  if (const int status = CopyRows(options, &in, &out)) return status;
  code = RasClose(&out.desc);
  if (code != RasOk) return Fail(options.out, "cannot finish", code);
  if (const int status = WriteSourceMeta(file.temp(), options.out, out.desc.width, out.desc.height))
    return status;
  if (!file.Commit()) {
    std::fprintf(stderr, "korvel-raster: %s: cannot replace: %s\n", options.out,
                 std::strerror(errno));
    return 1;
  }
  return 0;
}

// Makes a deterministic photo-like picture: a sky that darkens upward, a sun,
// hills with grass texture, a few hard-edged shapes and sensor-like noise.
// Smooth areas, edges and fine detail together give codecs the work a real
// photo gives them. Written as binary PPM, or through the raster library when
// the name ends in jpg, bmp, tif or tiff.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "raster/jpeg.h"
#include "raster/ras.h"

namespace {

struct Noise {
  uint32_t state = 12345;
  int Next() {  // small symmetric noise from a 32-bit LCG
    state = state * 1664525u + 1013904223u;
    return static_cast<int>((state >> 24) & 15) - 8;
  }
};

uint8_t Clamp(int v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

void PaintRow(uint32_t width, uint32_t height, uint32_t y, Noise *noise, uint8_t *rgb) {
  const double fy = static_cast<double>(y) / height;
  for (uint32_t x = 0; x < width; ++x) {
    const double fx = static_cast<double>(x) / width;
    const double hill = 0.55 + 0.08 * std::sin(fx * 9.0) + 0.04 * std::sin(fx * 23.0 + 1.0);
    int r, g, b;
    if (fy < hill) {
      r = static_cast<int>(90 + 100 * fy);
      g = static_cast<int>(140 + 80 * fy);
      b = static_cast<int>(230 - 30 * fy);
      const double dx = fx - 0.75, dy = (fy - 0.18) * height / width;
      if (dx * dx + dy * dy < 0.0025) r = 255, g = 240, b = 190;
    } else {
      const double grass = std::sin(x * 0.7) * std::sin(y * 1.3) * 20.0;
      r = static_cast<int>(60 + grass * 0.5 + 40 * fy);
      g = static_cast<int>(120 + grass + 30 * (1 - fy));
      b = static_cast<int>(40 + grass * 0.3);
    }
    if (fx > 0.1 && fx < 0.25 && fy > 0.45 && fy < 0.8) r = 180, g = 50, b = 40;  // a red wall
    rgb[3 * x + 0] = Clamp(r + noise->Next());
    rgb[3 * x + 1] = Clamp(g + noise->Next());
    rgb[3 * x + 2] = Clamp(b + noise->Next());
  }
}

int WritePpm(const char *path, uint32_t width, uint32_t height) {
  FILE *out = std::fopen(path, "wb");
  if (!out) return 1;
  std::fprintf(out, "P6\n%u %u\n255\n", width, height);
  std::vector<uint8_t> rgb(3 * width);
  Noise noise;
  for (uint32_t y = 0; y < height; ++y) {
    PaintRow(width, height, y, &noise, rgb.data());
    std::fwrite(rgb.data(), 1, rgb.size(), out);
  }
  return std::fclose(out) == 0 ? 0 : 1;
}

int WriteRaster(const char *path, uint32_t format, uint32_t width, uint32_t height) {
  RasDesc desc;
  RasSl sl{};
  if (RasSetDesc(&desc, format, width, height, 3, RasModelRgb, 72.0f) != RasOk ||
      RasOpen(path, 'w', &desc) != RasOk)
    return 1;
  int code = RasMakeSl(&sl, &desc);
  std::vector<uint8_t> rgb(3 * width);
  Noise noise;
  for (uint32_t y = 0; y < height && code == RasOk; ++y) {
    PaintRow(width, height, y, &noise, rgb.data());
    for (uint32_t x = 0; x < width; ++x)
      for (int k = 0; k < 3; ++k)
        sl.plane8[k][x] = rgb[3 * x + k];
    code = RasWriteSl(&desc, y, &sl);
  }
  RasFreeSl(&sl);
  const int closed = RasClose(&desc);
  return code == RasOk && closed == RasOk ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: make_photo WIDTH HEIGHT OUT.{ppm,jpg,bmp,tif}\n", stderr);
    return 2;
  }
  const auto width = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
  const auto height = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
  const char *dot = std::strrchr(argv[3], '.');
  const char *ext = dot ? dot + 1 : "";
  if (std::strcmp(ext, "ppm") == 0) return WritePpm(argv[3], width, height);
  if (std::strcmp(ext, "bmp") == 0) return WriteRaster(argv[3], RasFormatBmp, width, height);
  if (std::strcmp(ext, "tif") == 0 || std::strcmp(ext, "tiff") == 0)
    return WriteRaster(argv[3], RasFormatTiff, width, height);
  if (JpegSetOption(JpegOptQuality, 92) != RasOk) return 1;
  return WriteRaster(argv[3], RasFormatJpeg, width, height);
}

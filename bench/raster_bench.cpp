// Times the raster library's hot paths against peers on the same input in the
// same run, and prints one line per comparison:
//   bench NAME ours_ms=X peer=PEER peer_ms=Y ratio=X/Y
// and "info" lines with the throughputs and sizes behind them.
// Usage: raster_bench DIR RUNS, where DIR holds photo.ppm and photo.jpg; the
// PNG and WebP files decoded are written here from photo.ppm.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/spawn.h"
#include "bench/timing.h"
#include "raster/jpeg.h"
#include "raster/ras.h"

namespace {

using Clock = std::chrono::steady_clock;

bool Spawn(std::vector<std::string> args) {
  std::vector<char *> argv;
  for (auto &a : args)
    argv.push_back(a.data());
  argv.push_back(nullptr);
  return SpawnQuiet(argv.data());
}

struct Photo {
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> planes[3];
};

bool LoadPpm(const std::string &path, Photo *photo) {
  FILE *in = std::fopen(path.c_str(), "rb");
  if (!in) return false;
  unsigned w = 0, h = 0, maxval = 0;
  bool ok = std::fscanf(in, "P6 %u %u %u", &w, &h, &maxval) == 3 && maxval == 255 &&
            std::fgetc(in) != EOF;
  std::vector<uint8_t> rgb(size_t{3} * w);
  photo->width = w;
  photo->height = h;
  for (auto &plane : photo->planes)
    plane.resize(size_t{w} * h);
  for (uint32_t y = 0; ok && y < h; ++y) {
    ok = std::fread(rgb.data(), 1, rgb.size(), in) == rgb.size();
    for (uint32_t x = 0; ok && x < w; ++x)
      for (int k = 0; k < 3; ++k)
        photo->planes[k][size_t{y} * w + x] = rgb[3 * x + k];
  }
  std::fclose(in);
  return ok;
}

bool ReadAll(const std::string &path) {
  RasDesc desc{};
  RasSl sl{};
  if (RasGetInfo(path.c_str(), &desc) != RasOk || RasOpen(path.c_str(), 'r', &desc) != RasOk)
    return false;
  int code = RasOk;
  for (uint32_t row = 0; row < desc.height && code == RasOk; ++row)
    code = RasReadSl(&desc, row, &sl);
  RasFreeSl(&sl);
  return RasClose(&desc) == RasOk && code == RasOk;
}

bool WriteAll(const Photo &photo, uint32_t format, const std::string &path) {
  RasDesc desc;
  if (RasSetDesc(&desc, format, photo.width, photo.height, 3, RasModelRgb, 72.0f) != RasOk ||
      RasOpen(path.c_str(), 'w', &desc) != RasOk)
    return false;
  RasSl sl{};
  sl.width = photo.width;
  sl.channels = 3;
  int code = RasOk;
  for (uint32_t row = 0; row < photo.height && code == RasOk; ++row) {
    for (int k = 0; k < 3; ++k)
      sl.plane8[k] = const_cast<uint8_t *>(photo.planes[k].data()) + size_t{row} * photo.width;
    code = RasWriteSl(&desc, row, &sl);
  }
  return RasClose(&desc) == RasOk && code == RasOk;
}

long FileSize(const std::string &path) {
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return -1;
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  std::fclose(f);
  return size;
}

// Reading and writing an uncompressed file should cost about as much as
// copying its bytes; memcpy of the file's size is the peer.
void UncompressedBench(const Photo &photo, uint32_t format, const std::string &path, int runs) {
  const std::string name = RasFormatName(format);
  const double write = MedianMs(runs, [&] { return WriteAll(photo, format, path); });
  const double read = MedianMs(runs, [&] { return ReadAll(path); });
  const size_t bytes = static_cast<size_t>(FileSize(path));
  std::vector<uint8_t> from(bytes, 1), to(bytes);
  const double copy = MedianMs(runs, [&] {
    std::memcpy(to.data(), from.data(), bytes);
    return to[bytes / 2] == 1;
  });
  PrintBench((name + "_write").c_str(), write, "memcpy", copy);
  PrintBench((name + "_read").c_str(), read, "memcpy", copy);
  std::printf("info %s_throughput write_gb_s=%.2f read_gb_s=%.2f memcpy_gb_s=%.2f\n", name.c_str(),
              bytes / write / 1e6, bytes / read / 1e6, bytes / copy / 1e6);
}

// Decoding a compressed file against the peer's command-line decoder on the
// same file; the peer writes its PPM to /dev/null, we fill the planes row by row.
void DecodeBench(const char *name, const std::string &path, const char *peer,
                 std::vector<std::string> peerArgs, int runs) {
  const double ours = MedianMs(runs, [&] { return ReadAll(path); });
  const double theirs = MedianMs(runs, [&] { return Spawn(peerArgs); });
  PrintBench(name, ours, peer, theirs);
}

// PNG as our writer makes it (libpng's default compression), WebP lossy at 90
// as photos usually are; both then decoded against pngtopnm and dwebp.
bool PngWebpBench(const Photo &photo, const std::string &dir, int runs) {
  const std::string png = dir + "/photo.png", webp = dir + "/photo.webp";
  if (!WriteAll(photo, RasFormatPng, png) || JpegSetOption(JpegOptQuality, 90) != RasOk ||
      !WriteAll(photo, RasFormatWebp, webp))
    return false;
  std::printf("info png_webp_size png_bytes=%ld webp_bytes=%ld\n", FileSize(png), FileSize(webp));
  DecodeBench("png_decode", png, "pngtopnm", {"pngtopnm", png}, runs);
  DecodeBench("webp_decode", webp, "dwebp", {"dwebp", "-quiet", "-ppm", webp, "-o", "/dev/null"},
              runs);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fputs("usage: raster_bench DIR RUNS\n", stderr);
    return 2;
  }
  const std::string dir = argv[1];
  const int runs = std::max(5, std::atoi(argv[2]));
  const std::string jpeg = dir + "/photo.jpg", ppm = dir + "/photo.ppm";
  Photo photo;
  if (!LoadPpm(ppm, &photo)) {
    std::fprintf(stderr, "raster_bench: cannot read %s\n", ppm.c_str());
    return 1;
  }

  const double decode = MedianMs(runs, [&] { return ReadAll(jpeg); });
  const double djpeg = MedianMs(runs, [&] {
    return Spawn({"djpeg", "-outfile", "/dev/null", jpeg});
  });
  PrintBench("jpeg_decode", decode, "djpeg", djpeg);

  if (JpegSetOption(JpegOptQuality, 100) != RasOk) return 1;
  const std::string ours = dir + "/ours.jpg", theirs = dir + "/theirs.jpg";
  const double encode = MedianMs(runs, [&] { return WriteAll(photo, RasFormatJpeg, ours); });
  const double cjpeg = MedianMs(runs, [&] {
    return Spawn(
        {"cjpeg", "-quality", "100", "-baseline", "-restart", "1", "-outfile", theirs, ppm});
  });
  PrintBench("jpeg_encode", encode, "cjpeg", cjpeg);
  std::printf("info jpeg_encode_size ours_bytes=%ld peer_bytes=%ld\n", FileSize(ours),
              FileSize(theirs));

  UncompressedBench(photo, RasFormatBmp, dir + "/photo.bmp", runs);
  UncompressedBench(photo, RasFormatTiff, dir + "/photo.tif", runs);
  return PngWebpBench(photo, dir, runs) ? 0 : 1;
}

// Times RotateImage (a quarter turn of a 24-Mpixel three-plane photo) and
// ReduceImage to 25, 50 and 75 % on one thread and on all, against a memcpy of
// the same bytes, the bandwidth limit:
//   bench NAME ours_ms=X ours_1t_ms=Z peer=memcpy peer_ms=Y ratio=X/Y ratio_1t=Z/Y
// Usage: pixels_bench RUNS
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/threads.h"
#include "pixels/pixels.h"

int main(int argc, char **argv) {
  const int runs = std::max(5, argc > 1 ? std::atoi(argv[1]) : 5);
  PlanarImage *src = PlanarCreate(6000, 4000, 3);
  PlanarImage *dst = PlanarCreateExchanged(src);
  if (!src || !dst) return 1;
  const size_t bytes = size_t{6000} * 4000 * 3;
  for (size_t i = 0; i < bytes; ++i)
    src->planes[0][i] = static_cast<uint8_t>(i * 2654435761u >> 24);
  std::memset(dst->planes[0], 0, bytes);

  for (const int mode : {0, 2}) {
    const ThreadedMs ours =
        MedianMsThreaded(runs, [&] { return RotateImage(src, mode, dst, nullptr) == 0; });
    const double copy = MedianMs(runs, [&] {
      std::memcpy(dst->planes[0], src->planes[0], bytes);
      return true;
    });
    const std::string name = "rotate_mode" + std::to_string(mode);
    PrintBenchThreaded(name.c_str(), ours, "memcpy", copy);
  }
  // Reduction in memory, the work of a zoom without reading or writing a
  // file; the peer is a copy of the source, the bytes every reduction reads.
  for (const int percent : {25, 50, 75}) {
    const PixRect whole{};
    const PixReduceOptions options{};
    PlanarImage *small = PlanarCreateScaled(src, static_cast<float>(percent) / 100.0f);
    if (!small) return 1;
    const ThreadedMs ours = MedianMsThreaded(
        runs, [&] { return ReduceImage(nullptr, src, 1, small, &whole, &options, nullptr) == 0; });
    const double copy = MedianMs(runs, [&] {
      std::memcpy(dst->planes[0], src->planes[0], bytes);
      return true;
    });
    const std::string name = "reduce_" + std::to_string(percent);
    PrintBenchThreaded(name.c_str(), ours, "memcpy", copy);
    PlanarFree(small);
  }
  PlanarFree(src);
  PlanarFree(dst);
  return 0;
}

// Times RotateImage (a quarter turn of a 24-Mpixel three-plane photo) against
// a memcpy of the same bytes, the bandwidth limit:
//   bench NAME ours_ms=X peer=memcpy peer_ms=Y ratio=X/Y
// Usage: pixels_bench RUNS
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "edit/pixels/pixels.h"

namespace {

template <class Work>
double MedianMs(int runs, Work work) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int main(int argc, char **argv) {
  const int runs = std::max(5, argc > 1 ? std::atoi(argv[1]) : 5);
  PlanarImage *src = PlanarCreate(6000, 4000, 3);
  PlanarImage *dst = PlanarCreateExchanged(src);
  if (!src || !dst) return 1;
  const size_t bytes = size_t{6000} * 4000 * 3;
  for (size_t i = 0; i < bytes; ++i)
    src->planes[0][i] = static_cast<uint8_t>(i * 2654435761u >> 24);
  std::memset(dst->planes[0], 0, bytes);
  int code = 0;
  for (const int mode : {0, 2}) {
    const double ours = MedianMs(runs, [&] { code |= RotateImage(src, mode, dst, nullptr); });
    const double copy = MedianMs(runs, [&] { std::memcpy(dst->planes[0], src->planes[0], bytes); });
    std::printf("bench rotate_mode%d ours_ms=%.1f peer=memcpy peer_ms=%.1f ratio=%.3f\n", mode,
                ours, copy, ours / copy);
  }
  PlanarFree(src);
  PlanarFree(dst);
  return code;
}

// Runs a command RUNS times with its output thrown away and prints the median
// wall time in milliseconds; for comparing whole commands against peers.
// Usage: cmdtime RUNS COMMAND [ARGS...]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/spawn.h"

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fputs("usage: cmdtime RUNS COMMAND [ARGS...]\n", stderr);
    return 2;
  }
  const int runs = std::max(1, std::atoi(argv[1]));
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = SpawnQuiet(argv + 2);
    if (!ok) {
      std::fprintf(stderr, "cmdtime: %s failed\n", argv[2]);
      return 1;
    }
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(times.begin(), times.end());
  std::printf("%.1f\n", times[times.size() / 2]);
  return 0;
}

// The median time of a piece of work over several runs, and the line every
// benchmark prints:
//   bench NAME ours_ms=X peer=PEER peer_ms=Y ratio=X/Y
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

// `work` returns false when a run failed; the benchmark then stops, since a
// time for failed work means nothing.
inline double MedianMs(int runs, const std::function<bool()> &work) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (!work()) {
      std::fputs("bench: a timed run failed\n", stderr);
      std::exit(1);
    }
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

inline void PrintBench(const char *name, double ours, const char *peer, double theirs) {
  std::printf("bench %s ours_ms=%.1f peer=%s peer_ms=%.1f ratio=%.3f\n", name, ours, peer, theirs,
              ours / theirs);
  std::fflush(stdout);  // lines appear in order with those of the peers' runs
}

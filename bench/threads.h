// Timing a piece of work on one thread and on every worker thread, printed
// side by side with the peer:
//   bench NAME ours_ms=X ours_1t_ms=Z peer=PEER peer_ms=Y ratio=X/Y ratio_1t=Z/Y
// ours_ms is the default (every thread), as the application runs.
#pragma once

#include <cstdio>

#include "bench/timing.h"
#include "platform/workers.h"

struct ThreadedMs {
  double all, one;
};

inline ThreadedMs MedianMsThreaded(int runs, const std::function<bool()> &work) {
  const int old = SetWorkerLimit(1);
  const double one = MedianMs(runs, work);
  SetWorkerLimit(0);
  const double all = MedianMs(runs, work);
  SetWorkerLimit(old);
  return {all, one};
}

inline void PrintBenchThreaded(const char *name, ThreadedMs ours, const char *peer, double theirs) {
  std::printf(
      "bench %s ours_ms=%.1f ours_1t_ms=%.1f peer=%s peer_ms=%.1f ratio=%.3f ratio_1t=%.3f\n", name,
      ours.all, ours.one, peer, theirs, ours.all / theirs, ours.one / theirs);
  std::fflush(stdout);
}

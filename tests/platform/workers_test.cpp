// The worker pool: every index is worked exactly once, parts keep to their
// grain, and one thread, small counts and splits inside splits stay on the
// caller in one piece.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/workers.h"

namespace {

const bool kThreadsSet = setenv("KORVEL_THREADS", "4", 0) == 0;

struct Parts {
  std::mutex mutex;
  std::vector<std::pair<int64_t, int64_t>> seen;
  std::vector<int> hits;
  void Run(int64_t count, int64_t grain) {
    hits.assign(size_t(count), 0);
    SplitWork(count, grain, [&](int64_t first, int64_t last) {
      const std::lock_guard<std::mutex> lock(mutex);
      seen.emplace_back(first, last);
      for (int64_t i = first; i < last; ++i)
        ++hits[size_t(i)];
    });
  }
};

TEST(Workers, EveryIndexOnceInWholeGrains) {
  ASSERT_TRUE(kThreadsSet);
  ASSERT_GE(WorkerCount(), 1);
  const struct {
    int64_t count, grain;
    bool alone;  // worked by the caller in one piece
  } kCases[] = {{1, 1, true}, {7, 4, true}, {8, 4, false}, {1001, 16, false}, {100000, 1, false}};
  for (const auto &c : kCases) {
    SCOPED_TRACE(testing::Message() << c.count << " by " << c.grain);
    Parts parts;
    parts.Run(c.count, c.grain);
    EXPECT_EQ(parts.hits, std::vector<int>(size_t(c.count), 1));
    if (c.alone || WorkerCount() == 1) {
      EXPECT_EQ(parts.seen, (std::vector<std::pair<int64_t, int64_t>>{{0, c.count}}));
    }
    for (const auto &[first, last] : parts.seen)
      EXPECT_TRUE(first % c.grain == 0 && (last == c.count || (last - first) % c.grain == 0))
          << first << ".." << last;
  }
  // One thread: a single part, in order, on the caller.
  const int old = SetWorkerLimit(1);
  EXPECT_EQ(WorkerCount(), 1);
  Parts one;
  one.Run(1000, 1);
  EXPECT_EQ(one.seen, (std::vector<std::pair<int64_t, int64_t>>{{0, 1000}}));
  SetWorkerLimit(old);
}

TEST(Workers, SplitsInsidePartsAndFromManyThreadsFinish) {
  std::atomic<int64_t> total{0};
  const auto nested = [&] {
    SplitWork(64, 1, [&](int64_t first, int64_t last) {
      SplitWork(last - first, 1, [&](int64_t a, int64_t b) { total += b - a; });
    });
  };
  std::vector<std::thread> callers;
  for (int i = 0; i < 3; ++i)
    callers.emplace_back(nested);
  nested();
  for (std::thread &t : callers)
    t.join();
  EXPECT_EQ(total.load(), 4 * 64);
}

}  // namespace

// The worker pool: threads made once and kept asleep between splits. A split
// is published under the pool's lock; every thread, the caller included,
// then takes parts by one atomic counter until none is left. The caller
// leaves only when every part is done and no worker still holds the split,
// which lives on the caller's stack.
#include "platform/workers.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// More threads than this would only wait on memory on the machines we run on.
constexpr int kMaxThreads = 64;
constexpr int kPartsPerThread = 4;

int ThreadsWanted() {
  if (const char *text = std::getenv("KORVEL_THREADS"); text && *text) {
    char *end = nullptr;
    const long wanted = std::strtol(text, &end, 10);
    if (*end == '\0' && wanted >= 1) return static_cast<int>(std::min<long>(wanted, kMaxThreads));
  }
  const unsigned cores = std::thread::hardware_concurrency();
  return std::clamp(static_cast<int>(cores), 1, kMaxThreads);
}

struct Split {
  WorkerPart work;
  void *context;
  int64_t count, partSize;
  int parts;
  std::atomic<int> next{0};
  std::atomic<int> done{0};
};

// Set on a thread while it runs a part: a split asked for from inside one
// runs on that thread alone.
thread_local bool tInsidePart = false;

class Pool {
 public:
  explicit Pool(int threads) : size_(threads) {
    for (int i = 1; i < threads; ++i)
      threads_.emplace_back([this] { Serve(); });
  }
  ~Pool() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    for (std::thread &t : threads_)
      t.join();
  }
  Pool(const Pool &) = delete;
  Pool &operator=(const Pool &) = delete;

  int Size() const { return size_; }

  // False when another split holds the pool; the caller then works alone.
  bool Run(Split *split) {
    std::unique_lock<std::mutex> busy(busy_, std::try_to_lock);
    if (!busy.owns_lock()) return false;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      split_ = split;
      ++generation_;
    }
    wake_.notify_all();
    Drain(split);
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&] { return split->done.load() == split->parts && holders_ == 0; });
    split_ = nullptr;
    return true;
  }

 private:
  void Serve() {
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      wake_.wait(lock, [&] { return stop_ || generation_ != seen; });
      if (stop_) return;
      seen = generation_;
      Split *split = split_;
      if (!split) continue;
      ++holders_;
      lock.unlock();
      Drain(split);
      lock.lock();
      --holders_;
      finished_.notify_all();
    }
  }

  void Drain(Split *split) {
    for (int part = split->next.fetch_add(1); part < split->parts;
         part = split->next.fetch_add(1)) {
      const int64_t first = part * split->partSize;
      tInsidePart = true;
      split->work(split->context, first, std::min(split->count, first + split->partSize));
      tInsidePart = false;
      if (split->done.fetch_add(1) + 1 == split->parts) {
        const std::lock_guard<std::mutex> lock(mutex_);
        finished_.notify_all();
      }
    }
  }

  const int size_;
  std::vector<std::thread> threads_;
  std::mutex busy_;   // one split at a time
  std::mutex mutex_;  // guards everything below
  std::condition_variable wake_, finished_;
  Split *split_ = nullptr;
  uint64_t generation_ = 0;
  int holders_ = 0;  // workers between taking the split and leaving it
  bool stop_ = false;
};

Pool &ThePool() {
  static Pool pool(ThreadsWanted());
  return pool;
}

std::atomic<int> gLimit{0};

}  // namespace

int WorkerCount() {
  const int size = ThePool().Size();
  const int limit = gLimit.load();
  return limit > 0 ? std::min(limit, size) : size;
}

int SetWorkerLimit(int threads) {
  const int old = WorkerCount();
  gLimit.store(std::clamp(threads, 0, ThePool().Size()));
  return old;
}

void SplitWork(int64_t count, int64_t grain, WorkerPart work, void *context) {
  if (count <= 0) return;
  grain = std::max<int64_t>(grain, 1);
  const int threads = tInsidePart ? 1 : WorkerCount();
  const int64_t grains = count / grain;  // whole ones
  const int64_t wanted = std::min<int64_t>(grains, int64_t{threads} * kPartsPerThread);
  if (threads == 1 || grains < 2) {
    work(context, 0, count);
    return;
  }
  Split split;
  split.work = work;
  split.context = context;
  split.count = count;
  split.partSize = (grains + wanted - 1) / wanted * grain;
  split.parts = static_cast<int>((count + split.partSize - 1) / split.partSize);
  if (!ThePool().Run(&split)) work(context, 0, count);
}

// A small pool of worker threads shared by the pixel routines, the colour
// engine and the raster library, so that one large picture keeps every core
// busy. The pool is made on first use with as many threads as KORVEL_THREADS
// asks (a whole number of at least 1), else one per core; the calling thread
// is one of them. KORVEL_THREADS=1 runs everything on the caller, in order.
//
// Work is split into contiguous parts of an index range, so a routine that
// writes each index's output from its input alone gives the same bytes
// however many threads run it.
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

// The number of threads a split may use, the caller included; at least 1.
int WorkerCount();

// For tests and benchmarks: the number of threads later splits use, clamped to
// 1..the pool's size; 0 goes back to the pool's size. Returns the old limit.
int SetWorkerLimit(int threads);

// Runs work(context, first, last) over [0, count) in parts of at least `grain`
// indices (every part but the last is a whole number of grains), a few parts
// a thread so that a core slowed by other programs takes fewer of them, and
// returns once every part is done. With one thread, a count below two grains,
// or when called from inside another split or while another thread's split
// runs, the caller runs work(context, 0, count) itself.
using WorkerPart = void (*)(void *context, int64_t first, int64_t last);
void SplitWork(int64_t count, int64_t grain, WorkerPart work, void *context);

// The same for any callable taking (first, last).
template <class Work>
void SplitWork(int64_t count, int64_t grain, Work &&work) {
  using Plain = std::remove_reference_t<Work>;
  SplitWork(
      count, grain,
      [](void *context, int64_t first, int64_t last) {
        (*static_cast<Plain *>(context))(first, last);
      },
      const_cast<void *>(static_cast<const void *>(std::addressof(work))));
}

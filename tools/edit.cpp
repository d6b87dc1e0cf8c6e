// korvel-raster rotate, crop, zoom and redeye: a photo read into the planar
// RGB form the application edits (every model converted as when a photo is
// opened), one pixel routine, and the result written in the format of the
// output name's extension.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "pixels/pixels.h"
#include "pixels/reduceplan.h"
#include "platform/workers.h"
#include "raster/ras.h"
#include "tools/commands.h"
#include "tools/photoio.h"
#include "tools/toolio.h"
#include "tools/toolmeta.h"

namespace {

bool ParseInt(const char *text, long low, long high, int32_t *value) {
  char *end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (*text == 0 || *end != 0 || v < low || v > high) return false;
  *value = static_cast<int32_t>(v);
  return true;
}

int Usage(const char *usage) {
  std::fprintf(stderr, "korvel-raster: usage: korvel-raster %s\n", usage);
  return 2;
}

// A routine's refusal: nothing is written.
int Refused(const char *command, int code, const char *why) {
  std::fprintf(stderr, "korvel-raster: %s refused (code %d): %s\n", command, code, why);
  return 1;
}

}  // namespace

int RunRotate(int argc, char **argv) {
  const char *usage = "rotate left|right|180 IN OUT";
  if (argc != 3) return Usage(usage);
  // The editing view's Rotate Left is mode 2 and Rotate Right mode 0.
  const int mode = std::strcmp(argv[0], "right") == 0  ? 0
                   : std::strcmp(argv[0], "180") == 0  ? 1
                   : std::strcmp(argv[0], "left") == 0 ? 2
                                                       : -1;
  if (mode < 0) return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[1], &photo)) return status;
  Planar result(mode == 1 ? PlanarCreate(photo.image->width, photo.image->height, 3)
                          : PlanarCreateExchanged(photo.image.get()));
  if (!result) return Fail(argv[1], "too large to edit", RasErrMemory);
  const int code = RotateImage(photo.image.get(), mode, result.get(), nullptr);
  if (code != 0) return Refused("rotate", code, "the rotation failed");
  return SavePhoto(argv[2], *result, photo.resolution);
}

int RunCrop(int argc, char **argv) {
  const char *usage = "crop LEFT TOP WIDTH HEIGHT IN OUT";
  int32_t left, top, width, height;
  if (argc != 6 || !ParseInt(argv[0], INT32_MIN, INT32_MAX, &left) ||
      !ParseInt(argv[1], INT32_MIN, INT32_MAX, &top) || !ParseInt(argv[2], 1, INT32_MAX, &width) ||
      !ParseInt(argv[3], 1, INT32_MAX, &height))
    return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[4], &photo)) return status;
  const PlanarImage &src = *photo.image;
  if (left < 0 || top < 0 || width > src.width - left || height > src.height - top) {
    std::fprintf(stderr,
                 "korvel-raster: crop refused: the rectangle %dx%d at %d,%d reaches outside the "
                 "%dx%d photo\n",
                 width, height, left, top, src.width, src.height);
    return 1;
  }
  Planar result(PlanarCreate(width, height, 3));
  if (!result) return Fail(argv[4], "too large to edit", RasErrMemory);
  const int code = CropImage(&src, left, top, result.get(), nullptr);
  if (code != 0) return Refused("crop", code, "the rectangle does not fit the photo");
  return SavePhoto(argv[5], *result, photo.resolution);
}

namespace {

// Where a streamed zoom failed, for its message.
enum class Stage { kRead, kMemory, kReduce };

// The exit status for a streamed zoom's failure, after printing why.
int ZoomFailed(const char *path, Stage stage, int code) {
  if (stage == Stage::kRead) return Fail(path, "cannot read a row", code);
  if (stage == Stage::kMemory) return Fail(path, "too small or too large to zoom", code);
  return Refused("zoom", code, "the photo could not be resampled");
}

// The reduced photo of a file read in order, made a band of source rows at a
// time, so that neither the photo nor the result is ever held whole: fresh
// memory is slow to come by, and a band of each, reused, stays in the
// caches. Source rows go into a ring deep enough for one band plus the rows
// the kernel reaches back; after each band, the destination rows it
// completes are reduced on every thread into one of two buffers, which the
// writer empties in order. With more than one thread the bands are made on a
// thread of their own, one buffer ahead of the writer, so that reading and
// reducing go on while rows are written.
class ReducedRows {
 public:
  ReducedRows(const char *path, PhotoReader *reader, const ReducePlan &plan)
      : path_(path), reader_(reader), plan_(plan) {}
  ~ReducedRows() {
    {
      const std::lock_guard<std::mutex> held(lock_);
      stop_ = true;
    }
    changed_.notify_all();
    if (maker_.joinable()) maker_.join();
  }
  ReducedRows(const ReducedRows &) = delete;
  ReducedRows &operator=(const ReducedRows &) = delete;

  // 0, or the exit status after printing why.
  int Start() {
    const int32_t reach = plan_.Depth() + kBandRows;
    depth_ = (reach + kBandRows - 1) / kBandRows * kBandRows;
    try {
      ring_.resize(size_t{3} * static_cast<size_t>(depth_) * plan_.SourceWidth());
      if (WorkerCount() > 1) maker_ = std::thread([this] { MakeAll(); });
    } catch (const std::exception &) {  // no memory; without a thread, bands made on demand
      if (ring_.empty()) return Fail(path_, "too small or too large to zoom", RasErrMemory);
    }
    return 0;
  }

  // Destination row y, which the writer asks for in order. The last row
  // waits for every source row to be read, as loading the whole photo would
  // read them, so a damaged row past what the reduction reaches still
  // refuses the file.
  int Row(int32_t y, RasSl *sl) {
    std::unique_lock<std::mutex> held(lock_);
    asked_ = y;
    changed_.notify_all();
    const auto ready = [&] {
      return code_ != RasOk || (made_ > y && (y + 1 < plan_.Height() || done_));
    };
    if (maker_.joinable()) {
      changed_.wait(held, ready);
    } else {
      while (!ready()) {
        held.unlock();
        Step();
        held.lock();
      }
    }
    if (code_ != RasOk) return code_;
    Buffer &buffer = buffers_[0].Holds(y) ? buffers_[0] : buffers_[1];
    for (int k = 0; k < 3; ++k)
      sl->plane8[k] = buffer.Row(k, y, plan_.Width());
    return RasOk;
  }

  // The exit status for a code Row returned.
  int Failed(int code) const { return ZoomFailed(path_, stage_, code); }

 private:
  static constexpr int32_t kBandRows = 64;

  // Destination rows [top, end) in three planes of `capacity` rows.
  struct Buffer {
    std::vector<uint8_t> bytes;
    int32_t capacity = 0, top = 0, end = 0;
    bool Holds(int32_t y) const { return y >= top && y < end; }
    uint8_t *Plane(int k, int32_t width) {
      return bytes.data() + static_cast<size_t>(k) * capacity * static_cast<size_t>(width);
    }
    uint8_t *Row(int k, int32_t y, int32_t width) {
      return Plane(k, width) + static_cast<size_t>(y - top) * static_cast<size_t>(width);
    }
  };

  static const uint8_t *RingRow(void *context, int32_t channel, int32_t y) {
    const auto *self = static_cast<const ReducedRows *>(context);
    return self->ring_.data() + (static_cast<size_t>(channel) * self->depth_ + y % self->depth_) *
                                    static_cast<size_t>(self->plan_.SourceWidth());
  }

  void MakeAll() {
    for (;;) {
      {
        const std::lock_guard<std::mutex> held(lock_);
        if (stop_ || done_ || code_ != RasOk) return;
      }
      Step();
    }
  }

  // Reads the next band and reduces the destination rows it completes; once
  // every source row is read, marks the work done.
  void Step() {
    if (read_ == reader_->height()) return Finish(RasOk, Stage::kRead);
    const int code = ReadBand();
    if (code != RasOk) return Finish(code, Stage::kRead);
    int32_t end = produced_;
    while (end < plan_.Height() && (read_ == reader_->height() || plan_.LastRow(end) < read_))
      ++end;
    if (end == produced_) return;
    Buffer &buffer = buffers_[bands_++ % 2];
    {
      // The writer is done with a buffer once it asks for a row past it.
      std::unique_lock<std::mutex> held(lock_);
      changed_.wait(held, [&] { return stop_ || asked_ >= buffer.end; });
      if (stop_) return;
    }
    if (end - produced_ > buffer.capacity) {
      try {
        buffer.bytes.resize(size_t{3} * static_cast<size_t>(end - produced_) * plan_.Width());
      } catch (const std::bad_alloc &) {
        return Finish(RasErrMemory, Stage::kMemory);
      }
      buffer.capacity = end - produced_;
    }
    const int reduced = Reduce(buffer, produced_, end);
    if (reduced != 0) return Finish(reduced, Stage::kReduce);
    const std::lock_guard<std::mutex> held(lock_);
    buffer.top = produced_;
    buffer.end = end;
    made_ = produced_ = end;
    changed_.notify_all();
  }

  // The next band of source rows into the ring. Bands start at multiples of
  // kBandRows, which divides the ring's depth, so each lies in one run.
  int ReadBand() {
    const int32_t first = read_, last = std::min(first + kBandRows, reader_->height());
    const int32_t width = plan_.SourceWidth();
    PlanarImage band{1, 3, width, last - first, 0, 1, width, {}};
    for (int k = 0; k < 3; ++k)
      band.planes[k] = ring_.data() + (static_cast<size_t>(k) * depth_ + first % depth_) *
                                          static_cast<size_t>(width);
    const int code = reader_->Read(first, last, band, first);
    if (code == RasOk) read_ = last;
    return code;
  }

  // Destination rows [first, end) into `buffer`, on every thread.
  int Reduce(Buffer &buffer, int32_t first, int32_t end) {
    PlanarImage dst{1, 3, plan_.Width(), buffer.capacity, 0, 1, plan_.Width(), {}};
    for (int k = 0; k < 3; ++k)
      dst.planes[k] = buffer.Plane(k, plan_.Width());
    std::atomic<int> failed{0};
    SplitWork(end - first, 4, [&](int64_t r0, int64_t r1) {
      const int got = plan_.Rows(RingRow, this, &dst, first + static_cast<int32_t>(r0),
                                 first + static_cast<int32_t>(r1), first);
      if (got != 0) failed = got;
    });
    return failed.load();
  }

  void Finish(int code, Stage stage) {
    const std::lock_guard<std::mutex> held(lock_);
    if (code == RasOk) {
      done_ = true;
    } else {
      code_ = code;
      stage_ = stage;
    }
    changed_.notify_all();
  }

  const char *path_;
  PhotoReader *reader_;
  const ReducePlan &plan_;
  // The maker's own: the ring and how far it got.
  int32_t depth_ = 0;          // source rows the ring holds
  std::vector<uint8_t> ring_;  // 3 planes of depth_ source rows
  int32_t read_ = 0;           // source rows read so far
  int32_t produced_ = 0;       // destination rows made so far
  int64_t bands_ = 0;          // bands that made rows, to take turns with the buffers
  // Shared with the writer, under lock_.
  std::mutex lock_;
  std::condition_variable changed_;
  Buffer buffers_[2];
  int32_t made_ = 0;   // destination rows the writer may take
  int32_t asked_ = 0;  // the row the writer asks for; those before it are written
  bool done_ = false;  // every source row read and every destination row made
  bool stop_ = false;
  int code_ = RasOk;  // the first failure, and where it came from
  Stage stage_ = Stage::kRead;
  std::thread maker_;
};

// The reduced photo of a file whose rows can be read in any order, made in
// runs of destination rows: every thread, the writer included, takes the
// next run, reads the source rows it needs through a descriptor of its own
// into a ring just deep enough for one destination row (so that a row is
// blended while it is still in the core's cache) and reduces the run into a
// slot, which the writer empties in order. The writer makes a run itself
// whenever the one it needs is not there yet, so no thread waits while there
// is work, and none waits for a band to be shared out among the others.
// Neighbouring runs each read the few source rows they share.
class RunRows {
 public:
  RunRows(const char *path, PhotoReader *reader, const ReducePlan &plan)
      : path_(path), reader_(reader), plan_(plan) {}
  ~RunRows() {
    {
      const std::lock_guard<std::mutex> held(lock_);
      stop_ = true;
    }
    changed_.notify_all();
    for (std::thread &helper : helpers_)
      helper.join();
  }
  RunRows(const RunRows &) = delete;
  RunRows &operator=(const RunRows &) = delete;

  // 0, or the exit status after printing why.
  int Start() {
    const int32_t threads = WorkerCount();
    // About kRunSourceRows source rows a run, so that the rows read twice
    // are few.
    const int64_t perRun = int64_t{kRunSourceRows} * plan_.Height() / plan_.SourceHeight();
    runRows_ = static_cast<int32_t>(std::clamp<int64_t>(perRun, 1, plan_.Height()));
    runs_ = (plan_.Height() + runRows_ - 1) / runRows_;
    try {
      slots_.resize(static_cast<size_t>(2 * threads));
      workers_.resize(static_cast<size_t>(threads));
      for (int32_t k = 1; k < threads; ++k)
        helpers_.emplace_back([this, k] { Help(workers_[k]); });
    } catch (const std::exception &) {  // no memory; without helpers, the writer makes every run
      if (slots_.empty() || workers_.empty())
        return Fail(path_, "too small or too large to zoom", RasErrMemory);
    }
    return 0;
  }

  // Destination row y, which the writer asks for in order.
  int Row(int32_t y, RasSl *sl) {
    const int64_t run = y / runRows_;
    std::unique_lock<std::mutex> held(lock_);
    if (run > released_) {  // the runs before it are written
      released_ = run;
      changed_.notify_all();
    }
    Slot &slot = slots_[run % slots_.size()];
    while (slot.run != run || !slot.done) {
      if (CanTake()) {
        TakeAndMake(workers_[0], held);
      } else {
        changed_.wait(held);
      }
    }
    if (slot.code != RasOk) {
      stage_ = slot.stage;
      return slot.code;
    }
    const size_t plane = static_cast<size_t>(runRows_) * static_cast<size_t>(plan_.Width());
    for (int k = 0; k < 3; ++k)
      sl->plane8[k] = slot.bytes.data() + k * plane +
                      static_cast<size_t>(y - run * runRows_) * static_cast<size_t>(plan_.Width());
    return RasOk;
  }

  // The exit status for a code Row returned.
  int Failed(int code) const { return ZoomFailed(path_, stage_, code); }

 private:
  static constexpr int64_t kRunSourceRows = 64;

  // One thread's own: its descriptor, its ring and the next row to read.
  struct Worker {
    std::unique_ptr<OpenRaster> file;
    std::vector<uint8_t> ring;  // 3 planes of Depth() source rows
    int32_t next = 0;
  };
  // A run's rows in three planes of runRows_ rows, and how making them went.
  struct Slot {
    std::vector<uint8_t> bytes;
    int64_t run = -1;
    bool done = false;
    int code = RasOk;
    Stage stage = Stage::kRead;
  };
  struct Worked {
    int code;
    Stage stage;
  };

  // Under lock_: whether a run may be taken, which its slot allows once
  // the writer is done with the run that slot held before.
  bool CanTake() const {
    return !stop_ && !failed_ && taken_ < runs_ &&
           taken_ < released_ + static_cast<int64_t>(slots_.size());
  }

  // Takes the next run and makes it with `held` released.
  void TakeAndMake(Worker &worker, std::unique_lock<std::mutex> &held) {
    const int64_t run = taken_++;
    Slot &slot = slots_[run % slots_.size()];
    slot.run = run;
    slot.done = false;
    held.unlock();
    const Worked worked = Make(worker, run, slot);
    held.lock();
    slot.done = true;
    slot.code = worked.code;
    slot.stage = worked.stage;
    if (worked.code != RasOk) failed_ = true;
    changed_.notify_all();
  }

  void Help(Worker &worker) {
    std::unique_lock<std::mutex> held(lock_);
    for (;;) {
      changed_.wait(held, [&] { return stop_ || failed_ || taken_ >= runs_ || CanTake(); });
      if (!CanTake()) return;
      TakeAndMake(worker, held);
    }
  }

  // Source row y of channel c in a worker's ring.
  const uint8_t *RingRow(const Worker &worker, int32_t c, int32_t y) const {
    const size_t depth = static_cast<size_t>(plan_.Depth());
    return worker.ring.data() + (static_cast<size_t>(c) * depth + static_cast<size_t>(y) % depth) *
                                    static_cast<size_t>(plan_.SourceWidth());
  }

  static const uint8_t *RowAt(void *context, int32_t channel, int32_t y) {
    const auto *at = static_cast<const std::pair<const RunRows *, const Worker *> *>(context);
    return at->first->RingRow(*at->second, channel, y);
  }

  // Reads the worker's next source rows through row `last` into its ring.
  int ReadThrough(Worker &worker, int32_t last) {
    const int32_t width = plan_.SourceWidth();
    for (; worker.next <= last; ++worker.next) {
      PlanarImage row{1, 3, width, 1, 0, 1, width, {}};
      for (int k = 0; k < 3; ++k)
        row.planes[k] = const_cast<uint8_t *>(RingRow(worker, k, worker.next));
      const int code =
          reader_->ReadOwn(&worker.file, worker.next, worker.next + 1, row, worker.next);
      if (code != RasOk) return code;
    }
    return RasOk;
  }

  // Destination rows of `run` into its slot, each as soon as the worker's
  // ring holds its source rows. The first run also reads the rows above
  // what it needs and the last those below, so that a damaged row anywhere
  // refuses the file as loading it whole would.
  Worked Make(Worker &worker, int64_t run, Slot &slot) {
    const int32_t width = plan_.Width(), first = static_cast<int32_t>(run * runRows_);
    const int32_t end = std::min(first + runRows_, plan_.Height());
    try {
      worker.ring.resize(size_t{3} * static_cast<size_t>(plan_.Depth()) * plan_.SourceWidth());
      slot.bytes.resize(size_t{3} * static_cast<size_t>(runRows_) * width);
    } catch (const std::bad_alloc &) {
      return {RasErrMemory, Stage::kMemory};
    }
    PlanarImage dst{1, 3, width, runRows_, 0, 1, width, {}};
    for (int k = 0; k < 3; ++k)
      dst.planes[k] = slot.bytes.data() + static_cast<size_t>(k) * runRows_ * width;
    worker.next = first == 0 ? 0 : std::min(plan_.FirstRow(first), plan_.LastRow(first - 1) + 1);
    std::pair<const RunRows *, const Worker *> context{this, &worker};
    for (int32_t r = first; r < end; ++r) {
      const int read = ReadThrough(worker, plan_.LastRow(r));
      if (read != RasOk) return {read, Stage::kRead};
      const int reduced = plan_.Rows(RowAt, &context, &dst, r, r + 1, first);
      if (reduced != 0) return {reduced, Stage::kReduce};
    }
    if (end == plan_.Height()) {
      const int read = ReadThrough(worker, plan_.SourceHeight() - 1);
      if (read != RasOk) return {read, Stage::kRead};
    }
    return {RasOk, Stage::kRead};
  }

  const char *path_;
  PhotoReader *reader_;
  const ReducePlan &plan_;
  int32_t runRows_ = 1;  // destination rows a run
  int64_t runs_ = 0;
  std::vector<Worker> workers_;  // the writer's first
  std::vector<std::thread> helpers_;
  // Shared, under lock_.
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<Slot> slots_;
  int64_t taken_ = 0;     // runs taken, in order
  int64_t released_ = 0;  // runs before it are written
  bool failed_ = false;   // a run failed: no more are taken
  bool stop_ = false;
  Stage stage_ = Stage::kRead;  // where the failure the writer met came from
};

// Writes the reduced rows `rows` makes.
template <class Rows>
int SaveRows(const char *out, const PhotoReader &reader, const ReducePlan &plan, Rows &rows) {
  if (const int status = rows.Start()) return status;
  return SavePhoto(
      out, plan.Width(), plan.Height(), reader.resolution(),
      [&rows](int32_t y, RasSl *sl) { return rows.Row(y, sl); },
      [&rows](int code) { return rows.Failed(code); });
}

// Zooms out without holding the photo: only when nothing is to turn upright
// and the reduction can be planned; otherwise *streamed is false and the
// whole-photo path runs, with its own messages.
int ZoomOutStreamed(const char *in, const char *out, double factor, bool *streamed) {
  *streamed = false;
  PhotoReader reader;
  if (const int status = reader.Open(in)) {
    *streamed = true;
    return status;
  }
  if (ReadSourceMeta(in) != 1) return 0;
  // The size the editing view gives the result: trunc(size x factor).
  const auto scaled = [factor](int32_t size) {
    return static_cast<int32_t>(static_cast<float>(size) * static_cast<float>(factor));
  };
  std::unique_ptr<ReducePlan> plan;
  if (ReducePlan::Make(reader.width(), reader.height(), 3, scaled(reader.width()),
                       scaled(reader.height()), &plan) != 0)
    return 0;
  *streamed = true;
  if (reader.AnyOrder()) {
    RunRows rows(in, &reader, *plan);
    return SaveRows(out, reader, *plan, rows);
  }
  ReducedRows rows(in, &reader, *plan);
  return SaveRows(out, reader, *plan, rows);
}

}  // namespace

int RunZoom(int argc, char **argv) {
  const char *usage = "zoom 25|50|75|100|200|400|800 IN OUT";
  int32_t percent = 0;
  if (argc != 3 || !ParseInt(argv[0], 25, 800, &percent)) return Usage(usage);
  if (percent != 25 && percent != 50 && percent != 75 && percent != 100 && percent != 200 &&
      percent != 400 && percent != 800)
    return Usage(usage);
  const double factor = percent * 0.01;
  if (factor < 1.0) {
    bool streamed = false;
    const int status = ZoomOutStreamed(argv[1], argv[2], factor, &streamed);
    if (streamed) return status;
  }
  Photo photo;
  if (const int status = LoadPhoto(argv[1], &photo)) return status;
  // As the editing view zooms: a result of trunc(size x factor), enlarged by
  // replication with centred offsets, or reduced over the whole photo.
  Planar result(PlanarCreateScaled(photo.image.get(), static_cast<float>(factor)));
  if (!result) return Fail(argv[1], "too small or too large to zoom", RasErrMemory);
  int code;
  if (factor >= 1.0) {
    code = EnlargeImage(photo.image.get(), 0.5f, 0.5f, static_cast<int32_t>(factor), result.get(),
                        nullptr);
  } else {
    const PixRect whole{};
    const PixReduceOptions options{};
    code = ReduceImage(nullptr, photo.image.get(), 1, result.get(), &whole, &options, nullptr);
  }
  if (code != 0) return Refused("zoom", code, "the photo could not be resampled");
  return SavePhoto(argv[2], *result, photo.resolution);
}

int RunRedEye(int argc, char **argv) {
  const char *usage = "redeye X Y IN OUT";
  int32_t x, y;
  if (argc != 4 || !ParseInt(argv[0], INT32_MIN, INT32_MAX, &x) ||
      !ParseInt(argv[1], INT32_MIN, INT32_MAX, &y))
    return Usage(usage);
  Photo photo;
  if (const int status = LoadPhoto(argv[2], &photo)) return status;
  // The editing view searches two pixels along the row and column of the click.
  const int code = RemoveRedEye(photo.image.get(), x, y, 2, 0);
  if (code != 0) return Refused("redeye", code, "the point lies outside the photo");
  return SavePhoto(argv[3], *photo.image, photo.resolution);
}

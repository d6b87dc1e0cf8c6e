// Filtered reduction (zoom out) from an in-memory image or from a raster file
// open for reading. The filter is a tent as wide as the reduction ratio, so
// every source sample contributes; it is applied separably. Each destination
// row first blends the source rows under the tent (vertical pass over the
// whole source width, straight runs of bytes, sixteen at a time), then filters
// that one row horizontally. Blending first means the horizontal pass, which
// must fetch its samples column by column, runs once per destination row
// instead of once per source row. Sums are integer; each pass rounds to
// nearest and clamps to its range. Source indices are clamped at the edges
// (the edge sample repeats), so a flat picture stays exactly flat. The
// tables are made once by ReducePlan, which any caller can run over any range
// of destination rows; ReduceImage is that plan run over every row. The
// passes themselves, with their vector forms, are in reducepasses.cpp.
//
// Choices made here:
// - Modes 0 and 1 give the same result; both are accepted so that either
//   caller convention works. The rectangle and options must be present but
//   are not read (the view passes an empty rectangle and zeroed options).
// - dst's width and height are updated to the fitted size. The fitted size
//   never exceeds the size dst came with in either direction (no enlargement
//   can make it so through rounding), so planes allocated for the requested
//   size always hold the result at dst's own row stride and pixel step.
// - A file must have 8-bit samples and the same channel count as dst.
// - Progress is reported after destination row r as (r + 1) / height, so the
//   last report is 1.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "pixels/pixels.h"
#include "pixels/reduce_kernel.h"
#include "pixels/reducepasses.h"
#include "pixels/reduceplan.h"
#include "platform/workers.h"
#include "raster/ras.h"

namespace {

float Tent(float t) {
  return (t > -1.0f && t < 1.0f) ? 1.0f - (t < 0.0f ? -t : t) : 0.0f;
}

// Where a 16.16 position falls: the sample at or left of it and the nearest
// of the 16 phases. Rounding to the nearest phase (rather than truncating)
// keeps the picture from drifting up to a sixteenth of a pixel left and up.
struct Place {
  int64_t index;
  int32_t phase;
};

Place PlaceOf(int64_t position) {
  int64_t index = position >> 16;
  int32_t phase = static_cast<int32_t>(((position & 0xFFFF) + 0x800) >> 12);
  if (phase == kReducePhases) {
    ++index;
    phase = 0;
  }
  return {index, phase};
}

// Supplies source rows in increasing order (a file allows nothing else),
// each plane as contiguous bytes. An in-memory source with pixel step 1 is
// used where it lies; any other source is copied into a ring of `depth` rows
// per plane, enough for every row one destination row needs.
class SourceRows {
 public:
  SourceRows(RasDesc *file, const PlanarImage *src, int32_t width, int32_t channels)
      : file_(file), src_(src), width_(width), channels_(channels) {}
  ~SourceRows() {
    if (slMade_) (void)RasFreeSl(&sl_);
  }
  SourceRows(const SourceRows &) = delete;
  SourceRows &operator=(const SourceRows &) = delete;

  [[nodiscard]] int Open(int32_t depth) {
    if (file_) {
      const int code = RasMakeSl(&sl_, file_);
      if (code != 0) return code;
      slMade_ = true;
      for (int32_t c = 0; c < channels_; ++c)
        if (!sl_.plane8[c]) return -1;
    }
    direct_ = !file_ && src_->pixelStep == 1;
    depth_ = depth;
    if (!direct_) ring_.resize(static_cast<size_t>(channels_) * depth * width_);
    return 0;
  }

  // Makes every row up to `row` available.
  [[nodiscard]] int Through(int32_t row) {
    for (; next_ <= row; ++next_) {
      if (direct_) continue;
      if (file_) {
        const int code = RasReadSl(file_, static_cast<uint32_t>(next_), &sl_);
        if (code != 0) return code;
      }
      for (int32_t c = 0; c < channels_; ++c) {
        uint8_t *to = Slot(c, next_);
        if (file_) {
          std::memcpy(to, sl_.plane8[c], static_cast<size_t>(width_));
        } else {
          const uint8_t *from = src_->planes[c] + static_cast<int64_t>(next_) * src_->rowStride;
          for (int32_t x = 0; x < width_; ++x)
            to[x] = from[static_cast<int64_t>(x) * src_->pixelStep];
        }
      }
    }
    return 0;
  }

  // Every row of a direct source is there from the start.
  bool Direct() const { return direct_; }

  const uint8_t *Row(int32_t channel, int32_t row) const {
    if (direct_) return src_->planes[channel] + static_cast<int64_t>(row) * src_->rowStride;
    return ring_.data() + SlotAt(channel, row);
  }

 private:
  size_t SlotAt(int32_t channel, int32_t row) const {
    return (static_cast<size_t>(channel) * depth_ + row % depth_) * width_;
  }
  uint8_t *Slot(int32_t channel, int32_t row) { return ring_.data() + SlotAt(channel, row); }

  RasDesc *file_;
  const PlanarImage *src_;
  int32_t width_, channels_;
  int32_t depth_ = 0;
  int32_t next_ = 0;
  bool direct_ = false;
  RasSl sl_{};
  bool slMade_ = false;
  std::vector<uint8_t> ring_;
};

// Whether a wide kernel's 16.16 weights serve the 16-bit pass with the same
// sums: each fits a 16-bit lane (a tent wider than eight samples keeps every
// weight below an eighth), and no sum of the blended row's samples under
// them leaves 32 bits, rounding included.
bool FitsWords(const ReduceKernel &kernel) {
  constexpr int64_t kShift = 16 + kMidBits;
  for (int32_t p = 0; p < kReducePhases; ++p) {
    int64_t high = int64_t{1} << (kShift - 1), low = high;
    for (int32_t t = 0; t < kernel.taps; ++t) {
      const int32_t w = kernel.Row(p)[t];
      if (w < INT16_MIN || w > INT16_MAX) return false;
      (w > 0 ? high : low) += int64_t{w} * kMidMax;
    }
    if (high > INT32_MAX || low < INT32_MIN) return false;
  }
  return true;
}

// Fits a dw x dh destination to a sw x sh source's aspect ratio; never
// larger than either the source or the request. False when nothing of at
// least 2 x 2 is left to filter into.
bool FitReduction(int64_t sw, int64_t sh, int64_t *dw, int64_t *dh) {
  const int64_t askedW = *dw, askedH = *dh;
  if (askedW * sh > askedH * sw)
    *dw = (askedH * sw + sh / 2) / sh;
  else
    *dh = (askedW * sh + sw / 2) / sw;
  if (!(sw > *dw && sh > *dh)) {
    *dw = std::min(sw, askedW);
    *dh = std::min(sh, askedH);
  }
  return *dw >= 2 && *dh >= 2;
}

// Source rows of an in-memory picture with pixel step 1, where they lie.
const uint8_t *DirectRow(void *context, int32_t channel, int32_t y) {
  const auto *src = static_cast<const PlanarImage *>(context);
  return src->planes[channel] + static_cast<int64_t>(y) * src->rowStride;
}

const uint8_t *RingRow(void *context, int32_t channel, int32_t y) {
  return static_cast<const SourceRows *>(context)->Row(channel, y);
}

bool ImageUsable(const PlanarImage *image) {
  if (image->sampleType != 1 || image->channels < 1 || image->channels > 4) return false;
  if (image->width < 1 || image->height < 1) return false;
  if (image->pixelStep == 0 || image->rowStride == 0) return false;
  for (int32_t c = 0; c < image->channels; ++c)
    if (!image->planes[c]) return false;
  return true;
}

}  // namespace

int BuildReduceKernel(int32_t n, int32_t m, ReduceKernel *kernel) {
  if (!kernel || m <= 1 || m > n) return -1;
  const float s = static_cast<float>(n - 1) / static_cast<float>(m - 1);
  int32_t low = -1;
  while (Tent(static_cast<float>(low) / s) != 0.0f)
    --low;
  int32_t high = 1;
  // Tap j is still reached by the last phase (15/16) when j - 15/16 lies
  // inside the tent.
  while (Tent((static_cast<float>(high) - 1.0f + 0.0625f) / s) != 0.0f)
    ++high;
  const int32_t first = low + 1;
  const int32_t taps = high - first;
  int32_t *weights = new (std::nothrow) int32_t[static_cast<size_t>(taps) * kReducePhases];
  if (!weights) return -3;
  kernel->weights.reset(weights);
  kernel->taps = taps;
  kernel->lead = -first;
  std::vector<float> raw(static_cast<size_t>(taps));
  for (int32_t p = 0; p < kReducePhases; ++p) {
    double sum = 0.0;
    for (int32_t t = 0; t < taps; ++t) {
      const float offset = static_cast<float>(first + t) - static_cast<float>(p) / 16.0f;
      raw[t] = Tent(offset / s);
      sum += raw[t];
    }
    int32_t *row = weights + p * taps;
    int64_t total = 0;
    for (int32_t t = 0; t < taps; ++t) {
      row[t] = static_cast<int32_t>(raw[t] * double{kReduceOne} / sum + 0.5);
      total += row[t];
    }
    row[taps / 2] -= static_cast<int32_t>(total - kReduceOne);
  }
  return 0;
}

// One thread's working rows: the blended line with its repeated edges, the
// source rows under the vertical kernel, and the columns the wider pass
// redoes before they go to their places.
struct ReducePlan::Scratch {
  std::vector<int16_t> line;
  std::vector<const uint8_t *> rows;
  std::vector<uint8_t> redone;
  explicit Scratch(const ReducePlan &p)
      : line(p.lineSize_, 0),
        rows(static_cast<size_t>(p.vTaps_)),
        redone(p.wider_.columns.size()) {}
};

int ReducePlan::Make(int32_t sw, int32_t sh, int32_t channels, int32_t dw, int32_t dh,
                     std::unique_ptr<ReducePlan> *plan) {
  if (!plan || sw < 1 || sh < 1 || channels < 1 || channels > 4 || dw < 2 || dh < 2) return -1;
  int64_t fw = dw, fh = dh;
  if (!FitReduction(sw, sh, &fw, &fh)) return -1;
  std::unique_ptr<ReducePlan> made(new (std::nothrow) ReducePlan);
  if (!made) return -3;
  const int64_t stepx = ((int64_t{sw} - 1) * 65536) / (fw - 1);
  const int64_t stepy = ((int64_t{sh} - 1) * 65536) / (fh - 1);
  const int built = stepx <= stepy
                        ? BuildReduceKernel(sw, static_cast<int32_t>(fw), &made->kernel_)
                        : BuildReduceKernel(sh, static_cast<int32_t>(fh), &made->kernel_);
  if (built != 0) return built;
  made->step_ = std::min(stepx, stepy);
  made->sw_ = sw;
  made->sh_ = sh;
  made->dw_ = static_cast<int32_t>(fw);
  made->dh_ = static_cast<int32_t>(fh);
  made->channels_ = channels;
  try {
    made->Prepare();
  } catch (const std::bad_alloc &) {
    return -3;
  }
  *plan = std::move(made);
  return 0;
}

int64_t ReducePlan::FirstUnclamped(int32_t r) const {
  return PlaceOf(static_cast<int64_t>(r) * step_).index - kernel_.lead;
}

int32_t ReducePlan::FirstRow(int32_t r) const {
  return static_cast<int32_t>(std::clamp<int64_t>(FirstUnclamped(r), 0, sh_ - 1));
}

int32_t ReducePlan::LastRow(int32_t r) const {
  return static_cast<int32_t>(
      std::clamp<int64_t>(FirstUnclamped(r) + kernel_.taps - 1, 0, sh_ - 1));
}

int ReducePlan::Rows(RowAt rowAt, void *context, PlanarImage *dst, int32_t r0, int32_t r1,
                     int32_t dstTop) const {
  if (r0 >= r1) return 0;
  try {
    Scratch scratch(*this);
    uint8_t *out[4] = {};
    for (int32_t r = r0; r < r1; ++r) {
      for (int32_t c = 0; c < channels_; ++c)
        out[c] = dst->planes[c] + static_cast<int64_t>(r - dstTop) * dst->rowStride;
      Row(rowAt, context, out, dst->pixelStep, r, scratch);
    }
  } catch (const std::bad_alloc &) {
    return -3;
  }
  return 0;
}

// Destination row r of every channel, once its source rows are available.
void ReducePlan::Row(RowAt rowAt, void *context, uint8_t *const *out, int32_t outStep, int32_t r,
                     Scratch &scratch) const {
  const int32_t taps = kernel_.taps;
  const int32_t phase = PlaceOf(static_cast<int64_t>(r) * step_).phase;
  const VerticalSpan span = spans_[phase];
  const int64_t first = FirstUnclamped(r) + span.skip;
  const int32_t used = std::min(2 * span.pairs, taps - span.skip);
  int16_t *mid = scratch.line.data() + padLeft_;
  const size_t rightStart = static_cast<size_t>(padLeft_) + sw_;
  for (int32_t c = 0; c < channels_; ++c) {
    for (int32_t t = 0; t < used; ++t)
      scratch.rows[t] =
          rowAt(context, c, static_cast<int32_t>(std::clamp<int64_t>(first + t, 0, sh_ - 1)));
    for (int32_t t = used; t < 2 * span.pairs; ++t)
      scratch.rows[t] = scratch.rows[0];  // its weight is 0
    BlendRows(scratch.rows.data(), vertical_.data() + phase * vTaps_, span.pairs, sw_, mid);
    std::fill_n(scratch.line.data(), padLeft_, mid[0]);
    std::fill(scratch.line.begin() + static_cast<ptrdiff_t>(rightStart), scratch.line.end(),
              mid[sw_ - 1]);
    if (!phaseRows_.empty()) {
      FilterWide(scratch.line.data(), starts_.data(), phaseRows_.data(), taps, dw_, out[c],
                 outStep);
      continue;
    }
    FilterShort(scratch.line.data(), narrow_.starts.data(), narrow_.weights.data(), narrow_.lanes,
                hShift_, dw_, out[c], outStep);
    const auto redo = static_cast<int32_t>(wider_.columns.size());
    if (redo == 0) continue;
    FilterShort(scratch.line.data(), wider_.starts.data(), wider_.weights.data(), wider_.lanes,
                hShift_, redo, scratch.redone.data(), 1);
    for (int32_t k = 0; k < redo; ++k)
      out[c][static_cast<int64_t>(wider_.columns[k]) * outStep] = scratch.redone[k];
  }
}

namespace {

// The lanes a horizontal pass gives `taps` weights: 4, or a multiple of 8.
int32_t LanesFor(int32_t taps) {
  return taps <= 4 ? 4 : (taps + 7) / 8 * 8;
}

// The first and one past the last weight other than zero of `count`.
template <class Weight>
std::pair<int32_t, int32_t> NonZero(const Weight *weights, int32_t count) {
  int32_t low = 0, high = count;
  while (low < high && weights[low] == 0)
    ++low;
  while (high > low && weights[high - 1] == 0)
    --high;
  return {low, high};
}

}  // namespace

// The kernel's weights rounded to 14 bits for the multiply-adds, the middle
// one taking the excess as in the kernel; then the tables of both passes.
void ReducePlan::Prepare() {
  const int32_t taps = kernel_.taps;
  std::vector<int16_t> fourteen(kReducePhases * static_cast<size_t>(taps));
  for (int32_t p = 0; p < kReducePhases; ++p) {
    int16_t *row = fourteen.data() + p * taps;
    int32_t total = 0;
    for (int32_t t = 0; t < taps; ++t) {
      row[t] = static_cast<int16_t>((kernel_.Row(p)[t] + 2) >> 2);
      total += row[t];
    }
    row[taps / 2] = static_cast<int16_t>(row[taps / 2] - (total - (1 << kVerticalBits)));
  }
  padLeft_ = kernel_.lead;
  PrepareVertical(fourteen);
  PrepareColumns(fourteen);
}

// Weights of zero add nothing to an integer sum, so each phase reads only
// the rows from its first weight other than zero to its last: a tent that
// just reaches a row at one phase misses it at the others, and most rows
// then blend a pair of rows fewer.
void ReducePlan::PrepareVertical(const std::vector<int16_t> &fourteen) {
  const int32_t taps = kernel_.taps;
  vTaps_ = taps + (taps & 1);
  vertical_.assign(kReducePhases * static_cast<size_t>(vTaps_), 0);
  for (int32_t p = 0; p < kReducePhases; ++p) {
    const int16_t *row = fourteen.data() + p * taps;
    const auto [low, high] = NonZero(row, taps);
    spans_[p] = {low, (high - low + 1) / 2};
    std::copy(row + low, row + high, vertical_.data() + p * vTaps_);
  }
}

// Per destination column: where its taps start in the blended row and its
// weights, from its first weight other than zero; the blended row repeats
// the edge samples, so no loop clamps. Every column is filtered with as few
// lanes as all but an eighth of them need, and those that need more are
// done again with more.
void ReducePlan::PrepareColumns(const std::vector<int16_t> &fourteen) {
  const int32_t taps = kernel_.taps;
  const bool short16 = taps <= kShortTaps, wide16 = !short16 && FitsWords(kernel_);
  hShift_ = short16 ? kVerticalBits + kMidBits : 16 + kMidBits;
  size_t lineEnd = static_cast<size_t>(padLeft_) + sw_ + LanesFor(taps);
  if (!short16 && !wide16) {
    starts_.resize(static_cast<size_t>(dw_));
    phaseRows_.resize(static_cast<size_t>(dw_));
    for (int32_t i = 0; i < dw_; ++i) {
      const Place place = PlaceOf(static_cast<int64_t>(i) * step_);
      starts_[i] = static_cast<int32_t>(place.index - kernel_.lead + padLeft_);
      phaseRows_[i] = kernel_.Row(place.phase);
    }
    lineSize_ = lineEnd + 2;
    return;
  }
  // Each phase's weights and the span of those other than zero.
  std::vector<int16_t> weights(kReducePhases * static_cast<size_t>(taps));
  std::pair<int32_t, int32_t> spans[kReducePhases];
  for (int32_t p = 0; p < kReducePhases; ++p) {
    int16_t *row = weights.data() + p * taps;
    if (short16)
      std::copy_n(fourteen.data() + p * taps, taps, row);
    else
      std::copy_n(kernel_.Row(p), taps, row);  // each fits, as checked
    spans[p] = NonZero(row, taps);
  }
  std::vector<int32_t> needs(static_cast<size_t>(LanesFor(taps)) + 1, 0);
  std::vector<Place> places(static_cast<size_t>(dw_));
  for (int32_t i = 0; i < dw_; ++i) {
    places[i] = PlaceOf(static_cast<int64_t>(i) * step_);
    const auto [low, high] = spans[places[i].phase];
    ++needs[LanesFor(high - low)];
  }
  // The fewest lanes that leave at most an eighth of the columns over.
  int32_t over = dw_;
  narrow_.lanes = 0;
  for (int32_t lanes = 4; lanes < static_cast<int32_t>(needs.size()) && over > dw_ / 8; ++lanes) {
    over -= needs[lanes];
    narrow_.lanes = lanes;
  }
  narrow_.lanes = LanesFor(narrow_.lanes);
  wider_.lanes = LanesFor(taps);
  narrow_.starts.resize(static_cast<size_t>(dw_));
  narrow_.weights.assign(static_cast<size_t>(dw_) * narrow_.lanes, 0);
  for (int32_t i = 0; i < dw_; ++i) {
    const auto [low, high] = spans[places[i].phase];
    const int16_t *row = weights.data() + places[i].phase * taps;
    const int32_t start = static_cast<int32_t>(places[i].index - kernel_.lead + padLeft_) + low;
    narrow_.starts[i] = start;
    std::copy(row + low, row + std::min(high, low + narrow_.lanes),
              narrow_.weights.data() + static_cast<size_t>(i) * narrow_.lanes);
    lineEnd = std::max(lineEnd, static_cast<size_t>(start) + wider_.lanes);
    if (high - low <= narrow_.lanes) continue;
    wider_.columns.push_back(i);
    wider_.starts.push_back(start);
    wider_.weights.insert(wider_.weights.end(), row + low, row + high);
    wider_.weights.resize(wider_.columns.size() * wider_.lanes, 0);
  }
  lineSize_ = lineEnd + 2;
}

namespace {

// Rows of a source in memory can be read by any thread in any order, so
// without a callback to report to in order the rows are shared out.
int ReduceShared(const ReducePlan &plan, const PlanarImage *src, PlanarImage *dst) {
  std::atomic<bool> failed{false};
  SplitWork(plan.Height(), 8, [&](int64_t r0, int64_t r1) {
    if (plan.Rows(DirectRow, const_cast<PlanarImage *>(src), dst, static_cast<int32_t>(r0),
                  static_cast<int32_t>(r1)) != 0)
      failed = true;
  });
  return failed ? -3 : 0;
}

// Row after row on the calling thread, reading the source as it goes.
int ReduceInOrder(const ReducePlan &plan, SourceRows &source, PlanarImage *dst,
                  PixProgress progress) {
  for (int32_t r = 0; r < plan.Height(); ++r) {
    int code = source.Through(plan.LastRow(r));
    if (code == 0) code = plan.Rows(RingRow, &source, dst, r, r + 1);
    if (code != 0) return code;
    if (progress) {
      const int stop = progress(static_cast<float>(r + 1) / static_cast<float>(plan.Height()));
      if (stop != 0) return stop;
    }
  }
  return 0;
}

}  // namespace

int ReduceImage(RasDesc *file, const PlanarImage *src, int mode, PlanarImage *dst,
                const PixRect *rect, const PixReduceOptions *options, PixProgress progress) {
  const int ready = PixReady();
  if (ready != 0) return ready;
  if (mode != 0 && mode != 1) return -1;
  if ((file == nullptr) == (src == nullptr)) return -1;
  if (!dst || !rect || !options) return -1;
  if (dst->width < 2 || dst->height < 2 || !ImageUsable(dst)) return -1;

  int64_t sw = 0, sh = 0;
  int32_t channels = 0;
  if (src) {
    if (!ImageUsable(src)) return -1;
    for (int32_t c = 0; c < src->channels; ++c)
      for (int32_t d = 0; d < dst->channels; ++d)
        if (src->planes[c] == dst->planes[d]) return -1;
    sw = src->width;
    sh = src->height;
    channels = src->channels;
  } else {
    if (!file->state || file->maxval > 255 || file->channels < 1 || file->channels > 4) return -1;
    if (file->width < 1 || file->height < 1 || file->width > INT32_MAX || file->height > INT32_MAX)
      return -1;
    sw = file->width;
    sh = file->height;
    channels = static_cast<int32_t>(file->channels);
  }
  if (channels != dst->channels) return -1;

  std::unique_ptr<ReducePlan> plan;
  const int made = ReducePlan::Make(static_cast<int32_t>(sw), static_cast<int32_t>(sh), channels,
                                    dst->width, dst->height, &plan);
  if (made != 0) return made;
  SourceRows source(file, src, static_cast<int32_t>(sw), channels);
  try {
    const int opened = source.Open(plan->Depth());
    if (opened != 0) return opened;
  } catch (const std::bad_alloc &) {
    return -3;
  }
  dst->width = plan->Width();
  dst->height = plan->Height();
  if (source.Direct() && !progress) return ReduceShared(*plan, src, dst);
  return ReduceInOrder(*plan, source, dst, progress);
}

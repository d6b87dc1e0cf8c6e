// A filtered reduction planned once and run over any range of destination
// rows, reading source rows through the caller's accessor. It lets a caller
// that receives the source a band at a time (a file read in pieces, a picture
// still being made) reduce each band's rows as soon as they are there, on as
// many threads as it likes, without ever holding the whole source or the
// whole result. ReduceImage is this plan run over every row.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "pixels/pixels.h"
#include "pixels/reduce_kernel.h"

class ReducePlan {
 public:
  // The reduction ReduceImage makes of a sw x sh picture of `channels` 8-bit
  // planes into a destination of dw x dh (fitted to the aspect ratio exactly
  // as ReduceImage fits it). 0, -1 for what ReduceImage refuses with -1, -3
  // when memory runs out.
  [[nodiscard]] static int Make(int32_t sw, int32_t sh, int32_t channels, int32_t dw, int32_t dh,
                                std::unique_ptr<ReducePlan> *plan);

  int32_t Width() const { return dw_; }  // the fitted size
  int32_t Height() const { return dh_; }
  int32_t Channels() const { return channels_; }
  int32_t SourceWidth() const { return sw_; }
  int32_t SourceHeight() const { return sh_; }
  // The most source rows one destination row reads: a ring this deep holds
  // every row any destination row needs.
  int32_t Depth() const { return kernel_.taps; }

  // The source rows destination row r reads: [FirstRow(r), LastRow(r)],
  // clamped to the picture.
  int32_t FirstRow(int32_t r) const;
  int32_t LastRow(int32_t r) const;

  // Source row y of channel c: SourceWidth() bytes, pixel step 1. Must stay
  // valid for the call.
  using RowAt = const uint8_t *(*)(void *context, int32_t channel, int32_t y);

  // Destination rows [r0, r1) into dst, on the calling thread only (callers
  // split the work themselves); thread-safe for disjoint row ranges. dst's
  // planes hold destination rows from `dstTop` on (row r is at
  // planes[c] + (r - dstTop) * rowStride), Width() samples each; its width
  // and height are not changed here. 0, or -3 when memory runs out.
  [[nodiscard]] int Rows(RowAt rowAt, void *context, PlanarImage *dst, int32_t r0, int32_t r1,
                         int32_t dstTop = 0) const;

 private:
  struct Scratch;
  ReducePlan() = default;
  void Prepare();
  int64_t FirstUnclamped(int32_t r) const;
  void Row(RowAt rowAt, void *context, uint8_t *const *out, int32_t outStep, int32_t r,
           Scratch &scratch) const;

  void PrepareVertical(const std::vector<int16_t> &fourteen);
  void PrepareColumns(const std::vector<int16_t> &fourteen);

  // Destination columns filtered in one horizontal pass of `lanes` 16-bit
  // weights each (4, or a multiple of 8), from `starts` in the blended line.
  // `columns` names them, or is empty when the pass covers every column in
  // order.
  struct ColumnPass {
    int32_t lanes = 0;
    std::vector<int32_t> starts;
    std::vector<int16_t> weights;
    std::vector<int32_t> columns;
  };
  // Where a phase's vertical weights start being other than zero, and the
  // pairs of rows that cover them.
  struct VerticalSpan {
    int32_t skip = 0, pairs = 0;
  };

  ReduceKernel kernel_;
  int64_t step_ = 0;
  int32_t sw_ = 0, sh_ = 0, dw_ = 0, dh_ = 0, channels_ = 0;
  int32_t vTaps_ = 0;  // taps rounded up to pairs for the vertical pass
  int32_t padLeft_ = 0;
  size_t lineSize_ = 0;  // the blended line with both repeated edges
  // 14-bit weight rows, vTaps_ each, from the span's first weight on.
  std::vector<int16_t> vertical_;
  VerticalSpan spans_[kReducePhases];
  // The horizontal pass: 16-bit weights whose sums are shifted right by
  // hShift_ (14-bit weights of short kernels, and the 16.16 weights of wide
  // ones, which are small enough), each column's taps from its first weight
  // other than zero. Every column goes through `narrow_`; the few whose
  // taps reach further are then done again through `wider_`. Kernels too
  // wide for 16 bits keep the 16.16 row of each column, summed in 64 bits.
  int32_t hShift_ = 0;
  ColumnPass narrow_, wider_;
  std::vector<int32_t> starts_;
  std::vector<const int32_t *> phaseRows_;
};

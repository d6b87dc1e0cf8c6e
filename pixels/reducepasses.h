// The two passes of the filtered reduction over one destination row, in
// their vector forms where the processor has them: the vertical pass blends
// source rows into a line of samples with kMidBits fractional bits, and the
// horizontal pass filters that line into the destination's bytes. Every form
// gives the same integer sums, so the bytes never depend on the processor.
#pragma once

#include <cstdint>

// The vertical pass keeps 6 fractional bits: 255 << 6 times the 16.16
// weights of the horizontal pass still fits a signed 32-bit sum with room for
// a negative middle weight, and the blended row fits 16-bit lanes.
constexpr int32_t kMidBits = 6;
constexpr int32_t kMidMax = 255 << kMidBits;

// The vertical pass multiplies bytes by weights of 14 bits (the kernel's
// 16.16 weights rounded, the sum fixed to exactly 1 << 14 on the middle tap
// as in the kernel) so that two rows go through one 16-bit multiply-add.
constexpr int32_t kVerticalBits = 14;

// Kernels up to this many taps (reductions down to about 1:8) use 14-bit
// weights and multiply-adds in both passes; wider ones, where rounding the
// weights to 14 bits starts to matter, filter the blended row with the 16.16
// weights (their vertical pass keeps the 14-bit weights).
constexpr int32_t kShortTaps = 16;

// The vertical pass over a whole source row: `pairs` pairs of rows and their
// weights (14 bits, summing to 1 << kVerticalBits), `count` samples into
// `out`, kept with kMidBits fractional bits and clamped to 0..kMidMax.
void BlendRows(const uint8_t *const *rows, const int16_t *weights, int32_t pairs, int32_t count,
               int16_t *out);

// The horizontal pass with 16-bit weights: `weights` holds `taps` weights
// per destination column (4, or a multiple of 8, padded with zeros), the
// column's samples start at line + starts[i], and each sum is rounded and
// shifted right by `shift`; `count` columns into out, `step` apart.
void FilterShort(const int16_t *line, const int32_t *starts, const int16_t *weights, int32_t taps,
                 int32_t shift, int32_t count, uint8_t *out, int32_t step);

// The horizontal pass for wide kernels with their 16.16 weights, one row of
// `taps` per column, summed in 64 bits.
void FilterWide(const int16_t *line, const int32_t *starts, const int32_t *const *rows,
                int32_t taps, int32_t count, uint8_t *out, int32_t step);

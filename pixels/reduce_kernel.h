// The reducer's resampling kernel: a tent sampled at 16 sub-pixel phases in
// 16.16 fixed point. Kept apart from pixels.h because only the reducer and its
// tests use it.
#pragma once

#include <cstdint>
#include <memory>

constexpr int32_t kReducePhases = 16;
constexpr int32_t kReduceOne = 65536;  // the sum of every weight row

struct ReduceKernel {
  int32_t taps = 0;
  int32_t lead = 0;                    // the negated first tap offset
  std::unique_ptr<int32_t[]> weights;  // kReducePhases rows of `taps` weights
  const int32_t *Row(int32_t phase) const { return weights.get() + phase * taps; }
};

// Builds the kernel for n source samples reduced to m destination samples:
// -1 unless 1 < m <= n, -3 when memory runs out, else 0.
[[nodiscard]] int BuildReduceKernel(int32_t n, int32_t m, ReduceKernel *kernel);

// For tests: whether the vertical pass may use AVX2 where the processor has
// it (the default); returns the previous setting. Either way gives the same
// bytes.
bool SetReduceAvx2(bool allowed);

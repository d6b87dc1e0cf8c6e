// Simplex selection for grid interpolation in 15-bit fixed point. A pixel's
// fractions (0..32768 per axis) pick the simplex of the grid cell that holds
// it: a path from the cell's base node that steps along the axis with the
// largest fraction first. The corners' weights are differences of sorted
// fractions, so they are non-negative and always sum to 32768.
#pragma once

#include <cstdint>

namespace cc {

constexpr uint32_t kWeightOne = 32768;

// Corner offsets (in grid entries, from the base node) and weights; corner 0
// is the base node itself.
template <int Inputs>
struct Simplex {
  uint32_t corner[Inputs + 1];
  uint32_t weight[Inputs + 1];
};

// Three inputs: the six tetrahedra of the cube, one row each of a small
// table indexed by three comparisons, so that a noisy photo, whose pixels
// land in every tetrahedron in turn, costs no mispredicted branches. With
// A = f0 >= f1, B = f0 >= f2, C = f1 >= f2:
//
//   A B C   order            corner 1   corner 2
//   1 0 0   f2 > f0 >= f1    s2         s0+s2
//   1 1 0   f0 >= f2 > f1    s0         s0+s2
//   1 1 1   f0 >= f1 >= f2   s0         s0+s1
//   0 0 0   f2 > f1 > f0     s2         s1+s2
//   0 0 1   f1 >= f2 > f0    s1         s1+s2
//   0 1 1   f1 > f0 >= f2    s1         s0+s1
//
// (1 0 1 and 0 1 0 cannot happen.) Of two equal fractions the lower-numbered
// axis is stepped along first, so f0 = f1 = f2 takes row 1 1 1. The far
// corner is always s0+s1+s2, and the weights are the sorted fractions'
// differences, which do not depend on how ties are broken.
class Tetrahedra {
 public:
  Tetrahedra(uint32_t s0, uint32_t s1, uint32_t s2) : far_(s0 + s1 + s2) {
    const uint32_t rows[8][2] = {
        {s2, s1 + s2},  // 0 0 0
        {s1, s1 + s2},  // 0 0 1
        {s2, s1 + s2},  // 0 1 0, cannot happen
        {s1, s0 + s1},  // 0 1 1
        {s2, s0 + s2},  // 1 0 0
        {s2, s0 + s2},  // 1 0 1, cannot happen
        {s0, s0 + s2},  // 1 1 0
        {s0, s0 + s1},  // 1 1 1
    };
    for (int i = 0; i < 8; ++i)
      corner1_[i] = rows[i][0], corner2_[i] = rows[i][1];
  }

  // The two middle corners of each row, for kernels that pick a row for
  // several pixels at once.
  const uint32_t *Corners1() const { return corner1_; }
  const uint32_t *Corners2() const { return corner2_; }
  uint32_t Far() const { return far_; }

  void Pick(uint32_t f0, uint32_t f1, uint32_t f2, Simplex<3> *t) const {
    const uint32_t row = (uint32_t{f0 >= f1} << 2) | (uint32_t{f0 >= f2} << 1) | uint32_t{f1 >= f2};
    const uint32_t high = f0 > f1 ? f0 : f1, low = f0 > f1 ? f1 : f0;
    const uint32_t top = high > f2 ? high : f2;
    const uint32_t bottom = low < f2 ? low : f2;
    const uint32_t middle = f0 + f1 + f2 - top - bottom;
    *t = {{0, corner1_[row], corner2_[row], far_},
          {kWeightOne - top, top - middle, middle - bottom, bottom}};
  }

 private:
  uint32_t corner1_[8], corner2_[8];
  uint32_t far_;
};

// Four inputs: the axes ordered by decreasing fraction with a stable
// insertion sort, which is one comparison tree over the 24 orders. It starts
// with f0 < f1 and swaps only on a strictly larger fraction, so ties keep the
// lower-numbered axis first, as with three inputs.
inline void PickSimplex4(const uint32_t f[4], const uint32_t stride[4], Simplex<4> *t) {
  int order[4] = {0, 1, 2, 3};
  for (int i = 1; i < 4; ++i)
    for (int j = i; j > 0 && f[order[j - 1]] < f[order[j]]; --j) {
      const int held = order[j];
      order[j] = order[j - 1];
      order[j - 1] = held;
    }
  uint32_t corner = 0, above = kWeightOne;
  t->corner[0] = 0;
  for (int i = 0; i < 4; ++i) {
    t->weight[i] = above - f[order[i]];
    above = f[order[i]];
    corner += stride[order[i]];
    t->corner[i + 1] = corner;
  }
  t->weight[4] = above;
}

}  // namespace cc

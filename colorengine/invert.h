// Inversion of a small square matrix, shared by CcArrayInvert and the
// least-squares fit (which works in double so that an exact identity fit
// stays exact to far better than the 1e-8 the identity test allows).
#pragma once

namespace cc {

// a and inverse: n x n, row by row, n <= 6; they may be the same block.
// False when the matrix is singular: a pivot, after choosing the largest one
// left in its column, no bigger than 1e-12 of the matrix's largest element.
bool InvertMatrix(const double *a, double *inverse, int n);

}  // namespace cc

// CcArray: square arrays of floats in one to four dimensions, stored as one
// cell block under a nest of pointer levels, so that a cell is reached by
// indexing once per axis.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "colorengine/cc.h"
#include "colorengine/invert.h"

namespace {

bool ShapeIsValid(int32_t size, int32_t dimensions) {
  return size >= 1 && size <= 6 && dimensions >= 1 && dimensions <= 4;
}

int32_t Power(int32_t size, int32_t exponent) {
  int32_t n = 1;
  for (int32_t i = 0; i < exponent; ++i)
    n *= size;
  return n;
}

// The storage levels from the top (data) down to the cell block.
void Levels(const CcArray *array, void *levels[4]) {
  levels[0] = array->data;
  for (int32_t i = 1; i < array->dimensions; ++i)
    levels[i] = levels[i - 1] ? static_cast<void **>(levels[i - 1])[0] : nullptr;
}

}  // namespace

CcArray *CcArrayCreate(int32_t size, int32_t dimensions) {
  if (!ShapeIsValid(size, dimensions)) return nullptr;
  auto *array = static_cast<CcArray *>(std::malloc(sizeof(CcArray)));
  if (!array) return nullptr;
  array->size = size;
  array->dimensions = 0;
  array->data = std::malloc(sizeof(float) * static_cast<size_t>(Power(size, dimensions)));
  if (!array->data) {
    std::free(array);
    return nullptr;
  }
  // Each pointer level is `size` times narrower than the one below; pointer k
  // addresses entry k x size of the level below. dimensions counts the levels
  // built so far, so a failure part-way frees exactly those.
  array->dimensions = 1;
  for (int32_t level = dimensions - 1; level >= 1; --level) {
    const int32_t count = Power(size, level);
    auto **pointers =
        static_cast<void **>(std::malloc(sizeof(void *) * static_cast<size_t>(count)));
    if (!pointers) {
      CcArrayFree(array);
      return nullptr;
    }
    auto *below = static_cast<char *>(array->data);
    const size_t step = (array->dimensions == 1 ? sizeof(float) : sizeof(void *)) * size_t(size);
    for (int32_t k = 0; k < count; ++k)
      pointers[k] = below + size_t(k) * step;
    array->data = pointers;
    ++array->dimensions;
  }
  return array;
}

int32_t CcArrayCellCount(const CcArray *array) {
  if (!array || !ShapeIsValid(array->size, array->dimensions)) return 0;
  return Power(array->size, array->dimensions);
}

float *CcArrayCells(const CcArray *array) {
  if (!array || !ShapeIsValid(array->size, array->dimensions)) return nullptr;
  void *levels[4];
  Levels(array, levels);
  return static_cast<float *>(levels[array->dimensions - 1]);
}

int32_t CcArrayCopy(const CcArray *from, CcArray *to) {
  if (!from || !to || from->size != to->size || from->dimensions != to->dimensions ||
      !ShapeIsValid(from->size, from->dimensions))
    return -1;
  std::memcpy(CcArrayCells(to), CcArrayCells(from),
              sizeof(float) * static_cast<size_t>(CcArrayCellCount(from)));
  return 0;
}

int32_t CcArrayInvert(const CcArray *from, CcArray *to) {
  if (!from || !to || from->dimensions != 2 || to->dimensions != 2 || from->size != to->size ||
      !ShapeIsValid(from->size, 2))
    return -1;
  const int n = from->size;
  double work[36];
  const float *cells = CcArrayCells(from);
  for (int i = 0; i < n * n; ++i)
    work[i] = cells[i];
  if (!cc::InvertMatrix(work, work, n)) return -1;
  float *out = CcArrayCells(to);
  for (int i = 0; i < n * n; ++i)
    out[i] = static_cast<float>(work[i]);
  return 0;
}

int32_t CcArrayFree(CcArray *array) {
  if (!array) return 0;
  void *levels[4] = {};
  // A record whose shape was damaged cannot be walked; only the record goes.
  if (array->dimensions < 1 || array->dimensions > 4) array->dimensions = 0;
  if (array->dimensions > 0) Levels(array, levels);
  // Innermost first: the cell block, then each pointer level up to the top.
  while (array->dimensions > 0) {
    std::free(levels[array->dimensions - 1]);
    --array->dimensions;
  }
  std::free(array);
  return 0;
}

namespace cc {

bool InvertMatrix(const double *a, double *inverse, int n) {
  // Gauss-Jordan elimination on [a | I] with partial pivoting.
  double m[6][12];
  double largest = 0.0;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      m[i][j] = a[i * n + j];
      m[i][n + j] = i == j ? 1.0 : 0.0;
      largest = std::fmax(largest, std::fabs(m[i][j]));
    }
  const double tiny = largest * 1e-12;
  for (int col = 0; col < n; ++col) {
    int pivot = col;
    for (int r = col + 1; r < n; ++r)
      if (std::fabs(m[r][col]) > std::fabs(m[pivot][col])) pivot = r;
    if (!(std::fabs(m[pivot][col]) > tiny)) return false;  // also catches NaN
    if (pivot != col)
      for (int j = 0; j < 2 * n; ++j)
        std::swap(m[pivot][j], m[col][j]);
    const double scale = 1.0 / m[col][col];
    for (int j = 0; j < 2 * n; ++j)
      m[col][j] *= scale;
    for (int r = 0; r < n; ++r) {
      if (r == col || m[r][col] == 0.0) continue;
      const double factor = m[r][col];
      for (int j = 0; j < 2 * n; ++j)
        m[r][j] -= factor * m[col][j];
    }
  }
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      inverse[i * n + j] = m[i][n + j];
  return true;
}

}  // namespace cc

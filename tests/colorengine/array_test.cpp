// CcArray: shapes, nested access, copying and inversion.
#include <gtest/gtest.h>

#include <random>

#include "colorengine/cc.h"

namespace {

TEST(CcArray, ShapesAndNestedAccess) {
  CcArray *big = CcArrayCreate(6, 4);
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(CcArrayCellCount(big), 1296);
  float *cells = CcArrayCells(big);
  for (int i = 0; i < 1296; ++i)
    cells[i] = float(i);
  auto ****data = static_cast<float ****>(big->data);  // cell a * 216 + b * 36 + c * 6 + d
  EXPECT_EQ(data[2][3][4][5], 2 * 216 + 3 * 36 + 4 * 6 + 5);
  EXPECT_EQ(data[5][5][5][5], 1295);
  EXPECT_EQ(CcArrayFree(big), 0);
  EXPECT_EQ(CcArrayCreate(7, 1), nullptr);
  EXPECT_EQ(CcArrayCreate(3, 5), nullptr);
  EXPECT_EQ(CcArrayCreate(0, 2), nullptr);
  EXPECT_EQ(CcArrayCellCount(nullptr), 0);
  EXPECT_EQ(CcArrayFree(nullptr), 0);

  CcArray *matrix = CcArrayCreate(3, 2), *vector = CcArrayCreate(3, 1),
          *other = CcArrayCreate(3, 1);
  ASSERT_TRUE(matrix && vector && other);
  EXPECT_EQ(CcArrayCellCount(matrix), 9);
  float *v = CcArrayCells(vector);
  EXPECT_EQ(static_cast<float *>(vector->data), v);
  v[0] = 1, v[1] = 2, v[2] = 3;
  EXPECT_EQ(CcArrayCopy(matrix, vector), -1);  // shapes differ: the target is untouched
  EXPECT_EQ(v[0], 1);
  EXPECT_EQ(v[2], 3);
  ASSERT_EQ(CcArrayCopy(vector, other), 0);
  EXPECT_EQ(CcArrayCells(other)[1], 2);
  for (CcArray *a : {matrix, vector, other})
    CcArrayFree(a);
}

TEST(CcArray, InverseTimesMatrixIsTheIdentity) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  for (int size = 1; size <= 6; ++size)
    for (int trial = 0; trial < 20; ++trial) {
      CcArray *a = CcArrayCreate(size, 2), *inverse = CcArrayCreate(size, 2);
      ASSERT_TRUE(a && inverse);
      auto **m = static_cast<float **>(a->data), **n = static_cast<float **>(inverse->data);
      // Well conditioned, with a zero first pivot so that rows must be exchanged.
      for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j)
          m[i][j] = value(rng) + (i == j ? 4.0f : 0.0f);
      if (size > 1) m[0][0] = 0.0f;
      ASSERT_EQ(CcArrayInvert(a, inverse), 0);
      for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) {
          double sum = 0;
          for (int k = 0; k < size; ++k)
            sum += double(m[i][k]) * n[k][j];
          EXPECT_NEAR(sum, i == j ? 1.0 : 0.0, 1e-5) << size << " " << trial;
        }
      CcArrayFree(a);
      CcArrayFree(inverse);
    }
  // Singular (rows in arithmetic progression) and misshapen inputs are refused.
  CcArray *a = CcArrayCreate(3, 2), *b = CcArrayCreate(3, 2), *c = CcArrayCreate(2, 2);
  auto **m = static_cast<float **>(a->data);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      m[i][j] = float(i + j);
  EXPECT_NE(CcArrayInvert(a, b), 0);
  EXPECT_NE(CcArrayInvert(a, c), 0);
  for (CcArray *x : {a, b, c})
    CcArrayFree(x);
}

}  // namespace
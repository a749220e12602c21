#include "core/Matrix.h"

#include <gtest/gtest.h>

#include <type_traits>

using tarv::Matrix;
using tarv::sqMatrix;

TEST(MatrixTest, StartsZeroed) {
  Matrix<2, 3, double> m;
  for (std::size_t r = 0; r < 2; ++r)
    for (std::size_t c = 0; c < 3; ++c) EXPECT_EQ(m(r, c), 0.0) << "element (" << r << ", " << c << ")";
}

TEST(MatrixTest, ElementsAreAddressedByRowThenColumn) {
  Matrix<2, 3, int> m;
  for (std::size_t r = 0; r < 2; ++r)
    for (std::size_t c = 0; c < 3; ++c) m(r, c) = static_cast<int>(10 * r + c);
  const Matrix<2, 3, int>& cm = m;
  EXPECT_EQ(cm(0, 2), 2);
  EXPECT_EQ(cm(1, 0), 10);
  EXPECT_EQ(cm(1, 2), 12);
  EXPECT_EQ(m.rows, 2u);
  EXPECT_EQ(m.columns, 3u);
}

TEST(MatrixTest, EqualityIsExactElementByElement) {
  sqMatrix<3, double> a;
  sqMatrix<3, double> b;
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  b(2, 1) = 1e-300;
  EXPECT_FALSE(a == b) << "a difference of 1e-300 must count";
  EXPECT_TRUE(a != b);
  a(2, 1) = 1e-300;
  EXPECT_TRUE(a == b);
}

TEST(MatrixTest, SquareAliasAndUnsignedLongParametersNameTheSameType) {
  EXPECT_TRUE((std::is_same_v<sqMatrix<4, double>, Matrix<4, 4, double>>));
  EXPECT_TRUE((std::is_same_v<Matrix<4ul, 4ul, double>, Matrix<4, 4, double>>));
}

TEST(MatrixTest, ProductOfRectangularMatrices) {
  Matrix<2, 3, int> a;  // [1 2 3; 4 5 6]
  Matrix<3, 2, int> b;  // [7 8; 9 10; 11 12]
  int v = 1;
  for (std::size_t r = 0; r < 2; ++r)
    for (std::size_t c = 0; c < 3; ++c) a(r, c) = v++;
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 2; ++c) b(r, c) = v++;
  const Matrix<2, 2, int> p = a * b;
  EXPECT_EQ(p(0, 0), 1 * 7 + 2 * 9 + 3 * 11);
  EXPECT_EQ(p(0, 1), 1 * 8 + 2 * 10 + 3 * 12);
  EXPECT_EQ(p(1, 0), 4 * 7 + 5 * 9 + 6 * 11);
  EXPECT_EQ(p(1, 1), 4 * 8 + 5 * 10 + 6 * 12);
}

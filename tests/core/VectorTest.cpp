#include "core/Vector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using tarv::Coordinates;
using tarv::Vector;

namespace {

Vector make(std::initializer_list<double> values) {
  Vector v(static_cast<unsigned>(values.size()));
  unsigned i = 0;
  for (const double value : values) v[i++] = value;
  return v;
}

}  // namespace

TEST(VectorTest, ConstructionAndCoordinatesBase) {
  const Vector empty;
  EXPECT_EQ(empty.size(), 0u);
  const Vector filled(4, 2.5);
  ASSERT_EQ(filled.size(), 4u);
  for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(filled[i], 2.5);
  const Vector zeros(3);
  EXPECT_EQ(zeros[2], 0.0);

  Coordinates<double> c(2);
  c[0] = 1;
  c[1] = 2;
  const Vector fromCoordinates(c);
  EXPECT_EQ(fromCoordinates, make({1, 2}));
  const Coordinates<double>& asCoordinates = fromCoordinates;
  EXPECT_TRUE(asCoordinates == c);
}

TEST(VectorTest, Length) {
  EXPECT_EQ(make({3, 4}).getLength(), 5.0);
  EXPECT_EQ(make({1, 2, 2, 4}).getLength(), 5.0);
  EXPECT_EQ(Vector().getLength(), 0.0);
  EXPECT_EQ(make({0, 0, 0}).getLength(), 0.0);
  EXPECT_DOUBLE_EQ(make({3e200, 4e200}).getLength(), 5e200) << "no overflow in the squares";
  EXPECT_DOUBLE_EQ(make({3e-200, 4e-200}).getLength(), 5e-200) << "no underflow in the squares";
  EXPECT_TRUE(std::isinf(make({1, INFINITY}).getLength()));
  EXPECT_TRUE(std::isnan(make({1, NAN}).getLength()));
}

TEST(VectorTest, Normalize) {
  Vector v = make({0, -3, 4});
  v.normalize();
  EXPECT_DOUBLE_EQ(v[0], 0.0);
  EXPECT_DOUBLE_EQ(v[1], -0.6);
  EXPECT_DOUBLE_EQ(v[2], 0.8);
  EXPECT_DOUBLE_EQ(v.getLength(), 1.0);

  Vector zero(5);
  zero.normalize();
  EXPECT_EQ(zero, Vector(5)) << "a zero vector must stay zero, not become NaN";
  Vector empty;
  empty.normalize();
  EXPECT_EQ(empty.size(), 0u);
}

TEST(VectorTest, Dot) {
  EXPECT_EQ(make({1, 2, 3}).dot(make({4, -5, 6})), 12.0);
  EXPECT_EQ(make({1, 2, 3}).dot(make({4, 5})), 14.0) << "over the common components";
}

TEST(VectorTest, AngleBetweenNormalizedVectors) {
  const Vector x = make({1, 0, 0});
  const Vector y = make({0, 1, 0});
  EXPECT_DOUBLE_EQ(Vector::angleBetweenNormalizedVectors(x, y), std::numbers::pi / 2);
  EXPECT_EQ(Vector::angleBetweenNormalizedVectors(x, x), 0.0);
  EXPECT_DOUBLE_EQ(Vector::angleBetweenNormalizedVectors(x, make({-1, 0, 0})), std::numbers::pi);
  Vector diagonal = make({1, 1, 0});
  diagonal.normalize();
  EXPECT_DOUBLE_EQ(Vector::angleBetweenNormalizedVectors(x, diagonal), std::numbers::pi / 4);
}

TEST(VectorTest, AngleClampsRoundingBeyondUnitCosine) {
  // Slightly longer than unit length: the cosine exceeds 1 and would make acos return NaN.
  const Vector a = make({1.0000001, 0});
  const Vector b = make({1.0000001, 0});
  EXPECT_EQ(Vector::angleBetweenNormalizedVectors(a, b), 0.0);
  const Vector c = make({-1.0000001, 0});
  EXPECT_DOUBLE_EQ(Vector::angleBetweenNormalizedVectors(a, c), std::numbers::pi);
}

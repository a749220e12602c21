#include "core/Mathematics.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

using tarv::Mathematics;
using tarv::Vector3D;

TEST(MathematicsTest, RoundHalvesAwayFromZero) {
  EXPECT_EQ(Mathematics::round(2.5), 3);
  EXPECT_EQ(Mathematics::round(-2.5), -3);
  EXPECT_EQ(Mathematics::round(0.5), 1);
  EXPECT_EQ(Mathematics::round(-0.5), -1);
  EXPECT_EQ(Mathematics::round(1.5), 2);
  EXPECT_EQ(Mathematics::round(3.5), 4) << "not banker's rounding";
}

TEST(MathematicsTest, RoundToNearest) {
  EXPECT_EQ(Mathematics::round(0.0), 0);
  EXPECT_EQ(Mathematics::round(-0.0), 0);
  EXPECT_EQ(Mathematics::round(2.4999999), 2);
  EXPECT_EQ(Mathematics::round(2.5000001), 3);
  EXPECT_EQ(Mathematics::round(-2.4999999), -2);
  EXPECT_EQ(Mathematics::round(-2.5000001), -3);
  EXPECT_EQ(Mathematics::round(0.49999999999999994), 0) << "the largest double below 0.5";
  EXPECT_EQ(Mathematics::round(7.0), 7);
}

TEST(MathematicsTest, RoundOutOfRangeClampsAndNanGivesZero) {
  EXPECT_EQ(Mathematics::round(1e300), INT_MAX);
  EXPECT_EQ(Mathematics::round(-1e300), INT_MIN);
  EXPECT_EQ(Mathematics::round(std::numeric_limits<double>::infinity()), INT_MAX);
  EXPECT_EQ(Mathematics::round(-std::numeric_limits<double>::infinity()), INT_MIN);
  EXPECT_EQ(Mathematics::round(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(Mathematics::round(2147483646.6), INT_MAX);
  EXPECT_EQ(Mathematics::round(-2147483648.4), INT_MIN);
}

TEST(MathematicsTest, AreSimilarWithTolerance) {
  EXPECT_TRUE(Mathematics::areSimilarWithTolerance(1.0, 1.0, 0.0));
  EXPECT_TRUE(Mathematics::areSimilarWithTolerance(1.0, 1.5, 0.5)) << "the bound is inclusive";
  EXPECT_TRUE(Mathematics::areSimilarWithTolerance(1.5, 1.0, 0.5));
  EXPECT_FALSE(Mathematics::areSimilarWithTolerance(1.0, 1.5000001, 0.5));
  EXPECT_TRUE(Mathematics::areSimilarWithTolerance(1e-8, 0.0, 1e-7));
  EXPECT_FALSE(Mathematics::areSimilarWithTolerance(2e-7, 0.0, 1e-7));
  EXPECT_FALSE(Mathematics::areSimilarWithTolerance(std::nan(""), 0.0, 1e300));
}

TEST(MathematicsTest, BinomialCoefficient) {
  EXPECT_EQ(Mathematics::binomialCoefficient(0, 0), 1.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(5, 0), 1.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(5, 5), 1.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(5, 2), 10.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(4, 2), 6.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(52, 5), 2598960.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(60, 30), 118264581564861424.0);
}

TEST(MathematicsTest, BinomialCoefficientMatchesPascalsTriangle) {
  for (int n = 1; n <= 50; ++n)
    for (int k = 1; k < n; ++k)
      ASSERT_EQ(Mathematics::binomialCoefficient(n, k),
                Mathematics::binomialCoefficient(n - 1, k - 1) + Mathematics::binomialCoefficient(n - 1, k))
          << "C(" << n << ", " << k << ")";
}

TEST(MathematicsTest, BinomialCoefficientOutsideRangeIsZero) {
  EXPECT_EQ(Mathematics::binomialCoefficient(5, -1), 0.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(5, 6), 0.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(-1, 0), 0.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(-3, -5), 0.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(INT_MIN, INT_MIN), 0.0);
}

TEST(MathematicsTest, BinomialCoefficientHugeArgumentsFinishQuickly) {
  EXPECT_TRUE(std::isinf(Mathematics::binomialCoefficient(INT_MAX, INT_MAX / 2)));
  EXPECT_EQ(Mathematics::binomialCoefficient(INT_MAX, INT_MAX), 1.0);
  EXPECT_EQ(Mathematics::binomialCoefficient(INT_MAX, 1), static_cast<double>(INT_MAX));
}

TEST(MathematicsTest, PointFiveValue) {
  EXPECT_TRUE(Mathematics::pointFiveValue(0.5));
  EXPECT_TRUE(Mathematics::pointFiveValue(2.5));
  EXPECT_TRUE(Mathematics::pointFiveValue(-2.5));
  EXPECT_TRUE(Mathematics::pointFiveValue(-0.5));
  EXPECT_FALSE(Mathematics::pointFiveValue(2.0));
  EXPECT_FALSE(Mathematics::pointFiveValue(2.4999999));
  EXPECT_FALSE(Mathematics::pointFiveValue(2.5000001));
  EXPECT_FALSE(Mathematics::pointFiveValue(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(Mathematics::pointFiveValue(std::numeric_limits<double>::quiet_NaN()));
}

TEST(MathematicsTest, PointTooCloseToPoints) {
  const std::vector<Vector3D> points{{0, 0, 0}, {10, 0, 0}};
  EXPECT_TRUE(Mathematics::pointTooCloseToPoints(Vector3D(9, 0, 0), points, 1.5));
  EXPECT_FALSE(Mathematics::pointTooCloseToPoints(Vector3D(5, 0, 0), points, 1.5));
  EXPECT_FALSE(Mathematics::pointTooCloseToPoints(Vector3D(3, 4, 0), points, 5.0)) << "distance 5 is not < 5";
  EXPECT_TRUE(Mathematics::pointTooCloseToPoints(Vector3D(3, 4, 0), points, 5.0000001));
  EXPECT_FALSE(Mathematics::pointTooCloseToPoints(Vector3D(0, 0, 0), {}, 1.0)) << "no points, none too close";
  EXPECT_FALSE(Mathematics::pointTooCloseToPoints(Vector3D(0, 0, 0), points, 0.0))
      << "a distance of 0 is not below 0";
  EXPECT_TRUE(Mathematics::pointTooCloseToPoints(Vector3D(0, 0, 0), points, 1e-7));
}

#include "core/Coordinates.h"

#include <gtest/gtest.h>

using tarv::Coordinates;

TEST(CoordinatesTest, DefaultIsEmpty) {
  const Coordinates<double> c;
  EXPECT_EQ(c.size(), 0u);
}

TEST(CoordinatesTest, SizedAndFilled) {
  const Coordinates<int> zeros(4);
  ASSERT_EQ(zeros.size(), 4u);
  for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(zeros[i], 0) << "index " << i;
  const Coordinates<double> filled(3, -1.5);
  ASSERT_EQ(filled.size(), 3u);
  for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(filled[i], -1.5) << "index " << i;
}

TEST(CoordinatesTest, IndexWritesAndEquality) {
  Coordinates<double> a(3);
  a[0] = 1;
  a[1] = 2;
  a[2] = 3;
  EXPECT_EQ(a[1], 2.0);
  Coordinates<double> b = a;
  EXPECT_TRUE(a == b);
  b[2] = 3.5;
  EXPECT_TRUE(a != b);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != Coordinates<double>(2)) << "different sizes differ";
  EXPECT_TRUE(Coordinates<double>() == Coordinates<double>());
}

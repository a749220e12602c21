#include "core/DatasetCoordinates.h"

#include <gtest/gtest.h>

#include <sstream>

using tarv::DatasetCoordinates;

TEST(DatasetCoordinatesTest, DefaultIsZeroAndConstructorSetsFields) {
  const DatasetCoordinates zero;
  EXPECT_EQ(zero.x, 0);
  EXPECT_EQ(zero.y, 0);
  EXPECT_EQ(zero.z, 0);
  EXPECT_EQ(zero.t, 0);
  EXPECT_EQ(zero.c, 0);
  const DatasetCoordinates p(1, 2, 3, 4, 5);
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 2);
  EXPECT_EQ(p.z, 3);
  EXPECT_EQ(p.t, 4);
  EXPECT_EQ(p.c, 5);
}

TEST(DatasetCoordinatesTest, IndexOperatorAddressesXYZTC) {
  DatasetCoordinates p(10, 20, 30, 40, 50);
  const DatasetCoordinates& cp = p;
  for (int k = 0; k < 5; ++k) EXPECT_EQ(cp[k], 10 * (k + 1)) << "index " << k;
  for (int k = 0; k < 5; ++k) p[k] = -k;
  EXPECT_EQ(p, DatasetCoordinates(0, -1, -2, -3, -4));
}

TEST(DatasetCoordinatesTest, Arithmetic) {
  const DatasetCoordinates a(1, 2, 3, 4, 5);
  const DatasetCoordinates b(10, -20, 30, -40, 0);
  EXPECT_EQ(a + b, DatasetCoordinates(11, -18, 33, -36, 5));
  EXPECT_EQ(a - b, DatasetCoordinates(-9, 22, -27, 44, 5));
  DatasetCoordinates c = a;
  c += b;
  EXPECT_EQ(c, a + b);
  c -= b;
  EXPECT_EQ(c, a);
}

TEST(DatasetCoordinatesTest, Equality) {
  const DatasetCoordinates a(1, 2, 3, 4, 5);
  EXPECT_TRUE(a == DatasetCoordinates(1, 2, 3, 4, 5));
  EXPECT_FALSE(a != DatasetCoordinates(1, 2, 3, 4, 5));
  for (int k = 0; k < 5; ++k) {
    DatasetCoordinates b = a;
    b[k] += 1;
    EXPECT_TRUE(a != b) << "a difference in component " << k << " must count";
    EXPECT_FALSE(a == b);
  }
}

TEST(DatasetCoordinatesTest, Printing) {
  std::ostringstream os;
  os << DatasetCoordinates(64, 0, 1, 0, 0);
  EXPECT_EQ(os.str(), "64, 0, 1, 0, 0");
  std::ostringstream negative;
  negative << DatasetCoordinates(-1, -2, -3, -4, -5);
  EXPECT_EQ(negative.str(), "-1, -2, -3, -4, -5");
}

#include "core/Vector2D.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

using tarv::Vector2D;

TEST(Vector2DTest, ConstructionAndIndexing) {
  const Vector2D zero;
  EXPECT_EQ(zero.x, 0.0);
  EXPECT_EQ(zero.y, 0.0);
  Vector2D v(1.5, -2.0);
  EXPECT_EQ(v[0], 1.5);
  EXPECT_EQ(v[1], -2.0);
  v[0] = 4.0;
  EXPECT_EQ(v.x, 4.0);
}

TEST(Vector2DTest, Arithmetic) {
  const Vector2D a(1, 2);
  const Vector2D b(4, -5);
  EXPECT_EQ(a + b, Vector2D(5, -3));
  EXPECT_EQ(a - b, Vector2D(-3, 7));
  EXPECT_EQ(a * 3.0, Vector2D(3, 6));
  EXPECT_EQ(3.0 * a, Vector2D(3, 6));
  EXPECT_EQ(-a, Vector2D(-1, -2));
  Vector2D c = a;
  c += b;
  EXPECT_EQ(c, Vector2D(5, -3));
  c -= b;
  EXPECT_EQ(c, a);
  c *= 0.5;
  EXPECT_EQ(c, Vector2D(0.5, 1));
  EXPECT_EQ(a.dot(b), 4.0 - 10.0);
}

TEST(Vector2DTest, LengthAndNormalize) {
  EXPECT_EQ(Vector2D(-3, 4).getLength(), 5.0);
  Vector2D v(-3, 4);
  v.normalize();
  EXPECT_DOUBLE_EQ(v.x, -0.6);
  EXPECT_DOUBLE_EQ(v.y, 0.8);
  Vector2D zero;
  zero.normalize();
  EXPECT_EQ(zero, Vector2D(0, 0)) << "a zero vector must stay zero, not become NaN";
}

TEST(Vector2DTest, LexicographicOrderWorksInSet) {
  EXPECT_TRUE(Vector2D(0, 9) < Vector2D(1, 0));
  EXPECT_TRUE(Vector2D(1, 0) < Vector2D(1, 1));
  EXPECT_FALSE(Vector2D(1, 1) < Vector2D(1, 1));
  EXPECT_FALSE(Vector2D(2, 0) < Vector2D(1, 5));
  std::set<Vector2D> points{{1, 1}, {0, 5}, {1, 0}, {1, 1}};
  ASSERT_EQ(points.size(), 3u) << "the duplicate must collapse";
  auto it = points.begin();
  EXPECT_EQ(*it++, Vector2D(0, 5));
  EXPECT_EQ(*it++, Vector2D(1, 0));
  EXPECT_EQ(*it++, Vector2D(1, 1));
}

TEST(Vector2DTest, EqualityAndPrinting) {
  EXPECT_TRUE(Vector2D(1, 2) == Vector2D(1, 2));
  EXPECT_TRUE(Vector2D(1, 2) != Vector2D(2, 1));
  std::ostringstream os;
  os << Vector2D(-1, 0.25);
  EXPECT_EQ(os.str(), "-1, 0.25");
}

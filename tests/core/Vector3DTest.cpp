#include "core/Vector3D.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <sstream>

using tarv::Vector3D;

TEST(Vector3DTest, ConstructionAndIndexing) {
  const Vector3D zero;
  EXPECT_EQ(zero.x, 0.0);
  EXPECT_EQ(zero.y, 0.0);
  EXPECT_EQ(zero.z, 0.0);
  Vector3D v(1.5, -2.0, 3.25);
  EXPECT_EQ(v[0], 1.5);
  EXPECT_EQ(v[1], -2.0);
  EXPECT_EQ(v[2], 3.25);
  v[1] = 7.0;
  EXPECT_EQ(v.y, 7.0);
}

TEST(Vector3DTest, Arithmetic) {
  const Vector3D a(1, 2, 3);
  const Vector3D b(4, -5, 6);
  EXPECT_EQ(a + b, Vector3D(5, -3, 9));
  EXPECT_EQ(a - b, Vector3D(-3, 7, -3));
  EXPECT_EQ(a * 2.0, Vector3D(2, 4, 6));
  EXPECT_EQ(2.0 * a, Vector3D(2, 4, 6));
  EXPECT_EQ(-a, Vector3D(-1, -2, -3));
  Vector3D c = a;
  c += b;
  EXPECT_EQ(c, Vector3D(5, -3, 9));
  c -= b;
  EXPECT_EQ(c, a);
  c *= -1.0;
  EXPECT_EQ(c, -a);
}

TEST(Vector3DTest, DotAndCross) {
  const Vector3D a(1, 2, 3);
  const Vector3D b(4, -5, 6);
  EXPECT_EQ(a.dot(b), 4.0 - 10.0 + 18.0);
  EXPECT_EQ(Vector3D(1, 0, 0).cross(Vector3D(0, 1, 0)), Vector3D(0, 0, 1));
  EXPECT_EQ(Vector3D(0, 1, 0).cross(Vector3D(0, 0, 1)), Vector3D(1, 0, 0));
  EXPECT_EQ(Vector3D(0, 0, 1).cross(Vector3D(1, 0, 0)), Vector3D(0, 1, 0));
  const Vector3D c = a.cross(b);
  EXPECT_EQ(c, Vector3D(2 * 6 - 3 * -5, 3 * 4 - 1 * 6, 1 * -5 - 2 * 4));
  EXPECT_EQ(c.dot(a), 0.0) << "the cross product is orthogonal to its factors";
  EXPECT_EQ(c.dot(b), 0.0);
}

TEST(Vector3DTest, LengthAndNormalize) {
  EXPECT_EQ(Vector3D(2, 3, 6).getLength(), 7.0);
  Vector3D v(0, -3, 4);
  v.normalize();
  EXPECT_DOUBLE_EQ(v.x, 0.0);
  EXPECT_DOUBLE_EQ(v.y, -0.6);
  EXPECT_DOUBLE_EQ(v.z, 0.8);
  EXPECT_DOUBLE_EQ(v.getLength(), 1.0);
}

TEST(Vector3DTest, NormalizeKeepsZeroVectorZero) {
  Vector3D v;
  v.normalize();
  EXPECT_EQ(v, Vector3D(0, 0, 0)) << "a zero vector must stay zero, not become NaN";
}

TEST(Vector3DTest, NormalizeExtremeMagnitudes) {
  Vector3D tiny(1e-200, 0, 0);
  tiny.normalize();
  EXPECT_DOUBLE_EQ(tiny.x, 1.0);
  Vector3D huge(0, 1e300, 1e300);
  huge.normalize();
  EXPECT_DOUBLE_EQ(huge.y, std::sqrt(0.5));
  EXPECT_DOUBLE_EQ(huge.z, std::sqrt(0.5));
}

TEST(Vector3DTest, LexicographicOrderWorksInSet) {
  EXPECT_TRUE(Vector3D(0, 9, 9) < Vector3D(1, 0, 0));
  EXPECT_TRUE(Vector3D(1, 0, 9) < Vector3D(1, 1, 0));
  EXPECT_TRUE(Vector3D(1, 1, 0) < Vector3D(1, 1, 1));
  EXPECT_FALSE(Vector3D(1, 1, 1) < Vector3D(1, 1, 1));
  EXPECT_FALSE(Vector3D(1, 1, 2) < Vector3D(1, 1, 1));

  std::set<Vector3D> points{{2, 0, 0}, {1, 5, 0}, {1, 2, 3}, {1, 2, 3}, {1, 2, -3}};
  ASSERT_EQ(points.size(), 4u) << "the duplicate must collapse";
  auto it = points.begin();
  EXPECT_EQ(*it++, Vector3D(1, 2, -3));
  EXPECT_EQ(*it++, Vector3D(1, 2, 3));
  EXPECT_EQ(*it++, Vector3D(1, 5, 0));
  EXPECT_EQ(*it++, Vector3D(2, 0, 0));
}

TEST(Vector3DTest, EqualityAndPrinting) {
  EXPECT_TRUE(Vector3D(1, 2, 3) == Vector3D(1, 2, 3));
  EXPECT_TRUE(Vector3D(1, 2, 3) != Vector3D(1, 2, 4));
  std::ostringstream os;
  os << Vector3D(1, -2.5, 3);
  EXPECT_EQ(os.str(), "1, -2.5, 3");
}

#include "core/WorldCoordinates.h"
#include "core/WorldBoundingBox.h"

#include <gtest/gtest.h>

using tarv::WorldBoundingBox;
using tarv::WorldCoordinates;

TEST(WorldCoordinatesTest, DefaultIsZeroAndConstructorSetsFields) {
  const WorldCoordinates zero;
  EXPECT_EQ(zero.x, 0.0);
  EXPECT_EQ(zero.y, 0.0);
  EXPECT_EQ(zero.z, 0.0);
  EXPECT_EQ(zero.t, 0.0);
  const WorldCoordinates p(1.5, -2.5, 3.25, 4.0);
  EXPECT_EQ(p.x, 1.5);
  EXPECT_EQ(p.y, -2.5);
  EXPECT_EQ(p.z, 3.25);
  EXPECT_EQ(p.t, 4.0);
}

TEST(WorldCoordinatesTest, IndexOperatorAddressesXYZT) {
  WorldCoordinates p(1, 2, 3, 4);
  const WorldCoordinates& cp = p;
  for (int k = 0; k < 4; ++k) EXPECT_EQ(cp[k], k + 1.0) << "index " << k;
  for (int k = 0; k < 4; ++k) p[k] = -0.5 * k;
  EXPECT_EQ(p, WorldCoordinates(0, -0.5, -1, -1.5));
}

TEST(WorldCoordinatesTest, Equality) {
  const WorldCoordinates a(1, 2, 3, 4);
  EXPECT_TRUE(a == WorldCoordinates(1, 2, 3, 4));
  for (int k = 0; k < 4; ++k) {
    WorldCoordinates b = a;
    b[k] += 0.001;
    EXPECT_TRUE(a != b) << "a difference in component " << k << " must count";
  }
}

TEST(WorldCoordinatesTest, BoundingBoxKeepsItsCorners) {
  const WorldBoundingBox box(WorldCoordinates(-1, -2, -3, 0), WorldCoordinates(1, 2, 3, 5));
  EXPECT_EQ(box.start, WorldCoordinates(-1, -2, -3, 0));
  EXPECT_EQ(box.end, WorldCoordinates(1, 2, 3, 5));
  EXPECT_TRUE(box == WorldBoundingBox(WorldCoordinates(-1, -2, -3, 0), WorldCoordinates(1, 2, 3, 5)));
  EXPECT_TRUE(box != WorldBoundingBox(WorldCoordinates(-1, -2, -3, 0), WorldCoordinates(1, 2, 3, 6)));
  const WorldBoundingBox origin;
  EXPECT_EQ(origin.start, WorldCoordinates());
  EXPECT_EQ(origin.end, WorldCoordinates());
}

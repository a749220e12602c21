#include "core/DatasetBoundingBox.h"

#include <gtest/gtest.h>

using tarv::DatasetBoundingBox;
using tarv::DatasetCoordinates;

TEST(DatasetBoundingBoxTest, DefaultIsEmpty) {
  const DatasetBoundingBox box;
  EXPECT_EQ(box.start, DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(box.end, DatasetCoordinates(-1, -1, -1, -1, -1));
  EXPECT_TRUE(box.isEmpty());
}

TEST(DatasetBoundingBoxTest, CornersAreInclusive) {
  const DatasetBoundingBox single(DatasetCoordinates(3, 3, 3, 0, 0), DatasetCoordinates(3, 3, 3, 0, 0));
  EXPECT_FALSE(single.isEmpty()) << "a box whose start equals its end holds one element";
  const DatasetBoundingBox box(DatasetCoordinates(1, 2, 3, 4, 5), DatasetCoordinates(6, 7, 8, 9, 10));
  EXPECT_EQ(box.start, DatasetCoordinates(1, 2, 3, 4, 5));
  EXPECT_EQ(box.end, DatasetCoordinates(6, 7, 8, 9, 10));
  EXPECT_FALSE(box.isEmpty());
}

TEST(DatasetBoundingBoxTest, EmptyWhenAnyComponentIsReversed) {
  for (int k = 0; k < 5; ++k) {
    DatasetCoordinates end(5, 5, 5, 5, 5);
    end[k] = -1;
    const DatasetBoundingBox box(DatasetCoordinates(0, 0, 0, 0, 0), end);
    EXPECT_TRUE(box.isEmpty()) << "end below start in component " << k;
  }
}

TEST(DatasetBoundingBoxTest, OffsetShiftsBothCorners) {
  const DatasetBoundingBox box(DatasetCoordinates(1, 2, 3, 0, 0), DatasetCoordinates(4, 5, 6, 1, 2));
  const DatasetBoundingBox moved = box + DatasetCoordinates(10, -2, 0, 1, 0);
  EXPECT_EQ(moved.start, DatasetCoordinates(11, 0, 3, 1, 0));
  EXPECT_EQ(moved.end, DatasetCoordinates(14, 3, 6, 2, 2));
  EXPECT_EQ(box.start, DatasetCoordinates(1, 2, 3, 0, 0)) << "the original box is unchanged";
  EXPECT_TRUE((DatasetBoundingBox() + DatasetCoordinates(5, 5, 5, 5, 5)).isEmpty()) << "a shifted empty box stays empty";
}

TEST(DatasetBoundingBoxTest, Equality) {
  const DatasetBoundingBox a(DatasetCoordinates(1, 2, 3, 0, 0), DatasetCoordinates(4, 5, 6, 0, 0));
  EXPECT_TRUE(a == DatasetBoundingBox(DatasetCoordinates(1, 2, 3, 0, 0), DatasetCoordinates(4, 5, 6, 0, 0)));
  EXPECT_TRUE(a != DatasetBoundingBox(DatasetCoordinates(1, 2, 3, 0, 0), DatasetCoordinates(4, 5, 7, 0, 0)));
  EXPECT_TRUE(a != DatasetBoundingBox(DatasetCoordinates(0, 2, 3, 0, 0), DatasetCoordinates(4, 5, 6, 0, 0)));
  EXPECT_TRUE(DatasetBoundingBox() == DatasetBoundingBox());
}

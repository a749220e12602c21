// Two segmentations compared: counts, overlap measures and surface distances.
#include "segmentation/SegmentationComparison.h"

#include <gtest/gtest.h>

#include "dataset/BinarySegmentations.h"
#include "dataset/DatasetHandle.h"

namespace tarv {
namespace {

DatasetHandle box(int x0, int x1) {
  auto* d = new Dataset(true);
  DatasetHandle handle(d);
  d->newDataset<unsigned char>(DatasetCoordinates(12, 5, 5, 1, 1),
                               DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.5, 1, 1, 1)));
  // New datasets hold whatever their memory held: background first.
  for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    d->setElement<unsigned char>(it, 0);
  for (int z = 1; z < 4; ++z)
    for (int y = 1; y < 4; ++y)
      for (int x = x0; x <= x1; ++x) d->setElement<unsigned char>(DatasetCoordinates(x, y, z, 0, 0), 1);
  return handle;
}

TEST(SegmentationComparison, OverlapOfTwoShiftedBoxes) {
  DatasetHandle a = box(1, 4);  // 4 x 3 x 3 = 36 voxels
  DatasetHandle b = box(3, 8);  // 6 x 3 x 3 = 54 voxels, 2 x 3 x 3 = 18 shared
  const segmentation::SegmentationComparison c =
      segmentation::compareSegmentations(GetRawPtr(a), GetRawPtr(b), 0, "a", "b");
  EXPECT_EQ(c.voxelsA, 36u);
  EXPECT_EQ(c.voxelsB, 54u);
  EXPECT_EQ(c.shared, 18u);
  EXPECT_EQ(c.onlyA, 18u);
  EXPECT_EQ(c.onlyB, 36u);
  EXPECT_EQ(c.unionCount, 72u);
  EXPECT_EQ(c.difference, 54u);
  ASSERT_TRUE(c.dice && c.jaccard);
  EXPECT_DOUBLE_EQ(*c.dice, 36.0 / 90.0);
  EXPECT_DOUBLE_EQ(*c.jaccard, 18.0 / 72.0);
  ASSERT_TRUE(c.hausdorffDistance && c.averageBorderDistance);
  EXPECT_DOUBLE_EQ(*c.hausdorffDistance, BinarySegmentations::getHausdorffDistance(GetRawPtr(a), GetRawPtr(b), 0));
  EXPECT_DOUBLE_EQ(*c.averageBorderDistance,
                   BinarySegmentations::getAverageBorderDistance(GetRawPtr(a), GetRawPtr(b), 0));
  EXPECT_GT(*c.hausdorffDistance, 0.0);
}

TEST(SegmentationComparison, MeasuresWithoutMeaningStayEmpty) {
  DatasetHandle a = box(1, 4);
  DatasetHandle empty = box(1, 0);
  const segmentation::SegmentationComparison one =
      segmentation::compareSegmentations(GetRawPtr(a), GetRawPtr(empty), 0);
  ASSERT_TRUE(one.dice);
  EXPECT_EQ(*one.dice, 0.0);
  EXPECT_FALSE(one.hausdorffDistance);
  EXPECT_FALSE(one.averageBorderDistance);
  const segmentation::SegmentationComparison none =
      segmentation::compareSegmentations(GetRawPtr(empty), GetRawPtr(empty), 0);
  EXPECT_FALSE(none.dice);
  EXPECT_FALSE(none.jaccard);
}

}  // namespace
}  // namespace tarv

#include "dataset/EmptyDataset.h"

#include <gtest/gtest.h>

#include "FilterTestSupport.h"
#include "dataset/CastDataset.h"

using namespace tarv;
using tarv::testing::C;

TEST(EmptyDatasetTest, IsAPlainStoredDatasetWithItsOwnTypeName) {
  EmptyDataset d;
  EXPECT_EQ(d.getTypeName(), "EmptyDataset");
  EXPECT_FALSE(d.hasData());
  EXPECT_FALSE(d.isCachedDataset());
  EXPECT_FALSE(d.isDependentDataset());
  EXPECT_TRUE(d.isInputOk());
  EXPECT_EQ(d.getSize(), C(0, 0, 0, 0, 0));
}

TEST(EmptyDatasetTest, StoresWhatTheCallerWrites) {
  EmptyDataset d;
  d.newDataset<short>(C(3, 2, 1, 1, 1), DatasetWorldEmbedding());
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  tarv::testing::fill(d, [](const DatasetCoordinates& p) { return 10.0 * p.x - 7.0 * p.y; });
  tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    EXPECT_EQ(d.getElement<int>(p), 10 * p.x - 7 * p.y) << "at " << p;
  });
  EXPECT_EQ(d.getMinimumValue(), -7.0);
  EXPECT_EQ(d.getMaximumValue(), 20.0);
}

TEST(EmptyDatasetTest, ServesAsSourceOfAFilter) {
  auto* source = new EmptyDataset;
  source->newDataset<unsigned char>(C(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  tarv::testing::fill(*source, [](const DatasetCoordinates& p) { return 250.0 + p.x; });
  CastDataset cast;
  cast.setParameters(TARV_ELEMENT_TYPE_SIGNED_INT);
  cast.setSourceDataset(source);
  ASSERT_TRUE(cast.hasData());
  EXPECT_EQ(cast.getElement<int>(C(3, 0, 0)), 253);
  delete source;
  EXPECT_EQ(cast.getSourceDatasetCount(), 0);
  EXPECT_FALSE(cast.hasData());
}

#include "dataset/Dataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dataset/ArrayDatasetMemory.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::C;

namespace {

// A dataset that counts the element reads of updateMinimumAndMaximumValue.
class CountingDataset : public Dataset {
public:
  CountingDataset() : Dataset(true) {}
  int reads = 0;
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(it, buffer);
  }
  using Dataset::getElementByBuffer;
};

}  // namespace

TEST(DatasetTest, FreshDatasetIsEmpty) {
  Dataset d(true);
  EXPECT_FALSE(d.hasData());
  EXPECT_TRUE(d.isInputOk());
  EXPECT_EQ(d.getSize(), C(0, 0, 0, 0, 0));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(d.getDatasetID(), -1);
  EXPECT_EQ(d.getTypeName(), "Dataset");
  EXPECT_FALSE(d.isCachedDataset());
  EXPECT_FALSE(d.isDependentDataset());
  EXPECT_EQ(d.getDicomTags(), nullptr);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_NE(d.getElementBuffer(), nullptr);
  EXPECT_FALSE(d.getStartCoordinatesIterator().valid);
}

TEST(DatasetTest, DimensionalityPredicatesOverlap) {
  Dataset d(true);
  d.initializeDataset<float>(C(4, 4, 1, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.is2D());
  EXPECT_FALSE(d.is1D());
  EXPECT_FALSE(d.is3D());
  d.initializeDataset<float>(C(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.is1D());
  EXPECT_TRUE(d.is2D());
  d.initializeDataset<float>(C(4, 4, 4, 3, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.is3D());
  EXPECT_TRUE(d.is4D());
  EXPECT_FALSE(d.is2D());
}

TEST(DatasetTest, ComponentIndexCountsForInsideTest) {
  Dataset d(true);
  d.newDataset<int>(C(3, 3, 3, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.areCoordinatesInside(C(0, 0, 0, 0, 0)));
  EXPECT_FALSE(d.areCoordinatesInside(C(0, 0, 0, 0, 1)));
  EXPECT_FALSE(d.areCoordinatesInside(C(-1, 0, 0, 0, 0)));
  EXPECT_FALSE(d.areCoordinatesInside(C(0, 0, 3, 0, 0)));
}

TEST(DatasetTest, FitBoxToInteriorClampsAndSwaps) {
  Dataset d(true);
  d.newDataset<int>(C(10, 10, 1, 1, 1), DatasetWorldEmbedding());
  const DatasetBoundingBox fitted = d.fitBoxToInterior(DatasetBoundingBox(C(-5, 3, 0), C(20, -2, 0)));
  EXPECT_EQ(fitted.start.x, 0);
  EXPECT_EQ(fitted.end.x, 9);
  EXPECT_EQ(fitted.start.y, 0) << "y end is clamped to 0, then start 3 and end 0 are swapped";
  EXPECT_EQ(fitted.end.y, 3);
}

TEST(DatasetTest, BoxPredicatesAndVoxelCount) {
  Dataset d(true);
  d.newDataset<int>(C(10, 8, 6, 2, 3), DatasetWorldEmbedding());
  const DatasetBoundingBox box(C(1, 1, 1, 0, 0), C(2, 3, 1, 1, 2));
  EXPECT_TRUE(d.isBoxValid(box));
  EXPECT_TRUE(d.isBoxInside(box));
  EXPECT_EQ(d.getBoxVoxelCount(box), 2u * 3 * 1 * 2 * 3);
  EXPECT_EQ(d.getBoxVoxelCount(DatasetBoundingBox()), 0u);
  EXPECT_FALSE(d.isBoxValid(DatasetBoundingBox(C(2, 0, 0), C(1, 0, 0))));
  // isBoxInside does not test validity.
  EXPECT_TRUE(d.isBoxInside(DatasetBoundingBox(C(2, 0, 0), C(1, 0, 0))));
  EXPECT_FALSE(d.isBoxInside(DatasetBoundingBox(C(0, 0, 0, 0, 0), C(9, 7, 5, 1, 3))));
  EXPECT_EQ(d.getVoxelBoundingBox(), DatasetBoundingBox(C(0, 0, 0, 0, 0), C(9, 7, 5, 1, 2)));
  EXPECT_EQ(d.getElementCount(), 10u * 8 * 6 * 2 * 3);
}

TEST(DatasetTest, InvalidSizesAndTypesLeaveTheDatasetEmpty) {
  Dataset d(true);
  d.initializeDataset(C(5, 5, 5, 1, 0), TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData()) << "all five size components must be at least 1";
  d.initializeDataset(C(5, 5, 5, 1, 1), TARV_ELEMENT_TYPE_VOID, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  d.initializeDataset(C(5, 5, 5, 1, 1), TARV_ELEMENT_TYPE_UNKNOWN, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  d.initializeDataset(C(65536, 65536, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData()) << "an element count beyond 32 bits is refused";
  EXPECT_EQ(d.getSize(), C(0, 0, 0, 0, 0));
}

TEST(DatasetTest, InitializeSetsSizeTypeAndEmbedding) {
  Dataset d(true);
  DatasetWorldEmbedding e(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.5, 2, 1));
  d.initializeDataset(C(4, 3, 2, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, e);
  EXPECT_TRUE(d.hasData());
  EXPECT_EQ(d.getSize(), C(4, 3, 2, 1, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(d.getElementByteSize(), 2u);
  EXPECT_EQ(d.getElementBitSize(), 16u);
  EXPECT_TRUE(d.hasIntegerElementType());
  EXPECT_TRUE(d.getWorldEmbedding() == e);
  EXPECT_EQ(d.getMemoryUsage(), 48u);
}

TEST(DatasetTest, AdoptsMemoryStartingAtOriginOnly) {
  Dataset d(true);
  auto* shifted = new ArrayDatasetMemory();
  ASSERT_TRUE(shifted->allocate<int>(C(2, 2, 2, 1, 1), C(1, 0, 0, 0, 0)));
  d.initializeDataset(shifted, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData()) << "a memory starting at (1,0,0,0,0) is refused";
  EXPECT_TRUE(shifted->isAllocated()) << "the refused memory stays with the caller, untouched";
  delete shifted;

  auto* memory = new ArrayDatasetMemory();
  ASSERT_TRUE(memory->allocate<int>(C(2, 2, 2, 1, 1), C(0, 0, 0, 0, 0)));
  memory->setElement<int>(C(1, 1, 1), 42);
  d.newDataset(memory, DatasetWorldEmbedding());
  EXPECT_TRUE(d.hasData());
  EXPECT_EQ(d.getSize(), C(2, 2, 2, 1, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  EXPECT_EQ(d.getElement<int>(C(1, 1, 1)), 42);
  d.initializeDataset(nullptr, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
}

TEST(DatasetTest, TypedAccessConvertsAndUsesSeparateBuffers) {
  Dataset d(true);
  d.newDataset<int>(C(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(C(0, 0, 0), 2.9);
  EXPECT_EQ(d.getElement<int>(C(0, 0, 0)), 2);
  d.setElement<double>(C(1, 0, 0), -2.9);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), -2.0);
  auto it = d.getStartCoordinatesIterator();
  d.setElement<long>(it, 300L);
  EXPECT_EQ(d.getElement<unsigned char>(it), 44);
  EXPECT_EQ(d.getElement<int>(C(0, 0, 0)), 300);
  d.newDataset<bool>(C(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(C(2, 0, 0), std::nan(""));
  EXPECT_TRUE(d.getElement<bool>(C(2, 0, 0)));
  EXPECT_EQ(d.getElement<float>(C(2, 0, 0)), 1.0f);
}

TEST(DatasetTest, MinimumAndMaximumAreCachedAndRecomputedAfterWrites) {
  CountingDataset d;
  d.newDataset<float>(C(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  float v = 3;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) d.setElement<float>(it, v--);
  d.reads = 0;
  EXPECT_EQ(d.getMinimumValue(), 0.0);
  EXPECT_EQ(d.getMaximumValue(), 3.0);
  EXPECT_EQ(d.reads, 4) << "one scan for both values";
  d.setElement<float>(C(2, 0, 0), -7.5f);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(d.getMinimumValue(), -7.5);
  d.reads = 0;
  d.setCachedMinimumAndMaximumValue(1, 2);
  EXPECT_EQ(d.getMinimumValue(), 1.0);
  EXPECT_EQ(d.getMaximumValue(), 2.0);
  EXPECT_EQ(d.reads, 0) << "a cached range is returned without scanning";
}

TEST(DatasetTest, MinimumAndMaximumOfEmptyDatasetAreZero) {
  Dataset d(true);
  EXPECT_EQ(d.getMinimumValue(), 0.0);
  EXPECT_EQ(d.getMaximumValue(), 0.0);
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
}

TEST(DatasetTest, ResetDropsContentsLutAndDicomTags) {
  Dataset d(true);
  d.newDataset<int>(C(2, 2, 2, 1, 1), DatasetWorldEmbedding(WorldCoordinates(5, 5, 5, 0), WorldCoordinates(2, 2, 2, 1)));
  d.getModalityLUT().set(2, -1);
  d.setDicomTags(new DcmHeader());
  d.setCachedMinimumAndMaximumValue(0, 1);
  d.setDatasetID(7);
  d.reset();
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_FALSE(d.getModalityLUT().isValid());
  EXPECT_EQ(d.getDicomTags(), nullptr);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_TRUE(d.getWorldEmbedding() == DatasetWorldEmbedding());
  EXPECT_EQ(d.getDatasetID(), 7) << "the ID is not part of the contents";
  d.clear();
  EXPECT_FALSE(d.hasData());
}

TEST(DatasetTest, DicomTagsAreOwnedAndReplaced) {
  Dataset d(true);
  auto* first = new DcmHeader();
  d.setDicomTags(first);
  EXPECT_EQ(d.getDicomTags(), first);
  d.setDicomTags(first);  // the same header again must not be deleted
  EXPECT_EQ(d.getDicomTags(), first);
  d.setDicomTags(new DcmHeader());
  EXPECT_NE(d.getDicomTags(), nullptr);
  d.resetMetaInformations();
  EXPECT_EQ(d.getDicomTags(), nullptr);
  d.setDicomTags(new DcmHeader());  // released by the destructor (checked by the sanitizer run)
}

TEST(DatasetTest, CompatibilityComparesSizeAndEmbedding) {
  Dataset a(true), b(true);
  a.newDataset<int>(C(3, 3, 3, 1, 1), DatasetWorldEmbedding());
  b.newDataset<float>(C(3, 3, 3, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(a.hasSameSize(&b));
  EXPECT_TRUE(a.isCompatible(&b));
  b.getWorldEmbedding().setVoxelSpacing(WorldCoordinates(1, 1, 2, 1));
  EXPECT_FALSE(a.hasSameWorldEmbedding(&b));
  EXPECT_FALSE(a.isCompatible(&b));
  EXPECT_FALSE(a.isCompatible(nullptr));
}

TEST(DatasetTest, IterationVisitsEveryElementInStorageOrder) {
  Dataset d(true);
  d.newDataset<unsigned short>(C(3, 2, 2, 2, 2), DatasetWorldEmbedding());
  unsigned short n = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) d.setElement(it, n++);
  EXPECT_EQ(n, 48);
  EXPECT_EQ(d.getElement<int>(C(0, 0, 0, 0, 1)), 1) << "the component varies fastest";
  EXPECT_EQ(d.getElement<int>(C(1, 0, 0, 0, 0)), 2);
  EXPECT_EQ(d.getElement<int>(C(0, 0, 0, 1, 0)), 24) << "t varies slowest";
  const DatasetBoundingBox box(C(1, 0, 1, 1, 0), C(2, 1, 1, 1, 1));
  int count = 0;
  for (auto it = d.getStartCoordinatesIterator(box); it.valid; d.incrementCoordinatesIterator(box, it)) {
    EXPECT_EQ(d.getElement<int>(it), d.getElement<int>(static_cast<const DatasetCoordinates&>(it)));
    ++count;
  }
  EXPECT_EQ(count, 8);
}

TEST(DatasetTest, EveryElementTypeStoresAndReads) {
  for (int type = TARV_ELEMENT_TYPE_BOOL; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    Dataset d(true);
    d.newDataset(C(5, 4, 3, 2, 1), static_cast<TARVElementType>(type), DatasetWorldEmbedding());
    ASSERT_TRUE(d.hasData()) << "type " << type;
    int n = 0;
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      d.setElement<int>(it, type == TARV_ELEMENT_TYPE_BOOL ? n++ % 2 : n++ % 120);
    n = 0;
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      EXPECT_EQ(d.getElement<int>(static_cast<const DatasetCoordinates&>(it)),
                type == TARV_ELEMENT_TYPE_BOOL ? n % 2 : n % 120)
          << "type " << type;
      ++n;
    }
  }
}

TEST(DatasetTest, RegistryWithoutDependentsIsEmpty) {
  Dataset d(true);
  EXPECT_FALSE(d.areDependingDatasetsExistant());
  EXPECT_TRUE(d.getDependingDatasets().empty());
  d.updateDependingDatasets();
  d.resetCacheOfDependingDatasets();
  d.unregisterDependingDatasets();
  d.deleteDependingDatasetsRecursively();
  d.deleteDependingDatasetRecursively(nullptr);
  EXPECT_FALSE(d.areDependingDatasetsExistant());
}

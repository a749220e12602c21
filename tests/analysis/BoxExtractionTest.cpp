#include "dataset/Dataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "TestSupport.h"

using namespace tarv;
using namespace tarv::testing;

// ---- extraction ----

TEST(DatasetBulkTest, CopyPartFromClipsTheBoxAndKeepsTheWorldPosition) {
  Dataset source(true);
  source.newDataset<int>(C(10, 10, 1, 1, 1), embedding(10, 20, 30, 0.5, 2, 1));
  fillWithPattern<int>(source);
  Dataset part(true);
  part.copyPartFrom(&source, DatasetBoundingBox(C(-5, 8, 0), C(3, 20, 0)));

  ASSERT_EQ(part.getSize(), C(4, 2, 1, 1, 1)) << "x -5..3 clips to 0..3, y 8..20 to 8..9";
  EXPECT_EQ(part.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  const WorldCoordinates expectedOrigin = source.getWorldEmbedding().voxelToWorld(C(0, 8, 0));
  EXPECT_EQ(part.getWorldEmbedding().getDatasetOrigin().x, expectedOrigin.x);
  EXPECT_EQ(part.getWorldEmbedding().getDatasetOrigin().y, expectedOrigin.y);
  EXPECT_EQ(part.getWorldEmbedding().getDatasetOrigin().z, expectedOrigin.z);
  EXPECT_EQ(part.getWorldEmbedding().getVoxelSpacing(), source.getWorldEmbedding().getVoxelSpacing());
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) {
      EXPECT_EQ(part.getElement<int>(C(x, y, 0)), source.getElement<int>(C(x, y + 8, 0))) << x << ", " << y;
      const WorldCoordinates a = part.getWorldEmbedding().voxelToWorld(C(x, y, 0));
      const WorldCoordinates b = source.getWorldEmbedding().voxelToWorld(C(x, y + 8, 0));
      EXPECT_DOUBLE_EQ(a.x, b.x);
      EXPECT_DOUBLE_EQ(a.y, b.y);
    }
}

TEST(DatasetBulkTest, CopyPartFromAgreesWithDirectReadsOnRandomBoxes) {
  const unsigned seed = 20240611;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::uniform_int_distribution<int> extent(1, 6);
  for (int round = 0; round < 40; ++round) {
    Dataset source(true);
    source.newDataset<float>(C(extent(random), extent(random), extent(random), extent(random) / 3 + 1, extent(random) / 3 + 1),
                             DatasetWorldEmbedding());
    fillRandomly(source, random, -100, 100);
    DatasetBoundingBox box;
    std::uniform_int_distribution<int> corner(-3, 8);
    for (int k = 0; k < 5; ++k) {
      box.start[k] = corner(random);
      box.end[k] = corner(random);
    }
    const DatasetBoundingBox fitted = source.fitBoxToInterior(box);
    Dataset part(true);
    part.copyPartFrom(&source, box);
    ASSERT_EQ(part.getSize(), fitted.end - fitted.start + C(1, 1, 1, 1, 1)) << "round " << round;
    for (DatasetCoordinatesIterator it = part.getStartCoordinatesIterator(); it.valid; part.incrementCoordinatesIterator(it))
      ASSERT_EQ(part.getElement<float>(it), source.getElement<float>(static_cast<DatasetCoordinates&>(it) + fitted.start))
          << "round " << round;
  }
}

TEST(DatasetBulkTest, ConvertPartFromConvertsElementByElement) {
  Dataset source(true);
  source.newDataset<float>(C(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  source.setElement<float>(C(0, 0, 0), 2.7f);
  source.setElement<float>(C(1, 0, 0), -2.7f);
  source.setElement<float>(C(2, 0, 0), 300.0f);
  Dataset asInt(true);
  asInt.convertPartFrom<int>(&source, source.getVoxelBoundingBox());
  ASSERT_EQ(asInt.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  EXPECT_EQ(asInt.getElement<int>(C(0, 0, 0)), 2) << "2.7 truncates to 2";
  EXPECT_EQ(asInt.getElement<int>(C(1, 0, 0)), -2) << "-2.7 truncates to -2";
  EXPECT_EQ(asInt.getElement<int>(C(2, 0, 0)), 300);
  Dataset bytes(true);
  bytes.convertPartFrom(&asInt, TARV_ELEMENT_TYPE_UNSIGNED_CHAR, asInt.getVoxelBoundingBox());
  EXPECT_EQ(bytes.getElement<int>(C(2, 0, 0)), 44) << "300 wraps to 44 in an unsigned char";
}

TEST(DatasetBulkTest, ExtractionTemplatesGiveEveryElementType) {
  Dataset source(true);
  source.newDataset<double>(C(3, 2, 2, 2, 1), DatasetWorldEmbedding());
  fillWithPattern<double>(source);
  forEachElementType([&]<typename T>() {
    const TARVElementType type = DatasetMemory::getElementTypeByType<T>();
    Dataset part(true);
    part.convertPartFrom<T>(&source, DatasetBoundingBox(C(1, 0, 0, 1), C(2, 1, 1, 1)));
    EXPECT_EQ(part.getElementType(), type);
    EXPECT_EQ(part.getSize(), C(2, 2, 2, 1, 1));
    EXPECT_EQ(part.getElement<T>(C(0, 1, 1)), convertElementValue<T>(source.getElement<double>(C(1, 1, 1, 1))));
    Dataset space(true);
    space.convertSpaceFrom<T>(&source, 1);
    EXPECT_EQ(space.getElementType(), type);
    EXPECT_EQ(space.getSize(), C(3, 2, 2, 1, 1));
    EXPECT_EQ(space.getElement<T>(C(2, 1, 1)), convertElementValue<T>(source.getElement<double>(C(2, 1, 1, 1))));
    Dataset plane(true);
    plane.convertPlaneFrom<T>(&source, 1, 0);
    EXPECT_EQ(plane.getElementType(), type);
    EXPECT_EQ(plane.getSize(), C(3, 2, 1, 1, 1));
    EXPECT_EQ(plane.getElement<T>(C(2, 1, 0)), convertElementValue<T>(source.getElement<double>(C(2, 1, 1, 0))));
  });
}

TEST(DatasetBulkTest, CopySpaceAndPlaneTakeOneTimeStepWithAllComponents) {
  Dataset source(true);
  source.newDataset<short>(C(4, 3, 3, 3, 2), embedding(1, 1, 1, 1, 1, 1));
  fillWithPattern<short>(source);
  Dataset space(true);
  space.copySpaceFrom(&source, 2);
  ASSERT_EQ(space.getSize(), C(4, 3, 3, 1, 2));
  Dataset plane(true);
  plane.copyPlaneFrom(&source, 1, 2);
  ASSERT_EQ(plane.getSize(), C(4, 3, 1, 1, 2));
  for (DatasetCoordinatesIterator it = space.getStartCoordinatesIterator(); it.valid; space.incrementCoordinatesIterator(it))
    EXPECT_EQ(space.getElement<short>(it), source.getElement<short>(C(it.x, it.y, it.z, 2, it.c)));
  for (DatasetCoordinatesIterator it = plane.getStartCoordinatesIterator(); it.valid; plane.incrementCoordinatesIterator(it))
    EXPECT_EQ(plane.getElement<short>(it), source.getElement<short>(C(it.x, it.y, 1, 2, it.c)));
  EXPECT_EQ(plane.getWorldEmbedding().getDatasetOrigin().z, source.getWorldEmbedding().voxelToWorld(C(0, 0, 1)).z);
}

TEST(DatasetBulkTest, ExtractionReadsTheSourceThroughItsElementAccess) {
  CountingDataset source;
  source.newDataset<int>(C(5, 4, 3, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(source);
  source.resetCounts();
  CountingDataset part;
  part.copyPartFrom(&source, DatasetBoundingBox(C(1, 1, 1), C(3, 2, 2)));
  EXPECT_EQ(source.coordinateReads, 3 * 2 * 2) << "one virtual read per extracted element";
  EXPECT_EQ(part.iteratorWrites, 3 * 2 * 2) << "one virtual write per element";
  EXPECT_GE(part.fullAnnouncements, 1) << "the part announces its full access";
}

TEST(DatasetBulkTest, ExtractionFromEmptySourceLeavesTheDataset) {
  Dataset empty(true);
  Dataset target(true);
  target.newDataset<int>(C(2, 3, 1, 1, 1), embedding(4, 4, 4, 1, 1, 1));
  fillWithPattern<int>(target);
  const Snapshot before(target);
  target.copyPartFrom(&empty, DatasetBoundingBox(C(0, 0, 0), C(5, 5, 5)));
  target.copySpaceFrom(&empty, 0);
  target.copyPlaneFrom(&empty, 0, 0);
  target.copyNonZeroBoxFrom(&empty, C(1, 1, 1));
  target.copyPartFrom(nullptr, DatasetBoundingBox(C(0, 0, 0), C(5, 5, 5)));
  target.copySpaceFrom(nullptr, 0);
  target.copyPlaneFrom(nullptr, 0, 0);
  target.copyNonZeroBoxFrom(nullptr, C(1, 1, 1));
  EXPECT_TRUE(Snapshot(target) == before);
}

TEST(DatasetBulkTest, CopyPartFromItselfTakesThePart) {
  Dataset d(true);
  d.newDataset<int>(C(6, 5, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(d);
  Dataset reference(true);
  reference.copyPartFrom(&d, DatasetBoundingBox(C(2, 1, 0), C(4, 4, 0)));
  d.copyPartFrom(&d, DatasetBoundingBox(C(2, 1, 0), C(4, 4, 0)));
  EXPECT_TRUE(Snapshot(d) == Snapshot(reference));
}

TEST(DatasetBulkTest, CopyNonZeroBoxFromFillsTheMarginBeyondTheSourceWithZero) {
  Dataset source(true);
  source.newDataset<unsigned char>(C(6, 6, 6, 1, 1), embedding(0, 0, 0, 1, 2, 3));
  source.setAllElementsValue(0);
  // A blob touching the x = 0 and z = 5 faces.
  for (int z = 4; z <= 5; ++z)
    for (int y = 2; y <= 3; ++y)
      for (int x = 0; x <= 1; ++x) source.setElement<int>(C(x, y, z), 10 + x + y + z);
  source.setElement<int>(C(1, 3, 4), 0);  // a hole inside the blob stays a zero of the source

  Dataset box(true);
  box.copyNonZeroBoxFrom(&source, C(2, 2, 2, 0, 0));
  // x -2..3, y 0..5, z 2..7.
  ASSERT_EQ(box.getSize(), C(6, 6, 6, 1, 1));
  EXPECT_EQ(box.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  const WorldCoordinates origin = source.getWorldEmbedding().voxelToWorld(C(-2, 0, 2));
  EXPECT_EQ(box.getWorldEmbedding().getDatasetOrigin().x, origin.x);
  EXPECT_EQ(box.getWorldEmbedding().getDatasetOrigin().z, origin.z);
  int outsideVoxels = 0;
  for (DatasetCoordinatesIterator it = box.getStartCoordinatesIterator(); it.valid; box.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = C(it.x - 2, it.y, it.z + 2);
    if (source.areCoordinatesInside(p)) {
      EXPECT_EQ(box.getElement<int>(it), source.getElement<int>(p)) << p;
    } else {
      ++outsideVoxels;
      EXPECT_EQ(box.getElement<int>(it), 0) << "margin beyond the source at " << p;
    }
  }
  EXPECT_EQ(outsideVoxels, 6 * 6 * 6 - 4 * 6 * 4);
}

TEST(DatasetBulkTest, ConvertNonZeroBoxFromConverts) {
  Dataset source(true);
  source.newDataset<float>(C(5, 5, 1, 1, 1), DatasetWorldEmbedding());
  source.setAllElementsValue(0);
  source.setElement<float>(C(2, 3, 0), 7.9f);
  Dataset box(true);
  box.convertNonZeroBoxFrom(&source, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, C(1, 0, 0));
  ASSERT_EQ(box.getSize(), C(3, 1, 1, 1, 1));
  EXPECT_EQ(box.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(box.getElement<int>(C(1, 0, 0)), 7);
  EXPECT_EQ(box.getElement<int>(C(0, 0, 0)), 0);
}

TEST(DatasetBulkTest, NonZeroBoxOfAllZeroSourceOrNegativeMarginChangesNothing) {
  Dataset zeros(true);
  zeros.newDataset<int>(C(4, 4, 4, 1, 1), DatasetWorldEmbedding());
  zeros.setAllElementsValue(0);
  Dataset single(true);
  single.newDataset<int>(C(4, 4, 4, 1, 1), DatasetWorldEmbedding());
  single.setAllElementsValue(0);
  single.setElement<int>(C(1, 1, 1), 5);
  Dataset target(true);
  target.newDataset<int>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(target);
  const Snapshot before(target);
  target.copyNonZeroBoxFrom(&zeros, C(3, 3, 3));
  EXPECT_TRUE(Snapshot(target) == before) << "no non-zero element: nothing to extract";
  target.copyNonZeroBoxFrom(&single, C(-1, 0, 0));
  EXPECT_TRUE(Snapshot(target) == before) << "a margin that leaves no voxel";
  target.copyNonZeroBoxFrom(&single, C(std::numeric_limits<int>::max(), 0, 0));
  EXPECT_TRUE(Snapshot(target) == before) << "a box too large to allocate";
}

// ---- placement ----

TEST(DatasetBulkTest, CopyAndPlaceBlockFromWritesTheBlockOnly) {
  Dataset target(true);
  target.newDataset<int>(C(6, 5, 1, 1, 1), embedding(3, 3, 3, 2, 2, 2));
  target.setAllElementsValue(-1);
  Dataset source(true);
  source.newDataset<int>(C(4, 4, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(source);
  const DatasetWorldEmbedding embeddingBefore = target.getWorldEmbedding();
  target.copyAndPlaceBlockFrom(&source, C(3, 1, 0), DatasetBoundingBox(C(1, 1, 0), C(2, 3, 0)));
  EXPECT_EQ(target.getSize(), C(6, 5, 1, 1, 1));
  EXPECT_TRUE(target.getWorldEmbedding() == embeddingBefore);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 6; ++x) {
      const bool inBlock = x >= 3 && x <= 4 && y >= 1 && y <= 3;
      const int expected = inBlock ? source.getElement<int>(C(x - 2, y, 0)) : -1;
      EXPECT_EQ(target.getElement<int>(C(x, y, 0)), expected) << x << ", " << y;
    }
}

TEST(DatasetBulkTest, CopyAndPlaceBlockFromDropsWhatFallsOutside) {
  const unsigned seed = 777;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::uniform_int_distribution<int> extent(1, 6);
  std::uniform_int_distribution<int> place(-8, 8);
  for (int round = 0; round < 60; ++round) {
    Dataset target(true);
    target.newDataset<short>(C(extent(random), extent(random), extent(random), 1, 1), DatasetWorldEmbedding());
    target.setAllElementsValue(-7);
    Dataset source(true);
    source.newDataset<float>(C(extent(random), extent(random), extent(random), 1, 1), DatasetWorldEmbedding());
    fillRandomly(source, random, -1000, 1000);
    const DatasetCoordinates position(place(random), place(random), place(random), 0, 0);
    const DatasetBoundingBox box(C(place(random), place(random), place(random)), C(place(random), place(random), place(random)));
    target.copyAndPlaceBlockFrom(&source, position, box);
    // A source voxel s of the fitted box lands at s - fitted.start + position.
    const DatasetBoundingBox fitted = source.fitBoxToInterior(box);
    for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid; target.incrementCoordinatesIterator(it)) {
      const DatasetCoordinates s = static_cast<DatasetCoordinates&>(it) - position + fitted.start;
      bool fromBlock = true;
      for (int k = 0; k < 5; ++k) fromBlock = fromBlock && s[k] >= fitted.start[k] && s[k] <= fitted.end[k];
      const short expected = fromBlock ? convertElementValue<short>(source.getElement<float>(s)) : short(-7);
      ASSERT_EQ(target.getElement<short>(it), expected) << "round " << round << " at " << it;
    }
  }
}

TEST(DatasetBulkTest, CopyAndPlaceBlockFromCopiesRawBytesOfTheSameType) {
  Dataset source(true);
  source.newDataset<double>(C(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  source.setElement<double>(C(0, 0, 0), std::numeric_limits<double>::quiet_NaN());
  source.setElement<double>(C(1, 0, 0), -0.0);
  Dataset target(true);
  target.newDataset<double>(C(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  target.copyAndPlaceDatasetFrom(&source, C(0, 0, 0));
  EXPECT_TRUE(std::isnan(target.getElement<double>(C(0, 0, 0))));
  EXPECT_TRUE(std::signbit(target.getElement<double>(C(1, 0, 0))));
}

TEST(DatasetBulkTest, CopyAndPlaceBlockFromItselfMovesASnapshot) {
  Dataset d(true);
  d.newDataset<int>(C(8, 1, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(d);
  Dataset original(true);
  original.copyFrom(&d);
  d.copyAndPlaceBlockFrom(&d, C(2, 0, 0), DatasetBoundingBox(C(0, 0, 0), C(4, 0, 0)));
  for (int x = 0; x < 8; ++x) {
    const int expected = x >= 2 && x <= 6 ? original.getElement<int>(C(x - 2, 0, 0)) : original.getElement<int>(C(x, 0, 0));
    EXPECT_EQ(d.getElement<int>(C(x, 0, 0)), expected) << x;
  }
}

TEST(DatasetBulkTest, PlacementWithoutDataOrEntirelyOutsideChangesNothing) {
  Dataset source(true);
  source.newDataset<int>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(source);
  Dataset target(true);
  target.newDataset<int>(C(4, 4, 1, 1, 1), DatasetWorldEmbedding());
  target.setAllElementsValue(0);
  const Snapshot before(target);
  target.copyAndPlaceDatasetFrom(&source, C(4, 0, 0));
  target.copyAndPlaceDatasetFrom(&source, C(-3, -3, 0));
  target.copyAndPlaceDatasetFrom(&source, C(0, 0, 1));
  target.copyAndPlaceDatasetFrom(&source, C(std::numeric_limits<int>::max(), 0, 0));
  target.copyAndPlaceDatasetFrom(&source, C(std::numeric_limits<int>::min(), 0, 0));
  Dataset empty(true);
  target.copyAndPlaceDatasetFrom(&empty, C(0, 0, 0));
  target.copyAndPlaceDatasetFrom(nullptr, C(0, 0, 0));
  target.copyAndPlaceFirstSliceFrom(nullptr, 0);
  EXPECT_TRUE(Snapshot(target) == before);
  empty.copyAndPlaceDatasetFrom(&source, C(0, 0, 0));
  EXPECT_FALSE(empty.hasData());
}

TEST(DatasetBulkTest, CopyAndPlaceFirstSliceFromWritesSliceZ) {
  Dataset source(true);
  source.newDataset<unsigned short>(C(3, 2, 4, 2, 2), DatasetWorldEmbedding());
  fillWithPattern<unsigned short>(source);
  Dataset target(true);
  target.newDataset<int>(C(3, 2, 5, 1, 2), DatasetWorldEmbedding());
  target.setAllElementsValue(0);
  target.copyAndPlaceFirstSliceFrom(&source, 3);
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid; target.incrementCoordinatesIterator(it)) {
    const int expected = it.z == 3 ? source.getElement<int>(C(it.x, it.y, 0, 0, it.c)) : 0;
    EXPECT_EQ(target.getElement<int>(it), expected) << it;
  }
}

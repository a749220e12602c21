#include "dataset/BinarySegmentations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <tuple>
#include <vector>

#include "dataset/Dataset.h"
#include "BinarySegmentationsTestSupport.h"

using namespace tarv;
using namespace tarv::segmentationtests;

// ---------------------------------------------------------------------------------------------
// Predicates and conversions.

TEST(BinarySegmentationsTest, SingleVoxelAndFaceVoxelsAreBorderElements) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  d->setElement<int>(at(1, 1, 1), 1);
  EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(1, 1, 1))) << "a lone object voxel is border";

  // A voxel on the outer face whose five inside neighbours are all object.
  d->setAllElementsValue(0.0);
  for (auto c : {at(0, 1, 1), at(1, 1, 1), at(0, 0, 1), at(0, 2, 1), at(0, 1, 0), at(0, 1, 2)}) d->setElement<int>(c, 1);
  EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(0, 1, 1))) << "the dataset's edge counts as background";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 1, 1))) << "background is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(-1, 1, 1))) << "outside is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(1, 1, 1, 1))) << "t outside is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(nullptr, at(1, 1, 1)));
}

TEST(BinarySegmentationsTest, SolidCubeHasOnlyItsCentreInside) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  d->setAllElementsValue(-4.0);
  std::vector<DatasetCoordinates> inner;
  for (int z = 0; z < 3; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 3; ++x)
        if (!BinarySegmentations::isBorderElement(d.get(), at(x, y, z))) inner.push_back(at(x, y, z));
  ASSERT_EQ(inner.size(), 1u) << "expected exactly one non-border voxel";
  EXPECT_EQ(inner.front(), at(1, 1, 1)) << "expected the centre";
}

TEST(BinarySegmentationsTest, BorderNeedsAllSixFaceNeighbours) {
  auto d = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  for (int z = 1; z < 4; ++z)
    for (int y = 1; y < 4; ++y)
      for (int x = 1; x < 4; ++x) d->setElement<double>(at(x, y, z), 1.0);
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2)));
  const DatasetCoordinates neighbours[] = {at(1, 2, 2), at(3, 2, 2), at(2, 1, 2), at(2, 3, 2), at(2, 2, 1), at(2, 2, 3)};
  for (const auto& n : neighbours) {
    d->setElement<double>(n, 0.0);
    EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2))) << "hole at " << n;
    d->setElement<double>(n, 1.0);
  }
  // Edge and corner neighbours do not matter.
  d->setElement<double>(at(1, 1, 2), 0.0);
  d->setElement<double>(at(1, 1, 1), 0.0);
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2)));
}

TEST(BinarySegmentationsTest, TransformWithBoundsKeepsTheClosedRange) {
  auto d = makeDataset(at(5, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  const double values[] = {0.5, 1.0, 2.0, 2.5, notANumber};
  for (int x = 0; x < 5; ++x) d->setElement<double>(at(x), values[x]);
  BinarySegmentations::transformIntoBinarySegmentation(d.get(), 1.0, 2.0);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 1, 0, 0})) << "0.5 -> 0, 1 and 2 -> 1, 2.5 and NaN -> 0";
}

TEST(BinarySegmentationsTest, TransformMakesNonZeroOne) {
  auto d = makeDataset(at(6, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  const double values[] = {0.0, 3.0, -7.0, 0.25, notANumber, -0.0};
  for (int x = 0; x < 6; ++x) d->setElement<double>(at(x), values[x]);
  BinarySegmentations::transformIntoBinarySegmentation(d.get());
  const std::vector<double> result = allValues(d.get());
  EXPECT_EQ(result, (std::vector<double>{0, 1, 1, 1, 1, 0}));
  EXPECT_TRUE(std::signbit(result[5])) << "zero elements are not written";

  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(1), true);
  BinarySegmentations::transformIntoBinarySegmentation(b.get());
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{0, 1, 0}));
}

TEST(BinarySegmentationsTest, EveryDatasetCountsAsBinary) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  d->setElement<int>(at(1), 3);
  d->setElement<int>(at(2), -7);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(d.get())) << "values 0, 3 and -7";
  auto f = makeDataset(at(2, 2, 1, 2, 3), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  f->setElement<double>(at(1, 1, 0, 1, 2), notANumber);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(f.get()));
  Dataset empty(true);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(&empty));
}

TEST(BinarySegmentationsTest, NanIsAnObjectElement) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  d->setElement<double>(at(0), notANumber);
  d->setElement<double>(at(1), -0.0);
  d->setElement<double>(at(2), -1e-30);
  EXPECT_TRUE(BinarySegmentations::isObjectElement(d.get(), at(0))) << "NaN is object";
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(1))) << "-0 is background";
  EXPECT_TRUE(BinarySegmentations::isObjectElement(d.get(), at(2)));
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(3))) << "outside is background";
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(0, 0, 0, 0, 1)));
  EXPECT_FALSE(BinarySegmentations::isObjectElement(nullptr, at(0)));
}

TEST(BinarySegmentationsTest, SetObjectElementAndSetEmpty) {
  auto d = makeDataset(at(2, 2, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR);
  BinarySegmentations::setObjectElement(d.get(), true, at(1, 1));
  EXPECT_EQ(d->getElement<int>(at(1, 1)), 1);
  BinarySegmentations::setObjectElement(d.get(), true, at(5, 1));  // outside: ignored
  BinarySegmentations::setObjectElement(d.get(), false, at(1, 1));
  EXPECT_EQ(d->getElement<int>(at(1, 1)), 0);
  d->setAllElementsValue(-3.0);
  BinarySegmentations::setEmpty(d.get());
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 0, 0, 0}));
  BinarySegmentations::setEmpty(nullptr);
}

TEST(BinarySegmentationsTest, WorldObjectTests) {
  auto d = makeDataset(at(4, 4, 4, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                       DatasetWorldEmbedding(WorldCoordinates(10, 20, 30, 0), WorldCoordinates(2, 2, 2, 1)));
  d->setElement<int>(at(1, 2, 3), 5);
  // World (12, 24, 36) is voxel (1, 2, 3).
  EXPECT_TRUE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.0, 24.0, 36.0, 0));
  EXPECT_TRUE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.9, 23.2, 36.5, 0)) << "nearest voxel";
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 14.0, 24.0, 36.0, 0));
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 1e9, 24.0, 36.0, 0)) << "outside is background";
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.0, 24.0, 36.0, 3)) << "t outside";
  // The plane form samples a plane interpolation that always gives 0.
  EXPECT_FALSE(BinarySegmentations::isPlaneWorldObjectElement(d.get(), 12.0, 24.0, 3, 0));
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(nullptr, 0, 0, 0, 0));
}

// ---------------------------------------------------------------------------------------------
// Voxel counts.

TEST(BinarySegmentationsTest, PairwiseCountsOfTwoLines) {
  auto a = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  auto b = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  a->setElement<bool>(at(0), true);
  a->setElement<bool>(at(1), true);
  b->setElement<bool>(at(1), true);
  b->setElement<bool>(at(2), true);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a.get(), b.get(), 0), 2u);
  EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a.get(), b.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a.get(), b.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), b.get(), 0), 3u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 0), 2u);
}

TEST(BinarySegmentationsTest, CountsOfIncompatibleOrMissingInputsAreZero) {
  auto a = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto wider = makeDataset(at(5, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto moved = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT, embeddingWithSpacing(1, 1, 2));
  a->setAllElementsValue(1.0);
  wider->setAllElementsValue(1.0);
  moved->setAllElementsValue(1.0);
  for (Dataset* other : {wider.get(), moved.get(), static_cast<Dataset*>(nullptr)}) {
    EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(other, a.get(), 0), 0u);
  }
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 1), 0u) << "t outside holds nothing";
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), -1), 0u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), INT_MAX), 0u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), a.get(), 7), 0u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(nullptr, 0), 0u);
  Dataset empty(true), empty2(true);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(&empty, 0), 0u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(&empty, &empty2, 0), 0u);
}

TEST(BinarySegmentationsTest, CountsUseTheGivenTimeStepAndComponentZero) {
  auto a = makeDataset(at(3, 2, 2, 2, 2), tarv::TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  a->setElement<int>(at(0, 0, 0, 1, 0), 9);
  a->setElement<int>(at(1, 0, 0, 1, 0), 9);
  a->setElement<int>(at(2, 1, 1, 1, 1), 9);  // component 1 is not counted
  a->setElement<int>(at(2, 1, 1, 0, 0), 9);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 1), 2u);
}

TEST(BinarySegmentationsTest, PairwiseCountsReadTheSecondOnlyWhereNeeded) {
  auto plainA = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  for (int x = 0; x < 4; ++x) plainA->setElement<int>(at(x, 1, 1), 1);  // 4 of 24 object
  auto b = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding(), false);
  auto* counting = static_cast<AccessCountingDataset*>(b.get());
  counting->reads = 0;
  BinarySegmentations::getSharedSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 4) << "intersection reads b where a is object";
  counting->reads = 0;
  BinarySegmentations::getExclusiveSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 4);
  counting->reads = 0;
  BinarySegmentations::getTotalSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 20) << "union reads b where a is background";
  counting->reads = 0;
  BinarySegmentations::getSegmentationVoxelCountDifference(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 24);
}

TEST(BinarySegmentationsTest, CountsMatchElementReadsForEveryTypeAndBothPaths) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    auto virtualA = copyOf(pair.a.get(), false);
    auto virtualB = copyOf(pair.b.get(), false);
    const int t = pair.t;
    unsigned difference = 0, exclusive = 0, shared = 0, total = 0;
    const DatasetCoordinates size = pair.a->getSize();
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          const bool inA = pair.a->getElement<bool>(at(x, y, z, t)), inB = pair.b->getElement<bool>(at(x, y, z, t));
          difference += inA != inB;
          exclusive += inA && !inB;
          shared += inA && inB;
          total += inA || inB;
        }
    for (auto [a, b] : {std::pair{pair.a.get(), pair.b.get()}, std::pair{virtualA.get(), virtualB.get()},
                        std::pair{pair.a.get(), virtualB.get()}}) {
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a, t), referenceCount(pair.a.get(), t));
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a, b, t), difference);
      EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a, b, t), exclusive);
      EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a, b, t), shared);
      EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a, b, t), total);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Connected groups.

TEST(BinarySegmentationsTest, GetGroupLeavesValuesUnchanged) {
  auto d = makeDataset(at(5, 4, 3, 2, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  std::mt19937 rng(7);
  for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    d->setElement<int>(it, int(rng() % 3));
  const std::vector<double> before = allValues(d.get());
  const auto group = BinarySegmentations::getGroup(d.get(), 1.0, 1000, at(2, 2, 1, 1));
  EXPECT_EQ(allValues(d.get()), before) << "every mark is undone";
  EXPECT_FALSE(group.empty());
}

TEST(BinarySegmentationsTest, GetGroupFindsTheConnectedRegionInDiscoveryOrder) {
  auto d = makeDataset(at(4, 3, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  // 1 1 0 1
  // 0 1 0 1
  // 2 1 1 1
  const int values[3][4] = {{1, 1, 0, 1}, {0, 1, 0, 1}, {2, 1, 1, 1}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) d->setElement<double>(at(x, y), values[y][x]);
  const auto group = BinarySegmentations::getGroup(d.get(), 1.0, 100, at(1, 1));
  const std::vector<DatasetCoordinates> expected = {at(1, 1), at(1, 0), at(1, 2), at(0, 0), at(2, 2),
                                                    at(3, 2), at(3, 1), at(3, 0)};
  EXPECT_EQ(std::vector<DatasetCoordinates>(group.begin(), group.end()), expected)
      << "breadth first, neighbours in the order -x, +x, -y, +y";
}

TEST(BinarySegmentationsTest, GetGroupStopsAfterTheLimitWithUpToSixMore) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR);
  d->setAllElementsValue(1.0);
  const auto seven = BinarySegmentations::getGroup(d.get(), 1.0, 1, at(1, 1, 1));
  ASSERT_EQ(seven.size(), 7u) << "the start and its six neighbours are listed before the check";
  const std::vector<DatasetCoordinates> expected = {at(1, 1, 1), at(0, 1, 1), at(2, 1, 1), at(1, 0, 1),
                                                    at(1, 2, 1), at(1, 1, 0), at(1, 1, 2)};
  EXPECT_EQ(std::vector<DatasetCoordinates>(seven.begin(), seven.end()), expected);
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), 1.0, -5, at(1, 1, 1)).size(), 1u) << "a negative limit";
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), 1.0, INT_MAX, at(0, 0, 0)).size(), 27u) << "a huge limit";
  EXPECT_EQ(allValues(d.get()), std::vector<double>(27, 1.0));
}

TEST(BinarySegmentationsTest, GetGroupTakesTheStartUntestedAndOutsideStartsGiveNothing) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  d->setElement<double>(at(0), 5.0);
  d->setElement<double>(at(2), 5.0);
  const auto group = BinarySegmentations::getGroup(d.get(), 5.0, 10, at(1));
  EXPECT_EQ(std::vector<DatasetCoordinates>(group.begin(), group.end()), (std::vector<DatasetCoordinates>{at(1), at(0), at(2)}));
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{5, 0, 5}));
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(3)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(INT_MIN, 0, 0)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(0, 0, 0, 1)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(nullptr, 5.0, 10, at(0)).empty());
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), notANumber, 10, at(0)).size(), 1u) << "NaN equals nothing";
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{5, 0, 5}));
}

TEST(BinarySegmentationsTest, GetGroupMarksAreInexactWhereTheTypeCannotHoldValueMinusOne) {
  // bool: the group of 0s is marked with true, and restoring adds 1 again, so it ends as 1.
  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(2), true);
  const auto zeros = BinarySegmentations::getGroup(b.get(), 0.0, 10, at(0));
  EXPECT_EQ(zeros.size(), 2u);
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{1, 1, 1})) << "the documented limitation of value 0 in bool";

  // unsigned char: 0 - 1 wraps to 255 and back, so here the marks happen to work.
  auto u = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  u->setElement<int>(at(2), 4);
  EXPECT_EQ(BinarySegmentations::getGroup(u.get(), 0.0, 10, at(0)).size(), 2u);
  EXPECT_EQ(allValues(u.get()), (std::vector<double>{0, 0, 4}));

  // float cannot mark 1e8 (1e8 - 1 rounds back to 1e8): elements are listed repeatedly, and the
  // search still ends with a bounded list.
  auto f = makeDataset(at(4, 4, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  f->setAllElementsValue(1e8);
  const auto repeated = BinarySegmentations::getGroup(f.get(), 1e8, INT_MAX, at(0, 0));
  EXPECT_GT(repeated.size(), 16u);
  EXPECT_LE(repeated.size(), 16u + 6u);
  EXPECT_EQ(BinarySegmentations::getGroup(f.get(), 1e8, 3, at(0, 0)).size(), 6u)
      << "the start and its 2 neighbours, then 3 from the next entry before the check stops";
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsClearsPairsAndKeepsLines) {
  auto d = makeDataset(at(7, 5, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  // A face-adjacent pair, a 3-voxel line, two voxels touching along an edge, and a 2 (other value).
  for (auto c : {at(0, 0), at(1, 0), at(4, 0), at(5, 0), at(6, 0), at(0, 3), at(1, 4)}) d->setElement<int>(c, 1);
  d->setElement<int>(at(3, 3), 2);
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, 2);
  for (auto c : {at(0, 0), at(1, 0)}) EXPECT_EQ(d->getElement<int>(c), 0) << "pair cleared at " << c;
  for (auto c : {at(4, 0), at(5, 0), at(6, 0)}) EXPECT_EQ(d->getElement<int>(c), 1) << "line kept at " << c;
  for (auto c : {at(0, 3), at(1, 4)}) EXPECT_EQ(d->getElement<int>(c), 0) << "edge-touching voxel cleared at " << c;
  EXPECT_EQ(d->getElement<int>(at(3, 3)), 2) << "other values stay";
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsMatchesComponentSizes) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    const DatasetCoordinates size(int(2 + rng() % 6), int(2 + rng() % 6), int(1 + rng() % 4), int(1 + rng() % 2), 1);
    auto d = makeDataset(size, tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
    for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
      d->setElement<int>(it, rng() % 3 == 0 ? 1 : 0);
    const int maximal = int(rng() % 5);
    // Reference: flood fill every 6-connected component of 1s per time step.
    std::vector<double> expected = allValues(d.get());
    auto index = [&](int x, int y, int z, int t) { return ((std::size_t(t) * size.z + z) * size.y + y) * size.x + x; };
    std::vector<bool> seen(expected.size(), false);
    for (int t = 0; t < size.t; ++t)
      for (int z = 0; z < size.z; ++z)
        for (int y = 0; y < size.y; ++y)
          for (int x = 0; x < size.x; ++x) {
            if (expected[index(x, y, z, t)] != 1.0 || seen[index(x, y, z, t)]) continue;
            std::vector<DatasetCoordinates> component = {at(x, y, z, t)};
            seen[index(x, y, z, t)] = true;
            for (std::size_t i = 0; i < component.size(); ++i)
              for (int axis = 0; axis < 3; ++axis)
                for (int step : {-1, 1}) {
                  DatasetCoordinates n = component[i];
                  n[axis] += step;
                  if (!d->areCoordinatesInside(n) || seen[index(n.x, n.y, n.z, t)] ||
                      expected[index(n.x, n.y, n.z, t)] != 1.0)
                    continue;
                  seen[index(n.x, n.y, n.z, t)] = true;
                  component.push_back(n);
                }
            if (int(component.size()) <= maximal)
              for (auto c : component) expected[index(c.x, c.y, c.z, t)] = 0.0;
          }
    BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, maximal);
    EXPECT_EQ(allValues(d.get()), expected) << "maximal group size " << maximal;
  }
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsIgnoresBoolAndBadArguments) {
  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(1), true);
  BinarySegmentations::removeSmallVoxelGroups(b.get(), 1.0, 5);
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{0, 1, 0})) << "no numerical element type: nothing happens";
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  d->setElement<int>(at(1), 1);
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, -1);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 0})) << "no group is at most -1 large";
  BinarySegmentations::removeSmallVoxelGroups(d.get(), notANumber, 5);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 0}));
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, INT_MAX);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 0, 0})) << "every group is small";
  BinarySegmentations::removeSmallVoxelGroups(nullptr, 1.0, 5);
  Dataset empty(true);
  BinarySegmentations::removeSmallVoxelGroups(&empty, 1.0, 5);
}

// ---------------------------------------------------------------------------------------------
// Convex hull span pass.

namespace {

std::set<std::tuple<int, int, int, int>> writtenVoxels(const AccessCountingDataset& d) {
  std::set<std::tuple<int, int, int, int>> result;
  for (const auto& c : d.writes) result.insert({c.x, c.y, c.z, c.t});
  return result;
}

}  // namespace

TEST(BinarySegmentationsTest, ConvexHullSpansOfATetrahedronAreWrittenFalse) {
  auto owner = makeDataset(at(6, 6, 6, 2, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (auto c : {at(0, 0, 0, 1), at(4, 0, 0, 1), at(0, 4, 0, 1), at(0, 0, 4, 1)}) d.setElement<int>(c, 7);
  const std::vector<double> before = allValues(&d);
  d.setCachedMinimumAndMaximumValue(0, 7);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int z = 0; z <= 4; ++z)
    for (int y = 0; y <= 4; ++y)
      for (int x = 0; x <= 4; ++x)
        if (x + y + z <= 4 && !(x + y + z == 4 && (x == 4 || y == 4 || z == 4)) && !(x + y + z == 0))
          expected.insert({x, y, z, 1});
  EXPECT_EQ(writtenVoxels(d), expected) << "every background voxel inside the hull of time step 1, nothing else";
  EXPECT_EQ(allValues(&d), before) << "values stay as they were";
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "the writes clear the minimum/maximum cache";
}

TEST(BinarySegmentationsTest, ConvexHullOfAFullBoxWritesNothing) {
  auto owner = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (int z = 1; z < 4; ++z)
    for (int y = 1; y < 3; ++y)
      for (int x = 0; x < 4; ++x) d.setElement<double>(at(x, y, z), x == 2 ? notANumber : 1.0);
  d.setCachedMinimumAndMaximumValue(0, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty()) << "a convex object has no background inside its hull";
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
}

TEST(BinarySegmentationsTest, ConvexHullOfDegenerateSets) {
  auto owner = makeDataset(at(5, 5, 6, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  // A single voxel: nothing to write.
  d.setElement<int>(at(2, 2, 2), 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty());
  // Two voxels of one column: the segment between them.
  d.setElement<int>(at(2, 2, 5), 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_EQ(writtenVoxels(d), (std::set<std::tuple<int, int, int, int>>{{2, 2, 3, 0}, {2, 2, 4, 0}}));
  // A horizontal square frame: the plane z = 1 inside it.
  d.setAllElementsValue(0.0);
  for (int i = 0; i <= 3; ++i)
    for (auto c : {at(i, 0, 1), at(i, 3, 1), at(0, i, 1), at(3, i, 1)}) d.setElement<int>(c, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_EQ(writtenVoxels(d), (std::set<std::tuple<int, int, int, int>>{{1, 1, 1, 0}, {2, 1, 1, 0}, {1, 2, 1, 0}, {2, 2, 1, 0}}));
  // A vertical triangle in the plane y = 2: its columns lie in the hull's plane.
  d.setAllElementsValue(0.0);
  for (auto c : {at(0, 2, 0), at(4, 2, 0), at(0, 2, 4)}) d.setElement<int>(c, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int x = 0; x <= 4; ++x)
    for (int z = 0; z + x <= 4; ++z)
      if (!((x == 0 && z == 0) || (x == 4 && z == 0) || (x == 0 && z == 4))) expected.insert({x, 2, z, 0});
  EXPECT_EQ(writtenVoxels(d), expected);
  // Nothing at all.
  d.setAllElementsValue(0.0);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty());
}

TEST(BinarySegmentationsTest, ConvexHullSpansInTwoDimensions) {
  auto owner = makeDataset(at(8, 8, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (auto c : {at(0, 0), at(6, 0), at(0, 6), at(1, 1)}) d.setElement<bool>(c, true);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int y = 0; y <= 6; ++y)
    for (int x = 0; x + y <= 6; ++x)
      if (!((x == 0 && y == 0) || (x == 6 && y == 0) || (x == 0 && y == 6) || (x == 1 && y == 1)))
        expected.insert({x, y, 0, 0});
  EXPECT_EQ(writtenVoxels(d), expected);
  // A 1D dataset is 2D as well: the hull is the segment between the two object voxels, and
  // every column between them has the one-voxel span y = 0.
  auto line = makeDataset(at(6, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding(), false);
  auto& l = static_cast<AccessCountingDataset&>(*line);
  l.setElement<bool>(at(1), true);
  l.setElement<bool>(at(4), true);
  l.writes.clear();
  BinarySegmentations::fillConvexHull(&l);
  EXPECT_EQ(writtenVoxels(l), (std::set<std::tuple<int, int, int, int>>{{2, 0, 0, 0}, {3, 0, 0, 0}}));
  EXPECT_EQ(allValues(&l), (std::vector<double>{0, 1, 0, 0, 1, 0}));
}

TEST(BinarySegmentationsTest, ConvexHullLeavesRandomDatasetsUnchanged) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    const std::vector<double> before = allValues(pair.a.get());
    BinarySegmentations::fillConvexHull(pair.a.get());
    const std::vector<double> after = allValues(pair.a.get());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_TRUE(sameDouble(before[i], after[i])) << "element " << i;
  }
  BinarySegmentations::fillConvexHull(nullptr);
  Dataset empty(true);
  BinarySegmentations::fillConvexHull(&empty);
}

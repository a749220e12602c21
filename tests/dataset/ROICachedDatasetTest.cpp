#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "dataset/ArrayDatasetMemory.h"
#include "dataset/ROICachedDataset.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::AllocationStats;
using tarv::testing::LimitedMemory;

namespace {

using Key = std::array<int, 5>;
Key keyOf(const DatasetCoordinates& p) { return {p.x, p.y, p.z, p.t, p.c}; }

double valueAt(const DatasetCoordinates& p) {
  return p.x + 1000.0 * p.y + 1.0e6 * p.z + 1.0e9 * p.t + 0.125 * p.c;
}

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);

DatasetBoundingBox box(const DatasetCoordinates& s, const DatasetCoordinates& e) { return DatasetBoundingBox(s, e); }

// Computes valueAt(p), counting calculations per element; optionally reads another element of
// itself first (which may move the cache under the caller).
class CountingROIDataset : public ROICachedDataset {
public:
  CountingROIDataset() : ROICachedDataset(true) {}
  explicit CountingROIDataset(const std::shared_ptr<AllocationStats>& stats) : ROICachedDataset(true) {
    delete memory;
    memory = new LimitedMemory(stats);
    delete cacheStatusMemory;
    cacheStatusMemory = new LimitedMemory(stats);
  }

  bool calculateElement(const DatasetCoordinates& p) override {
    ++calls;
    ++callsAt[keyOf(p)];
    if (readsFarElement && p.x > 0) {
      // A neighbour far away: outside the ROI under minimal enforcement.
      DatasetCoordinates q = p;
      q.x = 0;
      getElement<double>(q);
    }
    setElementReference<double>(p, valueAt(p));
    setElementCacheStatus(p, true);
    return true;
  }

  int callsOf(const DatasetCoordinates& p) const {
    auto it = callsAt.find(keyOf(p));
    return it == callsAt.end() ? 0 : it->second;
  }
  int maxCallsPerElement() const {
    int m = 0;
    for (const auto& [k, n] : callsAt) m = std::max(m, n);
    return m;
  }
  DatasetMemory* dataMemory() const { return memory; }
  DatasetMemory* statusMemory() const { return cacheStatusMemory; }
  DatasetCoordinates getCacheSize() const { return cacheSize; }

  int calls = 0;
  bool readsFarElement = false;
  std::map<Key, int> callsAt;
};

const DatasetCoordinates kCube(100, 100, 100, 1, 1);

}  // namespace

TEST(ROICachedDatasetTest, ConstructionSetsDefaults) {
  CountingROIDataset d;
  EXPECT_EQ(d.getTypeName(), "ROICachedDataset");
  EXPECT_TRUE(d.isCachedDataset());
  EXPECT_FALSE(d.hasMinimalROIEnforcement());
  EXPECT_EQ(d.getLookAheadRange(), DatasetCoordinates(10, 10, 10, 0, 4));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1)));
  EXPECT_EQ(d.getCacheSize(), kOrigin);
  EXPECT_FALSE(d.areCoordinatesInsideCache(kOrigin));
}

TEST(ROICachedDatasetTest, InitialisationAllocatesNothing) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  EXPECT_TRUE(d.hasData());
  EXPECT_EQ(d.getSize(), kCube);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(d.getMemoryUsage(), 0u) << "the cache comes into being with the first access";
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(1, 1, 1, 0, 0)));
}

TEST(ROICachedDatasetTest, ZeroSizeOrVoidTypeLeavesDatasetWithoutData) {
  CountingROIDataset d;
  d.initializeDataset(DatasetCoordinates(10, 10, 0, 1, 1), TARV_ELEMENT_TYPE_DOUBLE, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  d.initializeDataset(DatasetCoordinates(10, 10, 10, 1, 1), TARV_ELEMENT_TYPE_VOID, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  d.initializeDataset(DatasetCoordinates(10, 10, 10, 1, 1), static_cast<TARVElementType>(15), DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  double v = 3.0;
  EXPECT_FALSE(d.getElementByBuffer(kOrigin, &v)) << "a dataset without data yields nothing";
  EXPECT_EQ(v, 3.0);
  EXPECT_FALSE(d.reshapeCacheToFullDataset());
  EXPECT_EQ(d.getMemoryUsage(), 0u);
}

TEST(ROICachedDatasetTest, FirstReadGrowsROIByLookAheadClippedToDataset) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  const DatasetCoordinates p(50, 50, 50, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(40, 40, 40, 0, 0), DatasetCoordinates(60, 60, 60, 0, 0)));
  EXPECT_EQ(d.getCacheSize(), DatasetCoordinates(21, 21, 21, 1, 1));
  EXPECT_EQ(d.getMemoryUsage(), 21u * 21 * 21 * 8 + (21u * 21 * 21 + 7) / 8);
}

TEST(ROICachedDatasetTest, FollowingReadGrowsOnlyTheNeededSideAndKeepsValues) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  const DatasetCoordinates p(50, 50, 50, 0, 0);
  const DatasetCoordinates q(45, 55, 41, 0, 0);
  d.getElement<double>(p);
  d.getElement<double>(q);
  const DatasetCoordinates r(65, 50, 50, 0, 0);
  EXPECT_EQ(d.getElement<double>(r), valueAt(r));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(40, 40, 40, 0, 0), DatasetCoordinates(75, 60, 60, 0, 0)));
  EXPECT_TRUE(d.getElementCacheStatus(p));
  EXPECT_TRUE(d.getElementCacheStatus(q));
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(46, 55, 41, 0, 0)));
  EXPECT_EQ(d.getElementReference<double>(p), valueAt(p)) << "carried-over values are identical";
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.getElement<double>(q), valueAt(q));
  EXPECT_EQ(d.calls, 3) << "carried-over values are not computed again";
}

TEST(ROICachedDatasetTest, GrowingTowardsLowerCoordinatesKeepsTheEnd) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  d.getElement<double>(DatasetCoordinates(50, 50, 50, 0, 0));
  d.getElement<double>(DatasetCoordinates(5, 50, 95, 0, 0));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(0, 40, 40, 0, 0), DatasetCoordinates(60, 60, 99, 0, 0)));
  EXPECT_EQ(d.calls, 2);
}

TEST(ROICachedDatasetTest, MinimalROIEnforcementLeavesOneElementROI) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  d.setMinimalROIEnforcement(true);
  EXPECT_TRUE(d.hasMinimalROIEnforcement());
  for (const DatasetCoordinates& p : {DatasetCoordinates(50, 50, 50, 0, 0), DatasetCoordinates(51, 50, 50, 0, 0),
                                      DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(99, 99, 99, 0, 0)}) {
    EXPECT_EQ(d.getElement<double>(p), valueAt(p));
    EXPECT_EQ(d.getCacheRegion(), box(p, p));
    EXPECT_EQ(d.getCacheSize(), DatasetCoordinates(1, 1, 1, 1, 1));
  }
  EXPECT_EQ(d.getMemoryUsage(), 8u + 1u);
  const DatasetCoordinates last(99, 99, 99, 0, 0);
  EXPECT_EQ(d.getElement<double>(last), valueAt(last));
  EXPECT_EQ(d.callsOf(last), 1) << "a read inside the one-element ROI does not reshape";
}

TEST(ROICachedDatasetTest, IncludeOnlyElementClampsCoordinates) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(10, 10, 10, 2, 3), DatasetWorldEmbedding());
  EXPECT_TRUE(d.reshapeCacheToIncludeOnlyElement(DatasetCoordinates(-5, 3, 20, 7, -1)));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(0, 3, 9, 1, 0), DatasetCoordinates(0, 3, 9, 1, 0)));
}

TEST(ROICachedDatasetTest, ReshapeToCurrentROIKeepsEverything) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  d.getElement<double>(DatasetCoordinates(50, 50, 50, 0, 0));
  const DatasetBoundingBox roi = d.getCacheRegion();
  DatasetMemory* data = d.dataMemory();
  DatasetMemory* statuses = d.statusMemory();
  const int allocations = stats->allocations;
  EXPECT_TRUE(d.reshapeCache(roi));
  EXPECT_EQ(d.dataMemory(), data);
  EXPECT_EQ(d.statusMemory(), statuses);
  EXPECT_EQ(stats->allocations, allocations);
  EXPECT_TRUE(d.getElementCacheStatus(DatasetCoordinates(50, 50, 50, 0, 0)));
}

TEST(ROICachedDatasetTest, ReadsInsideTheROICostNoAllocationAndNoCopy) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  d.announceAccess(box(DatasetCoordinates(10, 10, 10, 0, 0), DatasetCoordinates(30, 30, 30, 0, 0)));
  const int allocations = stats->allocations;
  EXPECT_EQ(allocations, 2);
  DatasetMemory* data = d.dataMemory();
  for (int z = 10; z <= 30; z += 5)
    for (int y = 10; y <= 30; y += 3)
      for (int x = 10; x <= 30; ++x) {
        const DatasetCoordinates p(x, y, z, 0, 0);
        ASSERT_EQ(d.getElement<double>(p), valueAt(p));
        ASSERT_EQ(d.getElement<double>(p), valueAt(p));
      }
  EXPECT_EQ(stats->allocations, allocations) << "reads inside the ROI must not reshape";
  EXPECT_EQ(d.dataMemory(), data);
  EXPECT_EQ(d.maxCallsPerElement(), 1);
}

TEST(ROICachedDatasetTest, AnnounceThenCalculateComputesBoxWithoutFurtherReshaping) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<float>(DatasetCoordinates(30, 30, 30, 1, 2), DatasetWorldEmbedding());
  const DatasetBoundingBox b(DatasetCoordinates(5, 6, 7, 0, 0), DatasetCoordinates(14, 16, 18, 0, 1));
  d.announceAccess(b);
  EXPECT_EQ(d.getCacheRegion(), b);
  const int allocations = stats->allocations;
  DatasetMemory* data = d.dataMemory();
  d.calculate(b);
  EXPECT_EQ(stats->allocations, allocations);
  EXPECT_EQ(d.dataMemory(), data);
  EXPECT_EQ(d.calls, 10 * 11 * 12 * 2);
  EXPECT_EQ(d.maxCallsPerElement(), 1);
  EXPECT_TRUE(d.getElementCacheStatus(DatasetCoordinates(14, 16, 18, 0, 1)));
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(14, 16, 18, 0, 1)),
            static_cast<double>(static_cast<float>(valueAt(DatasetCoordinates(14, 16, 18, 0, 1)))));
  EXPECT_EQ(d.calls, 10 * 11 * 12 * 2);
}

TEST(ROICachedDatasetTest, CalculateWithoutAnnouncementGrowsToTheBox) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(20, 20, 1, 1, 1), DatasetWorldEmbedding());
  d.getElement<double>(DatasetCoordinates(2, 2, 0, 0, 0));
  d.calculate(box(DatasetCoordinates(15, 15, 0, 0, 0), DatasetCoordinates(25, 25, 0, 0, 0)));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(19, 19, 0, 0, 0)));
  EXPECT_EQ(d.calls, 1 + 25) << "the box is clipped to the dataset";
}

TEST(ROICachedDatasetTest, ResetCacheFreesMemoriesAndNextReadAllocatesAnew) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  const DatasetCoordinates p(50, 50, 50, 0, 0);
  d.getElement<double>(p);
  const unsigned int used = d.getMemoryUsage();
  EXPECT_GT(used, 0u);
  d.resetCache();
  EXPECT_EQ(d.getMemoryUsage(), 0u) << "resetCache frees both memories";
  EXPECT_FALSE(d.areCoordinatesInsideCache(p));
  EXPECT_TRUE(d.hasData());
  const int allocations = stats->allocations;
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(stats->allocations, allocations + 2);
  EXPECT_EQ(d.callsOf(p), 2);
  EXPECT_EQ(d.getMemoryUsage(), used);
}

TEST(ROICachedDatasetTest, ResetReturnsToConstructedState) {
  CountingROIDataset d;
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  d.getElement<double>(DatasetCoordinates(1, 1, 1, 0, 0));
  d.reset();
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(d.getMemoryUsage(), 0u);
  EXPECT_EQ(d.getCacheSize(), kOrigin);
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1)));
}

TEST(ROICachedDatasetTest, AdoptedMemoryCoversWholeDatasetAndCountsAsComputed) {
  auto* m = new ArrayDatasetMemory();
  ASSERT_TRUE(m->allocate<short>(DatasetCoordinates(6, 5, 4, 1, 2), kOrigin));
  for (auto it = m->getStartCoordinatesIterator(); it.valid; m->incrementCoordinatesIterator(it))
    m->setElement<short>(it, static_cast<short>(it.index * 3));
  CountingROIDataset d;
  d.initializeDataset(m, DatasetWorldEmbedding());
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(d.getCacheRegion(), box(kOrigin, DatasetCoordinates(5, 4, 3, 0, 1)));
  EXPECT_EQ(d.getCacheSize(), DatasetCoordinates(6, 5, 4, 1, 2));
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    EXPECT_EQ(d.getElement<short>(it), static_cast<short>(it.index * 3));
  EXPECT_EQ(d.calls, 0);

  auto shifted = std::make_unique<ArrayDatasetMemory>();
  ASSERT_TRUE(shifted->allocate<short>(DatasetCoordinates(6, 5, 4, 1, 2), DatasetCoordinates(1, 0, 0, 0, 0)));
  d.initializeDataset(shifted.get(), DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  EXPECT_TRUE(shifted->isAllocated()) << "a memory not starting at the origin stays the caller's";
  d.initializeDataset(nullptr, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
}

TEST(ROICachedDatasetTest, AdoptedMemoryWithoutRoomForStatusesLeavesDatasetEmpty) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  stats->limitBytes = 10;
  auto* m = new ArrayDatasetMemory();
  ASSERT_TRUE(m->allocate<unsigned char>(DatasetCoordinates(20, 20, 1, 1, 1), kOrigin));
  d.initializeDataset(m, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(stats->refusals, 1);
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1)));
}

TEST(ROICachedDatasetTest, CacheQueriesFollowTheROI) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(50, 50, 50, 3, 3), DatasetWorldEmbedding());
  const DatasetBoundingBox roi(DatasetCoordinates(10, 11, 12, 1, 1), DatasetCoordinates(20, 21, 22, 2, 2));
  EXPECT_FALSE(d.isBoxInsideCache(roi)) << "nothing allocated yet";
  ASSERT_TRUE(d.reshapeCache(roi));
  EXPECT_EQ(d.getCacheRegion(), roi);
  EXPECT_TRUE(d.areCoordinatesInsideCache(DatasetCoordinates(10, 11, 12, 1, 1)));
  EXPECT_TRUE(d.areCoordinatesInsideCache(DatasetCoordinates(20, 21, 22, 2, 2)));
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(20, 21, 22, 2, 0)));
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(9, 11, 12, 1, 1)));
  EXPECT_TRUE(d.isBoxInsideCache(roi));
  EXPECT_FALSE(d.isBoxInsideCache(box(DatasetCoordinates(10, 11, 12, 1, 1), DatasetCoordinates(21, 21, 22, 2, 2))));
  const DatasetBoundingBox fitted =
      d.fitBoxToCacheInterior(box(DatasetCoordinates(0, 30, 15, 2, 0), DatasetCoordinates(15, 12, 100, 0, 1)));
  EXPECT_EQ(fitted, box(DatasetCoordinates(10, 12, 15, 1, 1), DatasetCoordinates(15, 21, 22, 2, 1)));
  const DatasetBoundingBox swapped =
      d.fitBoxToCacheInterior(box(DatasetCoordinates(18, 11, 12, 1, 1), DatasetCoordinates(12, 11, 12, 1, 1)));
  EXPECT_EQ(swapped, box(DatasetCoordinates(12, 11, 12, 1, 1), DatasetCoordinates(18, 11, 12, 1, 1)));
  d.setCacheStatusValues(box(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(10, 11, 12, 1, 1)), true);
  EXPECT_TRUE(d.getElementCacheStatus(DatasetCoordinates(10, 11, 12, 1, 1)));
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(11, 11, 12, 1, 1)));
}

TEST(ROICachedDatasetTest, ReshapeClipsBoxesToTheDataset) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(10, 10, 10, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.reshapeCache(box(DatasetCoordinates(-5, 5, 8, 0, 0), DatasetCoordinates(3, 20, 30, 5, 5))));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(0, 5, 8, 0, 0), DatasetCoordinates(3, 9, 9, 0, 0)));
  const DatasetBoundingBox before = d.getCacheRegion();
  EXPECT_FALSE(d.reshapeCache(box(DatasetCoordinates(12, 0, 0, 0, 0), DatasetCoordinates(20, 5, 5, 0, 0))))
      << "a box entirely outside the dataset is refused";
  EXPECT_FALSE(d.reshapeCache(box(DatasetCoordinates(5, 5, 5, 0, 0), DatasetCoordinates(4, 5, 5, 0, 0))));
  EXPECT_EQ(d.getCacheRegion(), before);
}

TEST(ROICachedDatasetTest, LookAheadLargerThanDatasetIsClipped) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(7, 5, 3, 2, 2), DatasetWorldEmbedding());
  d.setLookAheadRange(DatasetCoordinates(1000, 1000, 1000, 1000, 1000));
  const DatasetCoordinates p(6, 0, 1, 1, 1);
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.getCacheRegion(), d.getVoxelBoundingBox());
  d.setLookAheadRange(DatasetCoordinates(std::numeric_limits<int>::max(), std::numeric_limits<int>::max(), 0, 0, 0));
  d.resetCache();
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.getCacheRegion(), box(DatasetCoordinates(0, 0, 1, 1, 1), DatasetCoordinates(6, 4, 1, 1, 1)));
}

TEST(ROICachedDatasetTest, NegativeLookAheadStillIncludesTheElement) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(20, 20, 20, 1, 1), DatasetWorldEmbedding());
  d.setLookAheadRange(DatasetCoordinates(-3, -3, -3, -3, -3));
  const DatasetCoordinates p(10, 10, 10, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.getCacheRegion(), box(p, p));
}

TEST(ROICachedDatasetTest, CoordinatesOutsideTheDatasetAreRefused) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(DatasetCoordinates(10, 10, 10, 1, 2), DatasetWorldEmbedding());
  const int big = std::numeric_limits<int>::max();
  const int small = std::numeric_limits<int>::min();
  for (const DatasetCoordinates& p :
       {DatasetCoordinates(150, 0, 0, 0, 0), DatasetCoordinates(-1, 0, 0, 0, 0), DatasetCoordinates(0, 0, 0, 0, 2),
        DatasetCoordinates(0, 0, 0, 1, 0), DatasetCoordinates(big, big, big, big, big),
        DatasetCoordinates(small, small, small, small, small), DatasetCoordinates(9, 9, 10, 0, 1)}) {
    double v = 4.0;
    EXPECT_FALSE(d.getElementByBuffer(p, &v)) << "at " << p;
    EXPECT_EQ(v, 4.0);
    d.setElementByBuffer(p, &v);
    d.setMinimalROIEnforcement(!d.hasMinimalROIEnforcement());
  }
  EXPECT_EQ(d.calls, 0);
  const DatasetCoordinates inside(9, 9, 9, 0, 1);
  EXPECT_EQ(d.getElement<double>(inside), valueAt(inside));
}

TEST(ROICachedDatasetTest, MemoryPressureFallsBackToSingleElements) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  stats->limitBytes = 64;  // room for a few doubles, not for a grown ROI
  const DatasetCoordinates p(50, 50, 50, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), valueAt(p)) << "a single element is still delivered";
  EXPECT_EQ(d.getCacheRegion(), box(p, p));
  EXPECT_GT(stats->refusals, 0);
  const DatasetCoordinates q(51, 50, 50, 0, 0);
  EXPECT_EQ(d.getElement<double>(q), valueAt(q));
  EXPECT_EQ(d.getCacheRegion(), box(q, q));
}

TEST(ROICachedDatasetTest, FailedReshapeKeepsTheOldCacheUsable) {
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  d.initializeDataset<double>(kCube, DatasetWorldEmbedding());
  const DatasetCoordinates p(50, 50, 50, 0, 0);
  d.calculate(box(DatasetCoordinates(45, 45, 45, 0, 0), DatasetCoordinates(55, 55, 55, 0, 0)));
  const DatasetBoundingBox roi = d.getCacheRegion();
  DatasetMemory* data = d.dataMemory();
  const int calls = d.calls;
  ASSERT_EQ(roi, box(DatasetCoordinates(45, 45, 45, 0, 0), DatasetCoordinates(55, 55, 55, 0, 0)));
  stats->limitBytes = 11 * 11 * 11 * 8;  // the current ROI, not more
  EXPECT_FALSE(d.reshapeCacheToIncludeElement(DatasetCoordinates(80, 50, 50, 0, 0)));
  EXPECT_FALSE(d.reshapeCacheToFullDataset());
  d.announceAccessToFullDataset();
  EXPECT_EQ(d.getCacheRegion(), roi) << "the old cache stays in place";
  EXPECT_EQ(d.dataMemory(), data);
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
  EXPECT_EQ(d.calls, calls) << "and its values stay valid";
  // A full-dataset iteration under pressure walks the cache that exists.
  int visited = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    ASSERT_EQ(d.getElement<double>(it), valueAt(it));
    ++visited;
  }
  EXPECT_EQ(visited, 11 * 11 * 11);
  d.calculateFullDataset(nullptr);
  EXPECT_EQ(d.getCacheRegion(), roi);
  stats->limitBytes = 0;
  double v = 1.5;
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(90, 90, 90, 0, 0), &v))
      << "when not even one element fits, the read fails";
  EXPECT_EQ(v, 1.5);
  d.setElementByBuffer(DatasetCoordinates(90, 90, 90, 0, 0), &v);
  EXPECT_EQ(d.getCacheRegion(), roi) << "and the write is dropped";
  EXPECT_EQ(d.getElement<double>(p), valueAt(p));
}

TEST(ROICachedDatasetTest, CalculationThatMovesTheCacheDoesNotDerailCalculate) {
  CountingROIDataset d;
  d.initializeDataset<double>(DatasetCoordinates(40, 6, 1, 1, 1), DatasetWorldEmbedding());
  d.readsFarElement = true;
  d.setMinimalROIEnforcement(true);
  d.calculate(box(DatasetCoordinates(30, 0, 0, 0, 0), DatasetCoordinates(39, 5, 0, 0, 0)));
  // Each calculation moved the ROI to (0, y): the loop stops safely after the first element.
  EXPECT_GE(d.calls, 1);
  EXPECT_LE(d.calls, 3);
  d.setMinimalROIEnforcement(false);
  d.calculateFullDataset(nullptr);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 40; ++x) {
      const DatasetCoordinates p(x, y, 0, 0, 0);
      ASSERT_EQ(d.getElement<double>(p), valueAt(p));
    }
  // Iterator reads whose calculation moves the cache still deliver the right value.
  CountingROIDataset e;
  e.initializeDataset<double>(DatasetCoordinates(40, 1, 1, 1, 1), DatasetWorldEmbedding());
  e.readsFarElement = true;
  e.setLookAheadRange(DatasetCoordinates(0, 0, 0, 0, 0));
  e.announceAccess(box(DatasetCoordinates(20, 0, 0, 0, 0), DatasetCoordinates(25, 0, 0, 0, 0)));
  auto it = e.getStartCoordinatesIterator(box(DatasetCoordinates(20, 0, 0, 0, 0), DatasetCoordinates(25, 0, 0, 0, 0)));
  ASSERT_TRUE(it.valid);
  EXPECT_EQ(e.getElement<double>(it), valueAt(DatasetCoordinates(20, 0, 0, 0, 0)));
  EXPECT_EQ(e.getCacheRegion(), box(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(25, 0, 0, 0, 0)));
}

// Random walks through datasets of random shapes, with ROIs at the faces, margins larger than the
// dataset and multi-component elements: every value is right, every computed value is carried
// over (no element is computed twice while the ROI only grows), and nothing is touched outside the
// memories (checked by the sanitizers).
TEST(ROICachedDatasetTest, RandomWalksCarryEveryComputedValueOver) {
  const unsigned seed = 1234567u;
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    std::uniform_int_distribution<int> extent(1, 12);
    const DatasetCoordinates s(extent(random), extent(random), extent(random) % 5 + 1, extent(random) % 3 + 1,
                               extent(random) % 4 + 1);
    std::uniform_int_distribution<int> margin(-1, 14);
    CountingROIDataset d;
    d.initializeDataset<long double>(s, DatasetWorldEmbedding());
    d.setLookAheadRange(DatasetCoordinates(margin(random), margin(random), margin(random), margin(random), margin(random)));
    for (int step = 0; step < 80; ++step) {
      DatasetCoordinates p;
      for (int k = 0; k < 5; ++k) {
        const int choice = static_cast<int>(random() % 4);
        p[k] = choice == 0 ? 0 : choice == 1 ? s[k] - 1 : static_cast<int>(random() % static_cast<unsigned>(s[k]));
      }
      if (step % 7 == 3) {
        DatasetBoundingBox b;
        for (int k = 0; k < 5; ++k) {
          b.start[k] = p[k] - static_cast<int>(random() % 20);
          b.end[k] = p[k] + static_cast<int>(random() % 20);
        }
        d.announceAccess(b);
        ASSERT_TRUE(d.isBoxInsideCache(d.fitBoxToInterior(b))) << "seed " << seed << " round " << round;
      }
      const DatasetBoundingBox before = d.getCacheRegion();
      const bool hadCache = d.isBoxInsideCache(before);
      ASSERT_EQ(d.getElement<double>(p), static_cast<double>(static_cast<long double>(valueAt(p))))
          << "seed " << seed << " round " << round << " at " << p;
      ASSERT_TRUE(d.areCoordinatesInsideCache(p));
      if (hadCache) ASSERT_TRUE(d.isBoxInsideCache(before)) << "the ROI only grows; seed " << seed << " round " << round;
    }
    EXPECT_EQ(d.maxCallsPerElement(), 1) << "seed " << seed << " round " << round;
    // Every computed element of the final ROI holds its value.
    const DatasetBoundingBox roi = d.getCacheRegion();
    for (auto it = d.getStartCoordinatesIterator(roi); it.valid; d.incrementCoordinatesIterator(roi, it))
      if (d.getElementCacheStatus(it))
        ASSERT_EQ(d.getElementReference<long double>(it), static_cast<long double>(valueAt(it)));
  }
}

TEST(ROICachedDatasetTest, RandomReshapesUnderPressureAndEnforcementStayInsideMemories) {
  const unsigned seed = 99u;
  std::mt19937 random(seed);
  auto stats = std::make_shared<AllocationStats>();
  CountingROIDataset d(stats);
  const DatasetCoordinates s(9, 8, 7, 2, 3);
  d.initializeDataset<unsigned short>(s, DatasetWorldEmbedding());
  int delivered = 0;
  int refused = 0;
  for (int step = 0; step < 3000; ++step) {
    stats->limitBytes = step % 5 == 0 ? 0 : static_cast<std::uint64_t>(random() % 3000);
    d.setMinimalROIEnforcement(step % 3 == 0);
    DatasetCoordinates p;
    for (int k = 0; k < 5; ++k) p[k] = static_cast<int>(random() % static_cast<unsigned>(s[k] + 2)) - 1;
    const bool inside = d.areCoordinatesInside(p);
    const bool cachedBefore = d.areCoordinatesInsideCache(p);
    unsigned short v = 7;
    const bool ok = d.getElementByBuffer(p, &v);
    if (!inside) ASSERT_FALSE(ok) << "seed " << seed << " step " << step;
    if (ok) ASSERT_EQ(v, static_cast<unsigned short>(valueAt(p))) << "seed " << seed << " step " << step;
    if (!ok) ASSERT_EQ(v, 7) << "seed " << seed << " step " << step;
    if (inside && (cachedBefore || stats->limitBytes >= 2))
      ASSERT_TRUE(ok) << "a single element fits, so it must be delivered; seed " << seed << " step " << step;
    if (!cachedBefore && stats->limitBytes == 0)
      ASSERT_FALSE(ok) << "nothing fits; seed " << seed << " step " << step;
    if (inside) ++(ok ? delivered : refused);
    if (step % 11 == 0) d.calculate(box(p - DatasetCoordinates(2, 2, 2, 1, 1), p + DatasetCoordinates(2, 2, 2, 1, 1)));
    if (step % 13 == 0) d.resetCache();
  }
  EXPECT_GT(delivered, 100);
  EXPECT_GT(refused, 0) << "reads with no memory at all fail";
  stats->limitBytes = std::numeric_limits<std::uint64_t>::max();
  d.calculateFullDataset(nullptr);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    ASSERT_EQ(d.getElement<unsigned short>(it), static_cast<unsigned short>(valueAt(it)));
}

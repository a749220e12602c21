#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "dataset/ArrayDatasetMemory.h"
#include "dataset/CachedDataset.h"
#include "dataset/DependentDataset.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::AllocationStats;
using tarv::testing::LimitedMemory;

namespace {

using Key = std::array<int, 5>;
Key keyOf(const DatasetCoordinates& p) { return {p.x, p.y, p.z, p.t, p.c}; }

double valueAt(const DatasetCoordinates& p) {
  return p.x + 10.0 * p.y + 100.0 * p.z + 1000.0 * p.t + 10000.0 * p.c + 0.5;
}

// Computes valueAt(p) and counts every calculation, per element and in total.
class CountingCachedDataset : public CachedDataset {
public:
  CountingCachedDataset() : CachedDataset(true) {}
  // Installs memories that count allocations (and may refuse them).
  explicit CountingCachedDataset(const std::shared_ptr<AllocationStats>& stats) : CachedDataset(true) {
    delete memory;
    memory = new LimitedMemory(stats);
    delete cacheStatusMemory;
    cacheStatusMemory = new LimitedMemory(stats);
  }

  bool calculateElement(const DatasetCoordinates& p) override {
    ++calls;
    ++callsAt[keyOf(p)];
    if (failing.count(keyOf(p)) != 0) return false;
    setElementReference<double>(p, valueAt(p));
    setElementCacheStatus(p, true);
    return true;
  }

  int callsOf(const DatasetCoordinates& p) const {
    auto it = callsAt.find(keyOf(p));
    return it == callsAt.end() ? 0 : it->second;
  }
  DatasetMemory* dataMemory() const { return memory; }
  DatasetMemory* statusMemory() const { return cacheStatusMemory; }
  void replaceStatusMemory(DatasetMemory* m) {
    delete cacheStatusMemory;
    cacheStatusMemory = m;
  }

  int calls = 0;
  std::map<Key, int> callsAt;
  std::set<Key> failing;
};

// Reads its single source and adds one; counts calculations.
class PlusOneDataset : public DependentDataset {
public:
  PlusOneDataset() { typeName = "PlusOneDataset"; }
  bool calculateElement(const DatasetCoordinates& p) override {
    ++calls;
    setElementReference<double>(p, getSourceDataset()->getElement<double>(p) + 1.0);
    setElementCacheStatus(p, true);
    return true;
  }
  bool readDatasetSpecificValue(std::string, std::istream&) override { return false; }
  void writeDatasetSpecificValues(std::ostream&) override {}
  void setParametersFromTempFields() override {}
  int calls = 0;
};

class RecordingProgress : public Progress {
public:
  void setProgress(double fraction) override { reports.push_back(fraction); }
  bool shouldStop() override { return ++queries > stopAfterQueries; }
  std::vector<double> reports;
  int queries = 0;
  int stopAfterQueries = std::numeric_limits<int>::max();
};

const DatasetCoordinates kSmall(4, 3, 2, 1, 1);

double readDouble(Dataset& d, const DatasetCoordinates& p) { return d.getElement<double>(p); }

int countComputed(CachedDataset& d) {
  int n = 0;
  const DatasetCoordinates s = d.getSize();
  for (int t = 0; t < s.t; ++t)
    for (int z = 0; z < s.z; ++z)
      for (int y = 0; y < s.y; ++y)
        for (int x = 0; x < s.x; ++x)
          for (int c = 0; c < s.c; ++c)
            if (d.getElementCacheStatus(DatasetCoordinates(x, y, z, t, c))) ++n;
  return n;
}

}  // namespace

TEST(CachedDatasetTest, ConstructionSetsTypeNameAndFlagsAndHoldsNothing) {
  CountingCachedDataset d;
  EXPECT_EQ(d.getTypeName(), "CachedDataset");
  EXPECT_TRUE(d.isCachedDataset());
  EXPECT_FALSE(d.isDependentDataset());
  EXPECT_FALSE(d.hasData());
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_FALSE(d.isBoxInsideCache(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(0, 0, 0, 0, 0))));
  EXPECT_EQ(d.getMemoryUsage(), 0u);
  double value = 7.0;
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(0, 0, 0, 0, 0), &value)) << "nothing can be read before initialisation";
  EXPECT_EQ(value, 7.0);
  EXPECT_EQ(d.calls, 0);
}

TEST(CachedDatasetTest, FreshDatasetHasNothingComputedAndComputesEachElementOnce) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(countComputed(d), 0) << "a fresh cache holds no computed element";
  const DatasetCoordinates p(3, 2, 1, 0, 0);
  EXPECT_EQ(readDouble(d, p), valueAt(p));
  EXPECT_EQ(d.callsOf(p), 1);
  EXPECT_TRUE(d.getElementCacheStatus(p));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(readDouble(d, p), valueAt(p));
  EXPECT_EQ(d.callsOf(p), 1) << "later reads must not compute again";
  EXPECT_EQ(d.calls, 1);
}

TEST(CachedDatasetTest, IteratorReadsComputeOnceAndAgreeWithCoordinateReads) {
  CountingCachedDataset d;
  d.initializeDataset<float>(DatasetCoordinates(5, 4, 3, 2, 2), DatasetWorldEmbedding());
  int visited = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    EXPECT_EQ(d.getElement<double>(it), static_cast<double>(static_cast<float>(valueAt(it))));
    ++visited;
  }
  EXPECT_EQ(visited, 5 * 4 * 3 * 2 * 2);
  EXPECT_EQ(d.calls, visited);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    EXPECT_EQ(d.getElement<double>(static_cast<const DatasetCoordinates&>(it)),
              static_cast<double>(static_cast<float>(valueAt(it))));
  EXPECT_EQ(d.calls, visited) << "every element computed exactly once";
}

TEST(CachedDatasetTest, DatasetAdoptedFromMemoryNeverComputesUntilResetCache) {
  auto* m = new ArrayDatasetMemory();
  ASSERT_TRUE(m->allocate<int>(kSmall, DatasetCoordinates(0, 0, 0, 0, 0)));
  for (auto it = m->getStartCoordinatesIterator(); it.valid; m->incrementCoordinatesIterator(it))
    m->setElement<int>(it, -static_cast<int>(it.index));
  CountingCachedDataset d;
  d.initializeDataset(m, DatasetWorldEmbedding());
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(countComputed(d), 4 * 3 * 2);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    EXPECT_EQ(d.getElement<int>(it), -static_cast<int>(it.index));
    EXPECT_EQ(d.getElement<int>(static_cast<const DatasetCoordinates&>(it)), -static_cast<int>(it.index));
  }
  d.calculateFullDataset(nullptr);
  d.calculate(d.getVoxelBoundingBox());
  EXPECT_EQ(d.calls, 0) << "adopted values count as computed";
  d.resetCache();
  EXPECT_EQ(countComputed(d), 0);
  const DatasetCoordinates p(1, 1, 1, 0, 0);
  EXPECT_EQ(d.getElement<int>(p), static_cast<int>(valueAt(p)));
  EXPECT_EQ(d.calls, 1);
}

TEST(CachedDatasetTest, MemoryNotStartingAtOriginIsRefusedAndStaysWithCaller) {
  auto m = std::make_unique<ArrayDatasetMemory>();
  ASSERT_TRUE(m->allocate<double>(kSmall, DatasetCoordinates(1, 0, 0, 0, 0)));
  CountingCachedDataset d;
  d.initializeDataset(m.get(), DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  EXPECT_TRUE(m->isAllocated()) << "the refused memory must stay the caller's, untouched";
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(1, 0, 0, 0, 0)));
  d.initializeDataset(nullptr, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
}

TEST(CachedDatasetTest, InvalidSizeOrTypeLeavesDatasetEmpty) {
  CountingCachedDataset d;
  d.initializeDataset(DatasetCoordinates(5, 5, 5, 1, 0), TARV_ELEMENT_TYPE_DOUBLE, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  d.initializeDataset(DatasetCoordinates(5, 5, 5, 1, 1), TARV_ELEMENT_TYPE_VOID, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(d.getMemoryUsage(), 0u);
}

TEST(CachedDatasetTest, FailingCalculationLeavesBufferUntouchedAndIsRetried) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates p(2, 1, 0, 0, 0);
  d.failing.insert(keyOf(p));
  unsigned char buffer[16];
  std::memset(buffer, 0xAB, sizeof buffer);
  EXPECT_FALSE(d.getElementByBuffer(p, buffer));
  for (unsigned char b : buffer) ASSERT_EQ(b, 0xAB) << "a failed read must not write the caller's buffer";
  EXPECT_FALSE(d.getElementCacheStatus(p));
  EXPECT_FALSE(d.getElementByBuffer(p, buffer));
  EXPECT_EQ(d.callsOf(p), 2) << "a failed element is tried again on the next read";
  d.failing.clear();
  EXPECT_TRUE(d.getElementByBuffer(p, buffer));
  double v;
  std::memcpy(&v, buffer, sizeof v);
  EXPECT_EQ(v, valueAt(p));
}

TEST(CachedDatasetTest, CalculateKeepsFailedElementsUncomputed) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates bad(1, 1, 1, 0, 0);
  d.failing.insert(keyOf(bad));
  d.calculate(d.getVoxelBoundingBox());
  EXPECT_EQ(d.calls, 24);
  EXPECT_FALSE(d.getElementCacheStatus(bad));
  EXPECT_EQ(countComputed(d), 23);
  d.calculate(d.getVoxelBoundingBox());
  EXPECT_EQ(d.calls, 25) << "only the failed element is computed again";
  EXPECT_EQ(d.callsOf(bad), 2);
}

TEST(CachedDatasetTest, CalculateComputesOnlyTheBoxAndClipsItToTheDataset) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(10, 10, 1, 1, 1), DatasetWorldEmbedding());
  const DatasetBoundingBox box(DatasetCoordinates(2, 3, 0, 0, 0), DatasetCoordinates(4, 5, 0, 0, 0));
  d.calculate(box);
  EXPECT_EQ(d.calls, 9);
  EXPECT_EQ(countComputed(d), 9);
  EXPECT_TRUE(d.getElementCacheStatus(DatasetCoordinates(4, 5, 0, 0, 0)));
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(5, 5, 0, 0, 0)));
  d.calculate(box);
  EXPECT_EQ(d.calls, 9) << "computed elements are not computed again";
  d.calculate(DatasetBoundingBox(DatasetCoordinates(8, 8, -3, 0, 0), DatasetCoordinates(20, 20, 3, 0, 0)));
  EXPECT_EQ(d.calls, 9 + 4) << "only the part of the box inside the dataset is computed";
  EXPECT_EQ(readDouble(d, DatasetCoordinates(9, 9, 0, 0, 0)), valueAt(DatasetCoordinates(9, 9, 0, 0, 0)));
  EXPECT_EQ(d.calls, 13);
}

TEST(CachedDatasetTest, SetElementByBufferMakesElementComputed) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates p(0, 2, 1, 0, 0);
  const double written = -42.25;
  d.setElementByBuffer(p, &written);
  EXPECT_TRUE(d.getElementCacheStatus(p));
  EXPECT_EQ(readDouble(d, p), written);
  d.setElement<double>(DatasetCoordinates(1, 2, 1, 0, 0), 3.0);
  EXPECT_EQ(readDouble(d, DatasetCoordinates(1, 2, 1, 0, 0)), 3.0);
  auto it = d.getStartCoordinatesIterator();
  d.setElement<double>(it, 9.0);
  EXPECT_EQ(d.getElement<double>(it), 9.0);
  EXPECT_EQ(d.calls, 0) << "written elements need no calculation";
}

TEST(CachedDatasetTest, SetElementReferenceLeavesElementUncomputedSoItIsRecomputed) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates p(3, 0, 1, 0, 0);
  d.setElementReference<double>(p, -1.0);
  EXPECT_FALSE(d.getElementCacheStatus(p));
  EXPECT_EQ(d.getElementReference<double>(p), -1.0);
  EXPECT_EQ(readDouble(d, p), valueAt(p)) << "the read recomputes and overwrites the reference value";
  EXPECT_EQ(d.calls, 1);
  EXPECT_EQ(d.getElementReference<double>(p), valueAt(p));
}

TEST(CachedDatasetTest, GetElementReferenceNeverComputes) {
  CountingCachedDataset d;
  d.initializeDataset<int>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates p(1, 0, 0, 0, 0);
  d.setElementReference<int>(p, 1234);
  EXPECT_EQ(d.getElementReference<int>(p), 1234);
  auto it = d.getStartCoordinatesIterator();
  d.incrementCoordinatesIterator(it);
  EXPECT_EQ(d.getElementReference<int>(it), 1234);
  int raw = 0;
  EXPECT_TRUE(d.getElementReferenceByBuffer(p, &raw));
  EXPECT_EQ(raw, 1234);
  EXPECT_EQ(d.calls, 0);
  EXPECT_FALSE(d.getElementCacheStatus(p));
}

TEST(CachedDatasetTest, ReferenceWritesClearMinimumAndMaximumStatus) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  const DatasetCoordinates p(1, 1, 0, 0, 0);
  d.setCachedMinimumAndMaximumValue(1, 2);
  d.setElementReference<double>(p, 5.0);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  d.setCachedMinimumAndMaximumValue(1, 2);
  const double v = 3.0;
  d.setElementReferenceByBuffer(p, &v);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  d.setCachedMinimumAndMaximumValue(1, 2);
  auto it = d.getStartCoordinatesIterator();
  d.setElementReferenceByBuffer(it, &v);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  d.setCachedMinimumAndMaximumValue(1, 2);
  d.setElementReference<double>(it, 4.0);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus());
  d.setCachedMinimumAndMaximumValue(1, 2);
  EXPECT_EQ(d.getMinimumValue(), 1.0) << "a set range is returned without scanning";
  EXPECT_EQ(d.calls, 0);
}

TEST(CachedDatasetTest, MinimumAndMaximumScanComputesThroughTheCache) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  EXPECT_EQ(d.getMinimumValue(), valueAt(DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_EQ(d.getMaximumValue(), valueAt(DatasetCoordinates(3, 2, 1, 0, 0)));
  EXPECT_EQ(d.calls, 24);
}

TEST(CachedDatasetTest, SmallDatasetReportsProgressExactlyOnceAtZero) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(100, 100, 9, 1, 1), DatasetWorldEmbedding());
  RecordingProgress progress;
  d.calculateFullDataset(&progress);
  ASSERT_EQ(progress.reports.size(), 1u) << "fewer than 100000 elements give one report";
  EXPECT_EQ(progress.reports[0], 0.0);
  EXPECT_EQ(progress.queries, 1);
  EXPECT_EQ(d.calls, 90000);
  EXPECT_EQ(countComputed(d), 90000);
}

TEST(CachedDatasetTest, LargeDatasetReportsEvery100000Elements) {
  CountingCachedDataset d;
  d.initializeDataset<unsigned char>(DatasetCoordinates(500, 500, 1, 1, 1), DatasetWorldEmbedding());
  RecordingProgress progress;
  d.calculateFullDataset(&progress);
  ASSERT_EQ(progress.reports.size(), 3u);
  EXPECT_EQ(progress.reports[0], 0.0);
  EXPECT_DOUBLE_EQ(progress.reports[1], 100000.0 / 250000.0);
  EXPECT_DOUBLE_EQ(progress.reports[2], 200000.0 / 250000.0);
  EXPECT_EQ(d.calls, 250000);
}

TEST(CachedDatasetTest, StopRequestLeavesRestUncomputedAndCacheUsable) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(400, 300, 1, 1, 1), DatasetWorldEmbedding());
  RecordingProgress progress;
  progress.stopAfterQueries = 1;  // the second query (element 100000) stops
  d.calculateFullDataset(&progress);
  EXPECT_EQ(progress.reports.size(), 2u);
  EXPECT_EQ(d.calls, 100001) << "elements 0 to 100000 are computed before the stop";
  EXPECT_EQ(countComputed(d), 100001);
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(1, 250, 0, 0, 0)));
  const DatasetCoordinates p(399, 299, 0, 0, 0);
  EXPECT_EQ(readDouble(d, p), valueAt(p));
  RecordingProgress immediate;
  immediate.stopAfterQueries = 0;
  CountingCachedDataset e;
  e.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  e.calculateFullDataset(&immediate);
  EXPECT_EQ(e.calls, 1) << "a stop at the first report leaves only element 0 computed";
  EXPECT_EQ(countComputed(e), 1);
}

TEST(CachedDatasetTest, NullProgressComputesEverything) {
  CountingCachedDataset d;
  d.initializeDataset<short>(DatasetCoordinates(7, 5, 3, 2, 3), DatasetWorldEmbedding());
  d.calculateFullDataset(nullptr);
  EXPECT_EQ(d.calls, 7 * 5 * 3 * 2 * 3);
  EXPECT_EQ(countComputed(d), 7 * 5 * 3 * 2 * 3);
}

TEST(CachedDatasetTest, ResetCacheResetsDependingDatasetsAndKeepsMemory) {
  CountingCachedDataset source;
  source.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  PlusOneDataset dependent;
  dependent.setSourceDataset(&source);
  const DatasetCoordinates p(2, 2, 1, 0, 0);
  EXPECT_EQ(readDouble(dependent, p), valueAt(p) + 1.0);
  EXPECT_EQ(dependent.calls, 1);
  readDouble(dependent, p);
  EXPECT_EQ(dependent.calls, 1);
  DatasetMemory* before = source.dataMemory();
  const unsigned int usage = source.getMemoryUsage();
  source.resetCache();
  EXPECT_EQ(source.dataMemory(), before);
  EXPECT_EQ(source.getMemoryUsage(), usage) << "resetCache withdraws values without freeing memory";
  EXPECT_EQ(countComputed(source), 0);
  EXPECT_FALSE(dependent.areCoordinatesInsideCache(p)) << "the depending dataset's cache is reset too";
  EXPECT_EQ(readDouble(dependent, p), valueAt(p) + 1.0);
  EXPECT_EQ(dependent.calls, 2);
  EXPECT_EQ(source.callsOf(p), 2);
}

TEST(CachedDatasetTest, ResetLeavesNoCoordinateInsideCache) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  d.calculateFullDataset(nullptr);
  d.reset();
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(d.getMemoryUsage(), 0u);
  for (int x = -1; x <= 4; ++x)
    for (int y = -1; y <= 3; ++y)
      EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(x, y, 0, 0, 0)));
  EXPECT_FALSE(d.isBoxInsideCache(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(0, 0, 0, 0, 0))));
}

TEST(CachedDatasetTest, MemoryUsageCountsBothMemories) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(10, 10, 1, 1, 1), DatasetWorldEmbedding());
  EXPECT_EQ(d.dataMemory()->getMemoryUsage(), 800u);
  EXPECT_EQ(d.statusMemory()->getMemoryUsage(), 13u);
  EXPECT_EQ(d.getMemoryUsage(), 813u);
}

TEST(CachedDatasetTest, CacheRegionIsTheWholeDataset) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(6, 5, 4, 3, 2), DatasetWorldEmbedding());
  EXPECT_EQ(d.getCacheRegion(), d.getVoxelBoundingBox());
  EXPECT_EQ(d.getCacheRegion(), DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(5, 4, 3, 2, 1)));
  EXPECT_TRUE(d.isBoxInsideCache(d.getVoxelBoundingBox()));
  EXPECT_TRUE(d.areCoordinatesInsideCache(DatasetCoordinates(5, 4, 3, 2, 1)));
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(5, 4, 3, 2, 2)));
}

TEST(CachedDatasetTest, SetCacheStatusValuesOfBoxIsClippedToTheDataset) {
  CountingCachedDataset d;
  d.initializeDataset<double>(DatasetCoordinates(6, 6, 1, 1, 1), DatasetWorldEmbedding());
  d.setCacheStatusValues(DatasetBoundingBox(DatasetCoordinates(4, -3, -1, 0, 0), DatasetCoordinates(12, 1, 5, 0, 0)), true);
  EXPECT_EQ(countComputed(d), 2 * 2);
  EXPECT_TRUE(d.getElementCacheStatus(DatasetCoordinates(5, 1, 0, 0, 0)));
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(3, 1, 0, 0, 0)));
  d.setCacheStatusValues(true);
  EXPECT_EQ(countComputed(d), 36);
  d.setCacheStatusValues(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(0, 5, 0, 0, 0)), false);
  EXPECT_EQ(countComputed(d), 30);
}

TEST(CachedDatasetTest, StatusAllocationFailureLeavesDatasetEmpty) {
  auto stats = std::make_shared<AllocationStats>();
  stats->limitBytes = 10;  // only the status memory is limited
  CountingCachedDataset d;
  d.replaceStatusMemory(new LimitedMemory(stats));
  d.initializeDataset<unsigned char>(DatasetCoordinates(8, 10, 1, 1, 1), DatasetWorldEmbedding());
  EXPECT_TRUE(d.hasData()) << "80 statuses take 10 bytes, within the limit";
  d.initializeDataset<unsigned char>(DatasetCoordinates(10, 10, 1, 1, 1), DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData()) << "100 statuses take 13 bytes: the status memory is refused";
  EXPECT_EQ(d.getMemoryUsage(), 0u) << "the data memory is released again";
  auto* adopted = new ArrayDatasetMemory();
  ASSERT_TRUE(adopted->allocate<unsigned char>(DatasetCoordinates(30, 20, 1, 1, 1), DatasetCoordinates(0, 0, 0, 0, 0)));
  d.initializeDataset(adopted, DatasetWorldEmbedding());
  EXPECT_FALSE(d.hasData()) << "an adopted memory without room for its statuses leaves the dataset empty";
  EXPECT_FALSE(d.areCoordinatesInsideCache(DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_EQ(stats->refusals, 2);
}

TEST(CachedDatasetTest, CoordinatesOutsideTheDatasetAreNeitherReadNorWritten) {
  CountingCachedDataset d;
  d.initializeDataset<double>(kSmall, DatasetWorldEmbedding());
  double v = 5.0;
  for (const DatasetCoordinates& p : {DatasetCoordinates(4, 0, 0, 0, 0), DatasetCoordinates(-1, 0, 0, 0, 0),
                                      DatasetCoordinates(0, 0, 0, 0, 1), DatasetCoordinates(0, 3, 2, 1, 0),
                                      DatasetCoordinates(std::numeric_limits<int>::max(), 0, 0, 0, 0)}) {
    EXPECT_FALSE(d.getElementByBuffer(p, &v));
    d.setElementByBuffer(p, &v);
    d.setElementReferenceByBuffer(p, &v);
    EXPECT_FALSE(d.getElementReferenceByBuffer(p, &v));
    EXPECT_FALSE(d.getElementCacheStatus(p));
    d.setElementCacheStatus(p, true);
  }
  EXPECT_EQ(v, 5.0);
  EXPECT_EQ(d.calls, 0);
  EXPECT_EQ(countComputed(d), 0);
}

TEST(CachedDatasetTest, CachedReadsCostNoAllocation) {
  auto stats = std::make_shared<AllocationStats>();
  CountingCachedDataset d(stats);
  d.initializeDataset<double>(DatasetCoordinates(8, 8, 8, 1, 1), DatasetWorldEmbedding());
  d.calculateFullDataset(nullptr);
  const int allocations = stats->allocations;
  DatasetMemory* data = d.dataMemory();
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    EXPECT_EQ(d.getElement<double>(it), valueAt(it));
    EXPECT_EQ(d.getElement<double>(static_cast<const DatasetCoordinates&>(it)), valueAt(it));
  }
  EXPECT_EQ(stats->allocations, allocations);
  EXPECT_EQ(d.dataMemory(), data);
  EXPECT_EQ(d.calls, 512);
}

TEST(CachedDatasetTest, RandomSizesAndElementTypesComputeEveryElementOnce) {
  const unsigned seed = 20240611u;
  std::mt19937 random(seed);
  for (int round = 0; round < 40; ++round) {
    std::uniform_int_distribution<int> extent(1, 6);
    std::uniform_int_distribution<int> typeChoice(TARV_ELEMENT_TYPE_BOOL, TARV_ELEMENT_TYPE_LONG_DOUBLE);
    const DatasetCoordinates s(extent(random), extent(random), extent(random), extent(random) % 3 + 1, extent(random) % 3 + 1);
    const auto type = static_cast<TARVElementType>(typeChoice(random));
    CountingCachedDataset d;
    d.initializeDataset(s, type, DatasetWorldEmbedding());
    ASSERT_TRUE(d.hasData()) << "seed " << seed << " round " << round;
    if (round % 2 == 0) d.calculateFullDataset(nullptr);
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      double expected = 0;
      dispatchElementType(type, [&]<typename T>() {
        expected = convertElementValue<double>(convertElementValue<T>(valueAt(it)));
      });
      ASSERT_EQ(d.getElement<double>(static_cast<const DatasetCoordinates&>(it)), expected)
          << "seed " << seed << " round " << round << " type " << type << " at " << static_cast<const DatasetCoordinates&>(it);
    }
    EXPECT_EQ(d.calls, static_cast<int>(d.getElementCount())) << "seed " << seed << " round " << round;
  }
}

// ---------------------------------------------------------------------------------------------
// Array memories let calculate and calculateFullDataset skip whole runs of computed elements and
// set the statuses of a box row by row; memories of a subclass (LimitedMemory) are walked element
// by element. Random states, boxes and stopping points: both must call the same calculations and
// end in the same state.

namespace {

void expectSameState(CountingCachedDataset& fast, CountingCachedDataset& general) {
  EXPECT_EQ(fast.calls, general.calls);
  EXPECT_EQ(fast.callsAt, general.callsAt);
  const DatasetCoordinates s = fast.getSize();
  DatasetCoordinates p;
  int differences = 0;
  for (p.t = 0; p.t < s.t; ++p.t)
    for (p.z = 0; p.z < s.z; ++p.z)
      for (p.y = 0; p.y < s.y; ++p.y)
        for (p.x = 0; p.x < s.x; ++p.x)
          for (p.c = 0; p.c < s.c; ++p.c) {
            const bool status = fast.getElementCacheStatus(p);
            if (status != general.getElementCacheStatus(p)) ++differences;
            if (status && fast.getElementReference<double>(p) != general.getElementReference<double>(p)) ++differences;
          }
  EXPECT_EQ(differences, 0);
}

}  // namespace

TEST(CachedDatasetRowTest, RunsOfArrayMemoriesEqualElementByElementWalks) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    // Large enough for several progress reports in some of the runs.
    const DatasetCoordinates size(any(1, 300), any(1, 40), any(1, 30), any(1, 2), any(1, 2));
    CountingCachedDataset fast;
    CountingCachedDataset general(std::make_shared<AllocationStats>());
    for (CountingCachedDataset* d : {&fast, &general}) {
      d->initializeDataset(size, TARV_ELEMENT_TYPE_DOUBLE, DatasetWorldEmbedding());
      // Defined values under elements that are marked computed without a calculation.
      for (DatasetCoordinatesIterator it = d->dataMemory()->getStartCoordinatesIterator(); it.valid;
           d->dataMemory()->incrementCoordinatesIterator(it))
        d->setElementReference<double>(it, -valueAt(it));
    }
    // Random failing elements, random computed boxes, random statuses set and cleared by box.
    for (int i = 0; i < any(0, 20); ++i) {
      const Key k{any(0, size.x - 1), any(0, size.y - 1), any(0, size.z - 1), any(0, size.t - 1), any(0, size.c - 1)};
      fast.failing.insert(k);
      general.failing.insert(k);
    }
    for (int i = 0; i < 6; ++i) {
      DatasetCoordinates a, b;
      for (int k = 0; k < 5; ++k) {
        a[k] = any(0, size[k] - 1);
        b[k] = any(a[k], size[k] - 1);
      }
      const DatasetBoundingBox box(a, b);
      switch (any(0, 2)) {
        case 0:
          fast.calculate(box);
          general.calculate(box);
          break;
        case 1:
          fast.setCacheStatusValues(box, true);
          general.setCacheStatusValues(box, true);
          break;
        default:
          fast.setCacheStatusValues(box, false);
          general.setCacheStatusValues(box, false);
          break;
      }
    }
    RecordingProgress fastProgress, generalProgress;
    fastProgress.stopAfterQueries = generalProgress.stopAfterQueries = any(0, 3) == 0 ? any(0, 4) : 1 << 30;
    fast.calculateFullDataset(&fastProgress);
    general.calculateFullDataset(&generalProgress);
    EXPECT_EQ(fastProgress.reports, generalProgress.reports);
    EXPECT_EQ(fastProgress.queries, generalProgress.queries);
    expectSameState(fast, general);
    // Without a progress object, everything that can be computed is.
    fast.calculateFullDataset(nullptr);
    general.calculateFullDataset(nullptr);
    expectSameState(fast, general);
  }
}

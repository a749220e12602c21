#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "dataset/ROICachedExternalDataset.h"

using namespace tarv;

namespace {

std::map<std::string, int> deletions;

// Writes factor * (x + 100 y + 10000 z) in the requested representation; counts its calls and,
// through the shared map, its deletion.
class FactorModule : public DatasetCalculationModule {
public:
  FactorModule(std::string name, double factor) : name(std::move(name)), factor(factor) {}
  ~FactorModule() override { ++deletions[name]; }
  bool calculateElementByBuffer(const DatasetCoordinates& p, void* buffer, TARVElementType type) override {
    ++calls;
    lastType = type;
    DatasetMemory::setBufferValue<double>(buffer, type, factor * (p.x + 100.0 * p.y + 10000.0 * p.z));
    return true;
  }
  std::string name;
  double factor;
  int calls = 0;
  TARVElementType lastType = TARV_ELEMENT_TYPE_NO_TYPE;
};

double expected(const DatasetCoordinates& p, double factor) { return factor * (p.x + 100.0 * p.y + 10000.0 * p.z); }

const DatasetCoordinates kSize(30, 20, 10, 1, 1);

}  // namespace

TEST(ROICachedExternalDatasetTest, ConstructionWithoutModule) {
  ROICachedExternalDataset d;
  EXPECT_EQ(d.getTypeName(), "ROICachedExternalDataset");
  EXPECT_EQ(d.getCalculationModule(), nullptr);
  EXPECT_TRUE(d.isCachedDataset());
  EXPECT_FALSE(d.isDependentDataset());
}

TEST(ROICachedExternalDatasetTest, ReadBeforeAnyModuleFailsAndLeavesElementUncomputed) {
  ROICachedExternalDataset d;
  d.initializeDataset<double>(kSize, DatasetWorldEmbedding());
  const DatasetCoordinates p(5, 5, 5, 0, 0);
  double value = -1.0;
  EXPECT_FALSE(d.getElementByBuffer(p, &value));
  EXPECT_EQ(value, -1.0) << "the caller's buffer is untouched";
  EXPECT_FALSE(d.getElementCacheStatus(p));
  EXPECT_FALSE(d.calculateElement(p));
  d.calculate(DatasetBoundingBox(p, p + DatasetCoordinates(1, 1, 1, 0, 0)));
  EXPECT_FALSE(d.getElementCacheStatus(p));
  auto* module = new FactorModule("late", 2.0);
  d.setCalculationModule(module);
  EXPECT_EQ(d.getElement<double>(p), expected(p, 2.0)) << "the element is computed once a module is set";
  EXPECT_EQ(module->calls, 1);
}

TEST(ROICachedExternalDatasetTest, ModuleIsCalledOnceWithDatasetTypeAndElementBuffer) {
  ROICachedExternalDataset d;
  d.initializeDataset<short>(kSize, DatasetWorldEmbedding());
  auto* module = new FactorModule("m", -1.0);
  d.setCalculationModule(module);
  EXPECT_EQ(d.getCalculationModule(), module);
  const DatasetCoordinates p(29, 19, 9, 0, 0);
  EXPECT_EQ(d.getElement<int>(p), convertElementValue<short>(expected(p, -1.0)));
  EXPECT_EQ(d.getElement<int>(p), convertElementValue<short>(expected(p, -1.0)));
  EXPECT_EQ(module->calls, 1);
  EXPECT_EQ(module->lastType, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_TRUE(d.getElementCacheStatus(p));
  d.calculateFullDataset(nullptr);
  EXPECT_EQ(module->calls, 30 * 20 * 10) << "every element computed exactly once";
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    ASSERT_EQ(d.getElement<short>(it), convertElementValue<short>(expected(it, -1.0)));
  EXPECT_EQ(module->calls, 30 * 20 * 10);
}

TEST(ROICachedExternalDatasetTest, EveryElementTypeIsStoredInItsRepresentation) {
  for (int type = TARV_ELEMENT_TYPE_BOOL; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    ROICachedExternalDataset d;
    d.initializeDataset(DatasetCoordinates(4, 3, 2, 1, 1), static_cast<TARVElementType>(type), DatasetWorldEmbedding());
    d.setCalculationModule(new FactorModule("typed", 0.5));
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      double want = 0;
      dispatchElementType(static_cast<TARVElementType>(type), [&]<typename T>() {
        want = convertElementValue<double>(convertElementValue<T>(expected(it, 0.5)));
      });
      ASSERT_EQ(d.getElement<double>(it), want) << "type " << type << " at " << static_cast<const DatasetCoordinates&>(it);
    }
  }
}

TEST(ROICachedExternalDatasetTest, SecondModuleDeletesFirstExactlyOnceAndDestructionDeletesCurrent) {
  deletions.clear();
  {
    ROICachedExternalDataset d;
    d.setCalculationModule(new FactorModule("first", 1.0));
    EXPECT_EQ(deletions["first"], 0);
    d.setCalculationModule(new FactorModule("second", 1.0));
    EXPECT_EQ(deletions["first"], 1);
    EXPECT_EQ(deletions["second"], 0);
    d.setCalculationModule(d.getCalculationModule());
    EXPECT_EQ(deletions["second"], 0) << "setting the module already held must not delete it";
  }
  EXPECT_EQ(deletions["first"], 1);
  EXPECT_EQ(deletions["second"], 1) << "the dataset deletes its module when destroyed";
  ROICachedExternalDataset e;
  e.setCalculationModule(new FactorModule("third", 1.0));
  e.resetCalculationModule();
  EXPECT_EQ(deletions["third"], 1);
  EXPECT_EQ(e.getCalculationModule(), nullptr);
  e.resetCalculationModule();
  e.setCalculationModule(nullptr);
  EXPECT_EQ(deletions["third"], 1);
}

TEST(ROICachedExternalDatasetTest, NewModuleKeepsOldValuesUntilResetCache) {
  ROICachedExternalDataset d;
  d.initializeDataset<double>(kSize, DatasetWorldEmbedding());
  d.setCalculationModule(new FactorModule("old", 1.0));
  const DatasetCoordinates p(3, 4, 5, 0, 0);
  const DatasetCoordinates q(4, 4, 5, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), expected(p, 1.0));
  auto* fresh = new FactorModule("new", 3.0);
  d.setCalculationModule(fresh);
  EXPECT_EQ(d.getElement<double>(p), expected(p, 1.0)) << "values of the old module stay valid";
  EXPECT_EQ(d.getElement<double>(q), expected(q, 3.0)) << "new elements come from the new module";
  EXPECT_EQ(fresh->calls, 1);
  d.resetCache();
  EXPECT_EQ(d.getElement<double>(p), expected(p, 3.0));
  EXPECT_EQ(fresh->calls, 2);
}

TEST(ROICachedExternalDatasetTest, ResettingTheModuleMakesNewReadsFail) {
  ROICachedExternalDataset d;
  d.initializeDataset<float>(kSize, DatasetWorldEmbedding());
  d.setCalculationModule(new FactorModule("gone", 1.0));
  const DatasetCoordinates p(1, 2, 3, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), static_cast<float>(expected(p, 1.0)));
  d.resetCalculationModule();
  EXPECT_EQ(d.getElement<double>(p), static_cast<float>(expected(p, 1.0))) << "a computed value stays";
  float value = 9.0f;
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(2, 2, 3, 0, 0), &value));
  EXPECT_EQ(value, 9.0f);
}

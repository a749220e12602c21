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

namespace {

// The same values as FactorModule, a row at a time; counts rows and elements.
class RowModule : public FactorModule {
public:
  RowModule() : FactorModule("rows", 2.0) {}
  void calculateRowByBuffer(const DatasetCoordinates& first, int count, void* elements, TARVElementType type) override {
    ++rows;
    const std::size_t bytes = DatasetMemory::getElementTypeByteSize(type);
    DatasetCoordinates p = first;
    for (int i = 0; i < count; ++i, ++p.x)
      DatasetMemory::setBufferValue<double>(static_cast<unsigned char*>(elements) + i * bytes, type, expected(p, 2.0));
  }
  int rows = 0;
};

}  // namespace

// Bulk evaluation takes rows from the module: the default row computes element by element, a
// module's own row gives the same values; both equal elements read one by one.
TEST(ROICachedExternalDatasetTest, RowsFromTheModuleEqualElementsReadOneByOne) {
  for (int type = TARV_ELEMENT_TYPE_SIGNED_CHAR; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    SCOPED_TRACE("type " + std::to_string(type));
    const auto elementType = static_cast<TARVElementType>(type);
    ROICachedExternalDataset one, byDefault, byRows;
    for (ROICachedExternalDataset* d : {&one, &byDefault, &byRows})
      d->initializeDataset(kSize, elementType, DatasetWorldEmbedding());
    auto* elementModule = new FactorModule("one", 2.0);
    auto* defaultModule = new FactorModule("default", 2.0);
    auto* rowModule = new RowModule();
    one.setCalculationModule(elementModule);
    byDefault.setCalculationModule(defaultModule);
    byRows.setCalculationModule(rowModule);
    byDefault.calculateFullDataset(nullptr);
    byRows.calculateFullDataset(nullptr);
    EXPECT_EQ(defaultModule->calls, kSize.x * kSize.y * kSize.z) << "each element once, through the default row";
    EXPECT_EQ(rowModule->calls, 0) << "no element computed alone";
    EXPECT_GT(rowModule->rows, 0);
    for (auto it = one.getStartCoordinatesIterator(); it.valid; one.incrementCoordinatesIterator(it)) {
      const DatasetCoordinates& p = it;
      unsigned char a[16] = {}, b[16] = {}, c[16] = {};
      ASSERT_TRUE(one.getElementByBuffer(p, a));
      byDefault.getElementReferenceByBuffer(p, b);
      byRows.getElementReferenceByBuffer(p, c);
      // The x87 long double holds 10 bytes of value in its 16; the rest is padding.
      const std::size_t bytes = elementType == TARV_ELEMENT_TYPE_LONG_DOUBLE ? 10 : one.getElementByteSize();
      ASSERT_EQ(std::memcmp(a, b, bytes), 0) << p;
      ASSERT_EQ(std::memcmp(a, c, bytes), 0) << p;
      ASSERT_TRUE(byRows.getElementCacheStatus(p));
    }
  }
}

// The virtual operations of the dataset classes keep their documented order: operations added for
// the library's own use are not virtual, or come after every documented one.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "dataset/CachedDataset.h"
#include "dataset/DependentDataset.h"
#include "dataset/ROICachedDataset.h"
#include "dataset/ScaleDataset.h"

namespace tarv {
namespace {

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__aarch64__))
// The vtable slot of a virtual member function: the Itanium C++ ABI represents a pointer to it as
// one plus the slot's byte offset.
template <typename F>
long slotOf(F f) {
  std::uintptr_t raw = 0;
  std::memcpy(&raw, &f, sizeof raw);
  return static_cast<long>((raw - 1) / sizeof(void*));
}

TEST(VirtualSlotOrderTest, DatasetOperationsFollowTheDestructors) {
  EXPECT_EQ(slotOf(&Dataset::hasData), 2);
  EXPECT_EQ(slotOf(&Dataset::isInputOk), 3);
  EXPECT_EQ(slotOf(static_cast<void (Dataset::*)(DatasetMemory*, const DatasetWorldEmbedding&)>(
                &Dataset::initializeDataset)),
            15);
}

TEST(VirtualSlotOrderTest, CachedDatasetOperationsFollowDatasets) {
  EXPECT_EQ(slotOf(&CachedDataset::resetCache), 16);
  EXPECT_EQ(slotOf(&CachedDataset::getCacheRegion), 17);
  EXPECT_EQ(slotOf(&CachedDataset::calculateElement), 18);
  EXPECT_EQ(slotOf(&CachedDataset::fitBoxToCacheInterior), 21);
  EXPECT_EQ(slotOf(&ROICachedDataset::setMinimalROIEnforcement), 22);
  EXPECT_EQ(slotOf(&ROICachedDataset::reshapeCacheForCalculation), 23);
}

TEST(VirtualSlotOrderTest, DependentDatasetOperationsFollowTheCaches) {
  EXPECT_EQ(slotOf(&DependentDataset::isDatasetEquivalent), 26);
  EXPECT_EQ(slotOf(&DependentDataset::determineElementType), 28);
  EXPECT_EQ(slotOf(&DependentDataset::readDatasetSpecificValue), 30);
  EXPECT_EQ(slotOf(&DependentDataset::initializeTempFields), 33);
  EXPECT_EQ(slotOf(&ScaleDataset::checkParametersRegardingTheSourceDatasets), 32);
}
#endif

}  // namespace
}  // namespace tarv

#include "dataset/ROICachedExternalDataset.h"

#include <vector>

namespace tarv {

ROICachedExternalDataset::ROICachedExternalDataset() : ROICachedDataset(true) {
  // The module is the application's: its rows are computed one at a time.
  setLibraryClass("ROICachedExternalDataset", &ROICachedExternalDataset::calculateRow, false);
}

ROICachedExternalDataset::~ROICachedExternalDataset() { resetCalculationModule(); }

void ROICachedExternalDataset::setCalculationModule(DatasetCalculationModule* module) {
  if (module == calculationModule) return;  // already owned: deleting it would leave it dangling
  resetCalculationModule();
  calculationModule = module;
}

void ROICachedExternalDataset::resetCalculationModule() {
  delete calculationModule;
  calculationModule = nullptr;
}

bool ROICachedExternalDataset::calculateElement(const DatasetCoordinates& p) {
  if (calculationModule == nullptr) return false;
  calculationModule->calculateElementByBuffer(p, elementBuffer, elementType);
  setElementReferenceByBuffer(p, elementBuffer);
  setElementCacheStatus(p, true);
  return true;
}

int ROICachedExternalDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  if (calculationModule == nullptr || elementType == TARV_ELEMENT_TYPE_BOOL || !holdsRow(first, count)) return 0;
  if (check) return count;
  const std::size_t bytes = DatasetMemory::getElementTypeByteSize(elementType);
  // One element buffer of slack: a module may write a whole buffer into the last slot.
  std::vector<unsigned char> elements(static_cast<std::size_t>(count) * bytes + kElementBufferSize);
  calculationModule->calculateRowByBuffer(first, count, elements.data(), elementType);
  storeRowElements(first, count, elements.data());
  return count;
}

}  // namespace tarv

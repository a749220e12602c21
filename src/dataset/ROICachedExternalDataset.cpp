#include "dataset/ROICachedExternalDataset.h"

namespace tarv {

ROICachedExternalDataset::ROICachedExternalDataset() : ROICachedDataset(true) {
  setLibraryClass("ROICachedExternalDataset");
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

}  // namespace tarv

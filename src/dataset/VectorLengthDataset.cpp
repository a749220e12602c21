#include "dataset/VectorLengthDataset.h"

namespace tarv {

VectorLengthDataset::VectorLengthDataset() { typeName = "VectorLengthDataset"; }

VectorLengthDataset::~VectorLengthDataset() = default;

bool VectorLengthDataset::isInputOk() const {
  return DependentDataset::isInputOk() && sourceDatasets.size() >= 1 &&
         sourceDatasets.size() <= static_cast<std::size_t>(maximalSourceCount);
}

Vector& VectorLengthDataset::readSourceVector(const DatasetCoordinates& p) {
  const auto n = static_cast<unsigned>(sourceDatasets.size());
  if (sourceVector.size() != n) sourceVector = Vector(n);
  for (unsigned i = 0; i < n; ++i) sourceVector[i] = sourceDatasets[i]->getElement<double>(p);
  return sourceVector;
}

bool VectorLengthDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, readSourceVector(p).getLength());
  setElementCacheStatus(p, true);
  return true;
}

bool VectorLengthDataset::isDatasetEquivalent(DependentDataset* other) {
  return DependentDataset::isDatasetEquivalent(other) && dynamic_cast<const VectorLengthDataset*>(other) != nullptr;
}

TARVElementType VectorLengthDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool VectorLengthDataset::readDatasetSpecificValue(std::string, std::istream&) { return false; }

void VectorLengthDataset::writeDatasetSpecificValues(std::ostream&) {}

void VectorLengthDataset::initializeTempFields() { DependentDataset::initializeTempFields(); }

void VectorLengthDataset::setParametersFromTempFields() {}

}  // namespace tarv

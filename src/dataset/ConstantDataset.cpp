#include "dataset/ConstantDataset.h"

namespace tarv {

ConstantDataset::ConstantDataset() { typeName = "ConstantDataset"; }

ConstantDataset::~ConstantDataset() = default;

bool ConstantDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

void ConstantDataset::announceAccess(const DatasetBoundingBox& box) { ROICachedDataset::announceAccess(box); }

void ConstantDataset::announceAccessToFullDataset() { ROICachedDataset::announceAccessToFullDataset(); }

bool ConstantDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, elementValue);
  setElementCacheStatus(p, true);
  return true;
}

bool ConstantDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* constant = dynamic_cast<const ConstantDataset*>(other);
  return constant != nullptr && elementValue == constant->elementValue;
}

TARVElementType ConstantDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool ConstantDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name != "ElementValue") return false;
  tempElementValue = FileReadWrite::readDoubleValue(is);
  return true;
}

void ConstantDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "ElementValue", elementValue);
}

void ConstantDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempElementValue = 0.0;
}

void ConstantDataset::setParametersFromTempFields() { setParameters(tempElementValue); }

void ConstantDataset::getParameters(double& value) const { value = elementValue; }

void ConstantDataset::setParameters(double value) {
  elementValue = value;
  resetCache();
}

}  // namespace tarv

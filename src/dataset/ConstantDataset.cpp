#include "dataset/ConstantDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = ConstantDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("ElementValue", &P::elementValue));

}  // namespace

ConstantDataset::ConstantDataset() { setLibraryClass("ConstantDataset"); }

ConstantDataset::~ConstantDataset() = default;

bool ConstantDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

void ConstantDataset::announceAccess(const DatasetBoundingBox& box) { ROICachedDataset::announceAccess(box); }

void ConstantDataset::announceAccessToFullDataset() { ROICachedDataset::announceAccessToFullDataset(); }

bool ConstantDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, parameters.elementValue);
  setElementCacheStatus(p, true);
  return true;
}

bool ConstantDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &ConstantDataset::parameters);
}

TARVElementType ConstantDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool ConstantDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void ConstantDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void ConstantDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void ConstantDataset::setParametersFromTempFields() { setParameters(tempParameters.elementValue); }

void ConstantDataset::getParameters(double& value) const { value = parameters.elementValue; }

void ConstantDataset::setParameters(double value) {
  parameters.elementValue = value;
  resetCache();
}

}  // namespace tarv

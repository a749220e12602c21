#include "dataset/ConstantDataset.h"

#include <vector>

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = ConstantDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("ElementValue", &P::elementValue));

}  // namespace

ConstantDataset::ConstantDataset() {
  setLibraryClass("ConstantDataset", &ConstantDataset::calculateRow);
  setReadsNoSourceElements();
}

ConstantDataset::~ConstantDataset() = default;

bool ConstantDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

void ConstantDataset::announceAccess(const DatasetBoundingBox& box) { ROICachedDataset::announceAccess(box); }

void ConstantDataset::announceAccessToFullDataset() { ROICachedDataset::announceAccessToFullDataset(); }

bool ConstantDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, parameters.elementValue);
  setElementCacheStatus(p, true);
  return true;
}

int ConstantDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  if (!holdsRow(first, count)) return 0;
  if (check) return count;
  const std::vector<double> values(static_cast<std::size_t>(count), parameters.elementValue);
  storeRow(first, count, values.data());
  return count;
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

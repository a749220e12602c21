#include "dataset/IntervalPlateauDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = IntervalPlateauDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("MinimalPlateauValue", &P::minimalPlateauValue),
                                          filters::entry("MaximalPlateauValue", &P::maximalPlateauValue));

// NaN fails both comparisons and takes the reflection.
double plateau(double v, double minimal, double maximal) {
  if (v < minimal) return v;
  if (v <= maximal) return minimal;
  return minimal + maximal - v;
}

}  // namespace

IntervalPlateauDataset::IntervalPlateauDataset() {
  setLibraryClass("IntervalPlateauDataset", &IntervalPlateauDataset::calculateRow);
}

IntervalPlateauDataset::~IntervalPlateauDataset() = default;

bool IntervalPlateauDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool IntervalPlateauDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, plateau(v, parameters.minimalPlateauValue, parameters.maximalPlateauValue));
  setElementCacheStatus(p, true);
  return true;
}

int IntervalPlateauDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  const double minimum = parameters.minimalPlateauValue;
  const double maximum = parameters.maximalPlateauValue;
  return calculatePointwiseRow(first, count, check,
                               [minimum, maximum](double v) { return plateau(v, minimum, maximum); });
}

bool IntervalPlateauDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &IntervalPlateauDataset::parameters);
}

TARVElementType IntervalPlateauDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool IntervalPlateauDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void IntervalPlateauDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void IntervalPlateauDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void IntervalPlateauDataset::setParametersFromTempFields() {
  setParameters(tempParameters.minimalPlateauValue, tempParameters.maximalPlateauValue);
}

void IntervalPlateauDataset::getParameters(double& minimal, double& maximal) const {
  minimal = parameters.minimalPlateauValue;
  maximal = parameters.maximalPlateauValue;
}

void IntervalPlateauDataset::setParameters(double minimal, double maximal) {
  parameters.minimalPlateauValue = minimal;
  parameters.maximalPlateauValue = maximal < minimal ? minimal : maximal;
  resetCache();
}

}  // namespace tarv

#include "dataset/IntervalPlateauDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

namespace tarv {

namespace {

// NaN fails both comparisons and takes the reflection.
double plateau(double v, double minimal, double maximal) {
  if (v < minimal) return v;
  if (v <= maximal) return minimal;
  return minimal + maximal - v;
}

}  // namespace

IntervalPlateauDataset::IntervalPlateauDataset() {
  typeName = "IntervalPlateauDataset";
  setElementRowCalculator(&IntervalPlateauDataset::calculateRow, typeid(IntervalPlateauDataset));
}

IntervalPlateauDataset::~IntervalPlateauDataset() = default;

bool IntervalPlateauDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool IntervalPlateauDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, plateau(v, minimalPlateauValue, maximalPlateauValue));
  setElementCacheStatus(p, true);
  return true;
}

int IntervalPlateauDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count,
                                         bool check) {
  auto& self = static_cast<IntervalPlateauDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  const double minimum = self.minimalPlateauValue;
  const double maximum = self.maximalPlateauValue;
  return DatasetRowAccess::calculatePointwiseRow(self, self.sourceDatasets.front(), first, count, check,
                                                 [minimum, maximum](double v) { return plateau(v, minimum, maximum); });
}

bool IntervalPlateauDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const IntervalPlateauDataset*>(other);
  return o != nullptr && maximalPlateauValue == o->maximalPlateauValue && minimalPlateauValue == o->minimalPlateauValue;
}

TARVElementType IntervalPlateauDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool IntervalPlateauDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name == "MinimalPlateauValue")
    tempMinimalPlateauValue = FileReadWrite::readDoubleValue(is);
  else if (name == "MaximalPlateauValue")
    tempMaximalPlateauValue = FileReadWrite::readDoubleValue(is);
  else
    return false;
  return true;
}

void IntervalPlateauDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "MinimalPlateauValue", minimalPlateauValue);
  FileReadWrite::writeValue(os, "MaximalPlateauValue", maximalPlateauValue);
}

void IntervalPlateauDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempMinimalPlateauValue = 1.0;
  tempMaximalPlateauValue = 100.0;
}

void IntervalPlateauDataset::setParametersFromTempFields() {
  setParameters(tempMinimalPlateauValue, tempMaximalPlateauValue);
}

void IntervalPlateauDataset::getParameters(double& minimal, double& maximal) const {
  minimal = minimalPlateauValue;
  maximal = maximalPlateauValue;
}

void IntervalPlateauDataset::setParameters(double minimal, double maximal) {
  minimalPlateauValue = minimal;
  maximalPlateauValue = maximal < minimal ? minimal : maximal;
  resetCache();
}

}  // namespace tarv

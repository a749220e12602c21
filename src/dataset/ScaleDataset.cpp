#include "dataset/ScaleDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

// The calculate flag takes no part in equivalence.
using P = ScaleDataset::Parameters;
constexpr filters::ParameterTable entries(
    filters::entry("MinimalValue", &P::minimalValue), filters::entry("MaximalValue", &P::maximalValue),
    filters::entry("SourceMinimalValue", &P::sourceMinimalValue),
    filters::entry("SourceMaximalValue", &P::sourceMaximalValue),
    filters::uncomparedEntry("CalculateSourceMinimalMaximalValues", &P::calculateSourceMinimalMaximalValues));

}  // namespace

ScaleDataset::ScaleDataset() {
  setLibraryClass("ScaleDataset", &ScaleDataset::calculateRow);
}

ScaleDataset::~ScaleDataset() = default;

bool ScaleDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool ScaleDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, parameters.scale(v));
  setElementCacheStatus(p, true);
  return true;
}

int ScaleDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  const Parameters q = parameters;
  return calculatePointwiseRow(first, count, check, [q](double v) { return q.scale(v); });
}

double ScaleDataset::Parameters::scale(double v) const {
  const double relative = (v - sourceMinimalValue) / (sourceMaximalValue - sourceMinimalValue);
  const double scaled = relative * (maximalValue - minimalValue);
  return scaled + minimalValue;
}

bool ScaleDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &ScaleDataset::parameters);
}

TARVElementType ScaleDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool ScaleDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void ScaleDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void ScaleDataset::checkParametersRegardingTheSourceDatasets() {
  Parameters& q = parameters;
  if (inputValid && q.calculateSourceMinimalMaximalValues && !sourceDatasets.empty()) {
    q.sourceMinimalValue = sourceDatasets.front()->getMinimumValue();
    q.sourceMaximalValue = sourceDatasets.front()->getMaximumValue();
  }
  if (q.sourceMinimalValue == q.sourceMaximalValue) q.sourceMaximalValue = q.sourceMinimalValue + 1.0;
}

void ScaleDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void ScaleDataset::setParametersFromTempFields() {
  const Parameters& t = tempParameters;
  setParameters(t.minimalValue, t.maximalValue, t.calculateSourceMinimalMaximalValues, t.sourceMinimalValue,
                t.sourceMaximalValue);
}

void ScaleDataset::getParameters(double& minimal, double& maximal, bool& calculate, double& sourceMinimal,
                                 double& sourceMaximal) const {
  minimal = parameters.minimalValue;
  maximal = parameters.maximalValue;
  calculate = parameters.calculateSourceMinimalMaximalValues;
  sourceMinimal = parameters.sourceMinimalValue;
  sourceMaximal = parameters.sourceMaximalValue;
}

void ScaleDataset::setParameters(double minimal, double maximal, bool calculate, double sourceMinimal,
                                 double sourceMaximal) {
  parameters.minimalValue = minimal;
  parameters.maximalValue = maximal == minimal ? minimal + 1.0 : maximal;
  parameters.calculateSourceMinimalMaximalValues = calculate;
  parameters.sourceMinimalValue = sourceMinimal;
  parameters.sourceMaximalValue = sourceMaximal == sourceMinimal ? sourceMinimal + 1.0 : sourceMaximal;
  resetCache();
  checkParametersRegardingTheSourceDatasets();
}

}  // namespace tarv

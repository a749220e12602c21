#include "dataset/ScaleDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

namespace tarv {

ScaleDataset::ScaleDataset() {
  typeName = "ScaleDataset";
  setElementRowCalculator(&ScaleDataset::calculateRow, typeid(ScaleDataset));
}

ScaleDataset::~ScaleDataset() = default;

bool ScaleDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool ScaleDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, parameters.scale(v));
  setElementCacheStatus(p, true);
  return true;
}

int ScaleDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count, bool check) {
  auto& self = static_cast<ScaleDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  const Parameters q = self.parameters;
  return DatasetRowAccess::calculatePointwiseRow(self, self.sourceDatasets.front(), first, count, check,
                                                 [q](double v) { return q.scale(v); });
}

double ScaleDataset::Parameters::scale(double v) const {
  const double relative = (v - sourceMinimalValue) / (sourceMaximalValue - sourceMinimalValue);
  const double scaled = relative * (maximalValue - minimalValue);
  return scaled + minimalValue;
}

bool ScaleDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const ScaleDataset*>(other);
  if (o == nullptr) return false;
  const Parameters& a = parameters;
  const Parameters& b = o->parameters;
  return a.maximalValue == b.maximalValue && a.minimalValue == b.minimalValue &&
         a.sourceMinimalValue == b.sourceMinimalValue && a.sourceMaximalValue == b.sourceMaximalValue;
}

TARVElementType ScaleDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool ScaleDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  Parameters& t = tempParameters;
  if (name == "MinimalValue")
    t.minimalValue = FileReadWrite::readDoubleValue(is);
  else if (name == "MaximalValue")
    t.maximalValue = FileReadWrite::readDoubleValue(is);
  else if (name == "SourceMinimalValue")
    t.sourceMinimalValue = FileReadWrite::readDoubleValue(is);
  else if (name == "SourceMaximalValue")
    t.sourceMaximalValue = FileReadWrite::readDoubleValue(is);
  else if (name == "CalculateSourceMinimalMaximalValues")
    t.calculateSourceMinimalMaximalValues = FileReadWrite::readBoolValue(is);
  else
    return false;
  return true;
}

void ScaleDataset::writeDatasetSpecificValues(std::ostream& os) {
  const Parameters& q = parameters;
  FileReadWrite::writeValue(os, "MinimalValue", q.minimalValue);
  FileReadWrite::writeValue(os, "MaximalValue", q.maximalValue);
  FileReadWrite::writeValue(os, "SourceMinimalValue", q.sourceMinimalValue);
  FileReadWrite::writeValue(os, "SourceMaximalValue", q.sourceMaximalValue);
  FileReadWrite::writeValue(os, "CalculateSourceMinimalMaximalValues", q.calculateSourceMinimalMaximalValues);
}

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

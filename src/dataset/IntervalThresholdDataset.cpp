#include "dataset/IntervalThresholdDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

namespace tarv {

IntervalThresholdDataset::IntervalThresholdDataset() {
  typeName = "IntervalThresholdDataset";
  setElementRowCalculator(&IntervalThresholdDataset::calculateRow, typeid(IntervalThresholdDataset));
}

IntervalThresholdDataset::~IntervalThresholdDataset() = default;

bool IntervalThresholdDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool IntervalThresholdDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, parameters.threshold(v));
  setElementCacheStatus(p, true);
  return true;
}

int IntervalThresholdDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count,
                                           bool check) {
  auto& self = static_cast<IntervalThresholdDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  const Parameters q = self.parameters;
  return DatasetRowAccess::calculatePointwiseRow(self, self.sourceDatasets.front(), first, count, check,
                                                 [q](double v) { return q.threshold(v); });
}

double IntervalThresholdDataset::Parameters::threshold(double v) const {
  const bool inside = minimalForegroundThresholdValue <= v && v <= maximalForegroundThresholdValue;
  if (inside && setForeground) return foregroundValue;
  if (!inside && setBackground) return backgroundValue;
  return v;
}

bool IntervalThresholdDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const IntervalThresholdDataset*>(other);
  if (o == nullptr) return false;
  const Parameters& a = parameters;
  const Parameters& b = o->parameters;
  return a.minimalForegroundThresholdValue == b.minimalForegroundThresholdValue &&
         a.maximalForegroundThresholdValue == b.maximalForegroundThresholdValue &&
         a.foregroundValue == b.foregroundValue && a.backgroundValue == b.backgroundValue &&
         a.setForeground == b.setForeground && a.setBackground == b.setBackground;
}

TARVElementType IntervalThresholdDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool IntervalThresholdDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  Parameters& t = tempParameters;
  if (name == "MinimalForegroundThresholdValue")
    t.minimalForegroundThresholdValue = FileReadWrite::readDoubleValue(is);
  else if (name == "MaximalForegroundThresholdValue")
    t.maximalForegroundThresholdValue = FileReadWrite::readDoubleValue(is);
  else if (name == "ForegroundValue")
    t.foregroundValue = FileReadWrite::readDoubleValue(is);
  else if (name == "BackgroundValue")
    t.backgroundValue = FileReadWrite::readDoubleValue(is);
  else if (name == "SetForeground")
    t.setForeground = FileReadWrite::readBoolValue(is);
  else if (name == "SetBackground")
    t.setBackground = FileReadWrite::readBoolValue(is);
  else
    return false;
  return true;
}

void IntervalThresholdDataset::writeDatasetSpecificValues(std::ostream& os) {
  const Parameters& q = parameters;
  FileReadWrite::writeValue(os, "MinimalForegroundThresholdValue", q.minimalForegroundThresholdValue);
  FileReadWrite::writeValue(os, "MaximalForegroundThresholdValue", q.maximalForegroundThresholdValue);
  FileReadWrite::writeValue(os, "ForegroundValue", q.foregroundValue);
  FileReadWrite::writeValue(os, "BackgroundValue", q.backgroundValue);
  FileReadWrite::writeValue(os, "SetForeground", q.setForeground);
  FileReadWrite::writeValue(os, "SetBackground", q.setBackground);
}

void IntervalThresholdDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void IntervalThresholdDataset::setParametersFromTempFields() {
  const Parameters& t = tempParameters;
  setParameters(t.minimalForegroundThresholdValue, t.maximalForegroundThresholdValue, t.foregroundValue,
                t.backgroundValue, t.setForeground, t.setBackground);
}

void IntervalThresholdDataset::getParameters(double& minimal, double& maximal, double& foreground, double& background,
                                             bool& setForeground, bool& setBackground) const {
  minimal = parameters.minimalForegroundThresholdValue;
  maximal = parameters.maximalForegroundThresholdValue;
  foreground = parameters.foregroundValue;
  background = parameters.backgroundValue;
  setForeground = parameters.setForeground;
  setBackground = parameters.setBackground;
}

void IntervalThresholdDataset::setParameters(double minimal, double maximal, double foreground, double background,
                                             bool setForeground, bool setBackground) {
  parameters.minimalForegroundThresholdValue = minimal;
  parameters.maximalForegroundThresholdValue = maximal < minimal ? minimal : maximal;
  parameters.foregroundValue = foreground;
  parameters.backgroundValue = background;
  parameters.setForeground = setForeground;
  parameters.setBackground = setBackground;
  resetCache();
}

}  // namespace tarv

#include "dataset/IntervalThresholdDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = IntervalThresholdDataset::Parameters;
constexpr filters::ParameterTable entries(
    filters::entry("MinimalForegroundThresholdValue", &P::minimalForegroundThresholdValue),
    filters::entry("MaximalForegroundThresholdValue", &P::maximalForegroundThresholdValue),
    filters::entry("ForegroundValue", &P::foregroundValue), filters::entry("BackgroundValue", &P::backgroundValue),
    filters::entry("SetForeground", &P::setForeground), filters::entry("SetBackground", &P::setBackground));

}  // namespace

IntervalThresholdDataset::IntervalThresholdDataset() {
  setLibraryClass("IntervalThresholdDataset", &IntervalThresholdDataset::calculateRow);
}

IntervalThresholdDataset::~IntervalThresholdDataset() = default;

bool IntervalThresholdDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool IntervalThresholdDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, parameters.threshold(v));
  setElementCacheStatus(p, true);
  return true;
}

int IntervalThresholdDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  const Parameters q = parameters;
  return calculatePointwiseRow(first, count, check, [q](double v) { return q.threshold(v); });
}

double IntervalThresholdDataset::Parameters::threshold(double v) const {
  const bool inside = minimalForegroundThresholdValue <= v && v <= maximalForegroundThresholdValue;
  if (inside && setForeground) return foregroundValue;
  if (!inside && setBackground) return backgroundValue;
  return v;
}

bool IntervalThresholdDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &IntervalThresholdDataset::parameters);
}

TARVElementType IntervalThresholdDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool IntervalThresholdDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void IntervalThresholdDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

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

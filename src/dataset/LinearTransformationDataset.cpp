#include "dataset/LinearTransformationDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = LinearTransformationDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("Factor", &P::factor), filters::entry("Summand", &P::summand));

double transform(double v, double factor, double summand) {
  const double product = v * factor;
  return product + summand;
}

}  // namespace

LinearTransformationDataset::LinearTransformationDataset() {
  setLibraryClass("LinearTransformationDataset", &LinearTransformationDataset::calculateRow);
}

LinearTransformationDataset::~LinearTransformationDataset() = default;

bool LinearTransformationDataset::isInputOk() const {
  return DependentDataset::isInputOk() && sourceDatasets.size() == 1;
}

bool LinearTransformationDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, transform(v, parameters.factor, parameters.summand));
  setElementCacheStatus(p, true);
  return true;
}

int LinearTransformationDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  const double f = parameters.factor;
  const double s = parameters.summand;
  return calculatePointwiseRow(first, count, check, [f, s](double v) { return transform(v, f, s); });
}

bool LinearTransformationDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &LinearTransformationDataset::parameters);
}

TARVElementType LinearTransformationDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool LinearTransformationDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void LinearTransformationDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void LinearTransformationDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void LinearTransformationDataset::setParametersFromTempFields() {
  setParameters(tempParameters.factor, tempParameters.summand);
}

void LinearTransformationDataset::getParameters(double& f, double& s) const {
  f = parameters.factor;
  s = parameters.summand;
}

void LinearTransformationDataset::setParameters(double f, double s) {
  parameters.factor = f;
  parameters.summand = s;
  resetCache();
}

}  // namespace tarv

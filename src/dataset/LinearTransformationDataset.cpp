#include "dataset/LinearTransformationDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

namespace tarv {

namespace {

double transform(double v, double factor, double summand) {
  const double product = v * factor;
  return product + summand;
}

}  // namespace

LinearTransformationDataset::LinearTransformationDataset() {
  typeName = "LinearTransformationDataset";
  setElementRowCalculator(&LinearTransformationDataset::calculateRow, typeid(LinearTransformationDataset));
}

LinearTransformationDataset::~LinearTransformationDataset() = default;

bool LinearTransformationDataset::isInputOk() const {
  return DependentDataset::isInputOk() && sourceDatasets.size() == 1;
}

bool LinearTransformationDataset::calculateElement(const DatasetCoordinates& p) {
  const double v = sourceDatasets.empty() ? 0.0 : sourceDatasets.front()->getElement<double>(p);
  setElementReference<double>(p, transform(v, factor, summand));
  setElementCacheStatus(p, true);
  return true;
}

int LinearTransformationDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count,
                                              bool check) {
  auto& self = static_cast<LinearTransformationDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  const double factor = self.factor;
  const double summand = self.summand;
  return DatasetRowAccess::calculatePointwiseRow(self, self.sourceDatasets.front(), first, count, check,
                                                 [factor, summand](double v) { return transform(v, factor, summand); });
}

bool LinearTransformationDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const LinearTransformationDataset*>(other);
  return o != nullptr && summand == o->summand && factor == o->factor;
}

TARVElementType LinearTransformationDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool LinearTransformationDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name == "Factor")
    tempFactor = FileReadWrite::readDoubleValue(is);
  else if (name == "Summand")
    tempSummand = FileReadWrite::readDoubleValue(is);
  else
    return false;
  return true;
}

void LinearTransformationDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "Factor", factor);
  FileReadWrite::writeValue(os, "Summand", summand);
}

void LinearTransformationDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempFactor = 1.0;
  tempSummand = 0.0;
}

void LinearTransformationDataset::setParametersFromTempFields() { setParameters(tempFactor, tempSummand); }

void LinearTransformationDataset::getParameters(double& f, double& s) const {
  f = factor;
  s = summand;
}

void LinearTransformationDataset::setParameters(double f, double s) {
  factor = f;
  summand = s;
  resetCache();
}

}  // namespace tarv

#include "dataset/SmoothDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

#include <algorithm>

#include "dataset/DatasetCalculations.h"

namespace tarv {

namespace {

int clampKernelSize(int size) { return std::clamp(size, 1, DatasetCalculations::maximalBinomialKernelSize); }

}  // namespace

SmoothDataset::SmoothDataset() {
  typeName = "SmoothDataset";
  setElementRowCalculator(&SmoothDataset::calculateRow, typeid(SmoothDataset));
  mask = DatasetCalculations::getBinomialKernelMask(kernelXSize, kernelYSize, kernelZSize);
}

SmoothDataset::~SmoothDataset() {
  delete mask;
  mask = nullptr;
}

bool SmoothDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

void SmoothDataset::announceAccess(const DatasetBoundingBox& box) {
  if (inputValid && sourceDatasets.size() > 1) {
    const DatasetBoundingBox enlarged = DatasetCalculations::enlargeByHalfMask(box, mask);
    for (std::size_t i = 1; i < sourceDatasets.size(); ++i) sourceDatasets[i]->announceAccess(enlarged);
  }
  ROICachedDataset::announceAccess(box);
}

bool SmoothDataset::calculateElement(const DatasetCoordinates& p) {
  double v = marginValue;
  if (mask != nullptr && !sourceDatasets.empty())
    v = sourceDatasets.front()->correlatedElement(p, mask, maskCentre, marginValue);
  setElementReference<double>(p, v);
  setElementCacheStatus(p, true);
  return true;
}

int SmoothDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count, bool check) {
  auto& self = static_cast<SmoothDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  return DatasetRowAccess::calculateCorrelatedRow(self, self.sourceDatasets.front(), self.mask, self.maskCentre,
                                                  self.marginValue, first, count, check, [](double v) { return v; });
}

bool SmoothDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const SmoothDataset*>(other);
  return o != nullptr && kernelXSize == o->kernelXSize && kernelYSize == o->kernelYSize &&
         kernelZSize == o->kernelZSize && marginValue == o->marginValue;
}

TARVElementType SmoothDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool SmoothDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name == "KernelXSize")
    tempKernelXSize = FileReadWrite::readIntValue(is);
  else if (name == "KernelYSize")
    tempKernelYSize = FileReadWrite::readIntValue(is);
  else if (name == "KernelZSize")
    tempKernelZSize = FileReadWrite::readIntValue(is);
  else if (name == "MarginValue")
    tempMarginValue = FileReadWrite::readDoubleValue(is);
  else
    return false;
  return true;
}

void SmoothDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "KernelXSize", kernelXSize);
  FileReadWrite::writeValue(os, "KernelYSize", kernelYSize);
  FileReadWrite::writeValue(os, "KernelZSize", kernelZSize);
  FileReadWrite::writeValue(os, "MarginValue", marginValue);
}

void SmoothDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempKernelXSize = 1;
  tempKernelYSize = 1;
  tempKernelZSize = 1;
  tempMarginValue = 0.0;
}

void SmoothDataset::setParametersFromTempFields() {
  setParameters(tempKernelXSize, tempKernelYSize, tempKernelZSize, tempMarginValue);
}

void SmoothDataset::setParameters(int xSize, int ySize, int zSize, double margin) {
  kernelXSize = clampKernelSize(xSize);
  kernelYSize = clampKernelSize(ySize);
  kernelZSize = clampKernelSize(zSize);
  delete mask;
  mask = DatasetCalculations::getBinomialKernelMask(kernelXSize, kernelYSize, kernelZSize);
  const DatasetCoordinates extent = mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0);
  // An even extent puts the centre on the lower of the two middle elements: a mask of two
  // averages x and x + 1.
  maskCentre = DatasetCoordinates((extent.x - 1) / 2, (extent.y - 1) / 2, (extent.z - 1) / 2, 0, 0);
  marginValue = margin;
  resetCache();
}

void SmoothDataset::getParameters(int& xSize, int& ySize, int& zSize, double& margin) const {
  xSize = kernelXSize;
  ySize = kernelYSize;
  zSize = kernelZSize;
  margin = marginValue;
}

}  // namespace tarv

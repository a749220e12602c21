#include "dataset/SmoothDataset.h"



#include <algorithm>

#include "dataset/DatasetCalculations.h"
#include "filters/ParameterTable.h"

namespace tarv {

namespace {

int clampKernelSize(int size) { return std::clamp(size, 1, DatasetCalculations::maximalBinomialKernelSize); }

using P = SmoothDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("KernelXSize", &P::kernelXSize),
                                          filters::entry("KernelYSize", &P::kernelYSize),
                                          filters::entry("KernelZSize", &P::kernelZSize),
                                          filters::entry("MarginValue", &P::marginValue));

}  // namespace

SmoothDataset::SmoothDataset() {
  setLibraryClass("SmoothDataset", &SmoothDataset::calculateRow);
  mask = DatasetCalculations::getBinomialKernelMask(parameters.kernelXSize, parameters.kernelYSize,
                                                     parameters.kernelZSize);
  setSourceNeighbourhood(mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0), maskCentre);
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
  double v = parameters.marginValue;
  if (mask != nullptr && !sourceDatasets.empty())
    v = sourceDatasets.front()->correlatedElement(p, mask, maskCentre, parameters.marginValue);
  setElementReference<double>(p, v);
  setElementCacheStatus(p, true);
  return true;
}

int SmoothDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  if (sourceDatasets.empty()) return 0;
  return calculateCorrelatedRow(sourceDatasets.front(), mask, maskCentre, parameters.marginValue, first, count, check,
                                [](double v) { return v; });
}

bool SmoothDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &SmoothDataset::parameters);
}

TARVElementType SmoothDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool SmoothDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void SmoothDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void SmoothDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void SmoothDataset::setParametersFromTempFields() {
  const Parameters& t = tempParameters;
  setParameters(t.kernelXSize, t.kernelYSize, t.kernelZSize, t.marginValue);
}

void SmoothDataset::setParameters(int xSize, int ySize, int zSize, double margin) {
  Parameters& q = parameters;
  q.kernelXSize = clampKernelSize(xSize);
  q.kernelYSize = clampKernelSize(ySize);
  q.kernelZSize = clampKernelSize(zSize);
  delete mask;
  mask = DatasetCalculations::getBinomialKernelMask(q.kernelXSize, q.kernelYSize, q.kernelZSize);
  const DatasetCoordinates extent = mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0);
  // An even extent puts the centre on the lower of the two middle elements: a mask of two
  // averages x and x + 1.
  maskCentre = DatasetCoordinates((extent.x - 1) / 2, (extent.y - 1) / 2, (extent.z - 1) / 2, 0, 0);
  setSourceNeighbourhood(extent, maskCentre);
  q.marginValue = margin;
  resetCache();
}

void SmoothDataset::getParameters(int& xSize, int& ySize, int& zSize, double& margin) const {
  xSize = parameters.kernelXSize;
  ySize = parameters.kernelYSize;
  zSize = parameters.kernelZSize;
  margin = parameters.marginValue;
}

}  // namespace tarv

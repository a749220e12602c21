#include "dataset/GradientDataset.h"



#include <algorithm>

#include "dataset/DatasetCalculations.h"
#include "filters/ParameterTable.h"

namespace tarv {

namespace {

// Dimensionality and filter size take no part in equivalence.
using P = GradientDataset::Parameters;
constexpr filters::ParameterTable entries(
    filters::uncomparedEntry("GradientDimensionality", &P::gradientDimensionality),
    filters::entry("GradientDirection", &P::gradientDirection),
    filters::uncomparedEntry("GradientFilterSize", &P::gradientFilterSize),
    filters::entry("VoxelGradient", &P::voxelGradient), filters::entry("MarginValue", &P::marginValue));

}  // namespace

GradientDataset::GradientDataset() {
  setLibraryClass("GradientDataset", &GradientDataset::calculateRow);
  const Parameters& q = parameters;
  mask = DatasetCalculations::getGradientCorrelationMask(q.gradientDimensionality, q.gradientDirection,
                                                         q.gradientFilterSize);
  setSourceNeighbourhood(mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0), maskCentre);
}

GradientDataset::~GradientDataset() {
  delete mask;
  mask = nullptr;
}

bool GradientDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

void GradientDataset::announceAccess(const DatasetBoundingBox& box) {
  if (inputValid && sourceDatasets.size() > 1) {
    const DatasetBoundingBox enlarged = DatasetCalculations::enlargeByHalfMask(box, mask);
    for (std::size_t i = 1; i < sourceDatasets.size(); ++i) sourceDatasets[i]->announceAccess(enlarged);
  }
  ROICachedDataset::announceAccess(box);
}

bool GradientDataset::calculateElement(const DatasetCoordinates& p) {
  const Parameters& q = parameters;
  double v = q.marginValue;
  if (mask != nullptr && !sourceDatasets.empty())
    v = sourceDatasets.front()->correlatedElement(p, mask, maskCentre, q.marginValue);
  if (!q.voxelGradient) v = v / worldEmbedding.getVoxelSpacing()[q.gradientDirection];
  setElementReference<double>(p, v);
  setElementCacheStatus(p, true);
  return true;
}

int GradientDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  if (sourceDatasets.empty()) return 0;
  Dataset* source = sourceDatasets.front();
  const Parameters& q = parameters;
  if (q.voxelGradient)
    return calculateCorrelatedRow(source, mask, maskCentre, q.marginValue, first, count, check,
                                  [](double v) { return v; });
  const double spacing = worldEmbedding.getVoxelSpacing()[q.gradientDirection];
  return calculateCorrelatedRow(source, mask, maskCentre, q.marginValue, first, count, check,
                                [spacing](double v) { return v / spacing; });
}

bool GradientDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &GradientDataset::parameters);
}

TARVElementType GradientDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool GradientDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void GradientDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void GradientDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void GradientDataset::setParametersFromTempFields() {
  const Parameters& t = tempParameters;
  setParameters(t.gradientDimensionality, t.gradientDirection, t.gradientFilterSize, t.voxelGradient, t.marginValue);
}

void GradientDataset::setParameters(int dimensionality, int direction, int filterSize, bool voxel, double margin) {
  Parameters& q = parameters;
  q.gradientDimensionality = std::clamp(dimensionality, 2, 3);
  q.gradientDirection = std::clamp(direction, 0, q.gradientDimensionality - 1);
  q.gradientFilterSize = filterSize == 3 || filterSize == 5 ? filterSize : 3;
  q.voxelGradient = voxel;
  delete mask;
  mask = DatasetCalculations::getGradientCorrelationMask(q.gradientDimensionality, q.gradientDirection,
                                                         q.gradientFilterSize);
  const DatasetCoordinates extent = mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0);
  maskCentre = DatasetCoordinates(extent.x / 2, extent.y / 2, extent.z / 2, 0, 0);
  setSourceNeighbourhood(extent, maskCentre);
  q.marginValue = margin;
  resetCache();
}

void GradientDataset::getParameters(int& dimensionality, int& direction, int& filterSize, bool& voxel,
                                    double& margin) const {
  const Parameters& q = parameters;
  dimensionality = q.gradientDimensionality;
  direction = q.gradientDirection;
  filterSize = q.gradientFilterSize;
  voxel = q.voxelGradient;
  margin = q.marginValue;
}

}  // namespace tarv

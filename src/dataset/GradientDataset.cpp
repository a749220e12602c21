#include "dataset/GradientDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

#include <algorithm>

#include "dataset/DatasetCalculations.h"

namespace tarv {

GradientDataset::GradientDataset() {
  typeName = "GradientDataset";
  setElementRowCalculator(&GradientDataset::calculateRow, typeid(GradientDataset));
  mask = DatasetCalculations::getGradientCorrelationMask(gradientDimensionality, gradientDirection, gradientFilterSize);
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
  double v = marginValue;
  if (mask != nullptr && !sourceDatasets.empty())
    v = sourceDatasets.front()->correlatedElement(p, mask, maskCentre, marginValue);
  if (!voxelGradient) v = v / worldEmbedding.getVoxelSpacing()[gradientDirection];
  setElementReference<double>(p, v);
  setElementCacheStatus(p, true);
  return true;
}

int GradientDataset::calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count, bool check) {
  auto& self = static_cast<GradientDataset&>(dataset);
  if (self.sourceDatasets.empty()) return 0;
  Dataset* source = self.sourceDatasets.front();
  if (self.voxelGradient)
    return DatasetRowAccess::calculateCorrelatedRow(self, source, self.mask, self.maskCentre, self.marginValue, first,
                                                    count, check, [](double v) { return v; });
  const double spacing = self.worldEmbedding.getVoxelSpacing()[self.gradientDirection];
  return DatasetRowAccess::calculateCorrelatedRow(self, source, self.mask, self.maskCentre, self.marginValue, first,
                                                  count, check, [spacing](double v) { return v / spacing; });
}

bool GradientDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const GradientDataset*>(other);
  return o != nullptr && gradientDirection == o->gradientDirection && voxelGradient == o->voxelGradient &&
         marginValue == o->marginValue;
}

TARVElementType GradientDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool GradientDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name == "GradientDimensionality")
    tempGradientDimensionality = FileReadWrite::readIntValue(is);
  else if (name == "GradientDirection")
    tempGradientDirection = FileReadWrite::readIntValue(is);
  else if (name == "GradientFilterSize")
    tempGradientFilterSize = FileReadWrite::readIntValue(is);
  else if (name == "VoxelGradient")
    tempVoxelGradient = FileReadWrite::readBoolValue(is);
  else if (name == "MarginValue")
    tempMarginValue = FileReadWrite::readDoubleValue(is);
  else
    return false;
  return true;
}

void GradientDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "GradientDimensionality", gradientDimensionality);
  FileReadWrite::writeValue(os, "GradientDirection", gradientDirection);
  FileReadWrite::writeValue(os, "GradientFilterSize", gradientFilterSize);
  FileReadWrite::writeValue(os, "VoxelGradient", voxelGradient);
  FileReadWrite::writeValue(os, "MarginValue", marginValue);
}

void GradientDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempGradientDimensionality = 2;
  tempGradientDirection = 0;
  tempGradientFilterSize = 3;
  tempVoxelGradient = false;
  tempMarginValue = 0.0;
}

void GradientDataset::setParametersFromTempFields() {
  setParameters(tempGradientDimensionality, tempGradientDirection, tempGradientFilterSize, tempVoxelGradient,
                tempMarginValue);
}

void GradientDataset::setParameters(int dimensionality, int direction, int filterSize, bool voxel, double margin) {
  gradientDimensionality = std::clamp(dimensionality, 2, 3);
  gradientDirection = direction < 0 ? 0 : direction >= gradientDimensionality ? gradientDimensionality - 1 : direction;
  gradientFilterSize = filterSize == 3 || filterSize == 5 ? filterSize : 3;
  voxelGradient = voxel;
  delete mask;
  mask = DatasetCalculations::getGradientCorrelationMask(gradientDimensionality, gradientDirection, gradientFilterSize);
  const DatasetCoordinates extent = mask != nullptr ? mask->getSize() : DatasetCoordinates(0, 0, 0, 0, 0);
  maskCentre = DatasetCoordinates(extent.x / 2, extent.y / 2, extent.z / 2, 0, 0);
  marginValue = margin;
  resetCache();
}

void GradientDataset::getParameters(int& dimensionality, int& direction, int& filterSize, bool& voxel,
                                    double& margin) const {
  dimensionality = gradientDimensionality;
  direction = gradientDirection;
  filterSize = gradientFilterSize;
  voxel = voxelGradient;
  margin = marginValue;
}

}  // namespace tarv

#include "dataset/GradientDataset.h"

#include <typeinfo>

#include "dataset/DatasetRowAccess.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>

#include "dataset/DatasetCalculations.h"

namespace tarv {

namespace {

// box grown by half the mask extent (rounded down) in x, y, z and t, kept within the int range.
DatasetBoundingBox enlargeByHalfMask(const DatasetBoundingBox& box, const Dataset* mask) {
  if (mask == nullptr) return box;
  const DatasetCoordinates extent = mask->getSize();
  DatasetBoundingBox enlarged = box;
  for (int k = 0; k < 4; ++k) {
    const std::int64_t half = extent[k] / 2;
    enlarged.start[k] = static_cast<int>(std::max<std::int64_t>(std::int64_t{box.start[k]} - half, INT_MIN));
    enlarged.end[k] = static_cast<int>(std::min<std::int64_t>(std::int64_t{box.end[k]} + half, INT_MAX));
  }
  return enlarged;
}

}  // namespace

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
    const DatasetBoundingBox enlarged = enlargeByHalfMask(box, mask);
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
  if (self.mask == nullptr || self.sourceDatasets.empty() || !DatasetRowAccess::holdsRow(&self, first, count)) return 0;
  Dataset* source = self.sourceDatasets.front();
  const double margin = self.marginValue;
  if (!DatasetRowAccess::correlateRow(source, self.mask, self.maskCentre, margin, first, count, nullptr, true))
    return 0;
  if (check) return count;
  const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
  DatasetRowAccess::correlateRow(source, self.mask, self.maskCentre, margin, first, count, values.get(), false);
  if (!self.voxelGradient) {
    const double spacing = self.worldEmbedding.getVoxelSpacing()[self.gradientDirection];
    for (int i = 0; i < count; ++i) values[i] = values[i] / spacing;
  }
  DatasetRowAccess::storeRow(&self, first, count, values.get());
  return count;
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

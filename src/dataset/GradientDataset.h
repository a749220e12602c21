#ifndef TARV_DATASET_GRADIENTDATASET_H
#define TARV_DATASET_GRADIENTDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// One partial derivative of its single source along x, y or z, by correlation with a separable
// derivative mask (DatasetCalculations::getGradientCorrelationMask), in float elements. Per
// voxel step, or divided by the voxel spacing along the direction for a world-space gradient.
// Elements whose mask does not fit inside the source get the margin value (divided by the
// spacing as well for a world-space gradient).
class GradientDataset : public DependentDataset {
public:
  GradientDataset();
  ~GradientDataset() override;

  // Exactly one source with valid input.
  bool isInputOk() const override;
  // The cache follows the box itself; only sources after the first would be told of the box
  // enlarged by half the mask.
  void announceAccess(const DatasetBoundingBox& box) override;
  bool calculateElement(const DatasetCoordinates& p) override;
  // Compares direction, voxel gradient flag and margin value; dimensionality and filter size
  // take no part.
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  // Dimensionality is clamped to 2..3, the direction to 0..dimensionality-1, a filter size
  // other than 3 or 5 becomes 3. Rebuilds the mask and withdraws the computed elements.
  void setParameters(int gradientDimensionality, int gradientDirection, int gradientFilterSize, bool voxelGradient,
                     double marginValue);
  void getParameters(int& gradientDimensionality, int& gradientDirection, int& gradientFilterSize, bool& voxelGradient,
                     double& marginValue) const;

  // The current mask, owned by this dataset (null only when it could not be allocated).
  Dataset* getMask() const { return mask; }
  DatasetCoordinates getMaskCentre() const { return maskCentre; }

  // The parameters, one field per entry of the description.
  struct Parameters {
    int gradientDimensionality = 2;
    int gradientDirection = 0;
    int gradientFilterSize = 3;
    bool voxelGradient = false;
    double marginValue = 0.0;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Dataset* mask = nullptr;
  DatasetCoordinates maskCentre{1, 1, 0, 0, 0};
  Parameters tempParameters;
};

}  // namespace tarv

#endif

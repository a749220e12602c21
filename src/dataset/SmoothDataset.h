#ifndef TARV_DATASET_SMOOTHDATASET_H
#define TARV_DATASET_SMOOTHDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// Its single source smoothed by correlation with a separable binomial mask
// (DatasetCalculations::getBinomialKernelMask) whose extent is chosen per axis, in float
// elements. The mask centre is half its extent (rounded down); elements whose mask does not fit
// inside the source get the margin value.
class SmoothDataset : public DependentDataset {
public:
  SmoothDataset();
  ~SmoothDataset() override;

  // Exactly one source with valid input.
  bool isInputOk() const override;
  // The cache follows the box itself; only sources after the first would be told of the box
  // enlarged by half the mask.
  void announceAccess(const DatasetBoundingBox& box) override;
  bool calculateElement(const DatasetCoordinates& p) override;
  // Compares the three kernel sizes and the margin value.
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  // Each kernel size is clamped to 1..DatasetCalculations::maximalBinomialKernelSize. Rebuilds
  // the mask and withdraws the computed elements.
  void setParameters(int kernelXSize, int kernelYSize, int kernelZSize, double marginValue);
  void getParameters(int& kernelXSize, int& kernelYSize, int& kernelZSize, double& marginValue) const;

  // The current mask, owned by this dataset (null only when it could not be allocated).
  Dataset* getMask() const { return mask; }
  DatasetCoordinates getMaskCentre() const { return maskCentre; }

  // The parameters, one field per entry of the description.
  struct Parameters {
    int kernelXSize = 1;
    int kernelYSize = 1;
    int kernelZSize = 1;
    double marginValue = 0.0;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Dataset* mask = nullptr;
  DatasetCoordinates maskCentre{0, 0, 0, 0, 0};
  Parameters tempParameters;
};

}  // namespace tarv

#endif

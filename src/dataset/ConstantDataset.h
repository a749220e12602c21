#ifndef TARV_DATASET_CONSTANTDATASET_H
#define TARV_DATASET_CONSTANTDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// One value everywhere, in float elements, over the extent and embedding of its single source;
// the source's elements are never read.
class ConstantDataset : public DependentDataset {
public:
  ConstantDataset();
  ~ConstantDataset() override;

  bool isInputOk() const override;
  // Both announcements stay with this dataset's cache: the source is never told.
  void announceAccess(const DatasetBoundingBox& box) override;
  void announceAccessToFullDataset() override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(double& elementValue) const;
  void setParameters(double elementValue);

  // The parameters, one field per entry of the description.
  struct Parameters {
    double elementValue = 0.0;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_LINEARTRANSFORMATIONDATASET_H
#define TARV_DATASET_LINEARTRANSFORMATIONDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// v * factor + summand of its single source, in float elements.
class LinearTransformationDataset : public DependentDataset {
public:
  LinearTransformationDataset();
  ~LinearTransformationDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(double& factor, double& summand) const;
  void setParameters(double factor, double summand);

  // The parameters, one field per entry of the description.
  struct Parameters {
    double factor = 1.0;
    double summand = 0.0;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

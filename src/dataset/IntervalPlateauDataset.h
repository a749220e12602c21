#ifndef TARV_DATASET_INTERVALPLATEAUDATASET_H
#define TARV_DATASET_INTERVALPLATEAUDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// Flattens the values of its single source inside [minimal, maximal] to the minimal value and
// reflects those above the interval about minimal + maximal; values below pass unchanged.
class IntervalPlateauDataset : public DependentDataset {
public:
  IntervalPlateauDataset();
  ~IntervalPlateauDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(double& minimalPlateauValue, double& maximalPlateauValue) const;
  // A maximum below the minimum is raised to the minimum.
  void setParameters(double minimalPlateauValue, double maximalPlateauValue);

  // The parameters, one field per entry of the description.
  struct Parameters {
    double minimalPlateauValue = 1.0;
    double maximalPlateauValue = 100.0;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

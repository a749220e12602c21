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

private:
  // Computes rows of elements together (see CachedDataset::ElementRowCalculator).
  static int calculateRow(CachedDataset& dataset, const DatasetCoordinates& first, int count, bool check);
  double minimalPlateauValue = 1.0;
  double maximalPlateauValue = 100.0;
  double tempMinimalPlateauValue = 1.0;
  double tempMaximalPlateauValue = 100.0;
};

}  // namespace tarv

#endif

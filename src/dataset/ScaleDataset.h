#ifndef TARV_DATASET_SCALEDATASET_H
#define TARV_DATASET_SCALEDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// Maps the source range [sourceMinimal, sourceMaximal] of its single source linearly onto
// [minimal, maximal], without clamping. The source range can be taken from the source's own
// extremes each time the source changes.
class ScaleDataset : public DependentDataset {
public:
  ScaleDataset();
  ~ScaleDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  // Compares the four range bounds; the calculate flag takes no part.
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  // With valid input and the calculate flag, the source range becomes the source's minimum and
  // maximum; a source range of zero width is widened by 1.0.
  void checkParametersRegardingTheSourceDatasets() override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(double& minimalValue, double& maximalValue, bool& calculateSourceMinimalMaximalValues,
                     double& sourceMinimalValue, double& sourceMaximalValue) const;
  // A maximum equal to its minimum (target or source) becomes minimum + 1.0.
  void setParameters(double minimalValue, double maximalValue, bool calculateSourceMinimalMaximalValues,
                     double sourceMinimalValue, double sourceMaximalValue);

  // The parameters, one field per entry of the description.
  struct Parameters {
    double minimalValue = 0.0;
    double maximalValue = 1.0;
    bool calculateSourceMinimalMaximalValues = true;
    double sourceMinimalValue = 0.0;
    double sourceMaximalValue = 1.0;
    // The value v maps to: the source range stretched onto [minimalValue, maximalValue].
    double scale(double v) const;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_INTERVALTHRESHOLDDATASET_H
#define TARV_DATASET_INTERVALTHRESHOLDDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// Thresholds its single source against the closed interval [minimal, maximal]: values inside
// become the foreground value (if set), values outside the background value (if set); whatever
// is not replaced passes unchanged. NaN counts as outside.
class IntervalThresholdDataset : public DependentDataset {
public:
  IntervalThresholdDataset();
  ~IntervalThresholdDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(double& minimalForegroundThresholdValue, double& maximalForegroundThresholdValue,
                     double& foregroundValue, double& backgroundValue, bool& setForeground, bool& setBackground) const;
  // A maximal bound below the minimal one is raised to it; the rest is taken as given.
  void setParameters(double minimalForegroundThresholdValue, double maximalForegroundThresholdValue,
                     double foregroundValue, double backgroundValue, bool setForeground, bool setBackground);

  // The parameters, one field per entry of the description.
  struct Parameters {
    double minimalForegroundThresholdValue = 1.0;
    double maximalForegroundThresholdValue = 100.0;
    double foregroundValue = 1.0;
    double backgroundValue = 0.0;
    bool setForeground = false;
    bool setBackground = false;
    // The value v maps to: the foreground value inside the interval, the background value outside,
    // each only when its flag is set, else v itself.
    double threshold(double v) const;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_CASTDATASET_H
#define TARV_DATASET_CASTDATASET_H

#include "dataset/DependentDataset.h"

namespace tarv {

// Its single source converted element by element to another element type.
class CastDataset : public DependentDataset {
public:
  CastDataset();
  ~CastDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  // The target element type parameter.
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  void getParameters(TARVElementType& targetElementType) const;
  // Taken as given; the dataset's element type follows at the next re-derivation from the
  // source (for example when the source is set again).
  void setParameters(TARVElementType targetElementType);

  // The parameters, one field per entry of the description.
  struct Parameters {
    TARVElementType elementType = TARV_ELEMENT_TYPE_FLOAT;
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_VECTORLENGTHDATASET_H
#define TARV_DATASET_VECTORLENGTHDATASET_H

#include "core/Vector.h"
#include <vector>

#include "dataset/DependentDataset.h"

namespace tarv {

// The Euclidean length of the vector whose components are the elements of its one to four
// sources at the same coordinates.
class VectorLengthDataset : public DependentDataset {
public:
  VectorLengthDataset();
  ~VectorLengthDataset() override;

  bool isInputOk() const override;
  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  static constexpr int maximalSourceCount = 4;

protected:
  // The vector of the source elements at p, as double, one component per source. The returned
  // vector is scratch storage of this dataset, kept between calls to spare an allocation.
  Vector& readSourceVector(const DatasetCoordinates& p);
  // The rows of the sources, for a row formula: components[i * count + x] = source i's element at
  // first + (x, 0, 0, 0, 0), read as readSourceVector reads them; the scratch vector is left holding
  // the last element's components. 0 when the rows cannot be read (nothing read), else count (with
  // check set: nothing read either).
  int readSourceRows(const DatasetCoordinates& first, int count, bool check, std::vector<double>& components);

  // The scratch vector of readSourceVector.
  Vector sourceVector;

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
};

}  // namespace tarv

#endif

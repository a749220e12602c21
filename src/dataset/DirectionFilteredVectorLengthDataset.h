#ifndef TARV_DATASET_DIRECTIONFILTEREDVECTORLENGTHDATASET_H
#define TARV_DATASET_DIRECTIONFILTEREDVECTORLENGTHDATASET_H

#include "core/Vector.h"
#include "dataset/VectorLengthDataset.h"

namespace tarv {

// The length of the vector formed by its sources (one component each), weighted by how well
// the vector's direction agrees with a filter direction. With t the angle between the two
// divided by pi:
//   not oriented:                 |2t - 1|   (parallel and antiparallel count fully)
//   oriented:                     1 - t      (antiparallel counts nothing)
//   oriented, positive oriented:  1 - 2t up to 90 degrees, 0 beyond
class DirectionFilteredVectorLengthDataset : public VectorLengthDataset {
public:
  DirectionFilteredVectorLengthDataset();
  ~DirectionFilteredVectorLengthDataset() override;

  bool calculateElement(const DatasetCoordinates& p) override;
  bool isDatasetEquivalent(DependentDataset* other) override;
  TARVElementType determineElementType() override;
  bool readDatasetSpecificValue(std::string name, std::istream& is) override;
  void writeDatasetSpecificValues(std::ostream& os) override;
  // Without valid input the direction becomes (1); with a component count other than the
  // number of sources it becomes (1, 0, ..., 0); otherwise it is normalised unless already of
  // unit length (within 1e-7).
  void checkParametersRegardingTheSourceDatasets() override;
  void initializeTempFields() override;
  void setParametersFromTempFields() override;

  // The direction is checked against the current sources, so set the sources first.
  void setParameters(bool orientedFiltering, const Vector& filterNormalizedDirection, bool positiveOrientedFiltering);
  void getParameters(bool& orientedFiltering, Vector& filterNormalizedDirection) const;
  void getParameters(bool& orientedFiltering, Vector& filterNormalizedDirection, bool& positiveOrientedFiltering) const;
  // Stores a differing direction as given (neither normalised nor checked) and withdraws the
  // computed elements.
  void setFilterNormalizedDirection(const Vector& direction);

  // The parameters, one field per entry of the description.
  struct Parameters {
    bool orientedFiltering = true;
    bool positiveOrientedFiltering = false;
    Vector filterNormalizedDirection = Vector(1, 1.0);
  };

private:
  // The row formula (see CachedDataset::RowFormula).
  int calculateRow(const DatasetCoordinates& first, int count, bool check);
  // The element for the vector of the source elements, which it normalizes unless it is too short.
  double filteredLength(Vector& vector) const;
  Parameters parameters;
  Parameters tempParameters;
};

}  // namespace tarv

#endif

#include "dataset/DirectionFilteredVectorLengthDataset.h"

#include <cmath>
#include <numbers>

#include "core/FileReadWrite.h"
#include "core/Mathematics.h"

namespace tarv {

DirectionFilteredVectorLengthDataset::DirectionFilteredVectorLengthDataset() {
  setLibraryClass("DirectionFilteredVectorLengthDataset");
}

DirectionFilteredVectorLengthDataset::~DirectionFilteredVectorLengthDataset() = default;

bool DirectionFilteredVectorLengthDataset::calculateElement(const DatasetCoordinates& p) {
  Vector& vector = readSourceVector(p);
  const double length = vector.getLength();
  double result = 0.0;
  if (!Mathematics::areSimilarWithTolerance(length, 0.0, 1e-7)) {
    vector.normalize();
    const double t = Vector::angleBetweenNormalizedVectors(vector, filterNormalizedDirection) / std::numbers::pi;
    double weight = 0.0;
    if (!orientedFiltering)
      weight = std::fabs(2.0 * t - 1.0);
    else if (!positiveOrientedFiltering)
      weight = 1.0 - t;
    else
      weight = t <= 0.5 ? 1.0 - 2.0 * t : 0.0;
    result = weight * length;
  }
  setElementReference<double>(p, result);
  setElementCacheStatus(p, true);
  return true;
}

bool DirectionFilteredVectorLengthDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* o = dynamic_cast<const DirectionFilteredVectorLengthDataset*>(other);
  return o != nullptr && orientedFiltering == o->orientedFiltering &&
         positiveOrientedFiltering == o->positiveOrientedFiltering &&
         filterNormalizedDirection == o->filterNormalizedDirection;
}

TARVElementType DirectionFilteredVectorLengthDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool DirectionFilteredVectorLengthDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name == "OrientedFiltering")
    tempOrientedFiltering = FileReadWrite::readBoolValue(is);
  else if (name == "PositiveOrientedFiltering")
    tempPositiveOrientedFiltering = FileReadWrite::readBoolValue(is);
  else if (name == "FilterNormalizedDirection")
    tempFilterNormalizedDirection = Vector(FileReadWrite::readDoubleCoordinatesValue(is));
  else
    return false;
  return true;
}

void DirectionFilteredVectorLengthDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "OrientedFiltering", orientedFiltering);
  FileReadWrite::writeValue(os, "PositiveOrientedFiltering", positiveOrientedFiltering);
  FileReadWrite::writeValue(os, "FilterNormalizedDirection",
                            static_cast<const Coordinates<double>&>(filterNormalizedDirection));
}

void DirectionFilteredVectorLengthDataset::checkParametersRegardingTheSourceDatasets() {
  if (!inputValid) {
    filterNormalizedDirection = Vector(1, 1.0);
  } else if (filterNormalizedDirection.size() != sourceDatasets.size()) {
    filterNormalizedDirection = Vector(static_cast<unsigned>(sourceDatasets.size()), 0.0);
    filterNormalizedDirection[0] = 1.0;
  } else if (!Mathematics::areSimilarWithTolerance(filterNormalizedDirection.getLength(), 1.0, 1e-7)) {
    filterNormalizedDirection.normalize();
  }
}

void DirectionFilteredVectorLengthDataset::initializeTempFields() {
  VectorLengthDataset::initializeTempFields();
  tempOrientedFiltering = true;
  tempPositiveOrientedFiltering = false;
  tempFilterNormalizedDirection = Vector(1, 1.0);
}

void DirectionFilteredVectorLengthDataset::setParametersFromTempFields() {
  setParameters(tempOrientedFiltering, tempFilterNormalizedDirection, tempPositiveOrientedFiltering);
}

void DirectionFilteredVectorLengthDataset::setParameters(bool oriented, const Vector& direction,
                                                         bool positiveOriented) {
  orientedFiltering = oriented;
  positiveOrientedFiltering = positiveOriented;
  filterNormalizedDirection = direction;
  resetCache();
  checkParametersRegardingTheSourceDatasets();
}

void DirectionFilteredVectorLengthDataset::getParameters(bool& oriented, Vector& direction) const {
  oriented = orientedFiltering;
  direction = filterNormalizedDirection;
}

void DirectionFilteredVectorLengthDataset::getParameters(bool& oriented, Vector& direction,
                                                         bool& positiveOriented) const {
  oriented = orientedFiltering;
  direction = filterNormalizedDirection;
  positiveOriented = positiveOrientedFiltering;
}

void DirectionFilteredVectorLengthDataset::setFilterNormalizedDirection(const Vector& direction) {
  if (direction == filterNormalizedDirection) return;
  filterNormalizedDirection = direction;
  resetCache();
}

}  // namespace tarv

#include "dataset/DirectionFilteredVectorLengthDataset.h"

#include <cmath>
#include <numbers>

#include "core/Mathematics.h"
#include "bulk/ConcurrentRows.h"
#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = DirectionFilteredVectorLengthDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("OrientedFiltering", &P::orientedFiltering),
                                          filters::entry("PositiveOrientedFiltering", &P::positiveOrientedFiltering),
                                          filters::entry("FilterNormalizedDirection", &P::filterNormalizedDirection));

}  // namespace

DirectionFilteredVectorLengthDataset::DirectionFilteredVectorLengthDataset() {
  setLibraryClass("DirectionFilteredVectorLengthDataset", &DirectionFilteredVectorLengthDataset::calculateRow);
}

DirectionFilteredVectorLengthDataset::~DirectionFilteredVectorLengthDataset() = default;

bool DirectionFilteredVectorLengthDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, filteredLength(readSourceVector(p)));
  setElementCacheStatus(p, true);
  return true;
}

int DirectionFilteredVectorLengthDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  std::vector<double> components;
  if (readSourceRows(first, count, check, components) == 0) return 0;
  if (check) return count;
  const auto length = static_cast<std::size_t>(count);
  const auto n = static_cast<unsigned>(sourceDatasets.size());
  std::vector<double> values(length);
  // Element by element through a scratch vector, which the dataset's own is left as the last
  // element leaves it.
  Vector vector(n);
  for (std::size_t x = 0; x < length; ++x) {
    for (unsigned i = 0; i < n; ++i) vector[i] = components[i * length + x];
    values[x] = filteredLength(vector);
  }
  if (!bulk::concurrentRows) sourceVector = vector;
  storeRow(first, count, values.data());
  return count;
}

double DirectionFilteredVectorLengthDataset::filteredLength(Vector& vector) const {
  const double length = vector.getLength();
  double result = 0.0;
  if (!Mathematics::areSimilarWithTolerance(length, 0.0, 1e-7)) {
    vector.normalize();
    const double angle = Vector::angleBetweenNormalizedVectors(vector, parameters.filterNormalizedDirection);
    const double t = angle / std::numbers::pi;
    double weight = 0.0;
    if (!parameters.orientedFiltering)
      weight = std::fabs(2.0 * t - 1.0);
    else if (!parameters.positiveOrientedFiltering)
      weight = 1.0 - t;
    else
      weight = t <= 0.5 ? 1.0 - 2.0 * t : 0.0;
    result = weight * length;
  }
  return result;
}

bool DirectionFilteredVectorLengthDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &DirectionFilteredVectorLengthDataset::parameters);
}

TARVElementType DirectionFilteredVectorLengthDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool DirectionFilteredVectorLengthDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void DirectionFilteredVectorLengthDataset::writeDatasetSpecificValues(std::ostream& os) {
  entries.write(os, parameters);
}

void DirectionFilteredVectorLengthDataset::checkParametersRegardingTheSourceDatasets() {
  Vector& filterNormalizedDirection = parameters.filterNormalizedDirection;
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
  tempParameters = Parameters();
}

void DirectionFilteredVectorLengthDataset::setParametersFromTempFields() {
  const Parameters& t = tempParameters;
  setParameters(t.orientedFiltering, t.filterNormalizedDirection, t.positiveOrientedFiltering);
}

void DirectionFilteredVectorLengthDataset::setParameters(bool oriented, const Vector& direction,
                                                         bool positiveOriented) {
  parameters.orientedFiltering = oriented;
  parameters.positiveOrientedFiltering = positiveOriented;
  parameters.filterNormalizedDirection = direction;
  resetCache();
  checkParametersRegardingTheSourceDatasets();
}

void DirectionFilteredVectorLengthDataset::getParameters(bool& oriented, Vector& direction) const {
  oriented = parameters.orientedFiltering;
  direction = parameters.filterNormalizedDirection;
}

void DirectionFilteredVectorLengthDataset::getParameters(bool& oriented, Vector& direction,
                                                         bool& positiveOriented) const {
  getParameters(oriented, direction);
  positiveOriented = parameters.positiveOrientedFiltering;
}

void DirectionFilteredVectorLengthDataset::setFilterNormalizedDirection(const Vector& direction) {
  if (direction == parameters.filterNormalizedDirection) return;
  parameters.filterNormalizedDirection = direction;
  resetCache();
}

}  // namespace tarv

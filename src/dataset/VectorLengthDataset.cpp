#include "dataset/VectorLengthDataset.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "bulk/ConcurrentRows.h"
#include "kernels/VectorLengths.h"

namespace tarv {

VectorLengthDataset::VectorLengthDataset() {
  setLibraryClass("VectorLengthDataset", &VectorLengthDataset::calculateRow);
}

VectorLengthDataset::~VectorLengthDataset() = default;

bool VectorLengthDataset::isInputOk() const {
  return DependentDataset::isInputOk() && sourceDatasets.size() >= 1 &&
         sourceDatasets.size() <= static_cast<std::size_t>(maximalSourceCount);
}

Vector& VectorLengthDataset::readSourceVector(const DatasetCoordinates& p) {
  const auto n = static_cast<unsigned>(sourceDatasets.size());
  if (sourceVector.size() != n) sourceVector = Vector(n);
  for (unsigned i = 0; i < n; ++i) sourceVector[i] = sourceDatasets[i]->getElement<double>(p);
  return sourceVector;
}

bool VectorLengthDataset::calculateElement(const DatasetCoordinates& p) {
  setElementReference<double>(p, readSourceVector(p).getLength());
  setElementCacheStatus(p, true);
  return true;
}

int VectorLengthDataset::readSourceRows(const DatasetCoordinates& first, int count, bool check,
                                        std::vector<double>& components) {
  const std::size_t n = sourceDatasets.size();
  if (n < 1 || n > static_cast<std::size_t>(maximalSourceCount) || !holdsRow(first, count)) return 0;
  for (Dataset* source : sourceDatasets)
    if (!source->canReadRow(first, count)) return 0;
  if (check) return count;
  const auto length = static_cast<std::size_t>(count);
  components.resize(n * length);
  for (std::size_t i = 0; i < n; ++i)
    sourceDatasets[i]->readRowAsElements(first, count, components.data() + i * length);
  // The vector of the last element, as element-wise reading leaves it.
  if (bulk::concurrentRows) return count;
  if (sourceVector.size() != n) sourceVector = Vector(static_cast<unsigned>(n));
  for (std::size_t i = 0; i < n; ++i) sourceVector[static_cast<unsigned>(i)] = components[i * length + length - 1];
  return count;
}

int VectorLengthDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  std::vector<double> components;
  if (readSourceRows(first, count, check, components) == 0) return 0;
  if (check) return count;
  const std::size_t n = sourceDatasets.size();
  const auto length = static_cast<std::size_t>(count);
  std::vector<double> values(length);
  kernels::vectorLengths(static_cast<int>(n), components.data(), length, values.data());
  storeRow(first, count, values.data());
  return count;
}

bool VectorLengthDataset::isDatasetEquivalent(DependentDataset* other) {
  return DependentDataset::isDatasetEquivalent(other) && dynamic_cast<const VectorLengthDataset*>(other) != nullptr;
}

TARVElementType VectorLengthDataset::determineElementType() { return TARV_ELEMENT_TYPE_FLOAT; }

bool VectorLengthDataset::readDatasetSpecificValue(std::string, std::istream&) { return false; }

void VectorLengthDataset::writeDatasetSpecificValues(std::ostream&) {}

void VectorLengthDataset::initializeTempFields() { DependentDataset::initializeTempFields(); }

void VectorLengthDataset::setParametersFromTempFields() {}

}  // namespace tarv

#include "dataset/CastDataset.h"

#include <limits>
#include <memory>

#include "bulk/ConcurrentRows.h"
#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = CastDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("ElementType", &P::elementType));

}  // namespace

CastDataset::CastDataset() { setLibraryClass("CastDataset", &CastDataset::calculateRow); }

CastDataset::~CastDataset() = default;

bool CastDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool CastDataset::calculateElement(const DatasetCoordinates& p) {
  Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
  if (source == nullptr) return true;
  // The source's own buffer takes its raw element; a failed read leaves whatever it holds.
  void* sourceBuffer = source->getElementBuffer();
  source->getElementByBuffer(p, sourceBuffer);
  DatasetMemory::castBufferValue(sourceBuffer, elementBuffer, source->getElementType(), parameters.elementType);
  setElementByBuffer(p, elementBuffer);
  return true;
}

namespace {

// Whether every value of the element type is a double, so that converting through double gives
// what converting directly gives.
bool convertsExactlyThroughDouble(TARVElementType type) {
  bool exact = false;
  dispatchElementType(type, [&]<typename T>() {
    exact = std::numeric_limits<T>::digits <= std::numeric_limits<double>::digits;
  });
  return exact;
}

}  // namespace

int CastDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
  // The element path stores the converted bytes as the dataset's type: only where the types agree
  // is that a conversion.
  if (source == nullptr || parameters.elementType != elementType ||
      !convertsExactlyThroughDouble(source->getElementType()))
    return 0;
  if (!holdsRow(first, count) || !source->canReadRow(first, count)) return 0;
  if (check) return count;
  const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
  source->readRow(first, count, values.get());
  // The source's element buffer holds its last raw element, as the element path leaves it.
  if (!bulk::concurrentRows) {
    DatasetCoordinates last = first;
    last.x += count - 1;
    source->getElementByBuffer(last, source->getElementBuffer());
  }
  storeRow(first, count, values.get());
  return count;
}

bool CastDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &CastDataset::parameters);
}

TARVElementType CastDataset::determineElementType() { return parameters.elementType; }

bool CastDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void CastDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void CastDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void CastDataset::setParametersFromTempFields() { setParameters(tempParameters.elementType); }

void CastDataset::getParameters(TARVElementType& targetElementType) const {
  targetElementType = parameters.elementType;
}

void CastDataset::setParameters(TARVElementType targetElementType) {
  parameters.elementType = targetElementType;
  resetCache();
}

}  // namespace tarv

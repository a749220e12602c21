#include "dataset/CastDataset.h"

#include <cstdint>
#include <limits>
#include <utility>
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

// Whether every value of the integer type S is a 32-bit integer; true for other types.
template <typename S>
constexpr bool fitsInt32() {
  if constexpr (std::is_integral_v<S> && !std::is_same_v<S, bool>)
    return std::cmp_less_equal(std::numeric_limits<S>::max(), INT32_MAX) &&
           std::cmp_greater_equal(std::numeric_limits<S>::min(), INT32_MIN);
  else
    return true;
}

// Whether converting every value of the source type to the target type through double gives what
// converting it directly gives: every source value is a double, and an integer conversion through
// double, which saturates at the 32-bit range for targets of 32 bits and fewer (convertElementValue),
// never meets a source value beyond that range, which a direct conversion would wrap.
bool convertsAlikeThroughDouble(TARVElementType source, TARVElementType target) {
  bool alike = false;
  dispatchElementType(source, [&]<typename S>() {
    dispatchElementType(target, [&]<typename T>() {
      alike = std::numeric_limits<S>::digits <= std::numeric_limits<double>::digits;
      if constexpr (std::is_integral_v<S> && std::is_integral_v<T> && !std::is_same_v<T, bool>) {
        constexpr bool throughInt32 = sizeof(T) < 4 || std::is_same_v<T, int>;
        if constexpr (throughInt32 && !fitsInt32<S>()) alike = false;
      }
    });
  });
  return alike;
}

}  // namespace

int CastDataset::calculateRow(const DatasetCoordinates& first, int count, bool check) {
  Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
  // The element path stores the converted bytes as the dataset's type: only where the types agree
  // is that a conversion.
  if (source == nullptr || parameters.elementType != elementType ||
      !convertsAlikeThroughDouble(source->getElementType(), elementType))
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

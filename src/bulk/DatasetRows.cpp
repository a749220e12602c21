// Dataset's row operations and its one test of "one of the library's own classes".

#include <typeinfo>

#include "bulk/ConcurrentRows.h"
#include "bulk/RowSupport.h"
#include "dataset/CachedDataset.h"

namespace tarv {

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);

}  // namespace

bool Dataset::isLibraryClass() const { return libraryClass != nullptr && typeid(*this) == *libraryClass; }

void Dataset::setLibraryClass(const char* name) {
  typeName = name;
  libraryClass = &typeid(*this);
}

const void* Dataset::getPlainElements() const {
  if (!isLibraryClass() || isCachedDataset() || memory == nullptr) return nullptr;
  if (typeid(*memory) != typeid(ArrayDatasetMemory) || !memory->isAllocated() || memory->getStart() != kOrigin ||
      memory->getElementType() != elementType || memory->getSize() != size)
    return nullptr;
  return static_cast<const ArrayDatasetMemory*>(memory)->getElementBlock();
}

void* Dataset::getPlainElements() {
  return const_cast<void*>(static_cast<const Dataset*>(this)->getPlainElements());
}

bool Dataset::canReadRow(const DatasetCoordinates& first, int count) {
  if (isCachedDataset()) return static_cast<CachedDataset*>(this)->canReadRowFromCache(first, count);
  return getPlainElements() != nullptr && bulk::rowInside(*this, first, count) &&
         bulk::arrayHolding(memory, first, count) != nullptr;
}

void Dataset::readRow(const DatasetCoordinates& first, int count, double* values) {
  if (isCachedDataset()) return static_cast<CachedDataset*>(this)->readRowFromCache(first, count, values);
  const auto* m = static_cast<const ArrayDatasetMemory*>(memory);
  bulk::readElements(*m, m->getLinearIndex(first), count, values);
}

void Dataset::readRowAsElements(const DatasetCoordinates& first, int count, double* values) {
  readRow(first, count, values);
  if (!bulk::concurrentRows && readBuffer != nullptr && memory != nullptr) memory->getElementByBuffer(bulk::alongX(first, count - 1), readBuffer);
}

}  // namespace tarv

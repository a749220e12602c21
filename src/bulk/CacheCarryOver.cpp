#include "bulk/CacheCarryOver.h"

#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "dataset/ArrayDatasetMemory.h"

namespace tarv::bulk {

namespace {

const ArrayDatasetMemory* asArray(const DatasetMemory& m, bool statuses) {
  if (typeid(m) != typeid(ArrayDatasetMemory) || !m.isAllocated()) return nullptr;
  const bool isBool = m.getElementType() == TARV_ELEMENT_TYPE_BOOL;
  return isBool == statuses ? static_cast<const ArrayDatasetMemory*>(&m) : nullptr;
}

// The box's components are every component of the memory.
bool holdsAllComponents(const DatasetMemory& m, const DatasetBoundingBox& box) {
  return m.getStart().c == box.start.c && m.getEnd().c == box.end.c;
}

}  // namespace

bool carryComputedRuns(const DatasetMemory& oldData, const DatasetMemory& oldStatuses, DatasetMemory& newData,
                       DatasetMemory& newStatuses, const DatasetBoundingBox& box) {
  const ArrayDatasetMemory* from = asArray(oldData, false);
  const ArrayDatasetMemory* fromStatuses = asArray(oldStatuses, true);
  auto* to = const_cast<ArrayDatasetMemory*>(asArray(newData, false));
  auto* toStatuses = const_cast<ArrayDatasetMemory*>(asArray(newStatuses, true));
  if (from == nullptr || fromStatuses == nullptr || to == nullptr || toStatuses == nullptr || box.isEmpty() ||
      from->getElementType() != to->getElementType() || from->getElementByteSize() == 0 ||
      oldData.getExtent() != oldStatuses.getExtent() || newData.getExtent() != newStatuses.getExtent() ||
      !holdsAllComponents(oldData, box) || !holdsAllComponents(newData, box))
    return false;
  const std::uint64_t bytes = from->getElementByteSize();
  const std::uint64_t rowLength =
      static_cast<std::uint64_t>(box.end.x - box.start.x + 1) * static_cast<std::uint64_t>(box.end.c - box.start.c + 1);
  const auto* source = static_cast<const unsigned char*>(from->getElementBlock());
  auto* target = static_cast<unsigned char*>(to->getElementBlock());
  DatasetCoordinates p = box.start;
  for (p.t = box.start.t; p.t <= box.end.t; ++p.t)
    for (p.z = box.start.z; p.z <= box.end.z; ++p.z)
      for (p.y = box.start.y; p.y <= box.end.y; ++p.y) {
        const std::uint64_t a = from->getLinearIndex(p);
        const std::uint64_t b = to->getLinearIndex(p);
        const std::uint64_t end = a + rowLength;
        for (std::uint64_t i = fromStatuses->findBit(a, rowLength, true); i < end;) {
          const std::uint64_t j = fromStatuses->findBit(i, end - i, false);
          std::memcpy(target + (b + (i - a)) * bytes, source + i * bytes, (j - i) * bytes);
          toStatuses->setBits(b + (i - a), j - i, true);
          i = j < end ? fromStatuses->findBit(j, end - j, true) : end;
        }
      }
  return true;
}

}  // namespace tarv::bulk

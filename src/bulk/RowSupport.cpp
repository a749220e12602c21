#include "bulk/RowSupport.h"

#include <typeinfo>

namespace tarv::bulk {

bool rowInside(const Dataset& d, const DatasetCoordinates& first, int count) {
  const DatasetCoordinates s = d.getSize();
  if (count <= 0 || s.c != 1 || first.c != 0) return false;
  if (first.y < 0 || first.y >= s.y || first.z < 0 || first.z >= s.z || first.t < 0 || first.t >= s.t) return false;
  return first.x >= 0 && static_cast<std::int64_t>(first.x) + count <= s.x;
}

ArrayDatasetMemory* arrayHolding(DatasetMemory* m, const DatasetCoordinates& first, int count) {
  if (m == nullptr || typeid(*m) != typeid(ArrayDatasetMemory) || !m->isAllocated()) return nullptr;
  const DatasetCoordinates start = m->getStart();
  const DatasetCoordinates end = m->getEnd();
  if (start.c != 0 || end.c != 0) return nullptr;
  if (first.y < start.y || first.y > end.y || first.z < start.z || first.z > end.z || first.t < start.t ||
      first.t > end.t)
    return nullptr;
  if (first.x < start.x || static_cast<std::int64_t>(first.x) + count - 1 > end.x) return nullptr;
  return static_cast<ArrayDatasetMemory*>(m);
}

void readElements(const ArrayDatasetMemory& m, std::uint64_t index, int count, double* values) {
  dispatchElementType(m.getElementType(), [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>) {
      const auto* bits = static_cast<const unsigned char*>(m.getElementBlock());
      for (int i = 0; i < count; ++i) {
        const std::uint64_t bit = index + static_cast<std::uint64_t>(i);
        values[i] = convertElementValue<double>(((bits[bit >> 3] >> (bit & 7)) & 1) != 0);
      }
    } else {
      const T* elements = static_cast<const T*>(m.getElementBlock()) + index;
      for (int i = 0; i < count; ++i) values[i] = convertElementValue<double>(elements[i]);
    }
  });
}

}  // namespace tarv::bulk

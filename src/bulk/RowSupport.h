#ifndef TARV_BULK_ROWSUPPORT_H
#define TARV_BULK_ROWSUPPORT_H

#include <cstdint>

#include "dataset/ArrayDatasetMemory.h"
#include "dataset/Dataset.h"

namespace tarv::bulk {

// first + (i, 0, 0, 0, 0).
inline DatasetCoordinates alongX(const DatasetCoordinates& first, int i) {
  DatasetCoordinates p = first;
  p.x += i;
  return p;
}

// The row lies inside the dataset, in component 0 of a one-component dataset.
bool rowInside(const Dataset& d, const DatasetCoordinates& first, int count);

// The memory if it is an array memory (of exactly that class) of one component holding the whole
// row, else null.
ArrayDatasetMemory* arrayHolding(DatasetMemory* m, const DatasetCoordinates& first, int count);

// Elements index .. index + count - 1 of an array memory, as double.
void readElements(const ArrayDatasetMemory& m, std::uint64_t index, int count, double* values);

}  // namespace tarv::bulk

#endif

#ifndef TARV_CORE_DATASETCOORDINATESITERATOR_H
#define TARV_CORE_DATASETCOORDINATESITERATOR_H

#include <cstdint>

#include "core/DatasetCoordinates.h"

namespace tarv {

// Coordinates that walk a dataset's memory, carrying the linear element index.
class DatasetCoordinatesIterator : public DatasetCoordinates {
public:
  bool valid = false;
  std::uint64_t index = 0;

  DatasetCoordinatesIterator() = default;
  explicit DatasetCoordinatesIterator(const DatasetCoordinates& p, bool valid = false, std::uint64_t index = 0)
      : DatasetCoordinates(p), valid(valid), index(index) {}
};

}  // namespace tarv

#endif

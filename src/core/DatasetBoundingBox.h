#ifndef TARV_CORE_DATASETBOUNDINGBOX_H
#define TARV_CORE_DATASETBOUNDINGBOX_H

#include "core/DatasetCoordinates.h"

namespace tarv {

// A box of voxel coordinates; start and end are both inclusive.
class DatasetBoundingBox {
public:
  DatasetCoordinates start;
  DatasetCoordinates end{-1, -1, -1, -1, -1};

  // The empty box: start (0,0,0,0,0), end (-1,-1,-1,-1,-1).
  DatasetBoundingBox() = default;
  DatasetBoundingBox(const DatasetCoordinates& start, const DatasetCoordinates& end) : start(start), end(end) {}

  // True when start[k] > end[k] for any k.
  bool isEmpty() const {
    for (int k = 0; k < 5; ++k)
      if (start[k] > end[k]) return true;
    return false;
  }
  // Both corners shifted by offset.
  DatasetBoundingBox operator+(const DatasetCoordinates& offset) const {
    return {start + offset, end + offset};
  }
  bool operator==(const DatasetBoundingBox& o) const { return start == o.start && end == o.end; }
  bool operator!=(const DatasetBoundingBox& o) const { return !(*this == o); }
};

}  // namespace tarv

#endif

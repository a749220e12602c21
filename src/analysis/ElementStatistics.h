#ifndef TARV_ANALYSIS_ELEMENTSTATISTICS_H
#define TARV_ANALYSIS_ELEMENTSTATISTICS_H

// Statistics over the elements of a dataset, read through the virtual element access.

#include "dataset/Dataset.h"
#include "elementtypes/ElementOperations.h"

namespace tarv::analysis {

// The range as Dataset::getMinimumValue and getMaximumValue find it: the first value, then each
// one lower than the minimum or else higher than the maximum, in the order they come.
struct RunningRange {
  bool empty = true;
  double minimum = 0.0;
  double maximum = 0.0;
  void add(double v) {
    if (empty) {
      minimum = maximum = v;
      empty = false;
    } else if (minimum > v) {
      minimum = v;
    } else if (v > maximum) {
      maximum = v;
    }
  }
};

// Walks the box clipped to the dataset and hands every element, as double, to visit.
template <typename Visit>
void visitClippedBox(Dataset& d, const DatasetBoundingBox& box, Visit visit) {
  const DatasetBoundingBox clipped = d.fitBoxToInterior(box);
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(clipped); it.valid;
       d.incrementCoordinatesIterator(clipped, it)) {
    d.getElementByBuffer(it, value);
    visit(read(value));
  }
}

// The smallest (or largest) element of the box clipped to the dataset, the first of equal ones
// in memory order; 0 for an empty dataset.
double extremeValueInBox(Dataset& d, const DatasetBoundingBox& box, bool maximum);

// The box of the non-zero elements over x, y, z and t (start > end when there is none), shrunk
// plane by plane from the sides of the whole dataset.
DatasetBoundingBox nonZeroVoxelBoundingBox(Dataset& d);

}  // namespace tarv::analysis

#endif

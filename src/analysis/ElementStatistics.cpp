#include "analysis/ElementStatistics.h"

namespace tarv::analysis {

double extremeValueInBox(Dataset& d, const DatasetBoundingBox& box, bool maximum) {
  bool first = true;
  double result = 0.0;
  visitClippedBox(d, box, [&](double v) {
    if (first) {
      result = v;
      first = false;
    } else if (maximum ? v > result : v < result) {
      result = v;
    }
  });
  return result;
}

DatasetBoundingBox nonZeroVoxelBoundingBox(Dataset& d) {
  d.announceAccessToFullDataset();
  DatasetBoundingBox box = d.getVoxelBoundingBox();
  const BufferReader<bool> read = bufferReader<bool>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  // Whether the plane at position along axis, within the current box, holds a non-zero element.
  auto planeHoldsNonZero = [&](int axis, int position) {
    DatasetBoundingBox plane = box;
    plane.start[axis] = plane.end[axis] = position;
    if (plane.isEmpty()) return false;
    for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(plane); it.valid;
         d.incrementCoordinatesIterator(plane, it)) {
      d.getElementByBuffer(it, value);
      if (read(value)) return true;
    }
    return false;
  };
  for (int axis = 0; axis < 4; ++axis) {
    while (box.start[axis] <= box.end[axis] && !planeHoldsNonZero(axis, box.start[axis])) ++box.start[axis];
    while (box.end[axis] >= box.start[axis] && !planeHoldsNonZero(axis, box.end[axis])) --box.end[axis];
  }
  return box;
}

}  // namespace tarv::analysis

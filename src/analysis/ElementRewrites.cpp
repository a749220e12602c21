#include "analysis/ElementRewrites.h"

#include <cmath>

namespace tarv::analysis {

void flipAxis(Dataset& d, int axis) {
  if (!d.hasData()) return;
  d.announceAccessToFullDataset();
  const DatasetCoordinates n = d.getSize();
  if (n[axis] <= 1) return;
  DatasetBoundingBox lowerHalf = d.getVoxelBoundingBox();
  lowerHalf.end[axis] = n[axis] / 2 - 1;
  unsigned char first[kElementBufferSize] = {};
  unsigned char second[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(lowerHalf); it.valid;
       d.incrementCoordinatesIterator(lowerHalf, it)) {
    const DatasetCoordinates p = it;
    DatasetCoordinates mirrored = p;
    mirrored[axis] = n[axis] - 1 - p[axis];
    d.getElementByBuffer(p, first);
    d.getElementByBuffer(mirrored, second);
    d.setElementByBuffer(p, second);
    d.setElementByBuffer(mirrored, first);
  }
}

void normalizeVectorLength(Dataset& d) {
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  const BufferWriter write = bufferWriter(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  double sum = 0.0;
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    d.getElementByBuffer(it, value);
    const double v = read(value);
    sum += v * v;
  }
  const double length = std::sqrt(sum);
  if (!(length > 0.0)) return;
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    d.getElementByBuffer(it, value);
    write(value, read(value) / length);
    d.setElementByBuffer(it, value);
  }
}

}  // namespace tarv::analysis

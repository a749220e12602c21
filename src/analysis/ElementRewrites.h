#ifndef TARV_ANALYSIS_ELEMENTREWRITES_H
#define TARV_ANALYSIS_ELEMENTREWRITES_H

// In-place rewrites of the elements of a dataset through the virtual element access.

#include "dataset/Dataset.h"
#include "elementtypes/ElementOperations.h"

namespace tarv::analysis {

// Overwrites, in place, every element whose value (as double) matches, with replacement.
template <typename Predicate>
void replaceElementsWhere(Dataset& d, double replacement, Predicate matches) {
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  unsigned char replacementValue[kElementBufferSize] = {};
  DatasetMemory::setBufferValue<double>(replacementValue, d.getElementType(), replacement);
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    d.getElementByBuffer(it, value);
    if (matches(read(value))) d.setElementByBuffer(it, replacementValue);
  }
}

// Mirrors the dataset along one axis (0 x, 1 y, 2 z) by swapping element pairs.
void flipAxis(Dataset& d, int axis);

// Scales all elements together to a vector of length 1; an all-zero dataset stays.
void normalizeVectorLength(Dataset& d);

}  // namespace tarv::analysis

#endif

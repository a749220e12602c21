#ifndef TARV_FORMATS_CONTIGUOUSELEMENTS_H
#define TARV_FORMATS_CONTIGUOUSELEMENTS_H

#include <cstddef>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

namespace tarv::formats {

// The dataset's elements as one block, components fastest, then x, y, z, t: its own when it is a
// plain in-memory dataset, else those of a copy that holder keeps. Null when there is no memory
// for the copy, or for bool elements (stored as bits).
const unsigned char* contiguousElements(Dataset* dataset, DatasetHandle& holder);

// Components of `voxels` voxels of `elementBytes` bytes each between planes (all of component 0,
// then all of component 1 ...) and interleaved order (components fastest), in either direction.
void interleaveComponents(const unsigned char* planes, unsigned char* interleaved, std::size_t voxels,
                          int components, int elementBytes);
void separateComponents(const unsigned char* interleaved, unsigned char* planes, std::size_t voxels,
                        int components, int elementBytes);

}  // namespace tarv::formats

#endif

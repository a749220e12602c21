#ifndef TARV_FORMATS_CONTIGUOUSELEMENTS_H
#define TARV_FORMATS_CONTIGUOUSELEMENTS_H

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

namespace tarv::formats {

// The dataset's elements as one block, components fastest, then x, y, z, t: its own when it is a
// plain in-memory dataset, else those of a copy that holder keeps. Null when there is no memory
// for the copy, or for bool elements (stored as bits).
const unsigned char* contiguousElements(Dataset* dataset, DatasetHandle& holder);

}  // namespace tarv::formats

#endif

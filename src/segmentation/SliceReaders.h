#ifndef TARV_SEGMENTATION_SLICEREADERS_H
#define TARV_SEGMENTATION_SLICEREADERS_H

// Readers of the membership bits of one time step and component of a dataset.

#include <memory>

#include "dataset/Dataset.h"

namespace tarv::segmentation {

// The membership of the elements of one time step and component of a dataset, by x, y and z.
// Callers keep the coordinates inside the dataset.
class SliceReader {
public:
  virtual ~SliceReader() = default;
  virtual unsigned char at(int x, int y, int z) = 0;
  // out[x] for every x of the row (y, z).
  virtual void row(int y, int z, unsigned char* out) = 0;
};

// The reader for time step t and component c of a dataset that holds data with t and c inside:
// straight from the element block for a plain in-memory dataset, else through element access.
// Both give the same bits.
std::unique_ptr<SliceReader> makeSliceReader(Dataset* d, int t, int c);

}  // namespace tarv::segmentation

#endif

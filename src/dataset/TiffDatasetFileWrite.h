#ifndef TARV_DATASET_TIFFDATASETFILEWRITE_H
#define TARV_DATASET_TIFFDATASETFILEWRITE_H

#include <string>

#include "dataset/Dataset.h"

namespace tarv {

// Writes a dataset into a tiled, LZW-compressed TIFF file, page (tile) by page, 64 x 64 x 1
// voxels a page. Element types without a TIFF sample format (64-bit integers, double, long
// double) and more than four components cannot be written. The world embedding and the value
// range are not stored; the fourth axis is not stored (t = 0 only).
class TiffDatasetFileWrite {
public:
  std::string fileName;

  void write(Dataset* dataset);
};

}  // namespace tarv

#endif

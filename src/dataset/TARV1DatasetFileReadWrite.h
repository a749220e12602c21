#ifndef TARV_DATASET_TARV1DATASETFILEREADWRITE_H
#define TARV_DATASET_TARV1DATASETFILEREADWRITE_H

#include <string>

#include "dataset/Dataset.h"

namespace tarv {

// Reads a whole TARV1 file into a dataset of floats, and writes any dataset as a TARV1 file
// (element values quantised to 16 bits between the dataset's minimum and maximum).
class TARV1DatasetFileReadWrite {
public:
  std::string fileName;
  // Byte order of the samples written; reading takes it from the file.
  bool littleEndian = true;

  // Replaces the dataset by the file's contents; on any failure the dataset is cleared.
  void read(Dataset* dataset);
  // Writes the dataset; a dataset without data leaves the file untouched.
  void write(Dataset* dataset);
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_RAWDATASETFILEREADWRITE_H
#define TARV_DATASET_RAWDATASETFILEREADWRITE_H

#include <string>

#include "dataset/Dataset.h"

namespace tarv {

// Headerless binary volume files whose layout the caller describes: a header filler, then every
// element (t, z, y, x order, components fastest) between an element prefix and suffix filler,
// then a trailer filler. Fillers are written as zeros and skipped on input. The volume's shape
// comes from the dataset: read fills an already shaped dataset, converting to its element type.
class RawDatasetFileReadWrite {
public:
  std::string fileName;
  TARVElementType elementType = TARV_ELEMENT_TYPE_DOUBLE;
  // Element bytes in reversed (non-host) order.
  bool byteSwap = false;
  // Negative filler sizes are set to 0 by the next read or write.
  int headerSize = 0;
  int trailerSize = 0;
  int elementPrefixSize = 0;
  int elementSuffixSize = 0;

  // Fills the dataset when the file's size matches its shape exactly (at most 2^31 - 1 bytes);
  // otherwise leaves it unchanged.
  void read(Dataset* dataset);
  void write(Dataset* dataset);

  // Bytes of one stored element of the type (0 for a type that cannot be stored).
  static unsigned int getStoredElementSize(TARVElementType type);
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_TARV1DATASETFILEREADMODULE_H
#define TARV_DATASET_TARV1DATASETFILEREADMODULE_H

#include <cstdint>
#include <fstream>
#include <vector>

#include "dataset/DatasetFileReadModule.h"
#include "dataset/TARV1FileHeader.h"
#include "formats/FileIdentity.h"

namespace tarv {

// Reads a TARV1 file slice by slice for a FileReadDataset; the dataset has float elements.
class TARV1DatasetFileReadModule : public DatasetFileReadModule {
public:
  TARV1DatasetFileReadModule();
  ~TARV1DatasetFileReadModule() override;

  // The whole x-y slice of c.
  DatasetBoundingBox getReadBlockBox(const DatasetCoordinates& c) override;
  bool open() override;
  void close() override;
  // One seek and one read of the slice of c.
  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override;

private:
  void releaseStream();

  std::ifstream stream;
  bool littleEndian = true;
  int factor = 0;
  int offset = 0;
  TARV1FileHeader header;
  std::vector<unsigned char> sliceBytes;
  std::vector<std::uint16_t> sliceSamples;
  // The file as opened, compared before every slice read.
  formats::FileIdentity opened;
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_DATASETFILEREADMODULE_H
#define TARV_DATASET_DATASETFILEREADMODULE_H

#include <string>

#include "core/DatasetBoundingBox.h"
#include "core/DatasetCoordinates.h"
#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "dataset/ModalityLUT.h"

namespace tarv {

class FileReadDataset;

// The reader of one file format behind a FileReadDataset: describes the file (size, element
// type, world embedding, modality LUT, stated value range) and loads one block of elements into
// the dataset's cache on request. Concrete modules fill the descriptive fields in open() and must
// call closeFile() in their own destructor, since close() cannot be reached from this one.
class DatasetFileReadModule {
public:
  DatasetFileReadModule();
  DatasetFileReadModule(const DatasetFileReadModule&) = delete;
  DatasetFileReadModule& operator=(const DatasetFileReadModule&) = delete;

  // Virtual operations, in this order.
  virtual ~DatasetFileReadModule();
  // The box of elements that one readBlock call for c loads (it contains c); with no open file
  // the box from (-1, -1, -1, -1, -1) to (-1, -1, -1, -1, -1).
  virtual DatasetBoundingBox getReadBlockBox(const DatasetCoordinates& c) = 0;
  // Opens the file named by the file name and fills the description; false if it is unusable.
  virtual bool open() = 0;
  virtual void close() = 0;
  // Stores every element of the block of c in the dataset's cache (not its cache statuses).
  virtual bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) = 0;

  bool openFile(const std::string& name);
  void closeFile();
  bool isFileOpen() const { return fileOpen; }
  std::string getFileName() const { return fileName; }
  DatasetCoordinates getSize() const { return size; }
  TARVElementType getElementType() const { return elementType; }
  DatasetWorldEmbedding getWorldEmbedding() const { return worldEmbedding; }
  ModalityLUT getModalityLut() const { return modalityLut; }
  bool getMinimumAndMaximumValueCacheStatus() const { return minimumAndMaximumValueCacheStatus; }
  double getCachedMinimumValue() const { return cachedMinimumValue; }
  double getCachedMaximumValue() const { return cachedMaximumValue; }
  // Reads the block of c and marks all of it cached in the dataset.
  bool readBlockFromFile(FileReadDataset* dataset, const DatasetCoordinates& c);

protected:
  static DatasetBoundingBox getNoFileBox() {
    return DatasetBoundingBox(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1));
  }

  std::string fileName;
  bool fileOpen = false;
  DatasetCoordinates size{0, 0, 0, 0, 0};
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  DatasetWorldEmbedding worldEmbedding;
  ModalityLUT modalityLut;
  bool minimumAndMaximumValueCacheStatus = false;
  double cachedMinimumValue = 0.0;
  double cachedMaximumValue = 0.0;
};

}  // namespace tarv

#endif

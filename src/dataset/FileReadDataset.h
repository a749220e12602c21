#ifndef TARV_DATASET_FILEREADDATASET_H
#define TARV_DATASET_FILEREADDATASET_H

#include <string>

#include "dataset/DatasetFileReadModule.h"
#include "dataset/ROICachedDataset.h"

namespace tarv {

// A dataset whose elements live in a file and are loaded lazily, one file block at a time, into
// its region-of-interest cache. It owns a read module that knows the file format.
class FileReadDataset : public ROICachedDataset {
public:
  FileReadDataset();
  ~FileReadDataset() override;

  bool calculateElement(const DatasetCoordinates& c) override;

  bool reshapeCacheForCalculation(const DatasetCoordinates& c) override;

  // Takes ownership; the previous module is closed and deleted first.
  void setFileReadModule(DatasetFileReadModule* module);
  void resetFileReadModule();
  DatasetFileReadModule* getFileReadModule() const { return readModule; }

  // Opens the file with the module and shapes the dataset after it; no element is read.
  bool openFile(const std::string& fileName);
  // Closes the module's file; the dataset keeps its shape and cached elements.
  void closeFile();
  std::string getFileName() const;

  // For read modules: stores count consecutive x positions of one row, starting at start (whose
  // component must be 0), with every component of each position, into the data memory. The
  // elements are of the dataset's element type (bool as one byte 0 or 1 each), components
  // fastest. Positions outside the cached region are skipped; cache statuses are not touched and
  // the cached value range is marked stale, as setElementReferenceByBuffer does.
  void setElementReferenceRow(const DatasetCoordinates& start, int count, const void* elements);

private:
  // The row formula: says which rows can be read (see CachedDataset::RowFormula).
  int loadRow(const DatasetCoordinates& first, int count, bool check);
  DatasetFileReadModule* readModule = nullptr;
};

}  // namespace tarv

#endif

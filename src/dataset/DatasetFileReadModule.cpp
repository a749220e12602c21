#include "dataset/DatasetFileReadModule.h"

#include "dataset/FileReadDataset.h"
#include "formats/FileStatus.h"

namespace tarv {

DatasetFileReadModule::DatasetFileReadModule() = default;

DatasetFileReadModule::~DatasetFileReadModule() { formats::clearReadModuleStatus(this); }

bool DatasetFileReadModule::openFile(const std::string& name) {
  closeFile();
  formats::clearReadModuleStatus(this);
  fileName = name;
  if (open()) {
    fileOpen = true;
    return true;
  }
  fileName.clear();
  return false;
}

void DatasetFileReadModule::closeFile() {
  if (!fileOpen) return;
  close();
  fileName.clear();
  fileOpen = false;
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  worldEmbedding.reset();
  minimumAndMaximumValueCacheStatus = false;
  cachedMinimumValue = 0.0;
  cachedMaximumValue = 0.0;
}

bool DatasetFileReadModule::readBlockFromFile(FileReadDataset* dataset, const DatasetCoordinates& c) {
  if (dataset == nullptr) return false;
  const bool ok = readBlock(dataset, c);
  if (ok) dataset->setCacheStatusValues(getReadBlockBox(c), true);
  return ok;
}

}  // namespace tarv

#include "dataset/FileReadDataset.h"

#include <algorithm>
#include <cstring>

#include "dataset/ArrayDatasetMemory.h"

namespace tarv {

FileReadDataset::FileReadDataset() : ROICachedDataset(true) {
  // Blocks are loaded through one file handle: rows one at a time.
  setLibraryClass("FileReadDataset", &FileReadDataset::loadRow, false);
}

FileReadDataset::~FileReadDataset() { resetFileReadModule(); }

void FileReadDataset::setFileReadModule(DatasetFileReadModule* module) {
  resetFileReadModule();
  readModule = module;
}

void FileReadDataset::resetFileReadModule() {
  if (readModule == nullptr) return;
  readModule->closeFile();
  delete readModule;
  readModule = nullptr;
}

bool FileReadDataset::openFile(const std::string& fileName) {
  if (readModule == nullptr) return false;
  if (!readModule->openFile(fileName)) return false;
  newDataset(readModule->getSize(), readModule->getElementType(), readModule->getWorldEmbedding());
  if (!hasData()) {
    closeFile();
    return false;
  }
  if (readModule->getMinimumAndMaximumValueCacheStatus())
    setCachedMinimumAndMaximumValue(readModule->getCachedMinimumValue(), readModule->getCachedMaximumValue());
  setModalityLUT(readModule->getModalityLut());
  return true;
}

void FileReadDataset::closeFile() {
  if (readModule != nullptr && readModule->isFileOpen()) readModule->closeFile();
}

std::string FileReadDataset::getFileName() const {
  return readModule != nullptr ? readModule->getFileName() : std::string();
}

bool FileReadDataset::reshapeCacheForCalculation(const DatasetCoordinates& c) {
  if (readModule == nullptr || !readModule->isFileOpen()) return false;
  const DatasetBoundingBox box = readModule->getReadBlockBox(c);
  if (reshapeCacheToIncludeBox(box)) return true;
  return reshapeCacheToIncludeOnlyElement(c);
}

int FileReadDataset::loadRow(const DatasetCoordinates&, int count, bool check) {
  // Rows of an open file are read as element reads read them, loading their blocks; so they can
  // always be delivered, and none is computed here.
  return check && readModule != nullptr && readModule->isFileOpen() ? count : 0;
}

bool FileReadDataset::calculateElement(const DatasetCoordinates& c) {
  // Loading file data never changes the dataset's values, so a valid range stays valid.
  const bool rangeStatus = getMinimumAndMaximumValueCacheStatus();
  if (readModule == nullptr || !readModule->isFileOpen()) return false;
  if (!readModule->readBlockFromFile(this, c)) return false;
  setMinimumAndMaximumValueCacheStatus(rangeStatus);
  return true;
}

void FileReadDataset::setElementReferenceRow(const DatasetCoordinates& start, int count, const void* elements) {
  DatasetMemory* data = getMemory();
  if (data == nullptr || !data->isAllocated() || count <= 0 || start.c != 0) return;
  minimumAndMaximumValueCacheStatus = false;
  const DatasetCoordinates first = data->getStart();
  const DatasetCoordinates last = data->getEnd();
  if (start.y < first.y || start.y > last.y || start.z < first.z || start.z > last.z || start.t < first.t ||
      start.t > last.t)
    return;
  // The part of the row inside the cached region, in 64 bits against wrapping.
  const long long rowBegin = std::max<long long>(start.x, first.x);
  const long long rowEnd = std::min<long long>(static_cast<long long>(start.x) + count - 1, last.x);
  if (rowBegin > rowEnd) return;
  const int components = size.c;
  const unsigned int byteSize = data->getElementByteSize();
  const auto* source = static_cast<const unsigned char*>(elements);
  auto* array = dynamic_cast<ArrayDatasetMemory*>(data);
  const bool contiguous = array != nullptr && elementType != TARV_ELEMENT_TYPE_BOOL && first.c == 0 &&
                          last.c == components - 1 && byteSize > 0;
  DatasetCoordinates p(static_cast<int>(rowBegin), start.y, start.z, start.t, 0);
  if (contiguous) {
    auto* block = static_cast<unsigned char*>(array->getElementBlock());
    const std::size_t bytes = static_cast<std::size_t>(rowEnd - rowBegin + 1) * components * byteSize;
    std::memcpy(block + array->getLinearIndex(p) * byteSize,
                source + static_cast<std::size_t>(rowBegin - start.x) * components * byteSize, bytes);
    return;
  }
  // Memories of other kinds, packed bool elements or partial components: element by element.
  const int firstComponent = std::max(first.c, 0);
  const int lastComponent = std::min(last.c, components - 1);
  const std::size_t elementStride = elementType == TARV_ELEMENT_TYPE_BOOL ? 1 : byteSize;
  for (long long x = rowBegin; x <= rowEnd; ++x) {
    p.x = static_cast<int>(x);
    for (p.c = firstComponent; p.c <= lastComponent; ++p.c)
      data->setElementByBuffer(p, source + (static_cast<std::size_t>(x - start.x) * components + p.c) * elementStride);
  }
}

}  // namespace tarv

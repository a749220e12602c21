#include "dataset/DependentDataset.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace tarv {

DependentDataset::DependentDataset() : ROICachedDataset(true) {
  setLibraryClass("DependentDataset");
  isDependent = true;
  dynamicallyCached = true;
  inputValid = false;
}

DependentDataset::~DependentDataset() { removeSourceDatasets(); }

bool DependentDataset::isInputOk() const {
  if (sourceDatasets.empty()) return false;
  for (const Dataset* source : sourceDatasets)
    if (source == nullptr || !source->isInputOk()) return false;
  return true;
}

void DependentDataset::announceAccess(const DatasetBoundingBox& box) {
  // The primary source is never told; only the further ones are.
  if (inputValid)
    for (std::size_t i = 1; i < sourceDatasets.size(); ++i)
      if (sourceDatasets[i] != nullptr) sourceDatasets[i]->announceAccess(box);
  ROICachedDataset::announceAccess(box);
}

void DependentDataset::announceAccessToFullDataset() {
  if (inputValid)
    for (std::size_t i = 1; i < sourceDatasets.size(); ++i)
      if (sourceDatasets[i] != nullptr) sourceDatasets[i]->announceAccessToFullDataset();
  ROICachedDataset::announceAccessToFullDataset();
}

bool DependentDataset::getElementByBuffer(const DatasetCoordinates& p, void* buffer) {
  if (inputValid) return ROICachedDataset::getElementByBuffer(p, buffer);
  // No valid input: zeros, one element of the dataset's type, and nothing is computed.
  const unsigned int bytes =
      std::max(memory != nullptr ? memory->getElementByteSize() : 0u, DatasetMemory::getElementTypeByteSize(elementType));
  if (buffer != nullptr && bytes > 0) std::memset(buffer, 0, bytes);
  return false;
}

void DependentDataset::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  if (inputValid) ROICachedDataset::setElementByBuffer(p, buffer);
}

void DependentDataset::read(std::istream& is, bool) {
  initializeTempFields();
  while (FileReadWrite::isEntry(is)) {
    const std::string name = FileReadWrite::readEntryName(is);
    if (name == "ID")
      datasetID = FileReadWrite::readIntValue(is);
    else if (name == "DynamicallyCached")
      dynamicallyCached = FileReadWrite::readBoolValue(is);
    else if (name == "SourceDatasetIDList")
      tempSourceIDList = FileReadWrite::readIntList(is);
    else if (!readDatasetSpecificValue(name, is))
      FileReadWrite::skipCurrentLine(is);
  }
  setParametersFromTempFields();
}

void DependentDataset::write(std::ostream& os) {
  buildTempIDListsFromReferences();
  FileReadWrite::writeValue(os, "ID", datasetID);
  FileReadWrite::writeValue(os, "Type", typeName);
  FileReadWrite::writeValue(os, "DynamicallyCached", dynamicallyCached);
  FileReadWrite::writeList(os, "SourceDatasetIDList", tempSourceIDList);
  writeDatasetSpecificValues(os);
  FileReadWrite::writeEndOfBlock(os);
  clearTempIDLists();
}

bool DependentDataset::isDatasetEquivalent(DependentDataset* other) {
  if (other == nullptr) return false;
  if (typeName != other->typeName) return false;
  if (sourceDatasets.size() != other->sourceDatasets.size()) return false;
  bool equivalent = true;
  for (std::size_t i = 0; i < sourceDatasets.size(); ++i) {
    Dataset* a = sourceDatasets[i];
    Dataset* b = other->sourceDatasets[i];
    const bool aDependent = a != nullptr && a->isDependentDataset();
    const bool bDependent = b != nullptr && b->isDependentDataset();
    if (aDependent != bDependent) {
      equivalent = false;
    } else if (aDependent) {
      auto* da = dynamic_cast<DependentDataset*>(a);
      auto* db = dynamic_cast<DependentDataset*>(b);
      if (da == nullptr || db == nullptr || !da->isDatasetEquivalent(db)) equivalent = false;
    } else if (a != b) {
      equivalent = false;
    }
  }
  return equivalent;
}

DatasetCoordinates DependentDataset::determineSize() {
  if (!inputValid || sourceDatasets.empty()) return DatasetCoordinates(0, 0, 0, 0, 0);
  DatasetCoordinates result = sourceDatasets.front()->getSize();
  for (std::size_t i = 1; i < sourceDatasets.size(); ++i) {
    const DatasetCoordinates s = sourceDatasets[i]->getSize();
    for (int k = 0; k < 5; ++k) result[k] = std::min(result[k], s[k]);
  }
  return result;
}

TARVElementType DependentDataset::determineElementType() {
  if (!inputValid || sourceDatasets.empty()) return TARV_ELEMENT_TYPE_NO_TYPE;
  return sourceDatasets.front()->getElementType();
}

DatasetWorldEmbedding DependentDataset::determineWorldEmbedding() {
  if (!inputValid || sourceDatasets.empty()) return DatasetWorldEmbedding();
  return sourceDatasets.front()->getWorldEmbedding();
}

void DependentDataset::checkParametersRegardingTheSourceDatasets() {}

DatasetBoundingBox DependentDataset::getSourceRegion(std::size_t i, const DatasetBoundingBox& box) const {
  const DatasetBoundingBox none;
  if (!inputValid || !readsSourceElements || i >= sourceDatasets.size() || sourceDatasets[i] == nullptr || box.isEmpty())
    return none;
  const DatasetCoordinates sourceSize = sourceDatasets[i]->getSize();
  DatasetBoundingBox region;
  for (int k = 0; k < 5; ++k) {
    std::int64_t first = box.start[k];
    std::int64_t last = box.end[k];
    if (readsNeighbourhoods && i == 0 && k < 4) {
      // Windows start at p - centre and must lie inside the source.
      const std::int64_t extent = neighbourhoodSize[k];
      if (extent < 1) return none;
      first = std::max<std::int64_t>(first - neighbourhoodCentre[k], 0);
      last = std::min<std::int64_t>(last - neighbourhoodCentre[k], std::int64_t{sourceSize[k]} - extent);
      if (first > last) return none;
      last += extent - 1;
    }
    first = std::max<std::int64_t>(first, 0);
    last = std::min<std::int64_t>(last, std::int64_t{sourceSize[k]} - 1);
    if (first > last) return none;
    region.start[k] = static_cast<int>(first);
    region.end[k] = static_cast<int>(last);
  }
  return region;
}

void DependentDataset::initializeTempFields() { datasetID = -1; }

void DependentDataset::setSourceDataset(Dataset* source) { setSourceDatasets(std::vector<Dataset*>{source}); }

void DependentDataset::setSourceDatasets(std::vector<Dataset*> sources) {
  removeSourceDatasets();
  sourceDatasets = std::move(sources);
  claimSourceDatasets();
  updateToChangedSourceDatasets();
}

void DependentDataset::changeSourceDataset(Dataset* oldSource, Dataset* newSource) {
  releaseSourceDatasets();
  std::replace(sourceDatasets.begin(), sourceDatasets.end(), oldSource, newSource);
  claimSourceDatasets();
  updateToChangedSourceDatasets();
}

void DependentDataset::removeSourceDatasets() {
  releaseSourceDatasets();
  sourceDatasets.clear();
  updateToChangedSourceDatasets();
}

bool DependentDataset::wouldCloseCycle(const Dataset* source) const {
  // The graph below this dataset, through the registries of depending datasets.
  std::vector<const Dataset*> pending{this};
  std::set<const Dataset*> visited;
  while (!pending.empty()) {
    const Dataset* d = pending.back();
    pending.pop_back();
    if (d == source) return true;
    if (!visited.insert(d).second) continue;
    for (const DependentDataset* dependent : d->getDependingDatasets()) pending.push_back(dependent);
  }
  return false;
}

void DependentDataset::claimSourceDatasets() {
  // Null entries are dropped, and so is any source computed from this dataset, which would make
  // the graph circular.
  std::erase_if(sourceDatasets, [this](Dataset* s) { return s == nullptr || wouldCloseCycle(s); });
  for (Dataset* source : sourceDatasets) source->addDependingDataset(this);
}

void DependentDataset::releaseSourceDatasets() {
  for (Dataset* source : sourceDatasets)
    if (source != nullptr) source->removeDependingDataset(this);
}

Dataset* DependentDataset::getSourceDataset() { return sourceDatasets.empty() ? nullptr : sourceDatasets.front(); }

std::vector<Dataset*> DependentDataset::getSourceDatasets() { return sourceDatasets; }

int DependentDataset::getSourceDatasetCount() { return static_cast<int>(sourceDatasets.size()); }

void DependentDataset::updateToChangedSourceDatasets() {
  inputValid = isInputOk();
  if (inputValid) {
    const DatasetWorldEmbedding embedding = determineWorldEmbedding();
    const TARVElementType type = determineElementType();
    const DatasetCoordinates newSize = determineSize();
    initializeDataset(newSize, type, embedding);
    if (!dynamicallyCached) reshapeCacheToFullDataset();
    checkParametersRegardingTheSourceDatasets();
  } else {
    reset();
  }
  updateDependingDatasets();
}

void DependentDataset::buildTempIDListsFromReferences() {
  tempSourceIDList.clear();
  for (const Dataset* source : sourceDatasets)
    if (source != nullptr) tempSourceIDList.push_back(source->getDatasetID());
}

void DependentDataset::clearTempIDLists() { tempSourceIDList.clear(); }

}  // namespace tarv

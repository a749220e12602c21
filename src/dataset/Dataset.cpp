#include "dataset/Dataset.h"

#include <cstdlib>

#include "dataset/ArrayDatasetMemory.h"
#include "dataset/DependentDataset.h"

namespace tarv {

namespace {
constexpr std::size_t kElementBufferSize = 16;
}

Dataset::Dataset(bool createMemory) : typeName("Dataset") {
  if (!createMemory) return;
  memory = new ArrayDatasetMemory();
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  datasetID = -1;
  elementBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
  readBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
  minimumAndMaximumValueCacheStatus = false;
}

Dataset::~Dataset() {
  if (memory) memory->release();
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  minimumAndMaximumValueCacheStatus = false;
  unregisterDependingDatasets();
  resetMetaInformations();
  delete memory;
  memory = nullptr;
  std::free(elementBuffer);
  std::free(readBuffer);
}

bool Dataset::hasData() const {
  for (int k = 0; k < 5; ++k)
    if (size[k] < 1) return false;
  return true;
}

bool Dataset::isInputOk() const { return true; }

unsigned int Dataset::getMemoryUsage() const {
  return static_cast<unsigned int>(memory->getMemoryUsage());
}

void Dataset::announceAccess(const DatasetBoundingBox&) {}

void Dataset::announceAccessToFullDataset() {}

bool Dataset::getElementByBuffer(const DatasetCoordinates& p, void* buffer) {
  return memory->getElementByBuffer(p, buffer);
}

void Dataset::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  memory->setElementByBuffer(p, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

bool Dataset::getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) {
  return memory->getElementByBuffer(it, buffer);
}

void Dataset::setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) {
  memory->setElementByBuffer(it, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

void Dataset::calculate(const DatasetBoundingBox&) {}

void Dataset::calculateFullDataset(Progress*) {}

void Dataset::reset() {
  memory->release();
  size = memory->getSize();
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  worldEmbedding.reset();
  modalityLUT.reset();
  resetMetaInformations();
  minimumAndMaximumValueCacheStatus = false;
}

void Dataset::initializeDataset(const DatasetCoordinates& newSize, TARVElementType type,
                                const DatasetWorldEmbedding& embedding) {
  reset();
  for (int k = 0; k < 5; ++k)
    if (newSize[k] < 1) return;
  if (!isStorableElementType(type)) return;
  if (!memory->allocate(newSize, type, DatasetCoordinates(0, 0, 0, 0, 0))) return;
  size = newSize;
  elementType = memory->getElementType();
  worldEmbedding = embedding;
}

void Dataset::initializeDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  reset();
  if (newMemory == nullptr || newMemory->getStart() != DatasetCoordinates(0, 0, 0, 0, 0)) return;
  if (newMemory == memory) return;
  delete memory;
  memory = newMemory;
  size = memory->getSize();
  elementType = memory->getElementType();
  worldEmbedding = embedding;
}

void Dataset::newDataset(const DatasetCoordinates& newSize, TARVElementType type,
                         const DatasetWorldEmbedding& embedding) {
  initializeDataset(newSize, type, embedding);
  updateDependingDatasets();
}

void Dataset::newDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  initializeDataset(newMemory, embedding);
  updateDependingDatasets();
}

void Dataset::clear() {
  unregisterDependingDatasets();
  reset();
}

unsigned int Dataset::getElementCount() const {
  unsigned int product = 1;
  for (int k = 0; k < 5; ++k) product *= static_cast<unsigned int>(size[k]);
  return product;
}

bool Dataset::hasSameSize(Dataset* other) const { return other != nullptr && size == other->size; }

bool Dataset::hasSameWorldEmbedding(Dataset* other) {
  return other != nullptr && worldEmbedding == other->worldEmbedding;
}

bool Dataset::isCompatible(Dataset* other) { return hasSameSize(other) && hasSameWorldEmbedding(other); }

DatasetBoundingBox Dataset::getVoxelBoundingBox() const {
  return DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), size - DatasetCoordinates(1, 1, 1, 1, 1));
}

bool Dataset::areCoordinatesInside(const DatasetCoordinates& p) const {
  for (int k = 0; k < 5; ++k)
    if (p[k] < 0 || p[k] >= size[k]) return false;
  return true;
}

bool Dataset::isBoxValid(const DatasetBoundingBox& box) const {
  for (int k = 0; k < 5; ++k)
    if (box.start[k] > box.end[k]) return false;
  return true;
}

bool Dataset::isBoxInside(const DatasetBoundingBox& box) const {
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < 0 || box.end[k] >= size[k]) return false;
  return true;
}

unsigned int Dataset::getBoxVoxelCount(const DatasetBoundingBox& box) const {
  if (!isBoxValid(box)) return 0;
  unsigned int count = 1;
  for (int k = 0; k < 5; ++k)
    count *= static_cast<unsigned int>(static_cast<long long>(box.end[k]) - box.start[k] + 1);
  return count;
}

DatasetBoundingBox Dataset::fitBoxToInterior(const DatasetBoundingBox& box) const {
  DatasetBoundingBox fitted = box;
  for (int k = 0; k < 5; ++k) {
    int& s = fitted.start[k];
    int& e = fitted.end[k];
    if (s < 0) s = 0;
    if (s >= size[k]) s = size[k] - 1;
    if (e < 0) e = 0;
    if (e >= size[k]) e = size[k] - 1;
    if (s > e) std::swap(s, e);
  }
  return fitted;
}

DatasetCoordinatesIterator Dataset::getStartCoordinatesIterator() {
  announceAccessToFullDataset();
  return memory->getStartCoordinatesIterator();
}

DatasetCoordinatesIterator Dataset::getStartCoordinatesIterator(const DatasetBoundingBox& box) {
  announceAccess(box);
  return memory->getStartCoordinatesIterator(box);
}

void Dataset::addDependingDataset(DependentDataset* d) { dependingDatasets.insert(d); }

void Dataset::removeDependingDataset(DependentDataset* d) { dependingDatasets.erase(d); }

bool Dataset::isDependingDataset(DependentDataset* d) const { return dependingDatasets.count(d) != 0; }

namespace {
// Visits the registry in ascending order, taking the successor before calling out, since the
// call may remove the visited entry (or others) from the registry.
template <typename F>
void forEachDependingDataset(const std::set<DependentDataset*>& registry, F&& f) {
  auto it = registry.begin();
  while (it != registry.end()) {
    DependentDataset* d = *it;
    ++it;
    const DependentDataset* next = it == registry.end() ? nullptr : *it;
    f(d);
    it = next == nullptr ? registry.end() : registry.lower_bound(const_cast<DependentDataset*>(next));
  }
}
}  // namespace

void Dataset::updateDependingDatasets() {
  forEachDependingDataset(dependingDatasets, [](DependentDataset* d) { d->updateToChangedSourceDatasets(); });
}

void Dataset::resetCacheOfDependingDatasets() {
  forEachDependingDataset(dependingDatasets, [](DependentDataset* d) { d->resetCache(); });
}

void Dataset::changeSourceDatasetOfDependingDatasets(Dataset* newSource) {
  forEachDependingDataset(dependingDatasets,
                          [&](DependentDataset* d) { d->changeSourceDataset(this, newSource); });
}

void Dataset::changeSourceDatasetOfGivenDependingDatasets(Dataset* newSource,
                                                          const std::set<DependentDataset*>& given) {
  forEachDependingDataset(dependingDatasets, [&](DependentDataset* d) {
    if (given.count(d) != 0) d->changeSourceDataset(this, newSource);
  });
}

void Dataset::unregisterDependingDatasets() { changeSourceDatasetOfDependingDatasets(nullptr); }

void Dataset::deleteDependingDatasetRecursively(DependentDataset* d) {
  if (d == nullptr) return;
  d->deleteDependingDatasetsRecursively();
  dependingDatasets.erase(d);
  delete d;
}

void Dataset::deleteDependingDatasetsRecursively() {
  while (!dependingDatasets.empty()) deleteDependingDatasetRecursively(*dependingDatasets.begin());
}

void Dataset::setCachedMinimumAndMaximumValue(double minimum, double maximum) {
  cachedMinimumValue = minimum;
  cachedMaximumValue = maximum;
  minimumAndMaximumValueCacheStatus = true;
}

void Dataset::updateMinimumAndMaximumValue() {
  double minimum = 0.0;
  double maximum = 0.0;
  announceAccessToFullDataset();
  bool first = true;
  for (DatasetCoordinatesIterator it = memory->getStartCoordinatesIterator(); it.valid;
       memory->incrementCoordinatesIterator(it)) {
    const double v = getElement<double>(it);
    if (first) {
      minimum = maximum = v;
      first = false;
    } else if (minimum > v) {
      minimum = v;
    } else if (v > maximum) {
      maximum = v;
    }
  }
  cachedMinimumValue = minimum;
  cachedMaximumValue = maximum;
  minimumAndMaximumValueCacheStatus = true;
}

double Dataset::getMinimumValue() {
  if (!minimumAndMaximumValueCacheStatus) updateMinimumAndMaximumValue();
  return cachedMinimumValue;
}

double Dataset::getMaximumValue() {
  if (!minimumAndMaximumValueCacheStatus) updateMinimumAndMaximumValue();
  return cachedMaximumValue;
}

void Dataset::setDicomTags(DcmHeader* header) {
  if (header == dicomTags) return;
  delete dicomTags;
  dicomTags = header;
}

}  // namespace tarv

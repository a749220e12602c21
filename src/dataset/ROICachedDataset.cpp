#include "dataset/ROICachedDataset.h"

#include <algorithm>
#include <cstdint>

#include "bulk/CacheCarryOver.h"

namespace tarv {

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);
const DatasetCoordinates kOne(1, 1, 1, 1, 1);
const DatasetCoordinates kNone(-1, -1, -1, -1, -1);

}  // namespace

ROICachedDataset::ROICachedDataset(bool createCache) : CachedDataset(createCache) {
  setLibraryClass("ROICachedDataset");
  if (!createCache) {
    cacheSize = DatasetCoordinates();
    roi = DatasetBoundingBox();
    minimalROIEnforcement = false;
    lookAheadRange = DatasetCoordinates();
    unusedCoordinates = DatasetCoordinates();
  }
}

ROICachedDataset::~ROICachedDataset() = default;

void ROICachedDataset::announceAccess(const DatasetBoundingBox& box) { reshapeCacheToIncludeBox(box); }

void ROICachedDataset::announceAccessToFullDataset() { reshapeCacheToFullDataset(); }

bool ROICachedDataset::getElementByBuffer(const DatasetCoordinates& p, void* buffer) {
  if (!areCoordinatesInsideCache(p)) {
    // A reshape that still leaves p outside (p outside the dataset) counts as failed.
    if (!reshapeCacheForCalculation(p) || !areCoordinatesInsideCache(p)) return false;
  }
  return CachedDataset::getElementByBuffer(p, buffer);
}

void ROICachedDataset::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  if (!areCoordinatesInsideCache(p)) {
    if (!reshapeCacheForCalculation(p) || !areCoordinatesInsideCache(p)) return;
  }
  CachedDataset::setElementByBuffer(p, buffer);
}

void ROICachedDataset::reset() {
  CachedDataset::reset();
  cacheSize = kOrigin;
  roi = DatasetBoundingBox(kNone, kNone);
}

void ROICachedDataset::initializeDataset(const DatasetCoordinates& newSize, TARVElementType type,
                                         const DatasetWorldEmbedding& embedding) {
  reset();
  for (int k = 0; k < 5; ++k)
    if (newSize[k] < 1) return;
  if (!isStorableElementType(type)) return;
  // No memory yet: the cache comes into being with the first access or announcement.
  size = newSize;
  elementType = type;
  worldEmbedding = embedding;
}

void ROICachedDataset::initializeDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  reset();
  if (newMemory == nullptr || newMemory->getStart() != kOrigin) return;
  if (newMemory != memory) {
    delete memory;
    memory = newMemory;
  }
  size = memory->getSize();
  elementType = memory->getElementType();
  worldEmbedding = embedding;
  if (!hasData()) return;
  cacheLayoutChanged();
  if (cacheStatusMemory != nullptr && cacheStatusMemory->allocate<bool>(size, kOrigin) &&
      cacheStatusMemory->isAllocated()) {
    cacheSize = size;
    roi = DatasetBoundingBox(kOrigin, size - kOne);
    // Adopted values count as computed.
    setCacheStatusValues(true);
    return;
  }
  reset();
}

void ROICachedDataset::resetCache() {
  if (memory != nullptr) memory->release();
  if (cacheStatusMemory != nullptr) cacheStatusMemory->release();
  cacheLayoutChanged();
  resetCacheOfDependingDatasets();
}

DatasetBoundingBox ROICachedDataset::getCacheRegion() {
  if (hasData()) return roi;
  return DatasetBoundingBox(kNone, kNone);
}

bool ROICachedDataset::areCoordinatesInsideCache(const DatasetCoordinates& p) {
  if (cacheStatusMemory == nullptr || !cacheStatusMemory->isAllocated()) return false;
  for (int k = 0; k < 5; ++k)
    if (p[k] < roi.start[k] || p[k] > roi.end[k]) return false;
  return true;
}

bool ROICachedDataset::isBoxInsideCache(const DatasetBoundingBox& box) {
  if (cacheStatusMemory == nullptr || !cacheStatusMemory->isAllocated()) return false;
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < roi.start[k] || box.end[k] > roi.end[k]) return false;
  return true;
}

DatasetBoundingBox ROICachedDataset::fitBoxToCacheInterior(const DatasetBoundingBox& box) {
  DatasetBoundingBox fitted = box;
  for (int k = 0; k < 5; ++k) {
    int& s = fitted.start[k];
    int& e = fitted.end[k];
    s = std::max(s, roi.start[k]);
    s = std::min(s, roi.end[k]);
    e = std::max(e, roi.start[k]);
    e = std::min(e, roi.end[k]);
    if (s > e) std::swap(s, e);
  }
  return fitted;
}

void ROICachedDataset::setMinimalROIEnforcement(bool enforce) { minimalROIEnforcement = enforce; }

bool ROICachedDataset::reshapeCacheForCalculation(const DatasetCoordinates& p) {
  if (!minimalROIEnforcement && reshapeCacheToIncludeElement(p)) return true;
  // Under enforcement, or when memory runs short: the single element.
  return reshapeCacheToIncludeOnlyElement(p);
}

bool ROICachedDataset::reshapeCache(const DatasetBoundingBox& requested) {
  // Only elements of the dataset are ever cached: the box is clipped to it.
  DatasetBoundingBox box = requested;
  for (int k = 0; k < 5; ++k) {
    box.start[k] = std::max(box.start[k], 0);
    box.end[k] = std::min(box.end[k], size[k] - 1);
  }
  const bool allocated = cacheStatusMemory != nullptr && cacheStatusMemory->isAllocated();
  if (allocated && box.start == roi.start && box.end == roi.end) return true;
  if (box.isEmpty() || memory == nullptr || cacheStatusMemory == nullptr || !isStorableElementType(elementType))
    return false;

  const DatasetCoordinates newSize = box.end - box.start + kOne;
  DatasetMemory* newData = memory->cloneEmpty();
  DatasetMemory* newStatuses = cacheStatusMemory->cloneEmpty();
  if (newData == nullptr || newStatuses == nullptr || !newData->allocate(newSize, elementType, box.start) ||
      !newData->isAllocated() || !newStatuses->allocate<bool>(newSize, box.start) || !newStatuses->isAllocated()) {
    delete newData;
    delete newStatuses;
    return false;
  }
  fillCacheStatusMemory(newStatuses, false);

  // Carry the computed values of the overlap over. The overlap lies inside both caches, so one box
  // iterator per generation walks it in the same order in both.
  if (allocated && memory->isAllocated() && memory->getExtent() == cacheStatusMemory->getExtent() &&
      memory->getElementType() == newData->getElementType()) {
    DatasetBoundingBox overlap;
    const DatasetCoordinates oldStart = memory->getStart();
    const DatasetCoordinates oldEnd = memory->getEnd();
    for (int k = 0; k < 5; ++k) {
      overlap.start[k] = std::max(oldStart[k], box.start[k]);
      overlap.end[k] = std::min(oldEnd[k], box.end[k]);
    }
    if (!overlap.isEmpty() && !bulk::carryComputedRuns(*memory, *cacheStatusMemory, *newData, *newStatuses, overlap)) {
      alignas(16) unsigned char value[kElementBufferSize];
      const unsigned char computed = 1;
      DatasetCoordinatesIterator from = memory->getStartCoordinatesIterator(overlap);
      DatasetCoordinatesIterator to = newData->getStartCoordinatesIterator(overlap);
      while (from.valid && to.valid) {
        unsigned char status = 0;
        cacheStatusMemory->getElementByBuffer(from, &status);
        if (status != 0) {
          memory->getElementByBuffer(from, value);
          newData->setElementByBuffer(to, value);
          newStatuses->setElementByBuffer(to, &computed);
        }
        memory->incrementCoordinatesIterator(overlap, from);
        newData->incrementCoordinatesIterator(overlap, to);
      }
    }
  }

  cacheSize = newSize;
  roi = box;
  delete memory;
  delete cacheStatusMemory;
  memory = newData;
  cacheStatusMemory = newStatuses;
  cacheLayoutChanged();
  return true;
}

bool ROICachedDataset::reshapeCacheToIncludeBox(const DatasetBoundingBox& box) {
  const bool allocated = cacheStatusMemory != nullptr && cacheStatusMemory->isAllocated();
  DatasetBoundingBox grown;
  for (int k = 0; k < 5; ++k) {
    grown.start[k] = allocated && box.start[k] >= roi.start[k] ? roi.start[k] : std::max(box.start[k], 0);
    grown.end[k] = allocated && roi.end[k] >= box.end[k] ? roi.end[k] : std::min(box.end[k], size[k] - 1);
  }
  return reshapeCache(grown);
}

bool ROICachedDataset::reshapeCacheToIncludeElement(const DatasetCoordinates& p) {
  const bool allocated = cacheStatusMemory != nullptr && cacheStatusMemory->isAllocated();
  DatasetBoundingBox grown;
  for (int k = 0; k < 5; ++k) {
    // A negative margin counts as none, so that the element itself is always included.
    const std::int64_t margin = std::max(lookAheadRange[k], 0);
    const std::int64_t c = p[k];
    grown.start[k] = allocated && p[k] >= roi.start[k] ? roi.start[k]
                                                       : static_cast<int>(std::max<std::int64_t>(c - margin, 0));
    grown.end[k] = allocated && p[k] <= roi.end[k]
                       ? roi.end[k]
                       : static_cast<int>(std::min<std::int64_t>(c + margin, std::int64_t{size[k]} - 1));
  }
  return reshapeCache(grown);
}

bool ROICachedDataset::reshapeCacheToIncludeOnlyElement(const DatasetCoordinates& p) {
  DatasetCoordinates q = p;
  for (int k = 0; k < 5; ++k) q[k] = std::max(std::min(q[k], size[k] - 1), 0);
  return reshapeCache(DatasetBoundingBox(q, q));
}

bool ROICachedDataset::reshapeCacheToFullDataset() {
  return reshapeCache(DatasetBoundingBox(kOrigin, size - kOne));
}

}  // namespace tarv

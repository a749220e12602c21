#ifndef TARV_DATASET_CACHEDDATASET_H
#define TARV_DATASET_CACHEDDATASET_H

#include "dataset/Dataset.h"

namespace tarv {

// A dataset whose elements are computed on first access (calculateElement) and then kept; a
// second memory of bool statuses, laid out like the data memory, marks what is computed.
class CachedDataset : public Dataset {
public:
  explicit CachedDataset(bool createCache);
  ~CachedDataset() override;

  unsigned int getMemoryUsage() const override;
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override;
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override;
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override;
  void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) override;
  void calculate(const DatasetBoundingBox& box) override;
  void calculateFullDataset(Progress* progress) override;
  void reset() override;
  void initializeDataset(const DatasetCoordinates& size, TARVElementType type,
                         const DatasetWorldEmbedding& embedding) override;
  void initializeDataset(DatasetMemory* memory, const DatasetWorldEmbedding& embedding) override;
  using Dataset::initializeDataset;

  // New virtual operations, in this order.
  virtual void resetCache();
  virtual DatasetBoundingBox getCacheRegion();
  virtual bool calculateElement(const DatasetCoordinates& p) = 0;
  virtual bool areCoordinatesInsideCache(const DatasetCoordinates& p);
  virtual bool isBoxInsideCache(const DatasetBoundingBox& box);
  virtual DatasetBoundingBox fitBoxToCacheInterior(const DatasetBoundingBox& box);

  // Raw access to the data memory, bypassing the cache statuses; never computes.
  bool getElementReferenceByBuffer(const DatasetCoordinates& p, void* buffer);
  bool getElementReferenceByBuffer(const DatasetCoordinatesIterator& it, void* buffer);
  void setElementReferenceByBuffer(const DatasetCoordinates& p, const void* buffer);
  void setElementReferenceByBuffer(const DatasetCoordinatesIterator& it, const void* buffer);
  template <ElementValueType T>
  T getElementReference(const DatasetCoordinates& p) {
    getElementReferenceByBuffer(p, elementBuffer);
    return DatasetMemory::getBufferValue<T>(elementBuffer, elementType);
  }
  template <ElementValueType T>
  T getElementReference(const DatasetCoordinatesIterator& it) {
    getElementReferenceByBuffer(it, elementBuffer);
    return DatasetMemory::getBufferValue<T>(elementBuffer, elementType);
  }
  template <ElementValueType T>
  void setElementReference(const DatasetCoordinates& p, T value) {
    DatasetMemory::setBufferValue<T>(elementBuffer, elementType, value);
    setElementReferenceByBuffer(p, elementBuffer);
  }
  template <ElementValueType T>
  void setElementReference(const DatasetCoordinatesIterator& it, T value) {
    DatasetMemory::setBufferValue<T>(elementBuffer, elementType, value);
    setElementReferenceByBuffer(it, elementBuffer);
  }

  // Cache statuses.
  bool getElementCacheStatus(const DatasetCoordinates& p);
  bool getElementCacheStatus(const DatasetCoordinatesIterator& it);
  void setElementCacheStatus(const DatasetCoordinates& p, bool status);
  void setElementCacheStatus(const DatasetCoordinatesIterator& it, bool status);
  void setCacheStatusValues(bool status);
  void setCacheStatusValues(const DatasetBoundingBox& box, bool status);

protected:
  DatasetMemory* cacheStatusMemory = nullptr;
};

}  // namespace tarv

#endif

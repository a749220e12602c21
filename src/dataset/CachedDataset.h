#ifndef TARV_DATASET_CACHEDDATASET_H
#define TARV_DATASET_CACHEDDATASET_H

#include <cstdint>
#include <typeinfo>

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

  // Computes count consecutive elements of one row of the cache (first, then the next positions
  // along x), none of them computed yet, marks them computed and returns how many it did from the
  // first on (0: none, they are left to calculateElement). With check set it only answers how many
  // it would do, and changes nothing.
  using ElementRowCalculator = int (*)(CachedDataset& dataset, const DatasetCoordinates& first, int count,
                                       bool check);

  // Cache statuses.
  bool getElementCacheStatus(const DatasetCoordinates& p);
  bool getElementCacheStatus(const DatasetCoordinatesIterator& it);
  void setElementCacheStatus(const DatasetCoordinates& p, bool status);
  void setElementCacheStatus(const DatasetCoordinatesIterator& it, bool status);
  void setCacheStatusValues(bool status);
  void setCacheStatusValues(const DatasetBoundingBox& box, bool status);

protected:
  // Sets every status of an allocated bool memory to the value.
  static void fillCacheStatusMemory(DatasetMemory* statusMemory, bool status);
  // True when the memory is allocated and holds p in all five components.
  static bool holdsCoordinates(const DatasetMemory* m, const DatasetCoordinates& p);
  // True when the memory is allocated and holds the whole (non-empty) box in all five components.
  static bool holdsBox(const DatasetMemory* m, const DatasetBoundingBox& box);
  // Counts every replacement or release of the data and status memories, so that loops holding an
  // iterator notice when a calculation has moved the cache under them.
  void cacheLayoutChanged() { ++cacheLayoutVersion; }

  // Registers the row calculator of a class. It is used only while the dataset is of exactly that
  // class, so that a further subclass that computes its elements its own way is never bypassed.
  void setElementRowCalculator(ElementRowCalculator calculator, const std::type_info& type) {
    elementRowCalculator = calculator;
    elementRowCalculatorType = &type;
  }

  DatasetMemory* cacheStatusMemory = nullptr;
  std::uint64_t cacheLayoutVersion = 0;
  ElementRowCalculator elementRowCalculator = nullptr;
  const std::type_info* elementRowCalculatorType = nullptr;

private:
  // Computes, from it on, the run of not yet computed elements of it's row that ends at most at
  // limit elements, with the row calculator; returns how many it computed (0: none).
  int calculateRowFrom(const DatasetCoordinatesIterator& it, std::int64_t limit);
  // Elements from it on that are computed, at most limit (0 when it is not computed).
  std::int64_t computedRunFrom(const DatasetCoordinatesIterator& it, std::int64_t limit) const;

  friend class DatasetRowAccess;
};

}  // namespace tarv

#endif

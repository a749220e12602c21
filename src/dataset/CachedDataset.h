#ifndef TARV_DATASET_CACHEDDATASET_H
#define TARV_DATASET_CACHEDDATASET_H

#include <cstddef>
#include <cstdint>
#include <vector>

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

  // The cached forms of Dataset::canReadRow and readRow: the row must lie inside the cache, and
  // every element of it not computed yet must be computable by the row formula.
  bool canReadRowFromCache(const DatasetCoordinates& first, int count);
  void readRowFromCache(const DatasetCoordinates& first, int count, double* values);

  // Computes the elements of the box not computed yet, as calculate(box) does but without
  // announcing the access first: the box must lie inside the cache (false, and nothing done,
  // otherwise). Rows go through the class's row formula where it has one, split over up to
  // threads threads when the class's rows can be computed side by side; the values, statuses
  // and leftovers of element-wise work are those of computing the box element by element.
  bool calculateBoxInBulk(const DatasetBoundingBox& box, int threads);

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
  // A row formula computes count consecutive elements of one row of the cache (first, then the
  // next positions along x), none of them computed yet, stores them with storeRow and returns how
  // many it did from the first on. With check set it only answers how many it would do, and
  // changes nothing. A library class names its own with its name in its constructor; without one
  // the elements are computed one by one with calculateElement. It is used only while the object
  // is of the class that named it (isLibraryClass), so a caller's subclass is always computed
  // element by element. (Not a virtual operation: the virtual operations of the dataset classes
  // keep their order.)
  using RowFormula = int (CachedDataset::*)(const DatasetCoordinates& first, int count, bool check);
  // Names the class under construction (Dataset::setLibraryClass) and its row formula; a class
  // that names none does not inherit its base class's.
  // Rows that are computed side by side (bulk::ConcurrentRowsScope) must then touch nothing but
  // their own elements and read only computed source elements; a class whose formula cannot says
  // so with concurrent false.
  void setLibraryClass(const char* name, RowFormula formula = &CachedDataset::calculateNoRow,
                       bool concurrent = true) {
    Dataset::setLibraryClass(name);
    rowFormula = formula;
    concurrentRowFormula = concurrent;
  }
  template <class Derived>
  void setLibraryClass(const char* name, int (Derived::*formula)(const DatasetCoordinates&, int, bool),
                       bool concurrent = true) {
    setLibraryClass(name, static_cast<RowFormula>(formula), concurrent);
  }
  int applyRowFormula(const DatasetCoordinates& first, int count, bool check) {
    return isLibraryClass() ? (this->*rowFormula)(first, count, check) : 0;
  }
  int calculateNoRow(const DatasetCoordinates&, int, bool) { return 0; }
  // Whether the row lies inside the dataset and the cache, in array memories that storeRow can
  // write. Changes nothing.
  bool holdsRowInCache(const DatasetCoordinates& first, int count);
  // Whether the data and status memories are array memories holding the row.
  bool holdsRow(const DatasetCoordinates& first, int count);
  // Stores the values as setElementReference<double> would, element by element, marks them
  // computed, and leaves the last one in the element buffer: what calculating the elements one by
  // one leaves behind. Only where holdsRow answered true.
  void storeRow(const DatasetCoordinates& first, int count, const double* values);
  // storeRow for elements already in the element type's representation (not bool), one slot of
  // its byte size each, as setElementReferenceByBuffer would store them.
  void storeRowElements(const DatasetCoordinates& first, int count, const void* elements);

  // Counts every replacement or release of the data and status memories, so that loops holding an
  // iterator notice when a calculation has moved the cache under them.
  void cacheLayoutChanged() { ++cacheLayoutVersion; }

  DatasetMemory* cacheStatusMemory = nullptr;
  std::uint64_t cacheLayoutVersion = 0;
  RowFormula rowFormula = &CachedDataset::calculateNoRow;
  bool concurrentRowFormula = true;

private:
  // calculate(box) after its announcement.
  void calculateAnnouncedBox(const DatasetBoundingBox& box);
  // Rows of the box, one per (y, z, t), computed on threads; marks those that the row formula
  // did not compute whole in failed.
  void calculateRowsSideBySide(const DatasetBoundingBox& box, std::size_t rowCount, int threads,
                               std::vector<char>& failed);
  // Computes, from it on, the run of not yet computed elements of it's row that ends at most at
  // limit elements, with the row formula; returns how many it computed (0: none).
  int calculateRowFrom(const DatasetCoordinatesIterator& it, std::int64_t limit);
  // Elements from it on that are computed, at most limit (0 when it is not computed).
  std::int64_t computedRunFrom(const DatasetCoordinatesIterator& it, std::int64_t limit) const;
};

}  // namespace tarv

#endif

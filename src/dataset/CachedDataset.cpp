#include "dataset/CachedDataset.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>

#include "dataset/ArrayDatasetMemory.h"
#include "bulk/ConcurrentRows.h"
#include "bulk/RowReuse.h"
#include "bulk/RowSupport.h"
#include "dataset/DependentDataset.h"
#include "engine/FullEvaluation.h"
#include "engine/ThreadPool.h"

namespace tarv {

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);
const DatasetCoordinates kOne(1, 1, 1, 1, 1);

// The part of the box that lies inside the memory (empty when there is none).
DatasetBoundingBox intersectWithMemory(const DatasetBoundingBox& box, const DatasetMemory* m) {
  DatasetBoundingBox part;
  if (m == nullptr || !m->isAllocated()) return part;
  const DatasetCoordinates start = m->getStart();
  const DatasetCoordinates end = m->getEnd();
  for (int k = 0; k < 5; ++k) {
    part.start[k] = std::max(box.start[k], start[k]);
    part.end[k] = std::min(box.end[k], end[k]);
  }
  return part;
}

bool sameExtent(const DatasetMemory* a, const DatasetMemory* b) {
  return a->isAllocated() && b->isAllocated() && a->getStart() == b->getStart() && a->getEnd() == b->getEnd();
}

// Array memories of one component, where the elements of a row follow each other.
bool rowsFollowEachOther(const DatasetMemory* data, const DatasetMemory* statuses) {
  return data != nullptr && statuses != nullptr && typeid(*data) == typeid(ArrayDatasetMemory) &&
         typeid(*statuses) == typeid(ArrayDatasetMemory) && statuses->getElementType() == TARV_ELEMENT_TYPE_BOOL &&
         data->getSize().c == 1 && sameExtent(data, statuses);
}

// Progress is polled after every element whose count k is a multiple of this.
constexpr std::uint32_t kProgressInterval = 100000u;

}  // namespace

std::int64_t CachedDataset::computedRunFrom(const DatasetCoordinatesIterator& it, std::int64_t limit) const {
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t count = static_cast<std::uint64_t>(limit);
  return static_cast<std::int64_t>(statuses->findBit(it.index, count, false) - it.index);
}

int CachedDataset::calculateRowFrom(const DatasetCoordinatesIterator& it, std::int64_t limit) {
  if (!isLibraryClass() || rowFormula == &CachedDataset::calculateNoRow) return 0;
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t run = statuses->findBit(it.index, static_cast<std::uint64_t>(limit), true) - it.index;
  if (run < 2) return 0;
  const int count = static_cast<int>(std::min<std::uint64_t>(run, 1u << 20));
  return std::max(0, std::min(count, applyRowFormula(it, count, false)));
}

bool CachedDataset::holdsRow(const DatasetCoordinates& first, int count) {
  if (!bulk::rowInside(*this, first, count)) return false;
  ArrayDatasetMemory* data = bulk::arrayHolding(memory, first, count);
  ArrayDatasetMemory* statuses = bulk::arrayHolding(cacheStatusMemory, first, count);
  return data != nullptr && statuses != nullptr && data->getStart() == statuses->getStart() &&
         data->getEnd() == statuses->getEnd() && data->getElementType() == elementType &&
         statuses->getElementType() == TARV_ELEMENT_TYPE_BOOL;
}

bool CachedDataset::holdsRowInCache(const DatasetCoordinates& first, int count) {
  if (!bulk::rowInside(*this, first, count)) return false;
  // A read outside the cache would reshape it first.
  if (!areCoordinatesInsideCache(first) || !areCoordinatesInsideCache(bulk::alongX(first, count - 1))) return false;
  return holdsRow(first, count);
}

bool CachedDataset::canReadRowFromCache(const DatasetCoordinates& first, int count) {
  if (!isLibraryClass() || !holdsRowInCache(first, count)) return false;
  if (bulk::concurrentRows) {
    // Rows read side by side compute nothing: only computed elements can be read.
    const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
    const std::uint64_t index = statuses->getLinearIndex(first);
    return statuses->findBit(index, static_cast<std::uint64_t>(count), false) == index + std::uint64_t(count);
  }
  // A filter without valid input computes nothing.
  if (isDependentDataset() && !static_cast<DependentDataset*>(this)->isInputValid()) return false;
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t index = statuses->getLinearIndex(first);
  const std::uint64_t end = index + static_cast<std::uint64_t>(count);
  for (std::uint64_t i = statuses->findBit(index, end - index, false); i < end;) {
    const std::uint64_t j = statuses->findBit(i, end - i, true);
    const int n = static_cast<int>(j - i);
    if (applyRowFormula(bulk::alongX(first, static_cast<int>(i - index)), n, true) != n) return false;
    i = j < end ? statuses->findBit(j, end - j, false) : end;
  }
  return true;
}

void CachedDataset::readRowFromCache(const DatasetCoordinates& first, int count, double* values) {
  int i = 0;
  while (i < count) {
    // Element reads of a file-backed dataset may replace its memories: look them up each time.
    const DatasetCoordinates p = bulk::alongX(first, i);
    const auto* data = static_cast<const ArrayDatasetMemory*>(memory);
    const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
    const std::uint64_t index = statuses->getLinearIndex(p);
    const std::uint64_t remaining = static_cast<std::uint64_t>(count - i);
    const int computed = static_cast<int>(statuses->findBit(index, remaining, false) - index);
    if (computed > 0) {
      bulk::readElements(*data, data->getLinearIndex(p), computed, values + i);
      i += computed;
      continue;
    }
    const int n = static_cast<int>(statuses->findBit(index, remaining, true) - index);
    if (applyRowFormula(p, n, false) == n) continue;
    values[i] = getElement<double>(p);
    ++i;
  }
}

void CachedDataset::storeRow(const DatasetCoordinates& first, int count, const double* values) {
  if (count <= 0) return;
  auto* data = static_cast<ArrayDatasetMemory*>(memory);
  auto* statuses = static_cast<ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t index = data->getLinearIndex(first);
  dispatchElementType(elementType, [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>) {
      for (int i = 0; i < count; ++i)
        data->setBits(index + static_cast<std::uint64_t>(i), 1, convertElementValue<bool>(values[i]));
    } else {
      T* elements = static_cast<T*>(data->getElementBlock()) + index;
      for (int i = 0; i < count; ++i) elements[i] = convertElementValue<T>(values[i]);
    }
  });
  // Rows computed side by side leave statuses and buffers to the one who split them.
  if (bulk::concurrentRows) return;
  statuses->setBits(statuses->getLinearIndex(first), static_cast<std::uint64_t>(count), true);
  DatasetMemory::setBufferValue<double>(elementBuffer, elementType, values[count - 1]);
  minimumAndMaximumValueCacheStatus = false;
}

void CachedDataset::storeRowElements(const DatasetCoordinates& first, int count, const void* elements) {
  if (count <= 0 || elementType == TARV_ELEMENT_TYPE_BOOL) return;
  auto* data = static_cast<ArrayDatasetMemory*>(memory);
  auto* statuses = static_cast<ArrayDatasetMemory*>(cacheStatusMemory);
  const std::size_t bytes = data->getElementByteSize();
  std::memcpy(static_cast<unsigned char*>(data->getElementBlock()) + data->getLinearIndex(first) * bytes, elements,
              static_cast<std::size_t>(count) * bytes);
  if (bulk::concurrentRows) return;
  minimumAndMaximumValueCacheStatus = false;
  statuses->setBits(statuses->getLinearIndex(first), static_cast<std::uint64_t>(count), true);
  std::memcpy(elementBuffer, static_cast<const unsigned char*>(elements) + (static_cast<std::size_t>(count) - 1) * bytes,
              bytes);
}

CachedDataset::CachedDataset(bool createCache) : Dataset(createCache) {
  if (createCache) cacheStatusMemory = new ArrayDatasetMemory();
  setLibraryClass("CachedDataset");
  isCached = true;
}

CachedDataset::~CachedDataset() {
  if (cacheStatusMemory != nullptr) {
    cacheStatusMemory->release();
    delete cacheStatusMemory;
    cacheStatusMemory = nullptr;
  }
}

void CachedDataset::fillCacheStatusMemory(DatasetMemory* statusMemory, bool status) {
  if (statusMemory == nullptr || !statusMemory->isAllocated()) return;
  auto* array = dynamic_cast<ArrayDatasetMemory*>(statusMemory);
  if (array != nullptr && array->getElementType() == TARV_ELEMENT_TYPE_BOOL && array->getElementBlock() != nullptr) {
    // Bit-packed: one byte holds eight statuses.
    const auto count = static_cast<std::uint64_t>(array->getElementCount());
    std::memset(array->getElementBlock(), status ? 0xff : 0x00, (count + 7) / 8);
    return;
  }
  const unsigned char value = status ? 1 : 0;
  for (DatasetCoordinatesIterator it = statusMemory->getStartCoordinatesIterator(); it.valid;
       statusMemory->incrementCoordinatesIterator(it))
    statusMemory->setElementByBuffer(it, &value);
}

bool CachedDataset::holdsCoordinates(const DatasetMemory* m, const DatasetCoordinates& p) {
  if (m == nullptr || !m->isAllocated()) return false;
  const DatasetCoordinates start = m->getStart();
  const DatasetCoordinates end = m->getEnd();
  for (int k = 0; k < 5; ++k)
    if (p[k] < start[k] || p[k] > end[k]) return false;
  return true;
}

bool CachedDataset::holdsBox(const DatasetMemory* m, const DatasetBoundingBox& box) {
  return !box.isEmpty() && holdsCoordinates(m, box.start) && holdsCoordinates(m, box.end);
}

unsigned int CachedDataset::getMemoryUsage() const {
  // Deliberately 32-bit: the sum wraps beyond 4 GiB.
  unsigned int usage = memory != nullptr ? static_cast<unsigned int>(memory->getMemoryUsage()) : 0u;
  if (cacheStatusMemory != nullptr) usage += static_cast<unsigned int>(cacheStatusMemory->getMemoryUsage());
  return usage;
}

bool CachedDataset::getElementByBuffer(const DatasetCoordinates& p, void* buffer) {
  if (!holdsCoordinates(cacheStatusMemory, p)) return false;
  // Data and status memories share their layout: one linear index serves both.
  const DatasetCoordinatesIterator it(p, true, cacheStatusMemory->getLinearIndex(p));
  unsigned char status = 0;
  cacheStatusMemory->getElementByBuffer(it, &status);
  if (status == 0) {
    if (!calculateElement(p)) return false;
    // The calculation may have moved the cache: address the element anew.
    return getElementReferenceByBuffer(p, buffer);
  }
  return memory->getElementByBuffer(it, buffer);
}

void CachedDataset::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  setElementReferenceByBuffer(p, buffer);
  setElementCacheStatus(p, true);
}

bool CachedDataset::getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) {
  unsigned char status = 0;
  cacheStatusMemory->getElementByBuffer(it, &status);
  if (status == 0) {
    if (!calculateElement(it)) return false;
    return getElementReferenceByBuffer(static_cast<const DatasetCoordinates&>(it), buffer);
  }
  return memory->getElementByBuffer(it, buffer);
}

void CachedDataset::setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) {
  setElementReferenceByBuffer(it, buffer);
  setElementCacheStatus(it, true);
}

bool CachedDataset::getElementReferenceByBuffer(const DatasetCoordinates& p, void* buffer) {
  if (!holdsCoordinates(memory, p)) return false;
  return memory->getElementByBuffer(p, buffer);
}

bool CachedDataset::getElementReferenceByBuffer(const DatasetCoordinatesIterator& it, void* buffer) {
  return memory->getElementByBuffer(it, buffer);
}

void CachedDataset::setElementReferenceByBuffer(const DatasetCoordinates& p, const void* buffer) {
  if (holdsCoordinates(memory, p)) memory->setElementByBuffer(p, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

void CachedDataset::setElementReferenceByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) {
  memory->setElementByBuffer(it, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

bool CachedDataset::getElementCacheStatus(const DatasetCoordinates& p) {
  if (!holdsCoordinates(cacheStatusMemory, p)) return false;
  return cacheStatusMemory->getElement<bool>(p);
}

bool CachedDataset::getElementCacheStatus(const DatasetCoordinatesIterator& it) {
  return cacheStatusMemory->getElement<bool>(it);
}

void CachedDataset::setElementCacheStatus(const DatasetCoordinates& p, bool status) {
  if (holdsCoordinates(cacheStatusMemory, p)) cacheStatusMemory->setElement<bool>(p, status);
}

void CachedDataset::setElementCacheStatus(const DatasetCoordinatesIterator& it, bool status) {
  cacheStatusMemory->setElement<bool>(it, status);
}

void CachedDataset::setCacheStatusValues(bool status) { fillCacheStatusMemory(cacheStatusMemory, status); }

void CachedDataset::setCacheStatusValues(const DatasetBoundingBox& box, bool status) {
  if (cacheStatusMemory == nullptr) return;
  const DatasetBoundingBox fitted = fitBoxToCacheInterior(box);
  auto* array = typeid(*cacheStatusMemory) == typeid(ArrayDatasetMemory)
                    ? static_cast<ArrayDatasetMemory*>(cacheStatusMemory)
                    : nullptr;
  if (array != nullptr && array->getElementType() == TARV_ELEMENT_TYPE_BOOL && holdsBox(array, fitted) &&
      fitted.start.c == array->getStart().c && fitted.end.c == array->getEnd().c) {
    // Rows of the box, with all their components, lie one after the other: one bit range each.
    const std::uint64_t rowLength =
        static_cast<std::uint64_t>(fitted.end.x - fitted.start.x + 1) * static_cast<std::uint64_t>(array->getSize().c);
    DatasetCoordinates p = fitted.start;
    for (p.t = fitted.start.t; p.t <= fitted.end.t; ++p.t)
      for (p.z = fitted.start.z; p.z <= fitted.end.z; ++p.z)
        for (p.y = fitted.start.y; p.y <= fitted.end.y; ++p.y)
          array->setBits(array->getLinearIndex(p), rowLength, status);
    return;
  }
  const unsigned char value = status ? 1 : 0;
  for (DatasetCoordinatesIterator it = cacheStatusMemory->getStartCoordinatesIterator(fitted); it.valid;
       cacheStatusMemory->incrementCoordinatesIterator(fitted, it))
    cacheStatusMemory->setElementByBuffer(it, &value);
}

void CachedDataset::calculate(const DatasetBoundingBox& box) {
  announceAccess(box);
  calculateAnnouncedBox(box);
}

void CachedDataset::calculateAnnouncedBox(const DatasetBoundingBox& box) {
  // Only the part of the box that the cache holds can be computed.
  const DatasetBoundingBox part = intersectWithMemory(box, cacheStatusMemory);
  if (part.isEmpty() || !sameExtent(memory, cacheStatusMemory)) return;
  DatasetMemory* data = memory;
  DatasetMemory* statuses = cacheStatusMemory;
  std::uint64_t version = cacheLayoutVersion;
  for (DatasetCoordinatesIterator it = data->getStartCoordinatesIterator(part); it.valid;
       data->incrementCoordinatesIterator(part, it)) {
    if (version == cacheLayoutVersion && rowsFollowEachOther(data, statuses)) {
      // Whole runs of the row: computed ones are skipped, the others computed together if the
      // dataset can; the iterator then stands on the last element of the run.
      const std::int64_t limit = std::int64_t{part.end.x} - it.x + 1;
      std::int64_t run = computedRunFrom(it, limit);
      if (run == 0) run = calculateRowFrom(it, limit);
      if (run > 0) {
        if (version != cacheLayoutVersion || data != memory || statuses != cacheStatusMemory) return;
        it.x += static_cast<int>(run - 1);
        it.index += static_cast<std::uint64_t>(run - 1);
        continue;
      }
    }
    unsigned char status = 0;
    statuses->getElementByBuffer(it, &status);
    if (status != 0) continue;
    const bool computed = calculateElement(it);
    if (version != cacheLayoutVersion || data != memory || statuses != cacheStatusMemory) {
      // The calculation moved the cache: go on only while the new one still holds the box.
      const DatasetCoordinates p = it;
      setElementCacheStatus(p, computed);
      if (!holdsBox(cacheStatusMemory, part) || !sameExtent(memory, cacheStatusMemory)) return;
      data = memory;
      statuses = cacheStatusMemory;
      version = cacheLayoutVersion;
      it.index = data->getLinearIndex(p);
      continue;
    }
    status = computed ? 1 : 0;
    statuses->setElementByBuffer(it, &status);
  }
}

void CachedDataset::calculateFullDataset(Progress* progress) {
  announceAccessToFullDataset();
  if (isLibraryClass()) {
    if (engine::calculateFullDatasetOnThreads(this, progress)) return;
    // Without a progress object nothing stops the loop, so every source region it reads ends up
    // whole anyway: grown at once instead of step by step.
    if (progress == nullptr) engine::growSourceCachesForFullEvaluation(this);
  }
  if (cacheStatusMemory == nullptr || !sameExtent(memory, cacheStatusMemory)) return;
  DatasetMemory* data = memory;
  DatasetMemory* statuses = cacheStatusMemory;
  std::uint64_t version = cacheLayoutVersion;
  const DatasetBoundingBox extent = data->getExtent();
  // A moved cache can only be walked on if it has the same extent (the index stays the same).
  auto layoutKept = [&]() {
    if (version == cacheLayoutVersion && data == memory && statuses == cacheStatusMemory) return true;
    if (!sameExtent(memory, cacheStatusMemory) || memory->getExtent() != extent) return false;
    data = memory;
    statuses = cacheStatusMemory;
    version = cacheLayoutVersion;
    return true;
  };
  const double count = static_cast<double>(data->getElementCount());
  std::uint32_t k = 0;
  const DatasetCoordinates lastElement = extent.end;
  for (DatasetCoordinatesIterator it = data->getStartCoordinatesIterator(); it.valid;
       data->incrementCoordinatesIterator(it)) {
    std::int64_t run = 0;
    if (rowsFollowEachOther(data, statuses)) {
      // Whole runs of the row, ending at the latest with the next element after which progress
      // is polled: computed ones are skipped, the others computed together if the dataset can.
      std::int64_t limit = std::int64_t{lastElement.x} - it.x + 1;
      if (progress != nullptr) {
        const std::uint32_t untilPoll = (kProgressInterval - k % kProgressInterval) % kProgressInterval;
        limit = std::min<std::int64_t>(limit, std::int64_t{untilPoll} + 1);
      }
      run = computedRunFrom(it, limit);
      if (run == 0) {
        run = calculateRowFrom(it, limit);
        if (run > 0 && !layoutKept()) return;
      }
    }
    if (run > 1) {
      // The iterator moves to the last element of the run; only that one can be a polling point.
      it.x += static_cast<int>(run - 1);
      it.index += static_cast<std::uint64_t>(run - 1);
      if (progress != nullptr) k += static_cast<std::uint32_t>(run - 1);
    } else if (run == 0) {
      unsigned char status = 0;
      statuses->getElementByBuffer(it, &status);
      if (status == 0) {
        const bool computed = calculateElement(it);
        if (!layoutKept()) return;
        status = computed ? 1 : 0;
        statuses->setElementByBuffer(it, &status);
      }
    }
    if (progress != nullptr) {
      if (k % kProgressInterval == 0) {
        progress->setProgress(static_cast<double>(k) / count);
        if (progress->shouldStop()) return;
        if (!layoutKept()) return;
      }
      ++k;
    }
  }
}

bool CachedDataset::calculateBoxInBulk(const DatasetBoundingBox& box, int threads) {
  if (box.isEmpty() || !holdsBox(cacheStatusMemory, box) || !sameExtent(memory, cacheStatusMemory) ||
      !areCoordinatesInsideCache(box.start) || !areCoordinatesInsideCache(box.end))
    return false;
  const bool byRows = isLibraryClass() && rowFormula != &CachedDataset::calculateNoRow && concurrentRowFormula &&
                      elementType != TARV_ELEMENT_TYPE_BOOL && box.start.c == 0 && box.end.c == 0 &&
                      rowsFollowEachOther(memory, cacheStatusMemory) &&
                      (!isDependentDataset() || static_cast<DependentDataset*>(this)->isInputValid());
  // The computed elements of the sources stay as they are while the box is computed.
  const bulk::RowReuseScope reuse;
  const std::size_t rows = static_cast<std::size_t>(box.end.y - box.start.y + 1) *
                           static_cast<std::size_t>(box.end.z - box.start.z + 1) *
                           static_cast<std::size_t>(box.end.t - box.start.t + 1);
  if (!byRows || threads < 2 || rows < 2) {
    calculateAnnouncedBox(box);
    return true;
  }
  const auto rowBox = [&](std::size_t row) {
    DatasetBoundingBox b = box;
    const std::size_t height = static_cast<std::size_t>(box.end.y - box.start.y + 1);
    const std::size_t depth = static_cast<std::size_t>(box.end.z - box.start.z + 1);
    b.start.y = b.end.y = box.start.y + static_cast<int>(row % height);
    b.start.z = b.end.z = box.start.z + static_cast<int>(row / height % depth);
    b.start.t = b.end.t = box.start.t + static_cast<int>(row / height / depth);
    return b;
  };
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t width = static_cast<std::uint64_t>(box.end.x - box.start.x + 1);
  const auto rowComputed = [&](std::size_t row) {
    const std::uint64_t index = statuses->getLinearIndex(rowBox(row).start);
    return statuses->findBit(index, width, false) == index + width;
  };
  // The last row with work is left to the end and computed alone, so that it leaves behind what
  // computing the box element by element leaves.
  std::size_t last = rows;
  while (last > 0 && rowComputed(last - 1)) --last;
  if (last == 0) return true;
  std::vector<char> failed(last - 1, 0);
  calculateRowsSideBySide(box, last - 1, threads, failed);
  bool any = false;
  for (std::size_t row = 0; row + 1 < last; ++row) {
    if (failed[row] != 0) {
      calculateAnnouncedBox(rowBox(row));
      continue;
    }
    auto* statusArray = static_cast<ArrayDatasetMemory*>(cacheStatusMemory);
    statusArray->setBits(statusArray->getLinearIndex(rowBox(row).start), width, true);
    any = true;
  }
  if (any) minimumAndMaximumValueCacheStatus = false;
  calculateAnnouncedBox(rowBox(last - 1));
  return true;
}

void CachedDataset::calculateRowsSideBySide(const DatasetBoundingBox& box, std::size_t rowCount, int threads,
                                            std::vector<char>& failed) {
  const std::size_t height = static_cast<std::size_t>(box.end.y - box.start.y + 1);
  const std::size_t depth = static_cast<std::size_t>(box.end.z - box.start.z + 1);
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cacheStatusMemory);
  const std::uint64_t width = static_cast<std::uint64_t>(box.end.x - box.start.x + 1);
  // Parts of a few rows each, enough of them to balance uneven rows.
  const std::size_t parts = std::min<std::size_t>(rowCount, static_cast<std::size_t>(threads) * 16);
  engine::runParts(parts, threads, [&](std::size_t part) {
    const bulk::ConcurrentRowsScope scope;
    const bulk::RowReuseScope reuse;
    const std::size_t begin = rowCount * part / parts;
    const std::size_t end = rowCount * (part + 1) / parts;
    for (std::size_t row = begin; row < end; ++row) {
      DatasetCoordinates first = box.start;
      first.y += static_cast<int>(row % height);
      first.z += static_cast<int>(row / height % depth);
      first.t += static_cast<int>(row / height / depth);
      const std::uint64_t index = statuses->getLinearIndex(first);
      const std::uint64_t stop = index + width;
      // Runs of elements not computed yet, each through the row formula.
      for (std::uint64_t i = statuses->findBit(index, width, false); i < stop;) {
        const std::uint64_t j = statuses->findBit(i, stop - i, true);
        const int n = static_cast<int>(j - i);
        if (applyRowFormula(bulk::alongX(first, static_cast<int>(i - index)), n, false) != n) {
          failed[row] = 1;
          break;
        }
        i = j < stop ? statuses->findBit(j, stop - j, false) : stop;
      }
    }
  });
}

void CachedDataset::reset() {
  Dataset::reset();
  if (cacheStatusMemory != nullptr) cacheStatusMemory->release();
  cacheLayoutChanged();
}

void CachedDataset::initializeDataset(const DatasetCoordinates& newSize, TARVElementType type,
                                      const DatasetWorldEmbedding& embedding) {
  Dataset::initializeDataset(newSize, type, embedding);
  cacheLayoutChanged();
  if (hasData() && cacheStatusMemory != nullptr && cacheStatusMemory->allocate<bool>(size, kOrigin) &&
      cacheStatusMemory->isAllocated()) {
    setCacheStatusValues(false);
    return;
  }
  reset();
}

void CachedDataset::initializeDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  Dataset::initializeDataset(newMemory, embedding);
  cacheLayoutChanged();
  if (hasData() && cacheStatusMemory != nullptr && cacheStatusMemory->allocate<bool>(size, kOrigin) &&
      cacheStatusMemory->isAllocated()) {
    // Adopted values count as computed.
    setCacheStatusValues(true);
    return;
  }
  reset();
}

void CachedDataset::resetCache() {
  setCacheStatusValues(false);
  resetCacheOfDependingDatasets();
}

DatasetBoundingBox CachedDataset::getCacheRegion() { return DatasetBoundingBox(kOrigin, size - kOne); }

bool CachedDataset::areCoordinatesInsideCache(const DatasetCoordinates& p) {
  if (cacheStatusMemory == nullptr || !cacheStatusMemory->isAllocated()) return false;
  return areCoordinatesInside(p);
}

bool CachedDataset::isBoxInsideCache(const DatasetBoundingBox& box) {
  if (cacheStatusMemory == nullptr || !cacheStatusMemory->isAllocated()) return false;
  return isBoxInside(box);
}

DatasetBoundingBox CachedDataset::fitBoxToCacheInterior(const DatasetBoundingBox& box) {
  return fitBoxToInterior(box);
}

}  // namespace tarv

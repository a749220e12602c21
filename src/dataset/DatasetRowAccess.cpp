#include "dataset/DatasetRowAccess.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <typeinfo>
#include <vector>

#include "dataset/ArrayDatasetMemory.h"
#include "dataset/DependentDataset.h"
#include "dataset/EmptyDataset.h"
#include "dataset/FileReadDataset.h"

namespace tarv {

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);

// The same type. Only the identity of the type information is compared (no string comparison):
// a type that is not recognised is merely left to element access.
bool isType(const std::type_info& a, const std::type_info& b) { return &a == &b || a.name() == b.name(); }

DatasetCoordinates alongX(const DatasetCoordinates& first, int i) {
  DatasetCoordinates p = first;
  p.x += i;
  return p;
}

// The row lies inside the dataset, in component 0 of a one-component dataset.
bool rowInside(const Dataset* d, const DatasetCoordinates& first, int count) {
  const DatasetCoordinates s = d->getSize();
  if (count <= 0 || s.c != 1 || first.c != 0) return false;
  if (first.y < 0 || first.y >= s.y || first.z < 0 || first.z >= s.z || first.t < 0 || first.t >= s.t) return false;
  return first.x >= 0 && static_cast<std::int64_t>(first.x) + count <= s.x;
}

// An array memory (of exactly that class) holding the whole row.
ArrayDatasetMemory* arrayHolding(DatasetMemory* m, const DatasetCoordinates& first, int count) {
  if (m == nullptr || !isType(typeid(*m), typeid(ArrayDatasetMemory)) || !m->isAllocated()) return nullptr;
  const DatasetCoordinates start = m->getStart();
  const DatasetCoordinates end = m->getEnd();
  if (start.c != 0 || end.c != 0) return nullptr;
  if (first.y < start.y || first.y > end.y || first.z < start.z || first.z > end.z || first.t < start.t ||
      first.t > end.t)
    return nullptr;
  if (first.x < start.x || static_cast<std::int64_t>(first.x) + count - 1 > end.x) return nullptr;
  return static_cast<ArrayDatasetMemory*>(m);
}

// Elements index .. index + count - 1 of an array memory, as double.
void readElements(const ArrayDatasetMemory* m, std::uint64_t index, int count, double* values) {
  dispatchElementType(m->getElementType(), [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>) {
      const auto* bits = static_cast<const unsigned char*>(m->getElementBlock());
      for (int i = 0; i < count; ++i) {
        const std::uint64_t bit = index + static_cast<std::uint64_t>(i);
        values[i] = convertElementValue<double>(((bits[bit >> 3] >> (bit & 7)) & 1) != 0);
      }
    } else {
      const T* elements = static_cast<const T*>(m->getElementBlock()) + index;
      for (int i = 0; i < count; ++i) values[i] = convertElementValue<double>(elements[i]);
    }
  });
}

// out[i], for i < width: the sum, from 0.0 and in tap order, of rows[r][i + x] * weights[r * taps + x]
// over the rows r and the taps x of each row. Every output keeps exactly that sequence of double
// multiplications and additions (no fused multiply-add); only neighbouring outputs are computed
// side by side, two to a register. (Which of two NaN operands an addition passes on is the
// compiler's choice on either path: NaN results may differ in sign and payload, nothing else.)
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("fp-contract=off")))
#endif
int correlateRowsFourWide(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights,
                          int width, double* out);

void correlateRows(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights, int width,
                   double* out) {
  constexpr int kBlock = 16;
  // Processors with 256-bit registers take four outputs to a register; the operations on each
  // output stay the same.
  static const bool fourWide = __builtin_cpu_supports("avx");
  int i = fourWide ? correlateRowsFourWide(rows, rowLength, rowCount, taps, weights, width, out) : 0;
  for (; i + kBlock <= width; i += kBlock) {
    __m128d a0 = _mm_setzero_pd(), a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0, a6 = a0, a7 = a0;
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) {
        const __m128d wx = _mm_set1_pd(w[x]);
        const double* s = row + x;
        a0 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s), wx), a0);
        a1 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 2), wx), a1);
        a2 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 4), wx), a2);
        a3 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 6), wx), a3);
        a4 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 8), wx), a4);
        a5 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 10), wx), a5);
        a6 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 12), wx), a6);
        a7 = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(s + 14), wx), a7);
      }
    }
    _mm_storeu_pd(out + i, a0);
    _mm_storeu_pd(out + i + 2, a1);
    _mm_storeu_pd(out + i + 4, a2);
    _mm_storeu_pd(out + i + 6, a3);
    _mm_storeu_pd(out + i + 8, a4);
    _mm_storeu_pd(out + i + 10, a5);
    _mm_storeu_pd(out + i + 12, a6);
    _mm_storeu_pd(out + i + 14, a7);
  }
  for (; i + 2 <= width; i += 2) {
    __m128d a = _mm_setzero_pd();
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) a = _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(row + x), _mm_set1_pd(w[x])), a);
    }
    _mm_storeu_pd(out + i, a);
  }
  for (; i < width; ++i) {
    double a = 0.0;
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) a = row[x] * w[x] + a;
    }
    out[i] = a;
  }
}

// The blocks of 32 outputs of correlateRows, four to a 256-bit register; returns how many outputs
// it computed. Multiplications and additions stay separate instructions (no fused multiply-add).
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((target("avx"), optimize("fp-contract=off")))
#else
__attribute__((target("avx")))
#endif
int correlateRowsFourWide(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights,
                          int width, double* out) {
  constexpr int kBlock = 32;
  // The lambda needs the target of its function as well: clang does not pass it on.
  auto block = [&](int i) __attribute__((target("avx"))) {
    __m256d a0 = _mm256_setzero_pd(), a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0, a6 = a0, a7 = a0;
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) {
        const __m256d wx = _mm256_set1_pd(w[x]);
        const double* s = row + x;
        a0 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s), wx), a0);
        a1 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 4), wx), a1);
        a2 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 8), wx), a2);
        a3 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 12), wx), a3);
        a4 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 16), wx), a4);
        a5 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 20), wx), a5);
        a6 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 24), wx), a6);
        a7 = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(s + 28), wx), a7);
      }
    }
    _mm256_storeu_pd(out + i, a0);
    _mm256_storeu_pd(out + i + 4, a1);
    _mm256_storeu_pd(out + i + 8, a2);
    _mm256_storeu_pd(out + i + 12, a3);
    _mm256_storeu_pd(out + i + 16, a4);
    _mm256_storeu_pd(out + i + 20, a5);
    _mm256_storeu_pd(out + i + 24, a6);
    _mm256_storeu_pd(out + i + 28, a7);
  };
  int i = 0;
  for (; i + kBlock <= width; i += kBlock) block(i);
  // The rest as one more block ending with the row: its first outputs are computed a second time,
  // to the same values.
  if (i < width && width >= kBlock) {
    block(width - kBlock);
    i = width;
  }
  return i;
}

bool isPlainDataset(const Dataset* d) {
  return isType(typeid(*d), typeid(Dataset)) || isType(typeid(*d), typeid(EmptyDataset));
}

// File-backed datasets load a whole block on the read of any element of it; their reads are done
// as element reads, in row order.
bool isFileBacked(const Dataset* d) { return isType(typeid(*d), typeid(FileReadDataset)); }

}  // namespace

CachedDataset::ElementRowCalculator DatasetRowAccess::rowCalculatorOf(CachedDataset* d) {
  if (d == nullptr || d->elementRowCalculator == nullptr || d->elementRowCalculatorType == nullptr) return nullptr;
  return isType(typeid(*d), *d->elementRowCalculatorType) ? d->elementRowCalculator : nullptr;
}

bool DatasetRowAccess::holdsRow(CachedDataset* d, const DatasetCoordinates& first, int count) {
  if (d == nullptr || !rowInside(d, first, count)) return false;
  ArrayDatasetMemory* data = arrayHolding(d->memory, first, count);
  ArrayDatasetMemory* statuses = arrayHolding(d->cacheStatusMemory, first, count);
  return data != nullptr && statuses != nullptr && data->getStart() == statuses->getStart() &&
         data->getEnd() == statuses->getEnd() && data->getElementType() == d->elementType &&
         statuses->getElementType() == TARV_ELEMENT_TYPE_BOOL;
}

bool DatasetRowAccess::canReadRow(Dataset* d, const DatasetCoordinates& first, int count) {
  if (d == nullptr || !rowInside(d, first, count)) return false;
  if (isPlainDataset(d)) {
    const ArrayDatasetMemory* m = arrayHolding(d->memory, first, count);
    return m != nullptr && m->getStart() == kOrigin && m->getElementType() == d->elementType;
  }
  if (!d->isCachedDataset()) return false;
  auto* cached = static_cast<CachedDataset*>(d);
  if (d->isDependentDataset() && !static_cast<DependentDataset*>(d)->isInputValid()) return false;
  // A read outside the cache would reshape it first.
  const DatasetCoordinates last = alongX(first, count - 1);
  if (!cached->areCoordinatesInsideCache(first) || !cached->areCoordinatesInsideCache(last)) return false;
  if (!holdsRow(cached, first, count)) return false;
  if (isFileBacked(d)) {
    // Its element reads load blocks from an open file (reads of a closed one fail).
    const DatasetFileReadModule* module = static_cast<FileReadDataset*>(d)->getFileReadModule();
    return module != nullptr && module->isFileOpen();
  }
  const auto* statuses = static_cast<const ArrayDatasetMemory*>(cached->cacheStatusMemory);
  const std::uint64_t index = statuses->getLinearIndex(first);
  const std::uint64_t end = index + static_cast<std::uint64_t>(count);
  CachedDataset::ElementRowCalculator calculate = rowCalculatorOf(cached);
  for (std::uint64_t i = statuses->findBit(index, end - index, false); i < end;) {
    if (calculate == nullptr) return false;
    const std::uint64_t j = statuses->findBit(i, end - i, true);
    const int n = static_cast<int>(j - i);
    if (calculate(*cached, alongX(first, static_cast<int>(i - index)), n, true) != n) return false;
    i = j < end ? statuses->findBit(j, end - j, false) : end;
  }
  return true;
}

void DatasetRowAccess::readRow(Dataset* d, const DatasetCoordinates& first, int count, double* values) {
  if (isPlainDataset(d)) {
    const auto* m = static_cast<const ArrayDatasetMemory*>(d->memory);
    readElements(m, m->getLinearIndex(first), count, values);
    return;
  }
  auto* cached = static_cast<CachedDataset*>(d);
  CachedDataset::ElementRowCalculator calculate = rowCalculatorOf(cached);
  int i = 0;
  while (i < count) {
    // Element reads of a file-backed dataset may replace its memories: look them up each time.
    const DatasetCoordinates p = alongX(first, i);
    auto* data = static_cast<ArrayDatasetMemory*>(cached->memory);
    auto* statuses = static_cast<ArrayDatasetMemory*>(cached->cacheStatusMemory);
    const std::uint64_t index = statuses->getLinearIndex(p);
    const std::uint64_t remaining = static_cast<std::uint64_t>(count - i);
    const int computed = static_cast<int>(statuses->findBit(index, remaining, false) - index);
    if (computed > 0) {
      readElements(data, data->getLinearIndex(p), computed, values + i);
      i += computed;
      continue;
    }
    if (calculate != nullptr) {
      const int n = static_cast<int>(statuses->findBit(index, remaining, true) - index);
      if (calculate(*cached, p, n, false) == n) continue;
    }
    values[i] = d->getElement<double>(p);
    ++i;
  }
}

void DatasetRowAccess::leaveInReadBuffer(Dataset* d, const DatasetCoordinates& p) {
  if (d->readBuffer == nullptr || d->memory == nullptr) return;
  d->memory->getElementByBuffer(p, d->readBuffer);
}

void DatasetRowAccess::storeRow(CachedDataset* d, const DatasetCoordinates& first, int count, const double* values) {
  if (count <= 0) return;
  auto* data = static_cast<ArrayDatasetMemory*>(d->memory);
  auto* statuses = static_cast<ArrayDatasetMemory*>(d->cacheStatusMemory);
  const std::uint64_t index = data->getLinearIndex(first);
  dispatchElementType(d->elementType, [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>) {
      for (int i = 0; i < count; ++i)
        data->setBits(index + static_cast<std::uint64_t>(i), 1, convertElementValue<bool>(values[i]));
    } else {
      T* elements = static_cast<T*>(data->getElementBlock()) + index;
      for (int i = 0; i < count; ++i) elements[i] = convertElementValue<T>(values[i]);
    }
  });
  statuses->setBits(statuses->getLinearIndex(first), static_cast<std::uint64_t>(count), true);
  DatasetMemory::setBufferValue<double>(d->elementBuffer, d->elementType, values[count - 1]);
  d->minimumAndMaximumValueCacheStatus = false;
}

bool DatasetRowAccess::correlateRow(Dataset* source, Dataset* mask, const DatasetCoordinates& centre, double outside,
                                    const DatasetCoordinates& first, int count, double* values, bool check) {
  if (source == nullptr || mask == nullptr || count <= 0 || !isPlainDataset(mask)) return false;
  const DatasetCoordinates imageSize = source->getSize();
  const DatasetCoordinates templSize = mask->getSize();
  if (templSize.t != 1 || templSize.c != 1 || imageSize.c != 1 || first.c != 0) return false;
  const std::int64_t taps = std::int64_t{templSize.x} * templSize.y * templSize.z;
  if (taps <= 0 || taps > (1 << 20)) return false;
  const ArrayDatasetMemory* maskMemory = arrayHolding(mask->memory, DatasetCoordinates(0, 0, 0, 0, 0), templSize.x);
  if (maskMemory == nullptr || maskMemory->getStart() != kOrigin || maskMemory->getSize() != templSize) return false;

  // Where the template's origin lands, as the element-wise correlation finds it: the template must
  // fit inside the source in every component, else the element is the outside value (nothing read).
  DatasetCoordinates origin;
  bool fitsAcross = true;
  for (int k = 1; k < 5; ++k) {
    const std::int64_t d = std::int64_t{first[k]} - centre[k];
    if (d < 0 || d > std::int64_t{imageSize[k]} - templSize[k]) fitsAcross = false;
    origin[k] = static_cast<int>(d);
  }
  const std::int64_t lastX = std::int64_t{first.x} + count - 1;
  const std::int64_t fitFirst = std::max<std::int64_t>(first.x, centre.x);
  const std::int64_t fitLast = std::min<std::int64_t>(lastX, std::int64_t{imageSize.x} - templSize.x + centre.x);
  if (!fitsAcross || fitFirst > fitLast) {
    if (!check)
      for (int i = 0; i < count; ++i) values[i] = outside;
    return true;
  }
  const int width = static_cast<int>(fitLast - fitFirst + 1);
  const int rowLength = width + templSize.x - 1;
  const int rowCount = templSize.y * templSize.z;
  DatasetCoordinates rowStart(static_cast<int>(fitFirst - centre.x), 0, 0, origin.t, 0);
  if (check) {
    for (int z = 0; z < templSize.z; ++z)
      for (int y = 0; y < templSize.y; ++y) {
        rowStart.y = origin.y + y;
        rowStart.z = origin.z + z;
        if (!canReadRow(source, rowStart, rowLength)) return false;
      }
    return true;
  }

  // Scratch without initialisation; not shared, since reading a row may compute rows of another
  // correlation further up the graph.
  const auto weights = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(taps));
  readElements(maskMemory, 0, static_cast<int>(taps), weights.get());
  const std::size_t rowValues = static_cast<std::size_t>(rowCount) * static_cast<std::size_t>(rowLength);
  const auto rows = std::make_unique_for_overwrite<double[]>(rowValues);
  for (int z = 0; z < templSize.z; ++z)
    for (int y = 0; y < templSize.y; ++y) {
      rowStart.y = origin.y + y;
      rowStart.z = origin.z + z;
      readRow(source, rowStart, rowLength,
              rows.get() + static_cast<std::size_t>(z * templSize.y + y) * static_cast<std::size_t>(rowLength));
    }
  const int before = static_cast<int>(fitFirst - first.x);
  for (int i = 0; i < before; ++i) values[i] = outside;
  correlateRows(rows.get(), static_cast<std::size_t>(rowLength), rowCount, templSize.x, weights.get(), width,
                values + before);
  for (int i = before + width; i < count; ++i) values[i] = outside;
  return true;
}

bool DatasetRowAccess::isPlainInMemory(const Dataset* d) {
  return d != nullptr && isPlainDataset(d) && d->memory != nullptr &&
         isType(typeid(*d->memory), typeid(ArrayDatasetMemory)) &&
         d->memory->isAllocated() && d->memory->getStart() == kOrigin && d->memory->getElementType() == d->elementType;
}

bool DatasetRowAccess::findMinimumAndMaximum(Dataset* d, double& minimum, double& maximum) {
  if (!isPlainInMemory(d) || d->elementType == TARV_ELEMENT_TYPE_BOOL || d->elementBuffer == nullptr) return false;
  const auto* m = static_cast<const ArrayDatasetMemory*>(d->memory);
  const std::uint64_t count = static_cast<std::uint64_t>(m->getElementCount());
  minimum = 0.0;
  maximum = 0.0;
  dispatchElementType(d->elementType, [&]<typename T>() {
    const T* elements = static_cast<const T*>(m->getElementBlock());
    if (count == 0) return;
    double low = convertElementValue<double>(elements[0]);
    double high = low;
    for (std::uint64_t i = 1; i < count; ++i) {
      const double v = convertElementValue<double>(elements[i]);
      if (low > v)
        low = v;
      else if (v > high)
        high = v;
    }
    minimum = low;
    maximum = high;
    std::memcpy(d->elementBuffer, &elements[count - 1], sizeof(T));
  });
  return true;
}

const void* DatasetRowAccess::plainElements(const Dataset* d) {
  return isPlainInMemory(d) ? static_cast<const ArrayDatasetMemory*>(d->memory)->getElementBlock() : nullptr;
}

bool DatasetRowAccess::copyBoxConverting(Dataset* target, Dataset* source, const DatasetBoundingBox& box) {
  if (!isPlainInMemory(target) || !isPlainInMemory(source) || target == source) return false;
  const TARVElementType from = source->elementType;
  const TARVElementType to = target->elementType;
  if (from == TARV_ELEMENT_TYPE_BOOL || to == TARV_ELEMENT_TYPE_BOOL) return false;
  const DatasetCoordinates s = source->getSize();
  const DatasetCoordinates n = target->getSize();
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < 0 || box.end[k] >= s[k] || n[k] != box.end[k] - box.start[k] + 1) return false;
  if (box.start.c != 0 || box.end.c != s.c - 1) return false;
  const auto* sourceMemory = static_cast<const ArrayDatasetMemory*>(source->memory);
  auto* targetMemory = static_cast<ArrayDatasetMemory*>(target->memory);
  // One row of the target (all components of its x positions) follows one row of the source.
  const std::size_t rowElements = static_cast<std::size_t>(n.x) * static_cast<std::size_t>(n.c);
  dispatchElementType(from, [&]<typename From>() {
    dispatchElementType(to, [&]<typename To>() {
      const auto* sourceBlock = static_cast<const unsigned char*>(sourceMemory->getElementBlock());
      auto* targetBlock = static_cast<unsigned char*>(targetMemory->getElementBlock());
      DatasetCoordinates p(0, 0, 0, 0, 0);
      for (p.t = 0; p.t < n.t; ++p.t)
        for (p.z = 0; p.z < n.z; ++p.z)
          for (p.y = 0; p.y < n.y; ++p.y) {
            const unsigned char* in = sourceBlock + sourceMemory->getLinearIndex(p + box.start) * sizeof(From);
            unsigned char* out = targetBlock + targetMemory->getLinearIndex(p) * sizeof(To);
            if constexpr (std::is_same_v<From, To>) {
              std::memcpy(out, in, rowElements * sizeof(To));
            } else {
              for (std::size_t i = 0; i < rowElements; ++i) {
                From value;
                std::memcpy(&value, in + i * sizeof(From), sizeof(From));
                const To converted = convertElementValue<To>(value);
                std::memcpy(out + i * sizeof(To), &converted, sizeof(To));
              }
            }
          }
    });
  });
  target->minimumAndMaximumValueCacheStatus = false;
  return true;
}

}  // namespace tarv

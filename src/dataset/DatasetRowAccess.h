#ifndef TARV_DATASET_DATASETROWACCESS_H
#define TARV_DATASET_DATASETROWACCESS_H

#include <memory>

#include "dataset/CachedDataset.h"

namespace tarv {

// Whole rows of elements (consecutive x positions of one y, z, t, component 0) read and stored at
// once, for the filters that compute rows together. A row is read this way only when that gives
// exactly what reading its elements one by one would give, with the same effect on every dataset
// involved: the dataset is a plain in-memory one, or a cached one of the library whose row lies
// inside its cache and is computed, or can be computed there by its own row calculator, or is
// loaded from its file (file-backed datasets load blocks as element reads do). Anything else (a
// further subclass, an element outside a cache, which would move it) is left to element access.
class DatasetRowAccess {
public:
  DatasetRowAccess() = delete;

  // Whether readRow can deliver elements first .. first + count - 1 along x. Changes nothing.
  static bool canReadRow(Dataset* dataset, const DatasetCoordinates& first, int count);
  // values[i] = the element at first + (i, 0, 0, 0, 0) as double, as getElement<double> gives it.
  // Only after canReadRow said true, with nothing changed in between.
  static void readRow(Dataset* dataset, const DatasetCoordinates& first, int count, double* values);
  // Leaves the raw element at p in the dataset's read buffer, as a last getElement(p) would. The
  // element must be computed (or the dataset plain).
  static void leaveInReadBuffer(Dataset* dataset, const DatasetCoordinates& p);

  // Whether the cache of the dataset holds the row in array memories, so that storeRow can write it.
  static bool holdsRow(CachedDataset* dataset, const DatasetCoordinates& first, int count);
  // Stores the values as setElementReference<double> would, element by element, marks them
  // computed, and leaves the last one in the element buffer.
  static void storeRow(CachedDataset* dataset, const DatasetCoordinates& first, int count, const double* values);

  // values[i] = source->correlatedElement(first + (i, 0, 0, 0, 0), mask, centre, outside), for a
  // plain in-memory mask. With check set, only answers whether that can be done from rows
  // (reading nothing, changing nothing); without, it must have answered true just before.
  static bool correlateRow(Dataset* source, Dataset* mask, const DatasetCoordinates& centre, double outside,
                           const DatasetCoordinates& first, int count, double* values, bool check);

  // The row calculator of a filter whose element is formula(v), v being the element of the same
  // coordinates of source read as double (through getElement<double>).
  template <typename Formula>
  static int calculatePointwiseRow(CachedDataset& dataset, Dataset* source, const DatasetCoordinates& first, int count,
                                   bool check, Formula formula) {
    if (source == nullptr || !holdsRow(&dataset, first, count) || !canReadRow(source, first, count)) return 0;
    if (check) return count;
    const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
    readRow(source, first, count, values.get());
    DatasetCoordinates last = first;
    last.x += count - 1;
    leaveInReadBuffer(source, last);
    for (int i = 0; i < count; ++i) values[i] = formula(values[i]);
    storeRow(&dataset, first, count, values.get());
    return count;
  }

  // The row calculator of a neighbourhood filter whose element is formula(v), v being
  // source->correlatedElement(p, mask, centre, outside) (see correlateRow). 0 without a mask or
  // source, or when the row cannot be computed from rows.
  template <typename Formula>
  static int calculateCorrelatedRow(CachedDataset& dataset, Dataset* source, Dataset* mask,
                                    const DatasetCoordinates& centre, double outside, const DatasetCoordinates& first,
                                    int count, bool check, Formula formula) {
    if (mask == nullptr || source == nullptr || !holdsRow(&dataset, first, count)) return 0;
    if (!correlateRow(source, mask, centre, outside, first, count, nullptr, true)) return 0;
    if (check) return count;
    const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
    correlateRow(source, mask, centre, outside, first, count, values.get(), false);
    for (int i = 0; i < count; ++i) values[i] = formula(values[i]);
    storeRow(&dataset, first, count, values.get());
    return count;
  }

  // Whether the dataset is a plain in-memory one (its element access is Dataset's, on an array).
  static bool isPlainInMemory(const Dataset* dataset);
  // The element block of a plain in-memory dataset (elements in memory order), else null.
  static const void* plainElements(const Dataset* dataset);
  // For a plain in-memory dataset (not bool): the smallest and the largest element as double, found
  // as updateMinimumAndMaximumValue finds them walking the elements in memory order; the last
  // element is left in the element buffer as that walk leaves it. False (nothing done) otherwise.
  static bool findMinimumAndMaximum(Dataset* dataset, double& minimum, double& maximum);
  // For an extraction into a plain in-memory target that has just been given the box's size: every
  // target element p becomes the source element p + box.start, converted to the target's element
  // type as castBufferValue converts (raw bytes when the types are equal). Done only for a plain
  // in-memory source, a box inside it that holds all of its components, and types other than bool;
  // otherwise returns false and writes nothing.
  static bool copyBoxConverting(Dataset* target, Dataset* source, const DatasetBoundingBox& box);

  // The row calculator registered by a dataset of exactly the class that registered it, else null.
  static CachedDataset::ElementRowCalculator rowCalculatorOf(CachedDataset* dataset);
};

}  // namespace tarv

#endif

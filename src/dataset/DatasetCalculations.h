#ifndef TARV_DATASET_DATASETCALCULATIONS_H
#define TARV_DATASET_DATASETCALCULATIONS_H

#include "dataset/Dataset.h"

namespace tarv {

// Builders of the kernel masks of the neighbourhood filters. Every mask is a new in-memory
// double dataset with a default world embedding, owned by the caller.
class DatasetCalculations {
public:
  DatasetCalculations() = delete;

  // The largest binomial mask extent along one axis. Larger extents would ask for masks of
  // gigabytes (and binomial coefficients beyond the double range) from a single parameter.
  static constexpr int maximalBinomialKernelSize = 129;

  // Separable binomial mask of extent (xSize, ySize, zSize) summing to 1: element (x, y, z) is
  // 2^(3 - xSize - ySize - zSize) * C(xSize-1, x) * C(ySize-1, y) * C(zSize-1, z). Null for an
  // extent outside 1..maximalBinomialKernelSize, or when the mask cannot be allocated.
  static Dataset* getBinomialKernelMask(int xSize, int ySize, int zSize);

  // Derivative mask along direction (0 x, 1 y, 2 z) with smoothing across it: (n, n, 1) for
  // dimensionality 2, (n, n, n) for 3, with n = filterSize of 3 or 5. Null for any other
  // dimensionality or filter size, or when the mask cannot be allocated. A direction the
  // dimensionality has no axis for leaves every element 0.
  static Dataset* getGradientCorrelationMask(int dimensionality, int direction, int filterSize);

  // box grown by half the mask extent (rounded down) in x, y, z and t, kept within the int
  // range; box itself for a null mask.
  static DatasetBoundingBox enlargeByHalfMask(const DatasetBoundingBox& box, const Dataset* mask);
};

}  // namespace tarv

#endif

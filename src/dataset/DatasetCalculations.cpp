#include "dataset/DatasetCalculations.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/Mathematics.h"

namespace tarv {

namespace {

// One-dimensional derivative (d) and smoothing (s) kernels, lowest coordinate first.
constexpr double derivative3[3] = {-0.5, 0.0, 0.5};
constexpr double smoothing3[3] = {0.18296875, 0.6340625, 0.18296875};
constexpr double derivative5For3D[5] = {-0.083515625, -0.33296875, 0.0, 0.33296875, 0.083515625};
constexpr double smoothing5For3D[5] = {0.02328125, 0.2414453125, 0.470546875, 0.2414453125, 0.02328125};
constexpr double derivative5For2D[5] = {-0.0830859375, -0.333828125, 0.0, 0.333828125, 0.0830859375};
constexpr double smoothing5For2D[5] = {0.0230859375, 0.2412890625, 0.47125, 0.2412890625, 0.0230859375};

// A new double dataset of the extent, or null when it cannot be allocated.
Dataset* newMask(int xSize, int ySize, int zSize) {
  auto* mask = new Dataset(true);
  mask->newDataset<double>(DatasetCoordinates(xSize, ySize, zSize, 1, 1), DatasetWorldEmbedding());
  if (!mask->hasData()) {
    delete mask;
    return nullptr;
  }
  return mask;
}

std::vector<double> binomialRow(int size) {
  std::vector<double> row(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) row[static_cast<std::size_t>(i)] = Mathematics::binomialCoefficient(size - 1, i);
  return row;
}

}  // namespace

Dataset* DatasetCalculations::getBinomialKernelMask(int xSize, int ySize, int zSize) {
  if (xSize < 1 || ySize < 1 || zSize < 1 || xSize > maximalBinomialKernelSize || ySize > maximalBinomialKernelSize ||
      zSize > maximalBinomialKernelSize)
    return nullptr;
  Dataset* mask = newMask(xSize, ySize, zSize);
  if (mask == nullptr) return nullptr;
  const std::vector<double> bx = binomialRow(xSize);
  const std::vector<double> by = binomialRow(ySize);
  const std::vector<double> bz = binomialRow(zSize);
  const double f = std::pow(2.0, 3 - xSize - ySize - zSize);
  DatasetCoordinates p(0, 0, 0, 0, 0);
  for (p.z = 0; p.z < zSize; ++p.z)
    for (p.y = 0; p.y < ySize; ++p.y)
      for (p.x = 0; p.x < xSize; ++p.x)
        mask->setElement<double>(p, f * bx[static_cast<std::size_t>(p.x)] * by[static_cast<std::size_t>(p.y)] *
                                        bz[static_cast<std::size_t>(p.z)]);
  return mask;
}

Dataset* DatasetCalculations::getGradientCorrelationMask(int dimensionality, int direction, int filterSize) {
  if (filterSize != 3 && filterSize != 5) return nullptr;
  if (dimensionality != 2 && dimensionality != 3) return nullptr;
  const double* d = derivative3;
  const double* s = smoothing3;
  if (filterSize == 5) {
    d = dimensionality == 3 ? derivative5For3D : derivative5For2D;
    s = dimensionality == 3 ? smoothing5For3D : smoothing5For2D;
  }
  const int n = filterSize;
  const int depth = dimensionality == 3 ? n : 1;
  Dataset* mask = newMask(n, n, depth);
  if (mask == nullptr) return nullptr;
  DatasetCoordinates p(0, 0, 0, 0, 0);
  for (p.z = 0; p.z < depth; ++p.z)
    for (p.y = 0; p.y < n; ++p.y)
      for (p.x = 0; p.x < n; ++p.x) {
        double value = 0.0;
        if (dimensionality == 2) {
          if (direction == 0)
            value = d[p.x] * s[p.y];
          else if (direction == 1)
            value = s[p.x] * d[p.y];
        } else {
          if (direction == 0)
            value = d[p.x] * s[p.y] * s[p.z];
          else if (direction == 1)
            value = s[p.x] * d[p.y] * s[p.z];
          else if (direction == 2)
            value = s[p.x] * s[p.y] * d[p.z];
        }
        mask->setElement<double>(p, value);
      }
  return mask;
}

DatasetBoundingBox DatasetCalculations::enlargeByHalfMask(const DatasetBoundingBox& box, const Dataset* mask) {
  if (mask == nullptr) return box;
  const DatasetCoordinates extent = mask->getSize();
  DatasetBoundingBox enlarged = box;
  for (int k = 0; k < 4; ++k) {
    const std::int64_t half = extent[k] / 2;
    enlarged.start[k] = static_cast<int>(std::max<std::int64_t>(std::int64_t{box.start[k]} - half, INT_MIN));
    enlarged.end[k] = static_cast<int>(std::min<std::int64_t>(std::int64_t{box.end[k]} + half, INT_MAX));
  }
  return enlarged;
}

}  // namespace tarv

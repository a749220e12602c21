#ifndef TARV_TESTS_MASKREFERENCE_H
#define TARV_TESTS_MASKREFERENCE_H

// An independent reference for the mask filters: masks built from the documented kernels in
// plain arrays, and correlation by a plain loop over the mask.

#include <cmath>
#include <vector>

#include "dataset/Dataset.h"

namespace tarv::testing {

// A mask in a plain array, x fastest, then y, then z.
struct PlainMask {
  int sizeX = 1, sizeY = 1, sizeZ = 1;
  std::vector<double> values;
  double at(int x, int y, int z) const { return values[(static_cast<std::size_t>(z) * sizeY + y) * sizeX + x]; }
  DatasetCoordinates centre() const { return DatasetCoordinates((sizeX - 1) / 2, (sizeY - 1) / 2, (sizeZ - 1) / 2, 0, 0); }
};

inline std::vector<double> pascalRow(int n) {
  std::vector<double> row = {1.0};
  for (int i = 0; i < n; ++i) {
    std::vector<double> next(row.size() + 1, 0.0);
    for (std::size_t k = 0; k < row.size(); ++k) {
      next[k] += row[k];
      next[k + 1] += row[k];
    }
    row = next;
  }
  return row;
}

inline PlainMask binomialMask(int x, int y, int z) {
  PlainMask m{x, y, z, {}};
  const std::vector<double> bx = pascalRow(x - 1), by = pascalRow(y - 1), bz = pascalRow(z - 1);
  const double f = std::pow(2.0, 3 - x - y - z);
  for (int k = 0; k < z; ++k)
    for (int j = 0; j < y; ++j)
      for (int i = 0; i < x; ++i) m.values.push_back(f * bx[i] * by[j] * bz[k]);
  return m;
}

inline PlainMask gradientMask(int dimensionality, int direction, int n) {
  static const std::vector<double> d3 = {-0.5, 0.0, 0.5};
  static const std::vector<double> s3 = {0.18296875, 0.6340625, 0.18296875};
  static const std::vector<double> d5of3D = {-0.083515625, -0.33296875, 0.0, 0.33296875, 0.083515625};
  static const std::vector<double> s5of3D = {0.02328125, 0.2414453125, 0.470546875, 0.2414453125, 0.02328125};
  static const std::vector<double> d5of2D = {-0.0830859375, -0.333828125, 0.0, 0.333828125, 0.0830859375};
  static const std::vector<double> s5of2D = {0.0230859375, 0.2412890625, 0.47125, 0.2412890625, 0.0230859375};
  const std::vector<double>& d = n == 3 ? d3 : dimensionality == 3 ? d5of3D : d5of2D;
  const std::vector<double>& s = n == 3 ? s3 : dimensionality == 3 ? s5of3D : s5of2D;
  const int depth = dimensionality == 3 ? n : 1;
  PlainMask m{n, n, depth, {}};
  for (int z = 0; z < depth; ++z)
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        double v = 0.0;
        if (dimensionality == 2)
          v = direction == 0 ? d[x] * s[y] : s[x] * d[y];
        else if (direction == 0)
          v = d[x] * s[y] * s[z];
        else if (direction == 1)
          v = s[x] * d[y] * s[z];
        else
          v = s[x] * s[y] * d[z];
        m.values.push_back(v);
      }
  return m;
}

// True when the mask placed with its centre on p lies inside the source in x, y and z.
inline bool maskFits(const DatasetCoordinates& sourceSize, const PlainMask& m, const DatasetCoordinates& p) {
  const DatasetCoordinates c = m.centre();
  const int o[3] = {p.x - c.x, p.y - c.y, p.z - c.z};
  const int s[3] = {sourceSize.x - m.sizeX, sourceSize.y - m.sizeY, sourceSize.z - m.sizeZ};
  for (int k = 0; k < 3; ++k)
    if (o[k] < 0 || o[k] > s[k]) return false;
  return true;
}

// Sum of source(p - centre + m) * mask(m), z outermost and x innermost, from 0.0; the margin
// where the mask does not fit.
inline double correlateByLoop(Dataset& source, const PlainMask& m, const DatasetCoordinates& p, double margin) {
  if (!maskFits(source.getSize(), m, p)) return margin;
  const DatasetCoordinates c = m.centre();
  double sum = 0.0;
  for (int z = 0; z < m.sizeZ; ++z)
    for (int y = 0; y < m.sizeY; ++y)
      for (int x = 0; x < m.sizeX; ++x) {
        const DatasetCoordinates q(p.x - c.x + x, p.y - c.y + y, p.z - c.z + z, p.t, p.c);
        const double product = source.getElement<double>(q) * m.at(x, y, z);
        sum += product;
      }
  return sum;
}

}  // namespace tarv::testing

#endif

#ifndef TARV_CORE_DATASETCOORDINATES_H
#define TARV_CORE_DATASETCOORDINATES_H

#include <ostream>

namespace tarv {

// Integer voxel coordinates: x, y, z, t and the component index c.
class DatasetCoordinates {
public:
  int x = 0;
  int y = 0;
  int z = 0;
  int t = 0;
  int c = 0;

  DatasetCoordinates() = default;
  DatasetCoordinates(int x, int y, int z, int t, int c) : x(x), y(y), z(z), t(t), c(c) {}

  // k = 0..4 for x, y, z, t, c.
  int& operator[](int k) { return k == 0 ? x : k == 1 ? y : k == 2 ? z : k == 3 ? t : c; }
  int operator[](int k) const { return k == 0 ? x : k == 1 ? y : k == 2 ? z : k == 3 ? t : c; }

  DatasetCoordinates operator+(const DatasetCoordinates& o) const {
    return {x + o.x, y + o.y, z + o.z, t + o.t, c + o.c};
  }
  DatasetCoordinates operator-(const DatasetCoordinates& o) const {
    return {x - o.x, y - o.y, z - o.z, t - o.t, c - o.c};
  }
  DatasetCoordinates& operator+=(const DatasetCoordinates& o) { return *this = *this + o; }
  DatasetCoordinates& operator-=(const DatasetCoordinates& o) { return *this = *this - o; }
  bool operator==(const DatasetCoordinates& o) const {
    return x == o.x && y == o.y && z == o.z && t == o.t && c == o.c;
  }
  bool operator!=(const DatasetCoordinates& o) const { return !(*this == o); }
};

// Prints "x, y, z, t, c".
std::ostream& operator<<(std::ostream& os, const DatasetCoordinates& p);

}  // namespace tarv

#endif

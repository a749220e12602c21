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

  // Component-wise; extreme values wrap around instead of overflowing.
  DatasetCoordinates operator+(const DatasetCoordinates& o) const {
    return {add(x, o.x), add(y, o.y), add(z, o.z), add(t, o.t), add(c, o.c)};
  }
  DatasetCoordinates operator-(const DatasetCoordinates& o) const {
    return {add(x, negate(o.x)), add(y, negate(o.y)), add(z, negate(o.z)), add(t, negate(o.t)), add(c, negate(o.c))};
  }
  DatasetCoordinates& operator+=(const DatasetCoordinates& o) { return *this = *this + o; }
  DatasetCoordinates& operator-=(const DatasetCoordinates& o) { return *this = *this - o; }
  bool operator==(const DatasetCoordinates& o) const {
    return x == o.x && y == o.y && z == o.z && t == o.t && c == o.c;
  }
  bool operator!=(const DatasetCoordinates& o) const { return !(*this == o); }

private:
  static int add(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }
  static int negate(int a) { return static_cast<int>(0u - static_cast<unsigned>(a)); }
};

// Prints "x, y, z, t, c".
std::ostream& operator<<(std::ostream& os, const DatasetCoordinates& p);

}  // namespace tarv

#endif

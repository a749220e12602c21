#ifndef TARV_CORE_WORLDCOORDINATES_H
#define TARV_CORE_WORLDCOORDINATES_H

namespace tarv {

// A point in world space: x, y, z and time t.
class WorldCoordinates {
public:
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double t = 0.0;

  WorldCoordinates() = default;
  WorldCoordinates(double x, double y, double z, double t) : x(x), y(y), z(z), t(t) {}

  // k = 0..3 for x, y, z, t.
  double& operator[](int k) { return k == 0 ? x : k == 1 ? y : k == 2 ? z : t; }
  double operator[](int k) const { return k == 0 ? x : k == 1 ? y : k == 2 ? z : t; }

  bool operator==(const WorldCoordinates& o) const { return x == o.x && y == o.y && z == o.z && t == o.t; }
  bool operator!=(const WorldCoordinates& o) const { return !(*this == o); }
};

}  // namespace tarv

#endif

#ifndef TARV_CORE_VECTOR3D_H
#define TARV_CORE_VECTOR3D_H

#include <ostream>

namespace tarv {

// A three-component vector or point of doubles.
class Vector3D {
public:
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;

  Vector3D() = default;
  Vector3D(double x, double y, double z) : x(x), y(y), z(z) {}

  // k = 0, 1, 2 for x, y, z (any other k gives z).
  double& operator[](int k) { return k == 0 ? x : k == 1 ? y : z; }
  double operator[](int k) const { return k == 0 ? x : k == 1 ? y : z; }

  Vector3D operator+(const Vector3D& o) const { return {x + o.x, y + o.y, z + o.z}; }
  Vector3D operator-(const Vector3D& o) const { return {x - o.x, y - o.y, z - o.z}; }
  Vector3D operator-() const { return {-x, -y, -z}; }
  Vector3D operator*(double f) const { return {x * f, y * f, z * f}; }
  Vector3D& operator+=(const Vector3D& o) { return *this = *this + o; }
  Vector3D& operator-=(const Vector3D& o) { return *this = *this - o; }
  Vector3D& operator*=(double f) { return *this = *this * f; }

  double dot(const Vector3D& o) const { return x * o.x + y * o.y + z * o.z; }
  Vector3D cross(const Vector3D& o) const;
  // Euclidean length.
  double getLength() const;
  // Scales to unit length; a zero vector stays zero.
  void normalize();

  bool operator==(const Vector3D& o) const { return x == o.x && y == o.y && z == o.z; }
  bool operator!=(const Vector3D& o) const { return !(*this == o); }
  // Lexicographic on x, then y, then z.
  bool operator<(const Vector3D& o) const;
};

inline Vector3D operator*(double f, const Vector3D& v) { return v * f; }

// Prints "x, y, z".
std::ostream& operator<<(std::ostream& os, const Vector3D& v);

}  // namespace tarv

#endif

#include "core/Vector3D.h"

#include <cmath>

namespace tarv {

Vector3D Vector3D::cross(const Vector3D& o) const {
  return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
}

double Vector3D::getLength() const { return std::hypot(x, y, z); }

void Vector3D::normalize() {
  const double length = getLength();
  if (length > 0.0) {
    x /= length;
    y /= length;
    z /= length;
  }
}

bool Vector3D::operator<(const Vector3D& o) const {
  if (x != o.x) return x < o.x;
  if (y != o.y) return y < o.y;
  return z < o.z;
}

std::ostream& operator<<(std::ostream& os, const Vector3D& v) { return os << v.x << ", " << v.y << ", " << v.z; }

}  // namespace tarv

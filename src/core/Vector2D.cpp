#include "core/Vector2D.h"

#include <cmath>

namespace tarv {

double Vector2D::getLength() const { return std::hypot(x, y); }

void Vector2D::normalize() {
  const double length = getLength();
  if (length > 0.0) {
    x /= length;
    y /= length;
  }
}

bool Vector2D::operator<(const Vector2D& o) const {
  if (x != o.x) return x < o.x;
  return y < o.y;
}

std::ostream& operator<<(std::ostream& os, const Vector2D& v) { return os << v.x << ", " << v.y; }

}  // namespace tarv

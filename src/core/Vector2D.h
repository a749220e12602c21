#ifndef TARV_CORE_VECTOR2D_H
#define TARV_CORE_VECTOR2D_H

#include <ostream>

namespace tarv {

// A two-component vector or point of doubles.
class Vector2D {
public:
  double x = 0.0;
  double y = 0.0;

  Vector2D() = default;
  Vector2D(double x, double y) : x(x), y(y) {}

  // k = 0, 1 for x, y (any other k gives y).
  double& operator[](int k) { return k == 0 ? x : y; }
  double operator[](int k) const { return k == 0 ? x : y; }

  Vector2D operator+(const Vector2D& o) const { return {x + o.x, y + o.y}; }
  Vector2D operator-(const Vector2D& o) const { return {x - o.x, y - o.y}; }
  Vector2D operator-() const { return {-x, -y}; }
  Vector2D operator*(double f) const { return {x * f, y * f}; }
  Vector2D& operator+=(const Vector2D& o) { return *this = *this + o; }
  Vector2D& operator-=(const Vector2D& o) { return *this = *this - o; }
  Vector2D& operator*=(double f) { return *this = *this * f; }

  double dot(const Vector2D& o) const { return x * o.x + y * o.y; }
  // Euclidean length.
  double getLength() const;
  // Scales to unit length; a zero vector stays zero.
  void normalize();

  bool operator==(const Vector2D& o) const { return x == o.x && y == o.y; }
  bool operator!=(const Vector2D& o) const { return !(*this == o); }
  // Lexicographic on x, then y.
  bool operator<(const Vector2D& o) const;
};

inline Vector2D operator*(double f, const Vector2D& v) { return v * f; }

// Prints "x, y".
std::ostream& operator<<(std::ostream& os, const Vector2D& v);

}  // namespace tarv

#endif

#ifndef TARV_CORE_VECTOR_H
#define TARV_CORE_VECTOR_H

#include "core/Coordinates.h"

namespace tarv {

// A run-time sized vector of doubles.
class Vector : public Coordinates<double> {
public:
  Vector() = default;
  explicit Vector(unsigned n, double fill = 0.0) : Coordinates<double>(n, fill) {}
  explicit Vector(const Coordinates<double>& c) : Coordinates<double>(c) {}

  // Euclidean length.
  double getLength() const;
  // Scales to unit length; a zero vector stays zero.
  void normalize();
  double dot(const Vector& o) const;

  // The angle between two unit vectors in radians, in [0, pi]. The cosine is clamped to [-1, 1]
  // against rounding; vectors of different sizes are compared over their common components.
  static double angleBetweenNormalizedVectors(const Vector& a, const Vector& b);
};

}  // namespace tarv

#endif

#include "core/Vector.h"

#include <algorithm>
#include <cmath>

namespace tarv {

double Vector::getLength() const {
  // Scaled by the largest magnitude so that neither huge nor tiny components over- or underflow.
  double largest = 0.0;
  for (double v : values_) largest = std::max(largest, std::fabs(v));
  if (!(largest > 0.0) || std::isinf(largest)) {
    for (double v : values_)
      if (std::isnan(v)) return v;
    return largest;
  }
  double sum = 0.0;
  for (double v : values_) sum += (v / largest) * (v / largest);
  return largest * std::sqrt(sum);
}

void Vector::normalize() {
  const double length = getLength();
  if (length > 0.0)
    for (double& v : values_) v /= length;
}

double Vector::dot(const Vector& o) const {
  const std::size_t n = std::min(values_.size(), o.values_.size());
  double sum = 0.0;
  for (std::size_t i = 0; i < n; ++i) sum += values_[i] * o.values_[i];
  return sum;
}

double Vector::angleBetweenNormalizedVectors(const Vector& a, const Vector& b) {
  return std::acos(std::clamp(a.dot(b), -1.0, 1.0));
}

}  // namespace tarv

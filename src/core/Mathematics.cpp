#include "core/Mathematics.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace tarv {

int Mathematics::round(double v) {
  if (std::isnan(v)) return 0;
  const double r = std::round(v);  // halves away from zero
  if (r <= static_cast<double>(INT_MIN)) return INT_MIN;
  if (r >= static_cast<double>(INT_MAX)) return INT_MAX;
  return static_cast<int>(r);
}

bool Mathematics::areSimilarWithTolerance(double a, double b, double tolerance) {
  return std::fabs(a - b) <= tolerance;
}

double Mathematics::binomialCoefficient(int n, int k) {
  if (k < 0 || n < 0 || k > n) return 0.0;
  const int m = std::min(k, n - k);
  // After step i, result == C(n - m + i, i), so every division is exact while it fits.
  double result = 1.0;
  for (int i = 1; i <= m && std::isfinite(result); ++i)
    result = result * (static_cast<double>(n - m) + i) / i;
  return result;
}

bool Mathematics::pointFiveValue(double v) { return v - std::floor(v) == 0.5; }

bool Mathematics::pointTooCloseToPoints(const Vector3D& p, const std::vector<Vector3D>& points, double minDistance) {
  return std::any_of(points.begin(), points.end(),
                     [&](const Vector3D& q) { return (p - q).getLength() < minDistance; });
}

}  // namespace tarv

#include "core/TransformationMatrix.h"

#include <cmath>
#include <utility>

namespace tarv {

TransformationMatrix::TransformationMatrix() { makeIdentity(); }

void TransformationMatrix::makeIdentity() {
  values_.fill(0.0);
  for (std::size_t i = 0; i < 4; ++i) (*this)(i, i) = 1.0;
}

bool TransformationMatrix::makeInverse() {
  // Gauss-Jordan elimination with partial pivoting on [a | inverse].
  Matrix<4, 4, double> a = *this;
  TransformationMatrix inverse;
  for (std::size_t col = 0; col < 4; ++col) {
    std::size_t pivot = col;
    double best = std::fabs(a(col, col));
    for (std::size_t row = col + 1; row < 4; ++row) {
      const double candidate = std::fabs(a(row, col));
      if (candidate > best) {
        best = candidate;
        pivot = row;
      }
    }
    if (!(best > 0.0) || !std::isfinite(best)) return false;
    if (pivot != col)
      for (std::size_t k = 0; k < 4; ++k) {
        std::swap(a(col, k), a(pivot, k));
        std::swap(inverse(col, k), inverse(pivot, k));
      }
    const double scale = a(col, col);
    for (std::size_t k = 0; k < 4; ++k) {
      a(col, k) /= scale;
      inverse(col, k) /= scale;
    }
    for (std::size_t row = 0; row < 4; ++row) {
      if (row == col) continue;
      const double factor = a(row, col);
      if (factor == 0.0) continue;
      for (std::size_t k = 0; k < 4; ++k) {
        a(row, k) -= factor * a(col, k);
        inverse(row, k) -= factor * inverse(col, k);
      }
    }
  }
  for (double v : inverse.values_)
    if (!std::isfinite(v)) return false;
  *this = inverse;
  return true;
}

void TransformationMatrix::makeScaling(const Vector3D& factors) {
  makeIdentity();
  for (std::size_t i = 0; i < 3; ++i) (*this)(i, i) = factors[static_cast<int>(i)];
}

void TransformationMatrix::makeTranslation(const Vector3D& offset) {
  makeIdentity();
  for (std::size_t i = 0; i < 3; ++i) (*this)(i, 3) = offset[static_cast<int>(i)];
}

void TransformationMatrix::makeRotation(const Vector3D& first, const Vector3D& second) {
  Vector3D u = first;
  Vector3D v = second;
  u.normalize();
  v.normalize();
  Vector3D w = u.cross(v);
  w.normalize();
  makeIdentity();
  for (std::size_t i = 0; i < 3; ++i) {
    const int k = static_cast<int>(i);
    (*this)(i, 0) = u[k];
    (*this)(i, 1) = v[k];
    (*this)(i, 2) = w[k];
  }
}

void TransformationMatrix::concatenate(const TransformationMatrix& m) {
  const Matrix<4, 4, double>& self = *this;
  *this = TransformationMatrix(m * self);
}

void TransformationMatrix::transform(WorldCoordinates& p) const {
  const TransformationMatrix& m = *this;
  const double x = p.x, y = p.y, z = p.z;
  p.x = m(0, 0) * x + m(0, 1) * y + m(0, 2) * z + m(0, 3);
  p.y = m(1, 0) * x + m(1, 1) * y + m(1, 2) * z + m(1, 3);
  p.z = m(2, 0) * x + m(2, 1) * y + m(2, 2) * z + m(2, 3);
}

void TransformationMatrix::transform(Vector3D& v) const {
  const TransformationMatrix& m = *this;
  const double x = v.x, y = v.y, z = v.z;
  v.x = m(0, 0) * x + m(0, 1) * y + m(0, 2) * z;
  v.y = m(1, 0) * x + m(1, 1) * y + m(1, 2) * z;
  v.z = m(2, 0) * x + m(2, 1) * y + m(2, 2) * z;
}

}  // namespace tarv

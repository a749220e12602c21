#ifndef TARV_CORE_MATRIX_H
#define TARV_CORE_MATRIX_H

#include <array>
#include <cstddef>

namespace tarv {

// Fixed-size matrix of R rows and C columns, stored row by row. Starts zeroed.
template <std::size_t R, std::size_t C, typename T>
class Matrix {
public:
  static constexpr std::size_t rows = R;
  static constexpr std::size_t columns = C;

  Matrix() = default;

  // Unchecked access, like std::array.
  T& operator()(std::size_t row, std::size_t column) { return values_[row * C + column]; }
  const T& operator()(std::size_t row, std::size_t column) const { return values_[row * C + column]; }

  // Exact comparison, element by element.
  bool operator==(const Matrix& o) const { return values_ == o.values_; }
  bool operator!=(const Matrix& o) const { return !(*this == o); }

protected:
  std::array<T, R * C> values_{};
};

// Matrix product.
template <std::size_t R, std::size_t K, std::size_t C, typename T>
Matrix<R, C, T> operator*(const Matrix<R, K, T>& a, const Matrix<K, C, T>& b) {
  Matrix<R, C, T> result;
  for (std::size_t i = 0; i < R; ++i)
    for (std::size_t j = 0; j < C; ++j) {
      T sum{};
      for (std::size_t k = 0; k < K; ++k) sum += a(i, k) * b(k, j);
      result(i, j) = sum;
    }
  return result;
}

template <std::size_t N, typename T>
using sqMatrix = Matrix<N, N, T>;

}  // namespace tarv

#endif

#ifndef TARV_CORE_COORDINATES_H
#define TARV_CORE_COORDINATES_H

#include <vector>

namespace tarv {

// A run-time sized list of values.
template <typename T>
class Coordinates {
public:
  Coordinates() = default;
  explicit Coordinates(unsigned n, T fill = T()) : values_(n, fill) {}

  unsigned size() const { return static_cast<unsigned>(values_.size()); }
  T& operator[](unsigned k) { return values_[k]; }
  const T& operator[](unsigned k) const { return values_[k]; }

  bool operator==(const Coordinates& o) const { return values_ == o.values_; }
  bool operator!=(const Coordinates& o) const { return !(*this == o); }

protected:
  std::vector<T> values_;
};

}  // namespace tarv

#endif

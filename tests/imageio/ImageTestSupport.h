#ifndef TARV_TESTS_IMAGEIO_IMAGETESTSUPPORT_H
#define TARV_TESTS_IMAGEIO_IMAGETESTSUPPORT_H

// Voxel types of the image module with the identifiers they must have, and an image without
// voxels.

#include <array>
#include <cstddef>
#include <cstdint>
#include <tuple>

#include "dataset/ImageDataset.h"

namespace tarv::imagetests {

template <typename T, int Id>
struct TypeCase {
  using Type = T;
  static constexpr TypeID id = TypeID(Id);
};

using AllTypes = std::tuple<TypeCase<bool, 1>, TypeCase<signed char, 2>, TypeCase<unsigned char, 3>,
                            TypeCase<short, 4>, TypeCase<unsigned short, 5>, TypeCase<int, 6>,
                            TypeCase<unsigned int, 7>, TypeCase<long, 8>, TypeCase<unsigned long, 9>,
                            TypeCase<float, 10>, TypeCase<double, 11>>;
using NumericTypes = std::tuple<TypeCase<signed char, 2>, TypeCase<unsigned char, 3>, TypeCase<short, 4>,
                                TypeCase<unsigned short, 5>, TypeCase<int, 6>, TypeCase<unsigned int, 7>,
                                TypeCase<long, 8>, TypeCase<unsigned long, 9>, TypeCase<float, 10>,
                                TypeCase<double, 11>>;
using TiffTypes = std::tuple<TypeCase<signed char, 2>, TypeCase<unsigned char, 3>, TypeCase<short, 4>,
                             TypeCase<unsigned short, 5>, TypeCase<int, 6>, TypeCase<unsigned int, 7>,
                             TypeCase<float, 10>>;

template <typename Cases, typename F>
void forEachType(F&& f) {
  std::apply([&](auto... cases) { (f(cases), ...); }, Cases{});
}

using Index = std::array<std::size_t, 3>;

// An image without a typed implementation of its declared type.
class ForeignImage : public ImageDataset {
public:
  explicit ForeignImage(TypeID id) : id_(id) {}
  TypeID type_id() const override { return id_; }
  bool empty() const override { return false; }
  std::array<std::uint64_t, 3> size_array() const override { return {2, 2, 1}; }

private:
  TypeID id_;
};

}  // namespace tarv::imagetests

#endif

#ifndef TARV_IMAGEIO_TYPEDIMAGES_H
#define TARV_IMAGEIO_TYPEDIMAGES_H

// Reaching the typed implementation of an image and the dense layout of its voxels.

#include <array>
#include <cstddef>
#include <type_traits>

#include "dataset/ImageDataset.h"

namespace tarv::imageio {

// Calls f(typed) with the image as its typed implementation (const when the image is); false when
// it has none.
template <typename Image, typename F>
bool withTypedImage(Image* image, F&& f) {
  return dispatchTypeId(image->type_id(), [&]<typename T>() {
    using Typed = std::conditional_t<std::is_const_v<Image>, const TImageDataset<T, 3>, TImageDataset<T, 3>>;
    auto* typed = dynamic_cast<Typed*>(image);
    return typed != nullptr && f(*typed);
  });
}


// Offset of voxel (x, y, z) in a dense buffer holding the box of the given origin and extent,
// x fastest.
inline std::size_t denseOffset(const std::array<std::size_t, 3>& origin, const std::array<std::size_t, 3>& extent,
                               std::size_t x, std::size_t y, std::size_t z) {
  return ((z - origin[2]) * extent[1] + (y - origin[1])) * extent[0] + (x - origin[0]);
}

// The origin of a whole image.
inline constexpr std::array<std::size_t, 3> imageOrigin{0, 0, 0};

}  // namespace tarv::imageio

#endif

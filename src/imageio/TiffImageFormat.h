#ifndef TARV_IMAGEIO_TIFFIMAGEFORMAT_H
#define TARV_IMAGEIO_TIFFIMAGEFORMAT_H

// What plain tiled TIFF images hold: their voxel types and tile grid.

#include <array>
#include <cstddef>
#include <type_traits>

#include "dataset/ImageDataset.h"

namespace tarv::imageio {

// The voxel types a plain TIFF image holds: signed and unsigned 8-, 16- and 32-bit integers, float.
template <typename T>
constexpr bool isTiffVoxelType = (std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) <= 4) ||
                                 std::is_same_v<T, float>;

inline bool isTiffTypeId(TypeID id) { return (id >= TYPE_ID_INT8 && id <= TYPE_ID_UINT32) || id == TYPE_ID_FLOAT; }

// The number of tiles along each axis covering an image of the given size.
inline std::array<std::size_t, 3> tileCounts(const std::array<std::size_t, 3>& size, const std::array<std::size_t, 3>& tile) {
  std::array<std::size_t, 3> counts{};
  for (int k = 0; k < 3; ++k) counts[k] = size[k] / tile[k] + (size[k] % tile[k] != 0 ? 1 : 0);
  return counts;
}

}  // namespace tarv::imageio

#endif

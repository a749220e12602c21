#include "segmentation/CityBlockDistances.h"

#include <algorithm>

namespace tarv::segmentation {

void cityBlockDistanceTransform(std::uint16_t* d, const Index n[3], std::uint32_t cap) {
  // The city-block distance is the sum of the distances along the axes, so sweeps along x,
  // then y, then z (each forwards and backwards) give it exactly. The y and z sweeps carry
  // whole rows at once.
  auto relax = [cap](std::uint16_t* target, const std::uint16_t* from, Index count) {
    for (Index i = 0; i < count; ++i) {
      const std::uint32_t carried = std::min<std::uint32_t>(from[i] + 1u, cap);
      if (carried < target[i]) target[i] = static_cast<std::uint16_t>(carried);
    }
  };
  const Index rowLength = n[0], sliceLength = n[0] * n[1];
  for (Index row = 0; row < n[1] * n[2]; ++row) {
    std::uint16_t* line = d + row * rowLength;
    for (Index x = 1; x < n[0]; ++x) relax(line + x, line + x - 1, 1);
    for (Index x = n[0] - 2; x >= 0; --x) relax(line + x, line + x + 1, 1);
  }
  for (Index z = 0; z < n[2]; ++z) {
    std::uint16_t* slice = d + z * sliceLength;
    for (Index y = 1; y < n[1]; ++y) relax(slice + y * rowLength, slice + (y - 1) * rowLength, rowLength);
    for (Index y = n[1] - 2; y >= 0; --y) relax(slice + y * rowLength, slice + (y + 1) * rowLength, rowLength);
  }
  for (Index z = 1; z < n[2]; ++z) relax(d + z * sliceLength, d + (z - 1) * sliceLength, sliceLength);
  for (Index z = n[2] - 2; z >= 0; --z) relax(d + z * sliceLength, d + (z + 1) * sliceLength, sliceLength);
}

}  // namespace tarv::segmentation

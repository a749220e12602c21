#include "segmentation/SliceMembership.h"

#include <new>

#include "segmentation/CityBlockDistances.h"

namespace tarv::segmentation {

SliceMembership::SliceMembership(Dataset* d, int t, int c, bool withArray) : reader(makeSliceReader(d, t, c)) {
  const DatasetCoordinates size = d->getSize();
  n[0] = size.x;
  n[1] = size.y;
  n[2] = size.z;
  for (int k = 0; k < 3; ++k) {
    objectBox.start[k] = 0;
    objectBox.end[k] = n[k] - 1;
  }
  if (withArray) fillArray();
}

void SliceMembership::computeDistances(unsigned char bit) {
  distances.clear();
  if (bits.empty()) return;
  try {
    distances.resize(bits.size());
  } catch (const std::bad_alloc&) {
    return;
  }
  static constexpr std::uint32_t cap = 65535;
  for (std::size_t i = 0; i < bits.size(); ++i) distances[i] = (bits[i] & bit) ? 0 : cap;
  cityBlockDistanceTransform(distances.data(), n, cap);
}

bool SliceMembership::isOnBorder(Index x, Index y, Index z) {
  static constexpr int step[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
  for (const auto& s : step) {
    const Index nx = x + s[0], ny = y + s[1], nz = z + s[2];
    if (!isInside(nx, ny, nz)) return true;
    const unsigned char f = bits.empty() ? reader->at(static_cast<int>(nx), static_cast<int>(ny), static_cast<int>(nz))
                                         : bits[static_cast<std::size_t>((nz * n[1] + ny) * n[0] + nx)];
    if (!(f & nonZero)) return true;
  }
  return false;
}

void SliceMembership::fillArray() {
  try {
    bits.resize(static_cast<std::size_t>(n[0] * n[1] * n[2]));
  } catch (const std::bad_alloc&) {
    bits.clear();
    return;
  }
  Box3 box;
  bool any = false;
  for (Index z = 0; z < n[2]; ++z)
    for (Index y = 0; y < n[1]; ++y) {
      unsigned char* out = bits.data() + (z * n[1] + y) * n[0];
      reader->row(static_cast<int>(y), static_cast<int>(z), out);
      for (Index x = 0; x < n[0]; ++x) {
        if (!(out[x] & nonZero)) continue;
        const Index p[3] = {x, y, z};
        for (int k = 0; k < 3; ++k) {
          if (!any || p[k] < box.start[k]) box.start[k] = p[k];
          if (!any || p[k] > box.end[k]) box.end[k] = p[k];
        }
        any = true;
      }
    }
  objectBox = any ? box : Box3();
  if (!any) return;
  for (Index z = objectBox.start[2]; z <= objectBox.end[2]; ++z)
    for (Index y = objectBox.start[1]; y <= objectBox.end[1]; ++y)
      for (Index x = objectBox.start[0]; x <= objectBox.end[0]; ++x) {
        unsigned char& f = bits[static_cast<std::size_t>((z * n[1] + y) * n[0] + x)];
        if ((f & nonZero) && isOnBorder(x, y, z)) f |= border;
      }
}

unsigned int countReadsTrue(SliceMembership& slice) {
  unsigned int count = 0;
  for (Index z = 0; z < slice.size(2); ++z)
    for (Index y = 0; y < slice.size(1); ++y)
      for (Index x = 0; x < slice.size(0); ++x)
        if (slice.flags(x, y, z) & readsTrue) ++count;
  return count;
}

}  // namespace tarv::segmentation

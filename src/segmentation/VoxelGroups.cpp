#include "segmentation/VoxelGroups.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <new>

#include "segmentation/Membership.h"

namespace tarv::segmentation {

std::list<DatasetCoordinates> growGroup(Dataset* segmentation, double value, int limit, const DatasetCoordinates& start) {
  std::list<DatasetCoordinates> group;
  if (segmentation == nullptr || !segmentation->areCoordinatesInside(start)) return group;
  const DatasetCoordinates size = segmentation->getSize();
  // A region never holds more elements than one time step and component; where the element
  // type cannot represent a mark, elements are listed again and again, and this bound keeps
  // that growth finite.
  const Index sliceCount = static_cast<Index>(size.x) * size.y * size.z;
  const Index effectiveLimit = std::min<Index>(limit, sliceCount);
  auto mark = [&](const DatasetCoordinates& c, double change) {
    segmentation->setElement<double>(c, segmentation->getElement<double>(c) + change);
  };
  try {
    group.push_back(start);
    mark(start, -1.0);
    Index count = 1;
    for (auto cursor = group.begin(); cursor != group.end(); ++cursor) {
      if (count > effectiveLimit) break;
      for (int axis = 0; axis < 3; ++axis)
        for (int step : {-1, 1}) {
          DatasetCoordinates neighbour = *cursor;
          neighbour[axis] += step;
          if (neighbour[axis] < 0 || neighbour[axis] >= size[axis]) continue;
          if (segmentation->getElement<double>(neighbour) != value) continue;
          group.push_back(neighbour);
          mark(neighbour, -1.0);
          ++count;
        }
    }
  } catch (const std::bad_alloc&) {
    // The list so far is restored and returned.
  }
  for (const DatasetCoordinates& c : group) mark(c, 1.0);
  return group;
}

void removeSmallGroups(Dataset* segmentation, double value, int maximalGroupSize) {
  if (segmentation == nullptr || !segmentation->hasNumericalElementType()) return;
  const DatasetCoordinates size = segmentation->getSize();
  const int limit = maximalGroupSize < INT_MAX ? maximalGroupSize + 1 : INT_MAX;
  for (int t = 0; t < size.t; ++t)
    for (int c = 0; c < size.c; ++c)
      for (int z = 0; z < size.z; ++z)
        for (int y = 0; y < size.y; ++y)
          for (int x = 0; x < size.x; ++x) {
            const DatasetCoordinates p(x, y, z, t, c);
            if (segmentation->getElement<double>(p) != value) continue;
            const std::list<DatasetCoordinates> group = growGroup(segmentation, value, limit, p);
            if (group.empty() || static_cast<Index>(group.size()) > static_cast<Index>(maximalGroupSize)) continue;
            for (const DatasetCoordinates& member : group) segmentation->setElement<bool>(member, false);
          }
}

}  // namespace tarv::segmentation

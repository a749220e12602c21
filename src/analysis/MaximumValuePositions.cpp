#include "analysis/MaximumValuePositions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <new>
#include <stdexcept>
#include <vector>

#include "core/Mathematics.h"
#include "elementtypes/ElementOperations.h"

namespace tarv::analysis {

std::list<Vector3D> spacedMaximumWorldPositions(Dataset& d, int count, double minDistance, int t) {
  std::list<Vector3D> result;
  const DatasetCoordinates size = d.getSize();

  // Too close stays too close, so one pass over the voxels in descending order of value finds
  // all rounds' winners. A NaN wins a round only as the first eligible voxel in scan order, as
  // in a plain scan.
  const std::int64_t voxelCount = static_cast<std::int64_t>(size.x) * size.y * size.z;
  std::vector<double> values;
  std::vector<std::uint32_t> byValue;
  try {
    values.reserve(static_cast<std::size_t>(voxelCount));
    byValue.reserve(static_cast<std::size_t>(voxelCount));
  } catch (const std::bad_alloc&) {
    return result;
  } catch (const std::length_error&) {
    return result;
  }
  const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(size.x - 1, size.y - 1, size.z - 1, t, 0));
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(step); it.valid; d.incrementCoordinatesIterator(step, it)) {
    d.getElementByBuffer(it, value);
    values.push_back(read(value));
  }
  for (std::uint32_t i = 0; i < values.size(); ++i)
    if (!std::isnan(values[i])) byValue.push_back(i);
  std::stable_sort(byValue.begin(), byValue.end(), [&](std::uint32_t a, std::uint32_t b) { return values[a] > values[b]; });

  auto positionOf = [&](std::uint32_t i) {
    return Vector3D(static_cast<double>(i % size.x), static_cast<double>((i / size.x) % size.y),
                    static_cast<double>(i / (static_cast<std::uint32_t>(size.x) * size.y)));
  };
  // Chosen positions in cells at least minDistance wide: a position closer than minDistance lies
  // in one of the 27 cells around.
  const double cellSize = std::max(minDistance, 1.0);
  using Cell = std::array<std::int64_t, 3>;
  std::map<Cell, std::vector<Vector3D>> chosen;
  auto cellOf = [&](const Vector3D& p) {
    return Cell{static_cast<std::int64_t>(std::floor(p.x / cellSize)), static_cast<std::int64_t>(std::floor(p.y / cellSize)),
                static_cast<std::int64_t>(std::floor(p.z / cellSize))};
  };
  std::vector<Vector3D> nearby;
  auto tooClose = [&](std::uint32_t i) {
    const Vector3D p = positionOf(i);
    const Cell centre = cellOf(p);
    nearby.clear();
    for (std::int64_t dz = -1; dz <= 1; ++dz)
      for (std::int64_t dy = -1; dy <= 1; ++dy)
        for (std::int64_t dx = -1; dx <= 1; ++dx) {
          const auto found = chosen.find(Cell{centre[0] + dx, centre[1] + dy, centre[2] + dz});
          if (found != chosen.end()) nearby.insert(nearby.end(), found->second.begin(), found->second.end());
        }
    return Mathematics::pointTooCloseToPoints(p, nearby, minDistance);
  };

  std::size_t scanNext = 0;
  std::size_t valueNext = 0;
  for (int round = 0; round < count; ++round) {
    while (scanNext < values.size() && tooClose(static_cast<std::uint32_t>(scanNext))) ++scanNext;
    if (scanNext == values.size()) break;  // every voxel is too close to the chosen ones
    std::uint32_t winner = static_cast<std::uint32_t>(scanNext);
    if (!std::isnan(values[scanNext])) {
      // Stops at the latest on the voxel at scanNext, which is eligible and not NaN.
      while (valueNext < byValue.size() && tooClose(byValue[valueNext])) ++valueNext;
      if (valueNext < byValue.size()) winner = byValue[valueNext];
    }
    const Vector3D p = positionOf(winner);
    chosen[cellOf(p)].push_back(p);
    const WorldCoordinates w = d.getWorldEmbedding().voxelToWorld(
        DatasetCoordinates(static_cast<int>(p.x), static_cast<int>(p.y), static_cast<int>(p.z), t, 0));
    result.emplace_back(w.x, w.y, w.z);
  }
  return result;
}

}  // namespace tarv::analysis

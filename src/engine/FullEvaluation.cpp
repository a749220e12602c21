#include "engine/FullEvaluation.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/Progress.h"
#include "dataset/CachedDataset.h"
#include "dataset/ROICachedDataset.h"
#include "engine/Evaluation.h"
#include "engine/GraphPlan.h"

namespace tarv::engine {

namespace {

// Progress is polled after every element whose count is a multiple of this.
constexpr std::int64_t kProgressInterval = 100000;

DatasetBoundingBox wholeBox(const DatasetCoordinates& size) {
  return {DatasetCoordinates(0, 0, 0, 0, 0), size - DatasetCoordinates(1, 1, 1, 1, 1)};
}

// Elements first..last (linear, x fastest, one component) as boxes, in order.
std::vector<DatasetBoundingBox> linearRangeAsBoxes(const DatasetCoordinates& size, std::int64_t first,
                                                   std::int64_t last) {
  std::vector<DatasetBoundingBox> boxes;
  const std::int64_t width = size.x;
  const std::int64_t rowsPerVolume = std::int64_t{size.y} * size.z * size.t;
  // Row r as (y, z, t).
  const auto rowStart = [&](std::int64_t row, int x) {
    return DatasetCoordinates(x, static_cast<int>(row % size.y), static_cast<int>(row / size.y % size.z),
                              static_cast<int>(row / size.y / size.z), 0);
  };
  auto addRows = [&](std::int64_t firstRow, std::int64_t lastRow) {
    // Whole rows: the rest of a plane, whole planes (of one t), the start of a plane.
    while (firstRow <= lastRow) {
      const DatasetCoordinates a = rowStart(firstRow, 0);
      std::int64_t end = lastRow;
      if (a.y != 0) {
        end = std::min(lastRow, firstRow + (size.y - 1 - a.y));
      } else {
        const std::int64_t planeRows = size.y;
        const std::int64_t planes = (lastRow - firstRow + 1) / planeRows;
        const std::int64_t planesLeftInT = size.z - a.z;
        if (planes > 0)
          end = firstRow + std::min(planes, planesLeftInT) * planeRows - 1;
        else
          end = lastRow;
      }
      DatasetCoordinates b = rowStart(end, size.x - 1);
      boxes.emplace_back(a, b);
      firstRow = end + 1;
    }
  };
  const std::int64_t firstRow = first / width;
  const std::int64_t lastRow = last / width;
  if (firstRow >= rowsPerVolume) return boxes;
  if (firstRow == lastRow) {
    boxes.emplace_back(rowStart(firstRow, static_cast<int>(first % width)), rowStart(lastRow, static_cast<int>(last % width)));
    return boxes;
  }
  boxes.emplace_back(rowStart(firstRow, static_cast<int>(first % width)), rowStart(firstRow, size.x - 1));
  addRows(firstRow + 1, lastRow - 1);
  boxes.emplace_back(rowStart(lastRow, 0), rowStart(lastRow, static_cast<int>(last % width)));
  return boxes;
}

}  // namespace

void growSourceCachesForFullEvaluation(CachedDataset* result) {
  if (result == nullptr || !result->hasData()) return;
  for (const PlannedNode& node : planGraph(result, wholeBox(result->getSize()))) {
    Dataset* d = node.dataset;
    if (d == result || node.box.isEmpty() || !d->isLibraryClass() || !d->isCachedDataset()) continue;
    if (auto* roi = dynamic_cast<ROICachedDataset*>(d); roi != nullptr && !roi->isBoxInsideCache(node.box))
      roi->reshapeCacheToIncludeBox(node.box);
  }
}

bool calculateFullDatasetOnThreads(CachedDataset* result, Progress* progress) {
  const int threads = getThreadCount();
  if (threads < 2 || result == nullptr || !result->hasData()) return false;
  const DatasetCoordinates size = result->getSize();
  const DatasetBoundingBox whole = wholeBox(size);
  if (size.c != 1 || result->getCacheRegion() != whole || !result->isBoxInsideCache(whole)) return false;
  // The element count as the element loop takes it: the 32-bit signed product of the sizes.
  std::uint32_t product = 1;
  for (int k = 0; k < 5; ++k) product *= static_cast<std::uint32_t>(size[k]);
  const std::int64_t count = static_cast<std::int32_t>(product);
  if (count <= 0) return false;
  growSourceCachesForFullEvaluation(result);
  const double reported = static_cast<double>(count);
  std::int64_t k = 0;
  while (k < count) {
    // Up to and including the next polled element (only element 0 before the first poll).
    const std::int64_t last = progress == nullptr ? count - 1
                              : k == 0         ? 0
                                               : std::min(count - 1, (k / kProgressInterval + 1) * kProgressInterval);
    for (const DatasetBoundingBox& box : linearRangeAsBoxes(size, k, last)) {
      std::vector<PlannedNode> plan = planGraph(result, box);
      plan.pop_back();
      computePlan(plan, CachePlacement::grow, threads);
      if (!result->calculateBoxInBulk(box, threads)) result->calculate(box);
    }
    if (progress != nullptr && last % kProgressInterval == 0) {
      progress->setProgress(static_cast<double>(last) / reported);
      if (progress->shouldStop()) return true;
    }
    k = last + 1;
  }
  return true;
}

}  // namespace tarv::engine

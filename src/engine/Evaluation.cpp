#include "engine/Evaluation.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "core/Progress.h"
#include "dataset/CachedDataset.h"
#include "dataset/Dataset.h"
#include "dataset/ROICachedDataset.h"
#include "engine/FullEvaluation.h"
#include "engine/GraphPlan.h"

namespace tarv::engine {

namespace {

std::atomic<int> requestedThreads{0};

DatasetBoundingBox slabBox(const DatasetCoordinates& size, int z, int depth, int t) {
  return {DatasetCoordinates(0, 0, z, t, 0),
          DatasetCoordinates(size.x - 1, size.y - 1, std::min(z + depth, size.z) - 1, t, size.c - 1)};
}

// Bytes that the caches of the planned datasets take for a plan.
double cacheBytes(const std::vector<PlannedNode>& plan) {
  double bytes = 0;
  for (const PlannedNode& node : plan) {
    if (node.box.isEmpty() || !node.dataset->isCachedDataset()) continue;
    const DatasetCoordinates e = node.box.end - node.box.start + DatasetCoordinates(1, 1, 1, 1, 1);
    const double elements = double(e.x) * e.y * e.z * e.t * e.c;
    bytes += elements * (DatasetMemory::getElementTypeByteSize(node.dataset->getElementType()) + 0.125);
  }
  return bytes;
}

// The slab depth whose plan fits the budget (at least 1): the caches grow linearly with it.
int chooseSlabDepth(Dataset* dataset, const StreamOptions& options, int firstT) {
  const DatasetCoordinates size = dataset->getSize();
  if (options.slabDepth > 0) return std::min(options.slabDepth, size.z);
  const int middle = size.z / 2;
  const double one = cacheBytes(planGraph(dataset, slabBox(size, middle, 1, firstT)));
  const double two = cacheBytes(planGraph(dataset, slabBox(size, middle, 2, firstT)));
  const double perSlice = std::max(two - one, 1.0);
  const double halo = std::max(one - perSlice, 0.0);
  const double budget = static_cast<double>(options.memoryBudget);
  const double depth = (budget - halo) / perSlice;
  return static_cast<int>(std::clamp(depth, 1.0, static_cast<double>(size.z)));
}

}  // namespace

SlabConsumer::~SlabConsumer() = default;

void setThreadCount(int count) { requestedThreads = std::max(count, 0); }

int getThreadCount() {
  const int n = requestedThreads;
  if (n > 0) return n;
  return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

bool calculateBox(Dataset* dataset, const DatasetBoundingBox& box) {
  if (dataset == nullptr || !dataset->hasData()) return false;
  computePlan(planGraph(dataset, box), CachePlacement::grow, getThreadCount());
  return true;
}

StreamResult streamDataset(Dataset* dataset, SlabConsumer& consumer, const StreamOptions& options) {
  if (dataset == nullptr || !dataset->hasData()) return StreamResult::noData;
  const DatasetCoordinates size = dataset->getSize();
  if (options.timeStep >= size.t) return StreamResult::noData;
  const int firstT = options.timeStep >= 0 ? options.timeStep : 0;
  const int lastT = options.timeStep >= 0 ? options.timeStep : size.t - 1;
  const int depth = chooseSlabDepth(dataset, options, firstT);
  const int threads = getThreadCount();
  const double slabs = double(lastT - firstT + 1) * double((size.z + depth - 1) / depth);
  double done = 0;
  for (int t = firstT; t <= lastT; ++t)
    for (int z = 0; z < size.z; z += depth) {
      if (options.progress != nullptr) options.progress->setProgress(done / slabs);
      const DatasetBoundingBox slab = slabBox(size, z, depth, t);
      computePlan(planGraph(dataset, slab), CachePlacement::move, threads);
      if (!consumer.consumeSlab(*dataset, slab)) return StreamResult::refusedByConsumer;
      ++done;
      if (options.progress != nullptr && options.progress->shouldStop()) return StreamResult::stopped;
    }
  return StreamResult::completed;
}

bool calculateInSlabs(Dataset* dataset, Progress* progress, int slabCount) {
  if (dataset == nullptr || !dataset->hasData()) return false;
  const DatasetBoundingBox whole = dataset->getVoxelBoundingBox();
  if (dataset->isLibraryClass() && dataset->isCachedDataset()) {
    auto* cached = static_cast<CachedDataset*>(dataset);
    if (auto* roi = dynamic_cast<ROICachedDataset*>(cached); roi != nullptr && !roi->isBoxInsideCache(whole))
      roi->reshapeCacheToIncludeBox(whole);
    growSourceCachesForFullEvaluation(cached);
  }
  const int depth = whole.end.z - whole.start.z + 1;
  const int steps = whole.end.t - whole.start.t + 1;
  const int slab = std::max(1, (depth * steps + std::max(slabCount, 1) - 1) / std::max(slabCount, 1));
  const double total = static_cast<double>(depth) * steps;
  for (int t = whole.start.t; t <= whole.end.t; ++t)
    for (int z = whole.start.z; z <= whole.end.z; z += slab) {
      if (progress != nullptr) {
        progress->setProgress(((t - whole.start.t) * static_cast<double>(depth) + (z - whole.start.z)) / total);
        if (progress->shouldStop()) return false;
      }
      DatasetBoundingBox box = whole;
      box.start.t = box.end.t = t;
      box.start.z = z;
      box.end.z = std::min(whole.end.z, z + slab - 1);
      calculateBox(dataset, box);
    }
  return true;
}

}  // namespace tarv::engine

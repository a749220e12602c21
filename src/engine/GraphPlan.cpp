#include "engine/GraphPlan.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "dataset/CachedDataset.h"
#include "dataset/DependentDataset.h"
#include "dataset/ROICachedDataset.h"

namespace tarv::engine {

namespace {

// A library filter whose sources the plan follows.
DependentDataset* plannedFilter(Dataset* d) {
  if (d == nullptr || !d->isDependentDataset() || !d->isLibraryClass()) return nullptr;
  auto* filter = static_cast<DependentDataset*>(d);
  return filter->isInputValid() ? filter : nullptr;
}

DatasetBoundingBox clipToDataset(const DatasetBoundingBox& box, const Dataset& d) {
  DatasetBoundingBox clipped = box;
  const DatasetCoordinates size = d.getSize();
  for (int k = 0; k < 5; ++k) {
    clipped.start[k] = std::max(clipped.start[k], 0);
    clipped.end[k] = std::min(clipped.end[k], size[k] - 1);
  }
  return clipped.isEmpty() ? DatasetBoundingBox() : clipped;
}

DatasetBoundingBox unite(const DatasetBoundingBox& a, const DatasetBoundingBox& b) {
  if (a.isEmpty()) return b;
  if (b.isEmpty()) return a;
  DatasetBoundingBox u;
  for (int k = 0; k < 5; ++k) {
    u.start[k] = std::min(a.start[k], b.start[k]);
    u.end[k] = std::max(a.end[k], b.end[k]);
  }
  return u;
}

// Sources before the datasets computed from them (depth-first post-order, without recursion).
std::vector<Dataset*> datasetsAbove(Dataset* result) {
  std::vector<Dataset*> order;
  std::unordered_set<Dataset*> seen{result};
  std::vector<std::pair<Dataset*, std::size_t>> stack{{result, 0}};
  while (!stack.empty()) {
    auto& [d, next] = stack.back();
    DependentDataset* filter = plannedFilter(d);
    const std::vector<Dataset*> sources = filter != nullptr ? filter->getSourceDatasets() : std::vector<Dataset*>();
    if (next < sources.size()) {
      Dataset* source = sources[next++];
      if (source != nullptr && seen.insert(source).second) stack.emplace_back(source, 0);
      continue;
    }
    order.push_back(d);
    stack.pop_back();
  }
  return order;
}

}  // namespace

std::vector<PlannedNode> planGraph(Dataset* result, const DatasetBoundingBox& box) {
  std::vector<PlannedNode> plan;
  if (result == nullptr) return plan;
  const std::vector<Dataset*> order = datasetsAbove(result);
  std::unordered_map<const Dataset*, std::size_t> position;
  for (Dataset* d : order) {
    position.emplace(d, plan.size());
    plan.push_back(PlannedNode{d, DatasetBoundingBox()});
  }
  plan.back().box = clipToDataset(box, *result);
  // From the result up: every dataset's box is final once all that read it are done.
  for (std::size_t i = plan.size(); i-- > 0;) {
    DependentDataset* filter = plannedFilter(plan[i].dataset);
    if (filter == nullptr || plan[i].box.isEmpty()) continue;
    const std::vector<Dataset*> sources = filter->getSourceDatasets();
    for (std::size_t j = 0; j < sources.size(); ++j) {
      if (sources[j] == nullptr) continue;
      PlannedNode& source = plan[position.at(sources[j])];
      source.box = unite(source.box, clipToDataset(filter->getSourceRegion(j, plan[i].box), *sources[j]));
    }
  }
  return plan;
}

void computePlan(const std::vector<PlannedNode>& plan, CachePlacement placement, int threads) {
  for (const PlannedNode& node : plan) {
    Dataset* d = node.dataset;
    if (node.box.isEmpty() || !d->isCachedDataset() || !d->hasData()) continue;
    auto* cached = static_cast<CachedDataset*>(d);
    if (!d->isLibraryClass()) {
      // A caller's class computes itself, announcing as it always does.
      cached->calculate(node.box);
      continue;
    }
    if (auto* roi = dynamic_cast<ROICachedDataset*>(d)) {
      if (placement == CachePlacement::move)
        roi->reshapeCache(node.box);
      else if (!roi->isBoxInsideCache(node.box))
        roi->reshapeCacheToIncludeBox(node.box);
    }
    if (!cached->calculateBoxInBulk(node.box, threads)) cached->calculate(node.box);
  }
}

}  // namespace tarv::engine

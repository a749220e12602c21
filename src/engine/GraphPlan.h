#ifndef TARV_ENGINE_GRAPHPLAN_H
#define TARV_ENGINE_GRAPHPLAN_H

#include <vector>

#include "core/DatasetBoundingBox.h"

namespace tarv {
class Dataset;
}

namespace tarv::engine {

// One dataset of a graph and the box of it that computing the requested box of the graph's
// result needs.
struct PlannedNode {
  Dataset* dataset = nullptr;
  DatasetBoundingBox box;
};

// The datasets above the result, sources before the datasets computed from them, the result
// last, each with the box of it that computing the box of the result reads (the union over the
// datasets that read it; empty when none does). The graph is followed through the library's own
// filters with valid input; a caller's subclass reads its sources itself, so its sources are not
// planned.
std::vector<PlannedNode> planGraph(Dataset* result, const DatasetBoundingBox& box);

// How the caches of datasets with a region of interest are made to hold their boxes: grown to
// include them (a caller's cache keeps what it holds), or moved onto them (streaming).
enum class CachePlacement { grow, move };

// Computes the planned boxes in order, each in bulk on up to threads threads.
void computePlan(const std::vector<PlannedNode>& plan, CachePlacement placement, int threads);

}  // namespace tarv::engine

#endif

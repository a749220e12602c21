#ifndef TARV_ENGINE_EVALUATION_H
#define TARV_ENGINE_EVALUATION_H

// Evaluation of filter graphs in bulk: boxes computed row by row with the classes' row formulas,
// source boxes brought into the sources' caches first, rows split over threads, and whole
// datasets streamed slab by slab through bounded memory.

#include <cstddef>

#include "core/DatasetBoundingBox.h"

namespace tarv {

class Dataset;
class Progress;

namespace engine {

// Threads that bulk evaluation splits its rows over. 0 (the default) means one per core of the
// machine; 1 means strictly single-threaded work. Negative counts are taken as 0. The threads are
// started once, on the first bulk evaluation that uses more than one.
void setThreadCount(int count);
// The count in effect (at least 1).
int getThreadCount();

// Computes every not yet computed element of the box (clipped to the dataset) and, first, the
// boxes of the sources that these elements read, recursively up the graph: each node of the
// graph is computed once per call, in bulk, its rows split over the threads. The caches of the
// nodes with a region of interest are made to hold at least what is computed. Results are those
// of element-wise evaluation, bit for bit; a node that is not one of the library's own classes
// (a caller's subclass) is computed by its own calculate(box). False when the dataset has no data.
bool calculateBox(Dataset* dataset, const DatasetBoundingBox& box);

// Computes every element of the dataset in bulk, slab by slab along z (each time step in turn),
// telling progress the fraction done before each slab and asking it after each whether to stop.
// The caches of the graph's nodes are first grown to the whole boxes they read, so that no slab
// moves a cache and no element is computed twice. Results are those of element-wise evaluation,
// bit for bit; after a stop the slabs not reached stay uncomputed. Unlike calculateFullDataset
// with a progress object, this is bulk work on any number of threads; its reports come per slab.
// False when the dataset has no data or the work was stopped.
bool calculateInSlabs(Dataset* dataset, Progress* progress, int slabCount = 32);

// Receives the slabs of a streamed dataset, in order of t and then z.
class SlabConsumer {
public:
  virtual ~SlabConsumer();
  // Every element of the slab (all x, y and components of its z range, one time step) is
  // computed and can be read from the dataset with any element or row access, until this returns.
  // False stops the stream.
  virtual bool consumeSlab(Dataset& dataset, const DatasetBoundingBox& slab) = 0;
};

struct StreamOptions {
  // z slices per slab; 0 chooses them so that the caches of the graph stay within memoryBudget.
  int slabDepth = 0;
  std::size_t memoryBudget = std::size_t{16} << 20;
  // The one time step to stream; -1 for all.
  int timeStep = -1;
  // Told the fraction of slabs done before each slab, and asked after each whether to stop.
  Progress* progress = nullptr;
};

enum class StreamResult { completed, stopped, refusedByConsumer, noData };

// Computes the dataset slab by slab along z and hands each slab to the consumer. Each node of the
// graph above it keeps only the part that the current slab needs (the slab grown by the graph's
// neighbourhoods): the caches of nodes with a region of interest move with the slabs, so that
// memory is bounded by the slab depth, the graph's halo and its node count, whatever the depth of
// the volume. After the call the caches hold the last slab.
StreamResult streamDataset(Dataset* dataset, SlabConsumer& consumer, const StreamOptions& options = {});

}  // namespace engine
}  // namespace tarv

#endif

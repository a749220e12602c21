#ifndef TARV_ENGINE_FULLEVALUATION_H
#define TARV_ENGINE_FULLEVALUATION_H

namespace tarv {
class CachedDataset;
class Progress;
}  // namespace tarv

namespace tarv::engine {

// Before a library dataset computes itself whole: the caches of the datasets above it that this
// reads (with a region of interest, of the library's classes) are grown to the boxes read, so
// that their rows are computed in bulk on demand instead of growing step by step element by
// element. Nothing is computed here.
void growSourceCachesForFullEvaluation(CachedDataset* result);

// calculateFullDataset's loop after the announcement, on several threads: the elements between
// two progress polls (0, then 1 to 100000, 100001 to 200000, ...) are computed as boxes, each
// with the source boxes it reads first, rows split over the threads; then the poll. The reports,
// their fractions and a stop leave the result as the element loop does: computed up to and
// including the polled element, nothing after it. The caches of the sources it reads are grown
// to the boxes read first (growSourceCachesForFullEvaluation), and after a stop they may hold
// more computed elements than the computed part of the result read. False, with nothing done, where it does not apply: one thread, a
// cache that does not hold the whole dataset, several components.
bool calculateFullDatasetOnThreads(CachedDataset* result, Progress* progress);

}  // namespace tarv::engine

#endif

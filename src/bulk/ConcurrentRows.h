#ifndef TARV_BULK_CONCURRENTROWS_H
#define TARV_BULK_CONCURRENTROWS_H

namespace tarv::bulk {

// Set on a thread while it computes rows of a dataset that other threads compute other rows of.
// Row formulas then write only the elements of their own rows: the shared leftovers of
// element-wise work (element buffers, scratch vectors, cache statuses, the value-range status)
// are left alone, and the one who split the rows restores them afterwards by computing the last
// row alone.
inline thread_local bool concurrentRows = false;

class ConcurrentRowsScope {
public:
  ConcurrentRowsScope() : previous(concurrentRows) { concurrentRows = true; }
  ~ConcurrentRowsScope() { concurrentRows = previous; }
  ConcurrentRowsScope(const ConcurrentRowsScope&) = delete;
  ConcurrentRowsScope& operator=(const ConcurrentRowsScope&) = delete;

private:
  bool previous;
};

}  // namespace tarv::bulk

#endif

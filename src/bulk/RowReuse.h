#ifndef TARV_BULK_ROWREUSE_H
#define TARV_BULK_ROWREUSE_H

#include <atomic>
#include <cstdint>

namespace tarv::bulk {

// Inside a scope the computed elements of the datasets read do not change, so rows read from them
// may be kept and used again by the next row of a correlation (Dataset::correlateRow) on the same
// thread. Scopes are opened by bulk evaluation around work that only reads computed sources.
inline thread_local std::uint64_t rowReuseScope = 0;

class RowReuseScope {
public:
  RowReuseScope() : previous(rowReuseScope) { rowReuseScope = next().fetch_add(1) + 1; }
  ~RowReuseScope() { rowReuseScope = previous; }
  RowReuseScope(const RowReuseScope&) = delete;
  RowReuseScope& operator=(const RowReuseScope&) = delete;

private:
  static std::atomic<std::uint64_t>& next() {
    static std::atomic<std::uint64_t> counter{0};
    return counter;
  }
  std::uint64_t previous;
};

}  // namespace tarv::bulk

#endif

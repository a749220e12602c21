#ifndef TARV_ENGINE_THREADPOOL_H
#define TARV_ENGINE_THREADPOOL_H

#include <cstddef>
#include <functional>

namespace tarv::engine {

// Calls work(part) for every part in [0, parts), on at most threads threads: the caller's and
// those of one pool of workers, started on first use and kept until the program ends. Returns
// when every part is done; an exception thrown by a part is passed on to the caller (the first
// one, after all parts have finished). Called from inside a part, or with threads < 2, it runs
// the parts on the calling thread, in order.
void runParts(std::size_t parts, int threads, const std::function<void(std::size_t part)>& work);

}  // namespace tarv::engine

#endif

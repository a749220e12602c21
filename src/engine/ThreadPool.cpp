#include "engine/ThreadPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace tarv::engine {

namespace {

thread_local bool insidePart = false;

class WorkerPool {
public:
  ~WorkerPool() {
    {
      std::lock_guard lock(mutex);
      stopping = true;
    }
    wake.notify_all();
    for (std::thread& worker : workers) worker.join();
  }

  void run(std::size_t parts, int threads, const std::function<void(std::size_t)>& work) {
    // One run at a time: callers on several threads of their own take turns.
    std::lock_guard turn(runMutex);
    const std::size_t helpers = std::min<std::size_t>(static_cast<std::size_t>(threads) - 1, parts - 1);
    {
      std::lock_guard lock(mutex);
      while (workers.size() < helpers) workers.emplace_back([this] { serve(); });
      task = &work;
      partCount = parts;
      nextPart = 0;
      finishedParts = 0;
      wanted = helpers;
      failure = nullptr;
      ++generation;
    }
    wake.notify_all();
    doParts();
    std::unique_lock lock(mutex);
    done.wait(lock, [this] { return finishedParts == partCount && joined == wanted && active == 0; });
    // No worker may join a run that has ended: one woken late would read the next run's state.
    task = nullptr;
    wanted = 0;
    joined = 0;
    if (failure) std::rethrow_exception(failure);
  }

private:
  void serve() {
    std::uint64_t seen = 0;
    std::unique_lock lock(mutex);
    for (;;) {
      wake.wait(lock, [&] { return stopping || (generation != seen && joined < wanted); });
      if (stopping) return;
      seen = generation;
      ++joined;
      ++active;
      lock.unlock();
      doParts();
      lock.lock();
      --active;
      done.notify_all();
    }
  }

  void doParts() {
    insidePart = true;
    for (;;) {
      const std::size_t part = nextPart.fetch_add(1);
      if (part >= partCount) break;
      try {
        (*task)(part);
      } catch (...) {
        std::lock_guard lock(mutex);
        if (!failure) failure = std::current_exception();
      }
      std::lock_guard lock(mutex);
      if (++finishedParts == partCount) done.notify_all();
    }
    insidePart = false;
  }

  std::mutex runMutex;
  std::mutex mutex;
  std::condition_variable wake;
  std::condition_variable done;
  std::vector<std::thread> workers;
  const std::function<void(std::size_t)>* task = nullptr;
  std::size_t partCount = 0;
  std::atomic<std::size_t> nextPart{0};
  std::size_t finishedParts = 0;
  std::size_t wanted = 0;
  std::size_t joined = 0;
  // Workers inside doParts.
  std::size_t active = 0;
  std::uint64_t generation = 0;
  std::exception_ptr failure;
  bool stopping = false;
};

WorkerPool& pool() {
  static WorkerPool instance;
  return instance;
}

}  // namespace

void runParts(std::size_t parts, int threads, const std::function<void(std::size_t)>& work) {
  if (parts == 0) return;
  if (threads < 2 || parts < 2 || insidePart) {
    for (std::size_t part = 0; part < parts; ++part) work(part);
    return;
  }
  pool().run(parts, threads, work);
}

}  // namespace tarv::engine

#include "engine/ThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

using tarv::engine::runParts;

// Every part runs exactly once, whatever the thread count.
TEST(ThreadPoolThreadTest, EveryPartRunsOnce) {
  for (int threads : {1, 2, 3, 8})
    for (std::size_t parts : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{7}, std::size_t{1000}}) {
      std::vector<std::atomic<int>> runs(parts);
      runParts(parts, threads, [&](std::size_t part) { runs[part].fetch_add(1); });
      for (std::size_t part = 0; part < parts; ++part)
        ASSERT_EQ(runs[part].load(), 1) << "threads " << threads << ", parts " << parts << ", part " << part;
    }
}

// Parts run on several threads when asked to, and on the caller's alone with one.
TEST(ThreadPoolThreadTest, PartsRunOnTheThreadsAskedFor) {
  const std::thread::id caller = std::this_thread::get_id();
  std::atomic<int> elsewhere{0};
  runParts(64, 1, [&](std::size_t) {
    if (std::this_thread::get_id() != caller) elsewhere.fetch_add(1);
  });
  EXPECT_EQ(elsewhere.load(), 0) << "one thread: the caller's only";
  // With two threads, parts that wait for each other finish only if they run side by side.
  std::atomic<int> arrived{0};
  runParts(2, 2, [&](std::size_t) {
    arrived.fetch_add(1);
    while (arrived.load() < 2) std::this_thread::yield();
  });
  EXPECT_EQ(arrived.load(), 2);
}

// A part that throws: the others still run, and the caller gets the exception.
TEST(ThreadPoolThreadTest, AnExceptionReachesTheCaller) {
  std::atomic<int> runs{0};
  EXPECT_THROW(runParts(50, 2,
                        [&](std::size_t part) {
                          runs.fetch_add(1);
                          if (part == 13) throw std::runtime_error("part 13");
                        }),
               std::runtime_error);
  EXPECT_EQ(runs.load(), 50);
  // The pool is usable afterwards.
  std::atomic<int> again{0};
  runParts(10, 2, [&](std::size_t) { again.fetch_add(1); });
  EXPECT_EQ(again.load(), 10);
}

// Parts that split their own work again run it on their own thread, in order; callers on threads
// of their own take turns.
TEST(ThreadPoolThreadTest, NestedAndConcurrentCallersFinish) {
  std::atomic<int> inner{0};
  runParts(8, 2, [&](std::size_t) {
    std::vector<int> order;
    runParts(5, 2, [&](std::size_t part) { order.push_back(static_cast<int>(part)); });
    if (order == std::vector<int>{0, 1, 2, 3, 4}) inner.fetch_add(1);
  });
  EXPECT_EQ(inner.load(), 8);
  std::atomic<long> total{0};
  std::vector<std::thread> callers;
  for (int c = 0; c < 4; ++c)
    callers.emplace_back([&] {
      for (int round = 0; round < 20; ++round) runParts(16, 3, [&](std::size_t part) { total.fetch_add(long(part)); });
    });
  for (std::thread& t : callers) t.join();
  EXPECT_EQ(total.load(), 4L * 20 * (15 * 16 / 2));
}

// Runs that want fewer workers than the pool holds, one right after the other: an idle worker
// woken late must not join a run that has ended while the next one starts.
TEST(ThreadPoolThreadTest, IdleWorkersStayOutOfEndedRuns) {
  runParts(64, 8, [](std::size_t) {});
  long total = 0;
  std::atomic<long> sum{0};
  for (int round = 0; round < 3000; ++round) {
    const std::size_t parts = 2 + static_cast<std::size_t>(round % 5);
    runParts(parts, 2 + round % 3, [&](std::size_t part) { sum.fetch_add(long(part) + 1); });
    total += long(parts * (parts + 1) / 2);
  }
  EXPECT_EQ(sum.load(), total);
}

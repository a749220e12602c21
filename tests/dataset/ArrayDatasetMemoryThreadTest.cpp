#include "dataset/ArrayDatasetMemory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

using namespace tarv;

// Memories of 1 to 64 MB take their blocks from a pool shared by all threads. Several threads
// allocating, filling, cloning and releasing such memories at once must never share a block.

namespace {

constexpr int threadCount = 4;

// 256 x 256 x (16 + k) unsigned ints: 4 MB and more, inside the pooled range.
DatasetCoordinates pooledSize(int k) { return DatasetCoordinates(256, 256, 16 + k % 5, 1, 1); }

std::uint32_t pattern(int thread, int round, std::uint64_t index) {
  return (static_cast<std::uint32_t>(thread) << 28) ^ (static_cast<std::uint32_t>(round) << 20) ^
         static_cast<std::uint32_t>(index);
}

// Fills the memory with the pattern of (thread, round); false when it holds no block.
bool fill(ArrayDatasetMemory& memory, int thread, int round) {
  auto* words = static_cast<std::uint32_t*>(memory.getElementBlock());
  if (words == nullptr) return false;
  const std::uint64_t count = static_cast<std::uint64_t>(memory.getElementCount());
  for (std::uint64_t i = 0; i < count; ++i) words[i] = pattern(thread, round, i);
  return true;
}

// The index of the first element that does not hold the pattern, or the element count.
std::uint64_t firstMismatch(const ArrayDatasetMemory& memory, int thread, int round) {
  const auto* words = static_cast<const std::uint32_t*>(memory.getElementBlock());
  const std::uint64_t count = static_cast<std::uint64_t>(memory.getElementCount());
  for (std::uint64_t i = 0; i < count; ++i)
    if (words[i] != pattern(thread, round, i)) return i;
  return count;
}

}  // namespace

TEST(ArrayDatasetMemoryThreads, PooledBlocksAreNeverSharedBetweenThreads) {
  constexpr int rounds = 40;
  std::atomic<int> failures{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t)
    threads.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      for (int round = 0; round < rounds; ++round) {
        ArrayDatasetMemory memory;
        if (!memory.allocate(pooledSize(t + round), TARV_ELEMENT_TYPE_UNSIGNED_INT, DatasetCoordinates(0, 0, 0, 0, 0)) ||
            !fill(memory, t, round)) {
          failures.fetch_add(1);
          continue;
        }
        // A clone, then the original released back to the pool while the clone lives on.
        std::unique_ptr<DatasetMemory> copy(memory.clone());
        auto* clone = dynamic_cast<ArrayDatasetMemory*>(copy.get());
        memory.release();
        std::this_thread::yield();
        if (clone == nullptr || firstMismatch(*clone, t, round) != static_cast<std::uint64_t>(clone->getElementCount()))
          failures.fetch_add(1);
      }
    });
  go.store(true);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0) << "expected every thread to keep its own values in its own blocks";
}

TEST(ArrayDatasetMemoryThreads, ReusingCloneHandsTheBlockOverWithinOneThread) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t)
    threads.emplace_back([&, t] {
      ArrayDatasetMemory source;
      ArrayDatasetMemory donor;
      const DatasetCoordinates size = pooledSize(t);
      const DatasetCoordinates origin(0, 0, 0, 0, 0);
      for (int round = 0; round < 20; ++round) {
        if (!source.allocate(size, TARV_ELEMENT_TYPE_UNSIGNED_INT, origin) || !fill(source, t, round) ||
            !donor.allocate(size, TARV_ELEMENT_TYPE_UNSIGNED_INT, origin)) {
          failures.fetch_add(1);
          continue;
        }
        const void* donorBlock = donor.getElementBlock();
        std::unique_ptr<DatasetMemory> copy(source.cloneReusing(donor));
        auto* clone = dynamic_cast<ArrayDatasetMemory*>(copy.get());
        if (clone == nullptr || clone->getElementBlock() != donorBlock || donor.isAllocated() ||
            firstMismatch(*clone, t, round) != static_cast<std::uint64_t>(clone->getElementCount()))
          failures.fetch_add(1);
        source.release();
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0)
      << "expected each clone to take its donor's block and hold the source's values, in every thread";
}

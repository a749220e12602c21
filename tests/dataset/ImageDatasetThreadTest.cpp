#include "dataset/ImageDataset.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace tarv;

namespace {

class CountedImage : public TImageDataset<float, 3> {
public:
  explicit CountedImage(std::atomic<int>* deletes) : TImageDataset<float, 3>(8, 8, 8), deletes_(deletes) {}
  ~CountedImage() override { deletes_->fetch_add(1); }

private:
  std::atomic<int>* deletes_;
};

}  // namespace

TEST(ImageDatasetThreads, ConcurrentRegisterAndUnRegisterDeleteOnceAtTheEnd) {
  constexpr int threadCount = 4;
  constexpr int repetitions = 20000;
  for (int round = 0; round < 5; ++round) {
    std::atomic<int> deletes{0};
    auto* image = new CountedImage(&deletes);
    // One reference for each thread, handed over with it.
    for (int t = 0; t < threadCount; ++t) image->Register();
    ASSERT_EQ(image->GetRefCount(), threadCount + 1);

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t)
      threads.emplace_back([&] {
        while (!go.load()) std::this_thread::yield();
        for (int i = 0; i < repetitions; ++i) {
          image->Register();
          if (i % 2 == 0) image->Register();
          if (i % 2 == 0) image->UnRegister();
          image->UnRegister();
        }
        image->UnRegister();  // the thread's own reference
      });
    go.store(true);
    // The creator lets go while the threads still work.
    image->UnRegister();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(deletes.load(), 1) << "expected exactly one delete by the last owner, round " << round;
  }
}

TEST(ImageDatasetThreads, CountStaysExactUnderContention) {
  constexpr int threadCount = 3;
  constexpr int repetitions = 30000;
  std::atomic<int> deletes{0};
  auto* image = new CountedImage(&deletes);
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < repetitions; ++i) image->Register();
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(image->GetRefCount(), 1 + threadCount * repetitions) << "expected no increment to be lost";
  threads.clear();
  for (int t = 0; t < threadCount; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < repetitions; ++i) image->UnRegister();
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(image->GetRefCount(), 1) << "expected no decrement to be lost";
  EXPECT_EQ(deletes.load(), 0);
  image->UnRegister();
  EXPECT_EQ(deletes.load(), 1);
}

// Bulk evaluation on several threads, small enough to run under ThreadSanitizer: random graphs
// computed whole, as boxes and streamed on two and three threads equal their element-wise values.
#include "engine/Evaluation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RandomGraphs.h"

namespace tarv {
namespace {

using testing::RandomGraph;
using testing::RandomGraphLimits;

struct Threads {
  explicit Threads(int count) { engine::setThreadCount(count); }
  ~Threads() { engine::setThreadCount(0); }
};

class Checking : public engine::SlabConsumer {
public:
  explicit Checking(const std::vector<unsigned char>& reference) : reference(reference) {}
  bool consumeSlab(Dataset& d, const DatasetBoundingBox& slab) override {
    DatasetCoordinates p = slab.start;
    for (p.t = slab.start.t; p.t <= slab.end.t; ++p.t)
      for (p.z = slab.start.z; p.z <= slab.end.z; ++p.z)
        for (p.y = slab.start.y; p.y <= slab.end.y; ++p.y)
          for (p.x = slab.start.x; p.x <= slab.end.x; ++p.x)
            EXPECT_TRUE(testing::sameElement(static_cast<CachedDataset&>(d), reference, p));
    return true;
  }
  const std::vector<unsigned char>& reference;
};

}  // namespace

TEST(EvaluationThreadTest, RandomGraphsOnSeveralThreadsEqualElementByElementResults) {
  RandomGraphLimits limits;
  limits.largestExtent = 14;
  limits.largestFilterCount = 5;
  for (unsigned seed : testing::seedsToRun(500, 12)) {
    RandomGraph reference(seed, limits);
    SCOPED_TRACE(reference.description);
    const std::vector<unsigned char> expected = testing::elementsOneByOne(*reference.result);
    for (int threads : {2, 3}) {
      SCOPED_TRACE("threads " + std::to_string(threads));
      const Threads count(threads);
      RandomGraph whole(seed, limits);
      whole.result->calculateFullDataset(nullptr);
      RandomGraph box(seed, limits);
      ASSERT_TRUE(engine::calculateBox(box.result, box.result->getVoxelBoundingBox()));
      DatasetCoordinates p(0, 0, 0, 0, 0);
      const DatasetCoordinates size = reference.result->getSize();
      for (p.t = 0; p.t < size.t; ++p.t)
        for (p.z = 0; p.z < size.z; ++p.z)
          for (p.y = 0; p.y < size.y; ++p.y)
            for (p.x = 0; p.x < size.x; ++p.x) {
              ASSERT_TRUE(testing::sameElement(*whole.result, expected, p));
              ASSERT_TRUE(testing::sameElement(*box.result, expected, p));
            }
      RandomGraph streamed(seed, limits);
      Checking consumer(expected);
      engine::StreamOptions options;
      options.slabDepth = 2;
      EXPECT_EQ(engine::streamDataset(streamed.result, consumer, options), engine::StreamResult::completed);
    }
  }
}

}  // namespace tarv

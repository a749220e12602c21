#include "engine/Evaluation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "RandomGraphs.h"
#include "RowComparison.h"

namespace tarv {
namespace {

using testing::RandomGraph;
using testing::RandomGraphLimits;
using testing::elementsOneByOne;
using testing::sameElement;
using testing::seedsToRun;

// Restores the default thread count.
struct Threads {
  explicit Threads(int count) { engine::setThreadCount(count); }
  ~Threads() { engine::setThreadCount(0); }
};

DatasetBoundingBox randomBox(const DatasetCoordinates& size, std::mt19937& rng) {
  DatasetBoundingBox box;
  for (int k = 0; k < 4; ++k) {
    std::uniform_int_distribution<int> at(0, size[k] - 1);
    box.start[k] = at(rng);
    box.end[k] = at(rng);
    if (box.start[k] > box.end[k]) std::swap(box.start[k], box.end[k]);
  }
  box.start.c = 0;
  box.end.c = size.c - 1;
  return box;
}

// Visits every position of the box.
template <typename F>
void forEachIn(const DatasetBoundingBox& box, F&& f) {
  DatasetCoordinates p = box.start;
  for (p.t = box.start.t; p.t <= box.end.t; ++p.t)
    for (p.z = box.start.z; p.z <= box.end.z; ++p.z)
      for (p.y = box.start.y; p.y <= box.end.y; ++p.y)
        for (p.x = box.start.x; p.x <= box.end.x; ++p.x) f(p);
}

// Keeps what each slab holds and checks that the slabs come in order and cover the volume once.
class CheckingConsumer : public engine::SlabConsumer {
public:
  CheckingConsumer(const std::vector<unsigned char>& reference, int refuseAt = -1)
      : reference(reference), refuseAt(refuseAt) {}
  bool consumeSlab(Dataset& d, const DatasetBoundingBox& slab) override {
    auto& cached = static_cast<CachedDataset&>(d);
    const DatasetCoordinates size = d.getSize();
    EXPECT_EQ(slab.start.x, 0);
    EXPECT_EQ(slab.end.x, size.x - 1);
    EXPECT_EQ(slab.end.y, size.y - 1);
    EXPECT_EQ(slab.start.t, slab.end.t);
    EXPECT_EQ(slab.start.z, nextZ) << "slabs in order";
    EXPECT_EQ(slab.start.t, nextT);
    nextZ = slab.end.z + 1;
    if (nextZ == size.z) {
      nextZ = 0;
      ++nextT;
    }
    forEachIn(slab, [&](const DatasetCoordinates& p) { EXPECT_TRUE(sameElement(cached, reference, p)); });
    ++slabs;
    return slabs != refuseAt;
  }
  const std::vector<unsigned char>& reference;
  int refuseAt;
  int slabs = 0;
  int nextZ = 0;
  int nextT = 0;
};

}  // namespace

// The whole result computed in bulk, on one to three threads, equals the result read element by
// element, bit for bit, with the same progress reports and every element computed.
TEST(EvaluationTest, WholeResultsOfRandomGraphsEqualElementByElementResults) {
  for (unsigned seed : seedsToRun(1, 150)) {
    RandomGraph reference(seed, RandomGraphLimits());
    SCOPED_TRACE(reference.description);
    const std::vector<unsigned char> expected = elementsOneByOne(*reference.result);
    for (int threads : {1, 2, 3}) {
      SCOPED_TRACE("threads " + std::to_string(threads));
      const Threads count(threads);
      RandomGraph graph(seed, RandomGraphLimits());
      testing::RecordingProgress progress;
      graph.result->calculateFullDataset(&progress);
      EXPECT_EQ(progress.fractions, std::vector<double>{0.0});
      forEachIn(graph.result->getVoxelBoundingBox(),
                [&](const DatasetCoordinates& p) { ASSERT_TRUE(sameElement(*graph.result, expected, p)); });
    }
  }
}

// Computed in slabs with progress between them: the element-wise result, reports in order, and a
// stop that leaves the slabs after it uncomputed.
TEST(EvaluationTest, SlabsWithProgressEqualElementByElementResults) {
  for (unsigned seed : seedsToRun(500, 60)) {
    RandomGraph reference(seed, RandomGraphLimits());
    SCOPED_TRACE(reference.description);
    const std::vector<unsigned char> expected = elementsOneByOne(*reference.result);
    for (int threads : {1, 2}) {
      SCOPED_TRACE("threads " + std::to_string(threads));
      const Threads count(threads);
      RandomGraph graph(seed, RandomGraphLimits());
      testing::RecordingProgress progress;
      ASSERT_TRUE(engine::calculateInSlabs(graph.result, &progress, 4));
      ASSERT_FALSE(progress.fractions.empty());
      EXPECT_EQ(progress.fractions.front(), 0.0);
      EXPECT_TRUE(std::is_sorted(progress.fractions.begin(), progress.fractions.end()));
      EXPECT_LT(progress.fractions.back(), 1.0);
      forEachIn(graph.result->getVoxelBoundingBox(),
                [&](const DatasetCoordinates& p) { ASSERT_TRUE(sameElement(*graph.result, expected, p)); });
      // Stopped after the first slab: the last element is not computed.
      RandomGraph stopped(seed, RandomGraphLimits());
      testing::RecordingProgress stop(1);
      const DatasetCoordinates size = stopped.result->getSize();
      const bool finished = engine::calculateInSlabs(stopped.result, &stop, 4);
      const bool oneSlab = size.z * size.t <= (size.z * size.t + 3) / 4;
      if (!oneSlab) {
        EXPECT_FALSE(finished);
        EXPECT_EQ(stop.fractions.size(), 2u);
        const DatasetCoordinates last(size.x - 1, size.y - 1, size.z - 1, size.t - 1, 0);
        EXPECT_FALSE(stopped.result->getElementCacheStatus(last));
      }
    }
  }
}

// A box computed by calculateBox (sources first, in bulk) equals the element-wise result there.
TEST(EvaluationTest, BoxesOfRandomGraphsEqualElementByElementResults) {
  for (unsigned seed : seedsToRun(1000, 150)) {
    RandomGraph reference(seed, RandomGraphLimits());
    SCOPED_TRACE(reference.description);
    const std::vector<unsigned char> expected = elementsOneByOne(*reference.result);
    std::mt19937 rng(seed);
    for (int threads : {1, 2}) {
      SCOPED_TRACE("threads " + std::to_string(threads));
      const Threads count(threads);
      RandomGraph graph(seed, RandomGraphLimits());
      for (int round = 0; round < 3; ++round) {
        const DatasetBoundingBox box = randomBox(graph.result->getSize(), rng);
        ASSERT_TRUE(engine::calculateBox(graph.result, box));
        forEachIn(box, [&](const DatasetCoordinates& p) { ASSERT_TRUE(sameElement(*graph.result, expected, p)); });
      }
    }
  }
}

// Streamed slab by slab with every slab depth: each slab holds the element-wise values, slabs come
// in order and cover the volume; a consumer that refuses stops the stream at once.
TEST(EvaluationTest, StreamedRandomGraphsEqualElementByElementResults) {
  for (unsigned seed : seedsToRun(2000, 100)) {
    RandomGraph reference(seed, RandomGraphLimits());
    SCOPED_TRACE(reference.description);
    const std::vector<unsigned char> expected = elementsOneByOne(*reference.result);
    for (int depth : {0, 1, 2, 7, 100})
      for (int threads : {1, 2}) {
        SCOPED_TRACE("depth " + std::to_string(depth) + ", threads " + std::to_string(threads));
        const Threads count(threads);
        RandomGraph graph(seed, RandomGraphLimits());
        CheckingConsumer consumer(expected);
        engine::StreamOptions options;
        options.slabDepth = depth;
        ASSERT_EQ(engine::streamDataset(graph.result, consumer, options), engine::StreamResult::completed);
        const DatasetCoordinates size = graph.result->getSize();
        const int perT = depth == 0 ? consumer.slabs / size.t : (size.z + std::min(depth, size.z) - 1) / std::min(depth, size.z);
        EXPECT_EQ(consumer.slabs, perT * size.t);
        EXPECT_EQ(consumer.nextT, size.t) << "every time step streamed";
      }
    RandomGraph graph(seed, RandomGraphLimits());
    CheckingConsumer refusing(expected, 1);
    engine::StreamOptions options;
    options.slabDepth = 1;
    EXPECT_EQ(engine::streamDataset(graph.result, refusing, options), engine::StreamResult::refusedByConsumer);
    EXPECT_EQ(refusing.slabs, 1);
  }
}

// Above 100000 elements: the reports come at every 100000th element, with the element loop's
// fractions, and a stop after the second leaves exactly the elements up to the polled one computed.
TEST(EvaluationTest, ProgressAndStopsOfLargeResultsAreThoseOfTheElementLoop) {
  RandomGraphLimits limits;
  limits.largestFilterCount = 4;
  limits.timeSteps = false;
  for (unsigned seed : seedsToRun(300, 6)) {
    for (int threads : {1, 2, 3}) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", threads " + std::to_string(threads));
      const Threads count(threads);
      std::mt19937 rng(seed);
      // A large input: the random graph over it, by hand.
      Dataset input(true);
      input.newDataset(DatasetCoordinates(70, 60, 50, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding());
      std::uniform_real_distribution<double> value(-100.0, 100.0);
      for (auto it = input.getStartCoordinatesIterator(); it.valid; input.incrementCoordinatesIterator(it))
        input.setElement<double>(it, value(rng));
      SmoothDataset smooth;
      smooth.setSourceDataset(&input);
      smooth.setParameters(3, 3, 3, 1.0);
      GradientDataset gradient;
      gradient.setSourceDataset(&smooth);
      gradient.setParameters(3, static_cast<int>(seed % 3), 3, false, 0.0);
      const double n = 70.0 * 60 * 50;
      testing::RecordingProgress all;
      gradient.calculateFullDataset(&all);
      EXPECT_EQ(all.fractions, (std::vector<double>{0.0, 100000 / n, 200000 / n}));

      gradient.resetCache();
      testing::RecordingProgress stopped(1);
      gradient.calculateFullDataset(&stopped);
      EXPECT_EQ(stopped.fractions, (std::vector<double>{0.0, 100000 / n}));
      std::size_t k = 0;
      for (auto it = gradient.getStartCoordinatesIterator(); it.valid; gradient.incrementCoordinatesIterator(it), ++k)
        ASSERT_EQ(gradient.getElementCacheStatus(static_cast<const DatasetCoordinates&>(it)), k <= 100000) << "element " << k;
    }
  }
}

// A caller's own filter in the graph computes element by element, and every path gives its values.
TEST(EvaluationTest, CallersOwnFiltersComputeTheirOwnWay) {
  Dataset input(true);
  input.newDataset(DatasetCoordinates(17, 9, 13, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, DatasetWorldEmbedding());
  std::mt19937 rng(4);
  std::uniform_int_distribution<int> value(-500, 500);
  for (auto it = input.getStartCoordinatesIterator(); it.valid; input.incrementCoordinatesIterator(it))
    input.setElement<int>(it, value(rng));
  auto build = [&](SmoothDataset& smooth, testing::Counted<GradientDataset>& own, LinearTransformationDataset& last) {
    smooth.setSourceDataset(&input);
    smooth.setParameters(3, 3, 3, 2.0);
    own.setSourceDataset(&smooth);
    own.setParameters(3, 1, 5, true, 0.5);
    last.setSourceDataset(&own);
    last.setParameters(2.0, -1.0);
  };
  SmoothDataset s0, s1, s2;
  testing::Counted<GradientDataset> g0, g1, g2;
  LinearTransformationDataset l0, l1, l2;
  build(s0, g0, l0);
  build(s1, g1, l1);
  build(s2, g2, l2);
  const std::vector<unsigned char> expected = elementsOneByOne(l0);
  const Threads count(2);
  l1.calculateFullDataset(nullptr);
  EXPECT_GT(g1.calculations, 0) << "the caller's filter computed element by element";
  ASSERT_TRUE(engine::calculateBox(&l2, l2.getVoxelBoundingBox()));
  forEachIn(l1.getVoxelBoundingBox(), [&](const DatasetCoordinates& p) {
    ASSERT_TRUE(sameElement(l1, expected, p));
    ASSERT_TRUE(sameElement(l2, expected, p));
  });
}

}  // namespace tarv

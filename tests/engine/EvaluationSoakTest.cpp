// The edge graph computed 200 times in one process over random boxes, slabs and whole volumes on
// two threads: the same results every time, and resident memory flat after the first rounds
// (leaks are LeakSanitizer's to find in the sanitizer build).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "engine/Evaluation.h"
#include "graphs/FilterGraph.h"

#include <cstddef>

namespace tarv {
namespace {

const char* const kEdgeGraph =
    "ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\nKernelXSize = 3\nKernelYSize = 3\nKernelZSize = 3\n"
    "MarginValue = -1000\n\n"
    "ID = 2\nType = GradientDataset\nSourceDatasetIDList = 1\nGradientDimensionality = 3\nGradientDirection = 0\n"
    "GradientFilterSize = 3\n\n"
    "ID = 3\nType = GradientDataset\nSourceDatasetIDList = 1\nGradientDimensionality = 3\nGradientDirection = 1\n"
    "GradientFilterSize = 3\n\n"
    "ID = 4\nType = GradientDataset\nSourceDatasetIDList = 1\nGradientDimensionality = 3\nGradientDirection = 2\n"
    "GradientFilterSize = 3\n\n"
    "ID = 5\nType = VectorLengthDataset\nSourceDatasetIDList = 2 3 4\n\n"
    "ID = 6\nType = IntervalThresholdDataset\nSourceDatasetIDList = 5\nMinimalForegroundThresholdValue = 200\n"
    "MaximalForegroundThresholdValue = 1e300\nForegroundValue = 1\nBackgroundValue = 0\nSetForeground = true\n"
    "SetBackground = true\n\n"
    "ID = 7\nType = CastDataset\nSourceDatasetIDList = 6\nElementType = 5\n";

#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer runtime (its header is clang's).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
// Under AddressSanitizer freed memory waits in a quarantine, so resident memory grows without a
// leak: the memory allocated and not freed is what must stay flat.
long residentKilobytes() { return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024); }
#else
// Resident memory in KB, from /proc/self/statm.
long residentKilobytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  long resident = 0;
  statm >> pages >> resident;
  return resident * 4;
}
#endif

struct Threads {
  explicit Threads(int count) { engine::setThreadCount(count); }
  ~Threads() { engine::setThreadCount(0); }
};

// Values of the whole result, element by element in memory order.
std::vector<unsigned char> valuesOf(Dataset* result) {
  std::vector<unsigned char> values;
  for (auto it = result->getStartCoordinatesIterator(); it.valid; result->incrementCoordinatesIterator(it))
    values.push_back(result->getElement<unsigned char>(DatasetCoordinates(it.x, it.y, it.z, it.t, it.c)));
  return values;
}

TEST(EvaluationSoak, TheEdgeGraphTwoHundredTimesGivesTheSameResultsInFlatMemory) {
  const Threads two(2);
  Dataset input(true);
  input.newDataset(DatasetCoordinates(32, 28, 20, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
                   DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.8, 0.8, 2.0, 1)));
  std::mt19937 random(77);
  testing::fillRandomly(input, random, -1000.0, 1500.0);
  std::vector<unsigned char> reference;
  {
    graphs::FilterGraph graph("edges");
    std::istringstream text(kEdgeGraph);
    graph.read(text);
    graph.connect({{0, &input}});
    Dataset* result = graph.findDataset(7);
    result->calculateFullDataset(nullptr);
    reference = valuesOf(result);
  }
  ASSERT_GT(std::count(reference.begin(), reference.end(), 1), 0) << "edges found";

  long settled = 0;
  const DatasetCoordinates size = input.getSize();
  for (int round = 0; round < 200; ++round) {
    graphs::FilterGraph graph("edges");
    std::istringstream text(kEdgeGraph);
    graph.read(text);
    graph.connect({{0, &input}});
    Dataset* result = graph.findDataset(7);
    switch (round % 4) {
      case 0: ASSERT_TRUE(engine::calculateInSlabs(result, nullptr, 1 + round % 7)); break;
      case 1: result->calculateFullDataset(nullptr); break;
      case 2: {
        // A random box first, then the rest.
        std::uniform_int_distribution<int> z(0, size.z - 1);
        int z0 = z(random);
        int z1 = z(random);
        if (z0 > z1) std::swap(z0, z1);
        ASSERT_TRUE(engine::calculateBox(result, DatasetBoundingBox(DatasetCoordinates(3, 2, z0, 0, 0),
                                                                    DatasetCoordinates(size.x - 2, size.y - 1, z1, 0, 0))));
        result->calculateFullDataset(nullptr);
        break;
      }
      default: {
        struct Check : engine::SlabConsumer {
          bool consumeSlab(Dataset&, const DatasetBoundingBox&) override { return true; }
        } consumer;
        engine::StreamOptions options;
        options.slabDepth = 1 + round % 5;
        ASSERT_EQ(engine::streamDataset(result, consumer, options), engine::StreamResult::completed);
        result->calculateFullDataset(nullptr);
      }
    }
    ASSERT_EQ(valuesOf(result), reference) << "round " << round;
    if (round == 20) settled = residentKilobytes();
  }
  const long grown = residentKilobytes() - settled;
  std::printf("  resident memory after round 20: %ld KB; after round 200: %+ld KB\n", settled, grown);
  EXPECT_LT(grown, 8 * 1024) << "resident memory grew over 180 rounds";
}

}  // namespace
}  // namespace tarv

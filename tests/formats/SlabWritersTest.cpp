#include "formats/SlabWriters.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "core/Progress.h"
#include "dataset/Dataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/SmoothDataset.h"
#include "engine/Evaluation.h"
#include "formats/FormatRegistry.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;
using testing::readBytes;

// A small graph over a random volume: a smoothing, its gradient along z, scaled.
struct Graph {
  Dataset input{true};
  SmoothDataset smooth;
  GradientDataset gradient;
  LinearTransformationDataset scaled;

  Graph(const DatasetCoordinates& size, TARVElementType type, unsigned seed) {
    input.newDataset(size, type, DatasetWorldEmbedding(WorldCoordinates(1, -2, 3, 0), WorldCoordinates(0.5, 0.8, 1.25, 2)));
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> value(-500.0, 1500.0);
    for (auto it = input.getStartCoordinatesIterator(); it.valid; input.incrementCoordinatesIterator(it))
      input.setElement<double>(it, value(rng));
    smooth.setSourceDataset(&input);
    smooth.setParameters(3, 3, 3, -5.0);
    gradient.setSourceDataset(&smooth);
    gradient.setParameters(3, 2, 3, false, 0.0);
    scaled.setSourceDataset(&gradient);
    scaled.setParameters(0.5, 100.0);
  }
};

// The file writeDatasetFile writes for the dataset (time step and type converted first).
std::string wholeFile(Dataset* data, const std::string& path, formats::FileFormat format, TARVElementType type,
                      int timeStep) {
  Dataset converted(true);
  DatasetBoundingBox box = data->getVoxelBoundingBox();
  if (timeStep >= 0) box.start.t = box.end.t = timeStep;
  data->calculateFullDataset(nullptr);
  converted.convertPartFrom(data, type, box);
  EXPECT_TRUE(formats::writeDatasetFile(&converted, path, format, formats::RawLayout()).ok());
  return readBytes(path);
}

std::size_t firstDifference(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  return i;
}

class StopAfter : public Progress {
public:
  explicit StopAfter(int reports) : left(reports) {}
  bool shouldStop() override { return --left < 0; }

private:
  int left;
};

}  // namespace

// Every slab depth, element type the format holds, time step choice and thread count gives the
// file of the whole data, byte for byte; plain datasets and computed ones alike.
TEST(SlabWritersTest, FilesWrittenInSlabsAreTheWholeFiles) {
  TemporaryDirectory directory;
  const DatasetCoordinates size(19, 13, 11, 2, 1);
  for (formats::FileFormat format : {formats::FileFormat::raw, formats::FileFormat::tarv1, formats::FileFormat::pagedTiff})
    for (TARVElementType type : {TARV_ELEMENT_TYPE_FLOAT, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                 TARV_ELEMENT_TYPE_DOUBLE}) {
      if (!formats::formatHoldsElementType(format, type)) continue;
      for (int timeStep : {-1, 1}) {
        if (timeStep < 0 && format == formats::FileFormat::pagedTiff) continue;
        Graph reference(size, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, 5);
        for (bool computed : {false, true}) {
          Dataset* data = computed ? static_cast<Dataset*>(&reference.scaled) : &reference.input;
          const std::string expected = wholeFile(data, directory.file("whole"), format, type, timeStep);
          for (int depth : {1, 3, 0, 40})
            for (int threads : {1, 2}) {
              SCOPED_TRACE(std::string(formats::describeFormat(format).name) + ", type " + std::to_string(type) +
                           ", time " + std::to_string(timeStep) + (computed ? ", computed" : ", plain") + ", depth " +
                           std::to_string(depth) + ", threads " + std::to_string(threads));
              engine::setThreadCount(threads);
              Graph graph(size, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, 5);
              formats::StreamedWrite request;
              request.format = format;
              request.elementType = type;
              request.timeStep = timeStep;
              request.slabDepth = depth;
              const std::string path = directory.file("slabs");
              Dataset* streamed = computed ? static_cast<Dataset*>(&graph.scaled) : &graph.input;
              const Status written = formats::writeDatasetFileInSlabs(streamed, path, request);
              ASSERT_TRUE(written.ok()) << written.message();
              const std::string bytes = readBytes(path);
              EXPECT_EQ(bytes.size(), expected.size());
              EXPECT_TRUE(bytes == expected) << "first difference at byte " << firstDifference(bytes, expected);
            }
        }
      }
    }
  engine::setThreadCount(0);
}

// A stop request ends the write as cancelled; a file that cannot be opened is refused with the
// reason; formats written whole are not streamed.
TEST(SlabWritersTest, StopsAndFailuresAreReported) {
  TemporaryDirectory directory;
  Graph graph(DatasetCoordinates(8, 8, 12, 1, 1), TARV_ELEMENT_TYPE_FLOAT, 3);
  formats::StreamedWrite request;
  request.format = formats::FileFormat::raw;
  request.elementType = TARV_ELEMENT_TYPE_FLOAT;
  request.slabDepth = 2;
  StopAfter stop(1);
  request.progress = &stop;
  EXPECT_EQ(formats::writeDatasetFileInSlabs(&graph.scaled, directory.file("a.raw"), request).code(),
            StatusCode::cancelled);
  request.progress = nullptr;
  const Status unwritable = formats::writeDatasetFileInSlabs(&graph.scaled, directory.file("no/such/dir.raw"), request);
  EXPECT_FALSE(unwritable.ok());
  EXPECT_NE(unwritable.message().find("directory"), std::string::npos) << unwritable.message();
  request.format = formats::FileFormat::vti;
  EXPECT_EQ(formats::writeDatasetFileInSlabs(&graph.scaled, directory.file("a.vti"), request).code(),
            StatusCode::unsupported);
  EXPECT_FALSE(formats::formatWritesInSlabs(formats::FileFormat::vti));
  Dataset empty(true);
  EXPECT_FALSE(formats::writeDatasetFileInSlabs(&empty, directory.file("b.raw"), request).ok());
}

}  // namespace tarv

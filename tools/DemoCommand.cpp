// tarv demo [DIR]: the library's main path on a synthetic CT phantom, needing no input.
#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "graphs/FilterGraph.h"
#include "DatasetFiles.h"
#include "OptionParsing.h"
#include "Phantom.h"
#include "ProgressBar.h"
#include "ComparisonReport.h"
#include "SliceImage.h"
#include "ToolError.h"
#include "dataset/BinarySegmentations.h"
#include "dataset/CastDataset.h"
#include "dataset/IntervalThresholdDataset.h"

namespace tarv::tool {

namespace {

// The edge graph of the demo, also written beside the results so that 'tarv filter' can run it.
// Input 0 is the phantom.
const char* const kEdgeGraph = R"(# Edges of the phantom: smoothing, the three gradients, their length, a threshold, 8 bits.
# Run it with: tarv filter edges.graph --input 0=phantom.tarv -o edges.tif
ID = 1
Type = SmoothDataset
SourceDatasetIDList = 0
KernelXSize = 3
KernelYSize = 3
KernelZSize = 3
MarginValue = -1000

ID = 2
Type = GradientDataset
SourceDatasetIDList = 1
GradientDimensionality = 3
GradientDirection = 0
GradientFilterSize = 3
VoxelGradient = false

ID = 3
Type = GradientDataset
SourceDatasetIDList = 1
GradientDimensionality = 3
GradientDirection = 1
GradientFilterSize = 3
VoxelGradient = false

ID = 4
Type = GradientDataset
SourceDatasetIDList = 1
GradientDimensionality = 3
GradientDirection = 2
GradientFilterSize = 3
VoxelGradient = false

ID = 5
Type = VectorLengthDataset
SourceDatasetIDList = 2 3 4

ID = 6
Type = IntervalThresholdDataset
SourceDatasetIDList = 5
MinimalForegroundThresholdValue = 200
MaximalForegroundThresholdValue = 1e+300
ForegroundValue = 1
BackgroundValue = 0
SetForeground = true
SetBackground = true

# 5 is the element type uint8.
ID = 7
Type = CastDataset
SourceDatasetIDList = 6
ElementType = 5
)";

// Dense structures (contrast, calcification, bone) lie above this value.
constexpr double kDenseThreshold = 150.0;
// Specks of noise above the threshold are at most this large.
constexpr int kSpeckSize = 10;

struct DemoOptions {
  std::string directory = "tarv-demo";
  int size = 128;
  double noise = 40.0;
};

class StepTimer {
public:
  void start(const std::string& name) {
    current = name;
    begin = std::chrono::steady_clock::now();
  }
  void stop(const std::string& result) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    total += seconds;
    std::ostringstream line;
    line << "  " << std::left << std::setw(34) << current << std::right << std::setw(7) << std::fixed
         << std::setprecision(2) << seconds << " s   " << result << "\n";
    lines += line.str();
  }
  std::string summary() const {
    std::ostringstream line;
    line << "  " << std::left << std::setw(34) << "total" << std::right << std::setw(7) << std::fixed
         << std::setprecision(2) << total << " s\n";
    return lines + line.str();
  }

private:
  std::string current;
  std::chrono::steady_clock::time_point begin;
  std::string lines;
  double total = 0.0;
};

std::string megabytes(long long bytes) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << bytes / 1048576.0 << " MB";
  return text.str();
}

// The voxels of the dataset at or above the threshold as a 0/1 uint8 segmentation in memory.
DatasetHandle thresholdSegmentation(Dataset* source, double threshold) {
  IntervalThresholdDataset dense;
  dense.setSourceDataset(source);
  dense.setParameters(threshold, 1e300, 1.0, 0.0, true, true);
  CastDataset bytes;
  bytes.setSourceDataset(&dense);
  bytes.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  // The element type follows the parameter when the source is set.
  bytes.setSourceDataset(&dense);
  Dataset* segmentation = new Dataset(true);
  DatasetHandle handle(segmentation);
  segmentation->copyFrom(&bytes);
  if (!segmentation->hasData()) throw ToolError("demo", "not enough memory for a segmentation");
  return handle;
}

void runDemo(const DemoOptions& options, const GlobalOptions& global) {
  namespace fs = std::filesystem;
  if (options.size < 16 || options.size > 512) throw ToolError("--size " + std::to_string(options.size),
                                                               "choose a size from 16 to 512");
  const fs::path directory(options.directory);
  std::error_code error;
  fs::create_directories(directory, error);
  if (!fs::is_directory(directory, error))
    throw ToolError(options.directory, "cannot create the directory" + (error ? ": " + error.message() : ""));
  const auto path = [&directory](const std::string& name) { return (directory / name).string(); };
  StepTimer timer;
  const int n = options.size;
  const int middle = n / 2;

  // 1. A CT-like phantom in memory.
  timer.start("synthesise phantom");
  DatasetHandle phantomHandle = makePhantom(n, options.noise, 2024);
  Dataset* phantom = GetRawPtr(phantomHandle);
  if (!phantom->hasData()) throw ToolError("demo", "not enough memory for the phantom");
  timer.stop(sizeText(phantom->getSize()) + " int16, noise " + formatDisplayNumber(options.noise));

  // 2. Written in the library's two block-wise formats.
  timer.start("write TARV1 and paged TIFF");
  const WrittenFile tarv1 = writeDataset(phantom, path("phantom.tarv"), OutputOptions());
  const WrittenFile tiff = writeDataset(phantom, path("phantom.tif"), OutputOptions());
  timer.stop("phantom.tarv " + megabytes(tarv1.bytes) + ", phantom.tif " + megabytes(tiff.bytes));

  // 3. Both opened again as file-backed datasets that read blocks on demand.
  timer.start("reopen lazily, compare");
  OpenedDataset lazyTarv1 = openDataset(path("phantom.tarv"), InputOptions(), Access::lazy);
  OpenedDataset lazyTiff = openDataset(path("phantom.tif"), InputOptions(), Access::lazy);
  double tarv1Deviation = 0.0;
  unsigned int tiffDifferences = 0;
  lazyTarv1.get()->announceAccessToFullDataset();
  lazyTiff.get()->announceAccessToFullDataset();
  for (auto it = phantom->getStartCoordinatesIterator(); it.valid; phantom->incrementCoordinatesIterator(it)) {
    const DatasetCoordinates& c = it;
    const double value = phantom->getElement<double>(it);
    tarv1Deviation = std::max(tarv1Deviation, std::abs(lazyTarv1.get()->getElement<double>(c) - value));
    if (lazyTiff.get()->getElement<double>(c) != value) ++tiffDifferences;
  }
  throwIfReadFailed(lazyTiff);
  timer.stop("paged TIFF " + (tiffDifferences == 0 ? std::string("identical") :
                                                     std::to_string(tiffDifferences) + " voxels differ") +
             ", TARV1 " + (tarv1Deviation == 0.0 ? std::string("identical") :
                                        "within " + formatDisplayNumber(tarv1Deviation) + " (16-bit steps)"));

  // 4. The edge graph, read from its text description, on the lazily read TARV1 file.
  timer.start("filter graph (7 filters)");
  {
    std::ofstream graphFile(path("edges.graph"));
    graphFile << kEdgeGraph;
    if (!graphFile) throw ToolError(path("edges.graph"), "cannot write it");
  }
  graphs::FilterGraph graph(path("edges.graph"));
  graph.readFile();
  graph.connect({{0, lazyTarv1.get()}});
  Dataset* edges = graph.findDataset(graph.chooseResult(-1));
  graph.announceFullAccess();
  calculateWithProgress(edges, "computing edges", global.progress);
  const unsigned int edgeVoxels = edges->getVoxelCountInValueRange(1.0, 1.0, false);
  writeDataset(edges, path("edges.tif"), OutputOptions());
  timer.stop(std::to_string(edgeVoxels) + " edge voxels, edges.tif");

  // 5. Two segmentations of the dense structures: the smoothed volume thresholded, and the noisy
  //    volume thresholded and cleaned of specks.
  timer.start("derive two segmentations");
  DatasetHandle smoothHandle = thresholdSegmentation(graph.findDataset(1), kDenseThreshold);
  DatasetHandle cleanHandle = thresholdSegmentation(lazyTiff.get(), kDenseThreshold);
  Dataset* smooth = GetRawPtr(smoothHandle);
  Dataset* clean = GetRawPtr(cleanHandle);
  // Paged TIFF files store no geometry: the noisy segmentation takes the other's, which comes
  // from the TARV1 file.
  clean->setWorldEmbedding(smooth->getWorldEmbedding());
  const unsigned int noisy = BinarySegmentations::getSegmentationVoxelCount(clean, 0);
  BinarySegmentations::removeSmallVoxelGroups(clean, 1.0, kSpeckSize);
  const unsigned int cleaned = BinarySegmentations::getSegmentationVoxelCount(clean, 0);
  writeDataset(smooth, path("seg-smooth.tif"), OutputOptions());
  writeDataset(clean, path("seg-clean.tif"), OutputOptions());
  timer.stop("seg-smooth " + std::to_string(BinarySegmentations::getSegmentationVoxelCount(smooth, 0)) +
             " voxels, seg-clean " + std::to_string(cleaned) + " (" + std::to_string(noisy - cleaned) +
             " speck voxels removed)");

  // 6. How well they agree.
  timer.start("compare the segmentations");
  const SegmentationComparison comparison =
      segmentation::compareSegmentations(smooth, clean, 0, path("seg-smooth.tif"), path("seg-clean.tif"));
  std::ostringstream agreement;
  agreement << "Dice " << (comparison.dice ? formatDisplayNumber(*comparison.dice) : "undefined") << ", Hausdorff "
            << (comparison.hausdorffDistance ? formatDisplayNumber(*comparison.hausdorffDistance) : "undefined")
            << " mm";
  timer.stop(agreement.str());

  // 7. A look at every stage: the middle plane of each.
  timer.start("write PNG slices");
  const Window ctWindow{-1000.0, 1000.0};
  writeSlicePng(phantom, "phantom", middle, 0, &ctWindow, path("1-phantom.png"));
  writeSlicePng(graph.findDataset(1), "smoothed", middle, 0, &ctWindow, path("2-smoothed.png"));
  writeSlicePng(graph.findDataset(2), "x gradient", middle, 0, nullptr, path("3-gradient-x.png"));
  writeSlicePng(graph.findDataset(5), "gradient length", middle, 0, nullptr, path("4-gradient-length.png"));
  writeSlicePng(edges, "edges", middle, 0, nullptr, path("5-edges.png"));
  writeSlicePng(smooth, "seg-smooth", middle, 0, nullptr, path("6-seg-smooth.png"));
  writeSlicePng(clean, "seg-clean", middle, 0, nullptr, path("7-seg-clean.png"));
  throwIfReadFailed(lazyTarv1);
  timer.stop("7 planes at z = " + std::to_string(middle) + ", 1-phantom.png .. 7-seg-clean.png");

  std::ostringstream out;
  out << "tarv demo: a " << sizeText(phantom->getSize()) << " CT-like phantom, results in " << directory.string()
      << "/\n";
  out << timer.summary();
  out << "\nSegmentations compared:\n";
  printComparisonTable(out, comparison);
  out << "\nTry:\n";
  out << "  tarv info " << path("phantom.tif") << "\n";
  out << "  tarv filter " << path("edges.graph") << " --input 0=" << path("phantom.tarv") << " -o edges.vti\n";
  out << "  tarv seg-compare " << path("seg-smooth.tif") << " " << path("seg-clean.tif") << " --json\n";
  std::cout << out.str();
}

}  // namespace

Command addDemoCommand(CLI::App& tarv, const GlobalOptions& global) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* app = tarv.add_subcommand("demo", "Run the library's main path on a synthetic CT phantom");
  app->footer(
      "Synthesises a CT-like phantom, writes it as TARV1 and paged TIFF, reopens both lazily, computes an edge\n"
      "filter graph (smoothing, three gradients, their length, a threshold), derives two segmentations and\n"
      "compares them, writes a PNG slice of every stage and prints a summary with timings.");
  app->add_option("DIR", options->directory, "Directory for the results (default: tarv-demo)");
  app->add_option("--size", options->size, "Edge length of the phantom in voxels (default 128)");
  app->add_option("--noise", options->noise, "Standard deviation of the noise (default 40)")
      ->check(CLI::NonNegativeNumber);
  return Command{app, [options, &global] { runDemo(*options, global); }};
}

}  // namespace tarv::tool

// tarv stats FILE: minimum, maximum, mean and value-range counts over the dataset or a box.
#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "DatasetFiles.h"
#include "OptionParsing.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

struct StatsOptions {
  std::string file;
  std::string box;
  int time = -1;
  std::string range;
  bool outside = false;
  InputOptions input;
};

// The box of --box (and --time), checked against the dataset.
DatasetBoundingBox chooseBox(const StatsOptions& options, Dataset* dataset) {
  const DatasetCoordinates size = dataset->getSize();
  DatasetBoundingBox box = dataset->getVoxelBoundingBox();
  if (!options.box.empty()) {
    const std::vector<int> values = parseIntegerList(options.box, "--box", 6, 6);
    box.start.x = values[0];
    box.start.y = values[1];
    box.start.z = values[2];
    box.end.x = values[3];
    box.end.y = values[4];
    box.end.z = values[5];
    const char* axes = "xyz";
    for (int k = 0; k < 3; ++k) {
      if (box.start[k] > box.end[k])
        throw ToolError("--box " + options.box, std::string("the ") + axes[k] + " range is empty (start > end)");
      if (box.start[k] < 0 || box.end[k] >= size[k])
        throw ToolError("--box " + options.box, std::string("the ") + axes[k] + " range leaves " + options.file +
                                                    " (0 to " + std::to_string(size[k] - 1) + ")");
    }
  }
  if (options.time >= 0) {
    if (options.time >= size.t)
      throw ToolError("--time " + std::to_string(options.time),
                      options.file + " has time steps 0 to " + std::to_string(size.t - 1));
    box.start.t = box.end.t = options.time;
  }
  return box;
}

void runStats(const StatsOptions& options) {
  OpenedDataset opened = openDataset(options.file, options.input, Access::lazy);
  Dataset* dataset = opened.get();
  const DatasetBoundingBox box = chooseBox(options, dataset);
  std::vector<double> range;
  if (!options.range.empty()) {
    range = parseNumberList(options.range, "--range", 2, 2);
    if (range[0] > range[1]) throw ToolError("--range " + options.range, "LOW must not be above HIGH");
  }

  const double minimum = dataset->getMinimumValue(box);
  const double maximum = dataset->getMaximumValue(box);
  const double mean = dataset->getAverageValue(box);
  unsigned int inRange = 0;
  if (!range.empty()) inRange = dataset->getVoxelCountInValueRange(box, range[0], range[1], options.outside);
  throwIfReadFailed(opened);

  std::ostringstream out;
  const auto row = [&out](const std::string& name, const std::string& value) {
    out << "  " << std::left << std::setw(15) << name << value << "\n";
  };
  out << options.file << "\n";
  row("box", std::to_string(box.start.x) + "," + std::to_string(box.start.y) + "," + std::to_string(box.start.z) +
                 " .. " + std::to_string(box.end.x) + "," + std::to_string(box.end.y) + "," +
                 std::to_string(box.end.z) + " (t " + std::to_string(box.start.t) + " .. " +
                 std::to_string(box.end.t) + ")");
  row("voxels", std::to_string(dataset->getBoxVoxelCount(box)));
  row("minimum", formatDisplayNumber(minimum));
  row("maximum", formatDisplayNumber(maximum));
  row("mean", formatDisplayNumber(mean));
  if (!range.empty()) {
    row(options.outside ? "outside range" : "in range",
        std::to_string(inRange) + " (" + formatDisplayNumber(range[0]) + " .. " + formatDisplayNumber(range[1]) + ")");
  }
  std::cout << out.str();
}

}  // namespace

Command addStatsCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<StatsOptions>();
  CLI::App* app = tarv.add_subcommand("stats", "Minimum, maximum, mean and value-range counts of a dataset or a box");
  app->add_option("FILE", options->file, "Dataset file")->required();
  app->add_option("--box", options->box, "Voxel box X0,Y0,Z0,X1,Y1,Z1 (inclusive; default: all)");
  app->add_option("--time", options->time, "Only this time step (default: all)")->check(CLI::NonNegativeNumber);
  app->add_option("--range", options->range, "Count the voxels with LOW <= value <= HIGH: LOW,HIGH");
  app->add_flag("--outside", options->outside, "Count the voxels outside --range instead");
  addInputOptions(*app, options->input);
  return Command{app, [options] { runStats(*options); }};
}

}  // namespace tarv::tool

// tarv seg-clean IN OUT --value V --max-group N: removes small groups of voxels.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "DatasetFiles.h"
#include "elementtypes/ElementTypeNames.h"
#include "OptionParsing.h"
#include "ToolError.h"
#include "dataset/BinarySegmentations.h"

namespace tarv::tool {

namespace {

struct SegCleanOptions {
  std::string in;
  std::string out;
  double value = 1.0;
  int maximalGroupSize = 0;
  InputOptions input;
  OutputOptions output;
};

void runSegClean(SegCleanOptions& options) {
  OpenedDataset opened = openDataset(options.in, options.input, Access::memory);
  Dataset* segmentation = opened.get();
  if (options.output.type.empty()) options.output.type = elementTypeName(segmentation->getElementType());
  options.output.raw = options.input.raw;
  checkCanWrite(segmentation, options.out, options.output);

  // Groups are found by value, which needs a numerical element type.
  DatasetHandle numeric;
  if (!segmentation->hasNumericalElementType()) {
    numeric = new Dataset(true);
    GetRawPtr(numeric)->convertPartFrom(segmentation, TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                        segmentation->getVoxelBoundingBox());
    segmentation = GetRawPtr(numeric);
    if (!segmentation->hasData()) throw ToolError(options.in, "not enough memory");
  }
  const unsigned int before = segmentation->getVoxelCountInValueRange(options.value, options.value, false);
  BinarySegmentations::removeSmallVoxelGroups(segmentation, options.value, options.maximalGroupSize);
  const unsigned int after = segmentation->getVoxelCountInValueRange(options.value, options.value, false);
  writeDataset(segmentation, options.out, options.output);
  std::cout << "wrote " << options.out << ": removed " << before - after << " of " << before << " voxels of value "
            << formatDisplayNumber(options.value) << " in groups of at most " << options.maximalGroupSize
            << " voxels\n";
}

}  // namespace

Command addSegCleanCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<SegCleanOptions>();
  CLI::App* app = tarv.add_subcommand("seg-clean", "Remove small groups of voxels from a segmentation");
  app->footer("Every group of face-connected voxels of value V with at most N voxels is set to 0.");
  app->add_option("IN", options->in, "Segmentation to clean")->required();
  app->add_option("OUT", options->out, "Cleaned segmentation (replaced only when complete)")->required();
  app->add_option("--value", options->value, "The voxel value of the groups (default 1)");
  app->add_option("--max-group", options->maximalGroupSize, "Largest group size that is removed")
      ->required()
      ->check(CLI::NonNegativeNumber);
  addOutputOptions(*app, options->output, true);
  addInputOptions(*app, options->input);
  return Command{app, [options] { runSegClean(*options); }};
}

}  // namespace tarv::tool

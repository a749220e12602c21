// tarv seg-compare A B: voxel counts, overlap and surface distances of two segmentations.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "DatasetFiles.h"
#include "ComparisonReport.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

struct SegCompareOptions {
  std::string a;
  std::string b;
  int t = 0;
  bool json = false;
  bool ignoreGeometry = false;
  InputOptions input;
};

void runSegCompare(const SegCompareOptions& options) {
  OpenedDataset a = openDataset(options.a, options.input, Access::memory);
  OpenedDataset b = openDataset(options.b, options.input, Access::memory);
  if (!a.get()->hasSameSize(b.get())) {
    throw ToolError(options.b, "its size " + sizeText(b.get()->getSize()) + " differs from " + sizeText(a.get()->getSize()) +
                                   " of " + options.a);
  }
  if (!a.get()->hasSameWorldEmbedding(b.get())) {
    if (!options.ignoreGeometry)
      throw ToolError(options.b, "its voxel spacing, origin or orientation differs from that of " + options.a +
                                     " (--ignore-geometry compares voxel by voxel with the geometry of A)");
    b.get()->setWorldEmbedding(a.get()->getWorldEmbedding());
  }
  if (options.t >= a.get()->getSize().t)
    throw ToolError("--t " + std::to_string(options.t),
                    options.a + " has time steps 0 to " + std::to_string(a.get()->getSize().t - 1));
  const SegmentationComparison comparison = segmentation::compareSegmentations(a.get(), b.get(), options.t, options.a, options.b);
  if (options.json)
    printComparisonJson(std::cout, comparison);
  else
    printComparisonTable(std::cout, comparison);
}

}  // namespace

Command addSegCompareCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<SegCompareOptions>();
  CLI::App* app = tarv.add_subcommand("seg-compare", "Compare two segmentations: overlap counts, Dice, Jaccard, distances");
  app->footer(
      "Non-zero voxels are object voxels. Prints the voxel counts of A, of B, shared, only in A, only in B,\n"
      "union and difference (in one but not both); Dice = 2 shared / (A + B) and Jaccard = shared / union;\n"
      "the Hausdorff distance and the average border distance in world units (voxel spacing). Measures\n"
      "without meaning (distances to an empty segmentation) are 'undefined' (null in JSON).");
  app->add_option("A", options->a, "First segmentation")->required();
  app->add_option("B", options->b, "Second segmentation")->required();
  app->add_option("--t", options->t, "The time step (default 0)")->check(CLI::NonNegativeNumber);
  app->add_flag("--json", options->json, "Print JSON instead of a table");
  app->add_flag("--ignore-geometry", options->ignoreGeometry,
                "Compare datasets of equal size whose spacing or origin differ, with the geometry of A");
  addInputOptions(*app, options->input);
  return Command{app, [options] { runSegCompare(*options); }};
}

}  // namespace tarv::tool

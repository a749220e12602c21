// tarv filter GRAPH --input ID=FILE... -o OUT: computes a filter graph written as the library's
// node descriptions.
#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "graphs/FilterGraph.h"
#include "DatasetFiles.h"
#include "elementtypes/ElementTypeNames.h"
#include "OptionParsing.h"
#include "ProgressBar.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

struct FilterOptions {
  std::string graph;
  std::vector<std::string> inputs;
  std::string output;
  int outputId = -1;
  InputOptions input;
  OutputOptions write;
};

void runFilter(const FilterOptions& options, const GlobalOptions& global) {
  const auto start = std::chrono::steady_clock::now();

  // Inputs first: a graph that names a missing input is reported against the graph file.
  std::map<int, OpenedDataset> opened;
  std::map<int, Dataset*> inputs;
  for (const std::string& text : options.inputs) {
    const std::size_t equals = text.find('=');
    std::vector<int> id;
    if (equals == std::string::npos || equals + 1 == text.size())
      throw ToolError("--input " + text, "expected ID=FILE");
    id = parseIntegerList(text.substr(0, equals), "--input", 1, 1);
    if (id.front() < 0) throw ToolError("--input " + text, "IDs are integers of at least 0");
    if (opened.count(id.front()) != 0) throw ToolError("--input " + text, "ID " + std::to_string(id.front()) +
                                                                              " is given to two inputs");
    OpenedDataset dataset = openDataset(text.substr(equals + 1), options.input, Access::lazy);
    inputs[id.front()] = dataset.get();
    opened.emplace(id.front(), std::move(dataset));
  }

  graphs::FilterGraph graph(options.graph);
  int resultId = options.outputId;
  try {
    graph.readFile();
    graph.connect(inputs);
  } catch (const graphs::GraphError& error) {
    throw ToolError(error.what());
  }
  if (resultId >= 0 && graph.findDataset(resultId) == nullptr)
    throw ToolError("--output-id " + std::to_string(resultId), "no description or --input has this ID");
  if (resultId < 0) {
    const std::vector<int> results = graph.getResultIds();
    if (results.size() != 1) {
      std::string ids;
      for (int id : results) ids += (ids.empty() ? "" : ", ") + std::to_string(id);
      throw ToolError(options.graph, "the graph has several results (IDs " + ids + "): choose one with --output-id");
    }
    resultId = results.front();
  }
  Dataset* result = graph.findDataset(resultId);
  checkCanWrite(result, options.output, options.write);

  // Computed while it is written: slab by slab for the formats that take slabs.
  OutputOptions write = options.write;
  write.work = "computing node " + std::to_string(resultId);
  write.showProgress = global.progress;
  const WrittenFile written = writeDataset(result, options.output, write);
  for (const auto& [id, input] : opened) throwIfReadFailed(input);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const graphs::FilterGraph::Node* node = graph.findNode(resultId);
  std::cout << "wrote " << options.output << ": " << fileFormatDisplayName(written.format) << ", "
            << sizeText(written.size) << ", " << elementTypeName(written.elementType) << " (node " << resultId
            << (node != nullptr ? ", " + node->type : std::string(", an input")) << ", " << graph.getNodes().size()
            << " filters computed in " << formatDisplayNumber(seconds) << " s)\n";
}

}  // namespace

Command addFilterCommand(CLI::App& tarv, const GlobalOptions& global) {
  auto options = std::make_shared<FilterOptions>();
  CLI::App* app = tarv.add_subcommand("filter", "Compute a filter graph described as text on input datasets");
  app->add_option("GRAPH", options->graph, "Graph description file")->required();
  app->add_option("--input,-i", options->inputs, "An input dataset: ID=FILE (TARV1, paged TIFF, TIFF stacks and DICOM are read lazily)")
      ->required();
  app->add_option("--output,-o", options->output, "Output dataset file")->required();
  app->add_option("--output-id", options->outputId,
                  "ID of the node to write (default: the only node that no other node uses)")
      ->check(CLI::NonNegativeNumber);
  addOutputOptions(*app, options->write, true);
  addInputOptions(*app, options->input);
  std::string types;
  for (const std::string& type : graphs::FilterGraph::getKnownTypes()) types += (types.empty() ? "" : ", ") + type;
  app->footer(
      "The graph file holds one block of 'Name = value' lines per filter, as DependentDataset::write writes\n"
      "them, separated by empty lines; lines starting with '#' are comments. 'Type' chooses the filter\n"
      "(" + types + "),\n"
      "'ID' names it and 'SourceDatasetIDList' lists the IDs of its sources: other filters or --input datasets.\n"
      "The result is computed with a progress bar; Ctrl-C stops it and writes nothing. Paged TIFF, TARV1 and raw\n"
      "results are computed and written slab by slab: every node keeps only the slices the current slab needs,\n"
      "so memory does not grow with the volume's depth (TARV1 takes two passes, the first for the value range).\n"
      "Other formats take the result whole: every node keeps its whole volume in memory. The work is split over\n"
      "the cores (--threads N before or after the command; 1 for one thread); the result is the same bit for bit.\n"
      "Example block:\n"
      "  ID = 1\n"
      "  Type = SmoothDataset\n"
      "  SourceDatasetIDList = 0\n"
      "  KernelXSize = 3\n"
      "  KernelYSize = 3\n"
      "  KernelZSize = 3");
  return Command{app, [options, &global] {
                   options->write.raw = options->input.raw;
                   runFilter(*options, global);
                 }};
}

}  // namespace tarv::tool

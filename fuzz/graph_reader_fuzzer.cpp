// The filter graph reader: a graph description read, connected to in-memory inputs
// for every source ID that names no description, and every node computed.
//
// Input: byte 0 chooses the inputs (bits 0-3 element type, 4-6 size, 7 values with extremes);
// the rest is the graph description.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "graphs/FilterGraph.h"

using namespace tarv;

namespace {

// Inputs created at most; further unknown IDs stay unknown.
constexpr std::size_t inputLimit = 8;

bool sameValue(double a, double b) { return a == b || (a != a && b != b); }

// Each result's description read back and connected to the same inputs computes the same
// elements, and describes itself alike; the margins of every input are asked for.
void checkDescriptions(const graphs::FilterGraph& reader, const std::map<int, Dataset*>& inputs) {
  std::map<const Dataset*, int> inputIds;
  for (const auto& [id, input] : inputs) inputIds[input] = id;
  for (const int id : reader.getResultIds()) {
    Dataset* result = reader.findDataset(id);
    if (result == nullptr) fuzz::fail("a result without a dataset");
    for (const auto& [inputId, input] : inputs) (void)graphs::sourceMargins(result, input);
    const std::string text = graphs::describeGraph(result, inputIds);
    graphs::FilterGraph again("described");
    std::istringstream in(text);
    try {
      again.read(in);
      again.connect(inputs);
    } catch (const graphs::GraphError& error) {
      std::fprintf(stderr, "%s\n---\n%s\n", error.what(), text.c_str());
      fuzz::fail("a described graph is refused by the reader");
    }
    const std::vector<int> results = again.getResultIds();
    if (results.size() != 1) fuzz::fail("a described graph has another number of results than one");
    Dataset* copy = again.findDataset(results.front());
    again.announceFullAccess();
    if (copy->hasData() != result->hasData()) fuzz::fail("a described graph differs in having data");
    if (!result->hasData()) continue;
    if (copy->getSize() != result->getSize() || copy->getElementType() != result->getElementType())
      fuzz::fail("a described graph has another shape or element type");
    for (auto it = result->getStartCoordinatesIterator(); it.valid; result->incrementCoordinatesIterator(it)) {
      const DatasetCoordinates p = it;
      if (!sameValue(result->getElement<double>(p), copy->getElement<double>(p))) {
        std::fprintf(stderr, "---\n%s\n", text.c_str());
        fuzz::fail("a described graph computes another element");
      }
    }
    if (graphs::describeGraph(copy, inputIds) != text) fuzz::fail("a described graph describes itself otherwise");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const auto inputType = static_cast<TARVElementType>(TARV_ELEMENT_TYPE_BOOL + (data[0] & 15) % 12);
  const DatasetCoordinates inputSize = fuzz::sourceSizeVariant(data[0] >> 4);
  const int valueVariant = (data[0] & 128) != 0 ? 2 : (data[0] & 1);

  std::vector<std::unique_ptr<Dataset>> inputDatasets;
  std::map<int, Dataset*> inputs;
  graphs::FilterGraph reader("graph");
  try {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    reader.read(in);
    std::set<int> nodeIds;
    for (const auto& node : reader.getNodes()) nodeIds.insert(node.id);
    for (const auto& node : reader.getNodes())
      for (const int id : node.sourceIds)
        if (nodeIds.count(id) == 0 && inputs.count(id) == 0 && inputs.size() < inputLimit) {
          inputDatasets.emplace_back(fuzz::createSourceDataset(inputType, inputSize, valueVariant, id & 255));
          inputDatasets.back()->setDatasetID(id);
          inputs[id] = inputDatasets.back().get();
        }
    reader.connect(inputs);
    reader.announceFullAccess();
    for (const auto& node : reader.getNodes()) {
      DependentDataset* filter = node.getFilter();
      if (filter == nullptr) fuzz::fail("a node without a filter");
      filter->calculateFullDataset(nullptr);
      if (!filter->hasData()) continue;
      for (auto it = filter->getStartCoordinatesIterator(); it.valid; filter->incrementCoordinatesIterator(it))
        (void)filter->getElement<double>(static_cast<const DatasetCoordinates&>(it));
    }
    (void)reader.chooseResult(-1);
    checkDescriptions(reader, inputs);
  } catch (const graphs::GraphError&) {
  }
  return 0;
}

// The filter graph reader: a graph description read, connected to in-memory inputs
// for every source ID that names no description, and every node computed.
//
// Input: byte 0 chooses the inputs (bits 0-3 element type, 4-6 size, 7 values with extremes);
// the rest is the graph description.
#include <cstddef>
#include <cstdint>
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
  } catch (const graphs::GraphError&) {
  }
  return 0;
}

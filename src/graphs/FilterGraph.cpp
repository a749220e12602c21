#include "graphs/FilterGraph.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <utility>

#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

namespace tarv::graphs {

namespace {

using Factory = std::function<DependentDataset*()>;

const std::map<std::string, Factory>& factories() {
  static const std::map<std::string, Factory> table = {
      {"CastDataset", [] { return new CastDataset(); }},
      {"ConstantDataset", [] { return new ConstantDataset(); }},
      {"DirectionFilteredVectorLengthDataset", [] { return new DirectionFilteredVectorLengthDataset(); }},
      {"GradientDataset", [] { return new GradientDataset(); }},
      {"IntervalPlateauDataset", [] { return new IntervalPlateauDataset(); }},
      {"IntervalThresholdDataset", [] { return new IntervalThresholdDataset(); }},
      {"LinearTransformationDataset", [] { return new LinearTransformationDataset(); }},
      {"ScaleDataset", [] { return new ScaleDataset(); }},
      {"SmoothDataset", [] { return new SmoothDataset(); }},
      {"VectorLengthDataset", [] { return new VectorLengthDataset(); }},
  };
  return table;
}

std::string trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return std::string();
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  std::string word;
  while (stream >> word) words.push_back(word);
  return words;
}

bool isNumber(const std::string& word) {
  char* end = nullptr;
  std::strtod(word.c_str(), &end);
  return !word.empty() && end == word.c_str() + word.size();
}

bool isInteger(const std::string& word, int& value) {
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(word.c_str(), &end, 10);
  if (word.empty() || end != word.c_str() + word.size() || errno == ERANGE || parsed < -2147483647L - 1 ||
      parsed > 2147483647L)
    return false;
  value = static_cast<int>(parsed);
  return true;
}

bool isBoolean(const std::string& word) {
  std::string lower = word;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower == "true" || lower == "false";
}

std::string joinIds(const std::vector<int>& ids, const char* separator) {
  std::string text;
  for (int id : ids) {
    if (!text.empty()) text += separator;
    text += std::to_string(id);
  }
  return text;
}

}  // namespace

DependentDataset* FilterGraph::Node::getFilter() const { return dynamic_cast<DependentDataset*>(GetRawPtr(dataset)); }

const std::vector<std::string>& FilterGraph::getKnownTypes() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> list;
    for (const auto& entry : factories()) list.push_back(entry.first);
    return list;
  }();
  return names;
}

DependentDataset* FilterGraph::createFilter(const std::string& type) {
  const auto found = factories().find(type);
  return found == factories().end() ? nullptr : found->second();
}

FilterGraph::FilterGraph(std::string name) : fileName(std::move(name)) {}

FilterGraph::~FilterGraph() { deleteNodes(); }

void FilterGraph::deleteNodes() {
  while (!nodes.empty()) nodes.pop_back();
}

void FilterGraph::fail(int line, const std::string& reason) const {
  if (line > 0) throw GraphError(fileName + ":" + std::to_string(line), reason);
  throw GraphError(fileName, reason);
}

void FilterGraph::readFile() {
  std::error_code error;
  if (!std::filesystem::exists(fileName, error)) throw GraphError(fileName, "no such file");
  if (std::filesystem::is_directory(fileName, error)) throw GraphError(fileName, "is a directory");
  std::ifstream stream(fileName);
  if (!stream) throw GraphError(fileName, "cannot read it");
  read(stream);
}

void FilterGraph::read(std::istream& is) {
  deleteNodes();
  std::vector<std::pair<int, std::string>> block;
  std::string line;
  int lineNumber = 0;
  while (std::getline(is, line)) {
    ++lineNumber;
    if (line.find('\0') != std::string::npos) fail(lineNumber, "not a text file");
    const std::string text = trim(line);
    if (text.empty()) {
      if (!block.empty()) addBlock(block);
      block.clear();
      continue;
    }
    if (text[0] == '#') continue;
    block.emplace_back(lineNumber, text);
  }
  if (!block.empty()) addBlock(block);
  if (nodes.empty()) fail(0, "no filter descriptions (blocks of 'Name = value' lines)");
}

void FilterGraph::addBlock(const std::vector<std::pair<int, std::string>>& lines) {
  Node node;
  node.line = lines.front().first;
  std::map<std::string, int> seen;
  int idLine = 0;
  int typeLine = 0;
  std::string idText;
  for (const auto& [lineNumber, text] : lines) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) fail(lineNumber, "expected 'Name = value', got '" + text + "'");
    const std::string name = trim(text.substr(0, equals));
    const std::string value = trim(text.substr(equals + 1));
    if (name.empty()) fail(lineNumber, "entry without a name");
    if (const auto previous = seen.find(name); previous != seen.end())
      fail(lineNumber, name + " is given twice in one description (also on line " +
                           std::to_string(previous->second) + ")");
    seen[name] = lineNumber;

    const std::vector<std::string> words = splitWords(value);
    if (name == "Type") {
      if (words.size() != 1) fail(lineNumber, "Type needs one class name");
      node.type = words.front();
      typeLine = lineNumber;
    } else if (name == "ID") {
      if (words.size() != 1 || !isInteger(words.front(), node.id) || node.id < 0)
        fail(lineNumber, "ID needs one integer of at least 0, got '" + value + "'");
      idLine = lineNumber;
      idText = value;
    } else if (name == "SourceDatasetIDList") {
      for (const std::string& word : words) {
        int id = 0;
        if (!isInteger(word, id)) fail(lineNumber, "SourceDatasetIDList needs integers, got '" + word + "'");
        node.sourceIds.push_back(id);
      }
    } else {
      if (words.empty()) fail(lineNumber, name + " has no value");
      for (const std::string& word : words)
        if (!isNumber(word) && !isBoolean(word))
          fail(lineNumber, "the value of " + name + " is not a number or true/false: '" + word + "'");
    }
    node.description += name + " = " + value + "\n";
  }
  if (typeLine == 0) fail(node.line, "the description has no Type entry");
  if (idLine == 0) fail(node.line, "the description of a " + node.type + " has no ID entry");
  for (const Node& other : nodes)
    if (other.id == node.id)
      fail(idLine, "ID " + idText + " is given twice (also on line " + std::to_string(other.line) + ")");

  DependentDataset* filter = createFilter(node.type);
  if (filter == nullptr) {
    std::string known;
    for (const std::string& type : getKnownTypes()) known += (known.empty() ? "" : ", ") + type;
    fail(typeLine, "unknown type '" + node.type + "' (known: " + known + ")");
  }
  node.dataset = filter;
  std::istringstream description(node.description);
  filter->read(description, true);
  filter->clearTempIDLists();
  checkEntryNames(node, lines);
  nodes.push_back(std::move(node));
}

void FilterGraph::checkEntryNames(const Node& node, const std::vector<std::pair<int, std::string>>& entries) {
  std::ostringstream written;
  node.getFilter()->write(written);
  std::set<std::string> names;
  std::vector<std::string> ordered;
  std::istringstream lines(written.str());
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string name = trim(line.substr(0, equals));
    if (names.insert(name).second) ordered.push_back(name);
  }
  for (const auto& [lineNumber, text] : entries) {
    const std::string name = trim(text.substr(0, text.find('=')));
    if (names.count(name) == 0) {
      std::string known;
      for (const std::string& entry : ordered) known += (known.empty() ? "" : ", ") + entry;
      fail(lineNumber, node.type + " has no entry '" + name + "' (its entries: " + known + ")");
    }
  }
}

std::vector<int> FilterGraph::sortSourcesFirst() const {
  std::map<int, std::size_t> indexOfId;
  for (std::size_t i = 0; i < nodes.size(); ++i) indexOfId[nodes[i].id] = i;

  // Depth-first search without recursion, so that long chains cannot exhaust the stack.
  enum class Mark { unvisited, active, done };
  std::vector<Mark> marks(nodes.size(), Mark::unvisited);
  std::vector<int> order;
  for (std::size_t root = 0; root < nodes.size(); ++root) {
    if (marks[root] != Mark::unvisited) continue;
    // Each frame: node index and the position among its sources.
    std::vector<std::pair<std::size_t, std::list<int>::const_iterator>> stack;
    stack.emplace_back(root, nodes[root].sourceIds.begin());
    marks[root] = Mark::active;
    while (!stack.empty()) {
      auto& [index, next] = stack.back();
      if (next == nodes[index].sourceIds.end()) {
        marks[index] = Mark::done;
        order.push_back(static_cast<int>(index));
        stack.pop_back();
        continue;
      }
      const int sourceId = *next;
      ++next;
      const auto found = indexOfId.find(sourceId);
      if (found == indexOfId.end()) continue;  // an input
      const std::size_t source = found->second;
      if (marks[source] == Mark::active) {
        std::vector<int> cycle;
        bool inCycle = false;
        for (const auto& frame : stack) {
          if (frame.first == source) inCycle = true;
          if (inCycle) cycle.push_back(nodes[frame.first].id);
        }
        cycle.push_back(nodes[source].id);
        fail(nodes[source].line, "the graph has a cycle: " + joinIds(cycle, " uses ") +
                                     " (a node cannot be computed from itself)");
      }
      if (marks[source] == Mark::unvisited) {
        marks[source] = Mark::active;
        stack.emplace_back(source, nodes[source].sourceIds.begin());
      }
    }
  }
  return order;
}

void FilterGraph::connect(const std::map<int, Dataset*>& inputs) {
  inputDatasets = inputs;
  std::map<int, const Node*> nodeOfId;
  for (const Node& node : nodes) {
    if (inputs.count(node.id) != 0)
      fail(node.line, "ID " + std::to_string(node.id) + " is given both to an input and to a description");
    nodeOfId[node.id] = &node;
  }
  for (const Node& node : nodes) {
    for (int sourceId : node.sourceIds) {
      if (nodeOfId.count(sourceId) == 0 && inputs.count(sourceId) == 0) {
        fail(node.line, "source ID " + std::to_string(sourceId) + " of node " + std::to_string(node.id) +
                            " names neither a description nor an input");
      }
    }
  }

  const std::vector<int> order = sortSourcesFirst();
  std::vector<Node> sorted;
  sorted.reserve(nodes.size());
  for (int index : order) sorted.push_back(std::move(nodes[static_cast<std::size_t>(index)]));
  nodes = std::move(sorted);

  for (Node& node : nodes) {
    std::vector<Dataset*> sources;
    for (int sourceId : node.sourceIds) sources.push_back(findDataset(sourceId));
    DependentDataset* filter = node.getFilter();
    filter->setSourceDatasets(sources);
    // Parameters that depend on the sources (a direction with one component per source) are
    // checked against them when set, so they are applied again now that the sources are there.
    std::istringstream description(node.description);
    filter->read(description, true);
    filter->clearTempIDLists();
    if (!filter->hasData()) {
      const std::size_t count = sources.size();
      fail(node.line, node.type + " " + std::to_string(node.id) + " does not accept " +
                          (count == 0 ? std::string("having no source")
                                      : "its " + std::to_string(count) + " source" + (count == 1 ? "" : "s") +
                                            " (IDs " + joinIds(std::vector<int>(node.sourceIds.begin(),
                                                                                node.sourceIds.end()),
                                                               ", ") +
                                            ")"));
    }
  }
}

void FilterGraph::announceFullAccess() {
  for (const auto& [id, input] : inputDatasets) input->announceAccessToFullDataset();
  for (Node& node : nodes) node.getFilter()->announceAccessToFullDataset();
}

const FilterGraph::Node* FilterGraph::findNode(int id) const {
  for (const Node& node : nodes)
    if (node.id == id) return &node;
  return nullptr;
}

Dataset* FilterGraph::findDataset(int id) const {
  if (const Node* node = findNode(id)) return GetRawPtr(node->dataset);
  const auto input = inputDatasets.find(id);
  return input == inputDatasets.end() ? nullptr : input->second;
}

std::vector<int> FilterGraph::getResultIds() const {
  std::set<int> used;
  for (const Node& node : nodes) used.insert(node.sourceIds.begin(), node.sourceIds.end());
  std::vector<int> results;
  for (const Node& node : nodes)
    if (used.count(node.id) == 0) results.push_back(node.id);
  std::sort(results.begin(), results.end());
  return results;
}

int FilterGraph::chooseResult(int requestedId) const {
  if (requestedId >= 0) {
    if (findDataset(requestedId) == nullptr)
      fail(0, "no description or input has ID " + std::to_string(requestedId));
    return requestedId;
  }
  const std::vector<int> results = getResultIds();
  if (results.empty()) fail(0, "the graph has no result (every node is the source of another)");
  if (results.size() != 1) fail(0, "the graph has several results (IDs " + joinIds(results, ", ") + "): choose one");
  return results.front();
}

namespace {

// Every dataset result depends on, sources before their users (depth first, without recursion).
std::vector<Dataset*> datasetsSourcesFirst(Dataset* result) {
  std::vector<Dataset*> order;
  std::set<Dataset*> done;
  std::vector<std::pair<Dataset*, std::size_t>> stack{{result, 0}};
  std::set<Dataset*> active{result};
  while (!stack.empty()) {
    auto& [dataset, next] = stack.back();
    auto* filter = dynamic_cast<DependentDataset*>(dataset);
    const std::vector<Dataset*> sources = filter != nullptr ? filter->getSourceDatasets() : std::vector<Dataset*>();
    if (next == sources.size()) {
      done.insert(dataset);
      active.erase(dataset);
      order.push_back(dataset);
      stack.pop_back();
      continue;
    }
    Dataset* source = sources[next++];
    if (done.count(source) != 0 || active.count(source) != 0) continue;
    active.insert(source);
    stack.emplace_back(source, 0);
  }
  return order;
}

}  // namespace

std::string describeGraph(Dataset* result, const std::map<const Dataset*, int>& inputIds) {
  if (result == nullptr) throw GraphError("graph", "no result dataset");
  const std::vector<Dataset*> order = datasetsSourcesFirst(result);
  std::set<int> taken;
  for (const auto& [input, id] : inputIds) {
    if (id < 0) throw GraphError("graph", "input IDs are integers of at least 0, got " + std::to_string(id));
    if (!taken.insert(id).second) throw GraphError("graph", "ID " + std::to_string(id) + " is given to two inputs");
  }
  std::map<Dataset*, int> ids;
  auto nextFree = [&taken] {
    int id = 0;
    while (taken.count(id) != 0) ++id;
    taken.insert(id);
    return id;
  };
  // Inputs first, so that the filters' own IDs give way to them.
  for (Dataset* dataset : order) {
    if (dynamic_cast<DependentDataset*>(dataset) != nullptr) continue;
    const auto given = inputIds.find(dataset);
    ids[dataset] = given != inputIds.end() ? given->second : nextFree();
  }
  for (Dataset* dataset : order) {
    if (dynamic_cast<DependentDataset*>(dataset) == nullptr) continue;
    const int own = dataset->getDatasetID();
    ids[dataset] = own >= 0 && taken.insert(own).second ? own : -1;
  }
  for (Dataset* dataset : order)
    if (ids[dataset] < 0) ids[dataset] = nextFree();

  // DependentDataset::write names itself and its sources by their dataset IDs: lend them the
  // graph's for the time of writing.
  std::map<Dataset*, int> ownIds;
  for (const auto& [dataset, id] : ids) {
    ownIds[dataset] = dataset->getDatasetID();
    dataset->setDatasetID(id);
  }
  std::ostringstream text;
  bool first = true;
  for (Dataset* dataset : order) {
    auto* filter = dynamic_cast<DependentDataset*>(dataset);
    if (filter == nullptr) continue;
    if (!first) text << "\n";
    first = false;
    filter->write(text);
  }
  for (const auto& [dataset, id] : ownIds) dataset->setDatasetID(id);
  return text.str();
}

GraphMargins sourceMargins(Dataset* result, const Dataset* source) {
  GraphMargins found;
  if (result == nullptr) return found;
  // Users before their sources: the margins of a node are final when its sources are reached.
  std::vector<Dataset*> order = datasetsSourcesFirst(result);
  std::reverse(order.begin(), order.end());
  std::map<const Dataset*, GraphMargins> margins;
  margins[result] = GraphMargins();
  for (Dataset* dataset : order) {
    auto* filter = dynamic_cast<DependentDataset*>(dataset);
    const auto own = margins.find(dataset);
    if (filter == nullptr || own == margins.end() || !filter->readsSources()) continue;
    DatasetCoordinates size;
    DatasetCoordinates centre;
    const bool windows = filter->readsSourceNeighbourhood(size, centre);
    const std::vector<Dataset*> sources = filter->getSourceDatasets();
    for (std::size_t i = 0; i < sources.size(); ++i) {
      GraphMargins reach = own->second;
      if (windows && i == 0) {
        for (int k = 0; k < 4; ++k) {
          reach.before[k] += std::max(centre[k], 0);
          reach.after[k] += std::max(size[k] - 1 - centre[k], 0);
        }
      }
      auto [entry, added] = margins.try_emplace(sources[i], reach);
      if (!added) {
        for (int k = 0; k < 4; ++k) {
          entry->second.before[k] = std::max(entry->second.before[k], reach.before[k]);
          entry->second.after[k] = std::max(entry->second.after[k], reach.after[k]);
        }
      }
    }
  }
  const auto reached = margins.find(source);
  return reached == margins.end() ? found : reached->second;
}

}  // namespace tarv::graphs

#ifndef TARV_TOOLS_GRAPHREADER_H
#define TARV_TOOLS_GRAPHREADER_H

#include <istream>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "dataset/DatasetHandle.h"
#include "dataset/DependentDataset.h"

namespace tarv::tool {

// Assembles a filter graph from the text descriptions that DependentDataset::write produces:
// blocks of "Name = value" lines separated by empty lines, one block per filter. Lines starting
// with '#' are comments. The "Type" entry chooses the class, "ID" names the node, and
// "SourceDatasetIDList" connects it to other nodes or to datasets given from outside (the
// inputs) by their IDs.
//
// Every problem is a ToolError naming the file and line: a line that is not an entry, a missing
// or unknown type, a missing, malformed or duplicate ID, an entry the class does not have, a
// value that is not a number, a source ID that names nothing, a cycle, a filter that does not
// accept its sources.
class GraphReader {
public:
  struct Node {
    int id = -1;
    std::string type;
    // Lines of the block's first entry and of its Type entry (1-based).
    int line = 0;
    // The block's entries, without comments.
    std::string description;
    std::list<int> sourceIds;
    DatasetHandle dataset;

    DependentDataset* getFilter() const;
  };

  // The filter classes that descriptions may name, sorted.
  static const std::vector<std::string>& getKnownTypes();
  // A new filter of the named class, or null when the name is unknown.
  static DependentDataset* createFilter(const std::string& type);

  // fileName is used in messages (and by readFile).
  explicit GraphReader(std::string fileName);
  // Deletes the nodes from the results towards the inputs, so that no node re-derives itself
  // from a deleted source on the way.
  ~GraphReader();
  GraphReader(GraphReader&&) = default;
  GraphReader& operator=(GraphReader&&) = delete;

  void readFile();
  void read(std::istream& is);
  // Connects every node to its sources, from the inputs towards the results, and applies each
  // node's parameters once its sources are set. The inputs stay owned by the caller and must
  // outlive the graph's use.
  void connect(const std::map<int, Dataset*>& inputs);

  // Prepares every node's cache for the whole dataset, sources first, so that computing a result
  // does not move the caches of the nodes before it element by element.
  void announceFullAccess();

  // The node with the ID, or null.
  const Node* findNode(int id) const;
  // The dataset of a node or of an input with the ID, or null.
  Dataset* findDataset(int id) const;
  // The requested ID when it names a node or an input; with requestedId < 0 the only node that
  // no other node uses. Throws ToolError when there is none or more than one.
  int chooseResult(int requestedId) const;
  // In file order after read(), sources before their users after connect().
  const std::vector<Node>& getNodes() const { return nodes; }

private:
  [[noreturn]] void fail(int line, const std::string& reason) const;
  void addBlock(const std::vector<std::pair<int, std::string>>& lines);
  void checkEntryNames(const Node& node, const std::vector<std::pair<int, std::string>>& entries);
  std::vector<int> sortSourcesFirst() const;
  void deleteNodes();

  std::string fileName;
  std::vector<Node> nodes;
  std::map<int, Dataset*> inputDatasets;
};

}  // namespace tarv::tool

#endif

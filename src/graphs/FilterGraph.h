#ifndef TARV_GRAPHS_FILTERGRAPH_H
#define TARV_GRAPHS_FILTERGRAPH_H

#include <istream>
#include <list>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "dataset/DatasetHandle.h"
#include "dataset/DependentDataset.h"

namespace tarv::graphs {

// A graph description that cannot be used: the message names the file (and line) and the reason.
class GraphError : public std::runtime_error {
public:
  GraphError(const std::string& where, const std::string& reason) : std::runtime_error(where + ": " + reason) {}
};

// Assembles a filter graph from the text descriptions that DependentDataset::write produces:
// blocks of "Name = value" lines separated by empty lines, one block per filter. Lines starting
// with '#' are comments. The "Type" entry chooses the class, "ID" names the node, and
// "SourceDatasetIDList" connects it to other nodes or to datasets given from outside (the
// inputs) by their IDs.
//
// Every problem is a GraphError naming the file and line: a line that is not an entry, a missing
// or unknown type, a missing, malformed or duplicate ID, an entry the class does not have, a
// value that is not a number, a source ID that names nothing, a cycle, a filter that does not
// accept its sources.
class FilterGraph {
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
  explicit FilterGraph(std::string fileName);
  // Deletes the nodes from the results towards the inputs, so that no node re-derives itself
  // from a deleted source on the way.
  ~FilterGraph();
  FilterGraph(FilterGraph&&) = default;
  FilterGraph& operator=(FilterGraph&&) = delete;

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
  // The IDs of the nodes that no other node uses, ascending.
  std::vector<int> getResultIds() const;
  // The requested ID when it names a node or an input; with requestedId < 0 the only node that
  // no other node uses. Throws GraphError when there is none or more than one.
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

// The text form of the graph that computes result, as FilterGraph reads it: the description of
// every filter it depends on (DependentDataset::write), sources first, separated by empty lines.
// Datasets that are not filters are the graph's inputs and take the IDs inputIds gives them, the
// others the lowest free ones in order of first use; the filters keep their own IDs where these
// are unique and not an input's, the others get new ones. The datasets' own IDs are left as they
// were. Throws GraphError when two inputs are given the same ID.
std::string describeGraph(Dataset* result, const std::map<const Dataset*, int>& inputIds = {});

// How far from an element of result the elements of source that it depends on can lie, along x,
// y, z and t, before and after it: the sum of the neighbourhood half-widths along the paths from
// source to result (the largest over the paths). A part of result computed from a part of source
// grown by these margins equals the part of the whole result. Zero when result does not depend on
// source.
struct GraphMargins {
  DatasetCoordinates before{0, 0, 0, 0, 0};
  DatasetCoordinates after{0, 0, 0, 0, 0};
};
GraphMargins sourceMargins(Dataset* result, const Dataset* source);

}  // namespace tarv::graphs

#endif

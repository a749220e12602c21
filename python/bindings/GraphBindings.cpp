// Filters and filter graphs: a filter of any class from keyword entries, graphs read from their
// text form and written back to it, and the margins a graph reads around an element.
#include <pybind11/stl.h>

#include <memory>
#include <sstream>

#include "Bindings.h"
#include "graphs/FilterGraph.h"

namespace tarv::python {

namespace {

// A graph read from text, with the Python datasets it was connected to.
struct PyGraph {
  std::unique_ptr<graphs::FilterGraph> graph;
  std::map<int, py::object> inputs;
};

[[noreturn]] void raiseGraphError(const graphs::GraphError& error) { throw py::value_error(error.what()); }

// A scalar value of a description entry: a number or true/false.
std::string scalarEntryValue(const std::string& name, const py::handle& value) {
  if (py::isinstance<py::bool_>(value) || py::isinstance(value, py::module_::import("numpy").attr("bool_")))
    return PyObject_IsTrue(value.ptr()) == 1 ? "true" : "false";
  // Integers exactly (within the entries' int range); other numbers in the shortest form that
  // reads back as the same double.
  if (PyIndex_Check(value.ptr())) {
    const py::int_ integer(py::reinterpret_borrow<py::object>(value));
    const long long parsed = PyLong_AsLongLong(integer.ptr());
    if (PyErr_Occurred() != nullptr) PyErr_Clear();
    else if (parsed >= -2147483648LL && parsed <= 2147483647LL) return std::to_string(parsed);
    throw py::value_error(name + ": integers run from -2147483648 to 2147483647; give larger values as floats");
  }
  if (PyFloat_Check(value.ptr()) || (!py::isinstance<py::str>(value) && py::hasattr(value, "__float__"))) {
    const double number = PyFloat_AsDouble(value.ptr());
    if (PyErr_Occurred() != nullptr) throw py::error_already_set();
    return py::repr(py::float_(number)).cast<std::string>();
  }
  throw py::type_error(name + " takes numbers or true/false, not " + py::repr(value).cast<std::string>());
}

// A value of a description entry: a scalar, or a flat sequence of them (coordinates).
std::string entryValue(const std::string& name, const py::handle& value) {
  if (py::isinstance<py::str>(value) || !py::hasattr(value, "__iter__")) return scalarEntryValue(name, value);
  std::string words;
  for (const py::handle& item : value) words += (words.empty() ? "" : " ") + scalarEntryValue(name, item);
  if (words.empty()) throw py::value_error(name + " has no value");
  return words;
}

std::map<int, Dataset*> connectedInputs(const std::map<int, py::object>& inputs) {
  std::map<int, Dataset*> datasets;
  for (const auto& [id, input] : inputs) {
    Dataset* dataset = input.cast<const PyDataset&>().get();
    if (dataset == nullptr || !dataset->hasData()) throw py::value_error("input " + std::to_string(id) + " has no data");
    datasets[id] = dataset;
  }
  return datasets;
}

PyGraph readGraph(const std::string& text, const std::map<int, py::object>& inputs, const std::string& name) {
  PyGraph result;
  result.graph = std::make_unique<graphs::FilterGraph>(name);
  result.inputs = inputs;
  try {
    std::istringstream stream(text);
    result.graph->read(stream);
    result.graph->connect(connectedInputs(inputs));
  } catch (const graphs::GraphError& error) {
    raiseGraphError(error);
  }
  return result;
}

// The node or input of the ID; a node keeps the graph (which owns its sources) alive.
py::object datasetOfGraph(const py::object& self, int id) {
  const PyGraph& g = self.cast<const PyGraph&>();
  if (const auto input = g.inputs.find(id); input != g.inputs.end()) return input->second;
  const graphs::FilterGraph::Node* node = g.graph->findNode(id);
  if (node == nullptr) throw py::key_error("no node or input has ID " + std::to_string(id));
  PyDataset d;
  d.handle = node->dataset;
  d.keepAlive.push_back(self);
  return py::cast(std::move(d));
}

// One filter of the class over the sources, its entries given by name.
PyDataset makeFilter(const std::string& type, const std::vector<py::object>& sources, const py::dict& entries) {
  std::ostringstream text;
  const int id = static_cast<int>(sources.size());
  text << "ID = " << id << "\nType = " << type << "\nSourceDatasetIDList =";
  std::map<int, py::object> inputs;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    text << " " << i;
    inputs[static_cast<int>(i)] = sources[i];
  }
  text << "\n";
  for (const auto& [key, value] : entries) {
    const std::string name = key.cast<std::string>();
    if (name == "ID" || name == "Type" || name == "SourceDatasetIDList")
      throw py::value_error(name + " is not a parameter: the filter is connected to the sources given");
    text << name << " = " << entryValue(name, value) << "\n";
  }
  PyGraph graph = readGraph(text.str(), inputs, type);
  const graphs::FilterGraph::Node* node = graph.graph->findNode(id);
  PyDataset filter;
  filter.handle = node->dataset;
  for (const py::object& source : sources) filter.keepAlive.push_back(source);
  filter.get()->setDatasetID(-1);
  return filter;
}

// The entries of a filter class with their default values, in the order it writes them.
std::vector<std::pair<std::string, std::string>> filterEntries(const std::string& type) {
  std::unique_ptr<DependentDataset> filter(graphs::FilterGraph::createFilter(type));
  if (!filter) throw py::value_error("unknown filter type '" + type + "'");
  std::ostringstream written;
  filter->write(written);
  std::vector<std::pair<std::string, std::string>> entries;
  std::istringstream lines(written.str());
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    auto trim = [](std::string text) {
      const std::size_t first = text.find_first_not_of(" \t");
      const std::size_t last = text.find_last_not_of(" \t\r");
      return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    };
    const std::string name = trim(line.substr(0, equals));
    if (name == "ID" || name == "Type" || name == "SourceDatasetIDList") continue;
    entries.emplace_back(name, trim(line.substr(equals + 1)));
  }
  return entries;
}

}  // namespace

void bindGraphs(py::module_& m) {
  m.def("filter_types", &graphs::FilterGraph::getKnownTypes, "The filter classes, by name.");
  m.def("filter_entries", &filterEntries, py::arg("type"),
        "The description entries of a filter class and their defaults, as (name, value) pairs.");
  m.def("_make_filter", &makeFilter, py::arg("type"), py::arg("sources"), py::arg("entries"));

  py::class_<PyGraph>(m, "Graph", R"doc(A filter graph read from its text form.

Graph(text, inputs={0: dataset}): blocks of "Name = value" lines, one per filter, separated by
empty lines, as tarv filter reads them; "SourceDatasetIDList" names other nodes or the inputs by
their IDs. ValueError names the line of a description that cannot be used.)doc")
      .def(py::init([](const std::string& text, const std::map<int, py::object>& inputs, const std::string& name) {
             for (const auto& [id, input] : inputs) {
               if (!py::isinstance<PyDataset>(input))
                 throw py::type_error("input " + std::to_string(id) + " is not a tarv.Dataset");
             }
             return readGraph(text, inputs, name);
           }),
           py::arg("text"), py::arg("inputs"), py::arg("name") = "graph")
      .def_property_readonly("ids",
                             [](const PyGraph& g) {
                               std::vector<int> ids;
                               for (const auto& node : g.graph->getNodes()) ids.push_back(node.id);
                               return ids;
                             },
                             "The IDs of the nodes, sources before their users.")
      .def_property_readonly("result_ids", [](const PyGraph& g) { return g.graph->getResultIds(); },
                             "The IDs of the nodes no other node uses.")
      .def("__getitem__", &datasetOfGraph, py::arg("id"), "The dataset of a node or an input.")
      .def(
          "result",
          [](const py::object& self) {
            const PyGraph& g = self.cast<const PyGraph&>();
            int id = 0;
            try {
              id = g.graph->chooseResult(-1);
            } catch (const graphs::GraphError& error) {
              raiseGraphError(error);
            }
            return datasetOfGraph(self, id);
          },
          "The only node that no other node uses.")
      .def("description", [](const PyGraph& g, int id) {
        const graphs::FilterGraph::Node* node = g.graph->findNode(id);
        if (node == nullptr) throw py::key_error("no node has ID " + std::to_string(id));
        return node->description;
      }, py::arg("id"), "The entries of a node as read.")
      .def("type_of", [](const PyGraph& g, int id) {
        const graphs::FilterGraph::Node* node = g.graph->findNode(id);
        if (node == nullptr) throw py::key_error("no node has ID " + std::to_string(id));
        return node->type;
      });

  m.def(
      "describe_graph",
      [](const PyDataset& result, const std::vector<std::pair<py::object, int>>& inputs) {
        std::map<const Dataset*, int> ids;
        for (const auto& [input, id] : inputs) ids[input.cast<const PyDataset&>().get()] = id;
        try {
          return graphs::describeGraph(result.get(), ids);
        } catch (const graphs::GraphError& error) {
          raiseGraphError(error);
        }
      },
      py::arg("result"), py::arg("inputs") = std::vector<std::pair<py::object, int>>(),
      "The text form of the graph computing result; inputs pairs datasets with the IDs they get.");
  m.def(
      "_margins",
      [](const PyDataset& result, const PyDataset& source) {
        const graphs::GraphMargins margins = graphs::sourceMargins(result.get(), source.get());
        const auto four = [](const DatasetCoordinates& c) { return py::make_tuple(c.x, c.y, c.z, c.t); };
        return py::make_tuple(four(margins.before), four(margins.after));
      },
      py::arg("result"), py::arg("source"));
}

}  // namespace tarv::python

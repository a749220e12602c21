#ifndef TARV_PYTHON_BINDINGS_H
#define TARV_PYTHON_BINDINGS_H

// The Python extension _tarv: datasets, files, filter graphs, evaluation and segmentation measures.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv::python {

namespace py = pybind11;

// A dataset seen from Python. Filters read their sources through plain pointers, so a dataset
// keeps alive the Python objects it reads from (its sources, or the graph that owns it).
struct PyDataset {
  DatasetHandle handle;
  std::vector<py::object> keepAlive;

  Dataset* get() const { return GetRawPtr(handle); }
};

// The library's errors as Python exceptions: ValueError for bad requests and files, OSError for
// what the system refused, MemoryError, KeyboardInterrupt for stopped work.
[[noreturn]] void raiseStatus(const Status& status);
void throwIfFailed(const Status& status);

// The element type of a NumPy dtype ("int16", "float32" ...), and back; ValueError when none fits.
TARVElementType elementTypeOfDtype(const py::dtype& dtype);
py::dtype dtypeOfElementType(TARVElementType type);
// From a name the tool accepts ("int16", "uint8", "float" ...) or a NumPy dtype.
TARVElementType elementTypeFromPython(const py::object& type);

class ProgressFromPython;

// Computes every element of the dataset's box in bulk, without the GIL.
void computeBox(Dataset* dataset, const DatasetBoundingBox& box);
// Computes every element in bulk, slab by slab, telling and asking progress between slabs;
// raises what stopped it.
void computeWhole(Dataset* dataset, ProgressFromPython& progress);

void bindDatasets(py::module_& m);
void bindFiles(py::module_& m);
void bindGraphs(py::module_& m);
void bindSegmentation(py::module_& m);

}  // namespace tarv::python

#endif

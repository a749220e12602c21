// Datasets in Python: element types as NumPy dtypes, arrays without copies where the elements lie
// in memory as NumPy lays them out, geometry, the modality LUT and evaluation.
#include <pybind11/stl.h>

#include <cstring>
#include <optional>

#include "Bindings.h"
#include "ProgressFromPython.h"
#include "elementtypes/ElementTypeNames.h"
#include "elementtypes/ElementTypeTable.h"
#include "engine/Evaluation.h"
#include "formats/FormatRegistry.h"

namespace tarv::python {

void raiseStatus(const Status& status) {
  PyObject* type = PyExc_ValueError;
  switch (status.code()) {
    case StatusCode::notFound: type = PyExc_FileNotFoundError; break;
    case StatusCode::ioError: type = PyExc_OSError; break;
    case StatusCode::resourceExhausted: type = PyExc_MemoryError; break;
    case StatusCode::cancelled: type = PyExc_KeyboardInterrupt; break;
    default: break;
  }
  PyErr_SetString(type, status.message().c_str());
  throw py::error_already_set();
}

void throwIfFailed(const Status& status) {
  if (!status.ok()) raiseStatus(status);
}

py::dtype dtypeOfElementType(TARVElementType type) {
  std::optional<py::dtype> dtype;
  ElementTypeTable::visit(type, [&dtype]<typename Row>() { dtype = py::dtype(std::string(Row::dtype)); });
  if (!dtype) throw py::value_error("no element type");
  return *dtype;
}

TARVElementType elementTypeOfDtype(const py::dtype& dtype) {
  TARVElementType found = TARV_ELEMENT_TYPE_NO_TYPE;
  ElementTypeTable::forEach([&]<typename Row>() {
    if (found == TARV_ELEMENT_TYPE_NO_TYPE &&
        PyObject_RichCompareBool(dtype.ptr(), py::dtype(std::string(Row::dtype)).ptr(), Py_EQ) == 1)
      found = Row::id;
  });
  if (found == TARV_ELEMENT_TYPE_NO_TYPE)
    throw py::value_error("no element type holds NumPy's " + py::repr(dtype).cast<std::string>() + " (known: " +
                          elementTypeNameList() + ")");
  return found;
}

TARVElementType elementTypeFromPython(const py::object& type) {
  if (py::isinstance<py::str>(type)) {
    const std::string name = type.cast<std::string>();
    if (const std::optional<TARVElementType> named = elementTypeFromName(name)) return *named;
  }
  py::object dtype;
  try {
    dtype = py::module_::import("numpy").attr("dtype")(type);
  } catch (const py::error_already_set&) {
    throw py::value_error("not an element type: " + py::repr(type).cast<std::string>() + " (known: " +
                          elementTypeNameList() + ")");
  }
  return elementTypeOfDtype(dtype.cast<py::dtype>());
}

// Elements a lazily read file in the graph could not give are an error, not zeros.
void computeBox(Dataset* dataset, const DatasetBoundingBox& box) {
  {
    py::gil_scoped_release release;
    engine::calculateBox(dataset, box);
  }
  throwIfFailed(formats::graphBlockReadStatus(dataset));
}

void computeWhole(Dataset* dataset, ProgressFromPython& progress) {
  {
    py::gil_scoped_release release;
    engine::calculateInSlabs(dataset, &progress);
  }
  progress.raiseIfStopped();
  throwIfFailed(formats::graphBlockReadStatus(dataset));
}

namespace {

// The NumPy shape of a dataset: (t,) z, y, x (, c), the t and c axes only when there are several.
std::vector<py::ssize_t> arrayShape(const DatasetCoordinates& size) {
  std::vector<py::ssize_t> shape;
  if (size.t > 1) shape.push_back(size.t);
  shape.insert(shape.end(), {size.z, size.y, size.x});
  if (size.c > 1) shape.push_back(size.c);
  return shape;
}

std::vector<py::ssize_t> contiguousStrides(const std::vector<py::ssize_t>& shape, py::ssize_t itemSize) {
  std::vector<py::ssize_t> strides(shape.size());
  py::ssize_t stride = itemSize;
  for (std::size_t k = shape.size(); k-- > 0;) {
    strides[k] = stride;
    stride *= shape[k];
  }
  return strides;
}

Dataset* dataOf(const PyDataset& d) {
  Dataset* dataset = d.get();
  if (dataset == nullptr || !dataset->hasData()) throw py::value_error("the dataset has no data");
  return dataset;
}

bool viewable(Dataset* dataset) {
  return dataset->getPlainElements() != nullptr && dataset->getElementType() != TARV_ELEMENT_TYPE_BOOL;
}

// A view of a plain dataset's elements that keeps owner (the Python dataset) alive.
py::array viewOf(Dataset* dataset, const py::object& owner) {
  const py::dtype dtype = dtypeOfElementType(dataset->getElementType());
  const std::vector<py::ssize_t> shape = arrayShape(dataset->getSize());
  return py::array(dtype, shape, contiguousStrides(shape, dtype.itemsize()), dataset->getPlainElements(), owner);
}

// The evaluated elements of the box as a new plain dataset.
PyDataset evaluatedCopy(Dataset* dataset, const DatasetBoundingBox& box, bool whole) {
  if (whole) {
    ProgressFromPython progress{py::none()};
    computeWhole(dataset, progress);
  } else {
    computeBox(dataset, box);
  }
  PyDataset copy;
  auto* values = new Dataset(true);
  copy.handle = values;
  {
    py::gil_scoped_release release;
    values->convertPartFrom(dataset, dataset->getElementType(), box);
  }
  if (!values->hasData()) throw py::error_already_set((PyErr_NoMemory(), py::error_already_set()));
  values->setModalityLUT(dataset->getModalityLUT());
  return copy;
}

// Elements of a plain dataset as a new NumPy array (bool elements are stored packed).
py::array copyOfElements(Dataset* values) {
  const py::dtype dtype = dtypeOfElementType(values->getElementType());
  const std::vector<py::ssize_t> shape = arrayShape(values->getSize());
  py::array array(dtype, shape);
  if (values->getElementType() == TARV_ELEMENT_TYPE_BOOL) {
    auto* out = static_cast<bool*>(array.mutable_data());
    std::size_t k = 0;
    for (auto it = values->getStartCoordinatesIterator(); it.valid; values->incrementCoordinatesIterator(it))
      out[k++] = values->getElement<bool>(it);
  } else {
    std::memcpy(array.mutable_data(), values->getPlainElements(), static_cast<std::size_t>(array.nbytes()));
  }
  return array;
}

py::array arrayOf(const py::object& self, const DatasetBoundingBox& box, bool whole) {
  const PyDataset& d = self.cast<const PyDataset&>();
  Dataset* dataset = dataOf(d);
  if (whole && viewable(dataset)) return viewOf(dataset, self);
  py::object copy = py::cast(evaluatedCopy(dataset, box, whole));
  Dataset* values = copy.cast<const PyDataset&>().get();
  if (viewable(values)) return viewOf(values, copy);
  return copyOfElements(values);
}

DatasetBoundingBox boxFrom(const Dataset* dataset, const std::vector<int>& start, const std::vector<int>& end) {
  if (start.size() != 5 || end.size() != 5) throw py::value_error("a box has five start and five end coordinates");
  const DatasetCoordinates size = dataset->getSize();
  DatasetBoundingBox box(DatasetCoordinates(start[0], start[1], start[2], start[3], start[4]),
                         DatasetCoordinates(end[0], end[1], end[2], end[3], end[4]));
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < 0 || box.end[k] >= size[k] || box.start[k] > box.end[k])
      throw py::index_error("the box lies outside the dataset or is empty");
  return box;
}

py::tuple coordinates3(const WorldCoordinates& w) { return py::make_tuple(w.x, w.y, w.z); }

DatasetWorldEmbedding embeddingFrom(const std::vector<double>& spacing, const std::vector<double>& origin,
                                    const std::optional<std::vector<std::vector<double>>>& direction) {
  if (spacing.size() < 3 || spacing.size() > 4 || origin.size() < 3 || origin.size() > 4)
    throw py::value_error("spacing and origin take x, y, z (and t)");
  for (double s : spacing)
    if (!(s > 0.0) || !std::isfinite(s)) throw py::value_error("spacings must be positive and finite");
  for (double o : origin)
    if (!std::isfinite(o)) throw py::value_error("the origin must be finite");
  const WorldCoordinates spacingXyzt(spacing[0], spacing[1], spacing[2], spacing.size() > 3 ? spacing[3] : 1.0);
  const WorldCoordinates originXyzt(origin[0], origin[1], origin[2], origin.size() > 3 ? origin[3] : 0.0);
  if (!direction) return DatasetWorldEmbedding(originXyzt, spacingXyzt);
  if (direction->size() != 3) throw py::value_error("the direction is a 3 x 3 matrix (columns: the x, y, z axes)");
  TransformationMatrix orientation;
  orientation.makeIdentity();
  for (int row = 0; row < 3; ++row) {
    if ((*direction)[row].size() != 3) throw py::value_error("the direction is a 3 x 3 matrix (columns: the x, y, z axes)");
    for (int column = 0; column < 3; ++column) {
      const double v = (*direction)[row][column];
      if (!std::isfinite(v)) throw py::value_error("the direction must be finite");
      orientation(row, column) = v;
    }
  }
  TransformationMatrix inverse = orientation;
  if (!inverse.makeInverse()) throw py::value_error("the direction matrix is singular");
  return DatasetWorldEmbedding(originXyzt, spacingXyzt, orientation);
}

// A new dataset holding a copy of a C-contiguous array of native byte order, of the given size.
PyDataset fromArray(const py::array& array, const std::vector<int>& size, const std::vector<double>& spacing,
                    const std::vector<double>& origin, const std::optional<std::vector<std::vector<double>>>& direction) {
  if (size.size() != 5) throw py::value_error("a size has five extents");
  const TARVElementType type = elementTypeOfDtype(array.dtype());
  const DatasetCoordinates extents(size[0], size[1], size[2], size[3], size[4]);
  long long count = 1;
  for (int k = 0; k < 5; ++k) {
    if (extents[k] < 1) throw py::value_error("every extent must be at least 1");
    count *= extents[k];
    if (count >= (1LL << 31)) throw py::value_error("datasets hold fewer than 2^31 elements");
  }
  if (count != array.size()) throw py::value_error("the size does not match the array");
  if (!(array.flags() & py::array::c_style)) throw py::value_error("the array must be C-contiguous");
  PyDataset d;
  auto* dataset = new Dataset(true);
  d.handle = dataset;
  dataset->newDataset(extents, type, embeddingFrom(spacing, origin, direction));
  if (!dataset->hasData()) throw py::error_already_set((PyErr_NoMemory(), py::error_already_set()));
  if (type == TARV_ELEMENT_TYPE_BOOL) {
    const bool* in = static_cast<const bool*>(array.data());
    std::size_t k = 0;
    for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it))
      dataset->setElement<bool>(it, in[k++]);
  } else {
    const void* in = array.data();
    void* out = dataset->getPlainElements();
    const std::size_t bytes = static_cast<std::size_t>(array.nbytes());
    py::gil_scoped_release release;
    std::memcpy(out, in, bytes);
  }
  return d;
}

}  // namespace

void bindDatasets(py::module_& m) {
  py::class_<PyDataset>(m, "Dataset", R"doc(A dataset of voxels placed in world space.

Axes in NumPy order: (t,) z, y, x (, c), x fastest in memory; the t and component axes appear
when there are several. numpy.asarray(dataset) is a view without a copy for datasets held in
memory (the array's base is the dataset, which it keeps alive) and the evaluated elements for
computed or lazily read ones; bool datasets, stored packed, come out as copies.)doc")
      .def(
          "__array__",
          [](const py::object& self, const py::object& dtype) {
            Dataset* dataset = dataOf(self.cast<const PyDataset&>());
            py::array array = arrayOf(self, dataset->getVoxelBoundingBox(), true);
            if (dtype.is_none()) return py::object(array);
            return array.attr("astype")(dtype, py::arg("copy") = false);
          },
          py::arg("dtype") = py::none())
      .def(
          "_array_of_box",
          [](const py::object& self, const std::vector<int>& start, const std::vector<int>& end) {
            Dataset* dataset = dataOf(self.cast<const PyDataset&>());
            const DatasetBoundingBox box = boxFrom(dataset, start, end);
            return arrayOf(self, box, box == dataset->getVoxelBoundingBox());
          })
      .def_static("_from_array", &fromArray, py::arg("array"), py::arg("size"), py::arg("spacing"), py::arg("origin"),
                  py::arg("direction") = py::none())
      .def_property_readonly("has_data", [](const PyDataset& d) { return d.get() != nullptr && d.get()->hasData(); })
      .def_property_readonly("size",
                             [](const PyDataset& d) {
                               const DatasetCoordinates s = dataOf(d)->getSize();
                               return py::make_tuple(s.x, s.y, s.z, s.t, s.c);
                             },
                             "Extents (x, y, z, t, components).")
      .def_property_readonly("shape", [](const PyDataset& d) { return py::tuple(py::cast(arrayShape(dataOf(d)->getSize()))); },
                             "The NumPy shape: (t,) z, y, x (, c).")
      .def_property_readonly("dtype", [](const PyDataset& d) { return dtypeOfElementType(dataOf(d)->getElementType()); })
      .def_property_readonly("element_type",
                             [](const PyDataset& d) { return std::string(elementTypeName(dataOf(d)->getElementType())); })
      .def_property_readonly("type_name", [](const PyDataset& d) { return dataOf(d)->getTypeName(); },
                             "The class computing the elements (\"Dataset\" for one held in memory).")
      .def_property_readonly("in_memory", [](const PyDataset& d) { return dataOf(d)->getPlainElements() != nullptr; },
                             "Whether the elements lie in memory (numpy.asarray is then a view, bool excepted).")
      .def_property_readonly("spacing",
                             [](const PyDataset& d) { return coordinates3(dataOf(d)->getWorldEmbedding().getVoxelSpacing()); })
      .def_property_readonly("origin",
                             [](const PyDataset& d) { return coordinates3(dataOf(d)->getWorldEmbedding().getDatasetOrigin()); },
                             "World position (patient LPS, mm) of voxel (0, 0, 0).")
      .def_property_readonly("time_spacing",
                             [](const PyDataset& d) { return dataOf(d)->getWorldEmbedding().getVoxelSpacing().t; })
      .def_property_readonly(
          "direction",
          [](const PyDataset& d) {
            const TransformationMatrix orientation = dataOf(d)->getWorldEmbedding().getOrientation();
            std::vector<std::vector<double>> rows(3, std::vector<double>(3));
            for (int row = 0; row < 3; ++row)
              for (int column = 0; column < 3; ++column) rows[row][column] = orientation(row, column);
            return rows;
          },
          "3 x 3 matrix whose columns are the world directions (LPS) of the x, y and z axes.")
      .def("set_geometry",
           [](PyDataset& d, const std::vector<double>& spacing, const std::vector<double>& origin,
              const std::optional<std::vector<std::vector<double>>>& direction) {
             dataOf(d)->setWorldEmbedding(embeddingFrom(spacing, origin, direction));
           },
           py::arg("spacing"), py::arg("origin"), py::arg("direction") = py::none())
      .def_property(
          "modality_lut",
          [](const PyDataset& d) -> py::object {
            const ModalityLUT& lut = dataOf(d)->getModalityLUT();
            if (!lut.isValid()) return py::none();
            return py::make_tuple(lut.getSlope(), lut.getIntercept());
          },
          [](PyDataset& d, const py::object& value) {
            ModalityLUT lut;
            if (!value.is_none()) {
              const auto [slope, intercept] = value.cast<std::pair<double, double>>();
              if (!std::isfinite(slope) || !std::isfinite(intercept) || slope == 0.0)
                throw py::value_error("the slope must be finite and not 0, the intercept finite");
              lut.set(slope, intercept);
            }
            dataOf(d)->setModalityLUT(lut);
          },
          "(slope, intercept) mapping stored values to physical ones (Hounsfield units), or None.")
      .def(
          "voxel_to_world",
          [](const PyDataset& d, double x, double y, double z) {
            return coordinates3(dataOf(d)->getWorldEmbedding().exactVoxelToWorld(WorldCoordinates(x, y, z, 0.0)));
          },
          py::arg("x"), py::arg("y"), py::arg("z"))
      .def(
          "world_to_voxel",
          [](const PyDataset& d, double x, double y, double z) {
            return coordinates3(dataOf(d)->getWorldEmbedding().worldToExactVoxel(WorldCoordinates(x, y, z, 0.0)));
          },
          py::arg("x"), py::arg("y"), py::arg("z"))
      .def(
          "compute",
          [](const py::object& self, const py::object& callback) {
            Dataset* dataset = dataOf(self.cast<const PyDataset&>());
            ProgressFromPython progress(callback);
            computeWhole(dataset, progress);
            return self;
          },
          py::arg("progress") = py::none(),
          R"doc(Computes every element (in bulk, on the library's threads), slab by slab along z.

progress(fraction) is called before each slab; an exception it raises, or Ctrl-C, stops the work
after the slab in progress (KeyboardInterrupt). Elements not reached stay uncomputed. Returns the
dataset.)doc")
      .def(
          "_compute_box",
          [](const py::object& self, const std::vector<int>& start, const std::vector<int>& end) {
            Dataset* dataset = dataOf(self.cast<const PyDataset&>());
            computeBox(dataset, boxFrom(dataset, start, end));
            return self;
          })
      .def("value_range",
           [](const PyDataset& d) {
             Dataset* dataset = dataOf(d);
             std::pair<double, double> range;
             {
               py::gil_scoped_release release;
               range = std::make_pair(dataset->getMinimumValue(), dataset->getMaximumValue());
             }
             throwIfFailed(formats::graphBlockReadStatus(dataset));
             return range;
           },
           "(minimum, maximum) of the elements, computing them where needed.")
      .def("__repr__", [](const PyDataset& d) {
        if (d.get() == nullptr || !d.get()->hasData()) return std::string("<tarv.Dataset without data>");
        const DatasetCoordinates s = d.get()->getSize();
        return "<tarv.Dataset " + d.get()->getTypeName() + " " + std::to_string(s.x) + " x " + std::to_string(s.y) +
               " x " + std::to_string(s.z) + (s.t > 1 ? ", t " + std::to_string(s.t) : std::string()) +
               (s.c > 1 ? ", " + std::to_string(s.c) + " components" : std::string()) + ", " +
               elementTypeName(d.get()->getElementType()) + ">";
      });

  m.def("set_thread_count", &engine::setThreadCount, py::arg("count"),
        "Threads that bulk evaluation uses: 0 for one per core, 1 for strictly single-threaded work.");
  m.def("thread_count", &engine::getThreadCount);
  m.def("_element_type_number", [](const py::object& type) { return static_cast<int>(elementTypeFromPython(type)); });
  m.def("element_types", [] {
    std::vector<std::string> names;
    ElementTypeTable::forEach([&names]<typename Row>() { names.emplace_back(Row::name); });
    return names;
  });
}

}  // namespace tarv::python

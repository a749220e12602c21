#include "Bindings.h"

PYBIND11_MODULE(_tarv, m) {
  m.doc() = "tarv: datasets for medical image analysis (the library's extension; import tarv instead)";
  tarv::python::bindDatasets(m);
  tarv::python::bindFiles(m);
  tarv::python::bindGraphs(m);
  tarv::python::bindSegmentation(m);
}

// Files through the library's format registry: opening (lazily where the format allows) and
// writing as the user asks.
#include <pybind11/stl.h>

#include <filesystem>

#include "Bindings.h"
#include "ProgressFromPython.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/AllocationCap.h"
#include "formats/DatasetWriting.h"
#include "formats/FormatRegistry.h"

namespace tarv::python {

namespace {

formats::FileFormat formatNamed(const std::string& name) {
  if (const std::optional<formats::FileFormat> format = formats::formatFromName(name)) return *format;
  throw py::value_error("unknown format '" + name + "' (known: " + formats::formatNameList() + ")");
}

std::string pathText(const py::object& path) {
  return py::str(py::module_::import("os").attr("fspath")(path)).cast<std::string>();
}

template <typename T>
T entry(const py::dict& raw, const char* name, T otherwise) {
  return raw.contains(name) ? raw[name].cast<T>() : otherwise;
}

formats::RawLayout rawLayout(const py::dict& raw) {
  formats::RawLayout layout;
  layout.byteSwap = entry<bool>(raw, "byte_swap", false);
  layout.headerSize = entry<int>(raw, "header", 0);
  layout.trailerSize = entry<int>(raw, "trailer", 0);
  layout.elementPrefixSize = entry<int>(raw, "prefix", 0);
  layout.elementSuffixSize = entry<int>(raw, "suffix", 0);
  return layout;
}

PyDataset openFile(const py::object& path, const std::optional<std::string>& format, bool lazy,
                   const std::string& series, const std::optional<py::dict>& raw) {
  const std::string name = pathText(path);
  formats::ReadRequest request;
  request.lazy = lazy;
  request.dicomSeries = series;
  request.otherTiffAsStack = !format.has_value();
  if (format) {
    request.format = formatNamed(*format);
  } else if (const std::optional<formats::FileFormat> told = formats::formatToRead(name)) {
    request.format = *told;
  } else {
    throw py::value_error(name + ": neither the content nor the extension tells the format; name it (" +
                          formats::formatNameList() + ")");
  }
  if (request.format == formats::FileFormat::raw) {
    if (!raw) throw py::value_error(name + ": a raw file stores no layout: give raw=dict(size=(x, y, z[, t[, c]]), element_type=...)");
    request.raw = rawLayout(*raw);
    const std::vector<int> size = (*raw)["size"].cast<std::vector<int>>();
    if (size.size() < 3 || size.size() > 5) throw py::value_error("raw size takes x, y, z (and t, components)");
    request.raw.size = DatasetCoordinates(size[0], size[1], size[2], size.size() > 3 ? size[3] : 1, size.size() > 4 ? size[4] : 1);
    request.raw.elementType = elementTypeFromPython((*raw)["element_type"]);
    const std::vector<double> spacing = entry<std::vector<double>>(*raw, "spacing", {1.0, 1.0, 1.0});
    const std::vector<double> origin = entry<std::vector<double>>(*raw, "origin", {0.0, 0.0, 0.0});
    if (spacing.size() < 3 || origin.size() < 3) throw py::value_error("raw spacing and origin take x, y, z");
    request.raw.embedding = DatasetWorldEmbedding(WorldCoordinates(origin[0], origin[1], origin[2], 0.0),
                                                  WorldCoordinates(spacing[0], spacing[1], spacing[2], 1.0));
  }
  Result<formats::OpenedFile> opened = invalidArgumentError("not read");
  {
    py::gil_scoped_release release;
    opened = formats::readDatasetFile(name, request);
  }
  if (!opened.ok()) raiseStatus(opened.status().withContext(name));
  PyDataset d;
  d.handle = opened->handle;
  return d;
}

py::dict writeFile(const py::object& self, const py::object& path, const std::optional<std::string>& format,
                   const py::object& elementType, bool clamp, const std::optional<std::pair<double, double>>& rescale,
                   const std::optional<int>& time, const std::optional<int>& component, const std::optional<py::dict>& raw,
                   const py::object& progressCallback) {
  const std::string name = pathText(path);
  Dataset* dataset = self.cast<const PyDataset&>().get();
  formats::WriteRequest request;
  if (format) request.format = formatNamed(*format);
  if (!elementType.is_none()) request.elementType = elementTypeFromPython(elementType);
  request.clamp = clamp;
  request.rescale = rescale;
  if ((time && *time < 0) || (component && *component < 0)) throw py::value_error("time steps and components count from 0");
  request.timeStep = time.value_or(-1);
  request.component = component.value_or(-1);
  if (raw) request.raw = rawLayout(*raw);
  request.names.elementType = "element_type=";
  request.names.timeStep = "time=";
  request.names.component = "component=";
  request.names.clamp = "clamp=True";
  request.names.rescale = "rescale=(low, high)";
  ProgressFromPython progress(progressCallback);
  request.progress = &progress;
  Result<formats::WrittenFile> written = invalidArgumentError("not written");
  {
    py::gil_scoped_release release;
    written = formats::writeDataset(dataset, name, request);
  }
  progress.raiseIfStopped();
  if (!written.ok()) raiseStatus(written.status().withContext(name));
  py::dict result;
  result["format"] = formats::describeFormat(written->format).name;
  result["size"] = py::make_tuple(written->size.x, written->size.y, written->size.z, written->size.t, written->size.c);
  result["element_type"] = std::string(elementTypeName(written->elementType));
  result["bytes"] = written->bytes;
  return result;
}

}  // namespace

void bindFiles(py::module_& m) {
  m.def("_open", &openFile, py::arg("path"), py::arg("format") = py::none(), py::arg("lazy") = true,
        py::arg("series") = "", py::arg("raw") = py::none());
  m.def("_write", &writeFile, py::arg("dataset"), py::arg("path"), py::arg("format") = py::none(),
        py::arg("element_type") = py::none(), py::arg("clamp") = false, py::arg("rescale") = py::none(),
        py::arg("time") = py::none(), py::arg("component") = py::none(), py::arg("raw") = py::none(),
        py::arg("progress") = py::none());
  m.def("formats", [] {
    py::list list;
    for (const formats::FormatDescription& format : formats::formatTable()) {
      py::dict entry;
      entry["name"] = format.name;
      entry["display_name"] = format.displayName;
      entry["extensions"] = format.extensions;
      entry["reads_lazily"] = format.readsLazily;
      entry["writes"] = format.writes;
      entry["holds"] = format.holds;
      list.append(entry);
    }
    return list;
  }, "The formats of the registry: name, extensions, what a file holds, whether it is written.");
  m.def("allocation_cap", &formats::getAllocationCap,
        "The most bytes a reader allocates for what a file's header claims (files claiming more are refused).");
  m.def("set_allocation_cap", &formats::setAllocationCap, py::arg("bytes"),
        "Sets the readers' allocation cap in bytes; 0 restores the default (3/4 of the machine's memory).");
  m.def("probe_format", [](const py::object& path) -> py::object {
    const std::optional<formats::FileFormat> format = formats::formatToRead(pathText(path));
    if (!format) return py::none();
    return py::str(formats::describeFormat(*format).name);
  }, py::arg("path"), "The format a file would be read as (its content, else its extension), or None.");
}

}  // namespace tarv::python

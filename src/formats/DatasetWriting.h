#ifndef TARV_FORMATS_DATASETWRITING_H
#define TARV_FORMATS_DATASETWRITING_H

// Writing a dataset as a file the way a user asks for it: a format, an element type, one time
// step or component, values clamped or rescaled, and the file replaced only by a complete one.
// Conversions that would lose values are refused unless the request says how.

#include <optional>
#include <string>
#include <utility>

#include "core/Progress.h"
#include "formats/FormatRegistry.h"

namespace tarv::formats {

// How the caller lets its user make the choices that refusals point to ("choose one with
// --type", "choose one with element_type=").
struct WriteChoiceNames {
  std::string elementType = "an element type";
  std::string timeStep = "a time step";
  std::string component = "a component";
  std::string clamp = "clamping";
  std::string rescale = "rescaling";
};

struct WriteRequest {
  // The format; empty: the one the path's extension names.
  std::optional<FileFormat> format;
  // The element type to write; TARV_ELEMENT_TYPE_NO_TYPE: the data's.
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  // The one time step, or component, to write; -1 for all (or the only one).
  int timeStep = -1;
  int component = -1;
  // Values outside the element type's range: refused, unless clamped to it, or unless the data's
  // range is first mapped linearly onto rescale's (low, high).
  bool clamp = false;
  std::optional<std::pair<double, double>> rescale;
  // Raw files: byte order and fillers.
  RawLayout raw;
  // Told the fraction done and asked whether to stop (a stop writes nothing); may be null.
  Progress* progress = nullptr;
  WriteChoiceNames names;
};

struct WrittenFile {
  FileFormat format = FileFormat::raw;
  DatasetCoordinates size;
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  long long bytes = 0;
};

// The format the request names, or the one of the path's extension.
Result<FileFormat> formatToWrite(const std::string& path, const WriteRequest& request);

// What writeDataset would refuse about the format, element type, time step, component and shape,
// without computing or writing anything: for checks before a long computation.
Status checkWrite(Dataset* dataset, const std::string& path, const WriteRequest& request);

// Writes the dataset as the request says. Paged TIFF, TARV1 and raw files are computed and
// written slab by slab (memory does not grow with the volume's depth), other formats take the
// data computed whole. The file appears complete or not at all: it is written beside the target
// and renamed over it, so a failure or a stop leaves an existing file as it was. Fails with the
// reason (cancelled after a stop); a lazily read source that could not read a block fails the
// write as corrupt, naming the block.
Result<WrittenFile> writeDataset(Dataset* dataset, const std::string& path, const WriteRequest& request);

}  // namespace tarv::formats

#endif

#ifndef TARV_TOOLS_DATASETFILES_H
#define TARV_TOOLS_DATASETFILES_H

#include <string>

#include "FileFormat.h"
#include "formats/DatasetWriting.h"
#include "formats/FormatRegistry.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

namespace CLI {
class App;
}

namespace tarv::tool {

// How a raw file is laid out; a raw file stores nothing of it. Values as given on the command
// line ("X,Y,Z[,T[,C]]", an element type name, "sx,sy,sz[,st]"); byte order and filler sizes go
// straight into the library's layout.
struct RawLayout {
  std::string size;
  std::string type;
  std::string spacing;
  std::string origin;
  formats::RawLayout file;
};

// Options of every command that reads dataset files.
struct InputOptions {
  std::string format;
  RawLayout raw;
  // DICOM: the SeriesInstanceUID to read from a folder of several series.
  std::string series;
};

// Options of every command that writes a dataset file.
struct OutputOptions {
  std::string format;
  std::string type;
  // The time step to write; -1 for all (or the only one).
  int time = -1;
  // The component to write; -1 for all (or the only one).
  int component = -1;
  // Values outside --type's range: refused, unless clamped to it or the data's range is rescaled
  // ("LOW,HIGH") first.
  bool clamp = false;
  std::string rescale;
  RawLayout raw;
  // The file the data is read from while it is written (a lazily read input), to name it when
  // one of its blocks cannot be read.
  std::string sourceName;
  // What is being done, for the progress bar and the message when Ctrl-C stops it; a bar is drawn
  // only with showProgress.
  std::string work = "writing";
  bool showProgress = false;
};

// Adds --input-format and the --raw-* layout options.
void addInputOptions(CLI::App& command, InputOptions& options);
// Adds --format, --type, --clamp, --rescale, --component and (withTime) --time.
void addOutputOptions(CLI::App& command, OutputOptions& options, bool withTime);
// The formats, their extensions and what they hold, for help footers.
std::string formatsHelpFooter();

// lazy: a file-backed dataset that reads blocks on demand where the format allows it (TARV1,
// paged TIFF), otherwise the whole file in memory. memory: always a plain dataset in memory.
enum class Access { lazy, memory };

struct OpenedDataset {
  DatasetHandle handle;
  FileFormat format = FileFormat::raw;
  bool lazy = false;
  std::string path;
  Dataset* get() const { return GetRawPtr(handle); }
};

// Opens a dataset file with the format named by options.format or by the extension. A .tif file
// that is not a paged (tiled) TIFF file is read through VTK. Throws ToolError naming the file
// and the reason when the file cannot be used.
OpenedDataset openDataset(const std::string& path, const InputOptions& options, Access access);

// What writeDataset wrote.
using WrittenFile = formats::WrittenFile;

// Writes the dataset (time step options.time, component options.component, converted to options.type) in the format named by
// options.format or by the extension, atomically: an existing file is replaced only by a
// complete one. Paged TIFF, TARV1 and raw files are computed and written slab by slab, so that
// memory does not grow with the volume; the other formats take the data whole (computed first,
// with a progress bar). Throws ToolError naming the file when the format cannot hold the data or
// the write fails, and ToolInterrupted when Ctrl-C stops it (nothing written).
WrittenFile writeDataset(Dataset* dataset, const std::string& path, const OutputOptions& options);

// Throws the ToolError that writeDataset would throw for the format, element type, time step
// and shape, without writing anything: for checks before a long computation.
void checkCanWrite(Dataset* dataset, const std::string& path, const OutputOptions& options);

// The header of a paged TIFF file as the library prints it; empty for other files.
std::string pagedTiffHeaderText(const std::string& path);

// Throws ToolError naming the file when a lazily read dataset could not read one of its blocks
// (a damaged tile or slice), with the library's reason.
void throwIfReadFailed(const OpenedDataset& opened);

// "128 x 128 x 64", with ", t 3" and ", 2 components" when there are several.
std::string sizeText(const DatasetCoordinates& size);

}  // namespace tarv::tool

#endif

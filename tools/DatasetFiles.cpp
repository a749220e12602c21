#include "DatasetFiles.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <sstream>
#include <vector>

#include "AtomicFile.h"
#include "Interrupt.h"
#include "OptionParsing.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
#include "formats/FormatRegistry.h"
#include "formats/SlabWriters.h"
#include "formats/ValueConversion.h"

namespace tarv::tool {

namespace {

void checkFillers(const std::string& path, const RawLayout& layout) {
  const formats::RawLayout& file = layout.file;
  for (int filler : {file.headerSize, file.trailerSize, file.elementPrefixSize, file.elementSuffixSize})
    if (filler < 0) throw ToolError(path, "raw filler sizes must not be negative");
}

// The layout of raw input files from the options; the checks that name options are the tool's.
formats::RawLayout rawLayoutFromOptions(const std::string& path, const RawLayout& layout) {
  if (layout.size.empty() || layout.type.empty())
    throw ToolError(path, "a raw file stores no layout: give at least --raw-size and --raw-type");
  checkFillers(path, layout);
  formats::RawLayout raw = layout.file;
  const std::vector<int> extents = parseIntegerList(layout.size, "--raw-size", 3, 5);
  raw.size = DatasetCoordinates(extents[0], extents[1], extents[2], extents.size() > 3 ? extents[3] : 1,
                                extents.size() > 4 ? extents[4] : 1);
  for (int k = 0; k < 5; ++k)
    if (raw.size[k] < 1) throw ToolError("--raw-size " + layout.size, "every extent must be at least 1");
  raw.elementType = parseElementType(layout.type, "--raw-type");
  WorldCoordinates spacing(1.0, 1.0, 1.0, 1.0);
  WorldCoordinates origin(0.0, 0.0, 0.0, 0.0);
  if (!layout.spacing.empty()) {
    const std::vector<double> values = parseNumberList(layout.spacing, "--raw-spacing", 3, 4);
    spacing = WorldCoordinates(values[0], values[1], values[2], values.size() > 3 ? values[3] : 1.0);
  }
  if (!layout.origin.empty()) {
    const std::vector<double> values = parseNumberList(layout.origin, "--raw-origin", 3, 4);
    origin = WorldCoordinates(values[0], values[1], values[2], values.size() > 3 ? values[3] : 0.0);
  }
  raw.embedding = DatasetWorldEmbedding(origin, spacing);
  return raw;
}

}  // namespace

std::string pagedTiffHeaderText(const std::string& path) {
  const Result<TiffFileHeader> header = formats::readPagedTiffHeader(path);
  if (!header.ok()) return std::string();
  std::ostringstream text;
  header->print(text);
  return text.str();
}

std::string sizeText(const DatasetCoordinates& size) { return formats::sizeText(size); }

void addInputOptions(CLI::App& command, InputOptions& options) {
  command.add_option("--input-format", options.format,
                     "Format of the input files instead of the one their content or extension tells: " +
                         formats::formatNameList());
  command.add_option("--series", options.series, "DICOM: the SeriesInstanceUID to read from a folder of several series");
  RawLayout& raw = options.raw;
  const char* group = "Raw input layout";
  command.add_option("--raw-size", raw.size, "Raw files: extents X,Y,Z[,T[,C]]")->group(group);
  command.add_option("--raw-type", raw.type, "Raw files: stored element type (" + elementTypeNameList() + ")")
      ->group(group);
  command.add_option("--raw-spacing", raw.spacing, "Raw files: voxel spacing sx,sy,sz[,st] (default 1)")->group(group);
  command.add_option("--raw-origin", raw.origin, "Raw files: world position of voxel 0 x,y,z[,t] (default 0)")
      ->group(group);
  command.add_flag("--raw-byte-swap", raw.file.byteSwap, "Raw files: element bytes in the other byte order")->group(group);
  command.add_option("--raw-header", raw.file.headerSize, "Raw files: bytes before the first element")->group(group);
  command.add_option("--raw-trailer", raw.file.trailerSize, "Raw files: bytes after the last element")->group(group);
  command.add_option("--raw-prefix", raw.file.elementPrefixSize, "Raw files: bytes before every element")->group(group);
  command.add_option("--raw-suffix", raw.file.elementSuffixSize, "Raw files: bytes after every element")->group(group);
}

void addOutputOptions(CLI::App& command, OutputOptions& options, bool withTime) {
  command.add_option("--format", options.format, "Output format instead of the extension's: " + formats::formatNameList());
  command.add_option("--type", options.type, "Convert the elements to this type: " + elementTypeNameList());
  command.add_flag("--clamp", options.clamp, "Values outside the --type's range become its nearest limit (else refused)");
  command.add_option("--rescale", options.rescale, "Map the data's range linearly onto LOW,HIGH before converting");
  command.add_option("--component", options.component, "Write only this component (needed for formats of fewer)")
      ->check(CLI::NonNegativeNumber);
  if (withTime) {
    command.add_option("--time", options.time, "Write only this time step (needed for formats of one time step)")
        ->check(CLI::NonNegativeNumber);
  }
}

std::string formatsHelpFooter() {
  return "Formats, chosen by the extension or by --input-format/--format:\n" + formats::formatHelpTable();
}

OpenedDataset openDataset(const std::string& path, const InputOptions& options, Access access) {
  std::error_code error;
  const bool folder = std::filesystem::is_directory(path, error);
  if (!folder)
    if (Status readable = formats::checkReadableFile(path); !readable.ok()) throw ToolError(path, readable.message());
  formats::ReadRequest request;
  // The content tells the format, else the extension, unless it is named.
  const std::optional<FileFormat> told = options.format.empty() ? formats::formatToRead(path) : std::nullopt;
  request.format = told ? *told : chooseFileFormat(path, options.format, "--input-format");
  if (folder && request.format != FileFormat::dicom) throw ToolError(path, "is a folder (only DICOM series are read from folders)");
  request.dicomSeries = options.series;
  request.lazy = access == Access::lazy;
  // A .tif file that is not a paged TIFF file is read as a TIFF stack, unless the format was named.
  request.otherTiffAsStack = options.format.empty();
  if (request.format == FileFormat::raw) request.raw = rawLayoutFromOptions(path, options.raw);
  Result<formats::OpenedFile> file = formats::readDatasetFile(path, request);
  if (!file.ok()) throw ToolError(path, file.status().message());
  OpenedDataset opened;
  opened.path = path;
  opened.handle = file->handle;
  opened.format = file->format;
  opened.lazy = file->lazy;
  return opened;
}

void throwIfReadFailed(const OpenedDataset& opened) {
  if (Status blocks = formats::blockReadStatus(opened.get()); !blocks.ok())
    throw ToolError(opened.path, "damaged file: " + blocks.message());
}

namespace {

struct WritePlan {
  FileFormat format = FileFormat::raw;
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
};

// With checkValues, values that the element type cannot hold are refused (this may compute the
// data's range).
WritePlan planWrite(Dataset* dataset, const std::string& path, const OutputOptions& options, bool checkValues) {
  WritePlan plan;
  plan.format = chooseFileFormat(path, options.format, "--format");
  if (dataset == nullptr || !dataset->hasData()) throw ToolError(path, "no data to write");
  const formats::FormatDescription& format = formats::describeFormat(plan.format);
  const DatasetCoordinates sourceSize = dataset->getSize();
  if (options.time >= sourceSize.t) {
    throw ToolError("--time " + std::to_string(options.time),
                    "the data has " + (sourceSize.t == 1 ? std::string("one time step (0)")
                                                         : "time steps 0 to " + std::to_string(sourceSize.t - 1)));
  }
  if (options.time < 0 && sourceSize.t > 1 && !format.holdsTimeSteps) {
    throw ToolError(path, std::string(format.displayName) + " holds one time step and the data has " +
                              std::to_string(sourceSize.t) + ": choose one with --time");
  }
  plan.elementType = options.type.empty() ? dataset->getElementType() : parseElementType(options.type, "--type");
  if (options.component >= sourceSize.c) {
    throw ToolError("--component " + std::to_string(options.component),
                    "the data has " + (sourceSize.c == 1 ? std::string("one component (0)")
                                                         : "components 0 to " + std::to_string(sourceSize.c - 1)));
  }
  DatasetCoordinates size = sourceSize;
  if (options.time >= 0) size.t = 1;
  if (options.component >= 0) size.c = 1;
  if (Status type = formats::checkFormatHoldsElementType(plan.format, plan.elementType); !type.ok())
    throw ToolError(path, type.message() + ": choose one with --type");
  if (Status shape = formats::checkFormatHoldsShape(plan.format, size); !shape.ok())
    throw ToolError(path, shape.message() + (format.maximumComponents > 0 && size.c > format.maximumComponents
                                                 ? ": choose one with --component"
                                             : format.holdsOnePlane && size.z > 1
                                                 ? " (use 'tarv slice' for a view of one plane)"
                                                 : ""));
  if (plan.format == FileFormat::raw) checkFillers(path, options.raw);
  if (options.clamp && !options.rescale.empty()) throw ToolError("--clamp", "give --clamp or --rescale, not both");
  if (!options.rescale.empty()) {
    const std::vector<double> range = parseNumberList(options.rescale, "--rescale", 2, 2);
    const formats::ValueLimits limits = formats::elementTypeLimits(plan.elementType);
    if (!(range[0] >= limits.lowest && range[1] <= limits.highest && range[0] < range[1]))
      throw ToolError("--rescale " + options.rescale, "LOW must be below HIGH, both within " +
                                                          std::string(elementTypeName(plan.elementType)) + "'s range");
  } else if (checkValues && !options.clamp && plan.elementType != dataset->getElementType()) {
    if (Status fits = formats::checkValuesFit(dataset, plan.elementType); !fits.ok())
      throw ToolError(path, fits.message() + ": give --clamp or --rescale LOW,HIGH");
  }
  return plan;
}

// The data to write: the dataset, or its values rescaled (held by holder).
Dataset* valuesToWrite(Dataset* dataset, const OutputOptions& options, DatasetHandle& holder) {
  if (options.rescale.empty()) return dataset;
  const std::vector<double> range = parseNumberList(options.rescale, "--rescale", 2, 2);
  holder = formats::rescaledValues(dataset, range[0], range[1]);
  return GetRawPtr(holder);
}

// The blocks of a lazily read source that could not be read, as the error of the write.
void throwIfBlocksFailed(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  if (Status blocks = formats::blockReadStatus(dataset); !blocks.ok())
    throw ToolError(options.sourceName.empty() ? path : options.sourceName, "damaged file: " + blocks.message());
}

WrittenFile writeInSlabs(Dataset* dataset, const std::string& path, const OutputOptions& options,
                         const WritePlan& plan) {
  AtomicFile file(path);
  formats::StreamedWrite request;
  request.format = plan.format;
  request.raw = options.raw.file;
  request.elementType = plan.elementType;
  request.timeStep = options.time;
  request.clampToType = options.clamp;
  Status written;
  {
    ProgressBar bar(options.work, options.showProgress);
    request.progress = &bar;
    {
      Interrupt::CancellableWork work;
      written = formats::writeDatasetFileInSlabs(dataset, file.getTemporaryPath(), request);
    }
    if (Interrupt::requested() || written.code() == StatusCode::cancelled)
      throw ToolInterrupted("interrupted while " + options.work + ", nothing written");
    if (written.ok()) bar.finish();
  }
  throwIfBlocksFailed(dataset, path, options);
  if (!written.ok()) throw ToolError(path, "writing failed: " + written.message());
  WrittenFile result;
  result.format = plan.format;
  result.size = dataset->getSize();
  if (options.time >= 0) result.size.t = 1;
  result.elementType = plan.elementType;
  result.bytes = file.getTemporarySize();
  file.commit();
  return result;
}

WrittenFile writeValues(Dataset* dataset, const std::string& path, const OutputOptions& options, const WritePlan& plan) {
  if (formats::formatWritesInSlabs(plan.format)) return writeInSlabs(dataset, path, options, plan);
  calculateWithProgress(dataset, options.work, options.showProgress);
  DatasetHandle converted;
  Dataset* data = dataset;
  if (options.time >= 0 || plan.elementType != dataset->getElementType()) {
    DatasetBoundingBox box = dataset->getVoxelBoundingBox();
    if (options.time >= 0) box.start.t = box.end.t = options.time;
    data = new Dataset(true);
    converted = data;
    if (options.clamp)
      formats::convertPartClamping(*data, dataset, plan.elementType, box);
    else
      data->convertPartFrom(dataset, plan.elementType, box);
    if (!data->hasData()) throw ToolError(path, "not enough memory to convert the data");
  }

  AtomicFile file(path);
  const Status written = formats::writeDatasetFile(data, file.getTemporaryPath(), plan.format, options.raw.file);
  // A lazily read source may have failed to give some of the data.
  throwIfBlocksFailed(dataset, path, options);
  if (!written.ok()) throw ToolError(path, "writing failed: " + written.message());
  WrittenFile result;
  result.format = plan.format;
  result.size = data->getSize();
  result.elementType = plan.elementType;
  result.bytes = file.getTemporarySize();
  file.commit();
  return result;
}

}  // namespace

void checkCanWrite(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  planWrite(dataset, path, options, false);
}

WrittenFile writeDataset(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  if (options.component >= 0) {
    // The chosen component in memory, then written as data of one component.
    planWrite(dataset, path, options, false);
    Result<DatasetHandle> part = formats::componentOf(dataset, options.component);
    throwIfBlocksFailed(dataset, path, options);
    if (!part.ok()) throw ToolError(path, part.status().message());
    OutputOptions rest = options;
    rest.component = -1;
    return writeDataset(GetRawPtr(*part), path, rest);
  }
  const WritePlan plan = planWrite(dataset, path, options, true);
  // Rescaled values are written in the type the data had, unless --type names another.
  DatasetHandle rescaled;
  return writeValues(valuesToWrite(dataset, options, rescaled), path, options, plan);
}

}  // namespace tarv::tool

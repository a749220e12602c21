#include "DatasetFiles.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <sstream>
#include <vector>

#include "Interrupt.h"
#include "OptionParsing.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
#include "formats/DatasetWriting.h"
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

// The request for the library, after the checks of the options' own values.
formats::WriteRequest writeRequest(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  formats::WriteRequest request;
  request.format = chooseFileFormat(path, options.format, "--format");
  if (dataset == nullptr || !dataset->hasData()) throw ToolError(path, "no data to write");
  const DatasetCoordinates size = dataset->getSize();
  if (options.time >= size.t) {
    throw ToolError("--time " + std::to_string(options.time),
                    "the data has " + (size.t == 1 ? std::string("one time step (0)")
                                                   : "time steps 0 to " + std::to_string(size.t - 1)));
  }
  if (options.component >= size.c) {
    throw ToolError("--component " + std::to_string(options.component),
                    "the data has " + (size.c == 1 ? std::string("one component (0)")
                                                   : "components 0 to " + std::to_string(size.c - 1)));
  }
  if (!options.type.empty()) request.elementType = parseElementType(options.type, "--type");
  request.timeStep = options.time;
  request.component = options.component;
  request.clamp = options.clamp;
  if (options.clamp && !options.rescale.empty()) throw ToolError("--clamp", "give --clamp or --rescale, not both");
  if (!options.rescale.empty()) {
    const std::vector<double> range = parseNumberList(options.rescale, "--rescale", 2, 2);
    const TARVElementType type =
        request.elementType == TARV_ELEMENT_TYPE_NO_TYPE ? dataset->getElementType() : request.elementType;
    const formats::ValueLimits limits = formats::elementTypeLimits(type);
    if (!(range[0] >= limits.lowest && range[1] <= limits.highest && range[0] < range[1]))
      throw ToolError("--rescale " + options.rescale,
                      "LOW must be below HIGH, both within " + std::string(elementTypeName(type)) + "'s range");
    request.rescale = std::make_pair(range[0], range[1]);
  }
  checkFillers(path, options.raw);
  request.raw = options.raw.file;
  request.names.elementType = "--type";
  request.names.timeStep = "--time";
  request.names.component = "--component";
  request.names.clamp = "--clamp";
  request.names.rescale = "--rescale LOW,HIGH";
  return request;
}

// A refusal of the library as the tool's error: about the target file, or about the file being
// read when one of its blocks could not be read.
[[noreturn]] void throwWriteError(const Status& status, const std::string& path, const OutputOptions& options) {
  const bool damagedSource = status.code() == StatusCode::corrupt && status.message().rfind("damaged file", 0) == 0;
  std::string message = status.message();
  // A stack of planes for a format of one plane: the tool has a command for that.
  if (message.find(" holds one plane;") != std::string::npos) message += " (use 'tarv slice' for a view of one plane)";
  throw ToolError(damagedSource && !options.sourceName.empty() ? options.sourceName : path, message);
}

}  // namespace

void checkCanWrite(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  const formats::WriteRequest request = writeRequest(dataset, path, options);
  if (Status checked = formats::checkWrite(dataset, path, request); !checked.ok())
    throwWriteError(checked, path, options);
}

WrittenFile writeDataset(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  formats::WriteRequest request = writeRequest(dataset, path, options);
  Result<formats::WrittenFile> written = invalidArgumentError("not written");
  {
    ProgressBar bar(options.work, options.showProgress);
    request.progress = &bar;
    {
      Interrupt::CancellableWork work;
      written = formats::writeDataset(dataset, path, request);
    }
    if (Interrupt::requested() || (!written.ok() && written.status().code() == StatusCode::cancelled))
      throw ToolInterrupted("interrupted while " + options.work + ", nothing written");
    if (written.ok()) bar.finish();
  }
  if (!written.ok()) throwWriteError(written.status(), path, options);
  return *written;
}

}  // namespace tarv::tool

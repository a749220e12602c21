#include "DatasetFiles.h"

#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "AtomicFile.h"
#include "elementtypes/ElementTypeNames.h"
#include "LibraryMessages.h"
#include "OptionParsing.h"
#include "ToolError.h"
#include "dataset/FileReadDataset.h"
#include "dataset/JPEGDatasetFileReadWrite.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TARV1FileHeader.h"
#include "dataset/TIFFDatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileHeader.h"
#include "dataset/TiffFileReadModule.h"
#include "dataset/VTIDatasetFileReadWrite.h"

namespace tarv::tool {

namespace {

// Datasets count their elements in 32 bits.
constexpr long long kMaximumElementCount = 2147483647LL;

long long elementCount(const DatasetCoordinates& size) {
  long long count = 1;
  for (int k = 0; k < 5; ++k) count *= size[k];
  return count;
}

long long fileSize(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return -1;
  return static_cast<long long>(status.st_size);
}

void checkReadable(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) throw ToolError(path, "no such file");
    throw ToolError(path, std::strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) throw ToolError(path, "is a directory");
  if (!S_ISREG(status.st_mode)) throw ToolError(path, "not a regular file");
  if (::access(path.c_str(), R_OK) != 0) throw ToolError(path, "cannot read: " + std::string(std::strerror(errno)));
}

void checkElementCount(const std::string& path, const DatasetCoordinates& size) {
  if (elementCount(size) > kMaximumElementCount)
    throw ToolError(path, "too large: " + sizeText(size) + " is 2^31 elements or more");
}

std::string withReason(const std::string& what, const std::string& reason) {
  return reason.empty() ? what : what + ": " + reason;
}

// Why the TARV1 readers refuse a file, in the words of its header.
std::string tarv1Problem(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  const long long bytes = fileSize(path);
  if (!stream || bytes < 0) return "cannot read it";
  if (bytes < TARV1FileHeader::headerByteSize)
    return "too short for a TARV1 header (" + std::to_string(bytes) + " bytes, the header alone is 2048)";
  std::string text(TARV1FileHeader::headerByteSize, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text[TARV1FileHeader::headerByteSize - 1] = '\n';
  text.resize(std::strlen(text.c_str()));
  TARV1FileHeader header;
  header.parseText(text);
  if (header.size.x < 1 || header.size.y < 1 || header.size.z < 1 || header.size.t < 1)
    return "not a TARV1 file (its header gives no extents X, Y, Z and t)";
  if (header.factor < 1) return "not a TARV1 file (its header gives no factor)";
  const long long expected = TARV1FileHeader::headerByteSize + 2LL * header.size.x * header.size.y * header.size.z *
                                                                   header.size.t;
  if (expected != bytes) {
    return "the file is " + std::to_string(bytes) + " bytes but its header describes " + std::to_string(expected) +
           (bytes < expected ? " (truncated)" : "");
  }
  if (expected > 0xffffffffLL) return "too large for the TARV1 format (4 GiB at most)";
  return "its header is not accepted";
}

// The paged TIFF header of a file, if it is a TIFF file at all.
struct TiffProbe {
  bool isTiff = false;
  TiffFileHeader header;
  std::string problem;
};

TiffProbe probeTiff(const std::string& path) {
  TiffProbe probe;
  LibraryMessages messages;
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  if (tiff == nullptr) {
    probe.problem = withReason("not a readable TIFF file", messages.reason());
    return probe;
  }
  probe.isTiff = true;
  probe.header.read(tiff);
  TIFFClose(tiff);
  if (!probe.header.isValid()) probe.problem = withReason("not a paged TIFF file", messages.reason());
  return probe;
}

DatasetHandle openTarv1(const std::string& path, Access access, bool& lazy) {
  LibraryMessages messages;
  FileReadDataset* file = new FileReadDataset();
  DatasetHandle handle(file);
  file->setFileReadModule(new TARV1DatasetFileReadModule());
  if (!file->openFile(path)) throw ToolError(path, tarv1Problem(path));
  checkElementCount(path, file->getSize());
  if (access == Access::lazy) {
    lazy = true;
    return handle;
  }
  Dataset* dataset = new Dataset(true);
  DatasetHandle memory(dataset);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = path;
  reader.read(dataset);
  if (!dataset->hasData()) throw ToolError(path, withReason("cannot read the TARV1 file", messages.reason()));
  return memory;
}

DatasetHandle openPagedTiff(const std::string& path, Access access, bool& lazy) {
  LibraryMessages messages;
  FileReadDataset* file = new FileReadDataset();
  DatasetHandle handle(file);
  file->setFileReadModule(new TiffFileReadModule());
  if (!file->openFile(path)) throw ToolError(path, withReason("cannot read the paged TIFF file", messages.reason()));
  checkElementCount(path, file->getSize());
  if (access == Access::lazy) {
    lazy = true;
    return handle;
  }
  Dataset* dataset = new Dataset(true);
  DatasetHandle memory(dataset);
  dataset->copyFrom(file);
  throwIfReadFailed(messages, path);
  if (!dataset->hasData()) throw ToolError(path, "not enough memory to read it");
  return memory;
}

std::unique_ptr<VTKDatasetFileReadWrite> makeVtkReadWrite(FileFormat format) {
  switch (format) {
    case FileFormat::vtkTiff: return std::make_unique<TIFFDatasetFileReadWrite>();
    case FileFormat::png: return std::make_unique<PNGDatasetFileReadWrite>();
    case FileFormat::jpeg: return std::make_unique<JPEGDatasetFileReadWrite>();
    case FileFormat::vti: return std::make_unique<VTIDatasetFileReadWrite>();
    default: return nullptr;
  }
}

DatasetHandle openWithVtk(const std::string& path, FileFormat format) {
  LibraryMessages messages;
  std::unique_ptr<VTKDatasetFileReadWrite> reader = makeVtkReadWrite(format);
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  reader->setFileName(path);
  reader->read(dataset, 0);
  if (!dataset->hasData())
    throw ToolError(path, withReason(std::string("not a readable ") + fileFormatDisplayName(format) + " file",
                                     messages.reason()));
  return handle;
}

DatasetHandle openRaw(const std::string& path, const RawLayout& layout) {
  if (layout.size.empty() || layout.type.empty())
    throw ToolError(path, "a raw file stores no layout: give at least --raw-size and --raw-type");
  const std::vector<int> extents = parseIntegerList(layout.size, "--raw-size", 3, 5);
  DatasetCoordinates size(extents[0], extents[1], extents[2], extents.size() > 3 ? extents[3] : 1,
                          extents.size() > 4 ? extents[4] : 1);
  for (int k = 0; k < 5; ++k)
    if (size[k] < 1) throw ToolError("--raw-size " + layout.size, "every extent must be at least 1");
  checkElementCount(path, size);
  const TARVElementType type = parseElementType(layout.type, "--raw-type");
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
  for (int filler : {layout.headerSize, layout.trailerSize, layout.elementPrefixSize, layout.elementSuffixSize})
    if (filler < 0) throw ToolError(path, "raw filler sizes must not be negative");

  const long long elementBytes = RawDatasetFileReadWrite::getStoredElementSize(type) + layout.elementPrefixSize +
                                 layout.elementSuffixSize;
  const long long expected = layout.headerSize + layout.trailerSize + elementCount(size) * elementBytes;
  const long long bytes = fileSize(path);
  if (expected != bytes) {
    throw ToolError(path, "the file is " + std::to_string(bytes) + " bytes but the raw layout " + sizeText(size) +
                              " " + elementTypeName(type) + " describes " + std::to_string(expected));
  }
  if (expected > kMaximumElementCount) throw ToolError(path, "raw files of 2 GiB or more cannot be read");

  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(size, type, DatasetWorldEmbedding(origin, spacing));
  if (!dataset->hasData()) throw ToolError(path, "not enough memory to read it");
  RawDatasetFileReadWrite reader;
  reader.fileName = path;
  reader.elementType = type;
  reader.byteSwap = layout.byteSwap;
  reader.headerSize = layout.headerSize;
  reader.trailerSize = layout.trailerSize;
  reader.elementPrefixSize = layout.elementPrefixSize;
  reader.elementSuffixSize = layout.elementSuffixSize;
  reader.read(dataset);
  return handle;
}

// Element types that a format can store, as written by its writer.
bool formatHoldsElementType(FileFormat format, TARVElementType type) {
  switch (format) {
    case FileFormat::tarv1:
    case FileFormat::raw: return isStorableElementType(type);
    case FileFormat::pagedTiff: {
      TiffFileHeader header;
      header.setElementType(type);
      unsigned int sampleFormat = 0;
      unsigned int bits = 0;
      return header.sampleFormatFromElementType(sampleFormat, bits);
    }
    case FileFormat::vtkTiff:
      return type == TARV_ELEMENT_TYPE_UNSIGNED_CHAR || type == TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT ||
             type == TARV_ELEMENT_TYPE_FLOAT;
    case FileFormat::png: return type == TARV_ELEMENT_TYPE_UNSIGNED_CHAR || type == TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
    case FileFormat::jpeg: return type == TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
    // 64-bit integers would be written, but VTK reads them back as a type the library does not take.
    case FileFormat::vti:
      return isStorableElementType(type) && type != TARV_ELEMENT_TYPE_SIGNED_LONG_INT &&
             type != TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT && type != TARV_ELEMENT_TYPE_LONG_DOUBLE;
  }
  return false;
}

std::string typesHeldBy(FileFormat format) {
  std::string list;
  for (int type = TARV_ELEMENT_TYPE_BOOL; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    if (!formatHoldsElementType(format, static_cast<TARVElementType>(type))) continue;
    if (!list.empty()) list += ", ";
    list += elementTypeName(static_cast<TARVElementType>(type));
  }
  return list;
}

void checkFormatCanHold(FileFormat format, TARVElementType type, const DatasetCoordinates& size,
                        const std::string& path) {
  const std::string name = fileFormatDisplayName(format);
  if (!formatHoldsElementType(format, type)) {
    throw ToolError(path, name + " cannot hold " + elementTypeName(type) + " elements (it holds " +
                              typesHeldBy(format) + "): choose one with --type");
  }
  const int maximumComponents = format == FileFormat::raw ? size.c : format == FileFormat::pagedTiff ? 4 : 1;
  if (size.c > maximumComponents) {
    throw ToolError(path, name + " holds at most " + std::to_string(maximumComponents) + " component" +
                              (maximumComponents == 1 ? "" : "s") + " per voxel; the data has " +
                              std::to_string(size.c));
  }
  if ((format == FileFormat::png || format == FileFormat::jpeg) && size.z > 1) {
    throw ToolError(path, name + " holds one plane; the data has " + std::to_string(size.z) +
                              " (use 'tarv slice' for a view of one plane)");
  }
}

// Checks that the writer left a complete file.
void checkWrittenFile(FileFormat format, Dataset* data, const AtomicFile& file, const OutputOptions& options,
                      const LibraryMessages& messages) {
  const std::string& path = file.getTargetPath();
  const long long bytes = file.getTemporarySize();
  if (messages.hasReadError() || messages.hasVtkError() || bytes <= 0)
    throw ToolError(path, withReason("writing failed", messages.reason()));
  const DatasetCoordinates size = data->getSize();
  long long expected = -1;
  if (format == FileFormat::tarv1) {
    expected = TARV1FileHeader::headerByteSize + 2LL * size.x * size.y * size.z * size.t;
  } else if (format == FileFormat::raw) {
    expected = options.raw.headerSize + options.raw.trailerSize +
               elementCount(size) * (RawDatasetFileReadWrite::getStoredElementSize(data->getElementType()) +
                                     options.raw.elementPrefixSize + options.raw.elementSuffixSize);
  } else if (format == FileFormat::pagedTiff) {
    TiffProbe probe = probeTiff(file.getTemporaryPath());
    if (!probe.header.isValid()) throw ToolError(path, withReason("writing failed", messages.reason()));
  }
  if (expected >= 0 && bytes != expected)
    throw ToolError(path, withReason("writing failed after " + std::to_string(bytes) + " of " +
                                         std::to_string(expected) + " bytes",
                                     messages.reason()));
}

}  // namespace

std::string pagedTiffHeaderText(const std::string& path) {
  TiffProbe probe = probeTiff(path);
  if (!probe.header.isValid() || probe.header.getPageMode() != TiffPageMode::tile) return std::string();
  std::ostringstream text;
  probe.header.print(text);
  return text.str();
}

std::string sizeText(const DatasetCoordinates& size) {
  std::string text = std::to_string(size.x) + " x " + std::to_string(size.y) + " x " + std::to_string(size.z);
  if (size.t != 1) text += ", t " + std::to_string(size.t);
  if (size.c != 1) text += ", " + std::to_string(size.c) + " components";
  return text;
}

void addInputOptions(CLI::App& command, InputOptions& options) {
  command.add_option("--input-format", options.format,
                     std::string("Format of the input files instead of their extension: ") + fileFormatNameList());
  RawLayout& raw = options.raw;
  const char* group = "Raw input layout";
  command.add_option("--raw-size", raw.size, "Raw files: extents X,Y,Z[,T[,C]]")->group(group);
  command.add_option("--raw-type", raw.type, "Raw files: stored element type (" + elementTypeNameList() + ")")
      ->group(group);
  command.add_option("--raw-spacing", raw.spacing, "Raw files: voxel spacing sx,sy,sz[,st] (default 1)")->group(group);
  command.add_option("--raw-origin", raw.origin, "Raw files: world position of voxel 0 x,y,z[,t] (default 0)")
      ->group(group);
  command.add_flag("--raw-byte-swap", raw.byteSwap, "Raw files: element bytes in the other byte order")->group(group);
  command.add_option("--raw-header", raw.headerSize, "Raw files: bytes before the first element")->group(group);
  command.add_option("--raw-trailer", raw.trailerSize, "Raw files: bytes after the last element")->group(group);
  command.add_option("--raw-prefix", raw.elementPrefixSize, "Raw files: bytes before every element")->group(group);
  command.add_option("--raw-suffix", raw.elementSuffixSize, "Raw files: bytes after every element")->group(group);
}

void addOutputOptions(CLI::App& command, OutputOptions& options, bool withTime) {
  command.add_option("--format", options.format,
                     std::string("Output format instead of the extension's: ") + fileFormatNameList());
  command.add_option("--type", options.type, "Convert the elements to this type: " + elementTypeNameList());
  if (withTime) {
    command.add_option("--time", options.time, "Write only this time step (needed for formats of one time step)")
        ->check(CLI::NonNegativeNumber);
  }
}

OpenedDataset openDataset(const std::string& path, const InputOptions& options, Access access) {
  checkReadable(path);
  OpenedDataset opened;
  opened.path = path;
  opened.format = chooseFileFormat(path, options.format, "--input-format");
  switch (opened.format) {
    case FileFormat::tarv1: opened.handle = openTarv1(path, access, opened.lazy); break;
    case FileFormat::pagedTiff: {
      const TiffProbe probe = probeTiff(path);
      if (probe.header.isValid() && probe.header.getPageMode() == TiffPageMode::tile) {
        opened.handle = openPagedTiff(path, access, opened.lazy);
      } else if (probe.isTiff && options.format.empty()) {
        // A striped TIFF file, as other programs write them.
        opened.format = FileFormat::vtkTiff;
        opened.handle = openWithVtk(path, opened.format);
      } else {
        throw ToolError(path, probe.isTiff ? "not a paged (tiled) TIFF file" : probe.problem);
      }
      break;
    }
    case FileFormat::raw: opened.handle = openRaw(path, options.raw); break;
    case FileFormat::vtkTiff:
    case FileFormat::png:
    case FileFormat::jpeg:
    case FileFormat::vti: opened.handle = openWithVtk(path, opened.format); break;
  }
  checkElementCount(path, opened.get()->getSize());
  return opened;
}

void throwIfReadFailed(const LibraryMessages& messages, const std::string& path) {
  if (messages.hasReadError()) throw ToolError(path, withReason("damaged file", messages.reason()));
}

namespace {

struct WritePlan {
  FileFormat format = FileFormat::raw;
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
};

WritePlan planWrite(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  WritePlan plan;
  plan.format = chooseFileFormat(path, options.format, "--format");
  if (dataset == nullptr || !dataset->hasData()) throw ToolError(path, "no data to write");
  const DatasetCoordinates sourceSize = dataset->getSize();
  if (options.time >= sourceSize.t) {
    throw ToolError("--time " + std::to_string(options.time),
                    "the data has " + (sourceSize.t == 1 ? std::string("one time step (0)")
                                                         : "time steps 0 to " + std::to_string(sourceSize.t - 1)));
  }
  if (options.time < 0 && sourceSize.t > 1 && !holdsTimeSteps(plan.format)) {
    throw ToolError(path, std::string(fileFormatDisplayName(plan.format)) + " holds one time step and the data has " +
                              std::to_string(sourceSize.t) + ": choose one with --time");
  }
  plan.elementType = options.type.empty() ? dataset->getElementType() : parseElementType(options.type, "--type");
  DatasetCoordinates size = sourceSize;
  if (options.time >= 0) size.t = 1;
  checkFormatCanHold(plan.format, plan.elementType, size, path);
  if (plan.format == FileFormat::raw) {
    for (int filler : {options.raw.headerSize, options.raw.trailerSize, options.raw.elementPrefixSize,
                       options.raw.elementSuffixSize})
      if (filler < 0) throw ToolError(path, "raw filler sizes must not be negative");
  }
  return plan;
}

}  // namespace

void checkCanWrite(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  planWrite(dataset, path, options);
}

WrittenFile writeDataset(Dataset* dataset, const std::string& path, const OutputOptions& options) {
  const WritePlan plan = planWrite(dataset, path, options);
  const FileFormat format = plan.format;
  const TARVElementType type = plan.elementType;

  LibraryMessages messages;
  DatasetHandle converted;
  Dataset* data = dataset;
  if (options.time >= 0 || type != dataset->getElementType()) {
    DatasetBoundingBox box = dataset->getVoxelBoundingBox();
    if (options.time >= 0) box.start.t = box.end.t = options.time;
    data = new Dataset(true);
    converted = data;
    data->convertPartFrom(dataset, type, box);
    if (!data->hasData()) throw ToolError(path, "not enough memory to convert the data");
  }

  AtomicFile file(path);
  const std::string& temporary = file.getTemporaryPath();
  switch (format) {
    case FileFormat::tarv1: {
      TARV1DatasetFileReadWrite writer;
      writer.fileName = temporary;
      writer.write(data);
      break;
    }
    case FileFormat::pagedTiff: {
      TiffDatasetFileWrite writer;
      writer.fileName = temporary;
      writer.write(data);
      break;
    }
    case FileFormat::raw: {
      RawDatasetFileReadWrite writer;
      writer.fileName = temporary;
      writer.elementType = type;
      writer.byteSwap = options.raw.byteSwap;
      writer.headerSize = options.raw.headerSize;
      writer.trailerSize = options.raw.trailerSize;
      writer.elementPrefixSize = options.raw.elementPrefixSize;
      writer.elementSuffixSize = options.raw.elementSuffixSize;
      writer.write(data);
      break;
    }
    case FileFormat::vtkTiff:
    case FileFormat::png:
    case FileFormat::jpeg:
    case FileFormat::vti: {
      std::unique_ptr<VTKDatasetFileReadWrite> writer = makeVtkReadWrite(format);
      writer->setFileName(temporary);
      writer->write(data, 0);
      break;
    }
  }
  if (!options.sourceName.empty() && messages.hasBlockReadError())
    throw ToolError(options.sourceName, withReason("damaged file", messages.reason()));
  checkWrittenFile(format, data, file, options, messages);
  WrittenFile written;
  written.format = format;
  written.size = data->getSize();
  written.elementType = type;
  written.bytes = file.getTemporarySize();
  file.commit();
  return written;
}

}  // namespace tarv::tool

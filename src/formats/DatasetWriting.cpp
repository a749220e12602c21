#include "formats/DatasetWriting.h"

#include "formats/AtomicFile.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
#include "formats/SlabWriters.h"
#include "formats/ValueConversion.h"

namespace tarv::formats {

namespace {

std::string countRange(const char* what, int count) {
  return count == 1 ? "one " + std::string(what) + " (0)" : std::string(what) + "s 0 to " + std::to_string(count - 1);
}

TARVElementType typeToWrite(Dataset* dataset, const WriteRequest& request) {
  return request.elementType == TARV_ELEMENT_TYPE_NO_TYPE ? dataset->getElementType() : request.elementType;
}

}  // namespace

Result<FileFormat> formatToWrite(const std::string& path, const WriteRequest& request) {
  if (request.format) return *request.format;
  if (const std::optional<FileFormat> format = formatFromExtension(path)) return *format;
  return invalidArgumentError("the extension names no format (known: " + formatExtensionList() +
                              "); name one (" + formatNameList() + ")");
}

Status checkWrite(Dataset* dataset, const std::string& path, const WriteRequest& request) {
  Result<FileFormat> format = formatToWrite(path, request);
  if (!format.ok()) return format.status();
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  const FormatDescription& description = describeFormat(*format);
  const DatasetCoordinates sourceSize = dataset->getSize();
  if (request.timeStep >= sourceSize.t)
    return invalidArgumentError("no time step " + std::to_string(request.timeStep) + ": the data has " +
                                countRange("time step", sourceSize.t));
  if (request.component >= sourceSize.c)
    return invalidArgumentError("no component " + std::to_string(request.component) + ": the data has " +
                                countRange("component", sourceSize.c));
  if (request.timeStep < 0 && sourceSize.t > 1 && !description.holdsTimeSteps)
    return unsupportedError(std::string(description.displayName) + " holds one time step and the data has " +
                            std::to_string(sourceSize.t) + ": choose one with " + request.names.timeStep);
  if (Status type = checkFormatHoldsElementType(*format, typeToWrite(dataset, request)); !type.ok())
    return description.writes ? Status(type.code(), type.message() + ": choose one with " + request.names.elementType)
                              : type;
  DatasetCoordinates size = sourceSize;
  if (request.timeStep >= 0) size.t = 1;
  if (request.component >= 0) size.c = 1;
  if (Status shape = checkFormatHoldsShape(*format, size); !shape.ok()) {
    const bool components = description.maximumComponents > 0 && size.c > description.maximumComponents;
    return components ? Status(shape.code(), shape.message() + ": choose one with " + request.names.component) : shape;
  }
  if (request.clamp && request.rescale) return invalidArgumentError("clamp or rescale the values, not both");
  if (request.rescale) {
    const ValueLimits limits = elementTypeLimits(typeToWrite(dataset, request));
    const auto [low, high] = *request.rescale;
    if (!(low >= limits.lowest && high <= limits.highest && low < high))
      return invalidArgumentError("rescaling needs a low value below the high one, both within " +
                                  std::string(elementTypeName(typeToWrite(dataset, request))) + "'s range");
  }
  for (int filler : {request.raw.headerSize, request.raw.trailerSize, request.raw.elementPrefixSize,
                     request.raw.elementSuffixSize})
    if (filler < 0) return invalidArgumentError("raw filler sizes must not be negative");
  return okStatus();
}

namespace {

// Writes the data (component and rescaling applied) into the temporary file.
Status writeValues(Dataset* data, const std::string& temporary, FileFormat format, TARVElementType type,
                   const WriteRequest& request) {
  if (formatWritesInSlabs(format)) {
    StreamedWrite streamed;
    streamed.format = format;
    streamed.raw = request.raw;
    streamed.elementType = type;
    streamed.timeStep = request.timeStep;
    streamed.clampToType = request.clamp;
    streamed.progress = request.progress;
    return writeDatasetFileInSlabs(data, temporary, streamed);
  }
  data->calculateFullDataset(request.progress);
  if (request.progress != nullptr && request.progress->shouldStop()) return cancelledError("stopped, nothing written");
  DatasetHandle converted;
  Dataset* values = data;
  if (request.timeStep >= 0 || type != data->getElementType()) {
    DatasetBoundingBox box = data->getVoxelBoundingBox();
    if (request.timeStep >= 0) box.start.t = box.end.t = request.timeStep;
    values = new Dataset(true);
    converted = values;
    if (request.clamp)
      convertPartClamping(*values, data, type, box);
    else
      values->convertPartFrom(data, type, box);
    if (!values->hasData()) return resourceExhaustedError("not enough memory to convert the data");
  }
  return writeDatasetFile(values, temporary, format, request.raw);
}

}  // namespace

Result<WrittenFile> writeDataset(Dataset* dataset, const std::string& path, const WriteRequest& request) {
  if (Status checked = checkWrite(dataset, path, request); !checked.ok()) return checked;
  const FileFormat format = *formatToWrite(path, request);
  const TARVElementType type = typeToWrite(dataset, request);

  DatasetHandle component;
  Dataset* data = dataset;
  if (request.component >= 0) {
    Result<DatasetHandle> part = componentOf(dataset, request.component);
    if (Status blocks = graphBlockReadStatus(dataset); !blocks.ok()) return corruptError("damaged file: " + blocks.message());
    if (!part.ok()) return part.status();
    component = *part;
    data = GetRawPtr(component);
  }
  DatasetHandle rescaled;
  if (request.rescale) {
    rescaled = rescaledValues(data, request.rescale->first, request.rescale->second);
    data = GetRawPtr(rescaled);
  } else if (!request.clamp && type != data->getElementType()) {
    if (Status fits = checkValuesFit(data, type); !fits.ok())
      return Status(fits.code(), fits.message() + ": give " + request.names.clamp + " or " + request.names.rescale);
  }

  AtomicFile file;
  if (Status opened = file.open(path); !opened.ok()) return opened;
  const Status written = writeValues(data, file.getTemporaryPath(), format, type, request);
  // A lazily read source may have failed to give some of the data.
  if (Status blocks = graphBlockReadStatus(dataset); !blocks.ok()) return corruptError("damaged file: " + blocks.message());
  if (!written.ok()) {
    if (written.code() == StatusCode::cancelled) return written;
    return Status(written.code(), "writing failed: " + written.message());
  }
  WrittenFile result;
  result.format = format;
  result.size = data->getSize();
  if (request.timeStep >= 0) result.size.t = 1;
  result.elementType = type;
  result.bytes = file.getTemporarySize();
  if (Status committed = file.commit(); !committed.ok()) return committed;
  return result;
}

}  // namespace tarv::formats

#ifndef TARV_FORMATS_FORMATREGISTRY_H
#define TARV_FORMATS_FORMATREGISTRY_H

// The dataset file formats in one table, and reading and writing a file by format: what a program
// built on the library needs to offer every format without knowing each class.

#include <optional>
#include <span>
#include <string>

#include "core/DatasetCoordinates.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TiffFileHeader.h"
#include "status/Status.h"

namespace tarv::formats {

enum class FileFormat { tarv1, pagedTiff, vtkTiff, raw, png, jpeg, vti, nifti, niftiGz, tiffStack, dicom, metaImage, nrrd };

struct FormatDescription {
  FileFormat format;
  // The name to choose it by, and further accepted names ('|' separated).
  const char* name;
  const char* aliases;
  const char* displayName;
  // Extensions that choose it, blank separated; empty when only the name does.
  const char* extensions;
  // Read block by block into a file-backed dataset.
  bool readsLazily;
  bool holdsTimeSteps;
  // Components per voxel; 0 for any number.
  int maximumComponents;
  bool holdsOnePlane;
  // What a file holds and its limits, on one line.
  const char* holds;
  // False for formats that are only read.
  bool writes = true;
};

std::span<const FormatDescription> formatTable();
const FormatDescription& describeFormat(FileFormat format);
// From a name of the table, any case; empty when unknown.
std::optional<FileFormat> formatFromName(const std::string& name);
// From the file name's extension (the longest that matches: .nii.gz before .gz), any case; empty
// when unknown.
std::optional<FileFormat> formatFromExtension(const std::string& path);
// The format of a file from its first bytes (a folder: a DICOM series); empty when they tell
// nothing. Raw files have no signature.
std::optional<FileFormat> probeFileFormat(const std::string& path);
// The format to read path as: probed from its content, else from its extension (a .raw file is
// always raw); empty when neither tells.
std::optional<FileFormat> formatToRead(const std::string& path);

// "tarv1, tiff, vtk-tiff, raw, png, jpeg, vti" and ".tarv, .tif, .tiff, .raw, .png, .jpg, .jpeg, .vti".
std::string formatNameList();
std::string formatExtensionList();
// One line per format: name, extensions and what it holds, in columns, each line indented by two.
std::string formatHelpTable();

// Element types the format's writer stores so that its reader gives them back.
bool formatHoldsElementType(FileFormat format, TARVElementType type);
// Their short names, comma separated.
std::string elementTypesHeldBy(FileFormat format);
// Unsupported, with the reason, when the format cannot hold elements of the type.
Status checkFormatHoldsElementType(FileFormat format, TARVElementType type);
// Unsupported, with the reason, when the format cannot hold the components or planes of size
// (time steps are the caller's to choose).
Status checkFormatHoldsShape(FileFormat format, const DatasetCoordinates& size);

// How a raw file is laid out; it stores nothing of it.
struct RawLayout {
  DatasetCoordinates size{0, 0, 0, 0, 0};
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  DatasetWorldEmbedding embedding;
  bool byteSwap = false;
  int headerSize = 0;
  int trailerSize = 0;
  int elementPrefixSize = 0;
  int elementSuffixSize = 0;
};

// The raw file object for path in the layout, holding elements of the type.
RawDatasetFileReadWrite rawFileFor(const std::string& path, const RawLayout& layout, TARVElementType type);

struct ReadRequest {
  FileFormat format = FileFormat::raw;
  // A file-backed dataset read block by block where the format allows it, else one in memory.
  bool lazy = true;
  // A paged TIFF request takes a TIFF file of another layout (strips, several pages) as a TIFF
  // stack instead.
  bool otherTiffAsStack = true;
  // Raw files only.
  RawLayout raw;
  // DICOM only: the SeriesInstanceUID to read when the files hold several series.
  std::string dicomSeries;
};

struct OpenedFile {
  DatasetHandle handle;
  // The format it was read as (a TIFF file that is not a paged TIFF file: tiffStack).
  FileFormat format = FileFormat::raw;
  bool lazy = false;
};

// Opens or reads a dataset file. Fails with the reason when the file cannot be used, or holds
// 2^31 elements or more.
Result<OpenedFile> readDatasetFile(const std::string& path, const ReadRequest& request);
// For a dataset that readDatasetFile opened lazily: the first block that could not be read since;
// ok for any other dataset.
Status blockReadStatus(Dataset* dataset);
// The same for the dataset and every dataset it is computed from: the first lazily read file in
// its graph that could not give some of its elements.
Status graphBlockReadStatus(Dataset* dataset);
// Writes the dataset in the format (time step 0 for formats of one time step); raw
// files take the dataset's element type and the layout's byte order and fillers.
Status writeDatasetFile(Dataset* dataset, const std::string& path, FileFormat format, const RawLayout& raw);
// The header of a paged TIFF file; fails for other files.
Result<TiffFileHeader> readPagedTiffHeader(const std::string& path);

}  // namespace tarv::formats

#endif

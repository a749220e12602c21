#include "formats/FormatRegistry.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "dataset/DependentDataset.h"
#include "dataset/FileReadDataset.h"
#include "dataset/JPEGDatasetFileReadWrite.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TIFFDatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileReadModule.h"
#include "dataset/VTIDatasetFileReadWrite.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/DicomSeries.h"
#include "formats/AllocationCap.h"
#include "formats/FileStatus.h"
#include "formats/MetaImageFormat.h"
#include "formats/NiftiFormat.h"
#include "formats/NrrdFormat.h"
#include "formats/TiffMessages.h"
#include "formats/TiffStackFormat.h"
#include "formats/ValueConversion.h"
#include "formats/VtkImageFiles.h"

namespace tarv::formats {

namespace {

// clang-format off
constexpr std::array<FormatDescription, 13> kFormats = {{
    // format,              name,       aliases,                display name,     extensions,   lazy,  time,  comp., plane, holds
    {FileFormat::tarv1,     "tarv1",    "tarv",                 "TARV1",          ".tarv",      true,  true,  1,     false,
     "TARV1: x, y, z, t; 16-bit quantised values, read back as float"},
    {FileFormat::pagedTiff, "tiff",     "tif|paged-tiff",       "paged TIFF",     ".tif .tiff", true,  false, 4,     false,
     "paged (tiled) TIFF: x, y, z; bool..uint32 and float; no geometry"},
    {FileFormat::vtkTiff,   "vtk-tiff", "",                     "TIFF (VTK)",     "",           false, false, 1,     false,
     "TIFF through VTK, one page per slice: uint8, uint16, float; no geometry"},
    {FileFormat::raw,       "raw",      "",                     "raw",            ".raw",       false, true,  0,     false,
     "headerless samples: layout by the --raw-* options"},
    {FileFormat::png,       "png",      "",                     "PNG",            ".png",       false, false, 1,     true,
     "one plane of uint8 or uint16, rows top down; RGB(A) and palettes read as components"},
    {FileFormat::jpeg,      "jpeg",     "jpg",                  "JPEG",           ".jpg .jpeg", false, false, 1,     true,
     "one plane of uint8, rows top down; RGB read as components"},
    {FileFormat::vti,       "vti",      "",                     "VTK image data", ".vti",       false, false, 1,     false,
     "VTK XML image data: x, y, z, components; spacing, origin, extent, direction"},
    {FileFormat::nifti,     "nifti",    "nii",                  "NIfTI",          ".nii",       false, true,  0,     false,
     "NIfTI-1/-2: x, y, z, t, components; orientation, scl_slope/scl_inter"},
    {FileFormat::niftiGz,   "nifti-gz", "nii.gz",               "NIfTI (gzip)",   ".nii.gz",    false, true,  0,     false,
     "NIfTI-1/-2, gzip-compressed"},
    {FileFormat::tiffStack, "tiff-stack", "tif-stack",          "TIFF stack",     "",           true,  false, 4,     false,
     "TIFF pages as z slices (strips or tiles, any codec of libtiff): 8..64-bit samples; no geometry"},
    {FileFormat::dicom,     "dicom",    "dcm",                  "DICOM",          ".dcm",       true,  false, 3,     false,
     "DICOM series (a folder or a file) through GDCM: orientation, rescale; read only", false},
    {FileFormat::metaImage, "metaimage", "mha|mhd",             "MetaImage",      ".mha .mhd",  false, true,  0,     false,
     "MetaImage (MetaIO): x, y, z, t, channels; spacing, position, direction; written with its data inside"},
    {FileFormat::nrrd,      "nrrd",     "nhdr",                 "NRRD",           ".nrrd .nhdr", false, true, 0,     false,
     "NRRD (teem): x, y, z, t, components; space directions and origin; read only", false},
}};
// clang-format on

// Datasets count their elements in 32 bits.
constexpr long long kMaximumElementCount = 2147483647LL;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// The words of a blank- or '|'-separated list.
std::vector<std::string> words(const char* list) {
  std::vector<std::string> result;
  std::string word;
  for (const char* c = list;; ++c) {
    if (*c == '\0' || *c == ' ' || *c == '|') {
      if (!word.empty()) result.push_back(word);
      word.clear();
      if (*c == '\0') return result;
    } else {
      word += *c;
    }
  }
}

long long elementCount(const DatasetCoordinates& size) {
  long long count = 1;
  for (int k = 0; k < 5; ++k) count *= size[k];
  return count;
}

Status checkElementCount(const DatasetCoordinates& size) {
  if (elementCount(size) > kMaximumElementCount)
    return unsupportedError("too large: " + sizeText(size) + " is 2^31 elements or more");
  return okStatus();
}



// A file-backed dataset with the module, opened on path.
Result<DatasetHandle> openLazily(const std::string& path, DatasetFileReadModule* module) {
  auto* file = new FileReadDataset();
  DatasetHandle handle(file);
  file->setFileReadModule(module);
  if (file->openFile(path)) return handle;
  Status status = lastOpenStatus(*module);
  // The module took the file but the dataset could not be made for it.
  if (status.ok()) return resourceExhaustedError("not enough memory for a dataset of its size");
  return status;
}

// Every block of a lazily opened file once, in file order, stopping at the first that cannot be
// read: copying element by element would try a failed block again for each of its elements.
Status readEveryBlock(FileReadDataset* file) {
  DatasetFileReadModule* module = file->getFileReadModule();
  if (module == nullptr) return okStatus();
  const DatasetCoordinates size = file->getSize();
  file->announceAccessToFullDataset();
  for (int t = 0; t < size.t;) {
    int nextT = size.t;
    for (int z = 0; z < size.z;) {
      int nextZ = size.z;
      for (int y = 0; y < size.y;) {
        int nextY = size.y;
        for (int x = 0; x < size.x;) {
          const DatasetCoordinates c(x, y, z, t, 0);
          const DatasetBoundingBox box = module->getReadBlockBox(c);
          if (box.isEmpty() || box.end.x < x || box.end.y < y || box.end.z < z || box.end.t < t)
            return invalidArgumentError("a block that does not hold its element");
          (void)file->getElement<double>(c);
          if (Status blocks = blockReadStatus(*module); !blocks.ok()) return blocks;
          nextT = std::min(nextT, box.end.t + 1);
          nextZ = std::min(nextZ, box.end.z + 1);
          nextY = std::min(nextY, box.end.y + 1);
          x = box.end.x + 1;
        }
        y = nextY;
      }
      z = nextZ;
    }
    t = nextT;
  }
  return okStatus();
}

// All of a lazily opened dataset, read into memory.
Result<DatasetHandle> readIntoMemory(const DatasetHandle& lazy) {
  Dataset* file = GetRawPtr(lazy);
  if (auto* blocks = dynamic_cast<FileReadDataset*>(file))
    if (Status read = readEveryBlock(blocks); !read.ok()) return read;
  auto* dataset = new Dataset(true);
  DatasetHandle memory(dataset);
  dataset->copyFrom(file);
  if (Status blocks = blockReadStatus(file); !blocks.ok()) return blocks;
  if (!dataset->hasData()) return resourceExhaustedError("not enough memory to read it");
  return memory;
}

Result<OpenedFile> readTarv1(const std::string& path, bool lazy) {
  OpenedFile opened;
  opened.format = FileFormat::tarv1;
  if (lazy) {
    Result<DatasetHandle> handle = openLazily(path, new TARV1DatasetFileReadModule());
    if (!handle.ok()) return handle.status();
    opened.handle = *handle;
    opened.lazy = true;
    return opened;
  }
  opened.handle = new Dataset(true);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = path;
  if (Status status = readTarv1File(reader, GetRawPtr(opened.handle)); !status.ok()) return status;
  return opened;
}

// A file read whole into memory by the format's reader.
template <typename Reader>
Result<OpenedFile> readInMemory(const std::string& path, FileFormat format, Reader&& read) {
  Result<DatasetHandle> handle = read(path);
  if (!handle.ok()) return handle.status();
  OpenedFile opened;
  opened.format = format;
  opened.handle = *handle;
  return opened;
}

// A DICOM series read file by file, with the first file's tags.
Result<OpenedFile> readDicomLazily(const std::string& path, const std::string& uid) {
  Result<DatasetHandle> handle = openLazily(path, newDicomSeriesReadModule(uid));
  if (!handle.ok()) return handle.status();
  auto* file = static_cast<FileReadDataset*>(GetRawPtr(*handle));
  copyDicomTags(file->getFileReadModule(), file);
  OpenedFile opened;
  opened.format = FileFormat::dicom;
  opened.handle = *handle;
  opened.lazy = true;
  return opened;
}

Result<OpenedFile> readStack(const std::string& path, bool lazy) {
  if (!lazy) return readInMemory(path, FileFormat::tiffStack, readTiffStack);
  Result<DatasetHandle> handle = openLazily(path, newTiffStackReadModule());
  if (!handle.ok()) return handle.status();
  OpenedFile opened;
  opened.format = FileFormat::tiffStack;
  opened.handle = *handle;
  opened.lazy = true;
  return opened;
}

Result<OpenedFile> readPagedTiff(const std::string& path, const ReadRequest& request) {
  Result<TiffFileHeader> header = readPagedTiffHeader(path);
  // A paged TIFF file is one page; files of several pages are stacks, as other programs write them.
  const int pages = header.ok() ? countTiffPages(path) : 0;
  if (!header.ok() || pages > 1) {
    const bool otherLayout = header.ok() || header.status().code() == StatusCode::unsupported;
    if (otherLayout && request.otherTiffAsStack) return readStack(path, request.lazy);
    if (header.ok()) return unsupportedError("not a paged TIFF file: it has " + std::to_string(pages) + " pages");
    return header.status();
  }
  if (header->getElementType() == TARV_ELEMENT_TYPE_NO_TYPE)
    return unsupportedError("its samples (" + std::to_string(header->getBitsPerSample()) +
                            " bits, or their sample format) have no element type");
  if (Status size = checkElementCount(header->getImgSize()); !size.ok()) return size;
  if (!request.lazy)
    if (Status cap = checkAllocation(header->getImgSize(), header->getElementType()); !cap.ok()) return cap;
  Result<DatasetHandle> lazy = openLazily(path, new TiffFileReadModule());
  if (!lazy.ok()) return lazy.status();
  OpenedFile opened;
  opened.format = FileFormat::pagedTiff;
  opened.lazy = request.lazy;
  if (request.lazy) {
    opened.handle = *lazy;
    return opened;
  }
  Result<DatasetHandle> memory = readIntoMemory(*lazy);
  if (!memory.ok()) return memory.status();
  opened.handle = *memory;
  return opened;
}

Result<OpenedFile> readRaw(const std::string& path, const RawLayout& layout) {
  if (elementCount(layout.size) < 1 || !isStorableElementType(layout.elementType))
    return invalidArgumentError("a raw file stores no layout: its size and element type must be given");
  if (Status size = checkAllocation(layout.size, layout.elementType); !size.ok()) return size;
  RawDatasetFileReadWrite reader = rawFileFor(path, layout, layout.elementType);
  if (Status fits = checkRawFileSize(reader, layout.size); !fits.ok()) return fits;
  OpenedFile opened;
  opened.format = FileFormat::raw;
  Dataset* dataset = new Dataset(true);
  opened.handle = dataset;
  dataset->newDataset(layout.size, layout.elementType, layout.embedding);
  if (!dataset->hasData()) return resourceExhaustedError("not enough memory to read it");
  if (Status status = readRawFile(reader, dataset); !status.ok()) return status;
  return opened;
}

}  // namespace

std::span<const FormatDescription> formatTable() { return kFormats; }

const FormatDescription& describeFormat(FileFormat format) {
  for (const FormatDescription& description : kFormats)
    if (description.format == format) return description;
  return kFormats.front();
}

std::optional<FileFormat> formatFromName(const std::string& name) {
  const std::string lower = lowerCase(name);
  for (const FormatDescription& description : kFormats) {
    if (lower == description.name) return description.format;
    for (const std::string& alias : words(description.aliases))
      if (lower == alias) return description.format;
  }
  return std::nullopt;
}

std::optional<FileFormat> formatFromExtension(const std::string& path) {
  const std::string name = lowerCase(std::filesystem::path(path).filename().string());
  std::optional<FileFormat> found;
  std::size_t foundLength = 0;
  for (const FormatDescription& description : kFormats)
    for (const std::string& known : words(description.extensions))
      if (name.size() > known.size() && known.size() > foundLength &&
          name.compare(name.size() - known.size(), known.size(), known) == 0) {
        found = description.format;
        foundLength = known.size();
      }
  return found;
}

std::optional<FileFormat> probeFileFormat(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return FileFormat::dicom;
  std::ifstream in(path, std::ios::binary);
  std::string head(512, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  auto startsWith = [&](std::string_view prefix) { return head.compare(0, prefix.size(), prefix) == 0; };
  // DICOM first: its preamble is free for other headers.
  if (head.size() >= 132 && head.compare(128, 4, "DICM") == 0) return FileFormat::dicom;
  if (startsWith("II*\0") || startsWith("MM\0*") || startsWith("II+\0") || startsWith("MM\0+")) return FileFormat::pagedTiff;
  if (startsWith("\x89PNG\r\n\x1a\n")) return FileFormat::png;
  if (startsWith("\xff\xd8\xff")) return FileFormat::jpeg;
  if (startsWith("X = ")) return FileFormat::tarv1;
  if ((startsWith("<?xml") || startsWith("<VTKFile")) && head.find("<VTKFile") != std::string::npos &&
      head.find("ImageData") != std::string::npos)
    return FileFormat::vti;
  if (startsWith("ObjectType") || startsWith("NDims")) return FileFormat::metaImage;
  if (startsWith("NRRD000")) return FileFormat::nrrd;
  if (looksLikeNiftiHeader(path)) return startsWith("\x1f\x8b") ? FileFormat::niftiGz : FileFormat::nifti;
  return std::nullopt;
}

std::optional<FileFormat> formatToRead(const std::string& path) {
  const std::optional<FileFormat> byExtension = formatFromExtension(path);
  if (byExtension == FileFormat::raw) return byExtension;
  if (std::optional<FileFormat> probed = probeFileFormat(path)) return probed;
  return byExtension;
}

std::string formatNameList() {
  std::string list;
  for (const FormatDescription& description : kFormats) list += (list.empty() ? "" : ", ") + std::string(description.name);
  return list;
}

std::string formatExtensionList() {
  std::string list;
  for (const FormatDescription& description : kFormats)
    for (const std::string& extension : words(description.extensions)) list += (list.empty() ? "" : ", ") + extension;
  return list;
}

std::string formatHelpTable() {
  std::ostringstream table;
  for (const FormatDescription& description : kFormats) {
    std::string name = description.name;
    std::string extensions = description.extensions;
    name.resize(std::max<std::size_t>(name.size() + 1, 10), ' ');
    extensions.resize(std::max<std::size_t>(extensions.size() + 1, 13), ' ');
    table << "  " << name << extensions << description.holds << "\n";
  }
  return table.str();
}

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
    case FileFormat::vti: return isStorableElementType(type) && type != TARV_ELEMENT_TYPE_LONG_DOUBLE;    case FileFormat::nifti:
    case FileFormat::niftiGz: return niftiHoldsElementType(type);
    case FileFormat::tiffStack: return tiffStackHoldsElementType(type);
    case FileFormat::dicom: return false;
    case FileFormat::metaImage: return metaImageHoldsElementType(type);
    case FileFormat::nrrd: return false;
  }
  return false;
}

std::string elementTypesHeldBy(FileFormat format) {
  std::string list;
  for (int type = TARV_ELEMENT_TYPE_BOOL; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    if (!formatHoldsElementType(format, static_cast<TARVElementType>(type))) continue;
    if (!list.empty()) list += ", ";
    list += elementTypeName(static_cast<TARVElementType>(type));
  }
  return list;
}

Status checkFormatHoldsElementType(FileFormat format, TARVElementType type) {
  if (!describeFormat(format).writes)
    return unsupportedError(std::string(describeFormat(format).displayName) + " files are read, not written");
  if (formatHoldsElementType(format, type)) return okStatus();
  return unsupportedError(std::string(describeFormat(format).displayName) + " cannot hold " + elementTypeName(type) +
                          " elements (it holds " + elementTypesHeldBy(format) + ")");
}

Status checkFormatHoldsShape(FileFormat format, const DatasetCoordinates& size) {
  const FormatDescription& description = describeFormat(format);
  const std::string name = description.displayName;
  const int maximumComponents = description.maximumComponents;
  if (maximumComponents > 0 && size.c > maximumComponents) {
    return unsupportedError(name + " holds at most " + std::to_string(maximumComponents) + " component" +
                            (maximumComponents == 1 ? "" : "s") + " per voxel; the data has " + std::to_string(size.c));
  }
  if (description.holdsOnePlane && size.z > 1)
    return unsupportedError(name + " holds one plane; the data has " + std::to_string(size.z));
  return okStatus();
}

RawDatasetFileReadWrite rawFileFor(const std::string& path, const RawLayout& layout, TARVElementType type) {
  RawDatasetFileReadWrite file;
  file.fileName = path;
  file.elementType = type;
  file.byteSwap = layout.byteSwap;
  file.headerSize = layout.headerSize;
  file.trailerSize = layout.trailerSize;
  file.elementPrefixSize = layout.elementPrefixSize;
  file.elementSuffixSize = layout.elementSuffixSize;
  return file;
}

Result<OpenedFile> readDatasetFile(const std::string& path, const ReadRequest& request) {
  // A DICOM series may be a folder.
  if (request.format != FileFormat::dicom)
    if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  Result<OpenedFile> opened = invalidArgumentError("unknown format");
  switch (request.format) {
    case FileFormat::dicom:
      opened = request.lazy ? readDicomLazily(path, request.dicomSeries)
                            : readInMemory(path, FileFormat::dicom,
                                           [&](const std::string& p) { return readDicomSeries(p, request.dicomSeries); });
      break;
    case FileFormat::metaImage: opened = readInMemory(path, FileFormat::metaImage, readMetaImageFile); break;
    case FileFormat::nrrd: opened = readInMemory(path, FileFormat::nrrd, readNrrdFile); break;
    case FileFormat::tarv1: opened = readTarv1(path, request.lazy); break;
    case FileFormat::pagedTiff: opened = readPagedTiff(path, request); break;
    case FileFormat::raw: opened = readRaw(path, request.raw); break;
    case FileFormat::vtkTiff:
    case FileFormat::png:
    case FileFormat::jpeg:
    case FileFormat::vti:
      opened = readInMemory(path, request.format, [&](const std::string& p) { return readVtkImageFile(p, request.format); });
      break;
    case FileFormat::nifti:
    case FileFormat::niftiGz: opened = readInMemory(path, request.format, readNiftiFile); break;
    case FileFormat::tiffStack: opened = readStack(path, request.lazy); break;
  }
  if (!opened.ok()) return opened;
  if (Status size = checkElementCount(GetRawPtr(opened->handle)->getSize()); !size.ok()) return size;
  return opened;
}

Status blockReadStatus(Dataset* dataset) {
  auto* file = dynamic_cast<FileReadDataset*>(dataset);
  if (file == nullptr || file->getFileReadModule() == nullptr) return okStatus();
  return blockReadStatus(*file->getFileReadModule());
}

Status graphBlockReadStatus(Dataset* dataset) {
  std::vector<Dataset*> pending{dataset};
  std::set<Dataset*> seen;
  while (!pending.empty()) {
    Dataset* next = pending.back();
    pending.pop_back();
    if (next == nullptr || !seen.insert(next).second) continue;
    if (Status blocks = blockReadStatus(next); !blocks.ok()) return blocks;
    if (auto* dependent = dynamic_cast<DependentDataset*>(next)) {
      const std::vector<Dataset*> sources = dependent->getSourceDatasets();
      pending.insert(pending.end(), sources.begin(), sources.end());
    }
  }
  return okStatus();
}

Status writeDatasetFile(Dataset* dataset, const std::string& path, FileFormat format, const RawLayout& raw) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  if (Status type = checkFormatHoldsElementType(format, dataset->getElementType()); !type.ok()) return type;
  if (Status shape = checkFormatHoldsShape(format, dataset->getSize()); !shape.ok()) return shape;
  switch (format) {
    case FileFormat::tarv1: {
      if (Status holds = checkTarv1HoldsRange(dataset->getMinimumValue(), dataset->getMaximumValue()); !holds.ok())
        return holds;
      TARV1DatasetFileReadWrite writer;
      writer.fileName = path;
      return writeTarv1File(writer, dataset);
    }
    case FileFormat::pagedTiff: {
      TiffDatasetFileWrite writer;
      writer.fileName = path;
      return writePagedTiffFile(writer, dataset);
    }
    case FileFormat::raw: {
      RawDatasetFileReadWrite writer = rawFileFor(path, raw, dataset->getElementType());
      return writeRawFile(writer, dataset);
    }
    case FileFormat::vtkTiff:
    case FileFormat::png:
    case FileFormat::jpeg:
    case FileFormat::vti: return writeVtkImageFile(dataset, path, format);
    case FileFormat::nifti:
    case FileFormat::niftiGz: return writeNiftiFile(dataset, path, format == FileFormat::niftiGz);
    case FileFormat::tiffStack: return writeTiffStack(dataset, path);
    case FileFormat::dicom: break;
    case FileFormat::metaImage: return writeMetaImageFile(dataset, path);
    case FileFormat::nrrd: break;
  }
  return invalidArgumentError("unknown format");
}

Result<TiffFileHeader> readPagedTiffHeader(const std::string& path) {
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  TiffErrors errors;
  TiffHandle tiff = openTiffFileCollectingErrors(path, "rm", errors);
  if (!tiff) return corruptError("not a readable TIFF file" + errors.suffix());
  TiffFileHeader header;
  header.read(tiff.get());
  if (!header.isValid() || header.getPageMode() != TiffPageMode::tile)
    return unsupportedError("not a paged (tiled) TIFF file");
  return header;
}

}  // namespace tarv::formats

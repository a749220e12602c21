// The readers of the format registry's adapters, one harness each (TARV_FUZZ_READER selects it):
// NIfTI, TIFF stacks, MetaImage, NRRD, DICOM series, and probing followed by the registry's read.
// An accepted file's every element is read; where the format is also written, the dataset is
// written and read back, and must come back equal. The DICOM input is a series: its files are
// separated by kNextFile. The probed input is also written in every format that holds it, through
// the registry, and read back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>

#include "FuzzSupport.h"
#include "formats/AllocationCap.h"
#include "formats/DicomSeries.h"
#include "formats/FormatRegistry.h"
#include "formats/MetaImageFormat.h"
#include "formats/NiftiFormat.h"
#include "formats/NrrdFormat.h"
#include "formats/TiffStackFormat.h"

using namespace tarv;

namespace {

enum Reader { nifti = 1, tiffStack, metaImage, nrrd, dicom, probe };

// Separates the files of a DICOM series input (also in the DICOM dictionary).
constexpr char kNextFile[] = "\xffTARV-NEXT-FILE\xff";
constexpr std::size_t kNextFileSize = sizeof(kNextFile) - 1;
constexpr int kMaximumSeriesFiles = 8;

std::string scratchPath(const std::string& suffix) {
  return (std::filesystem::temp_directory_path() / ("tarv-fuzz-" + std::to_string(::getpid()) + suffix)).string();
}

// The folder of the series: the input's pieces as files img0.dcm, img1.dcm, ... (the last piece
// takes the rest of the input).
std::string writeSeriesFolder(const std::uint8_t* data, std::size_t size) {
  const std::filesystem::path folder = scratchPath(".series");
  // Removed again when the process ends.
  static const struct Cleanup {
    std::filesystem::path folder;
    ~Cleanup() {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
    }
  } cleanup{folder};
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  std::filesystem::create_directories(folder, ignored);
  std::size_t start = 0;
  for (int piece = 0; start <= size; ++piece) {
    std::size_t end = size;
    if (piece + 1 < kMaximumSeriesFiles) {
      const std::uint8_t* found = std::search(data + start, data + size, kNextFile, kNextFile + kNextFileSize);
      end = static_cast<std::size_t>(found - data);
    }
    const std::vector<std::uint8_t> bytes(data + start, data + end);
    if (!fuzz::writeWholeFile((folder / ("img" + std::to_string(piece) + ".dcm")).string(), bytes))
      fuzz::fail("the series folder could not be written");
    start = end + kNextFileSize;
  }
  return folder.string();
}

// The series to read: the only one, else (several are refused) the first listed.
Result<DatasetHandle> readSeries(const std::string& folder, std::string& uid) {
  Result<DatasetHandle> read = formats::readDicomSeries(folder, "");
  if (read.ok()) return read;
  Result<std::vector<formats::DicomSeriesSummary>> listed = formats::listDicomSeries(folder);
  if (!listed.ok() || listed->size() < 2) return read;
  uid = listed->front().uid;
  return formats::readDicomSeries(folder, uid);
}

Result<DatasetHandle> readInput(const std::string& path, std::string& dicomSeries) {
  switch (TARV_FUZZ_READER) {
    case nifti: return formats::readNiftiFile(path);
    case tiffStack: return formats::readTiffStack(path);
    case metaImage: return formats::readMetaImageFile(path);
    case nrrd: return formats::readNrrdFile(path);
    case dicom: return readSeries(path, dicomSeries);
    default: {
      const std::optional<formats::FileFormat> format = formats::probeFileFormat(path);
      if (!format || *format == formats::FileFormat::raw) return invalidArgumentError("no format");
      formats::ReadRequest request;
      request.format = *format;
      request.lazy = false;
      Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
      if (!opened.ok()) return opened.status();
      return opened->handle;
    }
  }
}

// Writes and reads back the formats that are written; the round trip must be exact.
void roundTrip(Dataset& read) {
  const std::string path = scratchPath(".out");
  Status written = okStatus();
  Result<DatasetHandle> back = invalidArgumentError("not written");
  switch (TARV_FUZZ_READER) {
    case nifti:
      written = formats::writeNiftiFile(&read, path, false);
      if (written.ok()) back = formats::readNiftiFile(path);
      break;
    case tiffStack:
      written = formats::writeTiffStack(&read, path);
      if (written.ok()) back = formats::readTiffStack(path);
      break;
    case metaImage:
      written = formats::writeMetaImageFile(&read, path);
      if (written.ok()) back = formats::readMetaImageFile(path);
      break;
    default: return;
  }
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  if (!written.ok()) return;
  if (!back.ok()) fuzz::fail("a file the writer wrote is refused by the reader");
  Dataset* again = GetRawPtr(*back);
  if (again->getSize() != read.getSize() || again->getElementType() != read.getElementType())
    fuzz::fail("the round trip changed the shape or element type");
  for (auto it = read.getStartCoordinatesIterator(); it.valid; read.incrementCoordinatesIterator(it)) {
    const double a = read.getElement<double>(it);
    const double b = again->getElement<double>(it);
    if (a != b && !(a != a && b != b)) fuzz::fail("the round trip changed an element");
  }
}

// The probed input, written through the registry in every format that takes it and read back:
// the same shape (one time step where the format holds one), and the same elements where the
// format keeps values (TARV1 quantises to 16 bits, JPEG is lossy).
constexpr long long kMaximumRewrittenElements = 1 << 16;

void writeInEveryFormat(Dataset& read) {
  if (read.getElementCount() > kMaximumRewrittenElements) return;
  for (const formats::FormatDescription& description : formats::formatTable()) {
    if (!description.writes) continue;
    const formats::FileFormat format = description.format;
    const std::string extensions = description.extensions;
    const std::string path = scratchPath(extensions.empty() ? ".tif" : extensions.substr(0, extensions.find(' ')));
    formats::RawLayout layout;
    const Status written = formats::writeDatasetFile(&read, path, format, layout);
    std::error_code ignored;
    if (!written.ok()) {
      std::filesystem::remove(path, ignored);
      if (written.message().empty()) fuzz::fail("a write refused without a reason");
      continue;
    }
    formats::ReadRequest request;
    request.format = format;
    request.lazy = description.readsLazily;
    request.raw.size = read.getSize();
    request.raw.elementType = read.getElementType();
    Result<formats::OpenedFile> back = formats::readDatasetFile(path, request);
    if (!back.ok()) {
      std::fprintf(stderr, "%s: %s\n", description.name, back.status().message().c_str());
      fuzz::fail("a file the registry wrote is refused by its reader");
    }
    Dataset* again = GetRawPtr(back->handle);
    DatasetCoordinates expected = read.getSize();
    if (!description.holdsTimeSteps) expected.t = 1;
    if (again->getSize() != expected) {
      std::fprintf(stderr, "%s\n", description.name);
      fuzz::fail("the registry's round trip changed the shape");
    }
    const bool keepsValues = format != formats::FileFormat::tarv1 && format != formats::FileFormat::jpeg;
    if (keepsValues && again->getElementType() != read.getElementType()) {
      std::fprintf(stderr, "%s\n", description.name);
      fuzz::fail("the registry's round trip changed the element type");
    }
    for (auto it = again->getStartCoordinatesIterator(); keepsValues && it.valid; again->incrementCoordinatesIterator(it)) {
      const double a = read.getElement<double>(static_cast<const DatasetCoordinates&>(it));
      const double b = again->getElement<double>(it);
      if (!formats::blockReadStatus(again).ok()) fuzz::fail("a file the registry wrote has a block that cannot be read");
      if (a != b && !(a != a && b != b)) {
        std::fprintf(stderr, "%s: element (%d, %d, %d, %d, %d): %.17g written, %.17g read\n", description.name, it.x,
                     it.y, it.z, it.t, it.c, a, b);
        fuzz::fail("the registry's round trip changed an element");
      }
    }
    back = invalidArgumentError("closed");
    std::filesystem::remove(path, ignored);
  }
}

// The formats read block by block: the lazy read must give exactly what the whole read gave (or
// refuse, and then with a reason).
void compareLazyRead(const std::string& path, const std::string& dicomSeries, Dataset& whole) {
  std::optional<formats::FileFormat> format;
  switch (TARV_FUZZ_READER) {
    case tiffStack: format = formats::FileFormat::tiffStack; break;
    case dicom: format = formats::FileFormat::dicom; break;
    case probe: format = formats::probeFileFormat(path); break;
    default: return;
  }
  if (!format || !formats::describeFormat(*format).readsLazily) return;
  formats::ReadRequest request;
  request.format = *format;
  request.lazy = true;
  request.dicomSeries = dicomSeries;
  Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
  if (!opened.ok()) {
    if (opened.status().message().empty()) fuzz::fail("a lazy refusal without a reason");
    return;
  }
  Dataset* lazy = GetRawPtr(opened->handle);
  if (lazy->getSize() != whole.getSize() || lazy->getElementType() != whole.getElementType())
    fuzz::fail("the lazy read has another shape or element type than the whole read");
  // Both read the same header: the same geometry, bit for bit.
  const TransformationMatrix& a = lazy->getWorldEmbedding().getVoxel2WorldMatrix();
  const TransformationMatrix& b = whole.getWorldEmbedding().getVoxel2WorldMatrix();
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) {
      const double fromLazy = a(row, column);
      const double fromWhole = b(row, column);
      if (std::memcmp(&fromLazy, &fromWhole, sizeof(double)) != 0) {
        std::fprintf(stderr, "voxel-to-world (%d, %d): whole read %.17g, lazy read %.17g\n", row, column, fromWhole,
                     fromLazy);
        fuzz::fail("the lazy read has another geometry than the whole read");
      }
    }
  for (auto it = whole.getStartCoordinatesIterator(); it.valid; whole.incrementCoordinatesIterator(it)) {
    const double a = whole.getElement<double>(it);
    // By coordinates: an iterator's linear index belongs to the dataset it walks.
    const double b = lazy->getElement<double>(static_cast<const DatasetCoordinates&>(it));
    if (!formats::blockReadStatus(lazy).ok()) return;
    if (a != b && !(a != a && b != b)) {
      std::fprintf(stderr, "element (%d, %d, %d, %d, %d): whole read %.17g, lazy read %.17g\n", it.x, it.y, it.z, it.t,
                   it.c, a, b);
      fuzz::fail("the lazy read gave another element than the whole read");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  // Inputs are at most 64 KiB: volumes past 256 MB are a header's claim (or a compression ratio no
  // real file has), refused by the cap as volumes past the machine's memory are.
  formats::setAllocationCap(std::size_t{256} << 20);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::MemoryFile file;
  std::string path;
  if (TARV_FUZZ_READER == dicom) {
    path = writeSeriesFolder(data, size);
  } else {
    file.assign(data, size);
    path = file.path();
  }
  std::string dicomSeries;
  Result<DatasetHandle> read = readInput(path, dicomSeries);
  if (!read.ok()) {
    if (read.status().message().empty()) fuzz::fail("a refusal without a reason");
    return 0;
  }
  Dataset* dataset = GetRawPtr(*read);
  const DatasetCoordinates extent = dataset->getSize();
  if (static_cast<long long>(extent.x) * extent.y * extent.z * extent.t * extent.c != dataset->getElementCount())
    fuzz::fail("the element count does not match the size");
  double sum = 0.0;
  for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it))
    sum += dataset->getElement<double>(it);
  (void)sum;
  compareLazyRead(path, dicomSeries, *dataset);
  if (TARV_FUZZ_READER == probe)
    writeInEveryFormat(*dataset);
  else
    roundTrip(*dataset);
  return 0;
}

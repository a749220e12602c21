// The readers of the format registry's adapters, one harness each (TARV_FUZZ_READER selects it):
// NIfTI, TIFF stacks, MetaImage, NRRD, DICOM, and probing followed by the registry's read. An
// accepted file's every element is read; where the format is also written, the dataset is written
// and read back, and must come back equal.
#include <cstddef>
#include <cstdint>
#include <cstdio>
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

Result<DatasetHandle> readInput(const std::string& path) {
  switch (TARV_FUZZ_READER) {
    case nifti: return formats::readNiftiFile(path);
    case tiffStack: return formats::readTiffStack(path);
    case metaImage: return formats::readMetaImageFile(path);
    case nrrd: return formats::readNrrdFile(path);
    case dicom: return formats::readDicomSeries(path, "");
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
  const std::string path =
      (std::filesystem::temp_directory_path() / ("tarv-fuzz-" + std::to_string(::getpid()) + ".out")).string();
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

// The formats read block by block: the lazy read must give exactly what the whole read gave (or
// refuse, and then with a reason).
void compareLazyRead(const std::string& path, Dataset& whole) {
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
  Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
  if (!opened.ok()) {
    if (opened.status().message().empty()) fuzz::fail("a lazy refusal without a reason");
    return;
  }
  Dataset* lazy = GetRawPtr(opened->handle);
  if (lazy->getSize() != whole.getSize() || lazy->getElementType() != whole.getElementType())
    fuzz::fail("the lazy read has another shape or element type than the whole read");
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
  file.assign(data, size);
  Result<DatasetHandle> read = readInput(file.path());
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
  compareLazyRead(file.path(), *dataset);
  roundTrip(*dataset);
  return 0;
}

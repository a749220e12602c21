// The readers of the format registry's adapters, one harness each (TARV_FUZZ_READER selects it):
// NIfTI, TIFF stacks, MetaImage, NRRD, DICOM, and probing followed by the registry's read. An
// accepted file's every element is read; where the format is also written, the dataset is written
// and read back, and must come back equal.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "FuzzSupport.h"
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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
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
  roundTrip(*dataset);
  return 0;
}

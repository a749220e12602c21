// TARV1 files: the lazy read module (open, then every block) and the whole-file reader on the
// same input. When both accept the file they must agree on every element.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

#include "FuzzSupport.h"
#include "dataset/FileReadDataset.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "formats/FileStatus.h"

using namespace tarv;

namespace {

// The data written as TARV1 reads back with the same shape; where the range the writer quantises
// by (the stated minimum and maximum) holds every element and spans at most 65535, every element
// within half a step of 1 / factor <= 1 (and float rounding). Elements outside a stated range
// wrap, as the format does.
void writeAndReadBack(Dataset& read) {
  TARV1DatasetFileReadWrite file;
  file.fileName = (std::filesystem::temp_directory_path() / ("tarv-fuzz-" + std::to_string(::getpid()) + ".tarv")).string();
  if (formats::writeTarv1File(file, &read).ok()) {
    Dataset back(true);
    if (!formats::readTarv1File(file, &back).ok()) fuzz::fail("a written TARV1 file is refused");
    if (back.getSize() != read.getSize()) fuzz::fail("a written TARV1 file has another shape");
    const double low = read.getMinimumValue();
    const double high = read.getMaximumValue();
    bool bounded = std::isfinite(low) && std::isfinite(high) && high - std::floor(low) <= 65535.0;
    for (auto it = read.getStartCoordinatesIterator(); bounded && it.valid; read.incrementCoordinatesIterator(it)) {
      const double a = read.getElement<double>(it);
      bounded = a >= low && a <= high;
    }
    for (auto it = read.getStartCoordinatesIterator(); bounded && it.valid; read.incrementCoordinatesIterator(it)) {
      const double a = read.getElement<double>(it);
      const double b = back.getElement<double>(static_cast<const DatasetCoordinates&>(it));
      if (std::abs(a - b) > 1.0 + 1e-6 * std::abs(a)) fuzz::fail("a written TARV1 file reads back beyond its quantisation");
    }
  }
  std::error_code ignored;
  std::filesystem::remove(file.fileName, ignored);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::MemoryFile file;
  file.assign(data, size);

  auto lazy = std::make_unique<FileReadDataset>();
  lazy->setFileReadModule(new TARV1DatasetFileReadModule());
  const bool opened = lazy->openFile(file.path());
  if (opened) {
    const DatasetCoordinates extent = lazy->getSize();
    // Every block (slice), last element first, then the first one again.
    for (int t = 0; t < extent.t; ++t)
      for (int z = 0; z < extent.z; ++z) {
        (void)lazy->getElement<double>(DatasetCoordinates(extent.x - 1, extent.y - 1, z, t, 0));
        (void)lazy->getElement<double>(DatasetCoordinates(0, 0, z, t, 0));
      }
    (void)lazy->getMinimumValue();
    (void)lazy->getMaximumValue();
  }

  Dataset whole(true);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = file.path();
  reader.read(&whole);

  if (opened != whole.hasData()) fuzz::fail("the lazy and the whole reader disagree on accepting the file");
  if (opened) {
    if (whole.getSize() != lazy->getSize() || whole.getElementType() != lazy->getElementType())
      fuzz::fail("the lazy and the whole reader disagree on the shape");
    for (auto it = whole.getStartCoordinatesIterator(); it.valid; whole.incrementCoordinatesIterator(it)) {
      const DatasetCoordinates p = it;
      const double a = whole.getElement<double>(p);
      const double b = lazy->getElement<double>(p);
      if (!(a == b || (std::isnan(a) && std::isnan(b)))) fuzz::fail("the lazy and the whole reader disagree on an element");
    }
  }
  lazy->closeFile();
  if (opened) writeAndReadBack(whole);
  return 0;
}

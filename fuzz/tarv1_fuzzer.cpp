// TARV1 files: the lazy read module (open, then every block) and the whole-file reader on the
// same input. When both accept the file they must agree on every element.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "FuzzSupport.h"
#include "dataset/FileReadDataset.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"

using namespace tarv;

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
  return 0;
}

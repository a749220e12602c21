// Raw files: the layout (stored element type, byte order, filler sizes, the dataset's shape and
// element type) comes from the first bytes of the input, the file's contents are the rest.
// A dataset that reads is written with the same layout and read again; when the dataset's type
// is the stored one the elements must survive.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "dataset/RawDatasetFileReadWrite.h"

using namespace tarv;

namespace {

void configure(RawDatasetFileReadWrite& raw, const fuzz::RawLayout& layout, const std::string& path) {
  raw.fileName = path;
  raw.elementType = layout.fileElementType;
  raw.byteSwap = layout.byteSwap;
  raw.headerSize = layout.headerSize;
  raw.trailerSize = layout.trailerSize;
  raw.elementPrefixSize = layout.elementPrefixSize;
  raw.elementSuffixSize = layout.elementSuffixSize;
}

// A value the input is unlikely to hold, to see whether reading changed the dataset.
constexpr double marker = 37.0;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < fuzz::RawLayout::encodedSize) return 0;
  const fuzz::RawLayout layout = fuzz::RawLayout::decode(data);
  static fuzz::MemoryFile file;
  static fuzz::MemoryFile written;
  file.assign(data + fuzz::RawLayout::encodedSize, size - fuzz::RawLayout::encodedSize);

  const DatasetWorldEmbedding embedding;
  Dataset first(true);
  first.newDataset(layout.size, layout.datasetElementType, embedding);
  for (auto it = first.getStartCoordinatesIterator(); it.valid; first.incrementCoordinatesIterator(it))
    first.setElement<double>(it, marker);
  RawDatasetFileReadWrite raw;
  configure(raw, layout, file.path());
  raw.read(&first);
  if (raw.headerSize < 0 || raw.trailerSize < 0 || raw.elementPrefixSize < 0 || raw.elementSuffixSize < 0)
    fuzz::fail("negative filler sizes are kept");

  // Written with the same layout and read into a fresh dataset.
  configure(raw, layout, written.path());
  written.clear();
  raw.write(&first);
  Dataset second(true);
  second.newDataset(layout.size, layout.datasetElementType, embedding);
  raw.read(&second);
  if (layout.fileElementType == layout.datasetElementType && !fuzz::sameElements(first, second))
    fuzz::fail("elements written and read with the same layout differ");
  return 0;
}

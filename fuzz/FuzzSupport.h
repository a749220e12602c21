#ifndef TARV_FUZZ_FUZZSUPPORT_H
#define TARV_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/DatasetCoordinates.h"
#include "dataset/Dataset.h"
#include "dataset/DependentDataset.h"

// Helpers shared by the fuzz harnesses and the corpus generator.
namespace tarv::fuzz {

// Sends the library's diagnostics (std::cerr, std::clog, libtiff's handlers) nowhere, unless
// TARV_FUZZ_VERBOSE is set. Sanitizer reports still reach the standard error stream.
void quietLibraryOutput();

// Aborts with a message: a harness found results that contradict each other.
[[noreturn]] void fail(const char* what);

// A file held in memory (memfd), reachable by path, for the readers that take file names.
class MemoryFile {
public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return filePath; }
  // Replaces the contents.
  void assign(const std::uint8_t* data, std::size_t size);
  void clear();
  std::vector<std::uint8_t> contents() const;

private:
  int descriptor = -1;
  std::string filePath;
};

// Reads a whole file; empty when it cannot be read.
std::vector<std::uint8_t> readWholeFile(const std::string& path);
// Writes bytes to a file; false on failure.
bool writeWholeFile(const std::string& path, const std::vector<std::uint8_t>& bytes);

// The filter classes whose descriptions are read, in a fixed order.
constexpr int filterClassCount = 10;
const char* filterClassName(int index);
DependentDataset* createFilter(int index);

// An in-memory dataset of the type and size, filled with values that depend on the variant and
// the seed: variant 0 small integers, 1 a ramp with negatives and fractions, 2 extremes (NaN,
// infinities, large magnitudes where the type has them).
Dataset* createSourceDataset(TARVElementType type, const DatasetCoordinates& size, int variant, int seed);

// Source sizes selectable by the filter and graph harnesses (index 0 to 7).
DatasetCoordinates sourceSizeVariant(int index);

// The layout prefix of the raw harness: how the bytes after it are to be read.
struct RawLayout {
  static constexpr std::size_t encodedSize = 12;

  TARVElementType fileElementType = TARV_ELEMENT_TYPE_DOUBLE;
  bool byteSwap = false;
  int headerSize = 0;
  int trailerSize = 0;
  int elementPrefixSize = 0;
  int elementSuffixSize = 0;
  TARVElementType datasetElementType = TARV_ELEMENT_TYPE_DOUBLE;
  DatasetCoordinates size{1, 1, 1, 1, 1};

  static RawLayout decode(const std::uint8_t* bytes);
  // Inverse of decode for values within the ranges decode produces.
  std::vector<std::uint8_t> encode() const;
};

// Compares two datasets element by element, bit for bit in the element's storage (NaNs included);
// false when shapes or types differ.
bool sameElements(Dataset& a, Dataset& b);

}  // namespace tarv::fuzz

#endif

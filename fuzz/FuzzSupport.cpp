#include "FuzzSupport.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <streambuf>

#include <tiffio.h>

#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

namespace tarv::fuzz {

namespace {

class NullBuffer : public std::streambuf {
protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

// Never destroyed: the standard streams still flush into it when the program ends.
NullBuffer* const nullBuffer = new NullBuffer();

}  // namespace

void quietLibraryOutput() {
  if (std::getenv("TARV_FUZZ_VERBOSE") != nullptr) return;
  std::cerr.rdbuf(nullBuffer);
  std::clog.rdbuf(nullBuffer);
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
}

void fail(const char* what) {
  std::fprintf(stderr, "fuzz harness check failed: %s\n", what);
  std::fflush(stderr);
  std::abort();
}

MemoryFile::MemoryFile() {
  descriptor = memfd_create("tarv-fuzz", 0);
  if (descriptor < 0) {
    std::perror("memfd_create");
    std::abort();
  }
  filePath = "/proc/self/fd/" + std::to_string(descriptor);
}

MemoryFile::~MemoryFile() {
  if (descriptor >= 0) close(descriptor);
}

void MemoryFile::assign(const std::uint8_t* data, std::size_t size) {
  clear();
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = pwrite(descriptor, data + done, size - done, static_cast<off_t>(done));
    if (n <= 0) {
      std::perror("pwrite");
      std::abort();
    }
    done += static_cast<std::size_t>(n);
  }
}

void MemoryFile::clear() {
  if (ftruncate(descriptor, 0) != 0) {
    std::perror("ftruncate");
    std::abort();
  }
}

std::vector<std::uint8_t> MemoryFile::contents() const { return readWholeFile(filePath); }

std::vector<std::uint8_t> readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool writeWholeFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

const char* filterClassName(int index) {
  static const char* const names[filterClassCount] = {
      "CastDataset",           "ConstantDataset",          "DirectionFilteredVectorLengthDataset",
      "GradientDataset",       "IntervalPlateauDataset",   "IntervalThresholdDataset",
      "LinearTransformationDataset", "ScaleDataset",      "SmoothDataset",
      "VectorLengthDataset"};
  return index >= 0 && index < filterClassCount ? names[index] : "";
}

DependentDataset* createFilter(int index) {
  switch (index) {
    case 0: return new CastDataset();
    case 1: return new ConstantDataset();
    case 2: return new DirectionFilteredVectorLengthDataset();
    case 3: return new GradientDataset();
    case 4: return new IntervalPlateauDataset();
    case 5: return new IntervalThresholdDataset();
    case 6: return new LinearTransformationDataset();
    case 7: return new ScaleDataset();
    case 8: return new SmoothDataset();
    case 9: return new VectorLengthDataset();
    default: return nullptr;
  }
}

DatasetCoordinates sourceSizeVariant(int index) {
  switch (index & 7) {
    case 0: return DatasetCoordinates(5, 4, 3, 1, 1);
    case 1: return DatasetCoordinates(7, 1, 1, 1, 1);
    case 2: return DatasetCoordinates(3, 3, 2, 2, 1);
    case 3: return DatasetCoordinates(4, 4, 1, 1, 2);
    // Rows long enough for the vectorised row paths.
    case 4: return DatasetCoordinates(37, 3, 2, 1, 1);
    case 5: return DatasetCoordinates(66, 2, 1, 1, 1);
    case 6: return DatasetCoordinates(1, 1, 1, 1, 1);
    default: return DatasetCoordinates(9, 8, 7, 1, 1);
  }
}

Dataset* createSourceDataset(TARVElementType type, const DatasetCoordinates& size, int variant, int seed) {
  auto* dataset = new Dataset(true);
  dataset->newDataset(size, type,
                      DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.5, 1.0, 2.0, 1.0)));
  if (!dataset->hasData()) return dataset;
  static const long double extremes[] = {std::numeric_limits<double>::quiet_NaN(),
                                         std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(),
                                         1e300L,
                                         -1e300L,
                                         0.0L,
                                         -0.0L,
                                         4294967296.0L,
                                         -2147483649.0L,
                                         std::numeric_limits<double>::denorm_min()};
  std::uint64_t i = 0;
  for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it), ++i) {
    const std::uint64_t k = i * 7 + static_cast<std::uint64_t>(seed) * 13;
    long double value = 0.0L;
    if (variant == 0)
      value = static_cast<long double>(k % 11);
    else if (variant == 1)
      value = static_cast<long double>(static_cast<std::int64_t>(k % 23) - 11) * 0.75L;
    else
      value = extremes[k % (sizeof extremes / sizeof extremes[0])];
    dataset->setElement<long double>(it, value);
  }
  return dataset;
}

RawLayout RawLayout::decode(const std::uint8_t* b) {
  RawLayout layout;
  layout.fileElementType = static_cast<TARVElementType>(TARV_ELEMENT_TYPE_BOOL + b[0] % 12);
  layout.byteSwap = (b[1] & 1) != 0;
  layout.headerSize = static_cast<std::int8_t>(b[2]);
  layout.trailerSize = static_cast<std::int8_t>(b[3]);
  layout.elementPrefixSize = static_cast<std::int8_t>(b[4]) % 8;
  layout.elementSuffixSize = static_cast<std::int8_t>(b[5]) % 8;
  layout.datasetElementType = static_cast<TARVElementType>(TARV_ELEMENT_TYPE_BOOL + b[6] % 12);
  layout.size = DatasetCoordinates(1 + b[7] % 16, 1 + b[8] % 16, 1 + b[9] % 4, 1 + b[10] % 4, 1 + b[11] % 4);
  return layout;
}

std::vector<std::uint8_t> RawLayout::encode() const {
  return {static_cast<std::uint8_t>(fileElementType - TARV_ELEMENT_TYPE_BOOL),
          static_cast<std::uint8_t>(byteSwap ? 1 : 0),
          static_cast<std::uint8_t>(static_cast<std::int8_t>(headerSize)),
          static_cast<std::uint8_t>(static_cast<std::int8_t>(trailerSize)),
          static_cast<std::uint8_t>(static_cast<std::int8_t>(elementPrefixSize)),
          static_cast<std::uint8_t>(static_cast<std::int8_t>(elementSuffixSize)),
          static_cast<std::uint8_t>(datasetElementType - TARV_ELEMENT_TYPE_BOOL),
          static_cast<std::uint8_t>(size.x - 1),
          static_cast<std::uint8_t>(size.y - 1),
          static_cast<std::uint8_t>(size.z - 1),
          static_cast<std::uint8_t>(size.t - 1),
          static_cast<std::uint8_t>(size.c - 1)};
}

bool sameElements(Dataset& a, Dataset& b) {
  if (a.getSize() != b.getSize() || a.getElementType() != b.getElementType()) return false;
  if (a.hasData() != b.hasData()) return false;
  if (!a.hasData()) return true;
  for (auto it = a.getStartCoordinatesIterator(); it.valid; a.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = it;
    const long double x = a.getElement<long double>(p);
    const long double y = b.getElement<long double>(p);
    if (std::isnan(x) && std::isnan(y)) continue;
    if (x != y || std::signbit(x) != std::signbit(y)) return false;
  }
  return true;
}

}  // namespace tarv::fuzz

#ifndef TARV_TESTS_TESTSUPPORT_H
#define TARV_TESTS_TESTSUPPORT_H

// Helpers shared by several tests: coordinates, element patterns, dataset snapshots, temporary
// directories, whole-file byte access, a memory that counts (and may refuse) allocations and a
// dataset that counts its element accesses.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <system_error>
#include <vector>

#include "core/Progress.h"
#include "dataset/ArrayDatasetMemory.h"
#include "dataset/Dataset.h"

namespace tarv::testing {

inline DatasetCoordinates C(int x, int y, int z, int t = 0, int c = 0) { return DatasetCoordinates(x, y, z, t, c); }

inline DatasetWorldEmbedding embedding(double ox, double oy, double oz, double sx, double sy, double sz) {
  return DatasetWorldEmbedding(WorldCoordinates(ox, oy, oz, 0.0), WorldCoordinates(sx, sy, sz, 1.0));
}

// A distinct value for every element: 1000 t + 100 z + 10 y + x + c / 10 (plus one, so none is 0).
inline double pattern(const DatasetCoordinates& p) {
  return 1000.0 * p.t + 100.0 * p.z + 10.0 * p.y + p.x + p.c / 10.0 + 1.0;
}

// Every element set to pattern(p), converted to T.
template <ElementValueType T>
void fillWithPattern(Dataset& d) {
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<T>(it, static_cast<T>(pattern(it)));
}

// Every element set to a value drawn uniformly from [low, high), stored as double.
inline void fillRandomly(Dataset& d, std::mt19937& random, double low, double high) {
  std::uniform_real_distribution<double> value(low, high);
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, value(random));
}

// Calls f.template operator()<T>() for each of the twelve element types.
template <typename F>
void forEachElementType(F&& f) {
  ElementTypeTable::forEach([&]<typename Row>() { f.template operator()<typename Row::type>(); });
}

// The whole state a caller can see, to prove that an operation left a dataset alone.
struct Snapshot {
  DatasetCoordinates size;
  TARVElementType type;
  DatasetWorldEmbedding embedding;
  std::vector<double> values;

  explicit Snapshot(Dataset& d) : size(d.getSize()), type(d.getElementType()), embedding(d.getWorldEmbedding()) {
    for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      values.push_back(d.getElement<double>(it));
  }
  bool operator==(const Snapshot& o) const {
    return size == o.size && type == o.type && embedding == o.embedding && values == o.values;
  }
};

// A fresh directory under the system's temporary directory, removed with its files.
class TemporaryDirectory {
public:
  explicit TemporaryDirectory(const std::string& prefix = "tarv-test") {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    path = mkdtemp(pattern.data()) ? pattern : std::string();
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  std::string file(const std::string& name) const { return path + "/" + name; }

private:
  std::string path;
};

// The whole content of a file (empty when it cannot be read).
inline std::string readBytes(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Replaces the content of a file by bytes.
inline void writeBytes(const std::string& name, const std::string& bytes) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// A TARV1 file of the given size with factor 1 (extra header lines appended), whose sample i in
// storage order is i modulo 65536, little endian.
inline void writeCountingTarv1File(const std::string& name, const DatasetCoordinates& size,
                                   const std::string& extraLines = "") {
  std::ostringstream header;
  header << "X = " << size.x << "\nY = " << size.y << "\nZ = " << size.z << "\nt = " << size.t
         << "\nfactor = 1\n" << extraLines;
  std::string bytes = header.str();
  bytes.resize(2048, ' ');
  const long count = static_cast<long>(size.x) * size.y * size.z * size.t;
  for (long i = 0; i < count; ++i) {
    bytes += static_cast<char>(i & 0xff);
    bytes += static_cast<char>((i >> 8) & 0xff);
  }
  writeBytes(name, bytes);
}

// A memory that refuses allocations above a byte limit and counts the ones it makes.
struct AllocationStats {
  std::uint64_t limitBytes = std::numeric_limits<std::uint64_t>::max();
  int allocations = 0;
  int refusals = 0;
};

class LimitedMemory : public ArrayDatasetMemory {
public:
  explicit LimitedMemory(std::shared_ptr<AllocationStats> s) : stats(std::move(s)) {}
  DatasetMemory* cloneEmpty() const override { return new LimitedMemory(stats); }

protected:
  bool allocateElements() override {
    if (getByteSize() > stats->limitBytes) {
      ++stats->refusals;
      return false;
    }
    ++stats->allocations;
    return ArrayDatasetMemory::allocateElements();
  }

private:
  std::shared_ptr<AllocationStats> stats;
};

// Counts the virtual element accesses and announcements that reach the dataset.
class CountingDataset : public Dataset {
public:
  CountingDataset() : Dataset(true) {}
  int coordinateReads = 0;
  int iteratorReads = 0;
  int coordinateWrites = 0;
  int iteratorWrites = 0;
  int fullAnnouncements = 0;
  int boxAnnouncements = 0;
  int fullCalculations = 0;

  void announceAccess(const DatasetBoundingBox& box) override {
    ++boxAnnouncements;
    Dataset::announceAccess(box);
  }
  void announceAccessToFullDataset() override {
    ++fullAnnouncements;
    Dataset::announceAccessToFullDataset();
  }
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    ++coordinateReads;
    return Dataset::getElementByBuffer(p, buffer);
  }
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override {
    ++coordinateWrites;
    Dataset::setElementByBuffer(p, buffer);
  }
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override {
    ++iteratorReads;
    return Dataset::getElementByBuffer(it, buffer);
  }
  void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) override {
    ++iteratorWrites;
    Dataset::setElementByBuffer(it, buffer);
  }
  void calculateFullDataset(Progress* progress) override {
    ++fullCalculations;
    Dataset::calculateFullDataset(progress);
  }
  void resetCounts() {
    coordinateReads = iteratorReads = coordinateWrites = iteratorWrites = 0;
    fullAnnouncements = boxAnnouncements = fullCalculations = 0;
  }
};

}  // namespace tarv::testing

#endif

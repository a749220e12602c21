// The filter descriptions: DependentDataset::read of every filter class, then the filter put to
// work over small in-memory sources with the parameters read.
//
// Input: byte 0 chooses the filter class, byte 1 the sources (bits 0-3 element type, 4-5 the
// kind of values, 7 whether the description is read before or after connecting), byte 2 their
// size; the rest is the description.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"

using namespace tarv;

namespace {

std::string describe(DependentDataset& filter) {
  std::ostringstream out;
  filter.write(out);
  return out.str();
}

bool sameValue(long double a, long double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return a == b && std::signbit(a) == std::signbit(b);
}

// Computes every element in bulk, then again one element at a time from a one-element cache:
// both ways must give the same values, bit for bit.
void computeAll(DependentDataset& filter) {
  filter.calculateFullDataset(nullptr);
  if (!filter.hasData()) return;
  std::vector<long double> bulk;
  for (auto it = filter.getStartCoordinatesIterator(); it.valid; filter.incrementCoordinatesIterator(it))
    bulk.push_back(filter.getElement<long double>(static_cast<const DatasetCoordinates&>(it)));

  filter.setMinimalROIEnforcement(true);
  filter.resetCache();
  std::size_t i = 0;
  for (auto it = filter.getStartCoordinatesIterator(); it.valid; filter.incrementCoordinatesIterator(it), ++i)
    if (!sameValue(bulk[i], filter.getElement<long double>(static_cast<const DatasetCoordinates&>(it))))
      fuzz::fail("an element computed alone differs from the same element computed in bulk");
  filter.setMinimalROIEnforcement(false);

  // Element by element from a fresh cache, moving the region of interest around.
  filter.resetCache();
  const DatasetCoordinates size = filter.getSize();
  for (int t = size.t - 1; t >= 0; --t)
    for (int z = 0; z < size.z; ++z)
      for (int y = size.y - 1; y >= 0; --y)
        for (int x = 0; x < size.x; x += 2)
          for (int c = 0; c < size.c; ++c) (void)filter.getElement<double>(DatasetCoordinates(x, y, z, t, c));
  filter.announceAccess(DatasetBoundingBox(DatasetCoordinates(1, 1, 0, 0, 0), size - DatasetCoordinates(1, 1, 1, 1, 1)));
  (void)filter.getElement<double>(DatasetCoordinates(size.x / 2, size.y / 2, size.z / 2, 0, 0));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const int classIndex = data[0] % fuzz::filterClassCount;
  const auto sourceType = static_cast<TARVElementType>(TARV_ELEMENT_TYPE_BOOL + (data[1] & 15) % 12);
  const int valueVariant = ((data[1] >> 4) & 3) % 3;
  const bool readAfterConnecting = (data[1] & 128) != 0;
  const DatasetCoordinates sourceSize = fuzz::sourceSizeVariant(data[2]);
  const std::string description(reinterpret_cast<const char*>(data + 3), size - 3);

  // Read alone, and the description written back must read to the same description.
  std::unique_ptr<DependentDataset> filter(fuzz::createFilter(classIndex));
  {
    std::istringstream in(description);
    filter->read(in, false);
  }
  const std::list<int> sourceIds = filter->getTempSourceIDList();
  const std::string written = describe(*filter);
  {
    std::unique_ptr<DependentDataset> again(fuzz::createFilter(classIndex));
    std::istringstream in(written);
    again->read(in, false);
    if (describe(*again) != written) fuzz::fail("a written description reads back differently");
    // Parameters are compared with ==, so a NaN parameter is never equivalent to anything.
    if (written.find("nan") == std::string::npos &&
        (!again->isDatasetEquivalent(filter.get()) || !filter->isDatasetEquivalent(again.get())))
      fuzz::fail("a filter is not equivalent to its own description read back");
  }

  // Sources: one per listed ID, up to four, at least one.
  const std::size_t sourceCount = std::clamp<std::size_t>(sourceIds.size(), 1, 4);
  std::vector<std::unique_ptr<Dataset>> sources;
  std::vector<Dataset*> sourcePointers;
  int seed = 0;
  for (const int id : sourceIds) {
    if (sources.size() == sourceCount) break;
    sources.emplace_back(fuzz::createSourceDataset(sourceType, sourceSize, valueVariant, id & 255));
    sources.back()->setDatasetID(id);
    ++seed;
  }
  while (sources.size() < sourceCount)
    sources.emplace_back(fuzz::createSourceDataset(sourceType, sourceSize, valueVariant, seed++));
  for (auto& source : sources) sourcePointers.push_back(source.get());

  {
    std::unique_ptr<DependentDataset> connected(fuzz::createFilter(classIndex));
    if (readAfterConnecting) {
      connected->setSourceDatasets(sourcePointers);
      std::istringstream in(description);
      connected->read(in, false);
    } else {
      std::istringstream in(description);
      connected->read(in, false);
      connected->setSourceDatasets(sourcePointers);
    }
    connected->clearTempIDLists();
    computeAll(*connected);
    (void)describe(*connected);

    // A chain: the same filter once more behind the first.
    std::unique_ptr<DependentDataset> chained(fuzz::createFilter(classIndex));
    std::istringstream in(description);
    chained->read(in, false);
    chained->setSourceDataset(connected.get());
    computeAll(*chained);
    (void)connected->isDatasetEquivalent(chained.get());
    // Changing the parameters of a connected filter re-derives its dependants.
    std::istringstream again(written);
    connected->read(again, false);
    computeAll(*chained);
    chained.reset();
  }
  filter.reset();
  return 0;
}

#ifndef TARV_TESTS_DATASET_BINARYSEGMENTATIONSTESTSUPPORT_H
#define TARV_TESTS_DATASET_BINARYSEGMENTATIONSTESTSUPPORT_H

// Datasets for the segmentation tests: plain or read through element access, copies, values,
// voxel counts and random pairs of segmentations.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "dataset/Dataset.h"

namespace tarv::segmentationtests {

const double notANumber = std::numeric_limits<double>::quiet_NaN();

// A dataset that is not a plain in-memory one: the library reads it through its virtual
// element access. It counts the reads and records the written coordinates.
class AccessCountingDataset : public Dataset {
public:
  AccessCountingDataset() : Dataset(true) {}
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(p, buffer);
  }
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(it, buffer);
  }
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override {
    writes.push_back(p);
    Dataset::setElementByBuffer(p, buffer);
  }
  void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) override {
    writes.push_back(it);
    Dataset::setElementByBuffer(it, buffer);
  }
  long reads = 0;
  std::vector<DatasetCoordinates> writes;
};

inline DatasetWorldEmbedding embeddingWithSpacing(double sx, double sy, double sz) {
  return DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(sx, sy, sz, 1));
}

inline std::unique_ptr<Dataset> makeDataset(DatasetCoordinates size, TARVElementType type,
                                     const DatasetWorldEmbedding& embedding = DatasetWorldEmbedding(),
                                     bool plain = true) {
  std::unique_ptr<Dataset> d = plain ? std::make_unique<Dataset>(true) : std::make_unique<AccessCountingDataset>();
  d->newDataset(size, type, embedding);
  d->setAllElementsValue(0.0);
  return d;
}

// Copy with the same size, type, embedding and elements; plain or read through element access.
inline std::unique_ptr<Dataset> copyOf(Dataset* source, bool plain) {
  auto d = makeDataset(source->getSize(), source->getElementType(), source->getWorldEmbedding(), plain);
  for (auto it = source->getStartCoordinatesIterator(); it.valid; source->incrementCoordinatesIterator(it)) {
    source->getElementByBuffer(it, source->getElementBuffer());
    d->setElementByBuffer(static_cast<const DatasetCoordinates&>(it), source->getElementBuffer());
  }
  return d;
}

inline DatasetCoordinates at(int x, int y = 0, int z = 0, int t = 0, int c = 0) { return DatasetCoordinates(x, y, z, t, c); }

inline std::vector<double> allValues(Dataset* d) {
  std::vector<double> values;
  for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    values.push_back(d->getElement<double>(it));
  return values;
}

inline bool sameDouble(double a, double b) { return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b)); }

inline unsigned referenceCount(Dataset* d, int t) {
  unsigned n = 0;
  const DatasetCoordinates size = d->getSize();
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y)
      for (int x = 0; x < size.x; ++x) n += d->getElement<bool>(at(x, y, z, t)) ? 1 : 0;
  return n;
}

// ---------------------------------------------------------------------------------------------
// Random segmentations.

const TARVElementType allTypes[] = {
    tarv::TARV_ELEMENT_TYPE_BOOL,          tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR,
    tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
    tarv::TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, tarv::TARV_ELEMENT_TYPE_SIGNED_INT,
    tarv::TARV_ELEMENT_TYPE_UNSIGNED_INT,  tarv::TARV_ELEMENT_TYPE_SIGNED_LONG_INT,
    tarv::TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT, tarv::TARV_ELEMENT_TYPE_FLOAT,
    tarv::TARV_ELEMENT_TYPE_DOUBLE,        tarv::TARV_ELEMENT_TYPE_LONG_DOUBLE};

// Fills time step t with one of: nothing, noise, a few balls (possibly cut by the faces), or a
// slab on one face of the dataset. Object values are non-zero and, for floating point types,
// sometimes NaN.
inline void fillRandomSegmentation(Dataset* d, int t, std::mt19937& rng) {
  const DatasetCoordinates size = d->getSize();
  std::uniform_int_distribution<int> kindOf(0, 4);
  const int kind = kindOf(rng);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  auto objectValue = [&]() -> double {
    if (d->hasFloatingPointElementType() && unit(rng) < 0.1) return notANumber;
    return 1.0 + std::floor(unit(rng) * 3.0);
  };
  std::vector<std::tuple<double, double, double, double>> balls;
  for (int i = 0, n = 1 + int(unit(rng) * 3); i < n; ++i)
    balls.emplace_back(unit(rng) * size.x, unit(rng) * size.y, unit(rng) * size.z, 0.8 + unit(rng) * 3.0);
  const int face = int(unit(rng) * 6);
  const double density = 0.05 + unit(rng) * 0.4;
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y)
      for (int x = 0; x < size.x; ++x) {
        bool object = false;
        if (kind == 1) object = unit(rng) < density;
        if (kind == 2 || kind == 3) {
          for (auto [cx, cy, cz, radius] : balls)
            object = object || (x - cx) * (x - cx) + (y - cy) * (y - cy) + (z - cz) * (z - cz) <= radius * radius;
        }
        if (kind == 4) {
          const int c[3] = {x, y, z};
          const int axis = face / 2;
          object = face % 2 == 0 ? c[axis] == 0 : c[axis] == size[axis] - 1;
        }
        d->setElement<double>(at(x, y, z, t), object ? objectValue() : 0.0);
      }
}

inline std::string describe(unsigned seed, Dataset* d) {
  std::ostringstream os;
  const WorldCoordinates s = d->getWorldEmbedding().getVoxelSpacing();
  os << "seed " << seed << ", size " << d->getSize() << ", type " << d->getElementType() << ", spacing " << s.x
     << " " << s.y << " " << s.z;
  return os.str();
}

const WorldCoordinates spacings[] = {
    {1, 1, 1, 1}, {0.7, 0.7, 0.7, 1}, {2, 1, 1, 1}, {0.5, 1.3, 3.1, 1}, {10, 1, 0.3, 1}, {1, 4.5, 1, 1}};

struct RandomPair {
  unsigned seed;
  std::unique_ptr<Dataset> a, b;
  int t;
};

inline RandomPair makeRandomPair(unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> extent(1, 8);
  const DatasetCoordinates size(extent(rng), extent(rng), std::uniform_int_distribution<int>(1, 6)(rng),
                                std::uniform_int_distribution<int>(1, 2)(rng), 1);
  const WorldCoordinates s = spacings[rng() % std::size(spacings)];
  const TARVElementType type = allTypes[rng() % std::size(allTypes)];
  const DatasetWorldEmbedding embedding = embeddingWithSpacing(s.x, s.y, s.z);
  RandomPair pair{seed, makeDataset(size, type, embedding), makeDataset(size, type, embedding), 0};
  for (int t = 0; t < size.t; ++t) {
    fillRandomSegmentation(pair.a.get(), t, rng);
    fillRandomSegmentation(pair.b.get(), t, rng);
  }
  pair.t = int(rng() % unsigned(size.t));
  return pair;
}

}  // namespace tarv::segmentationtests

#endif

#include "dataset/BinarySegmentations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <tuple>
#include <vector>

#include "dataset/Dataset.h"

using tarv::BinarySegmentations;
using tarv::Dataset;
using tarv::DatasetCoordinates;
using tarv::DatasetCoordinatesIterator;
using tarv::DatasetWorldEmbedding;
using tarv::TARVElementType;
using tarv::WorldCoordinates;

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

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

DatasetWorldEmbedding embeddingWithSpacing(double sx, double sy, double sz) {
  return DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(sx, sy, sz, 1));
}

std::unique_ptr<Dataset> makeDataset(DatasetCoordinates size, TARVElementType type,
                                     const DatasetWorldEmbedding& embedding = DatasetWorldEmbedding(),
                                     bool plain = true) {
  std::unique_ptr<Dataset> d = plain ? std::make_unique<Dataset>(true) : std::make_unique<AccessCountingDataset>();
  d->newDataset(size, type, embedding);
  d->setAllElementsValue(0.0);
  return d;
}

// Copy with the same size, type, embedding and elements; plain or read through element access.
std::unique_ptr<Dataset> copyOf(Dataset* source, bool plain) {
  auto d = makeDataset(source->getSize(), source->getElementType(), source->getWorldEmbedding(), plain);
  for (auto it = source->getStartCoordinatesIterator(); it.valid; source->incrementCoordinatesIterator(it)) {
    source->getElementByBuffer(it, source->getElementBuffer());
    d->setElementByBuffer(static_cast<const DatasetCoordinates&>(it), source->getElementBuffer());
  }
  return d;
}

DatasetCoordinates at(int x, int y = 0, int z = 0, int t = 0, int c = 0) { return DatasetCoordinates(x, y, z, t, c); }

std::vector<double> allValues(Dataset* d) {
  std::vector<double> values;
  for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    values.push_back(d->getElement<double>(it));
  return values;
}

bool sameDouble(double a, double b) { return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b)); }

// ---------------------------------------------------------------------------------------------
// The reference: the shell search enumerated exactly as described, through plain element reads.

bool referenceObject(Dataset* d, const DatasetCoordinates& c) {
  if (!d->areCoordinatesInside(c)) return false;
  const double v = d->getElement<double>(c);
  return v < 0 || v > 0 || std::isnan(v);
}

bool referenceBorder(Dataset* d, const DatasetCoordinates& c) {
  if (!referenceObject(d, c)) return false;
  const int steps[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
  for (const auto& s : steps)
    if (!referenceObject(d, DatasetCoordinates(c.x + s[0], c.y + s[1], c.z + s[2], c.t, c.c))) return true;
  return false;
}

double referenceShellSearch(Dataset* d, const DatasetCoordinates& p, bool borderTargets) {
  const WorldCoordinates s = d->getWorldEmbedding().getVoxelSpacing();
  const double wx = s.x * s.x, wy = s.y * s.y, wz = s.z * s.z;
  const DatasetCoordinates size = d->getSize();
  std::int64_t rMax = 0;
  for (int k = 0; k < 3; ++k) rMax += std::max<std::int64_t>(p[k], std::int64_t(size[k]) - 1 - p[k]);
  bool found = false;
  double best = 0.0;
  for (std::int64_t r = 0; r <= rMax; ++r) {
    double shellMax = 0.0;
    for (std::int64_t dx = -r; dx <= r; ++dx)
      for (std::int64_t dy = -(r - std::abs(dx)); dy <= r - std::abs(dx); ++dy) {
        const std::int64_t rest = r - std::abs(dx) - std::abs(dy);
        for (std::int64_t dz : {-rest, rest}) {
          const double fx = double(dx), fy = double(dy), fz = double(dz);
          const double q = fx * fx * wx + fy * fy * wy + fz * fz * wz;
          shellMax = std::max(shellMax, q);
          const DatasetCoordinates c(int(p.x + dx), int(p.y + dy), int(p.z + dz), p.t, p.c);
          const bool target = borderTargets ? referenceBorder(d, c) : referenceObject(d, c);
          if (target) {
            best = found ? std::min(best, q) : q;
            found = true;
          }
          if (rest == 0) break;
        }
      }
    if (found && shellMax > best) break;
  }
  return best;
}

unsigned referenceCount(Dataset* d, int t) {
  unsigned n = 0;
  const DatasetCoordinates size = d->getSize();
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y)
      for (int x = 0; x < size.x; ++x) n += d->getElement<bool>(at(x, y, z, t)) ? 1 : 0;
  return n;
}

double referenceDirected(Dataset* a, Dataset* b, int t) {
  double result = 0.0;
  const DatasetCoordinates size = a->getSize();
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y)
      for (int x = 0; x < size.x; ++x)
        if (a->getElement<bool>(at(x, y, z, t))) result = std::max(result, referenceShellSearch(b, at(x, y, z, t), false));
  return result;
}

double referenceHausdorff(Dataset* a, Dataset* b, int t) {
  if (!a->isCompatible(b)) return 0.0;
  if (referenceCount(a, t) == 0 || referenceCount(b, t) == 0) return 0.0;
  const double ba = referenceDirected(b, a, t);
  const double ab = referenceDirected(a, b, t);
  return std::sqrt(std::max(ba, ab));
}

double referenceAverageBorder(Dataset* a, Dataset* b, int t) {
  if (!a->isCompatible(b)) return 0.0;
  if (referenceCount(a, t) == 0 || referenceCount(b, t) == 0) return 0.0;
  double sum = 0.0;
  unsigned n = 0;
  for (auto [from, to] : {std::pair{a, b}, std::pair{b, a}}) {
    const DatasetCoordinates size = from->getSize();
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x)
          if (referenceBorder(from, at(x, y, z, t))) {
            sum += std::sqrt(referenceShellSearch(to, at(x, y, z, t), true));
            ++n;
          }
  }
  return sum / n;
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
void fillRandomSegmentation(Dataset* d, int t, std::mt19937& rng) {
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

std::string describe(unsigned seed, Dataset* d) {
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

RandomPair makeRandomPair(unsigned seed) {
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

}  // namespace

// ---------------------------------------------------------------------------------------------
// Predicates and conversions.

TEST(BinarySegmentationsTest, SingleVoxelAndFaceVoxelsAreBorderElements) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  d->setElement<int>(at(1, 1, 1), 1);
  EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(1, 1, 1))) << "a lone object voxel is border";

  // A voxel on the outer face whose five inside neighbours are all object.
  d->setAllElementsValue(0.0);
  for (auto c : {at(0, 1, 1), at(1, 1, 1), at(0, 0, 1), at(0, 2, 1), at(0, 1, 0), at(0, 1, 2)}) d->setElement<int>(c, 1);
  EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(0, 1, 1))) << "the dataset's edge counts as background";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 1, 1))) << "background is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(-1, 1, 1))) << "outside is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(1, 1, 1, 1))) << "t outside is never border";
  EXPECT_FALSE(BinarySegmentations::isBorderElement(nullptr, at(1, 1, 1)));
}

TEST(BinarySegmentationsTest, SolidCubeHasOnlyItsCentreInside) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  d->setAllElementsValue(-4.0);
  std::vector<DatasetCoordinates> inner;
  for (int z = 0; z < 3; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 3; ++x)
        if (!BinarySegmentations::isBorderElement(d.get(), at(x, y, z))) inner.push_back(at(x, y, z));
  ASSERT_EQ(inner.size(), 1u) << "expected exactly one non-border voxel";
  EXPECT_EQ(inner.front(), at(1, 1, 1)) << "expected the centre";
}

TEST(BinarySegmentationsTest, BorderNeedsAllSixFaceNeighbours) {
  auto d = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  for (int z = 1; z < 4; ++z)
    for (int y = 1; y < 4; ++y)
      for (int x = 1; x < 4; ++x) d->setElement<double>(at(x, y, z), 1.0);
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2)));
  const DatasetCoordinates neighbours[] = {at(1, 2, 2), at(3, 2, 2), at(2, 1, 2), at(2, 3, 2), at(2, 2, 1), at(2, 2, 3)};
  for (const auto& n : neighbours) {
    d->setElement<double>(n, 0.0);
    EXPECT_TRUE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2))) << "hole at " << n;
    d->setElement<double>(n, 1.0);
  }
  // Edge and corner neighbours do not matter.
  d->setElement<double>(at(1, 1, 2), 0.0);
  d->setElement<double>(at(1, 1, 1), 0.0);
  EXPECT_FALSE(BinarySegmentations::isBorderElement(d.get(), at(2, 2, 2)));
}

TEST(BinarySegmentationsTest, TransformWithBoundsKeepsTheClosedRange) {
  auto d = makeDataset(at(5, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  const double values[] = {0.5, 1.0, 2.0, 2.5, notANumber};
  for (int x = 0; x < 5; ++x) d->setElement<double>(at(x), values[x]);
  BinarySegmentations::transformIntoBinarySegmentation(d.get(), 1.0, 2.0);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 1, 0, 0})) << "0.5 -> 0, 1 and 2 -> 1, 2.5 and NaN -> 0";
}

TEST(BinarySegmentationsTest, TransformMakesNonZeroOne) {
  auto d = makeDataset(at(6, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  const double values[] = {0.0, 3.0, -7.0, 0.25, notANumber, -0.0};
  for (int x = 0; x < 6; ++x) d->setElement<double>(at(x), values[x]);
  BinarySegmentations::transformIntoBinarySegmentation(d.get());
  const std::vector<double> result = allValues(d.get());
  EXPECT_EQ(result, (std::vector<double>{0, 1, 1, 1, 1, 0}));
  EXPECT_TRUE(std::signbit(result[5])) << "zero elements are not written";

  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(1), true);
  BinarySegmentations::transformIntoBinarySegmentation(b.get());
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{0, 1, 0}));
}

TEST(BinarySegmentationsTest, EveryDatasetCountsAsBinary) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  d->setElement<int>(at(1), 3);
  d->setElement<int>(at(2), -7);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(d.get())) << "values 0, 3 and -7";
  auto f = makeDataset(at(2, 2, 1, 2, 3), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  f->setElement<double>(at(1, 1, 0, 1, 2), notANumber);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(f.get()));
  Dataset empty(true);
  EXPECT_TRUE(BinarySegmentations::isBinarySegmentation(&empty));
}

TEST(BinarySegmentationsTest, NanIsAnObjectElement) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  d->setElement<double>(at(0), notANumber);
  d->setElement<double>(at(1), -0.0);
  d->setElement<double>(at(2), -1e-30);
  EXPECT_TRUE(BinarySegmentations::isObjectElement(d.get(), at(0))) << "NaN is object";
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(1))) << "-0 is background";
  EXPECT_TRUE(BinarySegmentations::isObjectElement(d.get(), at(2)));
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(3))) << "outside is background";
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(0, 0, 0, 0, 1)));
  EXPECT_FALSE(BinarySegmentations::isObjectElement(nullptr, at(0)));
}

TEST(BinarySegmentationsTest, SetObjectElementAndSetEmpty) {
  auto d = makeDataset(at(2, 2, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR);
  BinarySegmentations::setObjectElement(d.get(), true, at(1, 1));
  EXPECT_EQ(d->getElement<int>(at(1, 1)), 1);
  BinarySegmentations::setObjectElement(d.get(), true, at(5, 1));  // outside: ignored
  BinarySegmentations::setObjectElement(d.get(), false, at(1, 1));
  EXPECT_EQ(d->getElement<int>(at(1, 1)), 0);
  d->setAllElementsValue(-3.0);
  BinarySegmentations::setEmpty(d.get());
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 0, 0, 0}));
  BinarySegmentations::setEmpty(nullptr);
}

TEST(BinarySegmentationsTest, WorldObjectTests) {
  auto d = makeDataset(at(4, 4, 4, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                       DatasetWorldEmbedding(WorldCoordinates(10, 20, 30, 0), WorldCoordinates(2, 2, 2, 1)));
  d->setElement<int>(at(1, 2, 3), 5);
  // World (12, 24, 36) is voxel (1, 2, 3).
  EXPECT_TRUE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.0, 24.0, 36.0, 0));
  EXPECT_TRUE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.9, 23.2, 36.5, 0)) << "nearest voxel";
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 14.0, 24.0, 36.0, 0));
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 1e9, 24.0, 36.0, 0)) << "outside is background";
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(d.get(), 12.0, 24.0, 36.0, 3)) << "t outside";
  // The plane form samples a plane interpolation that always gives 0.
  EXPECT_FALSE(BinarySegmentations::isPlaneWorldObjectElement(d.get(), 12.0, 24.0, 3, 0));
  EXPECT_FALSE(BinarySegmentations::isSpaceWorldObjectElement(nullptr, 0, 0, 0, 0));
}

// ---------------------------------------------------------------------------------------------
// Voxel counts.

TEST(BinarySegmentationsTest, PairwiseCountsOfTwoLines) {
  auto a = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  auto b = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  a->setElement<bool>(at(0), true);
  a->setElement<bool>(at(1), true);
  b->setElement<bool>(at(1), true);
  b->setElement<bool>(at(2), true);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a.get(), b.get(), 0), 2u);
  EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a.get(), b.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a.get(), b.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), b.get(), 0), 3u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 0), 2u);
}

TEST(BinarySegmentationsTest, CountsOfIncompatibleOrMissingInputsAreZero) {
  auto a = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto wider = makeDataset(at(5, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto moved = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT, embeddingWithSpacing(1, 1, 2));
  a->setAllElementsValue(1.0);
  wider->setAllElementsValue(1.0);
  moved->setAllElementsValue(1.0);
  for (Dataset* other : {wider.get(), moved.get(), static_cast<Dataset*>(nullptr)}) {
    EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), other, 0), 0u);
    EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(other, a.get(), 0), 0u);
  }
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 1), 0u) << "t outside holds nothing";
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), -1), 0u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), INT_MAX), 0u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a.get(), a.get(), 7), 0u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(nullptr, 0), 0u);
  Dataset empty(true), empty2(true);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(&empty, 0), 0u);
  EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(&empty, &empty2, 0), 0u);
}

TEST(BinarySegmentationsTest, CountsUseTheGivenTimeStepAndComponentZero) {
  auto a = makeDataset(at(3, 2, 2, 2, 2), tarv::TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  a->setElement<int>(at(0, 0, 0, 1, 0), 9);
  a->setElement<int>(at(1, 0, 0, 1, 0), 9);
  a->setElement<int>(at(2, 1, 1, 1, 1), 9);  // component 1 is not counted
  a->setElement<int>(at(2, 1, 1, 0, 0), 9);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 0), 1u);
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a.get(), 1), 2u);
}

TEST(BinarySegmentationsTest, PairwiseCountsReadTheSecondOnlyWhereNeeded) {
  auto plainA = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  for (int x = 0; x < 4; ++x) plainA->setElement<int>(at(x, 1, 1), 1);  // 4 of 24 object
  auto b = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding(), false);
  auto* counting = static_cast<AccessCountingDataset*>(b.get());
  counting->reads = 0;
  BinarySegmentations::getSharedSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 4) << "intersection reads b where a is object";
  counting->reads = 0;
  BinarySegmentations::getExclusiveSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 4);
  counting->reads = 0;
  BinarySegmentations::getTotalSegmentationVoxelCount(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 20) << "union reads b where a is background";
  counting->reads = 0;
  BinarySegmentations::getSegmentationVoxelCountDifference(plainA.get(), b.get(), 0);
  EXPECT_EQ(counting->reads, 24);
}

TEST(BinarySegmentationsTest, CountsMatchElementReadsForEveryTypeAndBothPaths) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    auto virtualA = copyOf(pair.a.get(), false);
    auto virtualB = copyOf(pair.b.get(), false);
    const int t = pair.t;
    unsigned difference = 0, exclusive = 0, shared = 0, total = 0;
    const DatasetCoordinates size = pair.a->getSize();
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          const bool inA = pair.a->getElement<bool>(at(x, y, z, t)), inB = pair.b->getElement<bool>(at(x, y, z, t));
          difference += inA != inB;
          exclusive += inA && !inB;
          shared += inA && inB;
          total += inA || inB;
        }
    for (auto [a, b] : {std::pair{pair.a.get(), pair.b.get()}, std::pair{virtualA.get(), virtualB.get()},
                        std::pair{pair.a.get(), virtualB.get()}}) {
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(a, t), referenceCount(pair.a.get(), t));
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(a, b, t), difference);
      EXPECT_EQ(BinarySegmentations::getExclusiveSegmentationVoxelCount(a, b, t), exclusive);
      EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(a, b, t), shared);
      EXPECT_EQ(BinarySegmentations::getTotalSegmentationVoxelCount(a, b, t), total);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Connected groups.

TEST(BinarySegmentationsTest, GetGroupLeavesValuesUnchanged) {
  auto d = makeDataset(at(5, 4, 3, 2, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  std::mt19937 rng(7);
  for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    d->setElement<int>(it, int(rng() % 3));
  const std::vector<double> before = allValues(d.get());
  const auto group = BinarySegmentations::getGroup(d.get(), 1.0, 1000, at(2, 2, 1, 1));
  EXPECT_EQ(allValues(d.get()), before) << "every mark is undone";
  EXPECT_FALSE(group.empty());
}

TEST(BinarySegmentationsTest, GetGroupFindsTheConnectedRegionInDiscoveryOrder) {
  auto d = makeDataset(at(4, 3, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  // 1 1 0 1
  // 0 1 0 1
  // 2 1 1 1
  const int values[3][4] = {{1, 1, 0, 1}, {0, 1, 0, 1}, {2, 1, 1, 1}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) d->setElement<double>(at(x, y), values[y][x]);
  const auto group = BinarySegmentations::getGroup(d.get(), 1.0, 100, at(1, 1));
  const std::vector<DatasetCoordinates> expected = {at(1, 1), at(1, 0), at(1, 2), at(0, 0), at(2, 2),
                                                    at(3, 2), at(3, 1), at(3, 0)};
  EXPECT_EQ(std::vector<DatasetCoordinates>(group.begin(), group.end()), expected)
      << "breadth first, neighbours in the order -x, +x, -y, +y";
}

TEST(BinarySegmentationsTest, GetGroupStopsAfterTheLimitWithUpToSixMore) {
  auto d = makeDataset(at(3, 3, 3, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR);
  d->setAllElementsValue(1.0);
  const auto seven = BinarySegmentations::getGroup(d.get(), 1.0, 1, at(1, 1, 1));
  ASSERT_EQ(seven.size(), 7u) << "the start and its six neighbours are listed before the check";
  const std::vector<DatasetCoordinates> expected = {at(1, 1, 1), at(0, 1, 1), at(2, 1, 1), at(1, 0, 1),
                                                    at(1, 2, 1), at(1, 1, 0), at(1, 1, 2)};
  EXPECT_EQ(std::vector<DatasetCoordinates>(seven.begin(), seven.end()), expected);
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), 1.0, -5, at(1, 1, 1)).size(), 1u) << "a negative limit";
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), 1.0, INT_MAX, at(0, 0, 0)).size(), 27u) << "a huge limit";
  EXPECT_EQ(allValues(d.get()), std::vector<double>(27, 1.0));
}

TEST(BinarySegmentationsTest, GetGroupTakesTheStartUntestedAndOutsideStartsGiveNothing) {
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_DOUBLE);
  d->setElement<double>(at(0), 5.0);
  d->setElement<double>(at(2), 5.0);
  const auto group = BinarySegmentations::getGroup(d.get(), 5.0, 10, at(1));
  EXPECT_EQ(std::vector<DatasetCoordinates>(group.begin(), group.end()), (std::vector<DatasetCoordinates>{at(1), at(0), at(2)}));
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{5, 0, 5}));
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(3)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(INT_MIN, 0, 0)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(d.get(), 5.0, 10, at(0, 0, 0, 1)).empty());
  EXPECT_TRUE(BinarySegmentations::getGroup(nullptr, 5.0, 10, at(0)).empty());
  EXPECT_EQ(BinarySegmentations::getGroup(d.get(), notANumber, 10, at(0)).size(), 1u) << "NaN equals nothing";
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{5, 0, 5}));
}

TEST(BinarySegmentationsTest, GetGroupMarksAreInexactWhereTheTypeCannotHoldValueMinusOne) {
  // bool: the group of 0s is marked with true, and restoring adds 1 again, so it ends as 1.
  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(2), true);
  const auto zeros = BinarySegmentations::getGroup(b.get(), 0.0, 10, at(0));
  EXPECT_EQ(zeros.size(), 2u);
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{1, 1, 1})) << "the documented limitation of value 0 in bool";

  // unsigned char: 0 - 1 wraps to 255 and back, so here the marks happen to work.
  auto u = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  u->setElement<int>(at(2), 4);
  EXPECT_EQ(BinarySegmentations::getGroup(u.get(), 0.0, 10, at(0)).size(), 2u);
  EXPECT_EQ(allValues(u.get()), (std::vector<double>{0, 0, 4}));

  // float cannot mark 1e8 (1e8 - 1 rounds back to 1e8): elements are listed repeatedly, and the
  // search still ends with a bounded list.
  auto f = makeDataset(at(4, 4, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT);
  f->setAllElementsValue(1e8);
  const auto repeated = BinarySegmentations::getGroup(f.get(), 1e8, INT_MAX, at(0, 0));
  EXPECT_GT(repeated.size(), 16u);
  EXPECT_LE(repeated.size(), 16u + 6u);
  EXPECT_EQ(BinarySegmentations::getGroup(f.get(), 1e8, 3, at(0, 0)).size(), 6u)
      << "the start and its 2 neighbours, then 3 from the next entry before the check stops";
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsClearsPairsAndKeepsLines) {
  auto d = makeDataset(at(7, 5, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  // A face-adjacent pair, a 3-voxel line, two voxels touching along an edge, and a 2 (other value).
  for (auto c : {at(0, 0), at(1, 0), at(4, 0), at(5, 0), at(6, 0), at(0, 3), at(1, 4)}) d->setElement<int>(c, 1);
  d->setElement<int>(at(3, 3), 2);
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, 2);
  for (auto c : {at(0, 0), at(1, 0)}) EXPECT_EQ(d->getElement<int>(c), 0) << "pair cleared at " << c;
  for (auto c : {at(4, 0), at(5, 0), at(6, 0)}) EXPECT_EQ(d->getElement<int>(c), 1) << "line kept at " << c;
  for (auto c : {at(0, 3), at(1, 4)}) EXPECT_EQ(d->getElement<int>(c), 0) << "edge-touching voxel cleared at " << c;
  EXPECT_EQ(d->getElement<int>(at(3, 3)), 2) << "other values stay";
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsMatchesComponentSizes) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    const DatasetCoordinates size(int(2 + rng() % 6), int(2 + rng() % 6), int(1 + rng() % 4), int(1 + rng() % 2), 1);
    auto d = makeDataset(size, tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
    for (auto it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
      d->setElement<int>(it, rng() % 3 == 0 ? 1 : 0);
    const int maximal = int(rng() % 5);
    // Reference: flood fill every 6-connected component of 1s per time step.
    std::vector<double> expected = allValues(d.get());
    auto index = [&](int x, int y, int z, int t) { return ((std::size_t(t) * size.z + z) * size.y + y) * size.x + x; };
    std::vector<bool> seen(expected.size(), false);
    for (int t = 0; t < size.t; ++t)
      for (int z = 0; z < size.z; ++z)
        for (int y = 0; y < size.y; ++y)
          for (int x = 0; x < size.x; ++x) {
            if (expected[index(x, y, z, t)] != 1.0 || seen[index(x, y, z, t)]) continue;
            std::vector<DatasetCoordinates> component = {at(x, y, z, t)};
            seen[index(x, y, z, t)] = true;
            for (std::size_t i = 0; i < component.size(); ++i)
              for (int axis = 0; axis < 3; ++axis)
                for (int step : {-1, 1}) {
                  DatasetCoordinates n = component[i];
                  n[axis] += step;
                  if (!d->areCoordinatesInside(n) || seen[index(n.x, n.y, n.z, t)] ||
                      expected[index(n.x, n.y, n.z, t)] != 1.0)
                    continue;
                  seen[index(n.x, n.y, n.z, t)] = true;
                  component.push_back(n);
                }
            if (int(component.size()) <= maximal)
              for (auto c : component) expected[index(c.x, c.y, c.z, t)] = 0.0;
          }
    BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, maximal);
    EXPECT_EQ(allValues(d.get()), expected) << "maximal group size " << maximal;
  }
}

TEST(BinarySegmentationsTest, RemoveSmallVoxelGroupsIgnoresBoolAndBadArguments) {
  auto b = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL);
  b->setElement<bool>(at(1), true);
  BinarySegmentations::removeSmallVoxelGroups(b.get(), 1.0, 5);
  EXPECT_EQ(allValues(b.get()), (std::vector<double>{0, 1, 0})) << "no numerical element type: nothing happens";
  auto d = makeDataset(at(3, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  d->setElement<int>(at(1), 1);
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, -1);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 0})) << "no group is at most -1 large";
  BinarySegmentations::removeSmallVoxelGroups(d.get(), notANumber, 5);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 1, 0}));
  BinarySegmentations::removeSmallVoxelGroups(d.get(), 1.0, INT_MAX);
  EXPECT_EQ(allValues(d.get()), (std::vector<double>{0, 0, 0})) << "every group is small";
  BinarySegmentations::removeSmallVoxelGroups(nullptr, 1.0, 5);
  Dataset empty(true);
  BinarySegmentations::removeSmallVoxelGroups(&empty, 1.0, 5);
}

// ---------------------------------------------------------------------------------------------
// Convex hull span pass.

namespace {

std::set<std::tuple<int, int, int, int>> writtenVoxels(const AccessCountingDataset& d) {
  std::set<std::tuple<int, int, int, int>> result;
  for (const auto& c : d.writes) result.insert({c.x, c.y, c.z, c.t});
  return result;
}

}  // namespace

TEST(BinarySegmentationsTest, ConvexHullSpansOfATetrahedronAreWrittenFalse) {
  auto owner = makeDataset(at(6, 6, 6, 2, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (auto c : {at(0, 0, 0, 1), at(4, 0, 0, 1), at(0, 4, 0, 1), at(0, 0, 4, 1)}) d.setElement<int>(c, 7);
  const std::vector<double> before = allValues(&d);
  d.setCachedMinimumAndMaximumValue(0, 7);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int z = 0; z <= 4; ++z)
    for (int y = 0; y <= 4; ++y)
      for (int x = 0; x <= 4; ++x)
        if (x + y + z <= 4 && !(x + y + z == 4 && (x == 4 || y == 4 || z == 4)) && !(x + y + z == 0))
          expected.insert({x, y, z, 1});
  EXPECT_EQ(writtenVoxels(d), expected) << "every background voxel inside the hull of time step 1, nothing else";
  EXPECT_EQ(allValues(&d), before) << "values stay as they were";
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "the writes clear the minimum/maximum cache";
}

TEST(BinarySegmentationsTest, ConvexHullOfAFullBoxWritesNothing) {
  auto owner = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (int z = 1; z < 4; ++z)
    for (int y = 1; y < 3; ++y)
      for (int x = 0; x < 4; ++x) d.setElement<double>(at(x, y, z), x == 2 ? notANumber : 1.0);
  d.setCachedMinimumAndMaximumValue(0, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty()) << "a convex object has no background inside its hull";
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
}

TEST(BinarySegmentationsTest, ConvexHullOfDegenerateSets) {
  auto owner = makeDataset(at(5, 5, 6, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  // A single voxel: nothing to write.
  d.setElement<int>(at(2, 2, 2), 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty());
  // Two voxels of one column: the segment between them.
  d.setElement<int>(at(2, 2, 5), 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_EQ(writtenVoxels(d), (std::set<std::tuple<int, int, int, int>>{{2, 2, 3, 0}, {2, 2, 4, 0}}));
  // A horizontal square frame: the plane z = 1 inside it.
  d.setAllElementsValue(0.0);
  for (int i = 0; i <= 3; ++i)
    for (auto c : {at(i, 0, 1), at(i, 3, 1), at(0, i, 1), at(3, i, 1)}) d.setElement<int>(c, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_EQ(writtenVoxels(d), (std::set<std::tuple<int, int, int, int>>{{1, 1, 1, 0}, {2, 1, 1, 0}, {1, 2, 1, 0}, {2, 2, 1, 0}}));
  // A vertical triangle in the plane y = 2: its columns lie in the hull's plane.
  d.setAllElementsValue(0.0);
  for (auto c : {at(0, 2, 0), at(4, 2, 0), at(0, 2, 4)}) d.setElement<int>(c, 1);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int x = 0; x <= 4; ++x)
    for (int z = 0; z + x <= 4; ++z)
      if (!((x == 0 && z == 0) || (x == 4 && z == 0) || (x == 0 && z == 4))) expected.insert({x, 2, z, 0});
  EXPECT_EQ(writtenVoxels(d), expected);
  // Nothing at all.
  d.setAllElementsValue(0.0);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  EXPECT_TRUE(d.writes.empty());
}

TEST(BinarySegmentationsTest, ConvexHullSpansInTwoDimensions) {
  auto owner = makeDataset(at(8, 8, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  for (auto c : {at(0, 0), at(6, 0), at(0, 6), at(1, 1)}) d.setElement<bool>(c, true);
  d.writes.clear();
  BinarySegmentations::fillConvexHull(&d);
  std::set<std::tuple<int, int, int, int>> expected;
  for (int y = 0; y <= 6; ++y)
    for (int x = 0; x + y <= 6; ++x)
      if (!((x == 0 && y == 0) || (x == 6 && y == 0) || (x == 0 && y == 6) || (x == 1 && y == 1)))
        expected.insert({x, y, 0, 0});
  EXPECT_EQ(writtenVoxels(d), expected);
  // A 1D dataset is 2D as well: the hull is the segment between the two object voxels, and
  // every column between them has the one-voxel span y = 0.
  auto line = makeDataset(at(6, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding(), false);
  auto& l = static_cast<AccessCountingDataset&>(*line);
  l.setElement<bool>(at(1), true);
  l.setElement<bool>(at(4), true);
  l.writes.clear();
  BinarySegmentations::fillConvexHull(&l);
  EXPECT_EQ(writtenVoxels(l), (std::set<std::tuple<int, int, int, int>>{{2, 0, 0, 0}, {3, 0, 0, 0}}));
  EXPECT_EQ(allValues(&l), (std::vector<double>{0, 1, 0, 0, 1, 0}));
}

TEST(BinarySegmentationsTest, ConvexHullLeavesRandomDatasetsUnchanged) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    const std::vector<double> before = allValues(pair.a.get());
    BinarySegmentations::fillConvexHull(pair.a.get());
    const std::vector<double> after = allValues(pair.a.get());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_TRUE(sameDouble(before[i], after[i])) << "element " << i;
  }
  BinarySegmentations::fillConvexHull(nullptr);
  Dataset empty(true);
  BinarySegmentations::fillConvexHull(&empty);
}

// ---------------------------------------------------------------------------------------------
// Distances: the described cases.

TEST(BinarySegmentationsTest, PointOnAnObjectVoxelHasDistanceZero) {
  auto d = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, embeddingWithSpacing(3, 2, 1));
  d->setElement<int>(at(2, 3, 1), 1);
  d->setElement<int>(at(0, 0, 0), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(2, 3, 1)), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(d.get(), at(2, 3, 1)), 0.0);
}

TEST(BinarySegmentationsTest, DistanceIsScaledBySpacing) {
  auto d = makeDataset(at(5, 5, 5, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(2, 1, 1));
  d->setElement<int>(at(3, 2, 2), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(2, 2, 2)), 4.0);
  EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(d.get(), at(2, 2, 2)), 4.0);
}

TEST(BinarySegmentationsTest, StoppingRuleCanOvershootTheNearestDistance) {
  // Spacing (3, 1, 1), so the squared length of an offset is 9 dx^2 + dy^2 + dz^2 and the
  // largest of shell r is 9 r^2.
  auto d = makeDataset(at(9, 9, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(3, 1, 1));
  // A target at (1, 1), squared 10, in shell 2; one at (0, 3), squared 9, in shell 3. Shell 2's
  // largest length, 36, exceeds 10, so the search ends before it sees the nearer target.
  d->setElement<int>(at(5, 5), 1);
  d->setElement<int>(at(4, 7), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(4, 4)), 10.0)
      << "the nearer target lies in a shell after the stop";
  d->setAllElementsValue(0.0);
  // A target at (1, 0), squared 9, in shell 1 whose largest length is 9 as well: not above it,
  // so shell 2 is searched and its target at (0, 2), squared 4, wins.
  d->setElement<int>(at(5, 4), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(4, 4)), 9.0);
  d->setElement<int>(at(4, 6), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(4, 4)), 4.0);
}

TEST(BinarySegmentationsTest, IdenticalSegmentationsHaveDistanceZero) {
  auto a = makeDataset(at(6, 5, 4, 1, 1), tarv::TARV_ELEMENT_TYPE_FLOAT, embeddingWithSpacing(0.5, 2, 3));
  for (auto c : {at(1, 1, 1), at(2, 1, 1), at(2, 2, 1), at(4, 3, 3)}) a->setElement<double>(c, 1.0);
  auto b = copyOf(a.get(), true);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), b.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), b.get(), 0), 0.0);
}

TEST(BinarySegmentationsTest, TwoSlicesThreeApart) {
  auto a = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  auto b = makeDataset(at(4, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  a->setElement<int>(at(0), 1);
  b->setElement<int>(at(3), 1);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), b.get(), 0), 3.0);
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), b.get(), 0), 3.0);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), b.get(), 0), 9.0);
}

TEST(BinarySegmentationsTest, EmptySecondSegmentationGivesZero) {
  auto a = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto b = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  a->setElement<int>(at(1, 1, 1), 1);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), b.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), b.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(b.get(), a.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(b.get(), a.get(), 0), 0.0);
  // The directed distance searches an empty target: every point gives 0.
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), b.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(b.get(), at(0, 0, 0)), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(b.get(), at(0, 0, 0)), 0.0);
}

TEST(BinarySegmentationsTest, IncompatibleOrMissingInputsGiveZero) {
  auto a = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto wider = makeDataset(at(5, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT);
  auto moved = makeDataset(at(4, 3, 2, 1, 1), tarv::TARV_ELEMENT_TYPE_SIGNED_INT,
                           DatasetWorldEmbedding(WorldCoordinates(1, 0, 0, 0), WorldCoordinates(1, 1, 1, 1)));
  a->setElement<int>(at(0, 0, 0), 1);
  wider->setElement<int>(at(4, 2, 1), 1);
  moved->setElement<int>(at(3, 2, 1), 1);
  for (Dataset* other : {wider.get(), moved.get(), static_cast<Dataset*>(nullptr)}) {
    EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), other, 0), 0.0);
    EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), other, 0), 0.0);
    EXPECT_EQ(BinarySegmentations::getHausdorffDistance(other, a.get(), 0), 0.0);
    EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(other, a.get(), 0), 0.0);
  }
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), a.get(), 1), 0.0) << "t outside";
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), a.get(), -1), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), nullptr, 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(nullptr, a.get(), 0), 0.0);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(nullptr, at(0)), 0.0);
  Dataset empty(true);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(&empty, at(0)), 0.0);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(&empty, &empty, 0), 0.0);
}

TEST(BinarySegmentationsTest, DirectedDistanceNeedsNoCompatibility) {
  // a is wider than b and has another spacing; b's spacing scales the search, and a point of a
  // outside b still finds b's voxels.
  auto a = makeDataset(at(8, 2, 1, 2, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(7, 7, 7));
  auto b = makeDataset(at(3, 2, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(2, 1, 1));
  a->setElement<int>(at(7, 1), 1);
  a->setElement<int>(at(1, 0), 1);
  b->setElement<int>(at(0, 0), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), b.get(), 0),
            referenceDirected(a.get(), b.get(), 0));
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), b.get(), 0), 7.0 * 7 * 4 + 1);
  a->setElement<int>(at(7, 1, 0, 1), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a.get(), b.get(), 1), 0.0)
      << "b has no time step 1, so every search finds nothing";
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(b.get(), a.get(), 0),
            referenceDirected(b.get(), a.get(), 0));
}

TEST(BinarySegmentationsTest, PointsFarOutsideOrInOtherTimeStepsTerminate) {
  auto d = makeDataset(at(4, 4, 4, 2, 2), tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR);
  d->setElement<int>(at(0, 0, 0), 1);
  const double far = double(INT_MAX);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(INT_MAX, 0, 0)), far * far);
  EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(d.get(), at(INT_MAX, 0, 0)), far * far);
  const double low = double(INT_MIN);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(INT_MIN, INT_MIN, INT_MIN)),
            low * low + low * low + low * low);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(1, 1, 1, 1)), 0.0) << "t 1 is empty";
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(1, 1, 1, 2)), 0.0) << "t outside";
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(1, 1, 1, 0, 2)), 0.0) << "c outside";
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(1, 1, 1, INT_MIN, INT_MIN)), 0.0);
  d->setElement<int>(at(3, 3, 3, 0, 1), 1);
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(3, 3, 2, 0, 1)), 1.0)
      << "the point's component is searched";
}

TEST(BinarySegmentationsTest, SearchNextToItsTargetReadsFewElements) {
  auto owner = makeDataset(at(64, 64, 64, 1, 1), tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding(), false);
  auto& d = static_cast<AccessCountingDataset&>(*owner);
  d.setElement<int>(at(30, 31, 30), 1);
  d.reads = 0;
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(&d, at(30, 30, 30)), 1.0);
  EXPECT_LE(d.reads, 7) << "at most the point and its first shell";
  d.reads = 0;
  EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(&d, at(30, 30, 30)), 1.0);
  EXPECT_LE(d.reads, 6 + 6) << "the point and its first shell, and the target's six neighbours";
}

TEST(BinarySegmentationsTest, NaNAndTinyLongDoubleValues) {
  // NaN is an object for every test; a long double too small for a double reads as true but is
  // zero as a double, so it counts as object voxel of the scans and is not a target.
  auto d = makeDataset(at(5, 1, 1, 1, 1), tarv::TARV_ELEMENT_TYPE_LONG_DOUBLE);
  d->setElement<long double>(at(0), 1e-4000L);
  d->setElement<long double>(at(4), std::numeric_limits<long double>::quiet_NaN());
  EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(d.get(), 0), 2u);
  EXPECT_FALSE(BinarySegmentations::isObjectElement(d.get(), at(0)));
  EXPECT_TRUE(BinarySegmentations::isObjectElement(d.get(), at(4)));
  EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(d.get(), at(0)), 16.0);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(d.get(), d.get(), 0), 16.0);
  auto virtualD = copyOf(d.get(), false);
  EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(virtualD.get(), virtualD.get(), 0), 16.0);
  EXPECT_EQ(BinarySegmentations::getHausdorffDistance(d.get(), virtualD.get(), 0), 4.0);
  // Only voxel 4 is a border voxel; the average is over it twice.
  EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(d.get(), virtualD.get(), 0), 0.0);
  // A segmentation whose only voxel reads true but is not an object has no border voxels.
  d->setElement<long double>(at(4), 0.0L);
  EXPECT_TRUE(std::isnan(BinarySegmentations::getAverageBorderDistance(d.get(), d.get(), 0)))
      << "the mean over no border voxels";
}

// ---------------------------------------------------------------------------------------------
// Distances against the reference enumeration, bit for bit.

TEST(BinarySegmentationsTest, PointDistancesMatchTheReference) {
  for (unsigned seed = 1; seed <= 80; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    auto virtualA = copyOf(pair.a.get(), false);
    const DatasetCoordinates size = pair.a->getSize();
    std::mt19937 rng(seed * 7919u);
    for (int i = 0; i < 12; ++i) {
      // Points inside and around the dataset.
      const DatasetCoordinates p(int(rng() % unsigned(size.x + 4)) - 2, int(rng() % unsigned(size.y + 4)) - 2,
                                 int(rng() % unsigned(size.z + 4)) - 2, pair.t, 0);
      SCOPED_TRACE(::testing::Message() << "point " << p);
      const double object = referenceShellSearch(pair.a.get(), p, false);
      const double border = referenceShellSearch(pair.a.get(), p, true);
      EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(pair.a.get(), p), object);
      EXPECT_EQ(BinarySegmentations::getSquaredPointSegmentationDistance(virtualA.get(), p), object);
      EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(pair.a.get(), p), border);
      EXPECT_EQ(BinarySegmentations::getSquaredBorderPointSegmentationDistance(virtualA.get(), p), border);
    }
  }
}

TEST(BinarySegmentationsTest, SegmentationDistancesMatchTheReference) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    Dataset* a = pair.a.get();
    Dataset* b = pair.b.get();
    const int t = pair.t;
    const double directed = referenceDirected(a, b, t);
    const double hausdorff = referenceHausdorff(a, b, t);
    const double average = referenceAverageBorder(a, b, t);
    EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(a, b, t), directed);
    EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a, b, t), hausdorff);
    EXPECT_TRUE(sameDouble(BinarySegmentations::getAverageBorderDistance(a, b, t), average))
        << "expected " << average << ", got " << BinarySegmentations::getAverageBorderDistance(a, b, t);
    // The same through element access (the general reading path).
    auto virtualA = copyOf(a, false);
    auto virtualB = copyOf(b, false);
    EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(virtualA.get(), virtualB.get(), t), directed);
    EXPECT_EQ(BinarySegmentations::getHausdorffDistance(virtualA.get(), b, t), hausdorff);
    EXPECT_TRUE(sameDouble(BinarySegmentations::getAverageBorderDistance(a, virtualB.get(), t), average));
  }
}

TEST(BinarySegmentationsTest, DirectedDistanceIsTheLargestPointDistance) {
  // The whole-segmentation search reads each slice once into memory; the point search reads the
  // dataset for every query. Both must agree exactly.
  for (unsigned seed = 200; seed < 260; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    SCOPED_TRACE(describe(seed, pair.a.get()));
    double largest = 0.0;
    const DatasetCoordinates size = pair.a->getSize();
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x)
          if (pair.a->getElement<bool>(at(x, y, z, pair.t)))
            largest = std::max(largest, BinarySegmentations::getSquaredPointSegmentationDistance(pair.b.get(), at(x, y, z, pair.t)));
    EXPECT_EQ(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(pair.a.get(), pair.b.get(), pair.t), largest);
  }
}

TEST(BinarySegmentationsTest, LargerSegmentationsMatchTheReference) {
  // Balls a few voxels apart in a bigger volume, with shells beyond the enumerated small ones.
  for (unsigned seed = 1; seed <= 4; ++seed) {
    std::mt19937 rng(seed);
    const WorldCoordinates s = spacings[seed % std::size(spacings)];
    const DatasetCoordinates size(40, 36, 30, 1, 1);
    auto a = makeDataset(size, tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(s.x, s.y, s.z));
    auto b = makeDataset(size, tarv::TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embeddingWithSpacing(s.x, s.y, s.z));
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double ca[3] = {8 + unit(rng) * 10, 8 + unit(rng) * 10, 8 + unit(rng) * 10};
    const double cb[3] = {ca[0] + 3 + unit(rng) * 15, ca[1] + unit(rng) * 6, ca[2] + unit(rng) * 6};
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          auto inside = [&](const double* c, double r) {
            return (x - c[0]) * (x - c[0]) + (y - c[1]) * (y - c[1]) + (z - c[2]) * (z - c[2]) <= r * r;
          };
          if (inside(ca, 7)) a->setElement<int>(at(x, y, z), 1);
          if (inside(cb, 5)) b->setElement<int>(at(x, y, z), 1);
          if (x == 39 && y < 3 && z < 2) b->setElement<int>(at(x, y, z), 1);  // far away, on a face
        }
    SCOPED_TRACE(describe(seed, a.get()));
    EXPECT_EQ(BinarySegmentations::getHausdorffDistance(a.get(), b.get(), 0), referenceHausdorff(a.get(), b.get(), 0));
    EXPECT_EQ(BinarySegmentations::getAverageBorderDistance(a.get(), b.get(), 0),
              referenceAverageBorder(a.get(), b.get(), 0));
  }
}

TEST(BinarySegmentationsTest, UnusualSpacingsMatchTheReference) {
  // Zero, tiny (squares below the normal range), huge (squares overflow), infinite and NaN
  // spacings, with negative ones among them.
  const WorldCoordinates unusual[] = {{0, 0, 0, 1},         {0, 1, 1, 1},       {1e-155, 3e-160, 2e-158, 1},
                                      {1e-158, 1, 1, 1},     {1e160, 1, 1, 1},   {1e153, 1e152, 1, 1},
                                      {infinity, 1, 1, 1},        {infinity, infinity, 1, 1},   {notANumber, 1, 1, 1},
                                      {-2, 1, -0.5, 1},      {1e-300, 0, 0, 1},  {5e-324, 5e-324, 1e-323, 1}};
  for (unsigned seed = 1; seed <= 48; ++seed) {
    RandomPair pair = makeRandomPair(seed);
    const WorldCoordinates s = unusual[seed % std::size(unusual)];
    for (Dataset* d : {pair.a.get(), pair.b.get()}) d->setWorldEmbedding(embeddingWithSpacing(s.x, s.y, s.z));
    SCOPED_TRACE(describe(seed, pair.a.get()));
    const DatasetCoordinates size = pair.a->getSize();
    std::mt19937 rng(seed);
    for (int i = 0; i < 16; ++i) {
      const DatasetCoordinates p(int(rng() % unsigned(size.x + 2)) - 1, int(rng() % unsigned(size.y + 2)) - 1,
                                 int(rng() % unsigned(size.z + 2)) - 1, pair.t, 0);
      EXPECT_TRUE(sameDouble(BinarySegmentations::getSquaredPointSegmentationDistance(pair.a.get(), p),
                             referenceShellSearch(pair.a.get(), p, false)))
          << "point " << p;
      EXPECT_TRUE(sameDouble(BinarySegmentations::getSquaredBorderPointSegmentationDistance(pair.a.get(), p),
                             referenceShellSearch(pair.a.get(), p, true)))
          << "point " << p;
    }
    EXPECT_TRUE(sameDouble(BinarySegmentations::getHausdorffDistance(pair.a.get(), pair.b.get(), pair.t),
                           referenceHausdorff(pair.a.get(), pair.b.get(), pair.t)));
    EXPECT_TRUE(sameDouble(BinarySegmentations::getAverageBorderDistance(pair.a.get(), pair.b.get(), pair.t),
                           referenceAverageBorder(pair.a.get(), pair.b.get(), pair.t)));
  }
}

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
#include "BinarySegmentationsTestSupport.h"

using namespace tarv;
using namespace tarv::segmentationtests;

namespace {

const double infinity = std::numeric_limits<double>::infinity();

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

}  // namespace

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

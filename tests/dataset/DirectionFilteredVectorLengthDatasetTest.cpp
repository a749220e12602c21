#include "dataset/DirectionFilteredVectorLengthDataset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "FilterTestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

Vector vectorOf(std::initializer_list<double> values) {
  Vector v(static_cast<unsigned>(values.size()));
  unsigned i = 0;
  for (double value : values) v[i++] = value;
  return v;
}

struct Parameters {
  bool oriented = false;
  Vector direction;
  bool positive = false;
};

Parameters parametersOf(const DirectionFilteredVectorLengthDataset& d) {
  Parameters p;
  d.getParameters(p.oriented, p.direction, p.positive);
  return p;
}

// Sources of one element each, holding the components of a vector.
class VectorSources {
public:
  explicit VectorSources(std::initializer_list<double> components) {
    for (double c : components) {
      sources.push_back(std::make_unique<Dataset>(true));
      sources.back()->newDataset<double>(C(1, 1, 1, 1, 1), DatasetWorldEmbedding());
      sources.back()->setElement<double>(C(0, 0, 0), c);
    }
  }
  std::vector<Dataset*> pointers() const {
    std::vector<Dataset*> result;
    for (const auto& s : sources) result.push_back(s.get());
    return result;
  }
  std::vector<std::unique_ptr<Dataset>> sources;
};

double filtered(std::initializer_list<double> vector, std::initializer_list<double> direction, bool oriented,
                bool positive) {
  VectorSources sources(vector);
  DirectionFilteredVectorLengthDataset d;
  d.setSourceDatasets(sources.pointers());
  d.setParameters(oriented, vectorOf(direction), positive);
  const double v = d.getElement<double>(C(0, 0, 0));
  d.removeSourceDatasets();
  return v;
}

}  // namespace

namespace tarv {
void PrintTo(const Vector& v, std::ostream* os) {
  *os << "(";
  for (unsigned i = 0; i < v.size(); ++i) *os << (i ? ", " : "") << v[i];
  *os << ")";
}
}  // namespace tarv

TEST(DirectionFilteredVectorLengthDatasetTest, FreshDatasetHasDefaults) {
  DirectionFilteredVectorLengthDataset d;
  const Parameters p = parametersOf(d);
  EXPECT_EQ(d.getTypeName(), "DirectionFilteredVectorLengthDataset");
  EXPECT_TRUE(p.oriented);
  EXPECT_FALSE(p.positive);
  EXPECT_EQ(p.direction, vectorOf({1.0}));
  bool oriented = false;
  Vector direction;
  d.getParameters(oriented, direction);
  EXPECT_TRUE(oriented);
  EXPECT_EQ(direction, vectorOf({1.0}));
}

TEST(DirectionFilteredVectorLengthDatasetTest, AntiparallelVector) {
  EXPECT_EQ(filtered({-3.0, 0.0}, {1.0, 0.0}, false, false), 3.0) << "not oriented";
  EXPECT_EQ(filtered({-3.0, 0.0}, {1.0, 0.0}, true, false), 0.0) << "oriented";
  EXPECT_EQ(filtered({-3.0, 0.0}, {1.0, 0.0}, true, true), 0.0) << "oriented positive";
}

TEST(DirectionFilteredVectorLengthDatasetTest, PerpendicularVector) {
  EXPECT_EQ(filtered({0.0, 2.0}, {1.0, 0.0}, false, false), 0.0) << "not oriented";
  EXPECT_EQ(filtered({0.0, 2.0}, {1.0, 0.0}, true, false), 1.0) << "oriented";
  EXPECT_EQ(filtered({0.0, 2.0}, {1.0, 0.0}, true, true), 0.0) << "oriented positive";
}

TEST(DirectionFilteredVectorLengthDatasetTest, ParallelVectorAndZeroVector) {
  EXPECT_EQ(filtered({0.0, 0.0, 4.0}, {0.0, 0.0, 1.0}, false, false), 4.0);
  EXPECT_EQ(filtered({0.0, 0.0, 4.0}, {0.0, 0.0, 1.0}, true, false), 4.0);
  EXPECT_EQ(filtered({0.0, 0.0, 4.0}, {0.0, 0.0, 1.0}, true, true), 4.0);
  EXPECT_EQ(filtered({0.0, 5e-8}, {0.0, 1.0}, false, false), 0.0) << "shorter than 1e-7 counts as zero";
  EXPECT_EQ(filtered({0.0, 0.0}, {0.0, 1.0}, true, false), 0.0);
}

TEST(DirectionFilteredVectorLengthDatasetTest, WeightsOfRandomVectors) {
  const unsigned seed = 1234567;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-10.0, 10.0);
  const int n = 3;
  std::vector<std::unique_ptr<Dataset>> sources;
  for (int i = 0; i < n; ++i) {
    sources.push_back(std::make_unique<Dataset>(true));
    sources.back()->newDataset<double>(C(6, 5, 4, 1, 1), DatasetWorldEmbedding());
    tarv::testing::fill(*sources.back(), [&](const DatasetCoordinates&) { return value(random); });
  }
  std::vector<Dataset*> pointers;
  for (const auto& s : sources) pointers.push_back(s.get());
  Vector direction = vectorOf({value(random), value(random), value(random)});
  for (int mode = 0; mode < 3; ++mode) {
    const bool oriented = mode > 0, positive = mode > 1;
    DirectionFilteredVectorLengthDataset d;
    d.setSourceDatasets(pointers);
    d.setParameters(oriented, direction, positive);
    Vector unit = direction;
    unit.normalize();
    EXPECT_EQ(parametersOf(d).direction, unit) << "the direction is normalised by the parameter check";
    tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
      Vector v(n);
      for (int i = 0; i < n; ++i) v[i] = sources[i]->getElement<double>(p);
      const double length = v.getLength();
      v.normalize();
      const double t = std::acos(std::clamp(v.dot(unit), -1.0, 1.0)) / std::numbers::pi;
      double weight = 0.0;
      if (!oriented)
        weight = std::fabs(2.0 * t - 1.0);
      else if (!positive)
        weight = 1.0 - t;
      else
        weight = t <= 0.5 ? 1.0 - 2.0 * t : 0.0;
      EXPECT_EQ(d.getElement<double>(p), tarv::testing::asStoredFloat(weight * length))
          << "mode " << mode << " at " << p;
    });
    EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  }
}

TEST(DirectionFilteredVectorLengthDatasetTest, WrongComponentCountIsReset) {
  VectorSources sources({1.0, 2.0, 3.0});
  DirectionFilteredVectorLengthDataset d;
  d.setSourceDatasets(sources.pointers());
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0, 0.0})) << "after the sources are set";
  d.setParameters(true, vectorOf({0.0, 1.0}), false);
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0, 0.0})) << "after setParameters";
  d.setParameters(true, vectorOf({0.0, 3.0, 4.0}), false);
  EXPECT_EQ(parametersOf(d).direction, vectorOf({0.0, 0.6, 0.8})) << "the right count is normalised";
  d.setSourceDatasets({sources.sources[0].get(), sources.sources[1].get()});
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0})) << "after a change of the sources";
  d.removeSourceDatasets();
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0})) << "losing the input runs no check";
  d.setParameters(true, vectorOf({0.0, 1.0}), false);
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0})) << "a check without input";
}

TEST(DirectionFilteredVectorLengthDatasetTest, AcceptsOneToFourSources) {
  VectorSources sources({1.0, 2.0, 3.0, 4.0, 5.0});
  DirectionFilteredVectorLengthDataset d;
  std::vector<Dataset*> all = sources.pointers();
  d.setSourceDatasets(all);
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0}));
  all.resize(4);
  d.setSourceDatasets(all);
  EXPECT_TRUE(d.isInputOk());
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0, 0.0, 0.0}));
  const double length = std::sqrt(30.0);
  const double expected = (1.0 - std::acos(1.0 / length) / std::numbers::pi) * length;
  EXPECT_NEAR(d.getElement<double>(C(0, 0, 0)), expected, 1e-5);
  d.removeSourceDatasets();
}

TEST(DirectionFilteredVectorLengthDatasetTest, SetFilterNormalizedDirectionStoresAsGiven) {
  VectorSources sources({3.0, 4.0});
  Counted<DirectionFilteredVectorLengthDataset> d;
  d.setSourceDatasets(sources.pointers());
  d.setParameters(false, vectorOf({1.0, 0.0}), false);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)),
            tarv::testing::asStoredFloat(std::fabs(2.0 * std::acos(0.6) / std::numbers::pi - 1.0) * 5.0));
  EXPECT_EQ(d.calculations, 1);
  d.setFilterNormalizedDirection(vectorOf({1.0, 0.0}));
  d.getElement<double>(C(0, 0, 0));
  EXPECT_EQ(d.calculations, 1) << "an equal direction keeps the computed elements";
  d.setFilterNormalizedDirection(vectorOf({0.0, 2.0}));
  EXPECT_EQ(parametersOf(d).direction, vectorOf({0.0, 2.0})) << "neither normalised nor checked";
  d.getElement<double>(C(0, 0, 0));
  EXPECT_EQ(d.calculations, 2);
  d.setFilterNormalizedDirection(vectorOf({0.0, 2.0, 9.0}));
  EXPECT_EQ(parametersOf(d).direction.size(), 3u);
  d.getElement<double>(C(0, 0, 0));
  EXPECT_EQ(d.calculations, 3) << "a mismatched direction is still computed with, safely";
  d.setSourceDatasets(sources.pointers());
  EXPECT_EQ(parametersOf(d).direction, vectorOf({1.0, 0.0})) << "the next check repairs it";
  d.removeSourceDatasets();
}

TEST(DirectionFilteredVectorLengthDatasetTest, NaNComponentsNeverCrash) {
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  VectorSources sources({notANumber, 1.0});
  DirectionFilteredVectorLengthDataset d;
  d.setSourceDatasets(sources.pointers());
  EXPECT_TRUE(std::isnan(d.getElement<double>(C(0, 0, 0))));
  VectorSources plain({1.0, 1.0});
  d.setSourceDatasets(plain.pointers());
  d.setParameters(false, vectorOf({notANumber, 0.0}), false);
  EXPECT_TRUE(std::isnan(parametersOf(d).direction[0]));
  EXPECT_TRUE(std::isnan(d.getElement<double>(C(0, 0, 0))));
  d.setParameters(true, vectorOf({notANumber, 0.0}), true);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 0.0) << "an undefined angle is not within 90 degrees";
  d.removeSourceDatasets();
}

TEST(DirectionFilteredVectorLengthDatasetTest, DescriptionEntriesRoundTrip) {
  VectorSources sources({1.0, 2.0});
  DirectionFilteredVectorLengthDataset d;
  d.setSourceDatasets(sources.pointers());
  d.setParameters(false, vectorOf({0.6, -0.8}), true);
  const std::string text = tarv::testing::describe(d);
  const char* entries[] = {"OrientedFiltering = false\n", "PositiveOrientedFiltering = true\n",
                           "FilterNormalizedDirection = 0.6 -0.8\n"};
  std::size_t last = 0;
  for (const char* entry : entries) {
    const std::size_t at = text.find(entry);
    ASSERT_NE(at, std::string::npos) << entry << " in\n" << text;
    EXPECT_GT(at, last) << entry << " out of order";
    last = at;
  }
  DirectionFilteredVectorLengthDataset e;
  tarv::testing::readDescription(e, text);
  Parameters p = parametersOf(e);
  EXPECT_FALSE(p.oriented);
  EXPECT_TRUE(p.positive);
  EXPECT_EQ(p.direction, vectorOf({1.0})) << "without sources the parameter check resets the direction";
  // Connected to its sources, the parameters as read apply again.
  e.setSourceDatasets(sources.pointers());
  e.setParametersFromTempFields();
  p = parametersOf(e);
  EXPECT_EQ(p.direction, vectorOf({0.6, -0.8}));
  EXPECT_TRUE(e.isDatasetEquivalent(&d));
  e.removeSourceDatasets();
  d.removeSourceDatasets();
}

TEST(DirectionFilteredVectorLengthDatasetTest, UntrustedDescriptions) {
  VectorSources sources({1.0, 2.0});
  DirectionFilteredVectorLengthDataset e;
  tarv::testing::readDescription(e, "FilterNormalizedDirection = 1 x 3\nOrientedFiltering = no\nColour = red\n");
  e.setSourceDatasets(sources.pointers());
  e.setParametersFromTempFields();
  Parameters p = parametersOf(e);
  EXPECT_FALSE(p.oriented);
  EXPECT_FALSE(p.positive);
  EXPECT_EQ(p.direction, vectorOf({1.0, 0.0})) << "a garbage direction is empty, then repaired";
  tarv::testing::readDescription(e, "FilterNormalizedDirection = 0 0\nPositiveOriented");
  e.setParametersFromTempFields();
  p = parametersOf(e);
  EXPECT_TRUE(p.oriented) << "missing entry: default";
  EXPECT_EQ(p.direction, vectorOf({0.0, 0.0})) << "a zero direction cannot be normalised";
  EXPECT_EQ(e.getElement<double>(C(0, 0, 0)), tarv::testing::asStoredFloat(0.5 * std::sqrt(5.0)))
      << "every vector is then perpendicular to it";
  std::string many = "FilterNormalizedDirection =";
  for (int i = 0; i < 10000; ++i) many += " 1";
  tarv::testing::readDescription(e, many + "\n");
  e.setParametersFromTempFields();
  EXPECT_EQ(parametersOf(e).direction, vectorOf({1.0, 0.0}));
  e.removeSourceDatasets();
}

TEST(DirectionFilteredVectorLengthDatasetTest, EquivalenceComparesFlagsAndDirection) {
  VectorSources sources({1.0, 2.0});
  DirectionFilteredVectorLengthDataset a, b;
  a.setSourceDatasets(sources.pointers());
  b.setSourceDatasets(sources.pointers());
  a.setParameters(true, vectorOf({0.0, 1.0}), false);
  b.setParameters(true, vectorOf({0.0, 1.0}), false);
  EXPECT_TRUE(a.isDatasetEquivalent(&b));
  b.setParameters(false, vectorOf({0.0, 1.0}), false);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "oriented flag";
  b.setParameters(true, vectorOf({0.0, 1.0}), true);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "positive flag";
  b.setParameters(true, vectorOf({1.0, 0.0}), false);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "direction";
  VectorLengthDataset plain;
  plain.setSourceDatasets(sources.pointers());
  EXPECT_FALSE(a.isDatasetEquivalent(&plain));
  EXPECT_FALSE(plain.isDatasetEquivalent(&a));
  a.removeSourceDatasets();
  b.removeSourceDatasets();
  plain.removeSourceDatasets();
}

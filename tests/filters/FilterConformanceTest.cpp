// What every filter class must do alike: its description reads back to an equivalent dataset and
// the same text, setParameters repairs out-of-range values, equivalence follows the compared
// parameters, a change of a parameter or a source withdraws computed elements, and the bulk path
// leaves exactly what element-by-element computing leaves.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "FilterTestSupport.h"
#include "RowComparison.h"
#include "TestSupport.h"
#include "core/Vector.h"
#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/DatasetCalculations.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace tarv {
void PrintTo(const Vector& v, std::ostream* os) {
  *os << "(";
  for (unsigned i = 0; i < v.size(); ++i) *os << (i ? ", " : "") << v[i];
  *os << ")";
}
}  // namespace tarv

namespace {

int anyOf(std::mt19937& rng, int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); }
double anyValue(std::mt19937& rng) { return std::uniform_real_distribution<double>(-800.0, 800.0)(rng); }

Vector vectorOf(std::initializer_list<double> values) {
  Vector v(static_cast<unsigned>(values.size()));
  unsigned i = 0;
  for (double value : values) v[i++] = value;
  return v;
}

// Each filter's traits:
//   sourceCount                   sources of the fixed cases
//   randomSourceCount(rng)        sources of the random cases
//   setNonDefault(d)              parameters other than the defaults (after the sources are set)
//   entries()                     the description lines those parameters give, in order
//   parametersOf(d)               getParameters as a tuple
//   setOutOfRange(d), clamped()   parameters that setParameters repairs, and what it stores
//   changes()                     each changes one compared parameter of setNonDefault's
//   ignoredPairs()                two settings that differ only in parameters left out of equivalence
//   setRandom(d, rng)             random parameters
template <class F>
using Setter = std::function<void(F&)>;

// What most filters share: one source, every parameter compared.
template <class F>
struct TraitsBase {
  using Filter = F;
  static constexpr int sourceCount = 1;
  static int randomSourceCount(std::mt19937&) { return 1; }
  static std::vector<std::pair<Setter<F>, Setter<F>>> ignoredPairs() { return {}; }
};

struct CastTraits : TraitsBase<CastDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT); }
  static std::vector<std::string> entries() { return {"ElementType = 11"}; }
  static auto parametersOf(const Filter& d) {
    TARVElementType type{};
    d.getParameters(type);
    return std::make_tuple(type);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(TARV_ELEMENT_TYPE_NO_TYPE); }
  static auto clamped() { return std::make_tuple(TARV_ELEMENT_TYPE_NO_TYPE); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(TARV_ELEMENT_TYPE_DOUBLE); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const TARVElementType types[] = {
        TARV_ELEMENT_TYPE_BOOL,          TARV_ELEMENT_TYPE_SIGNED_CHAR,    TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
        TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
        TARV_ELEMENT_TYPE_UNSIGNED_INT,  TARV_ELEMENT_TYPE_SIGNED_LONG_INT, TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
        TARV_ELEMENT_TYPE_FLOAT,         TARV_ELEMENT_TYPE_DOUBLE,         TARV_ELEMENT_TYPE_LONG_DOUBLE};
    d.setParameters(types[anyOf(rng, 0, 11)]);
  }
};

struct ConstantTraits : TraitsBase<ConstantDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(-1.0e-300); }
  static std::vector<std::string> entries() { return {"ElementValue = -1e-300"}; }
  static auto parametersOf(const Filter& d) {
    double value = 0;
    d.getParameters(value);
    return std::make_tuple(value);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(-std::numeric_limits<double>::infinity()); }
  static auto clamped() { return std::make_tuple(-std::numeric_limits<double>::infinity()); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(3.5); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) { d.setParameters(anyValue(rng)); }
};

struct IntervalPlateauTraits : TraitsBase<IntervalPlateauDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(-0.5, 1e300); }
  static std::vector<std::string> entries() { return {"MinimalPlateauValue = -0.5", "MaximalPlateauValue = 1e+300"}; }
  static auto parametersOf(const Filter& d) {
    double minimal = 0, maximal = 0;
    d.getParameters(minimal, maximal);
    return std::make_tuple(minimal, maximal);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(5.0, 2.0); }
  static auto clamped() { return std::make_tuple(5.0, 5.0); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(-0.25, 1e300); }, [](Filter& d) { d.setParameters(-0.5, 99.0); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const double low = anyValue(rng), high = anyValue(rng);
    d.setParameters(low, high);
  }
};

struct IntervalThresholdTraits : TraitsBase<IntervalThresholdDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(-2.5, 7.25, 3.0, -1.0, true, false); }
  static std::vector<std::string> entries() {
    return {"MinimalForegroundThresholdValue = -2.5", "MaximalForegroundThresholdValue = 7.25", "ForegroundValue = 3",
            "BackgroundValue = -1", "SetForeground = true", "SetBackground = false"};
  }
  static auto parametersOf(const Filter& d) {
    double minimal = 0, maximal = 0, foreground = 0, background = 0;
    bool setForeground = false, setBackground = false;
    d.getParameters(minimal, maximal, foreground, background, setForeground, setBackground);
    return std::make_tuple(minimal, maximal, foreground, background, setForeground, setBackground);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(5.0, 2.0, 3.0, 4.0, true, false); }
  static auto clamped() { return std::make_tuple(5.0, 5.0, 3.0, 4.0, true, false); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(-2.0, 7.25, 3.0, -1.0, true, false); },
            [](Filter& d) { d.setParameters(-2.5, 7.0, 3.0, -1.0, true, false); },
            [](Filter& d) { d.setParameters(-2.5, 7.25, 3.5, -1.0, true, false); },
            [](Filter& d) { d.setParameters(-2.5, 7.25, 3.0, -1.5, true, false); },
            [](Filter& d) { d.setParameters(-2.5, 7.25, 3.0, -1.0, false, false); },
            [](Filter& d) { d.setParameters(-2.5, 7.25, 3.0, -1.0, true, true); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const double low = anyValue(rng), high = anyValue(rng), foreground = anyValue(rng), background = anyValue(rng);
    const bool setForeground = anyOf(rng, 0, 1) == 1, setBackground = anyOf(rng, 0, 1) == 1;
    d.setParameters(low, high, foreground, background, setForeground, setBackground);
  }
};

struct LinearTransformationTraits : TraitsBase<LinearTransformationDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(2.5, -0.125); }
  static std::vector<std::string> entries() { return {"Factor = 2.5", "Summand = -0.125"}; }
  static auto parametersOf(const Filter& d) {
    double factor = 0, summand = 0;
    d.getParameters(factor, summand);
    return std::make_tuple(factor, summand);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(std::numeric_limits<double>::infinity(), -1e308); }
  static auto clamped() { return std::make_tuple(std::numeric_limits<double>::infinity(), -1e308); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(2.0, -0.125); }, [](Filter& d) { d.setParameters(2.5, 0.125); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const double factor = anyValue(rng), summand = anyValue(rng);
    d.setParameters(factor, summand);
  }
};

struct ScaleTraits : TraitsBase<ScaleDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(-1.5, 2.5, false, 10.25, -3.0); }
  static std::vector<std::string> entries() {
    return {"MinimalValue = -1.5", "MaximalValue = 2.5", "SourceMinimalValue = 10.25", "SourceMaximalValue = -3",
            "CalculateSourceMinimalMaximalValues = false"};
  }
  static auto parametersOf(const Filter& d) {
    double minimal = 0, maximal = 0, sourceMinimal = 0, sourceMaximal = 0;
    bool calculate = false;
    d.getParameters(minimal, maximal, calculate, sourceMinimal, sourceMaximal);
    return std::make_tuple(minimal, maximal, calculate, sourceMinimal, sourceMaximal);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(3.0, 3.0, false, 7.0, 7.0); }
  static auto clamped() { return std::make_tuple(3.0, 4.0, false, 7.0, 8.0); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(-1.0, 2.5, false, 10.25, -3.0); },
            [](Filter& d) { d.setParameters(-1.5, 2.0, false, 10.25, -3.0); },
            [](Filter& d) { d.setParameters(-1.5, 2.5, false, 10.0, -3.0); },
            [](Filter& d) { d.setParameters(-1.5, 2.5, false, 10.25, -2.0); }};
  }
  // The source range the flag takes is the source's own, so both settings agree on it.
  static std::vector<std::pair<Setter<Filter>, Setter<Filter>>> ignoredPairs() {
    auto withFlag = [](bool calculate) {
      return [calculate](Filter& d) {
        Dataset* s = d.getSourceDataset();
        d.setParameters(-1.5, 2.5, calculate, s->getMinimumValue(), s->getMaximumValue());
      };
    };
    return {{withFlag(false), withFlag(true)}};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const double low = anyValue(rng), high = anyValue(rng), sourceLow = anyValue(rng), sourceHigh = anyValue(rng);
    const bool fromSource = anyOf(rng, 0, 1) == 1;
    d.setParameters(low, high, fromSource, sourceLow, sourceHigh);
  }
};

struct SmoothTraits : TraitsBase<SmoothDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(5, 2, 7, 0.125); }
  static std::vector<std::string> entries() {
    return {"KernelXSize = 5", "KernelYSize = 2", "KernelZSize = 7", "MarginValue = 0.125"};
  }
  static auto parametersOf(const Filter& d) {
    int x = 0, y = 0, z = 0;
    double margin = 0;
    d.getParameters(x, y, z, margin);
    return std::make_tuple(x, y, z, margin);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(0, -3, 1 << 30, 0.5); }
  static auto clamped() { return std::make_tuple(1, 1, DatasetCalculations::maximalBinomialKernelSize, 0.5); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(3, 2, 7, 0.125); }, [](Filter& d) { d.setParameters(5, 3, 7, 0.125); },
            [](Filter& d) { d.setParameters(5, 2, 1, 0.125); }, [](Filter& d) { d.setParameters(5, 2, 7, 0.25); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const int x = anyOf(rng, 1, 5), y = anyOf(rng, 1, 5), z = anyOf(rng, 1, 5);
    d.setParameters(x, y, z, std::uniform_real_distribution<double>(-5.0, 5.0)(rng));
  }
};

struct GradientTraits : TraitsBase<GradientDataset> {
  static void setNonDefault(Filter& d) { d.setParameters(3, 2, 5, true, -0.75); }
  static std::vector<std::string> entries() {
    return {"GradientDimensionality = 3", "GradientDirection = 2", "GradientFilterSize = 5", "VoxelGradient = true",
            "MarginValue = -0.75"};
  }
  static auto parametersOf(const Filter& d) {
    int dimensionality = 0, direction = 0, filterSize = 0;
    bool voxel = false;
    double margin = 0;
    d.getParameters(dimensionality, direction, filterSize, voxel, margin);
    return std::make_tuple(dimensionality, direction, filterSize, voxel, margin);
  }
  static void setOutOfRange(Filter& d) { d.setParameters(1, 7, 4, false, 0.25); }
  static auto clamped() { return std::make_tuple(2, 1, 3, false, 0.25); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(3, 1, 5, true, -0.75); },
            [](Filter& d) { d.setParameters(3, 2, 5, false, -0.75); },
            [](Filter& d) { d.setParameters(3, 2, 5, true, 0.75); }};
  }
  static std::vector<std::pair<Setter<Filter>, Setter<Filter>>> ignoredPairs() {
    return {{[](Filter& d) { d.setParameters(2, 1, 3, false, 0.5); },
             [](Filter& d) { d.setParameters(3, 1, 5, false, 0.5); }}};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const int dimensionality = anyOf(rng, 2, 3), direction = anyOf(rng, 0, 2), size = anyOf(rng, 0, 1) == 0 ? 3 : 5;
    const bool voxel = anyOf(rng, 0, 1) == 1;
    d.setParameters(dimensionality, direction, size, voxel, anyOf(rng, -3, 3) * 0.5);
  }
};

struct VectorLengthTraits : TraitsBase<VectorLengthDataset> {
  static constexpr int sourceCount = 2;
  static int randomSourceCount(std::mt19937& rng) { return anyOf(rng, 1, VectorLengthDataset::maximalSourceCount); }
  static void setNonDefault(Filter&) {}
  static std::vector<std::string> entries() { return {}; }
  static auto parametersOf(const Filter&) { return std::make_tuple(); }
  static void setOutOfRange(Filter&) {}
  static auto clamped() { return std::make_tuple(); }
  static std::vector<Setter<Filter>> changes() { return {}; }
  static void setRandom(Filter&, std::mt19937&) {}
};

struct DirectionFilteredVectorLengthTraits : TraitsBase<DirectionFilteredVectorLengthDataset> {
  static constexpr int sourceCount = 2;
  static int randomSourceCount(std::mt19937& rng) { return anyOf(rng, 1, VectorLengthDataset::maximalSourceCount); }
  static void setNonDefault(Filter& d) { d.setParameters(false, vectorOf({0.6, -0.8}), true); }
  static std::vector<std::string> entries() {
    return {"OrientedFiltering = false", "PositiveOrientedFiltering = true", "FilterNormalizedDirection = 0.6 -0.8"};
  }
  static auto parametersOf(const Filter& d) {
    bool oriented = false, positive = false;
    Vector direction;
    d.getParameters(oriented, direction, positive);
    return std::make_tuple(oriented, direction, positive);
  }
  // A direction of the wrong component count becomes (1, 0, ...).
  static void setOutOfRange(Filter& d) { d.setParameters(true, vectorOf({0.0, 3.0, 4.0}), false); }
  static auto clamped() { return std::make_tuple(true, vectorOf({1.0, 0.0}), false); }
  static std::vector<Setter<Filter>> changes() {
    return {[](Filter& d) { d.setParameters(true, vectorOf({0.6, -0.8}), true); },
            [](Filter& d) { d.setParameters(false, vectorOf({0.6, -0.8}), false); },
            [](Filter& d) { d.setParameters(false, vectorOf({0.8, -0.6}), true); }};
  }
  static void setRandom(Filter& d, std::mt19937& rng) {
    const bool oriented = anyOf(rng, 0, 1) == 1, positive = anyOf(rng, 0, 1) == 1;
    Vector direction(static_cast<unsigned>(d.getSourceDatasetCount()));
    for (unsigned i = 0; i < direction.size(); ++i) direction[i] = anyValue(rng);
    d.setParameters(oriented, direction, positive);
  }
};

// Sources of one size and element type holding the test pattern, numbered 1, 2, ...
class Sources {
public:
  Sources(int count, const DatasetCoordinates& size, TARVElementType type = TARV_ELEMENT_TYPE_FLOAT,
          const DatasetWorldEmbedding& embedding = DatasetWorldEmbedding()) {
    for (int i = 0; i < count; ++i) {
      datasets.push_back(std::make_unique<Dataset>(true));
      datasets.back()->newDataset(size, type, embedding);
      datasets.back()->setDatasetID(i + 1);
      tarv::testing::fill(*datasets.back(), [i](const DatasetCoordinates& p) {
        return tarv::testing::pattern(p) * (i % 2 == 0 ? 1.0 : -0.5) + i;
      });
    }
  }
  std::vector<Dataset*> pointers() const {
    std::vector<Dataset*> result;
    for (const auto& d : datasets) result.push_back(d.get());
    return result;
  }
  std::vector<std::unique_ptr<Dataset>> datasets;
};

double valueAt(Dataset& d, const DatasetCoordinates& p) { return d.getElement<double>(p); }

// The bytes of an element buffer that hold its value: a long double leaves padding unset.
int valueBytes(const Dataset& d) {
  return d.getElementType() == TARV_ELEMENT_TYPE_LONG_DOUBLE ? std::numeric_limits<long double>::digits / 8 + 2
                                                              : d.getElementByteSize();
}

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(double)) == 0; }

template <class Traits>
class FilterConformanceTest : public ::testing::Test {
protected:
  using Filter = typename Traits::Filter;
  // Another filter class, to be told apart from this one.
  using OtherFilter = std::conditional_t<std::is_same_v<Filter, VectorLengthDataset>,
                                         DirectionFilteredVectorLengthDataset, VectorLengthDataset>;
  static DatasetCoordinates smallSize() { return C(6, 5, 4, 1, 1); }
};

using FilterTraits = ::testing::Types<CastTraits, ConstantTraits, IntervalPlateauTraits, IntervalThresholdTraits,
                                      LinearTransformationTraits, ScaleTraits, SmoothTraits, GradientTraits,
                                      VectorLengthTraits, DirectionFilteredVectorLengthTraits>;

class TraitsNames {
public:
  template <class Traits>
  static std::string GetName(int) {
    typename Traits::Filter d;
    return d.getTypeName();
  }
};

TYPED_TEST_SUITE(FilterConformanceTest, FilterTraits, TraitsNames);

TYPED_TEST(FilterConformanceTest, DescriptionRoundTrip) {
  using Filter = typename TypeParam::Filter;
  Sources sources(TypeParam::sourceCount, this->smallSize());
  Filter d;
  d.setDatasetID(7);
  d.setDynamicallyCached(false);
  d.setSourceDatasets(sources.pointers());
  TypeParam::setNonDefault(d);
  const std::string text = tarv::testing::describe(d);

  // The base entries, then the filter's own in their order, then the end of the block.
  std::string expected = "ID = 7\nType = " + d.getTypeName() + "\nDynamicallyCached = false\nSourceDatasetIDList =";
  for (int i = 1; i <= TypeParam::sourceCount; ++i) expected += " " + std::to_string(i);
  expected += "\n";
  for (const std::string& entry : TypeParam::entries()) expected += entry + "\n";
  EXPECT_EQ(text, expected + "\n");

  Filter e;
  tarv::testing::readDescription(e, text);
  EXPECT_EQ(e.getDatasetID(), 7);
  EXPECT_FALSE(e.isDynamicallyCached());
  e.setSourceDatasets(sources.pointers());
  e.clearTempIDLists();
  e.setParametersFromTempFields();
  EXPECT_EQ(TypeParam::parametersOf(e), TypeParam::parametersOf(d));
  EXPECT_TRUE(e.isDatasetEquivalent(&d));
  EXPECT_TRUE(d.isDatasetEquivalent(&e));
  EXPECT_EQ(tarv::testing::describe(e), text);
}

TYPED_TEST(FilterConformanceTest, ReadingStartsFromTheDefaults) {
  using Filter = typename TypeParam::Filter;
  Sources sources(TypeParam::sourceCount, this->smallSize());
  Filter fresh, d;
  fresh.setSourceDatasets(sources.pointers());
  d.setSourceDatasets(sources.pointers());
  TypeParam::setNonDefault(d);
  tarv::testing::readDescription(d, "ID = 3\nNoSuchEntry = 17\n");
  EXPECT_EQ(d.getDatasetID(), 3);
  EXPECT_EQ(TypeParam::parametersOf(d), TypeParam::parametersOf(fresh)) << "a missing entry gives the default";
  EXPECT_EQ(tarv::testing::describe(d).find("NoSuchEntry"), std::string::npos);
}

TYPED_TEST(FilterConformanceTest, SetParametersRepairsOutOfRangeValues) {
  using Filter = typename TypeParam::Filter;
  Sources sources(TypeParam::sourceCount, this->smallSize());
  Filter d;
  d.setSourceDatasets(sources.pointers());
  TypeParam::setOutOfRange(d);
  EXPECT_EQ(TypeParam::parametersOf(d), TypeParam::clamped());
  // What is stored is what the description carries.
  Filter e;
  tarv::testing::readDescription(e, tarv::testing::describe(d));
  e.setSourceDatasets(sources.pointers());
  e.setParametersFromTempFields();
  EXPECT_EQ(TypeParam::parametersOf(e), TypeParam::clamped());
}

TYPED_TEST(FilterConformanceTest, EquivalenceFollowsTheComparedParameters) {
  using Filter = typename TypeParam::Filter;
  Sources sources(TypeParam::sourceCount, this->smallSize());
  Sources others(TypeParam::sourceCount, this->smallSize());
  auto make = [&](const Sources& s) {
    auto d = std::make_unique<Filter>();
    d->setSourceDatasets(s.pointers());
    TypeParam::setNonDefault(*d);
    return d;
  };
  auto a = make(sources), b = make(sources);
  EXPECT_TRUE(a->isDatasetEquivalent(b.get()));
  EXPECT_TRUE(b->isDatasetEquivalent(a.get()));
  b->setDatasetID(99);
  b->setDynamicallyCached(false);
  EXPECT_TRUE(a->isDatasetEquivalent(b.get())) << "ID and caching take no part";
  for (std::size_t i = 0; i < TypeParam::changes().size(); ++i) {
    SCOPED_TRACE("change " + std::to_string(i));
    auto c = make(sources);
    TypeParam::changes()[i](*c);
    EXPECT_FALSE(a->isDatasetEquivalent(c.get()));
    EXPECT_FALSE(c->isDatasetEquivalent(a.get()));
  }
  for (const auto& [first, second] : TypeParam::ignoredPairs()) {
    auto c = make(sources), e = make(sources);
    first(*c);
    second(*e);
    EXPECT_NE(TypeParam::parametersOf(*c), TypeParam::parametersOf(*e));
    EXPECT_TRUE(c->isDatasetEquivalent(e.get())) << "a parameter left out of equivalence";
  }
  auto distinct = make(others);
  EXPECT_FALSE(a->isDatasetEquivalent(distinct.get())) << "distinct non-dependent sources with equal contents";
  typename TestFixture::OtherFilter other;
  other.setSourceDatasets(sources.pointers());
  EXPECT_FALSE(a->isDatasetEquivalent(&other));
  EXPECT_FALSE(a->isDatasetEquivalent(nullptr));
  // Over dependent sources, equivalence asks the sources.
  LinearTransformationDataset upstreamA, upstreamB;
  upstreamA.setSourceDataset(sources.pointers().front());
  upstreamB.setSourceDataset(sources.pointers().front());
  std::vector<Dataset*> viaA = sources.pointers(), viaB = sources.pointers();
  viaA.front() = &upstreamA;
  viaB.front() = &upstreamB;
  a->setSourceDatasets(viaA);
  b->setSourceDatasets(viaB);
  TypeParam::setNonDefault(*a);
  TypeParam::setNonDefault(*b);
  EXPECT_TRUE(a->isDatasetEquivalent(b.get()));
  upstreamB.setParameters(2.0, 0.0);
  EXPECT_FALSE(a->isDatasetEquivalent(b.get()));
}

TYPED_TEST(FilterConformanceTest, ChangesWithdrawComputedElements) {
  using Filter = typename TypeParam::Filter;
  Sources sources(TypeParam::sourceCount, this->smallSize());
  Counted<Filter> d;
  d.setSourceDatasets(sources.pointers());
  TypeParam::setNonDefault(d);
  const DatasetCoordinates p = C(2, 2, 1);
  // The value a fresh filter of the same parameters computes (re-derived from its sources after
  // the parameters are set, when d has been).
  auto expected = [&](const std::vector<Setter<Filter>>& setters, bool rederived = false) {
    Filter fresh;
    fresh.setSourceDatasets(sources.pointers());
    TypeParam::setNonDefault(fresh);
    for (const auto& set : setters) set(fresh);
    if (rederived) fresh.updateToChangedSourceDatasets();
    return valueAt(fresh, p);
  };
  EXPECT_TRUE(sameBits(valueAt(d, p), expected({})));
  EXPECT_EQ(d.calculations, 1);
  valueAt(d, p);
  EXPECT_EQ(d.calculations, 1) << "a computed element is kept";

  int calculations = 1;
  for (const auto& change : TypeParam::changes()) {
    change(d);
    EXPECT_FALSE(d.areCoordinatesInsideCache(p) && d.getElementCacheStatus(p));
    EXPECT_TRUE(sameBits(valueAt(d, p), expected({change})));
    EXPECT_EQ(d.calculations, ++calculations);
    TypeParam::setNonDefault(d);
    valueAt(d, p);
    EXPECT_EQ(d.calculations, ++calculations);
  }

  Dataset& source = *sources.datasets.front();
  source.setElement<double>(p, -123.0);
  source.updateDependingDatasets();
  EXPECT_FALSE(d.areCoordinatesInsideCache(p) && d.getElementCacheStatus(p));
  EXPECT_TRUE(sameBits(valueAt(d, p), expected({}, true)));
  EXPECT_EQ(d.calculations, calculations + 1);
  d.removeSourceDatasets();
}

// The library's classes take the bulk path; a caller's subclass (Counted) is always computed
// element by element. Over random sources of every element type, random sizes, spacings and
// parameters, both must leave the same caches, the same element values to the bit (two NaNs may
// differ in sign and payload, see RowComparison.h) and the same element buffers behind.
TYPED_TEST(FilterConformanceTest, BulkPathEqualsElementPath) {
  using Filter = typename TypeParam::Filter;
  int typeIndex = 0;
  tarv::testing::forEachElementType([&]<typename T>() {
    const TARVElementType type = DatasetMemory::getElementTypeByType<T>();
    ++typeIndex;
    for (unsigned seed = 1; seed <= 3; ++seed) {
      SCOPED_TRACE("element type " + std::to_string(type) + ", seed " + std::to_string(seed));
      std::mt19937 rng(seed * 100 + typeIndex);
      const double spacingX = 0.3 + anyOf(rng, 0, 20) * 0.1, spacingZ = 1.0 + anyOf(rng, 0, 9) * 0.37;
      const DatasetWorldEmbedding embedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(spacingX, 0.7, spacingZ, 1));
      const DatasetCoordinates size = C(anyOf(rng, 1, 80), anyOf(rng, 1, 11), anyOf(rng, 1, 8), anyOf(rng, 1, 2), 1);
      const int n = TypeParam::randomSourceCount(rng);
      // Each path reads its own twin of the sources, filled alike, so that their element buffers
      // can be compared.
      std::vector<std::unique_ptr<Dataset>> rowsSources, elementsSources;
      std::vector<Dataset*> rowsPointers, elementsPointers;
      for (int i = 0; i < n; ++i) {
        const std::mt19937 fillRng(rng());
        for (auto* twins : {&rowsSources, &elementsSources}) {
          twins->push_back(std::make_unique<Dataset>(true));
          twins->back()->newDataset(size, type, embedding);
          std::mt19937 values = fillRng;
          tarv::testing::fillRandom(*twins->back(), values, seed != 2);
        }
        rowsPointers.push_back(rowsSources.back().get());
        elementsPointers.push_back(elementsSources.back().get());
      }
      Filter rows;
      Counted<Filter> elements;
      rows.setSourceDatasets(rowsPointers);
      elements.setSourceDatasets(elementsPointers);
      const std::mt19937 parameterRng(rng());
      std::mt19937 rowsParameterRng = parameterRng, elementsParameterRng = parameterRng;
      TypeParam::setRandom(rows, rowsParameterRng);
      TypeParam::setRandom(elements, elementsParameterRng);
      ASSERT_EQ(TypeParam::parametersOf(rows), TypeParam::parametersOf(elements));

      tarv::testing::evaluateAlike(rows, elements, rng);
      rows.calculateFullDataset(nullptr);
      elements.calculateFullDataset(nullptr);
      EXPECT_GT(elements.calculations, 0);
      if (rows.hasData()) {
        const double a = DatasetMemory::getBufferValue<double>(rows.getElementBuffer(), rows.getElementType());
        const double b = DatasetMemory::getBufferValue<double>(elements.getElementBuffer(), rows.getElementType());
        EXPECT_TRUE(std::memcmp(rows.getElementBuffer(), elements.getElementBuffer(), valueBytes(rows)) == 0 ||
                    (std::isnan(a) && std::isnan(b)))
            << "the filter's element buffer: " << a << " / " << b;
      }
      for (int i = 0; i < n; ++i)
        EXPECT_EQ(std::memcmp(rowsPointers[i]->getElementBuffer(), elementsPointers[i]->getElementBuffer(),
                              valueBytes(*rowsPointers[i])),
                  0)
            << "the element buffer of source " << i;
      tarv::testing::expectSameCache(rows, elements, "fully computed");

      int differences = 0;
      tarv::testing::forEachVoxel(rows.getSize(), [&](const DatasetCoordinates& p) {
        const double a = valueAt(rows, p);
        const double b = valueAt(elements, p);
        if (!sameBits(a, b) && !(std::isnan(a) && std::isnan(b)) && ++differences <= 5)
          ADD_FAILURE() << "(" << p.x << "," << p.y << "," << p.z << "," << p.t << "): " << a << " / " << b;
      });
      EXPECT_EQ(differences, 0);
      rows.removeSourceDatasets();
      elements.removeSourceDatasets();
    }
  });
}

}  // namespace

// End-to-end tests of graphs of filter datasets: values through chains, invalidation, deletion
// of sources and the description of a whole graph.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "FilterTestSupport.h"
#include "MaskReference.h"
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

using namespace tarv;
using tarv::testing::asStoredFloat;
using tarv::testing::C;
using tarv::testing::Counted;
using tarv::testing::forEachVoxel;

namespace {

const DatasetCoordinates sourceSize(7, 6, 5, 1, 1);

// A float source of random values in [-100, 100] with an anisotropic spacing.
std::unique_ptr<Dataset> makeSource(unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-100.0, 100.0);
  auto source = std::make_unique<Dataset>(true);
  source->newDataset<float>(sourceSize,
                            DatasetWorldEmbedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.8, 1.2, 2.0, 1)));
  tarv::testing::fill(*source, [&](const DatasetCoordinates&) { return value(random); });
  return source;
}

// A float dataset holding f at every voxel, for hand-computed intermediate results.
std::unique_ptr<Dataset> makeFloatDataset(const DatasetCoordinates& size, const DatasetWorldEmbedding& embedding,
                                          const std::function<double(const DatasetCoordinates&)>& f) {
  auto d = std::make_unique<Dataset>(true);
  d->newDataset<float>(size, embedding);
  tarv::testing::fill(*d, f);
  return d;
}

DependentDataset* newFilterOfType(const std::string& type) {
  if (type == "CastDataset") return new CastDataset;
  if (type == "ConstantDataset") return new ConstantDataset;
  if (type == "IntervalPlateauDataset") return new IntervalPlateauDataset;
  if (type == "IntervalThresholdDataset") return new IntervalThresholdDataset;
  if (type == "LinearTransformationDataset") return new LinearTransformationDataset;
  if (type == "ScaleDataset") return new ScaleDataset;
  if (type == "VectorLengthDataset") return new VectorLengthDataset;
  if (type == "GradientDataset") return new GradientDataset;
  if (type == "SmoothDataset") return new SmoothDataset;
  if (type == "DirectionFilteredVectorLengthDataset") return new DirectionFilteredVectorLengthDataset;
  return nullptr;
}

// The "Type" of the description that starts at the stream's position; the position is kept.
std::string peekType(std::istream& is) {
  const std::istream::pos_type start = is.tellg();
  std::string type, line;
  while (std::getline(is, line) && !line.empty()) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    std::string name = line.substr(0, equals);
    while (!name.empty() && name.back() == ' ') name.pop_back();
    if (name != "Type") continue;
    type = line.substr(equals + 1);
    while (!type.empty() && type.front() == ' ') type.erase(type.begin());
  }
  is.clear();
  is.seekg(start);
  return type;
}

// Reads every description of a stream into a filter of the class its "Type" names, connects the
// filters by the IDs of their source lists (known holds the datasets outside the stream) and then
// applies the parameters as read once more, now that every filter sees its sources.
std::vector<std::unique_ptr<DependentDataset>> readGraph(std::istream& is, const std::map<int, Dataset*>& known) {
  std::vector<std::unique_ptr<DependentDataset>> filters;
  while (is.peek() != std::char_traits<char>::eof()) {
    std::unique_ptr<DependentDataset> filter(newFilterOfType(peekType(is)));
    if (!filter) break;
    filter->read(is, false);
    filters.push_back(std::move(filter));
  }
  std::map<int, Dataset*> byID = known;
  for (const auto& f : filters) byID[f->getDatasetID()] = f.get();
  for (const auto& f : filters) {
    std::vector<Dataset*> sources;
    for (int id : f->getTempSourceIDList()) sources.push_back(byID.count(id) ? byID[id] : nullptr);
    f->setSourceDatasets(sources);
    f->clearTempIDLists();
  }
  for (const auto& f : filters) f->setParametersFromTempFields();
  return filters;
}

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

TEST(FilterGraphTest, PointWiseChainComputesTheFormulasByHand) {
  const unsigned seed = 5150;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::unique_ptr<Dataset> source = makeSource(seed);
  LinearTransformationDataset linear;
  IntervalPlateauDataset plateau;
  IntervalThresholdDataset threshold;
  ScaleDataset scale;
  CastDataset cast;
  linear.setSourceDataset(source.get());
  plateau.setSourceDataset(&linear);
  threshold.setSourceDataset(&plateau);
  scale.setSourceDataset(&threshold);
  cast.setSourceDataset(&scale);
  linear.setParameters(1.5, -20.0);
  plateau.setParameters(-30.0, 40.0);
  threshold.setParameters(-50.0, 10.0, 99.0, -99.0, false, true);
  scale.setParameters(0.0, 1000.0, false, -100.0, 100.0);
  cast.setParameters(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  cast.setSourceDataset(&scale);
  ASSERT_EQ(cast.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  ASSERT_EQ(cast.getSize(), sourceSize);
  EXPECT_EQ(cast.getWorldEmbedding(), source->getWorldEmbedding());

  forEachVoxel(sourceSize, [&](const DatasetCoordinates& p) {
    const double v = source->getElement<double>(p);
    const double a = asStoredFloat(v * 1.5 + -20.0);
    const double b = asStoredFloat(a < -30.0 ? a : a <= 40.0 ? -30.0 : -30.0 + 40.0 - a);
    const double c = asStoredFloat(-50.0 <= b && b <= 10.0 ? b : -99.0);
    const double d = asStoredFloat(((c - -100.0) / (100.0 - -100.0)) * (1000.0 - 0.0) + 0.0);
    const short e = static_cast<short>(static_cast<float>(d));
    EXPECT_EQ(cast.getElement<short>(p), e) << "at " << p;
    EXPECT_EQ(scale.getElement<double>(p), d) << "at " << p;
    EXPECT_EQ(threshold.getElement<double>(p), c) << "at " << p;
    EXPECT_EQ(plateau.getElement<double>(p), b) << "at " << p;
    EXPECT_EQ(linear.getElement<double>(p), a) << "at " << p;
  });
}

TEST(FilterGraphTest, NeighbourhoodGraphComputesTheFormulasByHand) {
  const unsigned seed = 90125;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::unique_ptr<Dataset> source = makeSource(seed);
  const DatasetWorldEmbedding& embedding = source->getWorldEmbedding();
  SmoothDataset smooth;
  GradientDataset gradientX, gradientY;
  VectorLengthDataset length;
  DirectionFilteredVectorLengthDataset filtered;
  LinearTransformationDataset shifted;
  smooth.setSourceDataset(source.get());
  smooth.setParameters(3, 3, 3, 0.0);
  gradientX.setSourceDataset(&smooth);
  gradientX.setParameters(3, 0, 3, false, 0.0);
  gradientY.setSourceDataset(&smooth);
  gradientY.setParameters(3, 1, 5, false, 0.0);
  length.setSourceDatasets({&gradientX, &gradientY});
  filtered.setSourceDatasets({&gradientX, &gradientY});
  Vector direction(2, 1.0);
  filtered.setParameters(false, direction, false);
  shifted.setSourceDataset(&length);
  shifted.setParameters(2.0, 1.0);

  // The same graph by hand: masks applied by plain loops, every stage rounded to float.
  std::unique_ptr<Dataset> smoothByHand = makeFloatDataset(sourceSize, embedding, [&](const DatasetCoordinates& p) {
    return tarv::testing::correlateByLoop(*source, tarv::testing::binomialMask(3, 3, 3), p, 0.0);
  });
  std::unique_ptr<Dataset> xByHand = makeFloatDataset(sourceSize, embedding, [&](const DatasetCoordinates& p) {
    return tarv::testing::correlateByLoop(*smoothByHand, tarv::testing::gradientMask(3, 0, 3), p, 0.0) / 0.8;
  });
  std::unique_ptr<Dataset> yByHand = makeFloatDataset(sourceSize, embedding, [&](const DatasetCoordinates& p) {
    return tarv::testing::correlateByLoop(*smoothByHand, tarv::testing::gradientMask(3, 1, 5), p, 0.0) / 1.2;
  });
  Vector unit = direction;
  unit.normalize();
  int interior = 0;
  forEachVoxel(sourceSize, [&](const DatasetCoordinates& p) {
    Vector v(2);
    v[0] = xByHand->getElement<double>(p);
    v[1] = yByHand->getElement<double>(p);
    const double l = v.getLength();
    double weighted = 0.0;
    if (l > 1e-7) {
      Vector n = v;
      n.normalize();
      weighted = std::fabs(2.0 * (Vector::angleBetweenNormalizedVectors(n, unit) / std::numbers::pi) - 1.0) * l;
    }
    if (l > 0.0) ++interior;
    EXPECT_EQ(smooth.getElement<double>(p), smoothByHand->getElement<double>(p)) << "smooth at " << p;
    EXPECT_EQ(gradientX.getElement<double>(p), v[0]) << "x gradient at " << p;
    EXPECT_EQ(gradientY.getElement<double>(p), v[1]) << "y gradient at " << p;
    EXPECT_EQ(length.getElement<double>(p), asStoredFloat(l)) << "length at " << p;
    EXPECT_EQ(filtered.getElement<double>(p), asStoredFloat(weighted)) << "filtered length at " << p;
    EXPECT_EQ(shifted.getElement<double>(p), asStoredFloat(asStoredFloat(l) * 2.0 + 1.0)) << "shifted at " << p;
  });
  EXPECT_GT(interior, 0) << "the graph must compute some voxels away from the margins";
}

TEST(FilterGraphTest, ParameterChangeInvalidatesExactlyWhatDependsOnIt) {
  std::unique_ptr<Dataset> source = makeSource(11);
  Counted<LinearTransformationDataset> a;
  Counted<IntervalPlateauDataset> b;
  Counted<SmoothDataset> c;
  Counted<CastDataset> f;
  Counted<ConstantDataset> d;
  Counted<IntervalThresholdDataset> e;
  a.setSourceDataset(source.get());
  b.setSourceDataset(&a);
  c.setSourceDataset(&b);
  c.setParameters(3, 3, 1, -1.0);
  f.setSourceDataset(&a);
  d.setSourceDataset(source.get());
  e.setSourceDataset(source.get());
  std::vector<CachedDataset*> all = {&a, &b, &c, &f, &d, &e};
  const auto calculations = [&]() {
    return std::vector<int>{a.calculations, b.calculations, c.calculations,
                            f.calculations, d.calculations, e.calculations};
  };
  const auto readAll = [&]() {
    for (CachedDataset* x : all)
      forEachVoxel(sourceSize, [&](const DatasetCoordinates& p) { x->getElement<double>(p); });
  };
  const int n = 7 * 6 * 5;
  readAll();
  readAll();
  EXPECT_EQ(calculations(), (std::vector<int>{n, n, n, n, n, n})) << "each element once";

  a.setParameters(-1.0, 5.0);
  readAll();
  EXPECT_EQ(calculations(), (std::vector<int>{2 * n, 2 * n, 2 * n, 2 * n, n, n}))
      << "the linear transformation and everything below it, nothing beside it";
  forEachVoxel(sourceSize, [&](const DatasetCoordinates& p) {
    EXPECT_EQ(a.getElement<double>(p), asStoredFloat(source->getElement<double>(p) * -1.0 + 5.0)) << "at " << p;
  });

  b.setParameters(0.0, 1.0);
  readAll();
  EXPECT_EQ(calculations(), (std::vector<int>{2 * n, 3 * n, 3 * n, 2 * n, n, n})) << "the plateau and the smoothing";

  c.setParameters(1, 1, 1, 0.0);
  d.setParameters(8.0);
  readAll();
  EXPECT_EQ(calculations(), (std::vector<int>{2 * n, 3 * n, 4 * n, 2 * n, 2 * n, n})) << "leaves only";
  for (CachedDataset* x : all) EXPECT_TRUE(x->hasData());
}

TEST(FilterGraphTest, ChangingTheFirstSourceReDerivesTheWholeChain) {
  std::unique_ptr<Dataset> source = makeSource(3);
  LinearTransformationDataset a;
  SmoothDataset b;
  GradientDataset c;
  a.setSourceDataset(source.get());
  b.setSourceDataset(&a);
  c.setSourceDataset(&b);
  ASSERT_EQ(c.getSize(), sourceSize);
  Dataset other(true);
  other.newDataset<short>(C(3, 4, 2, 1, 1),
                          DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(2, 2, 2, 1)));
  tarv::testing::fill(other, [](const DatasetCoordinates& p) { return 3.0 * p.x; });
  source->changeSourceDatasetOfDependingDatasets(&other);
  EXPECT_EQ(a.getSourceDataset(), &other);
  for (DependentDataset* d : std::vector<DependentDataset*>{&a, &b, &c}) {
    EXPECT_EQ(d->getSize(), C(3, 4, 2, 1, 1)) << d->getTypeName();
    EXPECT_EQ(d->getWorldEmbedding(), other.getWorldEmbedding()) << d->getTypeName();
  }
  EXPECT_EQ(c.getElement<double>(C(1, 2, 0)), 3.0 / 2.0);
}

TEST(FilterGraphTest, DeletingASourceLeavesEveryDependantAliveDetachedAndEmpty) {
  std::unique_ptr<Dataset> source = makeSource(17);
  std::unique_ptr<Dataset> second = makeSource(18);
  LinearTransformationDataset a;
  IntervalPlateauDataset b;
  GradientDataset c;
  ConstantDataset d;
  VectorLengthDataset v;
  a.setSourceDataset(source.get());
  b.setSourceDataset(&a);
  c.setSourceDataset(&b);
  d.setSourceDataset(source.get());
  v.setSourceDatasets({source.get(), second.get()});
  forEachVoxel(sourceSize, [&](const DatasetCoordinates& p) { c.getElement<double>(p); });
  ASSERT_TRUE(c.hasData());

  source.reset();
  EXPECT_EQ(a.getSourceDatasetCount(), 0);
  EXPECT_EQ(d.getSourceDatasetCount(), 0);
  EXPECT_EQ(b.getSourceDataset(), &a) << "further down the sources stay";
  EXPECT_EQ(c.getSourceDataset(), &b);
  for (DependentDataset* x : std::vector<DependentDataset*>{&a, &b, &c, &d}) {
    EXPECT_FALSE(x->isInputOk()) << x->getTypeName();
    EXPECT_FALSE(x->hasData()) << x->getTypeName();
    EXPECT_EQ(x->getSize(), C(0, 0, 0, 0, 0)) << x->getTypeName();
    EXPECT_EQ(x->getElement<double>(C(1, 1, 1)), 0.0) << x->getTypeName() << " reads zeros";
  }
  EXPECT_EQ(v.getSourceDatasets(), std::vector<Dataset*>{second.get()}) << "the remaining source keeps it going";
  EXPECT_TRUE(v.hasData());
  EXPECT_EQ(v.getElement<double>(C(1, 1, 1)), std::fabs(second->getElement<double>(C(1, 1, 1))));

  // Reattached, the chain revives.
  a.setSourceDataset(second.get());
  EXPECT_TRUE(c.hasData());
  EXPECT_EQ(c.getSize(), sourceSize);
}

TEST(FilterGraphTest, WholeGraphDescriptionReadBackGivesEquivalentDatasetsAndIdenticalValues) {
  std::unique_ptr<Dataset> source = makeSource(2112);
  std::unique_ptr<Dataset> second = makeSource(2113);
  source->setDatasetID(1);
  second->setDatasetID(2);

  std::vector<std::unique_ptr<DependentDataset>> graph;
  const auto add = [&](DependentDataset* d, int id, std::vector<Dataset*> sources) {
    d->setDatasetID(id);
    d->setSourceDatasets(sources);
    graph.emplace_back(d);
    return d;
  };
  auto* linear = static_cast<LinearTransformationDataset*>(add(new LinearTransformationDataset, 10, {source.get()}));
  linear->setParameters(0.5, 3.0);
  auto* smooth = static_cast<SmoothDataset*>(add(new SmoothDataset, 11, {linear}));
  smooth->setParameters(3, 1, 3, -2.0);
  auto* gradient = static_cast<GradientDataset*>(add(new GradientDataset, 12, {smooth}));
  gradient->setParameters(3, 2, 5, false, 0.25);
  auto* gradient2 = static_cast<GradientDataset*>(add(new GradientDataset, 13, {second.get()}));
  gradient2->setParameters(2, 1, 3, true, 0.0);
  auto* filtered = static_cast<DirectionFilteredVectorLengthDataset*>(
      add(new DirectionFilteredVectorLengthDataset, 14, {gradient, gradient2, linear}));
  Vector direction(3, 0.0);
  direction[0] = 2.0;
  direction[1] = -1.0;
  direction[2] = 2.0;
  filtered->setParameters(true, direction, true);
  auto* length = static_cast<VectorLengthDataset*>(add(new VectorLengthDataset, 15, {gradient, gradient2}));
  auto* plateau = static_cast<IntervalPlateauDataset*>(add(new IntervalPlateauDataset, 16, {length}));
  plateau->setParameters(0.5, 2.5);
  auto* threshold = static_cast<IntervalThresholdDataset*>(add(new IntervalThresholdDataset, 17, {plateau}));
  threshold->setParameters(1.0, 2.0, 10.0, -10.0, true, false);
  auto* scale = static_cast<ScaleDataset*>(add(new ScaleDataset, 18, {threshold}));
  scale->setParameters(-1.0, 1.0, true, 0.0, 0.0);
  auto* cast = static_cast<CastDataset*>(add(new CastDataset, 19, {scale}));
  cast->setParameters(TARV_ELEMENT_TYPE_DOUBLE);
  cast->setSourceDataset(scale);
  auto* constant = static_cast<ConstantDataset*>(add(new ConstantDataset, 20, {second.get()}));
  constant->setParameters(-0.1);
  constant->setDynamicallyCached(false);
  auto* scale2 = static_cast<ScaleDataset*>(add(new ScaleDataset, 21, {filtered}));
  scale2->setParameters(10.0, 20.0, false, -3.0, 7.0);

  std::stringstream stream;
  for (const auto& d : graph) d->write(stream);
  const std::string text = stream.str();

  const std::map<int, Dataset*> known = {{1, source.get()}, {2, second.get()}};
  // Written in reverse order, so that sources are connected after their dependants.
  std::stringstream reversed;
  for (auto it = graph.rbegin(); it != graph.rend(); ++it) (*it)->write(reversed);
  std::vector<std::unique_ptr<DependentDataset>> copy = readGraph(reversed, known);
  std::reverse(copy.begin(), copy.end());

  ASSERT_EQ(copy.size(), graph.size());
  ASSERT_EQ(copy[10]->getTypeName(), "ConstantDataset");
  EXPECT_FALSE(copy[10]->isDynamicallyCached());
  EXPECT_EQ(copy[10]->getCacheRegion(), DatasetBoundingBox(C(0, 0, 0), sourceSize - C(1, 1, 1, 1, 1)))
      << "a dataset that is not dynamically cached covers everything once connected, before any read";
  EXPECT_EQ(copy[11]->getCacheRegion(), DatasetBoundingBox(C(-1, -1, -1, -1, -1), C(-1, -1, -1, -1, -1)))
      << "a dynamically cached one waits for the first access";
  std::stringstream rewritten;
  for (const auto& d : copy) d->write(rewritten);
  EXPECT_EQ(rewritten.str(), text) << "the read graph describes itself the same way";
  for (std::size_t i = 0; i < graph.size(); ++i) {
    DependentDataset& original = *graph[i];
    DependentDataset& read = *copy[i];
    SCOPED_TRACE(original.getTypeName() + " " + std::to_string(original.getDatasetID()));
    EXPECT_EQ(read.getDatasetID(), original.getDatasetID());
    EXPECT_EQ(read.getTypeName(), original.getTypeName());
    EXPECT_EQ(read.isDynamicallyCached(), original.isDynamicallyCached());
    EXPECT_TRUE(read.isDatasetEquivalent(&original));
    EXPECT_TRUE(original.isDatasetEquivalent(&read));
    ASSERT_TRUE(read.hasData());
    EXPECT_EQ(read.getSize(), original.getSize());
    EXPECT_EQ(read.getElementType(), original.getElementType());
    EXPECT_EQ(read.getWorldEmbedding(), original.getWorldEmbedding());
    forEachVoxel(original.getSize(), [&](const DatasetCoordinates& p) {
      const double a = original.getElement<double>(p);
      const double b = read.getElement<double>(p);
      EXPECT_TRUE(sameBits(a, b)) << a << " and " << b << " at " << p;
    });
  }

  // A graph over other sources is not equivalent.
  std::stringstream again(text);
  std::vector<std::unique_ptr<DependentDataset>> elsewhere = readGraph(again, {{1, second.get()}, {2, source.get()}});
  EXPECT_FALSE(elsewhere[0]->isDatasetEquivalent(graph[0].get()));
  EXPECT_FALSE(elsewhere.back()->isDatasetEquivalent(graph.back().get())) << "the difference reaches every descendant";

  // Graph nodes go before the sources they refer to.
  copy.clear();
  elsewhere.clear();
  graph.clear();
}

TEST(FilterGraphTest, UnknownIDsAndDamagedStreamsLeaveFiltersEmpty) {
  std::unique_ptr<Dataset> source = makeSource(4);
  source->setDatasetID(1);
  const std::string text =
      "ID = 30\nType = LinearTransformationDataset\nSourceDatasetIDList = 99\nFactor = 2\n\n"
      "ID = 31\nType = SmoothDataset\nSourceDatasetIDList = 30 1\nKernelXSize = 3\n\n"
      "ID = 32\nType = GradientDataset\nSourceDatasetIDList = x y\nGradientFilterSize = 5\n\n"
      "ID = 33\nType = ScaleDataset\nSourceDatasetIDList = 1\nMinimalValue = 1\nMaxim";
  std::istringstream is(text);
  std::vector<std::unique_ptr<DependentDataset>> filters = readGraph(is, {{1, source.get()}});
  ASSERT_EQ(filters.size(), 4u);
  EXPECT_EQ(filters[0]->getSourceDatasetCount(), 0) << "an unknown ID connects nothing";
  EXPECT_FALSE(filters[0]->hasData());
  EXPECT_EQ(filters[1]->getSourceDatasetCount(), 2);
  EXPECT_FALSE(filters[1]->hasData()) << "two sources for a smoothing";
  EXPECT_EQ(filters[2]->getSourceDatasetCount(), 0) << "a garbage list is empty";
  EXPECT_TRUE(filters[3]->hasData()) << "a truncated last entry does not spoil the rest";
  double minimal = 0, maximal = 0, sourceMinimal = 0, sourceMaximal = 0;
  bool calculate = false;
  static_cast<ScaleDataset*>(filters[3].get())
      ->getParameters(minimal, maximal, calculate, sourceMinimal, sourceMaximal);
  EXPECT_EQ(minimal, 1.0);
  EXPECT_EQ(maximal, 2.0) << "the default maximum equals the minimum and is widened";
  EXPECT_EQ(sourceMinimal, source->getMinimumValue());
  EXPECT_EQ(sourceMaximal, source->getMaximumValue());
}

#include "dataset/VectorLengthDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "FilterTestSupport.h"
#include "RowComparison.h"
#include "dataset/LinearTransformationDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

std::vector<std::unique_ptr<Dataset>> makeSources(int count, const DatasetCoordinates& size) {
  std::vector<std::unique_ptr<Dataset>> sources;
  for (int i = 0; i < count; ++i) {
    sources.push_back(std::make_unique<Dataset>(true));
    sources.back()->newDataset<float>(size, DatasetWorldEmbedding());
  }
  return sources;
}

std::vector<Dataset*> pointers(const std::vector<std::unique_ptr<Dataset>>& sources) {
  std::vector<Dataset*> result;
  for (const auto& s : sources) result.push_back(s.get());
  return result;
}

}  // namespace

TEST(VectorLengthDatasetTest, ThreeAndFourGiveFive) {
  auto sources = makeSources(2, C(2, 1, 1, 1, 1));
  sources[0]->setElement<float>(C(1, 0, 0), 3.0f);
  sources[1]->setElement<float>(C(1, 0, 0), 4.0f);
  VectorLengthDataset d;
  EXPECT_EQ(d.getTypeName(), "VectorLengthDataset");
  d.setSourceDatasets(pointers(sources));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 5.0);
  d.removeSourceDatasets();
}

TEST(VectorLengthDatasetTest, AcceptsOneToFourSources) {
  auto sources = makeSources(5, C(2, 2, 1, 1, 1));
  VectorLengthDataset d;
  EXPECT_FALSE(d.isInputOk()) << "no source";
  EXPECT_FALSE(d.hasData());
  for (int n = 1; n <= 5; ++n) {
    std::vector<Dataset*> some = pointers(sources);
    some.resize(n);
    d.setSourceDatasets(some);
    EXPECT_EQ(d.isInputOk(), n <= 4) << n << " sources";
    EXPECT_EQ(d.hasData(), n <= 4) << n << " sources";
  }
  EXPECT_EQ(d.getElement<double>(C(1, 1, 0)), 0.0) << "invalid input reads zeros";
  d.removeSourceDatasets();
}

TEST(VectorLengthDatasetTest, LengthOfRandomVectorsAndTheSmallestSize) {
  const unsigned seed = 977;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-50.0, 50.0);
  std::vector<std::unique_ptr<Dataset>> sources;
  const DatasetCoordinates sizes[4] = {C(6, 5, 4, 1, 1), C(5, 6, 4, 1, 1), C(6, 5, 3, 1, 1), C(7, 7, 7, 1, 1)};
  for (const auto& s : sizes) {
    sources.push_back(std::make_unique<Dataset>(true));
    sources.back()->newDataset<double>(s, DatasetWorldEmbedding());
    tarv::testing::fill(*sources.back(), [&](const DatasetCoordinates&) { return value(random); });
  }
  Counted<VectorLengthDataset> d;
  d.setSourceDatasets(pointers(sources));
  EXPECT_EQ(d.getSize(), C(5, 5, 3, 1, 1));
  tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    Vector v(4);
    for (unsigned i = 0; i < 4; ++i) v[i] = sources[i]->getElement<double>(p);
    EXPECT_EQ(d.getElement<double>(p), tarv::testing::asStoredFloat(v.getLength())) << "at " << p;
  });
  EXPECT_EQ(d.calculations, 75);
  d.removeSourceDatasets();
}

TEST(VectorLengthDatasetTest, NoParametersInTheDescription) {
  VectorLengthDataset d;
  d.setDatasetID(5);
  const std::string text = tarv::testing::describe(d);
  EXPECT_EQ(text, "ID = 5\nType = VectorLengthDataset\nDynamicallyCached = true\nSourceDatasetIDList =\n\n");
  VectorLengthDataset e;
  tarv::testing::readDescription(e, text + "Extra = 1\n");
  EXPECT_EQ(e.getDatasetID(), 5);
  tarv::testing::readDescription(e, "Factor = 3\nID = 9\nBogus");
  EXPECT_EQ(e.getDatasetID(), 9) << "unknown entries are skipped, a bare name too";
}

TEST(VectorLengthDatasetTest, EquivalenceFollowsTheSources) {
  auto sources = makeSources(2, C(2, 2, 1, 1, 1));
  VectorLengthDataset a, b;
  a.setSourceDatasets(pointers(sources));
  b.setSourceDatasets(pointers(sources));
  EXPECT_TRUE(a.isDatasetEquivalent(&b));
  b.setSourceDatasets({sources[1].get(), sources[0].get()});
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "source order matters";
  b.setSourceDataset(sources[0].get());
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "source count matters";
  a.removeSourceDatasets();
  b.removeSourceDatasets();
}

// ---------------------------------------------------------------------------------------------
// Rows computed together against elements computed one by one (tarv::testing::Counted never takes the
// row path), over one to four sources that are themselves plain or computed, bit for bit,
// including NaN, infinite and zero components.

TEST(VectorLengthDatasetRowTest, RowsEqualElementByElementComputation) {
  for (unsigned seed = 1; seed <= 24; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    const DatasetCoordinates size = C(any(1, 70), any(1, 9), any(1, 7), 1, 1);
    const int n = any(1, 4);
    std::vector<std::unique_ptr<Dataset>> plain;
    std::vector<std::unique_ptr<LinearTransformationDataset>> rowsComputed;
    std::vector<std::unique_ptr<tarv::testing::Counted<LinearTransformationDataset>>> elementsComputed;
    std::vector<Dataset*> rowsSources, elementsSources;
    for (int i = 0; i < n; ++i) {
      plain.push_back(std::make_unique<Dataset>(true));
      plain.back()->newDataset(size, i % 2 == 0 ? TARV_ELEMENT_TYPE_FLOAT : TARV_ELEMENT_TYPE_DOUBLE,
                               DatasetWorldEmbedding());
      tarv::testing::fillRandom(*plain.back(), rng, true);
      if (any(0, 1) == 0) {
        rowsSources.push_back(plain.back().get());
        elementsSources.push_back(plain.back().get());
        continue;
      }
      // A computed source, its cache covering the whole dataset.
      rowsComputed.push_back(std::make_unique<LinearTransformationDataset>());
      elementsComputed.push_back(std::make_unique<tarv::testing::Counted<LinearTransformationDataset>>());
      rowsComputed.back()->setSourceDataset(plain.back().get());
      elementsComputed.back()->setSourceDataset(plain.back().get());
      rowsComputed.back()->setParameters(1.5, -2.0);
      elementsComputed.back()->setParameters(1.5, -2.0);
      rowsComputed.back()->announceAccessToFullDataset();
      elementsComputed.back()->announceAccessToFullDataset();
      rowsSources.push_back(rowsComputed.back().get());
      elementsSources.push_back(elementsComputed.back().get());
    }
    VectorLengthDataset rows;
    tarv::testing::Counted<VectorLengthDataset> elements;
    rows.setSourceDatasets(rowsSources);
    elements.setSourceDatasets(elementsSources);
    tarv::testing::evaluateAlike(rows, elements, rng);
    for (std::size_t i = 0; i < rowsComputed.size(); ++i)
      tarv::testing::expectSameCache(*rowsComputed[i], *elementsComputed[i], "computed source");
  }
}

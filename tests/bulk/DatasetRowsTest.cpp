#include "dataset/Dataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FilterTestSupport.h"
#include "RowComparison.h"
#include "dataset/FileReadDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileReadModule.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

std::string testFile(const std::string& name) { return std::string(TARV_TEST_BINARY_DIR) + "/DatasetRowsTest_" + name; }

const TARVElementType kAllTypes[] = {
    TARV_ELEMENT_TYPE_BOOL,        TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
    TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
    TARV_ELEMENT_TYPE_UNSIGNED_INT, TARV_ELEMENT_TYPE_SIGNED_LONG_INT,   TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
    TARV_ELEMENT_TYPE_FLOAT,        TARV_ELEMENT_TYPE_DOUBLE,             TARV_ELEMENT_TYPE_LONG_DOUBLE};

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(double)) == 0; }

// The three point-wise filters of the lazy chain, of the library's classes or element-wise ones.
template <template <class> class Wrap>
struct Chain {
  FileReadDataset file;
  Wrap<LinearTransformationDataset> linear;
  Wrap<IntervalThresholdDataset> threshold;
  Wrap<IntervalPlateauDataset> plateau;
  Wrap<ScaleDataset> scale;

  explicit Chain(DatasetFileReadModule* module, const std::string& name) {
    file.setFileReadModule(module);
    EXPECT_TRUE(file.openFile(name));
    linear.setSourceDataset(&file);
    linear.setParameters(0.5, 10.0);
    threshold.setSourceDataset(&linear);
    threshold.setParameters(20.0, 400.0, 1.0, 0.0, false, true);
    plateau.setSourceDataset(&threshold);
    plateau.setParameters(100.0, 300.0);
    scale.setSourceDataset(&plateau);
    scale.setParameters(-1.0, 1.0, false, 0.0, 400.0);
  }
  std::vector<Dataset*> all() { return {&file, &linear, &threshold, &plateau, &scale}; }
};

template <class F>
using Plain = F;

template <template <class> class A, template <class> class B>
void expectSameChains(Chain<A>& a, Chain<B>& b) {
  tarv::testing::expectSameCache(a.file, b.file, "file");
  tarv::testing::expectSameCache(a.linear, b.linear, "linear");
  tarv::testing::expectSameCache(a.threshold, b.threshold, "threshold");
  tarv::testing::expectSameCache(a.plateau, b.plateau, "plateau");
  tarv::testing::expectSameCache(a.scale, b.scale, "scale");
}

}  // namespace

TEST(DatasetRowsTest, RowsOfPlainDatasetsReadAsElementsDo) {
  for (unsigned seed = 1; seed <= 36; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    Dataset d(true);
    d.newDataset(C(any(1, 40), any(1, 4), any(1, 3), any(1, 2), 1), kAllTypes[(seed - 1) % 12], DatasetWorldEmbedding());
    tarv::testing::fillRandom(d, rng, true);
    const DatasetCoordinates s = d.getSize();
    const int x0 = any(0, s.x - 1);
    const int count = any(1, s.x - x0);
    const DatasetCoordinates first = C(x0, any(0, s.y - 1), any(0, s.z - 1), any(0, s.t - 1));
    ASSERT_TRUE(d.canReadRow(first, count));
    std::vector<double> values(static_cast<std::size_t>(count));
    d.readRow(first, count, values.data());
    for (int i = 0; i < count; ++i) EXPECT_TRUE(sameBits(values[i], d.getElement<double>(C(x0 + i, first.y, first.z, first.t))));
    EXPECT_FALSE(d.canReadRow(first, s.x - x0 + 1)) << "a row beyond the dataset";
    tarv::testing::CountingSource counting;
    counting.copyFrom(&d);
    EXPECT_FALSE(counting.canReadRow(first, count)) << "a subclass is read element by element";
  }
}

TEST(DatasetRowsTest, CachedRowsAreReadOnlyInsideTheCache) {
  Dataset source(true);
  source.newDataset<float>(C(30, 4, 4, 1, 1), DatasetWorldEmbedding());
  std::mt19937 rng(7);
  tarv::testing::fillRandom(source, rng);
  LinearTransformationDataset linear;
  linear.setSourceDataset(&source);
  linear.setParameters(2.0, 1.0);
  EXPECT_FALSE(linear.canReadRow(C(0, 1, 1), 30)) << "no cache yet: reading would shape it";
  linear.announceAccess(DatasetBoundingBox(C(5, 0, 0), C(20, 3, 3)));
  EXPECT_TRUE(linear.canReadRow(C(5, 1, 1), 16));
  EXPECT_FALSE(linear.canReadRow(C(4, 1, 1), 16)) << "one element outside the cache";
  std::vector<double> values(16);
  linear.readRow(C(5, 1, 1), 16, values.data());
  for (int i = 0; i < 16; ++i) {
    EXPECT_TRUE(linear.getElementCacheStatus(C(5 + i, 1, 1)));
    EXPECT_TRUE(sameBits(values[i], linear.getElement<double>(C(5 + i, 1, 1))));
  }
  EXPECT_FALSE(linear.getElementCacheStatus(C(5, 2, 1))) << "only the row is computed";
}

// A chain of point-wise filters over a lazily read TARV1 file, slab by slab with the caches
// dropped in between, then in full with a progress object: rows against elements.
TEST(DatasetRowsTest, LazyTarv1ChainEqualsElementByElementComputation) {
  std::mt19937 rng(11);
  Dataset volume(true);
  volume.newDataset<float>(C(70, 23, 9, 1, 1), DatasetWorldEmbedding());
  std::uniform_real_distribution<double> value(-100.0, 900.0);
  for (DatasetCoordinatesIterator it = volume.getStartCoordinatesIterator(); it.valid; volume.incrementCoordinatesIterator(it))
    volume.setElement<double>(it, value(rng));
  TARV1DatasetFileReadWrite writer;
  writer.fileName = testFile("chain.tarv1");
  writer.write(&volume);

  Chain<Plain> rows(new TARV1DatasetFileReadModule(), writer.fileName);
  Chain<Counted> elements(new TARV1DatasetFileReadModule(), writer.fileName);
  const DatasetCoordinates s = rows.file.getSize();
  for (int z = 0; z < s.z; z += 4) {
    const DatasetBoundingBox box(C(0, 0, z), C(s.x - 1, s.y - 1, std::min(z + 3, s.z - 1)));
    for (Dataset* d : rows.all()) d->announceAccess(box);
    for (Dataset* d : elements.all()) d->announceAccess(box);
    rows.scale.calculate(box);
    elements.scale.calculate(box);
    expectSameChains(rows, elements);
    if (z % 8 == 0) {
      rows.file.resetCache();
      elements.file.resetCache();
    }
  }
  tarv::testing::RecordingProgress rowsProgress, elementsProgress;
  rows.scale.calculateFullDataset(&rowsProgress);
  elements.scale.calculateFullDataset(&elementsProgress);
  EXPECT_EQ(rowsProgress.fractions, elementsProgress.fractions);
  expectSameChains(rows, elements);
}

// The same over a paged TIFF file, whose blocks are tiles; the caches grow as elements are read.
TEST(DatasetRowsTest, LazyTiffChainEqualsElementByElementComputation) {
  std::mt19937 rng(12);
  Dataset volume(true);
  volume.newDataset<unsigned short>(C(150, 70, 3, 1, 1), DatasetWorldEmbedding());
  std::uniform_int_distribution<int> value(0, 1000);
  for (DatasetCoordinatesIterator it = volume.getStartCoordinatesIterator(); it.valid; volume.incrementCoordinatesIterator(it))
    volume.setElement<int>(it, value(rng));
  TiffDatasetFileWrite writer;
  writer.fileName = testFile("chain.tif");
  writer.write(&volume);

  Chain<Plain> rows(new TiffFileReadModule(), writer.fileName);
  Chain<Counted> elements(new TiffFileReadModule(), writer.fileName);
  // Some single reads first (the caches grow towards them), then everything.
  for (int i = 0; i < 6; ++i) {
    const DatasetCoordinates p = C(i * 23 % 150, i * 11 % 70, i % 3);
    EXPECT_TRUE(sameBits(rows.scale.getElement<double>(p), elements.scale.getElement<double>(p)));
  }
  expectSameChains(rows, elements);
  for (Dataset* d : rows.all()) d->announceAccessToFullDataset();
  for (Dataset* d : elements.all()) d->announceAccessToFullDataset();
  rows.scale.calculateFullDataset(nullptr);
  elements.scale.calculateFullDataset(nullptr);
  expectSameChains(rows, elements);
}

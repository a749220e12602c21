#include "dataset/Dataset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "core/DcmHeader.h"
#include "core/Progress.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::embedding;
using tarv::testing::pattern;
using tarv::testing::fillWithPattern;
using tarv::testing::fillRandomly;
using tarv::testing::forEachElementType;
using tarv::testing::Snapshot;
using tarv::testing::CountingDataset;

namespace {

// Asks to stop at the n-th query and counts the queries.
class StoppingProgress : public Progress {
public:
  explicit StoppingProgress(int stopAt) : stopAt(stopAt) {}
  int queries = 0;
  bool shouldStop() override { return ++queries == stopAt; }

private:
  int stopAt;
};

}  // namespace

// ---- whole copies ----

TEST(DatasetBulkTest, CopyFromClonesElementsEmbeddingAndLut) {
  Dataset source(true);
  source.newDataset<float>(C(3, 2, 2, 2, 2), embedding(1, 2, 3, 0.5, 0.25, 2));
  fillWithPattern<float>(source);
  source.getModalityLUT().set(2.0, -5.0);
  source.setDicomTags(new DcmHeader());

  Dataset target(true);
  target.newDataset<int>(C(1, 1, 1, 1, 1), DatasetWorldEmbedding());
  target.setElement<int>(C(0, 0, 0), 7);
  target.setCachedMinimumAndMaximumValue(7, 7);
  target.copyFrom(&source);

  EXPECT_EQ(target.getSize(), source.getSize());
  EXPECT_EQ(target.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_TRUE(target.hasSameWorldEmbedding(&source));
  EXPECT_TRUE(target.getModalityLUT().isValid()) << "copyFrom copies the modality LUT";
  EXPECT_EQ(target.getModalityLUT().getSlope(), 2.0);
  EXPECT_EQ(target.getModalityLUT().getIntercept(), -5.0);
  EXPECT_EQ(target.getDicomTags(), nullptr) << "DICOM tags are not copied";
  EXPECT_FALSE(target.getMinimumAndMaximumValueCacheStatus());
  EXPECT_TRUE(Snapshot(target) == Snapshot(source));
}

TEST(DatasetBulkTest, CopyFromAsksTheSourceToComputeEverythingFirst) {
  CountingDataset source;
  source.newDataset<short>(C(4, 3, 2, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<short>(source);
  source.resetCounts();
  Dataset target(true);
  target.copyFrom(&source);
  EXPECT_EQ(source.fullCalculations, 1);
  EXPECT_EQ(source.coordinateReads + source.iteratorReads, 0) << "the memory is cloned in one piece";
  EXPECT_TRUE(Snapshot(target) == Snapshot(source));
}

TEST(DatasetBulkTest, CopyFromNullSourceLeavesTheDataset) {
  Dataset target(true);
  target.newDataset<int>(C(2, 2, 1, 1, 1), embedding(1, 1, 1, 2, 2, 2));
  fillWithPattern<int>(target);
  const Snapshot before(target);
  target.copyFrom(nullptr);
  target.convertFrom(nullptr, TARV_ELEMENT_TYPE_FLOAT);
  target.initializeFrom(nullptr);
  target.initializeWithNewElementTypeFrom(nullptr, TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_TRUE(Snapshot(target) == before);
}

TEST(DatasetBulkTest, CopyFromItselfKeepsContentsAndEmbedding) {
  Dataset d(true);
  d.newDataset<double>(C(3, 3, 2, 1, 1), embedding(5, 6, 7, 1.5, 1.5, 3));
  fillWithPattern<double>(d);
  const Snapshot before(d);
  d.copyFrom(&d);
  EXPECT_TRUE(Snapshot(d) == before);
}

TEST(DatasetBulkTest, CopyFromEmptySourceEmptiesTheTarget) {
  Dataset source(true);
  Dataset target(true);
  target.newDataset<int>(C(2, 2, 2, 1, 1), DatasetWorldEmbedding());
  target.copyFrom(&source);
  EXPECT_FALSE(target.hasData());
}

TEST(DatasetBulkTest, ConvertFromStoresTheUnconvertedSourceBytes) {
  Dataset source(true);
  source.newDataset<float>(C(2, 2, 1, 1, 1), embedding(1, 2, 3, 2, 2, 2));
  const float values[4] = {2.5f, -1.75f, 300.25f, 0.0f};
  int i = 0;
  for (DatasetCoordinatesIterator it = source.getStartCoordinatesIterator(); it.valid; source.incrementCoordinatesIterator(it))
    source.setElement<float>(it, values[i++]);
  source.getModalityLUT().set(3.0, 1.0);

  Dataset target(true);
  target.convertFrom<int>(&source);
  ASSERT_EQ(target.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  EXPECT_EQ(target.getSize(), source.getSize());
  EXPECT_TRUE(target.hasSameWorldEmbedding(&source));
  EXPECT_FALSE(target.getModalityLUT().isValid()) << "convertFrom does not copy the modality LUT";
  i = 0;
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid; target.incrementCoordinatesIterator(it)) {
    int bits = 0;
    std::memcpy(&bits, &values[i], sizeof bits);
    EXPECT_EQ(target.getElement<int>(it), bits) << "element " << i << " holds the float's bytes";
    ++i;
  }
}

TEST(DatasetBulkTest, ConvertFromTemplatesMatchTheTypeForm) {
  Dataset source(true);
  source.newDataset<unsigned char>(C(3, 2, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(source);
  forEachElementType([&]<typename T>() {
    Dataset byTemplate(true);
    Dataset byType(true);
    byTemplate.convertFrom<T>(&source);
    byType.convertFrom(&source, DatasetMemory::getElementTypeByType<T>());
    EXPECT_EQ(byTemplate.getElementType(), DatasetMemory::getElementTypeByType<T>());
    EXPECT_EQ(byTemplate.getSize(), source.getSize());
    EXPECT_TRUE(Snapshot(byTemplate) == Snapshot(byType)) << DatasetMemory::getElementTypeName(byType.getElementType());
  });
}

TEST(DatasetBulkTest, ConvertFromInvalidTypeLeavesTheDataset) {
  Dataset source(true);
  source.newDataset<int>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  Dataset target(true);
  target.newDataset<short>(C(3, 1, 1, 1, 1), embedding(1, 1, 1, 1, 1, 1));
  fillWithPattern<short>(target);
  const Snapshot before(target);
  for (TARVElementType type : {TARV_ELEMENT_TYPE_NO_TYPE, TARV_ELEMENT_TYPE_UNKNOWN, TARV_ELEMENT_TYPE_VOID,
                               static_cast<TARVElementType>(15)}) {
    target.convertFrom(&source, type);
    target.convertPartFrom(&source, type, source.getVoxelBoundingBox());
    target.initializeWithNewElementTypeFrom(&source, type);
    target.convertNonZeroBoxFrom(&source, type, C(0, 0, 0));
    EXPECT_TRUE(Snapshot(target) == before) << "type " << type;
  }
}

TEST(DatasetBulkTest, InitializeFromTakesSizeTypeAndEmbedding) {
  Dataset source(true);
  source.newDataset<unsigned short>(C(4, 3, 2, 2, 3), embedding(-1, -2, -3, 0.5, 0.5, 1));
  Dataset same(true);
  same.initializeFrom(&source);
  EXPECT_EQ(same.getSize(), source.getSize());
  EXPECT_EQ(same.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  EXPECT_TRUE(same.hasSameWorldEmbedding(&source));

  Dataset other(true);
  other.initializeWithNewElementTypeFrom(&source, TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(other.getSize(), source.getSize());
  EXPECT_EQ(other.getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_TRUE(other.isCompatible(&source));
}

// ---- element-wise rewrites ----

TEST(DatasetBulkTest, SetAllElementsValueConvertsOnceToTheElementType) {
  Dataset d(true);
  d.newDataset<int>(C(3, 3, 2, 1, 2), DatasetWorldEmbedding());
  d.setAllElementsValue(2.9, nullptr);
  EXPECT_EQ(d.getVoxelCountInValueRange(2, 2, false), d.getElementCount()) << "2.9 is stored as 2 in an int dataset";
  Dataset flags(true);
  flags.newDataset<bool>(C(9, 1, 1, 1, 1), DatasetWorldEmbedding());
  flags.setAllElementsValue(0.5);
  EXPECT_EQ(flags.getVoxelCountInValueRange(1, 1, false), 9u);
}

TEST(DatasetBulkTest, SetAllElementsValueStopsWhenTheProgressAsks) {
  Dataset d(true);
  d.newDataset<unsigned char>(C(500, 500, 1, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(1);
  StoppingProgress stopAtFirst(1);
  d.setAllElementsValue(9, &stopAtFirst);
  EXPECT_EQ(stopAtFirst.queries, 1) << "asked once, after 100000 elements";
  EXPECT_EQ(d.getVoxelCountInValueRange(9, 9, false), 100000u) << "the fill stops at once";
  EXPECT_EQ(d.getVoxelCountInValueRange(1, 1, false), 150000u) << "the rest stays as it was";

  StoppingProgress never(0);
  d.setAllElementsValue(4, &never);
  EXPECT_EQ(never.queries, 2) << "asked after 100000 and 200000 elements";
  EXPECT_EQ(d.getVoxelCountInValueRange(4, 4, false), 250000u);
}

TEST(DatasetBulkTest, SetAllElementsValueWritesThroughTheElementAccess) {
  CountingDataset d;
  d.newDataset<float>(C(4, 3, 2, 1, 1), DatasetWorldEmbedding());
  d.resetCounts();
  d.setAllElementsValue(1.5);
  EXPECT_EQ(d.iteratorWrites, 24);
  EXPECT_EQ(d.fullAnnouncements, 1);
  EXPECT_EQ(d.getMinimumValue(), 1.5);
}

TEST(DatasetBulkTest, ChangeAllElementsValueMatchesNegativeZeroButNeverNaN) {
  Dataset d(true);
  d.newDataset<float>(C(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<float>(C(0, 0, 0), 0.0f);
  d.setElement<float>(C(1, 0, 0), -0.0f);
  d.setElement<float>(C(2, 0, 0), std::numeric_limits<float>::quiet_NaN());
  d.setElement<float>(C(3, 0, 0), 1.0f);
  d.changeAllElementsValue(0, 5);
  EXPECT_EQ(d.getElement<float>(C(0, 0, 0)), 5.0f);
  EXPECT_EQ(d.getElement<float>(C(1, 0, 0)), 5.0f) << "-0.0 compares equal to 0";
  EXPECT_TRUE(std::isnan(d.getElement<float>(C(2, 0, 0))));
  EXPECT_EQ(d.getElement<float>(C(3, 0, 0)), 1.0f);
  d.changeAllElementsValue(std::numeric_limits<double>::quiet_NaN(), 8);
  EXPECT_TRUE(std::isnan(d.getElement<float>(C(2, 0, 0)))) << "NaN never matches";
}

TEST(DatasetBulkTest, ForceMinimumAndMaximumClampElements) {
  Dataset d(true);
  d.newDataset<short>(C(7, 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < 7; ++x) d.setElement<int>(C(x, 0, 0), x * 10 - 30);
  d.forceMinimumElementValue(-15.5);
  d.forceMaximumElementValue(12.7);
  for (int x = 0; x < 7; ++x) {
    const int v = x * 10 - 30;
    const int expected = v < -15.5 ? -15 : (v > 12.7 ? 12 : v);
    EXPECT_EQ(d.getElement<int>(C(x, 0, 0)), expected) << "limits are converted like every value";
  }
}

TEST(DatasetBulkTest, FlipXAxisOfWidthOneChangesNothing) {
  Dataset d(true);
  d.newDataset<int>(C(1, 3, 2, 2, 2), DatasetWorldEmbedding());
  fillWithPattern<int>(d);
  const Snapshot before(d);
  d.flipXAxis();
  EXPECT_TRUE(Snapshot(d) == before);
}

TEST(DatasetBulkTest, FlipsMirrorTheirAxisAndKeepTheMiddle) {
  Dataset original(true);
  original.newDataset<unsigned short>(C(5, 4, 3, 2, 2), embedding(1, 2, 3, 1, 1, 1));
  fillWithPattern<unsigned short>(original);
  const DatasetCoordinates n = original.getSize();
  for (int axis = 0; axis < 3; ++axis) {
    Dataset d(true);
    d.copyFrom(&original);
    if (axis == 0) d.flipXAxis();
    if (axis == 1) d.flipYAxis();
    if (axis == 2) d.flipZAxis();
    EXPECT_TRUE(d.getWorldEmbedding() == original.getWorldEmbedding()) << "the embedding is not changed";
    for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      DatasetCoordinates mirrored = it;
      mirrored[axis] = n[axis] - 1 - it[axis];
      ASSERT_EQ(d.getElement<int>(it), original.getElement<int>(mirrored)) << "axis " << axis << " at " << it;
    }
  }
  Dataset flags(true);
  flags.newDataset<bool>(C(5, 1, 1, 1, 1), DatasetWorldEmbedding());
  flags.setAllElementsValue(0);
  flags.setElement<bool>(C(0, 0, 0), true);
  flags.setElement<bool>(C(2, 0, 0), true);
  flags.flipXAxis();
  EXPECT_TRUE(flags.getElement<bool>(C(4, 0, 0)));
  EXPECT_TRUE(flags.getElement<bool>(C(2, 0, 0))) << "the middle column of an odd width stays";
  EXPECT_FALSE(flags.getElement<bool>(C(0, 0, 0)));
}

TEST(DatasetBulkTest, NormalizeVectorLengthScalesToUnitLength) {
  Dataset d(true);
  d.newDataset<double>(C(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(C(0, 0, 0), 3);
  d.setElement<double>(C(1, 0, 0), 4);
  d.normalizeVectorLength();
  EXPECT_DOUBLE_EQ(d.getElement<double>(C(0, 0, 0)), 0.6);
  EXPECT_DOUBLE_EQ(d.getElement<double>(C(1, 0, 0)), 0.8);

  Dataset integers(true);
  integers.newDataset<int>(C(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  integers.setElement<int>(C(0, 0, 0), 3);
  integers.setElement<int>(C(1, 0, 0), 4);
  integers.normalizeVectorLength();
  EXPECT_EQ(integers.getElement<int>(C(0, 0, 0)), 0) << "0.6 truncates to 0";
  EXPECT_EQ(integers.getElement<int>(C(1, 0, 0)), 0) << "0.8 truncates to 0";

  Dataset zeros(true);
  zeros.newDataset<float>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  zeros.setAllElementsValue(-0.0);
  zeros.normalizeVectorLength();
  for (DatasetCoordinatesIterator it = zeros.getStartCoordinatesIterator(); it.valid; zeros.incrementCoordinatesIterator(it))
    EXPECT_TRUE(std::signbit(zeros.getElement<float>(it))) << "an all-zero dataset is left as it was";
}

TEST(DatasetBulkTest, RewritesOfAnEmptyDatasetDoNothing) {
  Dataset d(true);
  StoppingProgress progress(1);
  d.setAllElementsValue(3, &progress);
  d.changeAllElementsValue(0, 1);
  d.forceMinimumElementValue(1);
  d.forceMaximumElementValue(0);
  d.flipXAxis();
  d.flipYAxis();
  d.flipZAxis();
  d.normalizeVectorLength();
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(progress.queries, 0);
}

// ---------------------------------------------------------------------------------------------
// Plain in-memory datasets are copied and scanned in whole rows; CountingDataset, which overrides
// the element access, takes the element-by-element path. Both must give the same bytes.

namespace {

const TARVElementType kAllTypes[] = {
    TARV_ELEMENT_TYPE_BOOL,        TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
    TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
    TARV_ELEMENT_TYPE_UNSIGNED_INT, TARV_ELEMENT_TYPE_SIGNED_LONG_INT,   TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
    TARV_ELEMENT_TYPE_FLOAT,        TARV_ELEMENT_TYPE_DOUBLE,             TARV_ELEMENT_TYPE_LONG_DOUBLE};

// Random values, NaN, infinities and values beyond the integer ranges among them.
void fillRandomValues(Dataset& d, std::mt19937& rng) {
  std::uniform_real_distribution<double> value(-3.0e9, 3.0e9);
  std::uniform_int_distribution<int> pick(0, 19);
  const double specials[] = {std::nan(""), INFINITY, -INFINITY, -0.0, 1.0e19, -2.5, 255.5, 70000.25};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    const int k = pick(rng);
    d.setElement<double>(it, k < 8 ? specials[k] : value(rng));
  }
}

// Every element's bytes (bool as 0 or 1; of a long double the ten bytes of its value, not the
// padding that completes its sixteen).
std::vector<unsigned char> bytesOf(Dataset& d) {
  std::vector<unsigned char> bytes;
  unsigned char buffer[16];
  const unsigned int valueBytes =
      d.getElementType() == TARV_ELEMENT_TYPE_LONG_DOUBLE ? 10u : std::max(1u, d.getElementByteSize());
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    std::memset(buffer, 0, sizeof(buffer));
    d.getElementByBuffer(static_cast<const DatasetCoordinates&>(it), buffer);
    bytes.insert(bytes.end(), buffer, buffer + valueBytes);
  }
  return bytes;
}

void expectSameDataset(Dataset& a, Dataset& b) {
  EXPECT_EQ(a.getSize(), b.getSize());
  EXPECT_EQ(a.getElementType(), b.getElementType());
  EXPECT_TRUE(a.getWorldEmbedding() == b.getWorldEmbedding());
  EXPECT_EQ(a.getMinimumAndMaximumValueCacheStatus(), b.getMinimumAndMaximumValueCacheStatus());
  EXPECT_TRUE(bytesOf(a) == bytesOf(b));
}

}  // namespace

TEST(DatasetBulkRowTest, ConvertPartFromInWholeRowsEqualsElementAccess) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    const DatasetCoordinates size = C(any(1, 20), any(1, 6), any(1, 5), any(1, 2), any(1, 3));
    const TARVElementType from = kAllTypes[any(0, 11)];
    const TARVElementType to = kAllTypes[any(0, 11)];
    const DatasetWorldEmbedding embedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.7, 2, 1));
    Dataset plainSource(true);
    CountingDataset countingSource;
    plainSource.newDataset(size, from, embedding);
    fillRandomValues(plainSource, rng);
    countingSource.copyFrom(&plainSource);
    DatasetCoordinates a, b;
    for (int k = 0; k < 5; ++k) {
      a[k] = any(-2, size[k]);
      b[k] = any(-2, size[k] + 1);
    }
    if (any(0, 1) == 0) {
      a.c = 0;
      b.c = size.c - 1;
    }
    const DatasetBoundingBox box(a, b);
    SCOPED_TRACE("from " + std::to_string(from) + " to " + std::to_string(to));
    Dataset plainTarget(true);
    CountingDataset countingTarget;
    plainTarget.convertPartFrom(&plainSource, to, box);
    countingTarget.convertPartFrom(&countingSource, to, box);
    expectSameDataset(plainTarget, countingTarget);
    plainTarget.copyPartFrom(&plainSource, box);
    countingTarget.copyPartFrom(&countingSource, box);
    expectSameDataset(plainTarget, countingTarget);
  }
}

TEST(DatasetBulkRowTest, CopyFromIntoADatasetOfTheSameShapeEqualsAFreshCopy) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    const TARVElementType type = kAllTypes[any(0, 11)];
    Dataset first(true), second(true);
    first.newDataset(C(any(1, 30), any(1, 5), any(1, 4), 1, any(1, 2)), type, DatasetWorldEmbedding());
    second.newDataset(first.getSize(), type,
                      DatasetWorldEmbedding(WorldCoordinates(4, 5, 6, 0), WorldCoordinates(1, 2, 3, 1)));
    fillRandomValues(first, rng);
    fillRandomValues(second, rng);
    second.getModalityLUT().set(2.0, -7.0);
    Dataset reused(true);
    CountingDataset fresh;
    reused.copyFrom(&first);
    reused.setMinimumAndMaximumValueCacheStatus(true);
    // The second copy hands the block of the first to the copy.
    reused.copyFrom(&second);
    fresh.copyFrom(&second);
    expectSameDataset(reused, fresh);
    EXPECT_TRUE(reused.getModalityLUT().isValid());
    EXPECT_EQ(reused.getModalityLUT().getSlope(), 2.0);
    EXPECT_EQ(reused.getModalityLUT().getIntercept(), -7.0);
    // The source keeps its own elements.
    EXPECT_TRUE(bytesOf(second) == bytesOf(fresh));
  }
}

TEST(DatasetBulkRowTest, MinimumAndMaximumOfPlainDatasetsEqualElementAccess) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    const TARVElementType type = kAllTypes[any(0, 11)];
    Dataset plain(true);
    CountingDataset counting;
    plain.newDataset(C(any(1, 40), any(1, 5), any(1, 5), any(1, 2), any(1, 2)), type, DatasetWorldEmbedding());
    fillRandomValues(plain, rng);
    counting.copyFrom(&plain);
    const double plainMinimum = plain.getMinimumValue(), countingMinimum = counting.getMinimumValue();
    const double plainMaximum = plain.getMaximumValue(), countingMaximum = counting.getMaximumValue();
    EXPECT_EQ(std::memcmp(&plainMinimum, &countingMinimum, sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(&plainMaximum, &countingMaximum, sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(plain.getElementBuffer(), counting.getElementBuffer(), plain.getElementByteSize()), 0)
        << "the last element read stays in the element buffer";
  }
}

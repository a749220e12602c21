#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <list>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/FileReadWrite.h"
#include "dataset/DependentDataset.h"

using namespace tarv;

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);

// Logs shared by the test filters.
std::vector<const Dataset*> updateLog;
std::vector<std::string> destructionLog;

// Adds its addend to the sum of its sources. Parameters: the addend and a list of offsets (which
// only take part in the description and in equivalence).
class AddDataset : public DependentDataset {
public:
  explicit AddDataset(std::string name = "") : name(std::move(name)) {
    typeName = "AddDataset";
    initializeTempFields();
  }
  ~AddDataset() override {
    if (!name.empty()) destructionLog.push_back(name);
  }

  void setParameters(double newAddend, const Coordinates<double>& newOffsets) {
    addend = newAddend;
    offsets = newOffsets;
    resetCache();
  }
  double getAddend() const { return addend; }
  const Coordinates<double>& getOffsets() const { return offsets; }

  bool calculateElement(const DatasetCoordinates& p) override {
    ++calls;
    double sum = addend;
    for (Dataset* source : sourceDatasets) sum += source->getElement<double>(p);
    setElementReference<double>(p, sum);
    setElementCacheStatus(p, true);
    return true;
  }
  bool isDatasetEquivalent(DependentDataset* other) override {
    if (!DependentDataset::isDatasetEquivalent(other)) return false;
    auto* o = dynamic_cast<AddDataset*>(other);
    return o != nullptr && o->addend == addend && o->offsets == offsets;
  }
  bool readDatasetSpecificValue(std::string entry, std::istream& is) override {
    seenEntries.push_back(entry);
    if (entry == "Addend") {
      tempAddend = FileReadWrite::readDoubleValue(is);
      return true;
    }
    if (entry == "Offsets") {
      tempOffsets = FileReadWrite::readDoubleCoordinatesValue(is);
      return true;
    }
    return false;
  }
  void writeDatasetSpecificValues(std::ostream& os) override {
    FileReadWrite::writeValue(os, "Addend", addend);
    FileReadWrite::writeValue(os, "Offsets", offsets);
  }
  void checkParametersRegardingTheSourceDatasets() override { updateLog.push_back(this); }
  void initializeTempFields() override {
    tempAddend = 1.0;
    tempOffsets = Coordinates<double>();
    DependentDataset::initializeTempFields();
  }
  void setParametersFromTempFields() override { setParameters(tempAddend, tempOffsets); }

  DatasetMemory* dataMemory() const { return memory; }

  std::string name;
  int calls = 0;
  std::vector<std::string> seenEntries;

private:
  double addend = 1.0;
  Coordinates<double> offsets;
  double tempAddend = 1.0;
  Coordinates<double> tempOffsets;
};

// A filter of another class that keeps the base's type name.
class BareDependent : public DependentDataset {
public:
  bool calculateElement(const DatasetCoordinates& p) override {
    ++calls;
    setElementReference<double>(p, 0.0);
    setElementCacheStatus(p, true);
    return true;
  }
  bool readDatasetSpecificValue(std::string, std::istream&) override { return false; }
  void writeDatasetSpecificValues(std::ostream&) override {}
  void setParametersFromTempFields() override {}
  int calls = 0;
};

// A plain dataset that counts the announcements it receives.
class RecordingDataset : public Dataset {
public:
  RecordingDataset() : Dataset(true) {}
  void announceAccess(const DatasetBoundingBox& box) override {
    ++boxAnnouncements;
    lastBox = box;
  }
  void announceAccessToFullDataset() override { ++fullAnnouncements; }
  int boxAnnouncements = 0;
  int fullAnnouncements = 0;
  DatasetBoundingBox lastBox;
};

double sourceValue(const DatasetCoordinates& p) { return p.x + 10.0 * p.y + 100.0 * p.z + 0.25; }

// A plain double dataset of the size, filled with sourceValue times the factor.
void fill(Dataset& d, const DatasetCoordinates& size, double factor = 1.0,
          const DatasetWorldEmbedding& embedding = DatasetWorldEmbedding()) {
  d.newDataset<double>(size, embedding);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, factor * sourceValue(it));
}

const DatasetCoordinates kSize(4, 3, 2, 1, 1);

}  // namespace

TEST(DependentDatasetTest, ConstructionState) {
  BareDependent d;
  EXPECT_EQ(d.getTypeName(), "DependentDataset");
  EXPECT_TRUE(d.isDependentDataset());
  EXPECT_TRUE(d.isCachedDataset());
  EXPECT_TRUE(d.isDynamicallyCached());
  EXPECT_FALSE(d.isInputValid());
  EXPECT_EQ(d.getDatasetID(), -1);
  EXPECT_EQ(d.getSourceDatasetCount(), 0);
  EXPECT_EQ(d.getSourceDataset(), nullptr);
  EXPECT_TRUE(d.getTempSourceIDList().empty());
  EXPECT_FALSE(d.hasData());
}

TEST(DependentDatasetTest, WithoutSourcesInputIsInvalidAndReadsAreZero) {
  AddDataset d;
  d.updateToChangedSourceDatasets();
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.isInputValid());
  EXPECT_EQ(d.determineSize(), kOrigin);
  EXPECT_EQ(d.determineElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_TRUE(d.determineWorldEmbedding() == DatasetWorldEmbedding());
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(1, 1, 0, 0, 0)), 0.0);
  // With an element type set directly, the zeros fill one element of that type.
  d.initializeDataset<double>(kSize, DatasetWorldEmbedding());
  unsigned char buffer[16];
  std::memset(buffer, 0xCD, sizeof buffer);
  d.getElementByBuffer(DatasetCoordinates(1, 1, 0, 0, 0), buffer);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(buffer[i], 0) << "byte " << i << " must be zero-filled";
  EXPECT_EQ(buffer[8], 0xCD) << "no more than one element is written";
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(1, 1, 0, 0, 0)), 0.0);
  const double v = 5.0;
  d.setElementByBuffer(DatasetCoordinates(1, 1, 0, 0, 0), &v);
  EXPECT_EQ(d.getMemoryUsage(), 0u) << "writes are ignored while the input is invalid";
  EXPECT_EQ(d.calls, 0) << "nothing is computed while the input is invalid";
}

TEST(DependentDatasetTest, SizeIsComponentwiseMinimumTypeAndEmbeddingFromFirstSource) {
  Dataset a(true);
  Dataset b(true);
  const DatasetWorldEmbedding ea(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.5, 2, 1));
  const DatasetWorldEmbedding eb(WorldCoordinates(-1, 0, 0, 0), WorldCoordinates(1, 1, 1, 1));
  fill(a, DatasetCoordinates(10, 20, 30, 1, 1), 1.0, ea);
  b.newDataset<int>(DatasetCoordinates(12, 18, 30, 1, 1), eb);
  for (auto it = b.getStartCoordinatesIterator(); it.valid; b.incrementCoordinatesIterator(it)) b.setElement<int>(it, 2);
  AddDataset d;
  d.setSourceDatasets({&a, &b});
  EXPECT_TRUE(d.isInputValid());
  EXPECT_EQ(d.getSize(), DatasetCoordinates(10, 18, 30, 1, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_TRUE(d.getWorldEmbedding() == ea);
  const DatasetCoordinates p(9, 17, 29, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), sourceValue(p) + 2.0 + 1.0);
  AddDataset e;
  e.setSourceDatasets({&b, &a});
  EXPECT_EQ(e.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  EXPECT_TRUE(e.getWorldEmbedding() == eb);
  EXPECT_EQ(e.getSize(), DatasetCoordinates(10, 18, 30, 1, 1));
}

TEST(DependentDatasetTest, ValuesAreComputedOnceAndFollowTheSource) {
  Dataset a(true);
  fill(a, kSize);
  AddDataset d;
  d.setSourceDataset(&a);
  const DatasetCoordinates p(3, 2, 1, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), sourceValue(p) + 1.0);
  EXPECT_EQ(d.getElement<double>(p), sourceValue(p) + 1.0);
  EXPECT_EQ(d.calls, 1);
  a.newDataset<double>(kSize, DatasetWorldEmbedding());  // new contents: re-derived, values discarded
  a.setElement<double>(p, 7.0);
  EXPECT_EQ(d.getElement<double>(p), 8.0);
  EXPECT_EQ(d.calls, 2);
  const double written = -3.0;
  d.setElementByBuffer(DatasetCoordinates(0, 0, 0, 0, 0), &written);
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)), -3.0);
  EXPECT_EQ(d.calls, 2) << "a written element needs no calculation";
}

TEST(DependentDatasetTest, AnnouncementsGoToTheSecondSourceOnwardOnly) {
  RecordingDataset s1, s2, s3;
  for (RecordingDataset* s : {&s1, &s2, &s3}) fill(*s, kSize);
  for (RecordingDataset* s : {&s1, &s2, &s3}) s->boxAnnouncements = s->fullAnnouncements = 0;
  const DatasetBoundingBox b(DatasetCoordinates(1, 1, 0, 0, 0), DatasetCoordinates(2, 2, 1, 0, 0));
  AddDataset single;
  single.setSourceDataset(&s1);
  single.announceAccess(b);
  single.announceAccessToFullDataset();
  EXPECT_EQ(s1.boxAnnouncements, 0) << "with one source nothing is forwarded";
  EXPECT_EQ(s1.fullAnnouncements, 0);
  EXPECT_TRUE(single.isBoxInsideCache(b)) << "the dataset's own cache is prepared";

  AddDataset triple;
  triple.setSourceDatasets({&s1, &s2, &s3});
  triple.announceAccess(b);
  EXPECT_EQ(s1.boxAnnouncements, 0) << "the first source is never told";
  EXPECT_EQ(s2.boxAnnouncements, 1);
  EXPECT_EQ(s3.boxAnnouncements, 1);
  EXPECT_EQ(s2.lastBox, b);
  triple.announceAccessToFullDataset();
  EXPECT_EQ(s1.fullAnnouncements, 0);
  EXPECT_EQ(s2.fullAnnouncements, 1);
  EXPECT_EQ(s3.fullAnnouncements, 1);
  EXPECT_EQ(triple.getCacheRegion(), triple.getVoxelBoundingBox());
}

TEST(DependentDatasetTest, NothingIsForwardedWhileInputIsInvalid) {
  BareDependent invalid;  // no sources: its input is invalid, and so is that of its dependants
  RecordingDataset s2;
  fill(s2, kSize);
  s2.boxAnnouncements = s2.fullAnnouncements = 0;
  AddDataset d;
  d.setSourceDatasets({&invalid, &s2});
  EXPECT_FALSE(d.isInputValid());
  d.announceAccess(DatasetBoundingBox(kOrigin, kOrigin));
  d.announceAccessToFullDataset();
  EXPECT_EQ(s2.boxAnnouncements, 0);
  EXPECT_EQ(s2.fullAnnouncements, 0);
  EXPECT_EQ(d.getElement<double>(kOrigin), 0.0);
  EXPECT_EQ(d.calls, 0);
}

TEST(DependentDatasetTest, NullSourcesAreDroppedAndOrderKept) {
  Dataset a(true), b(true);
  fill(a, kSize);
  fill(b, kSize, 2.0);
  AddDataset d;
  d.setSourceDatasets({nullptr, &a, nullptr, &b, nullptr});
  ASSERT_EQ(d.getSourceDatasetCount(), 2);
  EXPECT_EQ(d.getSourceDatasets(), (std::vector<Dataset*>{&a, &b}));
  EXPECT_EQ(d.getSourceDataset(), &a);
  EXPECT_TRUE(a.isDependingDataset(&d));
  EXPECT_TRUE(b.isDependingDataset(&d));
  EXPECT_TRUE(d.isInputValid());
  d.setSourceDataset(nullptr);
  EXPECT_EQ(d.getSourceDatasetCount(), 0);
  EXPECT_FALSE(d.isInputValid());
  EXPECT_FALSE(a.isDependingDataset(&d));
}

TEST(DependentDatasetTest, SourceRegistryBookkeeping) {
  Dataset a(true), b(true);
  fill(a, kSize);
  fill(b, kSize);
  AddDataset f1, f2;
  f1.setSourceDataset(&a);
  f2.setSourceDatasets({&a, &a});
  EXPECT_EQ(a.getDependingDatasets().size(), 2u);
  EXPECT_TRUE(a.areDependingDatasetsExistant());
  f2.releaseSourceDatasets();
  EXPECT_FALSE(a.isDependingDataset(&f2));
  EXPECT_EQ(f2.getSourceDatasetCount(), 2) << "releasing keeps the list";
  f2.claimSourceDatasets();
  EXPECT_TRUE(a.isDependingDataset(&f2));
  a.changeSourceDatasetOfGivenDependingDatasets(&b, {&f1});
  EXPECT_EQ(f1.getSourceDataset(), &b);
  EXPECT_EQ(f2.getSourceDataset(), &a);
  EXPECT_TRUE(b.isDependingDataset(&f1));
  EXPECT_FALSE(a.isDependingDataset(&f1));
  f2.removeSourceDatasets();
  EXPECT_FALSE(a.areDependingDatasetsExistant());
  EXPECT_FALSE(f2.hasData());
  b.clear();
  EXPECT_EQ(f1.getSourceDatasetCount(), 0) << "clear() detaches the depending datasets";
  EXPECT_FALSE(f1.isInputValid());
}

TEST(DependentDatasetTest, ChangeSourceReplacesEveryOccurrence) {
  Dataset a(true), b(true), c(true);
  fill(a, kSize);
  fill(b, kSize, 3.0);
  fill(c, kSize, 5.0);
  AddDataset d;
  d.setSourceDatasets({&a, &c, &a});
  d.changeSourceDataset(&a, &b);
  EXPECT_EQ(d.getSourceDatasets(), (std::vector<Dataset*>{&b, &c, &b}));
  EXPECT_FALSE(a.isDependingDataset(&d));
  EXPECT_TRUE(b.isDependingDataset(&d));
  const DatasetCoordinates p(1, 2, 1, 0, 0);
  EXPECT_EQ(d.getElement<double>(p), 11.0 * sourceValue(p) + 1.0);
  d.changeSourceDataset(&b, nullptr);
  EXPECT_EQ(d.getSourceDatasets(), (std::vector<Dataset*>{&c}));
  EXPECT_EQ(d.getElement<double>(p), 5.0 * sourceValue(p) + 1.0);
}

TEST(DependentDatasetTest, ChangingTheHeadOfAChainReDerivesEveryDatasetAfterIt) {
  Dataset a(true), b(true);
  fill(a, kSize);
  fill(b, DatasetCoordinates(5, 6, 7, 1, 1), 2.0);
  AddDataset f1, f2, f3;
  f1.setSourceDataset(&a);
  f2.setSourceDataset(&f1);
  f3.setSourceDataset(&f2);
  const DatasetCoordinates p(3, 2, 1, 0, 0);
  EXPECT_EQ(f3.getElement<double>(p), sourceValue(p) + 3.0);
  f1.setSourceDataset(&b);
  for (AddDataset* f : {&f1, &f2, &f3}) {
    EXPECT_TRUE(f->isInputValid());
    EXPECT_EQ(f->getSize(), DatasetCoordinates(5, 6, 7, 1, 1));
  }
  const DatasetCoordinates q(4, 5, 6, 0, 0);
  EXPECT_EQ(f3.getElement<double>(q), 2.0 * sourceValue(q) + 3.0);
  f1.removeSourceDatasets();
  for (AddDataset* f : {&f1, &f2, &f3}) {
    EXPECT_FALSE(f->isInputValid());
    EXPECT_FALSE(f->hasData());
    EXPECT_EQ(f->getMemoryUsage(), 0u);
  }
  EXPECT_EQ(f3.getElement<double>(q), 0.0);
  EXPECT_EQ(f2.getSourceDataset(), &f1) << "the chain stays connected, only empty";
}

TEST(DependentDatasetTest, ReDerivationCascadesDepthFirst) {
  Dataset a(true);
  fill(a, kSize);
  AddDataset f1, f2, f3;
  f1.setSourceDataset(&a);
  f3.setSourceDataset(&a);
  f2.setSourceDataset(&f1);
  updateLog.clear();
  a.newDataset<double>(DatasetCoordinates(2, 2, 2, 1, 1), DatasetWorldEmbedding());
  ASSERT_EQ(updateLog.size(), 3u) << "each dataset is re-derived once";
  const auto at = [](const Dataset* d) { return std::find(updateLog.begin(), updateLog.end(), d) - updateLog.begin(); };
  EXPECT_EQ(at(&f2), at(&f1) + 1) << "the dependant of f1 is re-derived right after f1, before f1's siblings";
  EXPECT_LT(at(&f3), 3);
  for (AddDataset* f : {&f1, &f2, &f3}) EXPECT_EQ(f->getSize(), DatasetCoordinates(2, 2, 2, 1, 1));
}

TEST(DependentDatasetTest, ResetOfSourceCacheCascadesThroughTheChain) {
  Dataset a(true);
  fill(a, kSize);
  AddDataset f1, f2;
  f1.setSourceDataset(&a);
  f2.setSourceDataset(&f1);
  const DatasetCoordinates p(1, 1, 1, 0, 0);
  f2.getElement<double>(p);
  EXPECT_EQ(f1.calls, 1);
  a.resetCacheOfDependingDatasets();
  EXPECT_FALSE(f1.areCoordinatesInsideCache(p));
  EXPECT_FALSE(f2.areCoordinatesInsideCache(p));
  EXPECT_EQ(f2.getElement<double>(p), sourceValue(p) + 2.0);
  EXPECT_EQ(f1.calls, 2);
  EXPECT_EQ(f2.calls, 2);
}

TEST(DependentDatasetTest, WithoutDynamicCachingTheCacheCoversTheWholeDataset) {
  Dataset a(true);
  fill(a, DatasetCoordinates(6, 5, 4, 1, 1));
  AddDataset d;
  d.setDynamicallyCached(false);
  d.setSourceDataset(&a);
  EXPECT_EQ(d.getCacheRegion(), d.getVoxelBoundingBox());
  EXPECT_EQ(d.getMemoryUsage(), 6u * 5 * 4 * 8 + (6 * 5 * 4 + 7) / 8);
  AddDataset e;
  e.setSourceDataset(&a);
  EXPECT_EQ(e.getMemoryUsage(), 0u) << "a dynamically cached dataset allocates on first access";
}

TEST(DependentDatasetTest, WriteProducesTheEntriesInOrder) {
  Dataset a(true), b(true);
  fill(a, kSize);
  fill(b, kSize);
  a.setDatasetID(3);
  b.setDatasetID(5);
  AddDataset d;
  d.setDatasetID(7);
  d.setDynamicallyCached(false);
  d.setSourceDatasets({&a, &b});
  Coordinates<double> offsets(3);
  offsets[0] = 1.0;
  offsets[1] = -0.5;
  offsets[2] = std::numeric_limits<double>::infinity();
  d.setParameters(2.5, offsets);
  std::ostringstream os;
  d.write(os);
  EXPECT_EQ(os.str(),
            "ID = 7\nType = AddDataset\nDynamicallyCached = false\nSourceDatasetIDList = 3 5\n"
            "Addend = 2.5\nOffsets = 1 -0.5 inf\n\n");
  EXPECT_TRUE(d.getTempSourceIDList().empty()) << "the temporary list is cleared after writing";
}

TEST(DependentDatasetTest, WriteThenReadRestoresTheDescription) {
  Dataset a(true), b(true);
  fill(a, kSize);
  fill(b, kSize);
  a.setDatasetID(3);
  b.setDatasetID(5);
  AddDataset d;
  d.setDatasetID(7);
  d.setDynamicallyCached(false);
  d.setSourceDatasets({&a, &b});
  Coordinates<double> offsets(2);
  offsets[0] = 0.1;
  offsets[1] = -1e300;
  d.setParameters(-2.75, offsets);
  std::stringstream stream;
  d.write(stream);

  AddDataset r;
  r.read(stream, false);
  EXPECT_EQ(r.getDatasetID(), 7);
  EXPECT_FALSE(r.isDynamicallyCached());
  EXPECT_EQ(r.getTempSourceIDList(), (std::list<int>{3, 5}));
  EXPECT_EQ(r.getAddend(), -2.75);
  EXPECT_TRUE(r.getOffsets() == offsets);
  EXPECT_NE(std::find(r.seenEntries.begin(), r.seenEntries.end(), "Type"), r.seenEntries.end())
      << "Type is handed to the filter, which skips it";
  EXPECT_EQ(r.getSourceDatasetCount(), 0) << "reading does not connect sources";
  // Connecting by the IDs read.
  std::map<int, Dataset*> byID{{3, &a}, {5, &b}};
  std::vector<Dataset*> sources;
  for (int id : r.getTempSourceIDList()) sources.push_back(byID[id]);
  r.setSourceDatasets(sources);
  r.clearTempIDLists();
  EXPECT_TRUE(r.getTempSourceIDList().empty());
  EXPECT_TRUE(r.isDatasetEquivalent(&d));
  EXPECT_EQ(r.getCacheRegion(), r.getVoxelBoundingBox());
  const DatasetCoordinates p(2, 1, 0, 0, 0);
  EXPECT_EQ(r.getElement<double>(p), d.getElement<double>(p));
}

TEST(DependentDatasetTest, ReadToleratesUnknownEntriesAnyOrderAndDuplicates) {
  std::istringstream is(
      "Foo = bar\n"
      "Addend = 3\n"
      "  ID = 4\n"
      "NoEqualsSign\n"
      "= nameless\n"
      "Addend = 4\n"
      "SourceDatasetIDList = 1 2 3\n"
      "Type = SomethingElse\n"
      "\n"
      "ID = 99\n"
      "DynamicallyCached = false\n");
  AddDataset d;
  d.read(is, true);
  EXPECT_EQ(d.getDatasetID(), 4);
  EXPECT_EQ(d.getAddend(), 4.0) << "a later duplicate overrides an earlier one";
  EXPECT_TRUE(d.isDynamicallyCached()) << "reading stops at the end of the block";
  EXPECT_EQ(d.getTempSourceIDList(), (std::list<int>{1, 2, 3}));
  EXPECT_EQ(d.getTypeName(), "AddDataset");
  AddDataset next;
  next.setDatasetID(5);
  next.read(is, false);
  EXPECT_EQ(next.getDatasetID(), 99);
  EXPECT_FALSE(next.isDynamicallyCached());
  EXPECT_EQ(next.getAddend(), 1.0) << "a missing entry leaves the default";
  EXPECT_TRUE(next.getTempSourceIDList().empty());
  AddDataset empty;
  empty.setDatasetID(8);
  empty.read(is, false);
  EXPECT_EQ(empty.getDatasetID(), -1) << "reading starts from the defaults";
}

TEST(DependentDatasetTest, GarbageAndTruncatedDescriptionsNeverCrash) {
  Dataset a(true);
  fill(a, kSize);
  a.setDatasetID(11);
  AddDataset original;
  original.setSourceDataset(&a);
  original.setDatasetID(12);
  std::ostringstream os;
  original.write(os);
  const std::string text = os.str();
  for (std::size_t n = 0; n <= text.size(); ++n) {
    std::istringstream is(text.substr(0, n));
    AddDataset d;
    d.read(is, false);
    if (n < 2) EXPECT_EQ(d.getDatasetID(), -1);
    if (n >= 8) EXPECT_EQ(d.getDatasetID(), 12) << "the complete ID line was read";
  }
  const unsigned seed = 4242u;
  std::mt19937 random(seed);
  const std::string alphabet = "ID=Type Addend Offsets SourceDatasetIDList DynamicallyCached 0123456789-+.e nan inf\n\r\t =";
  for (int round = 0; round < 300; ++round) {
    std::string garbage(random() % 400, '\0');
    for (char& ch : garbage)
      ch = round % 2 == 0 ? static_cast<char>(random() % 256) : alphabet[random() % alphabet.size()];
    std::istringstream is(garbage);
    AddDataset d;
    d.read(is, false);
    d.setSourceDataset(&a);
    const DatasetCoordinates p(1, 1, 1, 0, 0);
    const double v = d.getElement<double>(p);
    const double expected = sourceValue(p) + d.getAddend();
    if (std::isnan(expected))
      ASSERT_TRUE(std::isnan(v)) << "seed " << seed << " round " << round;
    else
      ASSERT_EQ(v, expected) << "seed " << seed << " round " << round;
    ASSERT_TRUE(d.isInputValid()) << "the dataset stays usable after garbage; seed " << seed << " round " << round;
  }
  std::istringstream failed("ID = 5\n");
  failed.setstate(std::ios::failbit);
  AddDataset d;
  d.read(failed, false);
  EXPECT_EQ(d.getDatasetID(), -1);
  std::istringstream huge("ID = 99999999999999999999\nSourceDatasetIDList = 1 x 2\nAddend = 1e999\n");
  d.read(huge, false);
  EXPECT_EQ(d.getDatasetID(), 0);
  EXPECT_TRUE(d.getTempSourceIDList().empty());
}

TEST(DependentDatasetTest, Equivalence) {
  Dataset a(true), twin(true);
  fill(a, kSize);
  fill(twin, kSize);
  AddDataset f, g;
  f.setSourceDataset(&a);
  g.setSourceDataset(&a);
  f.setDatasetID(1);
  g.setDatasetID(2);
  g.setDynamicallyCached(false);
  EXPECT_TRUE(f.isDatasetEquivalent(&g)) << "same source object and parameters; ID and caching do not count";
  g.setParameters(2.0, Coordinates<double>());
  EXPECT_FALSE(f.isDatasetEquivalent(&g)) << "parameters differ";
  g.setParameters(1.0, Coordinates<double>());
  AddDataset onTwin;
  onTwin.setSourceDataset(&twin);
  EXPECT_FALSE(f.isDatasetEquivalent(&onTwin)) << "distinct sources with equal contents are not the same";
  BareDependent other;
  other.setSourceDataset(&a);
  EXPECT_FALSE(f.isDatasetEquivalent(&other)) << "different classes";
  EXPECT_FALSE(other.isDatasetEquivalent(&f));
  AddDataset two;
  two.setSourceDatasets({&a, &a});
  EXPECT_FALSE(f.isDatasetEquivalent(&two)) << "different source counts";
  EXPECT_FALSE(f.isDatasetEquivalent(nullptr));
  // Nested: equal computations over equal computations.
  AddDataset upper1, upper2;
  upper1.setSourceDataset(&f);
  upper2.setSourceDataset(&g);
  EXPECT_TRUE(upper1.isDatasetEquivalent(&upper2));
  g.setParameters(5.0, Coordinates<double>());
  EXPECT_FALSE(upper1.isDatasetEquivalent(&upper2)) << "a difference further up the graph counts";
  AddDataset mixed;
  mixed.setSourceDataset(&a);
  EXPECT_FALSE(upper1.isDatasetEquivalent(&mixed)) << "a dependent source against a plain one";
  EXPECT_FALSE(mixed.isDatasetEquivalent(&upper1));
}

TEST(DependentDatasetTest, DeletingASourceLeavesDependantsAliveDetachedAndEmpty) {
  auto* a = new Dataset(true);
  fill(*a, kSize);
  AddDataset f1, f2;
  f1.setSourceDataset(a);
  f2.setSourceDataset(&f1);
  EXPECT_TRUE(f2.hasData());
  delete a;
  EXPECT_EQ(f1.getSourceDataset(), nullptr);
  EXPECT_EQ(f1.getSourceDatasetCount(), 0);
  EXPECT_FALSE(f1.isInputValid());
  EXPECT_FALSE(f1.hasData());
  EXPECT_FALSE(f2.isInputValid()) << "the invalid input is passed down the graph";
  EXPECT_FALSE(f2.hasData());
  EXPECT_EQ(f2.getSourceDataset(), &f1);
  EXPECT_EQ(f2.getElement<double>(kOrigin), 0.0);
  EXPECT_EQ(f1.calls + f2.calls, 0);
}

TEST(DependentDatasetTest, DeletingADependantInTheMiddleDetachesItsDependants) {
  Dataset a(true);
  fill(a, kSize);
  auto* f1 = new AddDataset();
  AddDataset f2;
  f1->setSourceDataset(&a);
  f2.setSourceDataset(f1);
  delete f1;
  EXPECT_FALSE(a.areDependingDatasetsExistant());
  EXPECT_EQ(f2.getSourceDatasetCount(), 0);
  EXPECT_FALSE(f2.hasData());
}

TEST(DependentDatasetTest, DeleteDependingDatasetsRecursivelyDeletesDeepestFirst) {
  Dataset a(true);
  fill(a, kSize);
  auto* f1 = new AddDataset("f1");
  auto* f2 = new AddDataset("f2");
  auto* f3 = new AddDataset("f3");
  auto* f4 = new AddDataset("f4");
  auto* f5 = new AddDataset("f5");
  f1->setSourceDataset(&a);
  f4->setSourceDataset(&a);
  f2->setSourceDataset(f1);
  f5->setSourceDataset(f1);
  f3->setSourceDataset(f2);
  destructionLog.clear();
  a.deleteDependingDatasetRecursively(f1);
  EXPECT_EQ(destructionLog.size(), 4u);
  const auto at = [](const std::string& n) {
    return std::find(destructionLog.begin(), destructionLog.end(), n) - destructionLog.begin();
  };
  EXPECT_LT(at("f3"), at("f2"));
  EXPECT_LT(at("f2"), at("f1"));
  EXPECT_LT(at("f5"), at("f1"));
  EXPECT_EQ(at("f4"), 4) << "a sibling subtree is kept";
  EXPECT_TRUE(a.isDependingDataset(f4));
  auto* f6 = new AddDataset("f6");
  f6->setSourceDataset(f4);
  destructionLog.clear();
  a.deleteDependingDatasetsRecursively();
  EXPECT_EQ(destructionLog, (std::vector<std::string>{"f6", "f4"}));
  EXPECT_FALSE(a.areDependingDatasetsExistant());
  EXPECT_TRUE(a.hasData()) << "the dataset itself stays";
  a.deleteDependingDatasetRecursively(nullptr);
}

TEST(DependentDatasetTest, CircularSourcesAreDropped) {
  Dataset a(true);
  fill(a, kSize);
  AddDataset f1, f2, f3;
  f1.setSourceDataset(&f1);
  EXPECT_EQ(f1.getSourceDatasetCount(), 0) << "a dataset cannot be its own source";
  EXPECT_FALSE(f1.isInputValid());
  f1.setSourceDataset(&a);
  f2.setSourceDataset(&f1);
  f3.setSourceDataset(&f2);
  f1.setSourceDatasets({&a, &f3});
  EXPECT_EQ(f1.getSourceDatasets(), (std::vector<Dataset*>{&a})) << "a source computed from the dataset is dropped";
  EXPECT_TRUE(f3.isInputValid());
  f2.changeSourceDataset(&f1, &f3);
  EXPECT_EQ(f2.getSourceDatasetCount(), 0);
  EXPECT_FALSE(f3.isInputValid());
}

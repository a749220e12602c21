#include "dataset/FileReadDataset.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "dataset/TARV1DatasetFileReadModule.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;
using tarv::testing::writeCountingTarv1File;

namespace {

double sampleValue(const DatasetCoordinates& size, const DatasetCoordinates& p) {
  const long i = ((static_cast<long>(p.t) * size.z + p.z) * size.y + p.y) * size.x + p.x;
  return static_cast<double>(i % 65536);
}

// Counts blocks and reports its own destruction.
class CountingModule : public TARV1DatasetFileReadModule {
public:
  CountingModule(int* blockCounter, bool* destroyedFlag) : blocks(blockCounter), destroyed(destroyedFlag) {}
  ~CountingModule() override {
    if (destroyed) *destroyed = true;
  }
  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override {
    if (blocks) ++*blocks;
    return TARV1DatasetFileReadModule::readBlock(dataset, c);
  }
  void close() override {
    if (closeCounter) ++*closeCounter;
    TARV1DatasetFileReadModule::close();
  }
  bool open() override {
    const bool ok = TARV1DatasetFileReadModule::open();
    if (ok && lut) modalityLut.set(0.5, 100.0);
    if (ok && unusableType) elementType = TARV_ELEMENT_TYPE_VOID;
    return ok;
  }
  bool lut = false;
  bool unusableType = false;
  int* closeCounter = nullptr;

private:
  int* blocks;
  bool* destroyed;
};

}  // namespace

TEST(FileReadDatasetTest, AFreshDatasetHasNoModuleAndNoData) {
  FileReadDataset d;
  EXPECT_EQ(d.getTypeName(), "FileReadDataset");
  EXPECT_TRUE(d.isCachedDataset());
  EXPECT_EQ(d.getFileReadModule(), nullptr);
  EXPECT_FALSE(d.hasData());
  EXPECT_TRUE(d.getFileName().empty());
  EXPECT_FALSE(d.openFile("/nonexistent/file.tarv1")) << "expected no file without a module";
  EXPECT_FALSE(d.reshapeCacheForCalculation(DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_FALSE(d.calculateElement(DatasetCoordinates(0, 0, 0, 0, 0)));
  d.closeFile();
  d.resetFileReadModule();
}

TEST(FileReadDatasetTest, OpeningShapesTheDatasetWithoutReadingElements) {
  TemporaryDirectory dir;
  const std::string name = dir.file("shape.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(7, 5, 4, 2, 1), "originZ = -20\nspacingX = 0.25\n");
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingModule(&blocks, nullptr));
  ASSERT_TRUE(d.openFile(name));
  EXPECT_EQ(blocks, 0);
  EXPECT_TRUE(d.hasData());
  EXPECT_EQ(d.getFileName(), name);
  EXPECT_EQ(d.getSize(), DatasetCoordinates(7, 5, 4, 2, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(0, 0, -20, 0));
  EXPECT_EQ(d.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(0.25, 1, 1, 1));
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "expected no range from a file that states none";
  EXPECT_FALSE(d.getModalityLUT().isValid());
  const DatasetCoordinates p(6, 4, 3, 1, 0);
  EXPECT_EQ(d.getElement<double>(p), sampleValue(d.getSize(), p));
  EXPECT_EQ(blocks, 1);
}

TEST(FileReadDatasetTest, AStatedRangeIsValidAtOnceAndStaysValidWhileLoading) {
  TemporaryDirectory dir;
  const std::string name = dir.file("range.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(4, 4, 3, 1, 1), "minimumValue = -5\nmaximumValue = 500\n");
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingModule(&blocks, nullptr));
  ASSERT_TRUE(d.openFile(name));
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(d.getMinimumValue(), -5.0);
  EXPECT_EQ(d.getMaximumValue(), 500.0);
  EXPECT_EQ(blocks, 0) << "expected the range query to read nothing";
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(1, 2, 2, 0, 0)), sampleValue(d.getSize(), DatasetCoordinates(1, 2, 2, 0, 0)));
  EXPECT_EQ(blocks, 1);
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus()) << "expected loading not to mark the range stale";
  EXPECT_EQ(d.getMinimumValue(), -5.0);
  d.calculateFullDataset(nullptr);
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(d.getMaximumValue(), 500.0);
}

TEST(FileReadDatasetTest, TheModalityLutIsTakenFromTheModule) {
  TemporaryDirectory dir;
  const std::string name = dir.file("lut.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(2, 2, 1, 1, 1));
  auto* module = new CountingModule(nullptr, nullptr);
  module->lut = true;
  FileReadDataset d;
  d.setFileReadModule(module);
  ASSERT_TRUE(d.openFile(name));
  EXPECT_TRUE(d.getModalityLUT().isValid());
  EXPECT_EQ(d.getModalityLUT().getSlope(), 0.5);
  EXPECT_EQ(d.getModalityLUT().getIntercept(), 100.0);
}

TEST(FileReadDatasetTest, AModuleDescriptionThatGivesNoDatasetClosesTheModule) {
  TemporaryDirectory dir;
  const std::string name = dir.file("void.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(2, 2, 1, 1, 1));
  auto* module = new CountingModule(nullptr, nullptr);
  module->unusableType = true;
  FileReadDataset d;
  d.setFileReadModule(module);
  EXPECT_FALSE(d.openFile(name));
  EXPECT_FALSE(d.hasData());
  EXPECT_FALSE(module->isFileOpen()) << "expected the module closed again";
}

TEST(FileReadDatasetTest, ARejectedFileFailsToOpen) {
  TemporaryDirectory dir;
  const std::string name = dir.file("rejected.tarv1");
  std::ofstream(name) << "X = 3\n";
  FileReadDataset d;
  d.setFileReadModule(new TARV1DatasetFileReadModule());
  EXPECT_FALSE(d.openFile(name));
  EXPECT_FALSE(d.hasData());
  EXPECT_TRUE(d.getFileName().empty());
  EXPECT_FALSE(d.getFileReadModule()->isFileOpen());
}

TEST(FileReadDatasetTest, SettingANullModuleClosesAndDeletesTheCurrentOne) {
  TemporaryDirectory dir;
  const std::string name = dir.file("null.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(2, 2, 1, 1, 1));
  bool firstDestroyed = false;
  bool secondDestroyed = false;
  int secondCloses = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingModule(nullptr, &firstDestroyed));
  ASSERT_TRUE(d.openFile(name));
  auto* second = new CountingModule(nullptr, &secondDestroyed);
  second->closeCounter = &secondCloses;
  d.setFileReadModule(second);
  EXPECT_TRUE(firstDestroyed) << "expected the replaced module deleted";
  EXPECT_FALSE(secondDestroyed);
  ASSERT_TRUE(d.openFile(name));
  EXPECT_EQ(secondCloses, 0);
  d.setFileReadModule(nullptr);
  EXPECT_EQ(secondCloses, 1) << "expected the open file closed before the module is deleted";
  EXPECT_TRUE(secondDestroyed) << "expected setFileReadModule(nullptr) to delete the module";
  EXPECT_EQ(d.getFileReadModule(), nullptr);
  EXPECT_TRUE(d.getFileName().empty());
}

TEST(FileReadDatasetTest, TheDestructorDeletesTheModule) {
  bool destroyed = false;
  {
    FileReadDataset d;
    d.setFileReadModule(new CountingModule(nullptr, &destroyed));
  }
  EXPECT_TRUE(destroyed);
}

TEST(FileReadDatasetTest, ClosingKeepsShapeAndCachedElements) {
  TemporaryDirectory dir;
  const std::string name = dir.file("keep.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(5, 4, 3, 1, 1));
  FileReadDataset d;
  d.setFileReadModule(new TARV1DatasetFileReadModule());
  ASSERT_TRUE(d.openFile(name));
  const DatasetCoordinates loaded(2, 2, 1, 0, 0);
  const DatasetCoordinates other(2, 2, 2, 0, 0);
  ASSERT_EQ(d.getElement<double>(loaded), sampleValue(d.getSize(), loaded));
  d.closeFile();
  EXPECT_FALSE(d.getFileReadModule()->isFileOpen());
  EXPECT_EQ(d.getSize(), DatasetCoordinates(5, 4, 3, 1, 1)) << "expected the shape kept";
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(4, 3, 1, 0, 0)), sampleValue(d.getSize(), DatasetCoordinates(4, 3, 1, 0, 0)))
      << "expected the loaded slice still readable";
  float value = -1.0f;
  EXPECT_FALSE(d.getElementByBuffer(other, &value)) << "expected no new block from a closed module";
  EXPECT_EQ(value, -1.0f);
  EXPECT_TRUE(d.getElementCacheStatus(loaded)) << "expected the loaded element still cached";
  EXPECT_FALSE(d.calculateElement(other));
  EXPECT_TRUE(d.getFileName().empty());
}

TEST(FileReadDatasetTest, TheCacheIsReshapedToTheWholeBlock) {
  TemporaryDirectory dir;
  const std::string name = dir.file("reshape.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(40, 30, 25, 1, 1));
  FileReadDataset d;
  d.setFileReadModule(new TARV1DatasetFileReadModule());
  ASSERT_TRUE(d.openFile(name));
  ASSERT_TRUE(d.reshapeCacheForCalculation(DatasetCoordinates(3, 4, 12, 0, 0)));
  EXPECT_EQ(d.getCacheRegion(),
            DatasetBoundingBox(DatasetCoordinates(0, 0, 12, 0, 0), DatasetCoordinates(39, 29, 12, 0, 0)))
      << "expected the slice, with no look-ahead margin";
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(39, 29, 12, 0, 0)),
            sampleValue(d.getSize(), DatasetCoordinates(39, 29, 12, 0, 0)));
  // Under minimal ROI enforcement the block is still loaded whole where the cache allows.
  d.setMinimalROIEnforcement(true);
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(0, 0, 20, 0, 0)), sampleValue(d.getSize(), DatasetCoordinates(0, 0, 20, 0, 0)));
}

TEST(FileReadDatasetTest, TheWholeDatasetIsReadOneBlockPerSlice) {
  TemporaryDirectory dir;
  const std::string name = dir.file("full.tarv1");
  const DatasetCoordinates size(9, 8, 6, 3, 1);
  writeCountingTarv1File(name, size);
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingModule(&blocks, nullptr));
  ASSERT_TRUE(d.openFile(name));
  d.calculateFullDataset(nullptr);
  EXPECT_EQ(blocks, 6 * 3) << "expected one block per x-y slice";
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = it;
    ASSERT_EQ(d.getElement<double>(p), sampleValue(size, p)) << "at " << p;
  }
  EXPECT_EQ(blocks, 18) << "expected no block read twice";
}

TEST(FileReadDatasetTest, RowsAreStoredOnlyInsideTheCachedRegion) {
  TemporaryDirectory dir;
  const std::string name = dir.file("rows.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(10, 4, 2, 1, 1));
  FileReadDataset d;
  d.setFileReadModule(new TARV1DatasetFileReadModule());
  ASSERT_TRUE(d.openFile(name));
  ASSERT_TRUE(d.reshapeCache(DatasetBoundingBox(DatasetCoordinates(3, 1, 0, 0, 0), DatasetCoordinates(6, 2, 0, 0, 0))));
  const float row[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  d.setElementReferenceRow(DatasetCoordinates(0, 1, 0, 0, 0), 10, row);
  for (int x = 3; x <= 6; ++x) EXPECT_EQ(d.getElementReference<float>(DatasetCoordinates(x, 1, 0, 0, 0)), row[x]);
  d.setElementReferenceRow(DatasetCoordinates(0, 3, 0, 0, 0), 10, row);    // a row outside: ignored
  d.setElementReferenceRow(DatasetCoordinates(-20, 2, 0, 0, 0), 10, row);  // ends before the region: ignored
  d.setElementReferenceRow(DatasetCoordinates(5, 2, 0, 0, 0), 10, row);    // partly inside
  EXPECT_EQ(d.getElementReference<float>(DatasetCoordinates(5, 2, 0, 0, 0)), 0.0f);
  EXPECT_EQ(d.getElementReference<float>(DatasetCoordinates(6, 2, 0, 0, 0)), 1.0f);
  d.setCachedMinimumAndMaximumValue(0, 1);
  d.setElementReferenceRow(DatasetCoordinates(3, 1, 0, 0, 0), 1, row);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "expected a stored row to mark the range stale";
}

TEST(FileReadDatasetTest, RowsReachPartialComponentRangesAndPackedBoolElements) {
  FileReadDataset d;
  d.newDataset<short>(DatasetCoordinates(4, 2, 1, 1, 3), DatasetWorldEmbedding());
  ASSERT_TRUE(d.reshapeCache(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 1), DatasetCoordinates(3, 1, 0, 0, 2))));
  const short row[12] = {0, 1, 2, 10, 11, 12, 20, 21, 22, 30, 31, 32};
  d.setElementReferenceRow(DatasetCoordinates(0, 1, 0, 0, 0), 4, row);
  for (int x = 0; x < 4; ++x)
    for (int c = 1; c <= 2; ++c)
      EXPECT_EQ(d.getElementReference<int>(DatasetCoordinates(x, 1, 0, 0, c)), 10 * x + c) << "x " << x << " c " << c;

  FileReadDataset mask;
  mask.newDataset<bool>(DatasetCoordinates(10, 1, 1, 1, 1), DatasetWorldEmbedding());
  ASSERT_TRUE(mask.reshapeCacheToFullDataset());
  const unsigned char bits[10] = {1, 0, 0, 1, 1, 0, 1, 0, 0, 1};
  mask.setElementReferenceRow(DatasetCoordinates(0, 0, 0, 0, 0), 10, bits);
  for (int x = 0; x < 10; ++x)
    EXPECT_EQ(mask.getElementReference<bool>(DatasetCoordinates(x, 0, 0, 0, 0)), bits[x] != 0) << "x " << x;
}

#include "dataset/DatasetFileReadModule.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "dataset/FileReadDataset.h"
#include "dataset/TARV1DatasetFileReadModule.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;
using tarv::testing::writeCountingTarv1File;

namespace {

// Records the calls of the module contract and sets a modality LUT when opening.
class RecordingModule : public TARV1DatasetFileReadModule {
public:
  int opens = 0;
  int closes = 0;
  std::string nameSeenByOpen;
  bool open() override {
    ++opens;
    nameSeenByOpen = fileName;
    const bool ok = TARV1DatasetFileReadModule::open();
    if (ok) modalityLut.set(2.0, -1024.0);
    return ok;
  }
  void close() override {
    ++closes;
    TARV1DatasetFileReadModule::close();
  }
};

const DatasetBoundingBox kNoFileBox(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1));

}  // namespace

TEST(DatasetFileReadModuleTest, AFreshModuleDescribesNothing) {
  TARV1DatasetFileReadModule module;
  EXPECT_TRUE(module.getFileName().empty());
  EXPECT_FALSE(module.isFileOpen());
  EXPECT_EQ(module.getSize(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(module.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(module.getWorldEmbedding(), DatasetWorldEmbedding());
  EXPECT_FALSE(module.getModalityLut().isValid());
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(module.getCachedMinimumValue(), 0.0);
  EXPECT_EQ(module.getCachedMaximumValue(), 0.0);
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(0, 0, 0, 0, 0)), kNoFileBox);
}

TEST(DatasetFileReadModuleTest, ARejectedFileLeavesNoNameAndNoOpenFile) {
  TemporaryDirectory dir;
  const std::string name = dir.file("rejected.tarv1");
  std::ofstream(name) << "not a dataset file";
  RecordingModule module;
  EXPECT_FALSE(module.openFile(name));
  EXPECT_EQ(module.opens, 1);
  EXPECT_EQ(module.nameSeenByOpen, name) << "expected the name stored before open() runs";
  EXPECT_TRUE(module.getFileName().empty()) << "expected the name cleared after a rejection";
  EXPECT_FALSE(module.isFileOpen());
  EXPECT_FALSE(module.getModalityLut().isValid());
}

TEST(DatasetFileReadModuleTest, ASecondOpenClosesTheFirstFile) {
  TemporaryDirectory dir;
  const std::string first = dir.file("first.tarv1");
  const std::string second = dir.file("second.tarv1");
  writeCountingTarv1File(first, DatasetCoordinates(3, 2, 1, 1, 1), "minimumValue = 0\nmaximumValue = 5\n");
  writeCountingTarv1File(second, DatasetCoordinates(2, 2, 2, 1, 1));
  RecordingModule module;
  ASSERT_TRUE(module.openFile(first));
  EXPECT_EQ(module.closes, 0);
  EXPECT_TRUE(module.getMinimumAndMaximumValueCacheStatus());
  ASSERT_TRUE(module.openFile(second));
  EXPECT_GE(module.closes, 1) << "expected the first file closed before the second is opened";
  EXPECT_EQ(module.getFileName(), second);
  EXPECT_EQ(module.getSize(), DatasetCoordinates(2, 2, 2, 1, 1));
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus()) << "expected nothing left of the first file's range";
}

TEST(DatasetFileReadModuleTest, CloseFileResetsTheDescriptionButNotTheModalityLut) {
  TemporaryDirectory dir;
  const std::string name = dir.file("close.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(3, 2, 2, 1, 1), "originX = 4\nminimumValue = -1\nmaximumValue = 2\n");
  RecordingModule module;
  ASSERT_TRUE(module.openFile(name));
  EXPECT_TRUE(module.getModalityLut().isValid());
  module.closeFile();
  EXPECT_EQ(module.closes, 1);
  EXPECT_FALSE(module.isFileOpen());
  EXPECT_TRUE(module.getFileName().empty());
  EXPECT_EQ(module.getSize(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(module.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(module.getWorldEmbedding(), DatasetWorldEmbedding()) << "expected the embedding reset";
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(module.getCachedMinimumValue(), 0.0);
  EXPECT_EQ(module.getCachedMaximumValue(), 0.0);
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(1, 1, 1, 0, 0)), kNoFileBox);
  EXPECT_TRUE(module.getModalityLut().isValid()) << "expected the modality LUT left as it was";
  EXPECT_EQ(module.getModalityLut().getSlope(), 2.0);
  module.closeFile();
  EXPECT_EQ(module.closes, 1) << "expected closing a closed module not to reach close()";
}

TEST(DatasetFileReadModuleTest, ReadBlockFromFileMarksTheWholeBlockCached) {
  TemporaryDirectory dir;
  const std::string name = dir.file("block.tarv1");
  writeCountingTarv1File(name, DatasetCoordinates(4, 3, 3, 1, 1));
  FileReadDataset d;
  auto* module = new TARV1DatasetFileReadModule();
  d.setFileReadModule(module);
  ASSERT_TRUE(d.openFile(name));
  d.announceAccessToFullDataset();
  ASSERT_TRUE(module->readBlockFromFile(&d, DatasetCoordinates(2, 1, 1, 0, 0)));
  for (int z = 0; z < 3; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 4; ++x) {
        const DatasetCoordinates p(x, y, z, 0, 0);
        EXPECT_EQ(d.getElementCacheStatus(p), z == 1) << "at " << p;
        if (z == 1) {
          EXPECT_EQ(d.getElementReference<int>(p), 12 + 4 * y + x) << "at " << p;
        }
      }
  EXPECT_FALSE(module->readBlockFromFile(nullptr, DatasetCoordinates(0, 0, 0, 0, 0)));
  module->closeFile();
  EXPECT_FALSE(module->readBlockFromFile(&d, DatasetCoordinates(0, 0, 0, 0, 0))) << "expected no block when closed";
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(0, 0, 0, 0, 0))) << "expected no status change when closed";
}

#include "dataset/TARV1DatasetFileReadModule.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include "dataset/FileReadDataset.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;

namespace {

using SampleFunction = std::function<std::uint16_t(int x, int y, int z, int t)>;

// Writes a TARV1 file by hand: the header lines, padding, then the samples.
void writeTarv1File(const std::string& name, const DatasetCoordinates& size, const std::string& extraLines,
                    bool littleEndian, const SampleFunction& sample) {
  std::ostringstream header;
  header << "X = " << size.x << "\nY = " << size.y << "\nZ = " << size.z << "\nt = " << size.t << "\n"
         << "endian = " << (littleEndian ? "littleendian" : "bigendian") << "\n"
         << extraLines;
  std::string bytes = header.str();
  bytes.resize(2047, ' ');
  bytes += '\r';
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::string slice(2 * static_cast<std::size_t>(size.x) * size.y, '\0');
  for (int t = 0; t < size.t; ++t)
    for (int z = 0; z < size.z; ++z) {
      std::size_t i = 0;
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          const std::uint16_t r = sample(x, y, z, t);
          slice[i++] = static_cast<char>(littleEndian ? r & 0xff : r >> 8);
          slice[i++] = static_cast<char>(littleEndian ? r >> 8 : r & 0xff);
        }
      out.write(slice.data(), static_cast<std::streamsize>(slice.size()));
    }
}

std::uint16_t pattern(int x, int y, int z, int t) { return static_cast<std::uint16_t>(x + 3 * y + 7 * z + 11 * t); }

// Counts the blocks read.
class CountingTARV1Module : public TARV1DatasetFileReadModule {
public:
  explicit CountingTARV1Module(int* counter) : blocks(counter) {}
  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override {
    ++*blocks;
    return TARV1DatasetFileReadModule::readBlock(dataset, c);
  }

private:
  int* blocks;
};

}  // namespace

TEST(TARV1DatasetFileReadModuleTest, OpenDescribesTheFile) {
  TemporaryDirectory dir;
  const std::string name = dir.file("describe.tarv1");
  writeTarv1File(name, DatasetCoordinates(4, 3, 2, 2, 1),
                 "factor = 2\noffset = -3\noriginX = 1\noriginY = 2\noriginZ = 3\nspacingX = 0.5\nspacingZ = 4\n"
                 "minimumValue = -3\nmaximumValue = 40\n",
                 true, pattern);
  TARV1DatasetFileReadModule module;
  ASSERT_TRUE(module.openFile(name));
  EXPECT_TRUE(module.isFileOpen());
  EXPECT_EQ(module.getFileName(), name);
  EXPECT_EQ(module.getSize(), DatasetCoordinates(4, 3, 2, 2, 1));
  EXPECT_EQ(module.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(module.getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(1, 2, 3, 0));
  EXPECT_EQ(module.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(0.5, 1, 4, 1));
  EXPECT_TRUE(module.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(module.getCachedMinimumValue(), -3.0);
  EXPECT_EQ(module.getCachedMaximumValue(), 40.0);
  EXPECT_FALSE(module.getModalityLut().isValid());
}

TEST(TARV1DatasetFileReadModuleTest, HalfARangeIsNoRange) {
  TemporaryDirectory dir;
  const std::string name = dir.file("half.tarv1");
  writeTarv1File(name, DatasetCoordinates(2, 2, 1, 1, 1), "factor = 1\nmaximumValue = 9\n", true, pattern);
  TARV1DatasetFileReadModule module;
  ASSERT_TRUE(module.openFile(name));
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus());
}

TEST(TARV1DatasetFileReadModuleTest, TheBlockIsTheWholeSliceOfTheElement) {
  TemporaryDirectory dir;
  const std::string name = dir.file("box.tarv1");
  writeTarv1File(name, DatasetCoordinates(5, 4, 3, 2, 1), "factor = 1\n", true, pattern);
  TARV1DatasetFileReadModule module;
  const DatasetBoundingBox none(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1));
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(1, 1, 1, 1, 0)), none) << "expected the no-file box";
  ASSERT_TRUE(module.openFile(name));
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(2, 1, 2, 1, 0)),
            DatasetBoundingBox(DatasetCoordinates(0, 0, 2, 1, 0), DatasetCoordinates(4, 3, 2, 1, 0)));
  module.closeFile();
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(2, 1, 2, 1, 0)), none);
}

TEST(TARV1DatasetFileReadModuleTest, ReadsSlicesOfBothByteOrdersThroughTheDataset) {
  TemporaryDirectory dir;
  for (bool little : {true, false}) {
    SCOPED_TRACE(little ? "little endian" : "big endian");
    const std::string name = dir.file(little ? "little.tarv1" : "big.tarv1");
    writeTarv1File(name, DatasetCoordinates(6, 5, 4, 2, 1), "factor = 4\noffset = -2\n", little,
                   [](int x, int y, int z, int t) { return static_cast<std::uint16_t>(1000 * x + 300 * y + 17 * z + 5 * t + 256); });
    FileReadDataset d;
    d.setFileReadModule(new TARV1DatasetFileReadModule());
    ASSERT_TRUE(d.openFile(name));
    for (int t = 0; t < 2; ++t)
      for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 5; ++y)
          for (int x = 0; x < 6; ++x) {
            const double expected = static_cast<float>((1000.0 * x + 300 * y + 17 * z + 5 * t + 256) / 4 - 2);
            ASSERT_EQ(d.getElement<double>(DatasetCoordinates(x, y, z, t, 0)), expected)
                << "at " << DatasetCoordinates(x, y, z, t, 0);
          }
  }
}

TEST(TARV1DatasetFileReadModuleTest, ReadingOneVoxelReadsExactlyOneSliceAndMemoryStaysSmall) {
  TemporaryDirectory dir;
  const std::string name = dir.file("large.tarv1");
  const DatasetCoordinates size(256, 256, 64, 1, 1);
  writeTarv1File(name, size, "factor = 1\n", true, pattern);
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingTARV1Module(&blocks));
  ASSERT_TRUE(d.openFile(name));
  EXPECT_EQ(blocks, 0) << "expected opening to read no block";
  EXPECT_EQ(d.getMemoryUsage(), 0u) << "expected no cache before the first access";

  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(100, 50, 30, 0, 0)), pattern(100, 50, 30, 0));
  EXPECT_EQ(blocks, 1) << "expected exactly one block read for one voxel";
  const unsigned int slice = 256 * 256 * sizeof(float) + 256 * 256 / 8;
  EXPECT_LE(d.getMemoryUsage(), slice) << "expected the cache to hold one slice, not the file";
  EXPECT_LT(d.getMemoryUsage(), std::filesystem::file_size(name) / 16) << "expected far less than the file";

  for (int y = 0; y < 256; y += 5)
    for (int x = 0; x < 256; x += 3)
      ASSERT_EQ(d.getElement<double>(DatasetCoordinates(x, y, 30, 0, 0)), pattern(x, y, 30, 0));
  EXPECT_EQ(blocks, 1) << "expected neighbours in the slice to cost no further reads";

  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(3, 4, 31, 0, 0)), pattern(3, 4, 31, 0));
  EXPECT_EQ(blocks, 2) << "expected another slice to cost one more block";
  EXPECT_LE(d.getMemoryUsage(), 2 * slice);
}

TEST(TARV1DatasetFileReadModuleTest, AFileThatShrinksAfterOpeningFailsBlockReads) {
  TemporaryDirectory dir;
  const std::string name = dir.file("shrink.tarv1");
  writeTarv1File(name, DatasetCoordinates(8, 8, 4, 1, 1), "factor = 1\n", true, pattern);
  FileReadDataset d;
  d.setFileReadModule(new TARV1DatasetFileReadModule());
  ASSERT_TRUE(d.openFile(name));
  std::filesystem::resize_file(name, 2048 + 2 * 8 * 8 * 2);  // slices 2 and 3 are gone
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(1, 1, 1, 0, 0)), pattern(1, 1, 1, 0));
  unsigned char buffer[4] = {0xAB, 0xAB, 0xAB, 0xAB};
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(1, 1, 3, 0, 0), buffer)) << "expected the missing slice to fail";
  EXPECT_EQ(buffer[0], 0xAB) << "expected the buffer untouched";
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(1, 1, 3, 0, 0))) << "expected the element left uncomputed";
}

TEST(TARV1DatasetFileReadModuleTest, ReadBlockRefusesWhatItCannotServe) {
  TemporaryDirectory dir;
  const std::string name = dir.file("refuse.tarv1");
  writeTarv1File(name, DatasetCoordinates(4, 4, 2, 1, 1), "factor = 1\n", true, pattern);
  TARV1DatasetFileReadModule module;
  FileReadDataset d;
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 0, 0, 0))) << "expected no block without a file";
  ASSERT_TRUE(module.openFile(name));
  EXPECT_FALSE(module.readBlock(nullptr, DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 2, 0, 0))) << "expected a slice beyond the file refused";
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, -1, 0, 0)));
}

TEST(TARV1DatasetFileReadModuleTest, RejectedFilesLeaveTheModuleClosed) {
  TemporaryDirectory dir;
  TARV1DatasetFileReadModule module;
  EXPECT_FALSE(module.openFile(dir.file("missing.tarv1")));
  EXPECT_FALSE(module.isFileOpen());
  EXPECT_TRUE(module.getFileName().empty());
  const std::string name = dir.file("bad.tarv1");
  writeTarv1File(name, DatasetCoordinates(4, 4, 2, 1, 1), "factor = 0\n", true, pattern);
  EXPECT_FALSE(module.openFile(name));
  EXPECT_FALSE(module.isFileOpen());
  EXPECT_EQ(module.getSize(), DatasetCoordinates(0, 0, 0, 0, 0)) << "expected no description from a rejected file";
  EXPECT_EQ(module.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
}

TEST(TARV1DatasetFileReadModuleTest, MutatedFilesNeverHarmTheReader) {
  TemporaryDirectory dir;
  const std::string good = dir.file("good.tarv1");
  writeTarv1File(good, DatasetCoordinates(5, 4, 3, 2, 1), "factor = 3\noffset = 2\nminimumValue = 1\nmaximumValue = 9\n",
                 true, pattern);
  std::ifstream in(good, std::ios::binary);
  const std::string original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const unsigned seed = 99;
  std::mt19937 random(seed);
  const std::string name = dir.file("mutated.tarv1");
  int opened = 0;
  for (int round = 0; round < 300; ++round) {
    std::string bytes = original;
    // Change a few header characters to digits, signs, blanks or arbitrary bytes; sometimes cut the file.
    const char alphabet[] = "0123456789-+ =\n\0Xx9";
    const int changes = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < changes; ++i) {
      const std::size_t at = random() % 120;
      bytes[at] = random() % 4 == 0 ? static_cast<char>(random()) : alphabet[random() % (sizeof(alphabet) - 1)];
    }
    if (random() % 5 == 0) bytes.resize(random() % bytes.size());
    std::ofstream(name, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    FileReadDataset d;
    d.setFileReadModule(new TARV1DatasetFileReadModule());
    if (!d.openFile(name)) {
      EXPECT_FALSE(d.hasData()) << "round " << round << " seed " << seed;
      continue;
    }
    ++opened;
    const DatasetCoordinates s = d.getSize();
    const std::uint64_t expectedBytes = 2048 + 2ull * s.x * s.y * s.z * s.t;
    ASSERT_EQ(expectedBytes, bytes.size()) << "expected only exactly sized files accepted, round " << round;
    d.calculateFullDataset(nullptr);
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      ASSERT_TRUE(d.getElementCacheStatus(it)) << "round " << round;
  }
  EXPECT_GT(opened, 0) << "expected some mutations to keep the file valid";
}

#include "dataset/TiffDatasetFileWrite.h"

#include <gtest/gtest.h>

#include <tiffio.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "dataset/FileReadDataset.h"
#include "dataset/TiffFileReadModule.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;

namespace {

// The standard output of a command, or nothing when it cannot be run.
std::string commandOutput(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  std::array<char, 4096> buffer;
  std::size_t n = 0;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) output.append(buffer.data(), n);
  pclose(pipe);
  return output;
}

bool toolAvailable(const std::string& tool) { return std::system(("command -v " + tool + " > /dev/null 2>&1").c_str()) == 0; }

// Fills a dataset with random values that its element type holds exactly.
void fillRandomly(Dataset& d, std::mt19937& random) {
  const TARVElementType type = d.getElementType();
  const bool isUnsigned = type == TARV_ELEMENT_TYPE_BOOL || type == TARV_ELEMENT_TYPE_UNSIGNED_CHAR ||
                          type == TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT || type == TARV_ELEMENT_TYPE_UNSIGNED_INT;
  std::uniform_int_distribution<int> value(isUnsigned ? 0 : -128, type == TARV_ELEMENT_TYPE_BOOL ? 1 : 127);
  std::uniform_real_distribution<double> real(-1000.0, 1000.0);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, type == TARV_ELEMENT_TYPE_FLOAT ? real(random) : value(random));
}

// Reads every element of a file through a file-backed dataset and compares it with the source.
void expectSameElements(Dataset& source, const std::string& name, TARVElementType expectedType) {
  FileReadDataset back;
  back.setFileReadModule(new TiffFileReadModule());
  ::testing::internal::CaptureStderr();
  const bool opened = back.openFile(name);
  ::testing::internal::GetCapturedStderr();
  ASSERT_TRUE(opened) << "expected the written file to open";
  EXPECT_EQ(back.getElementType(), expectedType);
  const DatasetCoordinates size = source.getSize();
  EXPECT_EQ(back.getSize(), DatasetCoordinates(size.x, size.y, size.z, 1, size.c));
  for (auto it = source.getStartCoordinatesIterator(); it.valid; source.incrementCoordinatesIterator(it)) {
    if (it.t != 0) continue;
    const DatasetCoordinates p = it;
    ASSERT_EQ(back.getElement<double>(p), source.getElement<double>(p)) << "at " << p;
  }
}

const TARVElementType kWritableTypes[] = {TARV_ELEMENT_TYPE_BOOL,           TARV_ELEMENT_TYPE_SIGNED_CHAR,
                                          TARV_ELEMENT_TYPE_UNSIGNED_CHAR,  TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
                                          TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
                                          TARV_ELEMENT_TYPE_UNSIGNED_INT,   TARV_ELEMENT_TYPE_FLOAT};

}  // namespace

TEST(TiffDatasetFileWriteTest, RoundTripsEveryWritableTypeOnAVolumeThatIsNoMultipleOfThePageSize) {
  TemporaryDirectory dir;
  const unsigned seed = 777;
  std::mt19937 random(seed);
  for (TARVElementType type : kWritableTypes) {
    SCOPED_TRACE(::testing::Message() << "element type " << type << ", seed " << seed);
    Dataset d(true);
    d.newDataset(DatasetCoordinates(100, 70, 3, 1, 1), type, DatasetWorldEmbedding());
    fillRandomly(d, random);
    TiffDatasetFileWrite writer;
    writer.fileName = dir.file("volume.tif");
    writer.write(&d);
    expectSameElements(d, writer.fileName, type == TARV_ELEMENT_TYPE_BOOL ? TARV_ELEMENT_TYPE_UNSIGNED_CHAR : type);
  }
}

TEST(TiffDatasetFileWriteTest, RoundTripsOneToFourComponents) {
  TemporaryDirectory dir;
  std::mt19937 random(31);
  for (int components = 1; components <= 4; ++components) {
    SCOPED_TRACE(::testing::Message() << components << " components");
    Dataset d(true);
    d.newDataset<unsigned short>(DatasetCoordinates(70, 65, 2, 1, components), DatasetWorldEmbedding());
    fillRandomly(d, random);
    TiffDatasetFileWrite writer;
    writer.fileName = dir.file("components.tif");
    writer.write(&d);
    expectSameElements(d, writer.fileName, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  }
}

TEST(TiffDatasetFileWriteTest, AnIndependentReaderSeesTheTags) {
  if (!toolAvailable("tiffinfo") || !toolAvailable("tiffdump")) GTEST_SKIP() << "tiffinfo or tiffdump not installed";
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<short>(DatasetCoordinates(100, 70, 3, 1, 1), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, it.x - it.y);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("tags.tif");
  writer.write(&d);
  const std::string info = commandOutput("tiffinfo " + writer.fileName + " 2>&1");
  EXPECT_NE(info.find("Image Width: 100 Image Length: 70 Image Depth: 3"), std::string::npos) << info;
  EXPECT_NE(info.find("Tile Width: 64 Tile Length: 64 Tile Depth: 1"), std::string::npos) << info;
  EXPECT_NE(info.find("Bits/Sample: 16"), std::string::npos) << info;
  EXPECT_NE(info.find("Sample Format: signed integer"), std::string::npos) << info;
  EXPECT_NE(info.find("Compression Scheme: LZW"), std::string::npos) << info;
  EXPECT_NE(info.find("Photometric Interpretation: min-is-black"), std::string::npos) << info;
  const std::string dump = commandOutput("tiffdump " + writer.fileName + " 2>&1");
  EXPECT_NE(dump.find("ImageDepth"), std::string::npos) << dump;
  EXPECT_NE(dump.find("(32997) LONG (4) 1<3>"), std::string::npos) << "expected ImageDepth 3\n" << dump;
  EXPECT_NE(dump.find("(32998) LONG (4) 1<1>"), std::string::npos) << "expected TileDepth 1\n" << dump;
  EXPECT_NE(dump.find("SampleFormat (339) SHORT (3) 1<2>"), std::string::npos) << dump;
  EXPECT_NE(dump.find("BitsPerSample (258) SHORT (3) 1<16>"), std::string::npos) << dump;
  EXPECT_NE(dump.find("Compression (259) SHORT (3) 1<5>"), std::string::npos) << dump;
  EXPECT_NE(dump.find("TileOffsets (324) LONG (4) 12<"), std::string::npos) << "expected 12 tiles\n" << dump;
  EXPECT_EQ(dump.find("MinSampleValue"), std::string::npos) << "expected no value range written";
  EXPECT_EQ(dump.find("Resolution"), std::string::npos) << "expected no resolution written";
}

TEST(TiffDatasetFileWriteTest, A2DImageHasImageDepthOneAndNoTileDepth) {
  if (!toolAvailable("tiffdump")) GTEST_SKIP() << "tiffdump not installed";
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<float>(DatasetCoordinates(20, 10, 1, 1, 1), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, 0.5 * it.x);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("flat.tif");
  writer.write(&d);
  const std::string dump = commandOutput("tiffdump " + writer.fileName + " 2>&1");
  EXPECT_NE(dump.find("(32997) LONG (4) 1<1>"), std::string::npos) << "expected ImageDepth written as 1\n" << dump;
  EXPECT_EQ(dump.find("(32998)"), std::string::npos) << "expected no TileDepth for one slice\n" << dump;
  EXPECT_NE(dump.find("SampleFormat (339) SHORT (3) 1<3>"), std::string::npos) << dump;
  EXPECT_NE(dump.find("BitsPerSample (258) SHORT (3) 1<32>"), std::string::npos) << dump;
  expectSameElements(d, writer.fileName, TARV_ELEMENT_TYPE_FLOAT);
}

TEST(TiffDatasetFileWriteTest, RGBAndAlphaAreTaggedAsSuch) {
  if (!toolAvailable("tiffinfo")) GTEST_SKIP() << "tiffinfo not installed";
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(8, 8, 1, 1, 4), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, 10 * it.c + it.x);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("rgba.tif");
  writer.write(&d);
  const std::string info = commandOutput("tiffinfo " + writer.fileName + " 2>&1");
  EXPECT_NE(info.find("Photometric Interpretation: RGB color"), std::string::npos) << info;
  EXPECT_NE(info.find("Samples/Pixel: 4"), std::string::npos) << info;
  EXPECT_NE(info.find("Extra Samples: 1<unassoc-alpha>"), std::string::npos) << info;
  EXPECT_NE(info.find("Planar Configuration: single image plane"), std::string::npos) << info;
}

TEST(TiffDatasetFileWriteTest, DoubleDatasetsCannotBeWritten) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<double>(DatasetCoordinates(10, 10, 2, 1, 1), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, 1.0);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("double.tif");
  ::testing::internal::CaptureStderr();
  writer.write(&d);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "write() -- error writing file header.\n");
  FileReadDataset back;
  back.setFileReadModule(new TiffFileReadModule());
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(back.openFile(writer.fileName)) << "expected the incomplete file not to open as a dataset";
  ::testing::internal::GetCapturedStderr();
}

TEST(TiffDatasetFileWriteTest, FiveComponentsCannotBeWritten) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(4, 4, 1, 1, 5), DatasetWorldEmbedding());
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("five.tif");
  ::testing::internal::CaptureStderr();
  writer.write(&d);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "write() -- error writing file header.\n");
}

TEST(TiffDatasetFileWriteTest, NothingIsWrittenWithoutData) {
  TemporaryDirectory dir;
  Dataset d(true);
  TiffDatasetFileWrite writer;
  EXPECT_TRUE(writer.fileName.empty());
  writer.fileName = dir.file("nothing.tif");
  writer.write(&d);
  writer.write(nullptr);
  EXPECT_FALSE(std::filesystem::exists(writer.fileName));
  d.newDataset<unsigned char>(DatasetCoordinates(4, 4, 1, 1, 1), DatasetWorldEmbedding());
  writer.fileName = dir.file("no/such/directory/file.tif");
  ::testing::internal::CaptureStderr();
  writer.write(&d);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << "expected an unopenable file to fail silently";
}

TEST(TiffDatasetFileWriteTest, OnlyTheFirstTimePointIsStored) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(5, 4, 2, 3, 1), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, it.x + 10 * it.t);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("fourd.tif");
  writer.write(&d);
  expectSameElements(d, writer.fileName, TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
}

// ---------------------------------------------------------------------------------------------
// A plain in-memory dataset gives the rows of each page straight from its memory; a subclass that
// overrides the element access is read element by element. The files must be byte for byte alike.

namespace {

class ElementAccessDataset : public Dataset {
public:
  ElementAccessDataset() : Dataset(true) {}
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    return Dataset::getElementByBuffer(p, buffer);
  }
};

std::vector<char> fileBytes(const std::string& name) {
  std::vector<char> bytes;
  FILE* f = std::fopen(name.c_str(), "rb");
  if (f == nullptr) return bytes;
  std::array<char, 65536> buffer;
  std::size_t n = 0;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) bytes.insert(bytes.end(), buffer.data(), buffer.data() + n);
  std::fclose(f);
  return bytes;
}

}  // namespace

TEST(TiffDatasetFileWriteRowTest, RowsFromMemoryWriteTheSameFileAsElementReads) {
  TemporaryDirectory directory;
  const TARVElementType types[] = {TARV_ELEMENT_TYPE_BOOL, TARV_ELEMENT_TYPE_SIGNED_CHAR, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT,
                                   TARV_ELEMENT_TYPE_SIGNED_INT, TARV_ELEMENT_TYPE_FLOAT};
  for (unsigned seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    const DatasetCoordinates size(any(1, 150), any(1, 140), any(1, 3), any(1, 2), any(1, 4));
    Dataset plain(true);
    plain.newDataset(size, types[(seed - 1) % 5], DatasetWorldEmbedding());
    fillRandomly(plain, random);
    ElementAccessDataset elements;
    elements.copyFrom(&plain);
    TiffDatasetFileWrite writer;
    writer.fileName = directory.file("rows.tif");
    writer.write(&plain);
    writer.fileName = directory.file("elements.tif");
    writer.write(&elements);
    const std::vector<char> a = fileBytes(directory.file("rows.tif"));
    EXPECT_FALSE(a.empty());
    EXPECT_TRUE(a == fileBytes(directory.file("elements.tif")));
  }
}

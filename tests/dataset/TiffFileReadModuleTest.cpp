#include "dataset/TiffFileReadModule.h"

#include <gtest/gtest.h>

#include <tiffio.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "dataset/FileReadDataset.h"
#include "dataset/TiffDatasetFileWrite.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;

namespace {

// The tags of a TIFF file written directly with libtiff; every page holds the bytes of `page`
// (repeated) unless only the first tile is to be written.
struct TiffTags {
  std::uint32_t width = 40;
  std::uint32_t length = 30;
  std::optional<std::uint32_t> depth;
  std::uint16_t samplesPerPixel = 1;
  std::uint16_t bitsPerSample = 8;
  std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  std::vector<std::uint16_t> extraSamples;
  std::optional<std::uint16_t> planar;
  bool tiled = true;
  std::uint32_t tileWidth = 16;
  std::uint32_t tileLength = 16;
  std::optional<std::uint32_t> tileDepth;
  std::uint32_t rowsPerStrip = 8;
  std::optional<std::uint16_t> minSample, maxSample;
  bool onlyFirstTile = false;
  bool noTiles = false;
  std::vector<unsigned char> page;
};

bool writeTiff(const std::string& name, const TiffTags& tags) {
  TIFF* tiff = TIFFOpen(name.c_str(), "w");
  if (tiff == nullptr) return false;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, tags.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, tags.length);
  if (tags.depth) TIFFSetField(tiff, TIFFTAG_IMAGEDEPTH, *tags.depth);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, tags.samplesPerPixel);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, tags.bitsPerSample);
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, tags.sampleFormat);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, tags.photometric);
  if (!tags.extraSamples.empty())
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(tags.extraSamples.size()), tags.extraSamples.data());
  if (tags.planar) TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, *tags.planar);
  if (tags.minSample) TIFFSetField(tiff, TIFFTAG_MINSAMPLEVALUE, *tags.minSample);
  if (tags.maxSample) TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, *tags.maxSample);
  if (tags.tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, tags.tileWidth);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, tags.tileLength);
    if (tags.tileDepth) TIFFSetField(tiff, TIFFTAG_TILEDEPTH, *tags.tileDepth);
    if (tags.noTiles) {
      TIFFWriteDirectory(tiff);
    } else {
      std::vector<unsigned char> page(static_cast<std::size_t>(TIFFTileSize(tiff)));
      for (std::size_t i = 0; i < page.size(); ++i)
        page[i] = tags.page.empty() ? static_cast<unsigned char>(i) : tags.page[i % tags.page.size()];
      const std::uint32_t tiles = tags.onlyFirstTile ? 1 : TIFFNumberOfTiles(tiff);
      for (std::uint32_t tile = 0; tile < tiles; ++tile)
        TIFFWriteEncodedTile(tiff, tile, page.data(), static_cast<tmsize_t>(page.size()));
    }
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, tags.rowsPerStrip);
    std::vector<unsigned char> strip(static_cast<std::size_t>(TIFFStripSize(tiff)), 5);
    for (std::uint32_t s = 0; s < TIFFNumberOfStrips(tiff); ++s)
      TIFFWriteEncodedStrip(tiff, s, strip.data(), static_cast<tmsize_t>(strip.size()));
  }
  TIFFClose(tiff);
  return true;
}

// Counts the blocks read.
class CountingTiffModule : public TiffFileReadModule {
public:
  explicit CountingTiffModule(int* counter) : blocks(counter) {}
  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override {
    ++*blocks;
    return TiffFileReadModule::readBlock(dataset, c);
  }

private:
  int* blocks;
};

// Opens a file in a file-backed dataset, returning what was printed.
std::string openQuietly(FileReadDataset& d, const std::string& name, bool& opened) {
  ::testing::internal::CaptureStderr();
  opened = d.openFile(name);
  return ::testing::internal::GetCapturedStderr();
}

class TiffFileReadModuleTest : public ::testing::Test {
protected:
  void SetUp() override {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
  }

  // A volume with known values written by the library's own writer.
  std::string writeVolume(const std::string& fileName, const DatasetCoordinates& size, TARVElementType type) {
    Dataset d(true);
    d.newDataset(size, type, DatasetWorldEmbedding());
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      d.setElement<int>(it, valueAt(it));
    TiffDatasetFileWrite writer;
    writer.fileName = dir.file(fileName);
    writer.write(&d);
    return writer.fileName;
  }
  static int valueAt(const DatasetCoordinates& p) { return (p.x + 2 * p.y + 5 * p.z + 3 * p.c) % 100; }

  TemporaryDirectory dir;
};

const DatasetBoundingBox kNoFileBox(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1));

}  // namespace

TEST_F(TiffFileReadModuleTest, OpeningReportsAndDescribesTheFile) {
  const std::string name = writeVolume("describe.tif", DatasetCoordinates(100, 70, 3, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  TiffFileReadModule module;
  EXPECT_FALSE(module.getReadAsSegmentation());
  EXPECT_FALSE(module.getIsSegmentation());
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(0, 0, 0, 0, 0)), kNoFileBox);
  ::testing::internal::CaptureStderr();
  ASSERT_TRUE(module.openFile(name));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Tiff file open\nTiff file header OK\n");
  EXPECT_EQ(module.getSize(), DatasetCoordinates(100, 70, 3, 1, 1));
  EXPECT_EQ(module.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(module.getWorldEmbedding(), DatasetWorldEmbedding()) << "expected no geometry from this format";
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus()) << "expected no range without range tags";
  EXPECT_FALSE(module.getIsSegmentation());
}

TEST_F(TiffFileReadModuleTest, TheReadBoxIsThePageClippedToTheImage) {
  const std::string name = writeVolume("box.tif", DatasetCoordinates(100, 70, 3, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  TiffFileReadModule module;
  ::testing::internal::CaptureStderr();
  ASSERT_TRUE(module.openFile(name));
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(99, 69, 2, 0, 0)),
            DatasetBoundingBox(DatasetCoordinates(64, 64, 2, 0, 0), DatasetCoordinates(99, 69, 2, 0, 0)));
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(10, 20, 1, 0, 0)),
            DatasetBoundingBox(DatasetCoordinates(0, 0, 1, 0, 0), DatasetCoordinates(63, 63, 1, 0, 0)));
  module.closeFile();
  EXPECT_EQ(module.getReadBlockBox(DatasetCoordinates(99, 69, 2, 0, 0)), kNoFileBox);
}

TEST_F(TiffFileReadModuleTest, ReadingOneVoxelReadsExactlyOneTileAndMemoryStaysSmall) {
  const DatasetCoordinates size(256, 256, 8, 1, 1);
  const std::string name = writeVolume("large.tif", size, TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingTiffModule(&blocks));
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  EXPECT_EQ(blocks, 0);
  const DatasetCoordinates p(130, 70, 5, 0, 0);
  EXPECT_EQ(d.getElement<int>(p), valueAt(p));
  EXPECT_EQ(blocks, 1) << "expected exactly one tile read for one voxel";
  EXPECT_LE(d.getMemoryUsage(), 64u * 64u + 64u * 64u / 8u) << "expected the cache to hold one page";
  for (int y = 64; y < 128; ++y)
    for (int x = 128; x < 192; ++x) ASSERT_EQ(d.getElement<int>(DatasetCoordinates(x, y, 5, 0, 0)), valueAt(DatasetCoordinates(x, y, 5, 0, 0)));
  EXPECT_EQ(blocks, 1) << "expected the rest of the page to cost no further reads";
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 0);
  EXPECT_EQ(blocks, 2);
}

TEST_F(TiffFileReadModuleTest, BoolDatasetsReadBackAsUnsignedCharOrAsSegmentation) {
  Dataset source(true);
  source.newDataset<bool>(DatasetCoordinates(30, 20, 2, 1, 1), DatasetWorldEmbedding());
  for (auto it = source.getStartCoordinatesIterator(); it.valid; source.incrementCoordinatesIterator(it))
    source.setElement<bool>(it, (it.x + it.y + it.z) % 3 == 0);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("bool.tif");
  writer.write(&source);

  FileReadDataset plain;
  plain.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  openQuietly(plain, writer.fileName, opened);
  ASSERT_TRUE(opened);
  EXPECT_EQ(plain.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);

  auto* module = new TiffFileReadModule();
  module->setReadAsSegmentation(true);
  EXPECT_TRUE(module->getReadAsSegmentation());
  FileReadDataset segmentation;
  segmentation.setFileReadModule(module);
  openQuietly(segmentation, writer.fileName, opened);
  ASSERT_TRUE(opened);
  EXPECT_TRUE(module->getIsSegmentation());
  EXPECT_EQ(segmentation.getElementType(), TARV_ELEMENT_TYPE_BOOL);
  EXPECT_TRUE(segmentation.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(segmentation.getMinimumValue(), 0.0);
  EXPECT_EQ(segmentation.getMaximumValue(), 1.0);
  for (auto it = source.getStartCoordinatesIterator(); it.valid; source.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = it;
    ASSERT_EQ(plain.getElement<int>(p), source.getElement<bool>(p) ? 1 : 0) << "at " << p;
    ASSERT_EQ(segmentation.getElement<bool>(p), source.getElement<bool>(p)) << "at " << p;
  }
}

TEST_F(TiffFileReadModuleTest, SegmentationConvertsEverySampleLikeTheElementConversion) {
  const float samples[] = {0.0f, 0.5f, -0.0f, std::numeric_limits<float>::quiet_NaN(), -3.0f, 1e-30f, 0.0f, 2.0f};
  TiffTags tags;
  tags.width = 16;
  tags.length = 16;
  tags.bitsPerSample = 32;
  tags.sampleFormat = SAMPLEFORMAT_IEEEFP;
  tags.page.resize(sizeof(samples));
  std::memcpy(tags.page.data(), samples, sizeof(samples));
  const std::string name = dir.file("floats.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  auto* module = new TiffFileReadModule();
  module->setReadAsSegmentation(true);
  FileReadDataset d;
  d.setFileReadModule(module);
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  for (int x = 0; x < 16; ++x) {
    bool expected = false;
    const float sample = samples[x % 8];
    expected = DatasetMemory::getBufferValue<bool>(&sample, TARV_ELEMENT_TYPE_FLOAT);
    EXPECT_EQ(d.getElement<bool>(DatasetCoordinates(x, 3, 0, 0, 0)), expected) << "sample " << sample;
  }
  EXPECT_TRUE(d.getElement<bool>(DatasetCoordinates(3, 0, 0, 0, 0))) << "expected NaN to be true";
  EXPECT_FALSE(d.getElement<bool>(DatasetCoordinates(2, 0, 0, 0, 0))) << "expected -0 to be false";
}

TEST_F(TiffFileReadModuleTest, RangeTagsGiveAValidRangeAndNoTagsLeaveItUntouched) {
  TiffTags tags;
  tags.minSample = 2;
  tags.maxSample = 250;
  const std::string name = dir.file("range.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  int blocks = 0;
  FileReadDataset d;
  d.setFileReadModule(new CountingTiffModule(&blocks));
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(d.getMinimumValue(), 2.0);
  EXPECT_EQ(d.getMaximumValue(), 250.0);
  EXPECT_EQ(blocks, 0);
  d.getElement<int>(DatasetCoordinates(1, 1, 0, 0, 0));
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus()) << "expected loading to keep the range valid";

  const std::string plainName = writeVolume("plain.tif", DatasetCoordinates(20, 20, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  TiffFileReadModule module;
  ::testing::internal::CaptureStderr();
  ASSERT_TRUE(module.openFile(plainName));
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(module.getMinimumAndMaximumValueCacheStatus()) << "expected the module's range left as it was";
  FileReadDataset other;
  other.setFileReadModule(new TiffFileReadModule());
  openQuietly(other, plainName, opened);
  ASSERT_TRUE(opened);
  EXPECT_FALSE(other.getMinimumAndMaximumValueCacheStatus());
}

TEST_F(TiffFileReadModuleTest, Stripped2DFilesOpenButYieldNoBlocks) {
  TiffTags tags;
  tags.tiled = false;
  tags.rowsPerStrip = 10;
  const std::string name = dir.file("strips.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  EXPECT_EQ(openQuietly(d, name, opened), "Tiff file open\nTiff file header OK\n");
  ASSERT_TRUE(opened);
  EXPECT_EQ(d.getFileReadModule()->getReadBlockBox(DatasetCoordinates(5, 15, 0, 0, 0)),
            DatasetBoundingBox(DatasetCoordinates(0, 10, 0, 0, 0), DatasetCoordinates(39, 19, 0, 0, 0)));
  unsigned char value = 77;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(5, 15, 0, 0, 0), &value));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "tarv::TiffFileReadModule::readBlock() : Stripped page mode not implemented yet.\n");
  EXPECT_EQ(value, 77);

  tags.depth = 4;
  ASSERT_TRUE(writeTiff(name, tags));
  FileReadDataset volume;
  volume.setFileReadModule(new TiffFileReadModule());
  EXPECT_EQ(openQuietly(volume, name, opened), "Tiff file open\n");
  EXPECT_FALSE(opened) << "expected a stripped volume not to open";
  EXPECT_FALSE(volume.hasData());
}

TEST_F(TiffFileReadModuleTest, RGBWithUnassociatedAlphaReadsAsFourComponents) {
  TiffTags tags;
  tags.width = 20;
  tags.length = 18;
  tags.samplesPerPixel = 4;
  tags.photometric = PHOTOMETRIC_RGB;
  tags.planar = PLANARCONFIG_CONTIG;
  tags.extraSamples = {EXTRASAMPLE_UNASSALPHA};
  const std::string name = dir.file("rgba.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  EXPECT_EQ(openQuietly(d, name, opened), "Tiff file open\nExtrasamples: 1\nTiff file header OK\n");
  ASSERT_TRUE(opened);
  EXPECT_EQ(d.getSize(), DatasetCoordinates(20, 18, 1, 1, 4));
  // Tile bytes count up from 0: the sample of voxel (x, y), component c, is byte (y * 16 + x) * 4 + c.
  for (int c = 0; c < 4; ++c)
    EXPECT_EQ(d.getElement<int>(DatasetCoordinates(5, 2, 0, 0, c)), ((2 * 16 + 5) * 4 + c) % 256) << "component " << c;
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(17, 17, 0, 0, 3)), ((1 * 16 + 1) * 4 + 3) % 256);
}

TEST_F(TiffFileReadModuleTest, SeparatePlanesFailThroughTheTileErrorReport) {
  TiffTags tags;
  tags.width = 16;
  tags.length = 16;
  tags.samplesPerPixel = 3;
  tags.photometric = PHOTOMETRIC_RGB;
  tags.planar = PLANARCONFIG_SEPARATE;
  const std::string name = dir.file("planes.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  unsigned char value = 0;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(1, 1, 0, 0, 0), &value));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "tarv::TiffFileReadModule::readBlock() : TIFFReadTile error\n"
            "tile: (0, 0, 0, 0, 0) (15, 15, 0, 0, 0)\n"
            "file: " + name + "\n");
}

TEST_F(TiffFileReadModuleTest, AMissingTileFailsOnlyItsOwnBlocks) {
  TiffTags tags;
  tags.onlyFirstTile = true;
  const std::string name = dir.file("missing.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(3, 2, 0, 0, 0)), 2 * 16 + 3);
  unsigned char value = 99;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(d.getElementByBuffer(DatasetCoordinates(20, 2, 0, 0, 0), &value));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "tarv::TiffFileReadModule::readBlock() : TIFFReadTile error\n"
            "tile: (16, 0, 0, 0, 0) (31, 15, 0, 0, 0)\n"
            "file: " + name + "\n");
  EXPECT_EQ(value, 99);
  EXPECT_FALSE(d.getElementCacheStatus(DatasetCoordinates(20, 2, 0, 0, 0)));
}

TEST_F(TiffFileReadModuleTest, UnusableFilesDoNotOpen) {
  TiffFileReadModule module;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(module.openFile(dir.file("missing.tif")));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << "expected nothing printed for an unopenable file";
  EXPECT_TRUE(module.getFileName().empty());

  const std::string name = dir.file("unusable.tif");
  std::ofstream(name) << "this is not a TIFF file at all";
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(module.openFile(name));
  ::testing::internal::GetCapturedStderr();
  std::ofstream(name, std::ios::trunc).close();
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(module.openFile(name)) << "expected an empty file refused";
  ::testing::internal::GetCapturedStderr();

  TiffTags wide;
  wide.bitsPerSample = 64;
  wide.sampleFormat = SAMPLEFORMAT_IEEEFP;
  ASSERT_TRUE(writeTiff(name, wide));
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(module.openFile(name)) << "expected 64-bit samples refused";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Tiff file open\n");

  TiffTags deep;
  deep.depth = 20;
  deep.tileDepth = 16;
  ASSERT_TRUE(writeTiff(name, deep));
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(module.openFile(name)) << "expected tiles deeper than one slice refused";
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(module.isFileOpen());
}

TEST_F(TiffFileReadModuleTest, PagesTooLargeForTheFileAreRefusedBeforeAnyBuffer) {
  TiffTags tags;
  tags.width = 100;
  tags.length = 100;
  tags.tileWidth = 65536;
  tags.tileLength = 16384;
  tags.noTiles = true;
  const std::string name = dir.file("hugetile.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_LT(std::filesystem::file_size(name), 4096u);
  TiffFileReadModule module;
  ::testing::internal::CaptureStderr();
  const bool opened = module.openFile(name);
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(opened) << "expected a 1 GiB page in a tiny file refused";
  EXPECT_EQ(printed.find("Tiff file header OK"), std::string::npos);
}

TEST_F(TiffFileReadModuleTest, ReadBlockRefusesWhatItCannotServe) {
  const std::string name = writeVolume("refuse.tif", DatasetCoordinates(20, 20, 2, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  TiffFileReadModule module;
  FileReadDataset d;
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 0, 0, 0))) << "expected no block without a file";
  ::testing::internal::CaptureStderr();
  ASSERT_TRUE(module.openFile(name));
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(module.readBlock(nullptr, DatasetCoordinates(0, 0, 0, 0, 0)));
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(20, 0, 0, 0, 0))) << "expected coordinates outside refused";
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 2, 0, 0)));
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 0, 1, 0)));
  EXPECT_FALSE(module.readBlock(&d, DatasetCoordinates(0, 0, 0, 0, 0))) << "expected a dataset of another shape refused";
}

TEST_F(TiffFileReadModuleTest, ADatasetOfAnotherElementTypeReceivesConvertedValues) {
  const DatasetCoordinates size(30, 20, 2, 1, 1);
  const std::string name = writeVolume("convert.tif", size, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  openQuietly(d, name, opened);
  ASSERT_TRUE(opened);
  d.newDataset<double>(size, DatasetWorldEmbedding());
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x)
      ASSERT_EQ(d.getElement<double>(DatasetCoordinates(x, y, 1, 0, 0)), valueAt(DatasetCoordinates(x, y, 1, 0, 0)));
}

TEST_F(TiffFileReadModuleTest, ASecondOpenReplacesTheFirstFile) {
  const std::string first = writeVolume("first.tif", DatasetCoordinates(20, 20, 2, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  const std::string second = writeVolume("second.tif", DatasetCoordinates(10, 5, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT);
  FileReadDataset d;
  d.setFileReadModule(new TiffFileReadModule());
  bool opened = false;
  openQuietly(d, first, opened);
  ASSERT_TRUE(opened);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(3, 3, 1, 0, 0)), valueAt(DatasetCoordinates(3, 3, 1, 0, 0)));
  openQuietly(d, second, opened);
  ASSERT_TRUE(opened);
  EXPECT_EQ(d.getFileName(), second);
  EXPECT_EQ(d.getSize(), DatasetCoordinates(10, 5, 1, 1, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(9, 4, 0, 0, 0)), valueAt(DatasetCoordinates(9, 4, 0, 0, 0)));
}

TEST_F(TiffFileReadModuleTest, TruncatedAndMutatedFilesNeverHarmTheReader) {
  const DatasetCoordinates size(70, 40, 3, 1, 2);
  const std::string good = writeVolume("good.tif", size, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  std::ifstream in(good, std::ios::binary);
  const std::string original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_GT(original.size(), 200u);
  // Where each tile's bytes lie, and which tile holds each page origin.
  struct Tile {
    DatasetCoordinates origin;
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
  };
  std::vector<Tile> tiles;
  {
    TIFF* tiff = TIFFOpen(good.c_str(), "r");
    ASSERT_NE(tiff, nullptr);
    std::uint64_t* offsets = nullptr;
    std::uint64_t* counts = nullptr;
    ASSERT_EQ(TIFFGetField(tiff, TIFFTAG_TILEOFFSETS, &offsets), 1);
    ASSERT_EQ(TIFFGetField(tiff, TIFFTAG_TILEBYTECOUNTS, &counts), 1);
    for (int z = 0; z < size.z; ++z)
      for (int y = 0; y < size.y; y += 64)
        for (int x = 0; x < size.x; x += 64) {
          const std::uint32_t index = TIFFComputeTile(tiff, x, y, z, 0);
          tiles.push_back(Tile{DatasetCoordinates(x, y, z, 0, 0), offsets[index], counts[index]});
        }
    TIFFClose(tiff);
  }
  const unsigned seed = 2024;
  std::mt19937 random(seed);
  const std::string name = dir.file("mutated.tif");
  int opened = 0;
  int refused = 0;
  int checkedTiles = 0;
  for (int round = 0; round < 250; ++round) {
    std::string bytes = original;
    std::vector<std::size_t> changed;
    if (round % 3 == 0) {
      bytes.resize(random() % bytes.size());
    } else {
      // The directory sits at the end of the file: hit it as often as the tile data.
      const int changes = 1 + static_cast<int>(random() % 6);
      for (int i = 0; i < changes; ++i) {
        const std::size_t at = random() % 2 == 0 ? bytes.size() - 1 - random() % 200 : random() % bytes.size();
        const char before = bytes[at];
        bytes[at] = static_cast<char>(random());
        if (bytes[at] != before) changed.push_back(at);
      }
    }
    std::ofstream(name, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    FileReadDataset d;
    d.setFileReadModule(new TiffFileReadModule());
    ::testing::internal::CaptureStderr();
    const bool ok = d.openFile(name);
    if (ok) {
      ++opened;
      EXPECT_TRUE(d.hasData()) << "round " << round << " seed " << seed;
      EXPECT_EQ(d.getSize(), d.getFileReadModule()->getSize());
      // Changes that all lie in tile data leave the directory intact: every untouched tile must
      // then read back exactly; touched tiles may fail or give other values, but never harm.
      bool onlyTileData = bytes.size() == original.size();
      for (std::size_t at : changed) {
        bool inTile = false;
        for (const Tile& tile : tiles) inTile = inTile || (at >= tile.offset && at < tile.offset + tile.bytes);
        onlyTileData = onlyTileData && inTile;
      }
      for (const Tile& tile : tiles) {
        bool touched = false;
        for (std::size_t at : changed) touched = touched || (at >= tile.offset && at < tile.offset + tile.bytes);
        for (int c = 0; c < size.c; ++c) {
          DatasetCoordinates p = tile.origin;
          p.c = c;
          const double value = d.getElement<double>(p);
          if (onlyTileData && !touched) {
            ++checkedTiles;
            EXPECT_EQ(value, valueAt(p)) << "expected an untouched tile intact, round " << round << " seed " << seed;
          }
        }
      }
    } else {
      ++refused;
      EXPECT_FALSE(d.hasData()) << "round " << round << " seed " << seed;
    }
    ::testing::internal::GetCapturedStderr();
  }
  EXPECT_GT(opened, 0);
  EXPECT_GT(refused, 0);
  EXPECT_GT(checkedTiles, 0);
}

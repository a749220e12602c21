#include "dataset/TiffFileHeader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;

namespace {

// The tags of a TIFF file written directly with libtiff; pages filled with a byte pattern.
struct TiffTags {
  std::uint32_t width = 40;
  std::uint32_t length = 30;
  std::optional<std::uint32_t> depth;
  std::uint16_t samplesPerPixel = 1;
  std::uint16_t bitsPerSample = 8;
  std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
  std::optional<std::uint16_t> photometric = PHOTOMETRIC_MINISBLACK;
  std::vector<std::uint16_t> extraSamples;
  std::optional<std::uint16_t> planar;
  bool tiled = true;
  std::uint32_t tileWidth = 16;
  std::uint32_t tileLength = 16;
  std::optional<std::uint32_t> tileDepth;
  std::uint32_t rowsPerStrip = 8;
  std::optional<std::uint16_t> minSample, maxSample;
  std::optional<double> sMinSample, sMaxSample;
  std::optional<float> xResolution, yResolution;
  std::optional<std::uint16_t> resolutionUnit;
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
  if (tags.photometric) TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, *tags.photometric);
  if (!tags.extraSamples.empty())
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(tags.extraSamples.size()), tags.extraSamples.data());
  if (tags.planar) TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, *tags.planar);
  if (tags.minSample) TIFFSetField(tiff, TIFFTAG_MINSAMPLEVALUE, *tags.minSample);
  if (tags.maxSample) TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, *tags.maxSample);
  if (tags.sMinSample) TIFFSetField(tiff, TIFFTAG_SMINSAMPLEVALUE, *tags.sMinSample);
  if (tags.sMaxSample) TIFFSetField(tiff, TIFFTAG_SMAXSAMPLEVALUE, *tags.sMaxSample);
  if (tags.xResolution) TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(*tags.xResolution));
  if (tags.yResolution) TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(*tags.yResolution));
  if (tags.resolutionUnit) TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, *tags.resolutionUnit);
  if (tags.tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, tags.tileWidth);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, tags.tileLength);
    if (tags.tileDepth) TIFFSetField(tiff, TIFFTAG_TILEDEPTH, *tags.tileDepth);
    std::vector<unsigned char> page(static_cast<std::size_t>(TIFFTileSize(tiff)));
    for (std::size_t i = 0; i < page.size(); ++i) page[i] = static_cast<unsigned char>(i * 7 + 1);
    for (std::uint32_t tile = 0; tile < TIFFNumberOfTiles(tiff); ++tile)
      TIFFWriteEncodedTile(tiff, tile, page.data(), static_cast<tmsize_t>(page.size()));
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, tags.rowsPerStrip);
    std::vector<unsigned char> strip(static_cast<std::size_t>(TIFFStripSize(tiff)));
    for (std::uint32_t s = 0; s < TIFFNumberOfStrips(tiff); ++s)
      TIFFWriteEncodedStrip(tiff, s, strip.data(), static_cast<tmsize_t>(strip.size()));
  }
  TIFFClose(tiff);
  return true;
}

// Reads the header of a file, capturing what it prints.
struct HeaderReadResult {
  bool valid = false;
  std::string printed;
};

HeaderReadResult readHeader(const std::string& name, TiffFileHeader& header) {
  HeaderReadResult result;
  TIFF* tiff = TIFFOpen(name.c_str(), "r");
  if (tiff == nullptr) return result;
  ::testing::internal::CaptureStderr();
  result.valid = header.read(tiff);
  result.printed = ::testing::internal::GetCapturedStderr();
  TIFFClose(tiff);
  return result;
}

class TiffFileHeaderTest : public ::testing::Test {
protected:
  void SetUp() override {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
  }
  TemporaryDirectory dir;
};

const TARVElementType kWritableTypes[] = {TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                          TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,   TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT,
                                          TARV_ELEMENT_TYPE_SIGNED_INT,         TARV_ELEMENT_TYPE_UNSIGNED_INT,
                                          TARV_ELEMENT_TYPE_FLOAT};

}  // namespace

TEST_F(TiffFileHeaderTest, Defaults) {
  TiffFileHeader header;
  EXPECT_EQ(header.getPageMode(), TiffPageMode::tile);
  EXPECT_EQ(header.getPlanarConfiguration(), TiffPlanarConfiguration::CONTIGUES);
  EXPECT_EQ(header.getImgSize(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(64, 64, 1, 1, 0)) << "expected the image's component count";
  EXPECT_EQ(header.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(header.getElementByteSize(), 0);
  EXPECT_EQ(header.getBitsPerSample(), 0);
  EXPECT_EQ(header.getPageByteSize(), 0u);
  EXPECT_EQ(header.getTotalNumberOfPages(), 0u);
  EXPECT_EQ(header.getColorMode(), TiffColorMode::LUMINANCE);
  EXPECT_EQ(header.getXResolution(), 1.0f);
  EXPECT_EQ(header.getYResolution(), 1.0f);
  EXPECT_EQ(header.getResolutionUnit(), TiffResolutionUnit::none);
  EXPECT_FALSE(header.isValid());
}

TEST_F(TiffFileHeaderTest, PageLayoutOfAVolumeThatIsNoMultipleOfThePageSize) {
  TiffFileHeader header;
  header.setImgSize(DatasetCoordinates(100, 70, 3, 1, 1));
  header.setElementType(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  EXPECT_EQ(header.getNumberOfPagesX(), 2u);
  EXPECT_EQ(header.getNumberOfPagesY(), 2u);
  EXPECT_EQ(header.getNumberOfPagesZ(), 3u);
  EXPECT_EQ(header.getTotalNumberOfPages(), 12u);
  EXPECT_EQ(header.computePageIdxFromLinearIdx(5), DatasetCoordinates(1, 0, 1, 0, 0));
  EXPECT_EQ(header.computePageOffsetFromLinearIdx(5), DatasetCoordinates(64, 0, 1, 0, 0));
  const DatasetBoundingBox bounds = header.computePageBoundsFromLinearIdx(5);
  EXPECT_EQ(bounds.start, DatasetCoordinates(64, 0, 1, 0, 0));
  EXPECT_EQ(DatasetCoordinates(bounds.end.x, bounds.end.y, bounds.end.z, 0, 0), DatasetCoordinates(127, 63, 1, 0, 0))
      << "expected the page not clipped to the image";
  EXPECT_EQ(header.getPageByteSize(), 64u * 64u * 2u);
  for (unsigned i = 0; i < 12; ++i) {
    const DatasetCoordinates index = header.computePageIdxFromLinearIdx(i);
    EXPECT_EQ(static_cast<unsigned>(index.x + 2 * index.y + 4 * index.z), i) << "expected x fastest, then y, then z";
  }
}

TEST_F(TiffFileHeaderTest, PageIndicesBeyond2To24AreNotExact) {
  TiffFileHeader header;
  header.setPageSize(DatasetCoordinates(1, 1, 1, 1, 1));
  header.setImgSize(DatasetCoordinates(1, 1, 1 << 25, 1, 1));
  ASSERT_EQ(header.getTotalNumberOfPages(), 1u << 25);
  EXPECT_EQ(header.computePageIdxFromLinearIdx(1000), DatasetCoordinates(0, 0, 1000, 0, 0));
  // 2^24 + 1 is not a float: the single-precision quotient gives z = 2^24 and the rest lands in y.
  EXPECT_EQ(header.computePageIdxFromLinearIdx((1u << 24) + 1), DatasetCoordinates(0, 1, 1 << 24, 0, 0));
}

TEST_F(TiffFileHeaderTest, PageByteSizeCountsComponentsOnlyWhenContiguous) {
  TiffFileHeader header;
  header.setElementType(TARV_ELEMENT_TYPE_FLOAT);
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 3));
  EXPECT_EQ(header.getColorMode(), TiffColorMode::RGB);
  EXPECT_EQ(header.getPageByteSize(), 64u * 64u * 3u * 4u);
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(64, 64, 1, 1, 3));
  header.setPlanarConfiguration(TiffPlanarConfiguration::SEPERATE_PLANES);
  EXPECT_EQ(header.getPageByteSize(), 64u * 64u * 4u);
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(64, 64, 1, 1, 1));
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 5));
  EXPECT_EQ(header.getColorMode(), TiffColorMode::UNSUPPORTED);
  header.setColorMode(TiffColorMode::LUM_INVERTED);
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 1));
  EXPECT_EQ(header.getColorMode(), TiffColorMode::LUM_INVERTED) << "expected one component to keep the colour mode";
  header.setPageSize(DatasetCoordinates(0, 64, 1, 1, 1));
  EXPECT_EQ(header.getTotalNumberOfPages(), 0u) << "expected an empty page to give no pages";
  EXPECT_EQ(header.computePageIdxFromLinearIdx(0), DatasetCoordinates(-1, -1, -1, 0, 0));
}

TEST_F(TiffFileHeaderTest, ElementTypesAndSampleFormatsMapBothWays) {
  const unsigned bits[] = {8, 8, 16, 16, 32, 32, 32};
  const unsigned formats[] = {2, 1, 2, 1, 2, 1, 3};
  for (int i = 0; i < 7; ++i) {
    TiffFileHeader header;
    header.setElementType(kWritableTypes[i]);
    unsigned format = 0;
    unsigned bitCount = 0;
    EXPECT_TRUE(header.sampleFormatFromElementType(format, bitCount));
    EXPECT_EQ(format, formats[i]) << "type " << kWritableTypes[i];
    EXPECT_EQ(bitCount, bits[i]);
    EXPECT_EQ(header.getBitsPerSample(), bits[i]);
    EXPECT_EQ(header.getElementByteSize(), bits[i] / 8);
    EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(formats[i], bits[i]), kWritableTypes[i]);
  }
  TiffFileHeader header;
  header.setElementType(TARV_ELEMENT_TYPE_BOOL);
  unsigned format = 0;
  unsigned bitCount = 0;
  EXPECT_TRUE(header.sampleFormatFromElementType(format, bitCount));
  EXPECT_EQ(format, 1u);
  EXPECT_EQ(bitCount, 8u) << "expected bool written as unsigned 8-bit";
  for (TARVElementType type : {TARV_ELEMENT_TYPE_DOUBLE, TARV_ELEMENT_TYPE_LONG_DOUBLE, TARV_ELEMENT_TYPE_SIGNED_LONG_INT,
                               TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT, TARV_ELEMENT_TYPE_VOID, TARV_ELEMENT_TYPE_NO_TYPE}) {
    header.setElementType(type);
    EXPECT_FALSE(header.sampleFormatFromElementType(format, bitCount)) << "type " << type;
    EXPECT_EQ(format, 0u);
    EXPECT_EQ(bitCount, 0u);
    EXPECT_EQ(header.getElementByteSize(), 0);
  }
  EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(1, 64), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(3, 64), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(1, 1), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(3, 16), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(TiffFileHeader::elementTypeFromSampleFormat(0, 8), TARV_ELEMENT_TYPE_NO_TYPE);
}

TEST_F(TiffFileHeaderTest, NullHandlesFail) {
  TiffFileHeader header;
  EXPECT_FALSE(header.read(nullptr));
  EXPECT_FALSE(header.write(nullptr));
  EXPECT_FALSE(header.readImageSize(nullptr));
  EXPECT_FALSE(header.readSampleConfiguration(nullptr));
  EXPECT_FALSE(header.readSampleFormat(nullptr));
  EXPECT_FALSE(header.readStorageFormat(nullptr));
  EXPECT_FALSE(header.readWorldEmbedding(nullptr));
  EXPECT_FALSE(header.readMinMaxRange(nullptr));
  EXPECT_EQ(header.getMinValue(), 1.0);
  EXPECT_EQ(header.getMaxValue(), -1.0) << "expected the unknown-range marker";
  EXPECT_FALSE(header.writeImageSize(nullptr));
  EXPECT_FALSE(header.writeSampleConfiguration(nullptr));
  EXPECT_FALSE(header.writeSampleFormat(nullptr));
  EXPECT_FALSE(header.writeStorageFormat(nullptr));
  EXPECT_FALSE(header.writeWorldEmbedding(nullptr));
  header.writeMinMaxRange(nullptr);
  EXPECT_FALSE(header.isValid());
}

TEST_F(TiffFileHeaderTest, PrintsNothingButANoticeWhenInvalid) {
  TiffFileHeader header;
  std::ostringstream out;
  out << header;
  EXPECT_EQ(out.str(), "No valid header information\n");
}

TEST_F(TiffFileHeaderTest, WritesAndReadsBackATiledVolumeHeader) {
  const std::string name = dir.file("volume.tif");
  TiffFileHeader written;
  written.setImgSize(DatasetCoordinates(100, 70, 3, 1, 1));
  written.setElementType(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  {
    TIFF* tiff = TIFFOpen(name.c_str(), "w");
    ASSERT_NE(tiff, nullptr);
    EXPECT_TRUE(written.write(tiff));
    EXPECT_TRUE(written.isValid());
    std::vector<unsigned char> page(written.getPageByteSize(), 3);
    for (unsigned i = 0; i < written.getTotalNumberOfPages(); ++i) {
      const DatasetCoordinates offset = written.computePageOffsetFromLinearIdx(i);
      TIFFWriteTile(tiff, page.data(), offset.x, offset.y, offset.z, 0);
    }
    TIFFClose(tiff);
  }
  TiffFileHeader header;
  const HeaderReadResult result = readHeader(name, header);
  ASSERT_TRUE(result.valid);
  EXPECT_EQ(result.printed, "") << "expected a clean header to print nothing";
  EXPECT_EQ(header.getImgSize(), DatasetCoordinates(100, 70, 3, 1, 1));
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(64, 64, 1, 1, 1));
  EXPECT_EQ(header.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  std::ostringstream out;
  header.print(out);
  EXPECT_EQ(out.str(),
            "ImageSize 100 x 70 x 3\n"
            "Scalar components 1\n"
            "Colormode LUMINANCE\n"
            "Planar configuration CONTIGUES\n"
            "Datatype TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT\n"
            "Resolution 1 x 1\n"
            "Pagemode tile\n"
            "pagesize 64 x 64 x 1\n"
            "pagenumber 2 x 2 x 3\n"
            "total number of pages 12\n"
            "Min value 1\n"
            "Max value -1\n");
}

TEST_F(TiffFileHeaderTest, UnwritableSampleFormatsAndComponentCountsFail) {
  const std::string name = dir.file("unwritable.tif");
  TIFF* tiff = TIFFOpen(name.c_str(), "w");
  ASSERT_NE(tiff, nullptr);
  TiffFileHeader header;
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 1));
  header.setElementType(TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_FALSE(header.writeSampleFormat(tiff)) << "expected SampleFormat 0 refused";
  EXPECT_FALSE(header.write(tiff));
  header.setElementType(TARV_ELEMENT_TYPE_FLOAT);
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 5));
  EXPECT_FALSE(header.writeSampleConfiguration(tiff));
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 0));
  EXPECT_FALSE(header.writeSampleConfiguration(tiff));
  header.setImgSize(DatasetCoordinates(10, 10, 1, 1, 1));
  header.setPageMode(TiffPageMode::strip);
  EXPECT_FALSE(header.writeStorageFormat(tiff)) << "expected only tiles to be written";
  TIFFClose(tiff);
}

TEST_F(TiffFileHeaderTest, ValueRangeTagsAndTheirPrecedence) {
  TiffTags tags;
  tags.minSample = 3;
  tags.maxSample = 200;
  const std::string name = dir.file("range.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getMinValue(), 3.0);
  EXPECT_EQ(header.getMaxValue(), 200.0);
  // The S-tags are stored in the sample format: floats carry these values exactly.
  tags.bitsPerSample = 32;
  tags.sampleFormat = SAMPLEFORMAT_IEEEFP;
  tags.sMinSample = -1.5;
  tags.sMaxSample = 1e6;
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getMinValue(), -1.5) << "expected SMinSampleValue to take precedence";
  EXPECT_EQ(header.getMaxValue(), 1e6);
  ASSERT_TRUE(writeTiff(name, TiffTags()));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getMinValue(), 1.0);
  EXPECT_EQ(header.getMaxValue(), -1.0) << "expected the unknown-range marker without tags";
}

TEST_F(TiffFileHeaderTest, ResolutionIsReadForPrintingOnly) {
  TiffTags tags;
  tags.xResolution = 72.0f;
  tags.yResolution = 36.0f;
  tags.resolutionUnit = RESUNIT_CENTIMETER;
  const std::string name = dir.file("resolution.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getXResolution(), 72.0f);
  EXPECT_EQ(header.getYResolution(), 36.0f);
  EXPECT_EQ(header.getResolutionUnit(), TiffResolutionUnit::centimetre);
  std::ostringstream out;
  header.print(out);
  EXPECT_NE(out.str().find("Resolution 72 x 36 cm\n"), std::string::npos) << out.str();
  tags.resolutionUnit = RESUNIT_INCH;
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getResolutionUnit(), TiffResolutionUnit::inch);
  tags.resolutionUnit = RESUNIT_NONE;
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getResolutionUnit(), TiffResolutionUnit::none);
  ASSERT_TRUE(writeTiff(name, TiffTags()));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getXResolution(), 1.0f) << "expected 1 without resolution tags";
  EXPECT_EQ(header.getYResolution(), 1.0f);
  EXPECT_EQ(header.getResolutionUnit(), TiffResolutionUnit::none);
}

TEST_F(TiffFileHeaderTest, ExtraSamplesOtherThanUnassociatedAlphaAreReportedAndRefused) {
  TiffTags tags;
  tags.samplesPerPixel = 4;
  tags.photometric = PHOTOMETRIC_RGB;
  tags.planar = PLANARCONFIG_CONTIG;
  tags.extraSamples = {EXTRASAMPLE_UNASSALPHA};
  const std::string name = dir.file("extra.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  HeaderReadResult result = readHeader(name, header);
  ASSERT_TRUE(result.valid);
  EXPECT_EQ(result.printed, "Extrasamples: 1\n");
  EXPECT_EQ(header.getImgSize().c, 4) << "expected RGB with one unassociated alpha to give four components";
  EXPECT_EQ(header.getColorMode(), TiffColorMode::RGB);

  tags.samplesPerPixel = 5;
  tags.extraSamples = {EXTRASAMPLE_ASSOCALPHA, EXTRASAMPLE_UNSPECIFIED};
  ASSERT_TRUE(writeTiff(name, tags));
  result = readHeader(name, header);
  EXPECT_FALSE(result.valid);
  EXPECT_EQ(result.printed,
            "Extrasamples: 2\n"
            "Unsupported extra samples EXTRASAMPLE_ASSOCALPHA:\n"
            "readSampleConfiguration in src/dataset/TiffFileHeader:285\n"
            "Unsupported extra samples EXTRASAMPLE_UNSPECIFIED:\n"
            "readSampleConfiguration in src/dataset/TiffFileHeader:280\n");
  EXPECT_EQ(header.getImgSize().c, 0) << "expected the sample configuration cleared";
  EXPECT_EQ(header.getColorMode(), TiffColorMode::UNSUPPORTED);
  EXPECT_EQ(header.getPlanarConfiguration(), TiffPlanarConfiguration::UNSUPPORTED);
}

TEST_F(TiffFileHeaderTest, AMissingPhotometricInterpretationFails) {
  TiffTags tags;
  tags.photometric.reset();
  const std::string name = dir.file("nophotometric.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  EXPECT_FALSE(readHeader(name, header).valid);
  EXPECT_EQ(header.getImgSize().c, 0);
}

TEST_F(TiffFileHeaderTest, PhotometricInterpretations) {
  TiffTags tags;
  tags.photometric = PHOTOMETRIC_MINISWHITE;
  const std::string name = dir.file("photometric.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getColorMode(), TiffColorMode::LUM_INVERTED);
  tags.photometric = PHOTOMETRIC_SEPARATED;
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getColorMode(), TiffColorMode::UNSUPPORTED);
}

TEST_F(TiffFileHeaderTest, StrippedFilesOpenOnlyIn2D) {
  TiffTags tags;
  tags.tiled = false;
  tags.rowsPerStrip = 8;
  const std::string name = dir.file("strips.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getPageMode(), TiffPageMode::strip);
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(40, 8, 1, 1, 1)) << "expected width x RowsPerStrip x 1";
  EXPECT_EQ(header.getTotalNumberOfPages(), 4u);
  tags.depth = 3;
  ASSERT_TRUE(writeTiff(name, tags));
  EXPECT_FALSE(readHeader(name, header).valid) << "expected a stripped volume refused";
  EXPECT_EQ(header.getPageMode(), TiffPageMode::unknown);
  EXPECT_EQ(header.getPageByteSize(), 0u);
  EXPECT_EQ(header.getTotalNumberOfPages(), 0u);
}

TEST_F(TiffFileHeaderTest, TilesDeeperThanOneSliceAreRefused) {
  TiffTags tags;
  tags.depth = 20;
  tags.tileDepth = 16;
  const std::string name = dir.file("deep.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  EXPECT_FALSE(readHeader(name, header).valid) << "expected the page size check to refuse deep tiles";
  tags.tileDepth = 1;
  ASSERT_TRUE(writeTiff(name, tags));
  ASSERT_TRUE(readHeader(name, header).valid);
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(16, 16, 1, 1, 1));
  EXPECT_EQ(header.getTotalNumberOfPages(), 3u * 2u * 20u);
  tags.tileDepth.reset();
  ASSERT_TRUE(writeTiff(name, tags));
  EXPECT_FALSE(readHeader(name, header).valid) << "expected a volume without TileDepth refused";
}

TEST_F(TiffFileHeaderTest, UnsupportedSampleFormatsAreRefused) {
  const std::string name = dir.file("formats.tif");
  for (auto [bits, format] : {std::pair<int, int>{64, 3}, {64, 1}, {16, 3}, {1, 1}}) {
    TiffTags tags;
    tags.bitsPerSample = static_cast<std::uint16_t>(bits);
    tags.sampleFormat = static_cast<std::uint16_t>(format);
    ASSERT_TRUE(writeTiff(name, tags));
    TiffFileHeader header;
    EXPECT_FALSE(readHeader(name, header).valid) << bits << " bits, format " << format;
    EXPECT_EQ(header.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
    EXPECT_EQ(header.getBitsPerSample(), 0);
  }
}

TEST_F(TiffFileHeaderTest, SeparatePlanesWarnAboutThePageCount) {
  TiffTags tags;
  tags.samplesPerPixel = 3;
  tags.photometric = PHOTOMETRIC_RGB;
  tags.planar = PLANARCONFIG_SEPARATE;
  const std::string name = dir.file("planes.tif");
  ASSERT_TRUE(writeTiff(name, tags));
  TiffFileHeader header;
  const HeaderReadResult result = readHeader(name, header);
  EXPECT_TRUE(result.valid) << "expected a page of one plane to match libtiff's tile size";
  EXPECT_EQ(result.printed,
            "Warning: TiffFileHeader::readStorageFormat(): Number of pages computed from pagesize does not match "
            "number of pages read from file header.\n");
  EXPECT_EQ(header.getPlanarConfiguration(), TiffPlanarConfiguration::SEPERATE_PLANES);
  EXPECT_EQ(header.getPageSize(), DatasetCoordinates(16, 16, 1, 1, 1));
}

TEST_F(TiffFileHeaderTest, AbsurdTagValuesAreRefused) {
  const std::string name = dir.file("absurd.tif");
  TiffTags tags;
  tags.width = 3000000000u;  // beyond a dataset extent
  tags.length = 1;
  tags.tileWidth = 16;
  tags.tileLength = 16;
  {
    // Only the directory: no tiles written.
    TIFF* tiff = TIFFOpen(name.c_str(), "w");
    ASSERT_NE(tiff, nullptr);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, tags.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, tags.length);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16u);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16u);
    TIFFWriteDirectory(tiff);
    TIFFClose(tiff);
  }
  TIFF* tiff = TIFFOpen(name.c_str(), "r");
  if (tiff != nullptr) {
    TiffFileHeader header;
    EXPECT_FALSE(header.read(tiff)) << "expected an image wider than 2^31 - 1 refused";
    EXPECT_EQ(header.getImgSize(), DatasetCoordinates(0, 0, 0, 0, 0));
    TIFFClose(tiff);
  }
}

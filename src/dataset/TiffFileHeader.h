#ifndef TARV_DATASET_TIFFFILEHEADER_H
#define TARV_DATASET_TIFFFILEHEADER_H

#include <tiffio.h>

#include <cstdint>
#include <ostream>

#include "core/DatasetBoundingBox.h"
#include "core/DatasetCoordinates.h"
#include "dataset/DatasetMemory.h"

namespace tarv {

enum class TiffPageMode : std::int32_t { unknown = 0, tile = 1, strip = 2 };
enum class TiffColorMode : std::int32_t { UNSUPPORTED = 0, LUMINANCE = 1, LUM_INVERTED = 2, RGB = 3 };
enum class TiffPlanarConfiguration : std::int32_t { UNSUPPORTED = 0, CONTIGUES = 1, SEPERATE_PLANES = 2 };
enum class TiffResolutionUnit : std::int32_t { none = 0, inch = 1, centimetre = 2 };

// The TIFF tags that matter to a dataset, and the page layout derived from them: the volume is
// cut into equal pages (TIFF tiles, or strips of a 2D image), numbered x fastest, then y, z.
class TiffFileHeader {
public:
  TiffFileHeader();

  // Image size: x, y, z, t and, at index 4, the number of samples per pixel.
  void setImgSize(const DatasetCoordinates& size);
  DatasetCoordinates getImgSize() const { return imageSize; }
  void setPageSize(const DatasetCoordinates& size);
  // The page size with t 1 and the component count 1, or the image's with contiguous samples.
  DatasetCoordinates getPageSize() const;
  void setElementType(const TARVElementType& type);
  TARVElementType getElementType() const { return elementType; }
  std::uint16_t getElementByteSize() const { return elementByteSize; }
  std::uint16_t getBitsPerSample() const { return bitsPerSample; }
  std::uint64_t getPageByteSize() const { return pageByteSize; }

  TiffPageMode getPageMode() const { return pageMode; }
  void setPageMode(TiffPageMode mode) { pageMode = mode; }
  TiffColorMode getColorMode() const { return colorMode; }
  void setColorMode(TiffColorMode mode) { colorMode = mode; }
  TiffPlanarConfiguration getPlanarConfiguration() const { return planarConfiguration; }
  void setPlanarConfiguration(TiffPlanarConfiguration configuration);
  double getMinValue() const { return minValue; }
  double getMaxValue() const { return maxValue; }
  void setMinMaxValue(double minimum, double maximum) {
    minValue = minimum;
    maxValue = maximum;
  }
  float getXResolution() const { return xResolution; }
  float getYResolution() const { return yResolution; }
  TiffResolutionUnit getResolutionUnit() const { return resolutionUnit; }
  std::uint32_t getTotalNumberOfPages() const { return totalNumberOfPages; }
  std::uint32_t getNumberOfPagesX() const { return pagesX; }
  std::uint32_t getNumberOfPagesY() const { return pagesY; }
  std::uint32_t getNumberOfPagesZ() const { return pagesZ; }
  bool isValid() const { return valid; }

  // The whole header from or to an open handle; each sets the valid flag.
  bool read(TIFF* tiff);
  bool write(TIFF* tiff);
  bool readImageSize(TIFF* tiff);
  bool readSampleConfiguration(TIFF* tiff);
  bool readSampleFormat(TIFF* tiff);
  bool readStorageFormat(TIFF* tiff);
  bool readWorldEmbedding(TIFF* tiff);
  bool readMinMaxRange(TIFF* tiff);
  bool writeImageSize(TIFF* tiff);
  bool writeSampleConfiguration(TIFF* tiff);
  bool writeSampleFormat(TIFF* tiff);
  bool writeStorageFormat(TIFF* tiff);
  // The world embedding is not carried by the format: writes nothing, returns false.
  bool writeWorldEmbedding(TIFF* tiff);
  // The value range is not written.
  void writeMinMaxRange(TIFF* tiff);

  // SampleFormat and BitsPerSample of the element type; both 0 (and false) when it cannot be
  // written.
  bool sampleFormatFromElementType(unsigned int& format, unsigned int& bits) const;
  static TARVElementType elementTypeFromSampleFormat(unsigned int format, unsigned int bits);

  void computePageLayout();
  DatasetCoordinates computePageIdxFromLinearIdx(const unsigned int& index) const;
  DatasetCoordinates computePageOffsetFromLinearIdx(const unsigned int& index) const;
  // Not clipped to the image.
  DatasetBoundingBox computePageBoundsFromLinearIdx(const unsigned int& index) const;

  void print(std::ostream& os) const;

private:
  bool readTiledStorage(TIFF* tiff);
  bool readStrippedStorage(TIFF* tiff);
  void clearStorageFormat();

  TiffPageMode pageMode = TiffPageMode::tile;
  double minValue = 0.0;
  double maxValue = 0.0;
  std::uint32_t totalNumberOfPages = 0;
  std::uint32_t pagesX = 0;
  std::uint32_t pagesY = 0;
  std::uint32_t pagesZ = 0;
  TiffPlanarConfiguration planarConfiguration = TiffPlanarConfiguration::CONTIGUES;
  DatasetCoordinates imageSize{0, 0, 0, 0, 0};
  DatasetCoordinates pageSize{64, 64, 1, 1, 1};
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  std::uint16_t elementByteSize = 0;
  std::uint16_t bitsPerSample = 0;
  std::uint64_t pageByteSize = 0;
  TiffColorMode colorMode = TiffColorMode::LUMINANCE;
  float xResolution = 1.0f;
  float yResolution = 1.0f;
  TiffResolutionUnit resolutionUnit = TiffResolutionUnit::none;
  bool valid = false;
};

std::ostream& operator<<(std::ostream& os, const TiffFileHeader& header);

}  // namespace tarv

#endif

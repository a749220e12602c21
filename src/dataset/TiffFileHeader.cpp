#include "dataset/TiffFileHeader.h"

#include <climits>
#include <cmath>
#include <iostream>

namespace tarv {

namespace {

// Pages along one axis: the quotient in single precision, rounded up.
std::uint32_t pagesAlong(int imageExtent, int pageExtent) {
  if (imageExtent <= 0 || pageExtent <= 0) return 0;
  return static_cast<std::uint32_t>(std::ceil(static_cast<float>(imageExtent) / static_cast<float>(pageExtent)));
}

std::uint64_t nonNegative(int v) { return v > 0 ? static_cast<std::uint64_t>(v) : 0; }

// An extent read from a tag, usable as a dataset extent.
bool isUsableExtent(std::uint32_t v) { return v >= 1 && v <= static_cast<std::uint32_t>(INT_MAX); }

void printLine(const char* text) { std::cerr << text << std::endl; }

}  // namespace

TiffFileHeader::TiffFileHeader() { setPageSize(DatasetCoordinates(64, 64, 1, 1, 1)); }

void TiffFileHeader::setImgSize(const DatasetCoordinates& size) {
  imageSize = size;
  if (imageSize.c > 1)
    colorMode = (imageSize.c == 3 || imageSize.c == 4) ? TiffColorMode::RGB : TiffColorMode::UNSUPPORTED;
  computePageLayout();
}

void TiffFileHeader::setPageSize(const DatasetCoordinates& size) {
  pageSize = size;
  computePageLayout();
}

DatasetCoordinates TiffFileHeader::getPageSize() const {
  DatasetCoordinates size = pageSize;
  size.t = 1;
  size.c = planarConfiguration == TiffPlanarConfiguration::CONTIGUES ? imageSize.c : 1;
  return size;
}

void TiffFileHeader::setElementType(const TARVElementType& type) {
  elementType = type;
  unsigned int format = 0;
  unsigned int bits = 0;
  sampleFormatFromElementType(format, bits);
  bitsPerSample = static_cast<std::uint16_t>(bits);
  elementByteSize = static_cast<std::uint16_t>(bits / 8);
  computePageLayout();
}

void TiffFileHeader::setPlanarConfiguration(TiffPlanarConfiguration configuration) {
  planarConfiguration = configuration;
  computePageLayout();
}

bool TiffFileHeader::sampleFormatFromElementType(unsigned int& format, unsigned int& bits) const {
  format = 0;
  bits = 0;
  switch (elementType) {
    case TARV_ELEMENT_TYPE_BOOL:
    case TARV_ELEMENT_TYPE_UNSIGNED_CHAR: format = SAMPLEFORMAT_UINT; bits = 8; break;
    case TARV_ELEMENT_TYPE_SIGNED_CHAR: format = SAMPLEFORMAT_INT; bits = 8; break;
    case TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT: format = SAMPLEFORMAT_UINT; bits = 16; break;
    case TARV_ELEMENT_TYPE_SIGNED_SHORT_INT: format = SAMPLEFORMAT_INT; bits = 16; break;
    case TARV_ELEMENT_TYPE_UNSIGNED_INT: format = SAMPLEFORMAT_UINT; bits = 32; break;
    case TARV_ELEMENT_TYPE_SIGNED_INT: format = SAMPLEFORMAT_INT; bits = 32; break;
    case TARV_ELEMENT_TYPE_FLOAT: format = SAMPLEFORMAT_IEEEFP; bits = 32; break;
    default: return false;
  }
  return true;
}

TARVElementType TiffFileHeader::elementTypeFromSampleFormat(unsigned int format, unsigned int bits) {
  if (format == SAMPLEFORMAT_UINT) {
    if (bits == 8) return TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
    if (bits == 16) return TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
    if (bits == 32) return TARV_ELEMENT_TYPE_UNSIGNED_INT;
  } else if (format == SAMPLEFORMAT_INT) {
    if (bits == 8) return TARV_ELEMENT_TYPE_SIGNED_CHAR;
    if (bits == 16) return TARV_ELEMENT_TYPE_SIGNED_SHORT_INT;
    if (bits == 32) return TARV_ELEMENT_TYPE_SIGNED_INT;
  } else if (format == SAMPLEFORMAT_IEEEFP && bits == 32) {
    return TARV_ELEMENT_TYPE_FLOAT;
  }
  return TARV_ELEMENT_TYPE_NO_TYPE;
}

void TiffFileHeader::computePageLayout() {
  pagesX = pagesAlong(imageSize.x, pageSize.x);
  pagesY = pagesAlong(imageSize.y, pageSize.y);
  pagesZ = pagesAlong(imageSize.z, pageSize.z);
  const unsigned __int128 total = static_cast<unsigned __int128>(pagesX) * pagesY * pagesZ;
  totalNumberOfPages = total > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(total);
  unsigned __int128 voxels = static_cast<unsigned __int128>(nonNegative(pageSize.x)) * nonNegative(pageSize.y) *
                             nonNegative(pageSize.z);
  if (planarConfiguration == TiffPlanarConfiguration::CONTIGUES) voxels *= nonNegative(imageSize.c);
  // Whole bytes of the page, rounded up; sizes beyond 64 bits saturate (no tile is that large).
  const unsigned __int128 bytes = voxels * (bitsPerSample / 8) + (voxels * (bitsPerSample % 8) + 7) / 8;
  pageByteSize = bytes > UINT64_MAX ? UINT64_MAX : static_cast<std::uint64_t>(bytes);
}

DatasetCoordinates TiffFileHeader::computePageIdxFromLinearIdx(const unsigned int& index) const {
  DatasetCoordinates pageIndex(-1, -1, -1, 0, 0);
  if (pagesX == 0 || pagesY == 0) return pageIndex;
  const std::int64_t plane = static_cast<std::int64_t>(pagesX) * pagesY;
  // Both quotients in single precision, truncated toward zero.
  const auto z = static_cast<std::int64_t>(static_cast<float>(index) / static_cast<float>(plane));
  const auto y = static_cast<std::int64_t>(static_cast<float>(static_cast<std::int64_t>(index) - z * plane) /
                                           static_cast<float>(pagesX));
  const std::int64_t x = static_cast<std::int64_t>(index) - y * pagesX - z * plane;
  pageIndex.x = static_cast<int>(x);
  pageIndex.y = static_cast<int>(y);
  pageIndex.z = static_cast<int>(z);
  return pageIndex;
}

DatasetCoordinates TiffFileHeader::computePageOffsetFromLinearIdx(const unsigned int& index) const {
  DatasetCoordinates offset = computePageIdxFromLinearIdx(index);
  for (int k = 0; k < 3; ++k)
    offset[k] = static_cast<int>(static_cast<std::int64_t>(offset[k]) * static_cast<std::int64_t>(pageSize[k]));
  return offset;
}

DatasetBoundingBox TiffFileHeader::computePageBoundsFromLinearIdx(const unsigned int& index) const {
  const DatasetCoordinates start = computePageOffsetFromLinearIdx(index);
  return DatasetBoundingBox(start, start + pageSize - DatasetCoordinates(1, 1, 1, 0, 0));
}

bool TiffFileHeader::write(TIFF* tiff) {
  const bool size = writeImageSize(tiff);
  const bool samples = writeSampleConfiguration(tiff);
  const bool format = writeSampleFormat(tiff);
  valid = size && samples && format && writeStorageFormat(tiff);
  writeMinMaxRange(tiff);
  return valid;
}

bool TiffFileHeader::writeImageSize(TIFF* tiff) {
  if (tiff == nullptr) return false;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(imageSize.x));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(imageSize.y));
  return TIFFSetField(tiff, TIFFTAG_IMAGEDEPTH, static_cast<std::uint32_t>(imageSize.z)) == 1;
}

bool TiffFileHeader::writeSampleConfiguration(TIFF* tiff) {
  if (tiff == nullptr) return false;
  const int components = imageSize.c;
  if (components < 1 || components > 4) return false;
  int extraSamples = 0;
  if (components >= 3) {
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, static_cast<std::uint16_t>(PLANARCONFIG_CONTIG));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, static_cast<std::uint16_t>(PHOTOMETRIC_RGB));
    extraSamples = components - 3;
  } else {
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 static_cast<std::uint16_t>(colorMode == TiffColorMode::LUM_INVERTED ? PHOTOMETRIC_MINISWHITE
                                                                                     : PHOTOMETRIC_MINISBLACK));
    extraSamples = components - 1;
  }
  bool result = TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(components)) == 1;
  if (extraSamples > 0) {
    const std::uint16_t unassociatedAlpha[3] = {EXTRASAMPLE_UNASSALPHA, EXTRASAMPLE_UNASSALPHA, EXTRASAMPLE_UNASSALPHA};
    result = TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(extraSamples), unassociatedAlpha) == 1;
  }
  return result;
}

bool TiffFileHeader::writeSampleFormat(TIFF* tiff) {
  if (tiff == nullptr) return false;
  unsigned int format = 0;
  unsigned int bits = 0;
  sampleFormatFromElementType(format, bits);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(bits));
  return TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, static_cast<std::uint16_t>(format)) == 1;
}

bool TiffFileHeader::writeStorageFormat(TIFF* tiff) {
  if (tiff == nullptr || pageMode != TiffPageMode::tile) return false;
  bool result = TIFFSetField(tiff, TIFFTAG_TILEWIDTH, static_cast<std::uint32_t>(pageSize.x)) == 1;
  result = TIFFSetField(tiff, TIFFTAG_TILELENGTH, static_cast<std::uint32_t>(pageSize.y)) == 1;
  if (imageSize.z >= 2) result = TIFFSetField(tiff, TIFFTAG_TILEDEPTH, static_cast<std::uint32_t>(pageSize.z)) == 1;
  return result;
}

bool TiffFileHeader::writeWorldEmbedding(TIFF*) { return false; }

void TiffFileHeader::writeMinMaxRange(TIFF*) {}

bool TiffFileHeader::read(TIFF* tiff) {
  if (!readImageSize(tiff)) {
    readSampleFormat(tiff);
    readMinMaxRange(tiff);
    valid = false;
    return valid;
  }
  const bool samples = readSampleConfiguration(tiff);
  readSampleFormat(tiff);
  if (samples && readStorageFormat(tiff)) {
    valid = readWorldEmbedding(tiff);
    readMinMaxRange(tiff);
  } else {
    readMinMaxRange(tiff);
    valid = false;
  }
  return valid;
}

bool TiffFileHeader::readImageSize(TIFF* tiff) {
  setImgSize(DatasetCoordinates(0, 0, 0, 0, 0));
  if (tiff == nullptr) return false;
  std::uint32_t width = 0;
  std::uint32_t length = 0;
  std::uint32_t depth = 1;
  const bool hasWidth = TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) == 1;
  const bool hasLength = TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &length) == 1;
  if (TIFFGetField(tiff, TIFFTAG_IMAGEDEPTH, &depth) != 1) depth = 1;
  // Extents must be usable as dataset extents.
  if (!hasLength || !hasWidth || !isUsableExtent(width) || !isUsableExtent(length) || !isUsableExtent(depth))
    return false;
  setImgSize(DatasetCoordinates(static_cast<int>(width), static_cast<int>(length), static_cast<int>(depth), 1, 1));
  return true;
}

bool TiffFileHeader::readSampleFormat(TIFF* tiff) {
  setElementType(TARV_ELEMENT_TYPE_NO_TYPE);
  if (tiff == nullptr) return false;
  std::uint16_t format = 0;
  std::uint16_t bits = 1;
  if (TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format) != 1) format = 0;
  if (TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits) != 1) bits = 1;
  setElementType(elementTypeFromSampleFormat(format, bits));
  return true;
}

void TiffFileHeader::clearStorageFormat() {
  pageMode = TiffPageMode::unknown;
  totalNumberOfPages = 0;
  pageByteSize = 0;
  pagesX = 0;
  pagesY = 0;
  pagesZ = 0;
}

// Samples per pixel, colour mode, planar configuration; unsupported ExtraSamples are reported.
bool TiffFileHeader::readSampleConfiguration(TIFF* tiff) {
  bool ok = tiff != nullptr;
  std::uint16_t samplesPerPixel = 1;
  if (ok) {
    if (TIFFGetField(tiff, TIFFTAG_SAMPLESPERPIXEL, &samplesPerPixel) != 1) samplesPerPixel = 1;
    std::uint16_t photometric = 0;
    if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) != 1) {
      ok = false;
    } else if (photometric == PHOTOMETRIC_MINISBLACK) {
      colorMode = TiffColorMode::LUMINANCE;
      planarConfiguration = TiffPlanarConfiguration::CONTIGUES;
    } else if (photometric == PHOTOMETRIC_MINISWHITE) {
      colorMode = TiffColorMode::LUM_INVERTED;
      planarConfiguration = TiffPlanarConfiguration::CONTIGUES;
    } else if (photometric == PHOTOMETRIC_RGB) {
      colorMode = TiffColorMode::RGB;
      if (samplesPerPixel < 3) samplesPerPixel = 3;
    } else {
      colorMode = TiffColorMode::UNSUPPORTED;
    }
    std::uint16_t extraCount = 0;
    std::uint16_t* extraSamples = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extraSamples) == 1) {
      std::cerr << "Extrasamples: " << extraCount << std::endl;
      for (std::uint16_t i = 0; i < extraCount && extraSamples != nullptr; ++i) {
        if (extraSamples[i] == EXTRASAMPLE_UNASSALPHA) continue;
        ok = false;
        if (extraSamples[i] == EXTRASAMPLE_UNSPECIFIED) {
          std::cerr << "Unsupported extra samples EXTRASAMPLE_UNSPECIFIED:\n"
                    << __func__ << " in src/dataset/TiffFileHeader:" << __LINE__ << std::endl;
          continue;
        }
        if (extraSamples[i] == EXTRASAMPLE_ASSOCALPHA) {
          std::cerr << "Unsupported extra samples EXTRASAMPLE_ASSOCALPHA:\n"
                    << __func__ << " in src/dataset/TiffFileHeader:" << __LINE__ << std::endl;
          continue;
        }
        // Any other kind.
        std::cerr << "Unsupported extra samples:\n"
                  << __func__ << " in src/dataset/TiffFileHeader:" << __LINE__ << std::endl;
      }
    }
  }
  if (ok && samplesPerPixel >= 2) {
    std::uint16_t planar = 0;
    if (TIFFGetField(tiff, TIFFTAG_PLANARCONFIG, &planar) != 1) ok = false;
    else if (planar == PLANARCONFIG_CONTIG) planarConfiguration = TiffPlanarConfiguration::CONTIGUES;
    else if (planar == PLANARCONFIG_SEPARATE) planarConfiguration = TiffPlanarConfiguration::SEPERATE_PLANES;
    else planarConfiguration = TiffPlanarConfiguration::UNSUPPORTED;
  }
  if (!ok) {
    imageSize.c = 0;
    colorMode = TiffColorMode::UNSUPPORTED;
    planarConfiguration = TiffPlanarConfiguration::UNSUPPORTED;
  } else {
    imageSize.c = samplesPerPixel;
  }
  computePageLayout();
  return ok;
}

bool TiffFileHeader::readStorageFormat(TIFF* tiff) {
  pageSize = DatasetCoordinates(0, 0, 0, 0, 0);
  if (tiff == nullptr) {
    clearStorageFormat();
    return false;
  }
  const bool tiled = TIFFIsTiled(tiff) != 0;
  pageMode = tiled ? TiffPageMode::tile : TiffPageMode::strip;
  bool ok = false;
  if (tiled)
    ok = readTiledStorage(tiff);
  else if (imageSize.z <= 1)
    ok = readStrippedStorage(tiff);
  if (!ok) clearStorageFormat();
  return ok;
}

bool TiffFileHeader::readTiledStorage(TIFF* tiff) {
  std::uint32_t width = 0;
  std::uint32_t length = 0;
  std::uint32_t depth = 1;
  bool lastTag = TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width) == 1;
  lastTag = TIFFGetField(tiff, TIFFTAG_TILELENGTH, &length) == 1 && lastTag;
  if (imageSize.z >= 2) lastTag = TIFFGetField(tiff, TIFFTAG_TILEDEPTH, &depth) == 1 && lastTag;
  if (!lastTag || !isUsableExtent(width) || !isUsableExtent(length) || !isUsableExtent(depth)) return false;
  setPageSize(DatasetCoordinates(static_cast<int>(width), static_cast<int>(length), static_cast<int>(depth), 1, 1));
  if (totalNumberOfPages != TIFFNumberOfTiles(tiff))
    printLine("Warning: TiffFileHeader::readStorageFormat(): Number of pages computed from pagesize does not match "
              "number of pages read from file header.");
  return pageByteSize == TIFFTileSize64(tiff);
}

bool TiffFileHeader::readStrippedStorage(TIFF* tiff) {
  std::uint32_t rows = 0;
  if (TIFFGetField(tiff, TIFFTAG_ROWSPERSTRIP, &rows) != 1 || !isUsableExtent(rows)) return false;
  setPageSize(DatasetCoordinates(imageSize.x, static_cast<int>(rows), 1, 1, 1));
  if (totalNumberOfPages != TIFFNumberOfStrips(tiff))
    printLine("Warning: TiffFileHeader::readStorageFormat(): Number of pages computed from pagesize does not match "
              "number of pages read from file header.");
  return pageByteSize == TIFFStripSize64(tiff);
}

bool TiffFileHeader::readWorldEmbedding(TIFF* tiff) {
  resolutionUnit = TiffResolutionUnit::none;
  xResolution = 1.0f;
  yResolution = 1.0f;
  if (tiff == nullptr) return false;
  std::uint16_t unit = RESUNIT_NONE;
  const bool hasUnit = TIFFGetField(tiff, TIFFTAG_RESOLUTIONUNIT, &unit) == 1;
  const bool hasX = TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &xResolution) == 1;
  if (!hasX) xResolution = 1.0f;
  const bool hasY = TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &yResolution) == 1;
  if (!hasY) yResolution = 1.0f;
  if (hasX && hasY && hasUnit) {
    if (unit == RESUNIT_INCH) resolutionUnit = TiffResolutionUnit::inch;
    else if (unit == RESUNIT_CENTIMETER) resolutionUnit = TiffResolutionUnit::centimetre;
  }
  return true;
}

bool TiffFileHeader::readMinMaxRange(TIFF* tiff) {
  // 1 and -1: the marker of an unknown range.
  minValue = 1.0;
  maxValue = -1.0;
  if (tiff == nullptr) return false;
  std::uint16_t value = 0;
  double wide = 0.0;
  if (TIFFGetField(tiff, TIFFTAG_MINSAMPLEVALUE, &value) == 1) minValue = value;
  if (TIFFGetField(tiff, TIFFTAG_MAXSAMPLEVALUE, &value) == 1) maxValue = value;
  if (TIFFGetField(tiff, TIFFTAG_SMINSAMPLEVALUE, &wide) == 1) minValue = wide;
  if (TIFFGetField(tiff, TIFFTAG_SMAXSAMPLEVALUE, &wide) == 1) maxValue = wide;
  return true;
}

void TiffFileHeader::print(std::ostream& os) const {
  if (!valid) {
    os << "No valid header information" << std::endl;
    return;
  }
  os << "ImageSize " << imageSize.x << " x " << imageSize.y << " x " << imageSize.z << "\n";
  os << "Scalar components " << imageSize.c << "\n";
  os << "Colormode ";
  switch (colorMode) {
    case TiffColorMode::UNSUPPORTED: os << "UNSUPPORTED\n"; break;
    case TiffColorMode::LUMINANCE: os << "LUMINANCE\n"; break;
    case TiffColorMode::LUM_INVERTED: os << "LUM_INVERTED\n"; break;
    case TiffColorMode::RGB: os << "RGB\n"; break;
  }
  os << "Planar configuration ";
  switch (planarConfiguration) {
    case TiffPlanarConfiguration::UNSUPPORTED: os << "UNSUPPORTED\n"; break;
    case TiffPlanarConfiguration::CONTIGUES: os << "CONTIGUES\n"; break;
    case TiffPlanarConfiguration::SEPERATE_PLANES: os << "SEPERATE PLANES\n"; break;
  }
  os << "Datatype ";
  if (static_cast<int>(elementType) >= TARV_ELEMENT_TYPE_NO_TYPE &&
      static_cast<int>(elementType) <= TARV_ELEMENT_TYPE_LONG_DOUBLE + 1)
    os << DatasetMemory::getElementTypeName(elementType) << "\n";
  os << "Resolution " << xResolution << " x " << yResolution;
  switch (resolutionUnit) {
    case TiffResolutionUnit::none: os << "\n"; break;
    case TiffResolutionUnit::inch: os << " in\n"; break;
    case TiffResolutionUnit::centimetre: os << " cm\n"; break;
  }
  os << "Pagemode ";
  switch (pageMode) {
    case TiffPageMode::unknown: os << "unknown\n"; break;
    case TiffPageMode::tile: os << "tile\n"; break;
    case TiffPageMode::strip: os << "strip\n"; break;
  }
  os << "pagesize " << pageSize.x << " x " << pageSize.y << " x " << pageSize.z << "\n";
  os << "pagenumber " << pagesX << " x " << pagesY << " x " << pagesZ << "\n";
  os << "total number of pages " << totalNumberOfPages << "\n";
  os << "Min value " << minValue << "\n";
  os << "Max value " << maxValue << std::endl;
}

std::ostream& operator<<(std::ostream& os, const TiffFileHeader& header) {
  header.print(os);
  return os;
}

}  // namespace tarv

// Reading plain tiled TIFF images: readTiffFile and readTiffStream of dataset/ImageDataset.h.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "dataset/ImageDataset.h"
#include "dataset/TiffDeepTileCodec.h"
#include "imageio/TiffImageFormat.h"
#include "imageio/TiffInputStream.h"
#include "imageio/TypedImages.h"

namespace tarv::imageio {

namespace {

void logLine(std::ostream* log, const std::string& line) {
  if (log) *log << line << std::endl;
}

// What the reader needs of a TIFF directory.
struct TiffHeader {
  std::uint32_t width = 0;
  std::uint32_t length = 0;
  std::uint32_t depth = 1;
  std::uint32_t tileWidth = 0;
  std::uint32_t tileLength = 0;
  std::uint32_t tileDepth = 1;
  std::uint16_t photometric = 0;
  std::uint16_t sampleFormat = 0;
  std::uint16_t bitsPerSample = 0;
  TypeID typeId = TYPE_ID_NULL;

  bool read(TIFF* tiff);
};

TypeID typeIdOfSamples(std::uint16_t sampleFormat, std::uint16_t bitsPerSample) {
  if (bitsPerSample == 1) return TYPE_ID_BOOL;
  switch (sampleFormat) {
    case SAMPLEFORMAT_UINT:
      return bitsPerSample == 8 ? TYPE_ID_UINT8 : bitsPerSample == 16 ? TYPE_ID_UINT16
                                                : bitsPerSample == 32 ? TYPE_ID_UINT32
                                                                      : TYPE_ID_NULL;
    case SAMPLEFORMAT_INT:
      return bitsPerSample == 8 ? TYPE_ID_INT8 : bitsPerSample == 16 ? TYPE_ID_INT16
                                               : bitsPerSample == 32 ? TYPE_ID_INT32
                                                                     : TYPE_ID_NULL;
    case SAMPLEFORMAT_IEEEFP: return bitsPerSample == 32 ? TYPE_ID_FLOAT : TYPE_ID_NULL;
    default: return TYPE_ID_NULL;
  }
}

bool TiffHeader::read(TIFF* tiff) {
  if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 1 || TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &length) != 1)
    return false;
  if (TIFFGetField(tiff, TIFFTAG_IMAGEDEPTH, &depth) != 1) depth = 1;
  if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) != 1 ||
      (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_RGB))
    return false;
  if (TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &sampleFormat) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bitsPerSample) != 1)
    return false;
  if (!TIFFIsTiled(tiff) || TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tileWidth) != 1 ||
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileLength) != 1)
    return false;
  if (depth > 1) {
    if (TIFFGetField(tiff, TIFFTAG_TILEDEPTH, &tileDepth) != 1) return false;
  } else {
    tileDepth = 1;
  }
  typeId = typeIdOfSamples(sampleFormat, bitsPerSample);
  return typeId != TYPE_ID_NULL && width > 0 && length > 0 && depth > 0 && tileWidth > 0 && tileLength > 0 &&
         tileDepth > 0;
}

// Decoded image bytes allowed per byte of input: above what LZW or Deflate reach on uniform data.
constexpr std::uint64_t maximumExpansion = 1 << 14;
// Decoded bytes allowed however small the input.
constexpr std::uint64_t minimumImageByteLimit = std::uint64_t(64) << 20;

// Checks the image and its tiles against what the input can deliver before anything is allocated.
bool isDeliverable(TIFF* tiff, const TiffHeader& header, const TiffDeepTileCodec& codec, std::uint64_t voxelSize,
                   std::uint64_t tileCount) {
  const toff_t inputSize = TIFFGetSizeProc(tiff)(TIFFClientdata(tiff));
  std::uint64_t imageBytes = 0;
  std::uint64_t limit = 0;
  if (__builtin_mul_overflow(std::uint64_t(header.width) * header.length, header.depth, &imageBytes) ||
      __builtin_mul_overflow(imageBytes, voxelSize, &imageBytes))
    return false;
  if (__builtin_mul_overflow(std::uint64_t(inputSize), maximumExpansion, &limit))
    limit = std::numeric_limits<std::uint64_t>::max();
  limit = std::max(limit, minimumImageByteLimit);
  if (imageBytes > limit || codec.tileByteCount() > limit || imageBytes > std::numeric_limits<std::size_t>::max())
    return false;
  if (tileCount != TIFFNumberOfTiles(tiff) || tileCount > inputSize) return false;
  for (std::uint32_t tile = 0; tile < tileCount; ++tile) {
    const std::uint64_t offset = TIFFGetStrileOffset(tiff, tile);
    const std::uint64_t count = TIFFGetStrileByteCount(tiff, tile);
    if (count == 0 || count > codec.maximumEncodedByteCount() || offset > inputSize || count > inputSize - offset)
      return false;
  }
  return true;
}

template <typename T>
ImageDataset* readTypedTiff(TIFF* tiff, const TiffHeader& header) {
  const std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff, header.tileDepth);
  if (!codec || codec->format().bitsPerSample != 8 * sizeof(T)) return nullptr;
  const std::array<std::size_t, 3> size{header.width, header.length, header.depth};
  const std::array<std::size_t, 3> tile{header.tileWidth, header.tileLength, header.tileDepth};
  const auto counts = tileCounts(size, tile);
  // libtiff numbers tiles with 32 bits.
  constexpr std::uint64_t tileIndexLimit = std::numeric_limits<std::uint32_t>::max();
  if (counts[0] > tileIndexLimit / counts[1] || std::uint64_t(counts[0]) * counts[1] > tileIndexLimit / counts[2])
    return nullptr;
  const std::uint64_t tileCount = std::uint64_t(counts[0]) * counts[1] * counts[2];
  if (!isDeliverable(tiff, header, *codec, sizeof(T), tileCount)) return nullptr;

  auto image = std::make_unique<TImageDataset<T, 3>>(size[0], size[1], size[2], tile[0], tile[1], tile[2]);
  std::vector<T> buffer(codec->tileByteCount() / sizeof(T));
  std::uint32_t tileIndex = 0;
  for (std::size_t tz = 0; tz < counts[2]; ++tz)
    for (std::size_t ty = 0; ty < counts[1]; ++ty)
      for (std::size_t tx = 0; tx < counts[0]; ++tx, ++tileIndex) {
        if (!codec->readTile(tiff, tileIndex, buffer.data())) return nullptr;
        const std::array<std::size_t, 3> begin{tx * tile[0], ty * tile[1], tz * tile[2]};
        const std::array<std::size_t, 3> end{begin[0] + tile[0], begin[1] + tile[1], begin[2] + tile[2]};
        image->visitRows(begin, end, [&](T* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
          const T* source = buffer.data() + denseOffset(begin, tile, x, y, z);
          std::copy(source, source + count, row);
        });
      }
  // RGB samples in a 32-bit image are packed RGBA.
  image->setRGBA(header.photometric == PHOTOMETRIC_RGB);
  double min = 1.0;
  double max = 0.0;
  computeMinMaxValue(image.get(), min, max);
  image->setMinMaxValue(min, max);
  return image.release();
}

ImageDataset* readTiff(TIFF* tiff, const std::string& name, std::ostream* log) {
  TiffHeader header;
  if (!header.read(tiff)) {
    logLine(log, "-- FAILED to read TIFF header from " + name);
    return nullptr;
  }
  if (!isTiffTypeId(header.typeId)) {
    logLine(log, std::string("-- image data of type ") + typeIdName(header.typeId) + " is not supported");
    return nullptr;
  }
  ImageDataset* image = nullptr;
  try {
    dispatchTypeId(header.typeId, [&]<typename T>() {
      if constexpr (isTiffVoxelType<T>) image = readTypedTiff<T>(tiff, header);
      return image != nullptr;
    });
  } catch (const std::bad_alloc&) {
    image = nullptr;
  } catch (const std::length_error&) {
    image = nullptr;
  }
  if (!image) {
    logLine(log, "-- FAILED: unable to read TIFF image data");
    return nullptr;
  }
  const auto size = image->size_array();
  logLine(log, "-- OK: Loaded " + std::to_string(size[0] * size[1] * size[2]) + " pixels");
  return image;
}

}  // namespace

}  // namespace tarv::imageio

namespace tarv {

using namespace imageio;

ImageDataset* readTiffFile(const std::string& path, std::ostream* log) {
  logLine(log, "Loading TIFF image from " + path + "...");
  TiffHandle tiff = openQuietTiffFile(path, "rM");
  if (!tiff) {
    logLine(log, "-- FAILED to open TIFF file at " + path);
    return nullptr;
  }
  return readTiff(tiff.get(), path, log);
}

ImageDataset* readTiffStream(const std::string& name, std::istream* stream, std::ostream* log) {
  if (!stream) return nullptr;
  logLine(log, "Loading TIFF image from stream " + name);
  imageio::InputStreamClient client{};
  const TiffHandle tiff = imageio::openTiffInputStream(name, stream, client);
  if (!tiff) {
    logLine(log, "-- FAILED to open TIFF file from stream at " + name);
    return nullptr;
  }
  return readTiff(tiff.get(), name, log);
}

}  // namespace tarv

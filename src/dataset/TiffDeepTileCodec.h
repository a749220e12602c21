#ifndef TARV_DATASET_TIFFDEEPTILECODEC_H
#define TARV_DATASET_TIFFDEEPTILECODEC_H

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarv {

// Closes a libtiff handle.
struct TiffHandleCloser {
  void operator()(TIFF* tiff) const;
};
using TiffHandle = std::unique_ptr<TIFF, TiffHandleCloser>;

// Open through libtiff with all of libtiff's error and warning messages discarded, so that the
// caller alone decides what is reported and where. Null on failure.
TiffHandle openQuietTiffFile(const std::string& path, const char* mode);
TiffHandle openQuietTiffClient(const std::string& name, const char* mode, thandle_t client,
                               TIFFReadWriteProc read, TIFFReadWriteProc write, TIFFSeekProc seek,
                               TIFFCloseProc close, TIFFSizeProc size);

// Encodes and decodes one tile of a tiled TIFF, including tiles deeper than one slice, which
// libtiff's own tile calls truncate to their first slice. The tile's bytes, in z, y, x order, are
// passed through the codec of an in-memory TIFF as one strip of width x (length * depth) samples;
// compression codecs and predictors work on rows of `width` samples, so the encoded bytes are
// exactly those of the deep tile. Only one sample per pixel is supported.
class TiffDeepTileCodec {
public:
  struct Format {
    std::uint32_t width = 0;
    std::uint32_t length = 0;
    std::uint32_t depth = 1;
    std::uint16_t bitsPerSample = 8;
    std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    std::uint16_t compression = COMPRESSION_NONE;
    std::uint16_t predictor = PREDICTOR_NONE;
    std::uint16_t fillOrder = FILLORDER_MSB2LSB;
    bool bigEndian = false;
  };

  // Largest decoded tile accepted, in bytes.
  static constexpr std::uint64_t maximumTileByteCount = std::uint64_t(1) << 28;

  explicit TiffDeepTileCodec(const Format& format);

  // The tile geometry and sample encoding of an open tiled TIFF, with the given tile depth (the
  // caller decides whether the TileDepth tag applies). Empty when a tag is missing or unusable.
  static std::optional<TiffDeepTileCodec> forTiff(TIFF* tiff, std::uint32_t tileDepth);

  const Format& format() const { return format_; }
  // Bytes of one decoded tile; 0 when the geometry is empty, overflows or exceeds the maximum.
  std::uint64_t tileByteCount() const { return tileByteCount_; }
  // Largest encoded tile accepted by readTile.
  std::uint64_t maximumEncodedByteCount() const;

  // `tile` holds tileByteCount() bytes. Encoded deep tiles may exceed what libtiff's directory
  // writer can record: it sizes tiles without their depth and may store byte counts in 16 bits.
  bool encode(const void* tile, std::vector<unsigned char>& encoded) const;
  bool decode(const void* encoded, std::size_t encodedSize, void* tile) const;

  // Reads the raw tile with TIFFReadRawTile and decodes it. Fails on missing, truncated or
  // oversized tile data.
  bool readTile(TIFF* tiff, std::uint32_t tileIndex, void* tile) const;

private:
  Format format_;
  std::uint64_t tileByteCount_ = 0;
};

}  // namespace tarv

#endif

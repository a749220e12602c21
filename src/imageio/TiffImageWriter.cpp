// Writing plain tiled TIFF images: writeTiffFile and writeTiffStream of dataset/ImageDataset.h.
//
// libtiff 4.5 cannot write these files itself: it sizes tiles without their depth, so it stores
// the tile byte counts of a file with several tiles as 16-bit values whenever one slice of a tile
// is small, and then refuses to write the directory once an encoded deep tile exceeds 65535
// bytes. The tiles are therefore encoded through TiffDeepTileCodec and the file around them, a
// classic little-endian TIFF, is written here.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <ostream>
#include <vector>

#include "dataset/ImageDataset.h"
#include "dataset/TiffDeepTileCodec.h"
#include "imageio/TiffImageFormat.h"
#include "imageio/TypedImages.h"

namespace tarv::imageio {

namespace {

struct TiffSampleFormat {
  std::uint16_t bitsPerSample;
  std::uint16_t sampleFormat;
};

bool isWritable(const ImageDataset* image) { return image && isTiffTypeId(image->type_id()) && !image->empty(); }

template <typename T>
constexpr TiffSampleFormat tiffSampleFormatOf() {
  const std::uint16_t format = std::is_floating_point_v<T> ? SAMPLEFORMAT_IEEEFP
                               : std::is_signed_v<T>       ? SAMPLEFORMAT_INT
                                                           : SAMPLEFORMAT_UINT;
  return {std::uint16_t(8 * sizeof(T)), format};
}

constexpr std::size_t tileGranularity = 16;

// Writes a classic little-endian TIFF to a seekable stream: the header, the tiles as they come,
// then the directory, whose offset is finally patched into the header. Offsets count from the
// stream position at construction. Stream failures, thrown or not, make finish() false.
class ClassicTiffWriter {
public:
  explicit ClassicTiffWriter(std::ostream& stream) : stream_(stream), start_(stream.tellp()) {
    static const unsigned char header[8] = {'I', 'I', 42, 0, 0, 0, 0, 0};
    if (start_ < 0) failed_ = true;
    write(header, sizeof(header));
  }

  void appendTile(const std::vector<unsigned char>& encoded) {
    tileOffsets_.push_back(encoded.empty() ? 0 : position());
    tileByteCounts_.push_back(std::uint32_t(encoded.size()));
    write(encoded.data(), encoded.size());
  }

  void addShort(std::uint16_t tag, std::uint16_t value) { entries_.push_back({tag, TIFF_SHORT, {value}}); }
  void addLong(std::uint16_t tag, std::uint32_t value) { entries_.push_back({tag, TIFF_LONG, {value}}); }

  bool finish() {
    entries_.push_back({TIFFTAG_TILEOFFSETS, TIFF_LONG, tileOffsets_});
    entries_.push_back({TIFFTAG_TILEBYTECOUNTS, TIFF_LONG, tileByteCounts_});
    std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
    // Values of more than four bytes go before the directory, on word boundaries.
    std::vector<std::uint32_t> valueOffsets;
    for (const Entry& entry : entries_) {
      valueOffsets.push_back(0);
      if (valueBytes(entry) <= 4) continue;
      alignToWord();
      valueOffsets.back() = position();
      for (std::uint32_t value : entry.values) writeValue(entry, value);
    }
    alignToWord();
    const std::uint32_t directory = position();
    writeLittleEndian(std::uint16_t(entries_.size()));
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      const Entry& entry = entries_[i];
      writeLittleEndian(entry.tag);
      writeLittleEndian(std::uint16_t(entry.type));
      writeLittleEndian(std::uint32_t(entry.values.size()));
      if (valueBytes(entry) <= 4) {
        for (std::uint32_t value : entry.values) writeValue(entry, value);
        for (std::size_t pad = valueBytes(entry); pad < 4; ++pad) writeLittleEndian(std::uint8_t(0));
      } else {
        writeLittleEndian(valueOffsets[i]);
      }
    }
    writeLittleEndian(std::uint32_t(0));  // no further directory
    const std::streamoff end = start_ + std::streamoff(position());
    seek(start_ + 4);
    writeLittleEndian(directory);
    seek(end);
    return !failed_;
  }

private:
  struct Entry {
    std::uint16_t tag;
    TIFFDataType type;
    std::vector<std::uint32_t> values;
  };

  static std::size_t valueBytes(const Entry& entry) { return entry.values.size() * (entry.type == TIFF_SHORT ? 2 : 4); }

  // Offset of the next byte; past 4 GiB the file cannot be addressed and the write fails.
  std::uint32_t position() {
    if (failed_) return 0;
    if (written_ > std::numeric_limits<std::uint32_t>::max()) failed_ = true;
    return std::uint32_t(written_);
  }

  void write(const void* bytes, std::size_t count) {
    if (failed_ || count == 0) return;
    try {
      stream_.write(static_cast<const char*>(bytes), std::streamsize(count));
      if (!stream_) failed_ = true;
    } catch (...) {
      failed_ = true;
    }
    written_ += count;
  }

  void seek(std::streamoff target) {
    if (failed_) return;
    try {
      stream_.seekp(target);
      if (!stream_) failed_ = true;
    } catch (...) {
      failed_ = true;
    }
  }

  template <typename U>
  void writeLittleEndian(U value) {
    unsigned char bytes[sizeof(U)];
    for (std::size_t i = 0; i < sizeof(U); ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    write(bytes, sizeof(U));
  }

  void writeValue(const Entry& entry, std::uint32_t value) {
    if (entry.type == TIFF_SHORT)
      writeLittleEndian(std::uint16_t(value));
    else
      writeLittleEndian(value);
  }

  void alignToWord() {
    if (written_ % 2 != 0) writeLittleEndian(std::uint8_t(0));
  }

  std::ostream& stream_;
  std::streamoff start_;
  std::uint64_t written_ = 0;
  bool failed_ = false;
  std::vector<Entry> entries_;
  std::vector<std::uint32_t> tileOffsets_;
  std::vector<std::uint32_t> tileByteCounts_;
};

template <typename T>
bool writeTypedTiff(std::ostream& stream, const TImageDataset<T, 3>& image) {
  constexpr std::size_t uint32Max = std::numeric_limits<std::uint32_t>::max();
  const auto& size = image.getSize();
  const auto pageSize = image.getPageSize();
  std::array<std::size_t, 3> tile{};
  for (int k = 0; k < 3; ++k) {
    if (size[k] == 0 || size[k] > uint32Max || pageSize[k] > uint32Max - tileGranularity) return false;
    tile[k] = (pageSize[k] + tileGranularity - 1) / tileGranularity * tileGranularity;
  }
  const auto counts = tileCounts(size, tile);
  if (counts[0] * counts[1] * counts[2] > uint32Max) return false;
  const TiffSampleFormat sample = tiffSampleFormatOf<T>();
  TiffDeepTileCodec::Format format;
  format.width = std::uint32_t(tile[0]);
  format.length = std::uint32_t(tile[1]);
  format.depth = std::uint32_t(tile[2]);
  format.bitsPerSample = sample.bitsPerSample;
  format.sampleFormat = sample.sampleFormat;
  format.compression = COMPRESSION_LZW;
  format.bigEndian = false;
  const TiffDeepTileCodec codec(format);
  if (codec.tileByteCount() == 0) return false;  // too large

  ClassicTiffWriter writer(stream);
  writer.addShort(TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  writer.addLong(TIFFTAG_IMAGEWIDTH, std::uint32_t(size[0]));
  writer.addLong(TIFFTAG_IMAGELENGTH, std::uint32_t(size[1]));
  writer.addLong(TIFFTAG_IMAGEDEPTH, std::uint32_t(size[2]));
  writer.addShort(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  writer.addShort(TIFFTAG_SAMPLEFORMAT, sample.sampleFormat);
  writer.addShort(TIFFTAG_BITSPERSAMPLE, sample.bitsPerSample);
  writer.addLong(TIFFTAG_TILEWIDTH, std::uint32_t(tile[0]));
  writer.addLong(TIFFTAG_TILELENGTH, std::uint32_t(tile[1]));
  writer.addLong(TIFFTAG_TILEDEPTH, std::uint32_t(tile[2]));

  std::vector<T> buffer(tile[0] * tile[1] * tile[2]);
  std::vector<unsigned char> encoded;
  bool tilesEncoded = true;
  for (std::size_t tz = 0; tz < counts[2]; ++tz)
    for (std::size_t ty = 0; ty < counts[1]; ++ty)
      for (std::size_t tx = 0; tx < counts[0]; ++tx) {
        const std::array<std::size_t, 3> begin{tx * tile[0], ty * tile[1], tz * tile[2]};
        const std::array<std::size_t, 3> end{begin[0] + tile[0], begin[1] + tile[1], begin[2] + tile[2]};
        std::fill(buffer.begin(), buffer.end(), T(0));
        image.visitRows(begin, end, [&](const T* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
          std::copy(row, row + count, buffer.data() + denseOffset(begin, tile, x, y, z));
        });
        // A failed tile fails the write; the others are still written.
        if (!codec.encode(buffer.data(), encoded)) {
          tilesEncoded = false;
          encoded.clear();
        }
        writer.appendTile(encoded);
      }
  return writer.finish() && tilesEncoded;
}

bool writeTiff(std::ostream& stream, const ImageDataset* image) {
  if (!isWritable(image)) return false;
  try {
    return withTypedImage(image, [&]<typename T>(const TImageDataset<T, 3>& typed) {
      if constexpr (isTiffVoxelType<T>)
        return writeTypedTiff(stream, typed);
      else
        return false;
    });
  } catch (const std::exception&) {  // memory, or a stream that throws
    return false;
  }
}

}  // namespace

}  // namespace tarv::imageio

namespace tarv {

using namespace imageio;

bool writeTiffFile(const std::string& path, const ImageDataset* image) {
  if (!isWritable(image)) return false;  // leaves no file behind
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file || !writeTiff(file, image)) return false;
  file.close();
  return !file.fail();
}

bool writeTiffStream(const std::string& /*name*/, std::ostream* stream, const ImageDataset* image) {
  return stream && writeTiff(*stream, image);
}

}  // namespace tarv

#include "dataset/TiffDeepTileCodec.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

namespace tarv {

namespace {

// libtiff's own allocation limit for every handle opened here: above the largest tile and its
// encoded form, far below what a corrupt directory could ask for.
constexpr tmsize_t maximumLibtiffAllocation = tmsize_t(1) << 30;

int discardTiffMessage(TIFF*, void*, const char*, const char*, va_list) {
  return 1;  // handled: nothing reaches libtiff's global handlers
}

struct TiffOptionsDeleter {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};
using TiffOptions = std::unique_ptr<TIFFOpenOptions, TiffOptionsDeleter>;

TiffOptions makeQuietOptions() {
  TiffOptions options(TIFFOpenOptionsAlloc());
  if (options) {
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), discardTiffMessage, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), discardTiffMessage, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), maximumLibtiffAllocation);
  }
  return options;
}

int noMap(thandle_t, void**, toff_t*) { return 0; }
void noUnmap(thandle_t, void*, toff_t) {}

// A growable in-memory file behind a libtiff handle.
struct MemoryTiffFile {
  std::vector<unsigned char> bytes;
  std::uint64_t position = 0;
};

MemoryTiffFile& memoryFile(thandle_t handle) { return *static_cast<MemoryTiffFile*>(handle); }

tmsize_t memoryRead(thandle_t handle, void* buffer, tmsize_t size) {
  MemoryTiffFile& file = memoryFile(handle);
  if (size <= 0 || file.position >= file.bytes.size()) return 0;
  const std::uint64_t count = std::min<std::uint64_t>(std::uint64_t(size), file.bytes.size() - file.position);
  std::memcpy(buffer, file.bytes.data() + file.position, count);
  file.position += count;
  return tmsize_t(count);
}

tmsize_t memoryWrite(thandle_t handle, void* buffer, tmsize_t size) {
  MemoryTiffFile& file = memoryFile(handle);
  if (size < 0) return -1;
  if (std::uint64_t(size) > std::uint64_t(maximumLibtiffAllocation) * 4 ||
      file.position > std::uint64_t(maximumLibtiffAllocation) * 4)
    return -1;
  const std::uint64_t end = file.position + std::uint64_t(size);
  try {
    if (end > file.bytes.size()) file.bytes.resize(end);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  if (size > 0) std::memcpy(file.bytes.data() + file.position, buffer, std::size_t(size));
  file.position = end;
  return size;
}

toff_t memorySeek(thandle_t handle, toff_t offset, int whence) {
  MemoryTiffFile& file = memoryFile(handle);
  const auto signedOffset = static_cast<std::int64_t>(offset);
  std::int64_t base = 0;
  if (whence == SEEK_CUR)
    base = std::int64_t(file.position);
  else if (whence == SEEK_END)
    base = std::int64_t(file.bytes.size());
  else if (whence != SEEK_SET)
    return toff_t(-1);
  if (whence == SEEK_SET) {
    if (offset > toff_t(std::numeric_limits<std::int64_t>::max())) return toff_t(-1);
    file.position = offset;
    return offset;
  }
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, signedOffset, &target) || target < 0) return toff_t(-1);
  file.position = std::uint64_t(target);
  return toff_t(target);
}

int memoryClose(thandle_t) { return 0; }

toff_t memorySize(thandle_t handle) { return memoryFile(handle).bytes.size(); }

TiffHandle openMemoryTiff(MemoryTiffFile& file, const char* mode) {
  file.position = 0;
  TiffOptions options = makeQuietOptions();
  if (!options) return TiffHandle();
  return TiffHandle(TIFFClientOpenExt("memory", mode, &file, memoryRead, memoryWrite, memorySeek, memoryClose,
                                      memorySize, noMap, noUnmap, options.get()));
}

bool supportsPredictor(std::uint16_t compression) {
  switch (compression) {
    case COMPRESSION_LZW:
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
    case COMPRESSION_LZMA:
    case COMPRESSION_ZSTD:
      return true;
    default:
      return false;
  }
}

bool checkedMultiply(std::uint64_t a, std::uint64_t b, std::uint64_t& product) {
  return !__builtin_mul_overflow(a, b, &product);
}

}  // namespace

void TiffHandleCloser::operator()(TIFF* tiff) const {
  if (tiff) TIFFClose(tiff);
}

TiffHandle openQuietTiffFile(const std::string& path, const char* mode) {
  TiffOptions options = makeQuietOptions();
  if (!options) return TiffHandle();
  return TiffHandle(TIFFOpenExt(path.c_str(), mode, options.get()));
}

TiffHandle openQuietTiffClient(const std::string& name, const char* mode, thandle_t client, TIFFReadWriteProc read,
                               TIFFReadWriteProc write, TIFFSeekProc seek, TIFFCloseProc close, TIFFSizeProc size) {
  TiffOptions options = makeQuietOptions();
  if (!options) return TiffHandle();
  return TiffHandle(
      TIFFClientOpenExt(name.c_str(), mode, client, read, write, seek, close, size, noMap, noUnmap, options.get()));
}

TiffDeepTileCodec::TiffDeepTileCodec(const Format& format) : format_(format) {
  std::uint64_t rowBits = 0;
  std::uint64_t rows = 0;
  std::uint64_t bytes = 0;
  if (format.width == 0 || format.length == 0 || format.depth == 0 || format.bitsPerSample == 0) return;
  if (!checkedMultiply(format.width, format.bitsPerSample, rowBits)) return;
  if (!checkedMultiply(format.length, format.depth, rows) || rows > std::numeric_limits<std::uint32_t>::max())
    return;
  const std::uint64_t rowBytes = (rowBits + 7) / 8;
  if (!checkedMultiply(rowBytes, rows, bytes) || bytes > maximumTileByteCount) return;
  tileByteCount_ = bytes;
}

std::optional<TiffDeepTileCodec> TiffDeepTileCodec::forTiff(TIFF* tiff, std::uint32_t tileDepth) {
  if (!tiff || !TIFFIsTiled(tiff)) return std::nullopt;
  Format format;
  std::uint16_t samplesPerPixel = 0;
  std::uint16_t predictor = PREDICTOR_NONE;
  if (TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &format.width) != 1 ||
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &format.length) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &format.bitsPerSample) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format.sampleFormat) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &format.compression) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_FILLORDER, &format.fillOrder) != 1 ||
      TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samplesPerPixel) != 1 || samplesPerPixel != 1)
    return std::nullopt;
  // The predictor tag exists only for the codecs that support one; asking any other codec for it
  // would read its state as a predictor's.
  if (supportsPredictor(format.compression) && TIFFGetField(tiff, TIFFTAG_PREDICTOR, &predictor) == 1)
    format.predictor = predictor;
  format.depth = tileDepth;
  format.bigEndian = TIFFIsBigEndian(tiff) != 0;
  TiffDeepTileCodec codec(format);
  if (codec.tileByteCount() == 0) return std::nullopt;
  return codec;
}

std::uint64_t TiffDeepTileCodec::maximumEncodedByteCount() const { return 2 * tileByteCount_ + 4096; }

namespace {

// One strip holding the whole tile, rows of `width` samples.
bool setStripFields(TIFF* tiff, const TiffDeepTileCodec::Format& format) {
  const std::uint32_t rows = format.length * format.depth;  // bounded by the constructor
  if (!TIFFIsCODECConfigured(format.compression)) return false;
  return TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, format.width) == 1 &&
         TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, rows) == 1 &&
         TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows) == 1 &&
         TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, format.bitsPerSample) == 1 &&
         TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, format.sampleFormat) == 1 &&
         TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) == 1 &&
         TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == 1 &&
         TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) == 1 &&
         TIFFSetField(tiff, TIFFTAG_COMPRESSION, format.compression) == 1 &&
         (format.predictor == PREDICTOR_NONE || TIFFSetField(tiff, TIFFTAG_PREDICTOR, format.predictor) == 1) &&
         (format.fillOrder == FILLORDER_MSB2LSB || TIFFSetField(tiff, TIFFTAG_FILLORDER, format.fillOrder) == 1);
}

}  // namespace

bool TiffDeepTileCodec::encode(const void* tile, std::vector<unsigned char>& encoded) const {
  if (tileByteCount_ == 0 || !tile) return false;
  try {
    // libtiff may byte-swap or otherwise alter the buffer it encodes.
    std::vector<unsigned char> scratch(static_cast<const unsigned char*>(tile),
                                       static_cast<const unsigned char*>(tile) + tileByteCount_);
    MemoryTiffFile file;
    TiffHandle tiff = openMemoryTiff(file, format_.bigEndian ? "wbm" : "wlm");
    if (!tiff || !setStripFields(tiff.get(), format_)) return false;
    if (TIFFWriteEncodedStrip(tiff.get(), 0, scratch.data(), tmsize_t(tileByteCount_)) != tmsize_t(tileByteCount_))
      return false;
    const std::uint64_t offset = TIFFGetStrileOffset(tiff.get(), 0);
    const std::uint64_t count = TIFFGetStrileByteCount(tiff.get(), 0);
    if (count == 0 || offset > file.bytes.size() || count > file.bytes.size() - offset) return false;
    encoded.assign(file.bytes.begin() + std::ptrdiff_t(offset), file.bytes.begin() + std::ptrdiff_t(offset + count));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool TiffDeepTileCodec::decode(const void* encoded, std::size_t encodedSize, void* tile) const {
  if (tileByteCount_ == 0 || !encoded || encodedSize == 0 || !tile || encodedSize > maximumEncodedByteCount())
    return false;
  // libtiff reads an uncompressed strip past its byte count instead of failing.
  if (format_.compression == COMPRESSION_NONE && encodedSize < tileByteCount_) return false;
  try {
    MemoryTiffFile file;
    {
      TiffHandle writer = openMemoryTiff(file, format_.bigEndian ? "wbm" : "wlm");
      if (!writer || !setStripFields(writer.get(), format_)) return false;
      if (TIFFWriteRawStrip(writer.get(), 0, const_cast<void*>(encoded), tmsize_t(encodedSize)) !=
          tmsize_t(encodedSize))
        return false;
      if (TIFFWriteDirectory(writer.get()) != 1) return false;
    }
    // 'c': keep the single strip whole instead of letting libtiff chop it into smaller ones.
    TiffHandle reader = openMemoryTiff(file, "rcm");
    if (!reader) return false;
    return TIFFReadEncodedStrip(reader.get(), 0, tile, tmsize_t(tileByteCount_)) == tmsize_t(tileByteCount_);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool TiffDeepTileCodec::readTile(TIFF* tiff, std::uint32_t tileIndex, void* tile) const {
  if (!tiff || tileIndex >= TIFFNumberOfTiles(tiff)) return false;
  const std::uint64_t count = TIFFGetStrileByteCount(tiff, tileIndex);
  if (count == 0 || count > maximumEncodedByteCount()) return false;
  try {
    std::vector<unsigned char> encoded(count);
    if (TIFFReadRawTile(tiff, tileIndex, encoded.data(), tmsize_t(count)) != tmsize_t(count)) return false;
    return decode(encoded.data(), encoded.size(), tile);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace tarv

#include "dataset/ImageDataset.h"

#include "dataset/TiffDeepTileCodec.h"

#include <boost/thread/exceptions.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <istream>
#include <limits>
#include <new>
#include <optional>
#include <ostream>

namespace tarv {

// ---------------------------------------------------------------------------------------------
// Type identifiers

const char* typeIdName(TypeID id) {
  switch (id) {
    case TYPE_ID_NULL: return "null";
    case TYPE_ID_BOOL: return "bool";
    case TYPE_ID_INT8: return "int8_t";
    case TYPE_ID_UINT8: return "uint8_t";
    case TYPE_ID_INT16: return "int16_t";
    case TYPE_ID_UINT16: return "uint16_t";
    case TYPE_ID_INT32: return "int32_t";
    case TYPE_ID_UINT32: return "uint32_t";
    case TYPE_ID_INT64: return "int64_t";
    case TYPE_ID_UINT64: return "uint64_t";
    case TYPE_ID_FLOAT: return "float";
    case TYPE_ID_DOUBLE: return "double";
    case TYPE_ID_RGB8: return "rgb8_t";
  }
  return "???";
}

namespace {

// Calls f(typed) with the image as its typed implementation (const when the image is); false when
// it has none.
template <typename Image, typename F>
bool withTypedImage(Image* image, F&& f) {
  return dispatchTypeId(image->type_id(), [&]<typename T>() {
    using Typed = std::conditional_t<std::is_const_v<Image>, const TImageDataset<T, 3>, TImageDataset<T, 3>>;
    auto* typed = dynamic_cast<Typed*>(image);
    return typed != nullptr && f(*typed);
  });
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// ImageDataset

namespace {

// Locks the reference count's mutex; raises boost::lock_error when there is none or locking fails.
boost::unique_lock<boost::mutex> lockMutex(boost::mutex* mutex) {
  boost::unique_lock<boost::mutex> lock =
      mutex ? boost::unique_lock<boost::mutex>(*mutex, boost::defer_lock) : boost::unique_lock<boost::mutex>();
  lock.lock();
  return lock;
}

}  // namespace

ImageDataset::ImageDataset() {
  try {
    mutex_ = std::make_unique<boost::mutex>();
  } catch (const boost::thread_resource_error&) {
    // Without a mutex every reference count operation raises boost::lock_error.
  }
}

ImageDataset::~ImageDataset() = default;

void ImageDataset::Register() const {
  boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
  ++referenceCount_;
}

void ImageDataset::UnRegister() const {
  bool last = false;
  {
    boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
    last = --referenceCount_ == 0;
  }
  // The mutex belongs to this object: it is released before the object goes.
  if (last) delete this;
}

int ImageDataset::GetRefCount() const {
  boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
  return referenceCount_;
}

TypeID ImageDataset::original_type_id() const {
  return originalTypeId_ == TYPE_ID_NULL ? type_id() : originalTypeId_;
}

bool ImageDataset::isRGBA() const { return rgba_ && type_id() == TYPE_ID_UINT32; }

void ImageDataset::setMinMaxValue(double min, double max) {
  minValue_ = min;
  maxValue_ = max;
}

void ImageDataset::computeMinMaxValueIfNeeded() const {
  if (minValue_ > maxValue_) computeMinMaxValue(this, minValue_, maxValue_);
}

double ImageDataset::getMinValue() const {
  computeMinMaxValueIfNeeded();
  return minValue_;
}

double ImageDataset::getMaxValue() const {
  computeMinMaxValueIfNeeded();
  return maxValue_;
}

void computeMinMaxValue(const ImageDataset* image, double& min, double& max) {
  if (!image || image->empty()) return;
  withTypedImage(image, [&]<typename T>(const TImageDataset<T, 3>& typed) {
    bool first = true;
    T low{};
    T high{};
    for (const Page<T, 3>& page : typed.getPages()) {
      const T* voxels = page.data();
      for (std::size_t i = 0, n = page.getVoxelCount(); i < n; ++i) {
        const T v = voxels[i];
        // Written so that a NaN becomes the maximum until the next voxel replaces it.
        if (first) {
          low = high = v;
          first = false;
        } else if (!(high >= v)) {
          high = v;
        } else if (!(v >= low)) {
          low = v;
        }
      }
    }
    if (!first) {
      min = static_cast<double>(low);
      max = static_cast<double>(high);
    }
    return true;
  });
}

#define TARV_IMAGE_TEMPLATES(T) \
  template class Page<T, 3>;    \
  template class TImageDataset<T, 3>;
TARV_IMAGE_VOXEL_TYPES(TARV_IMAGE_TEMPLATES)
#undef TARV_IMAGE_TEMPLATES

// ---------------------------------------------------------------------------------------------
// Element conversion

namespace {

// Truncates toward zero and keeps the low-order bits of the result, as wide as To. NaN and
// infinities, which have no integer part, give 0.
template <typename To>
To truncateAndWrap(double value) {
  static_assert(std::is_integral_v<To> && !std::is_same_v<To, bool>);
  if (!std::isfinite(value)) return To(0);
  constexpr double twoToThe64 = 18446744073709551616.0;
  const double reduced = std::fmod(std::trunc(value), twoToThe64);  // exact; |reduced| < 2^64
  const auto magnitude = static_cast<std::uint64_t>(std::fabs(reduced));
  const std::uint64_t bits = reduced < 0 ? std::uint64_t(0) - magnitude : magnitude;
  return static_cast<To>(bits);  // modular for every integer type
}

// IEEE rounding to float, spelled out where a plain conversion would leave the float range.
float narrowToFloat(double value) {
  constexpr double largest = std::numeric_limits<float>::max();
  constexpr double overflowBoundary = 0x1.ffffffp127;  // halfway between the largest float and 2^128
  constexpr float infinity = std::numeric_limits<float>::infinity();
  if (value >= overflowBoundary) return infinity;
  if (value <= -overflowBoundary) return -infinity;
  if (value > largest) return float(largest);
  if (value < -largest) return -float(largest);
  return static_cast<float>(value);  // NaN stays NaN
}

// The single conversion rule of the dump functions.
template <typename To, typename From>
To convertElement(From value) {
  if constexpr (std::is_same_v<To, From>)
    return value;
  else if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>)
    return truncateAndWrap<To>(static_cast<double>(value));
  else if constexpr (std::is_same_v<To, float> && std::is_same_v<From, double>)
    return narrowToFloat(value);
  else
    return static_cast<To>(value);
}

template <typename To, typename From>
void convertRun(const From* source, To* target, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) target[i] = convertElement<To>(source[i]);
}

// Offset of voxel (x, y, z) in a dense buffer holding the box of the given origin and extent,
// x fastest.
std::size_t denseOffset(const std::array<std::size_t, 3>& origin, const std::array<std::size_t, 3>& extent,
                        std::size_t x, std::size_t y, std::size_t z) {
  return ((z - origin[2]) * extent[1] + (y - origin[1])) * extent[0] + (x - origin[0]);
}

constexpr std::array<std::size_t, 3> imageOrigin{0, 0, 0};

bool isNumericTypeId(TypeID id) { return id >= TYPE_ID_INT8 && id <= TYPE_ID_DOUBLE; }

}  // namespace

bool dump(const ImageDataset* image, void* buffer, TypeID type) {
  if (!image || !buffer || !isNumericTypeId(type)) return false;
  return dispatchTypeId(type, [&]<typename To>() {
    return withTypedImage(image, [&]<typename From>(const TImageDataset<From, 3>& typed) {
      if constexpr (std::is_same_v<To, bool>) {
        return false;  // never a target
      } else {
        To* target = static_cast<To*>(buffer);
        const auto& size = typed.getSize();
        typed.visitRows(imageOrigin, size,
                        [&](const From* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
                          convertRun(row, target + denseOffset(imageOrigin, size, x, y, z), count);
                        });
        return true;
      }
    });
  });
}

bool dump(const void* buffer, TypeID type, ImageDataset* image) {
  if (!image || !buffer || !isNumericTypeId(image->type_id())) return false;
  return dispatchTypeId(type, [&]<typename From>() {
    return withTypedImage(image, [&]<typename To>(TImageDataset<To, 3>& typed) {
      if constexpr (std::is_same_v<To, bool>) {
        return false;  // never a target
      } else {
        const From* source = static_cast<const From*>(buffer);
        const auto& size = typed.getSize();
        typed.visitRows(imageOrigin, size,
                        [&](To* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
                          convertRun(source + denseOffset(imageOrigin, size, x, y, z), row, count);
                        });
        return true;
      }
    });
  });
}

// ---------------------------------------------------------------------------------------------
// TIFF writing
//
// libtiff 4.5 cannot write these files itself: it sizes tiles without their depth, so it stores
// the tile byte counts of a file with several tiles as 16-bit values whenever one slice of a tile
// is small, and then refuses to write the directory once an encoded deep tile exceeds 65535
// bytes. The tiles are therefore encoded through TiffDeepTileCodec and the file around them, a
// classic little-endian TIFF, is written here.

namespace {

struct TiffSampleFormat {
  std::uint16_t bitsPerSample;
  std::uint16_t sampleFormat;
};

// The voxel types a plain TIFF image holds: signed and unsigned 8-, 16- and 32-bit integers, float.
template <typename T>
constexpr bool isTiffVoxelType = (std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) <= 4) ||
                                 std::is_same_v<T, float>;

bool isTiffTypeId(TypeID id) { return (id >= TYPE_ID_INT8 && id <= TYPE_ID_UINT32) || id == TYPE_ID_FLOAT; }

bool isWritable(const ImageDataset* image) { return image && isTiffTypeId(image->type_id()) && !image->empty(); }

template <typename T>
constexpr TiffSampleFormat tiffSampleFormatOf() {
  const std::uint16_t format = std::is_floating_point_v<T> ? SAMPLEFORMAT_IEEEFP
                               : std::is_signed_v<T>       ? SAMPLEFORMAT_INT
                                                           : SAMPLEFORMAT_UINT;
  return {std::uint16_t(8 * sizeof(T)), format};
}

constexpr std::size_t tileGranularity = 16;

std::array<std::size_t, 3> tileCounts(const std::array<std::size_t, 3>& size, const std::array<std::size_t, 3>& tile) {
  std::array<std::size_t, 3> counts{};
  for (int k = 0; k < 3; ++k) counts[k] = size[k] / tile[k] + (size[k] % tile[k] != 0 ? 1 : 0);
  return counts;
}

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

// ---------------------------------------------------------------------------------------------
// TIFF input streams

namespace {

// Client procedures over a standard input stream; offsets count from the stream position at
// opening. A stream that throws is treated as failing: no exception may cross libtiff.
struct InputStreamClient {
  std::istream* stream;
  std::streamoff start;
};

constexpr toff_t seekFailure = static_cast<toff_t>(-1);

tmsize_t inputRead(thandle_t handle, void* buffer, tmsize_t size) {
  auto* client = static_cast<InputStreamClient*>(handle);
  if (size <= 0) return 0;
  try {
    client->stream->read(static_cast<char*>(buffer), std::streamsize(size));
    const std::streamsize count = client->stream->gcount();
    if (!*client->stream) client->stream->clear();
    return tmsize_t(count);
  } catch (...) {
    return -1;
  }
}

tmsize_t noWrite(thandle_t, void*, tmsize_t) { return -1; }
int streamClose(thandle_t) { return 0; }

std::streamoff inputEnd(std::istream& stream) {
  const std::streampos current = stream.tellg();
  stream.seekg(0, std::ios::end);
  const std::streamoff end = stream.tellg();
  stream.seekg(current);
  return end;
}

toff_t inputSeek(thandle_t handle, toff_t offset, int whence) {
  auto* client = static_cast<InputStreamClient*>(handle);
  std::istream& stream = *client->stream;
  try {
    stream.clear();
    if (offset > toff_t(std::numeric_limits<std::streamoff>::max())) return seekFailure;
    std::streamoff base = 0;
    switch (whence) {
      case SEEK_SET: base = client->start; break;
      case SEEK_CUR: base = stream.tellg(); break;
      case SEEK_END: base = inputEnd(stream); break;
      default: return seekFailure;
    }
    std::streamoff target = 0;
    if (base < 0 || __builtin_add_overflow(base, static_cast<std::streamoff>(offset), &target) ||
        target < client->start)
      return seekFailure;
    stream.seekg(target);
    if (!stream) {
      stream.clear();
      return seekFailure;
    }
    return toff_t(target - client->start);
  } catch (...) {
    return seekFailure;
  }
}

toff_t inputSize(thandle_t handle) {
  auto* client = static_cast<InputStreamClient*>(handle);
  try {
    client->stream->clear();
    const std::streamoff end = inputEnd(*client->stream);
    return end > client->start ? toff_t(end - client->start) : 0;
  } catch (...) {
    return 0;
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// TIFF reading

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
  InputStreamClient client{stream, -1};
  try {
    client.start = stream->tellg();
  } catch (...) {
    client.start = -1;
  }
  TiffHandle tiff;
  if (client.start >= 0)
    tiff = openQuietTiffClient(name, "rm", &client, inputRead, noWrite, inputSeek, streamClose, inputSize);
  if (!tiff) {
    logLine(log, "-- FAILED to open TIFF file from stream at " + name);
    return nullptr;
  }
  return readTiff(tiff.get(), name, log);
}

}  // namespace tarv

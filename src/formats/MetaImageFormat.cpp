#include "formats/MetaImageFormat.h"

#include <vtkmetaio/metaImage.h>
#include <zlib.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <cmath>
#include <iostream>
#include <mutex>
#include <sstream>
#include <vector>

#include "dataset/ByteOrder.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/ContiguousElements.h"
#include "formats/AllocationCap.h"
#include "formats/FileStatus.h"
#include "formats/SampleTypes.h"

namespace tarv::formats {

namespace {

using namespace vtkmetaio;

// MetaIO reports on std::cerr; its words are kept for the refusal instead.
class QuietMetaIo {
public:
  QuietMetaIo() : lock(mutex()), previous(std::cerr.rdbuf(captured.rdbuf())) {}
  ~QuietMetaIo() { std::cerr.rdbuf(previous); }
  QuietMetaIo(const QuietMetaIo&) = delete;
  QuietMetaIo& operator=(const QuietMetaIo&) = delete;
  // " (MetaIO: first line)" when it said something.
  std::string suffix() const {
    std::string line = captured.str();
    line = line.substr(0, line.find('\n'));
    return line.empty() ? std::string() : " (MetaIO: " + line + ")";
  }

private:
  static std::mutex& mutex() {
    static std::mutex instance;
    return instance;
  }
  std::lock_guard<std::mutex> lock;
  std::ostringstream captured;
  std::streambuf* previous;
};

struct MetaType {
  MET_ValueEnumType met;
  SampleKind kind;
  int bits;
};

constexpr MetaType kMetaTypes[] = {
    {MET_CHAR, SampleKind::signedInteger, 8},     {MET_UCHAR, SampleKind::unsignedInteger, 8},
    {MET_SHORT, SampleKind::signedInteger, 16},   {MET_USHORT, SampleKind::unsignedInteger, 16},
    {MET_INT, SampleKind::signedInteger, 32},     {MET_UINT, SampleKind::unsignedInteger, 32},
    {MET_LONG, SampleKind::signedInteger, 32},    {MET_ULONG, SampleKind::unsignedInteger, 32},
    {MET_LONG_LONG, SampleKind::signedInteger, 64}, {MET_ULONG_LONG, SampleKind::unsignedInteger, 64},
    {MET_FLOAT, SampleKind::floatingPoint, 32},   {MET_DOUBLE, SampleKind::floatingPoint, 64},
};

TARVElementType elementTypeOfMet(MET_ValueEnumType met) {
  for (const MetaType& entry : kMetaTypes)
    if (entry.met == met) return elementTypeOfSamples(entry.kind, entry.bits);
  return TARV_ELEMENT_TYPE_NO_TYPE;
}

// The first MET type of the table for the element type; MET_NONE for none.
MET_ValueEnumType metOfElementType(TARVElementType type) {
  for (const MetaType& entry : kMetaTypes)
    if (elementTypeOfSamples(entry.kind, entry.bits) == type) return entry.met;
  return MET_NONE;
}

// Where the elements start in a file whose header ends with "ElementDataFile = LOCAL"; -1 when
// the line is not found in the first megabyte.
std::int64_t localDataOffset(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string head(1 << 20, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(in.gcount()));
  const std::size_t key = head.find("ElementDataFile");
  if (key == std::string::npos) return -1;
  const std::size_t end = head.find('\n', key);
  return end == std::string::npos ? -1 : static_cast<std::int64_t>(end + 1);
}

// The file that holds the elements and where they start in it.
struct StoredData {
  std::string file;
  std::int64_t offset = 0;
};

Result<StoredData> storedDataOf(const std::string& path, const vtkmetaio::MetaImage& header) {
  const std::string name = header.ElementDataFileName();
  if (name == "LOCAL") {
    const std::int64_t offset = localDataOffset(path);
    if (offset < 0) return corruptError("no end of the MetaImage header");
    return StoredData{path, offset};
  }
  if (name.rfind("LIST", 0) == 0 || name.find('%') != std::string::npos)
    return unsupportedError("elements in a list or pattern of files (ElementDataFile " + name + ")");
  std::filesystem::path data(name);
  if (data.is_relative()) data = std::filesystem::path(path).parent_path() / data;
  return StoredData{data.string(), std::max<std::int64_t>(header.HeaderSize(), 0)};
}

// Inflates the zlib stream at the data's offset into exactly bytes bytes.
Status inflateStoredData(const StoredData& stored, unsigned char* target, std::int64_t bytes) {
  std::ifstream in(stored.file, std::ios::binary);
  if (!in || !in.seekg(stored.offset)) return notFoundError("its data file " + stored.file + " cannot be opened");
  z_stream stream{};
  if (inflateInit2(&stream, 15 + 32) != Z_OK) return resourceExhaustedError("not enough memory to decompress it");
  std::vector<unsigned char> chunk(1 << 16);
  std::int64_t produced = 0;
  int result = Z_OK;
  while (result != Z_STREAM_END) {
    if (stream.avail_in == 0) {
      in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
      stream.avail_in = static_cast<uInt>(in.gcount());
      stream.next_in = chunk.data();
      if (stream.avail_in == 0) break;
    }
    const std::int64_t room = bytes - produced;
    unsigned char spare = 0;
    stream.next_out = room > 0 ? target + produced : &spare;
    stream.avail_out = room > 0 ? static_cast<uInt>(std::min<std::int64_t>(room, 1 << 30)) : 1;
    const uInt before = stream.avail_out;
    result = inflate(&stream, Z_NO_FLUSH);
    if (room <= 0 && stream.avail_out != before) {
      inflateEnd(&stream);
      return corruptError("the compressed data holds more than the header describes");
    }
    produced += before - stream.avail_out;
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) break;
  }
  inflateEnd(&stream);
  if (result != Z_STREAM_END || produced != bytes)
    return corruptError("the compressed data gives " + std::to_string(produced) + " of " + std::to_string(bytes) +
                        " bytes (truncated or damaged)");
  return okStatus();
}

// The bytes of stored elements the file offers, against the bytes the header describes.
Status checkStoredData(const std::string& path, const vtkmetaio::MetaImage& header, std::int64_t bytes) {
  Result<StoredData> stored = storedDataOf(path, header);
  if (!stored.ok()) return stored.status();
  std::error_code error;
  const auto size = std::filesystem::file_size(stored->file, error);
  if (error) return notFoundError("its data file " + stored->file + " cannot be opened");
  const std::int64_t available = static_cast<std::int64_t>(size) - stored->offset;
  if (available < bytes)
    return corruptError("the data holds " + std::to_string(std::max<std::int64_t>(available, 0)) +
                        " bytes, the header describes " + std::to_string(bytes) + " (truncated)");
  return okStatus();
}

// MetaIO copies header keys it does not know, and text values, into fields of 255 characters
// without looking at their length, and reads as many values per array field as NDims says, whatever
// its size: keys, values and NDims are checked here first, up to the ElementDataFile line (the
// data follows).
Status checkHeaderKeys(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return openForReadingFailure(path);
  constexpr std::size_t kLongestKey = 254;
  constexpr int kMostDimensions = 10;
  std::string key, value;
  bool inKey = true;
  int line = 1;
  const auto trimmed = [](const std::string& text) {
    const std::size_t start = text.find_first_not_of(" \t\r");
    const std::size_t end = text.find_last_not_of(" \t\r");
    return start == std::string::npos ? std::string() : text.substr(start, end - start + 1);
  };
  const auto endOfKey = [&]() -> Status {
    key = trimmed(key);
    if (key.size() > kLongestKey)
      return corruptError("header line " + std::to_string(line) + ": a key of more than " + std::to_string(kLongestKey) +
                          " characters");
    return okStatus();
  };
  // MetaIO keeps text values in fields of 255 characters; arrays of numbers are parsed instead.
  static constexpr const char* numberArrays[] = {"TransformMatrix", "Rotation", "Orientation", "Offset", "Position",
                                                 "Origin", "CenterOfRotation", "ElementSpacing", "ElementSize",
                                                 "DimSize", "Color", "SequenceID", "ElementMin", "ElementMax"};
  const auto endOfValue = [&]() -> Status {
    bool numbers = false;
    for (const char* name : numberArrays) numbers = numbers || key == name;
    const std::size_t longest = numbers ? 4000 : 254;
    if (trimmed(value).size() > longest)
      return corruptError("header line " + std::to_string(line) + ": a value of more than " + std::to_string(longest) +
                          " characters");
    if (key != "NDims") return okStatus();
    const std::string text = trimmed(value);
    const bool digits = !text.empty() && text.size() <= 2 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoi(text) < 1 || std::stoi(text) > kMostDimensions)
      return corruptError("header line " + std::to_string(line) + ": NDims = " + text.substr(0, 32) + " (1 to " +
                          std::to_string(kMostDimensions) + " expected)");
    return okStatus();
  };
  for (int c = in.get(); c != std::char_traits<char>::eof(); c = in.get()) {
    if (c == '\n') {
      if (Status checked = inKey ? endOfKey() : endOfValue(); !checked.ok()) return checked;
      // The data follows the ElementDataFile line.
      if (!inKey && key == "ElementDataFile") return okStatus();
      key.clear();
      value.clear();
      inKey = true;
      ++line;
    } else if (inKey && (c == '=' || c == ':')) {
      if (Status checked = endOfKey(); !checked.ok()) return checked;
      inKey = false;
    } else if (inKey && key.size() <= 2 * kLongestKey) {
      key.push_back(static_cast<char>(c));
    } else if (!inKey && value.size() <= 4001) {
      value.push_back(static_cast<char>(c));
    }
  }
  return inKey ? endOfKey() : endOfValue();
}

}  // namespace

bool metaImageHoldsElementType(TARVElementType type) { return metOfElementType(type) != MET_NONE; }

Result<DatasetHandle> readMetaImageFile(const std::string& path) {
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  if (Status keys = checkHeaderKeys(path); !keys.ok()) return keys;
  vtkmetaio::MetaImage image;
  {
    QuietMetaIo quiet;
    if (!image.Read(path.c_str(), false)) return corruptError("not a readable MetaImage header" + quiet.suffix());
  }
  const int dimensions = image.NDims();
  if (dimensions < 1 || dimensions > 4)
    return unsupportedError(std::to_string(dimensions) + " dimensions (at most 4: x, y, z, t)");
  const TARVElementType type = elementTypeOfMet(image.ElementType());
  if (type == TARV_ELEMENT_TYPE_NO_TYPE)
    return unsupportedError("elements of MetaImage type " + std::to_string(static_cast<int>(image.ElementType())));
  int extents[5] = {1, 1, 1, 1, image.ElementNumberOfChannels()};
  for (int k = 0; k < dimensions; ++k) extents[k] = image.DimSize(k);
  std::int64_t elements = 1;
  for (int extent : extents) {
    if (extent < 1) return corruptError("a MetaImage header with an extent of " + std::to_string(extent));
    elements *= extent;
    if (elements > INT_MAX) return unsupportedError("too large: 2^31 elements or more");
  }
  if (Status cap = checkAllocation(elements, type); !cap.ok()) return cap;
  double origin[4] = {0.0, 0.0, 0.0, 0.0};
  double spacing[4] = {1.0, 1.0, 1.0, 1.0};
  TransformationMatrix orientation;
  orientation.makeIdentity();
  for (int k = 0; k < dimensions; ++k) {
    origin[k] = image.Position(k);
    spacing[k] = image.ElementSpacing(k);
    if (!std::isfinite(origin[k]) || !(spacing[k] > 0.0) || !std::isfinite(spacing[k]))
      return corruptError("a MetaImage header with spacing " + std::to_string(spacing[k]) + " or a position that is not finite");
  }
  // A direction's length scales its axis: kept in the spacing, so that voxels land where the file
  // places them and directions are unit vectors.
  for (int axis = 0; axis < std::min(dimensions, 3); ++axis) {
    double length = 0.0;
    for (int k = 0; k < std::min(dimensions, 3); ++k) length += image.TransformMatrix(axis, k) * image.TransformMatrix(axis, k);
    length = std::sqrt(length);
    const double scaled = spacing[axis] * length;
    if (!(scaled > 0.0) || !std::isfinite(scaled))
      return corruptError("a MetaImage header whose direction of axis " + std::to_string(axis) + " has no length");
    spacing[axis] = scaled;
    for (int k = 0; k < std::min(dimensions, 3); ++k) orientation(k, axis) = image.TransformMatrix(axis, k) / length;
  }

  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(DatasetCoordinates(extents[0], extents[1], extents[2], extents[3], extents[4]), type,
                      DatasetWorldEmbedding(WorldCoordinates(origin[0], origin[1], origin[2], origin[3]),
                                            WorldCoordinates(spacing[0], spacing[1], spacing[2], spacing[3]), orientation));
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  const std::int64_t bytes = elements * static_cast<std::int64_t>(dataset->getElementByteSize());
  if (image.CompressedData()) {
    // MetaIO takes a short compressed stream without a word: decompressed here.
    Result<StoredData> stored = storedDataOf(path, image);
    if (!stored.ok()) return stored.status();
    if (Status inflated = inflateStoredData(*stored, static_cast<unsigned char*>(dataset->getPlainElements()), bytes);
        !inflated.ok())
      return inflated;
    ByteOrder::convertLittleEndian(dataset->getPlainElements(), static_cast<std::size_t>(elements),
                                   dataset->getElementByteSize(), !image.BinaryDataByteOrderMSB());
    return handle;
  }
  if (Status stored = checkStoredData(path, image, bytes); !stored.ok()) return stored;
  // Read by MetaIO into its own memory, then checked against the header before it is taken.
  vtkmetaio::MetaImage data;
  {
    QuietMetaIo quiet;
    if (!data.Read(path.c_str(), true) || data.ElementData() == nullptr)
      return corruptError("the MetaImage data cannot be read (missing, short or damaged)" + quiet.suffix());
  }
  bool same = data.NDims() == dimensions && data.ElementType() == image.ElementType() &&
              data.ElementNumberOfChannels() == extents[4];
  for (int k = 0; same && k < dimensions; ++k) same = data.DimSize(k) == extents[k];
  if (!same) return corruptError("the MetaImage file changed while it was read");
  std::memcpy(dataset->getPlainElements(), data.ElementData(),
              static_cast<std::size_t>(elements) * dataset->getElementByteSize());
  return handle;
}

Status writeMetaImageFile(Dataset* dataset, const std::string& path) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  const MET_ValueEnumType met = metOfElementType(dataset->getElementType());
  if (met == MET_NONE)
    return unsupportedError("MetaImage cannot hold " + std::string(elementTypeName(dataset->getElementType())) + " elements");
  DatasetHandle holder;
  const unsigned char* block = contiguousElements(dataset, holder);
  if (block == nullptr) return resourceExhaustedError("not enough memory to write it");
  const DatasetCoordinates size = dataset->getSize();
  const int dimensions = size.t > 1 ? 4 : 3;
  const int extents[4] = {size.x, size.y, size.z, size.t};
  const DatasetWorldEmbedding& embedding = dataset->getWorldEmbedding();
  const WorldCoordinates origin = embedding.getDatasetOrigin();
  const WorldCoordinates spacing = embedding.getVoxelSpacing();
  const double spacings[4] = {spacing.x, spacing.y, spacing.z, spacing.t};
  vtkmetaio::MetaImage image(dimensions, extents, spacings, met, size.c,
                             const_cast<void*>(static_cast<const void*>(block)));
  const double origins[4] = {origin.x, origin.y, origin.z, origin.t};
  for (int k = 0; k < dimensions; ++k) image.Position(k, origins[k]);
  const TransformationMatrix orientation = embedding.getOrientation();
  for (int axis = 0; axis < dimensions; ++axis)
    for (int k = 0; k < dimensions; ++k)
      image.TransformMatrix(axis, k, axis < 3 && k < 3 ? orientation(k, axis) : (axis == k ? 1.0 : 0.0));
  // The elements stay the dataset's.
  image.AutoFreeElementData(false);
  image.BinaryDataByteOrderMSB(false);
  image.CompressedData(false);
  // MetaIO gives a name without the extension .mha or .mhd one: such a name is written under
  // another first.
  const std::string extension = std::filesystem::path(path).extension().string();
  const bool named = extension == ".mha" || extension == ".mhd";
  const std::string written = named ? path : path + ".mha";
  QuietMetaIo quiet;
  bool done = image.Write(written.c_str(), "LOCAL", true, block);
  std::error_code error;
  // MetaIO does not check its writes: a file shorter than its elements was cut (a full disk).
  const std::uintmax_t elementBytes = static_cast<std::uintmax_t>(dataset->getElementCount()) * dataset->getElementByteSize();
  const std::uintmax_t fileBytes = done ? std::filesystem::file_size(written, error) : 0;
  if (done && (error || fileBytes < elementBytes)) {
    std::filesystem::remove(written, error);
    return ioError("cannot write " + path + ": the file holds " + std::to_string(fileBytes) + " bytes, its elements " +
                   std::to_string(elementBytes) + " (is the disk full?)");
  }
  if (done && !named) std::filesystem::rename(written, path, error);
  if (!named && (!done || error)) std::filesystem::remove(written, error);
  if (!done || error) return ioError("cannot write " + path + quiet.suffix());
  return okStatus();
}

}  // namespace tarv::formats

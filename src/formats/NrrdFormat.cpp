#include "formats/NrrdFormat.h"

#include <teem/biff.h>
#include <teem/nrrd.h>
#include <zlib.h>

#include <array>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <vector>

#include "dataset/Dataset.h"
#include "formats/AllocationCap.h"
#include "formats/FileStatus.h"
#include "formats/SampleTypes.h"

namespace tarv::formats {

namespace {

struct NrrdFree {
  void operator()(Nrrd* nrrd) const { nrrdNuke(nrrd); }
};
using NrrdHandle = std::unique_ptr<Nrrd, NrrdFree>;

struct IoStateFree {
  void operator()(NrrdIoState* state) const { nrrdIoStateNix(state); }
};

// teem's error messages live in one global store: one load at a time.
std::mutex& teemMutex() {
  static std::mutex mutex;
  return mutex;
}

// The first line of teem's account of the last failure.
std::string teemReason() {
  char* text = biffGetDone(NRRD);
  std::string reason = text != nullptr ? text : "";
  std::free(text);
  // The innermost reason is the last line.
  while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) reason.pop_back();
  const std::size_t line = reason.rfind('\n');
  if (line != std::string::npos) reason = reason.substr(line + 1);
  const std::size_t start = reason.find_first_not_of(" [");
  return start == std::string::npos ? std::string() : reason.substr(start);
}

TARVElementType elementTypeOfNrrdType(int type) {
  switch (type) {
    case nrrdTypeChar: return elementTypeOfSamples(SampleKind::signedInteger, 8);
    case nrrdTypeUChar: return elementTypeOfSamples(SampleKind::unsignedInteger, 8);
    case nrrdTypeShort: return elementTypeOfSamples(SampleKind::signedInteger, 16);
    case nrrdTypeUShort: return elementTypeOfSamples(SampleKind::unsignedInteger, 16);
    case nrrdTypeInt: return elementTypeOfSamples(SampleKind::signedInteger, 32);
    case nrrdTypeUInt: return elementTypeOfSamples(SampleKind::unsignedInteger, 32);
    case nrrdTypeLLong: return elementTypeOfSamples(SampleKind::signedInteger, 64);
    case nrrdTypeULLong: return elementTypeOfSamples(SampleKind::unsignedInteger, 64);
    case nrrdTypeFloat: return elementTypeOfSamples(SampleKind::floatingPoint, 32);
    case nrrdTypeDouble: return elementTypeOfSamples(SampleKind::floatingPoint, 64);
    default: return TARV_ELEMENT_TYPE_NO_TYPE;
  }
}

bool hasSpaceDirection(const Nrrd& nrrd, unsigned int axis) {
  return nrrd.spaceDim > 0 && nrrdSpaceVecExists(nrrd.spaceDim, nrrd.axis[axis].spaceDirection);
}

bool isDomainAxis(const Nrrd& nrrd, unsigned int axis) {
  if (nrrd.spaceDim > 0) return hasSpaceDirection(nrrd, axis);
  const int kind = nrrd.axis[axis].kind;
  return kind == nrrdKindUnknown || kind == nrrdKindDomain || kind == nrrdKindSpace;
}

// The axes of the dataset: up to three domain axes in a row, optionally one axis of components
// before them (the fastest) and one of time steps after them.
struct AxisRoles {
  int components = -1;
  int firstSpace = -1;
  int spaceCount = 0;
  int time = -1;
};

Result<AxisRoles> axisRolesOf(const Nrrd& nrrd) {
  AxisRoles roles;
  for (unsigned int axis = 0; axis < nrrd.dim; ++axis) {
    if (isDomainAxis(nrrd, axis) && roles.time < 0) {
      if (roles.firstSpace < 0) roles.firstSpace = static_cast<int>(axis);
      if (roles.firstSpace + roles.spaceCount != static_cast<int>(axis))
        return unsupportedError("space axes that are not next to each other");
      ++roles.spaceCount;
    } else if (roles.firstSpace < 0 && roles.components < 0) {
      roles.components = static_cast<int>(axis);
    } else if (roles.firstSpace >= 0 && roles.time < 0) {
      roles.time = static_cast<int>(axis);
    } else {
      return unsupportedError("axis " + std::to_string(axis) + " fits none of x, y, z, time or components");
    }
  }
  if (roles.spaceCount < 1 || roles.spaceCount > 3)
    return unsupportedError(std::to_string(roles.spaceCount) + " space axes (1 to 3 are read)");
  return roles;
}

// +1 or -1 per world axis to bring the nrrd's space to LPS; empty for a space that is not one of
// the patient spaces.
Result<std::array<double, 3>> towardsLps(int space) {
  switch (space) {
    case nrrdSpaceLeftPosteriorSuperior:
    case nrrdSpaceScannerXYZ: return std::array<double, 3>{1.0, 1.0, 1.0};
    case nrrdSpaceRightAnteriorSuperior: return std::array<double, 3>{-1.0, -1.0, 1.0};
    case nrrdSpaceLeftAnteriorSuperior: return std::array<double, 3>{1.0, -1.0, 1.0};
    default: return unsupportedError("the space \"" + std::string(airEnumStr(nrrdSpace, space)) + "\" (not a patient space)");
  }
}

Result<DatasetWorldEmbedding> embeddingOf(const Nrrd& nrrd, const AxisRoles& roles) {
  double origin[4] = {0.0, 0.0, 0.0, 0.0};
  double spacing[4] = {1.0, 1.0, 1.0, 1.0};
  TransformationMatrix orientation;
  orientation.makeIdentity();
  if (nrrd.spaceDim > 0) {
    if (nrrd.spaceDim != 3) return unsupportedError(std::to_string(nrrd.spaceDim) + "-dimensional space");
    Result<std::array<double, 3>> sign = towardsLps(nrrd.space);
    if (!sign.ok()) return sign.status();
    for (int k = 0; k < 3; ++k) origin[k] = std::isfinite(nrrd.spaceOrigin[k]) ? (*sign)[k] * nrrd.spaceOrigin[k] : 0.0;
    for (int a = 0; a < roles.spaceCount; ++a) {
      const double* direction = nrrd.axis[roles.firstSpace + a].spaceDirection;
      const double length = std::sqrt(direction[0] * direction[0] + direction[1] * direction[1] + direction[2] * direction[2]);
      if (!(length > 0.0) || !std::isfinite(length)) return corruptError("a space direction without length");
      spacing[a] = length;
      for (int k = 0; k < 3; ++k) orientation(k, a) = (*sign)[k] * direction[k] / length;
    }
  } else {
    for (int a = 0; a < roles.spaceCount; ++a) {
      const double given = nrrd.axis[roles.firstSpace + a].spacing;
      if (std::isfinite(given) && given > 0.0) spacing[a] = given;
    }
  }
  if (roles.time >= 0 && std::isfinite(nrrd.axis[roles.time].spacing) && nrrd.axis[roles.time].spacing > 0.0)
    spacing[3] = nrrd.axis[roles.time].spacing;
  return DatasetWorldEmbedding(WorldCoordinates(origin[0], origin[1], origin[2], origin[3]),
                               WorldCoordinates(spacing[0], spacing[1], spacing[2], spacing[3]), orientation);
}

// Bytes of gzip data (members one after another, as gzread reads them) from in onwards; a corrupt
// or cut stream is refused. teem's gzip reader leaks its stream when the data is bad, so the data
// is checked first, with a small buffer.
Result<std::int64_t> gzipDataBytes(std::istream& in) {
  z_stream stream{};
  if (inflateInit2(&stream, 15 + 32) != Z_OK) return resourceExhaustedError("not enough memory to read it");
  std::vector<unsigned char> input(1 << 16), output(1 << 16);
  std::int64_t total = 0;
  int result = Z_OK;
  bool members = false;
  while (true) {
    if (stream.avail_in == 0) {
      in.read(reinterpret_cast<char*>(input.data()), static_cast<std::streamsize>(input.size()));
      stream.next_in = input.data();
      stream.avail_in = static_cast<uInt>(in.gcount());
      if (stream.avail_in == 0) break;
    }
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    result = inflate(&stream, Z_NO_FLUSH);
    total += static_cast<std::int64_t>(output.size() - stream.avail_out);
    if (result == Z_STREAM_END) {
      members = true;
      if (inflateReset(&stream) != Z_OK) break;
      continue;
    }
    if (result != Z_OK) break;
  }
  const std::string reason = stream.msg != nullptr ? stream.msg : "";
  inflateEnd(&stream);
  if (result == Z_STREAM_END || (members && result == Z_OK && stream.total_in == 0)) return total;
  if (result == Z_OK || result == Z_BUF_ERROR) return corruptError("the gzip data ends early");
  return corruptError("the gzip data is corrupt" + (reason.empty() ? std::string() : " (zlib: " + reason + ")"));
}

// For gzip-encoded data: the data file (the NRRD file itself when attached) holds a whole gzip
// stream of at least the bytes the header asks for.
Status checkGzipData(const std::string& path, const NrrdIoState& io, std::int64_t dataBytes) {
  if (io.encoding != nrrdEncodingGzip) return okStatus();
  const unsigned int files = io.dataFNArr != nullptr ? io.dataFNArr->len : 0;
  if (files > 1) return unsupportedError("gzip data in several data files");
  std::string dataPath = path;
  if (files == 1) {
    dataPath = io.dataFN[0] != nullptr ? io.dataFN[0] : "";
    if (dataPath == "LIST" || dataPath.empty()) return unsupportedError("gzip data in several data files");
    std::filesystem::path relative(dataPath);
    if (relative.is_relative()) dataPath = (std::filesystem::path(path).parent_path() / relative).string();
  }
  std::ifstream in(dataPath, std::ios::binary);
  if (!in) return openForReadingFailure(dataPath);
  if (files == 0) {
    // Attached data starts after the header's first empty line.
    std::string line;
    bool header = true;
    while (header && std::getline(in, line)) header = !(line.empty() || line == "\r");
    if (header) return corruptError("the data ends before it starts");
  }
  for (unsigned int skip = 0; skip < io.lineSkip; ++skip) {
    std::string line;
    if (!std::getline(in, line)) return corruptError("the data ends before it starts");
  }
  Result<std::int64_t> bytes = gzipDataBytes(in);
  if (!bytes.ok()) return bytes.status();
  const std::int64_t needed = dataBytes + (io.byteSkip > 0 ? io.byteSkip : 0);
  if (*bytes < needed)
    return corruptError("the gzip data holds " + std::to_string(*bytes) + " bytes, the header asks for " + std::to_string(needed));
  return okStatus();
}

// The format wants the dimension before the fields given per axis; teem leaks when some come
// first. The header's lines up to the empty one that ends it, from after the magic line.
Status checkFieldOrder(std::istream& in) {
  static constexpr const char* perAxis[] = {"sizes", "spacings", "thicknesses", "axis mins", "axismins", "axis maxs",
                                            "axismaxs", "centers", "centerings", "labels", "units", "kinds",
                                            "space directions"};
  in.clear();
  in.seekg(0);
  std::string line;
  std::getline(in, line);
  bool dimension = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) break;
    if (line[0] == '#') continue;
    const std::size_t colon = line.find(": ");
    // Key/value pairs (key:=value) are not fields.
    if (colon == std::string::npos || line.find(":=") < colon) continue;
    // teem takes field names in any case.
    std::string field = line.substr(0, colon);
    for (char& c : field) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (field == "dimension") dimension = true;
    if (dimension) continue;
    for (const char* name : perAxis)
      if (field == name) return corruptError("the field \"" + field + "\" comes before the dimension");
  }
  return okStatus();
}

}  // namespace

Result<DatasetHandle> readNrrdFile(const std::string& path) {
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  // teem reads other formats too (plain text tables, PNM, VTK) and leaks on some bad ones: NRRD
  // files only.
  {
    std::ifstream in(path, std::ios::binary);
    char magic[10] = {};
    in.read(magic, sizeof magic);
    const bool line = in.gcount() >= 9 && (magic[8] == '\n' || (magic[8] == '\r' && in.gcount() == 10 && magic[9] == '\n'));
    if (!line || std::memcmp(magic, "NRRD000", 7) != 0 || magic[7] < '1' || magic[7] > '9')
      return corruptError("not a NRRD file (its first line is not NRRD000 and a version)");
    if (Status order = checkFieldOrder(in); !order.ok()) return order;
  }
  std::lock_guard lock(teemMutex());
  // The header first: sizes are checked before anything is allocated for the data.
  NrrdHandle header(nrrdNew());
  std::unique_ptr<NrrdIoState, IoStateFree> headerOnly(nrrdIoStateNew());
  if (!header || !headerOnly) return resourceExhaustedError("not enough memory to read it");
  nrrdIoStateSet(headerOnly.get(), nrrdIoStateSkipData, AIR_TRUE);
  if (nrrdLoad(header.get(), path.c_str(), headerOnly.get()) != 0)
    return corruptError("not a readable NRRD file (teem: " + teemReason() + ")");
  const TARVElementType type = elementTypeOfNrrdType(header->type);
  if (type == TARV_ELEMENT_TYPE_NO_TYPE)
    return unsupportedError("samples of type \"" + std::string(airEnumStr(nrrdType, header->type)) + "\"");
  Result<AxisRoles> roles = axisRolesOf(*header);
  if (!roles.ok()) return roles.status();
  std::int64_t elements = 1;
  for (unsigned int axis = 0; axis < header->dim; ++axis) {
    const std::size_t size = header->axis[axis].size;
    if (size < 1 || size > INT_MAX) return corruptError("an axis of " + std::to_string(size) + " samples");
    elements *= static_cast<std::int64_t>(size);
    if (elements > INT_MAX) return unsupportedError("too large: 2^31 elements or more");
  }
  if (Status cap = checkAllocation(elements, type); !cap.ok()) return cap;
  if (Status gzip = checkGzipData(path, *headerOnly, elements * static_cast<std::int64_t>(nrrdTypeSize[header->type]));
      !gzip.ok())
    return gzip;
  Result<DatasetWorldEmbedding> embedding = embeddingOf(*header, *roles);
  if (!embedding.ok()) return embedding.status();
  int extents[5] = {1, 1, 1, 1, 1};
  for (int a = 0; a < roles->spaceCount; ++a) extents[a] = static_cast<int>(header->axis[roles->firstSpace + a].size);
  if (roles->time >= 0) extents[3] = static_cast<int>(header->axis[roles->time].size);
  if (roles->components >= 0) extents[4] = static_cast<int>(header->axis[roles->components].size);

  NrrdHandle nrrd(nrrdNew());
  if (!nrrd) return resourceExhaustedError("not enough memory to read it");
  if (nrrdLoad(nrrd.get(), path.c_str(), nullptr) != 0)
    return corruptError("the NRRD data cannot be read (teem: " + teemReason() + ")");
  bool same = nrrd->dim == header->dim && nrrd->type == header->type && nrrd->data != nullptr;
  for (unsigned int axis = 0; same && axis < nrrd->dim; ++axis) same = nrrd->axis[axis].size == header->axis[axis].size;
  if (!same) return corruptError("the NRRD file changed while it was read");

  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(DatasetCoordinates(extents[0], extents[1], extents[2], extents[3], extents[4]), type, *embedding);
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  // Components fastest, then x, y, z, t: the order of the nrrd's axes.
  std::memcpy(dataset->getPlainElements(), nrrd->data, static_cast<std::size_t>(elements) * dataset->getElementByteSize());
  return handle;
}

}  // namespace tarv::formats

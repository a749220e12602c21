#include "formats/NiftiFormat.h"

#include <nifti2_io.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/ContiguousElements.h"
#include "formats/AllocationCap.h"
#include "formats/FileStatus.h"
#include "formats/SampleTypes.h"

namespace tarv::formats {

namespace {

// The NIfTI datatype code that holds elements of type T exactly; 0 for none.
template <typename T>
constexpr int niftiDatatypeOf() {
  if constexpr (!isSampleType<T>) {
    return 0;
  } else if constexpr (sampleKindOf<T>() == SampleKind::floatingPoint) {
    return sizeof(T) == 4 ? DT_FLOAT32 : DT_FLOAT64;
  } else if constexpr (sampleKindOf<T>() == SampleKind::signedInteger) {
    return sizeof(T) == 1 ? DT_INT8 : sizeof(T) == 2 ? DT_INT16 : sizeof(T) == 4 ? DT_INT32 : DT_INT64;
  } else {
    return sizeof(T) == 1 ? DT_UINT8 : sizeof(T) == 2 ? DT_UINT16 : sizeof(T) == 4 ? DT_UINT32 : DT_UINT64;
  }
}

int niftiDatatypeOf(TARVElementType type) {
  int code = 0;
  dispatchElementType(type, [&]<typename T>() { code = niftiDatatypeOf<T>(); });
  return code;
}

// The element type of a datatype code (RGB24 and RGBA32: uint8 components); NO_TYPE for none.
TARVElementType elementTypeOfNiftiDatatype(int datatype) {
  if (datatype == DT_RGB24 || datatype == DT_RGBA32) return TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  ElementTypeTable::forEach([&]<typename Row>() {
    if (niftiDatatypeOf<typename Row::type>() == datatype && datatype != 0) type = Row::id;
  });
  return type;
}

std::string unsupportedSamples(int datatype) {
  switch (datatype) {
    case DT_BINARY: return "1-bit samples";
    case DT_FLOAT128: return "128-bit float samples";
    case DT_COMPLEX64:
    case DT_COMPLEX128:
    case DT_COMPLEX256: return "complex samples";
    default: return "samples of datatype " + std::to_string(datatype);
  }
}

void quietLibrary() {
  static std::once_flag once;
  std::call_once(once, [] { nifti_set_debug_level(0); });
}

struct GzClose {
  void operator()(gzFile file) const {
    if (file != nullptr) gzclose(file);
  }
};
using GzFile = std::unique_ptr<std::remove_pointer_t<gzFile>, GzClose>;

// Reads up to count bytes; the number read.
std::int64_t readBytes(gzFile file, void* buffer, std::int64_t count) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  std::int64_t done = 0;
  while (done < count) {
    const unsigned chunk = static_cast<unsigned>(std::min<std::int64_t>(count - done, 1 << 30));
    const int got = gzread(file, bytes + done, chunk);
    if (got <= 0) break;
    done += got;
  }
  return done;
}

bool writeBytes(gzFile file, const void* buffer, std::int64_t count) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  while (count > 0) {
    const unsigned chunk = static_cast<unsigned>(std::min<std::int64_t>(count, 1 << 30));
    if (gzwrite(file, bytes, chunk) != static_cast<int>(chunk)) return false;
    bytes += chunk;
    count -= chunk;
  }
  return true;
}

std::int32_t swapped32(std::int32_t value) {
  std::uint32_t u = 0;
  std::memcpy(&u, &value, 4);
  u = (u >> 24) | ((u >> 8) & 0xff00u) | ((u << 8) & 0xff0000u) | (u << 24);
  std::int32_t result = 0;
  std::memcpy(&result, &u, 4);
  return result;
}

// The header's version from its first four bytes: 1, 2, or 0 when it is neither.
int headerVersion(const unsigned char* bytes, std::int64_t count) {
  if (count < 4) return 0;
  std::int32_t size = 0;
  std::memcpy(&size, bytes, 4);
  for (std::int32_t s : {size, swapped32(size)}) {
    if (s == 348 && count >= 348) return 1;
    if (s == 540 && count >= 540) return 2;
  }
  return 0;
}

struct HeaderBytes {
  unsigned char bytes[sizeof(nifti_2_header)] = {};
  std::int64_t count = 0;
};

HeaderBytes readHeaderBytes(gzFile file) {
  static_assert(sizeof(nifti_1_header) == 348 && sizeof(nifti_2_header) == 540);
  HeaderBytes header;
  header.count = readBytes(file, header.bytes, sizeof(header.bytes));
  return header;
}

// The dimensions and datatype, checked before the library sees them (it prints what it refuses).
Status checkHeaderFields(const HeaderBytes& bytes, int version) {
  std::int64_t dim[8] = {};
  int datatype = 0;
  if (version == 1) {
    nifti_1_header one;
    std::memcpy(&one, bytes.bytes, sizeof(one));
    // The library tells the byte order by dim[0] and swaps by the magic's version: both must agree
    // with the header size's byte order (it writes past dim[] otherwise).
    const bool swapped = one.sizeof_hdr != 348;
    const auto dimensions = static_cast<std::uint16_t>(one.dim[0]);
    const auto swappedDimensions = static_cast<std::uint16_t>((dimensions >> 8) | (dimensions << 8));
    const bool dimensionsSwapped = !(dimensions >= 1 && dimensions <= 7) && swappedDimensions >= 1 && swappedDimensions <= 7;
    if (swapped != dimensionsSwapped)
      return corruptError("a NIfTI header whose size and dimension count disagree on the byte order");
    const char* magic = one.magic;
    const bool laterVersion = magic[0] == 'n' && magic[3] == '\0' && (magic[1] == 'i' || magic[1] == '+') &&
                              magic[2] >= '2' && magic[2] <= '9';
    if (swapped && laterVersion) return corruptError("a NIfTI-1 header with the magic of version " + std::string(1, magic[2]));
    if (swapped) swap_nifti_header(&one, 1);
    for (int k = 0; k < 8; ++k) dim[k] = one.dim[k];
    datatype = one.datatype;
  } else {
    nifti_2_header two;
    std::memcpy(&two, bytes.bytes, sizeof(two));
    if (two.sizeof_hdr != 540) swap_nifti_header(&two, 2);
    for (int k = 0; k < 8; ++k) dim[k] = two.dim[k];
    datatype = two.datatype;
  }
  if (dim[0] < 1 || dim[0] > 7) return corruptError("a NIfTI header with " + std::to_string(dim[0]) + " dimensions");
  for (int k = 1; k <= dim[0]; ++k)
    if (dim[k] < 1) return corruptError("a NIfTI header with an extent of " + std::to_string(dim[k]));
  if (elementTypeOfNiftiDatatype(datatype) == TARV_ELEMENT_TYPE_NO_TYPE) return unsupportedError(unsupportedSamples(datatype));
  return okStatus();
}

struct NimFree {
  void operator()(nifti_image* nim) const { nifti_image_free(nim); }
};
using Nim = std::unique_ptr<nifti_image, NimFree>;

// The file that holds the voxels of a header file of a .hdr/.img pair.
std::string imageFileOfPair(const std::string& path) {
  std::string image = path;
  for (const char* suffix : {".hdr.gz", ".hdr", ".HDR.GZ", ".HDR"}) {
    const std::size_t length = std::strlen(suffix);
    if (image.size() > length && image.compare(image.size() - length, length, suffix) == 0) {
      image.replace(image.size() - length, 4, std::string(suffix).substr(0, 4) == ".hdr" ? ".img" : ".IMG");
      return image;
    }
  }
  return std::string();
}

// x and y of a NIfTI (RAS) matrix and an LPS one differ in sign.
nifti_dmat44 flippedXY(const nifti_dmat44& m) {
  nifti_dmat44 result = m;
  for (int column = 0; column < 4; ++column) {
    result.m[0][column] = -m.m[0][column];
    result.m[1][column] = -m.m[1][column];
  }
  return result;
}

Result<DatasetWorldEmbedding> embeddingOf(const nifti_image& nim) {
  const nifti_dmat44 ras = nim.sform_code > 0 ? nim.sto_xyz : nim.qto_xyz;
  const nifti_dmat44 lps = flippedXY(ras);
  double spacing[3] = {};
  TransformationMatrix orientation;
  orientation.makeIdentity();
  for (int column = 0; column < 3; ++column) {
    double norm = 0.0;
    for (int row = 0; row < 3; ++row) norm += lps.m[row][column] * lps.m[row][column];
    norm = std::sqrt(norm);
    if (!(norm > 0.0) || !std::isfinite(norm))
      return unsupportedError("a voxel-to-world matrix whose voxel axis " + std::to_string(column) +
                              " has no length");
    spacing[column] = norm;
    for (int row = 0; row < 3; ++row) orientation(row, column) = lps.m[row][column] / norm;
  }
  for (int row = 0; row < 3; ++row)
    if (!std::isfinite(lps.m[row][3])) return unsupportedError("a voxel-to-world matrix that is not finite");
  const double timeSpacing = nim.ndim >= 4 && nim.dim[4] > 1 && nim.dt > 0.0 && std::isfinite(nim.dt) ? nim.dt : 1.0;
  const double timeOrigin = std::isfinite(nim.toffset) ? nim.toffset : 0.0;
  return DatasetWorldEmbedding(WorldCoordinates(lps.m[0][3], lps.m[1][3], lps.m[2][3], timeOrigin),
                               WorldCoordinates(spacing[0], spacing[1], spacing[2], timeSpacing), orientation);
}

}  // namespace

bool looksLikeNiftiHeader(const std::string& path) {
  GzFile file(gzopen(path.c_str(), "rb"));
  if (!file) return false;
  const HeaderBytes header = readHeaderBytes(file.get());
  if (headerVersion(header.bytes, header.count) == 0) return false;
  // The magic of a NIfTI file; an Analyze 7.5 header has none.
  const unsigned char* magic = header.bytes + (headerVersion(header.bytes, header.count) == 1 ? 344 : 4);
  return magic[0] == 'n' && (magic[1] == 'i' || magic[1] == '+') && (magic[2] == '1' || magic[2] == '2');
}

Result<DatasetHandle> readNiftiFile(const std::string& path) {
  quietLibrary();
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  GzFile file(gzopen(path.c_str(), "rb"));
  if (!file) return openForReadingFailure(path);
  HeaderBytes header = readHeaderBytes(file.get());
  const int version = headerVersion(header.bytes, header.count);
  if (version == 0) return corruptError("not a NIfTI file (no NIfTI-1 or NIfTI-2 header)");
  if (Status checked = checkHeaderFields(header, version); !checked.ok()) return checked;
  Nim nim;
  if (version == 1) {
    nifti_1_header one;
    std::memcpy(&one, header.bytes, sizeof(one));
    nim.reset(nifti_convert_n1hdr2nim(one, path.c_str()));
  } else {
    nifti_2_header two;
    std::memcpy(&two, header.bytes, sizeof(two));
    nim.reset(nifti_convert_n2hdr2nim(two, path.c_str()));
  }
  if (!nim) return corruptError("a NIfTI header that cannot be used (dimensions or datatype out of range)");
  if (nim->ndim < 1 || nim->ndim > 7) return corruptError("a NIfTI header with " + std::to_string(nim->ndim) + " dimensions");
  // Extents past the header's dimension count are 1, whatever the header holds there.
  auto extent = [&](int axis) { return axis <= nim->ndim ? nim->dim[axis] : std::int64_t{1}; };
  if (extent(6) > 1 || extent(7) > 1) return unsupportedError("more than five dimensions");
  const TARVElementType type = elementTypeOfNiftiDatatype(nim->datatype);
  if (type == TARV_ELEMENT_TYPE_NO_TYPE) return unsupportedError(unsupportedSamples(nim->datatype));
  const bool interleaved = nim->datatype == DT_RGB24 || nim->datatype == DT_RGBA32;
  if (interleaved && extent(5) > 1) return unsupportedError("RGB voxels with a fifth dimension");
  const std::int64_t components = interleaved ? (nim->datatype == DT_RGB24 ? 3 : 4) : extent(5);
  const std::int64_t extents[5] = {extent(1), extent(2), extent(3), extent(4), components};
  std::int64_t elements = 1;
  for (std::int64_t extent : extents) {
    if (extent < 1 || extent > INT_MAX) return corruptError("a NIfTI header with an extent of " + std::to_string(extent));
    elements *= extent;
    if (elements > INT_MAX) return unsupportedError("too large: 2^31 elements or more");
  }
  if (Status cap = checkAllocation(elements, type); !cap.ok()) return cap;
  Result<DatasetWorldEmbedding> embedding = embeddingOf(*nim);
  if (!embedding.ok()) return embedding.status();
  const DatasetCoordinates size(static_cast<int>(extents[0]), static_cast<int>(extents[1]),
                                static_cast<int>(extents[2]), static_cast<int>(extents[3]),
                                static_cast<int>(extents[4]));

  // The voxels: after the header in a single file, else in the pair's image file.
  GzFile imageFile;
  gzFile voxels = file.get();
  std::string voxelPath = path;
  if (nim->nifti_type == NIFTI_FTYPE_NIFTI1_2 || nim->nifti_type == NIFTI_FTYPE_NIFTI2_2 ||
      nim->nifti_type == NIFTI_FTYPE_ANALYZE) {
    const std::string image = imageFileOfPair(path);
    if (image.empty()) return unsupportedError("a header of a .hdr/.img pair not named .hdr");
    if (Status readable = checkReadableFile(image); !readable.ok()) return readable.withContext(image);
    imageFile.reset(gzopen(image.c_str(), "rb"));
    if (!imageFile) return openForReadingFailure(image);
    voxels = imageFile.get();
    voxelPath = image;
  }
  const std::int64_t offset = nim->iname_offset;
  if (offset < 0 || (!imageFile && offset < (version == 1 ? 348 : 540)))
    return corruptError("a voxel offset of " + std::to_string(offset) + " inside the header");
  if (gzseek(voxels, static_cast<z_off_t>(offset), SEEK_SET) != static_cast<z_off_t>(offset))
    return corruptError("the file ends before the voxel offset " + std::to_string(offset));
  // An uncompressed file must hold the voxels its header claims before memory is taken for them.
  const std::int64_t claimed = elements * static_cast<std::int64_t>(DatasetMemory::getElementTypeByteSize(type));
  std::error_code sizeError;
  const std::uintmax_t fileBytes = std::filesystem::file_size(voxelPath, sizeError);
  if (gzdirect(voxels) && !sizeError && static_cast<std::int64_t>(fileBytes) - offset < claimed)
    return corruptError("the voxels end after " +
                        std::to_string(std::max<std::int64_t>(static_cast<std::int64_t>(fileBytes) - offset, 0)) + " of " +
                        std::to_string(claimed) + " bytes (truncated)");

  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(size, type, *embedding);
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  const int elementBytes = static_cast<int>(dataset->getElementByteSize());
  const std::int64_t bytes = elements * elementBytes;
  std::vector<unsigned char> stored;
  const bool direct = components == 1 || interleaved;
  unsigned char* target = static_cast<unsigned char*>(dataset->getPlainElements());
  if (!direct) {
    stored.resize(static_cast<std::size_t>(bytes));
    target = stored.data();
  }
  const std::int64_t got = readBytes(voxels, target, bytes);
  if (got != bytes)
    return corruptError("the voxels end after " + std::to_string(got) + " of " + std::to_string(bytes) +
                        " bytes (truncated)");
  if (nim->byteorder != nifti_short_order() && nim->swapsize > 1)
    nifti_swap_Nbytes(bytes / nim->swapsize, nim->swapsize, target);
  if (!direct)
    interleaveComponents(stored.data(), static_cast<unsigned char*>(dataset->getPlainElements()),
                         static_cast<std::size_t>(elements / components), static_cast<int>(components), elementBytes);
  const double slope = nim->scl_slope;
  const double intercept = nim->scl_inter;
  if (std::isfinite(slope) && std::isfinite(intercept) && slope != 0.0 && !(slope == 1.0 && intercept == 0.0)) {
    ModalityLUT lut;
    lut.set(slope, intercept);
    dataset->setModalityLUT(lut);
  }
  return handle;
}

bool niftiHoldsElementType(TARVElementType type) { return niftiDatatypeOf(type) != 0; }

Status writeNiftiFile(Dataset* dataset, const std::string& path, bool compressed) {
  quietLibrary();
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  const TARVElementType type = dataset->getElementType();
  const int datatype = niftiDatatypeOf(type);
  if (datatype == 0) return unsupportedError("NIfTI cannot hold " + std::string(elementTypeName(type)) + " elements");
  DatasetHandle holder;
  const unsigned char* block = contiguousElements(dataset, holder);
  if (block == nullptr) return resourceExhaustedError("not enough memory to write it");
  Dataset* data = GetRawPtr(holder) != nullptr ? GetRawPtr(holder) : dataset;
  const DatasetCoordinates size = data->getSize();
  bool nifti2 = std::max({size.x, size.y, size.z, size.t, size.c}) > 32767;
  const std::int64_t dims[8] = {size.c > 1 ? 5 : size.t > 1 ? 4 : 3, size.x, size.y, size.z, size.t, size.c, 1, 1};
  Nim nim(nifti_make_new_nim(dims, datatype, 0));
  if (!nim) return resourceExhaustedError("not enough memory to write it");

  const DatasetWorldEmbedding& embedding = data->getWorldEmbedding();
  const TransformationMatrix& voxelToWorld = embedding.getVoxel2WorldMatrix();
  nifti_dmat44 lps;
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) lps.m[row][column] = row < 3 ? voxelToWorld(row, column) : 0.0;
  for (int column = 0; column < 3; ++column) lps.m[3][column] = 0.0;
  lps.m[3][3] = 1.0;
  const nifti_dmat44 ras = flippedXY(lps);
  nim->sto_xyz = ras;
  nim->sform_code = NIFTI_XFORM_SCANNER_ANAT;
  double qb = 0, qc = 0, qd = 0, qx = 0, qy = 0, qz = 0, dx = 0, dy = 0, dz = 0, qfac = 1;
  nifti_dmat44_to_quatern(ras, &qb, &qc, &qd, &qx, &qy, &qz, &dx, &dy, &dz, &qfac);
  nim->quatern_b = qb;
  nim->quatern_c = qc;
  nim->quatern_d = qd;
  nim->qoffset_x = qx;
  nim->qoffset_y = qy;
  nim->qoffset_z = qz;
  nim->qfac = qfac;
  nim->qform_code = NIFTI_XFORM_SCANNER_ANAT;
  const WorldCoordinates spacing = embedding.getVoxelSpacing();
  nim->dx = nim->pixdim[1] = spacing.x;
  nim->dy = nim->pixdim[2] = spacing.y;
  nim->dz = nim->pixdim[3] = spacing.z;
  nim->dt = nim->pixdim[4] = size.t > 1 ? spacing.t : 1.0;
  nim->pixdim[0] = qfac;
  nim->toffset = embedding.getDatasetOrigin().t;
  nim->xyz_units = NIFTI_UNITS_MM;
  if (size.c > 1) nim->intent_code = NIFTI_INTENT_VECTOR;
  const ModalityLUT& lut = data->getModalityLUT();
  nim->scl_slope = lut.isValid() ? lut.getSlope() : 0.0;
  nim->scl_inter = lut.isValid() ? lut.getIntercept() : 0.0;
  // NIfTI-1 stores geometry and scaling in 32-bit floats; beyond their range (or so small that
  // they would become 0) NIfTI-2's doubles.
  const auto fitsFloat = [](double value) {
    return value == 0.0 ||
           (std::abs(value) >= std::numeric_limits<float>::min() && std::abs(value) <= std::numeric_limits<float>::max());
  };
  bool geometryFitsFloat = fitsFloat(nim->qoffset_x) && fitsFloat(nim->qoffset_y) && fitsFloat(nim->qoffset_z) &&
                           fitsFloat(nim->dx) && fitsFloat(nim->dy) && fitsFloat(nim->dz) && fitsFloat(nim->dt) &&
                           fitsFloat(nim->toffset) && fitsFloat(nim->scl_slope) && fitsFloat(nim->scl_inter);
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 4; ++column) geometryFitsFloat = geometryFitsFloat && fitsFloat(ras.m[row][column]);
  if (!geometryFitsFloat) nifti2 = true;
  nim->nifti_type = nifti2 ? NIFTI_FTYPE_NIFTI2_1 : NIFTI_FTYPE_NIFTI1_1;
  const int headerSize = nifti2 ? 540 : 348;
  nim->iname_offset = headerSize + 4;

  std::vector<unsigned char> header(static_cast<std::size_t>(headerSize + 4), 0);
  if (nifti2) {
    nifti_2_header two;
    if (nifti_convert_nim2n2hdr(nim.get(), &two) != 0) return invalidArgumentError("a header NIfTI cannot hold");
    for (int k = 1; k < 8; ++k) two.dim[k] = dims[k];
    std::memcpy(header.data(), &two, sizeof(two));
  } else {
    nifti_1_header one;
    if (nifti_convert_nim2n1hdr(nim.get(), &one) != 0) return invalidArgumentError("a header NIfTI cannot hold");
    // Unused extents are 1, as readers expect.
    for (int k = 1; k < 8; ++k) one.dim[k] = static_cast<short>(dims[k]);
    std::memcpy(header.data(), &one, sizeof(one));
  }

  const std::int64_t elements = static_cast<std::int64_t>(size.x) * size.y * size.z * size.t * size.c;
  const int elementBytes = static_cast<int>(data->getElementByteSize());
  std::vector<unsigned char> planar;
  if (size.c > 1) {
    // Components slowest in the file.
    planar.resize(static_cast<std::size_t>(elements * elementBytes));
    separateComponents(block, planar.data(), static_cast<std::size_t>(elements / size.c), size.c, elementBytes);
    block = planar.data();
  }

  GzFile file(gzopen(path.c_str(), compressed ? "wb6" : "wbT"));
  if (!file) return openForWritingFailure(path);
  if (!writeBytes(file.get(), header.data(), static_cast<std::int64_t>(header.size())) ||
      !writeBytes(file.get(), block, elements * elementBytes))
    return ioError("cannot write " + path);
  if (gzclose(file.release()) != Z_OK) return ioError("cannot write " + path);
  return okStatus();
}

}  // namespace tarv::formats

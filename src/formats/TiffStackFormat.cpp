#include "formats/TiffStackFormat.h"

#include <tiffio.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <vector>

#include "dataset/Dataset.h"
#include "dataset/DatasetFileReadModule.h"
#include "dataset/FileReadDataset.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/ContiguousElements.h"
#include "formats/AllocationCap.h"
#include "formats/FileIdentity.h"
#include "formats/FileStatus.h"
#include "formats/SampleTypes.h"
#include "formats/TiffMessages.h"

namespace tarv::formats {

namespace {

struct PageLayout {
  std::uint32_t width = 0;
  std::uint32_t length = 0;
  std::uint16_t samples = 1;
  std::uint16_t bits = 0;
  std::uint16_t planar = PLANARCONFIG_CONTIG;
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  bool tiled = false;

  bool sameShapeAs(const PageLayout& other) const {
    return width == other.width && length == other.length && samples == other.samples && type == other.type;
  }
};

// The kind of samples of a TIFF sample format; empty for complex and unknown formats.
std::optional<SampleKind> sampleKindOfFormat(std::uint16_t format) {
  switch (format) {
    case SAMPLEFORMAT_UINT:
    case SAMPLEFORMAT_VOID: return SampleKind::unsignedInteger;
    case SAMPLEFORMAT_INT: return SampleKind::signedInteger;
    case SAMPLEFORMAT_IEEEFP: return SampleKind::floatingPoint;
    default: return std::nullopt;
  }
}

Result<PageLayout> readPageLayout(TIFF* tiff, int page) {
  const std::string where = "page " + std::to_string(page) + ": ";
  PageLayout layout;
  if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width) != 1 || TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.length) != 1)
    return corruptError(where + "no image width or length");
  if (layout.width < 1 || layout.length < 1 || layout.width > INT_MAX || layout.length > INT_MAX)
    return corruptError(where + "an image of " + std::to_string(layout.width) + " x " + std::to_string(layout.length));
  std::uint32_t depth = 1;
  if (TIFFGetField(tiff, TIFFTAG_IMAGEDEPTH, &depth) == 1 && depth > 1)
    return unsupportedError(where + "3-D (deep) images of " + std::to_string(depth) + " slices in one page");
  std::uint16_t format = SAMPLEFORMAT_UINT;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  std::uint16_t orientation = ORIENTATION_TOPLEFT;
  std::uint16_t compression = COMPRESSION_NONE;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &layout.planar);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  if (!TIFFIsCODECConfigured(compression))
    return unsupportedError(where + "compression " + std::to_string(compression) + ", which libtiff cannot decode here");
  if (photometric == PHOTOMETRIC_PALETTE) return unsupportedError(where + "palette colours");
  if (photometric == PHOTOMETRIC_YCBCR) {
    // JPEG-compressed YCbCr is decoded to RGB by libtiff; other YCbCr is subsampled.
    if (compression != COMPRESSION_JPEG) return unsupportedError(where + "YCbCr colours");
    TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  } else if (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE &&
             photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_SEPARATED) {
    return unsupportedError(where + "photometric interpretation " + std::to_string(photometric));
  }
  if (orientation != ORIENTATION_TOPLEFT)
    return unsupportedError(where + "orientation " + std::to_string(orientation) + " (rows not stored top to bottom)");
  if (layout.samples < 1 || layout.samples > 4)
    return unsupportedError(where + std::to_string(layout.samples) + " samples per pixel (at most 4)");
  if (layout.planar != PLANARCONFIG_CONTIG && layout.planar != PLANARCONFIG_SEPARATE)
    return corruptError(where + "planar configuration " + std::to_string(layout.planar));
  const std::optional<SampleKind> kind = sampleKindOfFormat(format);
  if (!kind) return unsupportedError(where + std::to_string(layout.bits) + "-bit complex or unknown samples");
  layout.type = elementTypeOfSamples(*kind, layout.bits);
  if (layout.type == TARV_ELEMENT_TYPE_NO_TYPE) return unsupportedError(where + samplesText(*kind, layout.bits));
  layout.tiled = TIFFIsTiled(tiff) != 0;
  return layout;
}

// Copies rows of one plane (or of all samples, contiguous) into the page, samples fastest.
// source holds `rows` rows of `columns` pixels of `step` samples each, `sourceRowBytes` apart.
void placeRows(unsigned char* page, const PageLayout& layout, int sampleBytes, int plane, std::uint32_t x0,
               std::uint32_t y0, std::uint32_t columns, std::uint32_t rows, const unsigned char* source,
               std::size_t sourceRowBytes) {
  const std::size_t pixelBytes = static_cast<std::size_t>(layout.samples) * sampleBytes;
  const std::size_t pageRowBytes = static_cast<std::size_t>(layout.width) * pixelBytes;
  const bool contiguous = layout.planar == PLANARCONFIG_CONTIG || layout.samples == 1;
  for (std::uint32_t row = 0; row < rows; ++row) {
    unsigned char* target = page + (y0 + row) * pageRowBytes + x0 * pixelBytes;
    const unsigned char* from = source + row * sourceRowBytes;
    if (contiguous) {
      std::memcpy(target, from, columns * pixelBytes);
      continue;
    }
    for (std::uint32_t column = 0; column < columns; ++column)
      std::memcpy(target + column * pixelBytes + plane * sampleBytes, from + column * sampleBytes, sampleBytes);
  }
}

Status readStrips(TIFF* tiff, const PageLayout& layout, int sampleBytes, unsigned char* page, const TiffErrors& errors,
                  const std::string& where) {
  std::uint32_t rowsPerStrip = layout.length;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
  rowsPerStrip = std::clamp<std::uint32_t>(rowsPerStrip, 1, layout.length);
  const int planes = layout.planar == PLANARCONFIG_SEPARATE ? layout.samples : 1;
  const std::size_t rowBytes =
      static_cast<std::size_t>(layout.width) * sampleBytes * (planes == 1 ? layout.samples : 1);
  const std::uint32_t stripsPerPlane = (layout.length + rowsPerStrip - 1) / rowsPerStrip;
  if (static_cast<std::uint64_t>(stripsPerPlane) * planes > TIFFNumberOfStrips(tiff))
    return corruptError(where + "fewer strips than its rows need");
  std::vector<unsigned char> strip(rowBytes * rowsPerStrip);
  for (int plane = 0; plane < planes; ++plane)
    for (std::uint32_t s = 0; s < stripsPerPlane; ++s) {
      const std::uint32_t y0 = s * rowsPerStrip;
      const std::uint32_t rows = std::min(rowsPerStrip, layout.length - y0);
      const tmsize_t want = static_cast<tmsize_t>(rows * rowBytes);
      const tmsize_t got = TIFFReadEncodedStrip(tiff, plane * stripsPerPlane + s, strip.data(), want);
      if (got < want)
        return corruptError(where + "strip " + std::to_string(plane * stripsPerPlane + s) + " cannot be read" +
                            errors.suffix());
      placeRows(page, layout, sampleBytes, plane, 0, y0, layout.width, rows, strip.data(), rowBytes);
    }
  return okStatus();
}

Status readTiles(TIFF* tiff, const PageLayout& layout, int sampleBytes, unsigned char* page, const TiffErrors& errors,
                 const std::string& where) {
  std::uint32_t tileWidth = 0;
  std::uint32_t tileLength = 0;
  TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tileWidth);
  TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileLength);
  if (tileWidth < 1 || tileLength < 1) return corruptError(where + "tiles without a width or length");
  const tmsize_t tileBytes = TIFFTileSize(tiff);
  const int planes = layout.planar == PLANARCONFIG_SEPARATE ? layout.samples : 1;
  const std::size_t tileRowBytes = static_cast<std::size_t>(tileWidth) * sampleBytes * (planes == 1 ? layout.samples : 1);
  if (tileBytes <= 0 || static_cast<std::uint64_t>(tileBytes) < tileRowBytes * tileLength)
    return corruptError(where + "a tile size that does not fit its tiles" + errors.suffix());
  // Tiles may be larger than the page; what they claim is capped before it is allocated.
  if (Status cap = checkAllocation(static_cast<std::int64_t>(tileBytes), TARV_ELEMENT_TYPE_UNSIGNED_CHAR); !cap.ok())
    return Status(cap.code(), where + "tiles of " + std::to_string(tileBytes) + " bytes: " + cap.message());
  std::vector<unsigned char> tile(static_cast<std::size_t>(tileBytes));
  for (int plane = 0; plane < planes; ++plane)
    for (std::uint32_t y0 = 0; y0 < layout.length; y0 += tileLength)
      for (std::uint32_t x0 = 0; x0 < layout.width; x0 += tileWidth) {
        const std::uint32_t index = TIFFComputeTile(tiff, x0, y0, 0, static_cast<std::uint16_t>(plane));
        if (TIFFReadEncodedTile(tiff, index, tile.data(), tileBytes) < 0)
          return corruptError(where + "tile " + std::to_string(index) + " cannot be read" + errors.suffix());
        placeRows(page, layout, sampleBytes, plane, x0, y0, std::min(tileWidth, layout.width - x0),
                  std::min(tileLength, layout.length - y0), tile.data(), tileRowBytes);
      }
  return okStatus();
}

// The directories of full-resolution pages.
std::vector<tdir_t> fullResolutionPages(TIFF* tiff) {
  std::vector<tdir_t> pages;
  if (!TIFFSetDirectory(tiff, 0)) return pages;
  do {
    std::uint32_t subfileType = 0;
    if (TIFFGetField(tiff, TIFFTAG_SUBFILETYPE, &subfileType) != 1 || (subfileType & FILETYPE_REDUCEDIMAGE) == 0)
      pages.push_back(TIFFCurrentDirectory(tiff));
  } while (TIFFReadDirectory(tiff));
  return pages;
}

// The TIFF sample format of elements of the type; 0 for none.
std::uint16_t sampleFormatOf(TARVElementType type) {
  std::uint16_t format = 0;
  dispatchElementType(type, [&]<typename T>() {
    if constexpr (isSampleType<T>) {
      constexpr SampleKind kind = sampleKindOf<T>();
      format = kind == SampleKind::floatingPoint   ? SAMPLEFORMAT_IEEEFP
               : kind == SampleKind::signedInteger ? SAMPLEFORMAT_INT
                                                   : SAMPLEFORMAT_UINT;
    }
  });
  return format;
}

}  // namespace

bool tiffStackHoldsElementType(TARVElementType type) { return sampleFormatOf(type) != 0; }

Status writeTiffStack(Dataset* dataset, const std::string& path) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  const std::uint16_t format = sampleFormatOf(dataset->getElementType());
  if (format == 0) return unsupportedError("a TIFF stack cannot hold " + std::string(elementTypeName(dataset->getElementType())) + " elements");
  const DatasetCoordinates size = dataset->getSize();
  if (size.c > 4) return unsupportedError("a TIFF stack holds at most 4 components; the data has " + std::to_string(size.c));
  DatasetHandle holder;
  const unsigned char* block = contiguousElements(dataset, holder);
  if (block == nullptr) return resourceExhaustedError("not enough memory to write it");
  const int sampleBytes = static_cast<int>(dataset->getElementByteSize());
  const std::size_t rowBytes = static_cast<std::size_t>(size.x) * size.c * sampleBytes;
  const std::size_t pageBytes = rowBytes * size.y;
  const bool big = pageBytes * size.z >= (std::size_t{1} << 31);
  TiffErrors errors;
  TiffHandle tiff = openTiffFileCollectingErrors(path, big ? "w8" : "w", errors);
  if (!tiff) return openForWritingFailure(path);
  const std::uint32_t rowsPerStrip = static_cast<std::uint32_t>(std::clamp<std::size_t>((1u << 16) / std::max<std::size_t>(rowBytes, 1), 1, size.y));
  for (int z = 0; z < size.z; ++z) {
    TIFF* t = tiff.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(size.x));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(size.y));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(size.c));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(8 * sampleBytes));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, format);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, static_cast<std::uint16_t>(PLANARCONFIG_CONTIG));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, static_cast<std::uint16_t>(size.c >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK));
    if (size.c == 2 || size.c == 4) {
      const std::uint16_t extra[1] = {EXTRASAMPLE_UNSPECIFIED};
      TIFFSetField(t, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(1), extra);
    }
    TIFFSetField(t, TIFFTAG_COMPRESSION, static_cast<std::uint16_t>(COMPRESSION_ADOBE_DEFLATE));
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    if (size.z > 1 && size.z <= 65535) {
      TIFFSetField(t, TIFFTAG_SUBFILETYPE, static_cast<std::uint32_t>(FILETYPE_PAGE));
      TIFFSetField(t, TIFFTAG_PAGENUMBER, static_cast<std::uint16_t>(z), static_cast<std::uint16_t>(size.z));
    }
    const unsigned char* page = block + static_cast<std::size_t>(z) * pageBytes;
    for (std::uint32_t y0 = 0, strip = 0; y0 < static_cast<std::uint32_t>(size.y); y0 += rowsPerStrip, ++strip) {
      const std::uint32_t rows = std::min<std::uint32_t>(rowsPerStrip, size.y - y0);
      if (TIFFWriteEncodedStrip(t, strip, const_cast<unsigned char*>(page + y0 * rowBytes), static_cast<tmsize_t>(rows * rowBytes)) < 0)
        return ioError("cannot write " + path + errors.suffix());
    }
    if (!TIFFWriteDirectory(t)) return ioError("cannot write " + path + errors.suffix());
  }
  TIFF* t = tiff.release();
  TIFFClose(t);
  if (errors.count > 0) return ioError("cannot write " + path + errors.suffix());
  return okStatus();
}

int countTiffPages(const std::string& path) {
  TiffErrors errors;
  TiffHandle tiff = openTiffFileCollectingErrors(path, "rm", errors);
  if (!tiff) return 0;
  return static_cast<int>(std::min<std::size_t>(fullResolutionPages(tiff.get()).size(), INT_MAX));
}

namespace {

// An open TIFF stack: its full-resolution pages, each checked to have the first one's layout, read
// page by page. Not movable: libtiff reports into errors.
class StackFile {
public:
  StackFile() = default;
  StackFile(const StackFile&) = delete;
  StackFile& operator=(const StackFile&) = delete;

  Status open(const std::string& path) {
    if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
    tiff = openTiffFileCollectingErrors(path, "rm", errors);
    if (!tiff) return corruptError("not a readable TIFF file" + errors.suffix());
    opened = FileIdentity::ofDescriptor(TIFFFileno(tiff.get()));
    pages = fullResolutionPages(tiff.get());
    if (pages.empty()) return corruptError("a TIFF file without a readable page" + errors.suffix());
    // A directory that could not be read ends the chain early: pages would be missing.
    if (errors.count > 0)
      return corruptError("the directory after page " + std::to_string(pages.size() - 1) + " cannot be read" +
                          errors.suffix());
    for (std::size_t z = 0; z < pages.size(); ++z) {
      const std::string where = "page " + std::to_string(z) + ": ";
      if (!TIFFSetDirectory(tiff.get(), pages[z])) return corruptError(where + "cannot be read" + errors.suffix());
      Result<PageLayout> layout = readPageLayout(tiff.get(), static_cast<int>(z));
      if (!layout.ok()) return layout.status();
      if (z == 0) first = *layout;
      if (!layout->sameShapeAs(first))
        return unsupportedError(where + std::to_string(layout->width) + " x " + std::to_string(layout->length) +
                                " pixels of " + std::to_string(layout->samples) +
                                " samples of another type or size than page 0");
    }
    const std::int64_t elements = static_cast<std::int64_t>(first.width) * first.length * first.samples *
                                  static_cast<std::int64_t>(pages.size());
    if (elements > INT_MAX) return unsupportedError("too large: 2^31 elements or more");
    return checkAllocation(elements, first.type);
  }

  DatasetCoordinates size() const {
    return DatasetCoordinates(static_cast<int>(first.width), static_cast<int>(first.length),
                              static_cast<int>(pages.size()), 1, first.samples);
  }
  TARVElementType elementType() const { return first.type; }
  std::size_t pageBytes() const {
    return static_cast<std::size_t>(first.width) * first.length * first.samples * DatasetMemory::getElementTypeByteSize(first.type);
  }

  // Page z into page (pageBytes() of them): rows top to bottom, samples fastest.
  Status readPage(int z, unsigned char* page) {
    const std::string where = "page " + std::to_string(z) + ": ";
    if (z < 0 || static_cast<std::size_t>(z) >= pages.size()) return invalidArgumentError(where + "no such page");
    if (Status same = opened.checkDescriptor(TIFFFileno(tiff.get()), "page " + std::to_string(z)); !same.ok())
      return same;
    if (!TIFFSetDirectory(tiff.get(), pages[static_cast<std::size_t>(z)]))
      return corruptError(where + "cannot be read" + errors.suffix());
    Result<PageLayout> layout = readPageLayout(tiff.get(), z);
    if (!layout.ok()) return layout.status();
    if (!layout->sameShapeAs(first)) return corruptError(where + "changed since the file was opened");
    const int sampleBytes = static_cast<int>(DatasetMemory::getElementTypeByteSize(first.type));
    return layout->tiled ? readTiles(tiff.get(), *layout, sampleBytes, page, errors, where)
                         : readStrips(tiff.get(), *layout, sampleBytes, page, errors, where);
  }

private:
  TiffErrors errors;
  TiffHandle tiff;
  std::vector<tdir_t> pages;
  PageLayout first;
  FileIdentity opened;
};

// Reads a TIFF stack page by page into a FileReadDataset's cache.
class TiffStackReadModule : public DatasetFileReadModule {
public:
  ~TiffStackReadModule() override { closeFile(); }

  DatasetBoundingBox getReadBlockBox(const DatasetCoordinates& c) override {
    if (!isFileOpen() || !stack) return getNoFileBox();
    return DatasetBoundingBox(DatasetCoordinates(0, 0, c.z, 0, 0),
                              DatasetCoordinates(size.x - 1, size.y - 1, c.z, 0, size.c - 1));
  }

  bool open() override {
    auto file = std::make_unique<StackFile>();
    if (Status opened = file->open(fileName); !opened.ok()) {
      noteOpenStatus(this, opened);
      return false;
    }
    size = file->size();
    elementType = file->elementType();
    worldEmbedding = DatasetWorldEmbedding();
    stack = std::move(file);
    return true;
  }

  void close() override { stack.reset(); }

  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override {
    if (!stack) return false;
    std::vector<unsigned char> page;
    Status read = okStatus();
    try {
      page.resize(stack->pageBytes());
      read = stack->readPage(c.z, page.data());
    } catch (const std::bad_alloc&) {
      read = resourceExhaustedError("not enough memory for page " + std::to_string(c.z));
    }
    if (!read.ok()) {
      noteBlockReadFailure(this, read);
      return false;
    }
    // The cache must hold the whole page before its rows are placed.
    dataset->announceAccess(getReadBlockBox(c));
    const std::size_t rowBytes = page.size() / static_cast<std::size_t>(size.y);
    for (int y = 0; y < size.y; ++y)
      dataset->setElementReferenceRow(DatasetCoordinates(0, y, c.z, 0, 0), size.x, page.data() + y * rowBytes);
    return true;
  }

private:
  std::unique_ptr<StackFile> stack;
};

}  // namespace

DatasetFileReadModule* newTiffStackReadModule() { return new TiffStackReadModule(); }

Result<DatasetHandle> readTiffStack(const std::string& path) {
  StackFile stack;
  if (Status opened = stack.open(path); !opened.ok()) return opened;
  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(stack.size(), stack.elementType(), DatasetWorldEmbedding());
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  auto* block = static_cast<unsigned char*>(dataset->getPlainElements());
  for (int z = 0; z < stack.size().z; ++z)
    if (Status read = stack.readPage(z, block + static_cast<std::size_t>(z) * stack.pageBytes()); !read.ok()) return read;
  return handle;
}

}  // namespace tarv::formats

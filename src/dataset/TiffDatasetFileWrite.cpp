#include "dataset/TiffDatasetFileWrite.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "dataset/TiffDeepTileCodec.h"
#include "dataset/TiffFileHeader.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
#include "formats/SlabWriters.h"
#include "formats/TiffMessages.h"

namespace tarv {

using formats::TiffErrors;

namespace {

// Why TiffFileHeader::write refused the dataset.
Status headerProblem(const TiffFileHeader& header) {
  unsigned int format = 0;
  unsigned int bits = 0;
  if (!header.sampleFormatFromElementType(format, bits))
    return unsupportedError(std::string("paged TIFF cannot hold ") + elementTypeName(header.getElementType()) +
                            " elements");
  const int components = header.getImgSize().c;
  if (components < 1 || components > 4)
    return unsupportedError("paged TIFF holds 1 to 4 components per voxel; the data has " + std::to_string(components));
  return ioError("cannot write the TIFF header");
}

}  // namespace

void TiffDatasetFileWrite::write(Dataset* dataset) { (void)formats::writePagedTiffFile(*this, dataset); }

namespace {

// The header, then the pages (64 x 64 x 1 voxels) of each slab in page order.
class PagedTiffSlabWriter : public formats::SlabWriter {
public:
  PagedTiffSlabWriter(TiffHandle opened, std::unique_ptr<TiffErrors> errorSink, const TiffFileHeader& header)
      : errors(std::move(errorSink)), tiff(std::move(opened)), header(header) {}

  Status allocate() {
    const std::uint64_t pageBytes = header.getPageByteSize();
    if (pageBytes == 0) return unsupportedError("pages of 0 bytes");
    // One page buffer for all pages; it is not cleared between pages (readers never use the part
    // of an edge page beyond the dataset).
    page.assign(static_cast<std::size_t>(pageBytes), 0);
    return okStatus();
  }

  Status writeSlab(Dataset& source, const DatasetBoundingBox& slab, const DatasetCoordinates& shift) override {
    const DatasetCoordinates pageSize = header.getPageSize();
    const std::size_t sampleBytes = header.getElementByteSize();
    const std::size_t voxelBytes = sampleBytes * static_cast<std::size_t>(pageSize.c);
    const std::size_t rowBytes = voxelBytes * static_cast<std::size_t>(pageSize.x);
    const std::size_t sliceBytes = rowBytes * static_cast<std::size_t>(pageSize.y);
    const unsigned int total = header.getTotalNumberOfPages();
    const DatasetCoordinates size = header.getImgSize();
    // A plain in-memory source gives the rows of a page straight from its memory, all components
    // of a voxel together, as element reads would give them one by one.
    const auto* elements = static_cast<const unsigned char*>(source.getPlainElements());
    const DatasetCoordinates sourceSize = source.getSize();
    const bool rowsFromMemory = elements != nullptr && source.getElementType() != TARV_ELEMENT_TYPE_BOOL &&
                                source.getElementByteSize() == sampleBytes && sourceSize.c == pageSize.c;
    const DatasetBoundingBox image(DatasetCoordinates(0, 0, 0, 0, 0), size - DatasetCoordinates(1, 1, 1, 1, 1));
    for (; next < total; ++next) {
      DatasetBoundingBox box = header.computePageBoundsFromLinearIdx(next);
      if (box.start.z > slab.end.z) break;
      for (int k = 0; k < 5; ++k) {
        box.start[k] = std::clamp(box.start[k], image.start[k], image.end[k]);
        box.end[k] = std::clamp(box.end[k], image.start[k], image.end[k]);
      }
      DatasetCoordinates p = box.start;
      p.t = slab.start.t;
      for (p.z = box.start.z; p.z <= box.end.z; ++p.z)
        for (p.y = box.start.y; p.y <= box.end.y; ++p.y) {
          unsigned char* voxel = page.data() + static_cast<std::size_t>(p.z - box.start.z) * sliceBytes +
                                 static_cast<std::size_t>(p.y - box.start.y) * rowBytes;
          if (rowsFromMemory) {
            const DatasetCoordinates q = p + shift;
            const std::size_t first =
                ((static_cast<std::size_t>(q.t) * sourceSize.z + q.z) * sourceSize.y + q.y) * sourceSize.x + q.x;
            const std::size_t rowLength = static_cast<std::size_t>(box.end.x - box.start.x + 1);
            std::memcpy(voxel, elements + first * voxelBytes, rowLength * voxelBytes);
            continue;
          }
          for (p.x = box.start.x; p.x <= box.end.x; ++p.x, voxel += voxelBytes)
            for (p.c = 0; p.c < pageSize.c; ++p.c) source.getElementByBuffer(p + shift, voxel + p.c * sampleBytes);
          p.c = 0;
        }
      if (TIFFWriteTile(tiff.get(), page.data(), static_cast<std::uint32_t>(box.start.x),
                        static_cast<std::uint32_t>(box.start.y), static_cast<std::uint32_t>(box.start.z), 0) == -1)
        return ioError("cannot write page " + std::to_string(next) + ": " + errors->last);
    }
    return okStatus();
  }

  Status finish() override {
    if (TIFFFlush(tiff.get()) != 1) return ioError("cannot write the file: " + errors->last);
    return okStatus();
  }

private:
  // Declared before the handle: closing the file (which may fail on a full disk) still reports
  // into it.
  std::unique_ptr<TiffErrors> errors;
  TiffHandle tiff;
  TiffFileHeader header;
  std::vector<unsigned char> page;
  // The next page to write.
  unsigned int next = 0;
};

}  // namespace

Result<std::unique_ptr<formats::SlabWriter>> formats::openPagedTiffSlabWriter(const TiffDatasetFileWrite& file,
                                                                             const SlabFileShape& shape) {
  TiffFileHeader header;
  header.setImgSize(shape.size);
  header.setElementType(shape.elementType);
  header.setMinMaxValue(shape.minimum, shape.maximum);
  header.setPageMode(TiffPageMode::tile);
  header.setPageSize(DatasetCoordinates(64, 64, 1, 1, 1));

  auto errors = std::make_unique<TiffErrors>();
  TiffHandle tiff = openTiffFileCollectingErrors(file.fileName, "w", *errors);
  if (!tiff) return openForWritingFailure(file.fileName);
  header.write(tiff.get());
  TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, static_cast<std::uint16_t>(COMPRESSION_LZW));
  if (!header.isValid()) {
    std::cerr << "write" << "() -- error writing file header." << std::endl;
    return headerProblem(header);
  }
  auto writer = std::make_unique<PagedTiffSlabWriter>(std::move(tiff), std::move(errors), header);
  if (Status allocated = writer->allocate(); !allocated.ok()) return allocated;
  return std::unique_ptr<SlabWriter>(std::move(writer));
}

Status formats::writePagedTiffFile(const TiffDatasetFileWrite& file, Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  SlabFileShape shape;
  shape.size = dataset->getSize();
  shape.elementType = dataset->getElementType();
  shape.minimum = dataset->getMinimumValue();
  shape.maximum = dataset->getMaximumValue();
  auto writer = openPagedTiffSlabWriter(file, shape);
  if (!writer.ok()) return writer.status();
  // Only time step 0 is stored.
  DatasetCoordinates last = shape.size - DatasetCoordinates(1, 1, 1, 1, 1);
  last.t = 0;
  const DatasetBoundingBox whole(DatasetCoordinates(0, 0, 0, 0, 0), last);
  if (Status written = writer.value()->writeSlab(*dataset, whole, DatasetCoordinates(0, 0, 0, 0, 0)); !written.ok())
    return written;
  return writer.value()->finish();
}

}  // namespace tarv

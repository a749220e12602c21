#include "dataset/TiffDatasetFileWrite.h"

#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "dataset/TiffDeepTileCodec.h"
#include "dataset/TiffFileHeader.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
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

Status formats::writePagedTiffFile(const TiffDatasetFileWrite& file, Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  TiffFileHeader header;
  header.setImgSize(dataset->getSize());
  header.setElementType(dataset->getElementType());
  header.setMinMaxValue(dataset->getMinimumValue(), dataset->getMaximumValue());
  header.setPageMode(TiffPageMode::tile);
  header.setPageSize(DatasetCoordinates(64, 64, 1, 1, 1));

  TiffErrors errors;
  TiffHandle tiff = openTiffFileCollectingErrors(file.fileName, "w", errors);
  if (!tiff) return openForWritingFailure(file.fileName);
  header.write(tiff.get());
  TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, static_cast<std::uint16_t>(COMPRESSION_LZW));
  if (!header.isValid()) {
    std::cerr << "write" << "() -- error writing file header." << std::endl;
    return headerProblem(header);
  }
  const std::uint64_t pageBytes = header.getPageByteSize();
  if (pageBytes == 0) return unsupportedError("pages of 0 bytes");
  // One page buffer for all pages; it is not cleared between pages (readers never use the part
  // of an edge page beyond the dataset).
  std::vector<unsigned char> page(static_cast<std::size_t>(pageBytes), 0);
  const DatasetCoordinates pageSize = header.getPageSize();
  const std::size_t sampleBytes = header.getElementByteSize();
  const std::size_t voxelBytes = sampleBytes * static_cast<std::size_t>(pageSize.c);
  const std::size_t rowBytes = voxelBytes * static_cast<std::size_t>(pageSize.x);
  const std::size_t sliceBytes = rowBytes * static_cast<std::size_t>(pageSize.y);
  const unsigned int total = header.getTotalNumberOfPages();
  // A plain in-memory dataset gives the rows of a page straight from its memory, all components
  // of a voxel together, as element reads would give them one by one.
  const auto* elements = static_cast<const unsigned char*>(dataset->getPlainElements());
  const DatasetCoordinates size = dataset->getSize();
  const bool rowsFromMemory = elements != nullptr && dataset->getElementType() != TARV_ELEMENT_TYPE_BOOL &&
                              dataset->getElementByteSize() == sampleBytes && size.c == pageSize.c;
  for (unsigned int index = 0; index < total; ++index) {
    const DatasetBoundingBox box = dataset->fitBoxToInterior(header.computePageBoundsFromLinearIdx(index));
    DatasetCoordinates p = box.start;
    for (p.z = box.start.z; p.z <= box.end.z; ++p.z)
      for (p.y = box.start.y; p.y <= box.end.y; ++p.y) {
        unsigned char* voxel = page.data() + static_cast<std::size_t>(p.z - box.start.z) * sliceBytes +
                               static_cast<std::size_t>(p.y - box.start.y) * rowBytes;
        if (rowsFromMemory) {
          const std::size_t first =
              ((static_cast<std::size_t>(p.t) * size.z + p.z) * size.y + p.y) * size.x + box.start.x;
          const std::size_t rowLength = static_cast<std::size_t>(box.end.x - box.start.x + 1);
          std::memcpy(voxel, elements + first * voxelBytes, rowLength * voxelBytes);
          continue;
        }
        for (p.x = box.start.x; p.x <= box.end.x; ++p.x, voxel += voxelBytes)
          for (p.c = 0; p.c < pageSize.c; ++p.c) dataset->getElementByBuffer(p, voxel + p.c * sampleBytes);
      }
    if (TIFFWriteTile(tiff.get(), page.data(), static_cast<std::uint32_t>(box.start.x),
                      static_cast<std::uint32_t>(box.start.y), static_cast<std::uint32_t>(box.start.z), 0) == -1)
      return ioError("cannot write page " + std::to_string(index) + ": " + errors.last);
  }
  if (TIFFFlush(tiff.get()) != 1) return ioError("cannot write the file: " + errors.last);
  return okStatus();
}

}  // namespace tarv

#include "dataset/TiffDatasetFileWrite.h"

#include <cstring>
#include <iostream>
#include <vector>

#include "dataset/DatasetRowAccess.h"
#include "dataset/TiffDeepTileCodec.h"
#include "dataset/TiffFileHeader.h"

namespace tarv {

void TiffDatasetFileWrite::write(Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return;
  TiffFileHeader header;
  header.setImgSize(dataset->getSize());
  header.setElementType(dataset->getElementType());
  header.setMinMaxValue(dataset->getMinimumValue(), dataset->getMaximumValue());
  header.setPageMode(TiffPageMode::tile);
  header.setPageSize(DatasetCoordinates(64, 64, 1, 1, 1));

  TiffHandle tiff = openQuietTiffFile(fileName, "w");
  if (!tiff) return;
  header.write(tiff.get());
  TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, static_cast<std::uint16_t>(COMPRESSION_LZW));
  if (!header.isValid()) {
    std::cerr << "write" << "() -- error writing file header." << std::endl;
    return;
  }
  const std::uint64_t pageBytes = header.getPageByteSize();
  if (pageBytes == 0) return;
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
  const auto* elements = static_cast<const unsigned char*>(DatasetRowAccess::plainElements(dataset));
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
    TIFFWriteTile(tiff.get(), page.data(), static_cast<std::uint32_t>(box.start.x),
                  static_cast<std::uint32_t>(box.start.y), static_cast<std::uint32_t>(box.start.z), 0);
  }
}

}  // namespace tarv

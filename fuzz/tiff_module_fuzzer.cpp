// Paged TIFF files: the header read and printed, then the read module (byte 0, bit 0: in
// segmentation mode) opened in a file-backed dataset and every block (page) read. When the plain
// TIFF reader accepts the same file as a single-component image, both must see the same voxels.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tiffio.h>
#include <unistd.h>

#include "FuzzSupport.h"
#include "dataset/FileReadDataset.h"
#include "dataset/ImageDataset.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileHeader.h"
#include "dataset/TiffFileReadModule.h"
#include "formats/FileStatus.h"

using namespace tarv;

namespace {

// Pages visited at most; a small file can claim any number of them.
constexpr int blockLimit = 1024;
// Every page read outside the cached region grows the region by that page and carries the whole
// region over, so reading an image page by page costs the sum of the region's sizes; a small file
// can claim an image large enough to make that sum as large as it likes. Stop at this many.
constexpr std::uint64_t cacheWorkLimit = std::uint64_t(1) << 20;

std::uint64_t volume(const DatasetBoundingBox& box) {
  if (box.isEmpty()) return 0;
  std::uint64_t v = 1;
  for (int k = 0; k < 5; ++k) v *= static_cast<std::uint64_t>(box.end[k] - box.start[k] + 1);
  return v;
}

void printHeader(const std::string& path) {
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  if (tiff == nullptr) return;
  TiffFileHeader header;
  (void)header.read(tiff);
  std::ostringstream out;
  header.print(out);
  out << header;
  TIFFClose(tiff);
}

// Images above this many voxels are not compared.
constexpr std::uint64_t comparedVoxelLimit = 1 << 16;

TARVElementType elementTypeOf(TypeID id) {
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  dispatchTypeId(id, [&]<typename T>() {
    type = DatasetMemory::getElementTypeByType<T>();
    return true;
  });
  return type;
}

// Compares the dataset with the plain reader's image of the same bytes, where that reader takes
// the file as an image of one sample per voxel.
void compareWithPlainReader(const std::uint8_t* data, std::size_t size, FileReadDataset& dataset, bool segmentation) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  ImageDataset* image = readTiffStream("input", &in, nullptr);
  if (image == nullptr) return;
  const auto extent = image->size_array();
  const DatasetCoordinates datasetSize = dataset.getSize();
  const std::uint64_t voxels = extent[0] * extent[1] * extent[2];
  const TARVElementType type = elementTypeOf(image->type_id());
  if (datasetSize.c == 1 && datasetSize.t == 1 && !image->isRGBA() && type != TARV_ELEMENT_TYPE_NO_TYPE &&
      voxels <= comparedVoxelLimit) {
    if (extent[0] != static_cast<std::uint64_t>(datasetSize.x) || extent[1] != static_cast<std::uint64_t>(datasetSize.y) ||
        extent[2] != static_cast<std::uint64_t>(datasetSize.z))
      fuzz::fail("the paged and the plain TIFF reader disagree on the size");
    if (!segmentation && type != dataset.getElementType())
      fuzz::fail("the paged and the plain TIFF reader disagree on the element type");
    std::vector<double> values(voxels);
    if (!dump(image, values.data(), TYPE_ID_DOUBLE)) fuzz::fail("dump refused a read image");
    std::size_t i = 0;
    for (int z = 0; z < datasetSize.z; ++z)
      for (int y = 0; y < datasetSize.y; ++y)
        for (int x = 0; x < datasetSize.x; ++x, ++i) {
          const double expected = segmentation ? (values[i] != 0.0 ? 1.0 : 0.0) : values[i];
          const double seen = dataset.getElement<double>(DatasetCoordinates(x, y, z, 0, 0));
          if (!(seen == expected || (std::isnan(seen) && std::isnan(expected))))
            fuzz::fail("the paged and the plain TIFF reader disagree on a voxel");
        }
  }
  image->UnRegister();
}

// A dataset read without failures, written as a paged TIFF file and read back, comes back equal.
void writeAndReadBack(FileReadDataset& dataset) {
  const DatasetCoordinates extent = dataset.getSize();
  // Segmentations (bool elements) are left out.
  if (dataset.getElementType() == TARV_ELEMENT_TYPE_BOOL) return;
  if (static_cast<std::uint64_t>(dataset.getElementCount()) > comparedVoxelLimit) return;
  Dataset copy(true);
  copy.newDataset(extent, dataset.getElementType(), dataset.getWorldEmbedding());
  if (!copy.hasData()) return;
  for (auto it = copy.getStartCoordinatesIterator(); it.valid; copy.incrementCoordinatesIterator(it))
    copy.setElement<double>(it, dataset.getElement<double>(static_cast<const DatasetCoordinates&>(it)));
  if (!formats::blockReadStatus(*dataset.getFileReadModule()).ok()) return;
  TiffDatasetFileWrite writer;
  writer.fileName = (std::filesystem::temp_directory_path() / ("tarv-fuzz-" + std::to_string(::getpid()) + ".tif")).string();
  const Status written = formats::writePagedTiffFile(writer, &copy);
  if (written.ok()) {
    FileReadDataset back;
    back.setFileReadModule(new TiffFileReadModule());
    if (!back.openFile(writer.fileName)) fuzz::fail("a written paged TIFF file is refused");
    if (back.getSize() != extent || back.getElementType() != copy.getElementType())
      fuzz::fail("a written paged TIFF file has another shape or element type");
    for (auto it = copy.getStartCoordinatesIterator(); it.valid; copy.incrementCoordinatesIterator(it)) {
      const double a = copy.getElement<double>(it);
      const double b = back.getElement<double>(static_cast<const DatasetCoordinates&>(it));
      if (!(a == b || (std::isnan(a) && std::isnan(b)))) fuzz::fail("a written paged TIFF file reads back otherwise");
    }
    back.closeFile();
  }
  std::error_code ignored;
  std::filesystem::remove(writer.fileName, ignored);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const bool segmentation = (data[0] & 1) != 0;
  static fuzz::MemoryFile file;
  file.assign(data + 1, size - 1);

  printHeader(file.path());

  auto dataset = std::make_unique<FileReadDataset>();
  auto* module = new TiffFileReadModule();
  module->setReadAsSegmentation(segmentation);
  dataset->setFileReadModule(module);
  if (!dataset->openFile(file.path())) return 0;
  if (segmentation && dataset->getElementType() != TARV_ELEMENT_TYPE_BOOL)
    fuzz::fail("a segmentation does not have bool elements");

  // Every page: its box from the module, its first and last element through the dataset.
  const DatasetCoordinates extent = dataset->getSize();
  int blocks = 0;
  std::uint64_t cacheWork = 0;
  auto withinBudget = [&] { return blocks < blockLimit && cacheWork < cacheWorkLimit; };
  for (int z = 0; z < extent.z && withinBudget();) {
    int nextZ = extent.z;
    for (int y = 0; y < extent.y && withinBudget();) {
      int nextY = extent.y;
      for (int x = 0; x < extent.x && withinBudget(); ++blocks) {
        const DatasetCoordinates c(x, y, z, 0, 0);
        const DatasetBoundingBox box = module->getReadBlockBox(c);
        if (box.isEmpty() || box.start.x > x || box.end.x < x || box.start.y > y || box.end.y < y ||
            box.start.z > z || box.end.z < z)
          fuzz::fail("a block box does not hold its element");
        if (box.end.x >= extent.x || box.end.y >= extent.y || box.end.z >= extent.z)
          fuzz::fail("a block box reaches beyond the image");
        (void)dataset->getElement<double>(c);
        (void)dataset->getElement<double>(DatasetCoordinates(box.end.x, box.end.y, box.end.z, 0, std::max(extent.c - 1, 0)));
        cacheWork += volume(dataset->getCacheRegion());
        nextY = std::min(nextY, box.end.y + 1);
        nextZ = std::min(nextZ, box.end.z + 1);
        x = box.end.x + 1;
      }
      y = nextY;
    }
    z = nextZ;
  }
  compareWithPlainReader(data + 1, size - 1, *dataset, segmentation);
  writeAndReadBack(*dataset);
  dataset->closeFile();
  return 0;
}

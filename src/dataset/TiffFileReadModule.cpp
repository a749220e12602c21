#include "dataset/TiffFileReadModule.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "dataset/FileReadDataset.h"
#include "dataset/TiffDeepTileCodec.h"
#include "dataset/TiffFileHeader.h"
#include "formats/FileIdentity.h"
#include "formats/FileStatus.h"
#include "formats/TiffMessages.h"

namespace tarv {

namespace {

// A decoded page may be larger than its file only as far as compression allows; beyond this
// ratio a header is taken to be corrupt (LZW and Deflate stay well below it).
constexpr std::uint64_t kMaximumCompressionRatio = 4096;

void printLine(const char* text) { std::cerr << text << std::endl; }

// Why TiffFileHeader::read refused a header, from what it left behind.
std::string describeHeaderProblem(const TiffFileHeader& header) {
  if (header.getImgSize().x < 1) return "no usable image width, length or depth";
  if (header.getImgSize().c < 1) return "unsupported photometric interpretation, extra samples or planar configuration";
  if (header.getPageMode() == TiffPageMode::unknown) return "unsupported tile or strip layout";
  return "unsupported header";
}

}  // namespace

class TiffFileReadModule::Internal {
public:
  // Declared before the handle, which reports into it until it is closed.
  formats::TiffErrors errors;
  TiffHandle handle;
  TiffFileHeader header;
  // The file as opened, compared before every tile read.
  formats::FileIdentity opened;
  // The last tile that could not be read: asked again for each of its elements, it fails at once.
  DatasetBoundingBox failedTile{DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1)};
  std::unique_ptr<unsigned char[]> pageBuffer;
  std::uint64_t pageBufferSize = 0;

  // A buffer of exactly the page byte size, reused while that size holds; null with no open file
  // or an empty page.
  unsigned char* getPageBuffer() {
    const std::uint64_t size = header.getPageByteSize();
    if (!handle || size == 0) return nullptr;
    if (pageBuffer && pageBufferSize == size) return pageBuffer.get();
    releasePageBuffer();
    pageBuffer.reset(new (std::nothrow) unsigned char[size]());
    if (pageBuffer) pageBufferSize = size;
    return pageBuffer.get();
  }
  void releasePageBuffer() {
    pageBuffer.reset();
    pageBufferSize = 0;
  }
};

TiffFileReadModule::TiffFileReadModule() : internal(new Internal()) {}

TiffFileReadModule::~TiffFileReadModule() {
  closeFile();
  close();
  delete internal;
}

DatasetBoundingBox TiffFileReadModule::getReadBlockBox(const DatasetCoordinates& c) {
  if (!internal->handle) return getNoFileBox();
  const DatasetCoordinates page = internal->header.getPageSize();
  const DatasetCoordinates image = internal->header.getImgSize();
  DatasetBoundingBox box;
  for (int k : {0, 1, 2, 4}) {
    if (page[k] <= 0) return getNoFileBox();
    box.start[k] = (c[k] / page[k]) * page[k];
    box.end[k] = static_cast<int>(std::min<long long>(static_cast<long long>(box.start[k]) + page[k] - 1, image[k] - 1));
  }
  box.start.t = 0;
  box.end.t = 0;
  return box;
}

bool TiffFileReadModule::open() {
  close();
  internal->errors = formats::TiffErrors();
  internal->handle = formats::openTiffFileCollectingErrors(fileName, "rm", internal->errors);
  if (!internal->handle) {
    Status status = formats::checkReadableFile(fileName);
    if (status.ok()) status = corruptError("not a readable TIFF file" + internal->errors.suffix());
    formats::noteOpenStatus(this, status);
    return false;
  }
  printLine("Tiff file open");
  internal->opened = formats::FileIdentity::ofDescriptor(TIFFFileno(internal->handle.get()));
  TiffFileHeader& header = internal->header;
  header = TiffFileHeader();
  std::error_code error;
  const std::uintmax_t fileSize = std::filesystem::file_size(fileName, error);
  // Pages are capped before any buffer is made for them.
  Status status;
  if (!header.read(internal->handle.get()))
    status = unsupportedError("not a paged TIFF file: " + describeHeaderProblem(header) + internal->errors.suffix());
  else if (error)
    status = ioError("cannot find the size of the file: " + error.message());
  else if (header.getPageByteSize() > maximumPageByteSize ||
           header.getPageByteSize() > static_cast<std::uint64_t>(fileSize) * kMaximumCompressionRatio)
    status = corruptError("its pages of " + std::to_string(header.getPageByteSize()) + " bytes are too large");
  // Every tile has an offset and a byte count of at least 4 bytes each in the file: a file too small
  // for the tiles it claims is refused before each of them is tried.
  else if (static_cast<std::uint64_t>(TIFFNumberOfTiles(internal->handle.get())) * 8 > fileSize)
    status = corruptError("a file of " + std::to_string(fileSize) + " bytes cannot hold the offsets of its " +
                          std::to_string(TIFFNumberOfTiles(internal->handle.get())) + " tiles");
  formats::noteOpenStatus(this, status);
  if (!status.ok()) {
    close();
    return false;
  }
  printLine("Tiff file header OK");
  size = header.getImgSize();
  if (readAsSegmentation) {
    elementType = TARV_ELEMENT_TYPE_BOOL;
    cachedMinimumValue = 0.0;
    cachedMaximumValue = 1.0;
    minimumAndMaximumValueCacheStatus = true;
    isSegmentation = true;
  } else {
    elementType = header.getElementType();
    if (header.getMaxValue() >= header.getMinValue()) {
      cachedMinimumValue = header.getMinValue();
      cachedMaximumValue = header.getMaxValue();
      minimumAndMaximumValueCacheStatus = true;
    }
    isSegmentation = false;
  }
  return true;
}

void TiffFileReadModule::close() {
  if (!internal->handle) return;
  internal->handle.reset();
  internal->releasePageBuffer();
  internal->failedTile = DatasetBoundingBox(DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1));
}

bool TiffFileReadModule::readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) {
  const auto fail = [this](const Status& status) {
    formats::noteBlockReadFailure(this, status);
    return false;
  };
  if (dataset == nullptr || !internal->handle) return false;
  const TiffFileHeader& header = internal->header;
  const DatasetCoordinates image = header.getImgSize();
  if (c.x < 0 || c.x >= image.x || c.y < 0 || c.y >= image.y || c.z < 0 || c.z >= image.z || c.t != 0 ||
      c.c < 0 || c.c >= image.c)
    return fail(invalidArgumentError("a voxel outside the image was asked for"));
  const DatasetBoundingBox box = getReadBlockBox(c);
  if (box == internal->failedTile) return false;
  unsigned char* buffer = internal->getPageBuffer();
  if (buffer == nullptr) return fail(ioError("not enough memory for a page"));
  if (header.getPageMode() == TiffPageMode::strip) {
    printLine("tarv::TiffFileReadModule::readBlock() : Stripped page mode not implemented yet.");
    return fail(unsupportedError("striped TIFF pages cannot be read block by block"));
  }
  if (header.getPageMode() != TiffPageMode::tile) return fail(unsupportedError("unknown page mode"));
  const int errorsBefore = internal->errors.count;
  std::ostringstream tileText;
  tileText << "cannot read tile (" << box.start << ") (" << box.end << ")";
  if (Status same = internal->opened.checkDescriptor(TIFFFileno(internal->handle.get()), tileText.str()); !same.ok()) {
    internal->failedTile = box;
    return fail(same);
  }
  if (header.getPlanarConfiguration() != TiffPlanarConfiguration::CONTIGUES ||
      TIFFReadTile(internal->handle.get(), buffer, static_cast<std::uint32_t>(box.start.x),
                   static_cast<std::uint32_t>(box.start.y), static_cast<std::uint32_t>(box.start.z), 0) == -1) {
    std::cerr << "tarv::TiffFileReadModule::readBlock() : TIFFReadTile error" << std::endl;
    std::cerr << "tile: (" << box.start << ") (" << box.end << ")" << std::endl;
    std::cerr << "file: " << fileName << std::endl;
    std::ostringstream tile;
    tile << "tile (" << box.start << ") (" << box.end << ")";
    if (header.getPlanarConfiguration() != TiffPlanarConfiguration::CONTIGUES)
      return fail(unsupportedError("cannot read " + tile.str() + ": samples in separate planes"));
    const std::string reason = internal->errors.count > errorsBefore ? internal->errors.last : "TIFFReadTile failed";
    internal->failedTile = box;
    return fail(corruptError("cannot read " + tile.str() + ": " + reason));
  }
  const DatasetCoordinates datasetSize = dataset->getSize();
  if (datasetSize.c != image.c) return fail(invalidArgumentError("the dataset is not shaped like the file"));
  dataset->announceAccess(box);

  // Rows of the page buffer go to the dataset in its own element type.
  const DatasetCoordinates page = header.getPageSize();
  const TARVElementType fileType = header.getElementType();
  const TARVElementType datasetType = dataset->getElementType();
  const std::size_t sampleBytes = header.getElementByteSize();
  const std::size_t rowBytes = sampleBytes * static_cast<std::size_t>(page.c) * static_cast<std::size_t>(page.x);
  const std::size_t sliceBytes = rowBytes * static_cast<std::size_t>(page.y);
  const int rowLength = box.end.x - box.start.x + 1;
  const std::size_t rowSamples = static_cast<std::size_t>(rowLength) * static_cast<std::size_t>(image.c);
  std::vector<unsigned char> converted;
  const std::size_t datasetSampleBytes = DatasetMemory::getElementTypeByteSize(datasetType);
  if (datasetType != fileType) converted.resize(rowSamples * datasetSampleBytes);
  for (int z = box.start.z; z <= box.end.z; ++z)
    for (int y = box.start.y; y <= box.end.y; ++y) {
      const unsigned char* row = buffer + static_cast<std::size_t>(z - box.start.z) * sliceBytes +
                                 static_cast<std::size_t>(y - box.start.y) * rowBytes;
      const DatasetCoordinates rowStart(box.start.x, y, z, box.start.t, 0);
      if (datasetType == fileType) {
        dataset->setElementReferenceRow(rowStart, rowLength, row);
        continue;
      }
      if (datasetType == TARV_ELEMENT_TYPE_BOOL) {
        // Segmentation: every sample converted to bool, one byte each.
        dispatchElementType(fileType, [&]<typename S>() {
          for (std::size_t i = 0; i < rowSamples; ++i) {
            S sample;
            std::memcpy(&sample, row + i * sizeof(S), sizeof(S));
            converted[i] = convertElementValue<bool>(sample) ? 1 : 0;
          }
        });
      } else {
        for (std::size_t i = 0; i < rowSamples; ++i)
          DatasetMemory::castBufferValue(row + i * sampleBytes, converted.data() + i * datasetSampleBytes, fileType,
                                         datasetType);
      }
      dataset->setElementReferenceRow(rowStart, rowLength, converted.data());
    }
  return true;
}

}  // namespace tarv

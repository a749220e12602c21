#include "dataset/TARV1DatasetFileReadModule.h"

#include <new>
#include <string>
#include <type_traits>

#include "dataset/FileReadDataset.h"
#include "formats/FileStatus.h"

namespace tarv {

TARV1DatasetFileReadModule::TARV1DatasetFileReadModule() = default;

TARV1DatasetFileReadModule::~TARV1DatasetFileReadModule() { closeFile(); }

DatasetBoundingBox TARV1DatasetFileReadModule::getReadBlockBox(const DatasetCoordinates& c) {
  if (!isFileOpen()) return getNoFileBox();
  return DatasetBoundingBox(DatasetCoordinates(0, 0, c.z, c.t, 0),
                            DatasetCoordinates(size.x - 1, size.y - 1, c.z, c.t, 0));
}

bool TARV1DatasetFileReadModule::open() {
  releaseStream();
  stream.open(fileName, std::ios::binary);
  opened = formats::FileIdentity::ofPath(fileName);
  Status status = formats::checkOpenedForReading(stream.is_open(), fileName);
  if (status.ok()) status = formats::readTarv1Header(stream, header);
  formats::noteOpenStatus(this, status);
  if (!status.ok()) {
    releaseStream();
    return false;
  }
  littleEndian = header.littleEndian;
  factor = header.factor;
  offset = header.offset;
  elementType = TARV_ELEMENT_TYPE_FLOAT;
  size = header.size;
  worldEmbedding = header.getWorldEmbedding();
  if (header.hasValueRange()) {
    cachedMinimumValue = header.minimumValue;
    cachedMaximumValue = header.maximumValue;
    minimumAndMaximumValueCacheStatus = true;
  }
  return true;
}

void TARV1DatasetFileReadModule::close() { releaseStream(); }

void TARV1DatasetFileReadModule::releaseStream() {
  if (stream.is_open()) stream.close();
  stream.clear();
  sliceBytes = std::vector<unsigned char>();
  sliceSamples = std::vector<std::uint16_t>();
}

bool TARV1DatasetFileReadModule::readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) {
  const auto fail = [this](const Status& status) {
    formats::noteBlockReadFailure(this, status);
    return false;
  };
  if (dataset == nullptr || !stream.is_open()) return false;
  const std::string slice = "slice z " + std::to_string(c.z) + ", t " + std::to_string(c.t);
  if (c.z < 0 || c.z >= size.z || c.t < 0 || c.t >= size.t)
    return fail(invalidArgumentError(slice + " is outside the file"));
  if (dataset->getSize().x != size.x || dataset->getSize().c != 1)
    return fail(invalidArgumentError("the dataset is not shaped like the file"));
  if (Status same = opened.checkOpenedPath(fileName, "cannot read " + slice); !same.ok()) return fail(same);
  const std::size_t count = header.getSliceSampleCount();
  try {
    sliceBytes.resize(count * TARV1FileHeader::sampleByteSize);
    sliceSamples.resize(count);
  } catch (const std::bad_alloc&) {
    return fail(ioError("not enough memory to read " + slice));
  }
  stream.clear();
  stream.seekg(header.getSlicePosition(c.z, c.t), std::ios::beg);
  if (!stream.read(reinterpret_cast<char*>(sliceBytes.data()), static_cast<std::streamsize>(sliceBytes.size())))
    return fail(ioError("cannot read " + slice + " (the file ends early or cannot be read)"));
  TARV1FileHeader::decodeSamples(sliceBytes.data(), count, littleEndian, sliceSamples.data());

  // Rows of values in the dataset's element type, one component per position.
  const TARVElementType type = dataset->getElementType();
  bool stored = false;
  dispatchElementType(type, [&]<typename T>() {
    // bool elements travel as one byte each.
    using Stored = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;
    std::vector<Stored> row;
    try {
      row.resize(static_cast<std::size_t>(size.x));
    } catch (const std::bad_alloc&) {
      return;
    }
    const std::uint16_t* sample = sliceSamples.data();
    for (int y = 0; y < size.y; ++y) {
      for (Stored& element : row)
        element = static_cast<Stored>(convertElementValue<T>(static_cast<double>(*sample++) / factor + offset));
      dataset->setElementReferenceRow(DatasetCoordinates(0, y, c.z, c.t, 0), size.x, row.data());
    }
    stored = true;
  });
  return stored || fail(ioError("cannot store " + slice + " in the dataset"));
}

}  // namespace tarv

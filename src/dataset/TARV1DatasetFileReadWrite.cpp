#include "dataset/TARV1DatasetFileReadWrite.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <memory>
#include <new>
#include <sstream>
#include <vector>

#include "core/Mathematics.h"
#include "dataset/ByteOrder.h"
#include "dataset/TARV1FileHeader.h"
#include "formats/FileStatus.h"
#include "formats/SlabWriters.h"

namespace tarv {

namespace {

// floor(v) as an int, held inside the int range (NaN gives 0).
int floorToInt(double v) {
  if (std::isnan(v)) return 0;
  const double f = std::floor(v);
  if (f <= static_cast<double>(INT_MIN)) return INT_MIN;
  if (f >= static_cast<double>(INT_MAX)) return INT_MAX;
  return static_cast<int>(f);
}

Status readSamples(std::istream& stream, TARV1FileHeader& header, Dataset* dataset) {
  dataset->newDataset<float>(header.size, header.getWorldEmbedding());
  if (!dataset->hasData()) return ioError("not enough memory for " + formats::sizeText(header.size) + " elements");
  dataset->announceAccessToFullDataset();
  const std::size_t sliceSamples = header.getSliceSampleCount();
  std::vector<unsigned char> bytes;
  std::vector<std::uint16_t> samples;
  try {
    bytes.resize(sliceSamples * TARV1FileHeader::sampleByteSize);
    samples.resize(sliceSamples);
  } catch (const std::bad_alloc&) {
    return ioError("not enough memory for a slice");
  }
  DatasetCoordinates p(0, 0, 0, 0, 0);
  for (p.t = 0; p.t < header.size.t; ++p.t)
    for (p.z = 0; p.z < header.size.z; ++p.z) {
      if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        return ioError("cannot read slice z " + std::to_string(p.z) + ", t " + std::to_string(p.t));
      TARV1FileHeader::decodeSamples(bytes.data(), sliceSamples, header.littleEndian, samples.data());
      const std::uint16_t* sample = samples.data();
      for (p.y = 0; p.y < header.size.y; ++p.y)
        for (p.x = 0; p.x < header.size.x; ++p.x) dataset->setElement<double>(p, header.getValue(*sample++));
    }
  if (header.hasValueRange()) dataset->setCachedMinimumAndMaximumValue(header.minimumValue, header.maximumValue);
  return okStatus();
}

}  // namespace

void TARV1DatasetFileReadWrite::read(Dataset* dataset) { (void)formats::readTarv1File(*this, dataset); }

Status formats::readTarv1File(const TARV1DatasetFileReadWrite& file, Dataset* dataset) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to read into");
  std::ifstream stream(file.fileName, std::ios::binary);
  Status status = checkOpenedForReading(stream.is_open(), file.fileName);
  TARV1FileHeader header;
  if (status.ok()) status = readTarv1Header(stream, header);
  if (status.ok()) status = readSamples(stream, header, dataset);
  if (!status.ok()) dataset->clear();
  return status;
}

void TARV1DatasetFileReadWrite::write(Dataset* dataset) { (void)formats::writeTarv1File(*this, dataset); }

namespace {

// The header, then one slice of quantised samples after the other.
class Tarv1SlabWriter : public formats::SlabWriter {
public:
  Tarv1SlabWriter(std::ofstream opened, bool littleEndian, const DatasetCoordinates& size, int offset, int factor)
      : stream(std::move(opened)), littleEndian(littleEndian), size(size), offset(offset), factor(factor) {}

  Status allocate() {
    try {
      samples.resize(static_cast<std::size_t>(size.x) * static_cast<std::size_t>(size.y));
    } catch (const std::bad_alloc&) {
      return ioError("not enough memory for a slice");
    }
    return okStatus();
  }

  Status writeSlab(Dataset& source, const DatasetBoundingBox& slab, const DatasetCoordinates& shift) override {
    const std::size_t sliceSamples = samples.size();
    DatasetCoordinates p = slab.start;
    for (p.t = slab.start.t; p.t <= slab.end.t && stream; ++p.t)
      for (p.z = slab.start.z; p.z <= slab.end.z && stream; ++p.z) {
        std::uint16_t* sample = samples.data();
        for (p.y = 0; p.y < size.y; ++p.y)
          for (p.x = 0; p.x < size.x; ++p.x) {
            const int r = Mathematics::round((source.getElement<double>(p + shift) - offset) * factor);
            // Only the low 16 bits are kept: values above the stated maximum wrap.
            *sample++ = static_cast<std::uint16_t>(r < 0 ? 0 : r);
          }
        ByteOrder::convertLittleEndian(samples.data(), sliceSamples, TARV1FileHeader::sampleByteSize, littleEndian);
        stream.write(reinterpret_cast<const char*>(samples.data()),
                     static_cast<std::streamsize>(sliceSamples * TARV1FileHeader::sampleByteSize));
      }
    return okStatus();
  }

  Status finish() override {
    stream.close();
    if (stream.fail()) return ioError("writing failed: " + std::string(std::strerror(errno)));
    return okStatus();
  }

private:
  std::ofstream stream;
  bool littleEndian;
  DatasetCoordinates size;
  int offset;
  int factor;
  std::vector<std::uint16_t> samples;
};

}  // namespace

Result<std::unique_ptr<formats::SlabWriter>> formats::openTarv1SlabWriter(const TARV1DatasetFileReadWrite& file,
                                                                         const SlabFileShape& shape) {
  std::ofstream stream(file.fileName, std::ios::binary | std::ios::trunc);
  if (!stream.is_open()) return openForWritingFailure(file.fileName);
  const bool littleEndian = file.littleEndian;

  const double minimum = shape.minimum;
  const double maximum = shape.maximum;
  const int offset = floorToInt(minimum);
  int factor = 1;
  if (maximum > offset) {
    const int f = floorToInt(65535.0 / (maximum - offset));
    factor = f != 0 ? f : 1;
  }

  const DatasetCoordinates size = shape.size;
  const WorldCoordinates& origin = shape.embedding.getDatasetOrigin();
  const WorldCoordinates& spacing = shape.embedding.getVoxelSpacing();
  std::ostringstream header;
  header.precision(16);
  header << "X = " << size.x << "\n"
         << "Y = " << size.y << "\n"
         << "Z = " << size.z << "\n"
         << "t = " << size.t << "\n"
         << "factor = " << factor << "\n"
         << "endian = " << (littleEndian ? "littleendian" : "bigendian") << "\n"
         << "offset = " << offset << "\n"
         << "originX = " << origin.x << "\n"
         << "originY = " << origin.y << "\n"
         << "originZ = " << origin.z << "\n"
         << "originT = " << origin.t << "\n"
         << "spacingX = " << spacing.x << "\n"
         << "spacingY = " << spacing.y << "\n"
         << "spacingZ = " << spacing.z << "\n"
         << "spacingT = " << spacing.t << "\n"
         << "minimumValue = " << minimum << "\n"
         << "maximumValue = " << maximum << "\n";
  std::string text = header.str();
  // Blanks up to byte 2046, then a carriage return; longer text is kept whole.
  if (text.size() < TARV1FileHeader::headerByteSize - 1) text.resize(TARV1FileHeader::headerByteSize - 1, ' ');
  text += '\r';
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));

  auto writer = std::make_unique<Tarv1SlabWriter>(std::move(stream), littleEndian, size, offset, factor);
  if (Status allocated = writer->allocate(); !allocated.ok()) return allocated;
  return std::unique_ptr<SlabWriter>(std::move(writer));
}

Status formats::writeTarv1File(const TARV1DatasetFileReadWrite& file, Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  SlabFileShape shape;
  shape.size = dataset->getSize();
  shape.elementType = dataset->getElementType();
  shape.embedding = dataset->getWorldEmbedding();
  // Opening the file comes first: a file that cannot be opened is reported before any computing.
  {
    std::ofstream probe(file.fileName, std::ios::binary | std::ios::trunc);
    if (!probe.is_open()) return openForWritingFailure(file.fileName);
  }
  shape.minimum = dataset->getMinimumValue();
  shape.maximum = dataset->getMaximumValue();
  auto writer = openTarv1SlabWriter(file, shape);
  if (!writer.ok()) return writer.status();
  return writeWholeDataset(*writer.value(), dataset);
}

}  // namespace tarv

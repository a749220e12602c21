#ifndef TARV_DATASET_TARV1FILEHEADER_H
#define TARV_DATASET_TARV1FILEHEADER_H

#include <cstdint>
#include <istream>
#include <string>

#include "core/DatasetCoordinates.h"
#include "core/WorldCoordinates.h"
#include "dataset/DatasetWorldEmbedding.h"

namespace tarv {

// The 2048-byte text header of a TARV1 file: "key = value" lines, followed by the samples as
// unsigned 16-bit integers (x fastest, then y, z, t). A stored integer r stands for the value
// r / factor + offset. Shared by the whole-file reader and the block-wise read module.
class TARV1FileHeader {
public:
  static constexpr int headerByteSize = 2048;
  static constexpr int sampleByteSize = 2;

  // Extents X, Y, Z, t (0 when missing); the component count is 1.
  DatasetCoordinates size{0, 0, 0, 0, 1};
  int factor = 0;
  int offset = 0;
  bool littleEndian = true;
  WorldCoordinates origin{0.0, 0.0, 0.0, 0.0};
  WorldCoordinates spacing{1.0, 1.0, 1.0, 1.0};
  bool minimumValueGiven = false;
  bool maximumValueGiven = false;
  double minimumValue = 0.0;
  double maximumValue = 0.0;

  // Resets to the defaults, reads the header of the stream (positioned anywhere) and checks it
  // against the stream's size. True when the file is usable; the stream is then positioned at
  // the first sample.
  bool read(std::istream& stream);
  // Resets to the defaults and takes the entries of the header text; no checks.
  void parseText(const std::string& text);
  // Extents and factor at least 1, and 2048 + 2 * X * Y * Z * t equal to the file size. The
  // size check is done in 32-bit arithmetic; products that do not fit in it are refused.
  bool isAcceptable(std::int32_t fileSize) const;

  bool hasValueRange() const { return minimumValueGiven && maximumValueGiven; }
  DatasetWorldEmbedding getWorldEmbedding() const { return DatasetWorldEmbedding(origin, spacing); }
  // Samples of one x-y slice and of the whole file (fit in 32 bits once the header is accepted).
  std::uint32_t getSliceSampleCount() const;
  std::uint32_t getSampleCount() const;
  // Byte position of the first sample of slice (z, t), in 32-bit arithmetic.
  std::int32_t getSlicePosition(int z, int t) const;

  // Decodes count stored samples of the given byte order into host integers.
  static void decodeSamples(const unsigned char* bytes, std::size_t count, bool littleEndian, std::uint16_t* samples);
  double getValue(std::uint16_t sample) const { return static_cast<double>(sample) / factor + offset; }
};

}  // namespace tarv

#endif

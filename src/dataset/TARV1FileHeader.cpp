#include "dataset/TARV1FileHeader.h"

#include <cstring>
#include <sstream>
#include <vector>

#include "dataset/ByteOrder.h"
#include "formats/FileStatus.h"

namespace tarv {

bool TARV1FileHeader::read(std::istream& stream) { return formats::readTarv1Header(stream, *this).ok(); }

Status formats::readTarv1Header(std::istream& stream, TARV1FileHeader& header) {
  header.parseText(std::string());
  stream.clear();
  stream.seekg(0, std::ios::end);
  const std::streamoff end = stream.tellg();
  if (!stream || end < 0) return ioError("cannot find the size of the file");
  // The file size is taken as a 32-bit signed integer.
  const auto fileSize = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(end)));
  if (fileSize < TARV1FileHeader::headerByteSize) {
    if (end >= TARV1FileHeader::headerByteSize)
      return unsupportedError("TARV1 files of 2 GiB or more cannot be read (" + std::to_string(end) + " bytes)");
    return corruptError("too short for a TARV1 header (" + std::to_string(end) + " bytes, the header alone is " +
                        std::to_string(TARV1FileHeader::headerByteSize) + ")");
  }
  stream.seekg(0, std::ios::beg);
  char buffer[TARV1FileHeader::headerByteSize + 1] = {};
  if (!stream.read(buffer, TARV1FileHeader::headerByteSize)) return ioError("cannot read the header");
  buffer[TARV1FileHeader::headerByteSize - 1] = '\n';  // the writer ends the header with a carriage return
  header.parseText(std::string(buffer, std::strlen(buffer)));
  return checkTarv1Header(header, end);
}

void TARV1FileHeader::parseText(const std::string& text) {
  *this = TARV1FileHeader();
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream entry(line);
    std::string key;
    std::string separator;
    if (!(entry >> key >> separator) || separator != "=") continue;
    if (key == "X") entry >> size.x;
    else if (key == "Y") entry >> size.y;
    else if (key == "Z") entry >> size.z;
    else if (key == "t") entry >> size.t;
    else if (key == "factor") entry >> factor;
    else if (key == "offset") entry >> offset;
    else if (key == "endian") {
      std::string word;
      entry >> word;
      littleEndian = word != "bigendian";
    } else if (key == "originX") entry >> origin.x;
    else if (key == "originY") entry >> origin.y;
    else if (key == "originZ") entry >> origin.z;
    else if (key == "originT") entry >> origin.t;
    else if (key == "spacingX") entry >> spacing.x;
    else if (key == "spacingY") entry >> spacing.y;
    else if (key == "spacingZ") entry >> spacing.z;
    else if (key == "spacingT") entry >> spacing.t;
    else if (key == "minimumValue") {
      entry >> minimumValue;
      minimumValueGiven = true;
    } else if (key == "maximumValue") {
      entry >> maximumValue;
      maximumValueGiven = true;
    }
  }
}

bool TARV1FileHeader::isAcceptable(std::int32_t fileSize) const { return formats::checkTarv1Header(*this, fileSize).ok(); }

Status formats::checkTarv1Header(const TARV1FileHeader& header, std::int64_t fileBytes) {
  const DatasetCoordinates& size = header.size;
  if (size.x < 1 || size.y < 1 || size.z < 1 || size.t < 1)
    return corruptError("not a TARV1 file (its header gives no extents X, Y, Z and t)");
  if (header.factor < 1) return corruptError("not a TARV1 file (its header gives no factor)");
  // The 32-bit sum must not have wrapped: a wrapped size would describe more samples than the
  // file holds.
  const std::uint64_t wide = static_cast<std::uint64_t>(TARV1FileHeader::sampleByteSize) *
                                 static_cast<std::uint64_t>(size.x) * static_cast<std::uint64_t>(size.y) *
                                 static_cast<std::uint64_t>(size.z) * static_cast<std::uint64_t>(size.t) +
                             static_cast<std::uint64_t>(TARV1FileHeader::headerByteSize);
  if (wide > UINT32_MAX) return unsupportedError("too large for the TARV1 format (4 GiB at most)");
  if (static_cast<std::uint32_t>(wide) == static_cast<std::uint32_t>(fileBytes)) return okStatus();
  return corruptError("the file is " + std::to_string(fileBytes) + " bytes but its header describes " +
                      std::to_string(wide) + (static_cast<std::uint64_t>(fileBytes) < wide ? " (truncated)" : ""));
}

std::uint32_t TARV1FileHeader::getSliceSampleCount() const {
  return static_cast<std::uint32_t>(size.x) * static_cast<std::uint32_t>(size.y);
}

std::uint32_t TARV1FileHeader::getSampleCount() const {
  return getSliceSampleCount() * static_cast<std::uint32_t>(size.z) * static_cast<std::uint32_t>(size.t);
}

std::int32_t TARV1FileHeader::getSlicePosition(int z, int t) const {
  return headerByteSize + sampleByteSize * ((t * size.z + z) * size.y * size.x);
}

void TARV1FileHeader::decodeSamples(const unsigned char* bytes, std::size_t count, bool littleEndian,
                                    std::uint16_t* samples) {
  std::memcpy(samples, bytes, count * sampleByteSize);
  ByteOrder::convertLittleEndian(samples, count, sampleByteSize, littleEndian);
}

}  // namespace tarv

#include "dataset/TARV1FileHeader.h"

#include <cstring>
#include <sstream>
#include <vector>

#include "dataset/ByteOrder.h"

namespace tarv {

bool TARV1FileHeader::read(std::istream& stream) {
  parseText(std::string());
  stream.clear();
  stream.seekg(0, std::ios::end);
  const std::streamoff end = stream.tellg();
  if (!stream || end < 0) return false;
  // The file size is taken as a 32-bit signed integer.
  const auto fileSize = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(end)));
  if (fileSize < headerByteSize) return false;
  stream.seekg(0, std::ios::beg);
  char buffer[headerByteSize + 1] = {};
  if (!stream.read(buffer, headerByteSize)) return false;
  buffer[headerByteSize - 1] = '\n';  // the writer ends the header with a carriage return
  parseText(std::string(buffer, std::strlen(buffer)));
  return isAcceptable(fileSize);
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

bool TARV1FileHeader::isAcceptable(std::int32_t fileSize) const {
  if (size.x < 1 || size.y < 1 || size.z < 1 || size.t < 1 || factor < 1) return false;
  // The 32-bit sum must not have wrapped: a wrapped size would describe more samples than the
  // file holds.
  const std::uint64_t wide = static_cast<std::uint64_t>(sampleByteSize) * static_cast<std::uint64_t>(size.x) *
                                 static_cast<std::uint64_t>(size.y) * static_cast<std::uint64_t>(size.z) *
                                 static_cast<std::uint64_t>(size.t) +
                             static_cast<std::uint64_t>(headerByteSize);
  if (wide > UINT32_MAX) return false;
  return static_cast<std::uint32_t>(wide) == static_cast<std::uint32_t>(fileSize);
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

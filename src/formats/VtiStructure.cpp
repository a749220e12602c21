#include "formats/VtiStructure.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "formats/AllocationCap.h"

namespace tarv::formats {

namespace {

// The XML part of a file: up to its appended data, at most 16 MB. Lines are kept with their
// ends, so that an offset into the text is the same offset into the file.
std::string xmlPart(std::ifstream& in) {
  std::string text;
  std::string line;
  while (text.size() < (std::size_t{16} << 20) && std::getline(in, line)) {
    text += line;
    if (!in.eof()) text += '\n';
    if (line.find("<AppendedData") != std::string::npos) break;
  }
  return text;
}

// The value of attribute name in the XML tag that starts at tag; empty when absent.
std::optional<std::string> attribute(const std::string& text, std::size_t tag, const std::string& name) {
  const std::size_t end = text.find('>', tag);
  const std::string key = " " + name + "=\"";
  const std::size_t at = text.find(key, tag);
  if (at == std::string::npos || at > end) return std::nullopt;
  const std::size_t close = text.find('"', at + key.size());
  if (close == std::string::npos) return std::nullopt;
  return text.substr(at + key.size(), close - at - key.size());
}

// The six integers of an extent attribute; empty when absent, an error when malformed.
Result<std::optional<std::array<long long, 6>>> extentAttribute(const std::string& text, std::size_t tag,
                                                                 const std::string& name) {
  const std::optional<std::string> value = attribute(text, tag, name);
  if (!value) return std::optional<std::array<long long, 6>>();
  std::istringstream values(*value);
  std::array<long long, 6> extent{};
  for (long long& number : extent)
    if (!(values >> number)) return corruptError("a VTK image data file whose " + name + " cannot be read");
  return std::optional<std::array<long long, 6>>(extent);
}

Status checkExtents(const std::string& text, std::size_t image) {
  Result<std::optional<std::array<long long, 6>>> whole = extentAttribute(text, image, "WholeExtent");
  if (!whole.ok()) return whole.status();
  if (!*whole) return okStatus();
  std::vector<std::array<long long, 6>> pieces;
  for (std::size_t piece = text.find("<Piece", image); piece != std::string::npos; piece = text.find("<Piece", piece + 1)) {
    Result<std::optional<std::array<long long, 6>>> extent = extentAttribute(text, piece, "Extent");
    if (!extent.ok()) return extent.status();
    if (!*extent) continue;
    for (int k = 0; k < 6; k += 2)
      if ((**extent)[k] < (**whole)[k] || (**extent)[k + 1] > (**whole)[k + 1])
        return corruptError("a VTK image data file with a piece outside its whole extent");
    pieces.push_back(**extent);
  }
  // It also leaks when the one piece leaves part of the whole extent uncovered.
  if (pieces.size() == 1 && pieces.front() != **whole)
    return corruptError("a VTK image data file whose piece does not cover its whole extent");
  return okStatus();
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Reads a compression header's bytes from the file, raw or base64-encoded from its start.
class HeaderSource {
public:
  HeaderSource(std::ifstream& in, std::int64_t start, bool base64) : in(in), start(start), base64(base64) {}

  // The first count bytes of the header; empty when the file ends first or they are not base64.
  std::optional<std::vector<unsigned char>> read(std::size_t count) {
    const std::size_t characters = base64 ? (count + 2) / 3 * 4 : count;
    std::string stored(characters, '\0');
    in.clear();
    in.seekg(start);
    if (!in.read(stored.data(), static_cast<std::streamsize>(stored.size()))) return std::nullopt;
    if (!base64) return std::vector<unsigned char>(stored.begin(), stored.end());
    std::vector<unsigned char> bytes;
    for (std::size_t k = 0; k + 4 <= stored.size(); k += 4) {
      int v[4];
      for (int j = 0; j < 4; ++j) v[j] = stored[k + j] == '=' ? 0 : base64Value(stored[k + j]);
      if (v[0] < 0 || v[1] < 0 || v[2] < 0 || v[3] < 0) return std::nullopt;
      const std::uint32_t group = static_cast<std::uint32_t>(v[0] << 18 | v[1] << 12 | v[2] << 6 | v[3]);
      bytes.push_back(static_cast<unsigned char>(group >> 16));
      bytes.push_back(static_cast<unsigned char>(group >> 8));
      bytes.push_back(static_cast<unsigned char>(group));
    }
    bytes.resize(count);
    return bytes;
  }

private:
  std::ifstream& in;
  std::int64_t start;
  bool base64;
};

struct CompressionLayout {
  int wordBytes = 4;
  bool bigEndian = false;
};

std::uint64_t word(const unsigned char* bytes, const CompressionLayout& layout) {
  std::uint64_t value = 0;
  for (int k = 0; k < layout.wordBytes; ++k) {
    const int at = layout.bigEndian ? k : layout.wordBytes - 1 - k;
    value = value << 8 | bytes[at];
  }
  return value;
}

// A compressed array's header: block count, uncompressed block size, last block's size, then
// the compressed size of each block.
Status checkCompressionHeader(HeaderSource source, const CompressionLayout& layout, std::int64_t fileSize) {
  const std::size_t wordBytes = static_cast<std::size_t>(layout.wordBytes);
  const std::optional<std::vector<unsigned char>> start = source.read(3 * wordBytes);
  // What cannot be read, VTK refuses itself.
  if (!start) return okStatus();
  const std::uint64_t blocks = word(start->data(), layout);
  const std::uint64_t blockSize = word(start->data() + wordBytes, layout);
  const std::uint64_t lastBlockSize = word(start->data() + 2 * wordBytes, layout);
  if (blocks > static_cast<std::uint64_t>(fileSize))
    return corruptError("a VTK image data file whose compressed array claims " + std::to_string(blocks) +
                        " blocks, more than its bytes");
  for (const std::uint64_t size : {blockSize, lastBlockSize}) {
    const std::string what = "a VTK image data file with compressed blocks of " + std::to_string(size) + " bytes";
    if (size > (std::uint64_t{1} << 62)) return unsupportedError(what);
    if (Status cap = checkAllocation(static_cast<std::int64_t>(size), TARV_ELEMENT_TYPE_UNSIGNED_CHAR); !cap.ok())
      return Status(cap.code(), what + ": " + cap.message());
  }
  const std::optional<std::vector<unsigned char>> header = source.read((3 + blocks) * wordBytes);
  if (!header) return okStatus();
  for (std::uint64_t k = 0; k < blocks; ++k) {
    const std::uint64_t compressed = word(header->data() + (3 + k) * wordBytes, layout);
    if (compressed > static_cast<std::uint64_t>(fileSize))
      return corruptError("a VTK image data file whose compressed block claims " + std::to_string(compressed) +
                          " bytes, more than the file holds");
  }
  return okStatus();
}

// The compression header of every compressed array, appended or inline.
Status checkCompressedArrays(std::ifstream& in, const std::string& text, std::int64_t fileSize) {
  const std::size_t file = text.find("<VTKFile");
  if (file == std::string::npos || !attribute(text, file, "compressor")) return okStatus();
  CompressionLayout layout;
  layout.wordBytes = attribute(text, file, "header_type").value_or("UInt32") == "UInt64" ? 8 : 4;
  layout.bigEndian = attribute(text, file, "byte_order").value_or("LittleEndian") == "BigEndian";

  // Appended data begins after the first character that follows its tag and blanks (an
  // underscore in files VTK writes; VTK skips whatever it is).
  std::optional<std::int64_t> appended;
  bool appendedBase64 = false;
  if (const std::size_t tag = text.find("<AppendedData"); tag != std::string::npos) {
    appendedBase64 = attribute(text, tag, "encoding").value_or("raw") == "base64";
    std::string head(4096, '\0');
    in.clear();
    in.seekg(static_cast<std::streamoff>(tag));
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    const std::size_t close = head.find('>');
    const std::size_t first = close == std::string::npos ? std::string::npos : head.find_first_not_of(" \t\r\n", close + 1);
    if (first != std::string::npos) appended = static_cast<std::int64_t>(tag + first + 1);
  }
  for (std::size_t array = text.find("<DataArray"); array != std::string::npos; array = text.find("<DataArray", array + 1)) {
    const std::string format = attribute(text, array, "format").value_or("ascii");
    std::optional<HeaderSource> source;
    // VTK reads an array with an offset from the appended data, whatever its format says.
    if (attribute(text, array, "offset") && appended) {
      std::int64_t offset = 0;
      std::istringstream value(attribute(text, array, "offset").value_or(""));
      if (!(value >> offset) || offset < 0 || offset > fileSize) continue;
      source.emplace(in, *appended + offset, appendedBase64);
    } else if (format == "binary") {
      const std::size_t close = text.find('>', array);
      if (close == std::string::npos) continue;
      const std::size_t data = text.find_first_not_of(" \t\r\n", close + 1);
      if (data == std::string::npos) continue;
      source.emplace(in, static_cast<std::int64_t>(data), true);
    }
    if (!source) continue;
    if (Status header = checkCompressionHeader(*source, layout, fileSize); !header.ok()) return header;
  }
  return okStatus();
}

}  // namespace

Status checkVtiStructure(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return okStatus();
  in.seekg(0, std::ios::end);
  const std::int64_t fileSize = static_cast<std::int64_t>(in.tellg());
  in.seekg(0);
  const std::string text = xmlPart(in);
  const std::size_t image = text.find("<ImageData");
  if (image == std::string::npos) return okStatus();
  if (Status extents = checkExtents(text, image); !extents.ok()) return extents;
  return checkCompressedArrays(in, text, fileSize);
}

}  // namespace tarv::formats

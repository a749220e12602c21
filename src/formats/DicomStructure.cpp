#include "formats/DicomStructure.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>

#include <gdcmPhotometricInterpretation.h>

#include "formats/FileStatus.h"

namespace tarv::formats {

namespace {

constexpr std::uint32_t kUndefinedLength = 0xffffffffu;
constexpr int kDeepestNesting = 32;
constexpr std::uint16_t kItemGroup = 0xfffe;
constexpr std::uint16_t kItem = 0xe000;
constexpr std::uint16_t kItemDelimiter = 0xe00d;
constexpr std::uint16_t kSequenceDelimiter = 0xe0dd;

struct Syntax {
  bool explicitVr = true;
  bool bigEndian = false;
};

// Value representations whose explicit form has two reserved bytes and a 32-bit length.
bool hasLongLength(const char vr[2]) {
  static constexpr const char* longForms[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ", "SV", "UC", "UN", "UR", "UT", "UV"};
  for (const char* form : longForms)
    if (vr[0] == form[0] && vr[1] == form[1]) return true;
  return false;
}

bool isKnownVr(const char vr[2]) {
  static constexpr const char* forms[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FD", "FL", "IS", "LO",
                                          "LT", "OB", "OD", "OF", "OL", "OV", "OW", "PN", "SH", "SL", "SQ",
                                          "SS", "ST", "SV", "TM", "UC", "UI", "UL", "UN", "UR", "US", "UT", "UV"};
  for (const char* form : forms)
    if (vr[0] == form[0] && vr[1] == form[1]) return true;
  return false;
}

// Elements of the image pixel and multi-frame modules that GDCM reads as binary values of a fixed
// size, asserting (and so aborting) on any other size or value representation: US values (US or
// SS where the standard allows both) of exactly length bytes, or AT values (length bytes each, at
// least one).
enum class BinaryForm { us, usOrSs, at };
struct FixedSizeElement {
  std::uint16_t group;
  std::uint16_t element;
  std::uint32_t length;
  BinaryForm form;
};
constexpr FixedSizeElement kFixedSizeElements[] = {
    {0x0028, 0x0002, 2, BinaryForm::us},     {0x0028, 0x0006, 2, BinaryForm::us},
    {0x0028, 0x0009, 4, BinaryForm::at},     {0x0028, 0x0010, 2, BinaryForm::us},
    {0x0028, 0x0011, 2, BinaryForm::us},     {0x0028, 0x0100, 2, BinaryForm::us},
    {0x0028, 0x0101, 2, BinaryForm::us},     {0x0028, 0x0102, 2, BinaryForm::us},
    {0x0028, 0x0103, 2, BinaryForm::us},     {0x0028, 0x0106, 2, BinaryForm::usOrSs},
    {0x0028, 0x0107, 2, BinaryForm::usOrSs}, {0x0028, 0x1101, 6, BinaryForm::usOrSs},
    {0x0028, 0x1102, 6, BinaryForm::usOrSs}, {0x0028, 0x1103, 6, BinaryForm::usOrSs},
    {0x0054, 0x0011, 2, BinaryForm::us},     {0x0054, 0x0021, 2, BinaryForm::us},
    {0x0054, 0x0051, 2, BinaryForm::us},     {0x0054, 0x0081, 2, BinaryForm::us}};

// Elements GDCM reads as typed attributes, asserting (and so aborting) when the file gives them
// another value representation. Decimal and integer strings must hold as many numbers as GDCM
// reads from them (values: 0 for any number), each a number: GDCM leaves what it cannot parse
// unset, and gives back whatever its memory held.
struct TypedElement {
  std::uint16_t group;
  std::uint16_t element;
  char vr[3];
  int values = 0;
};
constexpr TypedElement kTypedElements[] = {
    {0x0002, 0x0000, "UL"}, {0x0002, 0x0001, "OB"},    {0x0002, 0x0002, "UI"},    {0x0002, 0x0003, "UI"},
    {0x0002, 0x0010, "UI"}, {0x0002, 0x0012, "UI"},    {0x0002, 0x0013, "SH"},    {0x0008, 0x0008, "CS"},
    {0x0008, 0x0016, "UI"}, {0x0008, 0x0060, "CS"},    {0x0018, 0x0050, "DS", 1}, {0x0018, 0x0088, "DS", 1},
    {0x0018, 0x1164, "DS", 2}, {0x0018, 0x2010, "DS", 2}, {0x0020, 0x000d, "UI"}, {0x0020, 0x000e, "UI"},
    {0x0020, 0x0013, "IS", 1}, {0x0020, 0x0032, "DS", 3}, {0x0020, 0x0037, "DS", 6}, {0x0028, 0x0004, "CS"},
    {0x0028, 0x0008, "IS", 1}, {0x0028, 0x0030, "DS", 2}, {0x0028, 0x0034, "IS", 2}, {0x0028, 0x1050, "DS"},
    {0x0028, 0x1051, "DS"}, {0x0028, 0x1052, "DS", 1}, {0x0028, 0x1053, "DS", 1}, {0x0028, 0x1054, "LO"},
    {0x3004, 0x000c, "DS"}};

// Longest decimal or integer string read.
constexpr std::uint32_t kLongestNumberList = 65536;

// Whether text (one value, spaces around it allowed) is a number of the representation: an
// optionally signed integer, or for DS a decimal with an optional exponent.
bool isNumber(std::string_view text, bool decimal) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  std::size_t k = 0;
  const auto digits = [&] {
    const std::size_t start = k;
    while (k < text.size() && text[k] >= '0' && text[k] <= '9') ++k;
    return k - start;
  };
  if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
  std::size_t mantissa = digits();
  if (decimal && k < text.size() && text[k] == '.') {
    ++k;
    mantissa += digits();
  }
  if (mantissa == 0) return false;
  if (decimal && k < text.size() && (text[k] == 'e' || text[k] == 'E')) {
    ++k;
    if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
    if (digits() == 0) return false;
  }
  return k == text.size();
}

// Why a decimal or integer string is not the numbers it should hold; empty when it is (or is
// empty: absent values are GDCM's to default).
std::string numberListProblem(std::string_view text, const TypedElement& typed) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
  if (text.find_first_not_of(' ') == std::string_view::npos) return {};
  const bool decimal = typed.vr[0] == 'D';
  int count = 0;
  for (std::size_t start = 0;; ++count) {
    const std::size_t end = text.find('\\', start);
    if (!isNumber(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start), decimal))
      return std::string("value ") + std::to_string(count + 1) + " is not " + (decimal ? "a decimal number" : "an integer");
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  ++count;
  if (typed.values > 0 && count != typed.values)
    return std::to_string(count) + " value" + (count == 1 ? "" : "s") + " where " + std::to_string(typed.values) +
           (typed.values == 1 ? " is read" : " are read");
  return {};
}

std::string tagText(std::uint16_t group, std::uint16_t element) {
  char text[16];
  std::snprintf(text, sizeof text, "(%04x,%04x)", group, element);
  return text;
}

// One element's header: its tag, value representation (explicit syntaxes) and value length.
struct ElementHeader {
  std::uint16_t group = 0;
  std::uint16_t element = 0;
  char vr[2] = {0, 0};
  std::uint32_t length = 0;
  int headerBytes = 0;
};

class Walker {
public:
  Walker(std::ifstream& in, std::int64_t size) : in(in), size(size) {}

  std::int64_t fileSize() const { return size; }

  bool readAt(std::int64_t offset, void* target, std::size_t bytes) {
    if (offset < 0 || offset + static_cast<std::int64_t>(bytes) > size) return false;
    in.clear();
    in.seekg(offset);
    return static_cast<bool>(in.read(static_cast<char*>(target), static_cast<std::streamsize>(bytes)));
  }

  std::uint16_t u16(const unsigned char* p, bool bigEndian) const {
    return bigEndian ? static_cast<std::uint16_t>(p[0] << 8 | p[1]) : static_cast<std::uint16_t>(p[1] << 8 | p[0]);
  }
  std::uint32_t u32(const unsigned char* p, bool bigEndian) const {
    return bigEndian ? (std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3])
                     : (std::uint32_t{p[3]} << 24 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | p[0]);
  }

  // The header of the element at offset, which must end by end.
  Result<ElementHeader> header(std::int64_t offset, std::int64_t end, Syntax syntax) {
    unsigned char bytes[12];
    if (offset + 8 > end || !readAt(offset, bytes, 8)) return corruptError("an element header runs past the end of " + enclosure(end));
    ElementHeader h;
    h.group = u16(bytes, syntax.bigEndian);
    h.element = u16(bytes + 2, syntax.bigEndian);
    if (h.group == kItemGroup || !syntax.explicitVr) {
      h.length = u32(bytes + 4, syntax.bigEndian);
      h.headerBytes = 8;
      return h;
    }
    h.vr[0] = static_cast<char>(bytes[4]);
    h.vr[1] = static_cast<char>(bytes[5]);
    if (!isKnownVr(h.vr))
      return corruptError("element " + tagText(h.group, h.element) + " has an unknown value representation");
    if (hasLongLength(h.vr)) {
      if (offset + 12 > end || !readAt(offset + 8, bytes + 8, 4))
        return corruptError("an element header runs past the end of " + enclosure(end));
      h.length = u32(bytes + 8, syntax.bigEndian);
      h.headerBytes = 12;
    } else {
      h.length = u16(bytes + 6, syntax.bigEndian);
      h.headerBytes = 8;
    }
    return h;
  }

  std::string enclosure(std::int64_t end) const { return end == size ? "the file" : "its item or sequence"; }

  // Elements from offset up to end, or (delimited) up to an item delimiter; the offset after them.
  Result<std::int64_t> dataSet(std::int64_t offset, std::int64_t end, Syntax syntax, int depth, bool delimited) {
    while (offset < end) {
      Result<ElementHeader> h = header(offset, end, syntax);
      if (!h.ok()) return h.status();
      const std::int64_t value = offset + h->headerBytes;
      if (h->group == kItemGroup) {
        if (delimited && h->element == kItemDelimiter) return value;
        return corruptError(tagText(h->group, h->element) + " outside a sequence");
      }
      Result<std::int64_t> next = element(*h, value, end, syntax, depth);
      if (!next.ok()) return next.status();
      offset = *next;
    }
    if (delimited) return corruptError("an item without its delimiter");
    return offset;
  }

  // The value of an element whose header ends at value; the offset after it.
  Result<std::int64_t> element(const ElementHeader& h, std::int64_t value, std::int64_t end, Syntax syntax, int depth) {
    const bool sequence = h.vr[0] == 'S' && h.vr[1] == 'Q';
    const bool unknown = !syntax.explicitVr || (h.vr[0] == 'U' && h.vr[1] == 'N');
    // Unknown representations of undefined length are sequences in implicit little endian.
    const Syntax inner = sequence ? syntax : unknown ? Syntax{false, false} : syntax;
    if (h.length == kUndefinedLength) {
      if (h.group == 0x7fe0 && h.element == 0x0010) return fragments(value, end, syntax);
      if (sequence || unknown) return items(value, end, inner, depth + 1, true);
      return corruptError("element " + tagText(h.group, h.element) + " has an undefined length");
    }
    if (Status typed = checkTyped(h, syntax); !typed.ok()) return typed;
    for (const FixedSizeElement& fixed : kFixedSizeElements) {
      if (fixed.group != h.group || fixed.element != h.element) continue;
      if (fixed.form == BinaryForm::at) {
        const bool at = !syntax.explicitVr || (h.vr[0] == 'A' && h.vr[1] == 'T');
        if (!at || h.length == 0 || h.length % fixed.length != 0)
          return corruptError("element " + tagText(h.group, h.element) + " is not a list of AT values");
        continue;
      }
      const bool us = h.vr[0] == 'U' && h.vr[1] == 'S';
      const bool ss = h.vr[0] == 'S' && h.vr[1] == 'S';
      const bool binary = !syntax.explicitVr || us || (ss && fixed.form == BinaryForm::usOrSs);
      if (!binary || h.length != fixed.length)
        return corruptError("element " + tagText(h.group, h.element) + " is not a " + std::to_string(fixed.length) +
                            "-byte " + (fixed.form == BinaryForm::us ? "US" : "US or SS") + " value");
      if (Status usable = checkPixelValue(h, value, syntax, depth); !usable.ok()) return usable;
    }
    const std::int64_t after = value + h.length;
    if (after > end)
      return corruptError("element " + tagText(h.group, h.element) + " of " + std::to_string(h.length) +
                          " bytes runs past the end of " + enclosure(end));
    if (depth == 0) {
      notePalette(h, value);
      noteRescale(h, value);
      if (Status code = checkRecognitionCode(h, value); !code.ok()) return code;
    }
    if (Status numbers = checkNumbers(h, value); !numbers.ok()) return numbers;
    if (sequence || (unknown && startsWithItem(value, after, inner))) {
      Result<std::int64_t> inside = items(value, after, inner, depth + 1, false);
      if (!inside.ok()) return inside.status();
    }
    return after;
  }

  Status checkTyped(const ElementHeader& h, Syntax syntax) {
    for (const TypedElement& typed : kTypedElements)
      if (syntax.explicitVr && typed.group == h.group && typed.element == h.element &&
          (h.vr[0] != typed.vr[0] || h.vr[1] != typed.vr[1]))
        return corruptError("element " + tagText(h.group, h.element) + " has the value representation " +
                            std::string(h.vr, 2) + ", not " + typed.vr);
    return okStatus();
  }

  // GDCM asserts that a recognition code (retired) names ACR-NEMA.
  Status checkRecognitionCode(const ElementHeader& h, std::int64_t value) {
    if (h.group != 0x0008 || h.element != 0x0010) return okStatus();
    char text[8] = {};
    const bool read = readAt(value, text, std::min<std::size_t>(h.length, sizeof text));
    if (!read || (std::strncmp(text, "ACR-NEMA", 8) != 0 && std::strncmp(text, "ACRNEMA", 7) != 0))
      return corruptError("element (0008,0010) (recognition code) does not name ACR-NEMA");
    return okStatus();
  }

  // A decimal or integer string that GDCM reads as numbers holds them.
  Status checkNumbers(const ElementHeader& h, std::int64_t value) {
    for (const TypedElement& typed : kTypedElements) {
      if (typed.group != h.group || typed.element != h.element) continue;
      if (!((typed.vr[0] == 'D' || typed.vr[0] == 'I') && typed.vr[1] == 'S')) return okStatus();
      if (h.length > kLongestNumberList)
        return unsupportedError("element " + tagText(h.group, h.element) + " holds " + std::to_string(h.length) +
                                " bytes of numbers");
      std::string text(h.length, '\0');
      if (!readAt(value, text.data(), text.size()))
        return corruptError("element " + tagText(h.group, h.element) + " cannot be read");
      if (const std::string problem = numberListProblem(text, typed); !problem.empty())
        return corruptError("element " + tagText(h.group, h.element) + " (" + typed.vr + "): " + problem);
      // GDCM asserts on a rescale slope of 0 (the number parses: checked above).
      if (h.group == 0x0028 && h.element == 0x1053 && text.find_first_not_of(std::string(" \0", 2)) != std::string::npos &&
          std::strtod(text.c_str(), nullptr) == 0.0)
        return corruptError("element (0028,1053) (rescale slope) is 0");
      return okStatus();
    }
    return okStatus();
  }

  // The values of the pixel description that GDCM asserts on outside these sets.
  Status checkPixelValue(const ElementHeader& h, std::int64_t value, Syntax syntax, int depth) {
    if (h.group != 0x0028 || h.length != 2) return okStatus();
    unsigned char bytes[2];
    if (!readAt(value, bytes, 2)) return corruptError("element " + tagText(h.group, h.element) + " cannot be read");
    const unsigned v = u16(bytes, syntax.bigEndian);
    if (depth == 0 && h.element >= 0x0100 && h.element <= 0x0102) bits[h.element - 0x0100] = static_cast<int>(v);
    bool usable = true;
    switch (h.element) {
      case 0x0002: usable = v == 1 || v == 3 || v == 4; break;
      case 0x0006:
      case 0x0103: usable = v <= 1; break;
      case 0x0100: usable = v == 1 || v == 8 || v == 12 || v == 16 || v == 24 || v == 32 || v == 64; break;
      case 0x0101: usable = v >= 1 && v <= 64; break;
      case 0x0102: usable = v <= 63; break;
      default: break;
    }
    if (!usable) return corruptError("element " + tagText(h.group, h.element) + " has the unusable value " + std::to_string(v));
    return okStatus();
  }

  bool startsWithItem(std::int64_t value, std::int64_t end, Syntax syntax) {
    unsigned char bytes[4];
    return value + 8 <= end && readAt(value, bytes, 4) && u16(bytes, syntax.bigEndian) == kItemGroup &&
           u16(bytes + 2, syntax.bigEndian) == kItem;
  }

  // The items of a sequence from offset up to end, or (delimited) up to its delimiter.
  Result<std::int64_t> items(std::int64_t offset, std::int64_t end, Syntax syntax, int depth, bool delimited) {
    if (depth > kDeepestNesting) return unsupportedError("sequences nested more than 32 deep");
    while (offset < end) {
      unsigned char bytes[8];
      if (offset + 8 > end || !readAt(offset, bytes, 8))
        return corruptError("an item header runs past the end of " + enclosure(end));
      const std::uint16_t group = u16(bytes, syntax.bigEndian);
      const std::uint16_t element = u16(bytes + 2, syntax.bigEndian);
      const std::uint32_t length = u32(bytes + 4, syntax.bigEndian);
      offset += 8;
      if (group == kItemGroup && element == kSequenceDelimiter && delimited) return offset;
      if (group != kItemGroup || element != kItem)
        return corruptError(tagText(group, element) + " where a sequence item was expected");
      Result<std::int64_t> next = length == kUndefinedLength
                                      ? dataSet(offset, end, syntax, depth, true)
                                      : offset + static_cast<std::int64_t>(length) > end
                                            ? Result<std::int64_t>(corruptError("an item of " + std::to_string(length) +
                                                                                " bytes runs past the end of " + enclosure(end)))
                                            : dataSet(offset, offset + length, syntax, depth, false);
      if (!next.ok()) return next.status();
      offset = *next;
    }
    if (delimited) return corruptError("a sequence without its delimiter");
    return offset;
  }

  // Encapsulated pixel data: items of defined length up to the sequence delimiter.
  Result<std::int64_t> fragments(std::int64_t offset, std::int64_t end, Syntax syntax) {
    while (true) {
      unsigned char bytes[8];
      if (offset + 8 > end || !readAt(offset, bytes, 8)) return corruptError("encapsulated pixel data without its delimiter");
      const std::uint16_t group = u16(bytes, syntax.bigEndian);
      const std::uint16_t element = u16(bytes + 2, syntax.bigEndian);
      const std::uint32_t length = u32(bytes + 4, syntax.bigEndian);
      offset += 8;
      if (group == kItemGroup && element == kSequenceDelimiter) return offset;
      if (group != kItemGroup || element != kItem || length == kUndefinedLength)
        return corruptError(tagText(group, element) + " where a pixel data fragment was expected");
      if (offset + static_cast<std::int64_t>(length) > end)
        return corruptError("a pixel data fragment of " + std::to_string(length) + " bytes runs past the end of the file");
      offset += length;
    }
  }

  // The file meta group (group 0002, explicit little endian) from offset; its transfer syntax.
  // GDCM asserts when the group length it reads first does not match the group, or on UIDs longer
  // than 64 characters.
  Result<std::int64_t> metaGroup(std::int64_t offset, Syntax syntax, std::string& transferSyntax) {
    std::int64_t groupEnd = -1;
    bool sopClass = false;
    while (offset + 8 <= size) {
      unsigned char bytes[2];
      if (!readAt(offset, bytes, 2) || u16(bytes, syntax.bigEndian) != 0x0002) break;
      Result<ElementHeader> h = header(offset, size, syntax);
      if (!h.ok()) return h.status();
      if (Status typed = checkTyped(*h, syntax); !typed.ok()) return typed;
      const std::int64_t value = offset + h->headerBytes;
      if (h->length == kUndefinedLength || value + h->length > size)
        return corruptError("file meta element " + tagText(h->group, h->element) + " runs past the end of the file");
      if (h->element == 0x0000 && h->length == 4) {
        unsigned char bytes4[4];
        if (!readAt(value, bytes4, 4)) return corruptError("the file meta group length cannot be read");
        groupEnd = value + 4 + u32(bytes4, syntax.bigEndian);
      }
      if (h->vr[0] == 'U' && h->vr[1] == 'I' && h->length > 64)
        return corruptError("file meta element " + tagText(h->group, h->element) + " holds a UID of more than 64 characters");
      if (h->element == 0x0002 && h->length > 0) sopClass = true;
      if (h->element == 0x0010 && h->length <= 64) {
        std::array<char, 65> text{};
        if (!readAt(value, text.data(), h->length)) return corruptError("the transfer syntax cannot be read");
        transferSyntax.assign(text.data(), std::strlen(text.data()));
        while (!transferSyntax.empty() && transferSyntax.back() == ' ') transferSyntax.pop_back();
      }
      offset = value + h->length;
    }
    if (groupEnd >= 0 && groupEnd != offset)
      return corruptError("the file meta group length does not match the group");
    // Without it GDCM reads the file as an ACR-NEMA image, asserting on many.
    if (!sopClass) return corruptError("a file meta group without a media storage SOP class");
    return offset;
  }

  // The data set's bits allocated, stored and high bit fit together (GDCM asserts otherwise, when
  // it is asked for them).
  Status checkBits() const {
    const int allocated = bits[0], stored = bits[1], high = bits[2];
    if (stored >= 0 && (allocated < 0 || stored > allocated))
      return corruptError("bits stored (" + std::to_string(stored) + ") beyond bits allocated (" +
                          (allocated < 0 ? std::string("none") : std::to_string(allocated)) + ")");
    if (high >= 0 && (allocated < 0 || high >= allocated || (stored >= 0 && high >= stored)))
      return corruptError("a high bit (" + std::to_string(high) + ") beyond the bits stored or allocated");
    return okStatus();
  }

  // GDCM asserts on palette colour images whose palettes are missing or do not fit their
  // descriptors; the series reader does not read palette images, so none reaches GDCM.
  Status checkPalette() const {
    if (paletteImage) return unsupportedError("PALETTE COLOR images (colours from palettes) are not read");
    return okStatus();
  }

  // A rescale intercept needs its slope, and a slope its value (GDCM asserts on MR images
  // without them).
  Status checkRescale() const {
    if (emptySlope) return corruptError("a rescale slope without a value");
    if (rescale[0] && !rescale[1]) return corruptError("a rescale intercept without a rescale slope");
    return okStatus();
  }

private:
  // Notes the top-level data set's rescale intercept and slope: present with a value, or (the
  // slope) present without one.
  void noteRescale(const ElementHeader& h, std::int64_t value) {
    if (h.group != 0x0028 || (h.element != 0x1052 && h.element != 0x1053)) return;
    std::string text(std::min<std::uint32_t>(h.length, 64), '\0');
    const bool blank = readAt(value, text.data(), text.size()) &&
                       text.find_first_not_of(std::string(" \0", 2)) == std::string::npos;
    if (!blank) rescale[h.element - 0x1052] = true;
    if (h.element == 0x1053) emptySlope = blank;
  }

  // Notes whether the top-level data set's photometric interpretation is one that GDCM reads as
  // a palette (it takes abbreviations of the name too).
  void notePalette(const ElementHeader& h, std::int64_t value) {
    if (h.group != 0x0028 || h.element != 0x0004) return;
    std::array<char, 17> text{};
    if (!readAt(value, text.data(), std::min<std::size_t>(h.length, 16))) return;
    paletteImage = gdcm::PhotometricInterpretation::GetPIType(text.data()) == gdcm::PhotometricInterpretation::PALETTE_COLOR;
  }

  std::ifstream& in;
  std::int64_t size;
  // Bits allocated, stored and high bit of the top-level data set; -1 when absent.
  int bits[3] = {-1, -1, -1};
  bool paletteImage = false;
  // Rescale intercept and slope present at the top level.
  bool rescale[2] = {false, false};
  bool emptySlope = false;
};

Result<Syntax> syntaxOf(const std::string& transferSyntax, Syntax assumed) {
  if (transferSyntax.empty()) return assumed;
  if (transferSyntax == "1.2.840.10008.1.2") return Syntax{false, false};
  if (transferSyntax == "1.2.840.10008.1.2.2") return Syntax{true, true};
  if (transferSyntax == "1.2.840.10008.1.2.1.99") return unsupportedError("deflated DICOM files");
  return Syntax{true, false};
}

}  // namespace

Result<DicomStructure> checkDicomStructure(const std::string& path) {
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  std::ifstream in(path, std::ios::binary);
  if (!in) return openForReadingFailure(path);
  in.seekg(0, std::ios::end);
  const std::int64_t size = static_cast<std::int64_t>(in.tellg());
  if (size < 0) return ioError("cannot read " + path);
  Walker walker(in, size);

  char prefix[132] = {};
  const bool preamble = walker.readAt(0, prefix, sizeof prefix) && std::memcmp(prefix + 128, "DICM", 4) == 0;
  // Files without the preamble and prefix (older ACR-NEMA files) are not taken: GDCM reads them
  // by guessing, and asserts on many malformed ones.
  if (!preamble) return DicomStructure::notDicom;
  const std::int64_t offset = 132;
  const Syntax assumed{true, false};
  std::string transferSyntax;
  Result<std::int64_t> meta = walker.metaGroup(offset, assumed, transferSyntax);
  if (!meta.ok()) return meta.status();
  // GDCM asserts on a file that ends with its file meta group.
  if (*meta >= size) return corruptError("a DICOM file without a data set after its file meta group");
  Result<Syntax> syntax = syntaxOf(transferSyntax, assumed);
  if (!syntax.ok()) return syntax.status();
  Result<std::int64_t> end = walker.dataSet(*meta, size, *syntax, 0, false);
  if (!end.ok()) return end.status();
  if (Status bits = walker.checkBits(); !bits.ok()) return bits;
  if (Status palette = walker.checkPalette(); !palette.ok()) return palette;
  if (Status rescale = walker.checkRescale(); !rescale.ok()) return rescale;
  return DicomStructure::wellFormed;
}

}  // namespace tarv::formats

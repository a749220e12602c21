#include "core/FileReadWrite.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <vector>

namespace tarv {

namespace {

constexpr std::uint64_t signBit = std::uint64_t{1} << 63;
constexpr std::uint64_t mantissaMask = (std::uint64_t{1} << 52) - 1;
constexpr std::uint64_t exponentMask = std::uint64_t{0x7ff} << 52;
constexpr std::uint64_t quietNanPayload = std::uint64_t{1} << 51;

bool isBlank(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && isBlank(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && isBlank(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// The rest of the current line, its end consumed.
std::string restOfLine(std::istream& is) {
  std::string line;
  std::getline(is, line);
  return line;
}

std::vector<std::string_view> splitAtBlanks(std::string_view s) {
  std::vector<std::string_view> tokens;
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && isBlank(static_cast<unsigned char>(s[i]))) ++i;
    const std::size_t start = i;
    while (i < s.size() && !isBlank(static_cast<unsigned char>(s[i]))) ++i;
    if (i > start) tokens.push_back(s.substr(start, i - start));
  }
  return tokens;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
    if (x != b[i]) return false;
  }
  return true;
}

// A leading '+' is allowed before a digit or a decimal point.
std::string_view dropPlus(std::string_view s) {
  if (s.size() > 1 && s[0] == '+' && ((s[1] >= '0' && s[1] <= '9') || s[1] == '.')) s.remove_prefix(1);
  return s;
}

// The whole token must be an int in range.
bool parseInt(std::string_view s, int& value) {
  s = dropPlus(s);
  const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), value);
  return error == std::errc() && end == s.data() + s.size() && !s.empty();
}

// "nan", "-nan" or "nan(0x<payload>)": the payload must fit the mantissa, otherwise the default NaN.
bool parseNan(std::string_view s, double& value) {
  std::uint64_t bits = exponentMask;
  if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
    if (s[0] == '-') bits |= signBit;
    s.remove_prefix(1);
  }
  if (s.size() < 3 || !equalsIgnoringCase(s.substr(0, 3), "nan")) return false;
  s.remove_prefix(3);
  std::uint64_t payload = quietNanPayload;
  if (!s.empty()) {
    if (s.front() != '(' || s.back() != ')') return false;
    std::string_view inner = s.substr(1, s.size() - 2);
    if (inner.size() > 2 && inner[0] == '0' && (inner[1] == 'x' || inner[1] == 'X')) inner.remove_prefix(2);
    std::uint64_t candidate = 0;
    const auto [end, error] = std::from_chars(inner.data(), inner.data() + inner.size(), candidate, 16);
    if (error == std::errc() && end == inner.data() + inner.size() && !inner.empty() && candidate != 0 &&
        candidate <= mantissaMask)
      payload = candidate;
  }
  value = std::bit_cast<double>(bits | payload);
  return true;
}

// The whole token must be a double in range; inf and nan forms included.
bool parseDouble(std::string_view s, double& value) {
  if (parseNan(s, value)) return true;
  if (s.size() > 1 && s[0] == '+' && s[1] != '-') s.remove_prefix(1);
  double parsed = 0.0;
  const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), parsed);
  if (error != std::errc() || end != s.data() + s.size() || s.empty()) return false;
  value = parsed;
  return true;
}

std::string formatDouble(double value) {
  if (std::isnan(value)) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    std::string text = (bits & signBit) ? "-nan" : "nan";
    const std::uint64_t payload = bits & mantissaMask;
    if (payload != quietNanPayload) {
      char hex[24];
      const auto result = std::to_chars(hex, hex + sizeof hex, payload, 16);
      text += "(0x" + std::string(hex, result.ptr) + ")";
    }
    return text;
  }
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

// Line breaks would end the entry (or the block): written as blanks.
std::string oneLine(std::string_view s) {
  std::string text(s);
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

void writeLine(std::ostream& os, const std::string& name, std::string_view value) {
  os << oneLine(name) << " =";
  if (!value.empty()) os << ' ' << value;
  os << '\n';
}

}  // namespace

FileReadWrite::~FileReadWrite() = default;

bool FileReadWrite::isEntry(std::istream& is) {
  for (;;) {
    const int c = is.peek();
    if (c == std::char_traits<char>::eof()) return false;
    if (c == '\n') {
      is.get();
      return false;
    }
    if (!isBlank(c)) return true;
    is.get();
  }
}

std::string FileReadWrite::readEntryName(std::istream& is) {
  std::string name;
  for (;;) {
    const int c = is.peek();
    if (c == std::char_traits<char>::eof() || c == '\n') break;
    is.get();
    if (c == '=') break;
    name.push_back(static_cast<char>(c));
  }
  return std::string(trim(name));
}

int FileReadWrite::readIntValue(std::istream& is) {
  int value = 0;
  return parseInt(trim(restOfLine(is)), value) ? value : 0;
}

bool FileReadWrite::readBoolValue(std::istream& is) {
  const std::string line = restOfLine(is);
  const std::string_view text = trim(line);
  return text == "1" || equalsIgnoringCase(text, "true");
}

double FileReadWrite::readDoubleValue(std::istream& is) {
  double value = 0.0;
  return parseDouble(trim(restOfLine(is)), value) ? value : 0.0;
}

std::string FileReadWrite::readStringValue(std::istream& is) { return std::string(trim(restOfLine(is))); }

Coordinates<double> FileReadWrite::readDoubleCoordinatesValue(std::istream& is) {
  const std::string line = restOfLine(is);
  const std::vector<std::string_view> tokens = splitAtBlanks(line);
  std::vector<double> values(tokens.size());
  for (std::size_t i = 0; i < tokens.size(); ++i)
    if (!parseDouble(tokens[i], values[i])) return {};
  Coordinates<double> result(static_cast<unsigned>(values.size()));
  for (unsigned i = 0; i < result.size(); ++i) result[i] = values[i];
  return result;
}

std::list<int> FileReadWrite::readIntList(std::istream& is) {
  const std::string line = restOfLine(is);
  std::list<int> values;
  for (const std::string_view token : splitAtBlanks(line)) {
    int value = 0;
    if (!parseInt(token, value)) return {};
    values.push_back(value);
  }
  return values;
}

void FileReadWrite::skipCurrentLine(std::istream& is) {
  is.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, int value) {
  writeLine(os, name, std::to_string(value));
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, bool value) {
  writeLine(os, name, value ? "true" : "false");
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, double value) {
  writeLine(os, name, formatDouble(value));
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, const std::string& value) {
  writeLine(os, name, trim(oneLine(value)));
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, const char* value) {
  writeValue(os, name, std::string(value ? value : ""));
}

void FileReadWrite::writeValue(std::ostream& os, const std::string& name, const Coordinates<double>& value) {
  std::string text;
  for (unsigned i = 0; i < value.size(); ++i) {
    if (i > 0) text += ' ';
    text += formatDouble(value[i]);
  }
  writeLine(os, name, text);
}

void FileReadWrite::writeList(std::ostream& os, const std::string& name, const std::list<int>& values) {
  std::string text;
  for (const int value : values) {
    if (!text.empty()) text += ' ';
    text += std::to_string(value);
  }
  writeLine(os, name, text);
}

void FileReadWrite::writeEndOfBlock(std::ostream& os) { os << '\n'; }

}  // namespace tarv

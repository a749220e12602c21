#include "LibraryMessages.h"

#include <tiffio.h>
#include <vtkLogger.h>
#include <vtkObjectFactory.h>
#include <vtkOutputWindow.h>

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <streambuf>
#include <vector>

namespace tarv::tool {

namespace {

enum class Source { library, tiffError, tiffWarning, vtkError, vtkOther };

struct Entry {
  Source source;
  std::string text;
};

// The log, the collector and its line outlive every static object: libstdc++ flushes std::cerr,
// and other libraries may still print, while static objects are destroyed at exit.
std::string& logText() {
  static auto* text = new std::string();
  return *text;
}

std::vector<Entry>& entries() {
  static auto* list = new std::vector<Entry>();
  return *list;
}

void append(Source source, std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  if (text.empty()) return;
  entries().push_back(Entry{source, text});
  logText() += text;
  logText() += '\n';
}

// std::cerr's buffer while the log is installed: collects whole lines.
class LineCollector : public std::streambuf {
protected:
  int overflow(int c) override {
    if (c == traits_type::eof()) return traits_type::not_eof(c);
    if (c == '\n') {
      append(Source::library, line);
      line.clear();
    } else {
      line += static_cast<char>(c);
    }
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    for (std::streamsize i = 0; i < n; ++i) overflow(static_cast<unsigned char>(s[i]));
    return n;
  }
  int sync() override { return 0; }

private:
  std::string line;
};

std::string formatMessage(const char* module, const char* format, va_list arguments) {
  char buffer[1024];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string text = buffer;
  if (module != nullptr && *module != '\0') text = std::string(module) + ": " + text;
  return text;
}

void tiffErrorHandler(const char* module, const char* format, va_list arguments) {
  append(Source::tiffError, formatMessage(module, format, arguments));
}

void tiffWarningHandler(const char* module, const char* format, va_list arguments) {
  append(Source::tiffWarning, formatMessage(module, format, arguments));
}

// VTK's messages: the text after the "ERROR: In file, line n" preamble and the object's name.
class CollectingOutputWindow : public vtkOutputWindow {
public:
  static CollectingOutputWindow* New();
  vtkTypeMacro(CollectingOutputWindow, vtkOutputWindow);

  void DisplayText(const char* text) override {
    if (text == nullptr) return;
    std::string message = text;
    // The last non-empty line carries the message itself.
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
    const std::size_t lineStart = message.rfind('\n');
    if (lineStart != std::string::npos) message = message.substr(lineStart + 1);
    const std::size_t objectEnd = message.find("): ");
    if (objectEnd != std::string::npos) message = message.substr(objectEnd + 3);
    append(GetCurrentMessageType() == MESSAGE_TYPE_ERROR ? Source::vtkError : Source::vtkOther, message);
  }
};

vtkStandardNewMacro(CollectingOutputWindow);

std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  return text;
}

}  // namespace

void LibraryMessages::install() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  std::cerr.rdbuf(new LineCollector());
  TIFFSetErrorHandler(tiffErrorHandler);
  TIFFSetWarningHandler(tiffWarningHandler);
  vtkLogger::SetStderrVerbosity(vtkLogger::VERBOSITY_OFF);
  CollectingOutputWindow* window = CollectingOutputWindow::New();
  vtkOutputWindow::SetInstance(window);
  window->Delete();
}

const std::string& LibraryMessages::log() { return logText(); }

LibraryMessages::LibraryMessages() : start(entries().size()) {}

bool LibraryMessages::hasTiffError() const {
  for (std::size_t i = start; i < entries().size(); ++i)
    if (entries()[i].source == Source::tiffError) return true;
  return false;
}

bool LibraryMessages::hasBlockReadError() const {
  for (std::size_t i = start; i < entries().size(); ++i) {
    const Entry& entry = entries()[i];
    if (entry.source == Source::library && entry.text.find("::readBlock()") != std::string::npos) return true;
  }
  return false;
}

bool LibraryMessages::hasVtkError() const {
  for (std::size_t i = start; i < entries().size(); ++i)
    if (entries()[i].source == Source::vtkError) return true;
  return false;
}

std::string LibraryMessages::reason() const {
  const std::vector<Entry>& list = entries();
  for (std::size_t i = start; i < list.size(); ++i)
    if (list[i].source == Source::tiffError) return oneLine(list[i].text);
  for (std::size_t i = start; i < list.size(); ++i)
    if (list[i].source == Source::vtkError) return oneLine(list[i].text);
  for (std::size_t i = start; i < list.size(); ++i) {
    if (list[i].source == Source::library && list[i].text.find("::readBlock()") != std::string::npos) {
      std::string text = list[i].text.substr(list[i].text.find("::readBlock()") + 13);
      const std::size_t first = text.find_first_not_of(" :");
      text = first == std::string::npos ? std::string("a block cannot be read") : text.substr(first);
      if (i + 1 < list.size() && list[i + 1].source == Source::library &&
          list[i + 1].text.compare(0, 6, "tile: ") == 0)
        text += " (" + list[i + 1].text + ")";
      return oneLine(text);
    }
  }
  for (std::size_t i = list.size(); i > start; --i)
    if (list[i - 1].source == Source::library) return oneLine(list[i - 1].text);
  return std::string();
}

}  // namespace tarv::tool

#include "LibraryMessages.h"

#include <tiffio.h>
#include <vtkLogger.h>
#include <vtkObjectFactory.h>
#include <vtkOutputWindow.h>

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <streambuf>

namespace tarv::tool {

namespace {

// The log, the collector and its line outlive every static object: libstdc++ flushes std::cerr,
// and other libraries may still print, while static objects are destroyed at exit.
std::string& logText() {
  static auto* text = new std::string();
  return *text;
}

void append(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  if (text.empty()) return;
  logText() += text;
  logText() += '\n';
}

// std::cerr's buffer while the log is installed: collects whole lines.
class LineCollector : public std::streambuf {
protected:
  int overflow(int c) override {
    if (c == traits_type::eof()) return traits_type::not_eof(c);
    if (c == '\n') {
      append(line);
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

void tiffHandler(const char* module, const char* format, va_list arguments) {
  append(formatMessage(module, format, arguments));
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
    append(message);
  }
};

vtkStandardNewMacro(CollectingOutputWindow);

}  // namespace

void LibraryMessages::install() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  std::cerr.rdbuf(new LineCollector());
  TIFFSetErrorHandler(tiffHandler);
  TIFFSetWarningHandler(tiffHandler);
  vtkLogger::SetStderrVerbosity(vtkLogger::VERBOSITY_OFF);
  CollectingOutputWindow* window = CollectingOutputWindow::New();
  vtkOutputWindow::SetInstance(window);
  window->Delete();
}

const std::string& LibraryMessages::log() { return logText(); }

}  // namespace tarv::tool

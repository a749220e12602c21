#include "FileFormat.h"

#include <filesystem>

#include "ToolError.h"

namespace tarv::tool {

std::optional<FileFormat> fileFormatFromExtension(const std::string& path) {
  return formats::formatFromExtension(path);
}

const char* fileFormatDisplayName(FileFormat format) { return formats::describeFormat(format).displayName; }

FileFormat chooseFileFormat(const std::string& path, const std::string& option, const std::string& optionName) {
  if (!option.empty()) {
    if (std::optional<FileFormat> format = formats::formatFromName(option)) return *format;
    throw ToolError(path, "unknown format '" + option + "' (known: " + formats::formatNameList() + ")");
  }
  if (std::optional<FileFormat> format = formats::formatFromExtension(path)) return *format;
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.empty())
    throw ToolError(path, "no file extension to tell the format (known: " + formats::formatExtensionList() +
                              "); name it with " + optionName);
  throw ToolError(path, "unknown file extension '" + extension + "' (known: " + formats::formatExtensionList() +
                            "); name the format with " + optionName);
}

}  // namespace tarv::tool

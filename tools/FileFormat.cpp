#include "FileFormat.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "ToolError.h"

namespace tarv::tool {

namespace {

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

std::optional<FileFormat> fileFormatFromName(const std::string& name) {
  const std::string lower = lowerCase(name);
  if (lower == "tarv1" || lower == "tarv") return FileFormat::tarv1;
  if (lower == "tiff" || lower == "tif" || lower == "paged-tiff") return FileFormat::pagedTiff;
  if (lower == "vtk-tiff") return FileFormat::vtkTiff;
  if (lower == "raw") return FileFormat::raw;
  if (lower == "png") return FileFormat::png;
  if (lower == "jpeg" || lower == "jpg") return FileFormat::jpeg;
  if (lower == "vti") return FileFormat::vti;
  return std::nullopt;
}

std::optional<FileFormat> fileFormatFromExtension(const std::string& path) {
  const std::string extension = lowerCase(std::filesystem::path(path).extension().string());
  if (extension == ".tarv") return FileFormat::tarv1;
  if (extension == ".tif" || extension == ".tiff") return FileFormat::pagedTiff;
  if (extension == ".raw") return FileFormat::raw;
  if (extension == ".png") return FileFormat::png;
  if (extension == ".jpg" || extension == ".jpeg") return FileFormat::jpeg;
  if (extension == ".vti") return FileFormat::vti;
  return std::nullopt;
}

const char* fileFormatDisplayName(FileFormat format) {
  switch (format) {
    case FileFormat::tarv1: return "TARV1";
    case FileFormat::pagedTiff: return "paged TIFF";
    case FileFormat::vtkTiff: return "TIFF (VTK)";
    case FileFormat::raw: return "raw";
    case FileFormat::png: return "PNG";
    case FileFormat::jpeg: return "JPEG";
    case FileFormat::vti: return "VTK image data";
  }
  return "unknown";
}

const char* fileFormatNameList() { return "tarv1, tiff, vtk-tiff, raw, png, jpeg, vti"; }

const char* fileExtensionList() { return ".tarv, .tif, .tiff, .raw, .png, .jpg, .jpeg, .vti"; }

bool holdsTimeSteps(FileFormat format) { return format == FileFormat::tarv1 || format == FileFormat::raw; }

bool canReadLazily(FileFormat format) { return format == FileFormat::tarv1 || format == FileFormat::pagedTiff; }

FileFormat chooseFileFormat(const std::string& path, const std::string& option, const std::string& optionName) {
  if (!option.empty()) {
    if (std::optional<FileFormat> format = fileFormatFromName(option)) return *format;
    throw ToolError(path, "unknown format '" + option + "' (known: " + fileFormatNameList() + ")");
  }
  if (std::optional<FileFormat> format = fileFormatFromExtension(path)) return *format;
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.empty())
    throw ToolError(path, std::string("no file extension to tell the format (known: ") + fileExtensionList() +
                              "); name it with " + optionName);
  throw ToolError(path, "unknown file extension '" + extension + "' (known: " + fileExtensionList() +
                            "); name the format with " + optionName);
}

}  // namespace tarv::tool

#ifndef TARV_TOOLS_FILEFORMAT_H
#define TARV_TOOLS_FILEFORMAT_H

#include <optional>
#include <string>

#include "formats/FormatRegistry.h"

namespace tarv::tool {

// The file formats the tool reads and writes: the library's table (formats/FormatRegistry.h).
using FileFormat = formats::FileFormat;

// From the file name's extension (any case); empty when unknown.
std::optional<FileFormat> fileFormatFromExtension(const std::string& path);
// The display name: TARV1, paged TIFF, TIFF stack, NIfTI, ...
const char* fileFormatDisplayName(FileFormat format);

// The format named by option (when not empty), else by the file's extension. Throws ToolError
// naming the file when neither gives a known format; optionName is the option to suggest.
FileFormat chooseFileFormat(const std::string& path, const std::string& option, const std::string& optionName);

}  // namespace tarv::tool

#endif

#ifndef TARV_TOOLS_FILEFORMAT_H
#define TARV_TOOLS_FILEFORMAT_H

#include <optional>
#include <string>

namespace tarv::tool {

// The file formats of the library that the tool reads and writes.
//
//   format     extension        holds
//   tarv1      .tarv            x, y, z, t; values quantised to 16 bits, read back as float
//   tiff       .tif .tiff       paged (tiled) TIFF: x, y, z, up to 4 components; no geometry
//   vtk-tiff   (--format only)  TIFF through VTK, one page per slice (uint8, uint16, float); no
//                               geometry. Reading a .tif file that is not tiled falls back to it.
//   raw        .raw             headerless samples; the layout is given by options
//   png        .png             one plane of uint8 or uint16
//   jpeg       .jpg .jpeg       one plane of uint8
//   vti        .vti             VTK XML image data: x, y, z with spacing and origin; no 64-bit
//                               integers
enum class FileFormat { tarv1, pagedTiff, vtkTiff, raw, png, jpeg, vti };

// From a --format value (the names of the table); empty when unknown.
std::optional<FileFormat> fileFormatFromName(const std::string& name);
// From the file name's extension (any case); empty when unknown.
std::optional<FileFormat> fileFormatFromExtension(const std::string& path);
// The display name: TARV1, paged TIFF, TIFF (VTK), raw, PNG, JPEG, VTK image data.
const char* fileFormatDisplayName(FileFormat format);
// "tarv1, tiff, vtk-tiff, raw, png, jpeg, vti"
const char* fileFormatNameList();
// ".tarv, .tif, .tiff, .raw, .png, .jpg, .jpeg, .vti"
const char* fileExtensionList();

// The format holds every time step of a dataset (the others hold one).
bool holdsTimeSteps(FileFormat format);
// A file of the format can back a dataset that is read block by block on demand.
bool canReadLazily(FileFormat format);

// The format named by option (when not empty), else by the file's extension. Throws ToolError
// naming the file when neither gives a known format; optionName is the option to suggest.
FileFormat chooseFileFormat(const std::string& path, const std::string& option, const std::string& optionName);

}  // namespace tarv::tool

#endif

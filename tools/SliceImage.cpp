#include "SliceImage.h"

#include <cmath>
#include <optional>

#include "DatasetFiles.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

std::string rangeText(int count) {
  return count == 1 ? std::string("only 0") : "0 to " + std::to_string(count - 1);
}

}  // namespace

DatasetHandle windowPlane(Dataset* dataset, const std::string& name, int z, int t, const Window* givenWindow,
                          Window& usedWindow, int component) {
  const DatasetCoordinates size = dataset->getSize();
  if (z < 0 || z >= size.z)
    throw ToolError("--z " + std::to_string(z), name + " has planes " + rangeText(size.z));
  if (t < 0 || t >= size.t)
    throw ToolError("--t " + std::to_string(t), name + " has time steps " + rangeText(size.t));
  if (component < 0 && size.c > 1)
    throw ToolError(name, std::to_string(size.c) + " components: choose one with --component");
  if (component < 0) component = 0;
  if (component >= size.c)
    throw ToolError("--component " + std::to_string(component), name + " has components " + rangeText(size.c));

  // Reads only the blocks of this plane from a file-backed dataset.
  Dataset plane(true);
  plane.convertPartFrom(dataset, dataset->getElementType(),
                        DatasetBoundingBox(DatasetCoordinates(0, 0, z, t, component),
                                           DatasetCoordinates(size.x - 1, size.y - 1, z, t, component)));
  if (!plane.hasData()) throw ToolError(name, "not enough memory for a plane");

  if (givenWindow != nullptr) {
    usedWindow = *givenWindow;
  } else {
    usedWindow.low = plane.getMinimumValue();
    usedWindow.high = plane.getMaximumValue();
    if (!(usedWindow.high > usedWindow.low)) usedWindow.high = usedWindow.low + 1.0;
  }

  Dataset* image = new Dataset(true);
  DatasetHandle handle(image);
  image->newDataset<unsigned char>(DatasetCoordinates(size.x, size.y, 1, 1, 1), plane.getWorldEmbedding());
  if (!image->hasData()) throw ToolError(name, "not enough memory for a plane");
  const double scale = 255.0 / (usedWindow.high - usedWindow.low);
  for (int y = 0; y < size.y; ++y) {
    for (int x = 0; x < size.x; ++x) {
      const double value = plane.getElement<double>(DatasetCoordinates(x, y, 0, 0, 0));
      double grey = std::round((value - usedWindow.low) * scale);
      if (!(grey > 0.0)) grey = 0.0;  // NaN included
      if (grey > 255.0) grey = 255.0;
      image->setElement<unsigned char>(DatasetCoordinates(x, y, 0, 0, 0), static_cast<unsigned char>(grey));
    }
  }
  return handle;
}

Window writeSlicePng(Dataset* dataset, const std::string& name, int z, int t, const Window* givenWindow,
                     const std::string& path, int component) {
  Window used;
  DatasetHandle image = windowPlane(dataset, name, z, t, givenWindow, used, component);
  const std::optional<FileFormat> format = fileFormatFromExtension(path);
  if (format && *format != FileFormat::png && *format != FileFormat::jpeg)
    throw ToolError(path, "slices are written as PNG (or JPEG) images: name the file .png");
  OutputOptions output;
  output.format = format == FileFormat::jpeg ? "jpeg" : "png";
  writeDataset(GetRawPtr(image), path, output);
  return used;
}

}  // namespace tarv::tool

#ifndef TARV_TOOLS_SLICEIMAGE_H
#define TARV_TOOLS_SLICEIMAGE_H

#include <string>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

namespace tarv::tool {

// The value range mapped to 0..255: LOW and below become black, HIGH and above white.
struct Window {
  double low = 0.0;
  double high = 1.0;
};

// Plane z of time step t (and the component, which data of several components must name) as an
// 8-bit image of the same x, y extent and geometry. Without a window, the plane's own value range
// is used (a constant plane comes out black). window receives the range used. Throws ToolError
// when z, t or the component lies outside the dataset.
DatasetHandle windowPlane(Dataset* dataset, const std::string& name, int z, int t, const Window* givenWindow,
                          Window& usedWindow, int component = -1);

// The same plane written as a PNG file, or a JPEG file for a .jpg or .jpeg name (atomically).
// Returns the range used.
Window writeSlicePng(Dataset* dataset, const std::string& name, int z, int t, const Window* givenWindow,
                     const std::string& path, int component = -1);

}  // namespace tarv::tool

#endif

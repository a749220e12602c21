#ifndef TARV_FORMATS_VTISTRUCTURE_H
#define TARV_FORMATS_VTISTRUCTURE_H

#include <string>

#include "status/Status.h"

namespace tarv::formats {

// What VTK's XML image reader would trust in a .vti file, checked before it reads the file:
// - the pieces' extents: it leaks the arrays of a piece outside the whole extent, or of a single
//   piece that does not cover it;
// - the compression headers of compressed arrays (appended raw or base64, or inline): it
//   allocates the block count and the uncompressed block size they claim, so block sizes past the
//   allocation cap, and block counts or compressed sizes past the file's size, are refused.
// Ok for files it cannot make sense of (no image data, no whole extent): VTK then decides.
Status checkVtiStructure(const std::string& path);

}  // namespace tarv::formats

#endif

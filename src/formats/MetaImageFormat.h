#ifndef TARV_FORMATS_METAIMAGEFORMAT_H
#define TARV_FORMATS_METAIMAGEFORMAT_H

// MetaImage files (.mha, or a .mhd header with its data file) through MetaIO (VTK's copy of the
// library ITK uses): x, y, z and, with four dimensions, t; channels as components; spacing,
// Position as the origin and TransformMatrix as the direction (rows: the voxel axes' world
// directions), in LPS as ITK writes them; compressed data. Written as .mha: header and data in one
// file.

#include <string>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv::formats {

Result<DatasetHandle> readMetaImageFile(const std::string& path);
bool metaImageHoldsElementType(TARVElementType type);
Status writeMetaImageFile(Dataset* dataset, const std::string& path);

}  // namespace tarv::formats

#endif

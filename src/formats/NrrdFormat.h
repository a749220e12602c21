#ifndef TARV_FORMATS_NRRDFORMAT_H
#define TARV_FORMATS_NRRDFORMAT_H

// NRRD files (.nrrd, or a .nhdr header with its data files) through teem's nrrd library: every
// encoding teem decodes (raw, ascii, hex, gzip, bzip2), either byte order. Up to three space axes
// in a row become x, y, z; a non-space axis before them (the fastest) the components, one after
// them the time steps. Space directions and origin in a patient space (LPS, RAS or LAS, brought
// to LPS) give the embedding; without a space, the axes' spacings. Read only.

#include <string>

#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv::formats {

Result<DatasetHandle> readNrrdFile(const std::string& path);

}  // namespace tarv::formats

#endif

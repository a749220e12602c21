#ifndef TARV_FORMATS_NIFTIFORMAT_H
#define TARV_FORMATS_NIFTIFORMAT_H

// NIfTI-1 and NIfTI-2 files (.nii, .nii.gz, and .hdr/.img pairs) through the NIfTI C library's
// header conversions, with the file access and its errors our own.
//
// Geometry: the sform when its code is set, else the qform (which, with qform_code 0, is the
// plain scaling by pixdim). NIfTI's world is RAS; the dataset's is LPS, so x and y change sign
// on the way in and out. Time steps: pixdim[4] and toffset. The fifth dimension holds the
// components (RGB24 and RGBA32 voxels give 3 and 4 uint8 components). scl_slope and scl_inter
// become the dataset's ModalityLUT (slope 0 means none).

#include <string>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv::formats {

// Whether the bytes at the start of a file (after gzip decompression when it is compressed)
// are a NIfTI-1 or NIfTI-2 header, in either byte order.
bool looksLikeNiftiHeader(const std::string& path);

// The whole file, in memory. Refuses what it cannot give exactly: complex, 1-bit and 128-bit
// float samples, more than five dimensions, a degenerate voxel-to-world matrix.
Result<DatasetHandle> readNiftiFile(const std::string& path);

bool niftiHoldsElementType(TARVElementType type);

// A single-file NIfTI-1 (NIfTI-2 when an extent exceeds 32767), gzip-compressed or not; sform
// and qform both hold the dataset's embedding (the qform's rotation part is the nearest rotation
// when the orientation is not one).
Status writeNiftiFile(Dataset* dataset, const std::string& path, bool compressed);

}  // namespace tarv::formats

#endif

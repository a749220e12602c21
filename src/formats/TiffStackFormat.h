#ifndef TARV_FORMATS_TIFFSTACKFORMAT_H
#define TARV_FORMATS_TIFFSTACKFORMAT_H

// TIFF files as other programs write them, through libtiff: every page one z slice, strips or
// tiles, every compression libtiff decodes, classic TIFF or BigTIFF, either byte order, 8- to
// 64-bit integer and 32- or 64-bit float samples, 1 to 4 samples per pixel (contiguous or
// planar) as components. Reduced-resolution pages (pyramid levels, thumbnails) are skipped.
// Row 0 is the top row of the page. No geometry: spacing 1, origin 0.

#include <string>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv {
class DatasetFileReadModule;
}

namespace tarv::formats {

// The number of full-resolution pages; 0 when the file is not a readable TIFF file.
int countTiffPages(const std::string& path);

// A read module that reads the stack page by page, for a FileReadDataset (owned by the caller
// until handed to one). It checks every page's layout when it opens the file.
DatasetFileReadModule* newTiffStackReadModule();

// The whole stack, in memory. Refuses what it cannot give exactly (palette or YCbCr colours,
// samples under 8 bits, pages that differ in size or samples, an orientation other than top-left)
// with the reason.
Result<DatasetHandle> readTiffStack(const std::string& path);

bool tiffStackHoldsElementType(TARVElementType type);

// One page per z slice (of time step 0), contiguous samples in strips, Deflate-compressed;
// BigTIFF when the samples reach 2 GB.
Status writeTiffStack(Dataset* dataset, const std::string& path);

}  // namespace tarv::formats

#endif

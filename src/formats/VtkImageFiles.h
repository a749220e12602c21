#ifndef TARV_FORMATS_VTKIMAGEFILES_H
#define TARV_FORMATS_VTKIMAGEFILES_H

// PNG, JPEG, TIFF-through-VTK and VTK XML image data files as the registry reads and writes them:
// every component of the file (RGB, RGBA, a palette expanded to its colours), rows of PNG and JPEG
// images top to bottom as in TIFF and raw files (VTK keeps them bottom to top), and a .vti file's
// extent and direction matrix in the world embedding. The files are first checked by the classes
// of these formats, whose refusals are kept.

#include <string>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "formats/FormatRegistry.h"
#include "status/Status.h"

namespace tarv::formats {

// format: vtkTiff, png, jpeg or vti.
Result<DatasetHandle> readVtkImageFile(const std::string& path, FileFormat format);

// Time step 0 of the dataset; PNG and JPEG rows flipped so that row 0 is the image's top.
Status writeVtkImageFile(Dataset* dataset, const std::string& path, FileFormat format);

}  // namespace tarv::formats

#endif

#include "dataset/VTKDatasetFileReadWrite.h"

#include <vtkAlgorithm.h>
#include <vtkErrorCode.h>
#include <vtkImageData.h>
#include <vtkInformation.h>
#include <vtkStreamingDemandDrivenPipeline.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "formats/VtkMessages.h"

namespace tarv {

VTKDatasetFileReadWrite::VTKDatasetFileReadWrite() : typeCode(11) {}

VTKDatasetFileReadWrite::~VTKDatasetFileReadWrite() = default;

vtkImageData* VTKDatasetFileReadWrite::runReader(vtkAlgorithm* reader) {
  return formats::runVtkReader(reader).valueOr(nullptr);
}

bool VTKDatasetFileReadWrite::canWriteFile(const std::string& name) { return formats::checkWritableFile(name).ok(); }

Result<vtkImageData*> formats::runVtkReader(vtkAlgorithm* reader) {
  if (reader == nullptr) return invalidArgumentError("no reader");
  VtkErrorCapture errors(reader);
  // The file may have changed under the same name: always read again.
  reader->Modified();
  reader->UpdateInformation();
  if (reader->GetErrorCode() != vtkErrorCode::NoError)
    return corruptError(std::string("VTK cannot read it") + errors.suffix());
  vtkInformation* information = reader->GetOutputInformation(0);
  if (information == nullptr || !information->Has(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT()))
    return corruptError(std::string("VTK finds no image in it") + errors.suffix());
  int extent[6] = {0, -1, 0, -1, 0, -1};
  information->Get(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT(), extent);
  constexpr std::int64_t limit = std::int64_t(1) << 31;
  std::int64_t count = 1;
  for (int k = 0; k < 3; ++k) {
    const std::int64_t n = static_cast<std::int64_t>(extent[2 * k + 1]) - extent[2 * k] + 1;
    if (n < 1) return corruptError("the image has no voxels");
    if (count >= limit / n) return unsupportedError("images of 2^31 voxels or more cannot be read");
    count *= n;
  }
  vtkImageData* image = vtkImageData::SafeDownCast(reader->GetOutputDataObject(0));
  if (image == nullptr) return corruptError("VTK gives no image data");
  // A failed read must not hand on the pixels of the previous one.
  image->Initialize();
  reader->Update();
  if (reader->GetErrorCode() != vtkErrorCode::NoError)
    return corruptError(std::string("VTK cannot read it") + errors.suffix());
  image = vtkImageData::SafeDownCast(reader->GetOutputDataObject(0));
  if (image == nullptr) return corruptError("VTK gives no image data");
  return image;
}

Status formats::checkWritableFile(const std::string& name) {
  if (name.empty()) return invalidArgumentError("no file name");
  const std::filesystem::path file(name);
  std::filesystem::path directory = file.parent_path();
  if (directory.empty()) directory = ".";
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error)) return notFoundError("no such directory");
  if (::access(directory.c_str(), W_OK) != 0) return ioError("the directory is not writable");
  if (!std::filesystem::exists(file, error)) {
    if (error) return ioError(error.message());
    return okStatus();
  }
  if (std::filesystem::is_directory(file, error)) return invalidArgumentError("is a directory");
  if (::access(file.c_str(), W_OK) != 0) return ioError("the file is not writable");
  return okStatus();
}

}  // namespace tarv

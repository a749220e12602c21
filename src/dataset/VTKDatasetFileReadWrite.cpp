#include "dataset/VTKDatasetFileReadWrite.h"

#include <vtkAlgorithm.h>
#include <vtkErrorCode.h>
#include <vtkImageData.h>
#include <vtkInformation.h>
#include <vtkStreamingDemandDrivenPipeline.h>

#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace tarv {

VTKDatasetFileReadWrite::VTKDatasetFileReadWrite() : typeCode(11) {}

VTKDatasetFileReadWrite::~VTKDatasetFileReadWrite() = default;

vtkImageData* VTKDatasetFileReadWrite::runReader(vtkAlgorithm* reader) {
  if (reader == nullptr) return nullptr;
  // The file may have changed under the same name: always read again.
  reader->Modified();
  reader->UpdateInformation();
  if (reader->GetErrorCode() != vtkErrorCode::NoError) return nullptr;
  vtkInformation* information = reader->GetOutputInformation(0);
  if (information == nullptr || !information->Has(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT())) return nullptr;
  int extent[6] = {0, -1, 0, -1, 0, -1};
  information->Get(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT(), extent);
  constexpr std::int64_t limit = std::int64_t(1) << 31;
  std::int64_t count = 1;
  for (int k = 0; k < 3; ++k) {
    const std::int64_t n = static_cast<std::int64_t>(extent[2 * k + 1]) - extent[2 * k] + 1;
    if (n < 1 || count >= limit / n) return nullptr;
    count *= n;
  }
  vtkImageData* image = vtkImageData::SafeDownCast(reader->GetOutputDataObject(0));
  if (image == nullptr) return nullptr;
  // A failed read must not hand on the pixels of the previous one.
  image->Initialize();
  reader->Update();
  if (reader->GetErrorCode() != vtkErrorCode::NoError) return nullptr;
  return vtkImageData::SafeDownCast(reader->GetOutputDataObject(0));
}

bool VTKDatasetFileReadWrite::canWriteFile(const std::string& name) {
  if (name.empty()) return false;
  const std::filesystem::path file(name);
  std::filesystem::path directory = file.parent_path();
  if (directory.empty()) directory = ".";
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error) || ::access(directory.c_str(), W_OK) != 0) return false;
  if (!std::filesystem::exists(file, error)) return !error;
  return !std::filesystem::is_directory(file, error) && ::access(file.c_str(), W_OK) == 0;
}

}  // namespace tarv

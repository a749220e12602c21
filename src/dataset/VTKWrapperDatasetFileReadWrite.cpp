#include "dataset/VTKWrapperDatasetFileReadWrite.h"

#include <vtkImageData.h>
#include <vtkImageReader2.h>
#include <vtkImageWriter.h>

#include "dataset/Dataset.h"

namespace tarv {

VTKWrapperDatasetFileReadWrite::VTKWrapperDatasetFileReadWrite(vtkImageReader2* reader, vtkImageWriter* writer)
    : reader(reader), writer(writer) {}

VTKWrapperDatasetFileReadWrite::~VTKWrapperDatasetFileReadWrite() {
  if (reader != nullptr) reader->Delete();
  if (writer != nullptr) writer->Delete();
}

void VTKWrapperDatasetFileReadWrite::read(Dataset* dataset, int t) {
  if (reader == nullptr || dataset == nullptr) return;
  const std::string name = getFileName();
  if (!reader->CanReadFile(name.c_str())) return;
  vtkImageData* image = runReader(reader);
  if (image == nullptr) return;
  dataset->fromImageData(image, t);
  image->Initialize();  // the reader need not keep the pixels
}

void VTKWrapperDatasetFileReadWrite::write(Dataset* dataset, int t) {
  if (writer == nullptr || dataset == nullptr) return;
  const char* name = writer->GetFileName();
  if (name == nullptr || !canWriteFile(name)) return;
  vtkImageData* image = dataset->toImageData(t, false);
  if (image == nullptr) return;
  writer->SetInputData(image);
  writer->Write();
  writer->SetInputData(nullptr);
  image->Delete();
}

std::string VTKWrapperDatasetFileReadWrite::getFileName() const {
  if (reader == nullptr) return std::string();
  const char* name = reader->GetFileName();
  return name != nullptr ? std::string(name) : std::string();
}

void VTKWrapperDatasetFileReadWrite::setFileName(std::string name) {
  if (reader != nullptr) reader->SetFileName(name.c_str());
  if (writer != nullptr) writer->SetFileName(name.c_str());
}

}  // namespace tarv

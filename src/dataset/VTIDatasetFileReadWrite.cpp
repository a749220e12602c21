#include "dataset/VTIDatasetFileReadWrite.h"

#include <vtkImageData.h>
#include <vtkXMLImageDataReader.h>
#include <vtkXMLImageDataWriter.h>

#include "dataset/Dataset.h"

namespace tarv {

VTIDatasetFileReadWrite::VTIDatasetFileReadWrite()
    : reader(vtkXMLImageDataReader::New()), writer(vtkXMLImageDataWriter::New()) {}

VTIDatasetFileReadWrite::~VTIDatasetFileReadWrite() {
  reader->Delete();
  writer->Delete();
}

void VTIDatasetFileReadWrite::read(Dataset* dataset, int t) {
  if (dataset == nullptr) return;
  const std::string name = getFileName();
  if (!reader->CanReadFile(name.c_str())) return;
  vtkImageData* image = runReader(reader);
  if (image == nullptr) return;
  dataset->fromImageData(image, t);
  image->Initialize();  // the reader need not keep the pixels
}

void VTIDatasetFileReadWrite::write(Dataset* dataset, int t) {
  if (dataset == nullptr) return;
  const char* name = writer->GetFileName();
  if (name == nullptr || !canWriteFile(name)) return;
  vtkImageData* image = dataset->toImageData(t, true);
  if (image == nullptr) return;
  writer->SetInputData(image);
  writer->Write();
  writer->SetInputData(nullptr);
  image->Delete();
}

std::string VTIDatasetFileReadWrite::getFileName() const {
  const char* name = reader->GetFileName();
  return name != nullptr ? std::string(name) : std::string();
}

void VTIDatasetFileReadWrite::setFileName(std::string name) {
  reader->SetFileName(name.c_str());
  writer->SetFileName(name.c_str());
}

}  // namespace tarv

#include "dataset/VTKWrapperDatasetFileReadWrite.h"

#include <vtkImageData.h>
#include <vtkImageReader2.h>
#include <vtkImageWriter.h>

#include "dataset/Dataset.h"
#include "formats/FileStatus.h"
#include "formats/VtkMessages.h"

namespace tarv {

VTKWrapperDatasetFileReadWrite::VTKWrapperDatasetFileReadWrite(vtkImageReader2* reader, vtkImageWriter* writer)
    : reader(reader), writer(writer) {}

VTKWrapperDatasetFileReadWrite::~VTKWrapperDatasetFileReadWrite() {
  if (reader != nullptr) reader->Delete();
  if (writer != nullptr) writer->Delete();
}

void VTKWrapperDatasetFileReadWrite::read(Dataset* dataset, int t) {
  (void)formats::readThroughVtkReader(*this, dataset, t);
}

void VTKWrapperDatasetFileReadWrite::write(Dataset* dataset, int t) {
  (void)formats::writeThroughVtkWriter(*this, dataset, t);
}

Status formats::readThroughVtkReader(VTKWrapperDatasetFileReadWrite& file, Dataset* dataset, int t) {
  vtkImageReader2* reader = file.getReader();
  if (reader == nullptr) return unsupportedError("no reader for the format");
  const char* formatName = reader->GetDescriptiveName();
  return readImageWithVtk(reader, reader->CanReadFile(file.getFileName().c_str()) != 0,
                          formatName != nullptr ? formatName : "image", dataset, t);
}

Status formats::writeThroughVtkWriter(VTKWrapperDatasetFileReadWrite& file, Dataset* dataset, int t) {
  vtkImageWriter* writer = file.getWriter();
  if (writer == nullptr) return unsupportedError("no writer for the format");
  return writeImageWithVtk(writer, writer->GetFileName(), dataset, t, false, [writer](vtkImageData* image) {
    writer->SetInputData(image);
    writer->Write();
    writer->SetInputData(nullptr);
  });
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

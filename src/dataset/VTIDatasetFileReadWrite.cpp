#include "dataset/VTIDatasetFileReadWrite.h"

#include <vtkImageData.h>
#include <vtkXMLImageDataReader.h>
#include <vtkXMLImageDataWriter.h>

#include "dataset/Dataset.h"
#include "formats/FileStatus.h"
#include "formats/VtkImageFiles.h"
#include "formats/VtiStructure.h"
#include "formats/VtkMessages.h"

namespace tarv {

VTIDatasetFileReadWrite::VTIDatasetFileReadWrite()
    : reader(vtkXMLImageDataReader::New()), writer(vtkXMLImageDataWriter::New()) {}

VTIDatasetFileReadWrite::~VTIDatasetFileReadWrite() {
  reader->Delete();
  writer->Delete();
}

void VTIDatasetFileReadWrite::read(Dataset* dataset, int t) { (void)formats::readVtiFile(*this, dataset, t); }

void VTIDatasetFileReadWrite::write(Dataset* dataset, int t) { (void)formats::writeVtiFile(*this, dataset, t); }

Status formats::readVtiFile(VTIDatasetFileReadWrite& file, Dataset* dataset, int t) {
  vtkXMLImageDataReader* reader = file.getReader();
  if (Status structure = checkVtiStructure(file.getFileName()); !structure.ok()) return structure;
  return readImageWithVtk(reader, reader->CanReadFile(file.getFileName().c_str()) != 0, "VTK XML image data", dataset,
                          t);
}

Status formats::writeVtiFile(VTIDatasetFileReadWrite& file, Dataset* dataset, int t) {
  vtkXMLImageDataWriter* writer = file.getWriter();
  return writeImageWithVtk(writer, writer->GetFileName(), dataset, t, true, [writer](vtkImageData* image) {
    writer->SetInputData(image);
    writer->Write();
    writer->SetInputData(nullptr);
  });
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

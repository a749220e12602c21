#ifndef TARV_DATASET_VTIDATASETFILEREADWRITE_H
#define TARV_DATASET_VTIDATASETFILEREADWRITE_H

#include <string>

#include "dataset/VTKDatasetFileReadWrite.h"

class vtkXMLImageDataReader;
class vtkXMLImageDataWriter;

namespace tarv {

// VTK XML image data files (.vti), which keep the voxel spacing and the dataset origin.
class VTIDatasetFileReadWrite : public VTKDatasetFileReadWrite {
public:
  VTIDatasetFileReadWrite();
  ~VTIDatasetFileReadWrite() override;

  void read(Dataset* dataset, int t) override;
  void write(Dataset* dataset, int t) override;
  std::string getFileName() const override;
  void setFileName(std::string name) override;

  vtkXMLImageDataReader* getReader() const { return reader; }
  vtkXMLImageDataWriter* getWriter() const { return writer; }

protected:
  vtkXMLImageDataReader* reader;
  vtkXMLImageDataWriter* writer;
};

}  // namespace tarv

#endif

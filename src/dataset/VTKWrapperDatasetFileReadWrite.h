#ifndef TARV_DATASET_VTKWRAPPERDATASETFILEREADWRITE_H
#define TARV_DATASET_VTKWRAPPERDATASETFILEREADWRITE_H

#include <string>

#include "dataset/VTKDatasetFileReadWrite.h"

class vtkImageReader2;
class vtkImageWriter;

namespace tarv {

// A file format read and written by one of VTK's generic image readers and writers. Images are
// written without origin and spacing (origin 0, spacing 1).
class VTKWrapperDatasetFileReadWrite : public VTKDatasetFileReadWrite {
public:
  // Takes over the reader and the writer (either may be null) and deletes them with itself.
  VTKWrapperDatasetFileReadWrite(vtkImageReader2* reader, vtkImageWriter* writer);
  ~VTKWrapperDatasetFileReadWrite() override;

  // Nothing without a reader, or when the reader cannot read the file.
  void read(Dataset* dataset, int t) override;
  // Nothing without a writer, or when the dataset gives no image.
  void write(Dataset* dataset, int t) override;
  // The reader's file name; empty without a reader or a name.
  std::string getFileName() const override;
  // Hands the name to the reader and to the writer.
  void setFileName(std::string name) override;

  vtkImageReader2* getReader() const { return reader; }
  vtkImageWriter* getWriter() const { return writer; }

protected:
  vtkImageReader2* reader;
  vtkImageWriter* writer;
};

}  // namespace tarv

#endif

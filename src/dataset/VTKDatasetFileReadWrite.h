#ifndef TARV_DATASET_VTKDATASETFILEREADWRITE_H
#define TARV_DATASET_VTKDATASETFILEREADWRITE_H

#include <cstdint>
#include <string>

class vtkAlgorithm;
class vtkImageData;

namespace tarv {

class Dataset;

// Reads and writes one time step of a dataset through a VTK image reader and writer, moving the
// data through a vtkImageData (Dataset::toImageData and Dataset::fromImageData). No operation
// reports failure: a file that cannot be read leaves the dataset as it is.
class VTKDatasetFileReadWrite {
public:
  // 11 here and for .vti files, 3 for the TIFF, JPEG and PNG classes (VTK's scalar type codes of
  // double and unsigned char).
  std::int32_t typeCode;

  VTKDatasetFileReadWrite();
  VTKDatasetFileReadWrite(const VTKDatasetFileReadWrite&) = delete;
  VTKDatasetFileReadWrite& operator=(const VTKDatasetFileReadWrite&) = delete;

  virtual ~VTKDatasetFileReadWrite();
  // Reads the file into time step t of the dataset.
  virtual void read(Dataset* dataset, int t) = 0;
  // Writes time step t of the dataset.
  virtual void write(Dataset* dataset, int t) = 0;
  virtual std::string getFileName() const = 0;
  virtual void setFileName(std::string name) = 0;

protected:
  // Runs reader afresh and returns its output image, or null when the reader reported an error
  // or announced no image, or one of 2^31 voxels or more. Nothing of an earlier read survives a
  // failed one.
  static vtkImageData* runReader(vtkAlgorithm* reader);
  // Whether a file of this name can be written: its directory exists and is writable, and so is
  // the file if it exists. (VTK's writers leak when they cannot open their file.)
  static bool canWriteFile(const std::string& name);
};

}  // namespace tarv

#endif

#ifndef TARV_DATASET_JPEGDATASETFILEREADWRITE_H
#define TARV_DATASET_JPEGDATASETFILEREADWRITE_H

#include "dataset/VTKWrapperDatasetFileReadWrite.h"

class vtkJPEGReader;
class vtkJPEGWriter;

namespace tarv {

// JPEG files through vtkJPEGReader and vtkJPEGWriter, written at quality 100.
class JPEGDatasetFileReadWrite : public VTKWrapperDatasetFileReadWrite {
public:
  JPEGDatasetFileReadWrite();

  // Reads only files that decode without error or warning: VTK's JPEG reader overruns its
  // buffers on some broken ones.
  void read(Dataset* dataset, int t) override;

  void setQuality(int quality);
  int getQuality() const;

  vtkJPEGReader* getJPEGReader() const { return jpegReader; }
  vtkJPEGWriter* getJPEGWriter() const { return jpegWriter; }

protected:
  vtkJPEGReader* jpegReader;
  vtkJPEGWriter* jpegWriter;

private:
  JPEGDatasetFileReadWrite(vtkJPEGReader* reader, vtkJPEGWriter* writer);
};

}  // namespace tarv

#endif

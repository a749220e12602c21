#ifndef TARV_DATASET_PNGDATASETFILEREADWRITE_H
#define TARV_DATASET_PNGDATASETFILEREADWRITE_H

#include "dataset/VTKWrapperDatasetFileReadWrite.h"

class vtkPNGReader;
class vtkPNGWriter;

namespace tarv {

// PNG files through vtkPNGReader and vtkPNGWriter.
class PNGDatasetFileReadWrite : public VTKWrapperDatasetFileReadWrite {
public:
  PNGDatasetFileReadWrite();

  // Reads only files that decode completely: VTK's PNG reader does not survive broken ones.
  void read(Dataset* dataset, int t) override;

  vtkPNGReader* getPNGReader() const { return pngReader; }
  vtkPNGWriter* getPNGWriter() const { return pngWriter; }

protected:
  vtkPNGReader* pngReader;
  vtkPNGWriter* pngWriter;

private:
  PNGDatasetFileReadWrite(vtkPNGReader* reader, vtkPNGWriter* writer);
};

}  // namespace tarv

#endif

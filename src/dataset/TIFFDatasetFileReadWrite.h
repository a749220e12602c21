#ifndef TARV_DATASET_TIFFDATASETFILEREADWRITE_H
#define TARV_DATASET_TIFFDATASETFILEREADWRITE_H

#include "dataset/VTKWrapperDatasetFileReadWrite.h"

class vtkTIFFReader;
class vtkTIFFWriter;

namespace tarv {

// TIFF files (one page per slice) through vtkTIFFReader and vtkTIFFWriter, written without
// compression.
class TIFFDatasetFileReadWrite : public VTKWrapperDatasetFileReadWrite {
public:
  TIFFDatasetFileReadWrite();

  // Reads only striped grey or RGB files whose pages agree in size and sample layout and decode
  // without error: VTK's TIFF reader trusts the first page and overruns its buffers otherwise.
  void read(Dataset* dataset, int t) override;

  vtkTIFFReader* getTIFFReader() const { return tiffReader; }
  vtkTIFFWriter* getTIFFWriter() const { return tiffWriter; }

protected:
  vtkTIFFReader* tiffReader;
  vtkTIFFWriter* tiffWriter;

private:
  TIFFDatasetFileReadWrite(vtkTIFFReader* reader, vtkTIFFWriter* writer);
};

}  // namespace tarv

#endif

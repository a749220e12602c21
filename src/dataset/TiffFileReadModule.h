#ifndef TARV_DATASET_TIFFFILEREADMODULE_H
#define TARV_DATASET_TIFFFILEREADMODULE_H

#include "dataset/DatasetFileReadModule.h"

namespace tarv {

// Reads a tiled TIFF file page (tile) by page for a FileReadDataset; optionally as a binary
// segmentation (bool elements, every non-zero sample true). Progress and diagnostic lines go to
// the standard error stream.
class TiffFileReadModule : public DatasetFileReadModule {
public:
  TiffFileReadModule();
  ~TiffFileReadModule() override;

  // The page holding c, clipped to the image.
  DatasetBoundingBox getReadBlockBox(const DatasetCoordinates& c) override;
  bool open() override;
  void close() override;
  // Reads exactly the tile of c.
  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override;

  void setReadAsSegmentation(const bool& segmentation) { readAsSegmentation = segmentation; }
  bool getReadAsSegmentation() const { return readAsSegmentation; }
  bool getIsSegmentation() const { return isSegmentation; }

  // Largest decoded page accepted, in bytes.
  static constexpr unsigned long maximumPageByteSize = 1UL << 30;

private:
  // The libtiff handle, the header and the page buffer.
  class Internal;

  bool readAsSegmentation = false;
  bool isSegmentation = false;
  Internal* internal = nullptr;
};

}  // namespace tarv

#endif

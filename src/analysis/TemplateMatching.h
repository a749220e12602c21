#ifndef TARV_ANALYSIS_TEMPLATEMATCHING_H
#define TARV_ANALYSIS_TEMPLATEMATCHING_H

// Sums of a template placed on an image, for correlation and the similarity measures of Dataset.

#include "dataset/Dataset.h"
#include "elementtypes/ElementOperations.h"

namespace tarv::analysis {

// dot = sum of a * b, imageSquares = sum of a * a over the template's elements b and the image
// elements a beneath them. fits is false when the template would reach outside the image (the
// image is then not read).
struct TemplateSums {
  bool fits = false;
  double dot = 0.0;
  double imageSquares = 0.0;
};

// The sums with template coordinates templC placed on image coordinates c.
TemplateSums sumTemplate(Dataset& image, const DatasetCoordinates& c, Dataset* templ, const DatasetCoordinates& templC);

// A new dataset of the image's size, type and embedding holding measure(c) at every voxel c.
template <typename Measure>
Dataset* measureEverywhere(Dataset& image, Measure measure) {
  Dataset* result = new Dataset(true);
  result->newDataset(image.getSize(), image.getElementType(), image.getWorldEmbedding());
  image.announceAccessToFullDataset();
  const BufferWriter write = bufferWriter(result->getElementType());
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = result->getStartCoordinatesIterator(); it.valid;
       result->incrementCoordinatesIterator(it)) {
    write(value, measure(static_cast<const DatasetCoordinates&>(it)));
    result->setElementByBuffer(it, value);
  }
  return result;
}

}  // namespace tarv::analysis

#endif

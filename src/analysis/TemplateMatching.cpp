#include "analysis/TemplateMatching.h"

#include <cstdint>

#include "analysis/BoxExtraction.h"

namespace tarv::analysis {

TemplateSums sumTemplate(Dataset& image, const DatasetCoordinates& c, Dataset* templ, const DatasetCoordinates& templC) {
  TemplateSums sums;
  if (templ == nullptr) return sums;
  const DatasetCoordinates imageSize = image.getSize();
  const DatasetCoordinates templSize = templ->getSize();
  DatasetCoordinates origin;
  for (int k = 0; k < 5; ++k) {
    const std::int64_t d = static_cast<std::int64_t>(c[k]) - templC[k];
    if (d < 0 || d > static_cast<std::int64_t>(imageSize[k]) - templSize[k]) return sums;
    origin[k] = static_cast<int>(d);
  }
  sums.fits = true;
  const BufferReader<double> readImage = bufferReader<double>(image.getElementType());
  const BufferReader<double> readTempl = bufferReader<double>(templ->getElementType());
  unsigned char imageValue[kElementBufferSize] = {};
  unsigned char templValue[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = templ->getStartCoordinatesIterator(); it.valid;
       templ->incrementCoordinatesIterator(it)) {
    templ->getElementByBuffer(it, templValue);
    image.getElementByBuffer(shifted(it, origin), imageValue);
    const double a = readImage(imageValue);
    const double b = readTempl(templValue);
    sums.dot += a * b;
    sums.imageSquares += a * a;
  }
  return sums;
}

}  // namespace tarv::analysis

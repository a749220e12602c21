// The plain TIFF stream reader: readTiffStream on the input. An image that reads is converted to
// every element type, written back and read again, and must come back with the same voxels.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "dataset/ImageDataset.h"

using namespace tarv;

namespace {

struct ImageReference {
  ImageDataset* image = nullptr;
  explicit ImageReference(ImageDataset* i) : image(i) {}
  ~ImageReference() {
    if (image != nullptr) image->UnRegister();
  }
  ImageReference(const ImageReference&) = delete;
  ImageReference& operator=(const ImageReference&) = delete;
};

// Images above this many voxels are only read, not converted.
constexpr std::uint64_t voxelLimitForChecks = 1 << 18;

std::vector<double> asDoubles(const ImageDataset* image, std::uint64_t voxels) {
  std::vector<double> values(voxels);
  if (!dump(image, values.data(), TYPE_ID_DOUBLE)) fuzz::fail("dump to double refused a read image");
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::quietLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::ostringstream log;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  ImageReference read(readTiffStream("input", &in, &log));
  if (read.image == nullptr) return 0;
  const auto extent = read.image->size_array();
  const std::uint64_t voxels = extent[0] * extent[1] * extent[2];
  (void)read.image->getMinValue();
  (void)read.image->getMaxValue();
  if (voxels == 0 || voxels > voxelLimitForChecks) return 0;

  // Every target type, and back into an image of the same type.
  std::vector<std::uint8_t> buffer(voxels * 8);
  for (int type = TYPE_ID_INT8; type <= TYPE_ID_DOUBLE; ++type) {
    if (!dump(read.image, buffer.data(), static_cast<TypeID>(type))) fuzz::fail("dump refused a read image");
  }
  const std::vector<double> values = asDoubles(read.image, voxels);

  // Written and read again: the same voxels, bit for bit.
  std::ostringstream out;
  if (!writeTiffStream("output", &out, read.image)) fuzz::fail("a read image cannot be written");
  std::istringstream back(out.str());
  ImageReference reread(readTiffStream("output", &back, &log));
  if (reread.image == nullptr) fuzz::fail("a written image cannot be read");
  if (reread.image->type_id() != read.image->type_id() || reread.image->size_array() != extent)
    fuzz::fail("a written image reads back with another type or size");
  const std::vector<double> again = asDoubles(reread.image, voxels);
  if (std::memcmp(values.data(), again.data(), voxels * sizeof(double)) != 0)
    fuzz::fail("a written image reads back with other voxels");
  return 0;
}

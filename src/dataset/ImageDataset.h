#ifndef TARV_DATASET_IMAGEDATASET_H
#define TARV_DATASET_IMAGEDATASET_H

#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "dataset/ModalityLUT.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace boost {
class mutex;
}

namespace tarv {

// Element type identifiers of image datasets.
enum TypeID : int {
  TYPE_ID_NULL = 0,
  TYPE_ID_BOOL = 1,
  TYPE_ID_INT8 = 2,
  TYPE_ID_UINT8 = 3,
  TYPE_ID_INT16 = 4,
  TYPE_ID_UINT16 = 5,
  TYPE_ID_INT32 = 6,
  TYPE_ID_UINT32 = 7,
  TYPE_ID_INT64 = 8,
  TYPE_ID_UINT64 = 9,
  TYPE_ID_FLOAT = 10,
  TYPE_ID_DOUBLE = 11,
  TYPE_ID_RGB8 = 12
};

// "null", "bool", "int8_t", ..., "double", "rgb8_t"; "???" for anything else.
const char* typeIdName(TypeID id);

// The identifier of a voxel type, from the element type table; TYPE_ID_NULL for types images
// cannot hold.
template <typename T>
constexpr TypeID typeIdOf() {
  int id = TYPE_ID_NULL;
  ElementTypeTable::forEach([&]<typename Row>() {
    if constexpr (std::is_same_v<T, typename Row::type>) id = Row::imageTypeId;
  });
  return static_cast<TypeID>(id);
}

// Calls f.template operator()<T>() with the voxel type T of `id` (bool up to double) and returns
// its result; false for identifiers without a voxel type (null, RGB, unknown).
template <typename F>
bool dispatchTypeId(TypeID id, F&& f) {
  bool result = false;
  ElementTypeTable::forEach([&]<typename Row>() {
    if constexpr (Row::imageTypeId != TYPE_ID_NULL) {
      if (id == Row::imageTypeId) result = f.template operator()<typename Row::type>();
    }
  });
  return result;
}

// A reference-counted 3D image with its world embedding, two modality tables, the type its data
// had before conversion and a lazily computed value range.
class ImageDataset {
public:
  // Reference count 1.
  ImageDataset();
  virtual ~ImageDataset();
  ImageDataset(const ImageDataset&) = delete;
  ImageDataset& operator=(const ImageDataset&) = delete;

  virtual TypeID type_id() const = 0;
  virtual bool empty() const = 0;
  // x, y, z size.
  virtual std::array<std::uint64_t, 3> size_array() const = 0;

  // Thread-safe. The last UnRegister deletes the image. A failing lock raises boost::lock_error.
  void Register() const;
  void UnRegister() const;
  int GetRefCount() const;

  // The stored original type, or type_id() while none is set (0).
  TypeID original_type_id() const;
  void setOriginalTypeId(TypeID id) { originalTypeId_ = id; }

  // True only for unsigned 32-bit images whose voxels are packed RGBA.
  bool isRGBA() const;
  void setRGBA(bool rgba) { rgba_ = rgba; }

  // A range whose minimum exceeds its maximum counts as not computed; the getters then scan the
  // voxels first and keep the result.
  void setMinMaxValue(double min, double max);
  double getMinValue() const;
  double getMaxValue() const;
  bool isMinMaxValueComputed() const { return minValue_ <= maxValue_; }

  DatasetWorldEmbedding& getWorldEmbedding() { return worldEmbedding_; }
  const DatasetWorldEmbedding& getWorldEmbedding() const { return worldEmbedding_; }
  void setWorldEmbedding(const DatasetWorldEmbedding& embedding) { worldEmbedding_ = embedding; }
  std::array<ModalityLUT, 2>& getModalityLUTs() { return modalityLUTs_; }
  const std::array<ModalityLUT, 2>& getModalityLUTs() const { return modalityLUTs_; }

private:
  void computeMinMaxValueIfNeeded() const;

  DatasetWorldEmbedding worldEmbedding_;
  std::array<ModalityLUT, 2> modalityLUTs_;
  bool rgba_ = false;
  TypeID originalTypeId_ = TYPE_ID_NULL;
  mutable double minValue_ = 1.0;
  mutable double maxValue_ = 0.0;
  mutable std::int32_t referenceCount_ = 1;
  std::unique_ptr<boost::mutex> mutex_;
};

// Scans the voxels in storage order and stores their range in min and max. Leaves both unchanged
// for an empty image and for images without a scalar voxel type (null, RGB).
void computeMinMaxValue(const ImageDataset* image, double& min, double& max);

// A block of voxels, stored x fastest, then y, then z.
template <typename T, unsigned int Dimension>
class Page;

template <typename T>
class Page<T, 3> {
public:
  using Index = std::array<std::size_t, 3>;

  // Zeroed voxels.
  Page(const Index& origin, const Index& extent)
      : origin_(origin), extent_(extent), voxels_(std::make_unique<T[]>(extent[0] * extent[1] * extent[2])) {}

  // Position of the first voxel in the image.
  const Index& getOrigin() const { return origin_; }
  const Index& getExtent() const { return extent_; }
  std::size_t getVoxelCount() const { return extent_[0] * extent_[1] * extent_[2]; }
  T* data() { return voxels_.get(); }
  const T* data() const { return voxels_.get(); }

private:
  Index origin_;
  Index extent_;
  std::unique_ptr<T[]> voxels_;
};

// An image of voxels of type T held in pages of a fixed page size; pages at the upper borders
// are clipped to the image. Pages are ordered z, y, x.
template <typename T, unsigned int Dimension>
class TImageDataset;

template <typename T>
class TImageDataset<T, 3> : public ImageDataset {
  static_assert(typeIdOf<T>() != TYPE_ID_NULL, "unsupported voxel type");

public:
  using ValueType = T;
  using Index = std::array<std::size_t, 3>;

  // Page size 64 x 64 x 16, clipped to the image.
  TImageDataset(std::size_t sizeX, std::size_t sizeY, std::size_t sizeZ)
      : TImageDataset(sizeX, sizeY, sizeZ, std::min<std::size_t>(64, sizeX), std::min<std::size_t>(64, sizeY),
                      std::min<std::size_t>(16, sizeZ)) {}
  // Page sizes below 1 count as 1. Throws std::length_error when the voxel count overflows.
  TImageDataset(std::size_t sizeX, std::size_t sizeY, std::size_t sizeZ, std::size_t pageX, std::size_t pageY,
                std::size_t pageZ);

  TypeID type_id() const override { return typeIdOf<T>(); }
  bool empty() const override { return size_[0] == 0 || size_[1] == 0 || size_[2] == 0; }
  std::array<std::uint64_t, 3> size_array() const override { return {size_[0], size_[1], size_[2]}; }

  const Index& getSize() const { return size_; }
  Index getPageSize() const { return pageSize_; }
  const Index& getPageCount() const { return pageCount_; }
  std::vector<Page<T, 3>>& getPages() { return pages_; }
  const std::vector<Page<T, 3>>& getPages() const { return pages_; }

  // No bounds checks.
  T getVoxel(std::size_t x, std::size_t y, std::size_t z) const { return *locate(*this, x, y, z); }
  void setVoxel(std::size_t x, std::size_t y, std::size_t z, T value) { *locate(*this, x, y, z) = value; }

  // Calls visit(row, x, y, z, count) for every row of voxels of the box [begin, end) clipped to
  // the image: pages in order, within a page z, then y. `row` points at voxel (x, y, z) and the
  // count - 1 voxels after it along x.
  template <typename Visit>
  void visitRows(const Index& begin, const Index& end, Visit&& visit) {
    visitRowsOf(*this, begin, end, visit);
  }
  template <typename Visit>
  void visitRows(const Index& begin, const Index& end, Visit&& visit) const {
    visitRowsOf(*this, begin, end, visit);
  }

private:
  template <typename Self>
  static auto locate(Self& self, std::size_t x, std::size_t y, std::size_t z) {
    const Index& p = self.pageSize_;
    auto& page = self.pages_[((z / p[2]) * self.pageCount_[1] + y / p[1]) * self.pageCount_[0] + x / p[0]];
    const Index& e = page.getExtent();
    return page.data() + ((z % p[2]) * e[1] + y % p[1]) * e[0] + x % p[0];
  }

  template <typename Self, typename Visit>
  static void visitRowsOf(Self& self, const Index& begin, Index end, Visit& visit) {
    Index firstPage{}, endPage{};
    for (int k = 0; k < 3; ++k) {
      end[k] = std::min(end[k], self.size_[k]);
      if (begin[k] >= end[k]) return;
      firstPage[k] = begin[k] / self.pageSize_[k];
      endPage[k] = (end[k] - 1) / self.pageSize_[k] + 1;
    }
    for (std::size_t pz = firstPage[2]; pz < endPage[2]; ++pz)
      for (std::size_t py = firstPage[1]; py < endPage[1]; ++py)
        for (std::size_t px = firstPage[0]; px < endPage[0]; ++px) {
          auto& page = self.pages_[(pz * self.pageCount_[1] + py) * self.pageCount_[0] + px];
          const Index& origin = page.getOrigin();
          const Index& extent = page.getExtent();
          Index low{}, high{};
          for (int k = 0; k < 3; ++k) {
            low[k] = std::max(begin[k], origin[k]);
            high[k] = std::min(end[k], origin[k] + extent[k]);
          }
          for (std::size_t z = low[2]; z < high[2]; ++z)
            for (std::size_t y = low[1]; y < high[1]; ++y)
              visit(page.data() + ((z - origin[2]) * extent[1] + (y - origin[1])) * extent[0] + (low[0] - origin[0]),
                    low[0], y, z, high[0] - low[0]);
        }
  }

  Index size_;
  Index pageSize_;
  Index pageCount_;
  std::vector<Page<T, 3>> pages_;
};

template <typename T>
TImageDataset<T, 3>::TImageDataset(std::size_t sizeX, std::size_t sizeY, std::size_t sizeZ, std::size_t pageX,
                                   std::size_t pageY, std::size_t pageZ)
    : size_{sizeX, sizeY, sizeZ}, pageSize_{std::max<std::size_t>(pageX, 1), std::max<std::size_t>(pageY, 1),
                                            std::max<std::size_t>(pageZ, 1)} {
  std::size_t voxels = sizeof(T);
  std::size_t pages = 1;
  for (int k = 0; k < 3; ++k) {
    pageCount_[k] = size_[k] / pageSize_[k] + (size_[k] % pageSize_[k] != 0 ? 1 : 0);
    if (__builtin_mul_overflow(voxels, size_[k], &voxels) || __builtin_mul_overflow(pages, pageCount_[k], &pages))
      throw std::length_error("image too large");
  }
  pages_.reserve(pages);
  for (std::size_t pz = 0; pz < pageCount_[2]; ++pz)
    for (std::size_t py = 0; py < pageCount_[1]; ++py)
      for (std::size_t px = 0; px < pageCount_[0]; ++px) {
        const Index origin{px * pageSize_[0], py * pageSize_[1], pz * pageSize_[2]};
        Index extent{};
        for (int k = 0; k < 3; ++k) extent[k] = std::min(pageSize_[k], size_[k] - origin[k]);
        pages_.emplace_back(origin, extent);
      }
}

// Plain tiled TIFF images. Only non-empty signed and unsigned 8-, 16- and 32-bit integer and
// float images can be written: as classic little-endian TIFF, LZW-compressed, with tiles of the
// page size rounded up to multiples of 16. False when the image cannot be written, a tile cannot
// be encoded or the file or stream fails; the stream must be seekable.
bool writeTiffFile(const std::string& path, const ImageDataset* image);
bool writeTiffStream(const std::string& name, std::ostream* stream, const ImageDataset* image);

// A new image (reference count 1, released with UnRegister) with the file's tile size as page
// size, or null. Progress and failures are written to `log`, one line each, when it is not null.
ImageDataset* readTiffFile(const std::string& path, std::ostream* log);
ImageDataset* readTiffStream(const std::string& name, std::istream* stream, std::ostream* log);

// Copies the image into `buffer`, which holds the whole image x fastest, then y, then z, as
// elements of type `type` (int8 up to double), converting each voxel as a C++ conversion would;
// floating-point values going to integers are truncated toward zero and keep their low-order
// bits (NaN and infinities give 0). False for a null argument or an unsupported type.
bool dump(const ImageDataset* image, void* buffer, TypeID type);
// Fills the image (int8 up to double) from a buffer of elements of type `type` (bool up to
// double), laid out and converted as above.
bool dump(const void* buffer, TypeID type, ImageDataset* image);

}  // namespace tarv

#endif

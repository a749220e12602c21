#include "dataset/ImageDataset.h"

#include <boost/thread/exceptions.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#include "elementtypes/ElementConversions.h"
#include "imageio/TypedImages.h"

namespace tarv {

using imageio::withTypedImage;

// ---------------------------------------------------------------------------------------------
// Type identifiers

const char* typeIdName(TypeID id) {
  switch (id) {
    case TYPE_ID_NULL: return "null";
    case TYPE_ID_BOOL: return "bool";
    case TYPE_ID_INT8: return "int8_t";
    case TYPE_ID_UINT8: return "uint8_t";
    case TYPE_ID_INT16: return "int16_t";
    case TYPE_ID_UINT16: return "uint16_t";
    case TYPE_ID_INT32: return "int32_t";
    case TYPE_ID_UINT32: return "uint32_t";
    case TYPE_ID_INT64: return "int64_t";
    case TYPE_ID_UINT64: return "uint64_t";
    case TYPE_ID_FLOAT: return "float";
    case TYPE_ID_DOUBLE: return "double";
    case TYPE_ID_RGB8: return "rgb8_t";
  }
  return "???";
}

// ---------------------------------------------------------------------------------------------
// ImageDataset

namespace {

// Locks the reference count's mutex; raises boost::lock_error when there is none or locking fails.
boost::unique_lock<boost::mutex> lockMutex(boost::mutex* mutex) {
  boost::unique_lock<boost::mutex> lock =
      mutex ? boost::unique_lock<boost::mutex>(*mutex, boost::defer_lock) : boost::unique_lock<boost::mutex>();
  lock.lock();
  return lock;
}

}  // namespace

ImageDataset::ImageDataset() {
  try {
    mutex_ = std::make_unique<boost::mutex>();
  } catch (const boost::thread_resource_error&) {
    // Without a mutex every reference count operation raises boost::lock_error.
  }
}

ImageDataset::~ImageDataset() = default;

void ImageDataset::Register() const {
  boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
  ++referenceCount_;
}

void ImageDataset::UnRegister() const {
  bool last = false;
  {
    boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
    last = --referenceCount_ == 0;
  }
  // The mutex belongs to this object: it is released before the object goes.
  if (last) delete this;
}

int ImageDataset::GetRefCount() const {
  boost::unique_lock<boost::mutex> lock = lockMutex(mutex_.get());
  return referenceCount_;
}

TypeID ImageDataset::original_type_id() const {
  return originalTypeId_ == TYPE_ID_NULL ? type_id() : originalTypeId_;
}

bool ImageDataset::isRGBA() const { return rgba_ && type_id() == TYPE_ID_UINT32; }

void ImageDataset::setMinMaxValue(double min, double max) {
  minValue_ = min;
  maxValue_ = max;
}

void ImageDataset::computeMinMaxValueIfNeeded() const {
  if (minValue_ > maxValue_) computeMinMaxValue(this, minValue_, maxValue_);
}

double ImageDataset::getMinValue() const {
  computeMinMaxValueIfNeeded();
  return minValue_;
}

double ImageDataset::getMaxValue() const {
  computeMinMaxValueIfNeeded();
  return maxValue_;
}

void computeMinMaxValue(const ImageDataset* image, double& min, double& max) {
  if (!image || image->empty()) return;
  withTypedImage(image, [&]<typename T>(const TImageDataset<T, 3>& typed) {
    bool first = true;
    T low{};
    T high{};
    for (const Page<T, 3>& page : typed.getPages()) {
      const T* voxels = page.data();
      for (std::size_t i = 0, n = page.getVoxelCount(); i < n; ++i) {
        const T v = voxels[i];
        // Written so that a NaN becomes the maximum until the next voxel replaces it.
        if (first) {
          low = high = v;
          first = false;
        } else if (!(high >= v)) {
          high = v;
        } else if (!(v >= low)) {
          low = v;
        }
      }
    }
    if (!first) {
      min = static_cast<double>(low);
      max = static_cast<double>(high);
    }
    return true;
  });
}

// ---------------------------------------------------------------------------------------------
// Dense buffers

namespace {

template <typename To, typename From>
void convertRun(const From* source, To* target, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) target[i] = convertElementValueWrapping<To>(source[i]);
}

using imageio::denseOffset;
using imageio::imageOrigin;

bool isNumericTypeId(TypeID id) { return id >= TYPE_ID_INT8 && id <= TYPE_ID_DOUBLE; }

}  // namespace

bool dump(const ImageDataset* image, void* buffer, TypeID type) {
  if (!image || !buffer || !isNumericTypeId(type)) return false;
  return dispatchTypeId(type, [&]<typename To>() {
    return withTypedImage(image, [&]<typename From>(const TImageDataset<From, 3>& typed) {
      if constexpr (std::is_same_v<To, bool>) {
        return false;  // never a target
      } else {
        To* target = static_cast<To*>(buffer);
        const auto& size = typed.getSize();
        typed.visitRows(imageOrigin, size,
                        [&](const From* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
                          convertRun(row, target + denseOffset(imageOrigin, size, x, y, z), count);
                        });
        return true;
      }
    });
  });
}

bool dump(const void* buffer, TypeID type, ImageDataset* image) {
  if (!image || !buffer || !isNumericTypeId(image->type_id())) return false;
  return dispatchTypeId(type, [&]<typename From>() {
    return withTypedImage(image, [&]<typename To>(TImageDataset<To, 3>& typed) {
      if constexpr (std::is_same_v<To, bool>) {
        return false;  // never a target
      } else {
        const From* source = static_cast<const From*>(buffer);
        const auto& size = typed.getSize();
        typed.visitRows(imageOrigin, size,
                        [&](To* row, std::size_t x, std::size_t y, std::size_t z, std::size_t count) {
                          convertRun(source + denseOffset(imageOrigin, size, x, y, z), row, count);
                        });
        return true;
      }
    });
  });
}

}  // namespace tarv

#include "vtkbridge/VtkImageConversion.h"

#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>

#include <cstdint>
#include <cstring>
#include <iostream>

#include "dataset/Dataset.h"
#include "elementtypes/ElementOperations.h"
#include "vtkbridge/VtkScalarTypes.h"

namespace tarv::vtkbridge {

namespace {

// Element counts of a dataset are signed 32-bit.
constexpr std::int64_t kElementCountLimit = std::int64_t(1) << 31;

// Printed by fromImageData on every call, with this exact text and line number: callers match it.
const char* const kNonAxialWarning =
    "Warning: Results may be unexpected for non axial datasets. in src/dataset/Dataset:638";

}  // namespace

vtkImageData* imageDataOfTimeStep(Dataset& dataset, int t, bool withWorldEmbedding) {
  const TARVElementType elementType = dataset.getElementType();
  const DatasetCoordinates size = dataset.getSize();
  const int scalarType = vtkScalarTypeOf(elementType);
  if (scalarType == 0 || !dataset.hasData() || t < 0 || t >= size.t) return nullptr;
  vtkImageData* image = vtkImageData::New();
  image->SetDimensions(size.x, size.y, size.z);
  image->AllocateScalars(scalarType, 1);
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  void* block = scalars != nullptr ? scalars->GetVoidPointer(0) : nullptr;
  if (block == nullptr ||
      scalars->GetNumberOfTuples() != static_cast<vtkIdType>(size.x) * size.y * size.z) {
    image->Delete();
    return nullptr;
  }
  if (withWorldEmbedding) {
    const WorldCoordinates& spacing = dataset.getWorldEmbedding().getVoxelSpacing();
    const WorldCoordinates& origin = dataset.getWorldEmbedding().getDatasetOrigin();
    image->SetSpacing(spacing.x, spacing.y, spacing.z);
    image->SetOrigin(origin.x, origin.y, origin.z);
  } else {
    image->SetSpacing(1.0, 1.0, 1.0);
    image->SetOrigin(0.0, 0.0, 0.0);
  }
  const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(size.x - 1, size.y - 1, size.z - 1, t, 0));
  dispatchElementType(elementType, [&]<typename T>() {
    if constexpr (hasVtkScalar<T>) {
      using Scalar = VtkScalar<T>;
      Scalar* next = static_cast<Scalar*>(block);
      unsigned char value[kElementBufferSize] = {};
      for (DatasetCoordinatesIterator it = dataset.getStartCoordinatesIterator(step); it.valid;
           dataset.incrementCoordinatesIterator(step, it)) {
        dataset.getElementByBuffer(it, value);
        *next++ = readBufferAs<Scalar, T>(value);
      }
    }
  });
  return image;
}

void fillTimeStepFromImageData(Dataset& dataset, vtkImageData* image, int t) {
  if (image == nullptr || image->GetPointData() == nullptr) return;
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  if (scalars == nullptr) return;
  const TARVElementType type = elementTypeOfVtkScalarType(scalars->GetDataType());
  if (type == TARV_ELEMENT_TYPE_NO_TYPE) return;

  // Refuse images whose geometry and scalars disagree (as broken files can give).
  int dimensions[3] = {0, 0, 0};
  image->GetDimensions(dimensions);
  std::int64_t count = 1;
  for (int k = 0; k < 3; ++k) {
    if (dimensions[k] < 1 || count >= kElementCountLimit / dimensions[k]) return;
    count *= dimensions[k];
  }
  const int components = scalars->GetNumberOfComponents();
  const std::size_t valueSize = static_cast<std::size_t>(scalars->GetDataTypeSize());
  const unsigned char* block = static_cast<const unsigned char*>(scalars->GetVoidPointer(0));
  if (components < 1 || scalars->GetNumberOfTuples() < count || block == nullptr) return;
  if (isStorableElementType(type) && valueSize != DatasetMemory::getElementTypeByteSize(type)) return;

  const DatasetCoordinates size = dataset.getSize();
  const bool inPlace = dataset.hasData() && size.x == dimensions[0] && size.y == dimensions[1] &&
                       size.z == dimensions[2] && dataset.getElementType() == type && t >= 0 && t < size.t;
  if (!inPlace)
    dataset.newDataset(DatasetCoordinates(dimensions[0], dimensions[1], dimensions[2], 1, 1), type,
                       DatasetWorldEmbedding());

  double origin[3];
  double spacing[3];
  image->GetOrigin(origin);
  image->GetSpacing(spacing);
  DatasetWorldEmbedding& embedding = dataset.getWorldEmbedding();
  const double originT = embedding.getDatasetOrigin().t;
  const double spacingT = embedding.getVoxelSpacing().t;
  embedding.setDatasetOrigin(WorldCoordinates(origin[0], origin[1], origin[2], originT));
  embedding.setVoxelSpacing(WorldCoordinates(spacing[0], spacing[1], spacing[2], spacingT));
  std::cerr << kNonAxialWarning << std::endl;

  if (dataset.hasData() && t >= 0 && t < dataset.getSize().t) {
    const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0),
                                  DatasetCoordinates(dimensions[0] - 1, dimensions[1] - 1, dimensions[2] - 1, t, 0));
    const std::size_t stride = valueSize * static_cast<std::size_t>(components);
    unsigned char value[kElementBufferSize] = {};
    const unsigned char* next = block;
    for (DatasetCoordinatesIterator it = dataset.getStartCoordinatesIterator(step); it.valid;
         dataset.incrementCoordinatesIterator(step, it), next += stride) {
      std::memcpy(value, next, valueSize);
      dataset.setElementByBuffer(it, value);
    }
  }
  dataset.updateDependingDatasets();
}

}  // namespace tarv::vtkbridge

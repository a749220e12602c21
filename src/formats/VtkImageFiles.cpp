#include "formats/VtkImageFiles.h"

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkJPEGReader.h>
#include <vtkMatrix3x3.h>
#include <vtkNew.h>
#include <vtkPNGReader.h>
#include <vtkPointData.h>
#include <vtkTIFFReader.h>
#include <vtkXMLImageDataReader.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

#include "dataset/JPEGDatasetFileReadWrite.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/TIFFDatasetFileReadWrite.h"
#include "dataset/VTIDatasetFileReadWrite.h"
#include "formats/FileStatus.h"
#include "formats/VtkMessages.h"
#include "formats/VtiStructure.h"
#include "vtkbridge/VtkScalarTypes.h"

namespace tarv::formats {

namespace {

// VTK's PNG and JPEG readers give the file's last row first.
bool readerReversesRows(FileFormat format) { return format == FileFormat::png || format == FileFormat::jpeg; }

// So do their writers, and VTK's TIFF writer for an image of one plane (not for a volume, nor
// does its reader reverse rows): rows are reversed before such writes, so that the file's first
// row is y = 0 whatever reads it.
bool writerReversesRows(FileFormat format, const DatasetCoordinates& size) {
  return readerReversesRows(format) || (format == FileFormat::vtkTiff && size.z == 1);
}

std::unique_ptr<VTKDatasetFileReadWrite> classFor(FileFormat format) {
  switch (format) {
    case FileFormat::vtkTiff: return std::make_unique<TIFFDatasetFileReadWrite>();
    case FileFormat::png: return std::make_unique<PNGDatasetFileReadWrite>();
    case FileFormat::jpeg: return std::make_unique<JPEGDatasetFileReadWrite>();
    default: return std::make_unique<VTIDatasetFileReadWrite>();
  }
}

vtkAlgorithm* newReader(FileFormat format) {
  switch (format) {
    case FileFormat::vtkTiff: return vtkTIFFReader::New();
    case FileFormat::png: return vtkPNGReader::New();
    case FileFormat::jpeg: return vtkJPEGReader::New();
    default: return vtkXMLImageDataReader::New();
  }
}

void setFileName(vtkAlgorithm* reader, const std::string& path) {
  if (auto* xml = vtkXMLImageDataReader::SafeDownCast(reader))
    xml->SetFileName(path.c_str());
  else if (auto* image = vtkImageReader2::SafeDownCast(reader))
    image->SetFileName(path.c_str());
}

// The image's point scalars as a dataset: every component, its extent's start and direction in
// the embedding, rows reversed when flip.
Result<DatasetHandle> datasetOfImage(vtkImageData* image, bool flip) {
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  if (scalars == nullptr) {
    if (image->GetCellData()->GetNumberOfArrays() > 0) return unsupportedError("cell data (only point data is read)");
    return unsupportedError("no point data scalars");
  }
  TARVElementType type = vtkbridge::elementTypeOfVtkScalarType(scalars->GetDataType());
  // XML files name 64-bit integers Int64/UInt64, which VTK reads as long long.
  if (scalars->GetDataType() == VTK_LONG_LONG && sizeof(long long) == sizeof(long)) type = TARV_ELEMENT_TYPE_SIGNED_LONG_INT;
  if (scalars->GetDataType() == VTK_UNSIGNED_LONG_LONG && sizeof(long long) == sizeof(long))
    type = TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT;
  if (type == TARV_ELEMENT_TYPE_NO_TYPE || type == TARV_ELEMENT_TYPE_UNKNOWN)
    return unsupportedError(std::string(scalars->GetDataTypeAsString()) + " samples");
  int dimensions[3] = {0, 0, 0};
  image->GetDimensions(dimensions);
  const int components = scalars->GetNumberOfComponents();
  const std::int64_t voxels = static_cast<std::int64_t>(dimensions[0]) * dimensions[1] * dimensions[2];
  if (voxels < 1 || components < 1 || voxels * components > 2147483647LL || scalars->GetNumberOfTuples() != voxels)
    return unsupportedError("an image of " + std::to_string(voxels) + " voxels of " + std::to_string(components) +
                            " components");
  // World position of the extent's first voxel: origin + direction (extent start ⊙ spacing).
  int extent[6] = {0, 0, 0, 0, 0, 0};
  image->GetExtent(extent);
  double spacing[3] = {1.0, 1.0, 1.0};
  double origin[3] = {0.0, 0.0, 0.0};
  image->GetSpacing(spacing);
  image->GetOrigin(origin);
  vtkMatrix3x3* direction = image->GetDirectionMatrix();
  TransformationMatrix orientation;
  orientation.makeIdentity();
  double first[3] = {origin[0], origin[1], origin[2]};
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 3; ++column)
      first[row] += direction->GetElement(row, column) * extent[2 * column] * spacing[column];
  // Each axis's step in the world (its direction times its spacing) as a unit direction and a
  // positive spacing: the same voxel positions.
  for (int column = 0; column < 3; ++column) {
    double length = 0.0;
    for (int row = 0; row < 3; ++row) length += std::pow(direction->GetElement(row, column) * spacing[column], 2);
    length = std::sqrt(length);
    if (!(length > 0.0) || !std::isfinite(length))
      return corruptError("an image whose direction and spacing of axis " + std::to_string(column) + " give it no length");
    for (int row = 0; row < 3; ++row) orientation(row, column) = direction->GetElement(row, column) * spacing[column] / length;
    spacing[column] = length;
  }
  for (const double coordinate : first)
    if (!std::isfinite(coordinate)) return corruptError("an image whose origin is not finite");
  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(DatasetCoordinates(dimensions[0], dimensions[1], dimensions[2], 1, components), type,
                      DatasetWorldEmbedding(WorldCoordinates(first[0], first[1], first[2], 0.0),
                                            WorldCoordinates(spacing[0], spacing[1], spacing[2], 1.0), orientation));
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  const std::size_t rowBytes = static_cast<std::size_t>(dimensions[0]) * components * dataset->getElementByteSize();
  const auto* source = static_cast<const unsigned char*>(scalars->GetVoidPointer(0));
  auto* target = static_cast<unsigned char*>(dataset->getPlainElements());
  for (int z = 0; z < dimensions[2]; ++z)
    for (int y = 0; y < dimensions[1]; ++y) {
      const int from = flip ? dimensions[1] - 1 - y : y;
      std::memcpy(target + (static_cast<std::size_t>(z) * dimensions[1] + y) * rowBytes,
                  source + (static_cast<std::size_t>(z) * dimensions[1] + from) * rowBytes, rowBytes);
    }
  return handle;
}

// The dataset's rows in the other order, geometry kept.
Result<DatasetHandle> flippedRows(Dataset* dataset) {
  auto* flipped = new Dataset(true);
  DatasetHandle handle(flipped);
  flipped->copyFrom(dataset);
  if (!flipped->hasData()) return resourceExhaustedError("not enough memory to write it");
  const DatasetCoordinates size = dataset->getSize();
  for (DatasetCoordinatesIterator it = flipped->getStartCoordinatesIterator(); it.valid; flipped->incrementCoordinatesIterator(it)) {
    const DatasetCoordinates from(it.x, size.y - 1 - it.y, it.z, it.t, it.c);
    dataset->getElementByBuffer(from, flipped->getElementBuffer());
    flipped->setElementByBuffer(it, flipped->getElementBuffer());
  }
  return handle;
}

}  // namespace

Result<DatasetHandle> readVtkImageFile(const std::string& path, FileFormat format) {
  // The class of the format checks the file first; its refusals stand. A .vti file is checked
  // here, to name what it holds that cannot be read.
  if (format != FileFormat::vti) {
    std::unique_ptr<VTKDatasetFileReadWrite> checked = classFor(format);
    checked->setFileName(path);
    Dataset scratch(true);
    if (Status status = readVtkFile(*checked, &scratch, 0); !status.ok()) return status;
  } else {
    vtkNew<vtkXMLImageDataReader> probe;
    if (probe->CanReadFile(path.c_str()) == 0) return corruptError("not a readable VTK image data file");
    if (Status structure = checkVtiStructure(path); !structure.ok()) return structure;
  }
  vtkAlgorithm* reader = newReader(format);
  setFileName(reader, path);
  Result<vtkImageData*> image = runVtkReader(reader);
  Result<DatasetHandle> dataset = image.ok() ? datasetOfImage(*image, readerReversesRows(format)) : Result<DatasetHandle>(image.status());
  reader->Delete();
  return dataset;
}

Status writeVtkImageFile(Dataset* dataset, const std::string& path, FileFormat format) {
  DatasetHandle flipped;
  Dataset* data = dataset;
  if (writerReversesRows(format, dataset->getSize())) {
    Result<DatasetHandle> rows = flippedRows(dataset);
    if (!rows.ok()) return rows.status();
    flipped = *rows;
    data = GetRawPtr(flipped);
  }
  std::unique_ptr<VTKDatasetFileReadWrite> writer = classFor(format);
  writer->setFileName(path);
  return writeVtkFile(*writer, data, 0);
}

}  // namespace tarv::formats
